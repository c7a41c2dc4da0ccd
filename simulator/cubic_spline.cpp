// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "cubic_spline.hpp"

namespace sim
{

CubicSpline::CubicSpline (const std::vector<double> &knots, std::vector<double> values)
    : values_ (std::move (values)), curvature_ (values_.size (), 0.0)
{
  const size_t n = values_.size ();
  spacing_.reserve (n - 1);
  for (size_t i = 0; i + 1 < n; i++)
    spacing_.push_back (knots[i + 1] - knots[i]);

  // The tridiagonal system of the curvatures, 0 at both ends, by elimination (W. H. Press et al.,
  // "Numerical Recipes", 3.3).
  std::vector<double> upper (n, 0.0);
  for (size_t i = 1; i + 1 < n; i++) {
    const double before = spacing_[i - 1];
    const double after = spacing_[i];
    const double slopes =
        (values_[i + 1] - values_[i]) / after - (values_[i] - values_[i - 1]) / before;
    const double diagonal = 2 * (before + after) - before * upper[i - 1];
    upper[i] = after / diagonal;
    curvature_[i] = (6 * slopes - before * curvature_[i - 1]) / diagonal;
  }
  for (size_t i = n - 1; i-- > 1;)
    curvature_[i] -= upper[i] * curvature_[i + 1];
}

Taylor<3> CubicSpline::at (size_t i, double distance) const
{
  const double h = spacing_[i];
  const double slope =
      (values_[i + 1] - values_[i]) / h - h / 6 * (2 * curvature_[i] + curvature_[i + 1]);
  const auto t = Taylor<3>::variable (distance);
  return values_[i] + t * (slope + t * (curvature_[i] / 2 +
                                        t * ((curvature_[i + 1] - curvature_[i]) / (6 * h))));
}

} // namespace sim
