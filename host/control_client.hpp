// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Calls a host that runs on an instance.
#ifndef HOST_CONTROL_CLIENT_HPP
#define HOST_CONTROL_CLIENT_HPP

#include <string>

#include <gio/gio.h>

#include "instance_claim.hpp"
#include <vorn/raii.hpp>

using OwnedVariant = vorn::Owned<GVariant, g_variant_unref>;

/** How a call ended: an ExitStatus, with the reason when it is not EXIT_OK. */
struct CallResult {
  int status;
  std::string error;
  OwnedVariant value; // a tuple
};

/**
 * Calls a method of org.vorn.Host1 and waits for the answer.
 *
 * parameters: a tuple, floating, or NULL. timeout_ms: for the answer; connecting has its own.
 */
CallResult call_host (const Instance &instance, const char *method, GVariant *parameters,
                      int timeout_ms);

#endif
