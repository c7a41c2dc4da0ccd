// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What inputs that are not finite do, as docs/camangles.md describes it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "context_support.hpp"

namespace
{

/** Feeds a constant rate about z with one odd sample, drains all the while. */
std::vector<quat_t> run_with_odd_sample (uint32_t log2_factor, float exposure, float odd_rate)
{
  const Context context = make_context (log2_factor);
  std::vector<quat_t> attitudes;
  for (uint64_t i = 0; i < 400; i++) {
    EXPECT_EQ (
        cameraAngles_Feed (context.get (), nullptr, i, i == 200 ? odd_rate : 0, 0, 0.5f, exposure),
        0);
    const Drained drained = drain (context.get ());
    attitudes.insert (attitudes.end (), drained.attitudes.begin (), drained.attitudes.end ());
  }
  return attitudes;
}

/** How many attitudes equal the one before. */
long count_frozen (const std::vector<quat_t> &attitudes)
{
  long frozen = 0;
  for (size_t i = 1; i < attitudes.size (); i++)
    frozen += attitudes[i] == attitudes[i - 1];
  return frozen;
}

TEST (NonFinite, NaNRateFreezesOneSampleWithoutFilterAndResampler)
{
  const auto attitudes = run_with_odd_sample (0, 0, nan_f);
  EXPECT_EQ (count_frozen (attitudes), 1);
  EXPECT_EQ (attitudes[200], attitudes[199]);
  EXPECT_EQ (quatIsFinite (&attitudes.back ()), 1);
}

TEST (NonFinite, NaNRateFreezesTheResamplersTaps)
{
  for (const uint32_t log2_factor : {1u, 3u}) {
    const auto attitudes = run_with_odd_sample (log2_factor, 0, nan_f);
    EXPECT_EQ (count_frozen (attitudes), 20 << log2_factor);
    EXPECT_EQ (quatIsFinite (&attitudes.back ()), 1);
  }
}

TEST (NonFinite, NaNRateFreezesTheFiltersWindows)
{
  const float exposure = 1.0f / 300;
  const Context probe = make_context (0);
  cameraAngles_Feed (probe.get (), nullptr, 0, 0, 0, 0, exposure);
  const long length = probe->expFilter.impzLength;
  const auto attitudes = run_with_odd_sample (0, exposure, nan_f);
  const long frozen = count_frozen (attitudes);
  EXPECT_GT (frozen, length);
  EXPECT_LE (frozen, 2 * (length + 10)) << "two impulse lengths and the windows around them";
  EXPECT_EQ (quatIsFinite (&attitudes.back ()), 1)
      << "the filter carries nothing from pass to pass";
}

TEST (NonFinite, InfiniteRateMakesTheAttitudeNaNForGood)
{
  for (const float rate : {inf_f, -inf_f, 1e38f}) {
    const auto attitudes = run_with_odd_sample (0, 0, rate);
    EXPECT_EQ (quatIsFinite (&attitudes[199]), 1);
    EXPECT_EQ (quatIsFinite (&attitudes[200]), 0);
    EXPECT_EQ (quatIsFinite (&attitudes.back ()), 0);
  }
}

TEST (NonFinite, ReferenceThatIsNotFiniteMakesAttitudeAndBiasNaN)
{
  const quat_t references[] = {{nan_f, 0, 0, 1}, {0, 0, 0, nan_f}, {0, inf_f, 0, 1}};
  for (const quat_t &reference : references) {
    const Context context = make_context (0);
    cameraAngles_Feed (context.get (), &reference, 0, 0, 0, 0, 0);
    EXPECT_EQ (quatIsFinite (&drain (context.get ()).attitudes.at (0)), 0);
    EXPECT_TRUE (std::isnan (context->bias[0] + context->bias[1] + context->bias[2]));
    /* The bias can be reset; the attitude stays. */
    cameraAngles_resetBias (context.get ());
    cameraAngles_Feed (context.get (), nullptr, 1, 0, 0, 0, 0);
    EXPECT_EQ (quatIsFinite (&drain (context.get ()).attitudes.at (0)), 0);
    EXPECT_EQ (context->bias[0], 0);
  }
}

TEST (NonFinite, ReferenceIsIgnoredByTheBiasDuringTheInitStage)
{
  const Context context = make_context (0);
  cameraAngles_setGyroInitStage (context.get (), 1);
  const quat_t reference = {nan_f, 0, 0, 1};
  cameraAngles_Feed (context.get (), &reference, 0, 0.25f, 0, 0, 0);
  EXPECT_EQ (context->bias[0], 0.25f);
}

TEST (NonFinite, NaNRateDuringTheInitStageSpoilsTheBiasUntilReset)
{
  const Context context = make_context (0);
  cameraAngles_setGyroInitStage (context.get (), 1);
  cameraAngles_Feed (context.get (), nullptr, 0, nan_f, 0, 0.5f, 0);
  cameraAngles_Feed (context.get (), nullptr, 1, 1, 0, 0.5f, 0);
  EXPECT_TRUE (std::isnan (context->bias[0]));
  EXPECT_EQ (context->bias[2], 0.5f);
  EXPECT_EQ (quatIsFinite (&context->gyroIntegration.attitude), 1) << "a NaN rate is no rate";
  cameraAngles_resetBias (context.get ());
  cameraAngles_Feed (context.get (), nullptr, 2, 1, 0, 0.5f, 0);
  EXPECT_EQ (context->bias[0], 1);
}

TEST (NonFinite, DurationsChooseAFilterAndNothingElse)
{
  for (const float duration : {nan_f, inf_f, -inf_f, -5.0f}) {
    const Context context = make_context (0);
    for (uint64_t i = 0; i < 200; i++)
      ASSERT_EQ (cameraAngles_Feed (context.get (), nullptr, i, 0.1f, 0, 0, duration), 0);
    EXPECT_TRUE (context->expFilter.active);
    const Drained drained = drain (context.get ());
    ASSERT_FALSE (drained.attitudes.empty ());
    EXPECT_EQ (quatIsFinite (&drained.attitudes.back ()), 1);
  }
}

} // namespace
