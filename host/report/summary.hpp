// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A run summed up: for other programs, and for whoever watches the terminal.
#ifndef HOST_REPORT_SUMMARY_HPP
#define HOST_REPORT_SUMMARY_HPP

#include <string>

#include "figures.hpp"
#include "record.hpp"

namespace report
{

/** The content of summary.json; docs/running.md describes its keys. What is not known is null. */
std::string summary_json (const RunRecord &record, const Figures &figures);

/** The table for the terminal: lines of "name  value", then the warnings. */
std::string summary_table (const RunRecord &record, const Figures &figures);

/**
 * The line of one second, a dash for what is not known: "   5 s  recording 1280x720 at 30/1 in 30.0
 * out 30.0 fps  1500 kbit/s  latency 45 ms  1000 attitudes/s  error 0.120 deg  0 dropped".
 */
std::string status_line (const StatusSample &sample, double seconds_since_start);

} // namespace report

#endif
