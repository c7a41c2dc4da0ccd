// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "camera_imu_private.hpp"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <iterator>

#include "telemetry_variable.hpp"
#include <vorn/log.h>

VORN_LOG_TAG ("camera_imu");

gboolean camera_imu_reference_init (ReferenceAttitude *reference)
{
  reference->consumer = vorn_telemetry_consumer_new ();
  if (!reference->consumer) {
    VORN_LOG_ERROR ("failed to create tlm consumer");
    return FALSE;
  }
  const VornTelemetryEntry entries[] = {
      telemetry_entry ("video.drone_est_ned_start_q_x", reference->quaternion[0]),
      telemetry_entry ("video.drone_est_ned_start_q_y", reference->quaternion[1]),
      telemetry_entry ("video.drone_est_ned_start_q_z", reference->quaternion[2]),
      telemetry_entry ("video.drone_est_ned_start_q_w", reference->quaternion[3]),
  };
  if (vorn_telemetry_consumer_register (reference->consumer, entries, std::size (entries)) < 0) {
    VORN_LOG_ERROR ("failed to register tlm entries");
    return FALSE;
  }
  if (vorn_telemetry_consumer_complete (reference->consumer) < 0) {
    VORN_LOG_ERROR ("failed to complete tlm registration");
    return FALSE;
  }
  return TRUE;
}

void camera_imu_reference_clear (ReferenceAttitude *reference)
{
  vorn_telemetry_consumer_destroy (reference->consumer);
  reference->consumer = nullptr;
}

gboolean camera_imu_get_last_reference_attitude (ReferenceAttitude *reference, gfloat *quaternion)
{
  const int result =
      vorn_telemetry_consumer_get (reference->consumer, nullptr, VORN_TELEMETRY_LATEST);
  if (result == -ENOENT)
    return FALSE;
  if (result < 0) {
    VORN_LOG_ERROR ("failed to get reference attitude (%s)", g_strerror (-result));
    return FALSE;
  }
  // The library would carry a number that is none in its state for good.
  if (!std::all_of (std::begin (reference->quaternion), std::end (reference->quaternion),
                    [] (gfloat component) { return std::isfinite (component); })) {
    VORN_LOG_ERROR ("failed to get reference attitude (not a finite quaternion)");
    return FALSE;
  }
  std::copy_n (reference->quaternion, 4, quaternion);
  return TRUE;
}
