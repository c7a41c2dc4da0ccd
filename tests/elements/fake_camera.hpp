// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A camera whose every message the test decides: what a client must bear, it is told here.
#ifndef TESTS_FAKE_CAMERA_HPP
#define TESTS_FAKE_CAMERA_HPP

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <vorn/camera_protocol.h>
#include <vorn/raii.hpp>

/** A folder of its own under /tmp for sockets, removed with what is in it. */
class SocketFolder
{
public:
  SocketFolder ();
  ~SocketFolder ();
  std::string path (const std::string &name) const { return folder_ + "/" + name; }

private:
  std::string folder_;
};

constexpr VornCameraSensor fake_sensor ()
{
  return {{}, 64, 48, 30, 1, 1.0, 2'000'000, 5'000'000};
}

/** Memory of this size with these seals (0: none). */
vorn::Fd make_frame_memory (uint64_t size, unsigned seals);

/** The camera's end of one connection. Calls fail silently once the client has gone. */
class FakeConnection
{
public:
  explicit FakeConnection (vorn::Fd socket, const std::atomic<bool> &stop)
      : socket_ (std::move (socket)), stop_ (stop)
  {
  }

  int fd () const { return socket_.get (); }
  bool stopping () const { return stop_; }
  /** The next message; nothing when the client has gone or the camera stops. */
  std::optional<VornCameraMessage> receive ();
  /** As receive, but nothing as well when none is there. */
  std::optional<VornCameraMessage> poll ();
  void send (const VornCameraMessage &message, const std::vector<int> &fds = {});
  void send_bytes (const std::string &bytes);
  void send_sensor (const VornCameraSensor &sensor = fake_sensor ());
  /** Receives the request. */
  bool take_request ();
  const VornCameraRequest &request () const { return request_; }
  /** A stream message that fits the request. */
  VornCameraMessage stream_message (unsigned buffers) const;
  /** Sensor, request, stream: up to where frames begin. False when the client went. */
  bool begin (unsigned buffers = 4);
  /** Fills a buffer with a value and sends it as a frame that was captured age_ns ago. */
  void send_frame (uint32_t buffer, uint64_t sequence, int64_t age_ns = 30'000'000);
  void send_frame_at (uint32_t buffer, uint64_t sequence, uint64_t capture_ns);
  /** Frames at the requested rate, in free buffers, until the client goes or the camera stops. */
  void serve (unsigned most = UINT32_MAX);
  /** Waits until the client goes or the camera stops. */
  void wait_for_end ();
  std::vector<vorn::Fd> &memories () { return memories_; }

private:
  vorn::Fd socket_;
  const std::atomic<bool> &stop_;
  VornCameraRequest request_ = {};
  std::vector<vorn::Fd> memories_;
  uint64_t frame_size_ = 0;
};

/** Listens on a path and plays a script for each connection, on a thread of its own. */
class FakeCamera
{
public:
  using Script = std::function<void (FakeConnection &, int connection)>;
  FakeCamera (const std::string &path, Script script);
  ~FakeCamera ();
  int connections () const { return connections_; }

private:
  void run ();

  std::string path_;
  Script script_;
  vorn::Fd listener_;
  std::atomic<bool> stop_ = false;
  std::atomic<int> connections_ = 0;
  std::thread thread_;
};

/** What an orderly camera does with a connection. */
void serve_frames (FakeConnection &connection, int);

#endif
