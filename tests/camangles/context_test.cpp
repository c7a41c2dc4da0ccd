// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <camangles/exposure_filter.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "context_support.hpp"
#include "tables.h"

namespace
{

using Texts = std::vector<std::string>;

int32_t feed (const Context &context, uint64_t timestamp, float rate = 0, float exposure = 0,
              const quat_t *reference = nullptr)
{
  return cameraAngles_Feed (context.get (), reference, timestamp, rate, 2 * rate, 3 * rate,
                            exposure);
}

TEST (ContextNew, FactorsOneTo128)
{
  for (uint32_t log2_factor = 0; log2_factor <= 7; log2_factor++) {
    const Context context = make_context (log2_factor);
    ASSERT_TRUE (context);
    EXPECT_EQ (context->factor, 1u << log2_factor);
    EXPECT_EQ (context->q, 128u >> log2_factor);
    EXPECT_EQ (context->log2Factor, log2_factor);
    EXPECT_EQ (context->rawRing, (ringBuffer_t{1024, 0, 0}));
    EXPECT_EQ (context->filtRing, (ringBuffer_t{1024, 0, 0}));
    EXPECT_EQ (context->filtOutRing, (ringBuffer_t{1024, 0, 0}));
    for (const ringBuffer_t &ring :
         {context->refRing, context->rsRing, context->rsOutRing, context->angleRing})
      EXPECT_EQ (ring, (ringBuffer_t{1024u << log2_factor, 0, 0}));
  }
}

TEST (ContextNew, Defaults)
{
  const Context context = make_context (0);
  EXPECT_EQ (context->fs, 1000.0f);
  EXPECT_EQ (context->fsOut, 1000.0f);
  EXPECT_EQ (context->dt, 0.001f);
  EXPECT_EQ (context->convergence, 0.01f);
  EXPECT_EQ (context->convergencePerSample, 0.01f);
  EXPECT_EQ (context->biasGain, 0.0f);
  EXPECT_EQ (context->biasGainPerSample, 0.0f);
  EXPECT_EQ (context->gyroInitStage, 0u);
  EXPECT_EQ (context->biasCount, 0);
  EXPECT_THAT (context->bias, testing::Each (0.0f));
  EXPECT_EQ (context->expFilter.minFreqHz, 50.0f);
  EXPECT_EQ (context->expFilter.maxFreqHz, 250.0f);
  EXPECT_EQ (context->expFilter.windowSize, 10u);
  EXPECT_EQ (context->gyroIntegration.attitude, (quat_t{0, 0, 0, 1}));
}

TEST (ContextNew, RatesFollowTheFactor)
{
  const Context context = make_context (3, 2000.0f);
  EXPECT_EQ (context->fsOut, 16000.0f);
  EXPECT_EQ (context->dt, 1.0f / 16000.0f);
  EXPECT_EQ (context->convergencePerSample, 0.01f / 8);
  cameraAngles_setConvergence (context.get (), 0.5f);
  EXPECT_EQ (context->convergencePerSample, 0.0625f);
  cameraAngles_setBiasGain (context.get (), 4.0f);
  EXPECT_EQ (context->biasGain, 4.0f);
  EXPECT_EQ (context->biasGainPerSample, 0.5f);
}

TEST (ContextNew, RefusesLargerFactors)
{
  const std::pair<uint32_t, const char *> rows[] = {
      {8, "error, resampling factor too high (current 128 != target 256)"},
      {9, "error, resampling factor too high (current 128 != target 512)"},
      {31, "error, resampling factor too high (current 128 != target 2147483648)"},
      {32, "error, resampling factor too high (current 128 != target 4294967295)"},
      {39, "error, resampling factor too high (current 128 != target 4294967295)"},
      {UINT32_MAX, "error, resampling factor too high (current 128 != target 4294967295)"},
  };
  for (const auto &[log2_factor, text] : rows) {
    LogCapture log;
    EXPECT_FALSE (make_context (log2_factor));
    EXPECT_EQ (log.texts (log_error), Texts{text});
    EXPECT_EQ (log.lines ()[0].tag, "camangles");
  }
}

TEST (ContextNull, SettersAndFeedLogGettersDoNot)
{
  LogCapture log;
  cameraAngles_Close (nullptr);
  float f;
  uint64_t ts;
  quat_t q;
  int32_t count = 1;
  EXPECT_EQ (cameraAngles_GetAngles (nullptr, &q, &ts), -1);
  EXPECT_EQ (cameraAngles_GetAnglesBuffer (nullptr, &q, &ts, &count), -1);
  EXPECT_EQ (cameraAngles_GetFilteredGyro (nullptr, &f, &f, &f, &ts), -1);
  EXPECT_EQ (cameraAngles_GetRsGyro (nullptr, &f, &f, &f, &ts), -1);
  EXPECT_TRUE (log.lines ().empty ());
  EXPECT_EQ (cameraAngles_Feed (nullptr, nullptr, 0, 0, 0, 0, 0), -1);
  EXPECT_EQ (cameraAngles_setConvergence (nullptr, 0.5f), -1);
  EXPECT_EQ (cameraAngles_setGyroInitStage (nullptr, 1), -1);
  EXPECT_EQ (cameraAngles_setBiasGain (nullptr, 1), -1);
  EXPECT_EQ (cameraAngles_resetBias (nullptr), -1);
  EXPECT_EQ (cameraAngles_setExpFilterRange (nullptr, 1, 2), -1);
  EXPECT_EQ (cameraAngles_setExpFilterWindow (nullptr, 1), -1);
  EXPECT_EQ (log.texts (log_error), Texts (7, "error, context is null"));
}

TEST (ContextSetters, ConvergenceHasARange)
{
  const Context context = make_context (0);
  const std::pair<float, const char *> refused[] = {
      {1.5f, "error, convergence coeff (1.500000) out of range [0 1]"},
      {-0.1f, "error, convergence coeff (-0.100000) out of range [0 1]"},
      {nan_f, "error, convergence coeff (nan) out of range [0 1]"},
      {inf_f, "error, convergence coeff (inf) out of range [0 1]"},
  };
  for (const auto &[coefficient, text] : refused) {
    LogCapture log;
    EXPECT_EQ (cameraAngles_setConvergence (context.get (), coefficient), -1);
    EXPECT_EQ (log.texts (log_error), Texts{text});
    EXPECT_EQ (context->convergence, 0.01f);
    EXPECT_EQ (context->convergencePerSample, 0.01f);
  }
  for (const float coefficient : {0.0f, 1.0f}) {
    EXPECT_EQ (cameraAngles_setConvergence (context.get (), coefficient), 0);
    EXPECT_EQ (context->convergence, coefficient);
  }
}

TEST (ContextSetters, ExposureFilterRange)
{
  const Context context = make_context (0);
  const struct {
    float low, high;
    Texts texts;
  } refused[] = {
      {100, 100, {"error, maxFreqHz (100.000000) must be > minFreqHz (100.000000)"}},
      {-1,
       -2,
       {"error, minFreqHz (-1.000000) must be >= 0", "error, maxFreqHz (-2.000000) must be >= 0",
        "error, maxFreqHz (-2.000000) must be > minFreqHz (-1.000000)"}},
      {-1, 5, {"error, minFreqHz (-1.000000) must be >= 0"}},
      {nan_f,
       5,
       {"error, minFreqHz (nan) must be >= 0",
        "error, maxFreqHz (5.000000) must be > minFreqHz (nan)"}},
  };
  for (const auto &row : refused) {
    LogCapture log;
    EXPECT_EQ (cameraAngles_setExpFilterRange (context.get (), row.low, row.high), -1);
    EXPECT_EQ (log.texts (log_error), row.texts);
    EXPECT_EQ (context->expFilter.minFreqHz, 50.0f);
    EXPECT_EQ (context->expFilter.maxFreqHz, 250.0f);
  }
  EXPECT_EQ (cameraAngles_setExpFilterRange (context.get (), 0, 400), 0);
  EXPECT_EQ (context->expFilter.minFreqHz, 0.0f);
  EXPECT_EQ (context->expFilter.maxFreqHz, 400.0f);
}

TEST (ContextSetters, ExposureFilterWindow)
{
  const Context context = make_context (0);
  LogCapture log;
  EXPECT_EQ (cameraAngles_setExpFilterWindow (context.get (), 0), -1);
  EXPECT_EQ (log.texts (log_error), Texts{"error, window size 0 must be > 0"});
  EXPECT_EQ (context->expFilter.windowSize, 10u);
  EXPECT_EQ (cameraAngles_setExpFilterWindow (context.get (), 25), 0);
  EXPECT_EQ (context->expFilter.windowSize, 25u);
}

TEST (ContextFeed, FactorOneBypassedGivesOneAttitudeForEachSample)
{
  const Context context = make_context (0);
  for (uint64_t i = 0; i < 5000; i++) {
    ASSERT_EQ (feed (context, 7000 + i, 0.1f), 0);
    const Drained drained = drain (context.get ());
    ASSERT_EQ (drained.timestamps, std::vector<uint64_t>{7000 + i});
  }
}

TEST (ContextFeed, ResamplerHoldsTenSamplesBack)
{
  const Context context = make_context (2);
  for (uint64_t i = 0; i < 30; i++) {
    ASSERT_EQ (feed (context, i, 0.1f), 0);
    const Drained drained = drain (context.get ());
    if (i < 10) {
      ASSERT_TRUE (drained.timestamps.empty ());
    } else {
      ASSERT_EQ (drained.timestamps,
                 (std::vector<uint64_t>{i - 10, UINT64_MAX, UINT64_MAX, UINT64_MAX}));
    }
  }
}

TEST (ContextFeed, FilterHoldsImpulseLengthAndPartOfAWindowBack)
{
  const Context context = make_context (0);
  const uint32_t length = butter2_impzlength_array[2990];
  uint64_t given = 0;
  for (uint64_t i = 1; i <= 200; i++) {
    ASSERT_EQ (feed (context, i, 0.1f, 1.0f / 300), 0);
    for (const uint64_t timestamp : drain (context.get ()).timestamps)
      ASSERT_EQ (timestamp, ++given);
    ASSERT_EQ (given, i < 10 + length ? 0 : (i - length) / 10 * 10);
  }
}

TEST (ContextFeed, NullReferenceIsStoredAsZeroAndTheGyroRunsAlone)
{
  const Context context = make_context (1);
  cameraAngles_setConvergence (context.get (), 1.0f);
  std::fill (context->refQuat, context->refQuat + 2048, quat_t{9, 9, 9, 9});
  feed (context, 0);
  EXPECT_EQ (context->refQuat[0], (quat_t{0, 0, 0, 0}));
  EXPECT_EQ (context->refQuat[1], (quat_t{0, 0, 0, 0}));
  EXPECT_EQ (context->refQuat[2], (quat_t{9, 9, 9, 9}));
}

TEST (ContextFeed, ReferenceIsRepeatedForEachResampledSample)
{
  const Context context = make_context (3);
  const quat_t reference = {0.6f, 0, 0, 0.8f};
  feed (context, 0, 0, 0, &reference);
  for (size_t i = 0; i < 8; i++)
    EXPECT_EQ (context->refQuat[i], reference);
  EXPECT_EQ (context->refQuat[8], (quat_t{0, 0, 0, 0}));
}

TEST (ContextFeed, ReaderSettingsTakeEachReferenceOver)
{
  const Context context = make_context (0);
  cameraAngles_setConvergence (context.get (), 1.0f);
  for (int i = 0; i < 100; i++) {
    const QuatD reference = QuatD::about (0, 0.6, 0.8, 0.05 * i);
    const quat_t single = reference.single ();
    feed (context, static_cast<uint64_t> (i), 1.0f, 0, &single);
    const Drained drained = drain (context.get ());
    ASSERT_EQ (drained.attitudes.size (), 1u);
    ASSERT_LT (angle_between (QuatD (drained.attitudes[0]), reference), 1e-6);
  }
}

TEST (ContextFeed, UndrainedAttitudesFailTheFeedAndDropTheOldest)
{
  const Context context = make_context (0);
  for (uint64_t i = 0; i < 1023; i++)
    ASSERT_EQ (feed (context, i), 0);
  for (uint64_t i = 1023; i < 1030; i++) {
    LogCapture log;
    ASSERT_EQ (feed (context, i), -1);
    EXPECT_EQ (log.texts (log_error), (Texts{"oups output", "error processing data"}));
  }
  const Drained drained = drain (context.get ());
  ASSERT_EQ (drained.timestamps.size (), 1023u);
  EXPECT_EQ (drained.timestamps.front (), 7u);
  EXPECT_EQ (drained.timestamps.back (), 1029u);
  EXPECT_EQ (feed (context, 1030), 0) << "feeding may go on";
}

TEST (ContextFeed, StarvedFilterDropsRawSamplesAndReferences)
{
  /* A window that never fits: nothing comes out, the rings stay full, nothing breaks. */
  const Context context = make_context (1);
  cameraAngles_setExpFilterWindow (context.get (), 5000);
  LogCapture log;
  for (uint64_t i = 0; i < 3000; i++)
    ASSERT_EQ (feed (context, i, 0.1f, 1.0f / 300), 0);
  EXPECT_EQ (drain (context.get ()).timestamps.size (), 0u);
  EXPECT_EQ (ringBufferDiff (&context->rawRing), 1023);
  EXPECT_EQ (log.count ("oups writer", log_error), 2 * 3000 - 2047);
  cameraAngles_setExpFilterWindow (context.get (), 10);
  feed (context, 3000, 0.1f, 1.0f / 300);
  EXPECT_GT (drain (context.get ()).timestamps.size (), 1000u);
}

TEST (ContextGetters, BufferRefusals)
{
  const Context context = make_context (0);
  quat_t q;
  uint64_t ts;
  int32_t count = 5;
  EXPECT_EQ (cameraAngles_GetAngles (context.get (), &q, &ts), -1);
  EXPECT_EQ (cameraAngles_GetAnglesBuffer (context.get (), &q, &ts, &count), -1);
  EXPECT_EQ (count, 5);
  feed (context, 0);
  EXPECT_EQ (cameraAngles_GetAnglesBuffer (context.get (), &q, &ts, nullptr), -1);
  for (const int32_t none : {0, -3}) {
    count = none;
    EXPECT_EQ (cameraAngles_GetAnglesBuffer (context.get (), &q, &ts, &count), -1);
    EXPECT_EQ (count, none);
  }
  count = 5;
  EXPECT_EQ (cameraAngles_GetAnglesBuffer (context.get (), &q, &ts, &count), 0);
  EXPECT_EQ (count, 1);
}

TEST (ContextGetters, BufferGoesOverTheEndOfTheRing)
{
  const Context context = make_context (0);
  for (uint64_t i = 0; i < 1000; i++)
    feed (context, i, 0.2f);
  EXPECT_EQ (drain (context.get ()).timestamps.size (), 1000u);
  std::vector<quat_t> expected;
  for (uint64_t i = 1000; i < 1060; i++) {
    feed (context, i, 0.2f);
    expected.push_back (context->gyroIntegration.attitude);
  }
  std::vector<quat_t> attitudes (100);
  std::vector<uint64_t> timestamps (100);
  int32_t count = 50;
  EXPECT_EQ (
      cameraAngles_GetAnglesBuffer (context.get (), attitudes.data (), timestamps.data (), &count),
      0);
  ASSERT_EQ (count, 50);
  for (size_t i = 0; i < 50; i++) {
    EXPECT_EQ (attitudes[i], expected[i]);
    EXPECT_EQ (timestamps[i], 1000 + i);
  }
  count = 100;
  EXPECT_EQ (cameraAngles_GetAnglesBuffer (context.get (), nullptr, timestamps.data (), &count), 0);
  ASSERT_EQ (count, 10);
  EXPECT_EQ (timestamps[0], 1050u);
  feed (context, 1060);
  feed (context, 1061);
  EXPECT_EQ (cameraAngles_GetAnglesBuffer (context.get (), attitudes.data (), nullptr, &count), 0);
  EXPECT_EQ (count, 2);
  feed (context, 1062);
  EXPECT_EQ (cameraAngles_GetAngles (context.get (), nullptr, nullptr), 0);
  EXPECT_EQ (cameraAngles_GetAngles (context.get (), nullptr, nullptr), -1);
}

TEST (ContextGetters, FilteredAndResampledRates)
{
  const Context context = make_context (1);
  float x, y, z;
  uint64_t ts;
  EXPECT_EQ (cameraAngles_GetFilteredGyro (context.get (), &x, &y, &z, &ts), -1);
  EXPECT_EQ (cameraAngles_GetRsGyro (context.get (), &x, &y, &z, &ts), -1);
  for (uint64_t i = 0; i < 60; i++)
    feed (context, 100 + i, 0.5f);
  for (uint64_t i = 0; i < 60; i++) {
    ASSERT_EQ (cameraAngles_GetFilteredGyro (context.get (), &x, &y, &z, &ts), 0);
    EXPECT_EQ (x, 0.5f);
    EXPECT_EQ (y, 1.0f);
    EXPECT_EQ (z, 1.5f);
    EXPECT_EQ (ts, 100 + i);
  }
  EXPECT_EQ (cameraAngles_GetFilteredGyro (context.get (), nullptr, nullptr, nullptr, nullptr), -1);
  for (uint64_t i = 0; i < 100; i++) {
    ASSERT_EQ (cameraAngles_GetRsGyro (context.get (), &x, &y, &z, &ts), 0);
    EXPECT_EQ (ts, i % 2 == 0 ? 100 + i / 2 : UINT64_MAX);
    if (i > 20) {
      /* The gain of the interpolator at zero frequency is 1 within its pass-band ripple. */
      EXPECT_NEAR (x, 0.5f, 1e-3f);
      EXPECT_NEAR (z, 1.5f, 3e-3f);
    }
  }
  EXPECT_EQ (cameraAngles_GetRsGyro (context.get (), nullptr, nullptr, nullptr, nullptr), -1);
}

TEST (ContextGetters, UndrainedRatesDropTheOldestSilently)
{
  const Context context = make_context (0);
  LogCapture log;
  for (uint64_t i = 0; i < 3000; i++) {
    feed (context, i, static_cast<float> (i));
    drain (context.get ());
  }
  EXPECT_TRUE (log.lines ().empty ());
  float x;
  uint64_t ts;
  for (uint64_t i = 3000 - 1023; i < 3000; i++) {
    ASSERT_EQ (cameraAngles_GetFilteredGyro (context.get (), &x, nullptr, nullptr, &ts), 0);
    ASSERT_EQ (ts, i);
    ASSERT_EQ (x, static_cast<float> (i));
    ASSERT_EQ (cameraAngles_GetRsGyro (context.get (), &x, nullptr, nullptr, &ts), 0);
    ASSERT_EQ (ts, i);
    ASSERT_EQ (x, static_cast<float> (i));
  }
}

TEST (ContextBias, InitStageLearnsTheRunningMean)
{
  const Context context = make_context (0);
  cameraAngles_setGyroInitStage (context.get (), 1);
  double sum = 0;
  for (int i = 1; i <= 2000; i++) {
    const float rate = 0.25f + 0.05f * static_cast<float> (i % 7 - 3);
    sum += static_cast<double> (rate);
    feed (context, static_cast<uint64_t> (i), rate);
    drain (context.get ());
    /* Each step rounds the mean once. */
    ASSERT_NEAR (context->bias[0], sum / i, 1e-6 * std::sqrt (i) + 1e-7) << i;
    ASSERT_EQ (context->biasCount, i);
  }
  EXPECT_NEAR (context->bias[1], 2 * context->bias[0], 1e-5);
}

TEST (ContextBias, RawRatesTendToZeroUnderAConstantRate)
{
  const Context context = make_context (0);
  cameraAngles_setGyroInitStage (context.get (), 1);
  for (uint64_t i = 0; i < 100; i++)
    feed (context, i, 0.7f);
  const uint32_t last = context->rawRing.wr - 1;
  EXPECT_NEAR (context->rawX[last], 0, 1e-6);
  EXPECT_NEAR (context->rawY[last], 0, 1e-6);
  EXPECT_NEAR (context->rawZ[last], 0, 1e-6);
  EXPECT_NEAR (context->bias[0], 0.7, 1e-6);
  /* The bias stays when the stage ends, and is taken off. */
  cameraAngles_setGyroInitStage (context.get (), 0);
  feed (context, 100, 1.0f);
  EXPECT_NEAR (context->rawX[context->rawRing.wr - 1], 0.3, 1e-6);
  EXPECT_EQ (context->biasCount, 100);
  EXPECT_EQ (cameraAngles_resetBias (context.get ()), 0);
  EXPECT_EQ (context->biasCount, 0);
  EXPECT_THAT (context->bias, testing::Each (0.0f));
}

TEST (ContextIndependence, ContextsDoNotTouchEachOther)
{
  const Context alone = make_context (3), first = make_context (3), second = make_context (3);
  for (int i = 0; i < 300; i++) {
    const auto t = static_cast<uint64_t> (i);
    const float rate = std::sin (0.1f * static_cast<float> (i));
    feed (alone, t, rate, 1.0f / 300);
    feed (first, t, rate, 1.0f / 300);
    feed (second, 5 * t, -3 * rate, i % 3 == 0 ? 0.0f : 1.0f / 100);
  }
  const Drained a = drain (alone.get ()), b = drain (first.get ());
  EXPECT_EQ (a.timestamps, b.timestamps);
  ASSERT_EQ (a.attitudes.size (), b.attitudes.size ());
  for (size_t i = 0; i < a.attitudes.size (); i++)
    ASSERT_EQ (a.attitudes[i], b.attitudes[i]);
}

} // namespace
