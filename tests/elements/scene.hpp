// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A small world and a camera in it, written for the tests of the dewarping filter and apart from
// its code: rotation matrices from Euler angles, pictures from closed forms, a warp pixel by pixel.
#ifndef TESTS_ELEMENTS_SCENE_HPP
#define TESTS_ELEMENTS_SCENE_HPP

#include <array>
#include <cstdint>
#include <functional>
#include <vector>

namespace scene
{

constexpr double deg = 3.14159265358979323846 / 180;

using Vec3 = std::array<double, 3>;
using Mat3 = std::array<Vec3, 3>; // rows

Mat3 multiply (const Mat3 &a, const Mat3 &b);
Mat3 transposed (const Mat3 &a);
Vec3 turned (const Mat3 &a, const Vec3 &v);

/** Z-Y-X Euler angles, rad: the camera rolls about its optical axis, then pitches up, then yaws. */
struct Euler {
  double roll = 0, pitch = 0, yaw = 0;
};

/** Body (forward, right, down) to world (north, east, down). */
Mat3 attitude_matrix (const Euler &angles);
/** x, y, z, w of the same rotation. */
std::array<double, 4> attitude_quaternion (const Euler &angles);

/** Angles at a time in seconds. */
using Motion = std::function<Euler (double)>;

struct Image {
  int width = 0, height = 0;
  std::vector<uint8_t> pixels; // RGBA

  Image () = default;
  Image (int w, int h) : width (w), height (h), pixels (static_cast<size_t> (4 * w * h), 255) {}
  uint8_t *at (int x, int y) { return &pixels[static_cast<size_t> (4 * (y * width + x))]; }
  const uint8_t *at (int x, int y) const
  {
    return &pixels[static_cast<size_t> (4 * (y * width + x))];
  }
};

/** A pinhole camera: focal lengths and the place of the axis in pixels; (0, 0) is a corner, the
 * first pixel's middle is (0.5, 0.5). */
struct Camera {
  int width, height;
  double fx, fy, cx, cy;
  /** Square pixels, the axis in the middle, this field of view across. */
  static Camera with_hfov (int width, int height, double hfov_rad);
};

/** When rows are exposed, s. A row's moment is the middle of its exposure. */
struct Shutter {
  double start = 0, exposure = 0, readout = 0;
  double row_time (double y, int height) const
  {
    return start + y / height * readout + exposure / 2;
  }
};

using Colour = std::array<double, 3>;
using World = std::function<Colour (const Vec3 &ray)>;

/** Sky above the horizon, dark chequered ground below, and white poles at these azimuths. */
World landscape (std::vector<double> pole_azimuths_rad = {});

/** What the camera sees, four rays a pixel. */
Image render (const World &world, const Camera &camera, const Shutter &shutter,
              const Motion &motion);

/** A picture of smooth random waves. */
Image waves (int width, int height, unsigned seed);
/** Black with soft white dots (sigma 1.5 pixels) at these places. */
Image dots (int width, int height, const std::vector<std::array<double, 2>> &places);

/** Where the camera that had its rows' own attitudes saw what the output camera sees at (x, y);
 * false when it is behind. global: the attitude of the frame's middle for all rows. */
bool look_up (const Camera &in, const Shutter &shutter, const Motion &motion, bool global,
              const Camera &out, const Mat3 &out_attitude, double x, double y, double *in_x,
              double *in_y);

/** The other way: where in the output the input's (x, y) is seen. */
void project (const Camera &in, const Shutter &shutter, const Motion &motion, bool global,
              const Camera &out, const Mat3 &out_attitude, double x, double y, double *out_x,
              double *out_y);

/** The output camera's picture, looked up pixel by pixel, bilinear, edges repeated. */
Image warp (const Image &picture, const Camera &in, const Shutter &shutter, const Motion &motion,
            bool global, const Camera &out, const Mat3 &out_attitude);

/** The largest part (up to 1) of the output window that has no point outside the input. */
double fitting_part (const Camera &in, const Shutter &shutter, const Motion &motion, bool global,
                     const Camera &out, const Mat3 &out_attitude);

/** A camera that shows this part of the other's picture about its middle. */
Camera part_of (const Camera &camera, double part);

double mean_difference (const Image &a, const Image &b);

/** A line fitted to the picture's skyline: its angle to the rows, degrees (positive: falls to the
 * right); columns from the middle half. NaN when there is no skyline. */
double skyline_angle_deg (const Image &picture);

/** The lean of a white pole from the vertical, degrees, from the rows of the middle half. NaN when
 * there is none. */
double pole_lean_deg (const Image &picture);

/** The bright dot's centre nearest to a place. */
std::array<double, 2> dot_centre (const Image &picture, double x, double y, double radius);

} // namespace scene

#endif
