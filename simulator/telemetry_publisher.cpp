// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "telemetry_publisher.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <pthread.h>
#include <thread>
#include <type_traits>

#include <vorn/raii.hpp>
#include <vorn/telemetry.h>

#include "iio_server.hpp"
#include "random.hpp"

namespace sim
{

namespace
{

constexpr int64_t ns_per_s = 1'000'000'000;
constexpr int64_t most_missed_ns = ns_per_s;
constexpr int64_t kept_ns = 4 * ns_per_s;
constexpr uint64_t noise_stream = 16; // the gyroscope has the first ones
constexpr int32_t satellites_in_view = 14;

timespec timespec_of (int64_t time_ns)
{
  return {static_cast<time_t> (time_ns / ns_per_s), static_cast<long> (time_ns % ns_per_s)};
}

/** A rotation about an axis by an angle, both in the vector. */
Quat rotation_by (const Vec3 &vector)
{
  const double angle = length (vector);
  if (angle == 0)
    return {0, 0, 0, 1};
  const double s = std::sin (angle / 2) / angle;
  return {vector.x * s, vector.y * s, vector.z * s, std::cos (angle / 2)};
}

/** One section; variables are added before it is opened, and written before each put. */
class Section
{
public:
  Section (const char *name, int64_t period_ns)
      : name_ (name), period_ns_ (period_ns),
        producer_ (vorn_telemetry_producer_new (name, static_cast<uint32_t> (kept_ns / period_ns),
                                                static_cast<uint32_t> (period_ns / 1000)))
  {
  }
  template <typename T>
  Section &add (const char *variable, const T &value)
  {
    constexpr uint32_t type = std::is_same_v<T, float>    ? VORN_TELEMETRY_F32
                              : std::is_same_v<T, double> ? VORN_TELEMETRY_F64
                                                          : VORN_TELEMETRY_INT32;
    static_assert (type != VORN_TELEMETRY_INT32 || std::is_same_v<T, int32_t>);
    if (result_ == 0)
      result_ = vorn_telemetry_producer_register (producer_.get (), variable, type, sizeof (T), 1,
                                                  &value);
    return *this;
  }
  /** Makes it visible; the reason of a failure, or empty. */
  std::string open ()
  {
    if (result_ == 0)
      result_ = vorn_telemetry_producer_complete (producer_.get ());
    if (result_ == 0)
      return {};
    return std::string ("cannot publish the telemetry section '") + name_ +
           "': " + strerror (-result_);
  }
  bool is_due (int64_t since_start_ns) const { return since_start_ns % period_ns_ == 0; }
  void put (int64_t time_ns) const
  {
    const timespec time = timespec_of (time_ns);
    vorn_telemetry_producer_put (producer_.get (), &time);
  }

private:
  const char *name_;
  int64_t period_ns_;
  vorn::Owned<VornTelemetryProducer, vorn_telemetry_producer_destroy> producer_;
  int result_ = 0;
};

template <typename T>
void store (T (&to)[4], const Quat &q)
{
  to[0] = static_cast<T> (q.x);
  to[1] = static_cast<T> (q.y);
  to[2] = static_cast<T> (q.z);
  to[3] = static_cast<T> (q.w);
}

template <typename T>
void store (T (&to)[3], const Vec3 &v)
{
  to[0] = static_cast<T> (v.x);
  to[1] = static_cast<T> (v.y);
  to[2] = static_cast<T> (v.z);
}

class ThreadedPublisher final : public TelemetryPublisher
{
public:
  ThreadedPublisher (const Drone &drone, const TelemetryOptions &options)
      : drone_ (drone), options_ (options)
  {
    video_.add ("drone_est_ned_start_q_x", estimate_[0])
        .add ("drone_est_ned_start_q_y", estimate_[1])
        .add ("drone_est_ned_start_q_z", estimate_[2])
        .add ("drone_est_ned_start_q_w", estimate_[3]);
    controller_.add ("video_ref_ned_start_q_w", view_[3])
        .add ("video_ref_ned_start_q_x", view_[0])
        .add ("video_ref_ned_start_q_y", view_[1])
        .add ("video_ref_ned_start_q_z", view_[2])
        .add ("hfov", hfov_deg_);
    zoom_.add ("hfov", hfov_rad_).add ("vfov", vfov_rad_);
    position_.add ("latitude", place_.latitude_deg)
        .add ("longitude", place_.longitude_deg)
        .add ("altitude_m", place_.altitude_m)
        .add ("velocity_north", velocity_[0])
        .add ("velocity_east", velocity_[1])
        .add ("velocity_down", velocity_[2])
        .add ("roll", roll_deg_)
        .add ("pitch", pitch_deg_)
        .add ("yaw", yaw_deg_)
        .add ("satellites", satellites_);
    truth_.add ("time_s", true_time_s_)
        .add ("q_x", true_attitude_[0])
        .add ("q_y", true_attitude_[1])
        .add ("q_z", true_attitude_[2])
        .add ("q_w", true_attitude_[3])
        .add ("rate_x", true_rate_[0])
        .add ("rate_y", true_rate_[1])
        .add ("rate_z", true_rate_[2])
        .add ("north", true_position_[0])
        .add ("east", true_position_[1])
        .add ("down", true_position_[2])
        .add ("velocity_north", true_velocity_[0])
        .add ("velocity_east", true_velocity_[1])
        .add ("velocity_down", true_velocity_[2]);
  }
  ~ThreadedPublisher () override
  {
    stop_ = true;
    if (thread_.joinable ())
      thread_.join ();
  }

  std::string begin ()
  {
    for (Section *section : {&video_, &controller_, &zoom_, &position_, &truth_}) {
      std::string error = section->open ();
      if (!error.empty ())
        return error;
    }
    thread_ = std::thread ([this] { run (); });
    return {};
  }

private:
  void run ()
  {
    pthread_setname_np (pthread_self (), "telemetry");
    int64_t tick = tick_of (monotonic_ns ()) + 1;
    while (!stop_) {
      const timespec due = timespec_of (time_of (tick));
      // Interrupted or not: what is not due yet is waited for again.
      clock_nanosleep (CLOCK_MONOTONIC, TIMER_ABSTIME, &due, nullptr);
      const int64_t last = tick_of (monotonic_ns ());
      tick = std::max (tick, last - most_missed_ns / telemetry_period_ns);
      for (; tick <= last && !stop_; tick++)
        publish (tick);
    }
  }
  int64_t time_of (int64_t tick) const { return drone_.start_ns + tick * telemetry_period_ns; }
  int64_t tick_of (int64_t now_ns) const
  {
    return now_ns < drone_.start_ns ? -1 : (now_ns - drone_.start_ns) / telemetry_period_ns;
  }

  void publish (int64_t tick)
  {
    const int64_t time_ns = time_of (tick);
    const int64_t since_start_ns = tick * telemetry_period_ns;
    const FlightState state = drone_.state_at (time_ns);
    true_time_s_ = static_cast<double> (time_ns) * 1e-9;
    store (true_attitude_, state.attitude);
    store (true_rate_, state.rate_rad_s);
    store (true_position_, state.position_m);
    store (true_velocity_, state.velocity_m_s);
    truth_.put (time_ns);
    if (video_.is_due (since_start_ns)) {
      store (estimate_, estimated_attitude (drone_, options_, time_ns));
      video_.put (time_ns);
    }
    if (controller_.is_due (since_start_ns)) {
      store (view_, levelled (state.attitude));
      controller_.put (time_ns);
    }
    if (zoom_.is_due (since_start_ns))
      zoom_.put (time_ns);
    if (position_.is_due (since_start_ns)) {
      place_ = geo_position (drone_.home, state.position_m);
      store (velocity_, state.velocity_m_s);
      const Euler euler = euler_of (state.attitude);
      roll_deg_ = static_cast<float> (euler.roll / degree);
      pitch_deg_ = static_cast<float> (euler.pitch / degree);
      yaw_deg_ = static_cast<float> (euler.yaw / degree);
      position_.put (time_ns);
    }
  }

  const Drone drone_;
  const TelemetryOptions options_;

  // What the sections publish; written by the thread only.
  float estimate_[4] = {};
  float view_[4] = {};
  const float hfov_deg_ = static_cast<float> (options_.hfov_rad / degree);
  const float hfov_rad_ = static_cast<float> (options_.hfov_rad);
  const float vfov_rad_ = static_cast<float> (vfov_of (options_.hfov_rad));
  GeoPosition place_ = {};
  float velocity_[3] = {};
  float roll_deg_ = 0;
  float pitch_deg_ = 0;
  float yaw_deg_ = 0;
  const int32_t satellites_ = satellites_in_view;
  double true_time_s_ = 0;
  double true_attitude_[4] = {};
  double true_rate_[3] = {};
  double true_position_[3] = {};
  double true_velocity_[3] = {};

  Section video_{"video", video_period_ns};
  Section controller_{"camera_controller", video_period_ns};
  Section zoom_{"camera_zoom_controller", zoom_period_ns};
  Section position_{"drone", drone_period_ns};
  Section truth_{"truth", telemetry_period_ns};
  std::atomic<bool> stop_ = false;
  std::thread thread_; // last: it uses all the others
};

} // namespace

Quat estimated_attitude (const Drone &drone, const TelemetryOptions &options, int64_t monotonic_ns)
{
  const Quat delayed = drone.state_at (monotonic_ns - options.estimator_delay_ns).attitude;
  const auto index = static_cast<uint64_t> ((monotonic_ns - drone.start_ns) / telemetry_period_ns);
  const auto noise = [&] (uint64_t axis) {
    return options.estimator_noise_rad * random_normal (options.seed, noise_stream + axis, index);
  };
  return delayed * rotation_by ({noise (0), noise (1), noise (2)});
}

Quat levelled (const Quat &attitude)
{
  const Euler euler = euler_of (attitude);
  return rotation_by ({0, 0, euler.yaw}) * rotation_by ({0, euler.pitch, 0});
}

double vfov_of (double hfov_rad)
{
  return 2 * std::atan (std::tan (hfov_rad / 2) * 9 / 16);
}

std::unique_ptr<TelemetryPublisher>
TelemetryPublisher::start (const Drone &drone, const TelemetryOptions &options, std::string *error)
{
  auto publisher = std::make_unique<ThreadedPublisher> (drone, options);
  *error = publisher->begin ();
  return error->empty () ? std::move (publisher) : nullptr;
}

} // namespace sim
