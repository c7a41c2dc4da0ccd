// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <numbers>
#include <random>

#include <camangles/gyro_integration.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support.hpp"

namespace
{

constexpr double pi = std::numbers::pi;

class Integration : public testing::Test
{
protected:
  void write (float x, float y, float z, quat_t reference = {0, 0, 0, 0})
  {
    x_[in_.wr] = x;
    y_[in_.wr] = y;
    z_[in_.wr] = z;
    ringBufferMoveWriter (&in_, 1);
    reference_[ref_.wr] = reference;
    ringBufferMoveWriter (&ref_, 1);
  }
  int32_t run (bool with_references = true)
  {
    return gyroIntegration (&state_, &in_, x_.data (), y_.data (), z_.data (),
                            with_references ? &ref_ : nullptr,
                            with_references ? reference_.data () : nullptr, &out_, output_.data (),
                            bias_pointer_, init_stage_, dt_, convergence_, bias_gain_);
  }
  static constexpr uint32_t size = 2048;
  gyroIntegration_t state_ = gyroIntegration_t_init;
  ringBuffer_t in_ = {size, 0, 0}, ref_ = in_, out_ = in_;
  std::vector<float> x_ = std::vector<float> (size), y_ = x_, z_ = x_;
  std::vector<quat_t> reference_ = std::vector<quat_t> (size), output_ = reference_;
  float bias_[3] = {0, 0, 0};
  float *bias_pointer_ = bias_;
  uint32_t init_stage_ = 0;
  float dt_ = 0.001f, convergence_ = 0.01f, bias_gain_ = 0;
};

TEST_F (Integration, StartsAtTheIdentity)
{
  EXPECT_EQ (gyroIntegration_t_init.attitude, (quat_t{0, 0, 0, 1}));
  static_assert (sizeof (gyroIntegration_t) == 16);
}

TEST_F (Integration, NothingReadyIsNoFailure)
{
  EXPECT_EQ (run (), 0);
  EXPECT_EQ (ringBufferDiff (&out_), 0);
}

TEST_F (Integration, ZeroRatesLeaveTheAttitudeExactly)
{
  for (int i = 0; i < 1000; i++)
    write (0, 0, 0);
  EXPECT_EQ (run (), 0);
  EXPECT_EQ (ringBufferDiff (&out_), 1000);
  for (size_t i = 0; i < 1000; i++)
    ASSERT_EQ (output_[i], (quat_t{0, 0, 0, 1}));
}

TEST_F (Integration, QuarterTurnInOneSecond)
{
  for (int i = 0; i < 1000; i++)
    write (0, 0, static_cast<float> (pi / 2));
  EXPECT_EQ (run (), 0);
  const auto expected = QuatD::about (0, 0, 1, pi / 2);
  /* A thousand roundings of 6e-8 each, of which the drift is a random walk: 1000^0.5 * 6e-8, times
   * 2 for the angle; the step's rounding is the same each time: 1000 * 3e-11. */
  EXPECT_LT (angle_between (QuatD (state_.attitude), expected), 5e-6);
  EXPECT_EQ (output_[999], state_.attitude);
}

TEST_F (Integration, LargeStepsUseTheSineAndCosine)
{
  /* On both sides of the limit of the series. Its sine is short by h^5 / 120 and its cosine by h^4
   * / 24: once normalised, the whole angle is off by h^5 / 15. The rest is rounding. */
  for (const double half : {0.01, 0.05, 0.0999, 0.1001, 0.5, 1.5}) {
    state_ = gyroIntegration_t_init;
    const auto rate = static_cast<float> (2 * half / static_cast<double> (dt_));
    write (rate, 0, 0);
    run ();
    const double series_error = half < 0.1 ? std::pow (half, 5) / 15 : 0;
    const auto expected = QuatD::about (1, 0, 0, 2 * half);
    EXPECT_LT (angle_between (QuatD (state_.attitude), expected), series_error + 3e-7 * (1 + half))
        << half;
  }
}

TEST_F (Integration, TumblingFollowsTheExactAttitude)
{
  /* q = rz (a t) rx (b t): in the body frame the rate is (b, a sin (b t), a cos (b t)). Steps take
   * the rate of their middle, so the error is of second order in dt. */
  const double a = 2.0, b = 3.0, dt = 0.001;
  for (int i = 0; i < 2000; i++) {
    const double t = (i + 0.5) * dt;
    write (static_cast<float> (b), static_cast<float> (a * std::sin (b * t)),
           static_cast<float> (a * std::cos (b * t)));
  }
  EXPECT_EQ (run (), 0);
  for (int i = 0; i < 2000; i++) {
    const double t = (i + 1) * dt;
    const auto expected = QuatD::about (0, 0, 1, a * t) * QuatD::about (1, 0, 0, b * t);
    ASSERT_LT (angle_between (QuatD (output_[static_cast<size_t> (i)]), expected), 1e-5) << i;
    ASSERT_NEAR (QuatD (output_[static_cast<size_t> (i)]).norm (), 1.0, 2e-7);
  }
}

TEST_F (Integration, RunsAgreeWithSingleSamples)
{
  /* A run without references is taken at once; its attitudes may differ by where the norm is
   * rounded. */
  std::mt19937 random (9);
  std::normal_distribution<float> normal (0, 2);
  gyroIntegration_t single = gyroIntegration_t_init;
  std::vector<quat_t> one (size);
  for (int round = 0; round < 200; round++) {
    const size_t n = 1 + random () % 100;
    for (size_t i = 0; i < n; i++) {
      const float scale = random () % 20 == 0 ? 200.0f : 1.0f; // now and then beyond the series
      write (normal (random) * scale, normal (random) * scale, normal (random) * scale);
    }
    ringBuffer_t in = in_, ref = ref_, out = out_;
    for (size_t i = 0; i < n; i++) {
      ringBuffer_t one_in = in, one_ref = ref;
      one_in.wr = (in.rd + 1) % size;
      one_ref.wr = one_in.wr;
      gyroIntegration (&single, &one_in, x_.data (), y_.data (), z_.data (), &one_ref,
                       reference_.data (), &out, one.data (), bias_, 0, dt_, 0.5f, 0.1f);
      in.rd = one_in.rd;
      ref.rd = one_ref.rd;
    }
    ASSERT_EQ (run (), 0);
    ASSERT_EQ (out_.wr, out.wr);
    for (; out_.rd != out_.wr; ringBufferMoveReader (&out_, 1)) {
      /* Twelve hundred steps apart by a rounding each at most: a random walk of 2e-7. */
      ASSERT_LT (angle_between (QuatD (output_[out_.rd]), QuatD (one[out_.rd])), 2e-5);
      ASSERT_NEAR (QuatD (output_[out_.rd]).norm (), 1.0, 2e-7);
    }
  }
}

TEST_F (Integration, ZeroReferenceNeitherPullsNorUpdatesTheBias)
{
  bias_gain_ = 1;
  convergence_ = 1;
  for (int i = 0; i < 3; i++)
    write (0.5f, 0, 0, {0, 0, 0, 0});
  run ();
  const quat_t with = state_.attitude;
  EXPECT_THAT (bias_, testing::Each (0.0f));
  state_ = gyroIntegration_t_init;
  for (int i = 0; i < 3; i++)
    write (0.5f, 0, 0);
  run (false);
  EXPECT_EQ (state_.attitude, with);
}

TEST_F (Integration, BiasFallsByTwiceTheGainTimesTheHalfAngle)
{
  convergence_ = 0.5f;
  bias_gain_ = 0.1f;
  write (0, 0, 0, QuatD::about (1, 0, 0, 0.02).single ());
  EXPECT_EQ (run (), 0);
  EXPECT_NEAR (bias_[0], -0.002, 1e-7);
  EXPECT_EQ (bias_[1], 0);
  EXPECT_EQ (bias_[2], 0);
  EXPECT_LT (angle_between (QuatD (state_.attitude), QuatD::about (1, 0, 0, 0.01)), 1e-6)
      << "half way to the reference";
}

TEST_F (Integration, ReferenceOfEitherSignGivesTheSameBiasChange)
{
  convergence_ = 0.0f;
  bias_gain_ = 0.1f;
  QuatD q = QuatD::about (0.6, 0, 0.8, 0.03);
  write (0, 0, 0, q.single ());
  run ();
  const std::array<float, 3> positive = {bias_[0], bias_[1], bias_[2]};
  EXPECT_LT (positive[0], 0);
  EXPECT_LT (positive[2], 0);
  std::fill (bias_, bias_ + 3, 0.0f);
  state_ = gyroIntegration_t_init;
  write (0, 0, 0, QuatD (-q.x, -q.y, -q.z, -q.w).single ());
  run ();
  EXPECT_THAT (bias_, testing::ElementsAreArray (positive));
}

TEST_F (Integration, InitStageLeavesTheBiasButPulls)
{
  init_stage_ = 1;
  bias_gain_ = 1;
  convergence_ = 1;
  const quat_t reference = QuatD::about (0, 1, 0, 0.5).single ();
  write (0, 0, 0, reference);
  run ();
  EXPECT_THAT (bias_, testing::Each (0.0f));
  EXPECT_LT (angle_between (QuatD (state_.attitude), QuatD (reference)), 1e-6);
}

TEST_F (Integration, ConvergenceOneTakesTheReferenceZeroIgnoresIt)
{
  const quat_t reference = QuatD::about (0, 0.6, 0.8, 2.0).single ();
  convergence_ = 1;
  write (3, 2, 1, reference);
  run ();
  EXPECT_LT (angle_between (QuatD (state_.attitude), QuatD (reference)), 1e-6);
  state_ = gyroIntegration_t_init;
  convergence_ = 0;
  write (3, 2, 1, reference);
  run ();
  const quat_t pulled = state_.attitude;
  state_ = gyroIntegration_t_init;
  write (3, 2, 1);
  run ();
  EXPECT_EQ (state_.attitude, pulled);
}

TEST_F (Integration, ReferencesLimitTheCount)
{
  for (int i = 0; i < 20; i++)
    write (0.1f, 0, 0);
  ref_.wr = 7;
  EXPECT_EQ (run (), 0);
  EXPECT_EQ (ringBufferDiff (&out_), 7);
  EXPECT_EQ (in_.rd, 7u);
  EXPECT_EQ (ref_.rd, 7u);
}

TEST_F (Integration, NullBiasIsLoggedAtEveryReferencedSample)
{
  bias_pointer_ = nullptr;
  LogCapture log;
  for (int i = 0; i < 3; i++)
    write (0, 0, 0, {0, 0, 0, 1});
  write (0, 0, 0);
  EXPECT_EQ (run (), 0);
  EXPECT_EQ (log.texts (log_error), (std::vector<std::string> (3, "error, bias pointer is null")));
  EXPECT_EQ (log.lines ()[0].tag, "camangles_gyro_integration");
  log.clear ();
  init_stage_ = 1;
  write (0, 0, 0, {0, 0, 0, 1});
  EXPECT_EQ (run (), 0);
  EXPECT_TRUE (log.lines ().empty ());
}

TEST_F (Integration, FullOutputDropsTheOldestAndFails)
{
  out_.wr = size - 6; // five slots of room
  LogCapture log;
  for (int i = 0; i < 8; i++)
    write (0, 0, static_cast<float> (i));
  EXPECT_EQ (run (), -1);
  EXPECT_EQ (log.texts (log_error), (std::vector<std::string> (3, "oups output")));
  EXPECT_EQ (ringBufferDiff (&out_), static_cast<int> (size - 1));
  EXPECT_EQ (out_.wr, 2u);
  EXPECT_EQ (out_.rd, 3u);
  EXPECT_EQ (ringBufferDiff (&in_), 0) << "the loop goes on";
}

/* One handle for two arrays is moved twice a sample and runs dry: no more is taken than was there.
 */
TEST_F (Integration, HandleThatServesTwoArraysRunsDry)
{
  for (int i = 0; i < 3; i++)
    write (0, 0, 1);
  LogCapture log;
  EXPECT_EQ (gyroIntegration (&state_, &in_, x_.data (), y_.data (), z_.data (), &in_,
                              reference_.data (), &out_, output_.data (), bias_, init_stage_, dt_,
                              convergence_, bias_gain_),
             -1);
  // The ring says what it refuses, the integration for whom.
  const std::string refused = "error, can't move reader by 1, (wr 3 rd 3 sz 2048)";
  EXPECT_EQ (log.texts (log_error),
             (std::vector<std::string>{refused, "oups ref input", refused, "oups input", refused,
                                       "oups ref input"}));
  EXPECT_EQ (ringBufferDiff (&in_), 0);
  EXPECT_EQ (ringBufferDiff (&out_), 3);
}

TEST_F (Integration, HandlesOfDifferentSizesAndPositions)
{
  for (int i = 0; i < 300; i++)
    write (1, -2, 0.5f);
  run ();
  const std::vector<quat_t> straight (output_.begin (), output_.begin () + 300);
  state_ = gyroIntegration_t_init;
  in_.rd = 0;
  in_.wr = 300;
  ringBuffer_t ref = {97, 50, 50}, out = {61, 33, 33};
  std::vector<quat_t> references (97), output (61);
  size_t n = 0;
  while (ringBufferDiff (&in_) > 0) {
    ringBufferMoveWriter (&ref, 43);
    ASSERT_EQ (gyroIntegration (&state_, &in_, x_.data (), y_.data (), z_.data (), &ref,
                                references.data (), &out, output.data (), bias_, 0, dt_, 0.1f, 0),
               0);
    for (; out.rd != out.wr; ringBufferMoveReader (&out, 1), n++)
      ASSERT_LT (angle_between (QuatD (output[out.rd]), QuatD (straight[n])), 2e-6);
  }
  EXPECT_EQ (n, 300u);
}

TEST_F (Integration, NaNRateActsAsNoRate)
{
  for (const bool in_a_run : {false, true}) {
    state_ = gyroIntegration_t_init;
    const int n = in_a_run ? 8 : 1;
    for (int i = 0; i < n; i++)
      write (i == 0 ? nan_f : 0, 1, 1);
    out_.rd = out_.wr;
    run ();
    EXPECT_EQ (output_[out_.rd], (quat_t{0, 0, 0, 1}));
    EXPECT_EQ (quatIsFinite (&state_.attitude), 1);
  }
}

TEST_F (Integration, InfiniteRateMakesTheAttitudeNaN)
{
  for (const bool in_a_run : {false, true}) {
    state_ = gyroIntegration_t_init;
    for (int i = 0; i < (in_a_run ? 8 : 1); i++)
      write (0, inf_f, 0);
    EXPECT_EQ (run (), 0);
    EXPECT_EQ (quatIsFinite (&state_.attitude), 0);
  }
}

} // namespace
