// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "vorn_morvik_zelto_front_view_chain.hpp"

#include <vorn/log.h>

VORN_LOG_TAG ("vorn_morvik_zelto_front_view");

namespace front_view
{

Element make (const char *factory, const char *name)
{
  return vorn::adopt (gst_element_factory_make (factory, name));
}

namespace
{

/**
 * A test pattern says that its colours are of full range when it is asked for them, and draws them
 * in video range all the same: it is not asked, and the converter behind it does its work.
 */
GstPadProbeReturn hide_full_range (GstPad *, GstPadProbeInfo *info, gpointer)
{
  GstQuery *query = GST_PAD_PROBE_INFO_QUERY (info);
  if (GST_QUERY_TYPE (query) != GST_QUERY_CAPS)
    return GST_PAD_PROBE_OK;
  GstCaps *asked = nullptr;
  gst_query_parse_caps_result (query, &asked);
  if (!asked || gst_caps_is_any (asked))
    return GST_PAD_PROBE_OK;
  const Caps others = vorn::adopt (gst_caps_copy (asked));
  gst_caps_filter_and_map_in_place (
      others.get (),
      [] (GstCapsFeatures *, GstStructure *one, gpointer) -> gboolean {
        return g_strcmp0 (gst_structure_get_string (one, "colorimetry"), "1:4:0:0") != 0;
      },
      nullptr);
  gst_query_set_caps_result (query, others.get ());
  return GST_PAD_PROBE_OK;
}

} // namespace

Element make_test_source ()
{
  auto source = make ("videotestsrc");
  if (!source)
    return source;
  g_object_set (source.get (), "is-live", TRUE, nullptr);
  const auto pad = vorn::adopt (gst_element_get_static_pad (source.get (), "src"));
  gst_pad_add_probe (
      pad.get (),
      static_cast<GstPadProbeType> (GST_PAD_PROBE_TYPE_QUERY_DOWNSTREAM | GST_PAD_PROBE_TYPE_PULL),
      hide_full_range, nullptr, nullptr);
  return source;
}

Caps raw_caps (const VornResolution &size, const char *format, const VornFramerate *framerate)
{
  auto caps = vorn::adopt (
      gst_caps_new_simple ("video/x-raw", "width", G_TYPE_INT, static_cast<gint> (size.width),
                           "height", G_TYPE_INT, static_cast<gint> (size.height), nullptr));
  if (format)
    gst_caps_set_simple (caps.get (), "format", G_TYPE_STRING, format, nullptr);
  if (framerate)
    gst_caps_set_simple (caps.get (), "framerate", GST_TYPE_FRACTION,
                         static_cast<gint> (framerate->num), static_cast<gint> (framerate->den),
                         nullptr);
  return caps;
}

void set_sensor_rect (GstElement *source, guint left, guint top, guint width, guint height)
{
  g_object_set (source, "sensor-rect-width", width, "sensor-rect-height", height,
                "sensor-rect-left", left, "sensor-rect-top", top, nullptr);
}

void DewarpingElements::add_to (GstBin *bin) const
{
  gst_bin_add_many (bin, convert_in.get (), upload.get (), filter.get (), download.get (),
                    convert_out.get (), nullptr);
}

bool link_to_upload (GstElement *source, const DewarpingElements &elements,
                     const VornSensorConfiguration &sensor)
{
  if (!gst_element_link (source, elements.convert_in.get ())) {
    VORN_LOG_ERROR ("failed to link video source with videoconvert");
    return false;
  }
  const auto caps = raw_caps (sensor.resolution, "RGBA", &sensor.framerate);
  if (!gst_element_link_filtered (elements.convert_in.get (), elements.upload.get (),
                                  caps.get ())) {
    VORN_LOG_ERROR ("failed to link videoconvert and glupload");
    return false;
  }
  return true;
}

void take_out (GstBin *bin, GstElement *element)
{
  if (GST_OBJECT_PARENT (element) == GST_OBJECT (bin))
    gst_bin_remove (bin, element);
}

void take_all_out (GstBin *bin)
{
  while (bin->children)
    gst_bin_remove (bin, GST_ELEMENT (bin->children->data));
}

} // namespace front_view
