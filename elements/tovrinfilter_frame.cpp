// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "tovrinfilter_frame.hpp"

#include <vorn/frame_meta.h>

namespace tovrin
{

namespace
{

std::optional<double> read_double (const GstStructure *structure, const char *name)
{
  double value = 0;
  return gst_structure_get_double (structure, name, &value) ? std::optional (value) : std::nullopt;
}

std::optional<double> read_axis (const GstStructure *structure, const char *center,
                                 const char *focal)
{
  const auto at = read_double (structure, center);
  const auto per_tangent = read_double (structure, focal);
  return at && per_tangent ? std::optional (*at / *per_tangent) : std::nullopt;
}

} // namespace

std::optional<FrameInfo> read_frame_info (GstBuffer *buffer, std::string *problem)
{
  const VornFrameMeta *meta = vorn_frame_meta_get (buffer);
  if (!meta)
    return std::nullopt;
  const auto missing = [&] (const char *name) {
    *problem = std::string ("the frame metadata has no ") + name;
    return std::nullopt;
  };
  FrameInfo info{};
  if (!gst_structure_get_clock_time (meta->structure, VORN_FRAME_META_CAPTURE_TIMESTAMP,
                                     &info.capture_ns) ||
      !GST_CLOCK_TIME_IS_VALID (info.capture_ns))
    return missing (VORN_FRAME_META_CAPTURE_TIMESTAMP);
  const auto hfov_rad = read_double (meta->structure, hfov_field);
  if (!hfov_rad)
    return missing (hfov_field);
  info.optics = {*hfov_rad, read_double (meta->structure, vfov_field),
                 read_axis (meta->structure, center_x_field, focal_x_field),
                 read_axis (meta->structure, center_y_field, focal_y_field)};
  // A source that says neither has a global shutter and a short exposure.
  gst_structure_get_uint64 (meta->structure, exposure_field, &info.exposure_ns);
  gst_structure_get_uint64 (meta->structure, readout_field, &info.readout_ns);
  if (info.exposure_ns > longest_frame || info.readout_ns > longest_frame ||
      info.exposure_ns + info.readout_ns > longest_frame ||
      info.capture_ns > GST_CLOCK_TIME_NONE - 1 - longest_frame) {
    *problem = "the frame metadata's times are out of range";
    return std::nullopt;
  }
  return info;
}

} // namespace tovrin
