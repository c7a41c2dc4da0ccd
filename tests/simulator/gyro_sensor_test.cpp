// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "geodesy.hpp"
#include "gyro_sensor.hpp"
#include "random.hpp"

#include <gtest/gtest.h>

using namespace sim;

namespace
{

GyroModel perfect ()
{
  GyroModel model;
  model.scale_rad_s = 0.001;
  model.bias_rad_s = {};
  model.noise_rad_s = 0;
  return model;
}

TEST (GyroSensor, ScaleAndRounding)
{
  EXPECT_EQ (read_gyro (perfect (), {0.1, -0.2, 0}, 0), (GyroReading{100, -200, 0}));
  EXPECT_EQ (read_gyro (perfect (), {0.0104, 0.0106, -0.0106}, 0), (GyroReading{10, 11, -11}));
}

TEST (GyroSensor, HeldAtTheEndsOf16Bits)
{
  EXPECT_EQ (read_gyro (perfect (), {40, -40, 32.767}, 0), (GyroReading{32767, -32768, 32767}));
  EXPECT_EQ (read_gyro (perfect (), {1e300, -1e300, -32.768}, 0),
             (GyroReading{32767, -32768, -32768}));
}

struct MountCase {
  const char *matrix;
  GyroReading reading; // of the camera rate 1, 2, 3
};

TEST (GyroSensor, MountMatrixLeadsBackToCameraAxes)
{
  for (const auto &[matrix, expected] : {
           MountCase{"1, 0, 0; 0, 1, 0; 0, 0, 1", {1000, 2000, 3000}},
           MountCase{"1, 0, 0; 0, -1, 0; 0, 0, -1", {1000, -2000, -3000}},
           MountCase{"0, 1, 0; 0, 0, 1; 1, 0, 0", {3000, 1000, 2000}},
           MountCase{"0, -1, 0; 1, 0, 0; 0, 0, 1", {2000, -1000, 3000}},
       }) {
    auto model = perfect ();
    const auto parsed = parse_mount_matrix (matrix);
    ASSERT_TRUE (parsed) << matrix;
    model.mount_matrix = *parsed;
    const auto reading = read_gyro (model, {1, 2, 3}, 0);
    EXPECT_EQ (reading, expected) << matrix;
    EXPECT_EQ (format_mount_matrix (model), matrix);
    // As readers do: camera = matrix * sensor.
    for (size_t row = 0; row < 3; row++) {
      double rate = 0;
      for (size_t column = 0; column < 3; column++)
        rate += (*parsed)[row][column] * reading[column];
      EXPECT_EQ (rate, 1000.0 * static_cast<double> (row + 1)) << matrix;
    }
  }
}

TEST (GyroSensor, BadMountMatrices)
{
  for (const char *matrix :
       {"", "1", "1,0,0;0,1,0;0,0", "1,0,0;0,1,0;0,0,1;", "1,0,0,0,1,0,0,0,1", "2,0,0;0,1,0;0,0,1",
        "1,0,0;0,1,0;0,0,-1", "1,0,0;1,0,0;0,0,1", "0,0,0;0,0,0;0,0,0", "1,1,0;0,1,0;0,0,1",
        "a,0,0;0,1,0;0,0,1", "99999999999,0,0;0,1,0;0,0,1"})
    EXPECT_FALSE (parse_mount_matrix (matrix)) << matrix;
  EXPECT_TRUE (parse_mount_matrix ("1,0,0;0,1,0;0,0,1"));
}

TEST (GyroSensor, BiasAndNoiseAreAsStated)
{
  auto model = perfect ();
  model.scale_rad_s = 1e-5;
  model.bias_rad_s = {0.01, -0.02, 0.03};
  model.noise_rad_s = 0.002;
  constexpr int n = 20000;
  Vec3 sum = {};
  Vec3 squares = {};
  double neighbours = 0;
  double former = 0;
  for (uint64_t i = 0; i < n; i++) {
    const auto reading = read_gyro (model, {}, i);
    const Vec3 v = Vec3{double (reading[0]), double (reading[1]), double (reading[2])} * 1e-5 -
                   model.bias_rad_s;
    sum = sum + v;
    squares = squares + Vec3{v.x * v.x, v.y * v.y, v.z * v.z};
    neighbours += v.x * former;
    former = v.x;
  }
  // Five standard errors: 5 * 0.002 / sqrt (n) for the mean, 5 / sqrt (2 n) for the deviation.
  for (const double mean : {sum.x / n, sum.y / n, sum.z / n})
    EXPECT_LT (std::abs (mean), 5 * 0.002 / std::sqrt (n));
  for (const double square : {squares.x / n, squares.y / n, squares.z / n})
    EXPECT_NEAR (std::sqrt (square) / 0.002, 1, 5 / std::sqrt (2.0 * n));
  EXPECT_LT (std::abs (neighbours / n) / (0.002 * 0.002), 5 / std::sqrt (n)) << "white";
}

TEST (GyroSensor, PureFunctionOfSeedAndIndex)
{
  GyroModel model;
  const auto first = read_gyro (model, {}, 1000);
  read_gyro (model, {}, 5);
  EXPECT_EQ (read_gyro (model, {}, 1000), first);
  GyroModel other = model;
  other.seed = 2;
  int different = 0;
  for (uint64_t i = 0; i < 100; i++)
    different += read_gyro (model, {}, i) != read_gyro (other, {}, i);
  EXPECT_GT (different, 90);
}

TEST (Random, UniformFillsItsRange)
{
  int buckets[10] = {};
  for (uint64_t i = 0; i < 10000; i++) {
    const double u = random_uniform (1, 2, i);
    ASSERT_GT (u, 0);
    ASSERT_LT (u, 1);
    buckets[static_cast<int> (u * 10)]++;
  }
  for (const int count : buckets)
    EXPECT_NEAR (count, 1000, 150); // five standard deviations
}

/** WGS 84 forward, written out on its own. */
Vec3 ecef_of (const GeoPosition &p)
{
  const double a = 6378137;
  const double b = 6356752.314245179;
  const double lat = p.latitude_deg * degree;
  const double lon = p.longitude_deg * degree;
  const double n = a * a / std::hypot (a * std::cos (lat), b * std::sin (lat));
  return {(n + p.altitude_m) * std::cos (lat) * std::cos (lon),
          (n + p.altitude_m) * std::cos (lat) * std::sin (lon),
          (b * b / (a * a) * n + p.altitude_m) * std::sin (lat)};
}

TEST (Geodesy, OffsetsFromHome)
{
  for (const GeoPosition home : {GeoPosition{45, 6, 500}, GeoPosition{-33.9, 151.2, 20},
                                 GeoPosition{0, 179.9999, 0}, GeoPosition{89.9, 10, 0}}) {
    for (const Vec3 ned : {Vec3{0, 0, 0}, Vec3{100, 0, 0}, Vec3{0, 100, 0}, Vec3{0, 0, -120},
                           Vec3{-3000, 5000, -100}}) {
      const auto p = geo_position (home, ned);
      const Vec3 offset = ecef_of (p) - ecef_of (home);
      const double lat = home.latitude_deg * degree;
      const double lon = home.longitude_deg * degree;
      const Vec3 north = {-std::sin (lat) * std::cos (lon), -std::sin (lat) * std::sin (lon),
                          std::cos (lat)};
      const Vec3 east = {-std::sin (lon), std::cos (lon), 0};
      EXPECT_NEAR (dot (offset, north), ned.x, 1e-6);
      EXPECT_NEAR (dot (offset, east), ned.y, 1e-6);
      EXPECT_NEAR (dot (offset, cross (north, east)), ned.z, 1e-6);
      EXPECT_LE (std::abs (p.longitude_deg), 180);
    }
  }
}

TEST (Geodesy, OneMinuteOfLatitudeIsAboutANauticalMile)
{
  const auto p = geo_position ({45, 6, 0}, {1852, 0, 0});
  EXPECT_NEAR (p.latitude_deg, 45 + 1.0 / 60, 1e-4);
  EXPECT_NEAR (p.longitude_deg, 6, 1e-9);
}

TEST (Geodesy, HomeAsText)
{
  const auto home = parse_geo_position ("45.5,-6.25,500");
  ASSERT_TRUE (home);
  EXPECT_EQ (home->latitude_deg, 45.5);
  EXPECT_EQ (home->longitude_deg, -6.25);
  EXPECT_EQ (home->altitude_m, 500);
  for (const char *bad : {"", "45", "45,6", "45,6,7,8", "a,6,7", "45,6,", "91,0,0", "0,181,0",
                          "0,0,20000", "nan,0,0", "0,0,nan", "45;6;7", "45,6,7 "})
    EXPECT_FALSE (parse_geo_position (bad)) << bad;
}

} // namespace
