// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "world.hpp"

#include <cstddef>

namespace sim
{

namespace
{

TileTexture::Level make_level (const std::vector<uint8_t> &texels, int size_log2)
{
  const size_t size = size_t{1} << size_log2;
  TileTexture::Level level = {{}, size_log2};
  level.quads.reserve (size * size);
  for (size_t y = 0; y < size; y++)
    for (size_t x = 0; x < size; x++) {
      const size_t right = (x + 1) & (size - 1);
      const size_t below = (y + 1) & (size - 1);
      const uint32_t quad[] = {texels[y * size + x], texels[y * size + right],
                               texels[below * size + x], texels[below * size + right]};
      level.quads.push_back (quad[0] | quad[1] << 8 | quad[2] << 16 | quad[3] << 24);
    }
  return level;
}

/** Half as wide: each texel the mean of four, rounded. */
std::vector<uint8_t> halve (const std::vector<uint8_t> &texels, size_t size)
{
  std::vector<uint8_t> halved;
  halved.reserve (size * size / 4);
  for (size_t y = 0; y < size; y += 2)
    for (size_t x = 0; x < size; x += 2) {
      const uint8_t *corner = &texels[y * size + x];
      const unsigned sum = corner[0] + corner[1] + corner[size] + corner[size + 1];
      halved.push_back (static_cast<uint8_t> ((sum + 2) / 4));
    }
  return halved;
}

} // namespace

TileTexture::TileTexture (const std::vector<uint8_t> &texels, int size_log2, double texel_m)
    : texel_m_ (texel_m)
{
  std::vector<uint8_t> current = texels;
  for (int log2 = size_log2; log2 >= 0; log2--) {
    levels_.push_back (make_level (current, log2));
    if (log2 > 0)
      current = halve (current, size_t{1} << log2);
  }
}

} // namespace sim
