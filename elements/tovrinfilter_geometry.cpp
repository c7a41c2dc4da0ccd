// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "tovrinfilter_geometry.hpp"

namespace tovrin
{
namespace
{

constexpr double pi = std::numbers::pi;
/** A border that touches is inside, whatever the rounding. */
constexpr double border_tolerance = 1e-9;
/** Each step of the row look-up leaves the row's motion times the error before: few are needed. */
constexpr int most_row_steps = 12;
constexpr double row_tolerance = 1e-6;

/** Beyond this tangent the axis is nowhere near the picture. */
constexpr double farthest_axis = 1000;

bool is_possible_fov (double angle_rad)
{
  // A comparison that NaN fails.
  return angle_rad >= 0.001 && angle_rad <= 0.98 * pi;
}

/** The four planes through the pinhole and the window's edges; their inner sides are positive. */
struct Planes {
  explicit Planes (const Window &w)
      : inward{{-w.left, 1, 0}, {w.right, -1, 0}, {-w.top, 0, 1}, {w.bottom, 0, -1}}
  {
  }
  Vector inward[4];
};

Matrix mix (const Matrix &a, const Matrix &b, double fraction)
{
  Matrix result;
  for (int row = 0; row < 3; row++)
    result.rows[row] = (1 - fraction) * a.rows[row] + fraction * b.rows[row];
  return result;
}

} // namespace

std::optional<Window> capture_window (const Optics &optics, PictureSize frame, CaptureRect rect,
                                      std::string *problem)
{
  const auto refuse = [&] (const std::string &text) {
    *problem = text;
    return std::nullopt;
  };
  for (const double angle : {optics.hfov_rad, optics.vfov_rad.value_or (optics.hfov_rad)})
    if (!is_possible_fov (angle))
      return refuse ("a field of view of " + std::to_string (angle) + " rad is not possible");
  for (const double axis : {optics.axis_across.value_or (0), optics.axis_down.value_or (0)})
    if (!(std::abs (axis) < farthest_axis))
      return refuse ("an optical axis at " + std::to_string (axis) + " is not possible");

  const bool known = rect.width > 0 && rect.height > 0;
  const double aspect = known ? static_cast<double> (rect.width) / rect.height : frame.aspect ();
  const double width = 2 * std::tan (optics.hfov_rad / 2);
  const double height = optics.vfov_rad ? 2 * std::tan (*optics.vfov_rad / 2) : width / aspect;
  double across = width / 2;
  double down = height / 2;
  if (known && (rect.left > 0 || rect.top > 0) && !(optics.axis_across && optics.axis_down)) {
    if (rect.left + static_cast<double> (rect.width) > frame.width ||
        rect.top + static_cast<double> (rect.height) > frame.height)
      return refuse ("the captured rectangle does not lie on the sensor");
    across = width * (frame.width / 2.0 - rect.left) / rect.width;
    down = height * (frame.height / 2.0 - rect.top) / rect.height;
  }
  across = optics.axis_across.value_or (across);
  down = optics.axis_down.value_or (down);
  return Window{-across, width - across, -down, height - down};
}

Window largest_inside (const Window &window, double aspect)
{
  const double half_width =
      std::min (window.right - window.left, (window.bottom - window.top) * aspect) / 2;
  const double half_height = half_width / aspect;
  const double y = (window.left + window.right) / 2;
  const double z = (window.top + window.bottom) / 2;
  return {y - half_width, y + half_width, z - half_height, z + half_height};
}

double fitting_scale (const Window &input, const Window &output, const Matrix &turn)
{
  // A corner's ray is linear in the scale, so each pair of a corner and a plane gives one bound.
  const Vector centre = output.ray (0.5, 0.5);
  double scale = 1;
  for (const Vector &inward : Planes (input).inward) {
    const double at_centre = dot (inward, turn * centre);
    if (at_centre < 0)
      return 0;
    for (int corner = 0; corner < 4; corner++) {
      const Vector to_corner = output.ray (corner & 1, corner >> 1) - centre;
      const double towards_plane = -dot (inward, turn * to_corner);
      if (towards_plane > at_centre)
        scale = std::min (scale, at_centre / towards_plane);
    }
  }
  return scale;
}

Matrix Warp::turn_at (double down) const
{
  const auto last = static_cast<double> (turns_.size () - 1);
  const double position = std::clamp (down, 0.0, 1.0) * last;
  const size_t index = std::min (static_cast<size_t> (position), turns_.size () - 2);
  // The knots are so close that the chord between two turns is as good as the arc.
  return mix (turns_[index], turns_[index + 1], position - static_cast<double> (index));
}

Vector Warp::to_input (Vector ray) const
{
  if (!by_rows ())
    return turns_[0] * ray;
  double down = 0.5;
  Vector found{};
  for (int step = 0; step < most_row_steps; step++) {
    found = turn_at (down) * ray;
    if (found.x <= 0)
      break;
    const double before = down;
    down = (found.z / found.x - input_.top) / (input_.bottom - input_.top);
    if (std::abs (down - before) < row_tolerance)
      break;
  }
  return found;
}

bool Warp::sees (Vector ray) const
{
  const Vector found = to_input (ray);
  const double tolerance = border_tolerance * found.x;
  return found.x > 0 && found.y >= input_.left * found.x - tolerance &&
         found.y <= input_.right * found.x + tolerance &&
         found.z >= input_.top * found.x - tolerance &&
         found.z <= input_.bottom * found.x + tolerance;
}

bool Warp::sees_border_of (const Window &output) const
{
  // Rows bend the border a little: points along it, not only its corners.
  constexpr int points = 12;
  for (int i = 0; i <= points; i++) {
    const double along = static_cast<double> (i) / points;
    if (!sees (output.ray (along, 0)) || !sees (output.ray (along, 1)) ||
        !sees (output.ray (0, along)) || !sees (output.ray (1, along)))
      return false;
  }
  return true;
}

double Warp::fitting_scale (const Window &output) const
{
  if (!by_rows ())
    return tovrin::fitting_scale (input_, output, turns_[0]);
  if (sees_border_of (output))
    return 1;
  // What is seen is without holes, so a smaller window is seen if a larger one is.
  double seen = 0;
  double unseen = 1;
  while (unseen - seen > 1e-5) {
    const double middle = (seen + unseen) / 2;
    (sees_border_of (output.scaled (middle)) ? seen : unseen) = middle;
  }
  return seen;
}

} // namespace tovrin
