// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What a frame of the vertical camera costs: CPU time of the whole process for each frame of a live
// camera, 640x480 RGB at 30 a second, three vision bins running, and with the magic carpet the
// fourth. Beside it: the same camera into a plain sink, to be taken off. Time is the CPU's.
#include <ctime>

#include <benchmark/benchmark.h>

#include "selmac_info.hpp"
#include "test_camera.hpp"
#include "vertical_camera_pipeline.hpp"

namespace
{

constexpr char camera_frames[] =
    "videotestsrc is-live=true pattern=black ! "
    "capsfilter caps=video/x-raw,format=RGB,width=640,height=480,framerate=30/1";
constexpr int frames_measured = 150; // five seconds

double cpu_seconds ()
{
  timespec time;
  clock_gettime (CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double> (time.tv_sec) + static_cast<double> (time.tv_nsec) * 1e-9;
}

/** Plays and measures from frame to frame as they pass the element's sink pad. */
void measure (benchmark::State &state, GstElement *pipeline, GstElement *element)
{
  constexpr size_t warm_up = 15;
  const FrameCounter frames (element);
  gst_element_set_state (pipeline, GST_STATE_PLAYING);
  if (!frames.wait_for (warm_up))
    state.SkipWithError ("no frames"); // the loop below then ends at once
  double before = cpu_seconds ();
  size_t count = frames.count ();
  for (auto _ : state) {
    frames.wait_for (++count);
    const double now = cpu_seconds ();
    state.SetIterationTime (now - before);
    before = now;
  }
  state.counters["gaps"] = static_cast<double> (frames.gaps ());
  gst_element_set_state (pipeline, GST_STATE_NULL);
}

void BM_CameraAlone (benchmark::State &state)
{
  prepare_test_camera ();
  set_test_camera (camera_frames);
  const auto pipeline =
      vorn::adopt (gst_parse_launch ("test_camera ! fakesink name=sink sync=false", nullptr));
  const auto sink = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), "sink"));
  measure (state, pipeline.get (), sink.get ());
}

/** Argument: whether the magic carpet is on. */
void BM_VerticalPipeline (benchmark::State &state)
{
  prepare_test_camera ();
  set_test_camera (camera_frames);
  const VornCameraParameters parameters = {
      .name = "vertical",
      .element_factory = "test_camera",
      .sensor_configuration = {.resolution = {640, 480}, .framerate = {30, 1}},
      .focal_length = 2};
  const auto camera = vorn::adopt (vorn_camera_new (&parameters));
  const auto pipeline = vorn::adopt (gst_pipeline_new ("vertical-pipeline"));
  const vorn::Owned<SelmacData, selmacdata_free> exposure (selmacdata_new ());
  auto *bin = GST_BIN (pipeline.get ());
  if (!exposure ||
      !vertical_camera_pipeline_populate (bin, camera.get (), nullptr, exposure.get ()))
    return state.SkipWithError ("no pipeline");
  if (state.range (0))
    vertical_camera_pipeline_set_magic_carpet_active (bin, TRUE);
  const char *last = state.range (0) ? "magic-carpet-bin" : "precise-home-bin";
  const auto element = vorn::adopt (gst_bin_get_by_name (bin, last));
  measure (state, pipeline.get (), element.get ());
}

} // namespace

BENCHMARK (BM_CameraAlone)
    ->UseManualTime ()
    ->Iterations (frames_measured)
    ->Unit (benchmark::kMicrosecond);
BENCHMARK (BM_VerticalPipeline)
    ->ArgName ("carpet")
    ->Arg (0)
    ->Arg (1)
    ->UseManualTime ()
    ->Iterations (frames_measured)
    ->Unit (benchmark::kMicrosecond);
