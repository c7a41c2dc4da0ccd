// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "fake_camera.hpp"

#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "camera_client.hpp"

using elements::monotonic_ns;

SocketFolder::SocketFolder ()
{
  char name[] = "/tmp/vorn-camera-XXXXXX";
  EXPECT_NE (mkdtemp (name), nullptr);
  folder_ = name;
}

SocketFolder::~SocketFolder ()
{
  std::filesystem::remove_all (folder_);
}

vorn::Fd make_frame_memory (uint64_t size, unsigned seals)
{
  vorn::Fd fd (memfd_create ("fake-camera", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  EXPECT_EQ (ftruncate (fd.get (), static_cast<off_t> (size)), 0);
  EXPECT_EQ (fcntl (fd.get (), F_ADD_SEALS, seals), 0);
  return fd;
}

std::optional<VornCameraMessage> FakeConnection::poll ()
{
  VornCameraMessage message;
  int fds[VORN_CAMERA_MAX_BUFFERS];
  unsigned n_fds;
  VornCameraReason reason;
  if (vorn_camera_receive (fd (), &message, fds, &n_fds, &reason) != 1)
    return std::nullopt;
  return message;
}

std::optional<VornCameraMessage> FakeConnection::receive ()
{
  while (!stop_) {
    pollfd polled = {fd (), POLLIN, 0};
    if (::poll (&polled, 1, 20) > 0)
      return poll ();
  }
  return std::nullopt;
}

void FakeConnection::send (const VornCameraMessage &message, const std::vector<int> &fds)
{
  vorn_camera_send (fd (), &message, fds.data (), static_cast<unsigned> (fds.size ()));
}

void FakeConnection::send_bytes (const std::string &bytes)
{
  (void)!::send (fd (), bytes.data (), bytes.size (), MSG_NOSIGNAL);
}

void FakeConnection::send_sensor (const VornCameraSensor &sensor)
{
  VornCameraMessage message;
  vorn_camera_message_init (&message, VORN_CAMERA_SENSOR);
  const VornCameraHeader header = message.header;
  message.sensor = sensor;
  message.sensor.header = header;
  send (message);
}

bool FakeConnection::take_request ()
{
  const auto message = receive ();
  if (!message || message->header.type != VORN_CAMERA_REQUEST)
    return false;
  request_ = message->request;
  return true;
}

VornCameraMessage FakeConnection::stream_message (unsigned buffers) const
{
  VornCameraMessage message;
  vorn_camera_message_init (&message, VORN_CAMERA_STREAM);
  message.stream.buffers = buffers;
  message.stream.stride = vorn_camera_stride (request_.width);
  message.stream.frame_size = uint64_t{message.stream.stride} * request_.height;
  message.stream.focal_x = message.stream.focal_y = request_.width;
  message.stream.center_x = request_.width / 2.0;
  message.stream.center_y = request_.height / 2.0;
  message.stream.latency_ns = 22'000'000;
  return message;
}

bool FakeConnection::begin (unsigned buffers)
{
  send_sensor ();
  if (!take_request ())
    return false;
  const VornCameraMessage message = stream_message (buffers);
  frame_size_ = message.stream.frame_size;
  std::vector<int> fds;
  for (unsigned i = 0; i < buffers; i++) {
    memories_.push_back (make_frame_memory (frame_size_, F_SEAL_SHRINK | F_SEAL_GROW));
    fds.push_back (memories_.back ().get ());
  }
  send (message, fds);
  return true;
}

void FakeConnection::send_frame (uint32_t buffer, uint64_t sequence, int64_t age_ns)
{
  send_frame_at (buffer, sequence, static_cast<uint64_t> (monotonic_ns () - age_ns));
}

void FakeConnection::send_frame_at (uint32_t buffer, uint64_t sequence, uint64_t capture_ns)
{
  if (buffer < memories_.size ()) {
    const std::string pixels (frame_size_, static_cast<char> (sequence));
    EXPECT_EQ (pwrite (memories_[buffer].get (), pixels.data (), pixels.size (), 0),
               static_cast<ssize_t> (pixels.size ()));
  }
  VornCameraMessage message;
  vorn_camera_message_init (&message, VORN_CAMERA_FRAME);
  message.frame.buffer = buffer;
  message.frame.sequence = sequence;
  message.frame.capture_ns = capture_ns;
  message.frame.exposure_ns = 2'000'000;
  message.frame.readout_ns = 5'000'000;
  send (message);
}

void FakeConnection::serve (unsigned most)
{
  std::vector<bool> free (memories_.size (), true);
  const int64_t period_ns = 1'000'000'000ll * request_.rate_denominator / request_.rate_numerator;
  int64_t next = monotonic_ns () + period_ns;
  for (uint64_t sequence = 0; sequence < most && !stop_;) {
    pollfd polled = {fd (), POLLIN, 0};
    const int64_t left_ns = next - monotonic_ns ();
    if (left_ns > 0 && ::poll (&polled, 1, static_cast<int> (left_ns / 1'000'000) + 1) > 0) {
      const auto message = poll ();
      if (!message)
        return;
      if (message->header.type == VORN_CAMERA_RETURN)
        free.at (message->give_back.buffer) = true;
      continue;
    }
    if (left_ns > 0)
      continue;
    for (uint32_t buffer = 0; buffer < free.size (); buffer++) {
      if (free[buffer]) {
        free[buffer] = false;
        send_frame_at (buffer, sequence, static_cast<uint64_t> (next - 22'000'000));
        break;
      }
    }
    sequence++;
    next += period_ns;
  }
}

void FakeConnection::wait_for_end ()
{
  while (receive ())
    continue;
}

FakeCamera::FakeCamera (const std::string &path, Script script)
    : path_ (path), script_ (std::move (script)),
      listener_ (socket (AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
{
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy (address.sun_path, sizeof address.sun_path - 1);
  unlink (path.c_str ());
  EXPECT_EQ (bind (listener_.get (), reinterpret_cast<sockaddr *> (&address), sizeof address), 0);
  EXPECT_EQ (listen (listener_.get (), 8), 0);
  thread_ = std::thread ([this] { run (); });
}

FakeCamera::~FakeCamera ()
{
  stop_ = true;
  thread_.join ();
  unlink (path_.c_str ());
}

void FakeCamera::run ()
{
  std::vector<std::thread> threads;
  while (!stop_) {
    pollfd polled = {listener_.get (), POLLIN, 0};
    if (::poll (&polled, 1, 20) <= 0)
      continue;
    vorn::Fd socket (accept4 (listener_.get (), nullptr, nullptr, SOCK_CLOEXEC));
    if (!socket)
      continue;
    threads.emplace_back ([this, index = connections_++, socket = std::move (socket)] () mutable {
      FakeConnection connection (std::move (socket), stop_);
      script_ (connection, index);
    });
  }
  for (std::thread &thread : threads)
    thread.join ();
}

void serve_frames (FakeConnection &connection, int)
{
  if (connection.begin (6))
    connection.serve ();
}
