// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "vertical_camera_geometry.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>

static constexpr gdouble rad_per_degree = 0.017453292f;

/** As printf's "%f" in the C locale, whatever the locale. */
static std::string six_decimals (gdouble number)
{
  char text[400]; // the largest double has 309 digits before the point
  const auto end = std::to_chars (text, text + sizeof text, number, std::chars_format::fixed, 6);
  return {text, end.ptr};
}

static gdouble yaw_of (void (*get) (VornCamera *, gdouble *, gdouble *, gdouble *),
                       VornCamera *camera)
{
  gdouble roll;
  gdouble pitch;
  gdouble yaw;
  get (camera, &roll, &pitch, &yaw);
  return yaw * rad_per_degree;
}

VerticalCameraGeometry vertical_camera_geometry (VornCamera *camera)
{
  VerticalCameraGeometry geometry = {};
  constexpr gfloat width_mm = VerticalCameraGeometry::sensor_width_mm;
  VornSensor *sensor = vorn_camera_get_sensor (camera);
  geometry.sensor_width = vorn_sensor_get_width (sensor);
  geometry.sensor_height = vorn_sensor_get_height (sensor);
  geometry.focal_mm = vorn_camera_get_focal_length (camera);
  geometry.hfov_rad = 2 * std::atan (width_mm / (2 * static_cast<gfloat> (geometry.focal_mm)));
  geometry.focal_pixels = vorn_camera_get_sensor_configuration (camera)->resolution.width *
                          geometry.focal_mm / static_cast<gdouble> (width_mm);
  vorn_camera_get_optical_center (camera, &geometry.optical_center_x, &geometry.optical_center_y);
  const gdouble a = yaw_of (vorn_camera_get_factory_orientation, camera);
  const gdouble b = yaw_of (vorn_camera_get_camera_orientation, camera);
  const gdouble c = std::cos (a) * std::cos (b) - std::sin (a) * std::sin (b);
  const gdouble s = std::sin (a) * std::cos (b) + std::cos (a) * std::sin (b);
  const gdouble rotation[3][3] = {{c, -s, 0}, {s, c, 0}, {0, 0, 1}};
  std::copy (&rotation[0][0], &rotation[0][0] + 9, &geometry.rotation[0][0]);
  VornVector3 &position = geometry.position_m;
  vorn_camera_get_position (camera, &position.x, &position.y, &position.z);
  return geometry;
}

std::string VerticalCameraGeometry::rotation_text () const
{
  return "{" + six_decimals (rotation[0][0]) + ", " + six_decimals (rotation[0][1]) + ", 0, " +
         six_decimals (rotation[1][0]) + ", " + six_decimals (rotation[1][1]) + ", 0, 0, 0, 1}";
}

std::string VerticalCameraGeometry::position_text (gdouble scale) const
{
  return "{" + six_decimals (scale * position_m.x) + ", " + six_decimals (scale * position_m.y) +
         ", " + six_decimals (scale * position_m.z) + "}";
}
