// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The main pipeline: the live picture up to the pads that feed stream and recordings.
#include "vorn_morvik_zelto_front_view_private.hpp"

#include "vorn_morvik_zelto_front_view_chain.hpp"
#include <vorn/log.h>

VORN_LOG_TAG ("vorn_morvik_zelto_front_view");

using namespace front_view;

namespace
{

/** The camera's own element, which stays the camera's, or a test pattern. */
Element get_source (VornMorvikZeltoFrontView *view, VornCamera *camera)
{
  auto source =
      with_front_cam () ? vorn::share (vorn_camera_get_element (camera)) : make_test_source ();
  if (!source)
    VORN_LOG_ERROR ("failed to get camera video source");
  view->camera_source = source.get ();
  return source;
}

gboolean populate_simple (GstBin *bin, VornCamera *camera, VornMorvikZeltoFrontView *view)
{
  const Element source = get_source (view, camera);
  if (!source)
    return FALSE;
  if (with_front_cam ())
    set_sensor_rect (source.get (), 0, 0, simple_size.width, simple_size.height);
  const Element convert = make ("videoconvert");
  const Element filter = make ("capsfilter");
  if (!convert || !filter) {
    VORN_LOG_ERROR ("missing elements:%s%s", convert ? "" : " videoconvert",
                    filter ? "" : " capsfilter");
    return FALSE;
  }
  const auto caps =
      raw_caps (simple_size, "I420", &vorn_camera_get_sensor_configuration (camera)->framerate);
  g_object_set (filter.get (), "caps", caps.get (), nullptr);
  gst_bin_add_many (bin, source.get (), convert.get (), filter.get (), nullptr);
  if (!gst_element_link_many (source.get (), convert.get (), filter.get (), nullptr)) {
    VORN_LOG_ERROR ("failed to link camera with videoconvert");
    return FALSE;
  }
  const auto pad = vorn::adopt (gst_element_get_static_pad (filter.get (), "src"));
  return vorn_gst_view_set_source_pad (VORN_GST_VIEW (view), pad.get (), VORN_PIPELINE_KIND_BOTH);
}

/** The dewarped picture of the camera, up to the tee. */
gboolean add_camera (GstBin *bin, GstElement *tee, VornCamera *camera,
                     VornMorvikZeltoFrontView *view)
{
  const Element source = get_source (view, camera);
  if (!source)
    return FALSE;
  const DewarpingElements elements;
  if (!elements) {
    VORN_LOG_ERROR ("missing elements:%s%s%s%s", elements.upload ? "" : " glupload",
                    elements.convert_in ? "" : " conv", elements.filter ? "" : " tovrinfilter",
                    elements.download ? "" : " gldownload");
    return FALSE;
  }
  gst_bin_add (bin, source.get ());
  elements.add_to (bin);
  if (!link_to_upload (source.get (), elements, *vorn_camera_get_sensor_configuration (camera)))
    return FALSE;
  if (!gst_element_link_many (elements.upload.get (), elements.filter.get (),
                              elements.download.get (), elements.convert_out.get (), nullptr)) {
    VORN_LOG_ERROR ("failed to link glupload with tovrin filter, gldownload, videoconvert");
    return FALSE;
  }
  const auto caps =
      vorn::adopt (gst_caps_new_simple ("video/x-raw", "format", G_TYPE_STRING, "I420", nullptr));
  if (!gst_element_link_filtered (elements.convert_out.get (), tee, caps.get ())) {
    VORN_LOG_ERROR ("failed to link videoconvert and tee");
    return FALSE;
  }
  vorn_morvik_zelto_front_view_set_up_tovrinfilter (view, camera, elements.filter.get (),
                                                    &view->main_tovrinfilter);
  return TRUE;
}

/** What answers the dewarping filters; the picture goes on unsteadied without. */
void make_attitude (VornMorvikZeltoFrontView *view)
{
  view->camera_imu = camera_imu_new ();
  if (!view->camera_imu)
    VORN_LOG_WARNING ("failed to create camera imu");
  view->attitude_provider = vorn::adopt (vorn_tovrin_shdata_provider_new ()).release ();
  if (!view->attitude_provider)
    VORN_LOG_WARNING ("failed to create Shdata provider");
}

gboolean populate_full (GstBin *bin, VornCamera *camera, VornMorvikZeltoFrontView *view)
{
  make_attitude (view);
  const Element tee = make ("tee");
  if (!tee) {
    VORN_LOG_ERROR ("failed to create tee");
    return FALSE;
  }
  gst_bin_add (bin, tee.get ());
  if (!add_camera (bin, tee.get (), camera, view)) {
    VORN_LOG_ERROR ("failed to add camera to front-pipeline");
    return FALSE;
  }
  return vorn_morvik_zelto_front_view_make_branch (view, VORN_PIPELINE_KIND_STREAMING,
                                                   tee.get ()) &&
         vorn_morvik_zelto_front_view_make_branch (view, VORN_PIPELINE_KIND_RECORDING, tee.get ());
}

} // namespace

gboolean populate_main_pipeline (GstBin *bin, VornCamera *camera, VornMorvikZeltoFrontView *view)
{
  // A prepare that failed may have left them.
  if (view->camera_imu)
    camera_imu_free (std::exchange (view->camera_imu, nullptr));
  drop (view->attitude_provider);
  if (is_simple_front_cam () ? populate_simple (bin, camera, view)
                             : populate_full (bin, camera, view))
    return TRUE;
  take_all_out (bin); // the camera's own element may then go into another
  view->camera_source = nullptr;
  return FALSE;
}
