// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/gst_view.h>

#include <algorithm>
#include <gio/gio.h>
#include <string>
#include <vector>

#include "internal.hpp"
#include <vorn/gst_raii.hpp>
#include <vorn/log.h>

VORN_LOG_TAG ("vorn_gst_view");

namespace
{

struct Attached {
  vorn::Ref<GstElement> element;
  guint bus_watch = 0;
};

struct Private {
  std::vector<Attached> attached;
  vorn::Ref<GstPad> streaming_pad;
  vorn::Ref<GstPad> recording_pad;
  std::string streaming_preset;
  std::string recording_preset;
  guint recording_bitrate = 0; // bit/s; 0: the preset's
  vorn::Ref<GstElement> streaming_encoder;
  vorn::Ref<GstElement> recording_encoder;
};

enum Property {
  PROPERTY_STREAMING_PRESET = 1,
  PROPERTY_RECORDING_PRESET,
  PROPERTY_RECORDING_BITRATE,
  PROPERTY_STREAMING_ENCODER,
  PROPERTY_RECORDING_ENCODER,
};

} // namespace

typedef struct {
  Private *state;
} VornGstViewPrivate;

static void vorn_gst_view_initable_interface_init (GInitableIface *interface);

G_DEFINE_TYPE_WITH_CODE (VornGstView, vorn_gst_view, VORN_TYPE_VIEW,
                         G_ADD_PRIVATE (VornGstView)
                             G_IMPLEMENT_INTERFACE (G_TYPE_INITABLE,
                                                    vorn_gst_view_initable_interface_init))

static Private &state_of (VornGstView *view)
{
  return *static_cast<VornGstViewPrivate *> (vorn_gst_view_get_instance_private (view))->state;
}

static gboolean vorn_gst_view_initable_init (GInitable *, GCancellable *, GError **)
{
  return TRUE;
}

static void vorn_gst_view_initable_interface_init (GInitableIface *interface)
{
  interface->init = vorn_gst_view_initable_init;
}

static void vorn_gst_view_set_property (GObject *object, guint id, const GValue *value,
                                        GParamSpec *pspec)
{
  Private &state = state_of (VORN_GST_VIEW (object));
  switch (id) {
  case PROPERTY_STREAMING_PRESET:
  case PROPERTY_RECORDING_PRESET: {
    const gchar *preset = g_value_get_string (value);
    (id == PROPERTY_STREAMING_PRESET ? state.streaming_preset : state.recording_preset) =
        preset ? preset : "";
    break;
  }
  case PROPERTY_RECORDING_BITRATE:
    state.recording_bitrate = g_value_get_uint (value);
    break;
  default:
    G_OBJECT_WARN_INVALID_PROPERTY_ID (object, id, pspec);
  }
}

static void vorn_gst_view_get_property (GObject *object, guint id, GValue *value, GParamSpec *pspec)
{
  const Private &state = state_of (VORN_GST_VIEW (object));
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
    g_value_set_object (value, state.streaming_encoder.get ());
    break;
  case PROPERTY_RECORDING_ENCODER:
    g_value_set_object (value, state.recording_encoder.get ());
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
  return TRUE;
}

static gboolean vorn_gst_view_succeed (VornView *)
{
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

  VornViewClass *view_class = VORN_VIEW_CLASS (klass);
  view_class->prepare = vorn_gst_view_succeed;
  view_class->unprepare = vorn_gst_view_succeed;

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
      new Private;
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
  Private &state = state_of (view);
  for (Attached &attached : std::exchange (state.attached, {})) {
    if (attached.bus_watch != 0)
      g_source_remove (attached.bus_watch);
    gst_element_set_state (attached.element.get (), GST_STATE_NULL);
    product_forget_pipeline (attached.element.get ());
  }
  state.streaming_pad.reset ();
  state.recording_pad.reset ();
  state.streaming_encoder.reset ();
  state.recording_encoder.reset ();
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
  Attached attached;
  attached.element = vorn::share (element);
  attached.bus_watch = gst_bus_add_watch (bus.get (), on_bus_message, view);
  if (attached.bus_watch == 0) {
    VORN_LOG_ERROR ("view '%s': the bus of '%s' is watched already",
                    vorn_view_get_name (VORN_VIEW (view)), GST_OBJECT_NAME (element));
    return FALSE;
  }
  state_of (view).attached.push_back (std::move (attached));
  return TRUE;
}

gboolean vorn_gst_view_set_source_pad (VornGstView *view, GstPad *pad, guint32 kinds)
{
  g_return_val_if_fail (VORN_IS_GST_VIEW (view), FALSE);
  g_return_val_if_fail (GST_IS_PAD (pad), FALSE);
  Private &state = state_of (view);
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
  const Private &state = state_of (view);
  return kind == VORN_PIPELINE_KIND_STREAMING   ? state.streaming_pad.get ()
         : kind == VORN_PIPELINE_KIND_RECORDING ? state.recording_pad.get ()
                                                : nullptr;
}
