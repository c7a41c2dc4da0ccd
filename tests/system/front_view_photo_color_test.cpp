// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The colours of photos, thumbnails, stream, recordings and covers: those of the camera's frame, or
// of the test pattern, as FFmpeg shows them.
#include "live_photos.hpp"

#include <cmath>

#include "live_view.hpp"
#include "photo_file_support.hpp"
#include "process.hpp"
#include "test_virtual_camera.hpp"

namespace
{

constexpr VornResolution small_sensor = {640, 360};

/** How far a mean may be off: roundings, and what compression does to the edges. */
constexpr double tolerance = 3.0;
/** A movie of few bits has lost more of them; its own colours are the bars' to tell. */
constexpr double compressed = 6.0;
/** The wrong coefficients or the wrong range are 15 and more off. */
constexpr double bars_compressed = 9.0;

void expect_same (const Cells &seen, const Cells &expected, const char *what,
                  double limit = tolerance)
{
  const Rgb apart = mean_difference (seen, expected);
  printf ("%s: red %.2f, green %.2f, blue %.2f of 255 apart\n", what, apart[0], apart[1], apart[2]);
  EXPECT_LT (largest (apart), limit) << what;
}

/** Bars of three quarters of each colour, white first. */
void expect_bars (const Cells &picture, const char *what, double limit = 2 * tolerance)
{
  constexpr Rgb bars[] = {{191, 191, 191}, {191, 191, 0}, {0, 191, 191}, {0, 191, 0},
                          {191, 0, 191},   {191, 0, 0},   {0, 0, 191}};
  ASSERT_FALSE (picture.colors.empty ()) << what;
  double worst = 0;
  for (size_t bar = 0; bar < std::size (bars); bar++) {
    // Of the middle of each bar, in the upper part.
    const int column = static_cast<int> ((static_cast<double> (bar) + 0.5) * Cells::across / 7);
    const Rgb &seen = picture.at (column, Cells::down / 4);
    for (size_t i = 0; i < 3; i++)
      worst = std::max (worst, std::abs (seen[i] - bars[bar][i]));
  }
  printf ("%s: at most %.1f of 255 apart\n", what, worst);
  EXPECT_LT (worst, limit) << what;
}

class FrontViewPhotoColor : public LivePhotos
{
protected:
  std::string record (bool with_cover)
  {
    EXPECT_TRUE (vorn_view_start_recording (view_));
    wait_for_event (VORN_RECORD_EVENT_STARTED);
    if (with_cover) {
      EXPECT_TRUE (vorn_view_make_thumbnail (view_));
      const auto muxer = find_named ("front-streaming-pipeline", "recordbin-muxer");
      EXPECT_TRUE (run_until ([&] {
        const GstTagList *tags = gst_tag_setter_get_tag_list (GST_TAG_SETTER (muxer.get ()));
        return tags && gst_tag_list_get_tag_size (tags, GST_TAG_IMAGE) > 0;
      }));
    }
    EXPECT_TRUE (wait_for_recording (12));
    EXPECT_TRUE (vorn_view_stop_recording (view_, 0));
    return wait_for_event (VORN_RECORD_EVENT_STOPPED).filename;
  }

  /** The units of the stream as a file that programs play. */
  std::string write_stream ()
  {
    const auto units = take_units ();
    const std::string path = media_.at ("stream.mp4");
    const auto pipeline = vorn::adopt (gst_parse_launch (
        ("appsrc name=in format=time ! h264parse ! mp4mux ! filesink location=" + path).c_str (),
        nullptr));
    gst_element_set_state (pipeline.get (), GST_STATE_PLAYING);
    const auto in = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), "in"));
    GstFlowReturn flow = GST_FLOW_OK;
    bool begun = false;
    for (const auto &unit : units) {
      begun |=
          !GST_BUFFER_FLAG_IS_SET (gst_sample_get_buffer (unit.get ()), GST_BUFFER_FLAG_DELTA_UNIT);
      if (begun)
        g_signal_emit_by_name (in.get (), "push-sample", unit.get (), &flow);
    }
    g_signal_emit_by_name (in.get (), "end-of-stream", &flow);
    const auto bus = vorn::adopt (gst_element_get_bus (pipeline.get ()));
    const auto message = vorn::adopt (gst_bus_timed_pop_filtered (
        bus.get (), 20 * GST_SECOND,
        static_cast<GstMessageType> (GST_MESSAGE_EOS | GST_MESSAGE_ERROR)));
    EXPECT_TRUE (message && GST_MESSAGE_TYPE (message.get ()) == GST_MESSAGE_EOS);
    gst_element_set_state (pipeline.get (), GST_STATE_NULL);
    return path;
  }

  /** What a movie says of its colours. */
  static std::string colors_told (const std::string &file)
  {
    return run_process ({"ffprobe", "-v", "error", "-select_streams", "V:0", "-show_entries",
                         "stream=color_range,color_space,color_transfer,color_primaries", "-of",
                         "csv=p=0", file})
        .output;
  }

  void stream_at (VornResolution size)
  {
    const VornFormat format = {size, live_rate, 1};
    ASSERT_TRUE (vorn_view_set_streaming_format (view_, &format));
    ASSERT_TRUE (stream ());
    collect_units ();
    take_units ();
    ASSERT_TRUE (wait_for_stream (30)); // one key frame at least
  }

  void start_camera (bool simple)
  {
    served_ = std::make_unique<ServedCamera> (
        simple ? colorful_camera (1280, 720)
               : colorful_camera (small_sensor.width, small_sensor.height));
    start_photos ("unix:" + served_->path (), simple,
                  simple ? VornResolution{5344, 3200} : small_sensor);
  }

  void start_bars (bool simple)
  {
    start_photos ("", simple, simple ? VornResolution{5344, 3200} : small_sensor);
    for (const char *pipeline : {"front-picture-pipeline", "front-streaming-pipeline"}) {
      GstElement *source = find (pipeline, "videotestsrc");
      ASSERT_NE (source, nullptr);
      gst_util_set_object_arg (G_OBJECT (source), "pattern", "smpte75");
    }
  }

  void set_recording_mode ()
  {
    const VornCameraMode mode = recording_mode (1920, 1080, live_rate.num, live_rate.den);
    ASSERT_TRUE (vorn_virtual_camera_set_mode (camera_, &mode));
  }

  std::unique_ptr<ServedCamera> served_;
};

TEST_F (FrontViewPhotoColor, PhotoIsTheCamerasFrameSimple)
{
  start_camera (true);
  watch_frames ("front-picture-pipeline", "kavrel_morviksrc");
  const std::string photo = photograph ().file ();
  expect_same (decode (photo), watched (), "photo");
  expect_same (decode (extract_thumbnail (photo)), watched (), "thumbnail");
}

TEST_F (FrontViewPhotoColor, PhotoIsTheFilteredFrameFull)
{
  start_camera (false);
  watch_frames ("front-picture-pipeline", "gldownload");
  const std::string photo = photograph ().file ();
  expect_same (decode (photo), watched (), "photo");
  expect_same (decode (extract_thumbnail (photo)), watched (), "thumbnail");
}

TEST_F (FrontViewPhotoColor, PhotoHasTheBarsOfThePattern)
{
  for (const bool simple : {true, false}) {
    SCOPED_TRACE (simple);
    start_bars (simple);
    const std::string photo = photograph ().file ();
    expect_bars (decode (photo), "photo");
    expect_bars (decode (extract_thumbnail (photo)), "thumbnail");
    start_again ();
  }
}

TEST_F (FrontViewPhotoColor, StreamAndRecordingHaveTheBarsOfThePattern)
{
  for (const bool simple : {true, false}) {
    start_bars (simple);
    set_recording_mode ();
    // Small pictures have other coefficients than large ones, and say so.
    for (const VornResolution &size : {VornResolution{640, 360}, VornResolution{1280, 720}}) {
      SCOPED_TRACE (size.height);
      stream_at (size);
      const std::string streamed = write_stream ();
      printf ("stream of %u lines tells %s", size.height, colors_told (streamed).c_str ());
      EXPECT_EQ (colors_told (streamed), size.height > 576 ? "tv,bt709,bt709,bt709\n"
                                                           : "tv,smpte170m,smpte170m,smpte170m\n");
      expect_bars (decode (streamed, 5), "stream", bars_compressed);
      ASSERT_TRUE (vorn_view_stream_teardown (view_, "next"));
    }
    ASSERT_TRUE (stream ());
    const std::string file = record (false);
    EXPECT_EQ (colors_told (file),
               simple ? "tv,bt709,bt709,bt709\n" : "tv,smpte170m,smpte170m,smpte170m\n");
    expect_bars (decode (file, 5), "recording", bars_compressed);
    start_again ();
  }
}

TEST_F (FrontViewPhotoColor, StreamAndRecordingAreTheCamerasFramesSimple)
{
  start_camera (true);
  set_recording_mode ();
  watch_frames ("front-streaming-pipeline", "kavrel_morviksrc");
  stream_at ({640, 360});
  const std::string streamed = write_stream ();
  printf ("stream tells %s", colors_told (streamed).c_str ());
  expect_same (decode (streamed, 10), watched (), "stream of 360 lines", compressed);
  const std::string file = record (true);
  printf ("recording tells %s", colors_told (file).c_str ());
  expect_same (decode (file, 5), watched (), "recording", compressed);
  const std::string cover = media_.at ("cover.jpg");
  const auto extracted =
      run_process ({"ffmpeg", "-nostdin", "-v", "error", "-y", "-i", file, "-map", "0:v", "-map",
                    "-0:V", "-c", "copy", "-frames:v", "1", "-f", "image2", cover});
  ASSERT_EQ (extracted.errors, "");
  expect_same (decode (cover), decode (file, 5), "cover and recording", compressed);
  expect_same (decode (cover), watched (), "cover");
  const Metadata metadata (cover);
  EXPECT_EQ (metadata.number ("File:ImageWidth"), 320);
  EXPECT_EQ (metadata.number ("File:ImageHeight"), 180);
}

TEST_F (FrontViewPhotoColor, StreamAndRecordingAreTheFilteredFramesFull)
{
  start_camera (false);
  set_recording_mode ();
  watch_frames ("front-streaming-pipeline", "gldownload");
  stream_at ({1280, 720});
  const std::string streamed = write_stream ();
  printf ("stream tells %s", colors_told (streamed).c_str ());
  expect_same (decode (streamed, 10), watched (), "stream of 720 lines", compressed);
  const std::string file = record (false);
  printf ("recording tells %s", colors_told (file).c_str ());
  expect_same (decode (file, 5), watched (), "recording", compressed);
}

} // namespace
