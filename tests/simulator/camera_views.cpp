// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "camera_views.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace
{

constexpr double degree = std::numbers::pi / 180;

Matrix3 multiply (const Matrix3 &a, const Matrix3 &b)
{
  Matrix3 product{};
  for (size_t row = 0; row < 3; row++)
    for (size_t column = 0; column < 3; column++)
      for (size_t i = 0; i < 3; i++)
        product[row][column] += a[row][i] * b[i][column];
  return product;
}

} // namespace

std::array<double, 4> quaternion_of (const Attitude &attitude)
{
  const double r = attitude.roll * degree / 2;
  const double p = attitude.pitch * degree / 2;
  const double y = attitude.yaw * degree / 2;
  const double cr = std::cos (r), sr = std::sin (r);
  const double cp = std::cos (p), sp = std::sin (p);
  const double cy = std::cos (y), sy = std::sin (y);
  return {sr * cp * cy - cr * sp * sy, cr * sp * cy + sr * cp * sy, cr * cp * sy - sr * sp * cy,
          cr * cp * cy + sr * sp * sy};
}

Matrix3 matrix_of (const Attitude &attitude)
{
  const double r = attitude.roll * degree;
  const double p = attitude.pitch * degree;
  const double y = attitude.yaw * degree;
  const Matrix3 roll = {
      {{1, 0, 0}, {0, std::cos (r), -std::sin (r)}, {0, std::sin (r), std::cos (r)}}};
  const Matrix3 pitch = {
      {{std::cos (p), 0, std::sin (p)}, {0, 1, 0}, {-std::sin (p), 0, std::cos (p)}}};
  const Matrix3 yaw = {
      {{std::cos (y), -std::sin (y), 0}, {std::sin (y), std::cos (y), 0}, {0, 0, 1}}};
  return multiply (multiply (yaw, pitch), roll);
}

std::optional<Point> project (const Matrix3 &camera_to_ned, const std::array<double, 3> &camera_m,
                              const sim::PictureGeometry &geometry,
                              const std::array<double, 3> &place_m)
{
  double seen[3] = {};
  for (size_t axis = 0; axis < 3; axis++)
    for (size_t i = 0; i < 3; i++)
      seen[axis] += camera_to_ned[i][axis] * (place_m[i] - camera_m[i]);
  if (seen[0] <= 0)
    return std::nullopt;
  return Point{geometry.center_x + geometry.focal_x * seen[1] / seen[0],
               geometry.center_y + geometry.focal_y * seen[2] / seen[0]};
}

double area (const std::vector<Point> &polygon)
{
  double twice = 0;
  for (size_t i = 0; i < polygon.size (); i++) {
    const Point &a = polygon[i];
    const Point &b = polygon[(i + 1) % polygon.size ()];
    twice += a.x * b.y - b.x * a.y;
  }
  return std::abs (twice) / 2;
}

Point centroid (const std::vector<Point> &polygon)
{
  double twice = 0;
  Point sum = {0, 0};
  // About the first corner, or the cancellation of large products costs digits.
  const Point origin = polygon[0];
  for (size_t i = 0; i < polygon.size (); i++) {
    const Point a = {polygon[i].x - origin.x, polygon[i].y - origin.y};
    const Point &next = polygon[(i + 1) % polygon.size ()];
    const Point b = {next.x - origin.x, next.y - origin.y};
    const double product = a.x * b.y - b.x * a.y;
    twice += product;
    sum.x += (a.x + b.x) * product;
    sum.y += (a.y + b.y) * product;
  }
  return {origin.x + sum.x / (3 * twice), origin.y + sum.y / (3 * twice)};
}

std::vector<std::array<double, 3>> outline (const sim::Landmark &landmark,
                                            const std::array<double, 3> &camera_m)
{
  const double north = landmark.north_m;
  const double east = landmark.east_m;
  const double size = landmark.size_m;
  std::vector<std::array<double, 3>> points;
  switch (landmark.shape) {
  case sim::LandmarkShape::disc:
    for (int i = 0; i < 90; i++)
      points.push_back (
          {north + size * std::cos (4 * i * degree), east + size * std::sin (4 * i * degree), 0});
    break;
  case sim::LandmarkShape::square:
    for (int i = 0; i < 4; i++) {
      const double angle = landmark.heading_rad + (45 + 90 * i) * degree;
      points.push_back ({north + size * std::sqrt (2.0) * std::cos (angle),
                         east + size * std::sqrt (2.0) * std::sin (angle), 0});
    }
    break;
  case sim::LandmarkShape::pole: {
    const double angle = std::atan2 (east - camera_m[1], north - camera_m[0]) + 90 * degree;
    const double dn = size * std::cos (angle);
    const double de = size * std::sin (angle);
    const double top = -landmark.height_m;
    points = {{north - dn, east - de, 0},
              {north - dn, east - de, top},
              {north + dn, east + de, top},
              {north + dn, east + de, 0}};
  }
  }
  return points;
}

Picture take (sim::Renderer &renderer, const sim::Shot &shot, const sim::CameraMotion &motion)
{
  Picture picture = {shot.geometry.width, shot.geometry.height, {}};
  picture.rgb.resize (3 * size_t{picture.width} * picture.height);
  renderer.render (shot, motion, picture.rgb.data (), 3 * size_t{picture.width});
  return picture;
}

sim::CameraMotion standing (const std::array<double, 3> &camera_m,
                            const std::array<double, 4> &attitude)
{
  return [=] (int64_t) { return sim::CameraPose{camera_m, attitude}; };
}

sim::Shot plain_shot (const sim::PictureGeometry &geometry)
{
  return {geometry, 1'000'000'000, 2'000'000, 0, 1, nullptr};
}

std::optional<Point> find_color (const Picture &picture, const sim::Color &color, int left, int top,
                                 int right, int bottom)
{
  left = std::max (left, 0);
  top = std::max (top, 0);
  right = std::min (right, static_cast<int> (picture.width) - 1);
  bottom = std::min (bottom, static_cast<int> (picture.height) - 1);
  // What surrounds it: the mean of the border.
  double around[3] = {};
  int count = 0;
  for (int y = top; y <= bottom; y++)
    for (int x = left; x <= right; x++)
      if (x == left || x == right || y == top || y == bottom) {
        const sim::Color c = picture.at (x, y);
        around[0] += c.red;
        around[1] += c.green;
        around[2] += c.blue;
        count++;
      }
  double away[3] = {static_cast<double> (color.red), static_cast<double> (color.green),
                    static_cast<double> (color.blue)};
  double square = 0;
  for (int i = 0; i < 3; i++) {
    around[i] /= count;
    away[i] -= around[i];
    square += away[i] * away[i];
  }
  double sum = 0;
  Point weighted = {0, 0};
  for (int y = top; y <= bottom; y++)
    for (int x = left; x <= right; x++) {
      const sim::Color c = picture.at (x, y);
      const double share = ((c.red - around[0]) * away[0] + (c.green - around[1]) * away[1] +
                            (c.blue - around[2]) * away[2]) /
                           square;
      // Less is grass.
      if (share < 0.2)
        continue;
      sum += share;
      weighted.x += share * (x + 0.5);
      weighted.y += share * (y + 0.5);
    }
  if (sum < 1)
    return std::nullopt;
  return Point{weighted.x / sum, weighted.y / sum};
}
