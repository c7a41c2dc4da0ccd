// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What a host needs to run, looked at one by one.
#ifndef HOST_DOCTOR_CHECKS_HPP
#define HOST_DOCTOR_CHECKS_HPP

#include <string>
#include <vector>

#include "instance_claim.hpp"
#include "options.hpp"

enum class Health { good, warning, bad };

struct Finding {
  std::string what; // the thing that was looked at
  Health health;
  std::string message;
  std::string advice; // what to do about it; empty when it is good
};

/** Looks at everything; GStreamer is started. Takes seconds: GL renders a frame. */
std::vector<Finding> examine (const Options &options, const Instance &instance);

#endif
