// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <vorn/frame_meta.h>
#include <vorn/framework.h>
#include <vorn/gst_raii.hpp>

#include "log_capture.hpp"

namespace
{

using Buffer = vorn::Ref<GstBuffer>;

Buffer make_buffer (GstClockTime capture_time, bool sync_point)
{
  Buffer buffer = vorn::adopt (gst_buffer_new_allocate (nullptr, 64, nullptr));
  VornFrameMeta *meta = vorn_frame_meta_add (buffer.get ());
  gst_structure_set (meta->structure, VORN_FRAME_META_CAPTURE_TIMESTAMP, GST_TYPE_CLOCK_TIME,
                     capture_time, VORN_FRAME_META_SYNC_POINT, G_TYPE_BOOLEAN, sync_point, nullptr);
  return buffer;
}

GstClockTime capture_time_of (GstBuffer *buffer)
{
  VornFrameMeta *meta = vorn_frame_meta_get (buffer);
  GstClockTime time = GST_CLOCK_TIME_NONE;
  if (meta)
    gst_structure_get_clock_time (meta->structure, "capture-timestamp", &time);
  return time;
}

class FrameMeta : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }
};

} // namespace

TEST_F (FrameMeta, IsFoundByItsApiTypeWithTheStructureAfterTheHeader)
{
  const GType api = g_type_from_name ("VornFrameMetaAPI");
  ASSERT_EQ (api, VORN_FRAME_META_API_TYPE);
  const Buffer buffer = make_buffer (123456789, true);
  GstMeta *meta = gst_buffer_get_meta (buffer.get (), api);
  ASSERT_NE (meta, nullptr);
  ASSERT_EQ (meta->info, vorn_frame_meta_get_info ());

  struct Layout {
    GstMeta meta;
    GstStructure *structure;
  };
  const GstStructure *structure = reinterpret_cast<Layout *> (meta)->structure;
  GstClockTime time = 0;
  gboolean sync_point = FALSE;
  ASSERT_TRUE (GST_IS_STRUCTURE (structure));
  EXPECT_TRUE (gst_structure_get_clock_time (structure, "capture-timestamp", &time));
  EXPECT_TRUE (gst_structure_get_boolean (structure, "sync-point", &sync_point));
  EXPECT_EQ (time, 123456789u);
  EXPECT_TRUE (sync_point);
}

TEST_F (FrameMeta, ABufferWithoutItHasNone)
{
  const Buffer buffer = vorn::adopt (gst_buffer_new ());
  EXPECT_EQ (vorn_frame_meta_get (buffer.get ()), nullptr);
}

TEST_F (FrameMeta, StartsEmptyAndIsThereOnce)
{
  const Buffer buffer = vorn::adopt (gst_buffer_new ());
  VornFrameMeta *meta = vorn_frame_meta_add (buffer.get ());
  ASSERT_NE (meta, nullptr);
  EXPECT_EQ (gst_structure_n_fields (meta->structure), 0);
  gst_structure_set (meta->structure, "exposure", G_TYPE_DOUBLE, 0.25, nullptr);
  EXPECT_EQ (vorn_frame_meta_add (buffer.get ()), meta);
  EXPECT_EQ (gst_buffer_get_n_meta (buffer.get (), VORN_FRAME_META_API_TYPE), 1u);
  EXPECT_TRUE (gst_structure_has_field (meta->structure, "exposure"));
}

TEST_F (FrameMeta, NeedsAWritableBuffer)
{
  CriticalCapture criticals;
  const Buffer buffer = vorn::adopt (gst_buffer_new ());
  {
    const Buffer shared = vorn::share (buffer.get ());
    EXPECT_EQ (vorn_frame_meta_add (shared.get ()), nullptr);
  }
  EXPECT_EQ (vorn_frame_meta_get (nullptr), nullptr);
  EXPECT_EQ (vorn_frame_meta_add (nullptr), nullptr);
  ASSERT_EQ (criticals.criticals ().size (), 3u);
  EXPECT_NE (criticals.criticals ()[0].text.find ("gst_buffer_is_writable (buffer)"),
             std::string::npos);
  EXPECT_EQ (vorn_frame_meta_get (buffer.get ()), nullptr);
}

TEST_F (FrameMeta, EachCopyOwnsItsStructure)
{
  const std::pair<const char *, GstBuffer *(*)(GstBuffer *)> ways[] = {
      {"copy", [] (GstBuffer *buffer) { return gst_buffer_copy (buffer); }},
      {"deep copy", [] (GstBuffer *buffer) { return gst_buffer_copy_deep (buffer); }},
      {"region",
       [] (GstBuffer *buffer) {
         return gst_buffer_copy_region (buffer, GST_BUFFER_COPY_ALL, 16, 8);
       }},
      {"into",
       [] (GstBuffer *buffer) {
         GstBuffer *copy = gst_buffer_new ();
         gst_buffer_copy_into (copy, buffer, GST_BUFFER_COPY_METADATA, 0, gsize (-1));
         return copy;
       }},
      {"writable",
       [] (GstBuffer *buffer) { return gst_buffer_make_writable (gst_buffer_ref (buffer)); }},
  };
  for (const auto &[name, make] : ways) {
    SCOPED_TRACE (name);
    Buffer original = make_buffer (1000, true);
    const Buffer copy = vorn::adopt (make (original.get ()));
    ASSERT_NE (copy.get (), original.get ());
    VornFrameMeta *meta = vorn_frame_meta_get (copy.get ());
    ASSERT_NE (meta, nullptr);
    EXPECT_NE (meta->structure, vorn_frame_meta_get (original.get ())->structure);
    EXPECT_EQ (capture_time_of (copy.get ()), 1000u);

    gst_structure_set (meta->structure, "capture-timestamp", GST_TYPE_CLOCK_TIME,
                       GstClockTime{2000}, nullptr);
    EXPECT_EQ (capture_time_of (original.get ()), 1000u);
    original.reset ();
    EXPECT_EQ (capture_time_of (copy.get ()), 2000u);
  }
}

TEST_F (FrameMeta, ACopyReplacesWhatTheDestinationHad)
{
  const Buffer source = make_buffer (1000, true);
  const Buffer destination = make_buffer (5, false);
  gst_structure_set (vorn_frame_meta_get (destination.get ())->structure, "stale", G_TYPE_INT, 1,
                     nullptr);
  ASSERT_TRUE (gst_buffer_copy_into (destination.get (), source.get (), GST_BUFFER_COPY_META, 0,
                                     gsize (-1)));
  EXPECT_EQ (capture_time_of (destination.get ()), 1000u);
  EXPECT_EQ (gst_buffer_get_n_meta (destination.get (), VORN_FRAME_META_API_TYPE), 1u);
  EXPECT_FALSE (
      gst_structure_has_field (vorn_frame_meta_get (destination.get ())->structure, "stale"));
}

TEST_F (FrameMeta, HasNoTags)
{
  // Elements drop metas whose tags (size, colour...) say that they no longer hold.
  const gchar *const *tags = gst_meta_api_type_get_tags (VORN_FRAME_META_API_TYPE);
  EXPECT_TRUE (tags == nullptr || tags[0] == nullptr);
}
