// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The H.264 encoders that can do the work, each with its own way of being told.
#ifndef VORN_FRAMEWORK_ENCODER_BACKEND_HPP
#define VORN_FRAMEWORK_ENCODER_BACKEND_HPP

#include <gst/gst.h>

#include <vorn/encoder.h>

namespace vorn::encoder
{

struct Backend {
  const char *factory_name;
  bool writes_timing; // VUI timing information and pic_struct
  bool writes_avc;    // else a parser turns its byte stream into AVC
  /** What never changes; right after it was made. */
  void (*initialize) (GstElement *encoder);
  /** In READY: encoders take these only before they start. */
  void (*set_up) (GstElement *encoder, VornEncoderSpeed speed, guint slices);
  /** At any time. */
  void (*set_bitrate) (GstElement *encoder, guint bitrate_kbps);
  guint max_bitrate_kbps;
};

/** NULL for an encoder that is not known here. */
const Backend *find_backend (const char *factory_name);

} // namespace vorn::encoder

#endif
