/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
#include <camangles/filters.h>

#include <math.h>
#include <stddef.h>

#include <vorn/log.h>

#include "ring_moves.h"

VORN_LOG_TAG ("camangles_fir_filt");

float normFreq (float sampling_frequency, float frequency)
{
  if (sampling_frequency < 0.0f) {
    VORN_LOG_ERROR ("error, sampling frequency cannot be negative");
    return -1.0f;
  }
  if (frequency < 0.0f) {
    VORN_LOG_ERROR ("error, frequency cannot be negative");
    return -1.0f;
  }
  return (frequency + frequency) / sampling_frequency;
}

int32_t designFirLowPass (double *kernel, uint32_t order, float cutoff)
{
  int32_t result = 0;
  if (!kernel) {
    VORN_LOG_ERROR ("error, kernel is null");
    result = -1;
  }
  if (order == 0) {
    VORN_LOG_ERROR ("error, order cannot be null");
    result = -1;
  }
  if (!(cutoff > 0.0f && cutoff < 1.0f)) {
    VORN_LOG_ERROR ("error, Fcut (%f) out of range ]0,1[", (double)cutoff);
    result = -1;
  }
  if (result != 0)
    return result;
  const double pi = 3.14159265358979323846;
  const uint32_t half = order / 2;
  for (uint32_t n = 0; n < half; n++) {
    const double m = (double)n - half;
    const double window = 0.54 - 0.46 * cos (2 * pi * n / order);
    const double value = sin (2 * pi * (double)cutoff * m) / (pi * m) * window;
    kernel[n] = value;
    kernel[order - n] = value;
  }
  if (order % 2 == 0)
    kernel[half] = (double)(2.0f * cutoff);
  return 0;
}

int32_t firFilt (ringBuffer_t *input_ring, const float *input, ringBuffer_t *output_ring,
                 float *output, const double *kernel, uint32_t kernel_length)
{
  if (!input_ring || !input || !output_ring || !output || !kernel) {
    VORN_LOG_ERROR ("error, input and/or output data are NULL");
    return -1;
  }
  if (input_ring->size <= kernel_length) {
    VORN_LOG_ERROR ("error, filter kernel is too larger (%u) compared to input buffer size (%u)",
                    kernel_length, input_ring->size);
    return -1;
  }
  const int32_t half = (int32_t)(kernel_length / 2);
  const int32_t count = ring_ready (input_ring) - half;
  for (int32_t n = 0; n < count; n++) {
    double sum = 0.0;
    int32_t lost = 0;
    for (int32_t k = 0; k < (int32_t)kernel_length && !lost; k++) {
      const int32_t wanted = (int32_t)(input_ring->rd + (uint32_t)k - (uint32_t)half);
      const int32_t slot = ringBufferWrapIndex (input_ring, wanted);
      if (slot < 0) {
        VORN_LOG_ERROR ("unexpected error, can't access input sample want %u (rd %u wr %u sz %u)",
                        (unsigned)wanted, input_ring->rd, input_ring->wr, input_ring->size);
        lost = 1;
      } else {
        sum += (double)input[slot] * kernel[k];
      }
    }
    if (ringBufferMoveReader (input_ring, 1) != 0)
      VORN_LOG_ERROR ("oups reader");
    output[output_ring->wr] = (float)sum;
    if (ringBufferMoveWriter (output_ring, 1) != 0)
      VORN_LOG_ERROR ("oups writer");
    if (lost)
      return -1;
  }
  return count > 0 ? count : 0;
}
