/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
#include <camangles/gyro_integration.h>

#include <stddef.h>

#include <vorn/log.h>

#include "integration_step.h"
#include "ring_moves.h"

VORN_LOG_TAG ("camangles_gyro_integration");

const gyroIntegration_t gyroIntegration_t_init = {{0.0f, 0.0f, 0.0f, 1.0f}};

/* Samples that are integrated at once where that is possible; a multiple of 4. */
#define MAX_RUN 32

/* step_rotation for four samples that lie one behind the other. */
static inline void four_step_rotations (const float *x, const float *y, const float *z, float dt,
                                        vec4_t steps[4])
{
  const vec4_t half_dt = vec4_splat (0.5f * dt);
  const vec4_t vx = vec4_load (x) * half_dt;
  const vec4_t vy = vec4_load (y) * half_dt;
  const vec4_t vz = vec4_load (z) * half_dt;
  const vec4_t theta = vec4_sqrt (vx * vx + vy * vy + vz * vz);
  const vec4_mask_t regular = (theta > vec4_splat (0.0f)) & (theta < vec4_splat (SERIES_LIMIT_RAD));
  if (vec4_any (~regular)) {
    for (int i = 0; i < 4; i++)
      steps[i] = step_rotation (x[i], y[i], z[i], dt);
    return;
  }
  const vec4_t s = theta - theta * theta * theta / vec4_splat (6.0f);
  steps[0] = vx * s / theta;
  steps[1] = vy * s / theta;
  steps[2] = vz * s / theta;
  steps[3] = vec4_splat (1.0f) - theta * theta / vec4_splat (2.0f);
  vec4_transpose (&steps[0], &steps[1], &steps[2], &steps[3]);
}

static void trim_bias (float *bias, vec4_t integrated, vec4_t reference, float bias_gain)
{
  if (!bias) {
    VORN_LOG_ERROR ("error, bias pointer is null");
    return;
  }
  const vec4_t error = quat_product (quat_conjugated (integrated), reference);
  const float gain = error[3] < 0.0f ? -2.0f * bias_gain : 2.0f * bias_gain;
  for (int axis = 0; axis < 3; axis++)
    bias[axis] -= gain * error[axis];
}

static int32_t move_rings (ringBuffer_t *input_ring, ringBuffer_t *reference_ring,
                           ringBuffer_t *output_ring)
{
  int32_t result = 0;
  if (ring_move_writer_by_one (output_ring) != 0) {
    VORN_LOG_ERROR ("oups output");
    result = -1;
  }
  if (ring_move_reader_by_one (input_ring) != 0) {
    VORN_LOG_ERROR ("oups input");
    result = -1;
  }
  if (reference_ring && ring_move_reader_by_one (reference_ring) != 0) {
    VORN_LOG_ERROR ("oups ref input");
    result = -1;
  }
  return result;
}

static uint32_t smaller (uint32_t a, uint32_t b)
{
  return a < b ? a : b;
}

/* How many of the next count samples can be taken as a run: in one piece in every array, with room
 * for all, without references; a multiple of 4, at most MAX_RUN. */
static uint32_t free_run (const ringBuffer_t *input_ring, const ringBuffer_t *reference_ring,
                          const quat_t *reference, const ringBuffer_t *output_ring, uint32_t count)
{
  uint32_t run = ring_run (input_ring, input_ring->rd, smaller (count, MAX_RUN));
  run = smaller (ring_run (output_ring, output_ring->wr, run), ring_room (output_ring));
  if (!reference_ring)
    return run & ~3u;
  run = ring_run (reference_ring, reference_ring->rd, run) & ~3u;
  const quat_t *first = reference + reference_ring->rd;
  for (uint32_t i = 0; i < run; i += 4) {
    const vec4_t zero = vec4_splat (0.0f);
    if (vec4_any ((vec4_load (first + i) != zero) | (vec4_load (first + i + 1) != zero) |
                  (vec4_load (first + i + 2) != zero) | (vec4_load (first + i + 3) != zero)))
      return i;
  }
  return run;
}

/*
 * Only the products depend on each other. The steps are made ready before, so that the chain waits
 * for nothing else; normalising commutes with the products, so it is done beside the chain. The
 * length of a step is within 1e-5 of 1, and a run does not carry it away.
 */
static vec4_t integrate_free_run (vec4_t attitude, const float *x, const float *y, const float *z,
                                  float dt, quat_t *output, uint32_t run)
{
  vec4_t steps[MAX_RUN];
  for (uint32_t i = 0; i < run; i += 4)
    four_step_rotations (x + i, y + i, z + i, dt, steps + i);
  for (uint32_t i = 0; i < run; i += 4) {
    vec4_t four[4];
    for (uint32_t j = 0; j < 4; j++)
      four[j] = attitude = quat_product (attitude, steps[i + j]);
    quat_normalize_four (four);
    for (uint32_t j = 0; j < 4; j++)
      vec4_store (output + i + j, four[j]);
  }
  return vec4_load (output + run - 1);
}

int32_t gyroIntegration (gyroIntegration_t *state, ringBuffer_t *input_ring, const float *x,
                         const float *y, const float *z, ringBuffer_t *reference_ring,
                         const quat_t *reference, ringBuffer_t *output_ring, quat_t *output,
                         float *bias, uint32_t init_stage, float dt, float convergence,
                         float bias_gain)
{
  int32_t result = 0;
  int32_t count = ring_ready (input_ring);
  if (reference_ring && ring_ready (reference_ring) < count)
    count = ring_ready (reference_ring);
  vec4_t attitude = vec4_load (&state->attitude);
  while (count > 0) {
    const uint32_t from = input_ring->rd;
    const uint32_t run =
        count < 4 ? 0
                  : free_run (input_ring, reference_ring, reference, output_ring, (uint32_t)count);
    if (run > 0) {
      attitude = integrate_free_run (attitude, x + from, y + from, z + from, dt,
                                     output + output_ring->wr, run);
      output_ring->wr = ring_advance (output_ring, output_ring->wr, run);
      input_ring->rd = ring_advance (input_ring, from, run);
      if (reference_ring)
        reference_ring->rd = ring_advance (reference_ring, reference_ring->rd, run);
      count -= (int32_t)run;
      continue;
    }
    attitude = quat_product (attitude, step_rotation (x[from], y[from], z[from], dt));
    if (reference_ring) {
      const vec4_t target = vec4_load (reference + reference_ring->rd);
      if (!quat_is_zero (target)) {
        const vec4_t pulled = quat_nlerp (attitude, target, convergence);
        if (init_stage == 0)
          trim_bias (bias, attitude, target, bias_gain);
        attitude = pulled;
      }
    }
    attitude = quat_normalized (attitude);
    vec4_store (output + output_ring->wr, attitude);
    if (move_rings (input_ring, reference_ring, output_ring) != 0)
      result = -1;
    count--;
  }
  vec4_store (&state->attitude, attitude);
  return result;
}
