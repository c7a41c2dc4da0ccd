// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "camera_packets.hpp"

#include <algorithm>
#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

namespace
{

constexpr size_t most_packets = 16;
constexpr uint32_t frame_size = 48 * 8;

int make_memory (off_t size, unsigned seals)
{
  const int fd = memfd_create ("fuzz", MFD_CLOEXEC | MFD_ALLOW_SEALING);
  (void)!ftruncate (fd, size);
  fcntl (fd, F_ADD_SEALS, seals);
  return fd;
}

/** Memory as it should be, too small, unsealed, and something else. */
int descriptor (unsigned kind)
{
  static const int fds[] = {make_memory (frame_size, F_SEAL_SHRINK),
                            make_memory (frame_size - 1, F_SEAL_SHRINK),
                            make_memory (frame_size, 0), open ("/dev/null", O_RDONLY | O_CLOEXEC)};
  return fds[kind % 4];
}

VornCameraMessage orderly_message (VornCameraMessageType type)
{
  VornCameraMessage message;
  vorn_camera_message_init (&message, type);
  switch (type) {
  case VORN_CAMERA_SENSOR:
    message.sensor.width = 64;
    message.sensor.height = 48;
    message.sensor.rate_numerator = 30;
    message.sensor.rate_denominator = 1;
    message.sensor.horizontal_fov_rad = 1;
    break;
  case VORN_CAMERA_REQUEST:
    message.request.rect_width = 64;
    message.request.rect_height = 48;
    message.request.width = 16;
    message.request.height = 8;
    message.request.rate_numerator = 1000;
    message.request.rate_denominator = 1;
    message.request.buffers = 3;
    break;
  case VORN_CAMERA_STREAM:
    message.stream.buffers = 3;
    message.stream.stride = 48;
    message.stream.frame_size = frame_size;
    message.stream.focal_x = message.stream.focal_y = 20;
    break;
  case VORN_CAMERA_FRAME:
    message.frame.sequence = 1;
    message.frame.capture_ns = 1;
    break;
  default:
    break;
  }
  return message;
}

} // namespace

std::vector<CameraPacket> camera_packets (const uint8_t *data, size_t size)
{
  std::vector<CameraPacket> packets;
  while (size >= 2 && packets.size () < most_packets) {
    const uint8_t length = data[0];
    const uint8_t mode = data[1];
    data += 2;
    size -= 2;
    CameraPacket packet;
    if (mode & 0x80) {
      VornCameraMessage message =
          orderly_message (static_cast<VornCameraMessageType> (1 + length % 7));
      // Frames differ, or the second would always be refused.
      message.frame.sequence += packets.size () * (message.header.type == VORN_CAMERA_FRAME);
      message.frame.capture_ns += packets.size () * (message.header.type == VORN_CAMERA_FRAME);
      const auto *bytes = reinterpret_cast<const uint8_t *> (&message);
      packet.bytes.assign (bytes, bytes + message.header.size);
      for (unsigned edits = length / 7 % 5; edits > 0 && size >= 2; edits--) {
        packet.bytes[data[0] % packet.bytes.size ()] = data[1];
        data += 2;
        size -= 2;
      }
    } else {
      const size_t count = std::min<size_t> (length, size);
      packet.bytes.assign (data, data + count);
      data += count;
      size -= count;
    }
    for (unsigned i = 0; i < (mode & 7u); i++)
      packet.fds.push_back (descriptor (mode >> 3));
    packets.push_back (packet);
  }
  return packets;
}

void send_packets (int socket, const std::vector<CameraPacket> &packets)
{
  for (const CameraPacket &packet : packets) {
    iovec bytes = {const_cast<uint8_t *> (packet.bytes.data ()), packet.bytes.size ()};
    alignas (cmsghdr) char control[CMSG_SPACE (7 * sizeof (int))] = {};
    msghdr header = {};
    header.msg_iov = &bytes;
    header.msg_iovlen = 1;
    if (!packet.fds.empty ()) {
      header.msg_control = control;
      header.msg_controllen = CMSG_SPACE (packet.fds.size () * sizeof (int));
      cmsghdr *item = CMSG_FIRSTHDR (&header);
      item->cmsg_level = SOL_SOCKET;
      item->cmsg_type = SCM_RIGHTS;
      item->cmsg_len = CMSG_LEN (packet.fds.size () * sizeof (int));
      memcpy (CMSG_DATA (item), packet.fds.data (), packet.fds.size () * sizeof (int));
    }
    (void)!sendmsg (socket, &header, MSG_DONTWAIT | MSG_NOSIGNAL);
  }
  shutdown (socket, SHUT_WR);
}

CameraSocketPair::CameraSocketPair ()
{
  int ends[2] = {-1, -1};
  (void)!socketpair (AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends);
  ours = vorn::Fd (ends[0]);
  theirs = vorn::Fd (ends[1]);
}
