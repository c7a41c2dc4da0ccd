/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/* The rotation of one integration step. */
#ifndef CAMANGLES_INTEGRATION_STEP_H
#define CAMANGLES_INTEGRATION_STEP_H

#include "quaternion_inline.h"

/* Half a step's angle from which on the series no longer serves. */
#define SERIES_LIMIT_RAD 0.1f

static inline vec4_t large_step_rotation (float vx, float vy, float vz, float theta)
{
  const float s = sinf (theta);
  return (vec4_t){vx * s / theta, vy * s / theta, vz * s / theta, cosf (theta)};
}

/* Turning at x, y, z rad/s for dt seconds. The half angles are rounded once: halving dt is exact. A
 * NaN rate takes the way of no rate. */
static inline vec4_t step_rotation (float x, float y, float z, float dt)
{
  const float vx = x * (0.5f * dt);
  const float vy = y * (0.5f * dt);
  const float vz = z * (0.5f * dt);
  const float theta = sqrtf (vx * vx + vy * vy + vz * vz);
  if (!(theta > 0.0f))
    return quat_identity ();
  if (!(theta < SERIES_LIMIT_RAD))
    return large_step_rotation (vx, vy, vz, theta);
  const float s = theta - theta * theta * theta / 6.0f;
  const float c = 1.0f - theta * theta / 2.0f;
  return (vec4_t){vx * s, vy * s, vz * s, c} / (vec4_t){theta, theta, theta, 1.0f};
}

#endif
