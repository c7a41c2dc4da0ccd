/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/*
 * The least that the chain of stages can cost: the same multiply-adds on contiguous arrays, without
 * ring buffers, checks, timestamps, references, step rotations and normalisation.
 */
#ifndef BENCH_CAMANGLES_FLOOR_H
#define BENCH_CAMANGLES_FLOOR_H

#include <stddef.h>
#include <stdint.h>

#include <camangles/quaternion.h>

#ifdef __cplusplus
extern "C" {
#endif

#define FLOOR_MAX_WINDOW 1024

/* One pass of the zero-phase filter over three axes: impulse_length samples to settle, then ready
 * ones forward and back, with the six reflected samples at each end. input has impulse_length +
 * ready + 12 samples, output ready + 6. */
void floor_filter (const float a[3], const float b[3], size_t ready, size_t impulse_length,
                   const float *const input[3], float *const output[3]);

/* The factor outputs of one input sample, three axes; input points at the 20 samples under the
 * taps. */
void floor_resample (size_t factor, const float *const input[3], float *const output[3]);

/* attitude ⊗ step for each of count steps, one after the other. */
void floor_attitudes (quat_t *attitude, const quat_t *steps, quat_t *output, size_t count);

#ifdef __cplusplus
}
#endif

#endif
