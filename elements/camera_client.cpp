// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "camera_client.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace elements
{

namespace
{

constexpr char broken[] = "the camera does not keep the protocol: ";

}

int64_t monotonic_ns ()
{
  timespec now;
  clock_gettime (CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

Interrupt::Interrupt () : event_ (eventfd (0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void Interrupt::raise ()
{
  eventfd_write (event_.get (), 1);
}

void Interrupt::clear ()
{
  eventfd_t value;
  (void)!eventfd_read (event_.get (), &value);
}

CameraStream::~CameraStream ()
{
  for (uint8_t *mapping : mappings_)
    munmap (mapping, description_.frame_size);
}

bool CameraStream::take (uint32_t buffer)
{
  if (buffer >= mappings_.size () || held_[buffer].exchange (true))
    return false;
  held_count_.fetch_add (1, std::memory_order_relaxed);
  return true;
}

void CameraStream::give_back (uint32_t buffer)
{
  // In this order: the server may send the buffer again as soon as it has the message.
  held_count_.fetch_sub (1, std::memory_order_relaxed);
  held_[buffer].store (false);
  VornCameraMessage message;
  vorn_camera_message_init (&message, VORN_CAMERA_RETURN);
  message.give_back.buffer = buffer;
  // Fails when the server has gone: then there is nobody to tell.
  vorn_camera_send (socket_->get (), &message, nullptr, 0);
}

CameraOutcome CameraClient::fail (CameraOutcome outcome, const std::string &reason)
{
  reason_ = reason;
  return outcome;
}

CameraOutcome CameraClient::lost (const char *what, int error)
{
  return fail (CameraOutcome::lost, std::string (what) + ": " + strerror (error));
}

CameraOutcome CameraClient::unexpected (const VornCameraMessage &message)
{
  if (message.header.type == VORN_CAMERA_REFUSAL)
    return fail (CameraOutcome::refused, message.refusal.text);
  return fail (CameraOutcome::refused,
               "a message of type " + std::to_string (message.header.type) + " out of turn");
}

CameraOutcome CameraClient::wait (int fd, short events, int64_t deadline_ns)
{
  for (;;) {
    const int64_t left_ns = std::max<int64_t> (0, deadline_ns - monotonic_ns ());
    const timespec timeout = {static_cast<time_t> (left_ns / 1'000'000'000),
                              static_cast<long> (left_ns % 1'000'000'000)};
    pollfd polled[] = {{interrupt_.fd (), POLLIN, 0}, {fd, events, 0}};
    const int ready = ppoll (polled, 2, &timeout, nullptr);
    if (ready < 0 && errno != EINTR)
      return lost ("cannot wait", errno);
    if (ready > 0 && polled[0].revents)
      return CameraOutcome::interrupted;
    if (ready > 0)
      return CameraOutcome::ok;
    if (ready == 0)
      return fail (CameraOutcome::timeout, "the camera does not answer");
  }
}

CameraOutcome CameraClient::pause (int64_t deadline_ns)
{
  // A negative descriptor is skipped by poll.
  return wait (-1, 0, deadline_ns);
}

CameraOutcome CameraClient::receive (VornCameraMessage *message, std::vector<vorn::Fd> *fds,
                                     int64_t deadline_ns)
{
  for (;;) {
    // Waits even when a message is there: only so a camera that floods us can be left.
    const auto outcome = wait (socket_->get (), POLLIN, deadline_ns);
    if (outcome != CameraOutcome::ok)
      return outcome;
    int numbers[VORN_CAMERA_MAX_BUFFERS];
    unsigned count = 0;
    VornCameraReason reason;
    const int result = vorn_camera_receive (socket_->get (), message, numbers, &count, &reason);
    for (unsigned i = 0; i < count; i++)
      fds->emplace_back (numbers[i]);
    if (result == 1)
      return CameraOutcome::ok;
    // A camera that has closed before it read all from us resets the connection.
    if (result == 0 || result == -ECONNRESET)
      return fail (CameraOutcome::lost, "the camera has closed the connection");
    if (result == -EPROTO)
      return fail (CameraOutcome::refused, std::string (broken) + reason.text);
    if (result != -EAGAIN)
      return lost ("cannot receive", -result);
  }
}

CameraOutcome CameraClient::connect (const std::string &path, int64_t deadline_ns)
{
  close ();
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.size () >= sizeof address.sun_path)
    return fail (CameraOutcome::refused, "the path has more than " +
                                             std::to_string (sizeof address.sun_path - 1) +
                                             " characters");
  memcpy (address.sun_path, path.data (), path.size ());
  vorn::Fd socket (::socket (AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket)
    return lost ("no socket", errno);
  if (::connect (socket.get (), reinterpret_cast<sockaddr *> (&address), sizeof address) != 0)
    return lost ("cannot connect", errno);
  return attach (std::move (socket), deadline_ns);
}

CameraOutcome CameraClient::attach (vorn::Fd socket, int64_t deadline_ns)
{
  close ();
  socket_ = std::make_shared<vorn::Fd> (std::move (socket));
  VornCameraMessage message;
  std::vector<vorn::Fd> fds;
  CameraOutcome outcome = receive (&message, &fds, deadline_ns);
  if (outcome == CameraOutcome::ok && message.header.type != VORN_CAMERA_SENSOR)
    outcome = unexpected (message);
  if (outcome == CameraOutcome::ok)
    sensor_ = message.sensor;
  else
    close ();
  return outcome;
}

CameraOutcome CameraClient::map (const VornCameraMessage &message, const VornCameraRequest &request,
                                 const std::vector<vorn::Fd> &fds)
{
  const VornCameraStream &description = message.stream;
  const uint32_t stride = vorn_camera_stride (request.width);
  if (description.stride != stride || description.frame_size != uint64_t{stride} * request.height)
    return fail (CameraOutcome::refused, "the camera sends frames of another size than asked for");
  if (description.buffers > request.buffers)
    return fail (CameraOutcome::refused, "the camera has more buffers than asked for");
  auto stream = std::make_shared<CameraStream> ();
  stream->socket_ = socket_;
  stream->description_ = description;
  for (const vorn::Fd &fd : fds) {
    VornCameraReason reason;
    if (vorn_camera_check_memory (fd.get (), description.frame_size, &reason) != 0)
      return fail (CameraOutcome::refused, std::string (broken) + reason.text);
    void *mapping =
        mmap (nullptr, description.frame_size, PROT_READ, MAP_SHARED | MAP_POPULATE, fd.get (), 0);
    if (mapping == MAP_FAILED)
      return lost ("cannot map a frame", errno);
    stream->mappings_.push_back (static_cast<uint8_t *> (mapping));
  }
  stream_ = stream;
  any_frame_ = false;
  return CameraOutcome::ok;
}

CameraOutcome CameraClient::start (const VornCameraRequest &request, int64_t deadline_ns)
{
  VornCameraMessage message;
  vorn_camera_message_init (&message, VORN_CAMERA_REQUEST);
  const VornCameraHeader header = message.header;
  message.request = request;
  message.request.header = header;
  if (const int error = vorn_camera_send (socket_->get (), &message, nullptr, 0))
    return lost ("cannot ask for a stream", -error);
  std::vector<vorn::Fd> fds;
  const CameraOutcome outcome = receive (&message, &fds, deadline_ns);
  if (outcome != CameraOutcome::ok)
    return outcome;
  if (message.header.type != VORN_CAMERA_STREAM)
    return unexpected (message);
  return map (message, request, fds);
}

CameraOutcome CameraClient::next_frame (CameraFrame *frame, int64_t deadline_ns)
{
  VornCameraMessage message;
  std::vector<vorn::Fd> fds;
  const CameraOutcome outcome = receive (&message, &fds, deadline_ns);
  if (outcome != CameraOutcome::ok)
    return outcome;
  if (message.header.type != VORN_CAMERA_FRAME)
    return unexpected (message);
  const VornCameraFrame &info = message.frame;
  if (any_frame_ && (info.sequence <= last_sequence_ || info.capture_ns <= last_capture_ns_))
    return fail (CameraOutcome::refused, "the camera sent a frame that is not newer than the last");
  if (!stream_->take (info.buffer))
    return fail (CameraOutcome::refused, "the camera sent a frame in buffer " +
                                             std::to_string (info.buffer) +
                                             ", which is not its own");
  any_frame_ = true;
  last_sequence_ = info.sequence;
  last_capture_ns_ = info.capture_ns;
  frame->stream = stream_;
  frame->info = info;
  return CameraOutcome::ok;
}

void CameraClient::set_style (uint32_t style)
{
  if (!stream_)
    return;
  VornCameraMessage message;
  vorn_camera_message_init (&message, VORN_CAMERA_STYLE);
  message.style.style = style;
  vorn_camera_send (socket_->get (), &message, nullptr, 0);
}

void CameraClient::close ()
{
  // Held frames keep the descriptor open; the server is to know now that nobody listens.
  if (socket_)
    shutdown (socket_->get (), SHUT_RDWR);
  socket_.reset ();
  stream_.reset ();
}

} // namespace elements
