// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What the drone says of itself, against the flight that it flies.
#include <cerrno>
#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "iio_server.hpp"
#include "log_capture.hpp"
#include "own_namespace.hpp"
#include "telemetry_publisher.hpp"
#include <vorn/raii.hpp>
#include <vorn/telemetry.h>

using namespace sim;

namespace
{

constexpr int64_t ms = 1'000'000;

bool await (const std::function<bool ()> &condition)
{
  const auto end = std::chrono::steady_clock::now () + std::chrono::seconds (30);
  while (!condition ()) {
    if (std::chrono::steady_clock::now () > end)
      return false;
    std::this_thread::sleep_for (std::chrono::milliseconds (1));
  }
  return true;
}

/** Reads variables of one section; all have the type T. */
template <typename T>
class Watch
{
public:
  Watch (const std::string &section, const std::vector<std::string> &variables)
      : values (variables.size ()), consumer_ (vorn_telemetry_consumer_new ())
  {
    const bool is_f32 = std::is_same_v<T, float>;
    const bool is_f64 = std::is_same_v<T, double>;
    for (size_t i = 0; i < variables.size (); i++) {
      const std::string name = section + "." + variables[i];
      const VornTelemetryEntry entry = {name.c_str (),
                                        static_cast<uint32_t> (is_f32   ? VORN_TELEMETRY_F32
                                                               : is_f64 ? VORN_TELEMETRY_F64
                                                                        : VORN_TELEMETRY_INT32),
                                        sizeof (T), 1, &values[i]};
      EXPECT_EQ (vorn_telemetry_consumer_register (consumer_.get (), &entry, 1), 0);
    }
    EXPECT_EQ (vorn_telemetry_consumer_complete (consumer_.get ()), 0);
  }
  int get (int64_t time_ns, uint32_t method = VORN_TELEMETRY_VALID_AT)
  {
    const timespec time = {static_cast<time_t> (time_ns / 1000000000),
                           static_cast<long> (time_ns % 1000000000)};
    return vorn_telemetry_consumer_get (consumer_.get (), &time, method);
  }
  int latest () { return get (0, VORN_TELEMETRY_LATEST); }
  Quat quat (size_t x, size_t y, size_t z, size_t w) const
  {
    return {double{values[x]}, double{values[y]}, double{values[z]}, double{values[w]}};
  }
  std::vector<T> values;

private:
  vorn::Owned<VornTelemetryConsumer, vorn_telemetry_consumer_destroy> consumer_;
};

const std::vector<std::string> truth_variables = {
    "time_s",        "q_x",          "q_y",   "q_z",  "q_w",  "rate_x",
    "rate_y",        "rate_z",       "north", "east", "down", "velocity_north",
    "velocity_east", "velocity_down"};
const std::vector<std::string> video_variables = {
    "drone_est_ned_start_q_x", "drone_est_ned_start_q_y", "drone_est_ned_start_q_z",
    "drone_est_ned_start_q_w"};

class Telemetry : public testing::Test
{
protected:
  Telemetry ()
  {
    drone_.flight = make_named_flight ("aggressive", 3);
    // A third of a millisecond beside the second's own grid; the flight has begun already.
    drone_.start_ns = monotonic_ns () / 1'000'000'000 * 1'000'000'000 - 2'000 * ms + 333'333;
  }
  void start ()
  {
    std::string error;
    publisher_ = TelemetryPublisher::start (drone_, options_, &error);
    ASSERT_TRUE (publisher_) << error;
  }
  /** Waits until the truth covers this many milliseconds; the first and last time on the grid. */
  bool await_span (int64_t length_ms)
  {
    Watch<double> truth ("truth", {"time_s"});
    if (!await ([&] { return truth.latest () == 0; }))
      return false;
    // The oldest: the search finds the section's first sample.
    truth.get (0, VORN_TELEMETRY_FIRST_NOT_BEFORE);
    first_ns_ = on_grid (truth.values[0]);
    last_ns_ = first_ns_ + length_ms * ms;
    return await ([&] { return truth.latest () == 0 && on_grid (truth.values[0]) >= last_ns_; });
  }
  int64_t on_grid (double time_s) const
  {
    const int64_t since = static_cast<int64_t> (std::nearbyint (time_s * 1e9)) - drone_.start_ns;
    return drone_.start_ns + (since + ms / 2) / ms * ms;
  }

  OwnNamespace name_space_;
  LogCapture log_;
  Drone drone_;
  TelemetryOptions options_;
  std::unique_ptr<TelemetryPublisher> publisher_;
  int64_t first_ns_ = 0;
  int64_t last_ns_ = 0;
};

} // namespace

TEST_F (Telemetry, TruthIsTheFlightAtEachMillisecond)
{
  start ();
  ASSERT_TRUE (await_span (300));
  Watch<double> truth ("truth", truth_variables);
  for (int64_t t = first_ns_; t <= last_ns_; t += ms) {
    ASSERT_EQ (truth.get (t), 0);
    const FlightState state = drone_.state_at (t);
    const double wanted[] = {
        static_cast<double> (t) * 1e-9,
        state.attitude.x,
        state.attitude.y,
        state.attitude.z,
        state.attitude.w,
        state.rate_rad_s.x,
        state.rate_rad_s.y,
        state.rate_rad_s.z,
        state.position_m.x,
        state.position_m.y,
        state.position_m.z,
        state.velocity_m_s.x,
        state.velocity_m_s.y,
        state.velocity_m_s.z,
    };
    for (size_t i = 0; i < truth_variables.size (); i++)
      ASSERT_EQ (truth.values[i], wanted[i]) << truth_variables[i] << " at " << t;
    // Valid from its time on, and not before.
    ASSERT_EQ (truth.get (t + ms - 1), 0);
    ASSERT_EQ (truth.values[0], wanted[0]);
  }
}

TEST_F (Telemetry, EstimateIsTheAttitudeADelayAgoWithSmallNoise)
{
  options_.estimator_delay_ns = 20 * ms;
  start ();
  ASSERT_TRUE (await_span (1000));
  Watch<float> video ("video", video_variables);
  double sum = 0;
  double undelayed_sum = 0;
  int count = 0;
  for (int64_t t = first_ns_; t <= last_ns_; t += ms) {
    // Every second millisecond of the grid has a sample; the one between keeps it.
    const int64_t sampled = t - (t - drone_.start_ns) % video_period_ns;
    if (sampled < first_ns_)
      continue;
    ASSERT_EQ (video.get (t), 0);
    const Quat estimate = video.quat (0, 1, 2, 3);
    EXPECT_NEAR (dot (estimate, estimate), 1, 1e-6);
    const double error = angle_between (estimate, drone_.state_at (sampled - 20 * ms).attitude);
    EXPECT_LT (error, 6 * options_.estimator_noise_rad);
    sum += error * error;
    const double undelayed = angle_between (estimate, drone_.state_at (sampled).attitude);
    undelayed_sum += undelayed * undelayed;
    count++;
  }
  // Three independent axes; half of the counted samples are each counted twice.
  EXPECT_NEAR (std::sqrt (sum / count), std::sqrt (3.0) * options_.estimator_noise_rad,
               0.15 * options_.estimator_noise_rad);
  EXPECT_GT (undelayed_sum, 4 * sum) << "the delay is to be seen in this flight";
}

TEST_F (Telemetry, NoiseIsTheSeedsAndWhite)
{
  TelemetryOptions other = options_;
  other.seed = 2;
  const int64_t t = drone_.start_ns + 1000 * ms;
  const Quat a = estimated_attitude (drone_, options_, t);
  EXPECT_EQ (angle_between (a, estimated_attitude (drone_, options_, t)), 0);
  EXPECT_GT (angle_between (a, estimated_attitude (drone_, other, t)), 0);
  double product = 0;
  double square = 0;
  Vec3 last = {};
  const int n = 4000;
  for (int k = 1; k <= n; k++) {
    const int64_t at = drone_.start_ns + k * 2 * ms;
    const Quat exact = drone_.state_at (at - options_.estimator_delay_ns).attitude;
    const Quat e = conjugate (exact) * estimated_attitude (drone_, options_, at);
    const Vec3 noise = Vec3{e.x, e.y, e.z} * (e.w < 0 ? -2.0 : 2.0);
    product += dot (noise, last);
    square += dot (noise, noise);
    last = noise;
  }
  EXPECT_NEAR (std::sqrt (square / (3 * n)), options_.estimator_noise_rad,
               0.05 * options_.estimator_noise_rad);
  // Of 12000 independent products: a standard deviation of 0.009.
  EXPECT_LT (std::abs (product / square), 0.05);
}

TEST_F (Telemetry, NoDelayAndNoNoiseGiveTheTruth)
{
  options_.estimator_delay_ns = 0;
  options_.estimator_noise_rad = 0;
  start ();
  ASSERT_TRUE (await_span (50));
  Watch<float> video ("video", video_variables);
  ASSERT_EQ (video.get (last_ns_), 0);
  const int64_t sampled = last_ns_ - (last_ns_ - drone_.start_ns) % video_period_ns;
  EXPECT_LT (angle_between (video.quat (0, 1, 2, 3), drone_.state_at (sampled).attitude), 1e-6);
}

TEST_F (Telemetry, ControllersTellViewAndFields)
{
  options_.hfov_rad = 1.2;
  start ();
  ASSERT_TRUE (await_span (100));
  Watch<float> view ("camera_controller",
                     {"video_ref_ned_start_q_w", "video_ref_ned_start_q_x",
                      "video_ref_ned_start_q_y", "video_ref_ned_start_q_z", "hfov"});
  const int64_t t = last_ns_ - (last_ns_ - drone_.start_ns) % video_period_ns;
  ASSERT_EQ (view.get (t), 0);
  const Quat q = view.quat (1, 2, 3, 0);
  const Quat camera = drone_.state_at (t).attitude;
  // The optical axis is the camera's, and the horizon is level: right has no part downwards.
  EXPECT_LT (length (rotate (q, {1, 0, 0}) - rotate (camera, {1, 0, 0})), 1e-6);
  EXPECT_NEAR (rotate (q, {0, 1, 0}).z, 0, 1e-6);
  EXPECT_GT (rotate (q, {0, 0, 1}).z, 0) << "not upside down";
  EXPECT_NEAR (view.values[4], 68.7549354, 1e-4) << "degrees";

  Watch<float> zoom ("camera_zoom_controller", {"hfov", "vfov"});
  ASSERT_EQ (zoom.latest (), 0);
  EXPECT_FLOAT_EQ (zoom.values[0], 1.2f) << "radians";
  EXPECT_NEAR (std::tan (double{zoom.values[1]} / 2) / std::tan (0.6), 9.0 / 16, 1e-6);
}

TEST_F (Telemetry, PositionAndStateOfTheDrone)
{
  start ();
  ASSERT_TRUE (await_span (100));
  const int64_t t = last_ns_ - (last_ns_ - drone_.start_ns) % drone_period_ns;
  const FlightState state = drone_.state_at (t);
  Watch<double> place ("drone", {"latitude", "longitude", "altitude_m"});
  ASSERT_EQ (place.get (t), 0);
  // On a sphere of the local radii; the offsets are tens of metres.
  const double sin_latitude = std::sin (drone_.home.latitude_deg * degree);
  const double w = 1 - 0.00669437999 * sin_latitude * sin_latitude;
  const double meridian_m = 6378137 * (1 - 0.00669437999) / (w * std::sqrt (w));
  const double parallel_m = 6378137 / std::sqrt (w) * std::cos (drone_.home.latitude_deg * degree);
  EXPECT_NEAR ((place.values[0] - drone_.home.latitude_deg) * degree * meridian_m,
               state.position_m.x, 0.05);
  EXPECT_NEAR ((place.values[1] - drone_.home.longitude_deg) * degree * parallel_m,
               state.position_m.y, 0.05);
  EXPECT_NEAR (place.values[2] - drone_.home.altitude_m, -state.position_m.z, 0.05);

  Watch<float> motion (
      "drone", {"velocity_north", "velocity_east", "velocity_down", "roll", "pitch", "yaw"});
  ASSERT_EQ (motion.get (t), 0);
  EXPECT_FLOAT_EQ (motion.values[0], static_cast<float> (state.velocity_m_s.x));
  EXPECT_FLOAT_EQ (motion.values[1], static_cast<float> (state.velocity_m_s.y));
  EXPECT_FLOAT_EQ (motion.values[2], static_cast<float> (state.velocity_m_s.z));
  // Yaw, then pitch, then roll make the attitude again.
  const auto about = [] (int axis, double angle_deg) {
    const double s = std::sin (angle_deg * degree / 2);
    return Quat{axis == 0 ? s : 0, axis == 1 ? s : 0, axis == 2 ? s : 0,
                std::cos (angle_deg * degree / 2)};
  };
  const Quat again = about (2, double{motion.values[5]}) * about (1, double{motion.values[4]}) *
                     about (0, double{motion.values[3]});
  EXPECT_LT (angle_between (again, state.attitude), 1e-5);

  Watch<int32_t> satellites ("drone", {"satellites"});
  ASSERT_EQ (satellites.latest (), 0);
  EXPECT_GE (satellites.values[0], 4);
}

TEST_F (Telemetry, KeepsTheScheduleWithoutDrift)
{
  start ();
  ASSERT_TRUE (await_span (1500));
  // One sample a millisecond, each at its place: a drifting schedule would leave the grid.
  Watch<double> truth ("truth", {"time_s"});
  int64_t count = 0;
  double last = 0;
  for (int64_t t = first_ns_; t <= last_ns_; t += ms) {
    ASSERT_EQ (truth.get (t), 0);
    ASSERT_NEAR (truth.values[0], static_cast<double> (t) * 1e-9, 1e-9);
    ASSERT_GT (truth.values[0], last);
    last = truth.values[0];
    count++;
  }
  EXPECT_EQ (count, 1501);
}

TEST_F (Telemetry, SectionsGoWithThePublisher)
{
  start ();
  ASSERT_TRUE (await_span (10));
  Watch<double> truth ("truth", {"q_w"});
  EXPECT_EQ (truth.latest (), 0);
  publisher_.reset ();
  EXPECT_EQ (truth.latest (), -ENOENT);
  start ();
  EXPECT_TRUE (await ([&] { return truth.latest () == 0; })) << "and come back with another";
}

TEST_F (Telemetry, ATakenSectionIsNamed)
{
  start ();
  std::string error;
  EXPECT_EQ (TelemetryPublisher::start (drone_, options_, &error), nullptr);
  EXPECT_EQ (error, "cannot publish the telemetry section 'video': Device or resource busy");
}
