// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The server with the stock client library, beside clients that mean no good.
#include "drone.hpp"
#include "iio_server.hpp"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstring>
#include <sys/socket.h>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iio.h>
#include <vorn/raii.hpp>

#include "log_capture.hpp"

using namespace sim;

namespace
{

constexpr int64_t ms = 1'000'000;

using Context = vorn::Owned<iio_context, iio_context_destroy>;
using Buffer = vorn::Owned<iio_buffer, iio_buffer_destroy>;

Drone make_drone (const char *flight = "aggressive")
{
  Drone drone;
  drone.flight = make_named_flight (flight, 1);
  drone.start_ns = monotonic_ns ();
  return drone;
}

/** The calls of the product's camera reader, in its order. */
class Reader
{
public:
  explicit Reader (const std::string &uri)
  {
    // The library writes into the text that it is given.
    std::string copy = uri;
    context.reset (iio_create_context_from_uri (copy.data ()));
    if (!context)
      return;
    sensor = iio_context_find_device (context.get (), "iio-cam_imu");
    trigger = iio_context_find_device (context.get (), "imu_cam_trig");
    if (!sensor || !trigger)
      return;
    timestamp = iio_device_find_channel (sensor, "timestamp", false);
    const char *const names[] = {"anglvel_x", "anglvel_y", "anglvel_z"};
    for (int i = 0; i < 3; i++)
      gyro[i] = iio_device_find_channel (sensor, names[i], false);
    for (auto *channel : {timestamp, gyro[0], gyro[1], gyro[2]})
      iio_channel_enable (channel);
    iio_device_attr_read_double (sensor, "in_anglvel_scale", &scale);
    char text[1024];
    if (iio_device_attr_read (sensor, "in_anglvel_matrix", text, sizeof text) > 0)
      matrix = text;
    buffer.reset (iio_device_create_buffer (sensor, 5, false));
    attached = iio_device_set_trigger (sensor, trigger);
  }

  struct Sample {
    int64_t timestamp_ns;
    double rate_rad_s[3];
  };

  /** One refill; what iio_buffer_refill returned, the samples in samples. */
  ssize_t refill ()
  {
    samples.clear ();
    const ssize_t result = iio_buffer_refill (buffer.get ());
    if (result < 0)
      return result;
    const char *const end = static_cast<const char *> (iio_buffer_end (buffer.get ()));
    const char *at = static_cast<const char *> (iio_buffer_first (buffer.get (), timestamp));
    for (ptrdiff_t i = 0; at < end; at += iio_buffer_step (buffer.get ()), i++) {
      Sample sample = {};
      iio_channel_convert (timestamp, &sample.timestamp_ns, at);
      for (int axis = 0; axis < 3; axis++) {
        int16_t raw = 0;
        const char *first =
            static_cast<const char *> (iio_buffer_first (buffer.get (), gyro[axis]));
        iio_channel_convert (gyro[axis], &raw, first + i * iio_buffer_step (buffer.get ()));
        sample.rate_rad_s[axis] = raw * scale;
      }
      samples.push_back (sample);
    }
    return result;
  }

  Context context;
  iio_device *sensor = nullptr;
  iio_device *trigger = nullptr;
  iio_channel *timestamp = nullptr;
  iio_channel *gyro[3] = {};
  double scale = 0;
  std::string matrix;
  int attached = -1;
  std::vector<Sample> samples;
  Buffer buffer; // before its context
};

class Server : public testing::Test
{
protected:
  // A client whose server has gone would otherwise end the test: libiio sends without protection.
  static void SetUpTestSuite () { signal (SIGPIPE, SIG_IGN); }

  void start (const IioServerOptions &options = {}, uint64_t queue_depth = 0)
  {
    drone_ = make_drone ();
    std::string error;
    server_ = IioServer::start (make_camera_imu_source (drone_, gyro_, 1000, queue_depth), options,
                                &error);
    ASSERT_TRUE (server_) << error;
  }

  /** A plain connection. */
  vorn::Fd connect_raw () const
  {
    vorn::Fd fd (socket (AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons (server_->port ());
    address.sin_addr.s_addr = htonl (INADDR_LOOPBACK);
    const timeval limit = {10, 0};
    setsockopt (fd.get (), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    EXPECT_EQ (connect (fd.get (), reinterpret_cast<sockaddr *> (&address), sizeof address), 0);
    return fd;
  }
  static void send_raw (const vorn::Fd &fd, const std::string &text)
  {
    EXPECT_EQ (send (fd.get (), text.data (), text.size (), MSG_NOSIGNAL),
               static_cast<ssize_t> (text.size ()));
  }
  /** Everything until the server closes. */
  static std::string read_to_end (const vorn::Fd &fd)
  {
    std::string text;
    char part[4096];
    for (ssize_t n; (n = recv (fd.get (), part, sizeof part, 0)) > 0;)
      text.append (part, static_cast<size_t> (n));
    return text;
  }

  /** Refills so many blocks and checks that no sample is missing. */
  static void expect_no_gap (Reader &reader, int blocks, int64_t *last_ns)
  {
    for (int i = 0; i < blocks; i++) {
      ASSERT_EQ (reader.refill (), 80);
      ASSERT_EQ (reader.samples.size (), 5u);
      for (const auto &sample : reader.samples) {
        if (*last_ns) {
          ASSERT_EQ (sample.timestamp_ns, *last_ns + ms);
        }
        *last_ns = sample.timestamp_ns;
      }
    }
  }

  GyroModel gyro_;
  Drone drone_;
  std::unique_ptr<IioServer> server_;
};

TEST_F (Server, StockClientReadsTheFlight)
{
  gyro_.mount_matrix = *parse_mount_matrix ("1, 0, 0; 0, -1, 0; 0, 0, -1");
  gyro_.bias_rad_s = {};
  gyro_.noise_rad_s = 0;
  start ();
  const int64_t before_ns = monotonic_ns ();
  Reader reader (server_->uri ());
  ASSERT_TRUE (reader.buffer);
  EXPECT_EQ (reader.attached, 0);
  EXPECT_EQ (reader.scale, 0.000266316);
  EXPECT_EQ (reader.matrix, "1, 0, 0; 0, -1, 0; 0, 0, -1");
  int64_t last_ns = 0;
  for (int i = 0; i < 100; i++) {
    expect_no_gap (reader, 1, &last_ns);
    for (const auto &sample : reader.samples) {
      const Vec3 truth = drone_.state_at (sample.timestamp_ns).rate_rad_s;
      EXPECT_NEAR (sample.rate_rad_s[0], truth.x, 0.6 * reader.scale);
      EXPECT_NEAR (sample.rate_rad_s[1], -truth.y, 0.6 * reader.scale);
      EXPECT_NEAR (sample.rate_rad_s[2], -truth.z, 0.6 * reader.scale);
    }
  }
  EXPECT_GE (last_ns, before_ns + 499 * ms) << "in real time";
  EXPECT_LE (last_ns, monotonic_ns ()) << "never from the future";
  const iio_device *trigger = nullptr;
  EXPECT_EQ (iio_device_get_trigger (reader.sensor, &trigger), 0);
  EXPECT_EQ (trigger, reader.trigger);
}

TEST_F (Server, SeveralClientsAtOnce)
{
  start ();
  std::vector<std::thread> threads;
  threads.reserve (4);
  for (int i = 0; i < 4; i++)
    threads.emplace_back ([this] {
      Reader reader (server_->uri ());
      ASSERT_TRUE (reader.buffer);
      int64_t last_ns = 0;
      expect_no_gap (reader, 60, &last_ns);
    });
  for (auto &thread : threads)
    thread.join ();
  EXPECT_GE (server_->statistics ().connections, 8u);
  EXPECT_EQ (server_->statistics ().lost_samples, 0u);
}

/** What bad clients do, one after the other, over and over. */
void disturb (const std::function<vorn::Fd ()> &connect_raw, const std::atomic<bool> &stop)
{
  const std::string garbage = "GET / HTTP/1.1\r\nREADBUF iio:device0 99999999999999999999\r\n"
                              "OPEN iio:device0 4294967295 0000000f\r\n\xff\xfe";
  const auto push = [] (const vorn::Fd &fd, const std::string &text) {
    // The server may have closed already: that is its right.
    [[maybe_unused]] const ssize_t n = send (fd.get (), text.data (), text.size (), MSG_NOSIGNAL);
  };
  const vorn::Fd half_a_line = connect_raw ();
  push (half_a_line, "READ iio:dev");
  const vorn::Fd never_reads = connect_raw ();
  while (!stop) {
    {
      const vorn::Fd dropped = connect_raw ();
    }
    push (connect_raw (), garbage);
    push (connect_raw (), std::string (100000, 'x'));
    const vorn::Fd greedy = connect_raw ();
    push (greedy, "SETTRIG iio:device0 trigger0\r\nOPEN iio:device0 65536 0000000f\r\n"
                  "READBUF iio:device0 1048576\r\n");
    char some[64];
    [[maybe_unused]] const ssize_t n = recv (greedy.get (), some, sizeof some, MSG_DONTWAIT);
    const timeval no_wait = {0, 1000};
    setsockopt (never_reads.get (), SOL_SOCKET, SO_SNDTIMEO, &no_wait, sizeof no_wait);
    push (never_reads, "PRINT\r\nPRINT\r\nPRINT\r\nPRINT\r\n");
  }
}

TEST_F (Server, BadClientsDoNotDisturbAGoodOne)
{
  LogCapture capture;
  start ();
  Reader reader (server_->uri ());
  ASSERT_TRUE (reader.buffer);
  std::atomic<bool> stop = false;
  std::thread bad ([&] { disturb ([this] { return connect_raw (); }, stop); });
  int64_t last_ns = 0;
  expect_no_gap (reader, soak () ? 12000 : 200, &last_ns);
  stop = true;
  bad.join ();
  EXPECT_GT (server_->statistics ().refused_requests, 10u);
  EXPECT_TRUE (capture.has ("connection refused further service: a line without end", 4));
}

TEST_F (Server, HundredConnectionsOpenedAndDropped)
{
  start ();
  Reader reader (server_->uri ());
  ASSERT_TRUE (reader.buffer);
  int64_t last_ns = 0;
  expect_no_gap (reader, 2, &last_ns);
  {
    std::vector<vorn::Fd> open;
    open.reserve (100);
    for (int i = 0; i < 100; i++)
      open.push_back (connect_raw ());
    expect_no_gap (reader, 20, &last_ns);
  }
  for (int i = 0; i < 100; i++)
    connect_raw ();
  expect_no_gap (reader, 20, &last_ns);
  Reader another (server_->uri ());
  EXPECT_TRUE (another.buffer);
}

TEST_F (Server, StrangersMakeRoomAndClientsStay)
{
  LogCapture capture;
  IioServerOptions options;
  options.max_connections = 4;
  start (options);
  Reader reader (server_->uri ()); // two connections
  ASSERT_TRUE (reader.buffer);
  const vorn::Fd stranger = connect_raw ();
  const vorn::Fd guest = connect_raw ();
  send_raw (guest, "VERSION\r\n");
  char answer[16];
  ASSERT_EQ (recv (guest.get (), answer, 13, MSG_WAITALL), 13);
  const vorn::Fd late = connect_raw ();
  EXPECT_EQ (read_to_end (stranger), "") << "the stranger had to go";
  send_raw (late, "VERSION\r\n");
  ASSERT_EQ (recv (late.get (), answer, 13, MSG_WAITALL), 13);
  EXPECT_EQ (read_to_end (connect_raw ()), "") << "four clients are enough";
  EXPECT_TRUE (capture.has ("4 connections are enough, another one is refused", 4));
  int64_t last_ns = 0;
  expect_no_gap (reader, 2, &last_ns);
}

TEST_F (Server, AnswersWhatWasAskedBeforeTheClientHungUp)
{
  start ();
  const vorn::Fd client = connect_raw ();
  send_raw (client, "VERSION\r\nREAD iio:device0 in_anglvel_scale\r\n");
  shutdown (client.get (), SHUT_WR);
  EXPECT_EQ (read_to_end (client), std::string ("0.24.v0.24  \n12\n0.000266316\0\n", 29));
}

TEST_F (Server, LateReaderMeetsOneGap)
{
  start ({}, 20);
  Reader reader (server_->uri ());
  ASSERT_TRUE (reader.buffer);
  ASSERT_EQ (reader.refill (), 80);
  const int64_t last_ns = reader.samples.back ().timestamp_ns;
  // Wait until a hundred samples have been produced unread.
  while (monotonic_ns () < last_ns + 100 * ms)
    std::this_thread::yield ();
  ASSERT_EQ (reader.refill (), 80);
  EXPECT_GE (reader.samples[0].timestamp_ns, last_ns + 81 * ms);
  for (size_t i = 1; i < 5; i++)
    EXPECT_EQ (reader.samples[i].timestamp_ns, reader.samples[i - 1].timestamp_ns + ms);
  EXPECT_GE (server_->statistics ().lost_samples, 80u);
}

TEST_F (Server, InjectedFaultsReachTheStockClient)
{
  start ();
  Reader reader (server_->uri ());
  ASSERT_TRUE (reader.buffer);
  ASSERT_EQ (reader.refill (), 80);
  server_->faults ().failing_blocks = 1;
  EXPECT_EQ (reader.refill (), -5);
  server_->faults ().short_block_samples = 2;
  EXPECT_EQ (reader.refill (), 32);
  EXPECT_EQ (reader.samples.size (), 2u);
  ASSERT_EQ (reader.refill (), 80);
}

TEST_F (Server, StalledServerAnswersLater)
{
  start ();
  Reader reader (server_->uri ());
  ASSERT_TRUE (reader.buffer);
  int64_t last_ns = 0;
  expect_no_gap (reader, 2, &last_ns);
  server_->faults ().stalled = true;
  std::atomic<bool> returned = false;
  ssize_t result = 0;
  std::thread refill ([&] {
    result = reader.refill ();
    returned = true;
  });
  // Nothing comes while many blocks would have been due.
  const int64_t start_ns = monotonic_ns ();
  while (monotonic_ns () < start_ns + 200 * ms)
    std::this_thread::yield ();
  // One block may have been on its way when the stall began.
  const bool stalled = !returned;
  server_->faults ().stalled = false;
  refill.join ();
  EXPECT_EQ (result, 80);
  EXPECT_EQ (reader.samples[0].timestamp_ns, last_ns + ms) << "late, with its own time";
  if (stalled) {
    EXPECT_GE (monotonic_ns () - reader.samples.back ().timestamp_ns, 100 * ms);
  }
}

TEST_F (Server, DroppedConnectionsEndARefill)
{
  start ();
  Reader reader (server_->uri ());
  ASSERT_TRUE (reader.buffer);
  ASSERT_EQ (reader.refill (), 80);
  server_->drop_connections ();
  ssize_t result = 80;
  for (int i = 0; i < 1000 && result >= 0; i++)
    result = reader.refill ();
  EXPECT_TRUE (result == -EPIPE || result == -ECONNRESET) << result;
  Reader again (server_->uri ());
  ASSERT_TRUE (again.buffer);
  EXPECT_EQ (again.refill (), 80);
}

TEST_F (Server, StopsAndStartsAgainOnItsPort)
{
  start ();
  IioServerOptions options;
  options.port = server_->port ();
  std::string error;
  EXPECT_EQ (IioServer::start (make_camera_imu_source (drone_, gyro_, 1000, 0), options, &error),
             nullptr);
  EXPECT_EQ (error, "cannot listen on 127.0.0.1:" + std::to_string (options.port) +
                        ": Address already in use");
  const vorn::Fd idle = connect_raw ();
  send_raw (idle, "VERSION\r\n");
  char answer[16];
  ASSERT_EQ (recv (idle.get (), answer, 13, MSG_WAITALL), 13);
  for (int i = 0; i < 20; i++) {
    server_.reset ();
    start (options);
    ASSERT_TRUE (server_);
    Reader reader (server_->uri ());
    ASSERT_TRUE (reader.buffer);
    ASSERT_EQ (reader.refill (), 80);
  }
}

TEST_F (Server, BadAddress)
{
  IioServerOptions options;
  options.address = "localhost";
  std::string error;
  EXPECT_EQ (IioServer::start ({}, options, &error), nullptr);
  EXPECT_EQ (error, "cannot listen on localhost:0: not a numeric IPv4 address");
  options.address = "203.0.113.7"; // for documentation: no machine has it
  EXPECT_EQ (IioServer::start ({}, options, &error), nullptr);
  EXPECT_EQ (error, "cannot listen on 203.0.113.7:0: Cannot assign requested address");
}

TEST_F (Server, SpoiledDescriptionsReachTheStockClient)
{
  drone_ = make_drone ();
  const auto serve = [this] (const std::function<void (IioContextModel &)> &spoil) {
    auto source = make_camera_imu_source (drone_, gyro_, 1000, 0);
    spoil (source.model);
    std::string error;
    server_.reset ();
    server_ = IioServer::start (source, {}, &error);
    std::string uri = server_->uri ();
    return Context (iio_create_context_from_uri (uri.data ()));
  };
  auto context = serve ([] (IioContextModel &model) { model.devices.pop_back (); });
  ASSERT_TRUE (context);
  EXPECT_EQ (iio_context_find_device (context.get (), "imu_cam_trig"), nullptr);

  context = serve ([] (IioContextModel &model) { model.devices.erase (model.devices.begin ()); });
  EXPECT_EQ (iio_context_find_device (context.get (), "iio-cam_imu"), nullptr);

  context = serve ([] (IioContextModel &model) {
    model.devices[0].channels[1].is_signed = false;
    model.devices[0].channels[1].storage_bits = 32;
    model.devices[0].attributes[1].value = "1, 0";
    model.devices[0].attributes.erase (model.devices[0].attributes.begin ());
  });
  auto *sensor = iio_context_find_device (context.get (), "iio-cam_imu");
  ASSERT_NE (sensor, nullptr);
  const auto *format =
      iio_channel_get_data_format (iio_device_find_channel (sensor, "anglvel_y", false));
  EXPECT_EQ (format->length, 32u);
  EXPECT_FALSE (format->is_signed);
  double scale = 0;
  EXPECT_EQ (iio_device_attr_read_double (sensor, "in_anglvel_scale", &scale), -ENOENT);
  char text[64];
  EXPECT_EQ (iio_device_attr_read (sensor, "in_anglvel_matrix", text, sizeof text), 5);
  EXPECT_STREQ (text, "1, 0");
}

} // namespace
