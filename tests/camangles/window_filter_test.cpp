// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <random>

#include <camangles/exposure_filter.h>
#include <camangles/filters.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scipy_reference.hpp"
#include "support.hpp"

namespace
{

constexpr char tag[] = "camangles_window_filt";

struct Design {
  float a[3] = {};
  float b[3] = {};
  uint32_t length = 0;
  explicit Design (float cutoff)
  {
    EXPECT_EQ (designIirButter2LowPass (a, b, cutoff), 0);
    EXPECT_EQ (IitButter2_impzlength (&length, cutoff), 0);
  }
};

TEST (Filt, ImpulseResponseIsThatOfTheDifferenceEquation)
{
  const Design design (0.3f);
  float z[2] = {0, 0};
  filt_t state = {design.a, design.b, 2, 0, z};
  std::vector<double> x (60), y (60);
  x[0] = 1;
  for (size_t n = 0; n < x.size (); n++) {
    for (size_t k = 0; k <= 2 && k <= n; k++)
      y[n] += static_cast<double> (design.b[k]) * x[n - k] -
              (k > 0 ? static_cast<double> (design.a[k]) * y[n - k] : 0);
    /* Sums of five products of values up to 1. */
    EXPECT_NEAR (filt (&state, static_cast<float> (x[n])), y[n], 5e-7) << n;
  }
}

TEST (Filt, FirstOrderDelayLine)
{
  const float a[] = {1, -0.5f}, b[] = {0.25f, 0.25f};
  float z[1] = {0};
  filt_t state = {a, b, 1, 0, z};
  EXPECT_EQ (filt (&state, 1), 0.25f);
  EXPECT_EQ (filt (&state, 0), 0.375f); // w = 0.5; 0.25 * 0.5 + 0.25 * 1
  EXPECT_EQ (filt (&state, 0), 0.1875f);
}

TEST (Filt, TapsBeyondTheDelayLineReadItsFirstValueOnPurpose)
{
  /* With idx 2 of order 3, d0 is z[2] and both others are z[0], where a full wrap would give z[1]
   * as the last. */
  const float a[] = {1, 0, 0, 0}, b[] = {0, 1, 10, 100};
  float z[3] = {3, 5, 7};
  filt_t state = {a, b, 3, 2, z};
  EXPECT_EQ (filt (&state, 9), 7.0f + 10 * 3 + 100 * 3);
  EXPECT_EQ (state.idx, 1u);
  EXPECT_EQ (z[1], 9.0f);
}

TEST (FiltInit, ValuesAreThoseOfTheTransposedForm)
{
  /* scipy.signal.lfilter_zi of the same coefficients solves: z0 = b1 - a1 + z1 - a1 (b0 - 1) ...
   * The closed form for order 2 with unit gain at zero frequency is {1 - b0, b2 - a2}. */
  const Design design (0.3f);
  float z[2];
  EXPECT_EQ (filt_init (design.b, design.a, 2, z), 0);
  EXPECT_NEAR (z[0], 1 - design.b[0], 1e-6);
  EXPECT_NEAR (z[1], design.b[2] - design.a[2], 1e-6);
}

TEST (FiltInit, HigherOrderFollowsTheRecursion)
{
  const float a[] = {1, -0.4f, 0.2f, -0.1f}, b[] = {0.1f, 0.2f, 0.3f, 0.1f};
  float z[3];
  EXPECT_EQ (filt_init (b, a, 3, z), 0);
  /* The steady state of the transposed form under a unit step with output g = sum (b) / sum (a):
   * z[i] = b[i + 1] - a[i + 1] g + z[i + 1], the last without a next. */
  const double g = 0.7 / 0.7;
  const double z2 = 0.1 + 0.1 * g, z1 = 0.3 - 0.2 * g + z2, z0 = 0.2 + 0.4 * g + z1;
  EXPECT_NEAR (z[2], z2, 1e-6);
  EXPECT_NEAR (z[1], z1, 1e-6);
  EXPECT_NEAR (z[0], z0, 1e-6);
}

TEST (FiltInit, NeedsOrderTwo)
{
  const float a[] = {1, 0.5f}, b[] = {0.5f, 0.5f};
  float z[1] = {7};
  EXPECT_EQ (filt_init (b, a, 1, z), -1);
  EXPECT_EQ (filt_init (nullptr, a, 2, z), -1);
  EXPECT_EQ (filt_init (b, nullptr, 2, z), -1);
  EXPECT_EQ (filt_init (b, a, 2, nullptr), -1);
  EXPECT_EQ (z[0], 7.0f);
}

/** The passes step by step, with filt and nothing clever, for one axis. */
void plain_window_filter (int32_t order, const float *a, const float *b, uint32_t window,
                          uint32_t impulse_length, ringBuffer_t *in, const float *x,
                          ringBuffer_t *out, float *y)
{
  const int N = order, L = static_cast<int> (impulse_length);
  const int A = ringBufferDiff (in);
  if (A < static_cast<int> (window) + L)
    return;
  const auto at = [&] (int offset) {
    return x[ringBufferWrapIndex (in, static_cast<int32_t> (in->rd) + offset)];
  };
  std::vector<float> scratch (static_cast<size_t> (A) + impulse_length +
                              3 * static_cast<size_t> (N)),
      z (static_cast<size_t> (N));
  float *t = scratch.data ();
  filt_t state = {a, b, N, 0, z.data ()};
  filt_init (b, a, N, z.data ());
  for (int k = 3 * N; k >= 1; k--) {
    const float u = 2 * at (0) - at (k);
    if (k == 3 * N)
      for (float &value : z)
        value *= u;
    filt (&state, u);
  }
  for (int i = -L; i < A; i++)
    t[L + i] = filt (&state, at (i));
  float u = 0;
  for (int j = 1; j <= 3 * N; j++) {
    u = 2 * at (A - 1) - at (A - 1 - j);
    t[A + L - 1 + j] = filt (&state, u);
  }
  std::fill (z.begin (), z.end (), 0.0f);
  filt_init (b, a, N, z.data ());
  for (float &value : z)
    value *= u;
  state.idx = 0;
  for (int k = A + 3 * N - 1; k >= 0; k--) {
    const float value = filt (&state, t[L + k]);
    if (k < static_cast<int> (out->size))
      y[ringBufferWrapIndex (out, static_cast<int32_t> (out->wr) + k)] = value;
  }
  ringBufferMoveWriter (out, static_cast<uint32_t> (A - L));
  ringBufferMoveReader (in, static_cast<uint32_t> (A - L));
}

struct Stream {
  ringBuffer_t in, out;
  std::vector<float> x, y;
  explicit Stream (uint32_t size) : in{size, 0, 0}, out{size, 0, 0}, x (size), y (size) {}
  void write (float value)
  {
    x[in.wr] = value;
    ringBufferMoveWriter (&in, 1);
  }
};

TEST (WindowFilter, AgreesWithThePlainPassesToTheBit)
{
  std::mt19937 random (3);
  std::normal_distribution<float> normal;
  const float a1[] = {1, -0.5f}, b1[] = {0.25f, 0.25f};
  const float a3[] = {1, -0.4f, 0.2f, -0.1f}, b3[] = {0.1f, 0.2f, 0.3f, 0.1f};
  for (const int order : {1, 2, 3}) {
    for (const float cutoff : {0.1f, 0.3f, 0.9f}) {
      const Design design (cutoff);
      const float *a = order == 1 ? a1 : order == 3 ? a3 : design.a;
      const float *b = order == 1 ? b1 : order == 3 ? b3 : design.b;
      Stream fast (256), plain (256);
      for (int i = 0; i < 2000; i++) {
        const float value = normal (random);
        fast.write (value);
        plain.write (value);
        if (random () % 4 != 0)
          continue;
        ASSERT_EQ (windowFiltFilt_filter (order, a, b, 10, design.length, &fast.in, fast.x.data (),
                                          &fast.out, fast.y.data ()),
                   0);
        plain_window_filter (order, a, b, 10, design.length, &plain.in, plain.x.data (), &plain.out,
                             plain.y.data ());
        ASSERT_EQ (fast.in, plain.in);
        ASSERT_EQ (fast.out, plain.out);
        ASSERT_EQ (fast.y, plain.y) << "order " << order << " sample " << i;
        fast.out.rd = plain.out.rd = fast.out.wr;
      }
    }
  }
}

TEST (WindowFilter, WaitsForWindowAndImpulseLength)
{
  const Design design (0.3f);
  Stream stream (1024);
  const auto run = [&] {
    return windowFiltFilt_filter (2, design.a, design.b, 10, design.length, &stream.in,
                                  stream.x.data (), &stream.out, stream.y.data ());
  };
  for (uint32_t i = 0; i < 10 + design.length - 1; i++)
    stream.write (1);
  EXPECT_EQ (run (), 0);
  EXPECT_EQ (ringBufferDiff (&stream.out), 0);
  EXPECT_EQ (stream.in.rd, 0u);
  EXPECT_THAT (stream.y, testing::Each (0.0f));
  stream.write (1);
  EXPECT_EQ (run (), 0);
  EXPECT_EQ (ringBufferDiff (&stream.out), 10) << "exactly the window";
  EXPECT_EQ (stream.in.rd, 10u);
  EXPECT_EQ (ringBufferDiff (&stream.in), static_cast<int> (design.length));
}

TEST (WindowFilter, ConstantStreamStaysConstant)
{
  for (const float cutoff : {0.1f, 0.3f, 0.6f}) {
    const Design design (cutoff);
    Stream stream (1024);
    std::vector<float> committed;
    for (int i = 0; i < 900; i++) {
      stream.write (2.5f);
      windowFiltFilt_filter (2, design.a, design.b, 10, design.length, &stream.in, stream.x.data (),
                             &stream.out, stream.y.data ());
      for (; stream.out.rd != stream.out.wr; ringBufferMoveReader (&stream.out, 1))
        committed.push_back (stream.y[stream.out.rd]);
    }
    ASSERT_GT (committed.size (), 800u);
    /* The runs settle over an impulse length, by which what they began with is down to 5e-5; the
     * delay line begins off its steady state by a few times the input. The first windows look back
     * into the empty ring. */
    for (size_t i = 2 * design.length + 20; i < committed.size (); i++)
      ASSERT_NEAR (committed[i], 2.5f, 2.5 * 2e-4) << "cut-off " << cutoff << " sample " << i;
  }
}

TEST (WindowFilter, InteriorOfLongWindowsAgreesWithScipyFiltfilt)
{
  const float cutoffs[] = {0.1f, 0.3f, 0.6f};
  constexpr int n = std::size (scipy_reference::filtfilt);
  for (size_t c = 0; c < std::size (cutoffs); c++) {
    const Design design (cutoffs[c]);
    Stream stream (1024);
    std::vector<double> committed;
    const uint32_t window = 300;
    for (const auto &row : scipy_reference::filtfilt) {
      stream.write (static_cast<float> (row[0]));
      windowFiltFilt_filter (2, design.a, design.b, window, design.length, &stream.in,
                             stream.x.data (), &stream.out, stream.y.data ());
      for (; stream.out.rd != stream.out.wr; ringBufferMoveReader (&stream.out, 1))
        committed.push_back (static_cast<double> (stream.y[stream.out.rd]));
    }
    ASSERT_GE (static_cast<int> (committed.size ()), 2 * static_cast<int> (window));
    /* Away from the start of the stream: 5e-5 of the signal (up to 1.9) from each direction's
     * unsettled start, times a few for the delay line's offset, and 1e-6 of rounding. */
    for (size_t i = design.length + 20; i < committed.size (); i++)
      ASSERT_NEAR (committed[i], scipy_reference::filtfilt[i][1 + c], 5e-4)
          << "cut-off " << cutoffs[c] << " sample " << i << " of " << n;
  }
}

TEST (WindowFilter, ZeroPhaseAndSquaredGainOnTones)
{
  /* Forward and back: the gain is that of the design squared, 1/2 at the cut-off, and there is no
   * delay. */
  const Design design (0.3f);
  for (const double frequency : {0.05, 0.15, 0.3, 0.5}) {
    Stream stream (1024);
    for (int i = 0; i < 1000; i++)
      stream.write (static_cast<float> (std::sin (3.14159265358979 * frequency * i)));
    windowFiltFilt_filter (2, design.a, design.b, 10, design.length, &stream.in, stream.x.data (),
                           &stream.out, stream.y.data ());
    const double ratio =
        std::tan (3.14159265358979 * frequency / 2) / std::tan (3.14159265358979 * 0.3 / 2);
    const double expected = 1 / (1 + std::pow (ratio, 4));
    for (int i = 100; i < 800; i++)
      ASSERT_NEAR (stream.y[static_cast<size_t> (i)],
                   expected * std::sin (3.14159265358979 * frequency * i), 2e-4)
          << frequency;
  }
}

TEST (WindowFilter, ProvisionalOutputsReachReadyPlusPaddingSlots)
{
  const Design design (0.6f);
  Stream stream (64);
  std::fill (stream.y.begin (), stream.y.end (), -99.0f);
  for (int i = 0; i < 30; i++)
    stream.write (1);
  windowFiltFilt_filter (2, design.a, design.b, 5, design.length, &stream.in, stream.x.data (),
                         &stream.out, stream.y.data ());
  EXPECT_EQ (stream.out.wr, 30 - design.length);
  for (size_t i = 0; i < 64; i++)
    EXPECT_EQ (stream.y[i] != -99.0f, i < 36) << i;
}

TEST (WindowFilter, OutputsBeyondOneTurnAreSkipped)
{
  const Design design (0.6f);
  const auto run = [&] (uint32_t output_size) {
    ringBuffer_t in = {128, 0, 100};
    std::vector<float> x (128);
    for (size_t i = 0; i < x.size (); i++)
      x[i] = static_cast<float> (i % 7);
    ringBuffer_t out = {output_size, 0, 3};
    /* The heap block ends with the ring: the address sanitizer sees a write behind it. */
    std::vector<float> y (output_size);
    LogCapture log;
    EXPECT_EQ (windowFiltFilt_filter (2, design.a, design.b, 5, design.length, &in, x.data (), &out,
                                      y.data ()),
               0);
    std::vector<float> ordered;
    for (uint32_t i = 0; i < output_size && i < 100; i++)
      ordered.push_back (y[(3 + i) % output_size]);
    return std::pair (ordered, log.count ("oups output"));
  };
  const auto [whole, no_refusal] = run (128);
  const auto [part, refusals] = run (40);
  EXPECT_EQ (no_refusal, 0);
  EXPECT_EQ (refusals, 1) << "more than the small ring takes is refused";
  EXPECT_EQ (part, std::vector<float> (whole.begin (), whole.begin () + 40));
}

TEST (WindowFilter, RefusedMovesAreLoggedAndThePassIsDone)
{
  const Design design (0.6f);
  LogCapture log;
  Stream stream (64);
  stream.out.wr = 60; // nobody read: three slots of room
  for (int i = 0; i < 40; i++)
    stream.write (1);
  EXPECT_EQ (windowFiltFilt_filter (2, design.a, design.b, 5, design.length, &stream.in,
                                    stream.x.data (), &stream.out, stream.y.data ()),
             0);
  EXPECT_EQ (log.texts (log_error), std::vector<std::string>{"oups output"});
  EXPECT_EQ (log.lines ()[0].tag, tag);
  EXPECT_EQ (ringBufferDiff (&stream.in), static_cast<int> (design.length));
}

TEST (WindowFilter, Refusals)
{
  const Design design (0.3f);
  std::vector<float> x (1024), y (1024);
  ringBuffer_t in = {1024, 0, 500}, out = {1024, 0, 0};
  const ringBuffer_t in_before = in, out_before = out;
  const auto run = [&] (int32_t order, const float *a, const float *b, ringBuffer_t *input,
                        const float *input_array, ringBuffer_t *output, float *output_array) {
    LogCapture log;
    EXPECT_EQ (
        windowFiltFilt_filter (order, a, b, 10, 20, input, input_array, output, output_array), -1);
    EXPECT_EQ (log.lines ().size (), 1u);
    return log.lines ().empty () ? std::string () : log.lines ()[0].text;
  };
  const char null_text[] = "error, input and/or output data are NULL";
  const float *a = design.a, *b = design.b;
  EXPECT_EQ (run (2, nullptr, b, &in, x.data (), &out, y.data ()), null_text);
  EXPECT_EQ (run (2, a, nullptr, &in, x.data (), &out, y.data ()), null_text);
  EXPECT_EQ (run (2, a, b, nullptr, x.data (), &out, y.data ()), null_text);
  EXPECT_EQ (run (2, a, b, &in, nullptr, &out, y.data ()), null_text);
  EXPECT_EQ (run (2, a, b, &in, x.data (), nullptr, y.data ()), null_text);
  EXPECT_EQ (run (2, a, b, &in, x.data (), &out, nullptr), null_text);
  ringBuffer_t tiny = {3, 0, 2};
  EXPECT_EQ (run (2, a, b, &tiny, x.data (), &out, y.data ()),
             "error, filter kernel is too larger (2) compared to input buffer size (3)");
  EXPECT_EQ (run (0, a, b, &in, x.data (), &out, y.data ()), "error, filter order (0) must be > 0");
  EXPECT_EQ (run (-3, a, b, &in, x.data (), &out, y.data ()),
             "error, filter order (-3) must be > 0");
  EXPECT_EQ (in, in_before);
  EXPECT_EQ (out, out_before);
}

TEST (WindowFilter, ReflectionsThatPassATurnAreRefused)
{
  const Design design (0.6f);
  std::vector<float> x (5), y (64);
  ringBuffer_t in = {5, 0, 4}, out = {64, 0, 0};
  LogCapture log;
  EXPECT_EQ (windowFiltFilt_filter (2, design.a, design.b, 1, 1, &in, x.data (), &out, y.data ()),
             -1);
  EXPECT_EQ (log.texts (log_error),
             std::vector<std::string>{
                 "error, filter kernel is too larger (2) compared to input buffer size (5)"});
}

TEST (WindowFilter, HugeWindowAndImpulseLengthsDoNotOverflow)
{
  const Design design (0.6f);
  Stream stream (64);
  for (int i = 0; i < 40; i++)
    stream.write (1);
  /* The sum is 9 modulo 2^32, which would pass for a window. */
  EXPECT_EQ (windowFiltFilt_filter (2, design.a, design.b, UINT32_MAX, 10, &stream.in,
                                    stream.x.data (), &stream.out, stream.y.data ()),
             0);
  EXPECT_EQ (windowFiltFilt_filter (2, design.a, design.b, 10, UINT32_MAX, &stream.in,
                                    stream.x.data (), &stream.out, stream.y.data ()),
             0);
  EXPECT_EQ (stream.in.rd, 0u);
}

TEST (WindowFilter, WindowBeyondTheScratchSpaceIsRefused)
{
  const Design design (0.6f);
  const uint32_t size = 1u << 17;
  Stream stream (size);
  stream.in.wr = size - 1;
  LogCapture log;
  EXPECT_EQ (windowFiltFilt_filter (2, design.a, design.b, 10, 11, &stream.in, stream.x.data (),
                                    &stream.out, stream.y.data ()),
             -1);
  EXPECT_EQ (log.texts (log_error),
             std::vector<std::string>{
                 "error, a window of 131071 samples does not fit the scratch space (65536)"});
}

} // namespace
