// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_FLIGHT_DYNAMICS_HPP
#define SIMULATOR_FLIGHT_DYNAMICS_HPP

#include <cstdint>
#include <vector>

#include "flight.hpp"
#include "taylor.hpp"

namespace sim
{

/** Enough derivatives of the path for the jerk, on which the angular rate depends. */
using PathScalar = Taylor<3>;
/** Value and rate. */
using RateScalar = Taylor<1>;

/** A sum of sines, evaluated with its derivatives. */
struct Tone {
  double amplitude;
  double omega_rad_s;
  double phase_rad;
};

template <int N>
Taylor<N> sum_of_tones (const std::vector<Tone> &tones, const Taylor<N> &t)
{
  Taylor<N> sum;
  for (const auto &tone : tones)
    sum = sum + sin (t * tone.omega_rad_s + tone.phase_rad) * tone.amplitude;
  return sum;
}

/** How rough the air and the airframe are. */
struct Roughness {
  double wind_m_s;        // mean wind
  double gust_m_s;        // amplitude of its changes
  double sway_m;          // how far gusts push the drone off its path
  double jitter_rad;      // attitude corrections of the controller, 1 to 9 Hz
  double vibration_rad_s; // angular rate that the motors put into the airframe, per motor
};

/** What wind and motors do to a flight; frequencies and phases come from the seed. */
class Disturbance
{
public:
  Disturbance (const Roughness &roughness, uint64_t seed);
  /** Offset from the path, metres NED. */
  Vector3<PathScalar> sway (const PathScalar &t) const;
  /** Wind, m/s NED. */
  Vector3<RateScalar> wind (const RateScalar &t) const;
  /** Small rotation of the camera against the airframe's attitude, radians, camera frame. */
  Vector3<RateScalar> shake (const RateScalar &t) const;

private:
  Vec3 mean_wind_;
  std::vector<Tone> sway_[3];
  std::vector<Tone> gust_[3];
  std::vector<Tone> shake_[3];
};

/**
 * The attitude of a multirotor: its thrust, along the negative down axis, carries gravity, the
 * acceleration and the drag against the air; the heading is free.
 */
Quaternion<RateScalar> attitude_of (const Vector3<RateScalar> &acceleration_m_s2,
                                    const Vector3<RateScalar> &airspeed_m_s,
                                    const RateScalar &heading_rad);

/** The rotation by a small vector (below 0.1 rad), in radians. */
Quaternion<RateScalar> small_rotation (const Vector3<RateScalar> &vector_rad);

/** Puts position and attitude together; the attitude need not be normalised. */
FlightState state_of (const Vector3<PathScalar> &position, const Quaternion<RateScalar> &attitude);

} // namespace sim

#endif
