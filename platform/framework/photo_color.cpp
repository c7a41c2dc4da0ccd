// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// JPEG has colours of one kind, BT.601 of full range (JFIF 1.02), and nobody who reads a picture
// expects others. GStreamer's encoder writes the values that it is given, whatever they mean, and a
// raw frame of 720 lines is of video range and BT.709 unless it says otherwise. So the encoder is
// made to ask for its own.
#include "internal.hpp"
#include <vorn/gst_raii.hpp>

namespace
{

/** The encoder itself turns these into JPEG's colours. */
constexpr char rgb_caps[] =
    "video/x-raw, format = (string) { RGB, BGR, RGBx, xRGB, BGRx, xBGR, GRAY8 }";
/** These it takes for JPEG's colours. */
constexpr char yuv_caps[] =
    "video/x-raw, colorimetry = (string) 1:4:0:0, "
    "format = (string) { I420, YV12, YUY2, UYVY, Y41B, Y42B, YVYU, Y444, NV21, NV12 }";

vorn::Ref<GstCaps> jpeg_caps ()
{
  auto caps = vorn::adopt (gst_caps_from_string (yuv_caps));
  gst_caps_append (caps.get (), gst_caps_from_string (rgb_caps));
  return caps;
}

/** Narrows the answer of a query to frames whose colours are right. */
GstPadProbeReturn on_answer (GstPad *, GstPadProbeInfo *info, gpointer)
{
  GstQuery *query = GST_PAD_PROBE_INFO_QUERY (info);
  if (GST_QUERY_TYPE (query) != GST_QUERY_CAPS)
    return GST_PAD_PROBE_OK;
  GstCaps *accepted = nullptr;
  gst_query_parse_caps_result (query, &accepted);
  if (!accepted)
    return GST_PAD_PROBE_OK;
  const auto narrowed = vorn::adopt (
      gst_caps_intersect_full (accepted, jpeg_caps ().get (), GST_CAPS_INTERSECT_FIRST));
  gst_query_set_caps_result (query, narrowed.get ());
  return GST_PAD_PROBE_OK;
}

} // namespace

void vorn::photo_color_watch (GstElement *encoder)
{
  const auto pad = adopt (gst_element_get_static_pad (encoder, "sink"));
  gst_pad_add_probe (
      pad.get (),
      static_cast<GstPadProbeType> (GST_PAD_PROBE_TYPE_QUERY_DOWNSTREAM | GST_PAD_PROBE_TYPE_PULL),
      on_answer, nullptr, nullptr);
}
