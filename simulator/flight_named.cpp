// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "flight_dynamics.hpp"

#include <algorithm>

namespace sim
{

namespace
{

/** The path without wind, and where the camera looks along it. */
struct Course {
  const char *name;
  const char *summary;
  Roughness roughness;
  Vector3<PathScalar> (*position_m) (const PathScalar &t);
  RateScalar (*heading_rad) (const RateScalar &t, const Vector3<RateScalar> &velocity_m_s);
};

Vector3<PathScalar> hover_position (const PathScalar &)
{
  return {0.0, 0.0, -20.0};
}

RateScalar hover_heading (const RateScalar &t, const Vector3<RateScalar> &)
{
  return sin (t * 0.15) * (3 * degree);
}

constexpr double orbit_radius_m = 20;
constexpr double orbit_rate_rad_s = 0.3;

Vector3<PathScalar> orbit_position (const PathScalar &t)
{
  PathScalar s, c;
  sin_cos (t * orbit_rate_rad_s, s, c);
  return {c * orbit_radius_m, s * orbit_radius_m, sin (t * 0.1) * 2.0 - 30.0};
}

RateScalar orbit_heading (const RateScalar &t, const Vector3<RateScalar> &)
{
  return t * orbit_rate_rad_s + std::numbers::pi;
}

constexpr double leg_s = 10;
constexpr double turn_s = 8;
constexpr double leg_speed_m_s = 8;
constexpr double lane_m = 20;
constexpr int64_t lanes_per_pass = 6; // even, so that a pass ends on a northward leg

/** Where in the lanes a moment lies: leg k (even: northward) and then turn k. */
struct SurveyPhase {
  int64_t leg;
  double into_s;
  double side; // turns go east (1) in one pass and west (-1) in the next
};

SurveyPhase survey_phase (double t)
{
  const double period_s = leg_s + turn_s;
  const auto leg = static_cast<int64_t> (std::floor (t / period_s));
  const int64_t pass = leg >= 0 ? leg / lanes_per_pass : (leg + 1) / lanes_per_pass - 1;
  return {leg, t - static_cast<double> (leg) * period_s, pass % 2 == 0 ? 1.0 : -1.0};
}

int64_t survey_lane (int64_t leg)
{
  const int64_t cycle = 2 * lanes_per_pass;
  const int64_t step = ((leg % cycle) + cycle) % cycle;
  return step <= lanes_per_pass ? step : cycle - step;
}

Vector3<PathScalar> survey_position (const PathScalar &t)
{
  const SurveyPhase phase = survey_phase (t.value ());
  const double direction = phase.leg % 2 == 0 ? 1 : -1;
  const double lane = static_cast<double> (survey_lane (phase.leg)) * lane_m;
  const double half_leg = leg_s * leg_speed_m_s / 2;
  const PathScalar into = t - (t.value () - phase.into_s);
  if (phase.into_s < leg_s)
    return {(into * leg_speed_m_s - half_leg) * direction, lane, -40.0};

  // Along the lane the speed turns from v to -v, across it the lane changes, on smooth steps whose
  // first three and four derivatives vanish at both ends.
  const PathScalar u = (into - leg_s) * (1 / turn_s);
  const PathScalar u4 = u * u * u * u;
  const PathScalar step_integral = u4 * u * (7.0 + u * (-14.0 + u * (10.0 - u * 2.5)));
  const PathScalar step = u4 * u * (126.0 + u * (-420.0 + u * (540.0 + u * (-315.0 + u * 70.0))));
  const PathScalar along = half_leg + (u - step_integral * 2.0) * (leg_speed_m_s * turn_s);
  return {along * direction, lane + step * (lane_m * phase.side), -40.0};
}

RateScalar survey_heading (const RateScalar &t, const Vector3<RateScalar> &velocity_m_s)
{
  // Along the course; written so that the angle never jumps: turns of a pass go over one side.
  const double side = survey_phase (t.value ()).side;
  return side * (0.5 * std::numbers::pi - atan2 (velocity_m_s.x, velocity_m_s.y * side));
}

constexpr double eight_rate_rad_s = 2 * std::numbers::pi / 14;

Vector3<PathScalar> aggressive_position (const PathScalar &t)
{
  const PathScalar phase = t * eight_rate_rad_s;
  return {sin (phase) * 25.0, sin (phase * 2.0) * 12.0, sin (phase * 1.3) * 4.0 - 25.0};
}

RateScalar aggressive_heading (const RateScalar &t, const Vector3<RateScalar> &)
{
  return sin (t * 0.7) * (100 * degree) + sin (t * 2.3) * (12 * degree);
}

const Course courses[] = {
    {"hover",
     "holds its place 20 m above home in a light wind",
     {2, 1, 0.15, 0.15 * degree, 0.02},
     hover_position,
     hover_heading},
    {"orbit",
     "circles home at 20 m and 6 m/s, the camera on the centre",
     {3, 1.5, 0.15, 0.2 * degree, 0.03},
     orbit_position,
     orbit_heading},
    {"survey",
     "flies lanes of 80 m at 8 m/s with banked turns between them",
     {3, 1.5, 0.15, 0.2 * degree, 0.03},
     survey_position,
     survey_heading},
    {"aggressive",
     "flies figures of eight with up to 50 degrees of tilt in a gusty wind",
     {5, 3, 0.3, 0.5 * degree, 0.08},
     aggressive_position,
     aggressive_heading},
};

class NamedFlight : public Flight
{
public:
  NamedFlight (const Course &course, uint64_t seed)
      : course_ (course), disturbance_ (course.roughness, seed)
  {
  }

  FlightState at (double time_s) const override
  {
    const auto t = RateScalar::variable (time_s);
    const auto path_t = PathScalar::variable (time_s);
    const auto path = course_.position_m (path_t);
    const auto position = path + disturbance_.sway (path_t);
    const auto heading = course_.heading_rad (t, series<1> (path));
    const auto airspeed = series<1> (position) - disturbance_.wind (t);
    const auto attitude = attitude_of (series<2> (position), airspeed, heading);
    return state_of (position, attitude * small_rotation (disturbance_.shake (t)));
  }

private:
  template <int n>
  static Vector3<RateScalar> series (const Vector3<PathScalar> &path)
  {
    return {derived<1, n> (path.x), derived<1, n> (path.y), derived<1, n> (path.z)};
  }

  const Course &course_;
  Disturbance disturbance_;
};

} // namespace

const std::vector<FlightDescription> &named_flights ()
{
  static const std::vector<FlightDescription> descriptions = [] {
    std::vector<FlightDescription> list;
    for (const auto &course : courses)
      list.push_back ({course.name, course.summary});
    return list;
  }();
  return descriptions;
}

std::unique_ptr<Flight> make_named_flight (const std::string &name, uint64_t seed)
{
  const auto *const course =
      std::find_if (std::begin (courses), std::end (courses),
                    [&name] (const Course &candidate) { return name == candidate.name; });
  if (course == std::end (courses))
    return nullptr;
  return std::make_unique<NamedFlight> (*course, seed);
}

} // namespace sim
