/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
#ifndef CAMANGLES_WINDOW_FILTER_H
#define CAMANGLES_WINDOW_FILTER_H

#include <camangles/filters.h>

/*
 * windowFiltFilt_filter with order 2 over three axes at once: the same results, log lines and moves
 * as three calls of it, the first two on copies of the handles. -1 when any of the three would
 * fail.
 */
int32_t window_filter_three_axes (const float *a, const float *b, uint32_t window_size,
                                  uint32_t impulse_length, ringBuffer_t *input_ring,
                                  const float *const input[3], ringBuffer_t *output_ring,
                                  float *const output[3]);

#endif
