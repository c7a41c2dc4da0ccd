// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A simulated camera with a gyro that has bias and noise, against what theory predicts for the
// chain.
#include <numbers>
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "context_support.hpp"

namespace
{

constexpr double pi = std::numbers::pi;
constexpr double fs = 1000;

/**
 * Tumbling with a closed form: q (t) = rz (a t) rx (b t + c sin (d t)). In the body frame it turns
 * at (b + c d cos (d t), a sin (phi), a cos (phi)) with phi the angle about x.
 */
struct Tumbling {
  double a = 1.5, b = 0.8, c = 0.4, d = 6;

  QuatD attitude (double t) const
  {
    return QuatD::about (0, 0, 1, a * t) * QuatD::about (1, 0, 0, b * t + c * std::sin (d * t));
  }
  /** The mean rate over a sample that ends at t, from the attitudes at both ends: what a gyro
   * integrates. */
  std::array<double, 3> rate (double t) const
  {
    auto v = (attitude (t - 1 / fs).conjugated () * attitude (t)).vector ();
    for (double &component : v)
      component *= fs;
    return v;
  }
};

using Vector = std::array<double, 3>;

int32_t feed (const Context &context, uint64_t i, const Vector &rate,
              const quat_t *reference = nullptr, float exposure = 0)
{
  return cameraAngles_Feed (context.get (), reference, i, static_cast<float> (rate[0]),
                            static_cast<float> (rate[1]), static_cast<float> (rate[2]), exposure);
}

double length (const Vector &v)
{
  return std::sqrt (v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
}

TEST (Physics, PerfectGyroFollowsTheTumblingMotion)
{
  const Tumbling motion;
  const Context context = make_context (0);
  for (uint64_t i = 0; i < 10000; i++) {
    const double t = static_cast<double> (i + 1) / fs;
    ASSERT_EQ (feed (context, i, motion.rate (t)), 0);
    const Drained drained = drain (context.get ());
    ASSERT_EQ (drained.attitudes.size (), 1u);
    /* 10^4 roundings of 6e-8 as a random walk: 6e-6 per component; 5 sigma. */
    ASSERT_LT (angle_between (QuatD (drained.attitudes[0]), motion.attitude (t)), 5e-5) << i;
  }
}

TEST (Physics, ResamplingFollowsTheTumblingMotionBetweenTheSamples)
{
  for (const uint32_t log2_factor : {1u, 3u, 7u}) {
    const Tumbling motion;
    const Context context = make_context (log2_factor);
    const auto factor = static_cast<double> (1u << log2_factor);
    const double start = 0.1;
    size_t n = 0;
    double worst = 0;
    QuatD offset;
    for (uint64_t i = 0; i < 3000; i++) {
      const double t = static_cast<double> (i) / fs;
      /* Point samples of the rate. */
      const double h = 1e-5;
      auto rate = (motion.attitude (t - h).conjugated () * motion.attitude (t + h)).vector ();
      for (double &component : rate)
        component /= 2 * h;
      ASSERT_EQ (feed (context, i, rate), 0);
      for (const quat_t &attitude : drain (context.get ()).attitudes) {
        /* Output n holds over the step that follows its time. */
        const double at = (static_cast<double> (n) + 0.5) / (fs * factor);
        n++;
        if (at < start)
          offset = motion.attitude (at) * QuatD (attitude).normalized ().conjugated ();
        else
          worst = std::max (worst, angle_between (offset * QuatD (attitude), motion.attitude (at)));
      }
    }
    EXPECT_GT (n, 2900 * static_cast<size_t> (factor));
    /* The interpolator's pass band is flat to 1e-3 or better; over three seconds at 2 rad/s that is
     * the scale of the attitude error. The ring starts empty, so the first samples are left out. */
    EXPECT_LT (worst, 3e-3) << factor;
  }
}

TEST (Physics, BiasDriftsAtItsOwnRateWithoutReference)
{
  const Context context = make_context (0);
  const Vector bias = {0.002, -0.001, 0.0015};
  for (uint64_t i = 0; i < 60000; i++) {
    feed (context, i, bias);
    drain (context.get ());
  }
  /* About one axis angles add: |bias| t. */
  EXPECT_NEAR (angle_between (QuatD (context->gyroIntegration.attitude), QuatD ()),
               length (bias) * 60, 1e-3 * length (bias) * 60);
}

TEST (Physics, NoiseDriftsAsARandomWalk)
{
  /* White noise of sigma per sample: each axis walks sigma sqrt (n) / fs. Of 60 runs the mean
   * square on three axes is known to sqrt (2 / 180) = 11 %, 4 sigma are 42 %. */
  const double sigma = 0.05;
  const int n = 4000, runs = 60;
  std::mt19937 random (11);
  std::normal_distribution<double> normal (0, sigma);
  double sum = 0;
  for (int run = 0; run < runs; run++) {
    const Context context = make_context (0);
    for (int i = 0; i < n; i++) {
      feed (context, static_cast<uint64_t> (i),
            {normal (random), normal (random), normal (random)});
      drain (context.get ());
    }
    sum += std::pow (angle_between (QuatD (context->gyroIntegration.attitude), QuatD ()), 2);
  }
  const double measured = sum / (3 * runs);
  const double predicted = sigma * sigma * n / (fs * fs);
  EXPECT_NEAR (measured / predicted, 1.0, 0.42);
}

TEST (Physics, ReferencePullsTheErrorDownExponentially)
{
  const double convergence = 0.02;
  const Context context = make_context (0);
  cameraAngles_setConvergence (context.get (), static_cast<float> (convergence));
  const QuatD reference = QuatD::about (0.48, 0.6, 0.64, 0.2);
  const quat_t single = reference.single ();
  for (int i = 1; i <= 300; i++) {
    feed (context, static_cast<uint64_t> (i), {0, 0, 0}, &single);
    drain (context.get ());
    /* For small errors e becomes (1 - c) e; a chord instead of an arc makes up to 1e-3 of it here.
     */
    const double error = angle_between (QuatD (context->gyroIntegration.attitude), reference);
    ASSERT_NEAR (error, 0.2 * std::pow (1 - convergence, i), 4e-4) << i;
  }
}

TEST (Physics, ConvergenceIsTheSameAtEveryFactor)
{
  /* It is given per raw sample and spread over the resampled ones. */
  for (const uint32_t log2_factor : {0u, 3u, 7u}) {
    const Context context = make_context (log2_factor);
    cameraAngles_setConvergence (context.get (), 0.02f);
    const QuatD reference = QuatD::about (1, 0, 0, 0.1);
    const quat_t single = reference.single ();
    const int held = log2_factor == 0 ? 0 : 10;
    for (int i = 0; i < 100 + held; i++) {
      feed (context, static_cast<uint64_t> (i), {0, 0, 0}, &single);
      drain (context.get ());
    }
    /* (1 - c / f)^(100 f) lies between (1 - c)^100 = 0.1326 and exp (-100 c) = 0.1353. */
    const double left = angle_between (QuatD (context->gyroIntegration.attitude), reference) / 0.1;
    EXPECT_GT (left, 0.132) << log2_factor;
    EXPECT_LT (left, 0.136) << log2_factor;
  }
}

TEST (Physics, UncorrectedBiasLeavesTheKnownRestError)
{
  const double convergence = 0.01;
  const Tumbling motion;
  const Context context = make_context (0);
  const Vector bias = {0.02, -0.03, 0.01};
  cameraAngles_setConvergence (context.get (), static_cast<float> (convergence));
  for (int i = 0; i < 5000; i++) {
    const double t = (i + 1) / fs;
    auto rate = motion.rate (t);
    for (size_t axis = 0; axis < 3; axis++)
      rate[axis] += bias[axis];
    const quat_t reference = motion.attitude (t).single ();
    feed (context, static_cast<uint64_t> (i), rate, &reference);
    drain (context.get ());
  }
  /* Balance of what a step adds and what the pull takes: (e + b dt) (1 - c) = e, so e = b dt (1 -
   * c) / c. The body turns under the error while it settles, by 2 rad/s over 0.1 s: a few per cent.
   */
  const double predicted = length (bias) / fs * (1 - convergence) / convergence;
  EXPECT_NEAR (angle_between (QuatD (context->gyroIntegration.attitude), motion.attitude (5.0)),
               predicted, 0.05 * predicted);
}

class BiasSearch : public testing::TestWithParam<uint32_t>
{
};

TEST_P (BiasSearch, FindsTheBiasOfATumblingNoisyGyro)
{
  const Tumbling motion;
  const Context context = make_context (GetParam ());
  const Vector bias = {0.03, -0.02, 0.05};
  std::mt19937 random (12);
  std::normal_distribution<double> noise (0, 0.01);
  cameraAngles_setConvergence (context.get (), 0.02f);
  cameraAngles_setBiasGain (context.get (), 0.04f);
  for (int i = 0; i < 15000; i++) {
    const double t = (i + 1) / fs;
    auto rate = motion.rate (t);
    for (size_t axis = 0; axis < 3; axis++)
      rate[axis] += bias[axis] + noise (random);
    const quat_t reference = motion.attitude (t).single ();
    feed (context, static_cast<uint64_t> (i), rate, &reference);
    drain (context.get ());
  }
  /* Error and bias settle in 1 / (fs c) = 50 ms and c / gain = 0.5 s: 15 s are thirty of the
   * latter. What is left is noise through that filter: 0.01 * sqrt (1 ms / (2 * 0.5 s)) = 3e-4,
   * here 5 sigma. */
  for (size_t axis = 0; axis < 3; axis++)
    EXPECT_NEAR (context->bias[axis], bias[axis], 1.6e-3 + (GetParam () > 0 ? 3e-3 : 0)) << axis;
  EXPECT_LT (angle_between (QuatD (context->gyroIntegration.attitude),
                            motion.attitude (15.0 - (GetParam () > 0 ? 0.010 : 0))),
             2e-3);
}

INSTANTIATE_TEST_SUITE_P (Log2Factor, BiasSearch, testing::Values (0u, 2u));

TEST (Physics, StillCameraLearnsItsBiasInTheInitStage)
{
  const Context context = make_context (0);
  const Vector bias = {0.03, -0.02, 0.05};
  std::mt19937 random (13);
  std::normal_distribution<double> noise (0, 0.01);
  cameraAngles_setGyroInitStage (context.get (), 1);
  const auto step = [&] (uint64_t i) {
    feed (context, i,
          {bias[0] + noise (random), bias[1] + noise (random), bias[2] + noise (random)});
    drain (context.get ());
  };
  for (uint64_t i = 0; i < 4000; i++)
    step (i);
  /* The mean of 4000 values of sigma 0.01: 1.6e-4, here 5 sigma. */
  for (size_t axis = 0; axis < 3; axis++)
    EXPECT_NEAR (context->bias[axis], bias[axis], 8e-4);
  cameraAngles_setGyroInitStage (context.get (), 0);
  const QuatD before (context->gyroIntegration.attitude);
  for (uint64_t i = 4000; i < 14000; i++)
    step (i);
  /* Ten seconds of the rest bias (8e-4 on each axis), and a noise walk of 1e-3. */
  EXPECT_LT (angle_between (QuatD (context->gyroIntegration.attitude), before),
             10 * 8e-4 * 1.75 + 5e-3);
}

TEST (Physics, ExposureFilterTakesAVibrationOutOfTheAttitude)
{
  /* A vibration of 400 Hz on a slow pan: with 1/300 s of exposure the filter's squared gain leaves
   * 0.5 % of it. */
  const auto shake = [] (float exposure) {
    const Context context = make_context (0);
    double worst = 0;
    size_t n = 0;
    for (uint64_t i = 0; i < 3000; i++) {
      const double t = static_cast<double> (i) / fs;
      feed (context, i, {5 * std::sin (2 * pi * 400 * t), 0, 0.3}, nullptr, exposure);
      for (const quat_t &attitude : drain (context.get ()).attitudes) {
        n++;
        const QuatD pan = QuatD::about (0, 0, 1, 0.3 * static_cast<double> (n) / fs);
        if (n > 200)
          worst = std::max (worst, std::fabs ((pan.conjugated () * QuatD (attitude)).vector ()[0]));
      }
    }
    return worst;
  };
  EXPECT_LT (shake (1.0f / 300), 0.2 * shake (0));
}

} // namespace
