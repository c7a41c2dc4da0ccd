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

/** Smooth noise of one scale that repeats after cells * cell texels (value noise). */
double smooth_noise (uint64_t seed, double x, double y, uint64_t cells)
{
  const double floor_x = std::floor (x);
  const double floor_y = std::floor (y);
  const auto wrap = [cells] (double i) { return static_cast<uint64_t> (i) % cells; };
  const auto ease = [] (double t) { return t * t * (3 - 2 * t); };
  const double fx = ease (x - floor_x);
  const double fy = ease (y - floor_y);
  const double top = std::lerp (lattice (seed, wrap (floor_x), wrap (floor_y)),
                                lattice (seed, wrap (floor_x + 1), wrap (floor_y)), fx);
  const double bottom = std::lerp (lattice (seed, wrap (floor_x), wrap (floor_y + 1)),
                                   lattice (seed, wrap (floor_x + 1), wrap (floor_y + 1)), fx);
  return std::lerp (top, bottom, fy);
}

/** Scales from `cells` in a tile on, each half as large and `fall` as strong as the one before. */
double fractal_noise (uint64_t seed, double x, double y, uint64_t cells, int octaves, double fall)
{
  double sum = 0;
  double weight = 1;
  for (int octave = 0; octave < octaves; octave++) {
    const auto n = static_cast<double> (cells);
    sum += weight * smooth_noise (seed + static_cast<uint64_t> (octave), x * n, y * n, cells);
    weight *= fall;
    cells *= 2;
  }
  return sum;
}

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
  return make_tile (9, 1.0, [seed] (double u, double v) {
    const double kind = fractal_noise (seed, u, v, 8, 6, 0.55);
    const double bare = fractal_noise (seed + 100, u, v, 12, 4, 0.55);
    return std::clamp (150 + 90 * kind, 90.0, 255.0) - std::clamp (400 * (bare - 0.45), 0.0, 160.0);
  });
}

/** Ten metres of grass, for the view from close by: few enough to stay in a core's cache. */
std::shared_ptr<const TileTexture> make_cover (uint64_t seed)
{
  return make_tile (8, 0.04, [seed] (double u, double v) {
    return 128 + 26 * fractal_noise (seed + 300, u, v, 16, 4, 0.8);
  });
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
