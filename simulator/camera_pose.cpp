// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "camera_pose.hpp"

#include <numbers>

namespace sim
{

std::array<double, 4> compose (const std::array<double, 4> &a, const std::array<double, 4> &b)
{
  return {a[3] * b[0] + a[0] * b[3] + a[1] * b[2] - a[2] * b[1],
          a[3] * b[1] - a[0] * b[2] + a[1] * b[3] + a[2] * b[0],
          a[3] * b[2] + a[0] * b[1] - a[1] * b[0] + a[2] * b[3],
          a[3] * b[3] - a[0] * b[0] - a[1] * b[1] - a[2] * b[2]};
}

CameraMotion looking_down (const CameraMotion &motion)
{
  return [motion] (int64_t monotonic_ns) {
    // A quarter turn about the right axis, nose down.
    constexpr double half = std::numbers::sqrt2 / 2;
    CameraPose pose = motion (monotonic_ns);
    pose.attitude = compose (pose.attitude, {0, -half, 0, half});
    return pose;
  };
}

} // namespace sim
