// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The D-Bus interface between a running host and its commands: what both ends must agree on.
#ifndef HOST_CONTROL_INTERFACE_HPP
#define HOST_CONTROL_INTERFACE_HPP

#include <string>

#include <gio/gio.h>

#include "host_error.hpp"

constexpr char control_interface_name[] = "org.vorn.Host1";
constexpr char control_object_path[] = "/org/vorn/Host1";

/** The interface with its methods, signals and properties; lives as long as the process. */
GDBusInterfaceInfo *control_interface ();

/** "org.vorn.Host1.Error.Busy" and its like. */
std::string control_error_name (HostErrorCode code);

/** Which error has this name; false for names of others. */
bool control_error_code (const std::string &name, HostErrorCode *code);

/** The D-Bus address of a socket. */
std::string control_address (const std::string &socket_path);

#endif
