// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Long random runs: every factor, the filter coming and going, attitudes drained at random.
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "context_support.hpp"

namespace
{

/**
 * How many samples each stage has, by the stages' rules alone: the filter takes samples in when
 * window + impulse length are there and holds the impulse length back; the resampler holds ten
 * back; the attitude ring keeps its newest size - 1.
 */
class CountModel
{
public:
  explicit CountModel (uint32_t factor) : factor_ (factor), capacity_ (1024ull * factor - 1) {}

  /** One more raw sample. Returns whether attitudes were lost. */
  bool feed (bool active, uint64_t window, uint64_t impulse_length)
  {
    raw_++;
    uint64_t passed = 0;
    if (!active)
      passed = raw_;
    else if (raw_ >= window + impulse_length)
      passed = raw_ - impulse_length;
    raw_ -= passed;
    filtered_ += passed;
    const uint64_t held = factor_ == 1 ? 0 : 10;
    const uint64_t resampled = filtered_ > held ? filtered_ - held : 0;
    filtered_ -= resampled;
    attitudes_ += resampled * factor_;
    const uint64_t lost = attitudes_ > capacity_ ? attitudes_ - capacity_ : 0;
    attitudes_ -= lost;
    given_ += lost;
    return lost > 0;
  }
  void drain (uint64_t count)
  {
    attitudes_ -= count;
    given_ += count;
  }
  uint64_t attitudes () const { return attitudes_; }
  /** Index, in the whole stream of attitudes, of the one to be read next. */
  uint64_t next () const { return given_; }

private:
  uint64_t factor_, capacity_, raw_ = 0, filtered_ = 0, attitudes_ = 0, given_ = 0;
};

struct Exposure {
  float seconds;
  bool active;
};

class ContextStress : public testing::TestWithParam<uint32_t>
{
};

TEST_P (ContextStress, CountsAndTimestampsFollowTheHoldBackRules)
{
  const uint32_t log2_factor = GetParam (), factor = 1u << log2_factor;
  const Context context = make_context (log2_factor);
  std::mt19937 random (100 + log2_factor);
  std::normal_distribution<float> normal;
  CountModel model (factor);
  LogCapture log;
  std::vector<quat_t> attitudes (1024ul * factor);
  std::vector<uint64_t> timestamps (attitudes.size ());
  const Exposure exposures[] = {{0, false},           {1.0f / 300, true}, {1.0f / 120, true},
                                {1.0f / 2000, false}, {1.0f, true},       {1.0f / 250, true}};
  Exposure exposure = exposures[0];
  uint64_t window = 10;
  /* Attitudes are what takes the time. */
  const uint64_t samples = (soak () ? 20000000 : 400000) / (factor > 8 ? factor / 8 : 1);
  int patience = 0;
  for (uint64_t i = 0; i < samples; i++) {
    if (random () % 3000 == 0)
      exposure = exposures[random () % std::size (exposures)];
    if (random () % 5000 == 0) {
      window = 1 + random () % 300;
      ASSERT_EQ (cameraAngles_setExpFilterWindow (context.get (), static_cast<uint32_t> (window)),
                 0);
    }
    const quat_t reference = {0, 0, 0.6f, 0.8f};
    const int32_t status =
        cameraAngles_Feed (context.get (), random () % 4 == 0 ? &reference : nullptr, i,
                           normal (random), normal (random), normal (random), exposure.seconds);
    const bool lost = model.feed (exposure.active, window, context->expFilter.impzLength);
    ASSERT_EQ (context->expFilter.active, exposure.active);
    ASSERT_EQ (status, lost ? -1 : 0) << "sample " << i;
    ASSERT_EQ (static_cast<uint64_t> (ringBufferDiff (&context->angleRing)), model.attitudes ())
        << "sample " << i;
    if (i % 512 == 0)
      log.clear ();

    /* Most of the time promptly, now and then not for more than a ring. */
    if (patience > 0 && patience-- > 0)
      continue;
    if (random () % 2000 == 0)
      patience = static_cast<int> (random () % 1500);
    if (random () % 3 == 0)
      continue;
    auto count = static_cast<int32_t> (random () % (attitudes.size () + 1));
    const auto expected = std::min<uint64_t> (static_cast<uint64_t> (count), model.attitudes ());
    const int32_t result = cameraAngles_GetAnglesBuffer (context.get (), attitudes.data (),
                                                         timestamps.data (), &count);
    ASSERT_EQ (result, expected > 0 ? 0 : -1);
    if (expected == 0)
      continue;
    ASSERT_EQ (static_cast<uint64_t> (count), expected);
    for (size_t n = 0; n < expected; n++) {
      const uint64_t index = model.next () + n;
      ASSERT_EQ (timestamps[n], index % factor == 0 ? index / factor : UINT64_MAX)
          << "attitude " << index;
      ASSERT_EQ (quatIsRotation (&attitudes[n], 1e-6f), 1) << "attitude " << index;
    }
    model.drain (expected);
  }
  EXPECT_GT (model.next (), samples * factor / 2);
}

INSTANTIATE_TEST_SUITE_P (Log2Factor, ContextStress, testing::Range (0u, 8u));

TEST (ContextStress, AnyWindowAnyExposureAnyRangeStaysInside)
{
  /* Settings that starve the filter or make no sense: nothing may be indexed outside (the address
   * sanitizer watches), and the context goes on. */
  std::mt19937 random (200);
  const float odd[] = {0,     -1,    nan_f, inf_f, -inf_f, 1e-45f, 1e38f, -1e38f,
                       1e-3f, 3e-3f, 5e-3f, 0.01f, 0.1f,   1,      1e6f};
  const auto pick = [&] { return odd[random () % std::size (odd)]; };
  LogCapture log;
  for (uint32_t log2_factor = 0; log2_factor <= 7; log2_factor++) {
    const float rates[] = {1000, 100000, 0.5f, 0, -1, nan_f, inf_f};
    for (const float fs : rates) {
      const Context context = make_context (log2_factor, fs);
      const int samples = (soak () ? 300000 : 12000) >> log2_factor;
      for (int i = 0; i < samples; i++) {
        if (random () % 100 == 0)
          cameraAngles_setExpFilterRange (context.get (), pick (), pick ());
        if (random () % 100 == 0)
          cameraAngles_setExpFilterWindow (context.get (),
                                           static_cast<uint32_t> (random ()) >> (random () % 32));
        if (random () % 100 == 0)
          cameraAngles_setConvergence (context.get (), pick ());
        if (random () % 100 == 0)
          cameraAngles_setBiasGain (context.get (), pick ());
        if (random () % 200 == 0)
          cameraAngles_setGyroInitStage (context.get (), random () % 2);
        if (random () % 200 == 0)
          cameraAngles_resetBias (context.get ());
        const quat_t reference = {pick (), pick (), pick (), pick ()};
        const float duration = random () % 8 == 0 ? pick () : 1.0f / 200;
        cameraAngles_Feed (context.get (), random () % 2 ? &reference : nullptr, random (), pick (),
                           pick (), pick (), duration);
        float x, y, z;
        uint64_t timestamp;
        if (random () % 2)
          cameraAngles_GetFilteredGyro (context.get (), &x, &y, &z, &timestamp);
        if (random () % 2)
          cameraAngles_GetRsGyro (context.get (), &x, &y, &z, &timestamp);
        if (random () % 4)
          drain (context.get ());
        log.clear ();
      }
      for (const ringBuffer_t &ring :
           {context->rawRing, context->refRing, context->filtRing, context->filtOutRing,
            context->rsRing, context->rsOutRing, context->angleRing}) {
        ASSERT_LT (ring.rd, ring.size);
        ASSERT_LT (ring.wr, ring.size);
      }
    }
  }
}

} // namespace
