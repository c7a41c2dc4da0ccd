// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "dewarper_eis.hpp"

#include <iterator>

#include "clock_time.hpp"
#include "telemetry_variable.hpp"
#include <vorn/log.h>

VORN_LOG_TAG ("dewarper_eis");

namespace
{

constexpr char section[] = "eis_video";
constexpr guint32 capacity = 120;
constexpr guint32 period_us = 8333;
constexpr gdouble degrees_per_radian = 57.29577951308232;

struct Record {
  VornTelemetryProducer *producer;
  VornTelemetryConsumer *consumer;
  // The consumer fills these, the producer publishes them.
  gfloat hfov;
  gfloat vfov;
  gfloat q_w;
  gfloat q_x;
  gfloat q_y;
  gfloat q_z;
};

Record record;

void drop_consumer ()
{
  vorn_telemetry_consumer_destroy (record.consumer);
  record.consumer = nullptr;
}

void dewarper_eis_tlm_cons_video_init ()
{
  record.consumer = vorn_telemetry_consumer_new ();
  if (!record.consumer) {
    VORN_LOG_ERROR ("failed to create tlm_cons_video consumer");
    return;
  }
  const VornTelemetryEntry entries[] = {
      telemetry_entry ("camera_controller.video_ref_ned_start_q_w", record.q_w),
      telemetry_entry ("camera_controller.video_ref_ned_start_q_x", record.q_x),
      telemetry_entry ("camera_controller.video_ref_ned_start_q_y", record.q_y),
      telemetry_entry ("camera_controller.video_ref_ned_start_q_z", record.q_z),
      telemetry_entry ("camera_zoom_controller.hfov", record.hfov),
      telemetry_entry ("camera_zoom_controller.vfov", record.vfov),
  };
  int result = vorn_telemetry_consumer_register (record.consumer, entries, std::size (entries));
  if (result < 0) {
    VORN_LOG_ERROR ("failed to register telemetry data: %s", g_strerror (-result));
    return drop_consumer ();
  }
  result = vorn_telemetry_consumer_complete (record.consumer);
  if (result < 0) {
    VORN_LOG_ERROR ("failed to complete the registration: %s", g_strerror (-result));
    drop_consumer ();
  }
}

void dewarper_eis_tlm_prod_init ()
{
  VornTelemetryProducer *producer = vorn_telemetry_producer_new (section, capacity, period_us);
  if (!producer) {
    VORN_LOG_ERROR ("failed to create tlm producer");
    return;
  }
  int result = telemetry_register (producer, "clipped_view_in_ned_start_q_w", record.q_w);
  result |= telemetry_register (producer, "clipped_view_in_ned_start_q_x", record.q_x);
  result |= telemetry_register (producer, "clipped_view_in_ned_start_q_y", record.q_y);
  result |= telemetry_register (producer, "clipped_view_in_ned_start_q_z", record.q_z);
  result |= telemetry_register (producer, "clipped_hfov", record.hfov);
  result |= telemetry_register (producer, "clipped_vfov", record.vfov);
  result |= vorn_telemetry_producer_complete (producer);
  if (result < 0) {
    VORN_LOG_ERROR ("failed to register %s", section);
    vorn_telemetry_producer_destroy (producer);
    return;
  }
  record.producer = producer;
}

} // namespace

gboolean dewarper_eis_initialize (void)
{
  dewarper_eis_free ();
  dewarper_eis_tlm_cons_video_init ();
  dewarper_eis_tlm_prod_init ();
  return TRUE;
}

gboolean dewarper_eis_push_tlm_video (guint64 timestamp_ns)
{
  const timespec time = timespec_of (timestamp_ns);
  int result = vorn_telemetry_consumer_get (record.consumer, &time, VORN_TELEMETRY_VALID_AT);
  if (result < 0) {
    VORN_LOG_ERROR ("failed to get tlm sample: %s (%d)", g_strerror (-result), result);
    return FALSE;
  }
  record.hfov = static_cast<gfloat> (record.hfov * degrees_per_radian);
  record.vfov = static_cast<gfloat> (record.vfov * degrees_per_radian);
  result = vorn_telemetry_producer_put (record.producer, &time);
  if (result < 0) {
    VORN_LOG_ERROR ("failed to put tlm sample: %s (%d)", g_strerror (-result), result);
    return FALSE;
  }
  return TRUE;
}

gboolean dewarper_eis_free (void)
{
  vorn_telemetry_producer_destroy (record.producer);
  vorn_telemetry_consumer_destroy (record.consumer);
  record = {};
  return TRUE;
}
