// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Why a running host did not do what it was asked.
#ifndef HOST_HOST_ERROR_HPP
#define HOST_HOST_ERROR_HPP

#include <string>

enum class HostErrorCode {
  failed,   // it was tried and failed
  busy,     // not now: something else runs
  refused,  // not in this mode or state
  invalid,  // an argument that cannot be
  timed_out // begun, and no end was seen
};

struct HostError {
  HostErrorCode code;
  std::string message;
};

#endif
