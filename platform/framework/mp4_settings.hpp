// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef VORN_FRAMEWORK_MP4_SETTINGS_HPP
#define VORN_FRAMEWORK_MP4_SETTINGS_HPP

#include <gst/gst.h>

namespace vorn
{

/** Frames have the times of their capture, which lie on no grid of the framerate. */
inline void set_recording_timescale (GstElement *muxer)
{
  g_object_set (muxer, "trak-timescale", 90000u, nullptr);
}

} // namespace vorn

#endif
