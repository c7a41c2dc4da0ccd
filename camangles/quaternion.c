/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
#include <camangles/quaternion.h>

#include <float.h>
#include <math.h>
#include <stddef.h>

#include <vorn/log.h>

#include "quaternion_inline.h"

VORN_LOG_TAG ("camangles_quat");

#define PI 3.14159265358979323846

static int32_t refuse_null (void)
{
  VORN_LOG_ERROR ("error, null quat");
  return -1;
}

static float norm2 (const quat_t *q)
{
  return quat_dot (vec4_load (q), vec4_load (q));
}

int32_t quatIdentity (quat_t *q)
{
  if (!q)
    return -1;
  *q = (quat_t){0.0f, 0.0f, 0.0f, 1.0f};
  return 0;
}

float quatNorm2 (const quat_t *q)
{
  if (!q) {
    refuse_null ();
    return -1.0f;
  }
  return norm2 (q);
}

int32_t quatDot (const quat_t *a, const quat_t *b, float *out)
{
  if (!a || !b || !out)
    return refuse_null ();
  *out = quat_dot (vec4_load (a), vec4_load (b));
  return 0;
}

int32_t quatNormalize (quat_t *q)
{
  if (!q)
    return refuse_null ();
  vec4_store (q, quat_normalized (vec4_load (q)));
  return 0;
}

int32_t quatConjugate (quat_t *q)
{
  if (!q)
    return refuse_null ();
  vec4_store (q, quat_conjugated (vec4_load (q)));
  return 0;
}

int32_t quatMul (quat_t *out, const quat_t *a, const quat_t *b)
{
  if (!out || !a || !b)
    return refuse_null ();
  vec4_store (out, quat_product (vec4_load (a), vec4_load (b)));
  return 0;
}

int32_t quatIsZero (const quat_t *q)
{
  return q ? quat_is_zero (vec4_load (q)) : refuse_null ();
}

int32_t quatIsFinite (const quat_t *q)
{
  if (!q)
    return refuse_null ();
  return fabsf (q->x) <= FLT_MAX && fabsf (q->y) <= FLT_MAX && fabsf (q->z) <= FLT_MAX &&
         fabsf (q->w) <= FLT_MAX;
}

int32_t quatIsRotation (const quat_t *q, float tolerance)
{
  const int32_t finite = quatIsFinite (q);
  if (finite != 1)
    return finite;
  return !(fabsf (norm2 (q) - 1.0f) > tolerance);
}

int32_t quat2euler (const quat_t *q, float *roll, float *pitch, float *yaw)
{
  if (!q || !roll || !pitch || !yaw)
    return -1;
  if (quat_is_zero (vec4_load (q))) {
    *roll = *pitch = *yaw = NAN;
    return 0;
  }
  const double x = q->x;
  const double y = q->y;
  const double z = q->z;
  const double w = q->w;
  *roll = atan2f ((float)(2 * y * z + 2 * w * x), (float)(1 - 2 * x * x - 2 * y * y));
  /* Not clamped: a quaternion that is no rotation shows as NaN here. */
  *pitch = asinf (2.0f * (q->w * q->y - q->x * q->z));
  *yaw = atan2f ((float)(2 * x * y + 2 * w * z), (float)(1 - 2 * y * y - 2 * z * z));
  return 0;
}

int32_t quatFromEuler (quat_t *q, float roll, float pitch, float yaw)
{
  if (!q)
    return refuse_null ();
  const float cr = cosf (roll / 2), sr = sinf (roll / 2);
  const float cp = cosf (pitch / 2), sp = sinf (pitch / 2);
  const float ch = cosf (yaw / 2), sh = sinf (yaw / 2);
  q->w = cr * cp * ch + sr * sp * sh;
  q->x = sr * cp * ch - cr * sp * sh;
  q->y = cr * sp * ch + sr * cp * sh;
  q->z = cr * cp * sh - sr * sp * ch;
  return quatNormalize (q);
}

int32_t quatFromAngleVector (quat_t *q, float angle, float axis_x, float axis_y, float axis_z)
{
  if (!q)
    return refuse_null ();
  const float norm2 = axis_x * axis_x + axis_y * axis_y + axis_z * axis_z;
  /* On purpose the squared length meets the epsilon: axes shorter than 3.5e-4 count as none. */
  if (norm2 < FLT_EPSILON)
    return quatIdentity (q);
  const float norm = sqrtf (norm2);
  const float s = sinf (angle / 2);
  *q = (quat_t){axis_x * s / norm, axis_y * s / norm, axis_z * s / norm, cosf (angle / 2)};
  return 0;
}

int32_t quatAngleVector (const quat_t *q, float *angle, float *axis_x, float *axis_y, float *axis_z)
{
  if (!q)
    return refuse_null ();
  const quat_t in = *q;
  const float norm2 = in.x * in.x + in.y * in.y + in.z * in.z;
  const double half = atan2 (sqrt ((double)norm2), (double)in.w);
  const float s = sinf ((float)half);
  const int has_axis = fabsf (s) >= FLT_EPSILON;
  if (axis_x)
    *axis_x = has_axis ? in.x / s : 0.0f;
  if (axis_y)
    *axis_y = has_axis ? in.y / s : 0.0f;
  if (axis_z)
    *axis_z = has_axis ? in.z / s : 0.0f;
  if (angle)
    *angle = (float)(2 * half);
  return 0;
}

int32_t quatNlerp (quat_t *out, const quat_t *a, const quat_t *b, float t)
{
  if (!out || !a || !b)
    return refuse_null ();
  vec4_store (out, quat_nlerp (vec4_load (a), vec4_load (b), t));
  return 0;
}

int32_t quatSlerp (quat_t *out, const quat_t *a, const quat_t *b, float t)
{
  if (!out || !a || !b)
    return refuse_null ();
  quat_t turn;
  vec4_store (&turn, quat_product (quat_conjugated (vec4_load (a)), vec4_load (b)));
  float angle;
  quat_t step;
  quatAngleVector (&turn, &angle, &step.x, &step.y, &step.z);
  double theta = angle;
  if (theta < -PI)
    theta += 2 * PI;
  else if (theta > PI)
    theta -= 2 * PI;
  const float phi = (float)(theta * 0.5 * (double)t);
  const float s = sinf (phi);
  step = (quat_t){step.x * s, step.y * s, step.z * s, cosf (phi)};
  return quatMul (out, a, &step);
}

int32_t quatArraySlerp (quat_t *out, const quat_t *q_array, uint32_t q_array_length, float t)
{
  if (!q_array) {
    VORN_LOG_ERROR ("error, q_array is null");
    return -1;
  }
  if (q_array_length < 2) {
    VORN_LOG_ERROR ("error, q_array_length (%u) <2", q_array_length);
    return -1;
  }
  if (!out)
    return refuse_null ();
  /* In double precision every length is exact, so that the index stays inside for any float t. */
  const double position = t;
  const double last = q_array_length - 1;
  if (isnan (position)) {
    *out = (quat_t){NAN, NAN, NAN, NAN};
    return 0;
  }
  if (position < 0)
    return quatSlerp (out, &q_array[0], &q_array[1], t);
  if (position > last)
    return quatSlerp (out, &q_array[q_array_length - 2], &q_array[q_array_length - 1],
                      (float)(position - (last - 1)));
  const uint32_t index = (uint32_t)position;
  if (index == q_array_length - 1) {
    *out = q_array[index];
    return 0;
  }
  return quatSlerp (out, &q_array[index], &q_array[index + 1], (float)(position - index));
}
