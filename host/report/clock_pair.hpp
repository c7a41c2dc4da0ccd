// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// One moment on two clocks: what a drone's clock says and what the calendar says.
#ifndef HOST_REPORT_CLOCK_PAIR_HPP
#define HOST_REPORT_CLOCK_PAIR_HPP

#include <cstdint>
#include <optional>
#include <string>

namespace report
{

/**
 * One moment, on CLOCK_MONOTONIC (which frames, attitudes and telemetry are timed by) and as time
 * since 1970-01-01 00:00:00 UTC. A plain value; its functions are reentrant.
 */
struct ClockPair {
  int64_t monotonic_ns = 0;
  int64_t utc_ns = 0;

  /** Now: both clocks read as close together as a few tries allow, microseconds apart. */
  static ClockPair now ();

  /** The same moment in UTC; a step of the calendar's clock since the pair was taken stays out. */
  int64_t utc_of (int64_t monotonic) const { return utc_ns + (monotonic - monotonic_ns); }
};

/** "2026-11-20T14:03:27.500000Z", rounded down to microseconds; empty beyond the year 9999. */
std::string utc_text (int64_t utc_ns);

/**
 * The moment that has this time of day, on a clock whose days begin at multiples of 24 h: the first
 * one that is not before earliest_ns. time_of_day_us: 0 to 24 h.
 */
int64_t moment_of_day (int64_t time_of_day_us, int64_t earliest_ns);

/**
 * Reads the pair from a JSON file that has it as "clock": {"monotonic_ns": N, "utc_ns": N}, as
 * summary.json has. Empty when it cannot: error says why.
 */
std::optional<ClockPair> load_clock_pair (const std::string &path, std::string *error);

} // namespace report

#endif
