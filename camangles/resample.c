/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
#include <camangles/gyro_resampling.h>

#include <stddef.h>

#include <vorn/log.h>

#include "ring_moves.h"
#include "tables.h"

VORN_LOG_TAG ("camangles_resample_c");

#define PHASES KAISER_SINC_PHASES
#define TAPS KAISER_SINC_TAPS
/* Of the taps, this many weigh samples before the one at or before the output's position. */
#define TAPS_BEHIND 9

uint32_t resample_ringBuffer_getQ (float factor)
{
  if (!(factor > 0.0f))
    return 0;
  const double q = (double)(PHASES / factor) + 0.5;
  if (q >= (double)UINT32_MAX)
    return UINT32_MAX;
  return q < 1.0 ? 1 : (uint32_t)q;
}

static void move_writer (ringBuffer_t *ring)
{
  if (ring_move_writer_by_one (ring) != 0)
    VORN_LOG_ERROR ("oups writer");
}

static int32_t copy_samples (ringBuffer_t *input_ring, const float *input,
                             ringBuffer_t *output_ring, float *output)
{
  const int32_t ready = ring_ready (input_ring);
  for (int32_t i = 0; i < ready; i++) {
    output[output_ring->wr] = input[input_ring->rd];
    move_writer (output_ring);
    if (ring_move_reader_by_one (input_ring) != 0)
      VORN_LOG_ERROR ("oups reader");
  }
  return ready;
}

/* The sum over the taps around the input sample at, which may lie in the second turn of the ring.
 */
static float interpolate (const ringBuffer_t *ring, const float *input, int64_t at, size_t phase)
{
  const int64_t size = ring->size;
  float sum = 0.0f;
  for (int64_t k = 0; k < TAPS; k++) {
    int64_t slot = at - TAPS_BEHIND + k;
    if (slot >= size)
      slot -= size;
    else if (slot < 0)
      slot += size;
    sum += input[slot] * KaiserSinc[phase][k];
  }
  return sum;
}

/* The history behind the reader is overwritten when the ring is nearly full. */
static int history_is_lost (const ringBuffer_t *ring, int64_t at)
{
  return at - TAPS_BEHIND < (int64_t)ring->wr && at + 11 < (int64_t)ring->wr + (int64_t)ring->size;
}

static void log_lost_history (const ringBuffer_t *ring, int64_t at)
{
  VORN_LOG_ERROR ("should no happen ii [%d %d] out  [%d %d[ (ring buffer (rd %u wr %u sz %u]",
                  (int)(at - TAPS_BEHIND), (int)(at + 11), (int)ring->wr,
                  (int)(ring->wr + ring->size), ring->rd, ring->wr, ring->size);
}

int32_t resample_ringBuffer (ringBuffer_t *input_ring, const float *input,
                             ringBuffer_t *output_ring, float *output, int32_t q)
{
  if (!input_ring || !input || !output_ring || !output) {
    VORN_LOG_ERROR ("error, input and/or output data are NULL");
    return -1;
  }
  if (input_ring->size < TAPS) {
    VORN_LOG_ERROR ("error, input data buffer too small");
    return -1;
  }
  if (q <= 0) {
    VORN_LOG_ERROR ("error, Q must be > 0");
    return -1;
  }
  if (q == PHASES)
    return copy_samples (input_ring, input, output_ring, output);
  const int32_t count = ring_ready (input_ring) - CAMANGLES_RESAMPLE_LOOK_AHEAD;
  if (count < 1)
    return 0;
  /* In the second turn, so that the taps behind the reader seldom fall below slot 0. */
  int64_t begin = input_ring->rd;
  if (input_ring->rd < input_ring->wr)
    begin += input_ring->size;
  const int64_t end = begin + count;
  for (int64_t position = begin * PHASES; position < end * PHASES; position += q) {
    const int64_t at = position / PHASES;
    if (history_is_lost (input_ring, at))
      log_lost_history (input_ring, at);
    output[output_ring->wr] = interpolate (input_ring, input, at, (size_t)(position % PHASES));
    move_writer (output_ring);
  }
  if (ringBufferMoveReader (input_ring, (uint32_t)count) != 0)
    VORN_LOG_ERROR ("oups reader (nb input samples to process %d", count);
  return count;
}
