// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The camera IMU reader against an IIO server in the same process.
#ifndef TESTS_CAMERA_IMU_SUPPORT_HPP
#define TESTS_CAMERA_IMU_SUPPORT_HPP

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "accurate_attitude.hpp"
#include "camera_imu.hpp"
#include "clock_time.hpp"
#include "drone.hpp"
#include "iio_server.hpp"
#include "log_capture.hpp"
#include "own_namespace.hpp"
#include "telemetry_variable.hpp"
#include <vorn/raii.hpp>

using ReaderOwner = vorn::Owned<CameraImu, camera_imu_free>;

/** Waits until the condition holds; false after a time far beyond what it can take. */
inline bool await (const std::function<bool ()> &condition)
{
  const auto end = std::chrono::steady_clock::now () + std::chrono::seconds (30);
  while (!condition ()) {
    if (std::chrono::steady_clock::now () > end)
      return false;
    std::this_thread::sleep_for (std::chrono::milliseconds (1));
  }
  return true;
}

/** The drone's estimated attitude on the telemetry bus. */
class ReferencePublisher
{
public:
  ReferencePublisher () : producer_ (vorn_telemetry_producer_new ("video", 1000, 2000))
  {
    auto *producer = producer_.get ();
    EXPECT_EQ (telemetry_register (producer, "drone_est_ned_start_q_w", attitude.w), 0);
    EXPECT_EQ (telemetry_register (producer, "drone_est_ned_start_q_x", attitude.x), 0);
    EXPECT_EQ (telemetry_register (producer, "drone_est_ned_start_q_y", attitude.y), 0);
    EXPECT_EQ (telemetry_register (producer, "drone_est_ned_start_q_z", attitude.z), 0);
    EXPECT_EQ (vorn_telemetry_producer_complete (producer), 0);
  }
  void put ()
  {
    const timespec time = timespec_of (static_cast<guint64> (sim::monotonic_ns ()));
    EXPECT_EQ (vorn_telemetry_producer_put (producer_.get (), &time), 0);
  }
  quat_t attitude = {0.1f, 0.2f, 0.3f, 0.927361850f};

private:
  vorn::Owned<VornTelemetryProducer, vorn_telemetry_producer_destroy> producer_;
};

/** Reads the section as any process would. */
class AttitudeReader
{
public:
  AttitudeReader () : reader_ (vorn_blackboard_open (accurate_attitude_section, &revision_)) {}
  ~AttitudeReader ()
  {
    if (reader_)
      vorn_blackboard_close (reader_, revision_);
  }
  AttitudeReader (const AttitudeReader &) = delete;
  AttitudeReader &operator= (const AttitudeReader &) = delete;

  /** The time of the newest attitude, ns; 0 while there is none. */
  guint64 newest_ns ()
  {
    timespec time = {};
    if (vorn_blackboard_select (reader_, nullptr, VORN_BLACKBOARD_LATEST, 0) < 0 ||
        vorn_blackboard_read_times (reader_, &time, 1) != 1)
      return 0;
    return static_cast<guint64> (time.tv_sec) * 1000000000 + static_cast<guint64> (time.tv_nsec);
  }
  quat_t newest ()
  {
    quat_t attitude = {};
    EXPECT_EQ (vorn_blackboard_select (reader_, nullptr, VORN_BLACKBOARD_LATEST, 0), 0);
    EXPECT_EQ (vorn_blackboard_read (reader_, 0, &attitude, sizeof attitude), 1);
    return attitude;
  }
  /** The times of up to count attitudes from a time on, ns. */
  std::vector<guint64> times_from (guint64 start_ns, guint count)
  {
    const timespec start = timespec_of (start_ns);
    std::vector<timespec> times (count);
    if (vorn_blackboard_select (reader_, &start, VORN_BLACKBOARD_SPAN, count - 1) < 0)
      return {};
    const int read = vorn_blackboard_read_times (reader_, times.data (), count);
    std::vector<guint64> result;
    for (int i = 0; i < read; i++)
      result.push_back (static_cast<guint64> (times[static_cast<size_t> (i)].tv_sec) * 1000000000 +
                        static_cast<guint64> (times[static_cast<size_t> (i)].tv_nsec));
    return result;
  }

private:
  VornBlackboardRevision *revision_ = nullptr;
  VornBlackboardReader *reader_;
};

class CameraImuTest : public testing::Test
{
protected:
  // A client whose server has gone would otherwise end the test: libiio sends without protection.
  static void SetUpTestSuite () { signal (SIGPIPE, SIG_IGN); }
  ~CameraImuTest () override { unsetenv ("IIOD_REMOTE"); }

  /** The source of a drone in flight, for a test to change before it starts the server. */
  static sim::IioSource make_source (const sim::GyroModel &gyro = {})
  {
    sim::Drone drone;
    drone.flight = sim::make_named_flight ("aggressive", 1);
    drone.start_ns = sim::monotonic_ns ();
    return sim::make_camera_imu_source (drone, gyro, 1000, 0);
  }

  void start_server (sim::IioSource source, uint16_t port = 0)
  {
    std::string error;
    sim::IioServerOptions options;
    options.port = port;
    server_ = sim::IioServer::start (std::move (source), options, &error);
    ASSERT_TRUE (server_) << error;
    setenv ("IIOD_REMOTE", server_->uri ().c_str (), 1);
  }

  bool await_blocks (uint64_t more)
  {
    const uint64_t goal = server_->statistics ().blocks + more;
    return await ([&] { return server_->statistics ().blocks >= goal; });
  }

  /** True when a message begins so. */
  bool logged_beginning (const std::string &beginning, int priority) const
  {
    for (const auto &text : log_.texts (priority))
      if (text.starts_with (beginning))
        return true;
    return false;
  }

  OwnNamespace name_space_;
  LogCapture log_;
  std::unique_ptr<sim::IioServer> server_;
};

#endif
