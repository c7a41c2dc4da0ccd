// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/gst_view.h>

#include <gio/gio.h>

#include "gst_view_state.hpp"
#include "internal.hpp"
#include <vorn/log.h>

VORN_LOG_TAG ("vorn_gst_view");

using vorn::GstViewState;

namespace
{

enum Property {
  PROPERTY_STREAMING_PRESET = 1,
  PROPERTY_RECORDING_PRESET,
  PROPERTY_RECORDING_BITRATE,
  PROPERTY_STREAMING_ENCODER,
  PROPERTY_RECORDING_ENCODER,
};

} // namespace

typedef struct {
  GstViewState *state;
} VornGstViewPrivate;

static void vorn_gst_view_initable_interface_init (GInitableIface *interface);

G_DEFINE_TYPE_WITH_CODE (VornGstView, vorn_gst_view, VORN_TYPE_VIEW,
                         G_ADD_PRIVATE (VornGstView)
                             G_IMPLEMENT_INTERFACE (G_TYPE_INITABLE,
                                                    vorn_gst_view_initable_interface_init))

static GstViewState &state_of (VornGstView *view)
{
  return *static_cast<VornGstViewPrivate *> (vorn_gst_view_get_instance_private (view))->state;
}

GstViewState &vorn::gst_view_state (VornGstView *view)
{
  return state_of (view);
}

static gboolean vorn_gst_view_initable_init (GInitable *, GCancellable *, GError **)
{
  return TRUE;
}

static void vorn_gst_view_initable_interface_init (GInitableIface *interface)
{
  interface->init = vorn_gst_view_initable_init;
}

static std::string text_of (const GValue *value)
{
  const gchar *text = g_value_get_string (value);
  return text ? text : "";
}

static void vorn_gst_view_set_property (GObject *object, guint id, const GValue *value,
                                        GParamSpec *pspec)
{
  GstViewState &state = state_of (VORN_GST_VIEW (object));
  switch (id) {
  case PROPERTY_STREAMING_PRESET:
    state.streaming_preset = text_of (value);
    if (state.stream)
      state.stream->chain ().load_preset (state.streaming_preset);
    break;
  case PROPERTY_RECORDING_PRESET:
    state.recording_preset = text_of (value);
    if (state.recording)
      state.recording->chain ().load_preset (state.recording_preset);
    break;
  case PROPERTY_RECORDING_BITRATE:
    state.recording_bitrate = g_value_get_uint (value);
    if (state.recording)
      state.recording->chain ().set_bitrate (state.recording_bitrate);
    break;
  default:
    G_OBJECT_WARN_INVALID_PROPERTY_ID (object, id, pspec);
  }
}

static void vorn_gst_view_get_property (GObject *object, guint id, GValue *value, GParamSpec *pspec)
{
  const GstViewState &state = state_of (VORN_GST_VIEW (object));
  switch (id) {
  case PROPERTY_STREAMING_PRESET:
    g_value_set_string (value, state.streaming_preset.c_str ());
    break;
  case PROPERTY_RECORDING_PRESET:
    g_value_set_string (value, state.recording_preset.c_str ());
    break;
  case PROPERTY_RECORDING_BITRATE:
    g_value_set_uint (value, state.recording_bitrate);
    break;
  case PROPERTY_STREAMING_ENCODER:
    g_value_set_object (value, state.stream ? state.stream->chain ().encoder () : nullptr);
    break;
  case PROPERTY_RECORDING_ENCODER:
    g_value_set_object (value, state.recording ? state.recording->chain ().encoder () : nullptr);
    break;
  default:
    G_OBJECT_WARN_INVALID_PROPERTY_ID (object, id, pspec);
  }
}

static void vorn_gst_view_dispose (GObject *object)
{
  vorn::gst_view_take_down (VORN_GST_VIEW (object));
  G_OBJECT_CLASS (vorn_gst_view_parent_class)->dispose (object);
}

static void vorn_gst_view_finalize (GObject *object)
{
  delete &state_of (VORN_GST_VIEW (object));
  G_OBJECT_CLASS (vorn_gst_view_parent_class)->finalize (object);
}

static gboolean vorn_gst_view_handle_message (VornGstView *view, GstMessage *message)
{
  vorn::ErrorOut error;
  switch (GST_MESSAGE_TYPE (message)) {
  case GST_MESSAGE_ERROR:
    gst_message_parse_error (message, error.out (), nullptr);
    VORN_LOG_ERROR ("view '%s': %s: %s", vorn_view_get_name (VORN_VIEW (view)),
                    GST_MESSAGE_SRC_NAME (message), error.message ());
    break;
  case GST_MESSAGE_WARNING:
    gst_message_parse_warning (message, error.out (), nullptr);
    VORN_LOG_WARNING ("view '%s': %s: %s", vorn_view_get_name (VORN_VIEW (view)),
                      GST_MESSAGE_SRC_NAME (message), error.message ());
    break;
  default:
    break;
  }
  vorn::gst_view_watch_recording (view, message);
  vorn::gst_view_watch_stream (view, message);
  return TRUE;
}

static void vorn_gst_view_class_init (VornGstViewClass *klass)
{
  GObjectClass *object_class = G_OBJECT_CLASS (klass);
  object_class->set_property = vorn_gst_view_set_property;
  object_class->get_property = vorn_gst_view_get_property;
  object_class->dispose = vorn_gst_view_dispose;
  object_class->finalize = vorn_gst_view_finalize;
  klass->handle_message = vorn_gst_view_handle_message;

  vorn::gst_view_fill_operations (VORN_VIEW_CLASS (klass));

  constexpr auto read_write = static_cast<GParamFlags> (G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS);
  constexpr auto read_only = static_cast<GParamFlags> (G_PARAM_READABLE | G_PARAM_STATIC_STRINGS);
  g_object_class_install_property (
      object_class, PROPERTY_STREAMING_PRESET,
      g_param_spec_string ("streaming-preset", "Streaming preset",
                           "Name of the preset of the streaming encoder", "", read_write));
  g_object_class_install_property (
      object_class, PROPERTY_RECORDING_PRESET,
      g_param_spec_string ("recording-preset", "Recording preset",
                           "Name of the preset of the recording encoder", "", read_write));
  g_object_class_install_property (
      object_class, PROPERTY_RECORDING_BITRATE,
      g_param_spec_uint ("recording-bitrate", "Recording bitrate",
                         "Bitrate of recordings in bit/s, 0 for the preset's", 0, G_MAXUINT, 0,
                         read_write));
  g_object_class_install_property (object_class, PROPERTY_STREAMING_ENCODER,
                                   g_param_spec_object ("streaming-encoder", "Streaming encoder",
                                                        "The streaming encoder", GST_TYPE_ELEMENT,
                                                        read_only));
  g_object_class_install_property (object_class, PROPERTY_RECORDING_ENCODER,
                                   g_param_spec_object ("recording-encoder", "Recording encoder",
                                                        "The recording encoder", GST_TYPE_ELEMENT,
                                                        read_only));
}

static void vorn_gst_view_init (VornGstView *view)
{
  static_cast<VornGstViewPrivate *> (vorn_gst_view_get_instance_private (view))->state =
      new GstViewState;
}

static gboolean on_bus_message (GstBus *, GstMessage *message, gpointer data)
{
  // Held: the handler may drop the view's last other reference.
  const vorn::Ref<VornGstView> view (VORN_GST_VIEW (data));
  VORN_GST_VIEW_GET_CLASS (view.get ())->handle_message (view.get (), message);
  return G_SOURCE_CONTINUE;
}

void vorn::gst_view_take_down (VornGstView *view)
{
  GstViewState &state = state_of (view);
  gst_view_forget_restart (view);
  // First of all, while there is still a pipeline that the file's elements are in.
  gst_view_end_recording (view, nullptr);
  for (AttachedPipeline &attached : std::exchange (state.attached, {})) {
    if (attached.bus_watch != 0)
      g_source_remove (attached.bus_watch);
    gst_element_set_state (attached.element.get (), GST_STATE_NULL);
    product_forget_pipeline (attached.element.get ());
  }
  gst_view_remove_branches (view);
  state.streaming_pad.reset ();
  state.recording_pad.reset ();
  state.units.clear ();
}

gboolean vorn_gst_view_attach_element (VornGstView *view, GstElement *element)
{
  g_return_val_if_fail (VORN_IS_GST_VIEW (view), FALSE);
  g_return_val_if_fail (GST_IS_ELEMENT (element), FALSE);
  const auto bus = vorn::adopt (gst_element_get_bus (element));
  if (!bus) {
    VORN_LOG_ERROR ("view '%s': '%s' has no bus to watch", vorn_view_get_name (VORN_VIEW (view)),
                    GST_OBJECT_NAME (element));
    return FALSE;
  }
  vorn::AttachedPipeline attached;
  attached.element = vorn::share (element);
  attached.bus_watch = gst_bus_add_watch (bus.get (), on_bus_message, view);
  if (attached.bus_watch == 0) {
    VORN_LOG_ERROR ("view '%s': the bus of '%s' is watched already",
                    vorn_view_get_name (VORN_VIEW (view)), GST_OBJECT_NAME (element));
    return FALSE;
  }
  state_of (view).attached.push_back (std::move (attached));
  vorn::photo_file_watch (element);
  return TRUE;
}

gboolean vorn_gst_view_set_source_pad (VornGstView *view, GstPad *pad, guint32 kinds)
{
  g_return_val_if_fail (VORN_IS_GST_VIEW (view), FALSE);
  g_return_val_if_fail (GST_IS_PAD (pad), FALSE);
  GstViewState &state = state_of (view);
  const char *reason = nullptr;
  if (kinds == 0 || kinds > VORN_PIPELINE_KIND_BOTH)
    reason = "no such kind";
  else if (!GST_PAD_IS_SRC (pad))
    reason = "it is no source pad";
  else if (gst_pad_is_linked (pad))
    reason = "it is linked";
  else if (((kinds & VORN_PIPELINE_KIND_STREAMING) != 0 && state.streaming_pad) ||
           ((kinds & VORN_PIPELINE_KIND_RECORDING) != 0 && state.recording_pad))
    reason = "there is one already";
  if (reason) {
    VORN_LOG_ERROR ("view '%s': pad '%s' refused as source of kind %u: %s",
                    vorn_view_get_name (VORN_VIEW (view)), GST_OBJECT_NAME (pad), kinds, reason);
    return FALSE;
  }
  if ((kinds & VORN_PIPELINE_KIND_STREAMING) != 0)
    state.streaming_pad = vorn::share (pad);
  if ((kinds & VORN_PIPELINE_KIND_RECORDING) != 0)
    state.recording_pad = vorn::share (pad);
  return TRUE;
}

GstPad *vorn_gst_view_get_source_pad (VornGstView *view, VornPipelineKind kind)
{
  g_return_val_if_fail (VORN_IS_GST_VIEW (view), nullptr);
  const GstViewState &state = state_of (view);
  return kind == VORN_PIPELINE_KIND_STREAMING   ? state.streaming_pad.get ()
         : kind == VORN_PIPELINE_KIND_RECORDING ? state.recording_pad.get ()
                                                : nullptr;
}

// ---- Stream and recordings

guint vorn_gst_view_add_stream_unit_func (VornGstView *view, VornStreamUnitFunc func, gpointer data,
                                          GDestroyNotify destroy)
{
  g_return_val_if_fail (VORN_IS_GST_VIEW (view), 0);
  g_return_val_if_fail (func != NULL, 0);
  const guint id = state_of (view).units.add (func, data, destroy);
  vorn_gst_view_request_key_frame (view);
  return id;
}

void vorn_gst_view_remove_stream_unit_func (VornGstView *view, guint id)
{
  g_return_if_fail (VORN_IS_GST_VIEW (view));
  state_of (view).units.remove (id);
}

void vorn_gst_view_request_key_frame (VornGstView *view)
{
  g_return_if_fail (VORN_IS_GST_VIEW (view));
  GstViewState &state = state_of (view);
  vorn::Ref<GstElement> encoder;
  {
    const vorn::Lock lock (&state.lock);
    if (state.stream && state.stream->chain ().is_open ())
      encoder = vorn::share (state.stream->chain ().encoder ());
  }
  if (encoder)
    vorn::request_key_frame (encoder.get ());
}

void vorn_gst_view_get_statistics (VornGstView *view, VornGstViewStatistics *statistics)
{
  g_return_if_fail (VORN_IS_GST_VIEW (view));
  g_return_if_fail (statistics != NULL);
  *statistics = {};
  GstViewState &state = state_of (view);
  const vorn::Lock lock (&state.lock);
  if (state.stream) {
    const auto &counters = state.stream->chain ().counters ();
    statistics->stream_frames_in = counters.frames_in;
    statistics->stream_frames_out = counters.frames_out;
    statistics->stream_bytes = counters.bytes;
    statistics->stream_drops = counters.drops;
  }
  if (state.recording) {
    const auto &counters = state.recording->chain ().counters ();
    statistics->recording_frames_in = counters.frames_in;
    statistics->recording_frames_out = counters.frames_out;
    statistics->recording_bytes = counters.bytes;
    statistics->recording_drops = counters.drops;
  }
}

gchar *vorn_gst_view_get_stream_description (VornGstView *view)
{
  g_return_val_if_fail (VORN_IS_GST_VIEW (view), nullptr);
  const GstViewState &state = state_of (view);
  const std::string text = state.stream ? state.stream->describe () : std::string ();
  return text.empty () ? nullptr : g_strdup (text.c_str ());
}

gchar *vorn_gst_view_get_recording_location (VornGstView *view)
{
  g_return_val_if_fail (VORN_IS_GST_VIEW (view), nullptr);
  GstViewState &state = state_of (view);
  const vorn::Lock lock (&state.lock);
  return state.recording_location.empty () ? nullptr : g_strdup (state.recording_location.c_str ());
}
