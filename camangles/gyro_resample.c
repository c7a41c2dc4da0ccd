/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
#include <camangles/gyro_resampling.h>

#include <stddef.h>

#include <vorn/log.h>

#include "ring_moves.h"
#include "three_axis_resample.h"

VORN_LOG_TAG ("camangles_gyro_resample");

/* The timestamps of one input sample's outputs. Non-zero when a move was refused. */
static int write_timestamps (ringBuffer_t *ring, uint64_t *timestamps, uint64_t first,
                             uint32_t factor)
{
  if (ring_room (ring) >= factor && ring_run (ring, ring->wr, factor) == factor) {
    uint64_t *out = timestamps + ring->wr;
    out[0] = first;
    for (uint32_t j = 1; j < factor; j++)
      out[j] = CAMANGLES_NO_TIMESTAMP;
    ring->wr = ring_advance (ring, ring->wr, factor);
    return 0;
  }
  int refused = 0;
  for (uint32_t j = 0; j < factor; j++) {
    timestamps[ring->wr] = j == 0 ? first : CAMANGLES_NO_TIMESTAMP;
    if (ring_move_writer_by_one (ring) != 0) {
      VORN_LOG_ERROR ("oups output");
      refused = 1;
    }
  }
  return refused;
}

int32_t gyroResample (ringBuffer_t *input_ring, const float *input_x, const float *input_y,
                      const float *input_z, const uint64_t *input_timestamps,
                      ringBuffer_t *output_ring, float *output_x, float *output_y, float *output_z,
                      uint64_t *output_timestamps, uint32_t log2_factor)
{
  if (!input_ring || !output_ring || !input_timestamps || !output_timestamps) {
    VORN_LOG_ERROR ("error, input and/or output data are NULL");
    return 0;
  }
  if (log2_factor > 7) {
    VORN_LOG_ERROR ("error, log2 of the resampling factor (%u) out of range [0 7]", log2_factor);
    return 0;
  }
  const float *const inputs[3] = {input_x, input_y, input_z};
  float *const outputs[3] = {output_x, output_y, output_z};
  const uint32_t factor = 1u << log2_factor;
  int32_t count = -1;
  if (factor > 1)
    count = resample_three_axes (input_ring, inputs, output_ring, outputs, factor);
  if (count < 0) {
    /* On copies: all axes see the same window, and no handle moves before the timestamps are
     * written. */
    const int32_t q = (int32_t)resample_ringBuffer_getQ ((float)factor);
    for (int axis = 0; axis < 3; axis++) {
      ringBuffer_t input_copy = *input_ring;
      ringBuffer_t output_copy = *output_ring;
      count = resample_ringBuffer (&input_copy, inputs[axis], &output_copy, outputs[axis], q);
    }
  }
  int stop = 0;
  for (int32_t i = 0; i < count && !stop; i++) {
    stop =
        write_timestamps (output_ring, output_timestamps, input_timestamps[input_ring->rd], factor);
    if (ring_move_reader_by_one (input_ring) != 0) {
      VORN_LOG_ERROR ("oups input");
      stop = 1;
    }
  }
  return 0;
}
