// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Fuzz input as what one side of the camera's wire protocol sends: packets with descriptors.
//
// Each packet begins with two bytes: a length or type, and a mode. Mode bit 7: the message of that
// type as it should be, with up to four bytes changed (offset and value follow); else as many raw
// bytes as the length says. The lower bits say how many descriptors go with it, and of what.
#ifndef FUZZ_CAMERA_PACKETS_HPP
#define FUZZ_CAMERA_PACKETS_HPP

#include <cstddef>
#include <cstdint>
#include <vector>

#include <vorn/camera_protocol.h>
#include <vorn/raii.hpp>

struct CameraPacket {
  std::vector<uint8_t> bytes;
  std::vector<int> fds;
};

/** The packets of an input. The descriptors are the process's own and stay open. */
std::vector<CameraPacket> camera_packets (const uint8_t *data, size_t size);

/** Sends them all; what finds no room is left out. Then the sending side is shut. */
void send_packets (int socket, const std::vector<CameraPacket> &packets);

/** A connected pair of sockets. */
struct CameraSocketPair {
  CameraSocketPair ();
  vorn::Fd ours, theirs;
};

#endif
