// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * What the drone says of itself on the telemetry bus. Times are CLOCK_MONOTONIC, the clock of the
 * gyroscope's samples, and all samples lie on the grid of those: start of the flight plus whole
 * milliseconds.
 *
 *   video                   500 Hz  f32 drone_est_ned_start_q_x, _y, _z, _w: the attitude that the
 *                                   drone's estimator knows, late by its delay, and noisy
 *   camera_controller       500 Hz  f32 video_ref_ned_start_q_w, _x, _y, _z: where the picture is
 *                                   meant to look: as the camera, the horizon level; f32 hfov in
 *                                   degrees
 *   camera_zoom_controller  100 Hz  f32 hfov, vfov in radians
 *   drone                   100 Hz  f64 latitude, longitude (degrees), altitude_m; f32
 *                                   velocity_north, velocity_east, velocity_down (m/s), roll,
 *                                   pitch, yaw (degrees); i32 satellites
 *   truth                  1000 Hz  f64 time_s (the sample's own time), q_x, q_y, q_z, q_w, rate_x,
 *                                   rate_y, rate_z (rad/s, camera frame), north, east, down (m),
 *                                   velocity_north, velocity_east, velocity_down (m/s)
 */
#ifndef SIMULATOR_TELEMETRY_PUBLISHER_HPP
#define SIMULATOR_TELEMETRY_PUBLISHER_HPP

#include <cstdint>
#include <memory>
#include <string>

#include "drone.hpp"

namespace sim
{

constexpr int64_t telemetry_period_ns = 1'000'000; // of the grid, and of "truth"
constexpr int64_t video_period_ns = 2'000'000;
constexpr int64_t zoom_period_ns = 10'000'000;
constexpr int64_t drone_period_ns = 10'000'000;

struct TelemetryOptions {
  int64_t estimator_delay_ns = 5'000'000;
  /** Standard deviation of the estimate's white noise about each axis. */
  double estimator_noise_rad = 0.0005;
  /** Of the picture, which is 16 to 9. */
  double hfov_rad = 60 * degree;
  uint64_t seed = 1;
};

/**
 * What the estimator says at a time on the grid: the camera's attitude a delay ago, turned by a
 * small random rotation. A pure function of its arguments.
 */
Quat estimated_attitude (const Drone &drone, const TelemetryOptions &options, int64_t monotonic_ns);

/** The attitude with its heading and pitch and a level horizon. */
Quat levelled (const Quat &attitude);

/** The vertical field of view of a flat picture of 16 to 9. */
double vfov_of (double hfov_rad);

/**
 * Publishes from a thread of its own, in the namespace that is current at the start, until it is
 * destroyed. The schedule is absolute: it does not drift, and what a busy machine made late is
 * published with its proper time; only when more than a second is missing is that left out.
 */
class TelemetryPublisher
{
public:
  /** Null when a section cannot be had; error names it and the reason. */
  static std::unique_ptr<TelemetryPublisher>
  start (const Drone &drone, const TelemetryOptions &options, std::string *error);
  virtual ~TelemetryPublisher () = default;
};

} // namespace sim

#endif
