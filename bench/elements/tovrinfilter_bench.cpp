// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A frame through upload, warp and download: the dewarping filter, the stock transformation on the
// same frames, and OpenCV's perspective warp of the same angle on the processor.
#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#ifdef HAVE_OPENCV
#include <opencv2/imgproc.hpp>
#endif

#include <vorn/frame_meta.h>
#include <vorn/framework.h>
#include <vorn/gst_raii.hpp>

namespace
{

constexpr double roll_rad = 0.2;
constexpr double roll_rate_rad_s = 2;
constexpr double hfov_rad = 1.4;

void set_up ()
{
  static const bool done = [] {
    g_setenv ("GST_GL_WINDOW", "egl-device", FALSE);
    vorn_framework_init (nullptr, nullptr);
    vorn::ErrorOut error;
    if (!vorn::adopt (gst_plugin_load_file (VORN_ELEMENTS_PLUGIN, error.out ())))
      g_error ("%s", error.message ());
    return true;
  }();
  (void)done;
}

/** Noise, so that no look-up is cheaper than another. */
std::vector<guint8> picture (int width, int height)
{
  std::vector<guint8> pixels (static_cast<size_t> (4 * width * height));
  std::mt19937 random (1);
  for (auto &value : pixels)
    value = static_cast<guint8> (random ());
  return pixels;
}

/** 1 kHz samples of a steady roll. */
GstStructure *answer (GstElement *, guint64 start, guint64 stop, gpointer)
{
  GArray *arrays[4];
  for (GArray *&array : arrays)
    array = g_array_new (FALSE, FALSE, sizeof (float));
  for (guint64 k = 0; k <= (stop - start) / GST_MSECOND; k++) {
    const double half = (roll_rad + roll_rate_rad_s * static_cast<double> (k) / 1e3) / 2;
    const float q[4] = {static_cast<float> (std::sin (half)), 0, 0,
                        static_cast<float> (std::cos (half))};
    for (int i = 0; i < 4; i++)
      g_array_append_val (arrays[i], q[i]);
  }
  GstStructure *data =
      gst_structure_new ("imu-data", "quaternions_x", G_TYPE_ARRAY, arrays[0], "quaternions_y",
                         G_TYPE_ARRAY, arrays[1], "quaternions_z", G_TYPE_ARRAY, arrays[2],
                         "quaternions_w", G_TYPE_ARRAY, arrays[3], nullptr);
  for (GArray *array : arrays)
    g_array_unref (array);
  return data;
}

/** One frame in, one frame out: the time of a frame, not the rate of a pipeline of threads. */
void run_pipeline (benchmark::State &state, const std::string &element)
{
  set_up ();
  const auto width = static_cast<int> (state.range (0));
  const auto height = static_cast<int> (state.range (1));
  vorn::ErrorOut error;
  const auto pipeline = vorn::adopt (gst_parse_launch (
      ("appsrc name=in format=time caps=video/x-raw,format=RGBA,framerate=30/1,width=" +
       std::to_string (width) + ",height=" + std::to_string (height) + " ! glupload ! " + element +
       " ! gldownload ! appsink name=out sync=false")
          .c_str (),
      error.out ()));
  if (error) {
    state.SkipWithError (error.message ());
    return;
  }
  const auto by_name = [&] (const char *name) {
    return vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), name));
  };
  const auto source = by_name ("in");
  const auto sink = by_name ("out");
  if (const auto filter = by_name ("filter")) {
    g_signal_connect (filter.get (), "imu-get-attitude-data", G_CALLBACK (answer), nullptr);
    g_object_set (filter.get (), "out-camera-orientation-quat", "0, 0, 0, 1", nullptr);
  }
  gst_element_set_state (pipeline.get (), GST_STATE_PLAYING);
  const std::vector<guint8> pixels = picture (width, height);
  GstClockTime time = 0;
  const auto frame = [&] {
    GstBuffer *buffer = gst_buffer_new_wrapped_full (
        GST_MEMORY_FLAG_READONLY, const_cast<guint8 *> (pixels.data ()), pixels.size (), 0,
        pixels.size (), nullptr, nullptr);
    GST_BUFFER_PTS (buffer) = time;
    gst_structure_set (vorn_frame_meta_add (buffer)->structure, VORN_FRAME_META_CAPTURE_TIMESTAMP,
                       GST_TYPE_CLOCK_TIME, time, "exposure-ns", G_TYPE_UINT64,
                       guint64{4 * GST_MSECOND}, "readout-ns", G_TYPE_UINT64,
                       guint64{16 * GST_MSECOND}, "hfov", G_TYPE_DOUBLE, hfov_rad, nullptr);
    time += GST_SECOND / 30;
    gst_app_src_push_buffer (GST_APP_SRC (source.get ()), buffer);
    const auto sample =
        vorn::adopt (gst_app_sink_try_pull_sample (GST_APP_SINK (sink.get ()), 30 * GST_SECOND));
    if (!sample)
      return false;
    // Downloaded for real: gldownload may leave it to the first who maps.
    const vorn::BufferMap map (gst_sample_get_buffer (sample.get ()), GST_MAP_READ);
    benchmark::DoNotOptimize (map.data ());
    return static_cast<bool> (map);
  };
  for (int i = 0; i < 5; i++)
    frame ();
  for (auto _ : state)
    if (!frame ()) {
      state.SkipWithError ("no frame");
      break;
    }
  gst_element_set_state (pipeline.get (), GST_STATE_NULL);
}

void sizes (benchmark::internal::Benchmark *bench)
{
  bench->ArgNames ({"width", "height"})
      ->Args ({1280, 720})
      ->Args ({1920, 1080})
      ->Unit (benchmark::kMillisecond)
      ->MeasureProcessCPUTime () // the GL threads are most of it
      ->UseRealTime ();
}

void BM_tovrinfilter (benchmark::State &state)
{
  run_pipeline (state, "kavrel_tovrinfilter name=filter");
}
BENCHMARK (BM_tovrinfilter)->Apply (sizes);

void BM_tovrinfilter_wobble_comp (benchmark::State &state)
{
  run_pipeline (state, "kavrel_tovrinfilter name=filter wobble-comp=true");
}
BENCHMARK (BM_tovrinfilter_wobble_comp)->Apply (sizes);

void BM_gltransformation (benchmark::State &state)
{
  // The same roll, and the enlargement that leaves no border with it: all pixels are looked up.
  run_pipeline (state, "gltransformation rotation-z=0.2 scale-x=1.35 scale-y=1.35");
}
BENCHMARK (BM_gltransformation)->Apply (sizes);

void BM_upload_and_download (benchmark::State &state)
{
  run_pipeline (state, "capsfilter caps=video/x-raw(memory:GLMemory)");
}
BENCHMARK (BM_upload_and_download)->Apply (sizes);

#ifdef HAVE_OPENCV
void BM_opencv_warp_perspective (benchmark::State &state)
{
  const auto width = static_cast<int> (state.range (0));
  const auto height = static_cast<int> (state.range (1));
  std::vector<guint8> pixels = picture (width, height);
  const cv::Mat in (height, width, CV_8UC4, pixels.data ());
  cv::Mat out;
  const double c = std::cos (roll_rad) / 1.35;
  const double s = std::sin (roll_rad) / 1.35;
  const double x = width / 2.0;
  const double y = height / 2.0;
  const cv::Matx33d back (c, s, x - c * x - s * y, -s, c, y + s * x - c * y, 0, 0, 1);
  for (auto _ : state) {
    cv::warpPerspective (in, out, back, in.size (), cv::INTER_LINEAR | cv::WARP_INVERSE_MAP,
                         cv::BORDER_REPLICATE);
    benchmark::DoNotOptimize (out.data);
  }
}
BENCHMARK (BM_opencv_warp_perspective)->Apply (sizes);
#endif

} // namespace
