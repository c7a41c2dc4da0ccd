// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * Pictures as windows of a pinhole camera, and the way from one camera's picture to another's.
 *
 * A window lies on the plane at distance 1 before the pinhole; its edges are tangents in the camera
 * body frame (y to the right, z down). Everything here is plain values, reentrant.
 */
#ifndef TOVRINFILTER_GEOMETRY_HPP
#define TOVRINFILTER_GEOMETRY_HPP

#include <optional>
#include <string>
#include <vector>

#include "tovrinfilter_attitude.hpp"
#include "tovrinfilter_rotation.hpp"

namespace tovrin
{

struct Window {
  double left, right, top, bottom;

  /** The same centre, each side this many times as long. */
  Window scaled (double factor) const
  {
    const double y = (left + right) / 2;
    const double z = (top + bottom) / 2;
    const double half_width = factor * (right - left) / 2;
    const double half_height = factor * (bottom - top) / 2;
    return {y - half_width, y + half_width, z - half_height, z + half_height};
  }

  /** The ray through a point of the picture; across and down are 0 to 1 from its top left corner.
   */
  Vector ray (double across, double down) const
  {
    return {1, left + across * (right - left), top + down * (bottom - top)};
  }
};

/** A picture's size; pixel_aspect is width over height of one pixel. */
struct PictureSize {
  unsigned width, height;
  double pixel_aspect = 1;
  double aspect () const { return width * pixel_aspect / height; }
};

/** The rectangle of the sensor that a frame shows, in sensor pixels; a side of 0: not known. */
struct CaptureRect {
  unsigned left = 0, top = 0, width = 0, height = 0;
};

/** What the source says of its lens. */
struct Optics {
  /** 2 atan (w / 2f) of the picture's width w. */
  double hfov_rad;
  /** The same of its height; absent: by the rectangle's shape, or the frame's with its pixels'
   * aspect.
   */
  std::optional<double> vfov_rad;
  /** The tangents from the picture's left and top edge to the optical axis; absent: by the
   * rectangle.
   */
  std::optional<double> axis_across, axis_down;
};

/**
 * The window of a captured frame. What the optics leave open is taken from the rectangle: one at
 * 0, 0, or one that is not known, is the whole sensor, with the optical axis in its middle; any
 * other lies on a sensor of the frame's size, whose middle has the axis. Nothing, and the reason in
 * problem, if the rectangle does not lie on the sensor or the optics are not possible.
 */
std::optional<Window> capture_window (const Optics &optics, PictureSize frame, CaptureRect rect,
                                      std::string *problem);

/** The largest window of this aspect (width over height) inside another, with the same centre. */
Window largest_inside (const Window &window, double aspect);

/**
 * How much of an output window (1: all) fits into the input picture, when turn takes rays of the
 * output camera to the input camera. 0 when not even its centre does.
 */
double fitting_scale (const Window &input, const Window &output, const Matrix &turn);

/** Where the rays of the output camera are found in a picture whose rows have their own times. */
class Warp
{
public:
  /**
   * turns: from output to input camera, for rows from the first to the last at equal distances; a
   * single one holds for the whole picture.
   */
  Warp (const Window &input, std::vector<Matrix> turns) : input_ (input), turns_ (std::move (turns))
  {
  }

  bool by_rows () const { return turns_.size () > 1; }

  /**
   * The ray in the input camera at the time of the row that sees it: the row is looked up where the
   * turn of the row before leads to, until it stays.
   */
  Vector to_input (Vector ray) const;

  /** Whether the ray is in the input picture. */
  bool sees (Vector ray) const;

  /** As the function above, with each row at its own time. */
  double fitting_scale (const Window &output) const;

private:
  Matrix turn_at (double down) const;
  bool sees_border_of (const Window &output) const;

  Window input_;
  std::vector<Matrix> turns_;
};

} // namespace tovrin

#endif
