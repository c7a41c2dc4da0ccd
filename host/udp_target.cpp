// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "udp_target.hpp"

#include <cstring>

#include <gio/gio.h>

#include <vorn/raii.hpp>

/** The IPv4 address of a name, or of an address in writing. */
static vorn::Ref<GInetAddress> look_up (const std::string &host, std::string *error)
{
  const auto resolver = vorn::adopt (g_resolver_get_default ());
  vorn::ErrorOut failure;
  GList *found = g_resolver_lookup_by_name_with_flags (resolver.get (), host.c_str (),
                                                       G_RESOLVER_NAME_LOOKUP_FLAGS_IPV4_ONLY,
                                                       nullptr, failure.out ());
  if (!found) {
    *error = failure.message ();
    return nullptr;
  }
  const auto address = vorn::share (G_INET_ADDRESS (found->data));
  g_resolver_free_addresses (found);
  if (g_inet_address_get_family (address.get ()) == G_SOCKET_FAMILY_IPV4)
    return address;
  *error = "an IPv4 address is needed";
  return nullptr;
}

bool parse_udp_target (const std::string &text, UdpTarget *target, std::string *error)
{
  const auto colon = text.rfind (':');
  guint64 port = 0;
  if (colon == std::string::npos || colon == 0 ||
      !g_ascii_string_to_unsigned (text.c_str () + colon + 1, 10, 1, 65535, &port, nullptr)) {
    *error = "--udp: '" + text + "' is not HOST:PORT";
    return false;
  }
  std::string reason;
  const auto address = look_up (text.substr (0, colon), &reason);
  if (!address) {
    *error = "--udp: '" + text + "': " + reason;
    return false;
  }
  const vorn::OwnedString dotted (g_inet_address_to_string (address.get ()));
  target->address = dotted.get ();
  memcpy (&target->address_word, g_inet_address_to_bytes (address.get ()),
          sizeof target->address_word);
  target->port = static_cast<guint16> (port);
  return true;
}
