// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The place where the drone flies: meadows and bare soil, a grid of discs, squares and poles.
#include "world.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace sim
{

namespace
{

/** The finaliser of SplitMix64 (S. Vigna, public domain): every bit depends on every bit. */
uint64_t mix (uint64_t x)
{
  x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9u;
  x = (x ^ (x >> 27)) * 0x94d049bb133111ebu;
  return x ^ (x >> 31);
}

/** -1 to 1, the same for the same arguments. */
double lattice (uint64_t seed, uint64_t x, uint64_t y)
{
  const uint64_t bits = mix (mix (mix (seed + 0x9e3779b97f4a7c15u) + x) + 0x632be59bd9b4e019u * y);
  return static_cast<double> (bits >> 11) * 0x1p-52 - 1;
}

/** Smooth noise of one scale over a tile, cells * cells of it, without a seam (value noise). */
class NoiseScale
{
public:
  NoiseScale (uint64_t seed, uint32_t cells) : cells_ (cells), values_ (size_t{cells} * cells)
  {
    for (uint32_t y = 0; y < cells; y++)
      for (uint32_t x = 0; x < cells; x++)
        values_[size_t{y} * cells + x] = lattice (seed, x, y);
  }

  /** At a place of the tile, 0 to 1 each way. */
  double at (double u, double v) const
  {
    const double x = u * cells_;
    const double y = v * cells_;
    const auto column = static_cast<uint32_t> (x);
    const auto row = static_cast<uint32_t> (y);
    const auto ease = [] (double t) { return t * t * (3 - 2 * t); };
    const double fx = ease (x - column);
    const double fy = ease (y - row);
    const double top = std::lerp (value (column, row), value (column + 1, row), fx);
    const double bottom = std::lerp (value (column, row + 1), value (column + 1, row + 1), fx);
    return std::lerp (top, bottom, fy);
  }

private:
  double value (uint32_t column, uint32_t row) const
  {
    return values_[size_t{row % cells_} * cells_ + column % cells_];
  }

  uint32_t cells_;
  std::vector<double> values_;
};

/** Scales from `cells` in a tile on, each half as large and `fall` as strong as the one before. */
class FractalNoise
{
public:
  FractalNoise (uint64_t seed, uint32_t cells, int scales, double fall) : fall_ (fall)
  {
    for (int i = 0; i < scales; i++)
      scales_.emplace_back (seed + static_cast<uint64_t> (i), cells << i);
  }

  double at (double u, double v) const
  {
    double sum = 0;
    double weight = 1;
    for (const NoiseScale &scale : scales_) {
      sum += weight * scale.at (u, v);
      weight *= fall_;
    }
    return sum;
  }

private:
  double fall_;
  std::vector<NoiseScale> scales_;
};

uint8_t to_byte (double value)
{
  return static_cast<uint8_t> (std::clamp (std::lround (value), 0L, 255L));
}

/** From bare soil over pasture to meadow. */
std::array<Color, 256> make_palette ()
{
  struct Stop {
    double place, red, green, blue;
  };
  constexpr Stop stops[] = {{0, 112, 92, 70},    {60, 134, 113, 86}, {90, 128, 122, 84},
                            {150, 112, 122, 76}, {200, 86, 108, 60}, {255, 66, 92, 50}};
  std::array<Color, 256> palette;
  size_t stop = 0;
  for (size_t i = 0; i < palette.size (); i++) {
    const auto place = static_cast<double> (i);
    while (place > stops[stop + 1].place)
      stop++;
    const Stop &a = stops[stop];
    const Stop &b = stops[stop + 1];
    const double t = (place - a.place) / (b.place - a.place);
    palette[i] = {to_byte (std::lerp (a.red, b.red, t)), to_byte (std::lerp (a.green, b.green, t)),
                  to_byte (std::lerp (a.blue, b.blue, t))};
  }
  return palette;
}

/** A tile from a function of the place, 0 to 1 each way. */
std::shared_ptr<const TileTexture> make_tile (int size_log2, double texel_m, const auto &grey_at)
{
  const int size = 1 << size_log2;
  std::vector<uint8_t> texels;
  texels.reserve (static_cast<size_t> (size) * static_cast<size_t> (size));
  for (int y = 0; y < size; y++)
    for (int x = 0; x < size; x++)
      texels.push_back (to_byte (grey_at ((x + 0.5) / size, (y + 0.5) / size)));
  return std::make_shared<TileTexture> (texels, size_log2, texel_m);
}

/** Half a kilometre of meadows and pastures with bare soil between. */
std::shared_ptr<const TileTexture> make_land (uint64_t seed)
{
  const FractalNoise kind (seed, 8, 6, 0.55);
  const FractalNoise bare (seed + 100, 12, 4, 0.55);
  return make_tile (9, 1.0, [&] (double u, double v) {
    return std::clamp (150 + 90 * kind.at (u, v), 90.0, 255.0) -
           std::clamp (400 * (bare.at (u, v) - 0.45), 0.0, 160.0);
  });
}

/** Ten metres of grass, for the view from close by: few enough to stay in a core's cache. */
std::shared_ptr<const TileTexture> make_cover (uint64_t seed)
{
  const FractalNoise grass (seed + 300, 16, 4, 0.8);
  return make_tile (8, 0.04, [&] (double u, double v) { return 128 + 26 * grass.at (u, v); });
}

constexpr Color magenta = {230, 20, 220};
constexpr Color blue = {30, 60, 230};
constexpr Color yellow = {245, 225, 30};
constexpr Color red = {230, 30, 25};
constexpr Color cyan = {30, 215, 225};
constexpr Color white = {245, 245, 245};
constexpr Color orange = {250, 130, 20};

std::vector<Landmark> make_landmarks ()
{
  std::vector<Landmark> landmarks;
  // Home: a red disc on a white one.
  landmarks.push_back ({LandmarkShape::disc, 0, 0, 1.6, 0, 0, white});
  landmarks.push_back ({LandmarkShape::disc, 0, 0, 0.8, 0, 0, red});
  constexpr Color disc_colors[] = {magenta, blue, yellow, red, cyan};
  for (int i = -10; i <= 10; i++)
    for (int j = -10; j <= 10; j++)
      if (i != 0 || j != 0)
        landmarks.push_back ({LandmarkShape::disc, 20.0 * i, 20.0 * j, 0.6, 0, 0,
                              disc_colors[(i + 2 * j + 100) % 5]});
  for (int i = -3; i <= 3; i++)
    for (int j = -3; j <= 3; j++)
      landmarks.push_back ({LandmarkShape::square, 60.0 * i + 10, 60.0 * j - 10, 1.5, 0,
                            0.3 * (i + 2 * j), (i + j) % 2 ? white : magenta});
  for (int i = -4; i <= 4; i++)
    for (int j = -4; j <= 4; j++)
      landmarks.push_back ({LandmarkShape::pole, 50.0 * i + 15, 50.0 * j + 10, 0.2, 8, 0,
                            (i + j) % 2 ? orange : red});
  return landmarks;
}

} // namespace

std::shared_ptr<const World> make_bare_world (uint64_t seed)
{
  auto world = std::make_shared<World> ();
  world->land = make_land (seed);
  world->palette = make_palette ();
  world->cover = make_cover (seed);
  return world;
}

std::shared_ptr<const World> make_world (uint64_t seed)
{
  auto world = std::make_shared<World> (*make_bare_world (seed));
  world->landmarks = make_landmarks ();
  return world;
}

} // namespace sim
