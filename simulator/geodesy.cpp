// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "geodesy.hpp"

#include <charconv>
#include <string_view>

namespace sim
{

namespace
{

// WGS 84 (NIMA TR8350.2).
constexpr double semi_major_m = 6378137.0;
constexpr double flattening = 1 / 298.257223563;
constexpr double eccentricity2 = flattening * (2 - flattening);

double prime_vertical_m (double sin_latitude)
{
  return semi_major_m / std::sqrt (1 - eccentricity2 * sin_latitude * sin_latitude);
}

GeoPosition geodetic (const Vec3 &ecef_m)
{
  // Fixed point of the latitude; near the surface each round gains more than two digits.
  const double axis_distance_m = std::hypot (ecef_m.x, ecef_m.y);
  double latitude = std::atan2 (ecef_m.z, axis_distance_m * (1 - eccentricity2));
  for (int round = 0; round < 10; round++) {
    const double s = std::sin (latitude);
    latitude = std::atan2 (ecef_m.z + eccentricity2 * prime_vertical_m (s) * s, axis_distance_m);
  }
  const double s = std::sin (latitude);
  const double altitude_m = axis_distance_m * std::cos (latitude) + ecef_m.z * s -
                            semi_major_m * std::sqrt (1 - eccentricity2 * s * s);
  return {latitude / degree, std::atan2 (ecef_m.y, ecef_m.x) / degree, altitude_m};
}

} // namespace

GeoPosition geo_position (const GeoPosition &home, const Vec3 &ned_m)
{
  const double s_lat = std::sin (home.latitude_deg * degree);
  const double c_lat = std::cos (home.latitude_deg * degree);
  const double s_lon = std::sin (home.longitude_deg * degree);
  const double c_lon = std::cos (home.longitude_deg * degree);
  const double n = prime_vertical_m (s_lat);
  const Vec3 home_ecef = {(n + home.altitude_m) * c_lat * c_lon,
                          (n + home.altitude_m) * c_lat * s_lon,
                          (n * (1 - eccentricity2) + home.altitude_m) * s_lat};
  const Vec3 north = {-s_lat * c_lon, -s_lat * s_lon, c_lat};
  const Vec3 east = {-s_lon, c_lon, 0};
  const Vec3 down = {-c_lat * c_lon, -c_lat * s_lon, -s_lat};
  return geodetic (home_ecef + north * ned_m.x + east * ned_m.y + down * ned_m.z);
}

std::optional<GeoPosition> parse_geo_position (const std::string &text)
{
  double numbers[3];
  std::string_view rest = text;
  for (size_t i = 0; i < 3; i++) {
    const auto comma = rest.find (',');
    if ((comma == std::string_view::npos) != (i == 2))
      return std::nullopt;
    const auto field = rest.substr (0, comma);
    const char *const end = field.data () + field.size ();
    const auto [stop, code] = std::from_chars (field.data (), end, numbers[i]);
    if (code != std::errc () || stop != end)
      return std::nullopt;
    rest.remove_prefix (i == 2 ? rest.size () : comma + 1);
  }
  const auto &[latitude, longitude, altitude] = numbers;
  // Written so that NaN is refused too.
  if (!(std::abs (latitude) <= 90 && std::abs (longitude) <= 180 && altitude >= -500 &&
        altitude <= 10000))
    return std::nullopt;
  return GeoPosition{latitude, longitude, altitude};
}

} // namespace sim
