// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "renderer_view.hpp"

#include <algorithm>

namespace sim
{

namespace
{

/** Vibration of 200 Hz with a gyro rate of 1 rad/s bends the track by 1e-5 rad between knots. */
constexpr int64_t knot_distance_ns = 250'000;

double dot4 (const std::array<double, 4> &a, const std::array<double, 4> &b)
{
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2] + a[3] * b[3];
}

} // namespace

View view_of (const CameraPose &pose)
{
  const auto &[x, y, z, w] = pose.attitude;
  return {pose.position_m,
          {1 - 2 * (y * y + z * z), 2 * (x * y + w * z), 2 * (x * z - w * y)},
          {2 * (x * y - w * z), 1 - 2 * (x * x + z * z), 2 * (y * z + w * x)},
          {2 * (x * z + w * y), 2 * (y * z - w * x), 1 - 2 * (x * x + y * y)}};
}

RowRays rays_of (const View &view, const PictureGeometry &geometry, uint32_t row)
{
  RowRays rays = {view.position, {}, {}, {}};
  const double right = (0.5 - geometry.center_x) / geometry.focal_x;
  const double down = (row + 0.5 - geometry.center_y) / geometry.focal_y;
  for (size_t i = 0; i < 3; i++) {
    rays.origin[i] = view.forward[i] + right * view.right[i] + down * view.down[i];
    rays.per_x[i] = view.right[i] / geometry.focal_x;
    rays.per_y[i] = view.down[i] / geometry.focal_y;
  }
  return rays;
}

ViewTrack::ViewTrack (const CameraMotion &motion, int64_t begin_ns, int64_t end_ns)
    : begin_ns_ (begin_ns), end_ns_ (std::max (end_ns, begin_ns))
{
  const int64_t span_ns = end_ns_ - begin_ns_;
  const int64_t intervals = (span_ns + knot_distance_ns - 1) / knot_distance_ns;
  for (int64_t i = 0; i <= intervals; i++) {
    const int64_t time_ns = intervals ? begin_ns_ + span_ns * i / intervals : begin_ns_;
    CameraPose knot = motion (time_ns);
    // The same rotation may come with either sign; neighbours are to be alike.
    if (!knots_.empty () && dot4 (knots_.back ().attitude, knot.attitude) < 0)
      for (double &component : knot.attitude)
        component = -component;
    knots_.push_back (knot);
  }
  const CameraPose &centre = knots_[knots_.size () / 2];
  for (const CameraPose &knot : knots_) {
    const double cosine = std::min (1.0, std::abs (dot4 (centre.attitude, knot.attitude)));
    turn_rad_ = std::max (turn_rad_, 2 * std::acos (cosine));
    way_m_ = std::max (way_m_, std::hypot (knot.position_m[0] - centre.position_m[0],
                                           knot.position_m[1] - centre.position_m[1],
                                           knot.position_m[2] - centre.position_m[2]));
  }
}

View ViewTrack::at (int64_t time_ns) const
{
  if (knots_.size () == 1)
    return view_of (knots_[0]);
  const double place = static_cast<double> (time_ns - begin_ns_) /
                       static_cast<double> (end_ns_ - begin_ns_) *
                       static_cast<double> (knots_.size () - 1);
  const double index =
      std::clamp (std::floor (place), 0.0, static_cast<double> (knots_.size () - 2));
  const CameraPose &a = knots_[static_cast<size_t> (index)];
  const CameraPose &b = knots_[static_cast<size_t> (index) + 1];
  const double fraction = std::clamp (place - index, 0.0, 1.0);
  CameraPose pose;
  for (size_t i = 0; i < 3; i++)
    pose.position_m[i] = std::lerp (a.position_m[i], b.position_m[i], fraction);
  for (size_t i = 0; i < 4; i++)
    pose.attitude[i] = std::lerp (a.attitude[i], b.attitude[i], fraction);
  const double norm = std::sqrt (dot4 (pose.attitude, pose.attitude));
  for (double &component : pose.attitude)
    component /= norm;
  return view_of (pose);
}

} // namespace sim
