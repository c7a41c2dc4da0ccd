// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The vertical camera's geometry in the shapes that the vision bins take it.
#ifndef VERTICAL_CAMERA_GEOMETRY_HPP
#define VERTICAL_CAMERA_GEOMETRY_HPP

#include <string>

#include <vorn/camera.h>

struct VerticalCameraGeometry {
  // The sensor's size; constants of the drone.
  static constexpr gfloat sensor_width_mm = 2.304f;
  static constexpr gfloat sensor_height_mm = 1.728f;

  guint sensor_width;  // pixels
  guint sensor_height; // pixels
  gdouble focal_mm;
  gdouble focal_pixels; // at the width that the sensor is configured for
  gfloat hfov_rad;
  gdouble optical_center_x; // pixels
  gdouble optical_center_y; // pixels
  gdouble rotation[3][3];   // about the vertical axis, rows
  VornVector3 position_m;

  /** "{c, -s, 0, s, c, 0, 0, 0, 1}", c and s with six decimals. */
  std::string rotation_text () const;
  /** "{x, y, z}" with six decimals, each times the scale. */
  std::string position_text (gdouble scale) const;
};

/** Reads a camera's geometry. The mounting's and the calibration's angles about the vertical axis
 * add up; the other angles are not looked at. */
VerticalCameraGeometry vertical_camera_geometry (VornCamera *camera);

#endif
