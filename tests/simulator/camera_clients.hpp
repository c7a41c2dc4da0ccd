// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A small camera to serve, and clients of it: orderly ones and others.
#ifndef TESTS_CAMERA_CLIENTS_HPP
#define TESTS_CAMERA_CLIENTS_HPP

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <vorn/camera_protocol.h>
#include <vorn/raii.hpp>

#include "camera_server.hpp"

int64_t now_ns ();

/** A world that costs little to make and to draw. */
std::shared_ptr<const sim::World> plain_world ();

/** 640x480 pixels, 30 per second, 2 ms of exposure, 8 ms of readout, at a place where it stands. */
sim::CameraDescription small_camera ();

/** A request of the whole sensor at a size and rate. */
VornCameraRequest request_of (uint32_t width, uint32_t height, uint32_t rate_numerator,
                              uint32_t rate_denominator = 1);

/** A server in a folder of its own. */
class ServedCamera
{
public:
  explicit ServedCamera (const sim::CameraDescription &camera = small_camera (),
                         unsigned most_clients = 16);
  ~ServedCamera ();
  sim::CameraServer &server () const { return *server_; }
  std::string path () const { return folder_ + "/c"; }
  void stop () { server_.reset (); }

private:
  std::string folder_;
  std::unique_ptr<sim::CameraServer> server_;
};

/** The plain client's end, one call a message. Waits are bounded; nothing means the end. */
class RawClient
{
public:
  explicit RawClient (const std::string &path);
  explicit RawClient (vorn::Fd socket) : socket_ (std::move (socket)) {}
  ~RawClient ();
  RawClient (RawClient &&) = default;

  int fd () const { return socket_.get (); }
  std::optional<VornCameraMessage> receive (int timeout_ms = 20'000);
  void send (VornCameraMessage message, const std::vector<int> &fds = {});
  void send_request (const VornCameraRequest &request);
  void send_bytes (const std::string &bytes);
  /** Sensor, request, stream: true when the stream has begun and is mapped. */
  bool start (const VornCameraRequest &request);
  /** The next frame; nothing when another message comes or none. */
  std::optional<VornCameraFrame> frame (int timeout_ms = 20'000);
  void give_back (uint32_t buffer);
  /** The text of the refusal that comes next, "" when something else does. */
  std::string refusal ();

  const VornCameraSensor &sensor () const { return sensor_; }
  const VornCameraStream &stream () const { return stream_; }
  const uint8_t *data (uint32_t buffer) const { return mappings_.at (buffer); }
  const std::vector<vorn::Fd> &memories () const { return memories_; }

private:
  vorn::Fd socket_;
  VornCameraSensor sensor_ = {};
  VornCameraStream stream_ = {};
  std::vector<vorn::Fd> memories_;
  std::vector<uint8_t *> mappings_;
};

#endif
