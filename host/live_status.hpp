// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What a running host does, second by second.
#ifndef HOST_LIVE_STATUS_HPP
#define HOST_LIVE_STATUS_HPP

#include <memory>
#include <optional>
#include <string>

#include <vorn/attitude_monitor.hpp>
#include <vorn/raii.hpp>

/** Sums since the view was prepared. */
struct StreamSums {
  uint64_t frames_in = 0;
  uint64_t frames_out = 0;
  uint64_t bytes = 0;
  uint64_t drops = 0;
  int64_t latency_ns = 0;    // the sum over those whose capture time is known
  uint64_t timed_frames = 0; // how many these are
};

/** One second, or what it took. Empty: there is nothing to tell. */
struct LiveValues {
  double fps_in = 0;
  double fps_out = 0;
  double bits_per_second = 0;
  uint64_t drops = 0;               // since the start
  std::optional<double> latency_ms; // from capture to the encoded unit, the mean
  std::optional<double> attitudes_per_second;
  std::optional<double> error_rms_deg; // against the truth
  std::optional<double> error_max_deg;
};

/** Bound to one thread. */
class LiveStatus
{
public:
  /** To be called a few times a second: takes in the attitudes that came. */
  void poll ();
  /** Ends a second. now_ns: CLOCK_MONOTONIC. */
  const LiveValues &tick (const StreamSums &sums, int64_t now_ns);
  /** Of the last second that ended. */
  const LiveValues &values () const { return values_; }

private:
  bool attitudes_flow ();

  // Made once there are attitudes: looking for what is not there is logged.
  std::unique_ptr<vorn::AttitudeMonitor> monitor_;
  vorn::AttitudeStatistics second_;
  StreamSums last_;
  int64_t last_ns_ = vorn::AttitudeMonitor::monotonic_ns ();
  LiveValues values_;
};

#endif
