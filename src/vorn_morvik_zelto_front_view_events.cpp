// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What the view does about its pipelines' messages and about camera modes.
#include "vorn_morvik_zelto_front_view_private.hpp"

#include "vorn_morvik_zelto_front_modes.hpp"
#include "vorn_morvik_zelto_front_virtual_camera.hpp"
#include <vorn/gst_raii.hpp>
#include <vorn/log.h>
#include <vorn/utils.h>

VORN_LOG_TAG ("vorn_morvik_zelto_front_view");

namespace
{

using View = VornMorvikZeltoFrontView;

// ---- Messages

bool comes_from (const GstMessage *message, GstElement *pipeline)
{
  GstObject *source = GST_MESSAGE_SRC (message);
  return source && pipeline &&
         (source == GST_OBJECT (pipeline) ||
          gst_object_has_as_ancestor (source, GST_OBJECT (pipeline)));
}

bool is_picture_pipeline (const GstMessage *message)
{
  GstObject *source = GST_MESSAGE_SRC (message);
  return source && g_strcmp0 (GST_OBJECT_NAME (source), "front-picture-pipeline") == 0;
}

/** Pictures of a bracketing belong together: they are reported at once, at their end. */
bool reports_at_end (const View *view)
{
  return load_relaxed (view->photo_mode) == VORN_PHOTO_MODE_BRACKETING;
}

void stop_picture_pipeline (View *view)
{
  if (view->picture_pipeline)
    gst_element_set_state (view->picture_pipeline, GST_STATE_NULL);
}

void end_snapshot (View *view)
{
  if (reports_at_end (view))
    vorn_morvik_zelto_front_view_snapshot_notify_taken (view);
  stop_picture_pipeline (view);
  const vorn::OwnedStrings files (vorn_morvik_zelto_front_view_get_taken_snapshots (view));
  vorn_view_notify_snapshot_event (VORN_VIEW (view), VORN_SNAPSHOT_EVENT_DONE, files.get (),
                                   nullptr);
}

void fail_snapshot (View *view, GstMessage *message)
{
  vorn::ErrorOut reason;
  gst_message_parse_error (message, reason.out (), nullptr);
  const bool disk_full =
      g_error_matches (reason.operator->(), GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_NO_SPACE_LEFT);
  const vorn::OwnedError error (vorn_resource_error_new (
      disk_full ? VORN_RESOURCE_ERROR_NO_SPACE_LEFT : VORN_RESOURCE_ERROR_FAILED,
      reason.message ()));
  vorn_view_notify_snapshot_event (VORN_VIEW (view), VORN_SNAPSHOT_EVENT_FAILED, nullptr,
                                   error.get ());
  stop_picture_pipeline (view);
}

void on_state_changed (View *view, GstMessage *message)
{
  GstState before = GST_STATE_NULL;
  GstState after = GST_STATE_NULL;
  gst_message_parse_state_changed (message, &before, &after, nullptr);
  if (before == GST_STATE_READY && after == GST_STATE_PAUSED && is_picture_pipeline (message))
    vorn_view_notify_snapshot_event (VORN_VIEW (view), VORN_SNAPSHOT_EVENT_STARTED, nullptr,
                                     nullptr);
}

void on_recording_message (View *view, const GstStructure *structure)
{
  if (!gst_structure_has_field (structure, "error"))
    return;
  if (gst_structure_has_name (structure, "record-done")) {
    GST_ERROR ("stopping zelto main pipeline on non fatal error");
    gst_element_set_state (view->main_pipeline, GST_STATE_NULL);
  } else if (gst_structure_has_name (structure, "no-space-left")) {
    vorn_morvik_zelto_front_view_stop_recording (VORN_VIEW (view), 0);
  }
}

void on_picture_written (View *view, const gchar *filename)
{
  view->taken_snapshots = g_slist_append (view->taken_snapshots, g_strdup (filename));
  if (!reports_at_end (view))
    vorn_morvik_zelto_front_view_snapshot_notify_taken (view);
  if (!vorn_utils_set_picture_last_location (filename))
    VORN_LOG_WARNING ("failed to set last resource id for %s", filename);
}

void on_element_message (View *view, GstMessage *message)
{
  const GstStructure *structure = gst_message_get_structure (message);
  if (!structure)
    return;
  if (comes_from (message, view->main_pipeline))
    on_recording_message (view, structure);
  const gchar *filename = gst_structure_get_string (structure, "filename");
  if (filename && comes_from (message, view->picture_pipeline) &&
      gst_structure_has_name (structure, "GstMultiFileSink"))
    on_picture_written (view, filename);
}

// ---- Modes

/** A default format of the view's capabilities. */
VornFormat default_format (const VornResolution &resolution, const VornFramerate &framerate)
{
  return {.resolution = resolution, .framerate = framerate, .flag = 1};
}

void apply_defaults (View *view, const VornViewCapabilities &capabilities,
                     const VornCameraMode *mode)
{
  VornView *base = VORN_VIEW (view);
  if (vorn_view_check_feature (base, VORN_VIEW_FEATURE_RECORDING)) {
    const VornFormat format = default_format (capabilities.default_recording_resolution,
                                              capabilities.default_recording_framerate);
    vorn_view_set_recording_format (base, &format);
  }
  if (vorn_view_check_feature (base, VORN_VIEW_FEATURE_STREAMING)) {
    const VornFormat format = default_format (capabilities.default_streaming_resolution,
                                              capabilities.default_streaming_framerate);
    vorn_view_set_streaming_format (base, &format);
  }
  if (vorn_view_check_feature (base, VORN_VIEW_FEATURE_SNAPSHOT)) {
    store_relaxed (view->photo_mode, mode->photo.photo_mode);
    store_relaxed (view->photo_format, mode->photo.format);
    store_relaxed (view->photo_file_format, mode->photo.file_format);
    store_relaxed (view->photo_count, mode->photo.count);
    vorn_view_set_snapshot_format (base, 0, capabilities.photo_format_mask,
                                   capabilities.photo_file_format_mask, 0);
  }
}

/** The tables of the view's virtual camera; NULL when it has none. */
const VornCapabilitySet *get_tables (VornVirtualCamera *camera)
{
  return VORN_IS_MORVIK_ZELTO_FRONT_VIRTUAL_CAMERA (camera)
             ? vorn_morvik_zelto_front_virtual_camera_get_caps (camera)
             : nullptr;
}

} // namespace

gboolean vorn_morvik_zelto_front_view_handle_message (VornGstView *base, GstMessage *message)
{
  auto *view = VORN_MORVIK_ZELTO_FRONT_VIEW (base);
  switch (GST_MESSAGE_TYPE (message)) {
  case GST_MESSAGE_EOS:
    if (is_picture_pipeline (message)) {
      end_snapshot (view);
      return TRUE;
    }
    break;
  case GST_MESSAGE_ERROR:
    if (comes_from (message, view->picture_pipeline)) {
      fail_snapshot (view, message);
      return TRUE;
    }
    break;
  case GST_MESSAGE_STATE_CHANGED:
    on_state_changed (view, message);
    break;
  case GST_MESSAGE_ELEMENT:
    on_element_message (view, message);
    break;
  default:
    break;
  }
  return vorn_morvik_zelto_front_view_get_parent_class ()->handle_message (base, message);
}

gboolean vorn_morvik_zelto_front_view_update_camera_mode (VornView *base,
                                                          const VornCameraMode *mode)
{
  VornView *view = base;
  g_return_val_if_fail (view, FALSE);
  auto *self = VORN_MORVIK_ZELTO_FRONT_VIEW (base);
  VornVirtualCamera *camera = vorn_view_get_parent (view);
  const VornCapabilitySet *tables = get_tables (camera);
  if (!tables || !vorn_morvik_zelto_front_modes_check_mode (mode, tables)) {
    VORN_LOG_ERROR ("this camera mode is not supported!");
    return FALSE;
  }
  gboolean thermal = FALSE;
  g_object_get (camera, "thermal", &thermal, nullptr);
  const gboolean hdr = vorn_virtual_camera_get_hdr_state (camera);

  store_relaxed (self->mode_type, mode->type);
  VornFormat stream_format = load_relaxed (self->camera_format);
  VornFormat crop_format = load_relaxed (self->photo_format_size);
  auto hdr_state = static_cast<guint32> (hdr);
  vorn_morvik_zelto_front_modes_get_camera_format (tables, mode, nullptr, &stream_format, nullptr,
                                                   &crop_format, &hdr_state, nullptr);
  store_relaxed (self->camera_format, stream_format);
  store_relaxed (self->photo_format_size, crop_format);

  VornViewCapabilities capabilities = {};
  vorn_morvik_zelto_front_modes_get_view_capabilities (mode, &capabilities, tables, hdr, thermal);
  vorn_view_set_capabilities (view, &capabilities);
  apply_defaults (self, capabilities, mode);
  return TRUE;
}

gboolean vorn_morvik_zelto_front_view_set_activation (VornView *view, gboolean active)
{
  if (active)
    return TRUE;
  if (vorn_view_check_feature (view, VORN_VIEW_FEATURE_RECORDING)) {
    const gboolean stopped = vorn_view_stop_recording (view, 2);
    if (stopped != TRUE)
      return stopped;
  }
  if (vorn_view_check_feature (view, VORN_VIEW_FEATURE_STREAMING))
    vorn_view_stream_teardown (view, "stream change");
  return TRUE;
}

gboolean vorn_morvik_zelto_front_view_set_camera_orientation (VornView *base,
                                                              const VornOrientation *orientation)
{
  auto *view = VORN_MORVIK_ZELTO_FRONT_VIEW (base);
  gchar numbers[4][G_ASCII_DTOSTR_BUF_SIZE * 2];
  const gfloat values[] = {orientation->x, orientation->y, orientation->z, orientation->w};
  for (size_t i = 0; i < G_N_ELEMENTS (values); i++)
    g_ascii_formatd (numbers[i], sizeof numbers[i], "%f", static_cast<gdouble> (values[i]));
  const vorn::OwnedString text (
      g_strjoin (", ", numbers[0], numbers[1], numbers[2], numbers[3], nullptr));
  for (GstElement *filter : {view->main_tovrinfilter, view->picture_tovrinfilter})
    if (filter)
      g_object_set (filter, "out-camera-orientation-quat", text.get (), nullptr);
  return TRUE;
}
