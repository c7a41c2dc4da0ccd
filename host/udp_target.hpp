// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Where the stream is sent as bare RTP.
#ifndef HOST_UDP_TARGET_HPP
#define HOST_UDP_TARGET_HPP

#include <string>

#include <glib.h>

/** An IPv4 address and a port. */
struct UdpTarget {
  std::string address;      // dotted
  guint32 address_word = 0; // network byte order
  guint16 port = 0;
};

/** Reads HOST:PORT, looking a name up; false with the reason. */
bool parse_udp_target (const std::string &text, UdpTarget *target, std::string *error);

#endif
