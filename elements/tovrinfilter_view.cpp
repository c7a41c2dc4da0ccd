// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "tovrinfilter_view.hpp"

namespace tovrin
{
namespace
{

constexpr double pi = std::numbers::pi;
/** Up to this part of the limit an angle is had in full; beyond it is compressed. */
constexpr double knee = 0.8;
/** Beyond this much of the way to the far side a correction is taken back to nothing. */
constexpr double fading_from_rad = pi / 2;
/** Elevations between which the level right gives way to the camera's own. */
constexpr double level_until_rad = 80 * pi / 180;
constexpr double own_from_rad = 88 * pi / 180;

/** The turn split into a roll about the optical axis, done first, and a turn of that axis. */
struct SwingTwist {
  double twist_rad; // -pi to pi
  double swing_rad; // 0 to pi
  Vector swing_axis;
};

SwingTwist split (Quaternion q)
{
  if (q.w < 0)
    q = {-q.x, -q.y, -q.z, -q.w};
  const Quaternion twist = {q.x, 0, 0, q.w};
  if (norm (twist) < 1e-12) // half a turn of the axis: any roll would do
    return {0, pi, normalized (Vector{0, q.y, q.z})};
  const Quaternion swing = q * conjugate (normalized (twist));
  const double sine = std::hypot (swing.y, swing.z);
  const Vector axis = sine > 0 ? Vector{0, swing.y / sine, swing.z / sine} : Vector{0, 1, 0};
  return {2 * std::atan2 (q.x, q.w), 2 * std::atan2 (sine, swing.w), axis};
}

/** x up to the knee, then closer and closer to the limit; continuous with its slope. */
double compress (double x, double limit)
{
  const double start = knee * limit;
  const double rest = limit - start;
  return x <= start || rest <= 0 ? std::min (x, limit)
                                 : start + rest * std::tanh ((x - start) / rest);
}

double fade (double angle_rad)
{
  return 1 - smooth_step (fading_from_rad, pi, angle_rad);
}

/** The first angle at which fits (angle) is false, up to end; end when it always is true. */
template <typename Fits>
double first_misfit (double end, const Fits &fits)
{
  constexpr double step = pi / 180;
  double good = 0;
  while (good < end && fits (std::min (good + step, end)))
    good += step;
  if (good >= end)
    return end;
  double bad = std::min (good + step, end);
  while (bad - good > 1e-7) {
    const double middle = (good + bad) / 2;
    (fits (middle) ? good : bad) = middle;
  }
  return good;
}

constexpr Vector forward = {1, 0, 0};

bool fits (Quaternion shown, Quaternion camera, const Picture &picture)
{
  const Matrix output_to_input = matrix (normalized (conjugate (camera) * shown));
  return fitting_scale (picture.input, picture.output, output_to_input) * picture.max_zoom >=
         1 - 1e-12;
}

/** The largest roll to either side that the picture has; half a turn: any. */
double roll_limit (const Picture &picture)
{
  return first_misfit (pi, [&] (double angle) {
    return fits (turn (forward, angle), identity, picture) &&
           fits (turn (forward, -angle), identity, picture);
  });
}

double limit_roll (double roll_rad, double limit_rad)
{
  const double size = std::abs (roll_rad);
  return limit_rad >= pi ? roll_rad
                         : std::copysign (compress (size, limit_rad) * fade (size), roll_rad);
}

/** path (angle) for the wanted angle, or for one that the picture has. */
template <typename Path>
Quaternion go_along (const Path &path, double wanted_rad, Quaternion camera, const Picture &picture)
{
  const double limit = first_misfit (std::min (wanted_rad / knee, pi / 2), [&] (double angle) {
    return fits (path (angle), camera, picture);
  });
  return normalized (path (compress (wanted_rad, limit) * fade (wanted_rad)));
}

} // namespace

Quaternion within_picture (Quaternion wanted, Quaternion camera, const Picture &picture)
{
  const SwingTwist parts = split (normalized (conjugate (camera) * wanted));
  const double kept = fade (parts.swing_rad);
  const double roll = kept * limit_roll (parts.twist_rad, roll_limit (picture));
  const auto path = [&] (double angle) {
    return camera * turn (parts.swing_axis, angle) * turn (forward, roll);
  };
  return go_along (path, parts.swing_rad, camera, picture);
}

Quaternion level_within_picture (Vector axis, Quaternion camera, const Picture &picture)
{
  const Vector camera_axis = rotate (camera, forward);
  const Vector normal = cross (camera_axis, axis);
  const double swing = std::atan2 (std::sqrt (dot (normal, normal)), dot (camera_axis, axis));
  const Vector about = normalized (normal);
  const double most_roll = roll_limit (picture);
  const auto path = [&] (double angle) {
    const Quaternion level = level_along (rotate (turn (about, angle), camera_axis), camera);
    if (most_roll >= pi)
      return level;
    const SwingTwist parts = split (normalized (conjugate (camera) * level));
    return camera * turn (parts.swing_axis, parts.swing_rad) *
           turn (forward, limit_roll (parts.twist_rad, most_roll));
  };
  return go_along (path, swing, camera, picture);
}

Quaternion level_along (Vector axis, Quaternion camera)
{
  constexpr Vector down = {0, 0, 1};
  const double horizontal = std::hypot (axis.x, axis.y);
  const double own =
      1 - smooth_step (std::cos (own_from_rad), std::cos (level_until_rad), horizontal);
  Vector right = normalized (cross (down, axis));
  if (own > 0) {
    const Vector camera_right = rotate (camera, {0, 1, 0});
    const Vector own_right = normalized (camera_right - dot (camera_right, axis) * axis);
    // By the angle between the two, which may be half a turn for a camera that pitches over.
    const double angle = std::atan2 (dot (cross (right, own_right), axis), dot (right, own_right));
    right = horizontal > 0 ? rotate (turn (axis, own * angle), right) : own_right;
  }
  if (!(dot (right, right) > 0.5)) // the camera's right is along the axis
    right = normalized (cross (rotate (camera, {0, 0, 1}), axis));
  return from_axes (axis, right, cross (axis, right));
}

Quaternion View::next_orientation (const ViewSettings &settings, Quaternion camera, double time_ns,
                                   const Window &input, const Window &output)
{
  const Vector camera_axis = rotate (camera, forward);
  step_ns_ = last_time_ns_ ? time_ns - *last_time_ns_ : -1;
  if (step_ns_ < 0 || step_ns_ > longest_step_ns) {
    axis_ = camera_axis;
    scale_ = 0;
    step_ns_ = 0;
  } else if (settings.smoothing_time_ns > 0) {
    const double part = 1 - std::exp (-step_ns_ / settings.smoothing_time_ns);
    axis_ = normalized ((1 - part) * axis_ + part * camera_axis);
    if (!(dot (axis_, axis_) > 0.5)) // just between two opposite directions
      axis_ = camera_axis;
  } else {
    axis_ = camera_axis;
  }
  last_time_ns_ = time_ns;

  const Picture picture = {input, output, settings.max_zoom};
  const Quaternion shown = settings.orientation
                               ? within_picture (*settings.orientation, camera, picture)
                               : level_within_picture (axis_, camera, picture);
  // The follower goes on from what is shown: it never falls behind by more than can be seen.
  axis_ = rotate (shown, forward);
  return shown;
}

double View::next_scale (const ViewSettings &settings, double fitting)
{
  // Zooming in cannot wait, there is nothing beyond the border; out again it goes softly.
  if (scale_ <= 0 || fitting <= scale_ || settings.zoom_release_time_ns <= 0)
    scale_ = fitting;
  else
    scale_ += (fitting - scale_) * (1 - std::exp (-step_ns_ / settings.zoom_release_time_ns));
  return scale_;
}

} // namespace tovrin
