// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The video thumbnail maker, and what it says when it cannot. The linker sends its calls of
// GStreamer here (--wrap), so that any of them can fail.
#include "make_thumbnail.hpp"

#include <cstdarg>
#include <cstring>
#include <set>
#include <string>

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>

#include "log_capture.hpp"
#include <vorn/framework.h>
#include <vorn/gst_raii.hpp>

namespace
{
/** Factories that are missing now, or names of the wrapped calls that fail. */
std::set<std::string> failing; // NOLINT(bugprone-throwing-static-initialization)
} // namespace

extern "C" {
GstElement *__real_gst_element_factory_make (const gchar *factory, const gchar *name);
GstElement *__wrap_gst_element_factory_make (const gchar *factory, const gchar *name);
GstElement *__wrap_gst_element_factory_make (const gchar *factory, const gchar *name)
{
  return failing.contains (factory) ? nullptr : __real_gst_element_factory_make (factory, name);
}

GstElement *__real_gst_pipeline_new (const gchar *name);
GstElement *__wrap_gst_pipeline_new (const gchar *name);
GstElement *__wrap_gst_pipeline_new (const gchar *name)
{
  return failing.contains ("pipeline") ? nullptr : __real_gst_pipeline_new (name);
}

gboolean __wrap_gst_element_link_many (GstElement *first, GstElement *second, ...);
gboolean __wrap_gst_element_link_many (GstElement *first, GstElement *second, ...)
{
  if (failing.contains ("link"))
    return FALSE;
  va_list more;
  va_start (more, second);
  gboolean linked = TRUE;
  for (; second && linked; first = second, second = va_arg (more, GstElement *))
    linked = gst_element_link (first, second);
  va_end (more);
  return linked;
}

GstStateChangeReturn __real_gst_element_set_state (GstElement *element, GstState state);
GstStateChangeReturn __wrap_gst_element_set_state (GstElement *element, GstState state);
GstStateChangeReturn __wrap_gst_element_set_state (GstElement *element, GstState state)
{
  if (state == GST_STATE_PLAYING && failing.contains ("state"))
    return GST_STATE_CHANGE_FAILURE;
  return __real_gst_element_set_state (element, state);
}
}

namespace
{

struct Colour {
  guint8 red, green, blue;
};
constexpr Colour left_colour = {200, 30, 40};
constexpr Colour right_colour = {20, 60, 220};

gsize padded_row (guint32 width)
{
  return (gsize{width} * 3 + 3) / 4 * 4;
}

/** A frame whose left half has one colour, whose right half another. */
vorn::Ref<GstBuffer> make_frame (guint32 width, guint32 height)
{
  const gsize stride = padded_row (width);
  auto frame = vorn::adopt (gst_buffer_new_allocate (nullptr, stride * height, nullptr));
  const vorn::BufferMap map (frame.get (), GST_MAP_WRITE);
  for (guint32 y = 0; y < height; y++)
    for (guint32 x = 0; x < width; x++) {
      const Colour colour = x < width / 2 ? left_colour : right_colour;
      guint8 *pixel = map.data () + y * stride + gsize{x} * 3;
      pixel[0] = colour.red;
      pixel[1] = colour.green;
      pixel[2] = colour.blue;
    }
  return frame;
}

/** The JPEG as raw RGB. */
vorn::Ref<GstSample> decode (GstSample *jpeg)
{
  const auto pipeline = vorn::adopt (gst_parse_launch (
      "appsrc name=in format=time ! jpegdec ! videoconvert ! video/x-raw,format=RGB ! "
      "appsink name=out sync=false",
      nullptr));
  const auto in = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), "in"));
  const auto out = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), "out"));
  gst_element_set_state (pipeline.get (), GST_STATE_PLAYING);
  gst_app_src_push_sample (GST_APP_SRC (in.get ()), jpeg);
  gst_app_src_end_of_stream (GST_APP_SRC (in.get ()));
  auto raw = vorn::adopt (gst_app_sink_pull_sample (GST_APP_SINK (out.get ())));
  gst_element_set_state (pipeline.get (), GST_STATE_NULL);
  return raw;
}

class MakeThumbnail : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }
  ~MakeThumbnail () override { failing.clear (); }

  static vorn::Ref<GstSample> make (GstBuffer *frame, guint32 width, guint32 height)
  {
    return vorn::adopt (make_thumbnail (frame, width, height, 30, 1));
  }

  LogCapture log_;
};

void expect_size (GstSample *sample, gint width, gint height)
{
  ASSERT_NE (sample, nullptr);
  const GstStructure *caps = gst_caps_get_structure (gst_sample_get_caps (sample), 0);
  EXPECT_STREQ (gst_structure_get_name (caps), "image/jpeg");
  gint is_width = 0;
  gint is_height = 0;
  EXPECT_TRUE (gst_structure_get_int (caps, "width", &is_width));
  EXPECT_TRUE (gst_structure_get_int (caps, "height", &is_height));
  EXPECT_EQ (is_width, width);
  EXPECT_EQ (is_height, height);
  const vorn::BufferMap map (gst_sample_get_buffer (sample), GST_MAP_READ);
  ASSERT_GT (map.size (), 4u);
  EXPECT_EQ (map.data ()[0], 0xff); // start of image
  EXPECT_EQ (map.data ()[1], 0xd8);
  EXPECT_EQ (map.data ()[map.size () - 2], 0xff); // end of image
  EXPECT_EQ (map.data ()[map.size () - 1], 0xd9);
}

TEST_F (MakeThumbnail, IsAsWideAsFixedAndKeepsTheShape)
{
  const struct {
    guint32 width, height;
    gint thumbnail_height;
  } cases[] = {{1280, 720, 180}, {1920, 1080, 180}, {1000, 563, 180}, {640, 480, 240},
               {320, 180, 180},  {160, 90, 180},    {720, 1280, 569}, {1281, 720, 180}};
  for (const auto &c : cases) {
    SCOPED_TRACE (std::to_string (c.width) + "x" + std::to_string (c.height));
    const auto frame = make_frame (c.width, c.height);
    expect_size (make (frame.get (), c.width, c.height).get (), 320, c.thumbnail_height);
  }
  EXPECT_TRUE (log_.lines ().empty ());
}

TEST_F (MakeThumbnail, ShowsTheFrame)
{
  for (const guint32 width : {1280u, 1001u}) { // rows with and without padding
    SCOPED_TRACE (width);
    const auto frame = make_frame (width, 720);
    const auto sample = make (frame.get (), width, 720);
    ASSERT_TRUE (sample);
    const auto raw = decode (sample.get ());
    ASSERT_TRUE (raw);
    GstVideoInfo info;
    ASSERT_TRUE (gst_video_info_from_caps (&info, gst_sample_get_caps (raw.get ())));
    const vorn::BufferMap map (gst_sample_get_buffer (raw.get ()), GST_MAP_READ);
    for (const gint y : {2, info.height / 2, info.height - 3})
      for (const gint x : {5, 140, 180, 314}) {
        const guint8 *pixel = map.data () + y * GST_VIDEO_INFO_PLANE_STRIDE (&info, 0) + x * 3;
        const Colour expected = x < 160 ? left_colour : right_colour;
        EXPECT_NEAR (pixel[0], expected.red, 6) << x << "," << y;
        EXPECT_NEAR (pixel[1], expected.green, 6) << x << "," << y;
        EXPECT_NEAR (pixel[2], expected.blue, 6) << x << "," << y;
      }
  }
}

TEST_F (MakeThumbnail, DoesNotWaitForTheFramesTime)
{
  const auto frame = make_frame (1280, 720);
  // An hour would be longer than any test may take; none at all is no reason to fail either.
  for (const GstClockTime time :
       {GstClockTime{0}, GstClockTime{3600 * GST_SECOND}, GST_CLOCK_TIME_NONE}) {
    GST_BUFFER_PTS (frame.get ()) = time;
    expect_size (make (frame.get (), 1280, 720).get (), 320, 180);
  }
}

TEST_F (MakeThumbnail, LeavesTheFrameAsItWas)
{
  const auto frame = make_frame (1280, 720);
  const auto copy = vorn::adopt (gst_buffer_copy_deep (frame.get ()));
  ASSERT_TRUE (make (frame.get (), 1280, 720));
  EXPECT_EQ (GST_MINI_OBJECT_REFCOUNT_VALUE (frame.get ()), 1);
  const vorn::BufferMap before (copy.get (), GST_MAP_READ);
  const vorn::BufferMap after (frame.get (), GST_MAP_READ);
  ASSERT_EQ (before.size (), after.size ());
  EXPECT_EQ (memcmp (before.data (), after.data (), after.size ()), 0);
}

TEST_F (MakeThumbnail, RefusesAFrameThatIsTooSmall)
{
  const auto frame = make_frame (1281, 720); // 3844 bytes a row
  EXPECT_FALSE (make (frame.get (), 1281, 721));
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR),
             std::vector<std::string>{"a frame of 2767680 bytes is no picture of 1281x721"});
  EXPECT_EQ (GST_MINI_OBJECT_REFCOUNT_VALUE (frame.get ()), 1);
}

TEST_F (MakeThumbnail, NoPictureComesOfNoWidth)
{
  const auto frame = make_frame (1280, 720);
  EXPECT_FALSE (make (frame.get (), 0, 720));
  EXPECT_FALSE (make (frame.get (), 1280, 0));
  EXPECT_TRUE (log_.lines ().empty ());
}

TEST_F (MakeThumbnail, NamesWhatIsMissing)
{
  const struct {
    std::set<std::string> missing;
    const char *message;
  } cases[] = {
      {{"pipeline"}, "Not all elements could be created: pipeline     ."},
      {{"appsrc"}, "Not all elements could be created:  source    ."},
      {{"appsink"}, "Not all elements could be created:   sink   ."},
      {{"jpegenc"}, "Not all elements could be created:    enc  ."},
      {{"videoscale"}, "Not all elements could be created:     scale ."},
      {{"capsfilter"}, "Not all elements could be created:      filter."},
      {{"jpegenc", "appsrc"}, "Not all elements could be created:  source  enc  ."},
      {{"pipeline", "appsrc", "appsink", "jpegenc", "videoscale", "capsfilter"},
       "Not all elements could be created: pipeline source sink enc scale filter."},
  };
  const auto frame = make_frame (1280, 720);
  for (const auto &c : cases) {
    SCOPED_TRACE (c.message);
    log_.clear ();
    failing = c.missing;
    EXPECT_FALSE (make (frame.get (), 1280, 720));
    EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR), std::vector<std::string>{c.message});
    EXPECT_EQ (log_.lines ().size (), 1u);
    EXPECT_EQ (GST_MINI_OBJECT_REFCOUNT_VALUE (frame.get ()), 1);
  }
}

TEST_F (MakeThumbnail, SaysWhenElementsCannotBeLinkedOrStarted)
{
  const auto frame = make_frame (1280, 720);
  for (const auto &[call, message] :
       {std::pair{"link", "can't link elements"},
        std::pair{"state", "can't set the pipeline to the playing state."}}) {
    SCOPED_TRACE (message);
    log_.clear ();
    failing = {call};
    EXPECT_FALSE (make (frame.get (), 1280, 720));
    EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR), std::vector<std::string>{message});
    EXPECT_EQ (log_.lines ().size (), 1u);
    EXPECT_EQ (GST_MINI_OBJECT_REFCOUNT_VALUE (frame.get ()), 1);
  }
  failing.clear ();
  EXPECT_TRUE (make (frame.get (), 1280, 720));
}

} // namespace
