// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "camera_session.hpp"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>

#include <poll.h>

#include <vorn/log.h>

VORN_LOG_TAG ("camera_server");

namespace sim
{

namespace
{

/** Frames that are later than this are left out, to be on time again. */
constexpr int64_t most_delay_ns = 100'000'000;
/** A client that sends without end is not to keep its session from anything else. */
constexpr int most_messages_at_once = 64;
constexpr auto delivery_ns = static_cast<int64_t> (VORN_CAMERA_DELIVERY_NS);

int64_t clock_ns (clockid_t clock)
{
  timespec now;
  clock_gettime (clock, &now);
  return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

__extension__ using Wide = __int128;

Wide floor_divide (Wide a, Wide b)
{
  return a / b - (a % b < 0 ? 1 : 0);
}

/** Low contrast with lifted shadows, or high contrast about the middle. */
const ToneCurve *curve_of (uint32_t style)
{
  static const auto make = [] (double low, double slope) {
    ToneCurve curve;
    for (size_t i = 0; i < curve.size (); i++)
      curve[i] = static_cast<uint8_t> (
          std::clamp (std::lround (low + slope * static_cast<double> (i)), 0l, 255l));
    return curve;
  };
  static const ToneCurve flat = make (48, 0.6);
  static const ToneCurve vivid = make (-38, 1.3);
  switch (style) {
  case VORN_CAMERA_STYLE_FLAT:
    return &flat;
  case VORN_CAMERA_STYLE_VIVID:
    return &vivid;
  default:
    return nullptr;
  }
}

} // namespace

int64_t FrameGrid::time_ns (int64_t n) const
{
  return epoch_ns_ +
         static_cast<int64_t> (floor_divide (Wide{n} * 1'000'000'000 * denominator_, numerator_));
}

int64_t FrameGrid::frame_at (int64_t time_ns) const
{
  // The frame's time is rounded down: the last that is less than the next nanosecond.
  const Wide elapsed = Wide{time_ns} - epoch_ns_ + 1;
  return static_cast<int64_t> (
      floor_divide (elapsed * numerator_ - 1, Wide{1'000'000'000} * denominator_));
}

CameraSession::CameraSession (vorn::Fd socket, const CameraDescription &camera, int stop_fd,
                              CameraCounters *counters)
    : socket_ (std::move (socket)), camera_ (camera), stop_fd_ (stop_fd), counters_ (counters),
      renderer_ (camera.world)
{
}

bool CameraSession::send_sensor ()
{
  const CameraSensor &sensor = camera_.sensor;
  VornCameraMessage message;
  vorn_camera_message_init (&message, VORN_CAMERA_SENSOR);
  message.sensor.width = sensor.width;
  message.sensor.height = sensor.height;
  message.sensor.rate_numerator = sensor.rate_numerator;
  message.sensor.rate_denominator = sensor.rate_denominator;
  message.sensor.horizontal_fov_rad = sensor.horizontal_fov_rad;
  message.sensor.exposure_ns = static_cast<uint64_t> (sensor.exposure_ns);
  message.sensor.readout_ns = static_cast<uint64_t> (sensor.readout_ns);
  return vorn_camera_send (socket_.get (), &message, nullptr, 0) == 0;
}

bool CameraSession::refuse (int code, const std::string &reason)
{
  counters_->refused++;
  VORN_LOG_WARNING ("%s: client refused: %s", camera_.name.c_str (), reason.c_str ());
  VornCameraMessage message;
  vorn_camera_message_init (&message, VORN_CAMERA_REFUSAL);
  message.refusal.code = static_cast<uint32_t> (code);
  reason.copy (message.refusal.text, sizeof message.refusal.text - 1);
  vorn_camera_send (socket_.get (), &message, nullptr, 0);
  return false;
}

bool CameraSession::begin_stream (const VornCameraRequest &request)
{
  const CameraSensor &sensor = camera_.sensor;
  if (streaming_)
    return refuse (EBUSY, "a connection carries one stream");
  if (uint64_t{request.left} + request.rect_width > sensor.width ||
      uint64_t{request.top} + request.rect_height > sensor.height)
    return refuse (EINVAL, "the rectangle " + std::to_string (request.rect_width) + "x" +
                               std::to_string (request.rect_height) + " at " +
                               std::to_string (request.left) + "," + std::to_string (request.top) +
                               " is not on the sensor of " + std::to_string (sensor.width) + "x" +
                               std::to_string (sensor.height) + " pixels");
  VornCameraMessage message;
  vorn_camera_message_init (&message, VORN_CAMERA_STREAM);
  VornCameraStream &stream = message.stream;
  stream.buffers = request.buffers;
  stream.stride = vorn_camera_stride (request.width);
  stream.frame_size = uint64_t{stream.stride} * request.height;
  if (const std::string reason = pool_.make (request.buffers, stream.frame_size); !reason.empty ())
    return refuse (ENOMEM, reason);

  grid_ = FrameGrid (camera_.epoch_ns, request.rate_numerator, request.rate_denominator);
  // A row cannot be exposed longer than until its next frame, nor a frame read out longer.
  const int64_t exposure_ns = std::min (sensor.exposure_ns, grid_.period_ns ());
  const int64_t readout_ns = std::min (sensor.readout_ns, grid_.period_ns ());
  top_delay_ns_ = readout_ns * request.top / sensor.height;
  shot_.geometry = picture_geometry (
      sensor, {request.left, request.top, request.rect_width, request.rect_height}, request.width,
      request.height);
  shot_.exposure_ns = exposure_ns;
  shot_.readout_ns = readout_ns * request.rect_height / sensor.height;
  shot_.sub_exposures = camera_.sub_exposures;
  stream.focal_x = shot_.geometry.focal_x;
  stream.focal_y = shot_.geometry.focal_y;
  stream.center_x = shot_.geometry.center_x;
  stream.center_y = shot_.geometry.center_y;
  stream.latency_ns = static_cast<uint64_t> (shot_.exposure_ns + shot_.readout_ns + delivery_ns);
  const auto fds = pool_.descriptors ();
  if (vorn_camera_send (socket_.get (), &message, fds.data (),
                        static_cast<unsigned> (fds.size ())) != 0)
    return false;

  request_ = request;
  style_ = request.style;
  // The first frame whose exposure has not begun yet.
  next_ = std::max<int64_t> (0, grid_.frame_at (clock_ns (CLOCK_MONOTONIC) - top_delay_ns_) + 1);
  streaming_ = true;
  VORN_LOG_INFO ("%s: stream of %ux%u at %u,%u as %ux%u pixels, %u/%u frames per second",
                 camera_.name.c_str (), request.rect_width, request.rect_height, request.left,
                 request.top, request.width, request.height, request.rate_numerator,
                 request.rate_denominator);
  return true;
}

bool CameraSession::return_buffer (uint32_t buffer)
{
  if (pool_.take_back (buffer))
    return true;
  return refuse (EPROTO, "buffer " + std::to_string (buffer) + " was not the client's to return");
}

bool CameraSession::handle (const VornCameraMessage &message)
{
  switch (message.header.type) {
  case VORN_CAMERA_REQUEST:
    return begin_stream (message.request);
  case VORN_CAMERA_RETURN:
    return return_buffer (message.give_back.buffer);
  case VORN_CAMERA_STYLE:
    style_ = message.style.style;
    return true;
  default:
    return refuse (EPROTO, "a message of type " + std::to_string (message.header.type) +
                               " is not a client's");
  }
}

/** Handles what is there, up to a limit; false when the connection is over. */
bool CameraSession::handle_messages ()
{
  for (int handled = 0; handled < most_messages_at_once; handled++) {
    VornCameraMessage message;
    int fds[VORN_CAMERA_MAX_BUFFERS];
    unsigned n_fds = 0;
    VornCameraReason reason;
    const int result = vorn_camera_receive (socket_.get (), &message, fds, &n_fds, &reason);
    for (unsigned i = 0; i < n_fds; i++)
      const vorn::Fd closed (fds[i]);
    if (result == -EAGAIN)
      return true;
    if (result == -EPROTO)
      return refuse (EPROTO, reason.text);
    if (result != 1 || !handle (message))
      return false;
  }
  return true;
}

/** Handles messages until a time; a negative one never comes. */
CameraSession::Wake CameraSession::serve_until (int64_t time_ns)
{
  for (;;) {
    const int64_t left_ns =
        time_ns < 0 ? 0 : std::max<int64_t> (0, time_ns - clock_ns (CLOCK_MONOTONIC));
    const timespec timeout = {static_cast<time_t> (left_ns / 1'000'000'000),
                              static_cast<long> (left_ns % 1'000'000'000)};
    pollfd polled[] = {{socket_.get (), POLLIN, 0}, {stop_fd_, POLLIN, 0}};
    const int ready = ppoll (polled, 2, time_ns < 0 ? nullptr : &timeout, nullptr);
    if (ready == 0)
      return Wake::time;
    if ((ready < 0 && errno != EINTR) || polled[1].revents)
      return Wake::closed;
    if (ready > 0 && polled[0].revents && !handle_messages ())
      return Wake::closed;
    // A new stream's frames are due now.
    if (time_ns < 0 ? streaming_ : clock_ns (CLOCK_MONOTONIC) >= time_ns)
      return Wake::time;
  }
}

void CameraSession::lose (int64_t count)
{
  lost_ += static_cast<uint64_t> (count);
  counters_->lost_frames += static_cast<uint64_t> (count);
}

Shot CameraSession::shot_at (int64_t sensor_time_ns) const
{
  Shot shot = shot_;
  shot.capture_ns = sensor_time_ns + top_delay_ns_;
  shot.curve = curve_of (style_);
  return shot;
}

CameraSession::Wake CameraSession::next_frame ()
{
  const int64_t span_ns = top_delay_ns_ + shot_.readout_ns + shot_.exposure_ns;
  const int64_t now = clock_ns (CLOCK_MONOTONIC);
  if (now - (grid_.time_ns (next_) + span_ns) > most_delay_ns) {
    const int64_t newest = std::max (next_, grid_.frame_at (now - span_ns));
    lose (newest - next_);
    next_ = newest;
  }
  const int64_t frame = next_++;
  const int64_t exposed_ns = grid_.time_ns (frame) + span_ns;
  // What is seen is known only when it has been exposed.
  if (serve_until (exposed_ns) != Wake::time)
    return Wake::closed;
  const auto buffer = pool_.find_free ();
  if (!buffer) {
    lose (1);
    return Wake::time;
  }
  const Shot shot = shot_at (grid_.time_ns (frame));
  const int64_t begin_ns = clock_ns (CLOCK_THREAD_CPUTIME_ID);
  renderer_.render (shot, camera_.motion, pool_.data (*buffer),
                    vorn_camera_stride (request_.width));
  counters_->render_ns += static_cast<uint64_t> (clock_ns (CLOCK_THREAD_CPUTIME_ID) - begin_ns);
  pool_.lend (*buffer);
  if (serve_until (exposed_ns + delivery_ns) != Wake::time)
    return Wake::closed;

  VornCameraMessage message;
  vorn_camera_message_init (&message, VORN_CAMERA_FRAME);
  message.frame.buffer = *buffer;
  message.frame.sequence = static_cast<uint64_t> (frame);
  message.frame.capture_ns = static_cast<uint64_t> (shot.capture_ns);
  message.frame.exposure_ns = static_cast<uint64_t> (shot.exposure_ns);
  message.frame.readout_ns = static_cast<uint64_t> (shot.readout_ns);
  message.frame.lost = lost_;
  const int result = vorn_camera_send (socket_.get (), &message, nullptr, 0);
  if (result == -EAGAIN) {
    pool_.take_back (*buffer);
    lose (1);
    return Wake::time;
  }
  counters_->frames += result == 0;
  return result == 0 ? Wake::time : Wake::closed;
}

CameraSession::Wake CameraSession::stream ()
{
  while (next_frame () == Wake::time)
    continue;
  return Wake::closed;
}

void CameraSession::run ()
{
  if (!send_sensor () || serve_until (-1) != Wake::time)
    return;
  stream ();
  VORN_LOG_INFO ("%s: stream of %ux%u pixels has ended, %llu frames lost", camera_.name.c_str (),
                 request_.width, request_.height, static_cast<unsigned long long> (lost_));
}

} // namespace sim
