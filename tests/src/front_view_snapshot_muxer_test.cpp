// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The photo branch: how it is put together, how a photo is tagged in front of the muxer, and how it
// waits there for its thumbnail.
#include <thread>

#include <gmock/gmock.h>

#include "front_view_photo_support.hpp"
#include <vorn/frame_meta.h>
#include <vorn/properties.h>

using namespace photos;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class FrontViewPhotoBranch : public PhotoTest
{
protected:
  /** The elements of a pipeline that has nothing but source and tee, after an attempt. */
  int elements_after_attempt ()
  {
    const auto pipeline = make_source_and_tee ();
    const auto tee = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), "tee"));
    const int before = GST_BIN_NUMCHILDREN (pipeline.get ());
    EXPECT_FALSE (
        populate_picture_main_pipeline (GST_BIN (pipeline.get ()), tee.get (), view_, 1280, 720));
    return GST_BIN_NUMCHILDREN (pipeline.get ()) - before;
  }
};

TEST_F (FrontViewPhotoBranch, NamesWhatIsMissing)
{
  const struct {
    std::set<std::string> missing;
    const char *message;
  } cases[] = {
      {{"queue"}, "missing elements: queue"},
      {{"videoscale"}, "missing elements: videoscale"},
      {{"capsfilter"}, "missing elements: capsfilter"},
      {{"jpegenc"}, "missing elements: jpegenc"},
      {{"jifmux"}, "missing elements: jifmux"},
      {{"multifilesink"}, "missing elements: filesink"},
      {{"jifmux", "videoscale"}, "missing elements: videoscale jifmux"},
      {{"queue", "videoscale", "capsfilter", "jpegenc", "jifmux", "multifilesink"},
       "missing elements: queue videoscale capsfilter jpegenc jifmux filesink"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE (c.message);
    log_.clear ();
    const auto pipeline = make_source_and_tee ();
    const auto tee = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), "tee"));
    const int before = GST_BIN_NUMCHILDREN (pipeline.get ());
    calls.missing = c.missing;
    EXPECT_FALSE (
        populate_picture_main_pipeline (GST_BIN (pipeline.get ()), tee.get (), view_, 1280, 720));
    calls.missing.clear ();
    EXPECT_EQ (GST_BIN_NUMCHILDREN (pipeline.get ()), before);
    EXPECT_THAT (said (error), ElementsAre (c.message));
    EXPECT_EQ (log_.lines ().size (), 1u);
  }
}

TEST_F (FrontViewPhotoBranch, TakesItsElementsBackWhenTheyCannotBeLinked)
{
  const CriticalCapture criticals; // GStreamer says why they cannot
  const auto bin = vorn::adopt (GST_BIN (gst_bin_new (nullptr)));
  // It is not in the bin.
  const auto tee = vorn::adopt (gst_element_factory_make ("tee", nullptr));
  EXPECT_FALSE (populate_picture_main_pipeline (bin.get (), tee.get (), view_, 1280, 720));
  EXPECT_EQ (GST_BIN_NUMCHILDREN (bin.get ()), 0);
  EXPECT_THAT (
      said (error),
      ElementsAre (
          "failed to link tee with queue, videoscale, capsfilter, jpegenc, jifmux, filesink"));
  EXPECT_EQ (log_.lines ().size (), 1u);
}

TEST_F (FrontViewPhotoBranch, IsPutTogether)
{
  const auto pipeline = make_source_and_tee ();
  const auto tee = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), "tee"));
  ASSERT_TRUE (
      populate_picture_main_pipeline (GST_BIN (pipeline.get ()), tee.get (), view_, 640, 400));
  EXPECT_NE (view_->picture_probe_id, 0u);
  const auto child = [&] (const char *name) {
    return vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), name));
  };
  const auto factory = [] (const vorn::Ref<GstElement> &element) {
    return element ? GST_OBJECT_NAME (gst_element_get_factory (element.get ())) : "none";
  };
  EXPECT_STREQ (factory (child ("picture-jpegmux")), "jifmux");
  EXPECT_STREQ (factory (child ("picture-jpegsink")), "multifilesink");
  EXPECT_STREQ (factory (child ("picture-jpegfilter")), "capsfilter");

  gboolean async = TRUE;
  gboolean messages = FALSE;
  g_object_get (child ("picture-jpegsink").get (), "async", &async, "post-messages", &messages,
                nullptr);
  EXPECT_FALSE (async);
  EXPECT_TRUE (messages);
  GstCaps *caps = nullptr;
  g_object_get (child ("picture-jpegfilter").get (), "caps", &caps, nullptr);
  const auto owned = vorn::adopt (caps);
  const auto expected =
      vorn::adopt (gst_caps_from_string ("video/x-raw, width=(int)640, height=(int)400"));
  EXPECT_TRUE (gst_caps_is_strictly_equal (caps, expected.get ()));

  // From the tee on, each feeds the next.
  std::vector<std::string> chain;
  auto pad = vorn::adopt (gst_element_get_static_pad (tee.get (), "src_0"));
  while (pad) {
    const auto peer = vorn::adopt (gst_pad_get_peer (pad.get ()));
    ASSERT_TRUE (peer);
    const auto next = vorn::adopt (gst_pad_get_parent_element (peer.get ()));
    chain.emplace_back (factory (next));
    pad = vorn::adopt (gst_element_get_static_pad (next.get (), "src"));
  }
  EXPECT_THAT (chain, ElementsAre ("queue", "videoscale", "capsfilter", "jpegenc", "jifmux",
                                   "multifilesink"));
}

// ---- Tags of the capture

class FrontViewPhotoTagging : public PhotoTest
{
protected:
  FrontViewPhotoTagging () { build (); }

  guint64 timestamp_tag () const
  {
    guint64 time_us = 0;
    EXPECT_TRUE (gst_tag_list_get_uint64 (muxer_tags ().get (), "capturing-timestamp", &time_us));
    return time_us;
  }

  /** Frames come from a camera, with this field of their metadata (none: nullptr). */
  void with_camera (const std::function<void (GstStructure *)> &describe)
  {
    vorn_property_set ("ro.with-front-cam", "1");
    describe_ = describe;
    const auto pad = vorn::adopt (gst_element_get_static_pad (element ("source").get (), "src"));
    gst_pad_add_probe (
        pad.get (), GST_PAD_PROBE_TYPE_BUFFER,
        [] (GstPad *, GstPadProbeInfo *probe, gpointer test) {
          auto &self = *static_cast<FrontViewPhotoTagging *> (test);
          GstBuffer *buffer = gst_buffer_make_writable (GST_PAD_PROBE_INFO_BUFFER (probe));
          GST_PAD_PROBE_INFO_DATA (probe) = buffer;
          if (self.describe_)
            self.describe_ (vorn_frame_meta_add (buffer)->structure);
          return GST_PAD_PROBE_OK;
        },
        this, nullptr);
  }

  /** The photo is complete but for the tags of its capture. */
  void expect_untagged_photo ()
  {
    EXPECT_EQ (taken ().size (), 1u);
    EXPECT_TRUE (has_tag ("device-model"));
    EXPECT_TRUE (has_tag (GST_TAG_IMAGE));
    for (const char *name : {"datetime", "milliseconds", "capturing-timestamp", "camera-yaw"})
      EXPECT_FALSE (has_tag (name)) << name;
  }

  std::function<void (GstStructure *)> describe_;
};

TEST_F (FrontViewPhotoTagging, APatternIsCapturedNowByTheMuxersClock)
{
  const auto clock = vorn::adopt (gst_system_clock_obtain ());
  const GstClockTime before = gst_clock_get_time (clock.get ());
  take_whole ();
  const GstClockTime after = gst_clock_get_time (clock.get ());
  const auto times_ns = called (&Calls::timed_times_ns);
  ASSERT_EQ (times_ns.size (), 1u);
  EXPECT_GE (times_ns[0], before);
  EXPECT_LE (times_ns[0], after);
  EXPECT_EQ (timestamp_tag (), times_ns[0] / 1000);
  EXPECT_EQ (called (&Calls::telemetry_times_ns), times_ns);
}

TEST_F (FrontViewPhotoTagging, AFrameTellsItsTime)
{
  constexpr GstClockTime capture_ns = 3723'456'789'012;
  with_camera ([] (GstStructure *meta) {
    gst_structure_set (meta, "capture-timestamp", G_TYPE_UINT64, capture_ns, nullptr);
  });
  take_whole ();
  EXPECT_THAT (called (&Calls::timed_times_ns), ElementsAre (capture_ns));
  EXPECT_THAT (called (&Calls::telemetry_times_ns), ElementsAre (capture_ns));
  EXPECT_EQ (timestamp_tag (), 3723'456'789u);
  EXPECT_THAT (said (warning), IsEmpty ());
  EXPECT_THAT (said (error), IsEmpty ());
}

TEST_F (FrontViewPhotoTagging, AFrameWithoutItsTimeIsNotTagged)
{
  const std::function<void (GstStructure *)> cases[] = {
      nullptr, // no metadata at all
      [] (GstStructure *) {},
      [] (GstStructure *meta) {
        gst_structure_set (meta, "capture-timestamp", G_TYPE_STRING, "today", nullptr);
      },
  };
  with_camera (nullptr);
  for (const auto &describe : cases) {
    log_.clear ();
    describe_ = describe;
    take_whole ();
    EXPECT_THAT (said (warning), ElementsAre ("failed to retrieve capture timestamp"));
    expect_untagged_photo ();
  }
  EXPECT_THAT (called (&Calls::telemetry_times_ns), IsEmpty ());
  EXPECT_THAT (called (&Calls::timed_times_ns), IsEmpty ());
}

TEST_F (FrontViewPhotoTagging, AFrameOfNoTimeIsNotTagged)
{
  with_camera ([] (GstStructure *meta) {
    gst_structure_set (meta, "capture-timestamp", G_TYPE_UINT64, GST_CLOCK_TIME_NONE, nullptr);
  });
  take_whole ();
  EXPECT_THAT (said (warning), ElementsAre ("not a valid timestamp"));
  expect_untagged_photo ();
  EXPECT_THAT (called (&Calls::telemetry_times_ns), IsEmpty ());
}

TEST_F (FrontViewPhotoTagging, AMuxerWithoutAClockGivesNoTime)
{
  gst_pipeline_use_clock (GST_PIPELINE (view_->picture_pipeline), nullptr);
  g_object_set (element ("source").get (), "is-live", FALSE, nullptr);
  take_whole ();
  EXPECT_THAT (said (warning), ElementsAre ("not a valid timestamp"));
  expect_untagged_photo ();
}

TEST_F (FrontViewPhotoTagging, SaysWhenTheMetadataAreNotKnown)
{
  calls.no_timed_metadata = true;
  take_whole ();
  EXPECT_THAT (said (error), ElementsAre ("failed to collect metadata"));
  EXPECT_EQ (called (&Calls::telemetry_times_ns).size (), 1u);
  expect_untagged_photo ();
}

TEST_F (FrontViewPhotoTagging, SaysWhenThereIsNothingToTag)
{
  calls.no_parent_element = true;
  take_whole ();
  EXPECT_THAT (said (warning), ElementsAre ("Couldn't get tagger"));
  expect_untagged_photo ();
}

TEST_F (FrontViewPhotoTagging, TellsNoExposureWhateverTheProviderSays)
{
  VornTimedPhotoMetadata told;
  memset (&told, 0x11, sizeof told); // all numbers valid, none zero
  told.location_valid = 0;
  calls.timed = told;
  take_whole ();
  const auto tags = muxer_tags ();
  EXPECT_EQ (text_tag (tags.get (), "capturing-white-balance"), "auto");
  EXPECT_EQ (text_tag (tags.get (), "capturing-exposure-program"), "undefined");
  guint width = 1;
  EXPECT_TRUE (gst_tag_list_get_uint (tags.get (), "compressed-image-width", &width));
  EXPECT_EQ (width, 0u);
  gdouble gain = 1;
  EXPECT_TRUE (gst_tag_list_get_double (tags.get (), "capturing-white-balance-r-gain", &gain));
  EXPECT_EQ (gain, 0.0);
  EXPECT_FALSE (has_tag ("geo-location-latitude"));
  EXPECT_FALSE (has_tag ("geo-satellites-count"));
  gdouble yaw = 0;
  EXPECT_TRUE (gst_tag_list_get_double (tags.get (), "camera-yaw", &yaw));
  EXPECT_EQ (yaw, told.camera_yaw); // which is kept
}

TEST_F (FrontViewPhotoTagging, TellsThePlaceWhereItIsKnown)
{
  calls.timed = {.shutter_den = 1,
                 .latitude = 48.5,
                 .longitude = 2.25,
                 .altitude = 60,
                 .satellite_count = 11,
                 .location_valid = 1};
  take_whole ();
  gdouble latitude = 0;
  EXPECT_TRUE (gst_tag_list_get_double (muxer_tags ().get (), "geo-location-latitude", &latitude));
  EXPECT_EQ (latitude, 48.5);
}

TEST_F (FrontViewPhotoTagging, TheFocalPlaneFollowsThePhotoFormat)
{
  for (const auto &[format, expected] : {std::pair{0u, 8928.571428571428}, std::pair{1u, 0.0}}) {
    store_relaxed (view_->photo_format, format);
    take_whole ();
    gdouble resolution = -1;
    EXPECT_TRUE (gst_tag_list_get_double (muxer_tags ().get (),
                                          "capturing-focal-plane-x-resolution", &resolution));
    EXPECT_DOUBLE_EQ (resolution, expected);
  }
}

TEST_F (FrontViewPhotoTagging, TagsOnceTheThumbnailIsThere)
{
  bool had_image = false;
  calls.on_timed = [&] { had_image = has_tag (GST_TAG_IMAGE); };
  take_whole ();
  EXPECT_TRUE (had_image);
}

// ---- Waiting for the thumbnail

class FrontViewPhotoWait : public PhotoTest
{
protected:
  /** Blocks until the view has said so many times that it waits too long. */
  void await_timeouts (size_t count)
  {
    const gint64 deadline = g_get_monotonic_time () + 30 * G_TIME_SPAN_SECOND;
    while (timeouts () < count && g_get_monotonic_time () < deadline)
      std::this_thread::yield ();
    ASSERT_GE (timeouts (), count);
  }
  size_t timeouts () const { return said (error).size (); }

  /** As the thumbnail's branch does it. */
  void add_thumbnail ()
  {
    const auto caps = vorn::adopt (gst_caps_new_empty_simple ("image/jpeg"));
    const auto buffer = vorn::adopt (gst_buffer_new ());
    const auto sample = vorn::adopt (gst_sample_new (buffer.get (), caps.get (), nullptr, nullptr));
    const auto muxer = element ("picture-jpegmux");
    const vorn::Lock lock (&view_->lock);
    gst_tag_setter_add_tags (GST_TAG_SETTER (muxer.get ()), GST_TAG_MERGE_REPLACE, GST_TAG_IMAGE,
                             sample.get (), nullptr);
    g_cond_signal (&view_->cond);
  }

  /** Takes a photo that waits, and whose wait has lasted so long already. */
  void take_waiting (gint64 waited_us)
  {
    build (true, false);
    {
      const std::lock_guard lock (calls_mutex);
      calls.first_time_us.reset ();
      calls.first_time_shift_us = -waited_us;
    }
    ASSERT_TRUE (take ());
  }

  /** Until the wait has begun. */
  void await_wait ()
  {
    while (!called (&Calls::first_time_us))
      std::this_thread::yield ();
  }
};

TEST_F (FrontViewPhotoWait, TellsThatItIsTooLateAndGoesOn)
{
  take_waiting (5 * G_TIME_SPAN_SECOND);
  await_timeouts (3);
  const std::string message = "timeout of " +
                              std::to_string (*called (&Calls::first_time_us) + 5'000'000) +
                              " microseconds has passed";
  EXPECT_THAT (said (error), Each (message));
  EXPECT_THAT (called (&Calls::timed_times_ns), IsEmpty ()); // nothing got past
  // It is never too late for the thumbnail.
  add_thumbnail ();
  EXPECT_EQ (wait_for_end (), "eos");
  EXPECT_EQ (taken ().size (), 1u);
  EXPECT_EQ (called (&Calls::timed_times_ns).size (), 1u);
}

TEST_F (FrontViewPhotoWait, SaysNothingInTime)
{
  take_waiting (0);
  await_wait ();
  add_thumbnail ();
  EXPECT_EQ (wait_for_end (), "eos");
  EXPECT_EQ (taken ().size (), 1u);
  EXPECT_EQ (timeouts (), 0u);
}

TEST_F (FrontViewPhotoWait, EndsWhenThePipelineIsStopped)
{
  take_waiting (0);
  await_wait ();
  EXPECT_EQ (gst_element_set_state (view_->picture_pipeline, GST_STATE_NULL),
             GST_STATE_CHANGE_SUCCESS);
  EXPECT_EQ (timeouts (), 0u); // long before its time
}

TEST_F (FrontViewPhotoWait, EndsWhenThePipelineIsStoppedTooLate)
{
  take_waiting (5 * G_TIME_SPAN_SECOND);
  await_timeouts (1);
  EXPECT_EQ (gst_element_set_state (view_->picture_pipeline, GST_STATE_NULL),
             GST_STATE_CHANGE_SUCCESS);
}

TEST_F (FrontViewPhotoWait, ANewPhotoEndsTheOneThatWaits)
{
  take_waiting (0);
  await_wait ();
  ASSERT_TRUE (take ());
  add_thumbnail ();
  EXPECT_EQ (wait_for_end (), "eos");
  EXPECT_THAT (taken (), ElementsAre (media_.path () + "/photos/ZELTO_0002_0000.jpg"));
  EXPECT_EQ (timeouts (), 0u);
}

TEST_F (FrontViewPhotoWait, DoesNotWaitForAMuxerThatIsNotThere)
{
  build (true, false);
  // The probes stay on the branch's pad; the view looks in another pipeline.
  const auto branch = vorn::adopt (view_->picture_pipeline);
  view_->picture_pipeline = gst_pipeline_new (nullptr);
  g_object_set (
      vorn::adopt (gst_bin_get_by_name (GST_BIN (branch.get ()), "picture-jpegsink")).get (),
      "location", media_.at ("%d.jpg").c_str (), nullptr);
  gst_element_set_state (branch.get (), GST_STATE_PLAYING);
  const auto bus = vorn::adopt (gst_element_get_bus (branch.get ()));
  const auto end = vorn::adopt (gst_bus_timed_pop_filtered (
      bus.get (), 30 * GST_SECOND,
      static_cast<GstMessageType> (GST_MESSAGE_EOS | GST_MESSAGE_ERROR)));
  ASSERT_TRUE (end);
  EXPECT_EQ (GST_MESSAGE_TYPE (end.get ()), GST_MESSAGE_EOS);
  EXPECT_THAT (said (warning), ElementsAre ("failed to get picture-jpegmux"));
  gst_element_set_state (branch.get (), GST_STATE_NULL);
}

} // namespace
