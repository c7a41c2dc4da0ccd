// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * What there is to see: a plane of ground with its textures, landmarks at known places, the sky.
 * Frame: north, east, down from home; the ground is the plane down = 0.
 */
#ifndef SIMULATOR_WORLD_HPP
#define SIMULATOR_WORLD_HPP

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

namespace sim
{

struct Color {
  uint8_t red, green, blue;
  bool operator== (const Color &) const = default;
};

enum class LandmarkShape {
  disc,   // flat on the ground
  square, // flat on the ground
  pole,   // upright, round
};

struct Landmark {
  LandmarkShape shape;
  double north_m, east_m; // of its middle
  double size_m;          // radius of disc and pole, half a side of the square
  double height_m;        // of the pole
  double heading_rad;     // of the square's sides
  Color color;
};

/** A square grey image that repeats for ever, with smaller versions of itself, each half as wide.
 */
class TileTexture
{
public:
  struct Level {
    /** Rows of 2^size_log2. A texel with its right, lower and lower right neighbour, in this order
     * from the lowest byte on: one access fetches all that lies around a place. */
    std::vector<uint32_t> quads;
    int size_log2;
  };

  /** From size * size texels, size = 2^size_log2; texel_m: the ground that one covers. */
  TileTexture (const std::vector<uint8_t> &texels, int size_log2, double texel_m);

  double texel_m () const { return texel_m_; }
  const std::vector<Level> &levels () const { return levels_; }

private:
  double texel_m_;
  std::vector<Level> levels_;
};

struct World {
  /** What the land is, as places in the palette. */
  std::shared_ptr<const TileTexture> land;
  std::array<Color, 256> palette;
  /** What grows on it, as deviation from middle grey (128). */
  std::shared_ptr<const TileTexture> cover;
  std::vector<Landmark> landmarks;
  /** What far ground fades into, and the distance at which half of it has. */
  Color haze = {118, 128, 122};
  double haze_distance_m = 700;
  Color sky_at_horizon = {206, 222, 236};
  Color sky_at_zenith = {70, 122, 194};
  Color sun = {255, 250, 230};
  /** Towards the sun, NED, unit length; its disc's radius. */
  std::array<double, 3> sun_direction = {0.5, 0.5, -0.70710678118654752};
  double sun_radius_rad = 0.015;
};

/** The place where the drone flies: the same for the same seed on every machine. */
std::shared_ptr<const World> make_world (uint64_t seed);

/** The same without landmarks. */
std::shared_ptr<const World> make_bare_world (uint64_t seed);

} // namespace sim

#endif
