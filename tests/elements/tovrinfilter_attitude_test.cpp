// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The attitude between, before and after the samples, and what unknown sample times leave of it.
#include <cmath>
#include <random>

#include <gtest/gtest.h>

#include <vorn/gst_raii.hpp>

#include "tovrinfilter_attitude.hpp"
#include "tovrinfilter_geometry.hpp"
#include "tovrinfilter_orientation.hpp"

using namespace tovrin;

namespace
{

constexpr double ms = 1e6; // in ns

vorn::OwnedStructure imu_data (const std::vector<Quaternion> &samples)
{
  vorn::OwnedStructure data (gst_structure_new_empty ("imu-data"));
  constexpr const char *names[4] = {"quaternions_x", "quaternions_y", "quaternions_z",
                                    "quaternions_w"};
  constexpr double Quaternion::*members[4] = {&Quaternion::x, &Quaternion::y, &Quaternion::z,
                                              &Quaternion::w};
  for (int i = 0; i < 4; i++) {
    GArray *array = g_array_new (FALSE, FALSE, sizeof (float));
    for (const Quaternion &q : samples) {
      const auto value = static_cast<float> (q.*members[i]);
      g_array_append_val (array, value);
    }
    gst_structure_set (data.get (), names[i], G_TYPE_ARRAY, array, nullptr);
    g_array_unref (array);
  }
  return data;
}

AttitudeTrack track_of (const std::vector<Quaternion> &samples)
{
  std::string problem;
  auto track = AttitudeTrack::parse (imu_data (samples).get (), &problem);
  EXPECT_TRUE (track) << problem;
  return *track;
}

/** A roll of rate rad/s, one sample a millisecond, the first at this time. */
std::vector<Quaternion> rolling (double rate, double first_ns, int count)
{
  std::vector<Quaternion> samples;
  for (int k = 0; k < count; k++)
    samples.push_back (turn ({1, 0, 0}, rate * (first_ns + k * ms) / 1e9));
  return samples;
}

double roll_of (Quaternion q)
{
  return 2 * std::atan2 (q.x, q.w);
}

} // namespace

TEST (AttitudeTrack, FollowsASteadyTurnBetweenTheSamples)
{
  const double rate = 5;
  const AttitudeTrack track = track_of (rolling (rate, -0.5 * ms, 21));
  for (double t = -0.5 * ms; t <= 21.4 * ms; t += 0.13 * ms)
    EXPECT_NEAR (roll_of (track.at (t)), rate * t / 1e9, 1e-6) << t;
}

TEST (AttitudeTrack, StandsBeforeTheFirstSampleAndLongAfterTheLast)
{
  const AttitudeTrack track = track_of (rolling (5, -0.5 * ms, 3));
  EXPECT_NEAR (roll_of (track.at (-3 * ms)), 5 * -0.5e-3, 1e-6);
  // Two milliseconds on, then no further.
  EXPECT_NEAR (roll_of (track.at (3.5 * ms)), 5 * 3.5e-3, 1e-6);
  EXPECT_NEAR (roll_of (track.at (50 * ms)), 5 * 3.5e-3, 1e-6);
}

TEST (AttitudeTrack, OfOneSampleStands)
{
  const AttitudeTrack track = track_of (rolling (5, 7 * ms, 1));
  for (const double t : {-1.0, 0.0, 10 * ms})
    EXPECT_NEAR (roll_of (track.at (t)), 5 * 7e-3, 1e-6);
}

TEST (AttitudeTrack, TakesTheShorterWayWhateverTheSigns)
{
  std::vector<Quaternion> samples = rolling (5, -0.5 * ms, 10);
  for (size_t k = 0; k < samples.size (); k += 2)
    samples[k] = {-samples[k].x, -samples[k].y, -samples[k].z, -samples[k].w};
  const AttitudeTrack track = track_of (samples);
  for (double t = 0; t < 8 * ms; t += 0.37 * ms)
    EXPECT_NEAR (std::remainder (roll_of (track.at (t)) - 5 * t / 1e9, 2 * std::numbers::pi), 0,
                 1e-6);
}

TEST (AttitudeTrack, UnknownSampleTimeCostsHalfAMillisecondAtMostAndNothingOnAverage)
{
  constexpr double rate = 4;
  std::mt19937 random (5);
  std::uniform_real_distribution<double> age (0, ms);
  double sum = 0;
  constexpr int trials = 4000;
  for (int i = 0; i < trials; i++) {
    const AttitudeTrack track = track_of (rolling (rate, -age (random), 21));
    const double error = roll_of (track.at (10 * ms)) - rate * 10e-3;
    EXPECT_LE (std::abs (error), rate * 0.5e-3 + 1e-6);
    sum += error;
  }
  EXPECT_NEAR (sum / trials, 0, rate * 0.02e-3);
}

TEST (AttitudeTrack, NormalisesRoundedSamples)
{
  const AttitudeTrack track = track_of ({{0, 0, 0, 1.009}, {0, 0, 0, 0.991}});
  EXPECT_NEAR (norm (track.at (0.2 * ms)), 1, 1e-12);
}

TEST (Slerp, IsTheTurnByThePartOfTheAngle)
{
  const Vector axis = normalized (Vector{1, -2, 0.5});
  for (const double angle : {0.0, 1e-7, 1e-3, 0.5, 2.0}) {
    for (const double part : {-0.5, 0.0, 0.3, 1.0, 1.7}) {
      const Quaternion expected = turn (axis, part * angle);
      const Quaternion found = slerp (identity, turn (axis, angle), part);
      EXPECT_NEAR (std::abs (dot (expected, found)), 1, 1e-12);
    }
  }
}

TEST (FromAxes, IsTheInverseOfTheMatrix)
{
  std::mt19937 random (9);
  std::normal_distribution<double> normal;
  for (int i = 0; i < 1000; i++) {
    const Quaternion q =
        normalized (Quaternion{normal (random), normal (random), normal (random), normal (random)});
    const Quaternion found =
        from_axes (rotate (q, {1, 0, 0}), rotate (q, {0, 1, 0}), rotate (q, {0, 0, 1}));
    EXPECT_NEAR (std::abs (dot (q, found)), 1, 1e-12);
  }
  // Half turns, where one component is all there is.
  for (const Quaternion q : {Quaternion{1, 0, 0, 0}, Quaternion{0, 1, 0, 0}, Quaternion{0, 0, 1, 0},
                             Quaternion{0, 0, 0, 1}})
    EXPECT_NEAR (std::abs (dot (q, from_axes (rotate (q, {1, 0, 0}), rotate (q, {0, 1, 0}),
                                              rotate (q, {0, 0, 1})))),
                 1, 1e-12);
}

TEST (ParseOrientation, NormalisesWhatSixDecimalsLeave)
{
  const auto q = parse_orientation ("0.182574, 0.365148, 0.547723, 0.730297");
  ASSERT_TRUE (q);
  EXPECT_NEAR (norm (*q), 1, 1e-15);
  EXPECT_NEAR (q->y / q->x, 2, 1e-4);
  EXPECT_NEAR (q->w / q->x, 4, 1e-4);
}

// The captured rectangle.

TEST (CaptureWindow, OfTheWholeFrameHasSquarePixels)
{
  std::string problem;
  const auto window =
      capture_window ({std::numbers::pi / 2, {}, {}, {}}, {1600, 900, 1}, {}, &problem);
  ASSERT_TRUE (window);
  EXPECT_NEAR (window->right, 1, 1e-12);
  EXPECT_NEAR (window->left, -1, 1e-12);
  EXPECT_NEAR (window->bottom, 0.5625, 1e-12);
}

TEST (CaptureWindow, OfARectangleHasItsShapeAndPlace)
{
  std::string problem;
  // Half the sensor's width in its left, two thirds of the height at the bottom.
  const auto window = capture_window ({std::numbers::pi / 2, {}, {}, {}}, {1200, 600, 1},
                                      {0, 200, 600, 400}, &problem);
  ASSERT_TRUE (window) << problem;
  EXPECT_NEAR (window->left, -2, 1e-12);
  EXPECT_NEAR (window->right, 0, 1e-12);
  EXPECT_NEAR (window->top, -100.0 / 300, 1e-12);
  EXPECT_NEAR (window->bottom, 300.0 / 300, 1e-12);
}

TEST (CaptureWindow, RefusesARectangleBesideTheSensor)
{
  std::string problem;
  for (const CaptureRect rect : {CaptureRect{601, 0, 600, 400}, CaptureRect{1, 201, 600, 400},
                                 CaptureRect{0xffffffff, 0, 600, 400}})
    EXPECT_FALSE (capture_window ({1, {}, {}, {}}, {1200, 600, 1}, rect, &problem));
  EXPECT_EQ (problem, "the captured rectangle does not lie on the sensor");
}

TEST (CaptureWindow, OfASourceThatTellsItsOpticsNeedsNoRectangle)
{
  std::string problem;
  const auto window = capture_window ({std::numbers::pi / 2, 2 * std::atan (0.75), 0.4, 0.5},
                                      {1200, 600, 1}, {900, 0, 600, 400}, &problem);
  ASSERT_TRUE (window) << problem;
  EXPECT_NEAR (window->left, -0.4, 1e-12);
  EXPECT_NEAR (window->right, 1.6, 1e-12);
  EXPECT_NEAR (window->top, -0.5, 1e-12);
  EXPECT_NEAR (window->bottom, 1.0, 1e-12);
}
