// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Where the camera stands during a picture, and the rays through the pixels of a row.
#ifndef SIMULATOR_RENDERER_VIEW_HPP
#define SIMULATOR_RENDERER_VIEW_HPP

#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

#include "camera_model.hpp"
#include "camera_pose.hpp"

namespace sim
{

using Vector = std::array<double, 3>;

inline double inner (const Vector &a, const Vector &b)
{
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

/** A pose as the renderer uses it: the camera's axes in NED coordinates. */
struct View {
  Vector position;
  Vector forward, right, down;
};

View view_of (const CameraPose &pose);

/**
 * The rays of one row: towards NED, one unit forward of the camera. The ray through the middle of
 * pixel x is origin + x * per_x; per_y is the change to the next row of the same view.
 */
struct RowRays {
  Vector position;
  Vector origin;
  Vector per_x;
  Vector per_y;
};

RowRays rays_of (const View &view, const PictureGeometry &geometry, uint32_t row);

/**
 * The views during a picture. The motion is asked at a few knots and taken as even between them:
 * they are so close that this is less than a hundredth of a pixel.
 */
class ViewTrack
{
public:
  ViewTrack (const CameraMotion &motion, int64_t begin_ns, int64_t end_ns);

  View at (int64_t time_ns) const;
  View middle () const { return at (begin_ns_ + (end_ns_ - begin_ns_) / 2); }
  /** How far the camera turns (rad) and goes (m) from the middle to wherever it is. */
  double turn_rad () const { return turn_rad_; }
  double way_m () const { return way_m_; }

private:
  int64_t begin_ns_;
  int64_t end_ns_;
  std::vector<CameraPose> knots_;
  double turn_rad_ = 0;
  double way_m_ = 0;
};

} // namespace sim

#endif
