// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Ground and sky of one row.
#ifndef SIMULATOR_RENDERER_BACKGROUND_HPP
#define SIMULATOR_RENDERER_BACKGROUND_HPP

#include <array>
#include <cstdint>

#include "renderer_view.hpp"
#include "world.hpp"

namespace sim
{

/** Pixels of a row while it is being made: red, green, blue, unused from the lowest byte on. */
using Pixel = uint32_t;

class Background
{
public:
  explicit Background (const World &world);
  /** Fills all of the row's pixels. Reentrant. */
  void draw (const RowRays &rays, int width, Pixel *row) const;

private:
  void draw_sky (const RowRays &rays, int begin, int end, Pixel *row) const;
  void draw_ground (const RowRays &rays, int begin, int end, Pixel *row) const;

  const World &world_;
  std::array<Pixel, 256> palette_;
  /** By the sine of the elevation. */
  std::array<Pixel, 1024> sky_;
};

} // namespace sim

#endif
