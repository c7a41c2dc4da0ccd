// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "make_thumbnail.hpp"

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>

#include <vorn/gst_raii.hpp>
#include <vorn/log.h>

VORN_LOG_TAG ("make_thumbnail");

namespace
{

constexpr gint thumbnail_width = 320;

using Element = vorn::Ref<GstElement>;

Element make (const char *factory, const char *name)
{
  return vorn::adopt (gst_element_factory_make (factory, name));
}

const char *if_missing (const Element &element, const char *name)
{
  return element ? "" : name;
}

void set_filter_caps (GstElement *filter)
{
  // The scaler finds the height that keeps the shape.
  const auto caps =
      vorn::adopt (gst_caps_new_simple ("video/x-raw", "width", G_TYPE_INT, thumbnail_width,
                                        "pixel-aspect-ratio", GST_TYPE_FRACTION, 1, 1, nullptr));
  g_object_set (filter, "caps", caps.get (), nullptr);
}

/** Whether the buffer holds a frame of this size: the scaler would not refuse it, but make noise.
 */
bool is_whole (GstBuffer *buffer, guint32 width, guint32 height)
{
  const guint64 row = GST_ROUND_UP_4 (guint64{width} * 3);
  const guint64 size = gst_buffer_get_size (buffer);
  if (size >= row * height)
    return true;
  VORN_LOG_ERROR ("a frame of %" G_GUINT64_FORMAT " bytes is no picture of %ux%u", size, width,
                  height);
  return false;
}

/** Gives the source its one frame. It keeps it until it runs. */
void feed (GstAppSrc *source, GstBuffer *buffer, GstCaps *caps)
{
  gst_app_src_set_caps (source, caps);
  gst_app_src_push_buffer (source, gst_buffer_ref (buffer));
  gst_app_src_end_of_stream (source);
}

} // namespace

GstSample *make_thumbnail (GstBuffer *buffer, guint32 width, guint32 height, guint32 framerate_num,
                           guint32 framerate_den)
{
  const Element source = make ("appsrc", "source");
  const Element scale = make ("videoscale", "scale");
  const Element filter = make ("capsfilter", "filter");
  const Element encoder = make ("jpegenc", "encoder");
  const Element sink = make ("appsink", "sink");
  const Element pipeline = vorn::adopt (gst_pipeline_new ("create-video-thumbnail"));
  if (!source || !scale || !filter || !encoder || !sink || !pipeline) {
    VORN_LOG_ERROR ("Not all elements could be created: %s %s %s %s %s %s.",
                    if_missing (pipeline, "pipeline"), if_missing (source, "source"),
                    if_missing (sink, "sink"), if_missing (encoder, "enc"),
                    if_missing (scale, "scale"), if_missing (filter, "filter"));
    return nullptr;
  }

  if (!is_whole (buffer, width, height))
    return nullptr;

  set_filter_caps (filter.get ());
  // A frame of ten minutes into the flight is not waited for.
  g_object_set (source.get (), "format", GST_FORMAT_TIME, nullptr);
  g_object_set (sink.get (), "sync", FALSE, nullptr);
  const auto caps = vorn::adopt (gst_caps_new_simple (
      "video/x-raw", "width", G_TYPE_INT, static_cast<gint> (width), "height", G_TYPE_INT,
      static_cast<gint> (height), "format", G_TYPE_STRING, "RGB", "framerate", GST_TYPE_FRACTION,
      static_cast<gint> (framerate_num), static_cast<gint> (framerate_den), nullptr));
  feed (GST_APP_SRC (source.get ()), buffer, caps.get ());

  gst_bin_add_many (GST_BIN (pipeline.get ()), source.get (), scale.get (), filter.get (),
                    encoder.get (), sink.get (), nullptr);
  if (!gst_element_link_many (source.get (), scale.get (), filter.get (), encoder.get (),
                              sink.get (), nullptr)) {
    VORN_LOG_ERROR ("can't link elements");
    return nullptr;
  }
  GstSample *sample = nullptr;
  if (gst_element_set_state (pipeline.get (), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE)
    VORN_LOG_ERROR ("can't set the pipeline to the playing state.");
  else
    sample = gst_app_sink_pull_sample (GST_APP_SINK (sink.get ()));
  gst_element_set_state (pipeline.get (), GST_STATE_NULL);
  return sample;
}
