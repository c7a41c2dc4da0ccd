// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "trel_metadata.hpp"

#include <iterator>

#include "clock_time.hpp"
#include "telemetry_variable.hpp"
#include <vorn/log.h>

VORN_LOG_TAG ("trel_metadata");

namespace
{

constexpr char section[] = "photo_metadata";
constexpr char consumed_section[] = "camera_controller";
constexpr guint32 capacity = 7;
constexpr guint32 period_us = 1428571;

struct Record {
  VornTelemetryConsumer *consumer;
  VornTelemetryProducer *producer;
  gint32 exposure_time_num;
  gint32 exposure_time_den;
  gint16 exposure_program;
  gint32 photographic_sensitivity;
  gdouble exposure_bias_value;
  gint16 metering_mode; // never written
  gint16 light_source;
  gint32 pixel_x_dimension;
  gint32 pixel_y_dimension;
  gint16 exposure_mode;
  gint16 white_balance;
  gfloat digital_zoom_ratio;
  gfloat focal_length_in_35mm_film;
  gint16 contrast;
  gint16 saturation;
  gint16 sharpness;
  gfloat hfov_deg;
  gfloat view_ned_start_q_w;
  gfloat view_ned_start_q_x;
  gfloat view_ned_start_q_y;
  gfloat view_ned_start_q_z;
};

Record record;

void drop_consumer ()
{
  vorn_telemetry_consumer_destroy (record.consumer);
  record.consumer = nullptr;
}

void make_consumer ()
{
  record.consumer = vorn_telemetry_consumer_new ();
  if (!record.consumer) {
    VORN_LOG_ERROR ("failed to create tlm_camera_controller_cons consumer");
    return;
  }
  const VornTelemetryEntry entries[] = {
      telemetry_entry ("camera_controller.video_ref_ned_start_q_w", record.view_ned_start_q_w),
      telemetry_entry ("camera_controller.video_ref_ned_start_q_x", record.view_ned_start_q_x),
      telemetry_entry ("camera_controller.video_ref_ned_start_q_y", record.view_ned_start_q_y),
      telemetry_entry ("camera_controller.video_ref_ned_start_q_z", record.view_ned_start_q_z),
      telemetry_entry ("camera_controller.hfov", record.hfov_deg),
  };
  const int result =
      vorn_telemetry_consumer_register (record.consumer, entries, std::size (entries));
  if (result < 0) {
    VORN_LOG_ERROR ("failed to register telemetry data: %s", g_strerror (-result));
    return drop_consumer ();
  }
  if (vorn_telemetry_consumer_complete (record.consumer) < 0) {
    VORN_LOG_ERROR ("failed to register %s", consumed_section);
    drop_consumer ();
  }
}

void make_producer ()
{
  VornTelemetryProducer *producer = vorn_telemetry_producer_new (section, capacity, period_us);
  if (!producer) {
    VORN_LOG_ERROR ("failed to create tlm photo producer");
    return;
  }
  int result = 0;
#define REGISTER(variable) result |= telemetry_register (producer, #variable, record.variable)
  REGISTER (exposure_time_num);
  REGISTER (exposure_time_den);
  REGISTER (exposure_program);
  REGISTER (photographic_sensitivity);
  REGISTER (exposure_bias_value);
  REGISTER (metering_mode);
  REGISTER (light_source);
  REGISTER (pixel_x_dimension);
  REGISTER (pixel_y_dimension);
  REGISTER (exposure_mode);
  REGISTER (white_balance);
  REGISTER (digital_zoom_ratio);
  REGISTER (focal_length_in_35mm_film);
  REGISTER (contrast);
  REGISTER (saturation);
  REGISTER (sharpness);
  REGISTER (hfov_deg);
  REGISTER (view_ned_start_q_w);
  REGISTER (view_ned_start_q_x);
  REGISTER (view_ned_start_q_y);
  REGISTER (view_ned_start_q_z);
#undef REGISTER
  result |= vorn_telemetry_producer_complete (producer);
  if (result < 0) {
    VORN_LOG_ERROR ("failed to register %s", section);
    vorn_telemetry_producer_destroy (producer);
    return;
  }
  record.producer = producer;
}

void clear_exposure ()
{
  record.exposure_time_num = 0;
  record.exposure_time_den = 0;
  record.exposure_program = 0;
  record.photographic_sensitivity = 0;
  record.exposure_bias_value = 0.0;
  record.light_source = 0;
  record.pixel_x_dimension = 0;
  record.pixel_y_dimension = 0;
  record.exposure_mode = 0;
  record.white_balance = 0;
  record.digital_zoom_ratio = 0.0f;
  record.focal_length_in_35mm_film = 0.0f;
  record.contrast = 0;
  record.saturation = 0;
  record.sharpness = 0;
}

} // namespace

void trel_metadata_initialize (void)
{
  trel_metadata_free ();
  make_consumer ();
  make_producer ();
}

gboolean trel_metadata_photo_update (guint64 capture_time_ns)
{
  if (!record.consumer) {
    VORN_LOG_ERROR ("no camera controller consumer");
    return FALSE;
  }
  if (!record.producer) {
    VORN_LOG_ERROR ("no tlm photo producer");
    return FALSE;
  }
  const timespec time = timespec_of (capture_time_ns);
  int result = vorn_telemetry_consumer_get (record.consumer, &time, VORN_TELEMETRY_VALID_AT);
  if (result < 0) {
    VORN_LOG_ERROR ("failed to get tlm sample: %s (%d)", g_strerror (-result), result);
    return FALSE;
  }
  clear_exposure ();
  result = vorn_telemetry_producer_put (record.producer, &time);
  if (result < 0) {
    VORN_LOG_ERROR ("failed to produce tlm photo sample: %s (%d)", g_strerror (-result), result);
    return FALSE;
  }
  return TRUE;
}

void trel_metadata_free (void)
{
  vorn_telemetry_producer_destroy (record.producer);
  vorn_telemetry_consumer_destroy (record.consumer);
  record = {};
}
