// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/** What the source says of a frame: when its rows were exposed and how wide the lens looks. */
#ifndef TOVRINFILTER_FRAME_HPP
#define TOVRINFILTER_FRAME_HPP

#include <optional>
#include <string>

#include <gst/gst.h>

#include "tovrinfilter_geometry.hpp"

namespace tovrin
{

/** Fields of the frame metadata (<vorn/frame_meta.h>) beside its capture timestamp. */
inline constexpr const char *exposure_field = "exposure-ns"; // guint64, ns: of each row
inline constexpr const char *readout_field =
    "readout-ns"; // guint64, ns: from the top edge to the bottom edge
inline constexpr const char *hfov_field = "hfov"; // double, rad: 2 atan (width / 2f)
// If there: the same of the height, and the optical axis (tangents are center / focal).
inline constexpr const char *vfov_field = "vfov";         // double, rad
inline constexpr const char *focal_x_field = "focal-x";   // double, pixels of the source's picture
inline constexpr const char *focal_y_field = "focal-y";   // the same
inline constexpr const char *center_x_field = "center-x"; // double, the same pixels, from the left
inline constexpr const char *center_y_field = "center-y"; // from the top

struct FrameInfo {
  /** When the first row's exposure starts. */
  GstClockTime capture_ns;
  /** 0 when the source does not say. */
  GstClockTime exposure_ns;
  GstClockTime readout_ns;
  Optics optics;

  GstClockTime end_ns () const { return capture_ns + readout_ns + exposure_ns; }
  /** The middle of a row's exposure, after the capture time; down: 0 top edge, 1 bottom edge. */
  double row_ns (double down) const
  {
    return down * static_cast<double> (readout_ns) + static_cast<double> (exposure_ns) / 2;
  }
};

/** Exposure and readout together; longer is no video frame but an error of the source. */
inline constexpr GstClockTime longest_frame = GST_SECOND;

/**
 * Reads the buffer's frame metadata. Nothing when there is none; nothing, and the reason in
 * problem, when it does not do.
 */
std::optional<FrameInfo> read_frame_info (GstBuffer *buffer, std::string *problem);

} // namespace tovrin

#endif
