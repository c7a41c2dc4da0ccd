// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <complex>
#include <numbers>

#include <camangles/filters.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scipy_reference.hpp"
#include "support.hpp"
#include "tables.h"

namespace
{

TEST (Butterworth, HalfBandCoefficients)
{
  float a[3], b[3];
  ASSERT_EQ (designIirButter2LowPass (a, b, 0.5f), 0);
  EXPECT_EQ (a[0], 1.0f);
  EXPECT_NEAR (a[1], 0.0f, 1e-7);
  EXPECT_NEAR (a[2], 0.1716f, 5e-5);
  EXPECT_NEAR (b[0], 0.2929f, 5e-5);
  EXPECT_NEAR (b[1], 0.5858f, 5e-5);
  EXPECT_NEAR (b[2], 0.2929f, 5e-5);
}

TEST (Butterworth, CoefficientsAgreeWithScipy)
{
  for (const auto &row : scipy_reference::butterworth) {
    float a[3], b[3];
    ASSERT_EQ (designIirButter2LowPass (a, b, static_cast<float> (row[0])), 0);
    /* The tangent is single precision: a relative error of 1.2e-7, of which near the band's ends
     * the coefficients see twice. b is proportional to its square. */
    for (int i = 0; i < 3; i++) {
      EXPECT_NEAR (a[i], row[1 + i], 5e-7) << "cut-off " << row[0] << " a" << i;
      EXPECT_NEAR (b[i], row[4 + i], 1e-6 * row[4 + i]) << "cut-off " << row[0] << " b" << i;
    }
  }
}

/** The frequency response at a normalised frequency. */
double gain (const float a[3], const float b[3], double frequency)
{
  const auto z = std::polar (1.0, -std::numbers::pi * frequency);
  return std::abs ((double{b[0]} + double{b[1]} * z + double{b[2]} * z * z) /
                   (double{a[0]} + double{a[1]} * z + double{a[2]} * z * z));
}

TEST (Butterworth, HalfPowerAtTheCutOffAndUnityAtZero)
{
  for (const float cutoff : {0.007f, 0.05f, 0.1f, 0.3f, 0.5f, 0.7f, 0.9f, 0.99f}) {
    float a[3], b[3];
    ASSERT_EQ (designIirButter2LowPass (a, b, cutoff), 0);
    /* At the lowest cut-off 1 + a1 + a2 is 5e-4, the difference of values near 2 that are known
     * to 1.2e-7. */
    EXPECT_NEAR (gain (a, b, 0), 1.0, 3e-4) << cutoff;
    EXPECT_NEAR (gain (a, b, static_cast<double> (cutoff)), std::sqrt (0.5), 3e-4) << cutoff;
    EXPECT_NEAR (gain (a, b, 1), 0.0, 1e-6) << cutoff;
  }
}

TEST (Butterworth, RefusesWhatIsNoCutOff)
{
  const std::pair<float, const char *> rows[] = {
      {0.0f, "error, normFcut (0.000000) out of range [0 , 1.0]"},
      {1.0f, "error, normFcut (1.000000) out of range [0 , 1.0]"},
      {-0.5f, "error, normFcut (-0.500000) out of range [0 , 1.0]"},
      {inf_f, "error, normFcut (inf) out of range [0 , 1.0]"},
      {nan_f, "error, normFcut (nan) out of range [0 , 1.0]"},
  };
  for (const auto &[cutoff, text] : rows) {
    LogCapture log;
    float a[3] = {7, 7, 7}, b[3] = {7, 7, 7};
    EXPECT_EQ (designIirButter2LowPass (a, b, cutoff), -1);
    ASSERT_EQ (log.lines ().size (), 1u);
    EXPECT_EQ (log.lines ()[0].tag, "camangles_window_filt");
    EXPECT_EQ (log.lines ()[0].text, text);
    EXPECT_THAT (a, testing::Each (7.0f));
    EXPECT_THAT (b, testing::Each (7.0f));
  }
}

TEST (Butterworth, RefusesNullCoefficients)
{
  float array[3];
  {
    LogCapture log;
    EXPECT_EQ (designIirButter2LowPass (nullptr, array, 0.5f), -1);
    EXPECT_THAT (log.texts (log_error),
                 testing::ElementsAre (testing::MatchesRegex (
                     "error, a \\(\\(nil\\)\\) or b \\(0x[0-9a-f]+\\) NULL")));
  }
  {
    LogCapture log;
    EXPECT_EQ (designIirButter2LowPass (array, nullptr, 0.5f), -1);
    EXPECT_THAT (log.texts (log_error),
                 testing::ElementsAre (testing::MatchesRegex (
                     "error, a \\(0x[0-9a-f]+\\) or b \\(\\(nil\\)\\) NULL")));
  }
}

TEST (ImpulseLength, TableFollowsTheRuleInEveryRow)
{
  static_assert (std::size (scipy_reference::impulse_lengths) == BUTTER2_IMPZLENGTH_ROWS);
  for (size_t i = 0; i < BUTTER2_IMPZLENGTH_ROWS; i++)
    ASSERT_EQ (butter2_impzlength_array[i], scipy_reference::impulse_lengths[i]) << "row " << i;
}

TEST (ImpulseLength, TableIsSymmetricWithItsMinimumInTheMiddle)
{
  for (size_t i = 0; i < BUTTER2_IMPZLENGTH_ROWS; i++) {
    ASSERT_EQ (butter2_impzlength_array[i], butter2_impzlength_array[9980 - i]) << i;
    ASSERT_GE (butter2_impzlength_array[i], butter2_impzlength_array[4990]) << i;
  }
  const std::pair<size_t, uint32_t> rows[] = {{0, 4458},  {1, 4052},   {10, 2229}, {100, 405},
                                              {1000, 44}, {2000, 22},  {4990, 11}, {7000, 15},
                                              {9000, 45}, {9980, 4458}};
  for (const auto &[row, length] : rows)
    EXPECT_EQ (butter2_impzlength_array[row], length) << row;
}

TEST (ImpulseLength, ResponseHasDecayed)
{
  /* The rule itself: past the length the envelope of the response is below 5e-5 of where it began.
   */
  for (const float cutoff : {0.05f, 0.3f, 0.6f, 0.9f}) {
    float a[3], b[3];
    uint32_t length;
    designIirButter2LowPass (a, b, cutoff);
    ASSERT_EQ (IitButter2_impzlength (&length, cutoff), 0);
    const double radius = std::sqrt (static_cast<double> (a[2]));
    EXPECT_LT (std::pow (radius, length + 2), 5e-5) << cutoff;
    EXPECT_GT (std::pow (radius, length - 2), 5e-5) << cutoff;
  }
}

TEST (ImpulseLength, Lookup)
{
  uint32_t length;
  EXPECT_EQ (IitButter2_impzlength (&length, 0.001f), 0);
  EXPECT_EQ (length, 4458u);
  EXPECT_EQ (IitButter2_impzlength (&length, 0.5f), 0);
  EXPECT_EQ (length, 11u);
  EXPECT_EQ (IitButter2_impzlength (&length, 0.3f), 0);
  EXPECT_EQ (length, butter2_impzlength_array[2990]);
}

TEST (ImpulseLength, LookupLandsUpToOneRowAboveTheNearestOnPurpose)
{
  /* The factor is one more than the grid has steps, so positions are stretched by 1.0001: near the
   * top end 0.99892, which lies at 9979.2 of the grid, reads row 9980. */
  const struct {
    float cutoff;
    size_t nearest, row;
  } rows[] = {
      {0.00102f, 0, 0}, {0.30002f, 2990, 2990}, {0.99892f, 9979, 9980}, {0.94893f, 9479, 9480}};
  for (const auto &[cutoff, nearest, row] : rows) {
    EXPECT_EQ (std::lround ((static_cast<double> (cutoff) - 0.001) / 0.0001),
               static_cast<long> (nearest));
    uint32_t length;
    ASSERT_EQ (IitButter2_impzlength (&length, cutoff), 0);
    EXPECT_EQ (length, butter2_impzlength_array[row]) << cutoff;
  }
  EXPECT_NE (butter2_impzlength_array[9979], butter2_impzlength_array[9980]);
}

TEST (ImpulseLength, HighestFloatBelowTheLimitStaysInTheTable)
{
  const float limit = 0.999f; // as a double above 0.999
  uint32_t length = 0;
  EXPECT_EQ (IitButter2_impzlength (&length, std::nextafter (limit, 0.0f)), 0);
  EXPECT_EQ (length, 4458u);
  LogCapture log;
  EXPECT_EQ (IitButter2_impzlength (&length, limit), -1);
}

TEST (ImpulseLength, RefusesWhatIsOutside)
{
  const std::pair<float, const char *> rows[] = {
      {0.0009f, "error, normalized Fcut (0.000900) out of range [0.001000 0.999000]"},
      {0.9995f, "error, normalized Fcut (0.999500) out of range [0.001000 0.999000]"},
      {-1.0f, "error, normalized Fcut (-1.000000) out of range [0.001000 0.999000]"},
      {inf_f, "error, normalized Fcut (inf) out of range [0.001000 0.999000]"},
      {nan_f, "error, normalized Fcut (nan) out of range [0.001000 0.999000]"},
  };
  for (const auto &[cutoff, text] : rows) {
    LogCapture log;
    uint32_t length = 3;
    EXPECT_EQ (IitButter2_impzlength (&length, cutoff), -1);
    EXPECT_EQ (log.texts (log_error), std::vector<std::string>{text});
    EXPECT_EQ (length, 3u);
  }
  LogCapture log;
  EXPECT_EQ (IitButter2_impzlength (nullptr, 0.5f), -1);
  EXPECT_EQ (log.texts (log_error), std::vector<std::string>{"error, impzlength NULL"});
}

} // namespace
