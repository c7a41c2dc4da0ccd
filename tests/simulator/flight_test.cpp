// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "flight.hpp"
#include "taylor.hpp"

#include <array>
#include <cmath>
#include <random>
#include <tuple>

#include <gtest/gtest.h>

#include "log_capture.hpp"

using namespace sim;

namespace
{

TEST (Taylor, CarriesDerivativesOfKnownFunctions)
{
  const double t = 0.7;
  const auto x = Taylor<3>::variable (t);
  struct Case {
    const char *name;
    Taylor<3> series;
    std::array<double, 4> derivatives;
  };
  const double r = std::sqrt (1 + t);
  const double d = 1 + t * t;
  const Case cases[] = {
      {"sin 2t",
       sin (x * 2.0),
       {std::sin (2 * t), 2 * std::cos (2 * t), -4 * std::sin (2 * t), -8 * std::cos (2 * t)}},
      {"cos t", cos (x), {std::cos (t), -std::sin (t), -std::cos (t), std::sin (t)}},
      {"t^3", x * x * x, {t * t * t, 3 * t * t, 6 * t, 6}},
      {"1/t", 1.0 / x, {1 / t, -1 / (t * t), 2 / (t * t * t), -6 / (t * t * t * t)}},
      {"sqrt (1+t)",
       sqrt (x + 1.0),
       {r, 1 / (2 * r), -1 / (4 * r * r * r), 3 / (8 * r * r * r * r * r)}},
      {"atan t",
       atan2 (x, Taylor<3> (1.0)),
       {std::atan (t), 1 / d, -2 * t / (d * d), (6 * t * t - 2) / (d * d * d)}},
      {"atan2 (sin, cos)", atan2 (sin (x), cos (x)), {t, 1, 0, 0}},
  };
  for (const auto &[name, series, derivatives] : cases) {
    double factorial = 1;
    for (size_t k = 0; k < 4; k++) {
      EXPECT_NEAR (series.c[k] * factorial, derivatives[k], 1e-13) << name << " derivative " << k;
      factorial *= static_cast<double> (k + 1);
    }
  }
}

/** Central difference of fourth order. */
template <typename F>
auto difference (F &&f, double t, double h)
{
  return (f (t - 2 * h) - f (t - h) * 8.0 + f (t + h) * 8.0 - f (t + 2 * h)) * (1 / (12 * h));
}

struct QuatVector {
  Quat q;
  QuatVector operator* (double s) const { return {{q.x * s, q.y * s, q.z * s, q.w * s}}; }
  QuatVector operator+ (const QuatVector &o) const
  {
    return {{q.x + o.q.x, q.y + o.q.y, q.z + o.q.z, q.w + o.q.w}};
  }
  QuatVector operator- (const QuatVector &o) const { return *this + o * -1.0; }
};

double distance (const Vec3 &a, const Vec3 &b)
{
  return length (a - b);
}

class NamedFlights : public testing::TestWithParam<const char *>
{
protected:
  std::unique_ptr<Flight> make (uint64_t seed = 1) const
  {
    return make_named_flight (GetParam (), seed);
  }
  /** Moments all over two minutes and a few far out, those at which pieces of paths meet too. */
  static std::vector<double> moments ()
  {
    std::vector<double> result = {0, 10, 18, 28, 36, 108, 216, 1234.5, 36000, -3.2};
    std::mt19937_64 random (3);
    for (int i = 0; i < (soak () ? 100000 : 2000); i++)
      result.push_back (static_cast<double> (random () >> 11) * 0x1p-53 * 240);
    return result;
  }
};

TEST_P (NamedFlights, RateIsTheDerivativeOfTheAttitude)
{
  const auto flight = make ();
  for (const double t : moments ()) {
    if (t > 1000)
      continue; // the steps of the difference drown in the rounding of t
    const auto state = flight->at (t);
    const Quat q_dot =
        difference ([&] (double u) { return QuatVector{flight->at (u).attitude}; }, t, 2e-5).q;
    const Quat half_rate = conjugate (state.attitude) * q_dot;
    // The fifth derivative of vibration at 180 Hz leaves up to 1e-9 rad/s in the difference.
    EXPECT_LT (distance (Vec3{half_rate.x, half_rate.y, half_rate.z} * 2.0, state.rate_rad_s), 2e-8)
        << GetParam () << " at " << t;
    EXPECT_NEAR (half_rate.w, 0, 1e-6);
  }
}

TEST_P (NamedFlights, VelocityAndAccelerationAreDerivativesOfThePosition)
{
  const auto flight = make ();
  for (const double t : moments ()) {
    if (t > 1000)
      continue;
    const auto state = flight->at (t);
    const auto velocity =
        difference ([&] (double u) { return flight->at (u).position_m; }, t, 1e-3);
    const auto acceleration =
        difference ([&] (double u) { return flight->at (u).velocity_m_s; }, t, 1e-3);
    EXPECT_LT (distance (velocity, state.velocity_m_s), 1e-8) << GetParam () << " at " << t;
    EXPECT_LT (distance (acceleration, state.acceleration_m_s2), 1e-7) << GetParam ();
  }
}

TEST_P (NamedFlights, IntegratedRateFollowsTheAttitude)
{
  const auto flight = make ();
  const double step = 1e-3;
  Quat q = flight->at (0).attitude;
  double worst = 0;
  for (int i = 0; i < 30000; i++) {
    const Vec3 half = flight->at ((i + 0.5) * step).rate_rad_s * (step / 2);
    const double angle = length (half);
    const double scale = angle > 0 ? std::sin (angle) / angle : 1;
    q = q * Quat{half.x * scale, half.y * scale, half.z * scale, std::cos (angle)};
    worst = std::max (worst, angle_between (q, flight->at ((i + 1) * step).attitude));
  }
  EXPECT_LT (worst, 0.01 * degree);
}

TEST_P (NamedFlights, AttitudeIsUnitAndNeverChangesSides)
{
  const auto flight = make ();
  Quat former = flight->at (0).attitude;
  for (int i = 1; i < 24000; i++) {
    const Quat q = flight->at (i * 0.01).attitude;
    EXPECT_NEAR (dot (q, q), 1, 1e-14);
    EXPECT_GT (dot (former, q), 0.99) << "at " << i * 0.01;
    former = q;
  }
}

TEST_P (NamedFlights, ThrustCarriesTheDrone)
{
  // What a multirotor's accelerometers feel points along its thrust, up to drag and shaking.
  const auto flight = make ();
  for (const double t : moments ()) {
    const auto state = flight->at (t);
    const Vec3 felt = state.acceleration_m_s2 - Vec3{0, 0, 9.80665};
    const Vec3 in_camera = rotate (conjugate (state.attitude), felt);
    EXPECT_LT (in_camera.z, -5);
    EXPECT_LT (std::hypot (in_camera.x, in_camera.y), 4.0) << GetParam () << " at " << t;
  }
}

TEST_P (NamedFlights, SeedFixesEverything)
{
  const auto a = make (7);
  const auto b = make (7);
  const auto other = make (8);
  b->at (99); // order does not matter
  for (const double t : {0.0, 3.7, 99.0, 5000.0}) {
    const auto x = a->at (t);
    const auto y = b->at (t);
    EXPECT_EQ (std::tie (x.attitude.x, x.attitude.y, x.attitude.z, x.attitude.w),
               std::tie (y.attitude.x, y.attitude.y, y.attitude.z, y.attitude.w));
    EXPECT_EQ (distance (x.rate_rad_s, y.rate_rad_s), 0);
    EXPECT_EQ (distance (x.position_m, y.position_m), 0);
    EXPECT_GT (distance (x.rate_rad_s, other->at (t).rate_rad_s), 1e-6);
  }
}

TEST_P (NamedFlights, VibratesAtMotorSpeed)
{
  // Energy of the rate above 60 Hz: the difference over half a period of 85 Hz keeps it.
  const auto flight = make ();
  double sum = 0;
  for (int i = 0; i < 1000; i++) {
    const double t = i * 0.0137;
    sum += std::pow (length (flight->at (t).rate_rad_s - flight->at (t + 0.5 / 85).rate_rad_s), 2);
  }
  EXPECT_GT (std::sqrt (sum / 1000), 0.02);
  EXPECT_LT (std::sqrt (sum / 1000), 1.0);
}

TEST_P (NamedFlights, StaysNearHomeAndAboveGround)
{
  const auto flight = make ();
  for (int i = 0; i < 3600; i++) {
    const Vec3 p = flight->at (i * 1.0).position_m;
    EXPECT_LT (std::hypot (p.x, p.y), 200);
    EXPECT_LT (p.z, -15);
    EXPECT_GT (p.z, -60);
  }
}

INSTANTIATE_TEST_SUITE_P (All, NamedFlights,
                          testing::Values ("hover", "orbit", "survey", "aggressive"),
                          [] (const auto &flight) { return std::string (flight.param); });

double greatest_roll (const char *name)
{
  const auto flight = make_named_flight (name, 1);
  double greatest = 0;
  for (int i = 0; i < 6000; i++)
    greatest = std::max (greatest, std::abs (euler_of (flight->at (i * 0.01).attitude).roll));
  return greatest;
}

TEST (Flights, RollsAsTheirNamesSay)
{
  EXPECT_LT (greatest_roll ("hover"), 8 * degree);
  EXPECT_GT (greatest_roll ("survey"), 15 * degree) << "turns are banked";
  EXPECT_GT (greatest_roll ("aggressive"), 30 * degree);
}

TEST (Flights, OrbitLooksAtItsCentre)
{
  const auto flight = make_named_flight ("orbit", 1);
  for (int i = 0; i < 600; i++) {
    const auto state = flight->at (i * 0.1);
    const Vec3 view = rotate (state.attitude, {1, 0, 0});
    const double bearing = std::atan2 (-state.position_m.y, -state.position_m.x);
    const double off = std::remainder (std::atan2 (view.y, view.x) - bearing, 2 * std::numbers::pi);
    EXPECT_LT (std::abs (off), 5 * degree);
  }
}

TEST (Flights, SurveyCoversItsLanesAndComesBack)
{
  const auto flight = make_named_flight ("survey", 1);
  for (int leg = 0; leg < 13; leg++) {
    const int lane = leg <= 6 ? leg : 12 - leg;
    const auto state = flight->at (leg * 18 + 5.0); // the middle of the leg
    EXPECT_NEAR (state.position_m.y, lane * 20, 1.5) << "leg " << leg;
    EXPECT_NEAR (state.position_m.x, 0, 1.5);
    EXPECT_NEAR (state.velocity_m_s.x, leg % 2 ? -8 : 8, 1);
    const double course = leg % 2 ? std::numbers::pi : 0;
    const double off =
        std::remainder (euler_of (state.attitude).yaw - course, 2 * std::numbers::pi);
    EXPECT_LT (std::abs (off), 5 * degree) << "looks along its course";
  }
}

TEST (Flights, NamesAreKnown)
{
  ASSERT_EQ (named_flights ().size (), 4u);
  for (const auto &flight : named_flights ()) {
    EXPECT_NE (make_named_flight (flight.name, 1), nullptr);
    EXPECT_STRNE (flight.summary, "");
    EXPECT_EQ (make_named_flight (flight.name, 1)->duration_s (), std::nullopt);
  }
  EXPECT_EQ (make_named_flight ("loop", 1), nullptr);
}

} // namespace
