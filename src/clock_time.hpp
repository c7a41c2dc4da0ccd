// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Clock times as the blackboard and the telemetry bus want them.
#ifndef CLOCK_TIME_HPP
#define CLOCK_TIME_HPP

#include <ctime>

#include <glib.h>

/** Nanoseconds as a pair of seconds and nanoseconds. */
constexpr timespec timespec_of (guint64 time_ns)
{
  constexpr guint64 ns_per_s = 1000000000;
  return {static_cast<time_t> (time_ns / ns_per_s), static_cast<long> (time_ns % ns_per_s)};
}

#endif
