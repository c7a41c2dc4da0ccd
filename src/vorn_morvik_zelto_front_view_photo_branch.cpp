// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The picture pipeline's photo branch: frames scaled, made into JPEG files, and tagged on their way
// into the muxer.
#include "vorn_morvik_zelto_front_view_private.hpp"

#include <algorithm>

#include "trel_metadata.hpp"
#include "vorn_morvik_zelto_front_view_photo_tags.hpp"
#include <vorn/frame_meta.h>
#include <vorn/gst_raii.hpp>
#include <vorn/log.h>
#include <vorn/virtual_camera.h>

VORN_LOG_TAG ("vorn_morvik_zelto_front_view");

namespace
{

using Element = vorn::Ref<GstElement>;

constexpr gint64 thumbnail_timeout_us = 5 * G_TIME_SPAN_SECOND;
/** How long a pipeline that is stopped may have to wait for the muxer. */
constexpr gint64 wait_slice_us = 100 * G_TIME_SPAN_MILLISECOND;

Element make (const char *factory, const char *name = nullptr)
{
  return vorn::adopt (gst_element_factory_make (factory, name));
}

/** The camera's time of the frame; FALSE (logged) when the frame does not carry it. */
bool get_frame_capture_time (GstBuffer *buffer, GstClockTime *time_ns)
{
  const VornFrameMeta *meta = vorn_frame_meta_get (buffer);
  if (meta &&
      gst_structure_get_clock_time (meta->structure, VORN_FRAME_META_CAPTURE_TIMESTAMP, time_ns))
    return true;
  VORN_LOG_WARNING ("failed to retrieve capture timestamp");
  return false;
}

/** A test pattern is captured when it is tagged. */
GstClockTime get_clock_time (GstElement *element)
{
  const auto clock = vorn::adopt (gst_element_get_clock (element));
  return clock ? gst_clock_get_time (clock.get ()) : GST_CLOCK_TIME_NONE;
}

void tag_photo (VornMorvikZeltoFrontView *view, GstTagSetter *muxer, GstBuffer *buffer)
{
  GstClockTime time_ns = GST_CLOCK_TIME_NONE;
  if (!with_front_cam ())
    time_ns = get_clock_time (GST_ELEMENT (muxer));
  else if (!get_frame_capture_time (buffer, &time_ns))
    return;
  if (!GST_CLOCK_TIME_IS_VALID (time_ns)) {
    VORN_LOG_WARNING ("not a valid timestamp");
    return;
  }
  trel_metadata_photo_update (time_ns);
  VornMetadataProvider *provider =
      vorn_virtual_cam_get_pmd (vorn_view_get_parent (VORN_VIEW (view)));
  VornTimedPhotoMetadata metadata = {};
  if (!vorn_metadata_provider_get_timed_photo_meta (provider, time_ns, &metadata)) {
    VORN_LOG_ERROR ("failed to collect metadata");
    return;
  }
  clear_photo_exposure (&metadata);
  const auto tags = make_timed_photo_tags (metadata, load_relaxed (view->photo_format), time_ns);
  gst_tag_setter_merge_tags (muxer, tags.get (), GST_TAG_MERGE_REPLACE);
}

GstPadProbeReturn picture_pipeline_metadata_probe_cb (GstPad *pad, GstPadProbeInfo *info,
                                                      gpointer view)
{
  const Element muxer = vorn::adopt (gst_pad_get_parent_element (pad));
  if (muxer)
    tag_photo (VORN_MORVIK_ZELTO_FRONT_VIEW (view), GST_TAG_SETTER (muxer.get ()),
               GST_PAD_PROBE_INFO_BUFFER (info));
  else
    VORN_LOG_WARNING ("Couldn't get tagger");
  return GST_PAD_PROBE_PASS;
}

bool has_image (GstTagSetter *muxer)
{
  const GstTagList *tags = gst_tag_setter_get_tag_list (muxer);
  return tags && gst_tag_list_get_value_index (tags, GST_TAG_IMAGE, 0) != nullptr;
}

bool is_flushing (GstPad *pad)
{
  GST_OBJECT_LOCK (pad);
  const bool flushing = GST_PAD_IS_FLUSHING (pad);
  GST_OBJECT_UNLOCK (pad);
  return flushing;
}

/**
 * Waits until the muxer has the thumbnail or is being stopped. A deadline that has passed is told
 * at each further turn, and ends nothing.
 */
void wait_for_thumbnail (VornMorvikZeltoFrontView *view, GstTagSetter *muxer, GstPad *pad)
{
  const gint64 deadline_us = g_get_monotonic_time () + thumbnail_timeout_us;
  while (!is_flushing (pad)) {
    bool signalled;
    {
      // Given up at each turn: a wait that is over before it begins would not let go of it, and
      // the thumbnail needs it.
      vorn::Lock lock (&view->lock);
      if (has_image (muxer))
        return;
      signalled = lock.wait_until (&view->cond,
                                   std::min (deadline_us, g_get_monotonic_time () + wait_slice_us));
    }
    if (!signalled && g_get_monotonic_time () >= deadline_us) {
      VORN_LOG_ERROR ("timeout of %ld microseconds has passed", deadline_us);
      g_thread_yield ();
    }
  }
}

GstPadProbeReturn mux_sink_probe_cb (GstPad *pad, GstPadProbeInfo *info, gpointer data)
{
  // Events go by: caps and segment are needed before there is a picture to wait for.
  if (!(GST_PAD_PROBE_INFO_TYPE (info) & GST_PAD_PROBE_TYPE_BUFFER))
    return GST_PAD_PROBE_PASS;
  auto *view = VORN_MORVIK_ZELTO_FRONT_VIEW (data);
  const Element muxer =
      vorn::adopt (gst_bin_get_by_name (GST_BIN (view->picture_pipeline), "picture-jpegmux"));
  if (muxer)
    wait_for_thumbnail (view, GST_TAG_SETTER (muxer.get ()), pad);
  else
    VORN_LOG_WARNING ("failed to get picture-jpegmux");
  return GST_PAD_PROBE_PASS;
}

void watch_muxer (GstElement *muxer, VornMorvikZeltoFrontView *view)
{
  const auto pad = vorn::adopt (gst_element_get_static_pad (muxer, "sink"));
  view->picture_probe_id = gst_pad_add_probe (pad.get (), GST_PAD_PROBE_TYPE_BUFFER,
                                              picture_pipeline_metadata_probe_cb, view, nullptr);
  // Blocking probes run before others: a photo is tagged once its thumbnail is there.
  gst_pad_add_probe (pad.get (), GST_PAD_PROBE_TYPE_BLOCK_DOWNSTREAM, mux_sink_probe_cb, view,
                     nullptr);
}

} // namespace

gboolean populate_picture_main_pipeline (GstBin *bin, GstElement *tee,
                                         VornMorvikZeltoFrontView *view, guint32 width,
                                         guint32 height)
{
  const Element queue = make ("queue");
  const Element scale = make ("videoscale");
  const Element filter = make ("capsfilter", "picture-jpegfilter");
  const Element encoder = make ("jpegenc");
  const Element muxer = make ("jifmux", "picture-jpegmux");
  const Element sink = make ("multifilesink", "picture-jpegsink");
  if (!queue || !scale || !filter || !encoder || !muxer || !sink) {
    VORN_LOG_ERROR ("missing elements:%s%s%s%s%s%s", queue ? "" : " queue",
                    scale ? "" : " videoscale", filter ? "" : " capsfilter",
                    encoder ? "" : " jpegenc", muxer ? "" : " jifmux", sink ? "" : " filesink");
    return FALSE;
  }

  watch_muxer (muxer.get (), view);
  const auto caps = vorn::adopt (
      gst_caps_new_simple ("video/x-raw", "width", G_TYPE_INT, static_cast<gint> (width), "height",
                           G_TYPE_INT, static_cast<gint> (height), nullptr));
  g_object_set (filter.get (), "caps", caps.get (), nullptr);
  // Each file is announced on the bus.
  g_object_set (sink.get (), "async", FALSE, "post-messages", TRUE, nullptr);

  gst_bin_add_many (bin, queue.get (), scale.get (), filter.get (), encoder.get (), muxer.get (),
                    sink.get (), nullptr);
  if (!gst_element_link_many (tee, queue.get (), scale.get (), filter.get (), encoder.get (),
                              muxer.get (), sink.get (), nullptr)) {
    VORN_LOG_ERROR (
        "failed to link tee with queue, videoscale, capsfilter, jpegenc, jifmux, filesink");
    gst_bin_remove_many (bin, queue.get (), scale.get (), filter.get (), encoder.get (),
                         muxer.get (), sink.get (), nullptr);
    return FALSE;
  }
  return TRUE;
}
