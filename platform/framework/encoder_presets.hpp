// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The presets that are shipped with the library.
#ifndef VORN_FRAMEWORK_ENCODER_PRESETS_HPP
#define VORN_FRAMEWORK_ENCODER_PRESETS_HPP

#include <gst/gst.h>

namespace vorn::encoder
{

/** Makes an element type's GstPreset know the shipped presets after GStreamer's own places. */
void preset_interface_init (gpointer interface, gpointer data);

} // namespace vorn::encoder

#endif
