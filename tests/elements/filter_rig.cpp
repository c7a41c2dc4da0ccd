// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "filter_rig.hpp"

#include <cmath>
#include <cstring>

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>

#include <vorn/frame_meta.h>
#include <vorn/framework.h>

#include "leak_check.hpp"
#include "main_context.hpp"

using scene::Image;

vorn::OwnedStructure make_imu_data (const std::vector<std::array<double, 4>> &quaternions)
{
  constexpr const char *names[4] = {"quaternions_x", "quaternions_y", "quaternions_z",
                                    "quaternions_w"};
  vorn::OwnedStructure data (gst_structure_new_empty ("imu-data"));
  for (size_t i = 0; i < 4; i++) {
    GArray *array = g_array_new (FALSE, FALSE, sizeof (float));
    for (const auto &q : quaternions) {
      const auto value = static_cast<float> (q[i]);
      g_array_append_val (array, value);
    }
    gst_structure_set (data.get (), names[i], G_TYPE_ARRAY, array, nullptr);
    g_array_unref (array);
  }
  return data;
}

vorn::OwnedStructure sample_motion (const scene::Motion &motion, GstClockTime start,
                                    GstClockTime stop, double phase_s)
{
  const double start_s = static_cast<double> (start) / 1e9;
  const double first = std::floor ((start_s - phase_s) * 1e3 + 1e-7) / 1e3 + phase_s;
  const GstClockTime count = (stop - start) / GST_MSECOND + 1;
  std::vector<std::array<double, 4>> quaternions;
  for (GstClockTime k = 0; k < count; k++)
    quaternions.push_back (
        scene::attitude_quaternion (motion (first + static_cast<double> (k) / 1e3)));
  return make_imu_data (quaternions);
}

void FilterRig::set_up (const char *plugin_path)
{
  // No display: the software context.
  g_setenv ("GST_GL_WINDOW", "egl-device", FALSE);
  vorn_framework_init (nullptr, nullptr);
  vorn::ErrorOut error;
  const auto plugin = vorn::adopt (gst_plugin_load_file (plugin_path, error.out ()));
  ASSERT_TRUE (plugin) << error.message ();
  const FilterRig first (16, 16);
  leak_check_keep_libraries ();
}

FilterRig::FilterRig (int width, int height, int out_width, int out_height,
                      const char *input_fields)
    : input_fields_ (input_fields)
{
  vorn::ErrorOut error;
  pipeline_ = vorn::adopt (gst_parse_launch (
      "appsrc name=in format=time is-live=false block=true max-buffers=1 ! glupload ! "
      "kavrel_tovrinfilter name=filter ! gldownload ! capsfilter name=caps ! "
      "appsink name=out sync=false max-buffers=4",
      error.out ()));
  const auto by_name = [&] (const char *name) {
    return vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline_.get ()), name));
  };
  if (!pipeline_ || error) {
    ADD_FAILURE () << error.message ();
    return;
  }
  source_ = by_name ("in");
  filter_ = by_name ("filter");
  caps_filter_ = by_name ("caps");
  sink_ = by_name ("out");
  if (out_width > 0)
    set_output_size (out_width, out_height);
  set_input_caps (width, height);
  g_signal_connect (filter_.get (), "imu-get-attitude-data", G_CALLBACK (on_attitude), this);
  EXPECT_NE (gst_element_set_state (pipeline_.get (), GST_STATE_PLAYING), GST_STATE_CHANGE_FAILURE);
}

FilterRig::~FilterRig ()
{
  if (!pipeline_)
    return;
  gst_element_set_state (pipeline_.get (), GST_STATE_NULL);
  // GStreamer's thread that took it to PLAYING may still have it. The last reference is ours, so
  // that nothing is left of it when the rig is gone.
  EXPECT_TRUE (run_until ([this] { return G_OBJECT (pipeline_.get ())->ref_count == 1; }));
}

GstStructure *FilterRig::on_attitude (GstElement *, guint64 start, guint64 stop, gpointer self)
{
  auto *rig = static_cast<FilterRig *> (self);
  rig->asked.emplace_back (start, stop);
  return rig->answer_ ? rig->answer_ (start, stop).release () : nullptr;
}

void FilterRig::set_input_caps (int width, int height)
{
  width_ = width;
  height_ = height;
  const std::string text =
      "video/x-raw,format=RGBA,framerate=30/1,width=" + std::to_string (width) +
      ",height=" + std::to_string (height) + input_fields_;
  const auto caps = vorn::adopt (gst_caps_from_string (text.c_str ()));
  gst_app_src_set_caps (GST_APP_SRC (source_.get ()), caps.get ());
}

void FilterRig::set_output_size (int width, int height)
{
  const auto caps = vorn::adopt (gst_caps_new_simple ("video/x-raw", "width", G_TYPE_INT, width,
                                                      "height", G_TYPE_INT, height, nullptr));
  g_object_set (caps_filter_.get (), "caps", caps.get (), nullptr);
}

void FilterRig::follow (scene::Motion motion, double phase_s)
{
  set_answer ([motion = std::move (motion), phase_s] (GstClockTime start, GstClockTime stop) {
    return sample_motion (motion, start, stop, phase_s);
  });
}

void FilterRig::set_orientation (const scene::Euler &angles)
{
  const auto q = scene::attitude_quaternion (angles);
  char text[128];
  g_snprintf (text, sizeof text, "%f, %f, %f, %f", q[0], q[1], q[2], q[3]);
  g_object_set (filter_.get (), "out-camera-orientation-quat", text, nullptr);
}

Image FilterRig::run (const Image &picture, const std::optional<FrameTimes> &times,
                      const std::function<void (GstBuffer *)> &change)
{
  if (picture.width != width_ || picture.height != height_)
    set_input_caps (picture.width, picture.height);
  GstBuffer *buffer = gst_buffer_new_memdup (picture.pixels.data (), picture.pixels.size ());
  GST_BUFFER_PTS (buffer) = pts_;
  GST_BUFFER_DURATION (buffer) = GST_SECOND / 30;
  pts_ += GST_SECOND / 30;
  if (times)
    gst_structure_set (vorn_frame_meta_add (buffer)->structure, VORN_FRAME_META_CAPTURE_TIMESTAMP,
                       GST_TYPE_CLOCK_TIME, times->capture_ns, "exposure-ns", G_TYPE_UINT64,
                       times->exposure_ns, "readout-ns", G_TYPE_UINT64, times->readout_ns, "hfov",
                       G_TYPE_DOUBLE, times->hfov_rad, nullptr);
  if (change)
    change (buffer);
  if (gst_app_src_push_buffer (GST_APP_SRC (source_.get ()), buffer) != GST_FLOW_OK)
    return {};
  last = vorn::adopt (gst_app_sink_try_pull_sample (GST_APP_SINK (sink_.get ()), 30 * GST_SECOND));
  if (!last)
    return {};
  GstVideoInfo info;
  gst_video_info_from_caps (&info, gst_sample_get_caps (last.get ()));
  Image result (info.width, info.height);
  const vorn::BufferMap map (gst_sample_get_buffer (last.get ()), GST_MAP_READ);
  if (!map || map.size () != result.pixels.size ()) {
    ADD_FAILURE () << "a buffer of " << map.size () << " bytes";
    return {};
  }
  memcpy (result.pixels.data (), map.data (), map.size ());
  return result;
}

/** The plug-in's path is the first argument. */
int main (int argc, char **argv)
{
  leak_check_start ();
  testing::InitGoogleTest (&argc, argv);
  if (argc < 2) {
    fprintf (stderr, "usage: %s PLUGIN\n", argv[0]);
    return 2;
  }
  FilterRig::set_up (argv[1]);
  return RUN_ALL_TESTS ();
}
