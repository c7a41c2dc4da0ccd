// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Where the output camera looks and how much it shows: crop, limits, smoothing.
#include <array>
#include <cmath>
#include <string>

#include <gtest/gtest.h>

#include "tovrinfilter_renderer.hpp"
#include "tovrinfilter_view.hpp"

using namespace tovrin;

namespace
{

constexpr double deg = std::numbers::pi / 180;

/** 90 degrees across, 16:9. */
constexpr Window wide = {-1, 1, -0.5625, 0.5625};

Picture picture_with (double max_zoom, Window window = wide)
{
  return {window, window, max_zoom};
}

double angle_between (Quaternion a, Quaternion b)
{
  const Quaternion q = conjugate (a) * b;
  return 2 * std::atan2 (std::hypot (q.x, q.y, q.z), std::abs (q.w));
}

/** Roll of an attitude against the horizon, from its right axis. */
double roll_rad (Quaternion q)
{
  return std::asin (std::clamp (rotate (q, {0, 1, 0}).z, -1.0, 1.0));
}

double scale_of (Quaternion shown, Quaternion camera, const Picture &picture)
{
  return fitting_scale (picture.input, picture.output, matrix (conjugate (camera) * shown));
}

const Quaternion some_camera =
    turn ({0, 0, 1}, 1.1) * turn ({0, 1, 0}, -0.2) * turn ({1, 0, 0}, 0.3);

} // namespace

// The crop is as little as the angle needs.

TEST (FittingScale, OfARollIsTheClosedForm)
{
  for (int angle = 0; angle <= 180; angle += 5) {
    const double c = std::abs (std::cos (angle * deg));
    const double s = std::abs (std::sin (angle * deg));
    // The turned rectangle's bounding box fits the picture.
    const double expected = std::min (1 / (c + 0.5625 * s), 0.5625 / (s + 0.5625 * c));
    EXPECT_NEAR (fitting_scale (wide, wide, matrix (turn ({1, 0, 0}, angle * deg))),
                 std::min (1.0, expected), 1e-12)
        << angle;
  }
}

TEST (FittingScale, OfAYawIsTheClosedForm)
{
  for (int angle = 0; angle < 45; angle += 5) {
    // The right border at scale s lies at atan (s) + angle, the picture ends at 45 degrees; the
    // corner there is 0.5625 s high at distance 1 and must be within 0.5625 times its new depth.
    const double to_border = std::tan (45 * deg - angle * deg);
    const double a = angle * deg;
    const double to_corner = std::cos (a) / (1 + std::sin (a));
    EXPECT_NEAR (fitting_scale (wide, wide, matrix (turn ({0, 0, 1}, a))),
                 std::min ({1.0, to_border, to_corner}), 1e-12)
        << angle;
  }
}

TEST (FittingScale, IsZeroWhenTheCentreIsOutside)
{
  EXPECT_EQ (fitting_scale (wide, wide, matrix (turn ({0, 0, 1}, 46 * deg))), 0);
  EXPECT_EQ (fitting_scale (wide, wide, matrix (turn ({0, 0, 1}, 180 * deg))), 0);
}

TEST (FittingScale, ByRowsOfEqualTurnsIsThatOfOne)
{
  const Matrix one = matrix (turn (normalized (Vector{1, 0.2, 0.3}), 0.3));
  EXPECT_NEAR (Warp (wide, std::vector<Matrix> (64, one)).fitting_scale (wide),
               Warp (wide, {one}).fitting_scale (wide), 2e-5);
}

// Limits.

TEST (WithinPicture, GivesWhatIsWantedWellInside)
{
  for (const Vector axis :
       {Vector{1, 0, 0}, Vector{0, 1, 0}, Vector{0, 0, 1}, normalized (Vector{0.5, 0.5, 0.7})}) {
    const Quaternion wanted = some_camera * turn (axis, 12 * deg);
    EXPECT_LT (angle_between (within_picture (wanted, some_camera, picture_with (2.5)), wanted),
               1e-9);
  }
}

TEST (WithinPicture, AnyRollIsHadWithTheDefaultZoom)
{
  for (int angle = -180; angle <= 180; angle += 10) {
    const Quaternion wanted = some_camera * turn ({1, 0, 0}, angle * deg);
    EXPECT_LT (angle_between (within_picture (wanted, some_camera, picture_with (2.5)), wanted),
               1e-7);
  }
}

TEST (WithinPicture, NoZoomMeansNoTurn)
{
  const Quaternion wanted = some_camera * turn (normalized (Vector{1, 2, 3}), 0.4);
  EXPECT_LT (angle_between (within_picture (wanted, some_camera, picture_with (1)), some_camera),
             1e-6);
}

namespace
{

struct Sweep {
  const char *name;
  Vector axis;
  double max_zoom;
  Window window;
};

const Sweep sweeps[] = {
    {"roll", {1, 0, 0}, 2.5, wide},
    {"roll_little_zoom", {1, 0, 0}, 1.3, wide},
    {"pitch", {0, 1, 0}, 2.5, wide},
    {"yaw", {0, 0, 1}, 2.5, wide},
    {"yaw_little_zoom", {0, 0, 1}, 1.1, wide},
    {"mixed", {0.6, 0.64, 0.48}, 2.5, wide},
    {"mixed_little_zoom", {0.6, 0.64, 0.48}, 1.4, wide},
    {"upright", {0.36, 0.48, 0.8}, 2, {-0.4, 0.4, -0.8, 0.8}},
    {"aside", {0.36, 0.48, 0.8}, 3, {-0.2, 0.8, -0.3, 0.4}},
    {"very_wide", {0, 0.6, 0.8}, 10, {-5, 5, -3, 3}},
};

void PrintTo (const Sweep &s, std::ostream *out)
{
  *out << s.name;
}

class Limits : public testing::TestWithParam<Sweep>
{
};

} // namespace

TEST_P (Limits, HoldTheBorderAndNeverJump)
{
  const Sweep &sweep = GetParam ();
  const Picture picture = picture_with (sweep.max_zoom, sweep.window);
  constexpr double step = 0.05 * deg;
  Quaternion before = some_camera;
  for (double angle = 0; angle < 178 * deg; angle += step) {
    const Quaternion wanted = some_camera * turn (sweep.axis, angle);
    const Quaternion shown = within_picture (wanted, some_camera, picture);
    EXPECT_GE (scale_of (shown, some_camera, picture) * sweep.max_zoom, 1 - 1e-6) << angle / deg;
    EXPECT_LT (angle_between (before, shown), 8 * step) << angle / deg;
    before = shown;
  }
}

TEST_P (Limits, OfTheLevelViewHoldTheBorderAndNeverJump)
{
  const Sweep &sweep = GetParam ();
  const Picture picture = picture_with (sweep.max_zoom, sweep.window);
  constexpr double step = 0.05 * deg;
  const Vector camera_axis = rotate (some_camera, {1, 0, 0});
  const Vector about = normalized (cross (camera_axis, sweep.axis));
  Quaternion before = level_within_picture (camera_axis, some_camera, picture);
  for (double angle = 0; angle < 60 * deg; angle += step) {
    const Quaternion shown =
        level_within_picture (rotate (turn (about, angle), camera_axis), some_camera, picture);
    EXPECT_GE (scale_of (shown, some_camera, picture) * sweep.max_zoom, 1 - 1e-6) << angle / deg;
    EXPECT_LT (angle_between (before, shown), 8 * step) << angle / deg;
    // Level all the way, unless the zoom is too little for the roll itself.
    if (sweep.max_zoom >= 2.5) {
      EXPECT_NEAR (roll_rad (shown), 0, 1e-9);
    }
    before = shown;
  }
}

INSTANTIATE_TEST_SUITE_P (Sweeps, Limits, testing::ValuesIn (sweeps),
                          [] (const auto &test) { return std::string (test.param.name); });

// The level view.

TEST (LevelAlong, HasNoRollAndLooksThere)
{
  for (int elevation = -75; elevation <= 75; elevation += 15) {
    for (int azimuth = -180; azimuth < 180; azimuth += 40) {
      const Vector axis = {std::cos (elevation * deg) * std::cos (azimuth * deg),
                           std::cos (elevation * deg) * std::sin (azimuth * deg),
                           -std::sin (elevation * deg)};
      const Quaternion level = level_along (axis, some_camera);
      EXPECT_NEAR (roll_rad (level), 0, 1e-12);
      EXPECT_GT (rotate (level, {0, 0, 1}).z, 0) << "upside down";
      EXPECT_LT (angle_between (level, level_along (rotate (level, {1, 0, 0}), some_camera)), 1e-9);
      EXPECT_NEAR (dot (rotate (level, {1, 0, 0}), axis), 1, 1e-12);
    }
  }
}

TEST (LevelAlong, GoesSteadilyThroughTheVertical)
{
  // A camera that pitches over: from level flight through straight down.
  Quaternion before = level_along ({1, 0, 0}, identity);
  for (double pitch = 0; pitch > -100 * deg; pitch -= 0.05 * deg) {
    const Quaternion camera = turn ({0, 1, 0}, pitch);
    const Quaternion level = level_along (rotate (camera, {1, 0, 0}), camera);
    // Beyond the vertical level means turned about; on the way it is half a turn in 10 degrees.
    EXPECT_LT (angle_between (before, level), 5 * deg) << pitch / deg;
    EXPECT_TRUE (std::isfinite (level.w));
    before = level;
  }
}

// Smoothing and zoom over time.

namespace
{

constexpr double frame_ns = 1e9 / 25;

double yaw_of (Quaternion q)
{
  const Vector axis = rotate (q, {1, 0, 0});
  return std::atan2 (axis.y, axis.x);
}

} // namespace

TEST (LevelView, FollowsAStepWithItsTimeConstant)
{
  View view;
  ViewSettings settings;
  settings.smoothing_time_ns = 300e6;
  view.next_orientation (settings, identity, 0, wide, wide);
  const Quaternion turned = turn ({0, 0, 1}, 5 * deg);
  for (int i = 1; i <= 30; i++) {
    const Quaternion shown = view.next_orientation (settings, turned, i * frame_ns, wide, wide);
    EXPECT_NEAR (yaw_of (shown), 5 * deg * (1 - std::exp (-i * frame_ns / 300e6)), 0.01 * deg);
  }
}

TEST (LevelView, DoesNotDependOnTheFrameRate)
{
  ViewSettings settings;
  const Quaternion turned = turn ({0, 0, 1}, 5 * deg);
  const auto after_a_second = [&] (int frames) {
    View view;
    view.next_orientation (settings, identity, 0, wide, wide);
    Quaternion shown = identity;
    for (int i = 1; i <= frames; i++)
      shown = view.next_orientation (settings, turned, i * 0.4e9 / frames, wide, wide);
    return yaw_of (shown);
  };
  EXPECT_NEAR (after_a_second (10), after_a_second (48), 0.01 * deg);
}

TEST (LevelView, WithoutSmoothingLooksWhereTheCameraLooks)
{
  View view;
  ViewSettings settings;
  settings.smoothing_time_ns = 0;
  view.next_orientation (settings, identity, 0, wide, wide);
  const Quaternion shown = view.next_orientation (settings, some_camera, frame_ns, wide, wide);
  EXPECT_NEAR (dot (rotate (shown, {1, 0, 0}), rotate (some_camera, {1, 0, 0})), 1, 1e-12);
  EXPECT_NEAR (roll_rad (shown), 0, 1e-12);
}

TEST (LevelView, StartsAnewAfterAPauseOrAStepBack)
{
  for (const double later : {View::longest_step_ns * 1.1, -1.0}) {
    View view;
    const ViewSettings settings;
    view.next_orientation (settings, identity, 5e9, wide, wide);
    const Quaternion shown = view.next_orientation (settings, some_camera, 5e9 + later, wide, wide);
    EXPECT_NEAR (dot (rotate (shown, {1, 0, 0}), rotate (some_camera, {1, 0, 0})), 1, 1e-12);
  }
}

TEST (LevelView, IsDraggedAlongByAFastPanAndSettlesWithoutAJump)
{
  View view;
  const ViewSettings settings;
  Quaternion before = view.next_orientation (settings, identity, 0, wide, wide);
  double yaw = 0;
  for (int i = 1; i < 150; i++) {
    const double rate = i < 75 ? 200 * deg : 0;
    yaw += rate * frame_ns / 1e9;
    const Quaternion camera = turn ({0, 0, 1}, yaw);
    const Quaternion shown = view.next_orientation (settings, camera, i * frame_ns, wide, wide);
    EXPECT_GE (scale_of (shown, camera, picture_with (settings.max_zoom)) * settings.max_zoom,
               1 - 1e-6);
    EXPECT_LT (angle_between (before, shown), 10 * deg) << i;
    before = shown;
  }
  EXPECT_LT (angle_between (before, turn ({0, 0, 1}, yaw)), 0.01 * deg);
}

TEST (LevelView, BearsACameraThatFlipsOver)
{
  View view;
  const ViewSettings settings;
  for (int i = 0; i < 200; i++) {
    const Quaternion camera = turn ({0, 1, 0}, i * 179.0 * deg);
    const Quaternion shown = view.next_orientation (settings, camera, i * frame_ns, wide, wide);
    EXPECT_NEAR (norm (shown), 1, 1e-9);
    EXPECT_GE (scale_of (shown, camera, picture_with (settings.max_zoom)) * settings.max_zoom,
               1 - 1e-6);
  }
}

TEST (Zoom, GoesInAtOnceAndOutWithItsTimeConstant)
{
  View view;
  ViewSettings settings;
  settings.zoom_release_time_ns = 400e6;
  const auto next = [&] (int frame, double fitting) {
    view.next_orientation (settings, identity, frame * frame_ns, wide, wide);
    return view.next_scale (settings, fitting);
  };
  EXPECT_EQ (next (0, 0.9), 0.9);
  EXPECT_EQ (next (1, 0.5), 0.5);
  for (int i = 1; i <= 40; i++)
    EXPECT_NEAR (next (1 + i, 1), 1 - 0.5 * std::exp (-i * frame_ns / 400e6), 1e-9);
}

TEST (Zoom, WithoutReleaseTimeIsWhatTheAngleNeeds)
{
  View view;
  ViewSettings settings;
  settings.zoom_release_time_ns = 0;
  for (const double fitting : {0.5, 0.9, 0.7, 1.0}) {
    view.next_orientation (settings, identity, 0, wide, wide);
    EXPECT_EQ (view.next_scale (settings, fitting), fitting);
  }
}

// The grid.

namespace
{

/** What a GPU interpolates within the grid's triangles, as input position 0 to 1. */
std::array<double, 2> interpolated (const Mesh &mesh, double across, double down)
{
  const double x = across * mesh.columns;
  const double y = down * mesh.rows;
  const int column = std::min (static_cast<int> (x), mesh.columns - 1);
  const int row = std::min (static_cast<int> (y), mesh.rows - 1);
  const double fx = x - column;
  const double fy = y - row;
  const auto corner = [&] (int right, int below) {
    return mesh.vertices[static_cast<size_t> ((row + below) * (mesh.columns + 1) + column + right)];
  };
  // Each cell is cut from its top right to its bottom left corner.
  const bool upper = fx + fy <= 1;
  const Vertex base = upper ? corner (0, 0) : corner (1, 1);
  const Vertex along = upper ? corner (1, 0) : corner (0, 1);
  const Vertex below = upper ? corner (0, 1) : corner (1, 0);
  const double a = upper ? fx : 1 - fx;
  const double b = upper ? fy : 1 - fy;
  const auto mix = [&] (float Vertex::*member) {
    return (1 - a - b) * static_cast<double> (base.*member) +
           a * static_cast<double> (along.*member) + b * static_cast<double> (below.*member);
  };
  return {mix (&Vertex::u) / mix (&Vertex::w), mix (&Vertex::v) / mix (&Vertex::w)};
}

double largest_error_pixels (const Warp &warp, const Window &output, const Mesh &mesh)
{
  double largest = 0;
  for (double down = 0; down <= 1; down += 0.0071)
    for (double across = 0; across <= 1; across += 0.0093) {
      const Vector found = warp.to_input (output.ray (across, down));
      const auto position = interpolated (mesh, across, down);
      const double u = (found.y / found.x - wide.left) / (wide.right - wide.left);
      const double v = (found.z / found.x - wide.top) / (wide.bottom - wide.top);
      largest = std::max (largest, std::hypot (1280 * (position[0] - u), 720 * (position[1] - v)));
    }
  return largest;
}

} // namespace

TEST (Grid, OfOneTurnIsExactWithASingleCell)
{
  const Warp warp (wide, {matrix (turn (normalized (Vector{1, 0.5, -0.7}), 0.4))});
  const Window output = wide.scaled (0.5);
  Mesh mesh;
  fill_mesh (warp, wide, output, &mesh);
  EXPECT_EQ (mesh.vertices.size (), 4u);
  EXPECT_LT (largest_error_pixels (warp, output, mesh), 2e-3); // of the 32-bit floats
}

TEST (Grid, OfFastRowsIsGoodToASeventhOfAPixel)
{
  for (const Vector axis :
       {Vector{1, 0, 0}, Vector{0, 1, 0}, Vector{0, 0, 1}, normalized (Vector{1, 1, 1})}) {
    // 300 degrees a second over 20 ms of readout.
    std::vector<Matrix> turns;
    for (int i = 0; i < 64; i++)
      turns.push_back (matrix (turn ({1, 0, 0}, 0.2) * turn (axis, -6 * deg * (i / 63.0 - 0.5))));
    const Warp warp (wide, turns);
    const Window output = wide.scaled (warp.fitting_scale (wide));
    Mesh mesh;
    fill_mesh (warp, wide, output, &mesh);
    EXPECT_LT (largest_error_pixels (warp, output, mesh), 1.0 / 7);
    // The measure is not blind: one turn for all rows is far off.
    Mesh global;
    fill_mesh (Warp (wide, {turns[32]}), wide, output, &global);
    EXPECT_GT (largest_error_pixels (warp, output, global), 5);
  }
}
