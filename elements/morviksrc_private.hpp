// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What the source's two halves share: the GStreamer class and the upkeep of the camera's stream.
#ifndef ELEMENTS_MORVIKSRC_PRIVATE_HPP
#define ELEMENTS_MORVIKSRC_PRIVATE_HPP

#include <atomic>
#include <mutex>
#include <optional>
#include <string>

#include <gst/base/gstpushsrc.h>
#include <gst/video/video.h>

#include <vorn/gst_raii.hpp>

#include "camera_client.hpp"
#include "morviksrc.hpp"

namespace elements
{

/** A rectangle of the sensor, sensor pixels; a width or height of 0 reaches to the sensor's edge.
 */
struct SensorRect {
  uint32_t left = 0;
  uint32_t top = 0;
  uint32_t width = 0;
  uint32_t height = 0;
};

struct MorvikSettings {
  std::string source = "unix:/simulator/hor_camera.sock";
  SensorRect rect;
  uint32_t style = 0;
  uint32_t reconnect_timeout_ms = 5000;
};

/** What the class keeps in C++ terms; made and destroyed with the instance. */
struct MorvikState {
  /** Guards settings and last_frame. Nothing is called while it is held. */
  std::mutex mutex;
  MorvikSettings settings;
  vorn::Ref<GstBuffer> last_frame;

  /** What latency queries answer, ns; 0: not known yet. */
  std::atomic<uint64_t> latency_ns = 0;
  std::atomic<uint64_t> period_ns = 0;
  std::atomic<bool> style_changed = false;
  Interrupt interrupt;

  // From here on the streaming thread's own, and the state change's while that does not run.
  CameraClient client{interrupt};
  std::string path;
  /** The camera's sensor, once known. */
  std::optional<VornCameraSensor> sensor;
  GstVideoInfo info = {};
  bool have_caps = false;
  /** The client's stream was asked for with info and rect. */
  bool streaming = false;
  SensorRect rect;
  VornCameraStream geometry = {};
  double horizontal_fov_rad = 0;
  double vertical_fov_rad = 0;
  /** When frames stopped to come; nothing while they come. */
  std::optional<int64_t> lost_since_ns;
  int64_t retry_pause_ns = 0;
  GstClockTime last_pts = GST_CLOCK_TIME_NONE;
  uint64_t next_sequence = 0;
  /** Frames in a row that came later than promised, and how late the latest of them was. */
  unsigned late_frames = 0;
  uint64_t latest_ns = 0;
};

} // namespace elements

struct _KavrelMorvikSrc {
  GstPushSrc parent_instance;
  elements::MorvikState *state;
};

G_DECLARE_FINAL_TYPE (KavrelMorvikSrc, kavrel_morvik_src, KAVREL, MORVIK_SRC, GstPushSrc)

GST_DEBUG_CATEGORY_EXTERN (kavrel_morvik_src_debug);

namespace elements
{

/** Buffers of a stream, and how many of them the camera keeps when all others wait downstream. */
constexpr unsigned stream_buffers = 6;
constexpr unsigned spare_buffers = 2;

/** The rectangle with its open sides closed by the sensor's. */
SensorRect effective_rect (const SensorRect &rect, const VornCameraSensor &sensor);

/** The least time from a frame's capture to its push that can be kept, ns. */
uint64_t expected_latency_ns (const SensorRect &rect, const VornCameraSensor &sensor);

/** One quick attempt to learn what the camera is, before the streaming thread insists. */
void try_camera (KavrelMorvikSrc *src);

/** The next frame, whatever it takes; what GstPushSrcClass::create returns. */
GstFlowReturn create_frame (KavrelMorvikSrc *src, GstBuffer **buffer);

/** Forgets the connection and everything that was learnt from it. */
void forget_camera (KavrelMorvikSrc *src);

/** Emits "new-frame". */
void announce_frame (KavrelMorvikSrc *src, uint64_t capture_ns);

} // namespace elements

#endif
