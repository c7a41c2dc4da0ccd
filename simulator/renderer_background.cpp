// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The loops over all pixels, in blocks and in steps that compilers turn into vector code: the only
// scalar step is the look-up of texels.
#include "renderer_background.hpp"

#include <algorithm>
#include <bit>
#include <cmath>

namespace sim
{

namespace
{

constexpr int block = 32;
/** Where the ground ends, in camera heights: a little below the horizon. */
constexpr float farthest_heights = 400;
constexpr double lowest_height_m = 0.05;

/** A value for each pixel of a block. */
using Floats = float[block];
using Ints = int[block];

Pixel to_pixel (const Color &color)
{
  return static_cast<Pixel> (color.red | color.green << 8 | color.blue << 16);
}

Pixel mix (Pixel a, Pixel b, float weight_of_b)
{
  Pixel mixed = 0;
  for (int shift = 0; shift < 24; shift += 8) {
    const auto from = static_cast<float> ((a >> shift) & 255);
    const auto to = static_cast<float> ((b >> shift) & 255);
    mixed |= static_cast<Pixel> (from + (to - from) * weight_of_b + 0.5f) << shift;
  }
  return mixed;
}

struct Block {
  alignas (64) Floats dz;
  alignas (64) Floats north; // from below the camera, m
  alignas (64) Floats east;
  alignas (64) Floats haze; // 0 to 1
};

/** log2, continuous, and right to 0.09: enough to choose a level of detail. */
float quick_log2 (float value)
{
  return static_cast<float> (std::bit_cast<int32_t> (value)) * 0x1p-23f - 127;
}

/** A level of a texture as seen from the camera's place. */
class LevelView
{
public:
  LevelView () = default;
  LevelView (const TileTexture &texture, size_t index, const Vector &position)
      : quads_ (texture.levels ()[index].quads.data ()),
        size_log2_ (texture.levels ()[index].size_log2)
  {
    const double texel_m = texture.texel_m () * static_cast<double> (size_t{1} << index);
    const double size = 1 << size_log2_;
    // So many whole tiles that no place is negative; few enough for a float's 24 bits.
    const double tiles = static_cast<double> (size_t{1} << 15 >> texture.levels ()[0].size_log2);
    const auto start = [&] (double metres) {
      const double texels = metres / texel_m - 0.5;
      return static_cast<float> (texels - size * std::floor (texels / size) + tiles * size);
    };
    scale_ = static_cast<float> (1 / texel_m);
    u0_ = start (position[1]);
    v0_ = start (position[0]);
  }

  /** The texture between its texels. */
  void sample (const Block &ground, Floats &values) const
  {
    const int mask = (1 << size_log2_) - 1;
    alignas (64) Floats across;
    alignas (64) Floats down;
    alignas (64) Ints index;
    for (int i = 0; i < block; i++) {
      const float u = ground.east[i] * scale_ + u0_;
      const float v = ground.north[i] * scale_ + v0_;
      const int whole_u = static_cast<int> (u);
      const int whole_v = static_cast<int> (v);
      across[i] = u - static_cast<float> (whole_u);
      down[i] = v - static_cast<float> (whole_v);
      index[i] = ((whole_v & mask) << size_log2_) + (whole_u & mask);
    }
    alignas (64) Ints quad;
    for (int i = 0; i < block; i++)
      quad[i] = static_cast<int> (quads_[index[i]]);
    for (int i = 0; i < block; i++) {
      const auto a = static_cast<float> (quad[i] & 255);
      const auto b = static_cast<float> ((quad[i] >> 8) & 255);
      const auto c = static_cast<float> ((quad[i] >> 16) & 255);
      const auto d = static_cast<float> ((quad[i] >> 24) & 255);
      const float top = a + (b - a) * across[i];
      const float bottom = c + (d - c) * across[i];
      values[i] = top + (bottom - top) * down[i];
    }
  }

private:
  const uint32_t *quads_ = nullptr;
  int size_log2_ = 0;
  float scale_ = 0; // texels a metre
  float u0_ = 0, v0_ = 0;
};

/** Samples a texture at the level of detail that fits a block, between two levels where it must. */
class TextureView
{
public:
  TextureView (const TileTexture &texture, const Vector &position)
      : count_ (static_cast<int> (texture.levels ().size ())),
        texel_log2_ (quick_log2 (static_cast<float> (texture.texel_m ())))
  {
    for (size_t i = 0; i < texture.levels ().size (); i++)
      views_[i] = LevelView (texture, i, position);
  }

  /** footprint_log2: of the metres that a pixel covers. */
  void sample (const Block &ground, float footprint_log2, Floats &values) const
  {
    const float wanted =
        std::clamp (footprint_log2 - texel_log2_, 0.0f, static_cast<float> (count_ - 1));
    const int level = std::min (static_cast<int> (wanted), count_ - 2);
    // Mixed only half of the way to the next level: elsewhere one of the two is good enough.
    const float coarse = std::clamp (2 * (wanted - static_cast<float> (level)) - 0.5f, 0.0f, 1.0f);
    if (coarse < 1)
      views_[static_cast<size_t> (level)].sample (ground, values);
    if (coarse > 0) {
      alignas (64) Floats others;
      views_[static_cast<size_t> (level) + 1].sample (ground, coarse < 1 ? others : values);
      if (coarse < 1)
        for (int i = 0; i < block; i++)
          values[i] += (others[i] - values[i]) * coarse;
    }
  }

  /** Whether hardly more than one texel is left of it. */
  bool is_even_at (float footprint_log2) const
  {
    return footprint_log2 - texel_log2_ > static_cast<float> (count_ - 3);
  }

private:
  int count_;
  float texel_log2_;
  std::array<LevelView, 16> views_;
};

/** log2 of how many metres of ground a pixel covers, more along the view than across. */
float footprint_log2 (const RowRays &rays, double x, double height_m)
{
  Vector ray;
  for (size_t i = 0; i < 3; i++)
    ray[i] = rays.origin[i] + x * rays.per_x[i];
  const double dz = std::max<double> (ray[2], 1 / farthest_heights);
  const auto square = [&] (const Vector &step) {
    const double north = step[0] * dz - ray[0] * step[2];
    const double east = step[1] * dz - ray[1] * step[2];
    return static_cast<float> (north * north + east * east);
  };
  const float a = square (rays.per_x);
  const float b = square (rays.per_y);
  const auto scale = static_cast<float> (height_m / (dz * dz));
  // Of squares: three quarters of the longer side's logarithm and a quarter of the shorter one's
  // keep far ground from shimmering without making it a blur.
  return 0.375f * quick_log2 (std::max (a, b)) + 0.125f * quick_log2 (std::min (a, b)) +
         quick_log2 (scale);
}

/** Where a + x * b is above a limit, within 0 and width. */
void range_above (double a, double b, double limit, int width, int *begin, int *end)
{
  *begin = 0;
  *end = width;
  if (b == 0) {
    if (a <= limit)
      *end = 0;
    return;
  }
  const double x = std::clamp ((limit - a) / b, -1.0, width + 1.0);
  if (b > 0)
    *begin = std::clamp (static_cast<int> (std::floor (x)), 0, width);
  else
    *end = std::clamp (static_cast<int> (std::ceil (x)) + 1, 0, width);
}

} // namespace

Background::Background (const World &world) : world_ (world)
{
  for (size_t i = 0; i < palette_.size (); i++)
    palette_[i] = to_pixel (world.palette[i]);
  const auto channel = [] (uint8_t a, uint8_t b, double t) {
    return static_cast<uint8_t> (std::lround (std::lerp (a, b, t)));
  };
  for (size_t i = 0; i < sky_.size (); i++) {
    const double sine = static_cast<double> (i) / static_cast<double> (sky_.size () - 1);
    const double t = 1 - std::pow (1 - sine, 2.5);
    sky_[i] = to_pixel (Color{channel (world.sky_at_horizon.red, world.sky_at_zenith.red, t),
                              channel (world.sky_at_horizon.green, world.sky_at_zenith.green, t),
                              channel (world.sky_at_horizon.blue, world.sky_at_zenith.blue, t)});
  }
}

void Background::draw_sky (const RowRays &rays, int begin, int end, Pixel *row) const
{
  float origin[3];
  float step[3];
  for (size_t i = 0; i < 3; i++) {
    origin[i] = static_cast<float> (rays.origin[i]);
    step[i] = static_cast<float> (rays.per_x[i]);
  }
  constexpr auto top = static_cast<float> (std::tuple_size_v<decltype (sky_)> - 1);
  for (int x = begin; x < end; x += block) {
    alignas (64) Ints index;
    for (int i = 0; i < block; i++) {
      const float fx = static_cast<float> (x + i);
      const float dx = origin[0] + fx * step[0];
      const float dy = origin[1] + fx * step[1];
      const float dz = origin[2] + fx * step[2];
      const float sine = -dz / std::sqrt (dx * dx + dy * dy + dz * dz);
      index[i] = static_cast<int> (top * std::min (std::max (sine, 0.0f), 1.0f));
    }
    const int count = std::min (block, end - x);
    for (int i = 0; i < count; i++)
      row[x + i] = sky_[static_cast<size_t> (index[i])];
  }
}

void Background::draw_ground (const RowRays &rays, int begin, int end, Pixel *row) const
{
  const double height_m = std::max (lowest_height_m, -rays.position[2]);
  float origin[3];
  float step[3];
  for (size_t i = 0; i < 3; i++) {
    origin[i] = static_cast<float> (rays.origin[i]);
    step[i] = static_cast<float> (rays.per_x[i]);
  }
  const auto height = static_cast<float> (height_m);
  const auto haze_m = static_cast<float> (world_.haze_distance_m);
  // The horizon's edge is one pixel wide.
  const auto slope = static_cast<float> (std::hypot (rays.per_x[2], rays.per_y[2]));
  const TextureView land (*world_.land, rays.position);
  const TextureView cover (*world_.cover, rays.position);

  for (int x = begin; x < end; x += block) {
    Block ground;
    for (int i = 0; i < block; i++) {
      const float fx = static_cast<float> (x + i);
      ground.dz[i] = origin[2] + fx * step[2];
      const float reach = height / std::max (ground.dz[i], 1 / farthest_heights);
      ground.north[i] = (origin[0] + fx * step[0]) * reach;
      ground.east[i] = (origin[1] + fx * step[1]) * reach;
      ground.haze[i] = reach / (reach + haze_m);
    }
    const float footprint = footprint_log2 (rays, x + block / 2.0, height_m);
    alignas (64) Floats place;
    alignas (64) Floats deviation;
    land.sample (ground, footprint, place);
    if (cover.is_even_at (footprint))
      std::fill_n (deviation, block, 128.0f);
    else
      cover.sample (ground, footprint, deviation);

    alignas (64) Pixel colors[block];
    for (int i = 0; i < block; i++)
      colors[i] = palette_[static_cast<size_t> (static_cast<int> (place[i]))];
    for (int i = 0; i < block; i++) {
      const auto channel = [&] (int shift, uint8_t haze) {
        const float plain =
            static_cast<float> (static_cast<int> (colors[i] >> shift) & 255) + deviation[i] - 128;
        const float seen = plain + (static_cast<float> (haze) - plain) * ground.haze[i];
        return static_cast<Pixel> (
                   static_cast<int> (std::min (std::max (seen, 0.0f), 255.0f) + 0.5f))
               << shift;
      };
      colors[i] = channel (0, world_.haze.red) | channel (8, world_.haze.green) |
                  channel (16, world_.haze.blue);
    }
    const int count = std::min (block, end - x);
    const float lowest = std::min (ground.dz[0], ground.dz[block - 1]);
    if (lowest >= 0.5f * slope) {
      std::copy_n (colors, count, row + x);
      continue;
    }
    for (int i = 0; i < count; i++) {
      const float inside = std::clamp (0.5f + ground.dz[i] / slope, 0.0f, 1.0f);
      row[x + i] = mix (row[x + i], colors[i], inside);
    }
  }
}

void Background::draw (const RowRays &rays, int width, Pixel *row) const
{
  const double edge = 0.5 * std::hypot (rays.per_x[2], rays.per_y[2]);
  int begin;
  int end;
  range_above (-rays.origin[2], -rays.per_x[2], -edge, width, &begin, &end);
  draw_sky (rays, begin, end, row);
  range_above (rays.origin[2], rays.per_x[2], -edge, width, &begin, &end);
  draw_ground (rays, begin, end, row);
}

} // namespace sim
