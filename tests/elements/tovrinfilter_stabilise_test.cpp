// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What the filter is for: a level horizon and upright poles from a camera that is thrown about.
#include <cmath>
#include <string>

#include <gtest/gtest.h>

#include "filter_rig.hpp"

using namespace scene;

namespace
{

constexpr double hfov = 90 * deg;
constexpr double frame_period = 1001.0 / 24000;
constexpr double horizon_bound_deg = 0.2;

/** Hard flying: rolls of 35, pitch of 8 and yaw of 40 degrees, up to 150 degrees a second. */
Euler aggressive (double t)
{
  return {35 * deg * std::sin (4.4 * t), 8 * deg * std::sin (2.9 * t + 1),
          40 * deg * std::sin (1.9 * t)};
}

struct Flight {
  double largest_input_deg = 0;
  double largest_output_deg = 0; // infinite when a frame has no skyline
  int frames = 0;
};

/** Films the flight and measures the skyline before and behind the filter. */
Flight fly (FilterRig *rig, double readout, int frames)
{
  const World world = landscape ();
  const Camera camera = Camera::with_hfov (320, 180, hfov);
  Flight flight;
  for (int i = 0; i < frames; i++) {
    const Shutter shutter = {3.21 + i * frame_period, 0.006, readout};
    const Image filmed = render (world, camera, shutter, aggressive);
    const Image shown = rig->run (filmed, FrameTimes::of (shutter, hfov));
    if (shown.width == 0)
      break;
    const double angle = skyline_angle_deg (shown);
    const double filmed_angle = skyline_angle_deg (filmed);
    if (!std::isnan (filmed_angle))
      flight.largest_input_deg = std::max (flight.largest_input_deg, std::abs (filmed_angle));
    flight.largest_output_deg =
        std::max (flight.largest_output_deg, std::isnan (angle) ? INFINITY : std::abs (angle));
    flight.frames++;
  }
  return flight;
}

struct ShutterCase {
  const char *name;
  bool wobble_comp;
  double readout;
};

void PrintTo (const ShutterCase &c, std::ostream *out)
{
  *out << c.name;
}

class Stabilised : public testing::TestWithParam<ShutterCase>
{
protected:
  Stabilised () : rig_ (320, 180)
  {
    g_object_set (rig_.filter (), "wobble-comp", GetParam ().wobble_comp, nullptr);
  }
  FilterRig rig_;
};

} // namespace

TEST_P (Stabilised, HorizonStaysLevel)
{
  rig_.follow (aggressive);
  const Flight flight = fly (&rig_, GetParam ().readout, 60);
  EXPECT_EQ (flight.frames, 60);
  EXPECT_GT (flight.largest_input_deg, 25);
  EXPECT_LT (flight.largest_output_deg, horizon_bound_deg);
  RecordProperty ("largest_output_mdeg", static_cast<int> (1000 * flight.largest_output_deg));
}

TEST_P (Stabilised, InvertedAttitudeShows)
{
  rig_.set_answer ([] (GstClockTime start, GstClockTime stop) {
    return sample_motion (
        [] (double t) {
          const Euler e = aggressive (t);
          return Euler{-e.roll, -e.pitch, -e.yaw};
        },
        start, stop, 0);
  });
  EXPECT_GT (fly (&rig_, GetParam ().readout, 30).largest_output_deg, 10 * horizon_bound_deg);
}

TEST_P (Stabilised, AttitudeOf50MillisecondsBeforeShows)
{
  rig_.set_answer ([] (GstClockTime start, GstClockTime stop) {
    return sample_motion (aggressive, start - 50 * GST_MSECOND, stop - 50 * GST_MSECOND, 0);
  });
  EXPECT_GT (fly (&rig_, GetParam ().readout, 30).largest_output_deg, 10 * horizon_bound_deg);
}

INSTANTIATE_TEST_SUITE_P (Shutters, Stabilised,
                          testing::Values (ShutterCase{"global", false, 0},
                                           ShutterCase{"rolling", true, 0.016}),
                          [] (const auto &test) { return std::string (test.param.name); });

namespace
{

/** A yaw of 200 degrees a second past poles, filmed with 20 ms of readout. */
class Pole : public testing::Test
{
protected:
  double lean (bool wobble_comp, Image *filmed = nullptr)
  {
    const Motion yaw = [] (double t) { return Euler{0, 0, 200 * deg * (t - 1.01)}; };
    const Shutter shutter = {1, 0.002, 0.020};
    const Image picture =
        render (landscape ({0}), Camera::with_hfov (320, 180, hfov), shutter, yaw);
    if (filmed)
      *filmed = picture;
    FilterRig rig (320, 180);
    g_object_set (rig.filter (), "wobble-comp", wobble_comp, nullptr);
    rig.set_orientation ({});
    rig.follow (yaw);
    return pole_lean_deg (rig.run (picture, FrameTimes::of (shutter, hfov)));
  }
};

} // namespace

TEST_F (Pole, LeansWithoutWobbleCompensation)
{
  Image filmed;
  const double shown = lean (false, &filmed);
  // 4 degrees of yaw from top to bottom, 160 pixels to the radian, in 180 rows.
  const double expected = std::atan (200 * deg * 0.020 * 160 / 180) / deg;
  EXPECT_NEAR (std::abs (pole_lean_deg (filmed)), expected, 0.3);
  EXPECT_NEAR (std::abs (shown), expected, 0.3);
}

TEST_F (Pole, StandsUprightWithWobbleCompensation)
{
  EXPECT_LT (std::abs (lean (true)), 0.15);
}

namespace
{

/** Red within 3 pixels of the edge: what lies beyond the picture comes out as red. */
Image with_red_edge (int width, int height)
{
  Image picture (width, height);
  for (int y = 0; y < height; y++)
    for (int x = 0; x < width; x++) {
      const bool edge = x < 3 || y < 3 || x >= width - 3 || y >= height - 3;
      picture.at (x, y)[1] = picture.at (x, y)[2] = edge ? 0 : 255;
    }
  return picture;
}

/** The part of the picture that shows the edge. */
double red_part (const Image &picture)
{
  int red = 0;
  for (int y = 0; y < picture.height; y++)
    for (int x = 0; x < picture.width; x++)
      red += picture.at (x, y)[1] < 128;
  return static_cast<double> (red) / (picture.width * picture.height);
}

} // namespace

TEST (Border, IsNeverPassed)
{
  FilterRig rig (320, 180);
  g_object_set (rig.filter (), "wobble-comp", TRUE, nullptr);
  rig.follow (aggressive);
  const Image picture = with_red_edge (320, 180);
  // The frame's own edge is 5 % of it; magnified 2.5 times it can be no more than this.
  const double edge_itself = red_part (picture);
  for (int i = 0; i < 60; i++) {
    const Shutter shutter = {3.21 + i * frame_period, 0.006, 0.016};
    const Image shown = rig.run (picture, FrameTimes::of (shutter, hfov));
    EXPECT_LT (red_part (shown), edge_itself) << "frame " << i;
  }
  // The measure is not blind: a turn of the given picture by hand shows red all over its corners.
  const Camera camera = Camera::with_hfov (320, 180, hfov);
  const Image turned = warp (
      picture, camera, {},
      [] (double) {
        return Euler{20 * deg, 0, 0};
      },
      true, camera, attitude_matrix ({}));
  EXPECT_GT (red_part (turned), 2 * edge_itself);
}

TEST (Border, GivenOrientationsFarAwayAreApproachedWithoutIt)
{
  FilterRig rig (320, 180);
  rig.follow ([] (double) { return Euler{}; });
  const Image picture = with_red_edge (320, 180);
  const double edge_itself = red_part (picture);
  for (int angle = 0; angle <= 180; angle += 12) {
    for (const Euler &shown : {Euler{angle * deg, 0, 0}, Euler{0, angle * deg, 0},
                               Euler{0, 0, angle * deg}, Euler{angle * deg, 0, -angle * deg}}) {
      rig.set_orientation (shown);
      EXPECT_LE (red_part (rig.run (picture, FrameTimes{GST_SECOND, 0, 0, hfov})), edge_itself)
          << angle;
    }
  }
}
