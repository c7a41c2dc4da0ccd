// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Landmarks and the sun: exact outlines, their edges one pixel wide.
#ifndef SIMULATOR_RENDERER_LANDMARKS_HPP
#define SIMULATOR_RENDERER_LANDMARKS_HPP

#include <vector>

#include "renderer_background.hpp"
#include "renderer_view.hpp"
#include "world.hpp"

namespace sim
{

/** A part of the picture, pixels; last ones not included. */
struct PictureArea {
  int left, top, right, bottom;
  bool empty () const { return left >= right || top >= bottom; }
};

/** What of the world may be seen in a picture, where, in the order in which it is drawn. */
class VisibleLandmarks
{
public:
  void collect (const World &world, const PictureGeometry &geometry, const ViewTrack &track);
  /** Draws over the row's background. */
  void draw (const RowRays &rays, int y, Pixel *row) const;

private:
  struct Visible {
    const Landmark *landmark;
    PictureArea area;
    double opacity;
    double distance_m;
  };
  std::vector<Visible> visible_;
  const World *world_ = nullptr;
  PictureArea sun_ = {};
  double focal_ = 0;
};

} // namespace sim

#endif
