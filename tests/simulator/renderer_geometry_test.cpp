// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// That everything is where it must be in a picture, to a fraction of a pixel.
#include <algorithm>
#include <cmath>
#include <numbers>
#include <ostream>
#include <vector>

#include <gtest/gtest.h>

#include "camera_views.hpp"

namespace
{

constexpr double degree = std::numbers::pi / 180;

struct Case {
  const char *name;
  bool down;
  std::array<double, 3> camera_m;
  Attitude attitude; // of the drone
  sim::CameraRect rect;
  uint32_t width, height;
  int least_found;
};

void PrintTo (const Case &c, std::ostream *out)
{
  *out << c.name;
}

const Case cases[] = {
    {"level", false, {-70, 5, -12}, {0, 0, 0}, {0, 0, 1280, 720}, 1280, 720, 6},
    {"nose down", false, {3, 7, -30}, {0, -25, 40}, {0, 0, 1280, 720}, 1280, 720, 14},
    {"rolled", false, {-33, 21, -25}, {30, -15, 200}, {0, 0, 1280, 720}, 1280, 720, 10},
    {"steep and upside", false, {-33, 21, -25}, {-160, -20, -75}, {0, 0, 1280, 720}, 1280, 720, 5},
    {"looking back, banked",
     false,
     {90, -41, -40},
     {-50, -30, 170},
     {0, 0, 1280, 720},
     1280,
     720,
     10},
    {"part of the sensor", false, {3, 7, -30}, {5, -25, 40}, {400, 300, 640, 360}, 640, 360, 3},
    {"part, enlarged", false, {3, 7, -30}, {5, -25, 40}, {300, 200, 640, 360}, 1280, 720, 9},
    {"all, smaller", false, {3, 7, -15}, {5, -25, 40}, {0, 0, 1280, 720}, 640, 360, 2},
    {"squeezed", false, {3, 7, -15}, {5, -25, 40}, {0, 0, 1280, 720}, 640, 720, 5},
    {"down", true, {12, -7, -40}, {0, 0, 0}, {0, 0, 1280, 720}, 1280, 720, 5},
    {"down, banked", true, {-21, 31, -35}, {20, 10, 110}, {0, 0, 1280, 720}, 1280, 720, 5},
    {"down, from high", true, {-21, 31, -90}, {-15, -12, -60}, {0, 0, 1280, 720}, 1280, 720, 25},
    {"down, part", true, {-21, 31, -60}, {-15, -12, -60}, {160, 90, 960, 540}, 1280, 720, 7},
};

/** A landmark as it should appear. */
struct Expected {
  const sim::Landmark *landmark;
  Point middle;
  double left, top, right, bottom;
};

/** All landmarks that lie in the picture as a whole and are large enough. */
std::vector<Expected> expected_landmarks (const sim::World &world, const Case &c,
                                          const sim::PictureGeometry &geometry,
                                          std::vector<Expected> *all)
{
  Matrix3 camera = matrix_of (c.attitude);
  if (c.down) {
    // Forward looks along the drone's down, down along its back.
    const Matrix3 drone = camera;
    for (size_t row = 0; row < 3; row++)
      camera[row] = {drone[row][2], drone[row][1], -drone[row][0]};
  }
  std::vector<Expected> whole;
  for (const sim::Landmark &landmark : world.landmarks) {
    std::vector<Point> polygon;
    for (const auto &place : outline (landmark, c.camera_m))
      if (const auto point = project (camera, c.camera_m, geometry, place))
        polygon.push_back (*point);
    if (polygon.size () < 4 || polygon.size () != outline (landmark, c.camera_m).size ())
      continue;
    const auto [left, right] =
        std::minmax_element (polygon.begin (), polygon.end (),
                             [] (const Point &a, const Point &b) { return a.x < b.x; });
    const auto [top, bottom] =
        std::minmax_element (polygon.begin (), polygon.end (),
                             [] (const Point &a, const Point &b) { return a.y < b.y; });
    const Expected expected = {&landmark, centroid (polygon), left->x, top->y, right->x, bottom->y};
    all->push_back (expected);
    // Of what is thinner no colour is left that could be found in grass.
    const double length = std::hypot (right->x - left->x, bottom->y - top->y);
    if (area (polygon) > 2.5 * length && left->x > 6 && top->y > 6 &&
        right->x < geometry.width - 6 && bottom->y < geometry.height - 6)
      whole.push_back (expected);
  }
  return whole;
}

bool is_alone (const Expected &one, const std::vector<Expected> &all)
{
  return std::none_of (all.begin (), all.end (), [&] (const Expected &other) {
    return other.landmark != one.landmark && other.left < one.right + 8 &&
           other.right > one.left - 8 && other.top < one.bottom + 8 && other.bottom > one.top - 8;
  });
}

class Geometry : public testing::TestWithParam<Case>
{
};

TEST_P (Geometry, LandmarksAreWithinHalfAPixel)
{
  static const auto world = sim::make_world (1);
  sim::Renderer renderer (world);
  const Case &c = GetParam ();
  const auto geometry = sim::picture_geometry (sim::CameraSensor{}, c.rect, c.width, c.height);
  auto motion = standing (c.camera_m, quaternion_of (c.attitude));
  if (c.down)
    motion = sim::looking_down (motion);
  const Picture picture = take (renderer, plain_shot (geometry), motion);

  std::vector<Expected> all;
  const auto whole = expected_landmarks (*world, c, geometry, &all);
  int found = 0;
  double worst = 0;
  for (const Expected &expected : whole) {
    if (!is_alone (expected, all))
      continue;
    const auto point =
        find_color (picture, expected.landmark->color, static_cast<int> (expected.left) - 5,
                    static_cast<int> (expected.top) - 5, static_cast<int> (expected.right) + 5,
                    static_cast<int> (expected.bottom) + 5);
    ASSERT_TRUE (point) << "landmark at " << expected.landmark->north_m << ", "
                        << expected.landmark->east_m;
    const double error = std::hypot (point->x - expected.middle.x, point->y - expected.middle.y);
    EXPECT_LT (error, 0.5) << "landmark at " << expected.landmark->north_m << ", "
                           << expected.landmark->east_m << " expected at " << expected.middle.x
                           << ", " << expected.middle.y;
    worst = std::max (worst, error);
    found++;
  }
  EXPECT_GE (found, c.least_found);
  RecordProperty ("landmarks", found);
  RecordProperty ("worst_error_pixels", std::to_string (worst));
}

INSTANTIATE_TEST_SUITE_P (Renderer, Geometry, testing::ValuesIn (cases),
                          [] (const auto &row) { return std::to_string (row.index); });

/** The rows at which sky becomes ground, one each column: where the brightness is half way. */
std::vector<Point> horizon (const Picture &picture)
{
  std::vector<Point> points;
  for (int x = 0; x < static_cast<int> (picture.width); x++)
    for (int y = 4; y + 4 < static_cast<int> (picture.height); y++) {
      const double above = picture.grey (x, y - 3);
      const double below = picture.grey (x, y + 3);
      // The sun's edge is no horizon: it is brighter on both sides.
      if (above < 190 || below > 150)
        continue;
      // The share of the ground in the seven pixels of the step.
      double share = 0;
      for (int dy = -3; dy <= 3; dy++)
        share += (picture.grey (x, y + dy) - above) / (below - above);
      points.push_back ({x + 0.5, y + 4 - share});
      break;
    }
  return points;
}

struct Line {
  double slope, at_zero;
};

Line fit (const std::vector<Point> &points)
{
  double n = 0, sx = 0, sy = 0, sxx = 0, sxy = 0;
  for (const Point &p : points) {
    n++;
    sx += p.x;
    sy += p.y;
    sxx += p.x * p.x;
    sxy += p.x * p.y;
  }
  const double slope = (n * sxy - sx * sy) / (n * sxx - sx * sx);
  return {slope, (sy - slope * sx) / n};
}

TEST (Horizon, LiesAtTheTrueRollAndPitch)
{
  sim::Renderer renderer (sim::make_bare_world (1));
  const sim::CameraSensor sensor;
  const auto geometry = sim::picture_geometry (sensor, {0, 0, 1280, 720}, 1280, 720);
  for (const double roll : {-25.0, -10.0, -1.0, 0.0, 0.3, 5.0, 20.0})
    for (const double pitch : {-8.0, 0.0, 6.0})
      for (const double yaw : {0.0, 77.0}) {
        const Picture picture = take (renderer, plain_shot (geometry),
                                      standing ({10, 20, -50}, quaternion_of ({roll, pitch, yaw})));
        const auto points = horizon (picture);
        ASSERT_GT (points.size (), 900u) << roll << " " << pitch;
        const Line line = fit (points);
        EXPECT_NEAR (std::atan (line.slope) / degree, -roll, 0.1) << pitch << " " << yaw;
        // The axis is as far from the line as the pitch says.
        const double off_axis = (line.at_zero + line.slope * 640 - 360) * std::cos (roll * degree);
        EXPECT_NEAR (off_axis, geometry.focal_y * std::tan (pitch * degree), 0.5)
            << roll << " " << pitch;
      }
}

TEST (RollingShutter, EachRowIsSeenAtItsOwnTime)
{
  // A fast yaw and a climb: where a landmark appears depends on when its row is exposed.
  const auto world = sim::make_world (1);
  sim::Renderer renderer (world);
  const auto geometry = sim::picture_geometry (sim::CameraSensor{}, {0, 0, 1280, 720}, 1280, 720);
  sim::Shot shot = plain_shot (geometry);
  shot.readout_ns = 20'000'000;
  const auto seconds = [&] (int64_t ns) {
    return static_cast<double> (ns - shot.capture_ns) * 1e-9;
  };
  const auto attitude_at = [] (double t) { return Attitude{3, -20, 40 + 150 * t}; };
  const auto place_at = [] (double t) { return std::array<double, 3>{3 + 10 * t, 7, -25 - 5 * t}; };
  const Picture picture = take (renderer, shot, [&] (int64_t ns) {
    const double t = seconds (ns);
    return sim::CameraPose{place_at (t), quaternion_of (attitude_at (t))};
  });

  int found = 0;
  double largest_shift = 0;
  for (const sim::Landmark &landmark : world->landmarks) {
    if (landmark.shape != sim::LandmarkShape::square)
      continue;
    // The time of a row and the row of a place depend on each other.
    const auto see = [&] (const std::array<double, 3> &place) -> std::optional<Point> {
      double row = geometry.height / 2.0;
      std::optional<Point> point;
      for (int i = 0; i < 20; i++) {
        const double t = 0.001 + 0.020 * row / geometry.height;
        point = project (matrix_of (attitude_at (t)), place_at (t), geometry, place);
        if (!point)
          return point;
        row = point->y;
      }
      return point;
    };
    std::vector<Point> polygon;
    for (const auto &place : outline (landmark, place_at (0)))
      if (const auto point = see (place))
        polygon.push_back (*point);
    if (polygon.size () != 4 || area (polygon) < 60)
      continue;
    const Point middle = centroid (polygon);
    if (middle.x < 60 || middle.x > 1220 || middle.y < 40 || middle.y > 680)
      continue;
    const auto point = find_color (
        picture, landmark.color, static_cast<int> (middle.x) - 40, static_cast<int> (middle.y) - 16,
        static_cast<int> (middle.x) + 40, static_cast<int> (middle.y) + 16);
    ASSERT_TRUE (point);
    EXPECT_NEAR (point->x, middle.x, 0.5);
    EXPECT_NEAR (point->y, middle.y, 0.5);
    const auto still = project (matrix_of (attitude_at (0.001)), place_at (0.001), geometry,
                                {landmark.north_m, landmark.east_m, 0});
    largest_shift = std::max (largest_shift, std::abs (still->x - middle.x));
    found++;
  }
  EXPECT_GE (found, 2);
  EXPECT_GT (largest_shift, 5) << "a picture taken all at once would have passed as well";
}

TEST (RollingShutter, PartOfTheSensorIsReadInItsShareOfTheTime)
{
  // The lower half of a picture equals the picture of the lower half, begun half of the readout
  // later.
  sim::Renderer renderer (sim::make_world (1));
  const sim::CameraSensor sensor;
  const auto motion = [] (int64_t ns) {
    const double t = static_cast<double> (ns - 1'000'000'000) * 1e-9;
    return sim::CameraPose{{0, 0, -20}, quaternion_of ({0, -20, 120 * t})};
  };
  sim::Shot all = plain_shot (sim::picture_geometry (sensor, {0, 0, 1280, 720}, 1280, 720));
  all.readout_ns = 16'000'000;
  sim::Shot half = plain_shot (sim::picture_geometry (sensor, {0, 360, 1280, 360}, 1280, 360));
  half.capture_ns = all.capture_ns + 8'000'000;
  half.readout_ns = 8'000'000;
  const Picture whole = take (renderer, all, motion);
  const Picture part = take (renderer, half, motion);
  double difference = 0;
  for (size_t i = 0; i < part.rgb.size (); i++)
    difference += std::abs (part.rgb[i] - whole.rgb[3 * size_t{1280} * 360 + i]);
  EXPECT_LT (difference / static_cast<double> (part.rgb.size ()), 0.2);
}

TEST (MotionBlur, IsAsWideAsTheWayDuringTheExposure)
{
  // A pole seen from a camera that yaws: its columns are spread by focal length times angle.
  auto world = std::make_shared<sim::World> (*sim::make_bare_world (1));
  world->landmarks = {{sim::LandmarkShape::pole, 30, 0, 0.3, 20, 0, sim::Color{255, 0, 255}}};
  sim::Renderer renderer (world);
  sim::Renderer bare (sim::make_bare_world (1));
  const auto geometry = sim::picture_geometry (sim::CameraSensor{}, {0, 0, 1280, 720}, 1280, 720);
  constexpr double rate = 100; // degrees a second
  const auto motion = [] (int64_t ns) {
    const double t = static_cast<double> (ns - 1'000'000'000) * 1e-9;
    return sim::CameraPose{{0, 0, -10}, quaternion_of ({0, 0, rate * (t - 0.005)})};
  };
  const auto spread = [&] (int samples) {
    sim::Shot shot = plain_shot (geometry);
    shot.exposure_ns = 10'000'000;
    shot.sub_exposures = samples;
    const Picture picture = take (renderer, shot, motion);
    const Picture without = take (bare, shot, motion);
    double sum = 0, mean = 0, square = 0;
    for (int x = 580; x < 700; x++) {
      const sim::Color with_pole = picture.at (x, 360);
      const sim::Color ground = without.at (x, 360);
      const double share = (ground.green - with_pole.green) / static_cast<double> (ground.green);
      sum += share;
      mean += share * (x + 0.5);
      square += share * (x + 0.5) * (x + 0.5);
    }
    mean /= sum;
    EXPECT_NEAR (mean, 640, 0.5) << "the middle of the exposure is the middle of the blur";
    return square / sum - mean * mean;
  };
  const double sharp = spread (1);
  const double blurred = spread (32);
  // A box's variance is a twelfth of its width's square.
  const double width = geometry.focal_x * rate * 0.010 * degree;
  EXPECT_NEAR (std::sqrt ((blurred - sharp) * 12), width, 1.0);
}

} // namespace
