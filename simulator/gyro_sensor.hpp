// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_GYRO_SENSOR_HPP
#define SIMULATOR_GYRO_SENSOR_HPP

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "geometry.hpp"

namespace sim
{

/** What a rate sensor makes of the camera's rotation. */
struct GyroModel {
  /** Sensor to camera axes, row-major, as the sensor publishes it: camera = matrix * sensor. */
  std::array<std::array<int8_t, 3>, 3> mount_matrix = {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
  /** Radians per second of one step: 500 degrees per second over 16 bits. */
  double scale_rad_s = 0.000266316;
  /** Constant error, sensor axes. */
  Vec3 bias_rad_s = {0.004, -0.006, 0.003};
  /** Standard deviation of a sample's white noise. */
  double noise_rad_s = 0.002;
  uint64_t seed = 1;
};

/** Raw readings x, y, z. */
using GyroReading = std::array<int16_t, 3>;

/**
 * The raw reading of the index-th sample: the rate turned into sensor axes, with bias and noise,
 * rounded to steps and held at the ends of 16 bits. A pure function of its arguments.
 */
GyroReading read_gyro (const GyroModel &model, const Vec3 &camera_rate_rad_s, uint64_t index);

/** The matrix as the sensor's attribute gives it: "1, 0, 0; 0, 1, 0; 0, 0, 1". */
std::string format_mount_matrix (const GyroModel &model);

/** Nine numbers -1, 0 or 1 in that form (blanks optional) that make a rotation, else empty. */
std::optional<std::array<std::array<int8_t, 3>, 3>> parse_mount_matrix (const std::string &text);

} // namespace sim

#endif
