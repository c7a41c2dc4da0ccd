// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "attitude_series.hpp"

#include <algorithm>
#include <cmath>

namespace report
{

namespace
{

// Estimates come each millisecond, the truth alone each ten: what is much older is of another time.
constexpr int64_t estimate_step_ns = 5'000'000;
constexpr int64_t truth_step_ns = 30'000'000;

} // namespace

bool Attitude::known () const
{
  return std::isfinite (x) && std::isfinite (y) && std::isfinite (z) && std::isfinite (w);
}

vorn::EulerAngles Attitude::euler () const
{
  return vorn::MonitoredAttitude{0, 0, x, y, z, w, std::nullopt}.euler ();
}

std::optional<double> angle_between (const Attitude &a, const Attitude &b)
{
  if (!a.known () || !b.known ())
    return std::nullopt;
  // conjugate (a) * b; its vector part's length is the sine of half the angle.
  const double ax = a.x;
  const double ay = a.y;
  const double az = a.z;
  const double aw = a.w;
  const double x = aw * b.x - ax * b.w - ay * b.z + az * b.y;
  const double y = aw * b.y + ax * b.z - ay * b.w - az * b.x;
  const double z = aw * b.z - ax * b.y + ay * b.x - az * b.w;
  const double w = aw * b.w + ax * b.x + ay * b.y + az * b.z;
  return 2 * std::atan2 (std::hypot (x, y, z), std::abs (w));
}

Attitude between (const Attitude &a, const Attitude &b, double part)
{
  // q and -q are one attitude: the nearer one is the neighbour.
  const double dot = double{a.x} * b.x + double{a.y} * b.y + double{a.z} * b.z + double{a.w} * b.w;
  const double to_b = dot < 0 ? -part : part;
  const double to_a = 1 - part;
  const double x = to_a * a.x + to_b * b.x;
  const double y = to_a * a.y + to_b * b.y;
  const double z = to_a * a.z + to_b * b.z;
  const double w = to_a * a.w + to_b * b.w;
  const double norm = std::sqrt (x * x + y * y + z * z + w * w);
  return {static_cast<float> (x / norm), static_cast<float> (y / norm),
          static_cast<float> (z / norm), static_cast<float> (w / norm)};
}

void AttitudeSeries::add (const AttitudeSample &sample)
{
  if (!samples_.empty () && sample.time_ns <= samples_.back ().time_ns)
    return;
  if (!samples_.empty () && ++skipped_ < kept_every_)
    return;
  skipped_ = 0;
  if (samples_.size () >= most_samples_) {
    std::deque<AttitudeSample> half;
    for (size_t i = 0; i < samples_.size (); i += 2)
      half.push_back (samples_[i]);
    samples_ = std::move (half);
    kept_every_ *= 2;
  }
  samples_.push_back (sample);
}

std::deque<AttitudeSample>::const_iterator AttitudeSeries::after (int64_t time_ns) const
{
  return std::upper_bound (
      samples_.begin (), samples_.end (), time_ns,
      [] (int64_t time, const AttitudeSample &sample) { return time < sample.time_ns; });
}

Attitude AttitudeSeries::estimate_at (int64_t time_ns) const
{
  const auto next = after (time_ns);
  if (next == samples_.begin ())
    return {};
  const AttitudeSample &sample = *std::prev (next);
  return time_ns - sample.time_ns <= estimate_step_ns * kept_every_ ? sample.estimate : Attitude{};
}

Attitude AttitudeSeries::truth_at (int64_t time_ns) const
{
  const auto next = after (time_ns);
  if (next == samples_.begin ())
    return {};
  const AttitudeSample &before = *std::prev (next);
  if (before.time_ns == time_ns)
    return before.truth;
  if (next == samples_.end () || !before.truth.known () || !next->truth.known () ||
      next->time_ns - before.time_ns > truth_step_ns * kept_every_)
    return {};
  return between (before.truth, next->truth,
                  static_cast<double> (time_ns - before.time_ns) /
                      static_cast<double> (next->time_ns - before.time_ns));
}

} // namespace report
