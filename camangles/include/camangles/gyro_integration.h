/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * Gyro integration: composes an attitude with the small rotation of each resampled sample, pulls it
 * towards a reference attitude where there is one, and trims the gyro bias from the remaining error
 * (a complementary filter; R. Mahony, T. Hamel, J.-M. Pflimlin, "Nonlinear Complementary Filters on
 * the Special Orthogonal Group", 2008, for the idea).
 */
#ifndef CAMANGLES_GYRO_INTEGRATION_H
#define CAMANGLES_GYRO_INTEGRATION_H

#include <stdint.h>

#include <camangles/quaternion.h>
#include <camangles/ring_buffer.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The running attitude: takes body coordinates to the frame of the first attitude or of the
 * references. */
typedef struct {
  quat_t attitude;
} gyroIntegration_t;

/** The identity. */
extern const gyroIntegration_t gyroIntegration_t_init;

/**
 * Integrates as many samples as are ready in the input and, when given, in the reference ring.
 *
 * x, y, z: rates in rad/s in the body frame. reference_ring may be null; an all-zero reference
 * means none for its sample. dt: seconds. convergence in [0, 1]: share of the way to the reference
 * that each sample is pulled; 0 leaves the attitude to the gyro, 1 takes the reference over. bias:
 * rad/s, per axis; while init_stage is 0 each referenced sample takes 2 * bias_gain * (vector part
 * of the rotation from the integrated attitude to the reference) off it. bias may be null, which is
 * logged at each referenced sample outside the init stage.
 *
 * Returns 0, or -1 when a ring move was refused or pushed the output's reader; the loop goes on.
 * Logged under "camangles_gyro_integration": "oups output", "oups input", "oups ref input", "error,
 * bias pointer is null". A NaN rate leaves the attitude as it is for its sample; an infinite one,
 * or a reference that is not finite, makes the attitude NaN for good, and such a reference the bias
 * too.
 *
 * Reentrant; state, handles and arrays are bound to one thread at a time.
 */
int32_t gyroIntegration (gyroIntegration_t *state, ringBuffer_t *input_ring, const float *x,
                         const float *y, const float *z, ringBuffer_t *reference_ring,
                         const quat_t *reference, ringBuffer_t *output_ring, quat_t *output,
                         float *bias, uint32_t init_stage, float dt, float convergence,
                         float bias_gain);

#ifdef __cplusplus
}
#endif

#endif
