// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "metadata_angles.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace vorn
{

namespace
{

constexpr double degrees = 180.0 / std::numbers::pi;
constexpr double quarter_turn = std::numbers::sqrt2 / 2; // sine and cosine of half of it
constexpr double horizon_cosine = 0.02;                  // of pitch: within 1.1 degrees

Quaternion multiply (const Quaternion &a, const Quaternion &b)
{
  return {
      a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y, a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x,
      a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w, a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z};
}

double half_turn_away (double angle)
{
  return angle > 0 ? angle - 180 : angle + 180;
}

} // namespace

bool normalise (Quaternion *attitude)
{
  const auto [x, y, z, w] = *attitude;
  const double length = std::sqrt (x * x + y * y + z * z + w * w);
  if (!(length > 0.9 && length < 1.1))
    return false;
  *attitude = {x / length, y / length, z / length, w / length};
  return true;
}

Angles angles_of (const Quaternion &attitude)
{
  const auto [x, y, z, w] = attitude;
  return {std::atan2 (2 * (w * x + y * z), 1 - 2 * (x * x + y * y)) * degrees,
          std::asin (std::clamp (2 * (w * y - z * x), -1.0, 1.0)) * degrees,
          std::atan2 (2 * (w * z + x * y), 1 - 2 * (y * y + z * z)) * degrees};
}

Angles photogrammetry_angles_of (const Quaternion &attitude)
{
  // Up by a quarter turn: what looked forward is now the underside.
  Angles angles = angles_of (multiply (attitude, {0, quarter_turn, 0, quarter_turn}));
  if (std::cos (angles.pitch / degrees) < horizon_cosine) {
    const Angles camera = angles_of (attitude);
    return {0, camera.pitch + 90, camera.yaw};
  }
  if (std::abs (angles.roll) > 90)
    angles = {half_turn_away (angles.roll), 180 - angles.pitch, half_turn_away (angles.yaw)};
  return angles;
}

} // namespace vorn
