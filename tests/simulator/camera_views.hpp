// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Pictures for tests, and an independent way from places of the world to places in a picture.
#ifndef TESTS_CAMERA_VIEWS_HPP
#define TESTS_CAMERA_VIEWS_HPP

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "camera_model.hpp"
#include "camera_pose.hpp"
#include "renderer.hpp"
#include "world.hpp"

/** Angles in degrees, turned yaw first, then pitch, then roll. */
struct Attitude {
  double roll, pitch, yaw;
};

/** The attitude as a quaternion, from the half-angle formula of Z-Y-X angles. */
std::array<double, 4> quaternion_of (const Attitude &attitude);

struct Point {
  double x, y;
};

using Matrix3 = std::array<std::array<double, 3>, 3>;

/** Camera to NED as a product of three elementary rotations, without quaternions. */
Matrix3 matrix_of (const Attitude &attitude);

/** Where a place of the world is in the picture; nothing behind the camera. */
std::optional<Point> project (const Matrix3 &camera_to_ned, const std::array<double, 3> &camera_m,
                              const sim::PictureGeometry &geometry,
                              const std::array<double, 3> &place_m);

/** The middle of a polygon's area. */
Point centroid (const std::vector<Point> &polygon);
double area (const std::vector<Point> &polygon);

/** The outline of a landmark, places of the world; a pole as seen from the camera. */
std::vector<std::array<double, 3>> outline (const sim::Landmark &landmark,
                                            const std::array<double, 3> &camera_m);

struct Picture {
  uint32_t width, height;
  std::vector<uint8_t> rgb;

  sim::Color at (int x, int y) const
  {
    const uint8_t *p = &rgb[3 * (static_cast<size_t> (y) * width + static_cast<size_t> (x))];
    return {p[0], p[1], p[2]};
  }
  double grey (int x, int y) const
  {
    const sim::Color c = at (x, y);
    return (c.red + c.green + c.blue) / 3.0;
  }
};

/** Renders into rows without padding. */
Picture take (sim::Renderer &renderer, const sim::Shot &shot, const sim::CameraMotion &motion);

/** A camera that stands still. */
sim::CameraMotion standing (const std::array<double, 3> &camera_m,
                            const std::array<double, 4> &attitude);

/** A shot of this geometry, 2 ms of exposure, all rows at once. */
sim::Shot plain_shot (const sim::PictureGeometry &geometry);

/**
 * The middle of what has this colour near a place: each pixel counts as much as it holds of the
 * colour over what surrounds the area. Nothing when there is none.
 */
std::optional<Point> find_color (const Picture &picture, const sim::Color &color, int left, int top,
                                 int right, int bottom);

#endif
