// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The charts of a run: which lines they show.
#ifndef HOST_REPORT_HTML_CHARTS_HPP
#define HOST_REPORT_HTML_CHARTS_HPP

#include <vector>

#include "record.hpp"
#include "svg_chart.hpp"

namespace report
{

/** Roll, pitch and yaw, truth and estimate, and the angle between them. */
std::vector<Chart> attitude_charts (const RunRecord &record);

/** Frame intervals of the recordings; rates, latency and bitrate of the stream. */
std::vector<Chart> stream_charts (const RunRecord &record);

} // namespace report

#endif
