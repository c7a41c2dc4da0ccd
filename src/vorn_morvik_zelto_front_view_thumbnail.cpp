// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Thumbnails: the one of each photo, from the picture pipeline, and the cover of a recording, from
// the camera's newest frame.
#include "vorn_morvik_zelto_front_view_private.hpp"

#include <condition_variable>
#include <mutex>

#include <gio/gio.h>

#include "dewarper_eis.hpp"
#include "make_thumbnail.hpp"
#include <vorn/gst_raii.hpp>
#include <vorn/log.h>

VORN_LOG_TAG ("vorn_morvik_zelto_front_view");

namespace
{

using Element = vorn::Ref<GstElement>;

constexpr gint photo_thumbnail_width = 320;
constexpr gint photo_thumbnail_height = 240;
constexpr VornResolution simple_size = {1280, 720};

Element make (const char *factory, const char *name = nullptr)
{
  return vorn::adopt (gst_element_factory_make (factory, name));
}

// ---- Photos

/**
 * Gives the muxer, which waits for it, the thumbnail. One frame is all of a run: the branch then
 * ends.
 */
GstFlowReturn on_new_sample_from_sink (GstElement *appsink, VornMorvikZeltoFrontView *view)
{
  // Taken in any case: the sink would wait with its end for someone to do it.
  GstSample *pulled = nullptr;
  g_signal_emit_by_name (appsink, "pull-sample", &pulled);
  const auto sample = vorn::adopt (pulled);
  const Element muxer =
      vorn::adopt (gst_bin_get_by_name (GST_BIN (view->picture_pipeline), "picture-jpegmux"));
  if (!muxer) {
    VORN_LOG_WARNING ("failed to get picture-jpegmux");
  } else if (sample) { // none when the pipeline is being stopped
    const vorn::Lock lock (&view->lock);
    gst_tag_setter_add_tags (GST_TAG_SETTER (muxer.get ()), GST_TAG_MERGE_REPLACE, GST_TAG_IMAGE,
                             sample.get (), nullptr);
    g_cond_signal (&view->cond);
  }
  return GST_FLOW_EOS;
}

// ---- Covers

/** Counts the cover tasks of the process, so that one can wait for their end. */
class RunningCovers
{
public:
  void begin ()
  {
    const std::lock_guard lock (mutex_);
    count_++;
  }
  void end ()
  {
    const std::lock_guard lock (mutex_);
    count_--;
    ended_.notify_all ();
  }
  void wait_for_end ()
  {
    std::unique_lock lock (mutex_);
    ended_.wait (lock, [this] { return count_ == 0; });
  }

private:
  std::mutex mutex_;
  std::condition_variable ended_;
  int count_ = 0;
};

RunningCovers &running_covers ()
{
  static RunningCovers covers;
  return covers;
}

vorn::Ref<GstSample> make_cover (VornMorvikZeltoFrontView *view, GstBuffer *frame)
{
  const GList *cameras = vorn_view_get_cameras (VORN_VIEW (view));
  VornCamera *cam = cameras ? VORN_CAMERA (cameras->data) : nullptr;
  g_assert (cam);
  const VornSensorConfiguration *sensor = vorn_camera_get_sensor_configuration (cam);
  const VornResolution size = is_simple_front_cam () ? simple_size : sensor->resolution;
  return vorn::adopt (make_thumbnail (frame, size.width, size.height, sensor->framerate.num,
                                      sensor->framerate.den));
}

Element take_main_pipeline (VornMorvikZeltoFrontView *view)
{
  const vorn::Lock lock (&view->thumbnail_lock);
  return vorn::share (view->main_pipeline);
}

/** Makes the cover of the frame the recording's; FALSE (logged) when that fails. */
bool set_cover (VornMorvikZeltoFrontView *view, GstBuffer *frame)
{
  auto sample = make_cover (view, frame);
  if (!sample) {
    VORN_LOG_ERROR ("can't create cover");
    return false;
  }
  const Element pipeline = take_main_pipeline (view);
  GstState state = GST_STATE_NULL;
  if (pipeline)
    gst_element_get_state (pipeline.get (), &state, nullptr, GST_CLOCK_TIME_NONE);
  if (state != GST_STATE_PLAYING) {
    VORN_LOG_ERROR ("unexpected pipeline state: %d", state);
    return false;
  }
  const auto tags = vorn::adopt (gst_tag_list_new (GST_TAG_IMAGE, sample.get (), nullptr));
  sample.reset ();
  if (!tags) {
    VORN_LOG_ERROR ("can't create tag list");
    return false;
  }
  gst_tag_list_set_scope (tags.get (), GST_TAG_SCOPE_GLOBAL);
  const Element muxer =
      vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), "recordbin-muxer"));
  if (!muxer) {
    VORN_LOG_ERROR ("can't get recordbin-muxer");
    return false;
  }
  gst_tag_setter_merge_tags (GST_TAG_SETTER (muxer.get ()), tags.get (), GST_TAG_MERGE_REPLACE);
  return true;
}

void thumbnail_thread_func (GTask *task, gpointer source, gpointer frame, GCancellable *)
{
  g_task_return_boolean (
      task, set_cover (VORN_MORVIK_ZELTO_FRONT_VIEW (source), static_cast<GstBuffer *> (frame)));
  running_covers ().end ();
}

void request_cover (VornMorvikZeltoFrontView *view)
{
  const vorn::Lock lock (&view->thumbnail_lock);
  view->thumbnail_requested = TRUE;
}

void on_thumbnail_done (GObject *, GAsyncResult *result, gpointer view)
{
  vorn::ErrorOut error;
  if (!g_task_propagate_boolean (G_TASK (result), error.out ()))
    request_cover (VORN_MORVIK_ZELTO_FRONT_VIEW (view));
}

/** The camera's newest frame when a cover is wanted, which then is wanted no more. */
vorn::Ref<GstBuffer> take_frame_for_cover (VornMorvikZeltoFrontView *view)
{
  const vorn::Lock lock (&view->thumbnail_lock);
  if (!view->thumbnail_requested)
    return {};
  GstBuffer *frame = nullptr;
  g_object_get (view->camera_source, "last-frame", &frame, nullptr);
  if (!frame) {
    VORN_LOG_ERROR ("failed to get last frame");
    return {};
  }
  view->thumbnail_requested = FALSE;
  return vorn::adopt (frame);
}

} // namespace

gboolean populate_picture_thumbnail_pipeline (GstBin *bin, GstElement *tee,
                                              VornMorvikZeltoFrontView *view)
{
  const Element scale = make ("videoscale");
  const Element filter = make ("capsfilter");
  const Element encoder = make ("jpegenc");
  const Element sink = make ("appsink", "thumbnail-sink");
  if (!scale || !filter || !encoder || !sink) {
    VORN_LOG_ERROR ("missing elements:%s%s%s%s", scale ? "" : " videoscale",
                    filter ? "" : " capsfilter", encoder ? "" : " jpegenc", sink ? "" : " appsink");
    return FALSE;
  }

  g_object_set (sink.get (), "emit-signals", TRUE, "async", FALSE, nullptr);
  g_signal_connect (sink.get (), "new-sample", G_CALLBACK (on_new_sample_from_sink), view);
  const auto caps =
      vorn::adopt (gst_caps_new_simple ("video/x-raw", "width", G_TYPE_INT, photo_thumbnail_width,
                                        "height", G_TYPE_INT, photo_thumbnail_height, nullptr));
  g_object_set (filter.get (), "caps", caps.get (), nullptr);

  gst_bin_add_many (bin, scale.get (), filter.get (), encoder.get (), sink.get (), nullptr);
  if (!gst_element_link_many (tee, scale.get (), filter.get (), encoder.get (), sink.get (),
                              nullptr)) {
    VORN_LOG_ERROR ("failed to link tee with videoscale, capsfilter, jpegenc, appsink");
    gst_bin_remove_many (bin, scale.get (), filter.get (), encoder.get (), sink.get (), nullptr);
    return FALSE;
  }
  return TRUE;
}

gboolean vorn_morvik_zelto_front_make_thumbnail (VornView *view)
{
  VORN_LOG_DEBUG ("recording thumbnail creation required");
  request_cover (VORN_MORVIK_ZELTO_FRONT_VIEW (view));
  return TRUE;
}

void on_new_frame_cb (GstElement *, guint64 frame, VornMorvikZeltoFrontView *view)
{
  dewarper_eis_push_tlm_video (frame);
  const auto last = take_frame_for_cover (view);
  if (!last)
    return;
  // A copy, since the camera's memory is wanted for further frames.
  auto copy = vorn::adopt (gst_buffer_copy_deep (last.get ()));
  const auto task = vorn::adopt (g_task_new (view, nullptr, on_thumbnail_done, view));
  if (!task) {
    VORN_LOG_ERROR ("can't create task.");
    return;
  }
  g_task_set_task_data (task.get (), copy.release (),
                        reinterpret_cast<GDestroyNotify> (gst_buffer_unref));
  running_covers ().begin ();
  g_task_run_in_thread (task.get (), thumbnail_thread_func);
}

void vorn_morvik_zelto_front_view_wait_for_covers ()
{
  running_covers ().wait_for_end ();
}
