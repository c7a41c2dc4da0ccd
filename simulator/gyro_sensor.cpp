// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "gyro_sensor.hpp"

#include <algorithm>
#include <cstdio>
#include <limits>

#include "random.hpp"

namespace sim
{

namespace
{

int16_t quantised (double steps)
{
  using Limits = std::numeric_limits<int16_t>;
  return static_cast<int16_t> (
      std::clamp<double> (std::nearbyint (steps), Limits::min (), Limits::max ()));
}

} // namespace

GyroReading read_gyro (const GyroModel &model, const Vec3 &camera_rate_rad_s, uint64_t index)
{
  const auto &m = model.mount_matrix;
  const double camera[3] = {camera_rate_rad_s.x, camera_rate_rad_s.y, camera_rate_rad_s.z};
  const double bias[3] = {model.bias_rad_s.x, model.bias_rad_s.y, model.bias_rad_s.z};
  GyroReading reading;
  for (size_t axis = 0; axis < 3; axis++) {
    // The matrix is a rotation: its transpose leads back.
    double rate = bias[axis] + model.noise_rad_s * random_normal (model.seed, axis, index);
    for (size_t row = 0; row < 3; row++)
      rate += m[row][axis] * camera[row];
    reading[axis] = quantised (rate / model.scale_rad_s);
  }
  return reading;
}

std::string format_mount_matrix (const GyroModel &model)
{
  std::string text;
  for (const auto &row : model.mount_matrix) {
    text += text.empty () ? "" : "; ";
    for (size_t column = 0; column < 3; column++)
      text += (column ? ", " : "") + std::to_string (row[column]);
  }
  return text;
}

std::optional<std::array<std::array<int8_t, 3>, 3>> parse_mount_matrix (const std::string &text)
{
  int v[9];
  int end = 0;
  const int n = sscanf (text.c_str (), "%d ,%d ,%d ;%d ,%d ,%d ;%d ,%d ,%d %n", &v[0], &v[1], &v[2],
                        &v[3], &v[4], &v[5], &v[6], &v[7], &v[8], &end);
  if (n != 9 || static_cast<size_t> (end) != text.size () ||
      std::any_of (v, v + 9, [] (int entry) { return entry < -1 || entry > 1; }))
    return std::nullopt;
  const auto row = [&v] (size_t r) { return Vector3<int>{v[3 * r], v[3 * r + 1], v[3 * r + 2]}; };
  const auto third = cross (row (0), row (1));
  if (dot (row (0), row (0)) != 1 || dot (row (1), row (1)) != 1 || dot (row (0), row (1)) != 0 ||
      third.x != v[6] || third.y != v[7] || third.z != v[8])
    return std::nullopt;
  std::array<std::array<int8_t, 3>, 3> matrix;
  for (size_t i = 0; i < 9; i++)
    matrix[i / 3][i % 3] = static_cast<int8_t> (v[i]);
  return matrix;
}

} // namespace sim
