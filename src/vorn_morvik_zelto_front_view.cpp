// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "vorn_morvik_zelto_front_view_private.hpp"

#include <cstring>
#include <gio/gio.h>

#include "dewarper_eis.hpp"
#include "trel_metadata.hpp"
#include <vorn/gst_raii.hpp>
#include <vorn/log.h>
#include <vorn/properties.h>

VORN_LOG_TAG ("vorn_morvik_zelto_front_view");

namespace
{

constexpr char default_video_device[] = "unix:/simulator/hor_camera.sock";
constexpr char attitude_interface_key[] = "org.vorn.morvikzelto.FrontView.Attitude";

enum Property { PROPERTY_VIDEO_DEVICE = 1, PROPERTY_RECORDING_BITRATE };

bool property_is_one (const char *name, const char *default_value)
{
  char value[16];
  vorn_property_get (name, value, sizeof value, default_value);
  return strcmp (value, "1") == 0;
}

void free_postprocessor (FramePostprocessor *&field)
{
  frame_postprocessor_free (std::exchange (field, nullptr));
}

} // namespace

G_DEFINE_FINAL_TYPE (VornMorvikZeltoFrontView, vorn_morvik_zelto_front_view, VORN_TYPE_GST_VIEW)

VornGstViewClass *vorn_morvik_zelto_front_view_get_parent_class ()
{
  return VORN_GST_VIEW_CLASS (vorn_morvik_zelto_front_view_parent_class);
}

bool with_front_cam ()
{
  return property_is_one ("ro.with-front-cam", "0");
}

bool is_simple_front_cam ()
{
  return property_is_one ("ro.simple-front-cam", "1");
}

VornFormat load_relaxed (const VornFormat &format)
{
  return {.resolution = {load_relaxed (format.resolution.width),
                         load_relaxed (format.resolution.height)},
          .framerate = {load_relaxed (format.framerate.num), load_relaxed (format.framerate.den)},
          .flag = load_relaxed (format.flag)};
}

void store_relaxed (VornFormat &format, const VornFormat &value)
{
  store_relaxed (format.resolution.width, value.resolution.width);
  store_relaxed (format.resolution.height, value.resolution.height);
  store_relaxed (format.framerate.num, value.framerate.num);
  store_relaxed (format.framerate.den, value.framerate.den);
  store_relaxed (format.flag, value.flag);
}

static void vorn_morvik_zelto_front_view_set_property (GObject *object, guint id,
                                                       const GValue *value, GParamSpec *pspec)
{
  auto *view = VORN_MORVIK_ZELTO_FRONT_VIEW (object);
  switch (id) {
  case PROPERTY_VIDEO_DEVICE:
    g_free (view->video_device);
    view->video_device = g_value_dup_string (value);
    break;
  default: // the bitrate of recordings too: it can be read here, not set
    G_OBJECT_WARN_INVALID_PROPERTY_ID (object, id, pspec);
  }
}

static void vorn_morvik_zelto_front_view_get_property (GObject *object, guint id, GValue *value,
                                                       GParamSpec *pspec)
{
  auto *view = VORN_MORVIK_ZELTO_FRONT_VIEW (object);
  switch (id) {
  case PROPERTY_VIDEO_DEVICE:
    g_value_set_string (value, view->video_device);
    break;
  case PROPERTY_RECORDING_BITRATE: {
    GstElement *encoder = nullptr;
    g_object_get (object, "recording-encoder", &encoder, nullptr);
    const auto owned = vorn::adopt (encoder);
    if (encoder) {
      guint kbit_per_s = 0;
      g_object_get (encoder, "bitrate", &kbit_per_s, nullptr);
      g_value_set_uint (value, kbit_per_s * 1000);
    }
    break;
  }
  default:
    G_OBJECT_WARN_INVALID_PROPERTY_ID (object, id, pspec);
  }
}

static void vorn_morvik_zelto_front_view_dispose (GObject *object)
{
  auto *view = VORN_MORVIK_ZELTO_FRONT_VIEW (object);
  {
    // A cover that is being made takes its reference meanwhile.
    const vorn::Lock lock (&view->thumbnail_lock);
    drop (view->main_pipeline);
  }
  drop (view->picture_pipeline);
  drop (view->main_tovrinfilter);
  drop (view->picture_tovrinfilter);
  drop (view->attitude_provider);
  if (view->camera_imu)
    camera_imu_free (std::exchange (view->camera_imu, nullptr));
  free_postprocessor (view->streaming_postprocessor);
  free_postprocessor (view->recording_postprocessor);
  dewarper_eis_free ();
  trel_metadata_free ();
  G_OBJECT_CLASS (vorn_morvik_zelto_front_view_parent_class)->dispose (object);
}

static void vorn_morvik_zelto_front_view_finalize (GObject *object)
{
  auto *view = VORN_MORVIK_ZELTO_FRONT_VIEW (object);
  g_cond_clear (&view->cond);
  g_mutex_clear (&view->lock);
  g_free (view->video_device);
  G_OBJECT_CLASS (vorn_morvik_zelto_front_view_parent_class)->finalize (object);
}

static gboolean vorn_morvik_zelto_front_view_set_anti_wobble (VornView *, gboolean)
{
  VORN_LOG_INFO ("(%s) stub", __func__);
  return TRUE;
}

static gboolean vorn_zelto_front_view_set_user_fov (VornView *, gdouble)
{
  VORN_LOG_INFO ("(%s) stub", __func__);
  return TRUE;
}

static void vorn_morvik_zelto_front_view_blending_event (VornView *, guint32)
{
  VORN_LOG_INFO ("(%s) stub", __func__);
}

static void vorn_morvik_zelto_front_view_class_init (VornMorvikZeltoFrontViewClass *klass)
{
  GObjectClass *object_class = G_OBJECT_CLASS (klass);
  object_class->set_property = vorn_morvik_zelto_front_view_set_property;
  object_class->get_property = vorn_morvik_zelto_front_view_get_property;
  object_class->dispose = vorn_morvik_zelto_front_view_dispose;
  object_class->finalize = vorn_morvik_zelto_front_view_finalize;

  VornViewClass *view_class = VORN_VIEW_CLASS (klass);
  view_class->attitude_interface_key = attitude_interface_key;
  view_class->stream_setup = vorn_morvik_zelto_front_view_stream_setup;
  view_class->stream_teardown = vorn_morvik_zelto_front_view_stream_teardown;
  view_class->stream_set_params = vorn_morvik_zelto_front_view_stream_set_params;
  view_class->start_recording = vorn_morvik_zelto_front_view_start_recording;
  view_class->stop_recording = vorn_morvik_zelto_front_view_stop_recording;
  view_class->take_snapshot = vorn_morvik_zelto_front_view_take_snapshot;
  view_class->set_camera_orientation = vorn_morvik_zelto_front_view_set_camera_orientation;
  view_class->set_user_fov = vorn_zelto_front_view_set_user_fov;
  view_class->set_anti_wobble = vorn_morvik_zelto_front_view_set_anti_wobble;
  view_class->make_thumbnail = vorn_morvik_zelto_front_make_thumbnail;
  view_class->blending_event = vorn_morvik_zelto_front_view_blending_event;
  view_class->set_streaming_format = vorn_morvik_zelto_front_view_set_streaming_format;
  view_class->set_recording_format = vorn_morvik_zelto_front_view_set_recording_format;
  view_class->set_snapshot_format = vorn_morvik_zelto_front_view_set_snapshot_format;
  view_class->prepare = vorn_morvik_zelto_front_view_prepare;
  view_class->unprepare = vorn_morvik_zelto_front_view_unprepare;
  view_class->update_camera_mode = vorn_morvik_zelto_front_view_update_camera_mode;
  view_class->set_activation = vorn_morvik_zelto_front_view_set_activation;
  VORN_GST_VIEW_CLASS (klass)->handle_message = vorn_morvik_zelto_front_view_handle_message;

  g_object_class_install_property (
      object_class, PROPERTY_VIDEO_DEVICE,
      g_param_spec_string ("video-device", "Video Device", "Path to the video socket",
                           default_video_device,
                           static_cast<GParamFlags> (G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS)));
  g_object_class_override_property (object_class, PROPERTY_RECORDING_BITRATE, "recording-bitrate");
}

static void vorn_morvik_zelto_front_view_init (VornMorvikZeltoFrontView *view)
{
  view->video_device = g_strdup (default_video_device);
  g_cond_init (&view->cond);
  g_mutex_init (&view->lock);
  view->streaming_postprocessor = frame_postprocessor_new ();
  if (!view->streaming_postprocessor)
    GST_ERROR ("frame_postprocessor_new failed");
  view->recording_postprocessor = frame_postprocessor_new ();
  if (!view->recording_postprocessor)
    GST_ERROR ("frame_postprocessor_new failed");
  dewarper_eis_initialize ();
  trel_metadata_initialize ();
}

VornView *vorn_morvik_zelto_front_view_new (const gchar *name, const gchar *display_name,
                                            VornCamera *camera, const gchar *video_device,
                                            VornProduct *product)
{
  g_return_val_if_fail (name != NULL, NULL);
  g_return_val_if_fail (display_name != NULL, NULL);
  g_return_val_if_fail (VORN_IS_CAMERA (camera), NULL);
  g_return_val_if_fail (video_device != NULL, NULL);
  auto *view = static_cast<VornMorvikZeltoFrontView *> (
      g_initable_new (VORN_TYPE_MORVIK_ZELTO_FRONT_VIEW, nullptr, nullptr, "name", name,
                      "display-name", display_name, "video-device", video_device, nullptr));
  vorn_view_add_camera (VORN_VIEW (view), camera);
  view->product = product;
  return VORN_VIEW (view);
}

void vorn_morvik_zelto_front_view_set_image_style (VornMorvikZeltoFrontView *view, guint style)
{
  // Before prepare there is no source to set it on.
  if (with_front_cam () && view->camera_source)
    g_object_set (view->camera_source, "img-style", style, nullptr);
}
