// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "camera_model.hpp"

#include <cmath>

namespace sim
{

PictureGeometry picture_geometry (const CameraSensor &sensor, const CameraRect &rect,
                                  uint32_t width, uint32_t height)
{
  const double focal = sensor.width / 2.0 / std::tan (sensor.horizontal_fov_rad / 2);
  const double scale_x = static_cast<double> (width) / rect.width;
  const double scale_y = static_cast<double> (height) / rect.height;
  return {width,
          height,
          focal * scale_x,
          focal * scale_y,
          (sensor.width / 2.0 - rect.left) * scale_x,
          (sensor.height / 2.0 - rect.top) * scale_y};
}

} // namespace sim
