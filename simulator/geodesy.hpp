// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_GEODESY_HPP
#define SIMULATOR_GEODESY_HPP

#include <optional>
#include <string>

#include "geometry.hpp"

namespace sim
{

/** A place on the WGS 84 ellipsoid. */
struct GeoPosition {
  double latitude_deg;  // north is positive
  double longitude_deg; // east is positive, -180 to 180
  double altitude_m;    // above the ellipsoid
};

/** The place at an offset from home, in home's local NED frame. Exact at any distance. */
GeoPosition geo_position (const GeoPosition &home, const Vec3 &ned_m);

/** "LAT,LON,ALT" in degrees and metres; empty when the text is not that, or out of range. */
std::optional<GeoPosition> parse_geo_position (const std::string &text);

} // namespace sim

#endif
