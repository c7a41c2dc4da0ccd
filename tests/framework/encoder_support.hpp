// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A pipeline around the encoder: a test picture before it, its access units behind it.
#ifndef TESTS_FRAMEWORK_ENCODER_SUPPORT_HPP
#define TESTS_FRAMEWORK_ENCODER_SUPPORT_HPP

#include <functional>
#include <string>
#include <vector>

#include <vorn/encoder.h>
#include <vorn/gst_raii.hpp>

#include "h264_support.hpp"

namespace encoding
{

using h264::Bytes;

/** One access unit, taken apart. */
struct Unit {
  vorn::Ref<GstBuffer> buffer;
  std::vector<Bytes> nalus;

  bool is_key_frame () const
  {
    return !GST_BUFFER_FLAG_IS_SET (buffer.get (), GST_BUFFER_FLAG_DELTA_UNIT);
  }
  size_t count (std::initializer_list<unsigned> types) const;
  size_t slices () const { return count ({1, 5}); }
  size_t size () const { return gst_buffer_get_size (buffer.get ()); }
};

class Pipeline
{
public:
  /** Takes the encoder over. source: properties of the videotestsrc; caps: what it gives. */
  Pipeline (GstElement *encoder, const std::string &source, const std::string &caps);
  ~Pipeline ();

  /** Is shown each raw frame, writable, before the encoder, with its number. */
  std::function<void (GstBuffer *, int)> on_frame;

  /** Plays to the end of the stream; the access units. Errors fail the test. */
  std::vector<Unit> run ();

  void set_caps (const std::string &caps);
  GstElement *encoder () const { return encoder_; }
  /** The element that does the work. */
  vorn::Ref<GstElement> worker () const;
  /** Caps of each access unit's sample, one entry a change. */
  const std::vector<vorn::Ref<GstCaps>> &caps () const { return caps_; }

private:
  static GstPadProbeReturn on_buffer (GstPad *, GstPadProbeInfo *info, gpointer data);
  vorn::Ref<GstElement> pipeline_;
  GstElement *encoder_;
  std::vector<vorn::Ref<GstCaps>> caps_;
  int frames_ = 0;
};

guint get_uint (gpointer object, const char *property);

/** The SPS of the first access unit that has one. */
VornH264Sps sps_of (const std::vector<Unit> &units);

std::vector<int> key_frames (const std::vector<Unit> &units);

} // namespace encoding

#endif
