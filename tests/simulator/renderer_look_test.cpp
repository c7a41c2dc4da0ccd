// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What ground and sky look like, and pictures of every shape.
#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

#include <gtest/gtest.h>

#include "camera_views.hpp"

namespace
{

const sim::PictureGeometry full_picture =
    sim::picture_geometry (sim::CameraSensor{}, {0, 0, 1280, 720}, 1280, 720);

/** A texture between its texels, plainly: texel (i, j) is at ((i + 0.5), (j + 0.5)) * texel_m. */
double texture_at (const sim::TileTexture &texture, double north_m, double east_m)
{
  const auto &level = texture.levels ()[0];
  const int size = 1 << level.size_log2;
  const auto texel = [&] (int row, int column) {
    const int index = ((row % size + size) % size) * size + (column % size + size) % size;
    return static_cast<double> (level.quads[static_cast<size_t> (index)] & 255);
  };
  const double u = east_m / texture.texel_m () - 0.5;
  const double v = north_m / texture.texel_m () - 0.5;
  const int column = static_cast<int> (std::floor (u));
  const int row = static_cast<int> (std::floor (v));
  const double top = std::lerp (texel (row, column), texel (row, column + 1), u - column);
  const double bottom =
      std::lerp (texel (row + 1, column), texel (row + 1, column + 1), u - column);
  return std::lerp (top, bottom, v - row);
}

TEST (Ground, IsWhatTheTexturesSayAtEachPlace)
{
  // So low and so steep that no pixel is as large as a texel: no smaller versions of a texture.
  const auto world = sim::make_bare_world (3);
  sim::Renderer renderer (world);
  for (const auto &place :
       {std::array<double, 3>{0, 0, -6}, std::array<double, 3>{-731.3, 402.7, -5},
        std::array<double, 3>{12345.6, -9876.5, -4}}) {
    const Attitude attitude = {7, -83, 140};
    const Picture picture =
        take (renderer, plain_shot (full_picture), standing (place, quaternion_of (attitude)));
    const Matrix3 camera = matrix_of (attitude);
    double error = 0;
    int count = 0;
    for (int y = 3; y < 720; y += 31)
      for (int x = 5; x < 1280; x += 37) {
        const double right = (x + 0.5 - full_picture.center_x) / full_picture.focal_x;
        const double down = (y + 0.5 - full_picture.center_y) / full_picture.focal_y;
        double ray[3];
        for (size_t i = 0; i < 3; i++)
          ray[i] = camera[i][0] + right * camera[i][1] + down * camera[i][2];
        const double reach = -place[2] / ray[2];
        const double north = place[0] + ray[0] * reach;
        const double east = place[1] + ray[1] * reach;
        const auto index = static_cast<size_t> (texture_at (*world->land, north, east));
        const double cover = texture_at (*world->cover, north, east) - 128;
        const double haze = reach / (reach + world->haze_distance_m);
        const auto channel = [&] (uint8_t land, uint8_t far) {
          return std::clamp (std::lerp (land + cover, static_cast<double> (far), haze), 0.0, 255.0);
        };
        const sim::Color land = world->palette[index];
        const sim::Color seen = picture.at (x, y);
        error += std::abs (seen.red - channel (land.red, world->haze.red)) +
                 std::abs (seen.green - channel (land.green, world->haze.green)) +
                 std::abs (seen.blue - channel (land.blue, world->haze.blue));
        count += 3;
      }
    EXPECT_LT (error / count, 1.0) << "at " << place[0];
  }
}

/** How much neighbours in a row differ, on average. */
double roughness (const Picture &picture, int top, int bottom)
{
  double sum = 0;
  int count = 0;
  for (int y = top; y < bottom; y++)
    for (int x = 1; x < static_cast<int> (picture.width); x++) {
      sum += std::abs (picture.grey (x, y) - picture.grey (x - 1, y));
      count++;
    }
  return sum / count;
}

double difference (const Picture &a, const Picture &b, int top, int bottom)
{
  double sum = 0;
  for (int y = top; y < bottom; y++)
    for (int x = 0; x < static_cast<int> (a.width); x++)
      sum += std::abs (a.grey (x, y) - b.grey (x, y));
  return sum / (static_cast<double> (a.width) * (bottom - top));
}

TEST (Ground, DoesNotShimmerFarAway)
{
  sim::Renderer renderer (sim::make_bare_world (1));
  const auto view = [&] (double north) {
    return take (renderer, plain_shot (full_picture),
                 standing ({north, 0, -30}, quaternion_of ({0, -5, 20})));
  };
  const Picture first = view (0);
  const Picture next = view (0.4);
  // The horizon is in row 286; 300 to 330 is half a kilometre and more away.
  EXPECT_GT (roughness (first, 600, 720), 3) << "near by there is something to see";
  EXPECT_LT (roughness (first, 300, 330), 0.8);
  EXPECT_LT (difference (first, next, 300, 330), 0.8) << "and it stays what it is";
  EXPECT_GT (difference (first, next, 600, 720), 3);
}

TEST (Ground, LooksAlikeFromAllHeights)
{
  // The mean of smaller versions of a texture is the texture's: no step in brightness.
  sim::Renderer renderer (sim::make_bare_world (1));
  std::vector<double> means;
  for (const double height : {2.0, 10.0, 40.0, 120.0}) {
    const Picture picture = take (renderer, plain_shot (full_picture),
                                  standing ({0, 0, -height}, quaternion_of ({0, -90, 0})));
    double sum = 0;
    for (const uint8_t value : picture.rgb)
      sum += value;
    means.push_back (sum / static_cast<double> (picture.rgb.size ()));
  }
  const auto [least, most] = std::minmax_element (means.begin (), means.end ());
  EXPECT_LT (*most - *least, 25);
}

TEST (Sky, DarkensUpwardsAndHasItsSun)
{
  const auto world = sim::make_bare_world (1);
  sim::Renderer renderer (world);
  const Picture zenith = take (renderer, plain_shot (full_picture),
                               standing ({0, 0, -30}, quaternion_of ({0, 89, 0})));
  const sim::Color top = zenith.at (640, 360);
  EXPECT_NEAR (top.red, world->sky_at_zenith.red, 3);
  EXPECT_NEAR (top.blue, world->sky_at_zenith.blue, 3);
  // North-east, 45 degrees up.
  const Picture sun = take (renderer, plain_shot (full_picture),
                            standing ({0, 0, -30}, quaternion_of ({0, 45, 45})));
  EXPECT_EQ (sun.at (640, 360), world->sun);
  const auto middle = find_color (sun, world->sun, 600, 320, 680, 400);
  ASSERT_TRUE (middle);
  EXPECT_NEAR (middle->x, 640, 0.5);
  EXPECT_NEAR (middle->y, 360, 0.5);
}

TEST (Pictures, OfEveryWidthFillTheirRowsAndNothingElse)
{
  sim::Renderer renderer (sim::make_world (1));
  for (const uint32_t width : {1u, 2u, 3u, 4u, 5u, 15u, 16u, 17u, 31u, 33u, 67u}) {
    constexpr uint32_t height = 7;
    const auto geometry =
        sim::picture_geometry (sim::CameraSensor{}, {0, 0, 1280, 720}, width, height);
    const size_t stride = 3 * width + 5;
    std::vector<uint8_t> pixels (stride * height, 0xa5);
    std::vector<uint8_t> wide (stride * height, 0x5a);
    const auto motion = standing ({0, 0, -20}, quaternion_of ({10, -10, 0}));
    renderer.render (plain_shot (geometry), motion, pixels.data (), stride);
    renderer.render (plain_shot (geometry), motion, wide.data (), stride);
    for (size_t y = 0; y < height; y++)
      for (size_t i = 0; i < stride; i++) {
        if (i < 3 * width)
          EXPECT_EQ (pixels[y * stride + i], wide[y * stride + i]) << width << ": " << i;
        else
          EXPECT_EQ (pixels[y * stride + i], 0xa5) << width << ": " << i;
      }
  }
}

TEST (Pictures, SmallPicturesAreLargeOnesSeenFromAfar)
{
  // The same view at a quarter of the size is nearly the mean of four by four pixels.
  sim::Renderer renderer (sim::make_world (1));
  const auto motion = standing ({0, 0, -20}, quaternion_of ({5, -15, 30}));
  const Picture large = take (renderer, plain_shot (full_picture), motion);
  const auto geometry = sim::picture_geometry (sim::CameraSensor{}, {0, 0, 1280, 720}, 320, 180);
  const Picture small = take (renderer, plain_shot (geometry), motion);
  double sum = 0;
  for (int y = 0; y < 180; y++)
    for (int x = 0; x < 320; x++) {
      double mean = 0;
      for (int dy = 0; dy < 4; dy++)
        for (int dx = 0; dx < 4; dx++)
          mean += large.grey (4 * x + dx, 4 * y + dy) / 16;
      sum += std::abs (mean - small.grey (x, y));
    }
  EXPECT_LT (sum / (320 * 180), 4);
}

TEST (Pictures, StyleIsACurveOverTheFinishedPicture)
{
  sim::Renderer renderer (sim::make_world (1));
  const auto motion = standing ({0, 0, -20}, quaternion_of ({5, -15, 30}));
  sim::Shot shot = plain_shot (full_picture);
  const Picture plain = take (renderer, shot, motion);
  sim::ToneCurve curve;
  std::iota (curve.rbegin (), curve.rend (), uint8_t{0});
  shot.curve = &curve;
  const Picture negative = take (renderer, shot, motion);
  for (size_t i = 0; i < plain.rgb.size (); i += 101)
    EXPECT_EQ (negative.rgb[i], 255 - plain.rgb[i]);
}

TEST (Pictures, FromPlacesWhereNoCameraShouldBe)
{
  // On and below the ground, inside a pole, far away, in every direction: a picture, no crash.
  sim::Renderer renderer (sim::make_world (1));
  const auto geometry = sim::picture_geometry (sim::CameraSensor{}, {0, 0, 1280, 720}, 160, 90);
  for (const auto &place :
       {std::array<double, 3>{0, 0, 0}, std::array<double, 3>{0, 0, 25},
        std::array<double, 3>{15, 10, -4}, std::array<double, 3>{20, 20, -0.001},
        std::array<double, 3>{1e7, -1e7, -9000}})
    for (double roll = -180; roll <= 180; roll += 45)
      for (double pitch = -90; pitch <= 90; pitch += 30) {
        sim::Shot shot = plain_shot (geometry);
        shot.sub_exposures = pitch == 0 ? 3 : 1;
        const Picture picture =
            take (renderer, shot, standing (place, quaternion_of ({roll, pitch, 30})));
        EXPECT_NE (std::accumulate (picture.rgb.begin (), picture.rgb.end (), 0u), 0u);
      }
}

} // namespace
