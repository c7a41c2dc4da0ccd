// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The camera's attitude on the blackboard: what writer and readers of the section agree on.
#ifndef ACCURATE_ATTITUDE_HPP
#define ACCURATE_ATTITUDE_HPP

#include <camangles/quaternion.h>
#include <vorn/blackboard.h>

/**
 * One sample a millisecond, 2 s of history. A sample is the unit quaternion x, y, z, w that takes
 * camera to NED coordinates; its time is that of the gyro sample, on the clock of the frames'
 * capture timestamps.
 */
inline constexpr char accurate_attitude_section[] = "accurate_attitude";
inline constexpr VornBlackboardHeader accurate_attitude_header = {
    .sample_size = sizeof (quat_t), .sample_count = 2000, .rate = 1000, .fourth = 4};

static_assert (sizeof (quat_t) == 16);

#endif
