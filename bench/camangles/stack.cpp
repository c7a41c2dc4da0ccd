// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "stack.hpp"

#include <complex>
#include <vector>

#include <Eigen/Geometry>
#include <liquid/liquid.h>

struct LibraryStack::Private {
  unsigned factor;
  float dt;
  std::array<iirfilt_rrrf, 3> filters{};
  std::array<firinterp_rrrf, 3> interpolators{};
  std::array<std::vector<float>, 3> rates;
  Eigen::Quaternionf attitude = Eigen::Quaternionf::Identity ();
};

LibraryStack::LibraryStack (unsigned factor, float rate_hz, float cutoff)
    : p_ (std::make_unique<Private> ())
{
  p_->factor = factor;
  p_->dt = 1.0f / (rate_hz * static_cast<float> (factor));
  for (size_t axis = 0; axis < 3; axis++) {
    if (cutoff > 0)
      p_->filters[axis] = iirfilt_rrrf_create_lowpass (2, cutoff);
    if (factor > 1)
      p_->interpolators[axis] = firinterp_rrrf_create_kaiser (factor, 10, 60.0f);
    p_->rates[axis].resize (factor);
  }
}

LibraryStack::~LibraryStack ()
{
  for (auto *filter : p_->filters)
    if (filter)
      iirfilt_rrrf_destroy (filter);
  for (auto *interpolator : p_->interpolators)
    if (interpolator)
      firinterp_rrrf_destroy (interpolator);
}

void LibraryStack::feed (float x, float y, float z, float *attitudes)
{
  Private &p = *p_;
  const std::array<float, 3> sample = {x, y, z};
  for (size_t axis = 0; axis < 3; axis++) {
    float value = sample[axis];
    if (p.filters[axis])
      iirfilt_rrrf_execute (p.filters[axis], value, &value);
    if (p.interpolators[axis])
      firinterp_rrrf_execute (p.interpolators[axis], value, p.rates[axis].data ());
    else
      p.rates[axis][0] = value;
  }
  for (size_t i = 0; i < p.factor; i++) {
    const Eigen::Vector3f turn =
        Eigen::Vector3f (p.rates[0][i], p.rates[1][i], p.rates[2][i]) * p.dt;
    const float angle = turn.norm ();
    if (angle > 0)
      p.attitude = p.attitude * Eigen::AngleAxisf (angle, turn / angle);
    p.attitude.normalize ();
    Eigen::Map<Eigen::Vector4f> (attitudes + 4 * i) = p.attitude.coeffs ();
  }
}
