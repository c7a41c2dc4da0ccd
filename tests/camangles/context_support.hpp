// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What the tests of whole contexts share.
#ifndef TESTS_CAMANGLES_CONTEXT_SUPPORT_HPP
#define TESTS_CAMANGLES_CONTEXT_SUPPORT_HPP

#include <memory>

#include <camangles/camera_angles.h>

#include "context.h"
#include "support.hpp"

struct ContextCloser {
  void operator() (cameraAngles_t *context) const { cameraAngles_Close (context); }
};
using Context = std::unique_ptr<cameraAngles_t, ContextCloser>;

inline Context make_context (uint32_t log2_factor, float fs = 1000.0f)
{
  return Context (cameraAngles_New (log2_factor, fs));
}

/** All attitudes and timestamps that are ready. */
struct Drained {
  std::vector<quat_t> attitudes;
  std::vector<uint64_t> timestamps;
};

inline Drained drain (cameraAngles_t *context)
{
  Drained drained;
  quat_t attitude;
  uint64_t timestamp;
  while (cameraAngles_GetAngles (context, &attitude, &timestamp) == 0) {
    drained.attitudes.push_back (attitude);
    drained.timestamps.push_back (timestamp);
  }
  return drained;
}

#endif
