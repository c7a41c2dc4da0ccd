// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The gyroscope's side of the reader: finding, checking and opening the IIO device.
#include "camera_imu_private.hpp"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <utility>

#include <vorn/log.h>
#include <vorn/raii.hpp>

VORN_LOG_TAG ("camera_imu");

namespace
{

constexpr char trigger_name[] = "imu_cam_trig";
constexpr char device_name[] = "iio-cam_imu";

struct ChannelFormat {
  const char *name;
  guint slot; // in gyro_channel
  bool is_signed;
  guint bits;
};

constexpr ChannelFormat gyro_channels[] = {
    {"anglvel_x", 0, true, 16}, {"anglvel_y", 1, true, 16}, {"anglvel_z", 2, true, 16}};
constexpr bool timestamp_is_signed = true;
constexpr unsigned long timestamp_bits = 64;

bool init_gyro_channels (GyroSensor *sensor)
{
  for (const ChannelFormat &row : gyro_channels) {
    iio_channel *channel = iio_device_find_channel (sensor->device, row.name, false);
    if (!channel) {
      VORN_LOG_ERROR ("failed to init gyro channel %s", row.name);
      return false;
    }
    const iio_data_format *format = iio_channel_get_data_format (channel);
    if (format->length != row.bits || format->is_signed != row.is_signed) {
      VORN_LOG_ERROR ("wrong definition channel for %s:", row.name);
      VORN_LOG_ERROR ("%d vs %d, %d vs %d", static_cast<int> (format->length),
                      static_cast<int> (row.bits), static_cast<int> (format->is_signed),
                      static_cast<int> (row.is_signed));
      return false;
    }
    iio_channel_enable (channel);
    sensor->gyro_channel[row.slot] = channel;
  }
  return true;
}

/** libiio reports through its result; %m reads errno. */
bool failed (ssize_t result)
{
  if (result >= 0)
    return false;
  errno = static_cast<int> (-result);
  return true;
}

bool read_attributes (GyroSensor *sensor)
{
  if (failed (iio_device_attr_read_double (sensor->device, "in_anglvel_scale", &sensor->scale))) {
    VORN_LOG_ERROR ("failed to fetch scale for gyro : %m");
    return false;
  }
  char text[1024];
  if (failed (iio_device_attr_read (sensor->device, "in_anglvel_matrix", text, sizeof text))) {
    VORN_LOG_ERROR ("failed to fetch acceleration matrix for gyro: %m");
    return false;
  }
  auto &m = sensor->mount_matrix;
  const int items =
      sscanf (text, "%hhd, %hhd, %hhd; %hhd, %hhd, %hhd; %hhd, %hhd, %hhd", &m[0][0], &m[0][1],
              &m[0][2], &m[1][0], &m[1][1], &m[1][2], &m[2][0], &m[2][1], &m[2][2]);
  if (items < 9) {
    VORN_LOG_ERROR ("failed to decode matrix for gyro, got %d items expected 0", items);
    return false;
  }
  return true;
}

bool check_timestamp_channel (const GyroSensor *sensor)
{
  const iio_data_format *format = iio_channel_get_data_format (sensor->ts_channel);
  if (format->length == timestamp_bits && format->is_signed == timestamp_is_signed)
    return true;
  VORN_LOG_ERROR ("wrong definition channel for timestamp:");
  VORN_LOG_ERROR ("%d vs %lu, %d vs %d", static_cast<int> (format->length), timestamp_bits,
                  static_cast<int> (format->is_signed), static_cast<int> (timestamp_is_signed));
  return false;
}

/** Cancelled first: a server that hangs would hold up the farewell of an open buffer for seconds.
 */
void destroy_buffer (iio_buffer *buffer)
{
  iio_buffer_cancel (buffer);
  iio_buffer_destroy (buffer);
}

void free_sensor (GyroSensor *sensor)
{
  if (sensor->buffer)
    destroy_buffer (sensor->buffer);
  g_free (sensor);
}

using OwnedSensor = vorn::Owned<GyroSensor, free_sensor>;

/** Finds, checks and opens the gyroscope; NULL (logged) when it is not as it should be. */
OwnedSensor create_sensor (iio_context *context, const iio_device *trigger)
{
  OwnedSensor sensor (g_try_new0 (GyroSensor, 1));
  if (!sensor) {
    VORN_LOG_ERROR ("calloc: %m");
    VORN_LOG_ERROR ("sensor init error");
    return nullptr;
  }
  sensor->device = iio_context_find_device (context, device_name);
  if (!sensor->device) {
    VORN_LOG_ERROR ("unable to find IMU %s", device_name);
    return nullptr;
  }
  sensor->ts_channel = iio_device_find_channel (sensor->device, "timestamp", false);
  if (!sensor->ts_channel) {
    VORN_LOG_ERROR ("failed to init imu timestamp channel");
    return nullptr;
  }
  iio_channel_enable (sensor->ts_channel);
  if (!init_gyro_channels (sensor.get ()) || !read_attributes (sensor.get ()) ||
      !check_timestamp_channel (sensor.get ()))
    return nullptr;
  sensor->buffer = iio_device_create_buffer (sensor->device, imu_block_size, false);
  if (!sensor->buffer) {
    VORN_LOG_ERROR ("failed to create IMU buffer : %m");
    return nullptr;
  }
  if (failed (iio_device_set_trigger (sensor->device, trigger))) {
    VORN_LOG_ERROR ("failed to set trigger for IMU : %m");
    return nullptr;
  }
  return sensor;
}

} // namespace

gboolean camera_imu_iio_create (CameraImu *reader)
{
  reader->context = iio_create_default_context ();
  if (!reader->context) {
    VORN_LOG_ERROR ("unable to create plugin simulator context");
    VORN_LOG_ERROR ("failed to create IIO camera");
    return FALSE;
  }
  VORN_LOG_DEBUG ("iio context creation OK");
  reader->trigger = iio_context_find_device (reader->context, trigger_name);
  if (!reader->trigger) {
    VORN_LOG_ERROR ("IIO trigger %s not found", trigger_name);
    camera_imu_iio_destroy (reader);
    VORN_LOG_ERROR ("failed to create IIO camera");
    return FALSE;
  }
  reader->fifo_size = imu_block_size;
  VORN_LOG_DEBUG ("IMU FIFO size set to %d", reader->fifo_size);
  OwnedSensor sensor = create_sensor (reader->context, reader->trigger);
  if (!sensor)
    VORN_LOG_ERROR ("Error iio imu init");
  const vorn::Lock lock (&reader->lock);
  reader->sensor = sensor.release ();
  return TRUE;
}

void camera_imu_iio_destroy (CameraImu *reader)
{
  OwnedSensor sensor;
  {
    const vorn::Lock lock (&reader->lock);
    sensor.reset (std::exchange (reader->sensor, nullptr));
  }
  sensor.reset ();
  reader->trigger = nullptr;
  if (reader->context)
    iio_context_destroy (std::exchange (reader->context, nullptr));
}
