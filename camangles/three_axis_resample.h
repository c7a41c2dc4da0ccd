/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
#ifndef CAMANGLES_THREE_AXIS_RESAMPLE_H
#define CAMANGLES_THREE_AXIS_RESAMPLE_H

#include <camangles/gyro_resampling.h>

/*
 * What three calls of resample_ringBuffer on copies of the handles write, for a factor of 2, 4, ...
 * 128; moves nothing. Returns the number of input samples taken. -1 when a move would be refused,
 * history is lost or an argument is wrong: resample_ringBuffer is the one to deal with that then.
 */
int32_t resample_three_axes (const ringBuffer_t *input_ring, const float *const inputs[3],
                             const ringBuffer_t *output_ring, float *const outputs[3],
                             uint32_t factor);

#endif
