// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * Where the output camera looks and how much it shows, frame after frame.
 *
 * The wanted orientation is a given one, or a level one (no roll) that follows the camera's optical
 * axis smoothly. The camera's picture bounds what can be had: the picture is enlarged by as much as
 * the angle between camera and output needs, and at the largest zoom the angle itself is limited.
 */
#ifndef TOVRINFILTER_VIEW_HPP
#define TOVRINFILTER_VIEW_HPP

#include <optional>

#include "tovrinfilter_geometry.hpp"
#include "tovrinfilter_rotation.hpp"

namespace tovrin
{

struct ViewSettings {
  /** The orientation to show; nothing: level and smoothed. */
  std::optional<Quaternion> orientation;
  /** Time constant of the level view's following. */
  double smoothing_time_ns = 200e6;
  /** Time constant of taking back a zoom that is needed no longer. */
  double zoom_release_time_ns = 500e6;
  /** The largest enlargement, at least 1. */
  double max_zoom = 2.5;
};

/** What bounds an output camera. */
struct Picture {
  Window input;
  Window output;
  double max_zoom;
};

/**
 * The attitude nearest to wanted that the picture of a camera at this attitude has within the zoom:
 * wanted itself while it is well inside, drawn towards the camera's own attitude beyond, without a
 * jump on the way. Roll goes before direction. Turns of the direction by more than 90 degrees are
 * given up by and by.
 */
Quaternion within_picture (Quaternion wanted, Quaternion camera, const Picture &picture);

/** The level attitude that looks along the axis, or as near to it as above; level all the way. */
Quaternion level_within_picture (Vector axis, Quaternion camera, const Picture &picture);

/**
 * The level attitude (no roll) that looks along an axis. Near the vertical, where no direction is
 * level, it goes over to the camera's own right.
 */
Quaternion level_along (Vector axis, Quaternion camera);

/** The memory of the level view and of the zoom. Bound to one thread. */
class View
{
public:
  /** A time step beyond this, or back, starts anew. */
  static constexpr double longest_step_ns = 1e9;

  void reset () { *this = View (); }

  /** The output camera's attitude for the next frame, taken at time_ns with this camera attitude.
   */
  Quaternion next_orientation (const ViewSettings &settings, Quaternion camera, double time_ns,
                               const Window &input, const Window &output);

  /** The part (1: all) of the output window to show, when at most fitting of it can be. */
  double next_scale (const ViewSettings &settings, double fitting);

private:
  std::optional<double> last_time_ns_;
  double step_ns_ = 0;
  Vector axis_{1, 0, 0};
  double scale_ = 1;
};

} // namespace tovrin

#endif
