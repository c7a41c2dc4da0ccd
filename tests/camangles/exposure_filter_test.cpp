// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <random>

#include <camangles/exposure_filter.h>
#include <camangles/filters.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support.hpp"
#include "tables.h"

namespace
{

class ExposureFilter : public testing::Test
{
protected:
  ExposureFilter ()
  {
    expFilter_init (&state_);
    set_range (50, 250);
  }
  void set_range (float low, float high)
  {
    const float range[] = {low, high};
    EXPECT_EQ (expFilter_configure_freqRange (&state_, range), 0);
  }
  void write (float x, float y, float z)
  {
    x_[in_.wr] = x;
    y_[in_.wr] = y;
    z_[in_.wr] = z;
    ringBufferMoveWriter (&in_, 1);
  }
  int32_t run (float duration, float fs = 1000)
  {
    return expFilter (duration, fs, &state_, &in_, x_.data (), y_.data (), z_.data (), &out_,
                      fx_.data (), fy_.data (), fz_.data ());
  }

  expFilter_t state_;
  ringBuffer_t in_ = {1024, 0, 0}, out_ = {1024, 0, 0};
  std::vector<float> x_ = std::vector<float> (1024), y_ = x_, z_ = x_;
  std::vector<float> fx_ = x_, fy_ = x_, fz_ = x_;
};

TEST (ExposureFilterState, Layout)
{
  static_assert (sizeof (expFilter_t) == 48 && offsetof (expFilter_t, windowSize) == 8 &&
                 offsetof (expFilter_t, lastDuration) == 12 && offsetof (expFilter_t, a) == 16 &&
                 offsetof (expFilter_t, b) == 28 && offsetof (expFilter_t, active) == 40 &&
                 offsetof (expFilter_t, impzLength) == 44);
  expFilter_t state;
  EXPECT_EQ (expFilter_init (&state), 0);
  EXPECT_EQ (state.minFreqHz, 0.0f);
  EXPECT_EQ (state.maxFreqHz, 10000.0f);
  EXPECT_EQ (state.windowSize, 10u);
  EXPECT_EQ (state.lastDuration, -1.0f);
  EXPECT_THAT (state.a, testing::Each (0.0f));
  EXPECT_THAT (state.b, testing::Each (0.0f));
  EXPECT_FALSE (state.active);
  EXPECT_EQ (state.impzLength, 10u);
}

TEST (ExposureFilterState, Refusals)
{
  expFilter_t state;
  expFilter_init (&state);
  const float range[] = {1, 2};
  EXPECT_EQ (expFilter_init (nullptr), -1);
  EXPECT_EQ (expFilter_configure_freqRange (nullptr, range), -1);
  EXPECT_EQ (expFilter_configure_freqRange (&state, nullptr), -1);
  EXPECT_EQ (expFilter_configure_windowSize (nullptr, 1), -1);
  EXPECT_EQ (expFilter_configure_windowSize (&state, 0), -1);
  EXPECT_EQ (state.windowSize, 10u);
  EXPECT_EQ (expFilter_configure_windowSize (&state, 33), 0);
  EXPECT_EQ (state.windowSize, 33u);
  const float unchecked[] = {5, -5};
  EXPECT_EQ (expFilter_configure_freqRange (&state, unchecked), 0);
  EXPECT_EQ (state.maxFreqHz, -5.0f);
}

TEST_F (ExposureFilter, NullArgumentsAreRefused)
{
  LogCapture log;
  EXPECT_EQ (expFilter (0, 1000, nullptr, &in_, x_.data (), y_.data (), z_.data (), &out_,
                        fx_.data (), fy_.data (), fz_.data ()),
             -1);
  EXPECT_EQ (log.texts (log_error), std::vector<std::string>{"error, ctx cannot be null"});
  EXPECT_EQ (log.lines ()[0].tag, "camangles_exp_filter");
  log.clear ();
  for (const float duration : {0.0f, 1.0f / 300}) {
    EXPECT_EQ (expFilter (duration, 1000, &state_, &in_, x_.data (), nullptr, z_.data (), &out_,
                          fx_.data (), fy_.data (), fz_.data ()),
               -1);
    EXPECT_EQ (expFilter (duration, 1000, &state_, nullptr, x_.data (), y_.data (), z_.data (),
                          &out_, fx_.data (), fy_.data (), fz_.data ()),
               -1);
  }
  EXPECT_TRUE (log.has ("error, input and/or output data are NULL", log_error));
}

TEST_F (ExposureFilter, DurationZeroPassesEverySampleThrough)
{
  for (int i = 0; i < 3000; i++) {
    const auto value = static_cast<float> (i);
    write (value, 2 * value, 3 * value);
    ASSERT_EQ (run (0), 0);
    ASSERT_FALSE (state_.active);
    ASSERT_EQ (ringBufferDiff (&out_), 1);
    ASSERT_EQ (fx_[out_.rd], value);
    ASSERT_EQ (fy_[out_.rd], 2 * value);
    ASSERT_EQ (fz_[out_.rd], 3 * value);
    out_.rd = out_.wr;
  }
}

TEST_F (ExposureFilter, CutOffFollowsTheDuration)
{
  for (uint32_t i = 0; i < 100; i++) {
    write (1, 1, 1);
    ASSERT_EQ (run (1.0f / 300), 0);
    ASSERT_TRUE (state_.active);
    const uint32_t length = butter2_impzlength_array[2990];
    ASSERT_EQ (state_.impzLength, length);
    ASSERT_EQ (ringBufferDiff (&out_),
               static_cast<int> (i + 1 < 10 + length ? 0 : (i + 1 - length) / 10 * 10));
  }
  float a[3], b[3];
  designIirButter2LowPass (a, b, 0.3f);
  EXPECT_NEAR (state_.a[1], a[1], 1e-6);
  EXPECT_NEAR (state_.b[0], b[0], 1e-6);
}

TEST_F (ExposureFilter, LowCutOffIsRaisedToTheMinimum)
{
  EXPECT_EQ (run (1.0f / 60), 0); // 30 Hz
  float a[3], b[3];
  designIirButter2LowPass (a, b, 0.1f); // 50 Hz of 500
  EXPECT_TRUE (state_.active);
  EXPECT_EQ (state_.a[1], a[1]);
}

TEST_F (ExposureFilter, CutOffAtTheMaximumStillFilters)
{
  EXPECT_EQ (run (1.0f / 500), 0); // 250 Hz
  EXPECT_TRUE (state_.active);
  EXPECT_EQ (run (1.0f / 502), 0);
  EXPECT_FALSE (state_.active);
}

TEST_F (ExposureFilter, VeryLowNormalisedCutOffIsRaised)
{
  EXPECT_EQ (run (1.0f, 100000), 0); // 50 Hz of 50000: 0.001
  float a[3], b[3];
  designIirButter2LowPass (a, b, 0.007f);
  EXPECT_TRUE (state_.active);
  EXPECT_EQ (state_.a[1], a[1]);
  uint32_t length;
  IitButter2_impzlength (&length, 0.007f);
  EXPECT_EQ (state_.impzLength, length);
}

TEST_F (ExposureFilter, CutOffNearNyquistPassesThrough)
{
  set_range (50, 1000);
  EXPECT_EQ (run (1.0f / 998, 1000), 0); // 499 of 500 Hz
  EXPECT_FALSE (state_.active);
  EXPECT_EQ (run (1.0f / 980, 1000), 0); // 490 of 500 Hz
  EXPECT_TRUE (state_.active);
}

TEST_F (ExposureFilter, SameDurationDesignsOnce)
{
  run (1.0f / 300);
  const float a1 = state_.a[1];
  set_range (100, 120);
  run (1.0f / 300);
  EXPECT_TRUE (state_.active) << "a new range waits for the next duration";
  EXPECT_EQ (state_.a[1], a1);
  run (1.0f / 301);
  EXPECT_FALSE (state_.active);
}

TEST_F (ExposureFilter, DurationOfAFreshStateKeepsPassingThroughOnPurpose)
{
  write (1, 2, 3);
  EXPECT_EQ (run (-1.0f), 0);
  EXPECT_FALSE (state_.active);
  EXPECT_EQ (ringBufferDiff (&out_), 1);
  EXPECT_EQ (run (-2.0f), 0);
  EXPECT_TRUE (state_.active) << "any other negative duration gives the minimum";
}

TEST_F (ExposureFilter, AllAxesAgreeWithTheFilterOfOneAxis)
{
  std::mt19937 random (5);
  std::normal_distribution<float> normal;
  ringBuffer_t in = in_, out = out_;
  std::vector<float> y (1024);
  for (int i = 0; i < 5000; i++) {
    write (normal (random), normal (random), normal (random));
    in.wr = in_.wr;
    const int axis = i / 10 % 3;
    if (random () % 3 == 0)
      continue;
    ASSERT_EQ (run (1.0f / 200), 0);
    const ringBuffer_t in_axis = in, out_axis = out;
    const std::vector<float> &input = axis == 0 ? x_ : axis == 1 ? y_ : z_;
    const std::vector<float> &output = axis == 0 ? fx_ : axis == 1 ? fy_ : fz_;
    ASSERT_EQ (windowFiltFilt_filter (2, state_.a, state_.b, state_.windowSize, state_.impzLength,
                                      &in, input.data (), &out, y.data ()),
               0);
    ASSERT_EQ (in, in_);
    ASSERT_EQ (out, out_);
    for (uint32_t slot = out_axis.wr; slot != out.wr; slot = (slot + 1) % 1024)
      ASSERT_EQ (y[slot], output[slot]);
    (void)in_axis;
    out_.rd = out_.wr;
    out.rd = out.wr;
  }
}

TEST_F (ExposureFilter, RefusedWindowMovesAreLoggedForEachAxis)
{
  out_ = {1024, 0, 1023};
  run (1.0f / 300);
  for (int i = 0; i < 100; i++)
    write (1, 1, 1);
  LogCapture log;
  EXPECT_EQ (run (1.0f / 300), 0);
  EXPECT_EQ (log.count ("oups output", log_error), 3);
}

TEST_F (ExposureFilter, PassThroughIntoAFullRingFails)
{
  out_ = {1024, 0, 1022};
  for (int i = 0; i < 3; i++)
    write (1, 1, 1);
  LogCapture log;
  EXPECT_EQ (run (0), -1);
  EXPECT_EQ (log.texts (log_error), (std::vector<std::string>{"oups output", "oups output"}));
  EXPECT_EQ (out_, (ringBuffer_t{1024, 2, 1}));
  EXPECT_EQ (ringBufferDiff (&in_), 0);
}

TEST_F (ExposureFilter, ReturningToPassThroughReleasesWhatWasHeldBack)
{
  for (int i = 0; i < 15; i++) {
    write (1, 1, 1);
    run (1.0f / 300);
  }
  ASSERT_EQ (ringBufferDiff (&in_), 15);
  EXPECT_EQ (run (0), 0);
  EXPECT_EQ (ringBufferDiff (&in_), 0);
  EXPECT_EQ (ringBufferDiff (&out_), 15);
}

TEST_F (ExposureFilter, FailedDesignIsReportedAndLeavesTheStageRunning)
{
  set_range (nan_f, 250);
  LogCapture log;
  EXPECT_EQ (run (nan_f), -1);
  EXPECT_EQ (log.count ("error, failed to design filter", log_error), 1);
  EXPECT_EQ (log.count ("error, failed to get filter impulse response length", log_error), 1);
  EXPECT_TRUE (state_.active);
  EXPECT_EQ (state_.impzLength, 10u) << "what it had";
}

TEST_F (ExposureFilter, DurationsThatAreNotFinite)
{
  float a[3], b[3];
  designIirButter2LowPass (a, b, 0.1f);
  for (const float duration : {inf_f, nan_f, -inf_f}) {
    expFilter_init (&state_);
    set_range (50, 250);
    EXPECT_EQ (run (duration), 0);
    EXPECT_TRUE (state_.active) << "an endless exposure: the minimum";
    EXPECT_EQ (state_.a[1], a[1]);
  }
}

TEST_F (ExposureFilter, SamplingFrequenciesThatMakeNoSenseDoNotHarm)
{
  for (const float fs : {0.0f, -1000.0f, nan_f, inf_f, 1e-30f, 1e30f}) {
    expFilter_init (&state_);
    set_range (50, 250);
    in_ = {1024, 0, 0};
    out_ = in_;
    for (int i = 0; i < 3000; i++) {
      write (1, 2, 3);
      run (1.0f / 300, fs);
      ASSERT_LT (out_.wr, 1024u);
      out_.rd = out_.wr;
    }
  }
}

} // namespace
