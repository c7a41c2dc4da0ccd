/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
#include "window_filter.h"

#include <alloca.h>
#include <stddef.h>

#include <vorn/log.h>

#include "ring_moves.h"
#include "vec4.h"

VORN_LOG_TAG ("camangles_window_filt");

/* Scratch space comes from the stack; windows beyond this are refused (1 MiB). */
#define MAX_SCRATCH_SAMPLES 65536

/* One sample of up to three axes. The recursion is bound by its latency, not by its width: three
 * axes side by side cost what one does. */
typedef struct {
  int32_t order;
  const float *a;
  const float *b;
  uint32_t impulse_length;
  uint32_t ready;
  const ringBuffer_t *input_ring;
  const float *input[3];
  const ringBuffer_t *output_ring;
  float *output[3];
  int axes; /* 1 or 3; with 1 all three pointers are the same */
} pass_t;

int32_t filt_init (const float *b, const float *a, int32_t order, float *z)
{
  if (!b || !a || !z || order < 2)
    return -1;
  float sum_a = 1.0f;
  float numerator = 0.0f;
  for (int32_t k = 1; k <= order; k++) {
    sum_a += a[k];
    numerator += b[k] - a[k] * b[0];
  }
  z[0] = numerator / sum_a;
  z[order - 1] = b[order] - b[0] * a[order] - z[0] * a[order];
  for (int32_t i = order - 2; i >= 1; i--)
    z[i] = b[i + 1] - b[0] * a[i + 1] - a[i + 1] * z[0] + z[i + 1];
  return 0;
}

float filt (filt_t *state, float input)
{
  const uint32_t order = (uint32_t)state->order;
  float w = input;
  float sum = 0.0f;
  for (uint32_t k = 0; k < order; k++) {
    /* Beyond the end of the delay line every tap reads z[0]. */
    const float delayed = state->idx + k < order ? state->z[state->idx + k] : state->z[0];
    w -= state->a[k + 1] * delayed;
    sum += state->b[k + 1] * delayed;
  }
  state->idx = state->idx == 0 ? order - 1 : state->idx - 1;
  state->z[state->idx] = w;
  return state->b[0] * w + sum;
}

static vec4_t load (const pass_t *pass, uint32_t slot)
{
  return (vec4_t){pass->input[0][slot], pass->input[1][slot], pass->input[2][slot], 0.0f};
}

static void store (const pass_t *pass, uint32_t slot, vec4_t value)
{
  for (int axis = 0; axis < pass->axes; axis++)
    pass->output[axis][slot] = value[axis];
}

/* The slot offset samples after (or before) the reader. At most one turn away by the checks of run.
 */
static uint32_t input_slot (const pass_t *pass, int64_t offset)
{
  const int64_t size = pass->input_ring->size;
  const int64_t slot = pass->input_ring->rd + offset;
  return (uint32_t)(slot < 0 ? slot + size : slot >= size ? slot - size : slot);
}

/* 2 * around - sample, the odd reflection. */
static vec4_t reflect (vec4_t around, vec4_t sample)
{
  return around + around - sample;
}

/* Delay line of order 2 in registers, newest first. The sums keep the order that filt has. */
typedef struct {
  vec4_t a1, a2, b0, b1, b2;
  vec4_t newest, oldest;
} biquad_t;

static biquad_t biquad (const pass_t *pass, const float z[2], vec4_t scale)
{
  const float *a = pass->a;
  const float *b = pass->b;
  return (biquad_t){vec4_splat (a[1]),        vec4_splat (a[2]), vec4_splat (b[0]),
                    vec4_splat (b[1]),        vec4_splat (b[2]), scale * vec4_splat (z[0]),
                    scale * vec4_splat (z[1])};
}

static inline vec4_t biquad_step (biquad_t *f, vec4_t input)
{
  const vec4_t w = input - f->a1 * f->newest - f->a2 * f->oldest;
  const vec4_t output = f->b0 * w + (f->b1 * f->newest + f->b2 * f->oldest);
  f->oldest = f->newest;
  f->newest = w;
  return output;
}

static void run_order_2 (const pass_t *pass, vec4_t *scratch)
{
  const int64_t ready = pass->ready;
  const int64_t padding = 6;
  float z[2] = {0.0f, 0.0f};
  filt_init (pass->b, pass->a, 2, z);

  const vec4_t first = load (pass, pass->input_ring->rd);
  vec4_t u = reflect (first, load (pass, input_slot (pass, padding)));
  biquad_t forward = biquad (pass, z, u);
  for (int64_t k = padding; k >= 1; k--) {
    u = reflect (first, load (pass, input_slot (pass, k)));
    biquad_step (&forward, u);
  }

  uint32_t slot = input_slot (pass, -(int64_t)pass->impulse_length);
  for (int64_t i = 0; i < pass->impulse_length; i++) {
    biquad_step (&forward, load (pass, slot));
    slot = ring_next (pass->input_ring, slot);
  }
  for (int64_t i = 0; i < ready; i++) {
    scratch[i] = biquad_step (&forward, load (pass, slot));
    slot = ring_next (pass->input_ring, slot);
  }
  const vec4_t last = load (pass, input_slot (pass, ready - 1));
  for (int64_t j = 1; j <= padding; j++) {
    u = reflect (last, load (pass, input_slot (pass, ready - 1 - j)));
    scratch[ready - 1 + j] = biquad_step (&forward, u);
  }

  biquad_t backward = biquad (pass, z, u);
  const int64_t turn = pass->output_ring->size;
  int64_t k = ready + padding - 1;
  for (; k >= turn; k--)
    biquad_step (&backward, scratch[k]);
  for (; k >= 0; k--)
    store (pass, ring_advance (pass->output_ring, pass->output_ring->wr, (uint32_t)k),
           biquad_step (&backward, scratch[k]));
}

/* Any order, one axis, through the circular delay line of filt. */
static void run_any_order (const pass_t *pass, float *scratch, float *z)
{
  const int64_t order = pass->order;
  const int64_t ready = pass->ready;
  const int64_t padding = 3 * order;
  const float *input = pass->input[0];
  filt_t state = {pass->a, pass->b, pass->order, 0, z};

  z[0] = 0.0f;
  if (order >= 2)
    filt_init (pass->b, pass->a, pass->order, z);
  const float first = input[pass->input_ring->rd];
  float u = 0.0f;
  for (int64_t k = padding; k >= 1; k--) {
    u = first + first - input[input_slot (pass, k)];
    for (int64_t i = 0; k == padding && i < order; i++)
      z[i] *= u;
    filt (&state, u);
  }
  for (int64_t i = -(int64_t)pass->impulse_length; i < ready; i++) {
    const float value = filt (&state, input[input_slot (pass, i)]);
    if (i >= 0)
      scratch[i] = value;
  }
  const float last = input[input_slot (pass, ready - 1)];
  for (int64_t j = 1; j <= padding; j++) {
    u = last + last - input[input_slot (pass, ready - 1 - j)];
    scratch[ready - 1 + j] = filt (&state, u);
  }

  state.idx = 0;
  z[0] = 0.0f;
  if (order >= 2)
    filt_init (pass->b, pass->a, pass->order, z);
  for (int64_t i = 0; i < order; i++)
    z[i] *= u;
  for (int64_t k = ready + padding - 1; k >= 0; k--) {
    const float value = filt (&state, scratch[k]);
    if (k < pass->output_ring->size)
      pass->output[0][ring_advance (pass->output_ring, pass->output_ring->wr, (uint32_t)k)] = value;
  }
}

static int32_t refuse_kernel (int32_t order, uint32_t size)
{
  VORN_LOG_ERROR ("error, filter kernel is too larger (%d) compared to input buffer size (%u)",
                  order, size);
  return -1;
}

static int has_window (const ringBuffer_t *input_ring, uint32_t window_size,
                       uint32_t impulse_length)
{
  const int64_t ready = ring_ready (input_ring);
  return ready > 0 && ready >= (int64_t)window_size + (int64_t)impulse_length;
}

/* The reflections reach 3 * order samples away from the reader and may not pass a whole turn. */
static int reflections_fit (const ringBuffer_t *input_ring, int64_t order)
{
  return 3 * order <= (int64_t)input_ring->size;
}

static int scratch_fits (const ringBuffer_t *input_ring, int64_t order)
{
  return ring_ready (input_ring) + 3 * order <= MAX_SCRATCH_SAMPLES;
}

static void commit (ringBuffer_t *input_ring, ringBuffer_t *output_ring, uint32_t count)
{
  if (ringBufferMoveWriter (output_ring, count) != 0)
    VORN_LOG_ERROR ("oups output");
  if (ringBufferMoveReader (input_ring, count) != 0)
    VORN_LOG_ERROR ("oups input");
}

int32_t windowFiltFilt_filter (int32_t order, const float *a, const float *b, uint32_t window_size,
                               uint32_t impulse_length, ringBuffer_t *input_ring,
                               const float *input, ringBuffer_t *output_ring, float *output)
{
  if (!input_ring || !input || !output_ring || !output || !a || !b) {
    VORN_LOG_ERROR ("error, input and/or output data are NULL");
    return -1;
  }
  if ((int64_t)input_ring->size <= (int64_t)order + 1)
    return refuse_kernel (order, input_ring->size);
  if (order < 1) {
    VORN_LOG_ERROR ("error, filter order (%d) must be > 0", order);
    return -1;
  }
  if (!has_window (input_ring, window_size, impulse_length))
    return 0;
  if (!reflections_fit (input_ring, order))
    return refuse_kernel (order, input_ring->size);
  if (!scratch_fits (input_ring, order)) {
    VORN_LOG_ERROR ("error, a window of %d samples does not fit the scratch space (%d)",
                    ring_ready (input_ring), MAX_SCRATCH_SAMPLES);
    return -1;
  }
  const uint32_t ready = (uint32_t)ring_ready (input_ring);
  const pass_t pass = {.order = order,
                       .a = a,
                       .b = b,
                       .impulse_length = impulse_length,
                       .ready = ready,
                       .input_ring = input_ring,
                       .input = {input, input, input},
                       .output_ring = output_ring,
                       .output = {output, output, output},
                       .axes = 1};
  const size_t scratch_samples = ready + 3 * (size_t)order;
  if (order == 2)
    run_order_2 (&pass, alloca (scratch_samples * sizeof (vec4_t)));
  else
    run_any_order (&pass, alloca (scratch_samples * sizeof (float)),
                   alloca ((size_t)order * sizeof (float)));
  commit (input_ring, output_ring, ready - impulse_length);
  return 0;
}

static int32_t filter_one_by_one (const float *a, const float *b, uint32_t window_size,
                                  uint32_t impulse_length, ringBuffer_t *input_ring,
                                  const float *const input[3], ringBuffer_t *output_ring,
                                  float *const output[3])
{
  int32_t result = 0;
  for (int axis = 0; axis < 3; axis++) {
    ringBuffer_t input_copy = input_ring ? *input_ring : (ringBuffer_t){0, 0, 0};
    ringBuffer_t output_copy = output_ring ? *output_ring : (ringBuffer_t){0, 0, 0};
    const int real = axis == 2 || !input_ring || !output_ring;
    if (windowFiltFilt_filter (2, a, b, window_size, impulse_length,
                               real ? input_ring : &input_copy, input[axis],
                               real ? output_ring : &output_copy, output[axis]) < 0)
      result = -1;
  }
  return result;
}

int32_t window_filter_three_axes (const float *a, const float *b, uint32_t window_size,
                                  uint32_t impulse_length, ringBuffer_t *input_ring,
                                  const float *const input[3], ringBuffer_t *output_ring,
                                  float *const output[3])
{
  int complete = input_ring && output_ring && a && b;
  for (int axis = 0; axis < 3; axis++)
    complete = complete && input[axis] && output[axis];
  const int64_t order = 2;
  if (!complete || !reflections_fit (input_ring, order) || !scratch_fits (input_ring, order))
    return filter_one_by_one (a, b, window_size, impulse_length, input_ring, input, output_ring,
                              output);
  if (!has_window (input_ring, window_size, impulse_length))
    return 0;
  const pass_t pass = {.order = 2,
                       .a = a,
                       .b = b,
                       .impulse_length = impulse_length,
                       .ready = (uint32_t)ring_ready (input_ring),
                       .input_ring = input_ring,
                       .input = {input[0], input[1], input[2]},
                       .output_ring = output_ring,
                       .output = {output[0], output[1], output[2]},
                       .axes = 3};
  run_order_2 (&pass, alloca ((pass.ready + 3 * (size_t)order) * sizeof (vec4_t)));
  for (int axis = 0; axis < 2; axis++) {
    ringBuffer_t input_copy = *input_ring;
    ringBuffer_t output_copy = *output_ring;
    commit (&input_copy, &output_copy, pass.ready - impulse_length);
  }
  commit (input_ring, output_ring, pass.ready - impulse_length);
  return 0;
}
