// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The pinhole camera: its sensor, and how a rectangle of it becomes a picture.
#ifndef SIMULATOR_CAMERA_MODEL_HPP
#define SIMULATOR_CAMERA_MODEL_HPP

#include <cstdint>

namespace sim
{

struct CameraSensor {
  uint32_t width = 1280;
  uint32_t height = 720;
  double horizontal_fov_rad = 1.3; // of the whole width; square pixels, axis through the middle
  uint32_t rate_numerator = 30;
  uint32_t rate_denominator = 1;
  int64_t exposure_ns = 2'000'000; // of each row
  int64_t readout_ns = 0;          // from the top edge to the bottom edge; 0: all rows at once
};

/** A part of the sensor, sensor pixels. */
struct CameraRect {
  uint32_t left, top, width, height;
};

/**
 * A picture of a pinhole camera. What is (right, down) of the axis per unit forward is at
 * (center_x + focal_x * right, center_y + focal_y * down); the picture's top left corner is (0, 0),
 * the middle of its first pixel (0.5, 0.5).
 */
struct PictureGeometry {
  uint32_t width, height;
  double focal_x, focal_y;
  double center_x, center_y;
};

/** How the rectangle looks when it is rendered at a size. */
PictureGeometry picture_geometry (const CameraSensor &sensor, const CameraRect &rect,
                                  uint32_t width, uint32_t height);

} // namespace sim

#endif
