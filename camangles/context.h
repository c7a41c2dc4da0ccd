/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/* What a context is made of; for the library and its tests. */
#ifndef CAMANGLES_CONTEXT_H
#define CAMANGLES_CONTEXT_H

#include <camangles/camera_angles.h>
#include <camangles/exposure_filter.h>
#include <camangles/gyro_integration.h>
#include <camangles/ring_buffer.h>

#define CAMANGLES_RAW_SIZE 1024

struct cameraAngles {
  float fs;        /* gyro rate, Hz */
  float fsOut;     /* fs * factor: rate of attitudes, Hz */
  float dt;        /* 1 / fsOut, integration step, s */
  uint32_t factor; /* resampling factor, 128 / q */
  uint32_t q;      /* step of the resampler in 1/128 sample */
  uint32_t log2Factor;
  float convergence;          /* pull towards the reference per raw sample, [0, 1] */
  float convergencePerSample; /* convergence / factor */
  float biasGain;
  float biasGainPerSample;   /* biasGain / factor */
  ringBuffer_t rawRing;      /* indexes the raw arrays; size 1024 */
  uint32_t gyroInitStage;    /* non-zero: bias = running mean of the raw rates */
  float *rawX, *rawY, *rawZ; /* raw rates less bias, rad/s */
  float bias[3];             /* rad/s */
  int64_t biasCount;         /* samples averaged into bias */
  uint64_t *rawTs;           /* indexed by rawRing and filtRing, which advance in step */
  ringBuffer_t refRing;      /* size 1024 * factor, as all below but filtRing and filtOutRing */
  quat_t *refQuat;           /* reference of each resampled sample; all-zero: none */
  ringBuffer_t filtRing;     /* from the exposure filter to the resampler; size 1024 */
  ringBuffer_t filtOutRing;  /* the caller's cursor over the same arrays */
  float *filtX, *filtY, *filtZ;
  expFilter_t expFilter;
  ringBuffer_t rsRing;    /* from the resampler to the integration */
  ringBuffer_t rsOutRing; /* the caller's cursor over the same arrays */
  float *rsX, *rsY, *rsZ;
  uint64_t *rsTs;         /* indexed by rsRing, rsOutRing and angleRing, which advance in step */
  ringBuffer_t angleRing; /* attitudes for the caller */
  quat_t *angleQuat;
  gyroIntegration_t gyroIntegration;
};

#endif
