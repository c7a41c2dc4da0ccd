// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Where the line between sky and ground is in a picture that the desk simulator rendered.
#ifndef TESTS_HORIZON_HPP
#define TESTS_HORIZON_HPP

#include <optional>

namespace scene
{

/**
 * The row, in pixels from the first one's middle, at which a column goes from sky to ground; none
 * when it does not. grey (row): the column's brightness, 0 to 255. Above and below, 4 rows are left
 * out.
 */
template <typename Grey>
std::optional<double> find_horizon_row (const Grey &grey, int height)
{
  for (int y = 4; y + 4 < height; y++) {
    const double above = grey (y - 3);
    const double below = grey (y + 3);
    // The sun's edge is no horizon: it is brighter on both sides.
    if (above < 190 || below > 150)
      continue;
    double ground = 0;
    for (int dy = -3; dy <= 3; dy++)
      ground += (grey (y + dy) - above) / (below - above);
    return y + 4 - ground;
  }
  return std::nullopt;
}

} // namespace scene

#endif
