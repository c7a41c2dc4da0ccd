// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/view.h>

#include <atomic>
#include <new>
#include <string>

#include "internal.hpp"
#include <vorn/log.h>
#include <vorn/raii.hpp>
#include <vorn/virtual_camera.h>

VORN_LOG_TAG ("vorn_view");

namespace
{

struct Private {
  std::string name;
  std::string display_name;
  VornVirtualCamera *parent = nullptr; // borrowed: it owns the view
  GList *cameras = nullptr;
  VornViewCapabilities capabilities = {};
  std::atomic<bool> prepared = false;
  std::atomic<bool> taking_picture = false;
  std::atomic<bool> recording = false;
  std::atomic<bool> streaming = false;
};

enum Property { PROPERTY_NAME = 1, PROPERTY_DISPLAY_NAME };
enum Signal { SIGNAL_RECORD_EVENT, SIGNAL_SNAPSHOT_EVENT, SIGNAL_STATE_CHANGED, SIGNAL_COUNT };
guint signals[SIGNAL_COUNT];

} // namespace

typedef struct {
  Private *state;
} VornViewPrivate;

G_DEFINE_ABSTRACT_TYPE_WITH_PRIVATE (VornView, vorn_view, G_TYPE_OBJECT)

static Private &state_of (VornView *view)
{
  return *static_cast<VornViewPrivate *> (vorn_view_get_instance_private (view))->state;
}

static void set_state (VornView *view, std::atomic<bool> Private::*flag, bool value)
{
  if ((state_of (view).*flag).exchange (value) != value)
    g_signal_emit (view, signals[SIGNAL_STATE_CHANGED], 0);
}

static void vorn_view_set_property (GObject *object, guint id, const GValue *value,
                                    GParamSpec *pspec)
{
  Private &state = state_of (VORN_VIEW (object));
  const gchar *text = G_VALUE_HOLDS_STRING (value) ? g_value_get_string (value) : nullptr;
  switch (id) {
  case PROPERTY_NAME:
    state.name = text ? text : "";
    break;
  case PROPERTY_DISPLAY_NAME:
    state.display_name = text ? text : "";
    break;
  default:
    G_OBJECT_WARN_INVALID_PROPERTY_ID (object, id, pspec);
  }
}

static void vorn_view_get_property (GObject *object, guint id, GValue *value, GParamSpec *pspec)
{
  const Private &state = state_of (VORN_VIEW (object));
  switch (id) {
  case PROPERTY_NAME:
    g_value_set_string (value, state.name.c_str ());
    break;
  case PROPERTY_DISPLAY_NAME:
    g_value_set_string (value, state.display_name.c_str ());
    break;
  default:
    G_OBJECT_WARN_INVALID_PROPERTY_ID (object, id, pspec);
  }
}

static void vorn_view_dispose (GObject *object)
{
  Private &state = state_of (VORN_VIEW (object));
  g_list_free_full (std::exchange (state.cameras, nullptr), g_object_unref);
  G_OBJECT_CLASS (vorn_view_parent_class)->dispose (object);
}

static void vorn_view_finalize (GObject *object)
{
  delete static_cast<VornViewPrivate *> (vorn_view_get_instance_private (VORN_VIEW (object)))
      ->state;
  G_OBJECT_CLASS (vorn_view_parent_class)->finalize (object);
}

static void vorn_view_class_init (VornViewClass *klass)
{
  GObjectClass *object_class = G_OBJECT_CLASS (klass);
  object_class->set_property = vorn_view_set_property;
  object_class->get_property = vorn_view_get_property;
  object_class->dispose = vorn_view_dispose;
  object_class->finalize = vorn_view_finalize;

  constexpr auto flags = static_cast<GParamFlags> (G_PARAM_READWRITE | G_PARAM_CONSTRUCT_ONLY |
                                                   G_PARAM_STATIC_STRINGS);
  g_object_class_install_property (
      object_class, PROPERTY_NAME,
      g_param_spec_string ("name", "Name", "Name of the view", "", flags));
  g_object_class_install_property (
      object_class, PROPERTY_DISPLAY_NAME,
      g_param_spec_string ("display-name", "Display name", "Name for people", "", flags));

  const GType type = G_TYPE_FROM_CLASS (klass);
  signals[SIGNAL_RECORD_EVENT] =
      g_signal_new ("record-event", type, G_SIGNAL_RUN_LAST, 0, nullptr, nullptr, nullptr,
                    G_TYPE_NONE, 3, G_TYPE_UINT, G_TYPE_STRING, G_TYPE_ERROR);
  signals[SIGNAL_SNAPSHOT_EVENT] =
      g_signal_new ("snapshot-event", type, G_SIGNAL_RUN_LAST, 0, nullptr, nullptr, nullptr,
                    G_TYPE_NONE, 3, G_TYPE_UINT, G_TYPE_STRV, G_TYPE_ERROR);
  signals[SIGNAL_STATE_CHANGED] = g_signal_new ("state-changed", type, G_SIGNAL_RUN_LAST, 0,
                                                nullptr, nullptr, nullptr, G_TYPE_NONE, 0);
}

static void vorn_view_init (VornView *view)
{
  static_cast<VornViewPrivate *> (vorn_view_get_instance_private (view))->state = new Private;
}

void vorn::view_set_parent (VornView *view, VornVirtualCamera *parent)
{
  state_of (view).parent = parent;
}

const gchar *vorn_view_get_name (VornView *view)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), nullptr);
  return state_of (view).name.c_str ();
}

const gchar *vorn_view_get_display_name (VornView *view)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), nullptr);
  return state_of (view).display_name.c_str ();
}

VornVirtualCamera *vorn_view_get_parent (VornView *view)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), nullptr);
  return state_of (view).parent;
}

gboolean vorn_view_add_camera (VornView *view, VornCamera *camera)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), FALSE);
  g_return_val_if_fail (VORN_IS_CAMERA (camera), FALSE);
  Private &state = state_of (view);
  state.cameras = g_list_append (state.cameras, g_object_ref (camera));
  return TRUE;
}

GList *vorn_view_get_cameras (VornView *view)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), nullptr);
  return state_of (view).cameras;
}

gboolean vorn_view_is_prepared (VornView *view)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), FALSE);
  return state_of (view).prepared;
}

gboolean vorn_view_is_taking_picture (VornView *view)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), FALSE);
  return state_of (view).taking_picture;
}

gboolean vorn_view_is_recording (VornView *view)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), FALSE);
  return state_of (view).recording;
}

gboolean vorn_view_is_streaming (VornView *view)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), FALSE);
  return state_of (view).streaming;
}

void vorn_view_set_capabilities (VornView *view, const VornViewCapabilities *capabilities)
{
  g_return_if_fail (VORN_IS_VIEW (view));
  g_return_if_fail (capabilities != NULL);
  state_of (view).capabilities = *capabilities;
}

const VornViewCapabilities *vorn_view_get_capabilities (VornView *view)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), nullptr);
  return &state_of (view).capabilities;
}

gboolean vorn_view_check_feature (VornView *view, guint32 features)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), FALSE);
  return (state_of (view).capabilities.feature_mask & features) == features;
}

// ---- Operations: each checks what the operation needs, then calls the product's.

static bool refuse (VornView *view, const char *what, const char *reason)
{
  VORN_LOG_WARNING ("view '%s': %s refused: %s", state_of (view).name.c_str (), what, reason);
  return false;
}

/** Whether the view may do this now; features: the ones that its mode must have. */
static bool may (VornView *view, const char *what, bool has_operation, guint32 features = 0)
{
  const Private &state = state_of (view);
  if (!state.prepared)
    return refuse (view, what, "the view is not prepared");
  if (!has_operation)
    return refuse (view, what, "the view cannot do it");
  if ((state.capabilities.feature_mask & features) != features)
    return refuse (view, what, "the camera mode lacks the feature");
  return true;
}

static bool is_idle (VornView *view, const char *what)
{
  const Private &state = state_of (view);
  if (state.recording)
    return refuse (view, what, "a recording runs");
  if (state.taking_picture)
    return refuse (view, what, "a picture is being taken");
  return true;
}

gboolean vorn_view_prepare (VornView *view)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), FALSE);
  Private &state = state_of (view);
  if (state.prepared)
    return TRUE;
  VornViewClass *klass = VORN_VIEW_GET_CLASS (view);
  if (klass->prepare && !klass->prepare (view))
    return FALSE;
  state.prepared = true;
  if (state.parent && vorn_virtual_camera_has_mode (state.parent))
    vorn_view_update_camera_mode (view, vorn_virtual_camera_get_mode (state.parent));
  return TRUE;
}

gboolean vorn_view_unprepare (VornView *view)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), FALSE);
  Private &state = state_of (view);
  if (!state.prepared)
    return TRUE;
  if (state.recording)
    vorn_view_stop_recording (view, 0);
  if (state.streaming)
    vorn_view_stream_teardown (view, "unprepare");
  if (VORN_IS_GST_VIEW (view))
    vorn::gst_view_take_down (VORN_GST_VIEW (view));
  state.prepared = false;
  // Nothing runs any more, whether it could be ended in order or not.
  for (const auto flag : {&Private::recording, &Private::streaming, &Private::taking_picture})
    set_state (view, flag, false);
  VornViewClass *klass = VORN_VIEW_GET_CLASS (view);
  return klass->unprepare ? klass->unprepare (view) : TRUE;
}

/** Whoever chooses a mode wants what it says, whatever the view takes by default. */
static void apply_own_settings (VornView *view, const VornCameraMode *mode)
{
  VornViewClass *klass = VORN_VIEW_GET_CLASS (view);
  if (mode->type == VORN_CAMERA_MODE_RECORDING && klass->set_recording_format &&
      vorn_view_check_feature (view, VORN_VIEW_FEATURE_RECORDING)) {
    const VornFormat format = {mode->recording.resolution, mode->recording.framerate, mode->flag};
    vorn_view_set_recording_format (view, &format);
  }
  if (mode->type == VORN_CAMERA_MODE_PHOTO && klass->set_snapshot_format &&
      vorn_view_check_feature (view, VORN_VIEW_FEATURE_SNAPSHOT))
    vorn_view_set_snapshot_format (view, mode->photo.photo_mode, mode->photo.format,
                                   mode->photo.file_format, mode->photo.count);
}

gboolean vorn_view_update_camera_mode (VornView *view, const VornCameraMode *mode)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), FALSE);
  g_return_val_if_fail (mode != NULL, FALSE);
  VornViewClass *klass = VORN_VIEW_GET_CLASS (view);
  if (!may (view, "camera mode", klass->update_camera_mode != nullptr) ||
      !is_idle (view, "camera mode"))
    return FALSE;
  // What was accepted for the former mode need not fit this one.
  VornGstView *gst_view = VORN_IS_GST_VIEW (view) ? VORN_GST_VIEW (view) : nullptr;
  const auto former = gst_view ? vorn::gst_view_take_formats (gst_view) : vorn::ViewFormats ();
  if (!klass->update_camera_mode (view, mode)) {
    if (gst_view)
      vorn::gst_view_set_formats (gst_view, former);
    return FALSE;
  }
  apply_own_settings (view, mode);
  return TRUE;
}

gboolean vorn_view_stream_setup (VornView *view, VornStreamSetup *setup)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), FALSE);
  g_return_val_if_fail (setup != NULL, FALSE);
  VornViewClass *klass = VORN_VIEW_GET_CLASS (view);
  if (!may (view, "stream", klass->stream_setup != nullptr, VORN_VIEW_FEATURE_STREAMING) ||
      !klass->stream_setup (view, setup))
    return FALSE;
  set_state (view, &Private::streaming, true);
  return TRUE;
}

gboolean vorn_view_stream_teardown (VornView *view, const gchar *reason)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), FALSE);
  VornViewClass *klass = VORN_VIEW_GET_CLASS (view);
  if (!state_of (view).streaming)
    return TRUE;
  if (!may (view, "end of stream", klass->stream_teardown != nullptr) ||
      !klass->stream_teardown (view, reason))
    return FALSE;
  set_state (view, &Private::streaming, false);
  return TRUE;
}

gboolean vorn_view_stream_set_params (VornView *view, const VornStreamParameters *parameters)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), FALSE);
  g_return_val_if_fail (parameters != NULL, FALSE);
  VornViewClass *klass = VORN_VIEW_GET_CLASS (view);
  return may (view, "stream parameters", klass->stream_set_params != nullptr,
              VORN_VIEW_FEATURE_STREAMING) &&
         klass->stream_set_params (view, parameters);
}

gboolean vorn_view_start_recording (VornView *view)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), FALSE);
  VornViewClass *klass = VORN_VIEW_GET_CLASS (view);
  if (!may (view, "recording", klass->start_recording != nullptr, VORN_VIEW_FEATURE_RECORDING) ||
      !is_idle (view, "recording") || !klass->start_recording (view))
    return FALSE;
  set_state (view, &Private::recording, true);
  return TRUE;
}

gboolean vorn_view_stop_recording (VornView *view, guint32 reason)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), FALSE);
  VornViewClass *klass = VORN_VIEW_GET_CLASS (view);
  if (!state_of (view).recording)
    return TRUE;
  if (!may (view, "end of recording", klass->stop_recording != nullptr) ||
      !klass->stop_recording (view, reason))
    return FALSE;
  set_state (view, &Private::recording, false);
  return TRUE;
}

gboolean vorn_view_take_snapshot (VornView *view, const VornSnapshotRequest *request)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), FALSE);
  g_return_val_if_fail (request != NULL, FALSE);
  VornViewClass *klass = VORN_VIEW_GET_CLASS (view);
  if (!may (view, "snapshot", klass->take_snapshot != nullptr, VORN_VIEW_FEATURE_SNAPSHOT))
    return FALSE;
  if (state_of (view).taking_picture)
    return refuse (view, "snapshot", "the former one has not ended");
  // Set before the call: the end may be reported while it runs.
  set_state (view, &Private::taking_picture, true);
  if (klass->take_snapshot (view, request))
    return TRUE;
  set_state (view, &Private::taking_picture, false);
  return FALSE;
}

gboolean vorn_view_make_thumbnail (VornView *view)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), FALSE);
  VornViewClass *klass = VORN_VIEW_GET_CLASS (view);
  return may (view, "thumbnail", klass->make_thumbnail != nullptr, VORN_VIEW_FEATURE_RECORDING) &&
         klass->make_thumbnail (view);
}

static bool is_complete (VornView *view, const char *what, const VornFormat *format)
{
  return (format->resolution.width != 0 && format->resolution.height != 0 &&
          format->framerate.num != 0 && format->framerate.den != 0) ||
         refuse (view, what, "a size or framerate of zero");
}

gboolean vorn_view_set_streaming_format (VornView *view, const VornFormat *format)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), FALSE);
  g_return_val_if_fail (format != NULL, FALSE);
  VornViewClass *klass = VORN_VIEW_GET_CLASS (view);
  return may (view, "streaming format", klass->set_streaming_format != nullptr,
              VORN_VIEW_FEATURE_STREAMING) &&
         is_idle (view, "streaming format") && is_complete (view, "streaming format", format) &&
         klass->set_streaming_format (view, format);
}

gboolean vorn_view_set_recording_format (VornView *view, const VornFormat *format)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), FALSE);
  g_return_val_if_fail (format != NULL, FALSE);
  VornViewClass *klass = VORN_VIEW_GET_CLASS (view);
  return may (view, "recording format", klass->set_recording_format != nullptr,
              VORN_VIEW_FEATURE_RECORDING) &&
         is_idle (view, "recording format") && is_complete (view, "recording format", format) &&
         klass->set_recording_format (view, format);
}

gboolean vorn_view_set_snapshot_format (VornView *view, guint32 photo_mode, guint32 photo_format,
                                        guint32 photo_file_format, guint32 count)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), FALSE);
  VornViewClass *klass = VORN_VIEW_GET_CLASS (view);
  return may (view, "snapshot format", klass->set_snapshot_format != nullptr,
              VORN_VIEW_FEATURE_SNAPSHOT) &&
         is_idle (view, "snapshot format") &&
         klass->set_snapshot_format (view, photo_mode, photo_format, photo_file_format, count,
                                     nullptr);
}

gboolean vorn_view_set_camera_orientation (VornView *view, const VornOrientation *orientation)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), FALSE);
  g_return_val_if_fail (orientation != NULL, FALSE);
  VornViewClass *klass = VORN_VIEW_GET_CLASS (view);
  return may (view, "camera orientation", klass->set_camera_orientation != nullptr) &&
         klass->set_camera_orientation (view, orientation);
}

gboolean vorn_view_set_activation (VornView *view, gboolean active)
{
  g_return_val_if_fail (VORN_IS_VIEW (view), FALSE);
  VornViewClass *klass = VORN_VIEW_GET_CLASS (view);
  return may (view, "activation", true) &&
         (!klass->set_activation || klass->set_activation (view, active));
}

void vorn::view_emit_record_event (VornView *view, guint32 event, const gchar *filename,
                                   const GError *error)
{
  g_signal_emit (view, signals[SIGNAL_RECORD_EVENT], 0, event, filename, error);
}

void vorn::view_set_recording (VornView *view, bool recording)
{
  set_state (view, &Private::recording, recording);
}

void vorn_view_notify_record_event (VornView *view, guint32 event, const gchar *filename,
                                    const GError *error, guint64, guint64)
{
  g_return_if_fail (VORN_IS_VIEW (view));
  if (event == VORN_RECORD_EVENT_STOPPED || event == VORN_RECORD_EVENT_FAILED)
    set_state (view, &Private::recording, false);
  vorn::view_emit_record_event (view, event, filename, error);
}

void vorn_view_notify_snapshot_event (VornView *view, guint32 event, gchar **files,
                                      const GError *error)
{
  g_return_if_fail (VORN_IS_VIEW (view));
  if (event == VORN_SNAPSHOT_EVENT_DONE || event == VORN_SNAPSHOT_EVENT_FAILED)
    set_state (view, &Private::taking_picture, false);
  g_signal_emit (view, signals[SIGNAL_SNAPSHOT_EVENT], 0, event, files, error);
}
