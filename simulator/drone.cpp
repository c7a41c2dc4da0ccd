// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "drone.hpp"

#include <cstdio>

namespace sim
{

IioSource make_camera_imu_source (const Drone &drone, const GyroModel &gyro, uint32_t rate_hz,
                                  uint64_t queue_depth)
{
  IioSource source;
  source.model = make_camera_imu_context (gyro, rate_hz);
  source.start_ns = drone.start_ns;
  source.period_ns = 1'000'000'000 / rate_hz;
  source.queue_depth = queue_depth;
  source.sample = [drone, gyro, period_ns = source.period_ns] (uint64_t index) {
    const int64_t time_ns = drone.start_ns + static_cast<int64_t> (index) * period_ns;
    return ImuSample{read_gyro (gyro, drone.state_at (time_ns).rate_rad_s, index), time_ns};
  };
  return source;
}

std::string describe_state (const Drone &drone, int64_t monotonic_ns)
{
  const FlightState state = drone.state_at (monotonic_ns);
  const Euler euler = euler_of (state.attitude);
  const GeoPosition place = geo_position (drone.home, state.position_m);
  char text[160];
  snprintf (text, sizeof text,
            "t %.1f s: roll %.1f, pitch %.1f, yaw %.1f degrees, %.7f %.7f %.1f m",
            drone.time_s (monotonic_ns), euler.roll / degree, euler.pitch / degree,
            euler.yaw / degree, place.latitude_deg, place.longitude_deg, place.altitude_m);
  return text;
}

} // namespace sim
