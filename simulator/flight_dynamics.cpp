// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "flight_dynamics.hpp"

#include "random.hpp"

namespace sim
{

namespace
{

constexpr double gravity_m_s2 = 9.80665;
/** Linear rotor drag per mass: 5 m/s of wind tilt the drone by 3.5 degrees. */
constexpr double drag_1_s = 0.12;

constexpr int n_motors = 4;
constexpr int n_harmonics = 2;

/** Gives the random numbers of one flight one after the other. */
class Draws
{
public:
  explicit Draws (uint64_t seed) : seed_ (seed) {}
  double between (double low, double high)
  {
    return low + (high - low) * random_uniform (seed_, 0, index_++);
  }
  double phase () { return between (0, 2 * std::numbers::pi); }

private:
  uint64_t seed_;
  uint64_t index_ = 0;
};

/** Tones from low to high, spread evenly over octaves, falling with frequency to the power. */
std::vector<Tone> make_tones (Draws &draws, int count, double amplitude, double low_hz,
                              double high_hz, double power)
{
  std::vector<Tone> tones;
  tones.reserve (static_cast<size_t> (count));
  for (int i = 0; i < count; i++) {
    const double place = (i + draws.between (0.1, 0.9)) / count;
    const double frequency_hz = low_hz * std::pow (high_hz / low_hz, place);
    tones.push_back ({amplitude * std::pow (frequency_hz / low_hz, -power),
                      2 * std::numbers::pi * frequency_hz, draws.phase ()});
  }
  return tones;
}

} // namespace

Disturbance::Disturbance (const Roughness &roughness, uint64_t seed)
{
  Draws draws (seed);
  const double wind_from = draws.phase ();
  mean_wind_ = Vec3{std::cos (wind_from), std::sin (wind_from), 0} * roughness.wind_m_s;
  for (int axis = 0; axis < 3; axis++) {
    // Up and down the drone is stiffer, and gusts are weaker.
    const double share = axis == 2 ? 0.3 : 1;
    sway_[axis] = make_tones (draws, 4, roughness.sway_m * share, 0.05, 0.6, 1.5);
    gust_[axis] = make_tones (draws, 5, roughness.gust_m_s * share, 0.05, 1.5, 0.8);
    shake_[axis] = make_tones (draws, 6, roughness.jitter_rad, 1, 9, 1.2);
  }
  for (int motor = 0; motor < n_motors; motor++) {
    const double turns_hz = draws.between (78, 92);
    for (int harmonic = 1; harmonic <= n_harmonics; harmonic++) {
      const double omega = 2 * std::numbers::pi * turns_hz * harmonic;
      for (auto &axis : shake_)
        axis.push_back ({roughness.vibration_rad_s * draws.between (0.3, 1) / harmonic / omega,
                         omega, draws.phase ()});
    }
  }
}

Vector3<PathScalar> Disturbance::sway (const PathScalar &t) const
{
  return {sum_of_tones (sway_[0], t), sum_of_tones (sway_[1], t), sum_of_tones (sway_[2], t)};
}

Vector3<RateScalar> Disturbance::wind (const RateScalar &t) const
{
  return {sum_of_tones (gust_[0], t) + mean_wind_.x, sum_of_tones (gust_[1], t) + mean_wind_.y,
          sum_of_tones (gust_[2], t) + mean_wind_.z};
}

Vector3<RateScalar> Disturbance::shake (const RateScalar &t) const
{
  return {sum_of_tones (shake_[0], t), sum_of_tones (shake_[1], t), sum_of_tones (shake_[2], t)};
}

Quaternion<RateScalar> attitude_of (const Vector3<RateScalar> &acceleration_m_s2,
                                    const Vector3<RateScalar> &airspeed_m_s,
                                    const RateScalar &heading_rad)
{
  const Vector3<RateScalar> gravity = {0.0, 0.0, gravity_m_s2};
  const auto thrust = acceleration_m_s2 - gravity + airspeed_m_s * drag_1_s;
  // The thrust's opposite, seen from the heading: the camera's down axis.
  RateScalar sin_heading, cos_heading;
  sin_cos (heading_rad, sin_heading, cos_heading);
  const RateScalar forward = -(cos_heading * thrust.x + sin_heading * thrust.y);
  const RateScalar right = sin_heading * thrust.x - cos_heading * thrust.y;
  const RateScalar down = -thrust.z;
  const RateScalar pitch = atan2 (forward, down);
  const RateScalar roll = atan2 (-right, sqrt (forward * forward + down * down));

  const auto about = [] (const RateScalar &angle, RateScalar &s, RateScalar &c) {
    sin_cos (angle * 0.5, s, c);
  };
  RateScalar sy, cy, sp, cp, sr, cr;
  about (heading_rad, sy, cy);
  about (pitch, sp, cp);
  about (roll, sr, cr);
  const Quaternion<RateScalar> yaw_q = {0.0, 0.0, sy, cy};
  const Quaternion<RateScalar> pitch_q = {0.0, sp, 0.0, cp};
  const Quaternion<RateScalar> roll_q = {sr, 0.0, 0.0, cr};
  return yaw_q * pitch_q * roll_q;
}

Quaternion<RateScalar> small_rotation (const Vector3<RateScalar> &v)
{
  // Series of cos (n/2) and sin (n/2) / n in n^2: below 0.1 rad the rest is under 1e-16.
  const RateScalar n2 = dot (v, v);
  const RateScalar w = 1.0 + n2 * (-1.0 / 8 + n2 * (1.0 / 384 - n2 * (1.0 / 46080)));
  const RateScalar s = 0.5 + n2 * (-1.0 / 48 + n2 * (1.0 / 3840 - n2 * (1.0 / 645120)));
  return {v.x * s, v.y * s, v.z * s, w};
}

FlightState state_of (const Vector3<PathScalar> &position, const Quaternion<RateScalar> &attitude)
{
  const RateScalar norm = sqrt (dot (attitude, attitude));
  const Quaternion<RateScalar> unit = {attitude.x / norm, attitude.y / norm, attitude.z / norm,
                                       attitude.w / norm};
  const Quat q = {unit.x.c[0], unit.y.c[0], unit.z.c[0], unit.w.c[0]};
  const Quat q_dot = {unit.x.c[1], unit.y.c[1], unit.z.c[1], unit.w.c[1]};
  // q' = q (rate, 0) / 2
  const Quat half_rate = conjugate (q) * q_dot;
  return {q,
          Vec3{half_rate.x, half_rate.y, half_rate.z} * 2.0,
          {position.x.c[0], position.y.c[0], position.z.c[0]},
          {position.x.c[1], position.y.c[1], position.z.c[1]},
          Vec3{position.x.c[2], position.y.c[2], position.z.c[2]} * 2.0};
}

} // namespace sim
