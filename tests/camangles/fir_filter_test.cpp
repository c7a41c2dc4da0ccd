// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <camangles/filters.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scipy_reference.hpp"
#include "support.hpp"

namespace
{

constexpr char tag[] = "camangles_fir_filt";

TEST (NormFreq, IsAFractionOfNyquist)
{
  EXPECT_EQ (normFreq (1000, 250), 0.5f);
  EXPECT_EQ (normFreq (1000, 0), 0.0f);
  EXPECT_EQ (normFreq (0, 10), inf_f);
  EXPECT_TRUE (std::isnan (normFreq (0, 0)));
  EXPECT_TRUE (std::isnan (normFreq (nan_f, 10)));
}

TEST (NormFreq, RefusesNegativeFrequencies)
{
  {
    LogCapture log;
    EXPECT_EQ (normFreq (-1, 10), -1.0f);
    EXPECT_EQ (log.texts (log_error),
               std::vector<std::string>{"error, sampling frequency cannot be negative"});
    EXPECT_EQ (log.lines ()[0].tag, tag);
  }
  LogCapture log;
  EXPECT_EQ (normFreq (1000, -10), -1.0f);
  EXPECT_EQ (log.texts (log_error),
             std::vector<std::string>{"error, frequency cannot be negative"});
}

TEST (FirDesign, SmallestEvenKernel)
{
  double h[5];
  ASSERT_EQ (designFirLowPass (h, 4, 0.25f), 0);
  EXPECT_EQ (h[2], 0.5);
  EXPECT_EQ (h[0], h[4]);
  EXPECT_EQ (h[1], h[3]);
  /* sin (pi / 2) / pi under a Hamming window of 0.54 */
  EXPECT_NEAR (h[1], 0.54 / 3.14159265358979, 1e-12);
  EXPECT_NEAR (h[0], 0, 1e-12);
}

TEST (FirDesign, CutOffIsInCyclesPerSampleUnlikeTheOthers)
{
  /* At fc 0.25 cycles per sample, half of Nyquist, the gain is 1/2 (6 dB), at fc / 2 it is 1. */
  std::vector<double> h (101);
  ASSERT_EQ (designFirLowPass (h.data (), 100, 0.25f), 0);
  const auto gain = [&] (double frequency) {
    double sum = 0;
    for (int n = 0; n <= 100; n++)
      sum += h[static_cast<size_t> (n)] * std::cos (2 * 3.14159265358979 * frequency * (n - 50));
    return sum;
  };
  EXPECT_NEAR (gain (0.125), 1.0, 5e-3);
  EXPECT_NEAR (gain (0.25), 0.5, 5e-3);
  EXPECT_NEAR (gain (0.375), 0.0, 5e-3);
}

TEST (FirDesign, AgreesWithScipy)
{
  double h[21];
  ASSERT_EQ (designFirLowPass (h, 20, 0.1f), 0);
  /* The cut-off is the float next to 0.1. */
  for (size_t n = 0; n < 21; n++)
    EXPECT_NEAR (h[n], scipy_reference::hamming_sinc_20_0_1[n], 1e-8) << n;
}

TEST (FirDesign, OddOrderLeavesTheMiddleTapsOnPurpose)
{
  double h[6] = {9, 9, 9, 9, 9, 9};
  ASSERT_EQ (designFirLowPass (h, 5, 0.2f), 0);
  EXPECT_EQ (h[2], 9);
  EXPECT_EQ (h[3], 9);
  EXPECT_EQ (h[0], h[5]);
  EXPECT_EQ (h[1], h[4]);
  EXPECT_NE (h[1], 9);
}

TEST (FirDesign, EachFailingCheckLogsItsLine)
{
  double h[3];
  {
    LogCapture log;
    EXPECT_EQ (designFirLowPass (nullptr, 0, 1.5f), -1);
    EXPECT_EQ (log.texts (log_error),
               (std::vector<std::string>{"error, kernel is null", "error, order cannot be null",
                                         "error, Fcut (1.500000) out of range ]0,1["}));
    EXPECT_EQ (log.lines ()[0].tag, tag);
  }
  for (const float cutoff : {0.0f, 1.0f, -1.0f, nan_f, inf_f}) {
    LogCapture log;
    EXPECT_EQ (designFirLowPass (h, 2, cutoff), -1) << cutoff;
    EXPECT_EQ (log.lines ().size (), 1u);
  }
}

TEST (FirFilter, CentredConvolutionOverTheWrap)
{
  const double kernel[] = {0.25, 0.5, 1.0, 0.125, 2.0};
  ringBuffer_t in = {16, 12, 12}, out = {32, 30, 30};
  std::vector<float> x (16), y (32);
  const auto sample = [] (int i) { return static_cast<float> (i * i % 11); };
  for (int i = 0; i < 10; i++) {
    x[in.wr] = sample (i);
    ringBufferMoveWriter (&in, 1);
  }
  EXPECT_EQ (firFilt (&in, x.data (), &out, y.data (), kernel, 5), 8);
  EXPECT_EQ (ringBufferDiff (&in), 2) << "half the kernel stays as look-ahead";
  EXPECT_EQ (ringBufferDiff (&out), 8);
  for (int n = 0; n < 8; n++) {
    double expected = 0;
    for (int k = -2; k <= 2; k++)
      expected += (n + k < 0 ? 0.0 : static_cast<double> (sample (n + k))) * kernel[k + 2];
    EXPECT_EQ (y[static_cast<size_t> ((30 + n) % 32)], static_cast<float> (expected)) << n;
  }
}

TEST (FirFilter, EvenKernelReachesOneSampleLessAhead)
{
  const double kernel[] = {1, 10, 100, 1000};
  ringBuffer_t in = {16, 4, 10}, out = {16, 0, 0};
  std::vector<float> x (16), y (16);
  for (size_t i = 0; i < 16; i++)
    x[i] = static_cast<float> (i);
  EXPECT_EQ (firFilt (&in, x.data (), &out, y.data (), kernel, 4), 4);
  EXPECT_EQ (y[0], 2 + 30 + 400 + 5000.0f);
}

TEST (FirFilter, TooFewSamplesGiveZero)
{
  const double kernel[] = {1, 1, 1, 1, 1};
  std::vector<float> x (16), y (16);
  for (const uint32_t ready : {0u, 1u, 2u}) {
    ringBuffer_t in = {16, 0, ready}, out = {16, 0, 0};
    EXPECT_EQ (firFilt (&in, x.data (), &out, y.data (), kernel, 5), 0);
    EXPECT_EQ (in.rd, 0u);
    EXPECT_EQ (out.wr, 0u);
  }
}

TEST (FirFilter, FullOutputIsLoggedForEachSample)
{
  const double kernel[] = {1};
  ringBuffer_t in = {16, 0, 4}, out = {16, 0, 14};
  std::vector<float> x (16), y (16);
  LogCapture log;
  EXPECT_EQ (firFilt (&in, x.data (), &out, y.data (), kernel, 1), 4);
  EXPECT_EQ (log.count ("oups writer", log_error), 3);
  EXPECT_EQ (out, (ringBuffer_t{16, 3, 2}));
}

TEST (FirFilter, Refusals)
{
  const double kernel[] = {1, 1, 1};
  std::vector<float> x (16), y (16);
  ringBuffer_t in = {16, 0, 8}, out = {16, 0, 0}, small = {3, 0, 2};
  const auto run = [&] (ringBuffer_t *i, const float *xs, ringBuffer_t *o, float *ys,
                        const double *h) {
    LogCapture log;
    EXPECT_EQ (firFilt (i, xs, o, ys, h, 3), -1);
    return log.lines ().size () == 1 ? log.lines ()[0].text : std::string ();
  };
  const char null_text[] = "error, input and/or output data are NULL";
  EXPECT_EQ (run (nullptr, x.data (), &out, y.data (), kernel), null_text);
  EXPECT_EQ (run (&in, nullptr, &out, y.data (), kernel), null_text);
  EXPECT_EQ (run (&in, x.data (), nullptr, y.data (), kernel), null_text);
  EXPECT_EQ (run (&in, x.data (), &out, nullptr, kernel), null_text);
  EXPECT_EQ (run (&in, x.data (), &out, y.data (), nullptr), null_text);
  EXPECT_EQ (run (&small, x.data (), &out, y.data (), kernel),
             "error, filter kernel is too larger (3) compared to input buffer size (3)");
}

TEST (FirFilter, SampleOutOfReachStoresThePartialSumAndStops)
{
  /* Only a handle that was tampered with gets here: its reader lies two turns out. */
  const double kernel[] = {1, 1, 1};
  std::vector<float> x (16, 1.0f), y (16, -1.0f);
  ringBuffer_t in = {16, 31, 36}, out = {16, 0, 0};
  LogCapture log;
  EXPECT_EQ (firFilt (&in, x.data (), &out, y.data (), kernel, 3), -1);
  EXPECT_THAT (log.texts (log_error),
               testing::ElementsAre (
                   "error, value (32) out of range for unwraping",
                   "unexpected error, can't access input sample want 32 (rd 31 wr 36 sz 16)"));
  EXPECT_EQ (y[0], 2.0f) << "slots 30 and 31 lie one turn out";
  EXPECT_EQ (out.wr, 1u);
}

} // namespace
