/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
#include "three_axis_resample.h"

#include <stddef.h>

#include "ring_moves.h"
#include "tables.h"
#include "vec4.h"

#define TAPS KAISER_SINC_TAPS
#define TAPS_BEHIND 9

/*
 * Neighbouring phases lie side by side in vectors, and the sum of each runs over its taps in order.
 * Three axes at a time share the taps and keep the adders busy, which the sums of one axis would
 * have to wait for. n_vec4s is a constant at each call.
 */
static inline __attribute__ ((always_inline)) void
interpolate_vec4s (const float *const windows[3], const float *table, size_t factor,
                   float *const outputs[3], size_t at, const size_t n_vec4s)
{
  vec4_t sums[3][2] = {0};
#pragma GCC unroll 4
  for (size_t k = 0; k < TAPS; k++)
    for (size_t i = 0; i < n_vec4s; i++) {
      const vec4_t taps = vec4_load (table + k * factor + 4 * i);
      for (int axis = 0; axis < 3; axis++)
        sums[axis][i] += vec4_splat (windows[axis][k]) * taps;
    }
  for (int axis = 0; axis < 3; axis++)
    for (size_t i = 0; i < n_vec4s; i++)
      vec4_store (outputs[axis] + at + 4 * i, sums[axis][i]);
}

static void interpolate_pair (const float *const windows[3], const float *table,
                              float *const outputs[3], size_t at)
{
  float sums[3][2] = {0};
  for (size_t k = 0; k < TAPS; k++)
    for (int axis = 0; axis < 3; axis++) {
      sums[axis][0] += windows[axis][k] * table[2 * k];
      sums[axis][1] += windows[axis][k] * table[2 * k + 1];
    }
  for (int axis = 0; axis < 3; axis++)
    memcpy (outputs[axis] + at, sums[axis], sizeof sums[axis]);
}

/* All outputs that belong to one input sample, from slot at on. */
static void interpolate_sample (const float *const windows[3], size_t factor,
                                float *const outputs[3], size_t at)
{
  const float *table = KaiserSincByTap + TAPS * (factor - 2);
  if (factor == 2)
    interpolate_pair (windows, table, outputs, at);
  else if (factor == 4)
    interpolate_vec4s (windows, table, 4, outputs, at, 1);
  else
    for (size_t j = 0; j < factor; j += 8)
      interpolate_vec4s (windows, table + j, factor, outputs, at + j, 2);
}

/* The samples under the taps around slot: straight from the array, or gathered in scratch where
 * they run over its end. */
static const float *tap_window (const ringBuffer_t *ring, const float *input, uint32_t slot,
                                float scratch[TAPS])
{
  const uint32_t begin = slot < TAPS_BEHIND ? slot + ring->size - TAPS_BEHIND : slot - TAPS_BEHIND;
  const uint32_t first = ring_run (ring, begin, TAPS);
  if (first == TAPS)
    return input + begin;
  memcpy (scratch, input + begin, first * sizeof (float));
  memcpy (scratch + first, input, (TAPS - first) * sizeof (float));
  return scratch;
}

int32_t resample_three_axes (const ringBuffer_t *input_ring, const float *const inputs[3],
                             const ringBuffer_t *output_ring, float *const outputs[3],
                             uint32_t factor)
{
  const int32_t ready = ring_ready (input_ring);
  const int32_t count = ready - CAMANGLES_RESAMPLE_LOOK_AHEAD;
  for (int axis = 0; axis < 3; axis++)
    if (!inputs[axis] || !outputs[axis])
      return -1;
  /* Taps and look-ahead have to be in the ring still, and outputs may not run over its end in the
   * midst of a sample's. */
  if (input_ring->size < TAPS || ready + TAPS_BEHIND > (int32_t)input_ring->size ||
      ((output_ring->size | output_ring->wr) & (factor - 1)) != 0)
    return -1;
  if (count < 1)
    return 0;
  if ((uint64_t)count * factor > ring_room (output_ring))
    return -1;
  uint32_t from = input_ring->rd;
  uint32_t to = output_ring->wr;
  for (int32_t i = 0; i < count; i++) {
    float scratch[3][TAPS];
    const float *const windows[3] = {tap_window (input_ring, inputs[0], from, scratch[0]),
                                     tap_window (input_ring, inputs[1], from, scratch[1]),
                                     tap_window (input_ring, inputs[2], from, scratch[2])};
    interpolate_sample (windows, factor, outputs, to);
    from = ring_next (input_ring, from);
    to = ring_advance (output_ring, to, factor);
  }
  return count;
}
