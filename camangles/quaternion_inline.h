/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/* The quaternion algebra on quads (x, y, z, w), without argument checks, for the library's own
 * loops. */
#ifndef CAMANGLES_QUATERNION_INLINE_H
#define CAMANGLES_QUATERNION_INLINE_H

#include <camangles/quaternion.h>

#include "vec4.h"

static inline vec4_t quat_identity (void)
{
  return (vec4_t){0.0f, 0.0f, 0.0f, 1.0f};
}

static inline float quat_dot (vec4_t a, vec4_t b)
{
  const vec4_t products = a * b;
  return products[0] + products[1] + products[2] + products[3];
}

static inline vec4_t quat_normalized (vec4_t q)
{
  return q / vec4_splat (sqrtf (quat_dot (q, q)));
}

/* quat_normalized for four of them. */
static inline void quat_normalize_four (vec4_t q[4])
{
  vec4_t x2 = q[0] * q[0];
  vec4_t y2 = q[1] * q[1];
  vec4_t z2 = q[2] * q[2];
  vec4_t w2 = q[3] * q[3];
  vec4_transpose (&x2, &y2, &z2, &w2);
  const vec4_t norms = vec4_sqrt (x2 + y2 + z2 + w2);
  for (int i = 0; i < 4; i++)
    q[i] /= vec4_splat (norms[i]);
}

static inline vec4_t quat_conjugated (vec4_t q)
{
  return vec4_flip_signs (q, (vec4_mask_t){-1, -1, -1, 0});
}

/*
 * All four components sum their products in the order of a's w, x, y, z:
 *   x:  aw bx + ax bw + ay bz - az by
 *   y:  aw by - ax bz + ay bw + az bx
 *   z:  aw bz + ax by - ay bx + az bw
 *   w:  aw bw - ax bx - ay by - az bz
 * so that only four products and three sums stand between a and the result.
 */
static inline vec4_t quat_product (vec4_t a, vec4_t b)
{
  const vec4_t by_x =
      vec4_flip_signs (__builtin_shufflevector (b, b, 3, 2, 1, 0), (vec4_mask_t){0, -1, 0, -1});
  const vec4_t by_y =
      vec4_flip_signs (__builtin_shufflevector (b, b, 2, 3, 0, 1), (vec4_mask_t){0, 0, -1, -1});
  const vec4_t by_z =
      vec4_flip_signs (__builtin_shufflevector (b, b, 1, 0, 3, 2), (vec4_mask_t){-1, 0, 0, -1});
  return vec4_splat (a[3]) * b + vec4_splat (a[0]) * by_x + vec4_splat (a[1]) * by_y +
         vec4_splat (a[2]) * by_z;
}

static inline int quat_is_zero (vec4_t q)
{
  return !vec4_any (q != vec4_splat (0.0f));
}

static inline vec4_t quat_nlerp (vec4_t a, vec4_t b, float t)
{
  const float weight_a = quat_dot (a, b) > 0.0f ? 1.0f - t : -(1.0f - t);
  return vec4_splat (weight_a) * a + vec4_splat (t) * b;
}

#endif
