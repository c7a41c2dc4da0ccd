/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * Filter design and filtering over ring buffers: second-order Butterworth low-pass, a table of its
 * impulse-response lengths, a direct-form step, zero-phase filtering of a stream in overlapping
 * windows, and a windowed-sinc FIR.
 *
 * Normalised frequencies are fractions of the Nyquist frequency (1.0 = half the sampling rate),
 * except in designFirLowPass. All functions are reentrant; states, handles and arrays are bound to
 * one thread at a time. Results are 0 on success and -1 on failure unless said otherwise. Errors
 * are logged under "camangles_window_filt", those of normFreq, designFirLowPass and firFilt under
 * "camangles_fir_filt".
 */
#ifndef CAMANGLES_FILTERS_H
#define CAMANGLES_FILTERS_H

#include <stdint.h>

#include <camangles/ring_buffer.h>

#ifdef __cplusplus
extern "C" {
#endif

/** State of one run of an IIR filter. */
typedef struct {
  const float *a; /**< denominator a0 = 1 ... aN */
  const float *b; /**< numerator b0 ... bN */
  int32_t order;  /**< N >= 1 */
  uint32_t idx;   /**< start of the circular delay line, below N */
  float *z;       /**< delay line, N values */
} filt_t;

/**
 * Second-order Butterworth low-pass by the bilinear transform with pre-warping (A. V. Oppenheim,
 * R. W. Schafer, "Discrete-Time Signal Processing"): a = {1, a1, a2}, b = {b0, b1, b2}. cutoff in
 * ]0, 1[, anything else is refused.
 */
int32_t designIirButter2LowPass (float a[3], float b[3], float cutoff);

/**
 * Looks up after how many samples the impulse response of that low-pass has decayed to 5e-5. cutoff
 * in [0.001, 0.999]. The grid has a step of 0.0001 and the lookup lands up to one row above the
 * nearest grid point.
 */
int32_t IitButter2_impzlength (uint32_t *length, float cutoff);

/**
 * Fills the delay line z (order values, order >= 2) of a run that begins on a unit step. The values
 * are those of the transposed direct form; the direct form of filt settles from them within one
 * impulse length. -1 for a null pointer or a smaller order.
 */
int32_t filt_init (const float *b, const float *a, int32_t order, float *z);

/**
 * One direct-form II step: takes the input, returns the output, advances the state. The delay line
 * wraps for orders 1 and 2; in a higher order every tap beyond its end reads z[0].
 */
float filt (filt_t *state, float input);

/**
 * Zero-phase (forward-backward) filtering of a stream in overlapping windows, with odd reflections
 * of 3 * order samples at both ends (F. Gustafsson, "Determining the initial states in
 * forward-backward filtering", 1996, for the idea).
 *
 * Does nothing and returns 0 until window_size + impulse_length samples are ready in the input.
 * Then all ready samples are filtered, the forward run starting impulse_length samples before the
 * reader; all but the last impulse_length outputs are committed (output writer and input reader
 * move by ready - impulse_length). The slots behind the committed ones receive provisional outputs,
 * ready + 3 * order in all from the writer on and at most one turn of the ring: a cursor that lags
 * by more than what is left of the ring reads those. Refused moves are logged ("oups output", "oups
 * input") and do not stop a pass. Scratch space is on the stack, 16 bytes for each ready sample.
 */
int32_t windowFiltFilt_filter (int32_t order, const float *a, const float *b, uint32_t window_size,
                               uint32_t impulse_length, ringBuffer_t *input_ring,
                               const float *input, ringBuffer_t *output_ring, float *output);

/**
 * frequency as a fraction of the Nyquist frequency of sampling_frequency (both Hz), or -1.0 when
 * either is negative.
 */
float normFreq (float sampling_frequency, float frequency);

/**
 * Hamming-windowed sinc low-pass of order + 1 taps. cutoff is in cycles per sample here, in ]0, 1[.
 * order > 0; when it is odd the two middle taps are left as they are.
 */
int32_t designFirLowPass (double *kernel, uint32_t order, float cutoff);

/**
 * Centred FIR filter over a ring buffer: consumes all but the last kernel_length / 2 ready samples
 * and produces one output for each. Returns the number of samples produced, or -1.
 */
int32_t firFilt (ringBuffer_t *input_ring, const float *input, ringBuffer_t *output_ring,
                 float *output, const double *kernel, uint32_t kernel_length);

#ifdef __cplusplus
}
#endif

#endif
