/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
#include <camangles/exposure_filter.h>

#include <math.h>
#include <stddef.h>

#include <camangles/filters.h>
#include <vorn/log.h>

#include "ring_moves.h"
#include "window_filter.h"

VORN_LOG_TAG ("camangles_exp_filter");

const expFilter_t expFilter_t_init = {
    .minFreqHz = 0.0f,
    .maxFreqHz = 10000.0f,
    .windowSize = 10,
    .lastDuration = -1.0f,
    .a = {0.0f, 0.0f, 0.0f},
    .b = {0.0f, 0.0f, 0.0f},
    .active = false,
    .impzLength = 10,
};

int32_t expFilter_init (expFilter_t *state)
{
  if (!state)
    return -1;
  *state = expFilter_t_init;
  return 0;
}

int32_t expFilter_configure_freqRange (expFilter_t *state, const float range_hz[2])
{
  if (!state || !range_hz)
    return -1;
  state->minFreqHz = range_hz[0];
  state->maxFreqHz = range_hz[1];
  return 0;
}

int32_t expFilter_configure_windowSize (expFilter_t *state, uint32_t window_size)
{
  if (!state || window_size == 0)
    return -1;
  state->windowSize = window_size;
  return 0;
}

/* A failure leaves the stage active, with the coefficients that it has. */
static int32_t design (expFilter_t *state, float duration, float sampling_frequency)
{
  int32_t result = 0;
  state->active = true;
  const float cutoff_hz = fmaxf (state->minFreqHz, 1.0f / (duration + duration));
  if (cutoff_hz > state->maxFreqHz) {
    state->active = false;
  } else {
    float cutoff = normFreq (sampling_frequency, cutoff_hz);
    if (cutoff < 0.007f)
      cutoff = 0.007f;
    if (cutoff > 0.99f)
      state->active = false;
    if (state->active && designIirButter2LowPass (state->a, state->b, cutoff) != 0) {
      VORN_LOG_ERROR ("error, failed to design filter");
      result = -1;
    }
    if (state->active && IitButter2_impzlength (&state->impzLength, cutoff) != 0) {
      VORN_LOG_ERROR ("error, failed to get filter impulse response length");
      result = -1;
    }
  }
  state->lastDuration = duration;
  return result;
}

static int32_t pass_through (ringBuffer_t *input_ring, const float *const input[3],
                             ringBuffer_t *output_ring, float *const output[3])
{
  int complete = input_ring && output_ring;
  for (int axis = 0; axis < 3; axis++)
    complete = complete && input[axis] && output[axis];
  if (!complete) {
    VORN_LOG_ERROR ("error, input and/or output data are NULL");
    return -1;
  }
  int32_t result = 0;
  for (int32_t count = ring_ready (input_ring); count > 0; count--) {
    for (int axis = 0; axis < 3; axis++)
      output[axis][output_ring->wr] = input[axis][input_ring->rd];
    if (ring_move_writer_by_one (output_ring) != 0) {
      VORN_LOG_ERROR ("oups output");
      result = -1;
    }
    if (ring_move_reader_by_one (input_ring) != 0) {
      VORN_LOG_ERROR ("oups input");
      result = -1;
    }
  }
  return result;
}

int32_t expFilter (float duration, float sampling_frequency, expFilter_t *state,
                   ringBuffer_t *input_ring, const float *input_x, const float *input_y,
                   const float *input_z, ringBuffer_t *output_ring, float *output_x,
                   float *output_y, float *output_z)
{
  if (!state) {
    VORN_LOG_ERROR ("error, ctx cannot be null");
    return -1;
  }
  int32_t result = 0;
  if (duration != state->lastDuration)
    result = design (state, duration, sampling_frequency);
  const float *const input[3] = {input_x, input_y, input_z};
  float *const output[3] = {output_x, output_y, output_z};
  const int32_t status =
      state->active
          ? window_filter_three_axes (state->a, state->b, state->windowSize, state->impzLength,
                                      input_ring, input, output_ring, output)
          : pass_through (input_ring, input, output_ring, output);
  return status < 0 ? -1 : result;
}
