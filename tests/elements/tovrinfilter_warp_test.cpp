// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The warped picture against one that the test computes itself, pixel by pixel.
#include <cmath>
#include <string>

#include <gtest/gtest.h>

#include <vorn/frame_meta.h>

#include "filter_rig.hpp"

using namespace scene;

namespace
{

struct Rect {
  guint left = 0, top = 0, width = 0, height = 0;
};

struct Case {
  const char *name;
  Euler camera; // in the frame's middle
  Euler rate;   // rad/s
  Euler shown;
  int width = 320, height = 180;
  int out_width = 320, out_height = 180;
  double hfov = 80 * deg;
  Rect rect = {};
  bool told = false; // the source tells its optics itself
};

constexpr double frame_start = 12.3456;

Shutter shutter_of (const Case &)
{
  return {frame_start, 0.006, 0.018};
}

Motion motion_of (const Case &c)
{
  return [c] (double t) -> Euler {
    const double dt = t - (frame_start + 0.003 + 0.009);
    return {c.camera.roll + c.rate.roll * dt, c.camera.pitch + c.rate.pitch * dt,
            c.camera.yaw + c.rate.yaw * dt};
  };
}

/** Focal length from the width; the axis in the middle of a sensor as large as the frame. */
Camera input_camera (const Case &c)
{
  Camera camera = Camera::with_hfov (c.width, c.height, c.hfov);
  if (c.rect.width > 0) {
    const double sensor_f = c.rect.width / 2.0 / std::tan (c.hfov / 2);
    camera.fx = sensor_f * c.width / c.rect.width;
    camera.fy = sensor_f * c.height / c.rect.height;
  }
  if (c.rect.left > 0) {
    camera.cx = (c.width / 2.0 - c.rect.left) * c.width / c.rect.width;
    camera.cy = (c.height / 2.0 - c.rect.top) * c.height / c.rect.height;
  }
  return camera;
}

/** Square pixels, the same middle, as large as the input's window allows. */
Camera output_camera (const Case &c)
{
  const Camera in = input_camera (c);
  const double middle_y = (in.width / 2.0 - in.cx) / in.fx; // tangents
  const double middle_z = (in.height / 2.0 - in.cy) / in.fy;
  const double f = std::max (c.out_width / (in.width / in.fx), c.out_height / (in.height / in.fy));
  return {c.out_width,
          c.out_height,
          f,
          f,
          c.out_width / 2.0 - f * middle_y,
          c.out_height / 2.0 - f * middle_z};
}

void PrintTo (const Case &c, std::ostream *out)
{
  *out << c.name;
}

class Warped : public testing::TestWithParam<std::tuple<Case, bool>>
{
protected:
  Warped () : rig_ (case_.width, case_.height, case_.out_width, case_.out_height)
  {
    g_object_set (rig_.filter (), "wobble-comp", wobble_, "max-zoom", 10.0, nullptr);
    if (!case_.told)
      g_object_set (rig_.filter (), "sensor-capture-left", case_.rect.left, "sensor-capture-top",
                    case_.rect.top, "sensor-capture-width", case_.rect.width,
                    "sensor-capture-height", case_.rect.height, nullptr);
    rig_.set_orientation (case_.shown);
    // A grid whose sample before the start is half a millisecond old, as is to be expected.
    rig_.follow (motion_of (case_), std::fmod (frame_start - 0.0005, 0.001));
  }

  Image run (const Image &picture)
  {
    return rig_.run (picture, FrameTimes::of (shutter_of (case_), case_.hfov),
                     [this] (GstBuffer *buffer) {
                       if (case_.told)
                         tell_optics (vorn_frame_meta_get (buffer)->structure);
                     });
  }

  void tell_optics (GstStructure *meta) const
  {
    const Camera camera = input_camera (case_);
    gst_structure_set (meta, "vfov", G_TYPE_DOUBLE, 2 * std::atan (camera.height / 2.0 / camera.fy),
                       "focal-x", G_TYPE_DOUBLE, camera.fx, "focal-y", G_TYPE_DOUBLE, camera.fy,
                       "center-x", G_TYPE_DOUBLE, camera.cx, "center-y", G_TYPE_DOUBLE, camera.cy,
                       nullptr);
  }

  Camera shown_camera (const Mat3 &shown) const
  {
    const Camera whole = output_camera (case_);
    return part_of (whole, fitting_part (input_camera (case_), shutter_of (case_),
                                         motion_of (case_), !wobble_, whole, shown));
  }

  const Case case_ = std::get<0> (GetParam ());
  const bool wobble_ = std::get<1> (GetParam ());
  FilterRig rig_;
};

constexpr Euler no_rate = {};
const Case cases[] = {
    {"level", {}, no_rate, {}},
    {"roll", {25 * deg, 0, 0}, no_rate, {}},
    {"roll_back_and_pitch", {-14 * deg, 9 * deg, 0}, no_rate, {0, 3 * deg, 0}},
    {"all_axes", {12 * deg, -6 * deg, 140 * deg}, no_rate, {3 * deg, -2 * deg, 147 * deg}},
    {"fast_roll", {8 * deg, 0, 0}, {4, 0.3, -0.2}, {}},
    {"fast_yaw", {0, 2 * deg, 30 * deg}, {0.2, -0.1, 4}, {0, 0, 28 * deg}},
    {"fast_pitch", {5 * deg, 3 * deg, 0}, {0.1, 3, 0.3}, {0, 0, 2 * deg}},
    {"enlarged", {10 * deg, 0, 4 * deg}, {1, 1, 1}, {}, 160, 120, 400, 300},
    {"reduced", {10 * deg, 0, 4 * deg}, {1, 1, 1}, {}, 400, 300, 240, 180},
    {"other_aspect", {-10 * deg, 5 * deg, 0}, {1, -1, 1}, {}, 320, 200, 320, 180},
    {"upright", {6 * deg, 0, 0}, {1, -1, 1}, {}, 320, 180, 180, 240},
    {"narrow", {9 * deg, 1 * deg, -2 * deg}, {1, 1, 1}, {}, 320, 180, 320, 180, 25 * deg},
    {"wide", {20 * deg, 10 * deg, -15 * deg}, {2, 2, 2}, {}, 320, 180, 320, 180, 120 * deg},
    {"flat_pixels",
     {12 * deg, 4 * deg, 0},
     {1, 1, 1},
     {},
     320,
     180,
     320,
     240,
     70 * deg,
     {0, 0, 640, 480}},
    {"aside",
     {12 * deg, 4 * deg, -3 * deg},
     {1, 1, 1},
     {},
     320,
     180,
     320,
     180,
     60 * deg,
     {90, 20, 200, 120}},
    {"aside_as_told",
     {12 * deg, 4 * deg, -3 * deg},
     {1, 1, 1},
     {},
     320,
     180,
     320,
     180,
     60 * deg,
     {90, 20, 200, 120},
     true},
    {"odd_sizes", {-7 * deg, 4 * deg, 3 * deg}, {1, 1, 1}, {}, 319, 177, 201, 111},
};

} // namespace

TEST_P (Warped, EqualsTheReferencePictureWithinAGreyLevel)
{
  const Image picture = waves (case_.width, case_.height, 7);
  const Image result = run (picture);
  ASSERT_EQ (result.width, case_.out_width);
  ASSERT_EQ (result.height, case_.out_height);
  const Mat3 shown = attitude_matrix (case_.shown);
  const Image expected = warp (picture, input_camera (case_), shutter_of (case_), motion_of (case_),
                               !wobble_, shown_camera (shown), shown);
  EXPECT_LE (mean_difference (result, expected), 1.0);

  // The measure is not blind: a picture shown two degrees aside is told apart.
  const Mat3 aside =
      attitude_matrix ({case_.shown.roll, case_.shown.pitch, case_.shown.yaw + 2 * deg});
  const Image wrong = warp (picture, input_camera (case_), shutter_of (case_), motion_of (case_),
                            !wobble_, shown_camera (shown), aside);
  EXPECT_GT (mean_difference (result, wrong), 3.0);
}

TEST_P (Warped, PutsEveryPointWithinHalfAPixel)
{
  std::vector<std::array<double, 2>> places;
  for (int row = 0; row < 5; row++)
    for (int column = 0; column < 7; column++)
      places.push_back (
          {(column + 0.5) * case_.width / 7.0 + 0.3 * row, (row + 0.5) * case_.height / 5.0});
  const Image result = run (dots (case_.width, case_.height, places));
  const Mat3 shown = attitude_matrix (case_.shown);
  const Camera out = shown_camera (shown);
  // A dot's picture is a dot with its centre in place only if it is not cut off.
  const double margin = 8 * std::max (1.0, out.fx / input_camera (case_).fx);
  int seen = 0;
  for (const auto &place : places) {
    double x = 0;
    double y = 0;
    project (input_camera (case_), shutter_of (case_), motion_of (case_), !wobble_, out, shown,
             place[0], place[1], &x, &y);
    if (!(x > margin && y > margin && x < out.width - margin && y < out.height - margin))
      continue;
    const auto centre = dot_centre (result, x, y, margin * 0.8);
    EXPECT_LT (std::hypot (centre[0] - x, centre[1] - y), 0.5)
        << "dot at " << place[0] << ", " << place[1];
    seen++;
  }
  EXPECT_GE (seen, 4);
}

INSTANTIATE_TEST_SUITE_P (Attitudes, Warped,
                          testing::Combine (testing::ValuesIn (cases), testing::Bool ()),
                          [] (const auto &test) {
                            return std::string (std::get<0> (test.param).name) +
                                   (std::get<1> (test.param) ? "_by_rows" : "_at_once");
                          });

TEST (WarpedPixels, StayAsTheyAreWhenNothingTurns)
{
  FilterRig rig (320, 180);
  rig.follow ([] (double) { return Euler{}; });
  rig.set_orientation ({});
  const Image picture = waves (320, 180, 3);
  EXPECT_EQ (rig.run (picture, FrameTimes{GST_SECOND, 0, 0, 1.2}).pixels, picture.pixels);
}

TEST (WarpedPixels, TakeThePixelAspectOfTheInput)
{
  FilterRig rig (320, 360, 320, 180, ",pixel-aspect-ratio=2/1");
  rig.follow ([] (double) { return Euler{}; });
  rig.set_orientation ({});
  const Image result = rig.run (dots (320, 360, {{100, 200}}), FrameTimes{GST_SECOND, 0, 0, 1.2});
  // 320 pixels of double width by 360: 640 by 360, a half of that by a half comes out.
  const auto centre = dot_centre (result, 100, 100, 10);
  EXPECT_NEAR (centre[0], 100, 0.1);
  EXPECT_NEAR (centre[1], 100, 0.1);
}
