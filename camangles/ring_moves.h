/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/*
 * The moves of a ring buffer inlined for the stages' loops. Whatever is refused or overruns goes
 * through the public functions, so that results and log lines are the same.
 */
#ifndef CAMANGLES_RING_MOVES_H
#define CAMANGLES_RING_MOVES_H

#include <camangles/ring_buffer.h>

static inline uint32_t ring_next (const ringBuffer_t *ring, uint32_t slot)
{
  return slot + 1 == ring->size ? 0 : slot + 1;
}

/* slot + offset for offset <= size. */
static inline uint32_t ring_advance (const ringBuffer_t *ring, uint32_t slot, uint32_t offset)
{
  const uint32_t to_end = ring->size - slot;
  return offset < to_end ? slot + offset : offset - to_end;
}

static inline int32_t ring_ready (const ringBuffer_t *ring)
{
  const uint32_t ready = ring->wr - ring->rd;
  return (int32_t)((int32_t)ready >= 0 ? ready : ready + ring->size);
}

/* Samples that fit in before the reader is pushed. */
static inline uint32_t ring_room (const ringBuffer_t *ring)
{
  return ring->size - 1 - (uint32_t)ring_ready (ring);
}

/* Of wanted slots from slot on, those before the end of the arrays. */
static inline uint32_t ring_run (const ringBuffer_t *ring, uint32_t slot, uint32_t wanted)
{
  const uint32_t to_end = ring->size - slot;
  return wanted < to_end ? wanted : to_end;
}

static inline int32_t ring_move_writer_by_one (ringBuffer_t *ring)
{
  const uint32_t next = ring_next (ring, ring->wr);
  if (next == ring->rd)
    return ringBufferMoveWriter (ring, 1);
  ring->wr = next;
  return 0;
}

static inline int32_t ring_move_reader_by_one (ringBuffer_t *ring)
{
  if (ring->rd == ring->wr)
    return ringBufferMoveReader (ring, 1);
  ring->rd = ring_next (ring, ring->rd);
  return 0;
}

/* ringBufferMergeWriter for handles of one size. An overrun leaves the destination full. */
static inline void ring_merge_writer (const ringBuffer_t *source, ringBuffer_t *destination)
{
  const ringBuffer_t lag = {source->size, destination->wr, source->wr};
  const int overrun = ring_ready (destination) + ring_ready (&lag) >= (int32_t)source->size;
  destination->wr = source->wr;
  if (overrun)
    destination->rd = ring_next (destination, destination->wr);
}

/* When exactly one sample is ready, and there is room for it, moves it on. Else 0, and nothing is
 * done. */
static inline int ring_pass_rates (ringBuffer_t *from, const float *from_x, const float *from_y,
                                   const float *from_z, ringBuffer_t *to, float *to_x, float *to_y,
                                   float *to_z)
{
  const uint32_t rd = ring_next (from, from->rd);
  const uint32_t wr = ring_next (to, to->wr);
  if (rd != from->wr || wr == to->rd)
    return 0;
  to_x[to->wr] = from_x[from->rd];
  to_y[to->wr] = from_y[from->rd];
  to_z[to->wr] = from_z[from->rd];
  from->rd = rd;
  to->wr = wr;
  return 1;
}

#endif
