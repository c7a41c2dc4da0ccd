// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "tovrinfilter_frame.hpp"

#include <vorn/frame_meta.h>

namespace tovrin
{

std::optional<FrameTiming> read_frame_timing (GstBuffer *buffer, std::string *problem)
{
  const VornFrameMeta *meta = vorn_frame_meta_get (buffer);
  if (!meta)
    return std::nullopt;
  const auto missing = [&] (const char *name) {
    *problem = std::string ("the frame metadata has no ") + name;
    return std::nullopt;
  };
  FrameTiming timing{};
  if (!gst_structure_get_clock_time (meta->structure, VORN_FRAME_META_CAPTURE_TIMESTAMP,
                                     &timing.capture_ns) ||
      !GST_CLOCK_TIME_IS_VALID (timing.capture_ns))
    return missing (VORN_FRAME_META_CAPTURE_TIMESTAMP);
  if (!gst_structure_get_double (meta->structure, hfov_field, &timing.hfov_rad))
    return missing (hfov_field);
  // A source that says neither has a global shutter and a short exposure.
  gst_structure_get_uint64 (meta->structure, exposure_field, &timing.exposure_ns);
  gst_structure_get_uint64 (meta->structure, readout_field, &timing.readout_ns);
  if (timing.exposure_ns > longest_frame || timing.readout_ns > longest_frame ||
      timing.exposure_ns + timing.readout_ns > longest_frame ||
      timing.capture_ns > GST_CLOCK_TIME_NONE - 1 - longest_frame) {
    *problem = "the frame metadata's times are out of range";
    return std::nullopt;
  }
  return timing;
}

} // namespace tovrin
