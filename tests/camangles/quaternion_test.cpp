// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <functional>
#include <numbers>
#include <random>

#include <camangles/quaternion.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scipy_reference.hpp"
#include "support.hpp"

namespace
{

constexpr float pi = std::numbers::pi_v<float>;
/* A handful of roundings of values up to 1: each is at most 6e-8. */
constexpr float few_roundings = 5e-7f;

void expect_near (const quat_t &actual, const quat_t &expected, float tolerance)
{
  EXPECT_NEAR (actual.x, expected.x, tolerance);
  EXPECT_NEAR (actual.y, expected.y, tolerance);
  EXPECT_NEAR (actual.z, expected.z, tolerance);
  EXPECT_NEAR (actual.w, expected.w, tolerance);
}

quat_t random_rotation (std::mt19937 &random)
{
  std::normal_distribution<double> normal;
  return QuatD (normal (random), normal (random), normal (random), normal (random))
      .normalized ()
      .single ();
}

TEST (Quaternion, NullPointersAreLoggedAndNothingIsWritten)
{
  quat_t q = {1, 2, 3, 4};
  const quat_t before = q;
  float f = 5;
  const std::vector<std::pair<const char *, std::function<int32_t ()>>> calls = {
      {"dot a", [&] { return quatDot (nullptr, &q, &f); }},
      {"dot b", [&] { return quatDot (&q, nullptr, &f); }},
      {"dot out", [&] { return quatDot (&q, &q, nullptr); }},
      {"normalize", [] { return quatNormalize (nullptr); }},
      {"conjugate", [] { return quatConjugate (nullptr); }},
      {"mul out", [&] { return quatMul (nullptr, &q, &q); }},
      {"mul a", [&] { return quatMul (&q, nullptr, &q); }},
      {"mul b", [&] { return quatMul (&q, &q, nullptr); }},
      {"is zero", [] { return quatIsZero (nullptr); }},
      {"is finite", [] { return quatIsFinite (nullptr); }},
      {"is rotation", [] { return quatIsRotation (nullptr, 1); }},
      {"from euler", [] { return quatFromEuler (nullptr, 0, 0, 0); }},
      {"from angle vector", [] { return quatFromAngleVector (nullptr, 0, 1, 0, 0); }},
      {"angle vector", [&] { return quatAngleVector (nullptr, &f, &f, &f, &f); }},
      {"nlerp out", [&] { return quatNlerp (nullptr, &q, &q, 0.5f); }},
      {"nlerp a", [&] { return quatNlerp (&q, nullptr, &q, 0.5f); }},
      {"nlerp b", [&] { return quatNlerp (&q, &q, nullptr, 0.5f); }},
      {"slerp out", [&] { return quatSlerp (nullptr, &q, &q, 0.5f); }},
      {"slerp a", [&] { return quatSlerp (&q, nullptr, &q, 0.5f); }},
      {"slerp b", [&] { return quatSlerp (&q, &q, nullptr, 0.5f); }},
      {"norm2", [] { return static_cast<int32_t> (quatNorm2 (nullptr)); }},
  };
  for (const auto &[name, call] : calls) {
    LogCapture log;
    EXPECT_EQ (call (), -1) << name;
    ASSERT_EQ (log.lines ().size (), 1u) << name;
    EXPECT_EQ (log.lines ()[0].tag, "camangles_quat");
    EXPECT_EQ (log.lines ()[0].priority, log_error);
    EXPECT_EQ (log.lines ()[0].text, "error, null quat") << name;
  }
  EXPECT_EQ (q, before);
  EXPECT_EQ (f, 5);
}

TEST (Quaternion, IdentityAndEulerRefuseNullSilently)
{
  LogCapture log;
  const quat_t q = {0, 0, 0, 1};
  float a;
  EXPECT_EQ (quatIdentity (nullptr), -1);
  EXPECT_EQ (quat2euler (nullptr, &a, &a, &a), -1);
  EXPECT_EQ (quat2euler (&q, nullptr, &a, &a), -1);
  EXPECT_EQ (quat2euler (&q, &a, nullptr, &a), -1);
  EXPECT_EQ (quat2euler (&q, &a, &a, nullptr), -1);
  EXPECT_THAT (log.lines (), testing::IsEmpty ());
}

TEST (Quaternion, BasicAlgebra)
{
  quat_t q;
  EXPECT_EQ (quatIdentity (&q), 0);
  EXPECT_EQ (q, (quat_t{0, 0, 0, 1}));
  q = {1, 2, 3, 4};
  EXPECT_EQ (quatNorm2 (&q), 30.0f);
  const quat_t other = {5, 6, 7, 8};
  float dot;
  EXPECT_EQ (quatDot (&q, &other, &dot), 0);
  EXPECT_EQ (dot, 70.0f);
  EXPECT_EQ (quatConjugate (&q), 0);
  EXPECT_EQ (q, (quat_t{-1, -2, -3, 4}));
  q = {3, 0, 0, 4};
  EXPECT_EQ (quatNormalize (&q), 0);
  EXPECT_EQ (q, (quat_t{0.6f, 0, 0, 0.8f}));
}

TEST (Quaternion, UnitProductsFollowHamilton)
{
  const quat_t i = {1, 0, 0, 0}, j = {0, 1, 0, 0}, k = {0, 0, 1, 0}, minus_one = {0, 0, 0, -1};
  const struct {
    quat_t a, b, product;
  } rows[] = {{i, j, k},         {j, k, i},         {k, i, j},        {j, i, {0, 0, -1, 0}},
              {i, i, minus_one}, {j, j, minus_one}, {k, k, minus_one}};
  for (const auto &row : rows) {
    quat_t out;
    EXPECT_EQ (quatMul (&out, &row.a, &row.b), 0);
    EXPECT_EQ (out, row.product);
  }
}

TEST (Quaternion, ProductMayOverwriteItsArguments)
{
  std::mt19937 random (1);
  for (int n = 0; n < 1000; n++) {
    const quat_t a = random_rotation (random), b = random_rotation (random);
    const QuatD expected = QuatD (a) * QuatD (b);
    quat_t out, first = a, second = b, square = a;
    quatMul (&out, &a, &b);
    expect_near (out, expected.single (), few_roundings);
    quatMul (&first, &first, &b);
    EXPECT_EQ (first, out);
    quatMul (&second, &a, &second);
    EXPECT_EQ (second, out);
    quatMul (&square, &square, &square);
    expect_near (square, (QuatD (a) * QuatD (a)).single (), few_roundings);
  }
}

TEST (Quaternion, ZeroNormBecomesNaN)
{
  quat_t q = {0, 0, 0, 0};
  EXPECT_EQ (quatNormalize (&q), 0);
  EXPECT_TRUE (std::isnan (q.x) && std::isnan (q.y) && std::isnan (q.z) && std::isnan (q.w));
}

TEST (Quaternion, Predicates)
{
  const struct {
    quat_t q;
    int zero, finite, rotation;
  } rows[] = {
      {{0, 0, 0, 0}, 1, 1, 0},
      {{-0.0f, 0, -0.0f, 0}, 1, 1, 0},
      {{0, 0, 0, nan_f}, 0, 0, 0},
      {{0, 0, 0, 1}, 0, 1, 1},
      {{inf_f, 0, 0, 0}, 0, 0, 0},
      {{0, -inf_f, 0, 1}, 0, 0, 0},
      {{3.4028235e38f, 0, 0, 0}, 0, 1, 0},
      {{1e-45f, 0, 0, 0}, 0, 1, 0},
      {{0, 0, 1.0004f, 0}, 0, 1, 1},
      {{0, 0, 1.0006f, 0}, 0, 1, 0},
  };
  for (const auto &row : rows) {
    EXPECT_EQ (quatIsZero (&row.q), row.zero) << testing::PrintToString (row.q);
    EXPECT_EQ (quatIsFinite (&row.q), row.finite) << testing::PrintToString (row.q);
    /* The squared norm is compared: 1.0004 squared is 1.0008, 1.0006 squared 1.0012. */
    EXPECT_EQ (quatIsRotation (&row.q, 0.001f), row.rotation) << testing::PrintToString (row.q);
  }
}

TEST (Quaternion, ToleranceZeroAcceptsOnlyExactlyOne)
{
  const quat_t exact = {0, 1, 0, 0};
  const quat_t off = {0, std::nextafter (1.0f, 2.0f), 0, 0};
  EXPECT_EQ (quatIsRotation (&exact, 0), 1);
  EXPECT_EQ (quatIsRotation (&off, 0), 0);
}

TEST (Quaternion, EulerOfZeroQuaternionIsNaNWithStatusZero)
{
  const quat_t zero = {0, 0, 0, 0};
  float r = 0, p = 0, y = 0;
  EXPECT_EQ (quat2euler (&zero, &r, &p, &y), 0);
  EXPECT_TRUE (std::isnan (r) && std::isnan (p) && std::isnan (y));
}

TEST (Quaternion, EulerPitchIsNotClampedForLongQuaternions)
{
  const quat_t longer = {0, 0.8f, 0, 0.8f};
  float r, p, y;
  EXPECT_EQ (quat2euler (&longer, &r, &p, &y), 0);
  EXPECT_TRUE (std::isnan (p));
  EXPECT_FALSE (std::isnan (r) || std::isnan (y));
}

TEST (Quaternion, FromEulerKnownValues)
{
  quat_t q;
  EXPECT_EQ (quatFromEuler (&q, 0, 0, 0), 0);
  EXPECT_EQ (q, (quat_t{0, 0, 0, 1}));
  const float s = std::sin (pi / 4), c = std::cos (pi / 4);
  quatFromEuler (&q, 0, 0, pi / 2);
  expect_near (q, {0, 0, s, c}, few_roundings);
  quatFromEuler (&q, pi / 2, 0, 0);
  expect_near (q, {s, 0, 0, c}, few_roundings);
  quatFromEuler (&q, 0, pi / 2, 0);
  expect_near (q, {0, s, 0, c}, few_roundings);
}

TEST (Quaternion, EulerAnglesAgreeWithScipy)
{
  for (const auto &row : scipy_reference::euler) {
    quat_t q;
    quatFromEuler (&q, static_cast<float> (row[0]), static_cast<float> (row[1]),
                   static_cast<float> (row[2]));
    const QuatD expected (row[3], row[4], row[5], row[6]);
    EXPECT_LT (angle_between (QuatD (q), expected), 1e-6);
    float r, p, y;
    const quat_t exact = expected.single ();
    EXPECT_EQ (quat2euler (&exact, &r, &p, &y), 0);
    /* The arc sine magnifies the rounding of its argument by 1 / cos (pitch), at most 20 here. */
    EXPECT_NEAR (p, row[1], 5e-6);
    EXPECT_NEAR (r, row[0], 5e-6);
    EXPECT_NEAR (y, row[2], 5e-6);
  }
}

TEST (Quaternion, ShortAxisGivesIdentityWhateverTheAngle)
{
  for (const float angle : {0.0f, 1.0f, pi, 100.0f}) {
    quat_t q = {9, 9, 9, 9};
    EXPECT_EQ (quatFromAngleVector (&q, angle, 1e-4f, 0, 0), 0);
    EXPECT_EQ (q, (quat_t{0, 0, 0, 1}));
  }
}

TEST (Quaternion, AxisThresholdIsOnTheSquaredLength)
{
  quat_t q;
  quatFromAngleVector (&q, 1.0f, 3.4e-4f, 0, 0); // squared 1.156e-7, below 1.192e-7
  EXPECT_EQ (q, (quat_t{0, 0, 0, 1}));
  quatFromAngleVector (&q, 1.0f, 3.5e-4f, 0, 0); // squared 1.225e-7
  expect_near (q, {std::sin (0.5f), 0, 0, std::cos (0.5f)}, few_roundings);
}

TEST (Quaternion, AngleVectorOfIdentity)
{
  const quat_t identity = {0, 0, 0, 1};
  float angle = 9, x = 9, y = 9, z = 9;
  EXPECT_EQ (quatAngleVector (&identity, &angle, &x, &y, &z), 0);
  EXPECT_EQ (angle, 0);
  EXPECT_EQ (x, 0);
  EXPECT_EQ (y, 0);
  EXPECT_EQ (z, 0);
}

TEST (Quaternion, AngleVectorOutputsAreEachOptional)
{
  const quat_t q = QuatD::about (0, 1, 0, 1.0).single ();
  float angle = 0, y = 0;
  EXPECT_EQ (quatAngleVector (&q, nullptr, nullptr, nullptr, nullptr), 0);
  EXPECT_EQ (quatAngleVector (&q, &angle, nullptr, nullptr, nullptr), 0);
  EXPECT_NEAR (angle, 1.0f, few_roundings);
  EXPECT_EQ (quatAngleVector (&q, nullptr, nullptr, &y, nullptr), 0);
  EXPECT_NEAR (y, 1.0f, few_roundings);
}

TEST (Quaternion, AngleVectorRoundTrip)
{
  std::mt19937 random (2);
  std::uniform_real_distribution<double> angles (0.05, 2 * std::numbers::pi - 0.05);
  std::normal_distribution<double> normal;
  for (int n = 0; n < 1000; n++) {
    const double ax = normal (random), ay = normal (random), az = normal (random);
    const double length = std::sqrt (ax * ax + ay * ay + az * az);
    const double angle = angles (random);
    quat_t q;
    /* Any length of the axis serves. */
    quatFromAngleVector (&q, static_cast<float> (angle), static_cast<float> (ax),
                         static_cast<float> (ay), static_cast<float> (az));
    const auto expected = QuatD::about (ax / length, ay / length, az / length, angle);
    EXPECT_LT (angle_between (QuatD (q), expected), 1e-6);
    float a, x, y, z;
    quatAngleVector (&q, &a, &x, &y, &z);
    /* Angles above pi (w below 0) come back as they are; the axis is divided by a sine of 0.025 at
     * least. */
    EXPECT_NEAR (a, angle, 2e-6);
    EXPECT_NEAR (x, ax / length, 1e-5);
    EXPECT_NEAR (y, ay / length, 1e-5);
    EXPECT_NEAR (z, az / length, 1e-5);
  }
}

TEST (Quaternion, NlerpOfOppositeSignsTakesTheFlippedBranch)
{
  const quat_t q = {0.5f, 0.5f, 0.5f, 0.5f}, minus = {-0.5f, -0.5f, -0.5f, -0.5f};
  quat_t out;
  EXPECT_EQ (quatNlerp (&out, &q, &minus, 0.5f), 0);
  EXPECT_EQ (out, minus);
}

TEST (Quaternion, NlerpAtDotZeroFlipsTheFirst)
{
  const quat_t a = {1, 0, 0, 0}, b = {0, 1, 0, 0};
  quat_t out;
  quatNlerp (&out, &a, &b, 0.25f);
  EXPECT_EQ (out, (quat_t{-0.75f, 0.25f, 0, 0})) << "and it is not normalised";
}

TEST (Quaternion, NlerpIsLinear)
{
  quat_t a = {0, 0, 0, 1};
  const quat_t b = {0.6f, 0, 0, 0.8f};
  quatNlerp (&a, &a, &b, 0.25f);
  expect_near (a, {0.15f, 0, 0, 0.95f}, few_roundings);
}

TEST (Quaternion, SlerpTakesTheShorterWayOver350Degrees)
{
  const quat_t a = {0, 0, 0, 1};
  const quat_t b = QuatD::about (0, 0, 1, 350 * std::numbers::pi / 180).single ();
  for (const double t : {0.0, 0.25, 0.5, 1.0}) {
    quat_t out;
    EXPECT_EQ (quatSlerp (&out, &a, &b, static_cast<float> (t)), 0);
    const auto expected = QuatD::about (0, 0, 1, -10 * t * std::numbers::pi / 180);
    EXPECT_LT (angle_between (QuatD (out), expected), 2e-6) << t;
  }
}

TEST (Quaternion, SlerpAgreesWithScipy)
{
  for (const auto &row : scipy_reference::slerp) {
    const quat_t a = QuatD (row[0], row[1], row[2], row[3]).single ();
    const quat_t b = QuatD (row[4], row[5], row[6], row[7]).single ();
    quat_t out;
    EXPECT_EQ (quatSlerp (&out, &a, &b, static_cast<float> (row[8])), 0);
    /* The axis is a quotient by the sine of the half angle, which is 0.05 or more in these rows. */
    EXPECT_LT (angle_between (QuatD (out), {row[9], row[10], row[11], row[12]}), 5e-6);
    quat_t in_place = a;
    quatSlerp (&in_place, &in_place, &b, static_cast<float> (row[8]));
    EXPECT_EQ (in_place, out);
  }
}

class QuatArraySlerp : public testing::Test
{
protected:
  /** Attitudes about z, 0.1 rad apart. */
  std::vector<quat_t> array_ = [] {
    std::vector<quat_t> result (5);
    for (size_t i = 0; i < 5; i++)
      result[i] = QuatD::about (0, 0, 1, 0.1 * static_cast<double> (i)).single ();
    return result;
  }();
};

TEST_F (QuatArraySlerp, InterpolatesAndExtrapolates)
{
  for (const double t : {-2.0, -0.5, 0.0, 0.3, 1.0, 2.5, 3.999, 4.0, 4.5, 7.0}) {
    quat_t out;
    EXPECT_EQ (quatArraySlerp (&out, array_.data (), 5, static_cast<float> (t)), 0);
    EXPECT_LT (angle_between (QuatD (out), QuatD::about (0, 0, 1, 0.1 * t)), 3e-6) << t;
  }
}

TEST_F (QuatArraySlerp, LastIndexIsTheLastElementAndReadsNoFurther)
{
  /* The heap block ends with the array: the address sanitizer sees a read behind it. */
  const std::vector<quat_t> exact (array_);
  quat_t out;
  EXPECT_EQ (quatArraySlerp (&out, exact.data (), 5, 4.0f), 0);
  EXPECT_EQ (out, exact[4]);
}

TEST_F (QuatArraySlerp, NaNIndexGivesNaN)
{
  quat_t out = {0, 0, 0, 1};
  EXPECT_EQ (quatArraySlerp (&out, array_.data (), 5, nan_f), 0);
  EXPECT_TRUE (std::isnan (out.x) && std::isnan (out.y) && std::isnan (out.z) &&
               std::isnan (out.w));
}

TEST_F (QuatArraySlerp, InfiniteIndicesStayInside)
{
  quat_t out;
  EXPECT_EQ (quatArraySlerp (&out, array_.data (), 5, inf_f), 0);
  EXPECT_EQ (quatArraySlerp (&out, array_.data (), 5, -inf_f), 0);
  EXPECT_EQ (quatArraySlerp (&out, array_.data (), 5, 3e38f), 0);
}

TEST_F (QuatArraySlerp, RefusalsHaveTheirOwnTexts)
{
  quat_t out = {7, 7, 7, 7};
  {
    LogCapture log;
    EXPECT_EQ (quatArraySlerp (&out, nullptr, 5, 0), -1);
    EXPECT_EQ (log.texts (log_error), std::vector<std::string>{"error, q_array is null"});
  }
  {
    LogCapture log;
    EXPECT_EQ (quatArraySlerp (&out, array_.data (), 1, 0), -1);
    EXPECT_EQ (log.texts (log_error), std::vector<std::string>{"error, q_array_length (1) <2"});
  }
  {
    LogCapture log;
    EXPECT_EQ (quatArraySlerp (nullptr, array_.data (), 5, 0), -1);
    EXPECT_EQ (quatArraySlerp (nullptr, array_.data (), 5, 4), -1);
    EXPECT_EQ (log.count ("error, null quat"), 2);
  }
  EXPECT_EQ (out, (quat_t{7, 7, 7, 7}));
}

} // namespace
