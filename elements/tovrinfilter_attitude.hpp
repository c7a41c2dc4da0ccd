// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * The camera's attitude over one frame, from the answer to "imu-get-attitude-data".
 *
 * The answer is a structure "imu-data" with four arrays of 32-bit floats of one length,
 * "quaternions_x", "quaternions_y", "quaternions_z" and "quaternions_w": one unit quaternion per
 * millisecond, the first being the latest at or before the time that was asked for. How long before
 * is not told: between 0 and 1 ms. The middle of that is assumed, which leaves an error of at most
 * half a millisecond of motion and none on average.
 */
#ifndef TOVRINFILTER_ATTITUDE_HPP
#define TOVRINFILTER_ATTITUDE_HPP

#include <optional>
#include <string>
#include <vector>

#include <gst/gst.h>

#include "tovrinfilter_rotation.hpp"

namespace tovrin
{

/** The samples of one frame. Immutable, reentrant. */
class AttitudeTrack
{
public:
  /** The time between samples, and the first sample's expected time before the start asked for. */
  static constexpr double sample_period_ns = 1e6;
  static constexpr double first_sample_age_ns = 0.5e6;
  /** How far beyond the last sample the motion is continued; further on the attitude stands. */
  static constexpr double continued_ns = 2e6;

  /** The samples of an "imu-data" structure; nothing, and the reason in problem, if it has no such.
   */
  static std::optional<AttitudeTrack> parse (const GstStructure *imu_data, std::string *problem);

  /** The attitude this long after the start that was asked for; slerp between the samples. */
  Quaternion at (double after_start_ns) const;

  /** How long after the start asked for the last sample is expected. */
  double end_ns () const
  {
    return static_cast<double> (samples_.size () - 1) * sample_period_ns - first_sample_age_ns;
  }

private:
  explicit AttitudeTrack (std::vector<Quaternion> samples) : samples_ (std::move (samples)) {}
  std::vector<Quaternion> samples_;
};

} // namespace tovrin

#endif
