// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <numbers>
#include <random>

#include <camangles/gyro_resampling.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scipy_reference.hpp"
#include "support.hpp"
#include "tables.h"

namespace
{

TEST (KaiserSinc, AgreesWithScipy)
{
  /* Values up to 1, rounded once. */
  for (size_t p = 0; p < 128; p++)
    for (size_t k = 0; k < 20; k++)
      ASSERT_NEAR (KaiserSinc[p][k], scipy_reference::kaiser_sinc[20 * p + k], 6e-8)
          << "phase " << p << " tap " << k;
}

TEST (KaiserSinc, KnownValues)
{
  EXPECT_EQ (KaiserSinc[0][9], 0.99999964f);
  for (size_t k = 0; k < 20; k++)
    if (k != 9) {
      EXPECT_LT (std::fabs (KaiserSinc[0][k]), 1e-16f) << k;
    }
  EXPECT_NEAR (KaiserSinc[64][9], 0.6330148f, 5e-8);
  EXPECT_NEAR (KaiserSinc[127][10], 0.9998993f, 6e-8);
  EXPECT_NEAR (KaiserSinc[127][19], -0.0000820f, 5e-8);
}

TEST (KaiserSinc, TapByTapTablesHoldTheSameValues)
{
  for (size_t factor = 2; factor <= 128; factor *= 2)
    for (size_t k = 0; k < 20; k++)
      for (size_t j = 0; j < factor; j++)
        ASSERT_EQ (KaiserSincByTap[20 * (factor - 2) + k * factor + j],
                   KaiserSinc[j * (128 / factor)][k])
            << factor;
}

TEST (ResampleQ, Values)
{
  const std::pair<float, uint32_t> rows[] = {
      {1, 128},
      {2, 64},
      {3, 43},
      {4, 32},
      {8, 16},
      {100, 1},
      {128, 1},
      {256, 1},
      {1e6f, 1},
      {0, 0},
      {-1, 0},
      {nan_f, 0},
      {inf_f, 1},
      {-inf_f, 0},
      {0.5f, 256},
      {1e-30f, UINT32_MAX},
      {1e-45f, UINT32_MAX},
  };
  for (const auto &[factor, q] : rows)
    EXPECT_EQ (resample_ringBuffer_getQ (factor), q) << factor;
}

struct Rings {
  ringBuffer_t in, out;
  std::vector<float> x, y;
  Rings (uint32_t in_size, uint32_t out_size)
      : in{in_size, 0, 0}, out{out_size, 0, 0}, x (in_size), y (out_size)
  {
  }
  void write (float value)
  {
    x[in.wr] = value;
    ringBufferMoveWriter (&in, 1);
  }
  int32_t run (int32_t q) { return resample_ringBuffer (&in, x.data (), &out, y.data (), q); }
};

TEST (Resample, Refusals)
{
  Rings rings (64, 64);
  rings.in.wr = 40;
  const auto text_of = [] (ringBuffer_t *in, const float *x, ringBuffer_t *out, float *y,
                           int32_t q) {
    LogCapture log;
    EXPECT_EQ (resample_ringBuffer (in, x, out, y, q), -1);
    EXPECT_EQ (log.lines ().size (), 1u);
    EXPECT_EQ (log.lines ()[0].tag, "camangles_resample_c");
    return log.lines ()[0].text;
  };
  const char null_text[] = "error, input and/or output data are NULL";
  EXPECT_EQ (text_of (nullptr, rings.x.data (), &rings.out, rings.y.data (), 1), null_text);
  EXPECT_EQ (text_of (&rings.in, nullptr, &rings.out, rings.y.data (), 1), null_text);
  EXPECT_EQ (text_of (&rings.in, rings.x.data (), nullptr, rings.y.data (), 1), null_text);
  EXPECT_EQ (text_of (&rings.in, rings.x.data (), &rings.out, nullptr, 1), null_text);
  ringBuffer_t small = {19, 0, 12};
  EXPECT_EQ (text_of (&small, rings.x.data (), &rings.out, rings.y.data (), 1),
             "error, input data buffer too small");
  for (const int32_t q : {0, -1, INT32_MIN})
    EXPECT_EQ (text_of (&rings.in, rings.x.data (), &rings.out, rings.y.data (), q),
               "error, Q must be > 0");
  EXPECT_EQ (rings.in.rd, 0u);
}

TEST (Resample, FactorOneCopiesAtOnce)
{
  Rings rings (64, 64);
  for (int i = 0; i < 10; i++)
    rings.write (static_cast<float> (i));
  EXPECT_EQ (rings.run (128), 10);
  EXPECT_EQ (ringBufferDiff (&rings.in), 0);
  EXPECT_EQ (ringBufferDiff (&rings.out), 10);
  EXPECT_EQ (rings.y[9], 9.0f);
}

TEST (Resample, NothingHappensUpToTheLookAhead)
{
  Rings rings (64, 64);
  for (int i = 0; i < 10; i++) {
    EXPECT_EQ (rings.run (64), 0);
    rings.write (1);
  }
  EXPECT_EQ (rings.run (64), 0);
  EXPECT_EQ (rings.in.rd, 0u);
  rings.write (1);
  EXPECT_EQ (rings.run (64), 1);
  EXPECT_EQ (ringBufferDiff (&rings.out), 2);
}

TEST (Resample, ConsumesAllButTheLookAhead)
{
  Rings rings (1024, 4096);
  for (int i = 0; i < 30; i++)
    rings.write (1);
  EXPECT_EQ (rings.run (32), 20);
  EXPECT_EQ (ringBufferDiff (&rings.in), 10);
  EXPECT_EQ (ringBufferDiff (&rings.out), 80);
}

/** The sum of the taps in double precision; history before the stream is zero. */
double interpolated (const std::vector<double> &stream, int at, size_t phase)
{
  double sum = 0;
  for (int k = 0; k < 20; k++) {
    const int i = at - 9 + k;
    if (i >= 0)
      sum += stream[static_cast<size_t> (i)] *
             scipy_reference::kaiser_sinc[20 * phase + static_cast<size_t> (k)];
  }
  return sum;
}

class ResampleSteps : public testing::TestWithParam<int32_t>
{
};

TEST_P (ResampleSteps, AgreesWithTheSumOverTheTapsOverManyWraps)
{
  const int32_t q = GetParam ();
  Rings rings (64, 64 * 128);
  std::mt19937 random (6);
  std::normal_distribution<float> normal;
  std::vector<double> stream;
  int done = 0;
  while (done < 600) {
    for (size_t i = 1 + random () % 40; i > 0; i--) {
      stream.push_back (static_cast<double> (normal (random)));
      rings.write (static_cast<float> (stream.back ()));
    }
    const int count = ringBufferDiff (&rings.in) - 10;
    ASSERT_EQ (rings.run (q), std::max (count, 0));
    for (int position = 0; position < count * 128; position += q) {
      ASSERT_GT (ringBufferDiff (&rings.out), 0);
      /* Twenty products of values around 1, summed in single precision. */
      ASSERT_NEAR (
          rings.y[rings.out.rd],
          interpolated (stream, done + position / 128, static_cast<size_t> (position % 128)), 2e-6)
          << "position " << done << " + " << position << "/128";
      ringBufferMoveReader (&rings.out, 1);
    }
    ASSERT_EQ (ringBufferDiff (&rings.out), 0);
    done += std::max (count, 0);
  }
}

INSTANTIATE_TEST_SUITE_P (Q, ResampleSteps,
                          testing::Values (1, 2, 4, 8, 16, 32, 64, 3, 43, 100, 129, 256, 1000));

TEST (Resample, PhaseZeroIsTheInputSample)
{
  Rings rings (1024, 8192);
  std::mt19937 random (7);
  std::normal_distribution<float> normal;
  for (int i = 0; i < 500; i++)
    rings.write (normal (random));
  ASSERT_EQ (rings.run (16), 490);
  /* The tap is 1 - 3.6e-7, and the product is rounded (6e-8). */
  for (size_t i = 20; i < 490; i++)
    ASSERT_NEAR (rings.y[8 * i], rings.x[i], 4.2e-7 * std::fabs (rings.x[i])) << i;
}

TEST (Resample, NegativeIndexBehindTheReaderWrapsToTheEnd)
{
  /* The reader three slots into the ring, the writer behind it: the taps reach below slot 0. */
  Rings rings (64, 1024);
  for (size_t i = 0; i < 64; i++)
    rings.x[i] = static_cast<float> (i);
  rings.in = {64, 3, 0};
  LogCapture log;
  EXPECT_EQ (rings.run (64), 51);
  double expected = 0;
  for (size_t k = 0; k < 20; k++)
    expected += static_cast<double> ((3 + 64 - 9 + k) % 64) *
                scipy_reference::kaiser_sinc[size_t{20} * 64 + k];
  EXPECT_NEAR (rings.y[1], expected, 1e-4);
}

TEST (Resample, LostHistoryIsLoggedAndTheRunGoesOn)
{
  Rings rings (64, 1024);
  rings.in = {64, 3, 0}; // 61 ready: the nine samples behind the reader are overwritten in part
  LogCapture log;
  EXPECT_EQ (rings.run (64), 51);
  EXPECT_EQ (ringBufferDiff (&rings.out), 102);
  ASSERT_FALSE (log.lines ().empty ());
  EXPECT_EQ (log.lines ()[0].text,
             "should no happen ii [-6 14] out  [0 64[ (ring buffer (rd 3 wr 0 sz 64]");
  EXPECT_EQ (log.lines ().size (), 12u) << "two outputs each for the samples 3 to 8";
}

TEST (Resample, FullOutputIsLoggedForEachRefusedMove)
{
  for (const int32_t q : {64, 128}) {
    Rings rings (64, 8);
    for (int i = 0; i < 15; i++)
      rings.write (static_cast<float> (i));
    LogCapture log;
    EXPECT_EQ (rings.run (q), q == 64 ? 5 : 15);
    EXPECT_EQ (log.count ("oups writer", log_error), q == 64 ? 10 - 7 : 15 - 7);
    EXPECT_EQ (ringBufferDiff (&rings.out), 7);
  }
}

class GyroResample : public testing::TestWithParam<uint32_t>
{
protected:
  GyroResample ()
  {
    for (auto &axis : in_axes_)
      axis.resize (in_.size);
    for (auto &axis : out_axes_)
      axis.resize (out_.size);
  }
  void write (std::array<float, 3> rates)
  {
    for (size_t axis = 0; axis < 3; axis++)
      in_axes_[axis][in_.wr] = rates[axis];
    in_times_[in_.wr] = 1000 + written_++;
    ringBufferMoveWriter (&in_, 1);
  }
  int32_t run (uint32_t log2_factor)
  {
    return gyroResample (&in_, in_axes_[0].data (), in_axes_[1].data (), in_axes_[2].data (),
                         in_times_.data (), &out_, out_axes_[0].data (), out_axes_[1].data (),
                         out_axes_[2].data (), out_times_.data (), log2_factor);
  }
  ringBuffer_t in_ = {1024, 0, 0}, out_ = {1024u << GetParam (), 0, 0};
  std::array<std::vector<float>, 3> in_axes_, out_axes_;
  std::vector<uint64_t> in_times_ = std::vector<uint64_t> (in_.size);
  std::vector<uint64_t> out_times_ = std::vector<uint64_t> (out_.size);
  uint64_t written_ = 0;
};

TEST_P (GyroResample, AxesAgreeWithTheResamplerToTheBitAndTimestampsStayWithTheirSamples)
{
  const uint32_t log2_factor = GetParam (), factor = 1u << log2_factor;
  std::mt19937 random (8);
  std::normal_distribution<float> normal;
  uint64_t next_time = 1000;
  for (int step = 0; step < (soak () ? 20000 : 300); step++) {
    for (size_t i = random () % 30; i > 0; i--)
      write ({normal (random), normal (random), normal (random)});
    std::array<std::vector<float>, 3> expected;
    ringBuffer_t in_after{}, out_after{};
    for (size_t axis = 0; axis < 3; axis++) {
      in_after = in_;
      out_after = out_;
      expected[axis].resize (out_.size);
      resample_ringBuffer (&in_after, in_axes_[axis].data (), &out_after, expected[axis].data (),
                           static_cast<int32_t> (128 / factor));
    }
    ASSERT_EQ (run (log2_factor), 0);
    ASSERT_EQ (in_, in_after);
    ASSERT_EQ (out_, out_after);
    for (uint32_t n = 0; out_.rd != out_.wr; ringBufferMoveReader (&out_, 1), n++) {
      for (size_t axis = 0; axis < 3; axis++)
        ASSERT_EQ (out_axes_[axis][out_.rd], expected[axis][out_.rd]) << "axis " << axis;
      ASSERT_EQ (out_times_[out_.rd], n % factor == 0 ? next_time++ : CAMANGLES_NO_TIMESTAMP);
    }
  }
  EXPECT_GT (next_time, 2000u);
}

TEST_P (GyroResample, FullOutputEndsWithTheSampleAtHand)
{
  const uint32_t log2_factor = GetParam (), factor = 1u << log2_factor;
  const uint32_t held = log2_factor == 0 ? 0 : 10;
  for (uint32_t i = 0; i < held + 5; i++)
    write ({1, 2, 3});
  /* Room for two samples' outputs less one. */
  out_.wr = out_.size - 2 * factor;
  out_.rd = 0;
  LogCapture log;
  EXPECT_EQ (run (log2_factor), 0);
  EXPECT_EQ (ringBufferDiff (&in_), static_cast<int> (held + 3)) << "two of five were taken";
  EXPECT_EQ (log.count ("oups output", log_error), 1);
  EXPECT_EQ (out_.wr, 0u);
  EXPECT_EQ (out_.rd, 1u);
  /* The next call takes the others up where this one stopped. */
  out_.rd = out_.wr;
  log.clear ();
  EXPECT_EQ (run (log2_factor), 0);
  EXPECT_EQ (ringBufferDiff (&out_), static_cast<int> (3 * factor));
  EXPECT_EQ (out_times_[0], 1002u);
  EXPECT_TRUE (log.lines ().empty ());
}

TEST_P (GyroResample, OddOutputRingsTakeTheSlowWayWithTheSameResult)
{
  const uint32_t log2_factor = GetParam (), factor = 1u << log2_factor;
  for (int i = 0; i < 25; i++)
    write ({static_cast<float> (i), 1, static_cast<float> (-i)});
  const ringBuffer_t in = in_;
  run (log2_factor);
  const auto straight = out_axes_;
  const int count = ringBufferDiff (&out_);
  in_ = in;
  out_ = {out_.size - 1, out_.size - 4, out_.size - 4};
  run (log2_factor);
  ASSERT_EQ (ringBufferDiff (&out_), count);
  for (size_t i = 0; i < static_cast<size_t> (count); i++)
    for (size_t axis = 0; axis < 3; axis++)
      ASSERT_EQ (straight[axis][i], out_axes_[axis][(out_.rd + i) % out_.size]);
  (void)factor;
}

INSTANTIATE_TEST_SUITE_P (Log2Factor, GyroResample, testing::Range (0u, 8u));

TEST (GyroResampleRefusals, AlwaysZeroButNothingMoves)
{
  std::vector<float> x (1024);
  std::vector<uint64_t> ts (1024);
  ringBuffer_t in = {1024, 0, 40}, out = {1024, 0, 0};
  {
    LogCapture log;
    EXPECT_EQ (gyroResample (&in, x.data (), x.data (), x.data (), ts.data (), &out, x.data (),
                             x.data (), x.data (), ts.data (), 8),
               0);
    EXPECT_EQ (
        log.texts (log_error),
        std::vector<std::string>{"error, log2 of the resampling factor (8) out of range [0 7]"});
    EXPECT_EQ (log.lines ()[0].tag, "camangles_gyro_resample");
  }
  LogCapture log;
  EXPECT_EQ (gyroResample (nullptr, x.data (), x.data (), x.data (), ts.data (), &out, x.data (),
                           x.data (), x.data (), ts.data (), 1),
             0);
  EXPECT_EQ (gyroResample (&in, x.data (), x.data (), nullptr, ts.data (), &out, x.data (),
                           x.data (), x.data (), ts.data (), 1),
             0);
  EXPECT_EQ (log.count ("error, input and/or output data are NULL", log_error), 2);
  EXPECT_EQ (in.rd, 0u);
  EXPECT_EQ (out.wr, 0u);
}

TEST (ResampleQuality, TonesInThePassBandKeepTheirShape)
{
  /* Signal to noise of tones resampled by 8, against the analytic tone. A 20-tap Kaiser window of
   * beta 5 passes up to about 0.8 of the band with 50 dB and better; the limits are those of the
   * window. */
  const struct {
    double frequency; // of Nyquist
    double least_db;
  } rows[] = {{0.05, 60}, {0.2, 60}, {0.4, 60}, {0.6, 55}};
  for (const auto &row : rows) {
    Rings rings (1024, 8192);
    const double w = std::numbers::pi * row.frequency;
    for (int i = 0; i < 800; i++)
      rings.write (static_cast<float> (std::sin (w * i)));
    rings.run (16);
    double signal = 0, noise = 0;
    for (int n = 8 * 50; n < 8 * 750; n++) {
      const double exact = std::sin (w * n / 8.0);
      signal += exact * exact;
      noise += std::pow (static_cast<double> (rings.y[static_cast<size_t> (n)]) - exact, 2);
    }
    EXPECT_GT (10 * std::log10 (signal / noise), row.least_db) << row.frequency;
  }
}

} // namespace
