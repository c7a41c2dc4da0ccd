/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/*
 * Four floats side by side, in the compilers' vector notation (GCC 12, Clang; on any processor).
 * Each lane is computed as a plain float is, operation by operation.
 */
#ifndef CAMANGLES_VEC4_H
#define CAMANGLES_VEC4_H

#include <math.h>
#include <stdint.h>
#include <string.h>

typedef float vec4_t __attribute__ ((vector_size (16)));
typedef int32_t vec4_mask_t __attribute__ ((vector_size (16)));

static inline vec4_t vec4_load (const void *four_floats)
{
  vec4_t value;
  memcpy (&value, four_floats, sizeof value);
  return value;
}

static inline void vec4_store (void *four_floats, vec4_t value)
{
  memcpy (four_floats, &value, sizeof value);
}

static inline vec4_t vec4_splat (float value)
{
  return (vec4_t){value, value, value, value};
}

static inline vec4_t vec4_sqrt (vec4_t value)
{
  return (vec4_t){sqrtf (value[0]), sqrtf (value[1]), sqrtf (value[2]), sqrtf (value[3])};
}

static inline int vec4_any (vec4_mask_t mask)
{
  uint64_t halves[2];
  memcpy (halves, &mask, sizeof halves);
  return (halves[0] | halves[1]) != 0;
}

static inline vec4_t vec4_flip_signs (vec4_t value, vec4_mask_t lanes)
{
  return (vec4_t)((vec4_mask_t)value ^ (lanes & INT32_MIN));
}

/* Rows become columns. */
static inline void vec4_transpose (vec4_t *a, vec4_t *b, vec4_t *c, vec4_t *d)
{
  const vec4_t ab_low = __builtin_shufflevector (*a, *b, 0, 4, 1, 5);
  const vec4_t ab_high = __builtin_shufflevector (*a, *b, 2, 6, 3, 7);
  const vec4_t cd_low = __builtin_shufflevector (*c, *d, 0, 4, 1, 5);
  const vec4_t cd_high = __builtin_shufflevector (*c, *d, 2, 6, 3, 7);
  *a = __builtin_shufflevector (ab_low, cd_low, 0, 1, 4, 5);
  *b = __builtin_shufflevector (ab_low, cd_low, 2, 3, 6, 7);
  *c = __builtin_shufflevector (ab_high, cd_high, 0, 1, 4, 5);
  *d = __builtin_shufflevector (ab_high, cd_high, 2, 3, 6, 7);
}

#endif
