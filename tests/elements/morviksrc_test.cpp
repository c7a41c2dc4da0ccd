// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The source as its users know it: properties, signal, caps, buffers, time.
#include <atomic>
#include <cmath>
#include <fstream>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gst/check/gstharness.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>

#include "camera_client.hpp"
#include "fake_camera.hpp"
#include "source_pipeline.hpp"

namespace
{

/** Whether an address lies in memory that a camera sent. */
bool lies_in_frame_memory (const void *address)
{
  std::ifstream maps ("/proc/self/maps");
  const auto wanted = reinterpret_cast<uintptr_t> (address);
  for (std::string line; std::getline (maps, line);) {
    uintptr_t begin, end;
    char dash;
    std::istringstream (line) >> std::hex >> begin >> dash >> end;
    if (wanted >= begin && wanted < end)
      return line.find ("memfd:fake-camera") != std::string::npos;
  }
  return false;
}

GstVideoInfo negotiated (SourcePipeline &pipeline)
{
  GstVideoInfo info = {};
  const auto pad = vorn::adopt (gst_element_get_static_pad (pipeline.source (), "src"));
  const auto caps = vorn::adopt (gst_pad_get_current_caps (pad.get ()));
  EXPECT_TRUE (caps && gst_video_info_from_caps (&info, caps.get ()));
  return info;
}

class MorvikSrc : public testing::Test
{
protected:
  std::string source () const { return "source=unix:" + folder_.path ("c") + " "; }
  std::string path () const { return folder_.path ("c"); }

private:
  SocketFolder folder_;
};

TEST_F (MorvikSrc, DefaultsAreThoseOfTheDrone)
{
  register_source ();
  const auto element = vorn::adopt (gst_element_factory_make ("kavrel_morviksrc", nullptr));
  ASSERT_TRUE (element);
  gchar *source = nullptr;
  guint left = 1, top = 1, width = 1, height = 1, style = 1;
  gint buffers = 0;
  GstBuffer *last = nullptr;
  g_object_get (element.get (), "source", &source, "sensor-rect-left", &left, "sensor-rect-top",
                &top, "sensor-rect-width", &width, "sensor-rect-height", &height, "img-style",
                &style, "num-buffers", &buffers, "last-frame", &last, nullptr);
  EXPECT_STREQ (vorn::OwnedString (source).get (), "unix:/simulator/hor_camera.sock");
  EXPECT_EQ (left + top + width + height + style, 0u);
  EXPECT_EQ (buffers, -1);
  EXPECT_EQ (last, nullptr);
}

TEST_F (MorvikSrc, BuffersCarryTimeAndGeometryAndAreNotCopied)
{
  const FakeCamera camera (path (), serve_frames);
  SourcePipeline pipeline (source () + "num-buffers=3 sensor-rect-left=8 sensor-rect-width=40");
  ASSERT_TRUE (pipeline.play ());
  EXPECT_EQ (pipeline.wait_for_end ().type, GST_MESSAGE_EOS);
  const auto buffers = pipeline.buffers ();
  ASSERT_EQ (buffers.size (), 3u);
  const GstClockTime base = gst_element_get_base_time (pipeline.source ());
  for (const auto &buffer : buffers) {
    const FrameFacts facts = facts_of (buffer.get ());
    EXPECT_EQ (facts.exposure_ns, 2'000'000u);
    EXPECT_EQ (facts.readout_ns, 5'000'000u);
    EXPECT_EQ (facts.left, 8u);
    EXPECT_EQ (facts.top, 0u);
    EXPECT_EQ (facts.width, 40u);
    EXPECT_EQ (facts.height, 48u);
    EXPECT_EQ (facts.focal_x, 40.0);
    EXPECT_EQ (facts.center_y, 24.0);
    EXPECT_NEAR (facts.hfov, 2 * std::atan (0.5), 1e-12);
    EXPECT_NEAR (facts.vfov, 2 * std::atan (24.0 / 40), 1e-12);
    // The camera's clock is the pipeline's.
    EXPECT_EQ (GST_BUFFER_PTS (buffer.get ()), facts.capture_ns - base);
    EXPECT_EQ (GST_BUFFER_DURATION (buffer.get ()), 33'333'333u);
    const vorn::BufferMap map (buffer.get (), GST_MAP_READ);
    EXPECT_EQ (map.size (), 120u * 48);
    EXPECT_TRUE (lies_in_frame_memory (map.data ()));
    EXPECT_EQ (map.data ()[0], GST_BUFFER_OFFSET (buffer.get ()));
  }
}

TEST_F (MorvikSrc, NewFrameTellsTheTimeOfTheFrameThatIsLast)
{
  struct Seen {
    std::vector<guint64> times;
    std::vector<uint64_t> last;
  } seen;
  const FakeCamera camera (path (), serve_frames);
  SourcePipeline pipeline (source () + "num-buffers=4");
  g_signal_connect (pipeline.source (), "new-frame",
                    G_CALLBACK (+[] (GstElement *source, guint64 time, Seen *seen_frames) {
                      seen_frames->times.push_back (time);
                      GstBuffer *last = nullptr;
                      g_object_get (source, "last-frame", &last, nullptr);
                      const auto owned = vorn::adopt (last);
                      seen_frames->last.push_back (facts_of (last).capture_ns);
                    }),
                    &seen);
  ASSERT_TRUE (pipeline.play ());
  EXPECT_EQ (pipeline.wait_for_end ().type, GST_MESSAGE_EOS);
  ASSERT_EQ (seen.times.size (), 4u);
  const auto buffers = pipeline.buffers ();
  for (size_t i = 0; i < 4; i++) {
    EXPECT_EQ (seen.times[i], facts_of (buffers[i].get ()).capture_ns);
    EXPECT_EQ (seen.last[i], seen.times[i]);
  }

  GstBuffer *last = nullptr;
  g_object_get (pipeline.source (), "last-frame", &last, nullptr);
  EXPECT_EQ (vorn::adopt (last).get (), buffers[3].get ());
  pipeline.set_state (GST_STATE_NULL);
  g_object_get (pipeline.source (), "last-frame", &last, nullptr);
  EXPECT_EQ (last, nullptr);
}

TEST_F (MorvikSrc, OnePictureEachRun)
{
  const FakeCamera camera (path (), serve_frames);
  SourcePipeline pipeline (source () + "num-buffers=1");
  uint64_t previous = 0;
  for (int run = 0; run < 5; run++) {
    pipeline.forget_buffers ();
    ASSERT_TRUE (pipeline.play ());
    EXPECT_EQ (pipeline.wait_for_end ().type, GST_MESSAGE_EOS);
    const auto buffers = pipeline.buffers ();
    ASSERT_EQ (buffers.size (), 1u) << "run " << run;
    EXPECT_EQ (gst_buffer_get_size (buffers[0].get ()), 192u * 48);
    const uint64_t capture_ns = facts_of (buffers[0].get ()).capture_ns;
    EXPECT_GT (capture_ns, previous);
    previous = capture_ns;
    pipeline.set_state (run % 2 ? GST_STATE_NULL : GST_STATE_READY);
  }
}

struct CapsCase {
  const char *caps;
  const char *rect;
  int width, height, fps_n, fps_d;
};

const CapsCase caps_cases[] = {
    {"video/x-raw", "", 64, 48, 30, 1},
    {"video/x-raw", "sensor-rect-width=32 sensor-rect-height=16", 32, 16, 30, 1},
    {"video/x-raw", "sensor-rect-left=60 sensor-rect-top=40", 4, 8, 30, 1},
    {"video/x-raw,width=128", "", 128, 96, 30, 1},
    {"video/x-raw,height=12", "", 16, 12, 30, 1},
    {"video/x-raw,width=100,height=20,framerate=50/1", "", 100, 20, 50, 1},
    {"video/x-raw,framerate=[100/1,120/1]", "", 64, 48, 100, 1},
    {"video/x-raw,width=[10,20],height=5", "sensor-rect-width=1", 10, 5, 30, 1},
};

TEST_F (MorvikSrc, WhatIsLeftOpenIsFilledInByTheSensor)
{
  for (const auto &row : caps_cases) {
    const FakeCamera camera (path (), serve_frames);
    SourcePipeline pipeline (source () + "num-buffers=1 " + row.rect,
                             std::string (row.caps) + " ! fakesink name=sink sync=false");
    ASSERT_TRUE (pipeline.play ());
    EXPECT_EQ (pipeline.wait_for_end ().type, GST_MESSAGE_EOS) << row.caps;
    const GstVideoInfo info = negotiated (pipeline);
    EXPECT_EQ (info.width, row.width) << row.caps;
    EXPECT_EQ (info.height, row.height) << row.caps;
    EXPECT_EQ (info.fps_n, row.fps_n) << row.caps;
    EXPECT_EQ (info.fps_d, row.fps_d) << row.caps;
    EXPECT_EQ (GST_VIDEO_INFO_FORMAT (&info), GST_VIDEO_FORMAT_RGB);
    EXPECT_EQ (info.size, gst_buffer_get_size (pipeline.buffers ()[0].get ()));
  }
}

TEST_F (MorvikSrc, NewCapsWhilePlayingGiveANewStream)
{
  const FakeCamera camera (path (), serve_frames);
  SourcePipeline pipeline (
      source (), "capsfilter name=filter caps=video/x-raw,width=16,height=8,framerate=100/1 ! "
                 "fakesink name=sink sync=false");
  ASSERT_TRUE (pipeline.play ());
  ASSERT_TRUE (pipeline.wait_for_buffers (3));
  const auto filter = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.pipeline ()), "filter"));
  const auto caps =
      vorn::adopt (gst_caps_from_string ("video/x-raw,width=32,height=8,framerate=100/1"));
  g_object_set (filter.get (), "caps", caps.get (), nullptr);
  const size_t before = pipeline.count ();
  ASSERT_TRUE (pipeline.wait_for_buffers (before + 8));
  const auto buffers = pipeline.buffers ();
  EXPECT_EQ (gst_buffer_get_size (buffers.front ().get ()), 48u * 8);
  EXPECT_EQ (gst_buffer_get_size (buffers.back ().get ()), 96u * 8);
  for (size_t i = 1; i < buffers.size (); i++)
    EXPECT_GT (GST_BUFFER_PTS (buffers[i].get ()), GST_BUFFER_PTS (buffers[i - 1].get ()));
  EXPECT_EQ (camera.connections (), 2);
}

TEST_F (MorvikSrc, StyleReachesTheCameraAtOnce)
{
  std::atomic<uint32_t> first = UINT32_MAX;
  std::atomic<uint32_t> changed = UINT32_MAX;
  const FakeCamera camera (path (), [&] (FakeConnection &c, int) {
    if (!c.begin (6))
      return;
    first = c.request ().style;
    c.send_frame (0, 0, -1'000'000);
    while (const auto message = c.receive ()) {
      if (message->header.type == VORN_CAMERA_STYLE)
        changed = message->style.style;
      // A frame for each message keeps the source turning.
      c.send_frame (1, changed == UINT32_MAX ? 1 : 2, -2'000'000);
      if (changed != UINT32_MAX)
        break;
    }
    c.wait_for_end ();
  });
  SourcePipeline pipeline (source () + "img-style=1");
  g_signal_connect (pipeline.source (), "new-frame", G_CALLBACK (+[] (GstElement *source) {
                      g_object_set (source, "img-style", 2u, nullptr);
                    }),
                    nullptr);
  ASSERT_TRUE (pipeline.play ());
  ASSERT_TRUE (pipeline.wait_for_buffers (2));
  EXPECT_EQ (first, 1u);
  EXPECT_EQ (changed, 2u);
}

TEST_F (MorvikSrc, LatencyIsTheCamerasAndWhatTheRoadMayAdd)
{
  const FakeCamera camera (path (), serve_frames);
  SourcePipeline pipeline (source () + "sensor-rect-height=24");
  const auto query = [&] (GstClockTime *least, GstClockTime *most) {
    GstQuery *latency = gst_query_new_latency ();
    gboolean live = FALSE;
    const bool answered = gst_element_query (pipeline.source (), latency);
    gst_query_parse_latency (latency, &live, least, most);
    gst_query_unref (latency);
    return answered && live;
  };
  GstClockTime least, most;
  EXPECT_FALSE (query (&least, &most)) << "nothing is known yet";
  pipeline.set_state (GST_STATE_PAUSED);
  ASSERT_TRUE (query (&least, &most));
  // Exposure, half of the readout, delivery, allowance; two frames may wait at 30 per second.
  EXPECT_EQ (least, (2'000'000 + 2'500'000 + 15'000'000 + 5'000'000u));
  EXPECT_EQ (most, least + 2 * 33'333'333u);
  pipeline.play ();
  ASSERT_TRUE (pipeline.wait_for_buffers (1));
  ASSERT_TRUE (query (&least, &most));
  EXPECT_GE (least, 27'000'000u);
}

TEST_F (MorvikSrc, TimestampsGrowOverAPause)
{
  const FakeCamera camera (path (), serve_frames);
  SourcePipeline pipeline (source (), "video/x-raw,framerate=100/1 ! "
                                      "fakesink name=sink sync=false");
  ASSERT_TRUE (pipeline.play ());
  ASSERT_TRUE (pipeline.wait_for_buffers (5));
  pipeline.set_state (GST_STATE_PAUSED);
  // Long enough for the camera to fill every buffer.
  g_usleep (150'000);
  ASSERT_TRUE (pipeline.play ());
  ASSERT_TRUE (pipeline.wait_for_buffers (15));
  const auto buffers = pipeline.buffers ();
  for (size_t i = 1; i < buffers.size (); i++)
    EXPECT_GT (GST_BUFFER_PTS (buffers[i].get ()), GST_BUFFER_PTS (buffers[i - 1].get ())) << i;
}

TEST_F (MorvikSrc, PipelineThatHoldsManyFramesGetsCopiesAndGoesOn)
{
  const FakeCamera camera (path (), serve_frames);
  SourcePipeline pipeline (source (), "video/x-raw,framerate=100/1 ! "
                                      "fakesink name=sink sync=false");
  ASSERT_TRUE (pipeline.play ());
  ASSERT_TRUE (pipeline.wait_for_buffers (20)) << "the pipeline keeps all of them";
  int in_place = 0;
  const auto buffers = pipeline.buffers ();
  for (const auto &buffer : buffers) {
    const vorn::BufferMap map (buffer.get (), GST_MAP_READ);
    in_place += lies_in_frame_memory (map.data ());
    EXPECT_EQ (map.data ()[map.size () - 1], GST_BUFFER_OFFSET (buffer.get ()) & 0xff);
  }
  EXPECT_EQ (in_place, 4) << "two of six buffers are left to the camera";
}

TEST_F (MorvikSrc, HarnessGetsFramesOnTheSystemClock)
{
  register_source ();
  const FakeCamera camera (path (), serve_frames);
  GstHarness *harness = gst_harness_new_parse (
      ("kavrel_morviksrc " + source () + " ! capsfilter caps=video/x-raw,width=8,height=6")
          .c_str ());
  gst_harness_use_systemclock (harness);
  gst_harness_play (harness);
  GstClockTime previous = 0;
  for (int i = 0; i < 5; i++) {
    const auto buffer = vorn::adopt (gst_harness_pull (harness));
    ASSERT_TRUE (buffer);
    EXPECT_EQ (gst_buffer_get_size (buffer.get ()), 24u * 6);
    EXPECT_GT (GST_BUFFER_PTS (buffer.get ()), previous);
    previous = GST_BUFFER_PTS (buffer.get ());
  }
  gst_harness_teardown (harness);
}

TEST_F (MorvikSrc, AnotherClockGetsTheFramesAgeTakenOff)
{
  // Real time counts from 1970: only the difference of the clocks can be right.
  const FakeCamera camera (path (), serve_frames);
  SourcePipeline pipeline (source () + "num-buffers=3");
  const auto clock = vorn::adopt (GST_CLOCK (
      g_object_new (GST_TYPE_SYSTEM_CLOCK, "clock-type", GST_CLOCK_TYPE_REALTIME, nullptr)));
  gst_pipeline_use_clock (GST_PIPELINE (pipeline.pipeline ()), clock.get ());
  ASSERT_TRUE (pipeline.play ());
  EXPECT_EQ (pipeline.wait_for_end ().type, GST_MESSAGE_EOS);
  const auto buffers = pipeline.buffers ();
  ASSERT_EQ (buffers.size (), 3u);
  const auto offset =
      static_cast<int64_t> (gst_clock_get_time (clock.get ())) - elements::monotonic_ns ();
  const auto base = static_cast<int64_t> (gst_element_get_base_time (pipeline.source ()));
  for (const auto &buffer : buffers) {
    const auto expected =
        static_cast<int64_t> (facts_of (buffer.get ()).capture_ns) + offset - base;
    EXPECT_NEAR (static_cast<double> (GST_BUFFER_PTS (buffer.get ())),
                 static_cast<double> (expected), 20e6);
  }
}

TEST_F (MorvikSrc, SeveralSourcesAtOnce)
{
  const FakeCamera camera (path (), serve_frames);
  const std::string other = "kavrel_morviksrc num-buffers=10 " + source ();
  SourcePipeline pipeline (source () + "num-buffers=10",
                           "video/x-raw,width=8,height=8 ! fakesink name=sink sync=false " + other +
                               " ! video/x-raw,width=32,height=16 ! fakesink sync=false " + other +
                               " ! fakesink sync=false");
  ASSERT_TRUE (pipeline.play ());
  EXPECT_EQ (pipeline.wait_for_end ().type, GST_MESSAGE_EOS);
  EXPECT_EQ (pipeline.count (), 10u);
  EXPECT_EQ (camera.connections (), 3);
}

} // namespace
