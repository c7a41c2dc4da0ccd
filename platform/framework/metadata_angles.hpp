// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/** Attitudes as angles, as <vorn/metadata_provider.h> defines them. */
#ifndef VORN_METADATA_ANGLES_HPP
#define VORN_METADATA_ANGLES_HPP

namespace vorn
{

/** Scalar last; turns body coordinates (forward, right, down) into north, east, down. */
struct Quaternion {
  double x, y, z, w;
};

/** Degrees. */
struct Angles {
  double roll, pitch, yaw;
};

/** Scales to length one; FALSE for what is no rotation (not finite, or far from length one). */
bool normalise (Quaternion *attitude);

/**
 * Yaw, pitch and roll of a unit quaternion (Diebel, "Representing Attitude", 2006, sequence 1-2-3):
 * pitch -90 to 90, the others -180 to 180.
 */
Angles angles_of (const Quaternion &attitude);

/**
 * The same attitude of a camera, told of a body that looks down where the camera looks forward.
 * Of the two sets of angles that say the same the one with the smaller roll, so that pitch goes on
 * beyond 90 when the camera looks above the horizon. A camera that looks at the horizon within a
 * degree, where yaw and roll cannot be told apart, has a roll of 0.
 */
Angles photogrammetry_angles_of (const Quaternion &attitude);

} // namespace vorn

#endif
