// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What the camera IMU reader does when a call below it fails: each test makes one call fail, by its
// name.
#include "camera_imu_support.hpp"

#include <atomic>
#include <cerrno>
#include <cstring>

#include <camangles/camera_angles.h>
#include <iio.h>

static std::atomic<const char *> failing_call;

static bool fails (const char *call)
{
  const char *failing = failing_call;
  return failing && strcmp (failing, call) == 0;
}

#define WRAP(result_type, failure, call, parameters, arguments)                                    \
  extern "C" result_type __real_##call parameters;                                                 \
  extern "C" result_type __wrap_##call parameters;                                                 \
  result_type __wrap_##call parameters                                                             \
  {                                                                                                \
    return fails (#call) ? (failure) : __real_##call arguments;                                    \
  }

WRAP (VornTelemetryConsumer *, nullptr, vorn_telemetry_consumer_new, (), ())
WRAP (int, -EINVAL, vorn_telemetry_consumer_register,
      (VornTelemetryConsumer * consumer, const VornTelemetryEntry *entries, size_t count),
      (consumer, entries, count))
WRAP (int, -EINVAL, vorn_telemetry_consumer_complete, (VornTelemetryConsumer * consumer),
      (consumer))
WRAP (cameraAngles_t *, nullptr, cameraAngles_New, (uint32_t log2_factor, float fs),
      (log2_factor, fs))
WRAP (int32_t, -1, cameraAngles_Feed,
      (cameraAngles_t * context, const quat_t *reference, uint64_t timestamp, float gx, float gy,
       float gz, float exposure),
      (context, reference, timestamp, gx, gy, gz, exposure))
WRAP (int, -EINVAL, vorn_blackboard_write,
      (VornBlackboardWriter * writer, const void *sample, const struct timespec *time),
      (writer, sample, time))
WRAP (gpointer, (errno = ENOMEM, nullptr), g_try_malloc0, (gsize size), (size))
WRAP (struct iio_buffer *, (errno = ENODEV, nullptr), iio_device_create_buffer,
      (const struct iio_device *device, size_t samples, bool cyclic), (device, samples, cyclic))
WRAP (int, -EBUSY, iio_device_set_trigger,
      (const struct iio_device *device, const struct iio_device *trigger), (device, trigger))

namespace
{

class CameraImuFailures : public CameraImuTest
{
protected:
  ~CameraImuFailures () override { failing_call = nullptr; }
};

} // namespace

TEST_F (CameraImuFailures, CreationFailsWithItsMessage)
{
  start_server (make_source ());
  const struct {
    const char *call;
    const char *message;
  } cases[] = {
      {"vorn_telemetry_consumer_new", "failed to create tlm consumer"},
      {"vorn_telemetry_consumer_register", "failed to register tlm entries"},
      {"vorn_telemetry_consumer_complete", "failed to complete tlm registration"},
      {"cameraAngles_New", "failed to create camAngles context"},
  };
  for (const auto &row : cases) {
    failing_call = row.call;
    EXPECT_EQ (camera_imu_new (), nullptr) << row.call;
    EXPECT_TRUE (log_.has (row.message, 3)) << row.message;
  }
  failing_call = nullptr;
  EXPECT_TRUE (ReaderOwner (camera_imu_new ())) << "nothing was left behind";
}

TEST_F (CameraImuFailures, SensorFailsWithItsMessages)
{
  start_server (make_source ());
  const struct {
    const char *call;
    std::vector<std::string> messages;
  } cases[] = {
      {"g_try_malloc0", {std::string ("calloc: ") + g_strerror (ENOMEM), "sensor init error"}},
      {"iio_device_create_buffer",
       {std::string ("failed to create IMU buffer : ") + g_strerror (ENODEV)}},
      {"iio_device_set_trigger",
       {std::string ("failed to set trigger for IMU : ") + g_strerror (EBUSY)}},
  };
  for (const auto &row : cases) {
    log_.clear ();
    failing_call = row.call;
    const ReaderOwner reader (camera_imu_new ());
    EXPECT_TRUE (reader) << row.call;
    for (const auto &message : row.messages)
      EXPECT_TRUE (log_.has (message, 3)) << message;
    EXPECT_TRUE (log_.has ("Error iio imu init", 3));
  }
}

TEST_F (CameraImuFailures, FeedThatFailsEndsThePass)
{
  start_server (make_source ());
  ReferencePublisher reference;
  reference.put ();
  failing_call = "cameraAngles_Feed";
  const ReaderOwner reader (camera_imu_new ());
  ASSERT_TRUE (reader);
  ASSERT_TRUE (await ([&] { return log_.count ("failed to feed sample to camAngles", 3) >= 3; }));
  AttitudeReader attitudes;
  EXPECT_EQ (attitudes.newest_ns (), 0u);
  failing_call = nullptr;
  EXPECT_TRUE (await ([&] { return attitudes.newest_ns () > 0; })) << "the thread goes on";
}

TEST_F (CameraImuFailures, WriteThatFailsIsLoggedWithItsTime)
{
  start_server (make_source ());
  ReferencePublisher reference;
  reference.put ();
  failing_call = "vorn_blackboard_write";
  const ReaderOwner reader (camera_imu_new ());
  ASSERT_TRUE (reader);
  ASSERT_TRUE (await ([&] { return log_.has ("failed to push quaternions", 3); }));
  bool found = false;
  for (const auto &text : log_.texts (3))
    found |= text.starts_with ("failed to write accurate attitude '") &&
             text.ends_with (std::string ("' to shdata (") + g_strerror (EINVAL) + ")");
  EXPECT_TRUE (found);
  failing_call = nullptr;
  AttitudeReader attitudes;
  EXPECT_TRUE (await ([&] { return attitudes.newest_ns () > 0; }));
}
