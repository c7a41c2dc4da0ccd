// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * Watches the camera's attitude as it comes onto the blackboard (section "accurate_attitude") and
 * compares it with the truth that a simulated drone publishes (telemetry section "truth").
 *
 *     vorn::AttitudeMonitor monitor;
 *     vorn::AttitudeStatistics second;
 *     monitor.poll ([&] (const vorn::MonitoredAttitude &attitude) { second.add (attitude); });
 *     if (second.compared > 0)
 *       use (second.error_rms_rad ());
 */
#ifndef VORN_ATTITUDE_MONITOR_HPP
#define VORN_ATTITUDE_MONITOR_HPP

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <deque>
#include <memory>
#include <optional>
#include <vector>

#include <vorn/blackboard.h>
#include <vorn/telemetry.h>

namespace vorn
{

/** An attitude, camera to NED, as rotations about the axes: yaw first, then pitch, then roll. */
struct EulerAngles {
  double roll_rad;
  double pitch_rad;
  double yaw_rad;
};

/** One attitude from the blackboard. */
struct MonitoredAttitude {
  int64_t time_ns; /**< of the gyro sample, CLOCK_MONOTONIC */
  int64_t seen_ns; /**< when it was first seen */
  float x, y, z, w;
  /** The angle to the truth of the same time, 0 to pi; empty when that is not known. */
  std::optional<double> error_rad;

  /** Z-Y-X angles; pitch -pi/2 to pi/2, the others -pi to pi. */
  EulerAngles euler () const
  {
    const double qx = x;
    const double qy = y;
    const double qz = z;
    const double qw = w;
    return {std::atan2 (2 * (qw * qx + qy * qz), 1 - 2 * (qx * qx + qy * qy)),
            std::asin (std::clamp (2 * (qw * qy - qz * qx), -1.0, 1.0)),
            std::atan2 (2 * (qw * qz + qx * qy), 1 - 2 * (qy * qy + qz * qz))};
  }
};

/** Sums over attitudes. Bound to one thread, like any value. */
struct AttitudeStatistics {
  uint64_t count = 0;
  uint64_t compared = 0;       /**< those with a known truth */
  double error_square_sum = 0; /**< rad^2 */
  double error_max_rad = 0;
  uint64_t gaps = 0;           /**< steps longer than one and a half milliseconds, or backwards */
  int64_t longest_step_ns = 0; /**< between neighbours in time */
  int64_t latest_seen_ns = 0;  /**< the longest from an attitude's time to when it was seen */
  int64_t last_ns = 0;         /**< time of the latest; 0 before the first */

  void add (const MonitoredAttitude &attitude)
  {
    constexpr int64_t longest_regular_step_ns = 1'500'000;
    if (last_ns) {
      const int64_t step_ns = attitude.time_ns - last_ns;
      gaps += step_ns <= 0 || step_ns > longest_regular_step_ns;
      longest_step_ns = std::max (longest_step_ns, step_ns);
    }
    last_ns = attitude.time_ns;
    count++;
    latest_seen_ns = std::max (latest_seen_ns, attitude.seen_ns - attitude.time_ns);
    if (!attitude.error_rad)
      return;
    compared++;
    error_square_sum += *attitude.error_rad * *attitude.error_rad;
    error_max_rad = std::max (error_max_rad, *attitude.error_rad);
  }
  /** 0 without compared attitudes. */
  double error_rms_rad () const
  {
    return compared ? std::sqrt (error_square_sum / static_cast<double> (compared)) : 0;
  }
  /** Begins anew, the next step counted from the latest attitude. */
  void restart ()
  {
    const int64_t last = last_ns;
    *this = {};
    last_ns = last;
  }
};

/**
 * The watcher, of the namespace that is current when it is made. Bound to one thread. Sections may
 * appear, go and come back; what was published while nobody polled is read as far as the section
 * still has it.
 */
class AttitudeMonitor
{
public:
  AttitudeMonitor () : truth_consumer_ (vorn_telemetry_consumer_new ())
  {
    static constexpr std::array<const char *, 5> names = {"truth.time_s", "truth.q_x", "truth.q_y",
                                                          "truth.q_z", "truth.q_w"};
    for (size_t i = 0; i < names.size (); i++) {
      const VornTelemetryEntry entry = {names[i], VORN_TELEMETRY_F64, sizeof (double), 1,
                                        &truth_[i]};
      vorn_telemetry_consumer_register (truth_consumer_, &entry, 1);
    }
    vorn_telemetry_consumer_complete (truth_consumer_);
  }
  ~AttitudeMonitor ()
  {
    close_section ();
    vorn_telemetry_consumer_destroy (truth_consumer_);
  }
  AttitudeMonitor (const AttitudeMonitor &) = delete;
  AttitudeMonitor &operator= (const AttitudeMonitor &) = delete;

  /**
   * Calls visit (const MonitoredAttitude &) for what came since the last poll, in order of time;
   * the first poll begins with the newest. An attitude whose truth is published but not that far
   * yet is handed out by a later poll, after half a second at the latest.
   */
  template <typename Visit>
  void poll (Visit visit)
  {
    const int64_t now_ns = monotonic_ns ();
    fetch (now_ns);
    while (!waiting_.empty ()) {
      MonitoredAttitude &attitude = waiting_.front ();
      if (!compare (&attitude) && now_ns - attitude.seen_ns < longest_wait_ns)
        break;
      visit (attitude);
      waiting_.pop_front ();
    }
  }

  /** Time of the newest attitude that was seen, ns; 0 before the first. */
  int64_t newest_ns () const { return newest_ns_; }

  /** CLOCK_MONOTONIC. */
  static int64_t monotonic_ns ()
  {
    timespec now = {};
    clock_gettime (CLOCK_MONOTONIC, &now);
    return ns_of (now);
  }

private:
  static constexpr int64_t ns_per_s = 1'000'000'000;
  static constexpr int64_t longest_wait_ns = ns_per_s / 2;
  static constexpr double same_time_s = 0.0005; // samples of both come each millisecond
  static constexpr size_t room = 2000;
  using Sample = std::array<float, 4>;

  static int64_t ns_of (const timespec &time)
  {
    return int64_t{time.tv_sec} * ns_per_s + time.tv_nsec;
  }
  bool open_section ()
  {
    if (reader_)
      return true;
    // A section that is not there is reported at each try.
    const int64_t now_ns = monotonic_ns ();
    if (now_ns < next_open_ns_)
      return false;
    next_open_ns_ = now_ns + ns_per_s;
    reader_ = vorn_blackboard_open ("accurate_attitude", &revision_);
    VornBlackboardHeader header = {};
    if (reader_ && vorn_blackboard_get_header (reader_, &header) == 0 &&
        header.sample_size != sizeof (Sample))
      close_section ();
    return reader_;
  }
  void close_section ()
  {
    if (reader_)
      vorn_blackboard_close (reader_, revision_);
    reader_ = nullptr;
  }
  /** What is selected; empty when it was overwritten meanwhile. */
  size_t read_selected ()
  {
    const int count = vorn_blackboard_read_times (reader_, times_.data (), times_.size ());
    if (count <= 0 ||
        vorn_blackboard_read (reader_, 0, samples_.data (), sizeof (Sample) * room) != count ||
        vorn_blackboard_end_read (reader_, revision_) != 0)
      return 0;
    return static_cast<size_t> (count);
  }
  /** Queues what is new. */
  void fetch (int64_t now_ns)
  {
    if (!open_section ())
      return;
    size_t count = 0;
    if (newest_ns_) {
      const timespec start = {static_cast<time_t> (newest_ns_ / ns_per_s),
                              static_cast<long> (newest_ns_ % ns_per_s)};
      if (vorn_blackboard_select (reader_, &start, VORN_BLACKBOARD_SPAN, room - 1) == 0)
        count = read_selected ();
    }
    // At first, or when the history was lost or begun anew.
    if (count == 0) {
      const int result = vorn_blackboard_select (reader_, nullptr, VORN_BLACKBOARD_LATEST, 0);
      if (result == -ESTALE)
        close_section ();
      if (result == 0)
        count = read_selected ();
      if (count && ns_of (times_[0]) < newest_ns_)
        newest_ns_ = 0;
    }
    for (size_t i = 0; i < count; i++) {
      const int64_t time_ns = ns_of (times_[i]);
      if (time_ns <= newest_ns_)
        continue;
      newest_ns_ = time_ns;
      const Sample &q = samples_[i];
      waiting_.push_back ({time_ns, now_ns, q[0], q[1], q[2], q[3], std::nullopt});
    }
  }
  /** Fills in the error; false when the truth of that time may still come. */
  bool compare (MonitoredAttitude *attitude)
  {
    const timespec time = {static_cast<time_t> (attitude->time_ns / ns_per_s),
                           static_cast<long> (attitude->time_ns % ns_per_s)};
    if (vorn_telemetry_consumer_get (truth_consumer_, &time, VORN_TELEMETRY_VALID_AT) != 0)
      return true;
    if (static_cast<double> (attitude->time_ns) * 1e-9 - truth_[0] > same_time_s)
      return false;
    // conjugate (truth) * attitude; its vector part's length is the sine of half the angle.
    const double x = attitude->x;
    const double y = attitude->y;
    const double z = attitude->z;
    const double w = attitude->w;
    const double tx = truth_[1];
    const double ty = truth_[2];
    const double tz = truth_[3];
    const double tw = truth_[4];
    const double ex = tw * x - tx * w - ty * z + tz * y;
    const double ey = tw * y + tx * z - ty * w - tz * x;
    const double ez = tw * z - tx * y + ty * x - tz * w;
    const double ew = tw * w + tx * x + ty * y + tz * z;
    attitude->error_rad = 2 * std::atan2 (std::hypot (ex, ey, ez), std::abs (ew));
    return true;
  }

  VornBlackboardReader *reader_ = nullptr;
  VornBlackboardRevision *revision_ = nullptr;
  VornTelemetryConsumer *truth_consumer_;
  std::array<double, 5> truth_ = {};
  int64_t newest_ns_ = 0;
  int64_t next_open_ns_ = 0;
  std::vector<timespec> times_ = std::vector<timespec> (room);
  std::vector<Sample> samples_ = std::vector<Sample> (room);
  std::deque<MonitoredAttitude> waiting_; // for their truth
};

} // namespace vorn

#endif
