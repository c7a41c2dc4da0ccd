/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * Camera angles: turns raw gyro samples and reference attitudes into camera attitudes.
 *
 * Each sample passes through bias removal, the exposure filter (exposure_filter.h), resampling by a
 * power of two (gyro_resampling.h) and integration (gyro_integration.h). Call cameraAngles_New, the
 * setters at any time, cameraAngles_Feed once for each raw sample in time order, drain the
 * attitudes after each Feed or batch of Feeds, cameraAngles_Close at the end:
 *
 *     cameraAngles_t *context = cameraAngles_New (0, 1000.0f);
 *     ...
 *     cameraAngles_Feed (context, &reference, timestamp, gx, gy, gz, exposure);
 *     while (cameraAngles_GetAngles (context, &attitude, &timestamp) == 0)
 *       ...
 *
 * Units: rad/s, Hz, seconds. Timestamps are carried along unread, in the caller's clock; the value
 * with all bits set marks an interpolated sample. Stages hold samples back: a Feed may give no
 * attitude and a later one several, always in input order. All memory is taken in cameraAngles_New.
 *
 * Results are 0, or -1 on failure, unless said otherwise. Setters and Feed log "error, context is
 * null" for a null context (tag "camangles"), getters return -1 silently. A context is bound to one
 * thread at a time; different contexts are independent of each other.
 *
 * What is not finite is not screened: see gyro_integration.h for what it does to the attitude. It
 * never crashes or hangs. A NaN rate freezes the attitude for its own sample when filter and
 * resampler are idle, and for their windows around it (up to about 20 samples, or window plus two
 * impulse lengths) when they are not.
 */
#ifndef CAMANGLES_CAMERA_ANGLES_H
#define CAMANGLES_CAMERA_ANGLES_H

#include <stdint.h>

#include <camangles/quaternion.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct cameraAngles cameraAngles_t;

/**
 * New context for a resampling factor of 1 << log2_factor (0 to 7) and a gyro rate of fs Hz.
 * Convergence 0.01, bias gain 0, exposure filter 50 to 250 Hz with a window of 10, init stage off,
 * identity attitude. Null, after a log line, for a larger factor ("error, resampling factor too
 * high (current %u != target %u)") or when memory runs out. Free it with cameraAngles_Close.
 */
cameraAngles_t *cameraAngles_New (uint32_t log2_factor, float fs);

/** Frees the context. Null is ignored. */
void cameraAngles_Close (cameraAngles_t *context);

/**
 * Takes one raw sample: rates in rad/s, exposure duration in seconds, reference attitude (null or
 * all-zero: none). Returns 0, or the non-zero OR of the stages' results after logging "error
 * processing data"; the sample has been stored then and feeding may go on. Attitudes that nobody
 * drains are the usual reason: the oldest are dropped.
 */
int32_t cameraAngles_Feed (cameraAngles_t *context, const quat_t *reference, uint64_t timestamp,
                           float gx, float gy, float gz, float exposure_duration);

/** Pops the oldest attitude. Both outputs may be null. -1 when there is none. */
int32_t cameraAngles_GetAngles (cameraAngles_t *context, quat_t *attitude, uint64_t *timestamp);

/**
 * Pops up to *count attitudes and their timestamps (either array may be null) and sets *count to
 * the number popped. -1, with *count as it was, when there is none or *count is below 1.
 */
int32_t cameraAngles_GetAnglesBuffer (cameraAngles_t *context, quat_t *attitudes,
                                      uint64_t *timestamps, int32_t *count);

/** Pops the oldest rates behind the exposure filter, rad/s. Each output may be null. -1 when there
 * is none. */
int32_t cameraAngles_GetFilteredGyro (cameraAngles_t *context, float *x, float *y, float *z,
                                      uint64_t *timestamp);

/** Pops the oldest resampled rates, rad/s. Each output may be null. -1 when there is none. */
int32_t cameraAngles_GetRsGyro (cameraAngles_t *context, float *x, float *y, float *z,
                                uint64_t *timestamp);

/**
 * Share of the way to the reference that the attitude is pulled with each raw sample, in [0, 1];
 * spread evenly over the resampled ones. Others: "error, convergence coeff (%f) out of range [0
 * 1]".
 */
int32_t cameraAngles_setConvergence (cameraAngles_t *context, float coefficient);

/** Non-zero: the bias is learnt as the running mean of the raw rates (keep the camera still). */
int32_t cameraAngles_setGyroInitStage (cameraAngles_t *context, uint32_t stage);

/** Gain of the bias correction from the reference error, per raw sample, 1/s. Not checked. */
int32_t cameraAngles_setBiasGain (cameraAngles_t *context, float gain);

/** Sets the bias to 0 and restarts its running mean. */
int32_t cameraAngles_resetBias (cameraAngles_t *context);

/**
 * Range of the exposure filter's cut-off, Hz: 0 <= min_hz < max_hz. Each check that fails logs its
 * line. Takes effect when the exposure duration next changes.
 */
int32_t cameraAngles_setExpFilterRange (cameraAngles_t *context, float min_hz, float max_hz);

/**
 * Least number of samples that a pass of the exposure filter commits, > 0. Together with the
 * impulse length of the filter it must stay below 1024 or the filter never has enough samples.
 */
int32_t cameraAngles_setExpFilterWindow (cameraAngles_t *context, uint32_t window_size);

#ifdef __cplusplus
}
#endif

#endif
