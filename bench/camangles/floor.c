/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
#include "floor.h"

#include "quaternion_inline.h"
#include "tables.h"

typedef struct {
  vec4_t a1, a2, b0, b1, b2, z0, z1;
} biquad_t;

static inline vec4_t step (biquad_t *f, vec4_t x)
{
  const vec4_t w = x - f->a1 * f->z0 - f->a2 * f->z1;
  const vec4_t y = f->b0 * w + (f->b1 * f->z0 + f->b2 * f->z1);
  f->z1 = f->z0;
  f->z0 = w;
  return y;
}

static vec4_t at (const float *const axes[3], size_t i)
{
  return (vec4_t){axes[0][i], axes[1][i], axes[2][i], 0.0f};
}

void floor_filter (const float a[3], const float b[3], size_t ready, size_t impulse_length,
                   const float *const input[3], float *const output[3])
{
  const size_t padding = 6;
  vec4_t scratch[FLOOR_MAX_WINDOW];
  biquad_t f = {vec4_splat (a[1]), vec4_splat (a[2]), vec4_splat (b[0]), vec4_splat (b[1]),
                vec4_splat (b[2]), vec4_splat (0),    vec4_splat (0)};
  for (size_t i = 0; i < padding + impulse_length; i++)
    step (&f, at (input, i));
  for (size_t i = 0; i < ready + padding; i++)
    scratch[i] = step (&f, at (input, padding + impulse_length + i));
  for (size_t i = ready + padding; i-- > 0;) {
    const vec4_t y = step (&f, scratch[i]);
    for (int axis = 0; axis < 3; axis++)
      output[axis][i] = y[axis];
  }
}

static inline __attribute__ ((always_inline)) void phases (const float *window, const float *table,
                                                           size_t factor, float *restrict output,
                                                           const size_t n_vec4s)
{
  vec4_t sum[4] = {0};
  for (size_t k = 0; k < KAISER_SINC_TAPS; k++)
    for (size_t i = 0; i < n_vec4s; i++)
      sum[i] += vec4_splat (window[k]) * vec4_load (table + k * factor + 4 * i);
  memcpy (output, sum, n_vec4s * sizeof (vec4_t));
}

void floor_resample (size_t factor, const float *const input[3], float *const output[3])
{
  const float *table = KaiserSincByTap + KAISER_SINC_TAPS * (factor - 2);
  for (int axis = 0; axis < 3; axis++) {
    if (factor == 8)
      phases (input[axis], table, 8, output[axis], 2);
    else
      for (size_t j = 0; j < factor; j += 16)
        phases (input[axis], table + j, factor, output[axis] + j, 4);
  }
}

void floor_attitudes (quat_t *attitude, const quat_t *steps, quat_t *output, size_t count)
{
  vec4_t q = vec4_load (attitude);
  for (size_t i = 0; i < count; i++) {
    q = quat_product (q, vec4_load (steps + i));
    vec4_store (output + i, q);
  }
  vec4_store (attitude, q);
}
