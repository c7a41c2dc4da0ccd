// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The attitudes of a run, estimate beside truth, in order of time.
#ifndef HOST_REPORT_ATTITUDE_SERIES_HPP
#define HOST_REPORT_ATTITUDE_SERIES_HPP

#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <optional>

#include <vorn/attitude_monitor.hpp>

namespace report
{

/** A unit quaternion, camera to NED coordinates; not a number in it: not known. */
struct Attitude {
  float x = std::numeric_limits<float>::quiet_NaN ();
  float y = std::numeric_limits<float>::quiet_NaN ();
  float z = std::numeric_limits<float>::quiet_NaN ();
  float w = std::numeric_limits<float>::quiet_NaN ();

  bool known () const;
  /** Z-Y-X angles, radians. */
  vorn::EulerAngles euler () const;
};

/** The angle from one to the other, 0 to pi; empty when one is not known. */
std::optional<double> angle_between (const Attitude &a, const Attitude &b);

/** The attitude at a part (0 to 1) of the way from a to b, for neighbours that are close. */
Attitude between (const Attitude &a, const Attitude &b, double part);

struct AttitudeSample {
  int64_t time_ns; // CLOCK_MONOTONIC
  Attitude estimate;
  Attitude truth;
};

/**
 * Keeps samples in order of time, up to a number of them: when it is reached, every second one goes
 * and from then on so many fewer are kept. A run of any length thus has bounded memory. Reentrant.
 */
class AttitudeSeries
{
public:
  explicit AttitudeSeries (size_t most_samples = 2'000'000) : most_samples_ (most_samples) {}

  /** Samples that are not newer than the last are left out. */
  void add (const AttitudeSample &sample);

  const std::deque<AttitudeSample> &samples () const { return samples_; }
  /** 1 as long as all samples are kept, then a power of two. */
  unsigned kept_every () const { return kept_every_; }

  /** The estimate that was valid at a time: the latest at or before it, if it is recent. */
  Attitude estimate_at (int64_t time_ns) const;
  /** The truth of a time, from its neighbours. */
  Attitude truth_at (int64_t time_ns) const;

private:
  /** The first sample after the time. */
  std::deque<AttitudeSample>::const_iterator after (int64_t time_ns) const;

  std::deque<AttitudeSample> samples_;
  size_t most_samples_;
  unsigned kept_every_ = 1;
  unsigned skipped_ = 0; // since the last one that was kept
};

} // namespace report

#endif
