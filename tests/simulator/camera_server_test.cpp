// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The camera's end of the protocol: what clients are given, what they cannot do to it or each
// other.
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "camera_clients.hpp"
#include "log_capture.hpp"
#include "renderer.hpp"

namespace
{

TEST (FrameGrid, HasNoDrift)
{
  const struct {
    uint32_t numerator, denominator;
  } rates[] = {{30, 1}, {30000, 1001}, {24000, 1001}, {120, 1}, {1000, 1}, {1, 100}, {7, 3}};
  for (const auto &rate : rates) {
    const int64_t epoch = 123'456'789'012;
    const sim::FrameGrid grid (epoch, rate.numerator, rate.denominator);
    EXPECT_EQ (grid.time_ns (0), epoch);
    // After this many frames a whole number of seconds has gone by, to the nanosecond.
    for (const int64_t k : {1, 60, 86'400 * 30})
      EXPECT_EQ (grid.time_ns (k * rate.numerator) - epoch, k * rate.denominator * 1'000'000'000);
    for (int64_t n = -1000; n < 1000; n++) {
      const int64_t time = grid.time_ns (n);
      EXPECT_EQ (grid.frame_at (time), n) << rate.numerator;
      EXPECT_EQ (grid.frame_at (time - 1), n - 1) << rate.numerator;
      EXPECT_GE (grid.time_ns (n + 1) - time, grid.period_ns ());
      EXPECT_LE (grid.time_ns (n + 1) - time, grid.period_ns () + 1);
    }
  }
}

TEST (CameraServer, TellsItsSensorAndKeepsTheGrid)
{
  const auto camera = small_camera ();
  const ServedCamera served (camera);
  RawClient client (served.path ());
  VornCameraRequest request = request_of (160, 90, 100);
  request.top = 240;
  request.rect_height = 120;
  ASSERT_TRUE (client.start (request));
  EXPECT_EQ (client.sensor ().width, 640u);
  EXPECT_EQ (client.sensor ().rate_numerator, 30u);
  EXPECT_EQ (client.sensor ().readout_ns, 8'000'000u);
  EXPECT_EQ (client.stream ().buffers, 4u);
  EXPECT_EQ (client.stream ().frame_size, 480u * 90);
  const double focal = 320 / std::tan (0.5);
  EXPECT_NEAR (client.stream ().focal_x, focal / 4, 1e-9);
  EXPECT_NEAR (client.stream ().focal_y, focal * 90 / 120, 1e-9);
  EXPECT_NEAR (client.stream ().center_x, 80, 1e-9);
  EXPECT_NEAR (client.stream ().center_y, 0, 1e-9) << "the axis is at the rectangle's top";
  EXPECT_EQ (client.stream ().latency_ns, 2'000'000u + 2'000'000 + 15'000'000);

  const sim::FrameGrid grid (camera.epoch_ns, 100, 1);
  int64_t previous = -1;
  for (int i = 0; i < 20; i++) {
    const auto frame = client.frame ();
    ASSERT_TRUE (frame);
    const int64_t arrived_ns = now_ns ();
    // A quarter of the sensor, half of it further down, is read in its share of the time.
    EXPECT_EQ (static_cast<int64_t> (frame->capture_ns),
               grid.time_ns (static_cast<int64_t> (frame->sequence)) + 4'000'000);
    EXPECT_EQ (frame->exposure_ns, 2'000'000u);
    EXPECT_EQ (frame->readout_ns, 2'000'000u);
    EXPECT_GE (arrived_ns, static_cast<int64_t> (frame->capture_ns + 2'000'000 + 2'000'000 +
                                                 VORN_CAMERA_DELIVERY_NS));
    EXPECT_GT (static_cast<int64_t> (frame->sequence), previous);
    previous = static_cast<int64_t> (frame->sequence);
    client.give_back (frame->buffer);
  }
}

TEST (CameraServer, PictureIsWhatTheRendererMakesOfTheFramesTime)
{
  auto camera = small_camera ();
  camera.motion = [epoch = camera.epoch_ns] (int64_t ns) {
    const double t = static_cast<double> (ns - epoch) * 1e-9;
    return sim::CameraPose{{t, 2 * t, -10}, {0, std::sin (t), 0, std::cos (t)}};
  };
  const ServedCamera served (camera);
  RawClient client (served.path ());
  VornCameraRequest request = request_of (100, 50, 50);
  request.left = 100;
  request.rect_width = 300;
  ASSERT_TRUE (client.start (request));
  sim::Renderer renderer (camera.world);
  for (int i = 0; i < 5; i++) {
    const auto frame = client.frame ();
    ASSERT_TRUE (frame);
    sim::Shot shot = {};
    shot.geometry = sim::picture_geometry (camera.sensor, {100, 0, 300, 480}, 100, 50);
    shot.capture_ns = static_cast<int64_t> (frame->capture_ns);
    shot.exposure_ns = 2'000'000;
    shot.readout_ns = 8'000'000;
    std::vector<uint8_t> expected (300 * 50);
    renderer.render (shot, camera.motion, expected.data (), 300);
    EXPECT_TRUE (std::equal (expected.begin (), expected.end (), client.data (frame->buffer)));
    client.give_back (frame->buffer);
  }
}

TEST (CameraServer, MemoryIsSealedAgainstEverybody)
{
  const ServedCamera served;
  RawClient client (served.path ());
  ASSERT_TRUE (client.start (request_of (64, 48, 30)));
  const int fd = client.memories ()[0].get ();
  EXPECT_EQ (ftruncate (fd, 0), -1);
  EXPECT_EQ (ftruncate (fd, 1 << 20), -1);
  EXPECT_EQ (fcntl (fd, F_ADD_SEALS, F_SEAL_WRITE), -1);
  EXPECT_EQ (mmap (nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0), MAP_FAILED);
  EXPECT_EQ (pwrite (fd, "x", 1, 0), -1);
}

TEST (CameraServer, LongExposureEndsWhereTheNextFrameBegins)
{
  auto camera = small_camera ();
  camera.sensor.exposure_ns = 30'000'000;
  camera.sensor.readout_ns = 30'000'000;
  const ServedCamera served (camera);
  RawClient client (served.path ());
  ASSERT_TRUE (client.start (request_of (16, 16, 120)));
  const auto frame = client.frame ();
  ASSERT_TRUE (frame);
  EXPECT_EQ (frame->exposure_ns, 8'333'333u);
  EXPECT_EQ (frame->readout_ns, 8'333'333u);
}

TEST (CameraServer, SlowClientLosesFramesAndOthersDoNot)
{
  const ServedCamera served;
  RawClient slow (served.path ());
  RawClient quick (served.path ());
  ASSERT_TRUE (slow.start (request_of (64, 48, 100)));
  ASSERT_TRUE (quick.start (request_of (64, 48, 100)));
  // The slow one holds all its buffers while the quick one gets many frames.
  std::vector<VornCameraFrame> held;
  for (int i = 0; i < 4; i++) {
    const auto frame = slow.frame ();
    ASSERT_TRUE (frame);
    held.push_back (*frame);
  }
  std::vector<VornCameraFrame> frames;
  for (int i = 0; i < 60; i++) {
    const auto frame = quick.frame ();
    ASSERT_TRUE (frame);
    frames.push_back (*frame);
    quick.give_back (frame->buffer);
  }
  EXPECT_FALSE (slow.frame (0)) << "nothing is sent into buffers that are held";
  slow.give_back (held[2].buffer);
  const auto next = slow.frame ();
  ASSERT_TRUE (next);
  EXPECT_EQ (next->buffer, held[2].buffer);
  EXPECT_GE (next->lost, 50u);
  EXPECT_EQ (next->sequence - held[3].sequence - 1, next->lost - held[3].lost);
  // Whatever the quick one lost was not for want of buffers: the machine was late.
  const uint64_t gaps = frames.back ().sequence - frames.front ().sequence + 1 - frames.size ();
  EXPECT_EQ (gaps, frames.back ().lost - frames.front ().lost);
  EXPECT_LT (gaps, 30u);
}

TEST (CameraServer, ClientsHaveTheirOwnRectangleSizeAndRate)
{
  const ServedCamera served;
  std::vector<RawClient> clients;
  const VornCameraRequest requests[] = {request_of (64, 48, 30), request_of (16, 8, 120),
                                        request_of (33, 17, 24000, 1001)};
  for (const auto &request : requests) {
    clients.emplace_back (served.path ());
    ASSERT_TRUE (clients.back ().start (request));
  }
  for (size_t i = 0; i < clients.size (); i++) {
    EXPECT_EQ (clients[i].stream ().frame_size,
               uint64_t{vorn_camera_stride (requests[i].width)} * requests[i].height);
    const auto a = clients[i].frame ();
    const auto b = clients[i].frame ();
    ASSERT_TRUE (a && b);
    const double seconds = static_cast<double> (b->capture_ns - a->capture_ns) * 1e-9;
    EXPECT_NEAR (seconds * requests[i].rate_numerator / requests[i].rate_denominator,
                 static_cast<double> (b->sequence - a->sequence), 1e-6);
  }
}

TEST (CameraServer, StyleChangesTheNextFrames)
{
  const ServedCamera served;
  RawClient client (served.path ());
  VornCameraRequest request = request_of (64, 48, 100);
  request.style = 77; // rendered as standard
  ASSERT_TRUE (client.start (request));
  const auto mean = [&] (const VornCameraFrame &frame) {
    const uint8_t *data = client.data (frame.buffer);
    double sum = 0;
    for (int i = 0; i < 192 * 48; i++)
      sum += data[i];
    return sum / (192 * 48);
  };
  const auto contrast = [&] (const VornCameraFrame &frame) {
    const uint8_t *data = client.data (frame.buffer);
    return *std::max_element (data, data + 192 * 48) - *std::min_element (data, data + 192 * 48);
  };
  const auto first = client.frame ();
  ASSERT_TRUE (first);
  const double plain_mean = mean (*first);
  const int plain = contrast (*first);
  client.give_back (first->buffer);
  for (const uint32_t style : {VORN_CAMERA_STYLE_FLAT, VORN_CAMERA_STYLE_STANDARD}) {
    VornCameraMessage message;
    vorn_camera_message_init (&message, VORN_CAMERA_STYLE);
    message.style.style = style;
    client.send (message);
    // A frame or two may be under way.
    int last = 0;
    double last_mean = 0;
    for (int i = 0; i < 4; i++) {
      const auto frame = client.frame ();
      ASSERT_TRUE (frame);
      last = contrast (*frame);
      last_mean = mean (*frame);
      client.give_back (frame->buffer);
    }
    if (style == VORN_CAMERA_STYLE_FLAT) {
      EXPECT_NEAR (last, plain * 0.6, 2);
    } else {
      EXPECT_EQ (last, plain);
      EXPECT_NEAR (last_mean, plain_mean, 1e-9);
    }
  }
}

struct BadClient {
  const char *name;
  std::function<void (RawClient &)> act; // after the sensor's description
  std::string refusal;
};

VornCameraMessage return_of (uint32_t buffer)
{
  VornCameraMessage message;
  vorn_camera_message_init (&message, VORN_CAMERA_RETURN);
  message.give_back.buffer = buffer;
  return message;
}

const std::vector<BadClient> bad_clients = {
    {"sends garbage", [] (RawClient &c) { c.send_bytes ("garbage"); },
     "message of 7 bytes, shorter than a header"},
    {"sends an oversized message", [] (RawClient &c) { c.send_bytes (std::string (5000, 'x')); },
     "message of more than 224 bytes"},
    {"speaks another version",
     [] (RawClient &c) {
       VornCameraMessage message = return_of (0);
       message.header.version = 2;
       c.send (message);
     },
     "protocol version 2, this side speaks 1"},
    {"sends a server's message",
     [] (RawClient &c) {
       VornCameraMessage message;
       vorn_camera_message_init (&message, VORN_CAMERA_FRAME);
       c.send (message);
     },
     "a message of type 5 is not a client's"},
    {"sends descriptors",
     [] (RawClient &c) {
       c.send (return_of (0), {0, 1});
     },
     "RETURN message with 2 descriptors"},
    {"returns what it never had", [] (RawClient &c) { c.send (return_of (0)); },
     "buffer 0 was not the client's to return"},
    {"asks for nothing",
     [] (RawClient &c) {
       VornCameraRequest request = request_of (0, 48, 30);
       c.send_request (request);
     },
     "picture of 0x48 pixels"},
    {"asks beyond the sensor's right edge",
     [] (RawClient &c) {
       VornCameraRequest request = request_of (64, 48, 30);
       request.left = 1;
       c.send_request (request);
     },
     "the rectangle 640x480 at 1,0 is not on the sensor of 640x480 pixels"},
    {"asks beyond the sensor's bottom edge",
     [] (RawClient &c) {
       VornCameraRequest request = request_of (64, 48, 30);
       request.top = 400;
       request.rect_height = 81;
       c.send_request (request);
     },
     "the rectangle 640x81 at 0,400 is not on the sensor of 640x480 pixels"},
    {"asks for more memory than a stream may take",
     [] (RawClient &c) { c.send_request (request_of (10'000, 10'000, 30)); },
     "4 frames of 300000000 bytes are more than a stream may take"},
};

TEST (CameraServer, RefusesBadClientsInWordsAndServesTheOthers)
{
  const LogCapture log;
  const ServedCamera served;
  RawClient good (served.path ());
  ASSERT_TRUE (good.start (request_of (64, 48, 100)));
  for (const auto &bad : bad_clients) {
    RawClient client (served.path ());
    ASSERT_TRUE (client.receive ()) << bad.name;
    bad.act (client);
    EXPECT_EQ (client.refusal (), bad.refusal) << bad.name;
    EXPECT_FALSE (client.receive ()) << bad.name << ": the connection is closed";
    EXPECT_TRUE (log.has ("camera-test: client refused: " + bad.refusal, 4));
    const auto frame = good.frame ();
    ASSERT_TRUE (frame) << bad.name;
    good.give_back (frame->buffer);
  }
  EXPECT_EQ (served.server ().statistics ().refused, bad_clients.size ());
}

TEST (CameraServer, RefusesMisdeedsWhileStreaming)
{
  const ServedCamera served;
  const auto next_refusal = [] (RawClient &client) -> std::string {
    while (const auto message = client.receive ())
      if (message->header.type == VORN_CAMERA_REFUSAL)
        return message->refusal.text;
    return "";
  };
  {
    RawClient client (served.path ());
    ASSERT_TRUE (client.start (request_of (64, 48, 100)));
    client.send_request (request_of (64, 48, 100));
    EXPECT_EQ (next_refusal (client), "a connection carries one stream");
  }
  {
    RawClient client (served.path ());
    ASSERT_TRUE (client.start (request_of (64, 48, 30)));
    const auto frame = client.frame ();
    ASSERT_TRUE (frame);
    client.give_back (frame->buffer);
    client.give_back (frame->buffer);
    EXPECT_EQ (next_refusal (client),
               "buffer " + std::to_string (frame->buffer) + " was not the client's to return");
  }
}

TEST (CameraServer, LimitsItsClients)
{
  const ServedCamera served (small_camera (), 2);
  RawClient first (served.path ());
  auto second = std::make_unique<RawClient> (served.path ());
  ASSERT_TRUE (first.receive ());
  ASSERT_TRUE (second->receive ());
  RawClient third (served.path ());
  EXPECT_EQ (third.refusal (), "the camera has too many clients");
  second.reset ();
  // The place is free once the camera has noticed.
  for (int i = 0; i < 1000; i++) {
    RawClient next (served.path ());
    const auto message = next.receive ();
    ASSERT_TRUE (message);
    if (message->header.type == VORN_CAMERA_SENSOR)
      return;
    usleep (10'000);
  }
  FAIL () << "the place was never free";
}

TEST (CameraServer, ClientsThatFloodOrVanishLeaveNothingBehind)
{
  const ServedCamera served;
  for (int i = 0; i < 30; i++) {
    RawClient client (served.path ());
    if (i % 3 == 0)
      continue;
    if (i % 3 == 1) {
      ASSERT_TRUE (client.start (request_of (64, 48, 1000)));
      continue;
    }
    ASSERT_TRUE (client.receive ());
    VornCameraMessage message;
    vorn_camera_message_init (&message, VORN_CAMERA_STYLE);
    for (int k = 0; k < 2000; k++)
      client.send (message);
  }
  RawClient client (served.path ());
  ASSERT_TRUE (client.start (request_of (64, 48, 100)));
  EXPECT_TRUE (client.frame ());
}

TEST (CameraServer, StoppingEndsAllConnections)
{
  ServedCamera served;
  RawClient idle (served.path ());
  RawClient streaming (served.path ());
  ASSERT_TRUE (idle.receive ());
  ASSERT_TRUE (streaming.start (request_of (64, 48, 100)));
  const auto frame = streaming.frame ();
  ASSERT_TRUE (frame);
  served.stop ();
  EXPECT_FALSE (idle.receive ());
  while (streaming.frame ())
    continue;
  // What was received stays.
  EXPECT_NE (streaming.data (frame->buffer)[192 * 48 - 3], 0);
}

TEST (CameraServer, CountsWhatItDoes)
{
  const ServedCamera served;
  RawClient client (served.path ());
  ASSERT_TRUE (client.start (request_of (64, 48, 100)));
  for (int i = 0; i < 10; i++) {
    const auto frame = client.frame ();
    ASSERT_TRUE (frame);
    client.give_back (frame->buffer);
  }
  const auto statistics = served.server ().statistics ();
  EXPECT_EQ (statistics.connections, 1u);
  EXPECT_GE (statistics.frames, 9u) << "the last may not have been counted yet";
  EXPECT_GT (statistics.render_ms, 0);
}

} // namespace
