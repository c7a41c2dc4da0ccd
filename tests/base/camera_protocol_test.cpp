// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <cerrno>
#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <vorn/camera_protocol.h>
#include <vorn/raii.hpp>

namespace
{

VornCameraMessage valid_message (VornCameraMessageType type)
{
  VornCameraMessage message;
  vorn_camera_message_init (&message, type);
  switch (type) {
  case VORN_CAMERA_SENSOR:
    message.sensor.width = 1280;
    message.sensor.height = 720;
    message.sensor.rate_numerator = 30000;
    message.sensor.rate_denominator = 1001;
    message.sensor.horizontal_fov_rad = 1.2;
    message.sensor.exposure_ns = 2000000;
    message.sensor.readout_ns = 10000000;
    break;
  case VORN_CAMERA_REQUEST:
    message.request.rect_width = 1280;
    message.request.rect_height = 720;
    message.request.width = 640;
    message.request.height = 360;
    message.request.rate_numerator = 24;
    message.request.rate_denominator = 1;
    message.request.buffers = 4;
    break;
  case VORN_CAMERA_STREAM:
    message.stream.buffers = 3;
    message.stream.stride = 1920;
    message.stream.frame_size = 1920 * 360;
    message.stream.focal_x = message.stream.focal_y = 500;
    message.stream.center_x = 320;
    message.stream.center_y = 180;
    message.stream.latency_ns = 27000000;
    break;
  case VORN_CAMERA_REFUSAL:
    message.refusal.code = EINVAL;
    strcpy (message.refusal.text, "no");
    break;
  case VORN_CAMERA_FRAME:
    message.frame.buffer = 2;
    message.frame.sequence = 7;
    message.frame.capture_ns = 123456789;
    break;
  case VORN_CAMERA_RETURN:
    message.give_back.buffer = 1;
    break;
  case VORN_CAMERA_STYLE:
    message.style.style = VORN_CAMERA_STYLE_FLAT;
    break;
  }
  return message;
}

constexpr VornCameraMessageType all_types[] = {
    VORN_CAMERA_SENSOR, VORN_CAMERA_REQUEST, VORN_CAMERA_STREAM, VORN_CAMERA_REFUSAL,
    VORN_CAMERA_FRAME,  VORN_CAMERA_RETURN,  VORN_CAMERA_STYLE};

unsigned descriptors_of (VornCameraMessageType type)
{
  return type == VORN_CAMERA_STREAM ? 3 : 0;
}

/** The reason why a packet is refused; "" when it is not. */
std::string refusal_of (const VornCameraMessage &message, size_t size, unsigned n_fds)
{
  VornCameraMessage parsed;
  VornCameraReason reason = {};
  const int result = vorn_camera_message_parse (&message, size, n_fds, &parsed, &reason);
  EXPECT_EQ (result, reason.text[0] ? -EPROTO : 0);
  return reason.text;
}

TEST (CameraMessage, EachTypePassesUnchanged)
{
  for (const auto type : all_types) {
    const VornCameraMessage message = valid_message (type);
    VornCameraMessage parsed;
    VornCameraReason reason = {};
    ASSERT_EQ (vorn_camera_message_parse (&message, message.header.size, descriptors_of (type),
                                          &parsed, &reason),
               0)
        << reason.text;
    EXPECT_EQ (memcmp (&parsed, &message, message.header.size), 0) << "type " << type;
  }
}

TEST (CameraMessage, EveryOtherLengthIsRefused)
{
  for (const auto type : all_types) {
    const VornCameraMessage message = valid_message (type);
    for (size_t size = 0; size <= sizeof message; size++) {
      if (size == message.header.size)
        continue;
      EXPECT_NE (refusal_of (message, size, descriptors_of (type)), "") << type << " " << size;
    }
  }
  EXPECT_EQ (refusal_of (valid_message (VORN_CAMERA_RETURN), 15, 0),
             "message of 15 bytes, shorter than a header");
  EXPECT_EQ (refusal_of (valid_message (VORN_CAMERA_RETURN), 20, 0),
             "RETURN message of 20 bytes that says 24, not 24");
}

struct BadMessage {
  const char *name;
  VornCameraMessageType type;
  std::function<void (VornCameraMessage &)> spoil;
  std::string reason;
  unsigned n_fds = UINT_MAX;
};

const std::vector<BadMessage> bad_messages = {
    {"magic", VORN_CAMERA_FRAME, [] (auto &m) { m.header.magic = 1; },
     "message that begins with 0x00000001, not a camera's"},
    {"version", VORN_CAMERA_SENSOR, [] (auto &m) { m.header.version = 2; },
     "protocol version 2, this side speaks 1"},
    {"type zero", VORN_CAMERA_FRAME, [] (auto &m) { m.header.type = 0; },
     "message of unknown type 0"},
    {"type after the last", VORN_CAMERA_FRAME, [] (auto &m) { m.header.type = 8; },
     "message of unknown type 8"},
    {"size field", VORN_CAMERA_FRAME, [] (auto &m) { m.header.size = 65; },
     "FRAME message of 64 bytes that says 65, not 64"},
    {"descriptors where none belong", VORN_CAMERA_FRAME, [] (auto &) {},
     "FRAME message with 1 descriptors", 1},
    {"sensor without pixels", VORN_CAMERA_SENSOR, [] (auto &m) { m.sensor.width = 0; },
     "sensor of 0x720 pixels"},
    {"sensor too large", VORN_CAMERA_SENSOR, [] (auto &m) { m.sensor.height = 16385; },
     "sensor of 1280x16385 pixels"},
    {"sensor rate by zero", VORN_CAMERA_SENSOR, [] (auto &m) { m.sensor.rate_denominator = 0; },
     "sensor rate 30000/0"},
    {"field of view of zero", VORN_CAMERA_SENSOR, [] (auto &m) { m.sensor.horizontal_fov_rad = 0; },
     "horizontal field of view of 0 rad"},
    {"field of view of half a turn", VORN_CAMERA_SENSOR,
     [] (auto &m) { m.sensor.horizontal_fov_rad = 3.1416; },
     "horizontal field of view of 3.1416 rad"},
    {"field of view that is no number", VORN_CAMERA_SENSOR,
     [] (auto &m) { m.sensor.horizontal_fov_rad = std::nan (""); },
     "horizontal field of view of nan rad"},
    {"endless exposure", VORN_CAMERA_SENSOR,
     [] (auto &m) { m.sensor.exposure_ns = VORN_CAMERA_MAX_SPAN_NS + 1; },
     "exposure of 10000000001 ns, readout of 10000000 ns"},
    {"empty rectangle", VORN_CAMERA_REQUEST, [] (auto &m) { m.request.rect_width = 0; },
     "sensor rectangle 0x720 at 0,0"},
    {"rectangle far out", VORN_CAMERA_REQUEST, [] (auto &m) { m.request.left = UINT32_MAX; },
     "sensor rectangle 1280x720 at 4294967295,0"},
    {"rectangle too large", VORN_CAMERA_REQUEST,
     [] (auto &m) { m.request.rect_height = UINT32_MAX; },
     "sensor rectangle 1280x4294967295 at 0,0"},
    {"picture without height", VORN_CAMERA_REQUEST, [] (auto &m) { m.request.height = 0; },
     "picture of 640x0 pixels"},
    {"picture too wide", VORN_CAMERA_REQUEST, [] (auto &m) { m.request.width = 0x55555556; },
     "picture of 1431655766x360 pixels"},
    {"picture with too many bytes", VORN_CAMERA_REQUEST,
     [] (auto &m) { m.request.width = m.request.height = 16384; }, "picture of 16384x16384 pixels"},
    {"rate of zero", VORN_CAMERA_REQUEST, [] (auto &m) { m.request.rate_numerator = 0; },
     "rate 0/1, not between 1/100 and 1000"},
    {"rate above the highest", VORN_CAMERA_REQUEST,
     [] (auto &m) { m.request.rate_numerator = 1001; }, "rate 1001/1, not between 1/100 and 1000"},
    {"rate below the lowest", VORN_CAMERA_REQUEST,
     [] (auto &m) { m.request.rate_denominator = 2401; },
     "rate 24/2401, not between 1/100 and 1000"},
    {"too few buffers", VORN_CAMERA_REQUEST, [] (auto &m) { m.request.buffers = 1; }, "1 buffers"},
    {"too many buffers", VORN_CAMERA_REQUEST, [] (auto &m) { m.request.buffers = 17; },
     "17 buffers"},
    {"stream without descriptors", VORN_CAMERA_STREAM, [] (auto &) {},
     "0 descriptors for 3 buffers", 0},
    {"stream with one descriptor more", VORN_CAMERA_STREAM, [] (auto &) {},
     "4 descriptors for 3 buffers", 4},
    {"stream of one buffer", VORN_CAMERA_STREAM, [] (auto &m) { m.stream.buffers = 1; },
     "1 buffers", 1},
    {"rows of nothing", VORN_CAMERA_STREAM, [] (auto &m) { m.stream.stride = 0; },
     "frames of 691200 bytes in rows of 0"},
    {"half a row", VORN_CAMERA_STREAM, [] (auto &m) { m.stream.frame_size--; },
     "frames of 691199 bytes in rows of 1920"},
    {"huge frames", VORN_CAMERA_STREAM,
     [] (auto &m) { m.stream.frame_size = UINT64_MAX - UINT64_MAX % 1920; },
     "frames of 18446744073709551360 bytes in rows of 1920"},
    {"focal length of zero", VORN_CAMERA_STREAM, [] (auto &m) { m.stream.focal_x = 0; },
     "focal lengths 0, 500 and centre 320, 180"},
    {"centre at infinity", VORN_CAMERA_STREAM,
     [] (auto &m) { m.stream.center_y = std::numeric_limits<double>::infinity (); },
     "focal lengths 500, 500 and centre 320, inf"},
    {"endless latency", VORN_CAMERA_STREAM, [] (auto &m) { m.stream.latency_ns = UINT64_MAX; },
     "latency of 18446744073709551615 ns"},
    {"refusal without an end", VORN_CAMERA_REFUSAL,
     [] (auto &m) { memset (m.refusal.text, 'x', sizeof m.refusal.text); },
     "refusal whose text does not end"},
    {"frame in no buffer", VORN_CAMERA_FRAME, [] (auto &m) { m.frame.buffer = 16; },
     "frame in buffer 16"},
    {"capture before time began", VORN_CAMERA_FRAME,
     [] (auto &m) { m.frame.capture_ns = uint64_t{1} << 63; },
     "capture time of 9223372036854775808 ns"},
    {"frame read out for ever", VORN_CAMERA_FRAME,
     [] (auto &m) { m.frame.readout_ns = UINT64_MAX; },
     "exposure of 0 ns, readout of 18446744073709551615 ns"},
    {"return of no buffer", VORN_CAMERA_RETURN, [] (auto &m) { m.give_back.buffer = 16; },
     "return of buffer 16"},
};

TEST (CameraMessage, EachFieldOutOfRangeIsNamed)
{
  for (const auto &bad : bad_messages) {
    VornCameraMessage message = valid_message (bad.type);
    const size_t size = message.header.size;
    bad.spoil (message);
    const unsigned n_fds = bad.n_fds == UINT_MAX ? descriptors_of (bad.type) : bad.n_fds;
    EXPECT_EQ (refusal_of (message, size, n_fds), bad.reason) << bad.name;
  }
}

TEST (CameraMessage, RowsAreRoundedUpToFourBytes)
{
  const struct {
    uint32_t width, stride;
  } rows[] = {{1, 4}, {2, 8}, {3, 12}, {4, 12}, {5, 16}, {1280, 3840}, {16384, 49152}};
  for (const auto &row : rows)
    EXPECT_EQ (vorn_camera_stride (row.width), row.stride) << row.width;
}

/** A connected pair of sockets. */
struct Pair {
  explicit Pair (int type = SOCK_SEQPACKET)
  {
    int ends[2];
    EXPECT_EQ (socketpair (AF_UNIX, type, 0, ends), 0);
    a = vorn::Fd (ends[0]);
    b = vorn::Fd (ends[1]);
  }
  vorn::Fd a, b;
};

struct Received {
  int result;
  VornCameraMessage message;
  std::vector<vorn::Fd> fds;
  std::string reason;
};

Received receive (const vorn::Fd &socket)
{
  Received received = {};
  int fds[VORN_CAMERA_MAX_BUFFERS];
  unsigned n_fds = 0;
  VornCameraReason reason = {};
  received.result = vorn_camera_receive (socket.get (), &received.message, fds, &n_fds, &reason);
  for (unsigned i = 0; i < n_fds; i++)
    received.fds.emplace_back (fds[i]);
  received.reason = reason.text;
  return received;
}

vorn::Fd make_memory (off_t size, unsigned seals)
{
  vorn::Fd fd (memfd_create ("test", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  EXPECT_EQ (ftruncate (fd.get (), size), 0);
  EXPECT_EQ (fcntl (fd.get (), F_ADD_SEALS, seals), 0);
  return fd;
}

int open_descriptors ()
{
  int count = 0;
  for (int fd = 0; fd < 1024; fd++)
    count += fcntl (fd, F_GETFD) >= 0;
  return count;
}

TEST (CameraSocket, MessagesArriveWithTheirDescriptors)
{
  const Pair pair;
  const vorn::Fd memory = make_memory (4096, F_SEAL_SHRINK);
  const int fds[] = {memory.get (), memory.get (), memory.get ()};
  const VornCameraMessage stream = valid_message (VORN_CAMERA_STREAM);
  const VornCameraMessage frame = valid_message (VORN_CAMERA_FRAME);
  ASSERT_EQ (vorn_camera_send (pair.a.get (), &stream, fds, 3), 0);
  ASSERT_EQ (vorn_camera_send (pair.a.get (), &frame, nullptr, 0), 0);

  Received received = receive (pair.b);
  ASSERT_EQ (received.result, 1) << received.reason;
  EXPECT_EQ (received.message.header.type, VORN_CAMERA_STREAM);
  ASSERT_EQ (received.fds.size (), 3u);
  for (const auto &fd : received.fds) {
    EXPECT_EQ (fcntl (fd.get (), F_GET_SEALS) & F_SEAL_SHRINK, F_SEAL_SHRINK);
    EXPECT_EQ (fcntl (fd.get (), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
  }
  received = receive (pair.b);
  ASSERT_EQ (received.result, 1);
  EXPECT_EQ (received.message.frame.sequence, 7u);
  EXPECT_EQ (receive (pair.b).result, -EAGAIN);
}

TEST (CameraSocket, EndAndLossAreTold)
{
  Pair pair;
  pair.a = vorn::Fd ();
  EXPECT_EQ (receive (pair.b).result, 0);
  const VornCameraMessage message = valid_message (VORN_CAMERA_RETURN);
  EXPECT_EQ (vorn_camera_send (pair.b.get (), &message, nullptr, 0), -EPIPE);
}

TEST (CameraSocket, FullSocketDoesNotBlock)
{
  const Pair pair;
  const VornCameraMessage message = valid_message (VORN_CAMERA_RETURN);
  int result = 0;
  for (int i = 0; i < 1000000 && result == 0; i++)
    result = vorn_camera_send (pair.a.get (), &message, nullptr, 0);
  EXPECT_EQ (result, -EAGAIN);
}

TEST (CameraSocket, GarbageIsRefusedAndItsDescriptorsClosed)
{
  const Pair pair;
  const vorn::Fd memory = make_memory (4096, 0);
  const std::string garbage (40, 'x');
  ASSERT_EQ (send (pair.a.get (), garbage.data (), garbage.size (), 0), 40);
  Received received = receive (pair.b);
  EXPECT_EQ (received.result, -EPROTO);
  EXPECT_EQ (received.reason, "message that begins with 0x78787878, not a camera's");

  const std::string oversized (300, 'x');
  ASSERT_EQ (send (pair.a.get (), oversized.data (), oversized.size (), 0), 300);
  received = receive (pair.b);
  EXPECT_EQ (received.result, -EPROTO);
  EXPECT_EQ (received.reason, "message of more than 224 bytes");

  const int before = open_descriptors ();
  const int fds[] = {memory.get (), memory.get ()};
  VornCameraMessage frame = valid_message (VORN_CAMERA_FRAME);
  ASSERT_EQ (vorn_camera_send (pair.a.get (), &frame, fds, 2), 0);
  received = receive (pair.b);
  EXPECT_EQ (received.result, -EPROTO);
  EXPECT_EQ (received.reason, "FRAME message with 2 descriptors");
  EXPECT_EQ (open_descriptors (), before);
}

TEST (CameraSocket, MoreDescriptorsThanAMessageMayCarryAreRefused)
{
  const Pair pair;
  const vorn::Fd memory = make_memory (4096, 0);
  VornCameraMessage stream = valid_message (VORN_CAMERA_STREAM);
  constexpr size_t count = VORN_CAMERA_MAX_BUFFERS + 4;
  int fds[count];
  for (int &fd : fds)
    fd = memory.get ();
  EXPECT_EQ (vorn_camera_send (pair.a.get (), &stream, fds, count), -EINVAL);

  alignas (cmsghdr) char control[CMSG_SPACE (sizeof fds)] = {};
  iovec bytes = {&stream, stream.header.size};
  msghdr packet = {};
  packet.msg_iov = &bytes;
  packet.msg_iovlen = 1;
  packet.msg_control = control;
  packet.msg_controllen = sizeof control;
  cmsghdr *item = CMSG_FIRSTHDR (&packet);
  item->cmsg_level = SOL_SOCKET;
  item->cmsg_type = SCM_RIGHTS;
  item->cmsg_len = CMSG_LEN (sizeof fds);
  memcpy (CMSG_DATA (item), fds, sizeof fds);
  const int before = open_descriptors ();
  ASSERT_GT (sendmsg (pair.a.get (), &packet, 0), 0);
  const Received received = receive (pair.b);
  EXPECT_EQ (received.result, -EPROTO);
  EXPECT_EQ (received.reason, "message with more than 16 descriptors");
  EXPECT_EQ (open_descriptors (), before);
}

std::string memory_refusal (const vorn::Fd &fd, uint64_t size)
{
  VornCameraReason reason = {};
  const int result = vorn_camera_check_memory (fd.get (), size, &reason);
  EXPECT_EQ (result, reason.text[0] ? -EPROTO : 0);
  return reason.text;
}

TEST (CameraMemory, OnlySealedMemoryOfEnoughSizePasses)
{
  EXPECT_EQ (memory_refusal (make_memory (4096, F_SEAL_SHRINK), 4096), "");
  EXPECT_EQ (memory_refusal (make_memory (8192, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL), 4096),
             "");
  EXPECT_EQ (memory_refusal (make_memory (4096, 0), 4096),
             "memory that is not sealed against shrinking");
  EXPECT_EQ (memory_refusal (make_memory (4096, F_SEAL_GROW), 4096),
             "memory that is not sealed against shrinking");
  EXPECT_EQ (memory_refusal (make_memory (4095, F_SEAL_SHRINK), 4096),
             "memory of 4095 bytes for frames of 4096");
  EXPECT_EQ (memory_refusal (make_memory (4096, F_SEAL_SHRINK), UINT64_MAX),
             "memory of 4096 bytes for frames of 18446744073709551615");
  EXPECT_EQ (memory_refusal (vorn::Fd (open ("/dev/null", O_RDONLY)), 1),
             "descriptor that is no sealable memory");
  EXPECT_EQ (memory_refusal (Pair ().a, 1), "descriptor that is no sealable memory");
  EXPECT_EQ (memory_refusal (vorn::Fd (), 1), "descriptor that is no sealable memory");
}

} // namespace
