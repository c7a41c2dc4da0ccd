// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * The flight model: the exact motion of the camera as a pure function of time. Flights are
 * immutable once made; at() is thread-safe.
 */
#ifndef SIMULATOR_FLIGHT_HPP
#define SIMULATOR_FLIGHT_HPP

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "geometry.hpp"

namespace sim
{

/** All quantities are exact derivatives of each other. */
struct FlightState {
  Quat attitude;          // camera to NED, unit norm
  Vec3 rate_rad_s;        // angular rate of the camera in the camera frame
  Vec3 position_m;        // NED, from home
  Vec3 velocity_m_s;      // NED
  Vec3 acceleration_m_s2; // NED, gravity not included
};

class Flight
{
public:
  virtual ~Flight () = default;
  /** The motion at a time since the start of the flight, in seconds, any finite value. */
  virtual FlightState at (double time_s) const = 0;
  /** The time at which a recorded flight ends; named flights go on for ever. */
  virtual std::optional<double> duration_s () const { return std::nullopt; }
};

struct FlightDescription {
  const char *name;
  const char *summary;
};

/** The named flights, in the order in which they are listed. */
const std::vector<FlightDescription> &named_flights ();

/** A named flight; null when the name is unknown. The seed fixes wind and vibration. */
std::unique_ptr<Flight> make_named_flight (const std::string &name, uint64_t seed);

/**
 * A recorded flight from CSV text: time, position and attitude, one sample a line, flown on cubic
 * splines through all of them; before the first and after the last sample the drone stands still.
 *
 * With a header line the columns are found by name, in any order, others are ignored: time_s,
 * north_m, east_m, down_m, qx, qy, qz, qw. Without, these eight stand in this order. Empty lines
 * and lines that begin with '#' are skipped. Times grow; the first is the start of the flight.
 * Quaternions are normalised; neighbours must be less than 90 degrees apart.
 *
 * Null when the text is not such a log; error then says "NAME:LINE: reason".
 */
std::unique_ptr<Flight> parse_flight_log (const std::string &text, const std::string &name,
                                          std::string *error);

/** As parse_flight_log, from a file. */
std::unique_ptr<Flight> load_flight_log (const std::string &path, std::string *error);

} // namespace sim

#endif
