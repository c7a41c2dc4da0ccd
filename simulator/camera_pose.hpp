// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Where a camera is and where it looks: all that the renderer wants to know of a flight.
#ifndef SIMULATOR_CAMERA_POSE_HPP
#define SIMULATOR_CAMERA_POSE_HPP

#include <array>
#include <cstdint>
#include <functional>

namespace sim
{

struct CameraPose {
  /** North, east, down of the camera, metres. */
  std::array<double, 3> position_m;
  /** x, y, z, w, unit norm: turns camera coordinates (forward, right, down) into NED ones. */
  std::array<double, 4> attitude;
};

/**
 * The pose at a time of CLOCK_MONOTONIC, ns; any time, past or to come. Called from several threads
 * at once.
 */
using CameraMotion = std::function<CameraPose (int64_t monotonic_ns)>;

/** The Hamilton product of two attitudes: the rotation b, then a. */
std::array<double, 4> compose (const std::array<double, 4> &a, const std::array<double, 4> &b);

/** A camera that looks down, its picture's top edge forward, on what moves like this. */
CameraMotion looking_down (const CameraMotion &motion);

} // namespace sim

#endif
