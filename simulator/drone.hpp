// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_DRONE_HPP
#define SIMULATOR_DRONE_HPP

#include <memory>
#include <string>

#include "flight.hpp"
#include "geodesy.hpp"
#include "gyro_sensor.hpp"
#include "iio_session.hpp"

namespace sim
{

/**
 * One simulated drone: a flight that began at a moment, at a place, on a date. All that the
 * simulator serves is asked of it. Immutable: its functions are thread-safe.
 */
struct Drone {
  std::shared_ptr<const Flight> flight;
  GeoPosition home = {45.0, 6.0, 500.0};
  int64_t date_unix_ms = 0; // of the start, milliseconds since 1970 UTC
  int64_t start_ns = 0;     // of the start, CLOCK_MONOTONIC

  double time_s (int64_t monotonic_ns) const
  {
    return static_cast<double> (monotonic_ns - start_ns) * 1e-9;
  }
  FlightState state_at (int64_t monotonic_ns) const { return flight->at (time_s (monotonic_ns)); }
};

/** The camera's gyroscope on this drone, as the IIO server serves it. */
IioSource make_camera_imu_source (const Drone &drone, const GyroModel &gyro, uint32_t rate_hz,
                                  uint64_t queue_depth);

/** "t 12.0 s: roll 1.2, pitch -3.4, yaw 5.6 degrees, 45.0000123 6.0000045 520.3 m" */
std::string describe_state (const Drone &drone, int64_t monotonic_ns);

} // namespace sim

#endif
