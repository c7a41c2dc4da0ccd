// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Collects the attitudes of a run while it goes on.
#ifndef HOST_REPORT_ATTITUDE_COLLECTOR_HPP
#define HOST_REPORT_ATTITUDE_COLLECTOR_HPP

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include <vorn/attitude_monitor.hpp>

#include "attitude_series.hpp"

namespace report
{

/** What came since the last look. */
struct AttitudeSecond {
  double per_s = 0;
  std::optional<double> error_rms_deg; // empty: nothing to compare
};

/**
 * Watches the blackboard's attitudes and the telemetry's truth, of the namespace that is current
 * when it is made, in a thread of its own: whatever holds up its owner, no sample is missed. Where
 * there is no estimate the truth is kept alone, a hundred times a second. Thread-safe.
 */
class AttitudeCollector
{
public:
  /** with_estimates: FALSE where nobody computes attitudes, so that nobody looks for them. */
  explicit AttitudeCollector (bool with_estimates);
  ~AttitudeCollector ();
  AttitudeCollector (const AttitudeCollector &) = delete;
  AttitudeCollector &operator= (const AttitudeCollector &) = delete;

  AttitudeSecond take_second ();

  /** Takes the last samples and ends the thread. What was collected may then be taken. */
  void stop ();
  /** After stop () only. */
  AttitudeSeries take_series () { return std::move (series_); }
  const vorn::AttitudeStatistics &totals () const { return totals_; }
  /** Attitudes that were no quaternion: not a number, or infinite. */
  uint64_t unusable () const { return unusable_; }

private:
  class Truth;

  void run ();
  void take_estimates (vorn::AttitudeMonitor *monitor, Truth *truth);
  void take_truth_alone (Truth *truth, int64_t until_ns);

  const bool with_estimates_;
  std::mutex mutex_; // guards what follows; leaf lock
  std::condition_variable wake_;
  bool stop_ = false;
  vorn::AttitudeStatistics second_;
  int64_t second_began_ns_;
  // The thread's until it has ended.
  AttitudeSeries series_;
  vorn::AttitudeStatistics totals_;
  uint64_t unusable_ = 0;
  int64_t newest_estimate_ns_ = 0;
  int64_t next_truth_ns_ = 0;
  std::thread thread_; // last: it uses all the others
};

} // namespace report

#endif
