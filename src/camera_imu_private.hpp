// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The camera IMU reader's parts: the reader itself (camera_imu.cpp), its device
// (camera_imu_device.cpp) and the reference attitude (camera_imu_reference.cpp).
#ifndef CAMERA_IMU_PRIVATE_HPP
#define CAMERA_IMU_PRIVATE_HPP

#include <array>
#include <atomic>

#include <iio.h>

#include "accurate_attitude.hpp"
#include "camera_imu.hpp"
#include <camangles/camera_angles.h>
#include <vorn/telemetry.h>

/** Samples of one block, which is what one refill waits for. */
inline constexpr guint imu_block_size = 5;

/** The gyroscope, ready to be read. Channels and device belong to the context. */
struct GyroSensor {
  iio_device *device;
  iio_buffer *buffer;
  iio_channel *ts_channel;
  iio_channel *gyro_channel[3];
  gdouble scale; // rad/s per digit
  gint8 mount_matrix[3][3];
};

/** One gyro sample in the camera's frame. */
struct ImuSample {
  gfloat v[3];       // rad/s
  guint64 timestamp; // ns
};

/** The drone's estimated attitude, as the telemetry bus stores it here. */
struct ReferenceAttitude {
  VornTelemetryConsumer *consumer;
  gfloat quaternion[4]; // x, y, z, w
};

struct CameraImu {
  iio_context *context;
  iio_device *trigger;
  GyroSensor *sensor; // NULL when it could not be set up
  ImuSample fifo[imu_block_size];
  gint32 fifo_size;
  VornBlackboardWriter *shd_section;
  gint64 last_timestamp; // ns
  quat_t quat_buf[10];
  gint64 ts_buf[10];
  ReferenceAttitude reference;
  quat_t ref_attitude;
  gboolean have_ref;
  guint32 sample_counter;
  cameraAngles_t *angles;
  gdouble exposure_time; // seconds
  std::atomic<guint32> stop;
  GThread *thread;
  // Guards sensor against being replaced while the freeing thread cancels its refill; with wake,
  // cuts waits short. Nothing is called with it held but iio_buffer_cancel.
  GMutex lock;
  GCond wake;
};

/** Connects: makes context, trigger and sensor. FALSE (logged) without context or trigger. */
gboolean camera_imu_iio_create (CameraImu *reader);

/** Releases the libiio buffer, sensor record and context. */
void camera_imu_iio_destroy (CameraImu *reader);

/** Creates the consumer and registers the reference attitude. FALSE (logged) when the bus refuses.
 */
gboolean camera_imu_reference_init (ReferenceAttitude *reference);

/** Releases the consumer. */
void camera_imu_reference_clear (ReferenceAttitude *reference);

/** Thread body. */
gpointer camera_imu_run (CameraImu *reader);

#endif
