// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Snapshots: settings, start, groups of files, what the muxer is told before, what is reported.
#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>

#include "front_view_photo_support.hpp"
#include <vorn/frame_meta.h>
#include <vorn/utils.h>

using namespace photos;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class FrontViewSnapshot : public PhotoTest
{
protected:
  gboolean configure (guint32 mode, guint32 format, guint32 file_format, guint32 count,
                      guint64 *size = nullptr)
  {
    return VORN_VIEW_GET_CLASS (base_)->set_snapshot_format (base_, mode, format, file_format,
                                                             count, size);
  }
  VornResolution filter_size () const
  {
    const auto filter = element ("picture-jpegfilter");
    GstCaps *caps = nullptr;
    g_object_get (filter.get (), "caps", &caps, nullptr);
    const auto owned = vorn::adopt (caps);
    gint width = 0;
    gint height = 0;
    gst_structure_get (gst_caps_get_structure (caps, 0), "width", G_TYPE_INT, &width, "height",
                       G_TYPE_INT, &height, nullptr);
    return {static_cast<guint32> (width), static_cast<guint32> (height)};
  }
  std::string group () const { return view_->location_pattern ? view_->location_pattern : "-"; }
  std::string folder () const { return media_.path () + "/photos/"; }
};

// ---- Settings

TEST_F (FrontViewSnapshot, TakesOnlyTheSettingsOfTheMode)
{
  build ();
  store_relaxed (view_->photo_mode, 2);
  store_relaxed (view_->photo_format, 1);
  store_relaxed (view_->photo_file_format, 0);
  store_relaxed (view_->photo_count, 10);
  store_relaxed (view_->photo_format_size, {.resolution = {640, 360}});
  const guint32 others[][4] = {{0, 1, 0, 10}, {2, 0, 0, 10}, {2, 1, 1, 10},
                               {2, 1, 0, 9},  {2, 1, 0, 0},  {0, 0, 0, 0}};
  for (const auto &[mode, format, file_format, count] : others) {
    guint64 size = 77;
    EXPECT_FALSE (configure (mode, format, file_format, count, &size));
    EXPECT_EQ (size, 77u);
    EXPECT_EQ (filter_size ().width, 1280u);
  }
  EXPECT_THAT (log_.lines (), IsEmpty ());

  guint64 size = 0;
  EXPECT_TRUE (configure (2, 1, 0, 10, &size));
  EXPECT_EQ (size, 640u | guint64{360} << 32);
  EXPECT_EQ (filter_size ().width, 640u);
  EXPECT_EQ (filter_size ().height, 360u);
  const std::string message = std::string ("configure snapshot for 'front-view' to ") +
                              vorn_camera_mode_photo_get_name (2) + " '" +
                              vorn_photo_format_get_name (1) + "/" +
                              vorn_photo_file_format_get_name (0) + "' = 640x360 (count: 10)";
  EXPECT_THAT (said (info), ElementsAre (message));
  EXPECT_EQ (log_.lines ().size (), 1u);
}

TEST_F (FrontViewSnapshot, ItsSizeNeedNotBeTold)
{
  build ();
  store_relaxed (view_->photo_format_size, {.resolution = {5344, 3200}});
  EXPECT_TRUE (configure (0, 0, 0, 1));
  EXPECT_EQ (filter_size ().width, 5344u);
  EXPECT_EQ (filter_size ().height, 3200u);
}

TEST_F (FrontViewSnapshot, NeedsTheFilterForItsSize)
{
  build (false);
  guint64 size = 77;
  EXPECT_FALSE (configure (0, 0, 0, 1, &size));
  EXPECT_EQ (size, 77u);
  EXPECT_THAT (said (error), ElementsAre ("failed to get picture-jpegfilter"));
  EXPECT_EQ (log_.lines ().size (), 1u);
}

TEST_F (FrontViewSnapshot, APhotoHasTheSizeThatWasSet)
{
  build ();
  store_relaxed (view_->photo_format_size, {.resolution = {640, 480}});
  ASSERT_TRUE (configure (0, 0, 0, 1));
  take_whole ();
  const auto muxer = element ("picture-jpegmux");
  const auto pad = vorn::adopt (gst_element_get_static_pad (muxer.get (), "sink"));
  const auto caps = vorn::adopt (gst_pad_get_current_caps (pad.get ()));
  ASSERT_TRUE (caps);
  gint width = 0;
  gint height = 0;
  gst_structure_get (gst_caps_get_structure (caps.get (), 0), "width", G_TYPE_INT, &width, "height",
                     G_TYPE_INT, &height, nullptr);
  EXPECT_EQ (width, 640);
  EXPECT_EQ (height, 480);
}

// ---- Files

TEST_F (FrontViewSnapshot, WritesAFilePerPhoto)
{
  build ();
  for (const char *file : {"ZELTO_0001_0000.jpg", "ZELTO_0002_0000.jpg", "ZELTO_0003_0000.jpg"}) {
    take_whole ();
    EXPECT_THAT (taken (), ElementsAre (folder () + file));
    EXPECT_EQ (group () + "_0000.jpg", folder () + file);
    std::ifstream jpeg (folder () + file, std::ios::binary);
    EXPECT_EQ (jpeg.get (), 0xff);
    EXPECT_EQ (jpeg.get (), 0xd8);
    EXPECT_GT (std::filesystem::file_size (folder () + file), 1000u);
  }
  EXPECT_THAT (said (error), IsEmpty ());
  EXPECT_THAT (said (warning), IsEmpty ());
}

TEST_F (FrontViewSnapshot, PhotosOfASeriesStayTogether)
{
  build ();
  const struct {
    guint32 grouping;
    guint16 sequence;
    const char *file;
  } cases[] = {
      {1, 0, "ZELTO_0001_0000.jpg"}, // each first of a series begins a group
      {1, 1, "ZELTO_0001_0001.jpg"},
      {1, 2, "ZELTO_0001_0002.jpg"},
      {2, 0, "ZELTO_0002_0000.jpg"},
      {2, 1, "ZELTO_0002_0001.jpg"},
      {0, 0, "ZELTO_0003_0000.jpg"}, // and so does each single photo
      {0, 1, "ZELTO_0004_0000.jpg"}, // whatever its number
      {3, 0, "ZELTO_0005_0000.jpg"},
      {3, 1, "ZELTO_0005_0001.jpg"},
      {3, 0, "ZELTO_0006_0000.jpg"},
      {7, 1, "ZELTO_0006_0001.jpg"}, // an unknown one is no single photo
      {7, 0, "ZELTO_0007_0000.jpg"},
      {1, 65535, "ZELTO_0007_0001.jpg"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE (c.file);
    take_whole (
        {.photo_grouping = c.grouping, .sequence_number = c.sequence, .panorama_type = "sphere"});
    EXPECT_THAT (taken (), ElementsAre (folder () + c.file));
    EXPECT_EQ (group () + std::string (c.file).substr (10), folder () + c.file);
  }
}

TEST_F (FrontViewSnapshot, ASeriesWhoseBeginningIsMissingBeginsAGroup)
{
  build ();
  take_whole ({.photo_grouping = 1, .sequence_number = 4});
  EXPECT_THAT (taken (), ElementsAre (folder () + "ZELTO_0001_0000.jpg"));
  EXPECT_EQ (group (), folder () + "ZELTO_0001");
  take_whole ({.photo_grouping = 1, .sequence_number = 5});
  EXPECT_THAT (taken (), ElementsAre (folder () + "ZELTO_0001_0001.jpg"));
}

TEST_F (FrontViewSnapshot, PercentSignsOfTheFolderAreLiteral)
{
  vorn_utils_set_media_folder (media_.at ("100%d%%").c_str ());
  build ();
  take_whole ();
  EXPECT_THAT (taken (), ElementsAre (media_.at ("100%d%%") + "/photos/ZELTO_0001_0000.jpg"));
  EXPECT_TRUE (std::filesystem::exists (taken ().front ()));
}

TEST_F (FrontViewSnapshot, WithoutAPlaceForTheFileNothingRuns)
{
  vorn_utils_set_media_folder (media_.write ("file", "no folder").c_str ());
  build ();
  view_->taken_snapshots = g_slist_append (nullptr, g_strdup ("former"));
  view_->location_pattern = g_strdup ("former");
  ASSERT_NE (gst_element_set_state (view_->picture_pipeline, GST_STATE_READY),
             GST_STATE_CHANGE_FAILURE);
  EXPECT_FALSE (take ());
  EXPECT_THAT (said (error), ElementsAre ("failed to get jpeg location pattern"));
  EXPECT_EQ (state (), GST_STATE_NULL);
  EXPECT_THAT (taken (), IsEmpty ());
  EXPECT_EQ (group (), "former");
}

// ---- Tags

TEST_F (FrontViewSnapshot, TellsTheMuxerWhatIsKnownBefore)
{
  build (true, false); // without its thumbnail the photo waits
  VornMetadataProvider *provider = vorn_virtual_cam_get_pmd (virtual_camera_.get ());
  const vorn::Owned<VornUntimedMetadata, vorn_metadata_provider_free_untimed_meta> metadata (
      vorn_metadata_provider_get_untimed_meta (provider));
  ASSERT_TRUE (take (
      {.photo_grouping = 3, .sequence_number = 2, .panorama_type = "spherical", .shot_count = 30}));
  const auto tags = muxer_tags ();
  EXPECT_EQ (text_tag (tags.get (), "description"),
             std::string (metadata->model) + " " + metadata->software_version);
  EXPECT_EQ (text_tag (tags.get (), "device-manufacturer"), metadata->manufacturer);
  EXPECT_EQ (text_tag (tags.get (), "boot-id"), metadata->boot_id);
  EXPECT_EQ (text_tag (tags.get (), "photo-mode"), vorn_photo_grouping_type_get_name (3));
  EXPECT_EQ (text_tag (tags.get (), "panorama-type"), "spherical");
  guint number = 0;
  EXPECT_TRUE (gst_tag_list_get_uint (tags.get (), "sequence-number", &number));
  EXPECT_EQ (number, 2u);
  EXPECT_TRUE (gst_tag_list_get_uint (tags.get (), "photo-count", &number));
  EXPECT_EQ (number, 30u);
  EXPECT_FALSE (has_tag ("datetime"));
  EXPECT_FALSE (has_tag (GST_TAG_IMAGE));
}

TEST_F (FrontViewSnapshot, NamesTheModeOfAnUnknownGrouping)
{
  build ();
  store_relaxed (view_->photo_mode, VORN_PHOTO_MODE_BURST);
  take_whole ({.photo_grouping = 7});
  EXPECT_THAT (said (warning), ElementsAre ("invalid photo_grouping"));
  EXPECT_EQ (text_tag (muxer_tags ().get (), "photo-mode"),
             vorn_camera_mode_photo_get_name (VORN_PHOTO_MODE_BURST));
}

TEST_F (FrontViewSnapshot, NothingOfOnePhotosTagsGetsIntoTheNext)
{
  build ();
  take_whole ({.photo_grouping = 3, .panorama_type = "spherical", .shot_count = 30});
  EXPECT_TRUE (has_tag ("panorama-type"));
  take_whole ();
  EXPECT_FALSE (has_tag ("panorama-type"));
  EXPECT_FALSE (has_tag ("photo-count"));
  EXPECT_FALSE (has_tag ("sequence-number"));
}

TEST_F (FrontViewSnapshot, GoesOnWithoutAMuxer)
{
  use ("videotestsrc num-buffers=1 ! jpegenc ! multifilesink name=picture-jpegsink "
       "post-messages=true");
  take_whole ({.photo_grouping = 7});
  EXPECT_THAT (said (warning), ElementsAre ("failed to get picture-jpegmux"));
  EXPECT_THAT (taken (), ElementsAre (folder () + "ZELTO_0001_0000.jpg"));
}

// ---- Failing to start

constexpr char broken_pipeline[] = "filesrc location=/nonexistent ! jifmux name=picture-jpegmux ! "
                                   "multifilesink name=picture-jpegsink async=false";
constexpr char more_broken_pipeline[] = // it does not even get ready
    "v4l2src device=/nonexistent ! jifmux name=picture-jpegmux ! "
    "multifilesink name=picture-jpegsink async=false";

TEST_F (FrontViewSnapshot, SaysWhenThePipelineDoesNotStart)
{
  use (broken_pipeline);
  EXPECT_FALSE (take ());
  EXPECT_THAT (said (warning), ElementsAre ("failed to take snapshot: state change error"));
}

TEST_F (FrontViewSnapshot, AFailedPhotoLeavesNoTags)
{
  for (const char *pipeline : {broken_pipeline, more_broken_pipeline}) {
    SCOPED_TRACE (pipeline);
    use (pipeline);
    EXPECT_FALSE (take ({.photo_grouping = 3, .panorama_type = "spherical", .shot_count = 30}));
    EXPECT_FALSE (take ());
    EXPECT_FALSE (has_tag ("panorama-type"));
    gst_element_set_state (view_->picture_pipeline, GST_STATE_NULL);
    vorn::adopt (std::exchange (view_->picture_pipeline, nullptr));
  }
}

// ---- Reports

struct Event {
  guint number;
  std::vector<std::string> files;
  bool has_error;
};

void note_event (VornView *, guint number, gchar **files, const GError *reason, gpointer events)
{
  Event event = {number, {}, reason != nullptr};
  for (gchar **file = files; file && *file; file++)
    event.files.emplace_back (*file);
  static_cast<std::vector<Event> *> (events)->push_back (event);
}

TEST_F (FrontViewSnapshot, ReportsTheFilesInTheirOrder)
{
  std::vector<Event> events;
  g_signal_connect (base_, "snapshot-event", G_CALLBACK (note_event), &events);
  vorn_morvik_zelto_front_view_snapshot_notify_taken (view_);
  for (const char *file : {"b", "a", "c"})
    view_->taken_snapshots = g_slist_append (view_->taken_snapshots, g_strdup (file));
  vorn_morvik_zelto_front_view_snapshot_notify_taken (view_);
  ASSERT_EQ (events.size (), 2u);
  for (const Event &event : events) {
    EXPECT_EQ (event.number, 0u);
    EXPECT_FALSE (event.has_error);
  }
  EXPECT_THAT (events[0].files, IsEmpty ());
  EXPECT_THAT (events[1].files, ElementsAre ("b", "a", "c"));
  EXPECT_THAT (taken (), ElementsAre ("b", "a", "c"));

  const vorn::OwnedStrings copy (vorn_morvik_zelto_front_view_get_taken_snapshots (view_));
  EXPECT_EQ (g_strv_length (copy.get ()), 3u);
  EXPECT_STREQ (copy.get ()[0], "b");
}

// ---- Frames without a camera

TEST (FakeMetadata, SaysThatThereIsNoTime)
{
  const auto buffer = vorn::adopt (gst_buffer_new ());
  gst_structure_set (vorn_frame_meta_add (buffer.get ())->structure, "capture-timestamp",
                     G_TYPE_UINT64, guint64{5}, "other", G_TYPE_INT, 3, nullptr);
  fill_fake_metadata (buffer.get ());
  const GstStructure *structure = vorn_frame_meta_get (buffer.get ())->structure;
  EXPECT_EQ (gst_structure_get_field_type (structure, "capture-timestamp"), G_TYPE_UINT64);
  guint64 time = 1;
  EXPECT_TRUE (gst_structure_get_uint64 (structure, "capture-timestamp", &time));
  EXPECT_EQ (time, 0u);
  gboolean sync_point = FALSE;
  EXPECT_TRUE (gst_structure_get_boolean (structure, "sync-point", &sync_point));
  EXPECT_TRUE (sync_point);
  EXPECT_TRUE (gst_structure_has_field (structure, "other"));

  const auto bare = vorn::adopt (gst_buffer_new ());
  fill_fake_metadata (bare.get ());
  ASSERT_NE (vorn_frame_meta_get (bare.get ()), nullptr);
  EXPECT_EQ (gst_structure_n_fields (vorn_frame_meta_get (bare.get ())->structure), 2);
}

TEST (FakeMetadata, LeavesABufferThatCannotBeWritten)
{
  const CriticalCapture criticals;
  const auto buffer = vorn::adopt (gst_buffer_new ());
  const auto second = vorn::share (buffer.get ());
  fill_fake_metadata (buffer.get ());
  EXPECT_EQ (vorn_frame_meta_get (buffer.get ()), nullptr);
  EXPECT_EQ (criticals.criticals ().size (), 1u);
}

} // namespace
