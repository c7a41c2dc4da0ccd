// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "scene.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>

namespace scene
{
namespace
{

constexpr double nan = std::numeric_limits<double>::quiet_NaN ();

/** Least squares, y over x, with the points that lie off once thrown out. */
double fitted_slope (const std::vector<std::array<double, 2>> &points)
{
  if (points.size () < 8)
    return nan;
  std::vector<std::array<double, 2>> kept = points;
  double slope = 0;
  for (int pass = 0; pass < 2; pass++) {
    double sx = 0;
    double sy = 0;
    double sxx = 0;
    double sxy = 0;
    const auto n = static_cast<double> (kept.size ());
    for (const auto &p : kept) {
      sx += p[0];
      sy += p[1];
      sxx += p[0] * p[0];
      sxy += p[0] * p[1];
    }
    slope = (n * sxy - sx * sy) / (n * sxx - sx * sx);
    const double offset = (sy - slope * sx) / n;
    std::erase_if (kept,
                   [&] (const auto &p) { return std::abs (p[1] - offset - slope * p[0]) > 1; });
    if (kept.size () < points.size () / 2)
      return nan;
  }
  return slope;
}

double bilinear (const Image &picture, double x, double y, int channel)
{
  const double px = std::clamp (x - 0.5, 0.0, picture.width - 1.0);
  const double py = std::clamp (y - 0.5, 0.0, picture.height - 1.0);
  const int x0 = std::min (static_cast<int> (px), picture.width - 2);
  const int y0 = std::min (static_cast<int> (py), picture.height - 2);
  const double fx = px - x0;
  const double fy = py - y0;
  return (1 - fy) *
             ((1 - fx) * picture.at (x0, y0)[channel] + fx * picture.at (x0 + 1, y0)[channel]) +
         fy * ((1 - fx) * picture.at (x0, y0 + 1)[channel] +
               fx * picture.at (x0 + 1, y0 + 1)[channel]);
}

uint8_t level (double value)
{
  return static_cast<uint8_t> (std::clamp (std::lround (value), 0L, 255L));
}

} // namespace

Mat3 multiply (const Mat3 &a, const Mat3 &b)
{
  Mat3 c{};
  for (size_t i = 0; i < 3; i++)
    for (size_t j = 0; j < 3; j++)
      for (size_t k = 0; k < 3; k++)
        c[i][j] += a[i][k] * b[k][j];
  return c;
}

Mat3 transposed (const Mat3 &a)
{
  Mat3 c{};
  for (size_t i = 0; i < 3; i++)
    for (size_t j = 0; j < 3; j++)
      c[i][j] = a[j][i];
  return c;
}

Vec3 turned (const Mat3 &a, const Vec3 &v)
{
  Vec3 r{};
  for (size_t i = 0; i < 3; i++)
    r[i] = a[i][0] * v[0] + a[i][1] * v[1] + a[i][2] * v[2];
  return r;
}

Mat3 attitude_matrix (const Euler &angles)
{
  const double cr = std::cos (angles.roll);
  const double sr = std::sin (angles.roll);
  const double cp = std::cos (angles.pitch);
  const double sp = std::sin (angles.pitch);
  const double cy = std::cos (angles.yaw);
  const double sy = std::sin (angles.yaw);
  const Mat3 roll = {{{1, 0, 0}, {0, cr, -sr}, {0, sr, cr}}};
  const Mat3 pitch = {{{cp, 0, sp}, {0, 1, 0}, {-sp, 0, cp}}};
  const Mat3 yaw = {{{cy, -sy, 0}, {sy, cy, 0}, {0, 0, 1}}};
  return multiply (yaw, multiply (pitch, roll));
}

std::array<double, 4> attitude_quaternion (const Euler &angles)
{
  const double cr = std::cos (angles.roll / 2);
  const double sr = std::sin (angles.roll / 2);
  const double cp = std::cos (angles.pitch / 2);
  const double sp = std::sin (angles.pitch / 2);
  const double cy = std::cos (angles.yaw / 2);
  const double sy = std::sin (angles.yaw / 2);
  return {sr * cp * cy - cr * sp * sy, cr * sp * cy + sr * cp * sy, cr * cp * sy - sr * sp * cy,
          cr * cp * cy + sr * sp * sy};
}

Camera Camera::with_hfov (int width, int height, double hfov_rad)
{
  const double f = width / 2.0 / std::tan (hfov_rad / 2);
  return {width, height, f, f, width / 2.0, height / 2.0};
}

World landscape (std::vector<double> pole_azimuths_rad)
{
  return [poles = std::move (pole_azimuths_rad)] (const Vec3 &ray) -> Colour {
    constexpr double pole_half_width = 0.012;
    const double horizontal = std::hypot (ray[0], ray[1]);
    for (const double azimuth : poles) {
      const double along = std::cos (azimuth) * ray[0] + std::sin (azimuth) * ray[1];
      const double across = -std::sin (azimuth) * ray[0] + std::cos (azimuth) * ray[1];
      if (along > 0 && std::abs (across) < pole_half_width * along)
        return {255, 255, 255};
    }
    if (ray[2] < 0)
      return {150, 180, 200};
    // The ground 10 m below: fields of 8 m that fade into the distance.
    const double distance = 10 * horizontal / std::max (ray[2], 1e-9);
    const double north = 10 * ray[0] / std::max (ray[2], 1e-9);
    const double east = 10 * ray[1] / std::max (ray[2], 1e-9);
    const bool even = (static_cast<long> (std::floor (north / 8) + std::floor (east / 8)) & 1) == 0;
    const double contrast = distance < 60 ? 1 - distance / 60 : 0;
    const double value = 50 + (even ? 25 : -25) * contrast;
    return {value, value + 15, value - 10};
  };
}

Image render (const World &world, const Camera &camera, const Shutter &shutter,
              const Motion &motion)
{
  Image picture (camera.width, camera.height);
  for (int y = 0; y < camera.height; y++) {
    const Mat3 attitude = attitude_matrix (motion (shutter.row_time (y + 0.5, camera.height)));
    for (int x = 0; x < camera.width; x++) {
      Colour sum{};
      for (int k = 0; k < 4; k++) {
        const double px = x + 0.25 + 0.5 * (k & 1);
        const double py = y + 0.25 + 0.5 * (k >> 1);
        const Colour c = world (
            turned (attitude, {1, (px - camera.cx) / camera.fx, (py - camera.cy) / camera.fy}));
        for (size_t i = 0; i < 3; i++)
          sum[i] += c[i] / 4;
      }
      for (size_t i = 0; i < 3; i++)
        picture.at (x, y)[i] = level (sum[i]);
    }
  }
  return picture;
}

Image waves (int width, int height, unsigned seed)
{
  std::mt19937 random (seed);
  std::uniform_real_distribution<double> wave (-0.35, 0.35);
  std::uniform_real_distribution<double> phase (0, 6.28);
  struct Wave {
    double kx, ky, phase;
  };
  std::array<std::array<Wave, 6>, 3> all{};
  for (auto &channel : all)
    for (auto &w : channel)
      w = {wave (random), wave (random), phase (random)};
  Image picture (width, height);
  for (int y = 0; y < height; y++)
    for (int x = 0; x < width; x++)
      for (size_t i = 0; i < 3; i++) {
        double value = 128;
        for (const auto &w : all[i])
          value += 20 * std::sin (w.kx * x + w.ky * y + w.phase);
        picture.at (x, y)[i] = level (value);
      }
  return picture;
}

Image dots (int width, int height, const std::vector<std::array<double, 2>> &places)
{
  Image picture (width, height);
  for (int y = 0; y < height; y++)
    for (int x = 0; x < width; x++) {
      double value = 0;
      for (const auto &p : places) {
        const double dx = x + 0.5 - p[0];
        const double dy = y + 0.5 - p[1];
        value += 255 * std::exp (-(dx * dx + dy * dy) / (2 * 1.5 * 1.5));
      }
      std::fill_n (picture.at (x, y), 3, level (value));
    }
  return picture;
}

bool look_up (const Camera &in, const Shutter &shutter, const Motion &motion, bool global,
              const Camera &out, const Mat3 &out_attitude, double x, double y, double *in_x,
              double *in_y)
{
  const Vec3 world = turned (out_attitude, {1, (x - out.cx) / out.fx, (y - out.cy) / out.fy});
  double row = in.height / 2.0;
  for (int step = 0; step < 40; step++) {
    const Mat3 attitude = attitude_matrix (motion (shutter.row_time (
        global ? in.height / 2.0 : std::clamp (row, 0.0, 1.0 * in.height), in.height)));
    const Vec3 body = turned (transposed (attitude), world);
    if (body[0] <= 0)
      return false;
    *in_x = in.cx + in.fx * body[1] / body[0];
    *in_y = in.cy + in.fy * body[2] / body[0];
    if (global || std::abs (*in_y - row) < 1e-9)
      break;
    row = *in_y;
  }
  return true;
}

void project (const Camera &in, const Shutter &shutter, const Motion &motion, bool global,
              const Camera &out, const Mat3 &out_attitude, double x, double y, double *out_x,
              double *out_y)
{
  const Mat3 attitude =
      attitude_matrix (motion (shutter.row_time (global ? in.height / 2.0 : y, in.height)));
  const Vec3 world = turned (attitude, {1, (x - in.cx) / in.fx, (y - in.cy) / in.fy});
  const Vec3 body = turned (transposed (out_attitude), world);
  *out_x = body[0] > 0 ? out.cx + out.fx * body[1] / body[0] : nan;
  *out_y = body[0] > 0 ? out.cy + out.fy * body[2] / body[0] : nan;
}

Image warp (const Image &picture, const Camera &in, const Shutter &shutter, const Motion &motion,
            bool global, const Camera &out, const Mat3 &out_attitude)
{
  Image result (out.width, out.height);
  for (int y = 0; y < out.height; y++)
    for (int x = 0; x < out.width; x++) {
      double in_x = 0;
      double in_y = 0;
      if (!look_up (in, shutter, motion, global, out, out_attitude, x + 0.5, y + 0.5, &in_x, &in_y))
        continue;
      for (int i = 0; i < 3; i++)
        result.at (x, y)[i] = level (bilinear (picture, in_x, in_y, i));
    }
  return result;
}

Camera part_of (const Camera &camera, double part)
{
  const double middle_x = camera.width / 2.0;
  const double middle_y = camera.height / 2.0;
  return {camera.width,
          camera.height,
          camera.fx / part,
          camera.fy / part,
          middle_x + (camera.cx - middle_x) / part,
          middle_y + (camera.cy - middle_y) / part};
}

double fitting_part (const Camera &in, const Shutter &shutter, const Motion &motion, bool global,
                     const Camera &out, const Mat3 &out_attitude)
{
  const auto fits = [&] (double part) {
    const Camera smaller = part_of (out, part);
    for (int i = 0; i <= 16; i++) {
      const double along = i / 16.0;
      const double places[4][2] = {{along * out.width, 0},
                                   {along * out.width, 1.0 * out.height},
                                   {0, along * out.height},
                                   {1.0 * out.width, along * out.height}};
      for (const auto &place : places) {
        double x = 0;
        double y = 0;
        if (!look_up (in, shutter, motion, global, smaller, out_attitude, place[0], place[1], &x,
                      &y) ||
            x < -1e-6 || y < -1e-6 || x > in.width + 1e-6 || y > in.height + 1e-6)
          return false;
      }
    }
    return true;
  };
  if (fits (1))
    return 1;
  double good = 0;
  double bad = 1;
  for (int step = 0; step < 20; step++)
    (fits ((good + bad) / 2) ? good : bad) = (good + bad) / 2;
  return good;
}

double mean_difference (const Image &a, const Image &b)
{
  double sum = 0;
  for (int y = 0; y < a.height; y++)
    for (int x = 0; x < a.width; x++)
      for (int i = 0; i < 3; i++)
        sum += std::abs (a.at (x, y)[i] - b.at (x, y)[i]);
  return sum / (3.0 * a.width * a.height);
}

double skyline_angle_deg (const Image &picture)
{
  constexpr double threshold = 120; // green, between ground and sky
  std::vector<std::array<double, 2>> points;
  for (int x = picture.width / 4; x < picture.width * 3 / 4; x++)
    for (int y = 0; y + 1 < picture.height; y++) {
      const double above = picture.at (x, y)[1];
      const double below = picture.at (x, y + 1)[1];
      if (above >= threshold && below < threshold) {
        points.push_back ({x + 0.5, y + 0.5 + (above - threshold) / (above - below)});
        break;
      }
    }
  return points.size () < static_cast<size_t> (picture.width) / 4
             ? nan
             : std::atan (fitted_slope (points)) / deg;
}

double pole_lean_deg (const Image &picture)
{
  std::vector<std::array<double, 2>> points;
  for (int y = picture.height / 4; y < picture.height * 3 / 4; y++) {
    double sum = 0;
    double moment = 0;
    for (int x = 0; x < picture.width; x++) {
      const double bright = std::max (0.0, picture.at (x, y)[0] - 155.0);
      sum += bright;
      moment += bright * (x + 0.5);
    }
    if (sum > 50)
      points.push_back ({y + 0.5, moment / sum});
  }
  return points.size () < static_cast<size_t> (picture.height) / 4
             ? nan
             : std::atan (fitted_slope (points)) / deg;
}

std::array<double, 2> dot_centre (const Image &picture, double x, double y, double radius)
{
  double sum = 0;
  double mx = 0;
  double my = 0;
  for (int py = 0; py < picture.height; py++)
    for (int px = 0; px < picture.width; px++) {
      if (std::hypot (px + 0.5 - x, py + 0.5 - y) > radius)
        continue;
      const double bright = picture.at (px, py)[0];
      sum += bright;
      mx += bright * (px + 0.5);
      my += bright * (py + 0.5);
    }
  return sum > 0 ? std::array<double, 2>{mx / sum, my / sum} : std::array<double, 2>{nan, nan};
}

} // namespace scene
