// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_CUBIC_SPLINE_HPP
#define SIMULATOR_CUBIC_SPLINE_HPP

#include <vector>

#include "taylor.hpp"

namespace sim
{

/** The natural cubic spline through samples: twice continuously differentiable. */
class CubicSpline
{
public:
  /** knots grow strictly; at least two, and as many values. */
  CubicSpline (const std::vector<double> &knots, std::vector<double> values);
  /** The piece between knots interval and interval + 1, at a distance from the former. */
  Taylor<3> at (size_t interval, double distance) const;

private:
  std::vector<double> spacing_;
  std::vector<double> values_;
  std::vector<double> curvature_; // second derivative at each knot
};

} // namespace sim

#endif
