// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// One client's connection to a camera.
#ifndef SIMULATOR_CAMERA_SESSION_HPP
#define SIMULATOR_CAMERA_SESSION_HPP

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <vorn/camera_protocol.h>
#include <vorn/raii.hpp>

#include "camera_frames.hpp"
#include "camera_model.hpp"
#include "camera_pose.hpp"
#include "renderer.hpp"
#include "world.hpp"

namespace sim
{

/** A camera: what it is, where it is, what there is to see. */
struct CameraDescription {
  std::string name = "camera";
  CameraSensor sensor;
  CameraMotion motion;
  std::shared_ptr<const World> world;
  int sub_exposures = 1; // for motion blur, see Shot
  int64_t epoch_ns = 0;  // CLOCK_MONOTONIC; where the frames of every rate begin to count
};

/** Counted by all sessions of a camera. */
struct CameraCounters {
  std::atomic<uint64_t> connections = 0;
  std::atomic<uint64_t> refused = 0;
  std::atomic<uint64_t> frames = 0;
  std::atomic<uint64_t> lost_frames = 0;
  std::atomic<uint64_t> render_ns = 0;
};

/** The frames of one rate, counted from the epoch, without rounding that adds up. */
class FrameGrid
{
public:
  FrameGrid () = default;
  FrameGrid (int64_t epoch_ns, uint32_t rate_numerator, uint32_t rate_denominator)
      : epoch_ns_ (epoch_ns), numerator_ (rate_numerator), denominator_ (rate_denominator)
  {
  }
  /** When frame n begins. */
  int64_t time_ns (int64_t n) const;
  /** The last frame that begins at or before a time. */
  int64_t frame_at (int64_t time_ns) const;
  /** From one frame to the next, rounded down. */
  int64_t period_ns () const { return int64_t{1'000'000'000} * denominator_ / numerator_; }

private:
  int64_t epoch_ns_ = 0;
  int64_t numerator_ = 1;
  int64_t denominator_ = 1;
};

/** Serves one client until it goes, does wrong, or the camera stops. Bound to one thread. */
class CameraSession
{
public:
  /** stop_fd becomes readable when the camera stops. The references outlive the session. */
  CameraSession (vorn::Fd socket, const CameraDescription &camera, int stop_fd,
                 CameraCounters *counters);
  void run ();

private:
  enum class Wake { time, closed };

  Wake serve_until (int64_t time_ns);
  bool handle_messages ();
  bool handle (const VornCameraMessage &message);
  bool begin_stream (const VornCameraRequest &request);
  bool return_buffer (uint32_t buffer);
  bool refuse (int code, const std::string &reason);
  bool send_sensor ();
  Wake stream ();
  Wake next_frame ();
  void lose (int64_t count);
  Shot shot_at (int64_t sensor_time_ns) const;

  vorn::Fd socket_;
  const CameraDescription &camera_;
  int stop_fd_;
  CameraCounters *counters_;
  Renderer renderer_;
  FramePool pool_;
  bool streaming_ = false;
  VornCameraRequest request_ = {};
  FrameGrid grid_;
  Shot shot_ = {};
  int64_t top_delay_ns_ = 0; // from the sensor's top edge to the rectangle's
  uint32_t style_ = 0;
  int64_t next_ = 0;
  uint64_t lost_ = 0;
};

} // namespace sim

#endif
