// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The source's stream: found, kept up, found again; its frames made into buffers.
#include "morviksrc_private.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <utility>

#include <vorn/frame_meta.h>
#include <vorn/log.h>

VORN_LOG_TAG ("kavrel_morviksrc");
#define GST_CAT_DEFAULT kavrel_morvik_src_debug

namespace elements
{

namespace
{

constexpr int64_t ms = 1'000'000;

/** How long one attempt may wait for an answer of a camera that has accepted the connection. */
constexpr int64_t answer_limit_ns = 1000 * ms;
/** The first attempt, during the state change. */
constexpr int64_t first_attempt_ns = 100 * ms;
/** Pauses between attempts: the first, doubled each time up to the last. */
constexpr int64_t first_pause_ns = 20 * ms;
constexpr int64_t longest_pause_ns = 500 * ms;
/** A camera is silent when no frame has come for this long or for four frames, what is longer. */
constexpr int64_t silence_ns = 1000 * ms;
/** What the camera's timers, its rendering and the socket may add to its own latency. */
constexpr uint64_t transport_allowance_ns = 5 * ms;
/** So many frames in a row later than promised are no accident. */
constexpr unsigned late_frames_limit = 8;

uint64_t period_ns_of (const GstVideoInfo &info)
{
  return gst_util_uint64_scale (GST_SECOND, static_cast<guint64> (info.fps_d),
                                static_cast<guint64> (info.fps_n));
}

MorvikSettings settings_of (MorvikState &state)
{
  const std::scoped_lock lock (state.mutex);
  return state.settings;
}

void set_latency (KavrelMorvikSrc *src, uint64_t latency_ns)
{
  MorvikState &state = *src->state;
  if (state.latency_ns.exchange (latency_ns) == latency_ns)
    return;
  GST_INFO_OBJECT (src, "latency is %" GST_TIME_FORMAT, GST_TIME_ARGS (latency_ns));
  gst_element_post_message (GST_ELEMENT (src), gst_message_new_latency (GST_OBJECT (src)));
}

/** What was learnt from a connection's first message. */
void note_sensor (KavrelMorvikSrc *src)
{
  MorvikState &state = *src->state;
  const VornCameraSensor &sensor = state.client.sensor ();
  state.sensor = sensor;
  GST_INFO_OBJECT (src, "sensor of %ux%u pixels at %u/%u, %.2f degrees wide", sensor.width,
                   sensor.height, sensor.rate_numerator, sensor.rate_denominator,
                   sensor.horizontal_fov_rad * 180 / G_PI);
  if (!state.have_caps)
    state.period_ns =
        gst_util_uint64_scale (GST_SECOND, sensor.rate_denominator, sensor.rate_numerator);
  set_latency (src, expected_latency_ns (effective_rect (state.rect, sensor), sensor));
}

CameraOutcome connect_camera (KavrelMorvikSrc *src, int64_t deadline_ns)
{
  MorvikState &state = *src->state;
  state.streaming = false;
  const CameraOutcome outcome = state.client.connect (state.path, deadline_ns);
  if (outcome == CameraOutcome::ok)
    note_sensor (src);
  return outcome;
}

/** The angle of a side whose middle lies on the axis. */
double angle_of (uint32_t pixels, double focal_pixels)
{
  return 2 * std::atan2 (pixels / 2.0, focal_pixels);
}

CameraOutcome start_stream (KavrelMorvikSrc *src, int64_t deadline_ns)
{
  MorvikState &state = *src->state;
  const SensorRect rect = effective_rect (state.rect, *state.sensor);
  VornCameraRequest request = {};
  request.left = rect.left;
  request.top = rect.top;
  request.rect_width = rect.width;
  request.rect_height = rect.height;
  request.width = static_cast<uint32_t> (state.info.width);
  request.height = static_cast<uint32_t> (state.info.height);
  request.rate_numerator = static_cast<uint32_t> (state.info.fps_n);
  request.rate_denominator = static_cast<uint32_t> (state.info.fps_d);
  request.buffers = stream_buffers;
  state.style_changed = false;
  request.style = settings_of (state).style;
  const CameraOutcome outcome = state.client.start (request, deadline_ns);
  if (outcome != CameraOutcome::ok)
    return outcome;

  state.streaming = true;
  state.next_sequence = 0;
  state.late_frames = 0;
  state.geometry = state.client.stream ()->description ();
  state.horizontal_fov_rad = angle_of (request.width, state.geometry.focal_x);
  state.vertical_fov_rad = angle_of (request.height, state.geometry.focal_y);
  state.period_ns = period_ns_of (state.info);
  set_latency (src, state.geometry.latency_ns + transport_allowance_ns);
  GST_INFO_OBJECT (src, "rectangle %ux%u at %u,%u as %ux%u pixels, %u/%u frames per second",
                   rect.width, rect.height, rect.left, rect.top, request.width, request.height,
                   request.rate_numerator, request.rate_denominator);
  return CameraOutcome::ok;
}

/** Until when an attempt or a wait may last that began now. */
int64_t deadline_of (KavrelMorvikSrc *src, int64_t limit_ns)
{
  MorvikState &state = *src->state;
  const int64_t now = monotonic_ns ();
  if (!state.lost_since_ns)
    return now + limit_ns;
  const int64_t end = *state.lost_since_ns + int64_t{settings_of (state).reconnect_timeout_ms} * ms;
  // Even the last attempt gets a moment: it may be the one that succeeds.
  return std::max (now + first_attempt_ns, std::min (now + limit_ns, end));
}

/** Decides what a failure means: GST_FLOW_OK when another attempt is to be made, now. */
GstFlowReturn try_again (KavrelMorvikSrc *src)
{
  MorvikState &state = *src->state;
  const std::string reason = state.client.reason ();
  state.client.close ();
  state.streaming = false;
  const int64_t now = monotonic_ns ();
  const uint32_t timeout_ms = settings_of (state).reconnect_timeout_ms;
  if (!state.lost_since_ns) {
    state.lost_since_ns = now;
    state.retry_pause_ns = first_pause_ns;
    if (timeout_ms > 0)
      VORN_LOG_WARNING ("no frames from camera '%s': %s; trying again for %u ms",
                        state.path.c_str (), reason.c_str (), timeout_ms);
  }
  const int64_t end = *state.lost_since_ns + int64_t{timeout_ms} * ms;
  if (now >= end) {
    VORN_LOG_ERROR ("no frames from camera '%s' within %u ms: %s", state.path.c_str (), timeout_ms,
                    reason.c_str ());
    GST_ELEMENT_ERROR (
        src, RESOURCE, OPEN_READ,
        ("no frames from camera \"%s\" within %u ms", state.path.c_str (), timeout_ms),
        ("%s", reason.c_str ()));
    return GST_FLOW_ERROR;
  }
  GST_DEBUG_OBJECT (src, "%s; next attempt in %" G_GINT64_FORMAT " ms", reason.c_str (),
                    state.retry_pause_ns / ms);
  const int64_t resume = std::min (end, now + state.retry_pause_ns);
  state.retry_pause_ns = std::min (2 * state.retry_pause_ns, longest_pause_ns);
  return state.client.pause (resume) == CameraOutcome::interrupted ? GST_FLOW_FLUSHING
                                                                   : GST_FLOW_OK;
}

void note_frame (KavrelMorvikSrc *src)
{
  MorvikState &state = *src->state;
  if (!state.lost_since_ns)
    return;
  VORN_LOG_INFO ("frames from camera '%s' after %" G_GINT64_FORMAT " ms", state.path.c_str (),
                 (monotonic_ns () - *state.lost_since_ns) / ms);
  state.lost_since_ns.reset ();
}

void refuse (KavrelMorvikSrc *src)
{
  MorvikState &state = *src->state;
  const std::string reason = state.client.reason ();
  state.client.close ();
  state.streaming = false;
  VORN_LOG_ERROR ("camera '%s' cannot be used: %s", state.path.c_str (), reason.c_str ());
  GST_ELEMENT_ERROR (src, RESOURCE, READ, ("camera \"%s\" cannot be used", state.path.c_str ()),
                     ("%s", reason.c_str ()));
}

/**
 * The capture time as running time on the element's clock, or none when it lies before the
 * element's start.
 */
std::optional<GstClockTime> running_time_of (KavrelMorvikSrc *src, uint64_t capture_ns)
{
  const auto clock = vorn::adopt (gst_element_get_clock (GST_ELEMENT (src)));
  if (!clock)
    return std::nullopt;
  GstClockTime captured;
  gint type = -1;
  if (G_OBJECT_TYPE (clock.get ()) == GST_TYPE_SYSTEM_CLOCK)
    g_object_get (clock.get (), "clock-type", &type, nullptr);
  if (type == GST_CLOCK_TYPE_MONOTONIC) {
    // The camera's own clock.
    GstClockTime internal, external, numerator, denominator;
    gst_clock_get_calibration (clock.get (), &internal, &external, &numerator, &denominator);
    captured = gst_clock_adjust_with_calibration (clock.get (), capture_ns, internal, external,
                                                  numerator, denominator);
  } else {
    const GstClockTime time = gst_clock_get_time (clock.get ());
    const auto age = static_cast<GstClockTime> (
        std::max<int64_t> (0, monotonic_ns () - static_cast<int64_t> (capture_ns)));
    captured = time > age ? time - age : 0;
  }
  const GstClockTime base = gst_element_get_base_time (GST_ELEMENT (src));
  if (captured < base)
    return std::nullopt;
  return captured - base;
}

/** Gives the buffer back to the camera when the last reference to its memory goes. */
struct Loan {
  std::shared_ptr<CameraStream> stream;
  uint32_t buffer;

  static void end (gpointer loan)
  {
    const std::unique_ptr<Loan> owned (static_cast<Loan *> (loan));
    owned->stream->give_back (owned->buffer);
  }
};

vorn::Ref<GstBuffer> wrap (KavrelMorvikSrc *src, const CameraFrame &frame)
{
  const gsize size = frame.stream->description ().frame_size;
  auto *data = const_cast<uint8_t *> (frame.data ());
  if (frame.stream->held () + spare_buffers > frame.stream->description ().buffers) {
    // The camera would run dry: this frame is copied, so that frames go on for a pipeline that
    // holds many.
    GST_DEBUG_OBJECT (src, "%u buffers are held downstream, copying", frame.stream->held () - 1);
    auto copy = vorn::adopt (gst_buffer_new_memdup (data, size));
    frame.stream->give_back (frame.info.buffer);
    return copy;
  }
  auto buffer = vorn::adopt (gst_buffer_new ());
  gst_buffer_append_memory (
      buffer.get (), gst_memory_new_wrapped (GST_MEMORY_FLAG_READONLY, data, size, 0, size,
                                             new Loan{frame.stream, frame.info.buffer}, Loan::end));
  return buffer;
}

void describe (const MorvikState &state, const VornCameraFrame &info, GstBuffer *buffer)
{
  const SensorRect rect = effective_rect (state.rect, *state.sensor);
  const VornCameraStream &geometry = state.geometry;
  gst_structure_set (vorn_frame_meta_add (buffer)->structure, VORN_FRAME_META_CAPTURE_TIMESTAMP,
                     GST_TYPE_CLOCK_TIME, GstClockTime{info.capture_ns}, "exposure-ns",
                     G_TYPE_UINT64, guint64{info.exposure_ns}, "readout-ns", G_TYPE_UINT64,
                     guint64{info.readout_ns}, "hfov", G_TYPE_DOUBLE, state.horizontal_fov_rad,
                     "vfov", G_TYPE_DOUBLE, state.vertical_fov_rad, "focal-x", G_TYPE_DOUBLE,
                     geometry.focal_x, "focal-y", G_TYPE_DOUBLE, geometry.focal_y, "center-x",
                     G_TYPE_DOUBLE, geometry.center_x, "center-y", G_TYPE_DOUBLE, geometry.center_y,
                     "sensor-rect-left", G_TYPE_UINT, rect.left, "sensor-rect-top", G_TYPE_UINT,
                     rect.top, "sensor-rect-width", G_TYPE_UINT, rect.width, "sensor-rect-height",
                     G_TYPE_UINT, rect.height, nullptr);
}

/** Notices when frames keep coming later than the latency that was promised. */
void watch_latency (KavrelMorvikSrc *src, uint64_t capture_ns)
{
  MorvikState &state = *src->state;
  const auto delay = static_cast<uint64_t> (
      std::max<int64_t> (0, monotonic_ns () - static_cast<int64_t> (capture_ns)));
  if (delay <= state.latency_ns) {
    state.late_frames = 0;
    state.latest_ns = 0;
    return;
  }
  state.latest_ns = std::max (state.latest_ns, delay);
  if (++state.late_frames < late_frames_limit)
    return;
  state.late_frames = 0;
  set_latency (src, std::exchange (state.latest_ns, 0) + transport_allowance_ns);
}

/** The frame as a buffer; nothing when it does not belong to this run of the element. */
vorn::Ref<GstBuffer> take_frame (KavrelMorvikSrc *src, const CameraFrame &frame)
{
  MorvikState &state = *src->state;
  const VornCameraFrame &info = frame.info;
  const auto pts = running_time_of (src, info.capture_ns);
  if (!pts || (GST_CLOCK_TIME_IS_VALID (state.last_pts) && *pts <= state.last_pts)) {
    GST_DEBUG_OBJECT (src, "frame %" G_GUINT64_FORMAT " was captured before the start",
                      info.sequence);
    frame.stream->give_back (info.buffer);
    return {};
  }
  watch_latency (src, info.capture_ns);
  vorn::Ref<GstBuffer> buffer = wrap (src, frame);
  GST_BUFFER_PTS (buffer.get ()) = *pts;
  GST_BUFFER_DURATION (buffer.get ()) = state.period_ns;
  GST_BUFFER_OFFSET (buffer.get ()) = info.sequence;
  GST_BUFFER_OFFSET_END (buffer.get ()) = info.sequence + 1;
  if (info.sequence != state.next_sequence) {
    GST_BUFFER_FLAG_SET (buffer.get (), GST_BUFFER_FLAG_DISCONT);
    GST_DEBUG_OBJECT (src, "frame %" G_GUINT64_FORMAT ", the camera has lost %" G_GUINT64_FORMAT,
                      info.sequence, info.lost);
  }
  state.next_sequence = info.sequence + 1;
  state.last_pts = *pts;
  describe (state, info, buffer.get ());
  return buffer;
}

void keep_last (MorvikState &state, vorn::Ref<GstBuffer> frame)
{
  // The former one goes after the lock: it may be the last reference to its memory.
  const std::scoped_lock lock (state.mutex);
  std::swap (state.last_frame, frame);
}

/** A stream with the negotiated caps, made when there is none. */
CameraOutcome ensure_stream (KavrelMorvikSrc *src)
{
  MorvikState &state = *src->state;
  CameraOutcome outcome = CameraOutcome::ok;
  if (state.streaming && state.client.connected ())
    return outcome;
  // A connection carries one stream: a former one is of no use for another.
  if (!state.client.connected () || state.client.stream ())
    outcome = connect_camera (src, deadline_of (src, answer_limit_ns));
  if (outcome != CameraOutcome::ok || !state.have_caps)
    return outcome;
  return start_stream (src, deadline_of (src, answer_limit_ns));
}

} // namespace

SensorRect effective_rect (const SensorRect &rect, const VornCameraSensor &sensor)
{
  SensorRect result = rect;
  // A rectangle that lies outside is left to the camera to refuse.
  if (rect.width == 0)
    result.width = rect.left < sensor.width ? sensor.width - rect.left : 1;
  if (rect.height == 0)
    result.height = rect.top < sensor.height ? sensor.height - rect.top : 1;
  return result;
}

uint64_t expected_latency_ns (const SensorRect &rect, const VornCameraSensor &sensor)
{
  return sensor.exposure_ns +
         gst_util_uint64_scale (sensor.readout_ns, rect.height, sensor.height) +
         VORN_CAMERA_DELIVERY_NS + transport_allowance_ns;
}

void try_camera (KavrelMorvikSrc *src)
{
  if (connect_camera (src, monotonic_ns () + first_attempt_ns) != CameraOutcome::ok)
    GST_INFO_OBJECT (src, "%s", src->state->client.reason ().c_str ());
}

GstFlowReturn create_frame (KavrelMorvikSrc *src, GstBuffer **buffer)
{
  MorvikState &state = *src->state;
  for (;;) {
    CameraOutcome outcome = ensure_stream (src);
    if (outcome == CameraOutcome::ok && !state.have_caps) {
      if (!gst_base_src_negotiate (GST_BASE_SRC (src)) || !state.have_caps)
        return GST_FLOW_NOT_NEGOTIATED;
      continue;
    }
    CameraFrame frame;
    if (outcome == CameraOutcome::ok) {
      if (state.style_changed.exchange (false))
        state.client.set_style (settings_of (state).style);
      const auto quiet = std::max<int64_t> (silence_ns, 4 * static_cast<int64_t> (state.period_ns));
      outcome = state.client.next_frame (
          &frame, monotonic_ns () + static_cast<int64_t> (state.latency_ns) + quiet);
    }
    switch (outcome) {
    case CameraOutcome::ok: {
      note_frame (src);
      vorn::Ref<GstBuffer> taken = take_frame (src, frame);
      if (!taken)
        break;
      keep_last (state, taken);
      announce_frame (src, frame.info.capture_ns);
      *buffer = taken.release ();
      return GST_FLOW_OK;
    }
    case CameraOutcome::interrupted:
      return GST_FLOW_FLUSHING;
    case CameraOutcome::timeout:
    case CameraOutcome::lost:
      if (const GstFlowReturn flow = try_again (src); flow != GST_FLOW_OK)
        return flow;
      break;
    case CameraOutcome::refused:
      refuse (src);
      return GST_FLOW_ERROR;
    }
  }
}

void forget_camera (KavrelMorvikSrc *src)
{
  MorvikState &state = *src->state;
  state.client.close ();
  state.streaming = false;
  state.sensor.reset ();
  state.have_caps = false;
  state.lost_since_ns.reset ();
  state.last_pts = GST_CLOCK_TIME_NONE;
  state.latency_ns = 0;
  state.period_ns = 0;
  keep_last (state, {});
}

} // namespace elements
