/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * Single-precision quaternions: algebra, interpolation, Euler and axis-angle conversions.
 *
 * Order in memory x, y, z, w, the scalar last; the identity is (0, 0, 0, 1). A rotation has unit
 * norm and takes body coordinates to world coordinates; a ⊗ b turns by b in the frame that a leads
 * to. Formulae are those of W. R. Hamilton's algebra as in J. Diebel, "Representing Attitude: Euler
 * Angles, Unit Quaternions, and Rotation Vectors" (2006), and K. Shoemake, "Animating Rotation with
 * Quaternion Curves" (SIGGRAPH 1985).
 *
 * All functions are reentrant. Unless said otherwise they return 0, or -1 after logging "error,
 * null quat" under the tag "camangles_quat" when a pointer is null, with no output written. Numeric
 * trouble (zero norm, NaN, infinity) is not reported: it shows as NaN in the results.
 */
#ifndef CAMANGLES_QUATERNION_H
#define CAMANGLES_QUATERNION_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Attitude or rotation, scalar last, 16 bytes. */
typedef struct {
  float x;
  float y;
  float z;
  float w;
} quat_t;

/** q = (0, 0, 0, 1). Null: -1 without a log line. */
int32_t quatIdentity (quat_t *q);

/** x² + y² + z² + w², summed in this order. Null: -1.0 with the log line. */
float quatNorm2 (const quat_t *q);

/** out = the four-component dot product of a and b. */
int32_t quatDot (const quat_t *a, const quat_t *b, float *out);

/** Divides q by its norm. A zero quaternion becomes NaN. */
int32_t quatNormalize (quat_t *q);

/** Negates x, y, z: the inverse of a rotation. */
int32_t quatConjugate (quat_t *q);

/** out = a ⊗ b, the Hamilton product; out may be a or b. */
int32_t quatMul (quat_t *out, const quat_t *a, const quat_t *b);

/** 1 when all four components equal 0, else 0. */
int32_t quatIsZero (const quat_t *q);

/** 1 when no component is NaN or infinite, else 0. */
int32_t quatIsFinite (const quat_t *q);

/** 1 when q is finite and its squared norm is within tolerance of 1, else 0. */
int32_t quatIsRotation (const quat_t *q, float tolerance);

/**
 * Roll about x, pitch about y, yaw about z in radians: the intrinsic Z-Y-X angles of q. An all-zero
 * quaternion gives three NaN. The sine of the pitch is not clamped: a quaternion longer than 1 may
 * give a NaN pitch. Any null pointer: -1 without a log line.
 */
int32_t quat2euler (const quat_t *q, float *roll, float *pitch, float *yaw);

/** The normalised quaternion of intrinsic Z-Y-X angles in radians. */
int32_t quatFromEuler (quat_t *q, float roll, float pitch, float yaw);

/**
 * The rotation by angle radians about an axis of any length. An axis whose squared length is below
 * 1.1920929e-7 gives the identity.
 */
int32_t quatFromAngleVector (quat_t *q, float angle, float axis_x, float axis_y, float axis_z);

/**
 * Angle in [0, 2π] radians and unit axis of q. Each output may be null. When the sine of the half
 * angle is below 1.1920929e-7 in magnitude the axis is (0, 0, 0).
 */
int32_t quatAngleVector (const quat_t *q, float *angle, float *axis_x, float *axis_y,
                         float *axis_z);

/**
 * Linear interpolation along the shorter arc, t = 0 at a, t = 1 at b; not normalised. When the dot
 * product of a and b is not positive the sign of a is flipped. out may be a or b.
 */
int32_t quatNlerp (quat_t *out, const quat_t *a, const quat_t *b, float t);

/** Spherical interpolation along the shorter arc; t outside [0, 1] extrapolates. out may be a or b.
 */
int32_t quatSlerp (quat_t *out, const quat_t *a, const quat_t *b, float t);

/**
 * Interpolates an array of length quaternions at the fractional index t; below 0 and above length -
 * 1 it extrapolates from the first or last two. A NaN index gives a NaN quaternion. Own log lines:
 * "error, q_array is null", "error, q_array_length (%u) <2".
 */
int32_t quatArraySlerp (quat_t *out, const quat_t *q_array, uint32_t q_array_length, float t);

#ifdef __cplusplus
}
#endif

#endif
