/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
#include <camangles/camera_angles.h>

#include <stddef.h>
#include <stdlib.h>

#include <camangles/gyro_resampling.h>
#include <vorn/log.h>

#include "context.h"
#include "integration_step.h"
#include "ring_moves.h"

VORN_LOG_TAG ("camangles");

static int32_t refuse_null (void)
{
  VORN_LOG_ERROR ("error, context is null");
  return -1;
}

static int allocate_arrays (cameraAngles_t *context)
{
  const size_t raw = CAMANGLES_RAW_SIZE;
  const size_t resampled = raw * context->factor;
  float **const raw_axes[] = {&context->rawX,  &context->rawY,  &context->rawZ,
                              &context->filtX, &context->filtY, &context->filtZ};
  float **const resampled_axes[] = {&context->rsX, &context->rsY, &context->rsZ};
  int complete = 1;
  for (size_t i = 0; i < sizeof raw_axes / sizeof *raw_axes; i++)
    complete &= (*raw_axes[i] = calloc (raw, sizeof (float))) != NULL;
  for (size_t i = 0; i < sizeof resampled_axes / sizeof *resampled_axes; i++)
    complete &= (*resampled_axes[i] = calloc (resampled, sizeof (float))) != NULL;
  complete &= (context->rawTs = calloc (raw, sizeof (uint64_t))) != NULL;
  complete &= (context->rsTs = calloc (resampled, sizeof (uint64_t))) != NULL;
  complete &= (context->refQuat = calloc (resampled, sizeof (quat_t))) != NULL;
  complete &= (context->angleQuat = calloc (resampled, sizeof (quat_t))) != NULL;
  return complete;
}

cameraAngles_t *cameraAngles_New (uint32_t log2_factor, float fs)
{
  cameraAngles_t *context = calloc (1, sizeof *context);
  if (!context) {
    VORN_LOG_ERROR ("error, failed to alloc context");
    return NULL;
  }
  const uint64_t wanted = log2_factor < 32 ? UINT64_C (1) << log2_factor : UINT32_MAX;
  context->q = resample_ringBuffer_getQ ((float)wanted);
  context->factor = 128 / context->q;
  if (context->factor != wanted) {
    VORN_LOG_ERROR ("error, resampling factor too high (current %u != target %u)", context->factor,
                    (unsigned)wanted);
    free (context);
    return NULL;
  }
  context->log2Factor = log2_factor;
  cameraAngles_setConvergence (context, 0.01f);
  cameraAngles_setBiasGain (context, 0.0f);
  context->fs = fs;
  context->fsOut = (float)context->factor * fs;
  context->dt = 1.0f / context->fsOut;

  if (!allocate_arrays (context)) {
    cameraAngles_Close (context);
    return NULL;
  }
  const uint32_t resampled = CAMANGLES_RAW_SIZE * context->factor;
  context->rawRing.size = context->filtRing.size = CAMANGLES_RAW_SIZE;
  context->refRing.size = context->rsRing.size = context->angleRing.size = resampled;

  context->gyroIntegration = gyroIntegration_t_init;
  expFilter_init (&context->expFilter);
  expFilter_configure_freqRange (&context->expFilter, (const float[]){50.0f, 250.0f});
  context->filtOutRing = context->filtRing;
  context->rsOutRing = context->rsRing;
  return context;
}

void cameraAngles_Close (cameraAngles_t *context)
{
  if (!context)
    return;
  free (context->rawX);
  free (context->rawY);
  free (context->rawZ);
  free (context->rawTs);
  free (context->refQuat);
  free (context->filtX);
  free (context->filtY);
  free (context->filtZ);
  free (context->rsX);
  free (context->rsY);
  free (context->rsZ);
  free (context->rsTs);
  free (context->angleQuat);
  free (context);
}

static void learn_bias (cameraAngles_t *context, const float rates[3])
{
  const double count = (double)context->biasCount;
  for (int axis = 0; axis < 3; axis++)
    context->bias[axis] =
        (float)(((double)context->bias[axis] * count + (double)rates[axis]) / (count + 1));
  context->biasCount++;
}

/* One copy for each resampled sample that the raw sample will give. */
static void store_reference (cameraAngles_t *context, const quat_t *reference)
{
  const quat_t value = reference ? *reference : (quat_t){0.0f, 0.0f, 0.0f, 0.0f};
  ringBuffer_t *ring = &context->refRing;
  const uint32_t factor = context->factor;
  /* The ring is a multiple of the factor long: only an overrun can put the copies across its end.
   */
  if (factor > 1 && ring_room (ring) >= factor && ring_run (ring, ring->wr, factor) == factor) {
    quat_t *out = context->refQuat + ring->wr;
    for (uint32_t i = 0; i < factor; i++)
      out[i] = value;
    ring->wr = ring_advance (ring, ring->wr, factor);
    return;
  }
  for (uint32_t i = 0; i < factor; i++) {
    context->refQuat[ring->wr] = value;
    if (ring_move_writer_by_one (ring) != 0)
      VORN_LOG_ERROR ("oups writer");
  }
}

static void store_sample (cameraAngles_t *context, uint64_t timestamp, const float rates[3])
{
  const uint32_t slot = context->rawRing.wr;
  context->rawTs[slot] = timestamp;
  if (context->gyroInitStage != 0)
    learn_bias (context, rates);
  context->rawX[slot] = rates[0] - context->bias[0];
  context->rawY[slot] = rates[1] - context->bias[1];
  context->rawZ[slot] = rates[2] - context->bias[2];
  ring_move_writer_by_one (&context->rawRing);
}

/* The usual case of a stage that has little to do with one sample is done in place; all others are
 * the stage's own. */
static inline int32_t filter_stage (cameraAngles_t *c, float exposure_duration)
{
  if (!c->expFilter.active && c->expFilter.lastDuration == exposure_duration &&
      ring_pass_rates (&c->rawRing, c->rawX, c->rawY, c->rawZ, &c->filtRing, c->filtX, c->filtY,
                       c->filtZ))
    return 0;
  return expFilter (exposure_duration, c->fs, &c->expFilter, &c->rawRing, c->rawX, c->rawY, c->rawZ,
                    &c->filtRing, c->filtX, c->filtY, c->filtZ);
}

static inline int32_t resample_stage (cameraAngles_t *c)
{
  const uint32_t from = c->filtRing.rd;
  const uint32_t to = c->rsRing.wr;
  if (c->factor == 1 && ring_pass_rates (&c->filtRing, c->filtX, c->filtY, c->filtZ, &c->rsRing,
                                         c->rsX, c->rsY, c->rsZ)) {
    c->rsTs[to] = c->rawTs[from];
    return 0;
  }
  return gyroResample (&c->filtRing, c->filtX, c->filtY, c->filtZ, c->rawTs, &c->rsRing, c->rsX,
                       c->rsY, c->rsZ, c->rsTs, c->log2Factor);
}

static inline int32_t integration_stage (cameraAngles_t *c)
{
  ringBuffer_t *in = &c->rsRing;
  ringBuffer_t *ref = &c->refRing;
  ringBuffer_t *out = &c->angleRing;
  const uint32_t rd = ring_next (in, in->rd);
  const uint32_t wr = ring_next (out, out->wr);
  if (rd == in->wr && wr != out->rd && ref->rd != ref->wr &&
      quat_is_zero (vec4_load (c->refQuat + ref->rd))) {
    const vec4_t step = step_rotation (c->rsX[in->rd], c->rsY[in->rd], c->rsZ[in->rd], c->dt);
    const vec4_t before = vec4_load (&c->gyroIntegration.attitude);
    const vec4_t attitude = quat_normalized (quat_product (before, step));
    vec4_store (&c->gyroIntegration.attitude, attitude);
    vec4_store (c->angleQuat + out->wr, attitude);
    in->rd = rd;
    ref->rd = ring_next (ref, ref->rd);
    out->wr = wr;
    return 0;
  }
  return gyroIntegration (&c->gyroIntegration, in, c->rsX, c->rsY, c->rsZ, ref, c->refQuat, out,
                          c->angleQuat, c->bias, c->gyroInitStage, c->dt, c->convergencePerSample,
                          c->biasGainPerSample);
}

int32_t cameraAngles_Feed (cameraAngles_t *context, const quat_t *reference, uint64_t timestamp,
                           float gx, float gy, float gz, float exposure_duration)
{
  if (!context)
    return refuse_null ();
  store_sample (context, timestamp, (const float[]){gx, gy, gz});
  store_reference (context, reference);
  const int32_t filtered = filter_stage (context, exposure_duration);
  ring_merge_writer (&context->filtRing, &context->filtOutRing);
  const int32_t resampled = resample_stage (context);
  ring_merge_writer (&context->rsRing, &context->rsOutRing);
  const int32_t integrated = integration_stage (context);
  const int32_t result = filtered | resampled | integrated;
  if (result != 0)
    VORN_LOG_ERROR ("error processing data");
  return result;
}

int32_t cameraAngles_GetAngles (cameraAngles_t *context, quat_t *attitude, uint64_t *timestamp)
{
  if (!context || ring_ready (&context->angleRing) < 1)
    return -1;
  const uint32_t slot = context->angleRing.rd;
  if (attitude)
    *attitude = context->angleQuat[slot];
  if (timestamp)
    *timestamp = context->rsTs[slot];
  return ring_move_reader_by_one (&context->angleRing);
}

/* One by one: wider moves would have to wait until those of this Feed have reached the cache. */
static void copy_attitudes (quat_t *to, const quat_t *from, uint32_t count)
{
  for (uint32_t i = 0; i < count; i++)
    vec4_store (to + i, vec4_load (from + i));
}

static void copy_timestamps (uint64_t *to, const uint64_t *from, uint32_t count)
{
  for (uint32_t i = 0; i < count; i++)
    to[i] = from[i];
}

int32_t cameraAngles_GetAnglesBuffer (cameraAngles_t *context, quat_t *attitudes,
                                      uint64_t *timestamps, int32_t *count)
{
  if (!context || !count)
    return -1;
  const ringBuffer_t *ring = &context->angleRing;
  const int32_t ready = ring_ready (ring);
  const int32_t popped = *count < ready ? *count : ready;
  if (popped < 1)
    return -1;
  *count = popped;
  if (popped == 1)
    return cameraAngles_GetAngles (context, attitudes, timestamps);
  const uint32_t first = ring_run (ring, ring->rd, (uint32_t)popped);
  const uint32_t rest = (uint32_t)popped - first;
  if (attitudes) {
    copy_attitudes (attitudes, context->angleQuat + ring->rd, first);
    copy_attitudes (attitudes + first, context->angleQuat, rest);
  }
  if (timestamps) {
    copy_timestamps (timestamps, context->rsTs + ring->rd, first);
    copy_timestamps (timestamps + first, context->rsTs, rest);
  }
  return ringBufferMoveReader (&context->angleRing, (uint32_t)popped);
}

/* Pops one sample of three axes; outputs are x, y and z, each may be null. */
static int32_t pop_rates (ringBuffer_t *cursor, const float *const axes[3],
                          const uint64_t *timestamps, float *const outputs[3], uint64_t *timestamp)
{
  if (ring_ready (cursor) < 1)
    return -1;
  for (int axis = 0; axis < 3; axis++)
    if (outputs[axis])
      *outputs[axis] = axes[axis][cursor->rd];
  if (timestamp)
    *timestamp = timestamps[cursor->rd];
  return ring_move_reader_by_one (cursor);
}

int32_t cameraAngles_GetFilteredGyro (cameraAngles_t *context, float *x, float *y, float *z,
                                      uint64_t *timestamp)
{
  if (!context)
    return -1;
  return pop_rates (&context->filtOutRing,
                    (const float *const[]){context->filtX, context->filtY, context->filtZ},
                    context->rawTs, (float *const[]){x, y, z}, timestamp);
}

int32_t cameraAngles_GetRsGyro (cameraAngles_t *context, float *x, float *y, float *z,
                                uint64_t *timestamp)
{
  if (!context)
    return -1;
  return pop_rates (&context->rsOutRing,
                    (const float *const[]){context->rsX, context->rsY, context->rsZ}, context->rsTs,
                    (float *const[]){x, y, z}, timestamp);
}

int32_t cameraAngles_setConvergence (cameraAngles_t *context, float coefficient)
{
  if (!context)
    return refuse_null ();
  if (!(coefficient >= 0.0f && coefficient <= 1.0f)) {
    VORN_LOG_ERROR ("error, convergence coeff (%f) out of range [0 1]", (double)coefficient);
    return -1;
  }
  context->convergence = coefficient;
  context->convergencePerSample = coefficient / (float)context->factor;
  return 0;
}

int32_t cameraAngles_setGyroInitStage (cameraAngles_t *context, uint32_t stage)
{
  if (!context)
    return refuse_null ();
  context->gyroInitStage = stage;
  return 0;
}

int32_t cameraAngles_setBiasGain (cameraAngles_t *context, float gain)
{
  if (!context)
    return refuse_null ();
  context->biasGain = gain;
  context->biasGainPerSample = gain / (float)context->factor;
  return 0;
}

int32_t cameraAngles_resetBias (cameraAngles_t *context)
{
  if (!context)
    return refuse_null ();
  for (int axis = 0; axis < 3; axis++)
    context->bias[axis] = 0.0f;
  context->biasCount = 0;
  return 0;
}

int32_t cameraAngles_setExpFilterRange (cameraAngles_t *context, float min_hz, float max_hz)
{
  if (!context)
    return refuse_null ();
  int32_t result = 0;
  if (!(min_hz >= 0.0f)) {
    VORN_LOG_ERROR ("error, minFreqHz (%f) must be >= 0", (double)min_hz);
    result = -1;
  }
  if (!(max_hz >= 0.0f)) {
    VORN_LOG_ERROR ("error, maxFreqHz (%f) must be >= 0", (double)max_hz);
    result = -1;
  }
  if (!(max_hz > min_hz)) {
    VORN_LOG_ERROR ("error, maxFreqHz (%f) must be > minFreqHz (%f)", (double)max_hz,
                    (double)min_hz);
    result = -1;
  }
  if (result == 0)
    result = expFilter_configure_freqRange (&context->expFilter, (const float[]){min_hz, max_hz});
  return result;
}

int32_t cameraAngles_setExpFilterWindow (cameraAngles_t *context, uint32_t window_size)
{
  if (!context)
    return refuse_null ();
  if (window_size == 0) {
    VORN_LOG_ERROR ("error, window size %u must be > 0", window_size);
    return -1;
  }
  return expFilter_configure_windowSize (&context->expFilter, window_size);
}
