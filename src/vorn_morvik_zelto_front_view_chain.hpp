// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What the main and the picture pipeline have in common: elements, caps, links, and how they are
// taken back.
#ifndef VORN_MORVIK_ZELTO_FRONT_VIEW_CHAIN_HPP
#define VORN_MORVIK_ZELTO_FRONT_VIEW_CHAIN_HPP

#include <vorn/camera.h>
#include <vorn/gst_raii.hpp>

namespace front_view
{

using Element = vorn::Ref<GstElement>;
using Caps = vorn::Ref<GstCaps>;

/** The size of the reduced pipelines' pictures. */
inline constexpr VornResolution simple_size = {1280, 720};

/** A new element, or none. */
Element make (const char *factory, const char *name = nullptr);

/** A test pattern at the pace of a camera, or none. */
Element make_test_source ();

/** Raw video of this size; format and framerate may be NULL: any. */
Caps raw_caps (const VornResolution &size, const char *format,
               const VornFramerate *framerate = nullptr);

/** Says what part of the sensor a camera source captures. */
void set_sensor_rect (GstElement *source, guint left, guint top, guint width, guint height);

/** The pieces around a dewarping filter, the same in both pipelines. */
struct DewarpingElements {
  Element convert_in = make ("videoconvert");
  Element upload = make ("glupload");
  Element filter = make ("kavrel_tovrinfilter");
  Element download = make ("gldownload");
  Element convert_out = make ("videoconvert");

  explicit operator bool () const
  {
    return convert_in && upload && filter && download && convert_out;
  }
  void add_to (GstBin *bin) const;
};

/** Links the source with the converter and, at the sensor's size and rate, on to the upload; FALSE
 * (logged) when that fails. */
bool link_to_upload (GstElement *source, const DewarpingElements &elements,
                     const VornSensorConfiguration &sensor);

/** Takes an element out of the bin; nothing when it is not there. */
void take_out (GstBin *bin, GstElement *element);

/** Empties the bin. */
void take_all_out (GstBin *bin);

} // namespace front_view

#endif
