// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "recording_rewrite.hpp"

#include "mp4_settings.hpp"

#include <vorn/gst_raii.hpp>

namespace vorn
{

namespace
{

/** Makes an element and adds it; NULL, with an error, when it is missing. */
GstElement *add (GstBin *bin, const char *factory_name, GError **error)
{
  GstElement *element = gst_element_factory_make (factory_name, nullptr);
  if (element)
    gst_bin_add (bin, element);
  else
    g_set_error (error, GST_CORE_ERROR, GST_CORE_ERROR_MISSING_PLUGIN,
                 "the element '%s' is missing", factory_name);
  return element;
}

/** No parser in between: it would make key frames of what carries a recovery point. */
void on_pad_added (GstElement *, GstPad *pad, gpointer muxer)
{
  const auto caps = adopt (gst_pad_get_current_caps (pad));
  if (!caps || !gst_structure_has_name (gst_caps_get_structure (caps.get (), 0), "video/x-h264"))
    return;
  const auto sink = adopt (gst_element_request_pad_simple (GST_ELEMENT (muxer), "video_%u"));
  if (sink)
    gst_pad_link (pad, sink.get ());
}

bool play_to_the_end (GstElement *pipeline, GError **error)
{
  const auto bus = adopt (gst_element_get_bus (pipeline));
  gst_element_set_state (pipeline, GST_STATE_PLAYING);
  const auto message = adopt (gst_bus_timed_pop_filtered (
      bus.get (), GST_CLOCK_TIME_NONE,
      static_cast<GstMessageType> (GST_MESSAGE_EOS | GST_MESSAGE_ERROR)));
  if (GST_MESSAGE_TYPE (message.get ()) == GST_MESSAGE_ERROR)
    gst_message_parse_error (message.get (), error, nullptr);
  const bool ended = GST_MESSAGE_TYPE (message.get ()) == GST_MESSAGE_EOS;
  gst_element_set_state (pipeline, GST_STATE_NULL);
  return ended;
}

} // namespace

bool rewrite_as_plain_mp4 (const std::string &from, const std::string &to, const GstTagList *tags,
                           GError **error)
{
  const auto pipeline = adopt (gst_pipeline_new ("recording-rewrite"));
  GstBin *bin = GST_BIN (pipeline.get ());
  GstElement *source = add (bin, "filesrc", error);
  GstElement *demuxer = source ? add (bin, "qtdemux", error) : nullptr;
  GstElement *muxer = demuxer ? add (bin, "mp4mux", error) : nullptr;
  GstElement *sink = muxer ? add (bin, "filesink", error) : nullptr;
  if (!sink)
    return false;
  g_object_set (source, "location", from.c_str (), nullptr);
  g_object_set (sink, "location", to.c_str (), nullptr);
  set_recording_timescale (muxer);
  if (tags)
    gst_tag_setter_merge_tags (GST_TAG_SETTER (muxer), tags, GST_TAG_MERGE_REPLACE);
  g_signal_connect (demuxer, "pad-added", G_CALLBACK (on_pad_added), muxer);
  gst_element_link (source, demuxer);
  gst_element_link (muxer, sink);
  return play_to_the_end (pipeline.get (), error);
}

} // namespace vorn
