// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "camera_imu_private.hpp"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <iterator>

#include "clock_time.hpp"
#include <vorn/log.h>
#include <vorn/raii.hpp>

VORN_LOG_TAG ("camera_imu");

namespace
{

constexpr gfloat sample_rate_hz = 1000.0f;
constexpr guint32 reference_interval = 5; // samples
constexpr gint64 failed_refill_wait_us = 20 * G_TIME_SPAN_MILLISECOND;
constexpr gint64 first_reconnect_wait_us = 100 * G_TIME_SPAN_MILLISECOND;
constexpr gint64 longest_reconnect_wait_us = G_TIME_SPAN_SECOND;
constexpr int failures_before_reconnect = 20;

/** Waits, or less when the reader is stopped. */
void wait_or_stop (CameraImu *reader, gint64 duration_us)
{
  const gint64 end = g_get_monotonic_time () + duration_us;
  vorn::Lock lock (&reader->lock);
  while (!reader->stop && lock.wait_until (&reader->wake, end)) {
  }
}

/** Decodes a block into the fifo; returns how many samples there were. */
guint decode_block (CameraImu *reader)
{
  const GyroSensor *sensor = reader->sensor;
  iio_buffer *buffer = sensor->buffer;
  const ptrdiff_t step = iio_buffer_step (buffer);
  const char *end = static_cast<const char *> (iio_buffer_end (buffer));
  const char *ts_item = static_cast<const char *> (iio_buffer_first (buffer, sensor->ts_channel));
  const char *gyro_item[3];
  for (int axis = 0; axis < 3; axis++)
    gyro_item[axis] =
        static_cast<const char *> (iio_buffer_first (buffer, sensor->gyro_channel[axis]));

  guint count = 0;
  guint i = 0;
  for (ptrdiff_t at = 0; step > 0 && end - (ts_item + at) > 0; at += step) {
    ImuSample &sample = reader->fifo[i];
    gint64 timestamp = 0;
    iio_channel_convert (sensor->ts_channel, &timestamp, ts_item + at);
    sample.timestamp = static_cast<guint64> (timestamp);
    gfloat rate[3];
    for (int axis = 0; axis < 3; axis++) {
      gint16 digits = 0;
      iio_channel_convert (sensor->gyro_channel[axis], &digits, gyro_item[axis] + at);
      rate[axis] = static_cast<gfloat> (digits * sensor->scale);
    }
    for (int row = 0; row < 3; row++) {
      const gint8 *m = sensor->mount_matrix[row];
      sample.v[row] = m[0] * rate[0] + m[1] * rate[1] + m[2] * rate[2];
    }
    // What comes past the fifth sample overwrites it.
    i = std::min (i + 1, imu_block_size - 1);
    count++;
  }
  if (count > 0) {
    const ImuSample &last = reader->fifo[i - 1];
    VORN_LOG_DEBUG ("fifo.timestamp=%lu", last.timestamp);
    for (int axis = 0; axis < 3; axis++)
      VORN_LOG_DEBUG ("fifo[%d].v[%d]=%f", static_cast<int> (i) - 1, axis,
                      static_cast<double> (last.v[axis]));
  }
  return count;
}

/** Fetches the reference into ref_attitude. */
bool update_reference (CameraImu *reader)
{
  gfloat quaternion[4];
  if (!camera_imu_get_last_reference_attitude (&reader->reference, quaternion))
    return false;
  reader->ref_attitude = {quaternion[0], quaternion[1], quaternion[2], quaternion[3]};
  return true;
}

/** Feeds the whole fifo, whatever the last block brought. */
void feed_fifo (CameraImu *reader)
{
  for (gint32 k = 0; k < reader->fifo_size; k++) {
    if (!reader->have_ref) {
      if (!update_reference (reader))
        return;
      reader->have_ref = TRUE;
    }
    if (reader->sample_counter++ % reference_interval == 0 && !update_reference (reader))
      return;
    const ImuSample &sample = reader->fifo[k];
    if (cameraAngles_Feed (reader->angles, &reader->ref_attitude, sample.timestamp, sample.v[0],
                           sample.v[1], sample.v[2],
                           static_cast<gfloat> (reader->exposure_time)) < 0) {
      VORN_LOG_ERROR ("failed to feed sample to camAngles");
      return;
    }
  }
}

bool write_attitude (CameraImu *reader, const quat_t *attitude, gint64 timestamp)
{
  if (timestamp < 1)
    timestamp = reader->last_timestamp + 1;
  reader->last_timestamp = timestamp;
  const timespec time = timespec_of (static_cast<guint64> (timestamp));
  const int result = vorn_blackboard_write (reader->shd_section, attitude, &time);
  if (result >= 0)
    return true;
  VORN_LOG_ERROR ("failed to write accurate attitude '%lu' to shdata (%s)",
                  static_cast<unsigned long> (timestamp), g_strerror (-result));
  VORN_LOG_ERROR ("failed to push quaternions");
  return false;
}

/** Puts every attitude that is ready on the blackboard. */
void drain_attitudes (CameraImu *reader)
{
  for (;;) {
    gint32 count = static_cast<gint32> (std::size (reader->quat_buf));
    if (cameraAngles_GetAnglesBuffer (reader->angles, reader->quat_buf,
                                      reinterpret_cast<uint64_t *> (reader->ts_buf), &count) < 0)
      return;
    for (gint32 j = 0; j < count; j++)
      if (!write_attitude (reader, &reader->quat_buf[j], reader->ts_buf[j]))
        return;
  }
}

/** Makes a lost connection anew, waiting longer after each failure. */
void reconnect (CameraImu *reader)
{
  camera_imu_iio_destroy (reader);
  gint64 wait_us = first_reconnect_wait_us;
  while (!reader->stop) {
    if (camera_imu_iio_create (reader) && reader->sensor) {
      VORN_LOG_INFO ("connection to the camera IMU restored");
      return;
    }
    camera_imu_iio_destroy (reader);
    wait_or_stop (reader, wait_us);
    wait_us = std::min (wait_us * 2, longest_reconnect_wait_us);
  }
}

bool is_connection_lost (ssize_t error)
{
  switch (-error) {
  case EPIPE:
  case ECONNRESET:
  case ENOTCONN:
  case ENODEV:
  case EBADF:
  case ETIMEDOUT:
    return true;
  default:
    return false;
  }
}

/** After a refill that failed: the log lines, then a wait or a new connection, so that nothing
 * spins. */
void recover (CameraImu *reader, ssize_t error, int failures)
{
  VORN_LOG_ERROR ("refill error: %d", static_cast<int> (error));
  VORN_LOG_ERROR ("failed to read IMU sensor");
  if (is_connection_lost (error) || failures >= failures_before_reconnect)
    reconnect (reader);
  else
    wait_or_stop (reader, failed_refill_wait_us);
}

bool create_angles (CameraImu *reader)
{
  reader->angles = cameraAngles_New (0, sample_rate_hz);
  if (!reader->angles) {
    VORN_LOG_ERROR ("failed to create camAngles context");
    return false;
  }
  cameraAngles_setConvergence (reader->angles, 1.0f);
  cameraAngles_setExpFilterWindow (reader->angles, 10);
  cameraAngles_setGyroInitStage (reader->angles, 0);
  reader->exposure_time = 0.0;
  return true;
}

/** Releases whatever a reader has; it may be made in part. Its thread has ended. */
void release (CameraImu *reader)
{
  camera_imu_iio_destroy (reader);
  vorn_blackboard_writer_close (reader->shd_section);
  camera_imu_reference_clear (&reader->reference);
  cameraAngles_Close (reader->angles);
  g_cond_clear (&reader->wake);
  g_mutex_clear (&reader->lock);
  delete reader;
}

using OwnedReader = vorn::Owned<CameraImu, release>;

} // namespace

gpointer camera_imu_run (CameraImu *reader)
{
  int failures = 0;
  // Without a sensor there is nothing to read.
  while (!reader->stop && reader->sensor) {
    const ssize_t result = iio_buffer_refill (reader->sensor->buffer);
    if (result < 0) {
      // Cancelled by the freeing thread: no failure.
      if (!reader->stop)
        recover (reader, result, ++failures);
      continue;
    }
    failures = 0;
    if (decode_block (reader) != imu_block_size)
      VORN_LOG_WARNING ("failed to decode gyro samples : %m");
    feed_fifo (reader);
    drain_attitudes (reader);
  }
  return nullptr;
}

CameraImu *camera_imu_new (void)
{
  OwnedReader reader (new CameraImu ());
  g_mutex_init (&reader->lock);
  g_cond_init (&reader->wake);
  reader->shd_section =
      vorn_blackboard_create (accurate_attitude_section, &accurate_attitude_header);
  if (!reader->shd_section) {
    VORN_LOG_ERROR ("failed to create 'accurate_attitude' component in shdata");
    return nullptr;
  }
  if (!camera_imu_reference_init (&reader->reference) || !create_angles (reader.get ()) ||
      !camera_imu_iio_create (reader.get ()))
    return nullptr;
  reader->stop = 0;
  reader->thread = g_thread_new (
      "cameraimu", [] (gpointer data) { return camera_imu_run (static_cast<CameraImu *> (data)); },
      reader.get ());
  return reader.release ();
}

void camera_imu_free (CameraImu *reader)
{
  reader->stop = 1;
  {
    const vorn::Lock lock (&reader->lock);
    if (reader->sensor)
      iio_buffer_cancel (reader->sensor->buffer);
    g_cond_signal (&reader->wake);
  }
  g_thread_join (reader->thread);
  release (reader);
}
