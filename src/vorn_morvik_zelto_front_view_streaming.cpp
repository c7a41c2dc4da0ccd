// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Stream and recordings: the framework's branches do the work, the view runs their pipeline,
// accepts what the camera can serve and rewrites the encoded frames.
#include "vorn_morvik_zelto_front_view_private.hpp"

#include <cmath>

#include "vorn_morvik_zelto_front_modes.hpp"
#include <vorn/gst_raii.hpp>
#include <vorn/log.h>

VORN_LOG_TAG ("vorn_morvik_zelto_front_view");

namespace
{

using View = VornMorvikZeltoFrontView;

const VornViewClass *parent_class ()
{
  return VORN_VIEW_CLASS (vorn_morvik_zelto_front_view_get_parent_class ());
}

bool set_state (View *view, GstState state)
{
  return gst_element_set_state (view->main_pipeline, state) != GST_STATE_CHANGE_FAILURE;
}

// ---- Probes on encoded frames

void postprocess (View *view, FramePostprocessor *postprocessor, GstPadProbeInfo *info)
{
  auto *buffer = static_cast<GstBuffer *> (GST_PAD_PROBE_INFO_DATA (info));
  if (!buffer) {
    GST_WARNING ("buffer is NULL");
    return;
  }
  buffer = gst_buffer_make_writable (buffer);
  GST_PAD_PROBE_INFO_DATA (info) = buffer;
  if (!with_front_cam ()) {
    fill_fake_metadata (buffer);
    return;
  }
  const VornFormat format = load_relaxed (view->camera_format);
  if (!frame_postprocessor_process (postprocessor, &format.resolution, buffer))
    GST_WARNING ("frame_postprocessor_process failed");
}

GstPadProbeReturn streaming_pipeline_postprocess_probe_cb (GstPad *, GstPadProbeInfo *info,
                                                           gpointer data)
{
  auto *view = static_cast<View *> (data);
  postprocess (view, view->streaming_postprocessor, info);
  return GST_PAD_PROBE_OK;
}

GstPadProbeReturn recording_pipeline_postprocess_probe_cb (GstPad *, GstPadProbeInfo *info,
                                                           gpointer data)
{
  auto *view = static_cast<View *> (data);
  postprocess (view, view->recording_postprocessor, info);
  return GST_PAD_PROBE_OK;
}

/** Adds a probe once a pad: a frame is rewritten once, however often the pipeline was started. */
gulong install_once (GstPad *pad, GstPadProbeCallback callback, View *view)
{
  static const GQuark quark = g_quark_from_static_string ("front-view-postprocess-probe");
  const auto installed = reinterpret_cast<gulong> (g_object_get_qdata (G_OBJECT (pad), quark));
  if (installed != 0)
    return installed;
  const gulong id = gst_pad_add_probe (pad, GST_PAD_PROBE_TYPE_BUFFER, callback, view, nullptr);
  g_object_set_qdata (G_OBJECT (pad), quark, reinterpret_cast<gpointer> (id));
  return id;
}

gboolean add_frame_postprocess_probe (View *view, const gchar *element_name, const gchar *pad_name,
                                      GstPadProbeCallback callback, gulong *probe_id)
{
  const auto element =
      vorn::adopt (gst_bin_get_by_name (GST_BIN (view->main_pipeline), element_name));
  if (!element) {
    VORN_LOG_ERROR ("failed to get %s", element_name);
    return FALSE;
  }
  const auto pad = vorn::adopt (gst_element_get_static_pad (element.get (), pad_name));
  if (!pad) {
    VORN_LOG_ERROR ("failed to get %s", pad_name);
    return FALSE;
  }
  *probe_id = install_once (pad.get (), callback, view);
  return TRUE;
}

void add_streaming_probe (View *view)
{
  add_frame_postprocess_probe (view, "streamingbin-encoder", "src",
                               streaming_pipeline_postprocess_probe_cb, &view->streaming_probe_id);
}

void add_recording_probe (View *view)
{
  add_frame_postprocess_probe (view, "recordbin-tee", "sink",
                               recording_pipeline_postprocess_probe_cb, &view->recording_probe_id);
}

// ---- Formats

/** A format is set while the pipeline is in NULL; it then goes back to where it was, or was going.
 */
template <typename Change>
gboolean change_at_rest (View *view, Change change)
{
  GstState state = GST_STATE_NULL;
  GstState pending = GST_STATE_VOID_PENDING;
  gst_element_get_state (view->main_pipeline, &state, &pending, 0);
  set_state (view, GST_STATE_NULL);
  const gboolean changed = change ();
  set_state (view, pending == GST_STATE_VOID_PENDING ? state : pending);
  return changed;
}

void log_format (const char *what, const VornFormat *format)
{
  VORN_LOG_INFO ("setting %s format to %ux%u @ %.02f", what, format->resolution.width,
                 format->resolution.height,
                 static_cast<double> (format->framerate.num) / format->framerate.den);
}

} // namespace

gboolean vorn_morvik_zelto_front_view_check_framerate (VornMorvikZeltoFrontView *view,
                                                       guint32 numerator, guint32 denominator)
{
  const VornFramerate camera = load_relaxed (view->camera_format).framerate;
  if (camera.den == 0 || denominator == 0)
    return FALSE;
  const guint32 camera_rate = camera.num / camera.den;
  const guint32 rate = numerator / denominator;
  if (camera_rate < rate || rate == 0)
    return FALSE;
  const double ratio = static_cast<double> (camera_rate) / rate;
  return ratio == std::floor (ratio);
}

gboolean vorn_morvik_zelto_front_view_stream_setup (VornView *base, VornStreamSetup *setup)
{
  auto *view = VORN_MORVIK_ZELTO_FRONT_VIEW (base);
  if (!set_state (view, GST_STATE_PLAYING)) {
    VORN_LOG_ERROR ("failed to start streaming: state change error");
    return FALSE;
  }
  add_streaming_probe (view);
  setup->live = 1;
  return parent_class ()->stream_setup (base, setup);
}

gboolean vorn_morvik_zelto_front_view_stream_teardown (VornView *base, const gchar *reason)
{
  const gboolean result = parent_class ()->stream_teardown (base, reason);
  if (!set_state (VORN_MORVIK_ZELTO_FRONT_VIEW (base), GST_STATE_NULL)) {
    VORN_LOG_WARNING ("failed to stop streaming: state change error");
    return FALSE;
  }
  return result;
}

gboolean vorn_morvik_zelto_front_view_stream_set_params (VornView *base,
                                                         const VornStreamParameters *parameters)
{
  GstElement *encoder = nullptr;
  g_object_get (base, "streaming-encoder", &encoder, nullptr);
  const auto owned = vorn::adopt (encoder);
  if (encoder)
    g_object_set (encoder, "bitrate", parameters->bitrate / 1000, nullptr); // it counts kbit/s
  return parent_class ()->stream_set_params (base, parameters);
}

gboolean vorn_morvik_zelto_front_view_start_recording (VornView *base)
{
  auto *view = VORN_MORVIK_ZELTO_FRONT_VIEW (base);
  if (!set_state (view, GST_STATE_NULL)) {
    VORN_LOG_WARNING ("failed to stop the main pipeline: state change error");
    return FALSE;
  }
  if (!set_state (view, GST_STATE_PLAYING)) {
    VORN_LOG_ERROR ("failed to start the main pipeline: state change error");
    return FALSE;
  }
  add_streaming_probe (view);
  add_recording_probe (view);
  vorn_view_notify_record_event (base, VORN_RECORD_EVENT_PREPARED, nullptr, nullptr, 0, 0);
  return parent_class ()->start_recording (base);
}

gboolean vorn_morvik_zelto_front_view_stop_recording (VornView *view, guint32 reason)
{
  return parent_class ()->stop_recording (view, reason);
}

gboolean vorn_morvik_zelto_front_view_set_streaming_format (VornView *base,
                                                            const VornFormat *format)
{
  auto *view = VORN_MORVIK_ZELTO_FRONT_VIEW (base);
  log_format ("streaming", format);
  if (!vorn_morvik_zelto_front_view_check_framerate (view, format->framerate.num,
                                                     format->framerate.den)) {
    VORN_LOG_WARNING ("failed to set streaming format: framerate is not a multiple of current "
                      "camera framerate");
    return FALSE;
  }
  return change_at_rest (view, [&] {
    const gboolean result = parent_class ()->set_streaming_format (base, format);
    const gchar *preset = vorn_morvik_zelto_front_modes_get_streaming_preset (format);
    if (preset)
      g_object_set (view, "streaming-preset", preset, nullptr);
    else
      VORN_LOG_WARNING ("failed to update preset for streaming");
    return result;
  });
}

gboolean vorn_morvik_zelto_front_view_set_recording_format (VornView *base,
                                                            const VornFormat *format)
{
  auto *view = VORN_MORVIK_ZELTO_FRONT_VIEW (base);
  log_format ("recording", format);
  const VornFormat camera_format = load_relaxed (view->camera_format);
  if (!vorn_resolution_cmp (&format->resolution, &camera_format.resolution)) {
    VORN_LOG_ERROR ("failed to set recording format: scaling on recording is not available");
    return FALSE;
  }
  if (!vorn_morvik_zelto_front_view_check_framerate (view, format->framerate.num,
                                                     format->framerate.den)) {
    VORN_LOG_WARNING ("failed to set recording format: framerate is not a multiple of current "
                      "camera framerate");
    return FALSE;
  }
  return change_at_rest (view, [&] {
    const gboolean result = parent_class ()->set_recording_format (base, format);
    g_object_set (view, "recording-preset",
                  vorn_morvik_zelto_front_modes_get_recording_preset (format), nullptr);
    return result;
  });
}
