// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A run as a page for a browser.
#ifndef HOST_REPORT_HTML_HPP
#define HOST_REPORT_HTML_HPP

#include <string>

#include "figures.hpp"
#include "record.hpp"

namespace report
{

/**
 * One page that needs nothing else: key figures, charts, photos and covers, with links to the files
 * beside it. Valid HTML and well-formed XML; light or dark as the reader's system is. Reentrant.
 */
std::string report_html (const RunRecord &record, const Figures &figures);

} // namespace report

#endif
