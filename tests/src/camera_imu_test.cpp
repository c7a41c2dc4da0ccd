// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "camera_imu_support.hpp"

#include <cerrno>
#include <cmath>
#include <set>

#include "camera_imu_private.hpp"

namespace
{

using sim::IioContextModel;
using sim::IioSource;

sim::IioDevice &sensor_of (IioSource &source)
{
  for (auto &device : source.model.devices)
    if (device.name == "iio-cam_imu")
      return device;
  ADD_FAILURE () << "no sensor";
  return source.model.devices.front ();
}

void remove_device (IioSource &source, const std::string &name)
{
  std::erase_if (source.model.devices, [&] (const auto &device) { return device.name == name; });
}

void remove_channel (IioSource &source, const std::string &id)
{
  std::erase_if (sensor_of (source).channels,
                 [&] (const auto &channel) { return channel.id == id; });
}

sim::IioChannel &channel_of (IioSource &source, const std::string &id)
{
  for (auto &channel : sensor_of (source).channels)
    if (channel.id == id)
      return channel;
  ADD_FAILURE () << "no channel " << id;
  return sensor_of (source).channels.front ();
}

void remove_attribute (IioSource &source, const std::string &name)
{
  std::erase_if (sensor_of (source).attributes,
                 [&] (const auto &attribute) { return attribute.name == name; });
}

void set_attribute (IioSource &source, const std::string &name, const std::string &value)
{
  for (auto &attribute : sensor_of (source).attributes)
    if (attribute.name == name)
      attribute.value = value;
}

} // namespace

TEST_F (CameraImuTest, WritesNothingBeforeThereIsAReference)
{
  start_server (make_source ());
  const ReaderOwner reader (camera_imu_new ());
  ASSERT_TRUE (reader);
  ASSERT_TRUE (await_blocks (20));
  AttitudeReader attitudes;
  EXPECT_EQ (attitudes.newest_ns (), 0u);
  EXPECT_TRUE (log_.texts (3).empty ()) << log_.texts (3).front ();

  ReferencePublisher reference;
  reference.put ();
  EXPECT_TRUE (await ([&] { return attitudes.newest_ns () > 0; }));
}

TEST_F (CameraImuTest, PublishesTheReferenceEveryMillisecond)
{
  start_server (make_source ());
  ReferencePublisher reference;
  reference.put ();
  const ReaderOwner reader (camera_imu_new ());
  ASSERT_TRUE (reader);
  AttitudeReader attitudes;
  ASSERT_TRUE (await ([&] { return attitudes.newest_ns () > 0; }));
  const guint64 first = attitudes.newest_ns ();
  ASSERT_TRUE (await_blocks (60));
  const auto times = attitudes.times_from (first, 250);
  ASSERT_EQ (times.size (), 250u);
  for (size_t i = 1; i < times.size (); i++)
    ASSERT_EQ (times[i] - times[i - 1], 1000000u) << "no gap";

  const quat_t attitude = attitudes.newest ();
  EXPECT_NEAR (attitude.x, reference.attitude.x, 1e-6);
  EXPECT_NEAR (attitude.y, reference.attitude.y, 1e-6);
  EXPECT_NEAR (attitude.z, reference.attitude.z, 1e-6);
  EXPECT_NEAR (attitude.w, reference.attitude.w, 1e-6);

  reference.attitude = {0.0f, 0.0f, 1.0f, 0.0f};
  reference.put ();
  EXPECT_TRUE (await ([&] { return std::abs (attitudes.newest ().z) > 0.9999f; }))
      << "refreshed from sample to sample";
}

TEST_F (CameraImuTest, RotatesSamplesByTheMountMatrix)
{
  IioSource source = make_source ();
  set_attribute (source, "in_anglvel_scale", "0.001");
  set_attribute (source, "in_anglvel_matrix", "1, 0, 0; 0, -1, 0; 0, 0, -1");
  source.sample = [start = source.start_ns] (uint64_t index) {
    return sim::ImuSample{{100, 200, -300}, start + static_cast<int64_t> (index) * 1000000};
  };
  start_server (std::move (source));
  const ReaderOwner reader (camera_imu_new ());
  ASSERT_TRUE (reader);
  ASSERT_TRUE (await ([&] { return log_.has ("fifo[3].v[2]=0.300000", 7); }))
      << "entry 3 after a block of five";
  EXPECT_TRUE (log_.has ("fifo[3].v[0]=0.100000", 7));
  EXPECT_TRUE (log_.has ("fifo[3].v[1]=-0.200000", 7));
  EXPECT_TRUE (logged_beginning ("fifo.timestamp=", 7));
  EXPECT_TRUE (log_.has ("iio context creation OK", 7));
  EXPECT_TRUE (log_.has ("IMU FIFO size set to 5", 7));
}

TEST_F (CameraImuTest, ShortBlockIsFedWithWhatIsLeftOfTheLast)
{
  start_server (make_source ());
  ReferencePublisher reference;
  reference.put ();
  const ReaderOwner reader (camera_imu_new ());
  ASSERT_TRUE (reader);
  AttitudeReader attitudes;
  ASSERT_TRUE (await ([&] { return attitudes.newest_ns () > 0; }));
  server_->faults ().short_block_samples = 3;
  ASSERT_TRUE (await ([&] { return logged_beginning ("failed to decode gyro samples : ", 4); }));
  // The two entries left over are older than the three new ones: the history starts anew with them.
  EXPECT_TRUE (await ([&] {
    for (const auto &line : log_.lines ())
      if (line.tag == "blackboard" && line.priority == 4)
        return true;
    return false;
  }));
  const guint64 then = attitudes.newest_ns ();
  EXPECT_TRUE (await ([&] { return attitudes.newest_ns () > then + 20000000; }))
      << "and on it goes";
}

TEST_F (CameraImuTest, AttitudeWithoutTimeGetsTheLastTimePlusOne)
{
  IioSource source = make_source ();
  source.sample = [start = source.start_ns] (uint64_t index) {
    const int64_t time = index % 50 == 20 ? 0 : start + static_cast<int64_t> (index) * 1000000;
    return sim::ImuSample{{0, 0, 0}, time};
  };
  start_server (std::move (source));
  ReferencePublisher reference;
  reference.put ();
  const ReaderOwner reader (camera_imu_new ());
  ASSERT_TRUE (reader);
  AttitudeReader attitudes;
  ASSERT_TRUE (await ([&] { return attitudes.newest_ns () > 0; }));
  const guint64 first = attitudes.newest_ns ();
  ASSERT_TRUE (await_blocks (60));
  const auto times = attitudes.times_from (first, 250);
  ASSERT_EQ (times.size (), 250u);
  std::multiset<guint64> steps;
  for (size_t i = 1; i < times.size (); i++)
    steps.insert (times[i] - times[i - 1]);
  EXPECT_GE (steps.count (1), 4u) << "the sample without a time";
  EXPECT_GE (steps.count (1999999), 4u) << "and the one after it";
  EXPECT_EQ (steps.count (1) + steps.count (1999999) + steps.count (1000000), steps.size ());
}

TEST_F (CameraImuTest, FailedRefillsAreLoggedAndGoneThrough)
{
  start_server (make_source ());
  ReferencePublisher reference;
  reference.put ();
  const ReaderOwner reader (camera_imu_new ());
  ASSERT_TRUE (reader);
  AttitudeReader attitudes;
  ASSERT_TRUE (await ([&] { return attitudes.newest_ns () > 0; }));
  server_->faults ().failing_blocks = 3;
  ASSERT_TRUE (await ([&] { return log_.count ("refill error: -5", 3) == 3; }));
  EXPECT_EQ (log_.count ("failed to read IMU sensor", 3), 3);
  const guint64 then = attitudes.newest_ns ();
  EXPECT_TRUE (await ([&] { return attitudes.newest_ns () > then + 20000000; }));
  EXPECT_EQ (server_->statistics ().connections, 2u) << "the connection was kept";
}

TEST_F (CameraImuTest, LostServerIsFoundAgain)
{
  start_server (make_source ());
  const uint16_t port = server_->port ();
  ReferencePublisher reference;
  reference.put ();
  const ReaderOwner reader (camera_imu_new ());
  ASSERT_TRUE (reader);
  AttitudeReader attitudes;
  ASSERT_TRUE (await ([&] { return attitudes.newest_ns () > 0; }));

  server_.reset ();
  ASSERT_TRUE (await ([&] { return logged_beginning ("refill error: ", 3); }));
  EXPECT_TRUE (log_.has ("failed to read IMU sensor", 3));
  std::this_thread::sleep_for (std::chrono::milliseconds (500));
  EXPECT_LT (log_.lines ().size (), 2000u) << "nothing spins";
  int refill_errors = 0;
  for (const auto &text : log_.texts (3))
    refill_errors += text.starts_with ("refill error: ");
  EXPECT_LE (refill_errors, 20);

  const guint64 then = attitudes.newest_ns ();
  start_server (make_source (), port);
  EXPECT_TRUE (await ([&] { return attitudes.newest_ns () > then; }));
  EXPECT_TRUE (log_.has ("connection to the camera IMU restored", 6));
}

TEST_F (CameraImuTest, FreeingDoesNotWaitForAServerThatHangs)
{
  start_server (make_source ());
  ReaderOwner reader (camera_imu_new ());
  ASSERT_TRUE (reader);
  ASSERT_TRUE (await_blocks (5));
  server_->faults ().stalled = true;
  std::this_thread::sleep_for (std::chrono::milliseconds (50)); // into the refill that hangs
  const auto start = std::chrono::steady_clock::now ();
  reader.reset ();
  // libiio alone would wait 5 s for the block and 5 s more for the farewell.
  EXPECT_LT (std::chrono::steady_clock::now () - start, std::chrono::seconds (3));
}

TEST_F (CameraImuTest, FreeingDoesNotWaitForAServerThatIsGone)
{
  start_server (make_source ());
  ReaderOwner reader (camera_imu_new ());
  ASSERT_TRUE (reader);
  server_.reset ();
  ASSERT_TRUE (await ([&] { return logged_beginning ("refill error: ", 3); }));
  const auto start = std::chrono::steady_clock::now ();
  reader.reset ();
  EXPECT_LT (std::chrono::steady_clock::now () - start, std::chrono::seconds (3));
}

TEST_F (CameraImuTest, StartsAndEndsManyTimes)
{
  start_server (make_source ());
  ReferencePublisher reference;
  reference.put ();
  for (int i = 0; i < (soak () ? 2000 : 200); i++) {
    ReaderOwner reader (camera_imu_new ());
    ASSERT_TRUE (reader);
    if (i % 3 == 0)
      await_blocks (1);
  }
  EXPECT_TRUE (log_.texts (3).empty ()) << log_.texts (3).front ();
}

TEST_F (CameraImuTest, SensorThatIsNotAsItShouldBeLeavesAReaderWithNothingToRead)
{
  const struct {
    const char *name;
    std::function<void (IioSource &)> spoil;
    std::vector<std::string> messages; // the beginnings
  } cases[] = {
      {"no device",
       [] (auto &s) { remove_device (s, "iio-cam_imu"); },
       {"unable to find IMU iio-cam_imu"}},
      {"no timestamp",
       [] (auto &s) { remove_channel (s, "timestamp"); },
       {"failed to init imu timestamp channel"}},
      {"no gyro axis",
       [] (auto &s) { remove_channel (s, "anglvel_z"); },
       {"failed to init gyro channel anglvel_z"}},
      {"narrow gyro axis",
       [] (auto &s) {
         channel_of (s, "anglvel_y").bits = 8;
         channel_of (s, "anglvel_y").storage_bits = 8;
       },
       {"wrong definition channel for anglvel_y:", "8 vs 16, 1 vs 1"}},
      {"unsigned gyro axis",
       [] (auto &s) { channel_of (s, "anglvel_x").is_signed = false; },
       {"wrong definition channel for anglvel_x:", "16 vs 16, 0 vs 1"}},
      {"no scale",
       [] (auto &s) { remove_attribute (s, "in_anglvel_scale"); },
       {std::string ("failed to fetch scale for gyro : ") + g_strerror (ENOENT)}},
      {"no matrix",
       [] (auto &s) { remove_attribute (s, "in_anglvel_matrix"); },
       {std::string ("failed to fetch acceleration matrix for gyro: ") + g_strerror (ENOENT)}},
      {"matrix of words",
       [] (auto &s) { set_attribute (s, "in_anglvel_matrix", "1, 0, x"); },
       {"failed to decode matrix for gyro, got 2 items expected 0"}},
      {"narrow timestamp",
       [] (auto &s) {
         channel_of (s, "timestamp").bits = 32;
         channel_of (s, "timestamp").storage_bits = 32;
       },
       {"wrong definition channel for timestamp:", "32 vs 64, 1 vs 1"}},
      {"unsigned timestamp",
       [] (auto &s) { channel_of (s, "timestamp").is_signed = false; },
       {"wrong definition channel for timestamp:", "64 vs 64, 0 vs 1"}},
  };
  for (const auto &row : cases) {
    SCOPED_TRACE (row.name);
    log_.clear ();
    IioSource source = make_source ();
    row.spoil (source);
    start_server (std::move (source));
    const ReaderOwner reader (camera_imu_new ());
    ASSERT_TRUE (reader) << "creation does not fail";
    EXPECT_EQ (reader->sensor, nullptr);
    for (const auto &message : row.messages)
      EXPECT_TRUE (logged_beginning (message, 3)) << message;
    EXPECT_TRUE (log_.has ("Error iio imu init", 3));
  }
}

TEST_F (CameraImuTest, IsNotMadeWithoutTrigger)
{
  IioSource source = make_source ();
  remove_device (source, "imu_cam_trig");
  start_server (std::move (source));
  EXPECT_EQ (camera_imu_new (), nullptr);
  EXPECT_TRUE (log_.has ("IIO trigger imu_cam_trig not found", 3));
  EXPECT_TRUE (log_.has ("failed to create IIO camera", 3));
}

TEST_F (CameraImuTest, IsNotMadeWithoutServer)
{
  start_server (make_source ());
  server_.reset ();
  EXPECT_EQ (camera_imu_new (), nullptr);
  EXPECT_TRUE (log_.has ("unable to create plugin simulator context", 3));
  EXPECT_TRUE (log_.has ("failed to create IIO camera", 3));
}

TEST_F (CameraImuTest, IsNotMadeBesideAnother)
{
  start_server (make_source ());
  const ReaderOwner first (camera_imu_new ());
  ASSERT_TRUE (first);
  EXPECT_EQ (camera_imu_new (), nullptr);
  EXPECT_TRUE (log_.has ("failed to create 'accurate_attitude' component in shdata", 3));
}

TEST_F (CameraImuTest, ReferenceOfAnotherTypeIsAnError)
{
  ReferenceAttitude reference = {};
  ASSERT_TRUE (camera_imu_reference_init (&reference));
  gfloat quaternion[4] = {9, 9, 9, 9};
  EXPECT_FALSE (camera_imu_get_last_reference_attitude (&reference, quaternion));
  EXPECT_TRUE (log_.lines ().empty ()) << "nothing published is no error";

  gdouble wrong = 1.0;
  const vorn::Owned<VornTelemetryProducer, vorn_telemetry_producer_destroy> producer (
      vorn_telemetry_producer_new ("video", 10, 2000));
  for (const char *name : {"drone_est_ned_start_q_x", "drone_est_ned_start_q_y",
                           "drone_est_ned_start_q_z", "drone_est_ned_start_q_w"})
    ASSERT_EQ (telemetry_register (producer.get (), name, wrong), 0);
  ASSERT_EQ (vorn_telemetry_producer_complete (producer.get ()), 0);
  const timespec time = {1, 0};
  ASSERT_EQ (vorn_telemetry_producer_put (producer.get (), &time), 0);
  EXPECT_FALSE (camera_imu_get_last_reference_attitude (&reference, quaternion));
  EXPECT_TRUE (
      log_.has (std::string ("failed to get reference attitude (") + g_strerror (EPROTO) + ")", 3));
  EXPECT_EQ (quaternion[0], 9.0f);
  camera_imu_reference_clear (&reference);
}

TEST_F (CameraImuTest, ReferenceIsCopiedInMemoryOrder)
{
  ReferenceAttitude reference = {};
  ASSERT_TRUE (camera_imu_reference_init (&reference));
  ReferencePublisher publisher;
  publisher.attitude = {1, 2, 3, 4};
  publisher.put ();
  gfloat quaternion[4] = {};
  ASSERT_TRUE (camera_imu_get_last_reference_attitude (&reference, quaternion));
  EXPECT_EQ (quaternion[0], 1);
  EXPECT_EQ (quaternion[1], 2);
  EXPECT_EQ (quaternion[2], 3);
  EXPECT_EQ (quaternion[3], 4);
  camera_imu_reference_clear (&reference);
}

/** One fed to the library would leave it without an attitude for good. */
TEST_F (CameraImuTest, ReferenceThatIsNoAttitudeIsRefused)
{
  ReferenceAttitude reference = {};
  ASSERT_TRUE (camera_imu_reference_init (&reference));
  ReferencePublisher publisher;
  const quat_t good = publisher.attitude;
  for (float quat_t::*component : {&quat_t::x, &quat_t::y, &quat_t::z, &quat_t::w})
    for (const float value : {NAN, INFINITY, -INFINITY}) {
      publisher.attitude = good;
      publisher.attitude.*component = value;
      publisher.put ();
      gfloat quaternion[4] = {9, 9, 9, 9};
      EXPECT_FALSE (camera_imu_get_last_reference_attitude (&reference, quaternion));
      EXPECT_EQ (quaternion[0], 9.0f);
      EXPECT_TRUE (log_.has ("failed to get reference attitude (not a finite quaternion)", 3));
    }
  publisher.attitude = good;
  publisher.put ();
  gfloat quaternion[4] = {};
  EXPECT_TRUE (camera_imu_get_last_reference_attitude (&reference, quaternion));
  EXPECT_EQ (quaternion[3], good.w);
  camera_imu_reference_clear (&reference);
}

TEST_F (CameraImuTest, ThreadEndsAtOnceWhenItIsStoppedBeforeItRan)
{
  CameraImu reader = {};
  GyroSensor sensor = {};
  reader.sensor = &sensor; // without a buffer: a pass would crash
  reader.stop = 1;
  EXPECT_EQ (camera_imu_run (&reader), nullptr);
}
