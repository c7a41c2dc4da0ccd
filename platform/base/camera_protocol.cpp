// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/camera_protocol.h>

#include <cerrno>
#include <cinttypes>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <numbers>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

static_assert (sizeof (VornCameraHeader) == 16);
static_assert (sizeof (VornCameraSensor) == 56);
static_assert (sizeof (VornCameraRequest) == 56);
static_assert (sizeof (VornCameraStream) == 72);
static_assert (sizeof (VornCameraRefusal) == 224);
static_assert (sizeof (VornCameraFrame) == 64);
static_assert (sizeof (VornCameraReturn) == 24);
static_assert (sizeof (VornCameraStyleChange) == 24);

namespace
{

__attribute__ ((format (printf, 2, 3))) int refuse (VornCameraReason *reason, const char *format,
                                                    ...)
{
  va_list args;
  va_start (args, format);
  vsnprintf (reason->text, sizeof reason->text, format, args);
  va_end (args);
  return -EPROTO;
}

struct TypeInfo {
  size_t size;
  const char *name;
};

TypeInfo info_of (unsigned type)
{
  switch (type) {
  case VORN_CAMERA_SENSOR:
    return {sizeof (VornCameraSensor), "SENSOR"};
  case VORN_CAMERA_REQUEST:
    return {sizeof (VornCameraRequest), "REQUEST"};
  case VORN_CAMERA_STREAM:
    return {sizeof (VornCameraStream), "STREAM"};
  case VORN_CAMERA_REFUSAL:
    return {sizeof (VornCameraRefusal), "REFUSAL"};
  case VORN_CAMERA_FRAME:
    return {sizeof (VornCameraFrame), "FRAME"};
  case VORN_CAMERA_RETURN:
    return {sizeof (VornCameraReturn), "RETURN"};
  case VORN_CAMERA_STYLE:
    return {sizeof (VornCameraStyleChange), "STYLE"};
  default:
    return {0, nullptr};
  }
}

bool is_side (uint32_t pixels)
{
  return pixels >= 1 && pixels <= VORN_CAMERA_MAX_SIDE;
}

bool is_rate (uint32_t numerator, uint32_t denominator)
{
  return numerator > 0 && denominator > 0 && uint64_t{numerator} <= uint64_t{1000} * denominator &&
         uint64_t{denominator} <= uint64_t{100} * numerator;
}

bool is_span (uint64_t span_ns)
{
  return span_ns <= VORN_CAMERA_MAX_SPAN_NS;
}

int check_sensor (const VornCameraSensor &sensor, VornCameraReason *reason)
{
  if (!is_side (sensor.width) || !is_side (sensor.height))
    return refuse (reason, "sensor of %ux%u pixels", sensor.width, sensor.height);
  if (!is_rate (sensor.rate_numerator, sensor.rate_denominator))
    return refuse (reason, "sensor rate %u/%u", sensor.rate_numerator, sensor.rate_denominator);
  if (!(sensor.horizontal_fov_rad > 0 && sensor.horizontal_fov_rad < std::numbers::pi))
    return refuse (reason, "horizontal field of view of %g rad", sensor.horizontal_fov_rad);
  if (!is_span (sensor.exposure_ns) || !is_span (sensor.readout_ns))
    return refuse (reason, "exposure of %" PRIu64 " ns, readout of %" PRIu64 " ns",
                   sensor.exposure_ns, sensor.readout_ns);
  return 0;
}

int check_request (const VornCameraRequest &request, VornCameraReason *reason)
{
  if (!is_side (request.rect_width) || !is_side (request.rect_height) ||
      request.left >= VORN_CAMERA_MAX_SIDE || request.top >= VORN_CAMERA_MAX_SIDE)
    return refuse (reason, "sensor rectangle %ux%u at %u,%u", request.rect_width,
                   request.rect_height, request.left, request.top);
  if (!is_side (request.width) || !is_side (request.height) ||
      uint64_t{vorn_camera_stride (request.width)} * request.height > VORN_CAMERA_MAX_FRAME_SIZE)
    return refuse (reason, "picture of %ux%u pixels", request.width, request.height);
  if (!is_rate (request.rate_numerator, request.rate_denominator))
    return refuse (reason, "rate %u/%u, not between 1/100 and 1000", request.rate_numerator,
                   request.rate_denominator);
  if (request.buffers < VORN_CAMERA_MIN_BUFFERS || request.buffers > VORN_CAMERA_MAX_BUFFERS)
    return refuse (reason, "%u buffers", request.buffers);
  return 0;
}

int check_stream (const VornCameraStream &stream, unsigned n_fds, VornCameraReason *reason)
{
  if (stream.buffers < VORN_CAMERA_MIN_BUFFERS || stream.buffers > VORN_CAMERA_MAX_BUFFERS)
    return refuse (reason, "%u buffers", stream.buffers);
  if (n_fds != stream.buffers)
    return refuse (reason, "%u descriptors for %u buffers", n_fds, stream.buffers);
  if (stream.stride == 0 || stream.frame_size == 0 ||
      stream.frame_size > VORN_CAMERA_MAX_FRAME_SIZE || stream.frame_size % stream.stride != 0)
    return refuse (reason, "frames of %" PRIu64 " bytes in rows of %u", stream.frame_size,
                   stream.stride);
  if (!(stream.focal_x > 0 && std::isfinite (stream.focal_x) && stream.focal_y > 0 &&
        std::isfinite (stream.focal_y) && std::isfinite (stream.center_x) &&
        std::isfinite (stream.center_y)))
    return refuse (reason, "focal lengths %g, %g and centre %g, %g", stream.focal_x, stream.focal_y,
                   stream.center_x, stream.center_y);
  if (stream.latency_ns > 3 * VORN_CAMERA_MAX_SPAN_NS)
    return refuse (reason, "latency of %" PRIu64 " ns", stream.latency_ns);
  return 0;
}

int check_frame (const VornCameraFrame &frame, VornCameraReason *reason)
{
  if (frame.buffer >= VORN_CAMERA_MAX_BUFFERS)
    return refuse (reason, "frame in buffer %u", frame.buffer);
  if (frame.capture_ns > INT64_MAX)
    return refuse (reason, "capture time of %" PRIu64 " ns", frame.capture_ns);
  if (!is_span (frame.exposure_ns) || !is_span (frame.readout_ns))
    return refuse (reason, "exposure of %" PRIu64 " ns, readout of %" PRIu64 " ns",
                   frame.exposure_ns, frame.readout_ns);
  return 0;
}

int check_contents (const VornCameraMessage &message, unsigned n_fds, VornCameraReason *reason)
{
  switch (message.header.type) {
  case VORN_CAMERA_SENSOR:
    return check_sensor (message.sensor, reason);
  case VORN_CAMERA_REQUEST:
    return check_request (message.request, reason);
  case VORN_CAMERA_STREAM:
    return check_stream (message.stream, n_fds, reason);
  case VORN_CAMERA_REFUSAL:
    if (!memchr (message.refusal.text, 0, sizeof message.refusal.text))
      return refuse (reason, "refusal whose text does not end");
    return 0;
  case VORN_CAMERA_FRAME:
    return check_frame (message.frame, reason);
  case VORN_CAMERA_RETURN:
    if (message.give_back.buffer >= VORN_CAMERA_MAX_BUFFERS)
      return refuse (reason, "return of buffer %u", message.give_back.buffer);
    return 0;
  default:
    return 0;
  }
}

/** Ancillary data: room for all descriptors that a message may carry. */
union Control {
  char bytes[CMSG_SPACE (sizeof (int) * VORN_CAMERA_MAX_BUFFERS)];
  cmsghdr align;
};

/** Takes the descriptors out; those that find no room are closed. Returns how many there were. */
unsigned take_descriptors (msghdr *packet, int *fds)
{
  unsigned count = 0;
  for (cmsghdr *item = CMSG_FIRSTHDR (packet); item; item = CMSG_NXTHDR (packet, item)) {
    if (item->cmsg_level != SOL_SOCKET || item->cmsg_type != SCM_RIGHTS)
      continue;
    const size_t n = (item->cmsg_len - CMSG_LEN (0)) / sizeof (int);
    for (size_t i = 0; i < n; i++) {
      int fd;
      memcpy (&fd, CMSG_DATA (item) + i * sizeof fd, sizeof fd);
      if (count < VORN_CAMERA_MAX_BUFFERS)
        fds[count] = fd;
      else
        close (fd);
      count++;
    }
  }
  return count;
}

} // namespace

void vorn_camera_message_init (VornCameraMessage *message, VornCameraMessageType type)
{
  memset (message, 0, sizeof *message);
  message->header.magic = VORN_CAMERA_MAGIC;
  message->header.version = VORN_CAMERA_VERSION;
  message->header.type = static_cast<uint16_t> (type);
  message->header.size = static_cast<uint32_t> (info_of (type).size);
}

int vorn_camera_message_parse (const void *data, size_t size, unsigned n_fds,
                               VornCameraMessage *message, VornCameraReason *reason)
{
  VornCameraHeader header;
  if (size < sizeof header)
    return refuse (reason, "message of %zu bytes, shorter than a header", size);
  memcpy (&header, data, sizeof header);
  if (header.magic != VORN_CAMERA_MAGIC)
    return refuse (reason, "message that begins with 0x%08x, not a camera's", header.magic);
  if (header.version != VORN_CAMERA_VERSION)
    return refuse (reason, "protocol version %u, this side speaks %d", header.version,
                   VORN_CAMERA_VERSION);
  const TypeInfo info = info_of (header.type);
  if (!info.name)
    return refuse (reason, "message of unknown type %u", header.type);
  if (size != info.size || header.size != info.size)
    return refuse (reason, "%s message of %zu bytes that says %u, not %zu", info.name, size,
                   header.size, info.size);
  if (n_fds > 0 && header.type != VORN_CAMERA_STREAM)
    return refuse (reason, "%s message with %u descriptors", info.name, n_fds);

  VornCameraMessage copy;
  memset (&copy, 0, sizeof copy);
  memcpy (&copy, data, size);
  const int result = check_contents (copy, n_fds, reason);
  if (result == 0)
    *message = copy;
  return result;
}

int vorn_camera_send (int socket, const VornCameraMessage *message, const int *fds, unsigned n_fds)
{
  if (n_fds > VORN_CAMERA_MAX_BUFFERS)
    return -EINVAL;
  iovec bytes = {const_cast<VornCameraMessage *> (message), message->header.size};
  Control control;
  msghdr packet = {};
  packet.msg_iov = &bytes;
  packet.msg_iovlen = 1;
  if (n_fds > 0) {
    memset (&control, 0, sizeof control);
    packet.msg_control = control.bytes;
    packet.msg_controllen = CMSG_SPACE (sizeof (int) * n_fds);
    cmsghdr *item = CMSG_FIRSTHDR (&packet);
    item->cmsg_level = SOL_SOCKET;
    item->cmsg_type = SCM_RIGHTS;
    item->cmsg_len = CMSG_LEN (sizeof (int) * n_fds);
    memcpy (CMSG_DATA (item), fds, sizeof (int) * n_fds);
  }
  ssize_t sent;
  do
    sent = sendmsg (socket, &packet, MSG_DONTWAIT | MSG_NOSIGNAL);
  while (sent < 0 && errno == EINTR);
  return sent < 0 ? -errno : 0;
}

int vorn_camera_receive (int socket, VornCameraMessage *message, int *fds, unsigned *n_fds,
                         VornCameraReason *reason)
{
  char data[sizeof (VornCameraMessage)];
  iovec bytes = {data, sizeof data};
  Control control;
  msghdr packet = {};
  packet.msg_iov = &bytes;
  packet.msg_iovlen = 1;
  packet.msg_control = control.bytes;
  packet.msg_controllen = sizeof control;
  *n_fds = 0;

  ssize_t received;
  do
    received = recvmsg (socket, &packet, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
  while (received < 0 && errno == EINTR);
  if (received < 0)
    return -errno;
  const unsigned count = take_descriptors (&packet, fds);
  int result = 1;
  if (packet.msg_flags & MSG_TRUNC)
    result = refuse (reason, "message of more than %zu bytes", sizeof data);
  else if ((packet.msg_flags & MSG_CTRUNC) || count > VORN_CAMERA_MAX_BUFFERS)
    result = refuse (reason, "message with more than %d descriptors", VORN_CAMERA_MAX_BUFFERS);
  else if (received == 0)
    result = 0;
  else if (const int refused = vorn_camera_message_parse (data, static_cast<size_t> (received),
                                                          count, message, reason))
    result = refused;

  if (result == 1) {
    *n_fds = count;
  } else {
    for (unsigned i = 0; i < count && i < VORN_CAMERA_MAX_BUFFERS; i++)
      close (fds[i]);
  }
  return result;
}

int vorn_camera_check_memory (int fd, uint64_t size, VornCameraReason *reason)
{
  const int seals = fcntl (fd, F_GET_SEALS);
  if (seals < 0)
    return refuse (reason, "descriptor that is no sealable memory");
  if (!(seals & F_SEAL_SHRINK))
    return refuse (reason, "memory that is not sealed against shrinking");
  struct stat status;
  if (fstat (fd, &status) != 0 || status.st_size < 0)
    return refuse (reason, "memory of unknown size");
  if (static_cast<uint64_t> (status.st_size) < size)
    return refuse (reason, "memory of %" PRIu64 " bytes for frames of %" PRIu64,
                   static_cast<uint64_t> (status.st_size), size);
  return 0;
}
