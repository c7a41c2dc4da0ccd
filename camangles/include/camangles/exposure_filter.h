/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * Exposure filter: zero-phase low-pass of the gyro axes whose cut-off follows the exposure time,
 * 1 / (2 * duration), within a frequency range. A cut-off above the range passes samples unchanged.
 *
 * The design is redone only when the duration changes; a new range takes effect then, a new window
 * size at the next pass. All functions are reentrant, a state is bound to one thread at a time.
 * Errors are logged under "camangles_exp_filter"; results are 0, or -1 on failure.
 */
#ifndef CAMANGLES_EXPOSURE_FILTER_H
#define CAMANGLES_EXPOSURE_FILTER_H

#include <stdbool.h>
#include <stdint.h>

#include <camangles/ring_buffer.h>

#ifdef __cplusplus
extern "C" {
#endif

/** State of the stage. */
typedef struct {
  float minFreqHz;     /**< lower bound of the cut-off; lower ones are raised to it */
  float maxFreqHz;     /**< a cut-off above it bypasses the filter */
  uint32_t windowSize; /**< least number of samples that one pass commits */
  float lastDuration;  /**< duration of the previous call, seconds; -1 before the first */
  float a[3];          /**< Butterworth denominator */
  float b[3];          /**< Butterworth numerator */
  bool active;         /**< filtering, else passing through */
  uint32_t impzLength; /**< impulse-response length of the design, samples */
} expFilter_t;

/** Range 0 to 10000 Hz, window 10, last duration -1, impulse length 10, not active. */
extern const expFilter_t expFilter_t_init;

/** Copies expFilter_t_init into the state. -1 for null. */
int32_t expFilter_init (expFilter_t *state);

/** Stores {minimum, maximum} in Hz, unchecked. -1 for a null pointer. */
int32_t expFilter_configure_freqRange (expFilter_t *state, const float range_hz[2]);

/** Stores the window size. -1 for null or 0. */
int32_t expFilter_configure_windowSize (expFilter_t *state, uint32_t window_size);

/**
 * Takes what is ready in the input through the stage. duration in seconds (exposure time),
 * sampling_frequency in Hz. Active, it waits for windowSize + impzLength samples and holds back the
 * last impzLength (windowFiltFilt_filter); passing through, nothing is held back. A duration of NaN
 * acts as an endless one and is designed for anew with each call; a duration equal to lastDuration,
 * also the -1 of a fresh state, keeps design and mode.
 */
int32_t expFilter (float duration, float sampling_frequency, expFilter_t *state,
                   ringBuffer_t *input_ring, const float *input_x, const float *input_y,
                   const float *input_z, ringBuffer_t *output_ring, float *output_x,
                   float *output_y, float *output_z);

#ifdef __cplusplus
}
#endif

#endif
