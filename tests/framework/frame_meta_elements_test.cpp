// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// That frame metadata comes through the elements that our pipelines are made of.
#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <vorn/frame_meta.h>
#include <vorn/framework.h>
#include <vorn/gst_raii.hpp>

namespace
{

constexpr int frame_count = 20;
constexpr GstClockTime first_capture_ns = 5 * GST_SECOND + 7;
constexpr GstClockTime capture_step_ns = 41 * GST_MSECOND + 3;

struct Frame {
  GstClockTime capture_ns;
  bool sync_point;
  bool operator== (const Frame &) const = default;
};

Frame expected_frame (int index)
{
  return {first_capture_ns + static_cast<GstClockTime> (index) * capture_step_ns, index % 5 == 0};
}

void PrintTo (const Frame &frame, std::ostream *out)
{
  *out << frame.capture_ns << (frame.sync_point ? " sync" : "");
}

/** What arrives at a sink. */
struct Arrivals {
  std::mutex mutex;
  std::vector<Frame> frames;
  int without_meta = 0;
};

GstPadProbeReturn mark (GstPad *, GstPadProbeInfo *info, gpointer data)
{
  auto *count = static_cast<std::atomic<int> *> (data);
  const Frame frame = expected_frame ((*count)++);
  GstBuffer *buffer = gst_buffer_make_writable (GST_PAD_PROBE_INFO_BUFFER (info));
  GST_PAD_PROBE_INFO_DATA (info) = buffer;
  VornFrameMeta *meta = vorn_frame_meta_add (buffer);
  gst_structure_set (meta->structure, VORN_FRAME_META_CAPTURE_TIMESTAMP, GST_TYPE_CLOCK_TIME,
                     frame.capture_ns, VORN_FRAME_META_SYNC_POINT, G_TYPE_BOOLEAN, frame.sync_point,
                     nullptr);
  return GST_PAD_PROBE_OK;
}

GstPadProbeReturn collect (GstPad *, GstPadProbeInfo *info, gpointer data)
{
  auto *arrivals = static_cast<Arrivals *> (data);
  const std::scoped_lock lock (arrivals->mutex);
  VornFrameMeta *meta = vorn_frame_meta_get (GST_PAD_PROBE_INFO_BUFFER (info));
  GstClockTime capture_ns = 0;
  gboolean sync_point = FALSE;
  if (meta && gst_structure_get_clock_time (meta->structure, "capture-timestamp", &capture_ns) &&
      gst_structure_get_boolean (meta->structure, "sync-point", &sync_point))
    arrivals->frames.push_back ({capture_ns, sync_point != FALSE});
  else
    arrivals->without_meta++;
  return GST_PAD_PROBE_OK;
}

/** Another holder of the frame changes what it holds. */
GstPadProbeReturn spoil (GstPad *, GstPadProbeInfo *info, gpointer)
{
  GstBuffer *buffer = gst_buffer_make_writable (GST_PAD_PROBE_INFO_BUFFER (info));
  GST_PAD_PROBE_INFO_DATA (info) = buffer;
  if (VornFrameMeta *meta = vorn_frame_meta_get (buffer))
    gst_structure_set (meta->structure, VORN_FRAME_META_CAPTURE_TIMESTAMP, GST_TYPE_CLOCK_TIME,
                       GstClockTime{1}, nullptr);
  return GST_PAD_PROBE_OK;
}

class FrameMetaElements : public testing::Test
{
protected:
  static void SetUpTestSuite ()
  {
    // No display: GL elements then find a software context.
    g_setenv ("GST_GL_WINDOW", "egl-device", FALSE);
    vorn_framework_init (nullptr, nullptr);
  }

  void add_probe (const char *element, const char *pad_name, GstPadProbeCallback callback,
                  gpointer data)
  {
    auto found = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline_.get ()), element));
    ASSERT_TRUE (found) << element;
    auto pad = vorn::adopt (gst_element_get_static_pad (found.get (), pad_name));
    gst_pad_add_probe (pad.get (), GST_PAD_PROBE_TYPE_BUFFER, callback, data, nullptr);
  }

  void build (const std::string &description)
  {
    vorn::ErrorOut error;
    pipeline_ = vorn::adopt (gst_parse_launch (
        ("videotestsrc num-buffers=" + std::to_string (frame_count) +
         " ! video/x-raw,format=I420,width=64,height=48,framerate=24/1 ! identity name=entry ! " +
         description)
            .c_str (),
        error.out ()));
    ASSERT_FALSE (error) << error.message ();
    add_probe ("entry", "src", mark, &marked_);
  }

  void run ()
  {
    gst_element_set_state (pipeline_.get (), GST_STATE_PLAYING);
    auto bus = vorn::adopt (gst_element_get_bus (pipeline_.get ()));
    auto message = vorn::adopt (gst_bus_timed_pop_filtered (
        bus.get (), 50 * GST_SECOND,
        static_cast<GstMessageType> (GST_MESSAGE_EOS | GST_MESSAGE_ERROR)));
    ASSERT_TRUE (message) << "no end of stream";
    if (GST_MESSAGE_TYPE (message.get ()) == GST_MESSAGE_ERROR) {
      vorn::ErrorOut error;
      gst_message_parse_error (message.get (), error.out (), nullptr);
      ADD_FAILURE () << error.message ();
    }
    gst_element_set_state (pipeline_.get (), GST_STATE_NULL);
    EXPECT_EQ (marked_, frame_count);
  }

  void TearDown () override
  {
    if (pipeline_)
      gst_element_set_state (pipeline_.get (), GST_STATE_NULL);
  }

  static void expect_all (const Arrivals &arrivals)
  {
    std::vector<Frame> expected;
    expected.reserve (frame_count);
    for (int i = 0; i < frame_count; i++)
      expected.push_back (expected_frame (i));
    EXPECT_EQ (arrivals.frames, expected);
    EXPECT_EQ (arrivals.without_meta, 0);
  }

  vorn::Ref<GstElement> pipeline_;
  std::atomic<int> marked_ = 0;
};

struct Chain {
  const char *name;
  const char *elements;
};

class FrameMetaThrough : public FrameMetaElements, public testing::WithParamInterface<Chain>
{
};

} // namespace

TEST_P (FrameMetaThrough, EveryFrameKeepsItsOwn)
{
  Arrivals arrivals;
  build (std::string (GetParam ().elements) + " ! fakesink name=sink");
  if (HasFatalFailure ())
    return;
  add_probe ("sink", "sink", collect, &arrivals);
  run ();
  expect_all (arrivals);
}

INSTANTIATE_TEST_SUITE_P (
    Elements, FrameMetaThrough,
    testing::Values (
        Chain{"queue", "queue"}, Chain{"capsfilter", "capsfilter caps=video/x-raw,format=I420"},
        Chain{"videoconvert", "videoconvert ! video/x-raw,format=RGBA"},
        Chain{"videoscale", "videoscale ! video/x-raw,width=160,height=90"},
        Chain{"videocrop", "videocrop left=8 top=8"},
        Chain{"gl_upload_and_download", "glupload ! gldownload"},
        Chain{"gl_colour_conversion", "glupload ! glcolorconvert ! video/x-raw(memory:GLMemory),"
                                      "format=RGBA ! gldownload"},
        Chain{"gl_filter", "glupload ! glcolorconvert ! gleffects ! gldownload"},
        Chain{"whole_gl_chain", "queue ! videoconvert ! video/x-raw,format=RGBA ! glupload ! "
                                "gleffects ! gldownload ! queue ! videoconvert ! "
                                "video/x-raw,format=I420 ! videoscale ! "
                                "video/x-raw,width=160,height=90"},
        Chain{"x264enc", "x264enc tune=zerolatency threads=1 ! video/x-h264,stream-format=avc"},
        // Decode order is not display order: no B-frames is what the encoder bin has.
        Chain{"x264enc_lookahead", "x264enc bframes=0 rc-lookahead=10 threads=1"},
        Chain{"h264parse", "x264enc tune=zerolatency threads=1 ! "
                           "video/x-h264,stream-format=byte-stream ! h264parse ! "
                           "video/x-h264,stream-format=avc,alignment=au"},
        Chain{"jpegenc", "jpegenc"}),
    [] (const auto &chain) { return std::string (chain.param.name); });

TEST_F (FrameMetaElements, VideorateDropsFramesWithTheirMetadata)
{
  Arrivals arrivals;
  build ("videorate drop-only=true ! video/x-raw,framerate=12/1 ! fakesink name=sink");
  add_probe ("sink", "sink", collect, &arrivals);
  run ();
  EXPECT_EQ (arrivals.without_meta, 0);
  EXPECT_NEAR (static_cast<double> (arrivals.frames.size ()), frame_count / 2.0, 1.0);
  // The frames that are left are frames of the source, none twice.
  int next = 0;
  for (const Frame &frame : arrivals.frames) {
    while (next < frame_count && expected_frame (next) != frame)
      next++;
    ASSERT_LT (next++, frame_count);
  }
}

TEST_F (FrameMetaElements, VideorateRepeatsFramesWithTheirMetadata)
{
  Arrivals arrivals;
  build ("videorate ! video/x-raw,framerate=48/1 ! fakesink name=sink");
  add_probe ("sink", "sink", collect, &arrivals);
  run ();
  EXPECT_EQ (arrivals.without_meta, 0);
  EXPECT_NEAR (static_cast<double> (arrivals.frames.size ()), frame_count * 2.0, 2.0);
  for (int i = 0; i < frame_count; i++)
    EXPECT_GE (std::count (arrivals.frames.begin (), arrivals.frames.end (), expected_frame (i)), 1)
        << i;
}

TEST_F (FrameMetaElements, TeeBranchesHoldTheirOwn)
{
  Arrivals first;
  Arrivals second;
  build ("tee name=t  t. ! queue ! identity name=spoiler ! fakesink name=first async=false  "
         "t. ! queue ! fakesink name=second async=false");
  add_probe ("spoiler", "sink", spoil, nullptr);
  add_probe ("first", "sink", collect, &first);
  add_probe ("second", "sink", collect, &second);
  run ();
  expect_all (second);
  ASSERT_EQ (first.frames.size (), static_cast<size_t> (frame_count));
  for (const Frame &frame : first.frames)
    EXPECT_EQ (frame.capture_ns, 1u);
}
