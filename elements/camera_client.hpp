// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * The client's end of the camera wire protocol: connects, asks for a stream, maps its buffers and
 * waits for frames. Knows nothing of GStreamer.
 */
#ifndef ELEMENTS_CAMERA_CLIENT_HPP
#define ELEMENTS_CAMERA_CLIENT_HPP

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <vorn/camera_protocol.h>
#include <vorn/raii.hpp>

namespace elements
{

/** CLOCK_MONOTONIC, ns. */
int64_t monotonic_ns ();

/** Ends waits from another thread, until it is cleared. Thread-safe. */
class Interrupt
{
public:
  Interrupt ();
  void raise ();
  void clear ();
  int fd () const { return event_.get (); }

private:
  vorn::Fd event_;
};

enum class CameraOutcome {
  ok,
  timeout,     // the deadline came first
  interrupted, // see Interrupt
  lost,        // no server there, or it has gone; another attempt may succeed
  refused,     // the server refuses, or does not speak this protocol; another attempt is of no use
};

/**
 * The mapped buffers of one stream. Lives as long as any frame of it: a frame stays readable when
 * the server has gone.
 */
class CameraStream
{
public:
  CameraStream () = default;
  CameraStream (const CameraStream &) = delete;
  CameraStream &operator= (const CameraStream &) = delete;
  ~CameraStream ();

  const VornCameraStream &description () const { return description_; }
  const uint8_t *data (uint32_t buffer) const { return mappings_[buffer]; }
  /** How many buffers are ours at the moment. Thread-safe. */
  unsigned held () const { return held_count_.load (std::memory_order_relaxed); }
  /** Gives a buffer that is ours back to the server. Thread-safe. */
  void give_back (uint32_t buffer);

private:
  friend class CameraClient;
  bool take (uint32_t buffer);

  std::shared_ptr<vorn::Fd> socket_;
  VornCameraStream description_ = {};
  std::vector<uint8_t *> mappings_;
  std::array<std::atomic<bool>, VORN_CAMERA_MAX_BUFFERS> held_ = {};
  std::atomic<unsigned> held_count_ = 0;
};

/** A frame that is ours until its buffer is given back. */
struct CameraFrame {
  std::shared_ptr<CameraStream> stream;
  VornCameraFrame info = {};
  const uint8_t *data () const { return stream->data (info.buffer); }
};

/** One connection at a time. Bound to one thread. Deadlines are monotonic_ns () values. */
class CameraClient
{
public:
  explicit CameraClient (const Interrupt &interrupt) : interrupt_ (interrupt) {}
  ~CameraClient () { close (); }
  CameraClient (const CameraClient &) = delete;
  CameraClient &operator= (const CameraClient &) = delete;

  /** Connects to the socket and receives the sensor's description. */
  CameraOutcome connect (const std::string &path, int64_t deadline_ns);
  /** As connect, over a socket that is connected already. */
  CameraOutcome attach (vorn::Fd socket, int64_t deadline_ns);
  bool connected () const { return socket_ != nullptr; }
  const VornCameraSensor &sensor () const { return sensor_; }

  /** Asks for a stream, once on a connection. The request's header is filled in here. */
  CameraOutcome start (const VornCameraRequest &request, int64_t deadline_ns);
  const std::shared_ptr<CameraStream> &stream () const { return stream_; }

  CameraOutcome next_frame (CameraFrame *frame, int64_t deadline_ns);
  void set_style (uint32_t style);

  /** Waits without anything to wait for: timeout or interrupted. */
  CameraOutcome pause (int64_t deadline_ns);

  /** Ends the connection; frames that are still held stay readable. */
  void close ();

  /** Why the last call failed, in words. */
  const std::string &reason () const { return reason_; }

private:
  CameraOutcome wait (int fd, short events, int64_t deadline_ns);
  CameraOutcome receive (VornCameraMessage *message, std::vector<vorn::Fd> *fds,
                         int64_t deadline_ns);
  CameraOutcome map (const VornCameraMessage &message, const VornCameraRequest &request,
                     const std::vector<vorn::Fd> &fds);
  CameraOutcome fail (CameraOutcome outcome, const std::string &reason);
  CameraOutcome lost (const char *what, int error);
  CameraOutcome unexpected (const VornCameraMessage &message);

  const Interrupt &interrupt_;
  std::shared_ptr<vorn::Fd> socket_;
  VornCameraSensor sensor_ = {};
  std::shared_ptr<CameraStream> stream_;
  bool any_frame_ = false;
  uint64_t last_sequence_ = 0;
  uint64_t last_capture_ns_ = 0;
  std::string reason_;
};

} // namespace elements

#endif
