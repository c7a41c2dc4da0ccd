// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What the tests of the camera-angles library share.
#ifndef TESTS_CAMANGLES_SUPPORT_HPP
#define TESTS_CAMANGLES_SUPPORT_HPP

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

#include <camangles/quaternion.h>
#include <camangles/ring_buffer.h>

#include "log_capture.hpp"

constexpr float nan_f = std::numeric_limits<float>::quiet_NaN ();
constexpr float inf_f = std::numeric_limits<float>::infinity ();
constexpr int log_error = VORN_LOG_PRIORITY_ERROR;

inline bool operator== (const ringBuffer_t &a, const ringBuffer_t &b)
{
  return a.size == b.size && a.rd == b.rd && a.wr == b.wr;
}

inline void PrintTo (const ringBuffer_t &ring, std::ostream *out)
{
  *out << "{" << ring.size << ", " << ring.rd << ", " << ring.wr << "}";
}

inline bool operator== (const quat_t &a, const quat_t &b)
{
  return a.x == b.x && a.y == b.y && a.z == b.z && a.w == b.w;
}

inline void PrintTo (const quat_t &q, std::ostream *out)
{
  *out << "(" << q.x << ", " << q.y << ", " << q.z << ", " << q.w << ")";
}

/** A quaternion in double precision, for references. */
struct QuatD {
  double x = 0, y = 0, z = 0, w = 1;

  QuatD () = default;
  QuatD (double x_, double y_, double z_, double w_) : x (x_), y (y_), z (z_), w (w_) {}
  explicit QuatD (const quat_t &q) : x (q.x), y (q.y), z (q.z), w (q.w) {}

  /** Turning by angle radians about an axis of unit length. */
  static QuatD about (double ax, double ay, double az, double angle)
  {
    const double s = std::sin (angle / 2);
    return {ax * s, ay * s, az * s, std::cos (angle / 2)};
  }
  /** Turning by the length of a rotation vector about its direction. */
  static QuatD of_vector (double vx, double vy, double vz)
  {
    const double angle = std::sqrt (vx * vx + vy * vy + vz * vz);
    if (angle == 0)
      return {};
    return about (vx / angle, vy / angle, vz / angle, angle);
  }
  QuatD conjugated () const { return {-x, -y, -z, w}; }
  QuatD operator* (const QuatD &b) const
  {
    return {w * b.x + x * b.w + y * b.z - z * b.y, w * b.y - x * b.z + y * b.w + z * b.x,
            w * b.z + x * b.y - y * b.x + z * b.w, w * b.w - x * b.x - y * b.y - z * b.z};
  }
  double norm () const { return std::sqrt (x * x + y * y + z * z + w * w); }
  QuatD normalized () const
  {
    const double n = norm ();
    return {x / n, y / n, z / n, w / n};
  }
  quat_t single () const
  {
    return {static_cast<float> (x), static_cast<float> (y), static_cast<float> (z),
            static_cast<float> (w)};
  }
  /** The rotation vector of the shorter way. */
  std::array<double, 3> vector () const
  {
    const double s = std::sqrt (x * x + y * y + z * z);
    if (s < 1e-15)
      return {0, 0, 0};
    const double scale = 2 * std::atan2 (s, std::fabs (w)) / s * (w < 0 ? -1 : 1);
    return {x * scale, y * scale, z * scale};
  }
};

/** Angle between two attitudes, radians; the sign of the quaternions does not count. */
inline double angle_between (const QuatD &a, const QuatD &b)
{
  const auto v = (a.normalized ().conjugated () * b.normalized ()).vector ();
  return std::sqrt (v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
}

#endif
