// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * Vectors and quaternions of the simulated drone, over any scalar with the usual operators.
 *
 * Frames: NED is north, east, down, fixed to the home position. The camera frame is forward, right,
 * down. A quaternion is stored x, y, z, w (scalar last); an attitude turns camera coordinates into
 * NED ones: v_ned = rotate (attitude, v_camera).
 */
#ifndef SIMULATOR_GEOMETRY_HPP
#define SIMULATOR_GEOMETRY_HPP

#include <cmath>
#include <numbers>

namespace sim
{

constexpr double degree = std::numbers::pi / 180;

template <typename T>
struct Vector3 {
  T x{}, y{}, z{};

  Vector3 operator+ (const Vector3 &o) const { return {x + o.x, y + o.y, z + o.z}; }
  Vector3 operator- (const Vector3 &o) const { return {x - o.x, y - o.y, z - o.z}; }
  Vector3 operator- () const { return {-x, -y, -z}; }
  template <typename S>
  Vector3 operator* (const S &s) const
  {
    return {x * s, y * s, z * s};
  }
};

using Vec3 = Vector3<double>;

template <typename T>
T dot (const Vector3<T> &a, const Vector3<T> &b)
{
  return a.x * b.x + a.y * b.y + a.z * b.z;
}

template <typename T>
Vector3<T> cross (const Vector3<T> &a, const Vector3<T> &b)
{
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

inline double length (const Vec3 &v)
{
  return std::sqrt (dot (v, v));
}

template <typename T>
struct Quaternion {
  T x{}, y{}, z{}, w{};
};

using Quat = Quaternion<double>;

/** Hamilton product: the rotation b, then a. */
template <typename T>
Quaternion<T> operator* (const Quaternion<T> &a, const Quaternion<T> &b)
{
  return {
      a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y, a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x,
      a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w, a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z};
}

template <typename T>
Quaternion<T> conjugate (const Quaternion<T> &q)
{
  return {-q.x, -q.y, -q.z, q.w};
}

template <typename T>
T dot (const Quaternion<T> &a, const Quaternion<T> &b)
{
  return a.x * b.x + a.y * b.y + a.z * b.z + a.w * b.w;
}

inline Vec3 rotate (const Quat &q, const Vec3 &v)
{
  const Quat r = q * Quat{v.x, v.y, v.z, 0} * conjugate (q);
  return {r.x, r.y, r.z};
}

/** The angle between two attitudes, 0 to pi. */
inline double angle_between (const Quat &a, const Quat &b)
{
  const Quat e = conjugate (a) * b;
  return 2 * std::atan2 (length ({e.x, e.y, e.z}), std::abs (e.w));
}

struct Euler {
  double roll, pitch, yaw; // radians, applied yaw first (Z-Y-X)
};

inline Euler euler_of (const Quat &q)
{
  return {std::atan2 (2 * (q.w * q.x + q.y * q.z), 1 - 2 * (q.x * q.x + q.y * q.y)),
          std::asin (std::fmax (-1, std::fmin (1, 2 * (q.w * q.y - q.z * q.x)))),
          std::atan2 (2 * (q.w * q.z + q.x * q.y), 1 - 2 * (q.y * q.y + q.z * q.z))};
}

} // namespace sim

#endif
