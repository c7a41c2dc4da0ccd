// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "camera_clients.hpp"

#include <cerrno>
#include <ctime>
#include <filesystem>

#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

int64_t now_ns ()
{
  timespec now;
  clock_gettime (CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

std::shared_ptr<const sim::World> plain_world ()
{
  static const auto world = [] {
    auto plain = std::make_shared<sim::World> ();
    plain->land =
        std::make_shared<sim::TileTexture> (std::vector<uint8_t>{40, 90, 140, 190}, 1, 4.0);
    plain->cover = std::make_shared<sim::TileTexture> (std::vector<uint8_t> (4, 128), 1, 1.0);
    for (size_t i = 0; i < plain->palette.size (); i++)
      plain->palette[i] = {static_cast<uint8_t> (i), static_cast<uint8_t> (i), 0};
    return plain;
  }();
  return world;
}

sim::CameraDescription small_camera ()
{
  sim::CameraDescription camera;
  camera.name = "camera-test";
  camera.sensor = {640, 480, 1.0, 30, 1, 2'000'000, 8'000'000};
  camera.motion = [] (int64_t) { return sim::CameraPose{{0, 0, -10}, {0, 0, 0, 1}}; };
  camera.world = plain_world ();
  camera.epoch_ns = now_ns ();
  return camera;
}

VornCameraRequest request_of (uint32_t width, uint32_t height, uint32_t rate_numerator,
                              uint32_t rate_denominator)
{
  VornCameraRequest request = {};
  request.rect_width = 640;
  request.rect_height = 480;
  request.width = width;
  request.height = height;
  request.rate_numerator = rate_numerator;
  request.rate_denominator = rate_denominator;
  request.buffers = 4;
  return request;
}

ServedCamera::ServedCamera (const sim::CameraDescription &camera, unsigned most_clients)
{
  char name[] = "/tmp/vorn-camera-XXXXXX";
  EXPECT_NE (mkdtemp (name), nullptr);
  folder_ = name;
  sim::CameraServerOptions options;
  options.path = path ();
  options.camera = camera;
  options.most_clients = most_clients;
  std::string error;
  server_ = sim::CameraServer::start (options, &error);
  EXPECT_TRUE (server_) << error;
}

ServedCamera::~ServedCamera ()
{
  stop ();
  std::filesystem::remove_all (folder_);
}

RawClient::RawClient (const std::string &path)
    : socket_ (socket (AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0))
{
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy (address.sun_path, sizeof address.sun_path - 1);
  EXPECT_EQ (connect (fd (), reinterpret_cast<sockaddr *> (&address), sizeof address), 0);
}

RawClient::~RawClient ()
{
  for (uint8_t *mapping : mappings_)
    munmap (mapping, stream_.frame_size);
}

std::optional<VornCameraMessage> RawClient::receive (int timeout_ms)
{
  pollfd polled = {fd (), POLLIN, 0};
  if (poll (&polled, 1, timeout_ms) != 1)
    return std::nullopt;
  VornCameraMessage message;
  int fds[VORN_CAMERA_MAX_BUFFERS];
  unsigned n_fds = 0;
  VornCameraReason reason;
  if (vorn_camera_receive (fd (), &message, fds, &n_fds, &reason) != 1)
    return std::nullopt;
  memories_.reserve (n_fds);
  for (unsigned i = 0; i < n_fds; i++)
    memories_.emplace_back (fds[i]);
  return message;
}

void RawClient::send (VornCameraMessage message, const std::vector<int> &fds)
{
  vorn_camera_send (fd (), &message, fds.data (), static_cast<unsigned> (fds.size ()));
}

void RawClient::send_request (const VornCameraRequest &request)
{
  VornCameraMessage message;
  vorn_camera_message_init (&message, VORN_CAMERA_REQUEST);
  const VornCameraHeader header = message.header;
  message.request = request;
  message.request.header = header;
  send (message);
}

void RawClient::send_bytes (const std::string &bytes)
{
  (void)!::send (fd (), bytes.data (), bytes.size (), MSG_NOSIGNAL);
}

bool RawClient::start (const VornCameraRequest &request)
{
  const auto sensor = receive ();
  if (!sensor || sensor->header.type != VORN_CAMERA_SENSOR)
    return false;
  sensor_ = sensor->sensor;
  send_request (request);
  const auto stream = receive ();
  if (!stream || stream->header.type != VORN_CAMERA_STREAM)
    return false;
  stream_ = stream->stream;
  for (const vorn::Fd &memory : memories_) {
    VornCameraReason reason;
    EXPECT_EQ (vorn_camera_check_memory (memory.get (), stream_.frame_size, &reason), 0);
    void *data = mmap (nullptr, stream_.frame_size, PROT_READ, MAP_SHARED, memory.get (), 0);
    EXPECT_NE (data, MAP_FAILED);
    mappings_.push_back (static_cast<uint8_t *> (data));
  }
  return true;
}

std::optional<VornCameraFrame> RawClient::frame (int timeout_ms)
{
  const auto message = receive (timeout_ms);
  if (!message || message->header.type != VORN_CAMERA_FRAME)
    return std::nullopt;
  return message->frame;
}

void RawClient::give_back (uint32_t buffer)
{
  VornCameraMessage message;
  vorn_camera_message_init (&message, VORN_CAMERA_RETURN);
  message.give_back.buffer = buffer;
  send (message);
}

std::string RawClient::refusal ()
{
  const auto message = receive ();
  if (!message || message->header.type != VORN_CAMERA_REFUSAL)
    return "";
  return message->refusal.text;
}
