// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The picture pipeline: one full-size frame a run, for a photo and its thumbnail.
#include "vorn_morvik_zelto_front_view_private.hpp"

#include "vorn_morvik_zelto_front_view_chain.hpp"
#include <vorn/log.h>

VORN_LOG_TAG ("vorn_morvik_zelto_front_view");

using namespace front_view;

namespace
{

constexpr VornResolution full_size = {3840, 2160};

/** A source that gives one frame each time the pipeline runs; none without its factory. */
Element make_source (VornMorvikZeltoFrontView *view, const VornSensorConfiguration &sensor)
{
  Element source =
      with_front_cam () ? make ("kavrel_morviksrc", "picture-src") : make_test_source ();
  if (!source)
    return source;
  g_object_set (source.get (), "num-buffers", 1, nullptr);
  if (!with_front_cam ())
    return source;
  g_object_set (source.get (), "source", view->video_device, nullptr);
  if (is_simple_front_cam ())
    set_sensor_rect (source.get (), 0, 0, simple_size.width, simple_size.height);
  else
    set_sensor_rect (source.get (), sensor.capture_left, sensor.capture_top, sensor.capture_width,
                     sensor.capture_height);
  return source;
}

const char *missing_source ()
{
  return with_front_cam () ? " kavrel_morviksrc" : " videotestsrc";
}

bool build_full (GstBin *bin, VornCamera *camera, VornMorvikZeltoFrontView *view, Element &tee)
{
  const VornSensorConfiguration &sensor = *vorn_camera_get_sensor_configuration (camera);
  const Element source = make_source (view, sensor);
  const DewarpingElements elements;
  const Element filter = make ("capsfilter");
  tee = make ("tee");
  if (!source || !elements || !filter || !tee) {
    VORN_LOG_ERROR (
        "missing elements:%s%s%s%s%s%s%s", source ? "" : missing_source (),
        elements.convert_in && elements.convert_out ? "" : " videoconvert",
        elements.upload ? "" : " glupload", elements.filter ? "" : " kavrel_tovrinfilter",
        elements.download ? "" : " gldownload", filter ? "" : " capsfilter", tee ? "" : " tee");
    return false;
  }
  g_object_set (filter.get (), "caps", raw_caps (full_size, nullptr).get (), nullptr);
  gst_bin_add_many (bin, source.get (), filter.get (), tee.get (), nullptr);
  elements.add_to (bin);
  if (!link_to_upload (source.get (), elements, sensor))
    return false;
  if (!gst_element_link_many (elements.upload.get (), elements.filter.get (),
                              elements.download.get (), elements.convert_out.get (), filter.get (),
                              tee.get (), nullptr)) {
    VORN_LOG_ERROR ("failed to link glupload with tovrin filter, gldownload, videoconvert, "
                    "capsfilter, tee");
    return false;
  }
  vorn_morvik_zelto_front_view_set_up_tovrinfilter (view, camera, elements.filter.get (),
                                                    &view->picture_tovrinfilter);
  return true;
}

bool build_simple (GstBin *bin, VornCamera *camera, VornMorvikZeltoFrontView *view, Element &tee)
{
  const VornSensorConfiguration &sensor = *vorn_camera_get_sensor_configuration (camera);
  const Element source = make_source (view, sensor);
  const Element convert = make ("videoconvert");
  const Element filter = make ("capsfilter");
  tee = make ("tee");
  if (!source || !convert || !filter || !tee) {
    VORN_LOG_ERROR ("missing elements:%s%s%s%s", source ? "" : missing_source (),
                    convert ? "" : " videoconvert", filter ? "" : " capsfilter", tee ? "" : " tee");
    return false;
  }
  g_object_set (filter.get (), "caps", raw_caps (simple_size, "I420", &sensor.framerate).get (),
                nullptr);
  gst_bin_add_many (bin, source.get (), convert.get (), filter.get (), tee.get (), nullptr);
  if (!gst_element_link_many (source.get (), convert.get (), filter.get (), tee.get (), nullptr)) {
    VORN_LOG_ERROR ("failed to link morviksrc with videoconvert, capsfilter and tee");
    return false;
  }
  return true;
}

bool populate (GstBin *bin, VornCamera *camera, VornMorvikZeltoFrontView *view)
{
  const bool simple = is_simple_front_cam ();
  Element tee;
  if (!(simple ? build_simple : build_full) (bin, camera, view, tee))
    return false;
  const VornResolution size =
      simple ? simple_size : vorn_camera_get_sensor_configuration (camera)->resolution;
  if (!populate_picture_main_pipeline (bin, tee.get (), view, size.width, size.height)) {
    VORN_LOG_ERROR ("failed to populate main picture pipeline");
    return false;
  }
  if (!populate_picture_thumbnail_pipeline (bin, tee.get (), view)) {
    VORN_LOG_ERROR ("failed to populate thumbnail pipeline");
    return false;
  }
  return true;
}

} // namespace

gboolean populate_picture_pipeline (GstBin *bin, VornCamera *camera, VornMorvikZeltoFrontView *view)
{
  if (populate (bin, camera, view))
    return TRUE;
  take_all_out (bin);
  return FALSE;
}
