// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "attitude_collector.hpp"

#include <array>
#include <chrono>
#include <cmath>
#include <ctime>
#include <numbers>
#include <pthread.h>

#include <vorn/raii.hpp>
#include <vorn/telemetry.h>

namespace report
{

namespace
{

constexpr int64_t ns_per_s = 1'000'000'000;
constexpr auto poll_period = std::chrono::milliseconds (20);
constexpr int64_t truth_period_ns = 10'000'000;
// Estimates are handed out half a second late at most: until then the truth is not yet alone.
constexpr int64_t settled_ns = ns_per_s;
constexpr double degrees_per_rad = 180 / std::numbers::pi;

} // namespace

/** The telemetry's section "truth". Bound to one thread. */
class AttitudeCollector::Truth
{
public:
  Truth () : consumer_ (vorn_telemetry_consumer_new ())
  {
    static constexpr std::array<const char *, 5> names = {"truth.time_s", "truth.q_x", "truth.q_y",
                                                          "truth.q_z", "truth.q_w"};
    for (size_t i = 0; i < names.size (); i++) {
      const VornTelemetryEntry entry = {names[i], VORN_TELEMETRY_F64, sizeof (double), 1,
                                        &values_[i]};
      vorn_telemetry_consumer_register (consumer_.get (), &entry, 1);
    }
    vorn_telemetry_consumer_complete (consumer_.get ());
  }

  /** What was true at a time, to within half a millisecond; not known else. */
  Attitude at (int64_t time_ns)
  {
    int64_t found_ns = 0;
    const Attitude attitude = valid_at (time_ns, &found_ns);
    return time_ns - found_ns <= 500'000 ? attitude : Attitude{};
  }

  /** What was last published at or before a time. */
  Attitude valid_at (int64_t time_ns, int64_t *found_ns)
  {
    const timespec time = {static_cast<time_t> (time_ns / ns_per_s),
                           static_cast<long> (time_ns % ns_per_s)};
    *found_ns = 0;
    if (vorn_telemetry_consumer_get (consumer_.get (), &time, VORN_TELEMETRY_VALID_AT) != 0)
      return {};
    *found_ns = std::llround (values_[0] * 1e9);
    return {static_cast<float> (values_[1]), static_cast<float> (values_[2]),
            static_cast<float> (values_[3]), static_cast<float> (values_[4])};
  }

private:
  std::array<double, 5> values_ = {};
  vorn::Owned<VornTelemetryConsumer, vorn_telemetry_consumer_destroy> consumer_;
};

AttitudeCollector::AttitudeCollector (bool with_estimates)
    : with_estimates_ (with_estimates), second_began_ns_ (vorn::AttitudeMonitor::monotonic_ns ()),
      next_truth_ns_ (second_began_ns_), thread_ ([this] { run (); })
{
}

AttitudeCollector::~AttitudeCollector ()
{
  stop ();
}

void AttitudeCollector::stop ()
{
  {
    const std::lock_guard lock (mutex_);
    stop_ = true;
  }
  wake_.notify_all ();
  if (thread_.joinable ())
    thread_.join ();
}

AttitudeSecond AttitudeCollector::take_second ()
{
  const std::lock_guard lock (mutex_);
  const int64_t now_ns = vorn::AttitudeMonitor::monotonic_ns ();
  const double seconds = static_cast<double> (now_ns - second_began_ns_) * 1e-9;
  AttitudeSecond result;
  if (seconds > 0)
    result.per_s = static_cast<double> (second_.count) / seconds;
  if (second_.compared > 0)
    result.error_rms_deg = second_.error_rms_rad () * degrees_per_rad;
  second_began_ns_ = now_ns;
  second_.restart ();
  return result;
}

void AttitudeCollector::run ()
{
  pthread_setname_np (pthread_self (), "attitudes");
  std::optional<vorn::AttitudeMonitor> monitor;
  if (with_estimates_)
    monitor.emplace ();
  Truth truth;
  for (bool stopping = false; !stopping;) {
    {
      std::unique_lock lock (mutex_);
      stopping = wake_.wait_for (lock, poll_period, [this] { return stop_; });
    }
    if (monitor)
      take_estimates (&*monitor, &truth);
    const int64_t now_ns = vorn::AttitudeMonitor::monotonic_ns ();
    take_truth_alone (&truth, stopping ? now_ns : now_ns - settled_ns);
  }
}

void AttitudeCollector::take_estimates (vorn::AttitudeMonitor *monitor, Truth *truth)
{
  const std::lock_guard lock (mutex_);
  monitor->poll ([&] (const vorn::MonitoredAttitude &attitude) {
    const Attitude estimate = {attitude.x, attitude.y, attitude.z, attitude.w};
    if (!estimate.known ()) {
      unusable_++;
      return;
    }
    series_.add ({attitude.time_ns, estimate, truth->at (attitude.time_ns)});
    second_.add (attitude);
    totals_.add (attitude);
    newest_estimate_ns_ = attitude.time_ns;
  });
}

void AttitudeCollector::take_truth_alone (Truth *truth, int64_t until_ns)
{
  // What was published longer ago than the telemetry keeps is gone.
  next_truth_ns_ = std::max (next_truth_ns_, until_ns - 2 * ns_per_s);
  for (; next_truth_ns_ <= until_ns; next_truth_ns_ += truth_period_ns) {
    if (next_truth_ns_ <= newest_estimate_ns_ + 2 * truth_period_ns)
      continue;
    int64_t time_ns = 0;
    const Attitude attitude = truth->valid_at (next_truth_ns_, &time_ns);
    if (attitude.known () && next_truth_ns_ - time_ns < truth_period_ns)
      series_.add ({time_ns, {}, attitude});
  }
}

} // namespace report
