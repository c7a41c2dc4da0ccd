// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * Rotations of the dewarping filter, in double precision.
 *
 * World: north, east, down. Camera body: x along the optical axis, y to the right of the picture, z
 * to its bottom. An attitude is the unit quaternion that turns body vectors into world vectors.
 * Formulae: J. Diebel, Representing Attitude, 2006 (sections 5 and 6).
 */
#ifndef TOVRINFILTER_ROTATION_HPP
#define TOVRINFILTER_ROTATION_HPP

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tovrin
{

struct Vector {
  double x, y, z;
};

inline Vector operator+ (Vector a, Vector b)
{
  return {a.x + b.x, a.y + b.y, a.z + b.z};
}

inline Vector operator- (Vector a, Vector b)
{
  return {a.x - b.x, a.y - b.y, a.z - b.z};
}

inline Vector operator* (double factor, Vector a)
{
  return {factor * a.x, factor * a.y, factor * a.z};
}

inline double dot (Vector a, Vector b)
{
  return a.x * b.x + a.y * b.y + a.z * b.z;
}

inline Vector cross (Vector a, Vector b)
{
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

/** The zero vector stays as it is. */
inline Vector normalized (Vector a)
{
  const double length = std::sqrt (dot (a, a));
  return length > 0 ? (1 / length) * a : a;
}

/** Scalar last, as everywhere in the system. */
struct Quaternion {
  double x, y, z, w;
};

inline constexpr Quaternion identity = {0, 0, 0, 1};

inline double dot (Quaternion a, Quaternion b)
{
  return a.x * b.x + a.y * b.y + a.z * b.z + a.w * b.w;
}

inline double norm (Quaternion q)
{
  return std::sqrt (dot (q, q));
}

inline Quaternion normalized (Quaternion q)
{
  const double factor = 1 / norm (q);
  return {factor * q.x, factor * q.y, factor * q.z, factor * q.w};
}

inline Quaternion conjugate (Quaternion q)
{
  return {-q.x, -q.y, -q.z, q.w};
}

/** Turns by b first, then by a. */
inline Quaternion operator* (Quaternion a, Quaternion b)
{
  return {
      a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y, a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x,
      a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w, a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z};
}

/** By angle_rad about a unit axis. */
inline Quaternion turn (Vector axis, double angle_rad)
{
  const double s = std::sin (angle_rad / 2);
  return {s * axis.x, s * axis.y, s * axis.z, std::cos (angle_rad / 2)};
}

/** On the shorter arc between unit quaternions; fractions outside 0 to 1 go on along it. */
inline Quaternion slerp (Quaternion a, Quaternion b, double fraction)
{
  double cosine = dot (a, b);
  if (cosine < 0) {
    b = {-b.x, -b.y, -b.z, -b.w};
    cosine = -cosine;
  }
  double weight_a = 1 - fraction;
  double weight_b = fraction;
  if (cosine < 1 - 1e-9) {
    const double angle = std::acos (cosine);
    weight_a = std::sin ((1 - fraction) * angle) / std::sin (angle);
    weight_b = std::sin (fraction * angle) / std::sin (angle);
  }
  return normalized (Quaternion{weight_a * a.x + weight_b * b.x, weight_a * a.y + weight_b * b.y,
                                weight_a * a.z + weight_b * b.z, weight_a * a.w + weight_b * b.w});
}

struct Matrix {
  Vector rows[3];
};

inline Vector operator* (const Matrix &m, Vector v)
{
  return {dot (m.rows[0], v), dot (m.rows[1], v), dot (m.rows[2], v)};
}

inline Matrix matrix (Quaternion q)
{
  return {
      {{1 - 2 * (q.y * q.y + q.z * q.z), 2 * (q.x * q.y - q.z * q.w), 2 * (q.x * q.z + q.y * q.w)},
       {2 * (q.x * q.y + q.z * q.w), 1 - 2 * (q.x * q.x + q.z * q.z), 2 * (q.y * q.z - q.x * q.w)},
       {2 * (q.x * q.z - q.y * q.w), 2 * (q.y * q.z + q.x * q.w),
        1 - 2 * (q.x * q.x + q.y * q.y)}}};
}

/** The attitude whose body axes are these three orthogonal unit vectors (right-handed). */
inline Quaternion from_axes (Vector forward, Vector right, Vector down)
{
  // The largest of the four squared components first: the divisions stay well conditioned.
  const double w = 1 + forward.x + right.y + down.z;
  const double x = 1 + forward.x - right.y - down.z;
  const double y = 1 - forward.x + right.y - down.z;
  const double z = 1 - forward.x - right.y + down.z;
  const double greatest = std::max ({w, x, y, z});
  if (greatest == w)
    return normalized (Quaternion{right.z - down.y, down.x - forward.z, forward.y - right.x, w});
  if (greatest == x)
    return normalized (Quaternion{x, forward.y + right.x, down.x + forward.z, right.z - down.y});
  if (greatest == y)
    return normalized (Quaternion{forward.y + right.x, y, right.z + down.y, down.x - forward.z});
  return normalized (Quaternion{down.x + forward.z, right.z + down.y, z, forward.y - right.x});
}

inline Vector rotate (Quaternion q, Vector v)
{
  return matrix (q) * v;
}

/** 0 at and below low, 1 at and above high, with a continuous slope between. */
inline double smooth_step (double low, double high, double x)
{
  const double t = std::clamp ((x - low) / (high - low), 0.0, 1.0);
  return t * t * (3 - 2 * t);
}

} // namespace tovrin

#endif
