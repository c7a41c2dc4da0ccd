/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * Gyro resampling: raises the rate of a stream by a power of two up to 128 with a polyphase
 * Kaiser-windowed sinc (20 taps, 128 phases, beta 5; R. E. Crochiere, L. R. Rabiner, "Multirate
 * Digital Signal Processing") and carries the timestamps along.
 *
 * Positions count 1/128 of an input sample; q is the step between two outputs, 128 / factor. All
 * functions are reentrant; handles and arrays are bound to one thread at a time.
 */
#ifndef CAMANGLES_GYRO_RESAMPLING_H
#define CAMANGLES_GYRO_RESAMPLING_H

#include <stdint.h>

#include <camangles/ring_buffer.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Timestamp of a sample that coincides with no input sample. */
#define CAMANGLES_NO_TIMESTAMP UINT64_MAX

/** Input samples that a factor above 1 holds back as look-ahead. */
#define CAMANGLES_RESAMPLE_LOOK_AHEAD 10

/** The step for a factor: 0 unless factor > 0, else 128 / factor rounded, at least 1, at most
 * UINT32_MAX. */
uint32_t resample_ringBuffer_getQ (float factor);

/**
 * Resamples one axis. q = 128 copies all ready samples. Any other q > 0 interpolates around all but
 * the last 10 ready samples, which stay as look-ahead; it also needs the 9 samples behind the
 * reader to be in the array still. Returns the number of input samples consumed, or -1 after an
 * error line (tag "camangles_resample_c") for null pointers, an input ring below 20, or a q that is
 * not positive. Refused or overrunning moves are logged as "oups writer" and "oups reader" and do
 * not stop it.
 */
int32_t resample_ringBuffer (ringBuffer_t *input_ring, const float *input,
                             ringBuffer_t *output_ring, float *output, int32_t q);

/**
 * Resamples three axes and the timestamps by 1 << log2_factor. An input timestamp goes to the first
 * of its outputs, the others get CAMANGLES_NO_TIMESTAMP. Always 0; refused moves are logged as
 * "oups output" and "oups input" (tag "camangles_gyro_resample") and end the call after the sample
 * at hand. A log2_factor above 7 is refused with an error line and nothing moves.
 */
int32_t gyroResample (ringBuffer_t *input_ring, const float *input_x, const float *input_y,
                      const float *input_z, const uint64_t *input_timestamps,
                      ringBuffer_t *output_ring, float *output_x, float *output_y, float *output_z,
                      uint64_t *output_timestamps, uint32_t log2_factor);

#ifdef __cplusplus
}
#endif

#endif
