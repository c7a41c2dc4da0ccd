// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// How the view's pipelines come and go; what is in them is built in files of their own.
#include "vorn_morvik_zelto_front_view_private.hpp"

#include "vorn_morvik_zelto_front_view_chain.hpp"
#include <vorn/log.h>

VORN_LOG_TAG ("vorn_morvik_zelto_front_view");

using front_view::Element;

namespace
{

Element new_pipeline (VornMorvikZeltoFrontView *view, VornCamera *camera, const char *name)
{
  auto pipeline = vorn::adopt (vorn_product_new_pipeline (view->product, name, TRUE));
  g_object_set_qdata_full (G_OBJECT (pipeline.get ()), g_quark_from_static_string ("camera-quark"),
                           vorn::share (camera).release (), g_object_unref);
  vorn_gst_view_attach_element (VORN_GST_VIEW (view), pipeline.get ());
  return pipeline;
}

/** Keeps a pipeline that is complete, in the view and in the product. */
void keep (VornMorvikZeltoFrontView *view, Element pipeline, GstElement *&field)
{
  drop (field); // a prepare that failed may have left one
  field = vorn::share (pipeline.get ()).release ();
  vorn_product_add_pipeline (view->product, pipeline.release ());
}

const char *name_of_kind (guint32 kind)
{
  return kind == VORN_PIPELINE_KIND_STREAMING ? "streaming" : "recording";
}

bool make_source_pad (VornMorvikZeltoFrontView *view, guint32 kind, GstElement *tee)
{
  const auto pad = vorn::adopt (gst_element_request_pad_simple (tee, "src_%u"));
  if (!pad) {
    VORN_LOG_ERROR ("failed to get a src pad from tee for %s", name_of_kind (kind));
    return false;
  }
  if (vorn_gst_view_set_source_pad (VORN_GST_VIEW (view), pad.get (), kind))
    return true;
  VORN_LOG_ERROR ("failed to set tee pad as a %s source", name_of_kind (kind));
  gst_element_release_request_pad (tee, pad.get ());
  return false;
}

GstStructure *on_tovrin_get_attitude (GstElement *, guint64 start_ns, guint64 stop_ns,
                                      VornMorvikZeltoFrontView *view)
{
  if (!view->attitude_provider)
    return nullptr;
  GstStructure *attitude = vorn_tovrin_provider_get_attitude (
      VORN_TOVRIN_PROVIDER (view->attitude_provider), start_ns, stop_ns);
  if (!attitude)
    VORN_LOG_WARNING ("failed to get attitude for tovrin");
  return attitude;
}

void vorn_morvik_zelto_front_view_set_tovrinfilter (VornMorvikZeltoFrontView *, GstElement *,
                                                    GstElement **)
{
  // On every call, and no slot is ever filled: the filters keep their own orientation.
  VORN_LOG_WARNING ("filter already set");
}

/** Takes what the camera lent out of the pipeline, ready to be put into another. */
void give_camera_source_back (VornMorvikZeltoFrontView *view)
{
  GstElement *source = std::exchange (view->camera_source, nullptr);
  if (!source)
    return;
  g_signal_handlers_disconnect_by_func (source, reinterpret_cast<gpointer> (on_new_frame_cb), view);
  if (view->main_pipeline)
    front_view::take_out (GST_BIN (view->main_pipeline), source);
}

} // namespace

void vorn_morvik_zelto_front_view_set_up_tovrinfilter (VornMorvikZeltoFrontView *view,
                                                       VornCamera *camera, GstElement *filter,
                                                       GstElement **slot)
{
  const VornSensorConfiguration &sensor = *vorn_camera_get_sensor_configuration (camera);
  g_object_set (filter, "wobble-comp", FALSE, "sensor-capture-width", sensor.capture_width,
                "sensor-capture-height", sensor.capture_height, "sensor-capture-left",
                sensor.capture_left, "sensor-capture-top", sensor.capture_top, nullptr);
  vorn_morvik_zelto_front_view_set_tovrinfilter (view, filter, slot);
  g_signal_connect (filter, "imu-get-attitude-data", G_CALLBACK (on_tovrin_get_attitude), view);
}

gboolean vorn_morvik_zelto_front_view_make_branch (VornMorvikZeltoFrontView *view, guint32 kind,
                                                   GstElement *tee)
{
  if (make_source_pad (view, kind, tee))
    return TRUE;
  VORN_LOG_ERROR ("failed to make %s branch", name_of_kind (kind));
  return FALSE;
}

gboolean vorn_morvik_zelto_front_view_prepare (VornView *base)
{
  auto *view = VORN_MORVIK_ZELTO_FRONT_VIEW (base);
  const GList *cameras = vorn_view_get_cameras (base);
  VornCamera *cam = cameras ? VORN_CAMERA (cameras->data) : nullptr;
  g_assert (cam);

  auto main = new_pipeline (view, cam, "front-streaming-pipeline");
  const gboolean populated = populate_main_pipeline (GST_BIN (main.get ()), cam, view);
  g_object_set (view, "streaming-preset", "ZeltoStreaming720p", "recording-preset",
                "ZeltoRecording2160p", nullptr);
  if (!populated) {
    VORN_LOG_ERROR ("failed to populate front streaming pipeline");
    return FALSE;
  }
  keep (view, std::move (main), view->main_pipeline);

  auto picture = new_pipeline (view, cam, "front-picture-pipeline");
  if (!populate_picture_pipeline (GST_BIN (picture.get ()), cam, view)) {
    VORN_LOG_ERROR ("failed to populate front picture pipeline");
    return FALSE;
  }
  keep (view, std::move (picture), view->picture_pipeline);

  vorn_morvik_zelto_front_view_wait_for_covers (); // of a former prepare
  view->thumbnail_requested = FALSE;
  g_mutex_init (&view->thumbnail_lock);
  if (with_front_cam ())
    // The camera keeps its element when the view goes.
    g_signal_connect_object (view->camera_source, "new-frame", G_CALLBACK (on_new_frame_cb), view,
                             static_cast<GConnectFlags> (0));
  return VORN_VIEW_CLASS (vorn_morvik_zelto_front_view_get_parent_class ())->prepare (base);
}

gboolean vorn_morvik_zelto_front_view_unprepare (VornView *base)
{
  auto *view = VORN_MORVIK_ZELTO_FRONT_VIEW (base);
  give_camera_source_back (view);
  {
    // A cover that is being made takes its reference meanwhile.
    const vorn::Lock lock (&view->thumbnail_lock);
    drop (view->main_pipeline);
  }
  drop (view->picture_pipeline);
  drop (view->main_tovrinfilter);
  drop (view->picture_tovrinfilter);
  if (view->camera_imu)
    camera_imu_free (std::exchange (view->camera_imu, nullptr));
  if (view->attitude_provider) {
    // The provider is left to leak, on purpose, and it is heard: GLib refuses to release what is no
    // object, and so is given none.
    g_object_unref (nullptr);
    view->attitude_provider = nullptr;
  }
  return VORN_VIEW_CLASS (vorn_morvik_zelto_front_view_get_parent_class ())->unprepare (base);
}
