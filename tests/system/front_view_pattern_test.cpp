// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The product without a drone: a test pattern through both builds, encoder settings, a view that
// cannot be made.
#include "live_product.hpp"

#include "live_view.hpp"
#include "test_virtual_camera.hpp"
#include <vorn/frame_meta.h>
#include <vorn/properties.h>

namespace
{

using Texts = std::vector<std::string>;

class FrontViewPattern : public LiveProduct
{
protected:
  vorn::Ref<GstElement> encoder (const char *property) const
  {
    GstElement *element = nullptr;
    g_object_get (view_, property, &element, nullptr);
    return vorn::adopt (element);
  }
  static guint bitrate_of (const vorn::Ref<GstElement> &element)
  {
    guint kbit_per_s = 0;
    g_object_get (element.get (), "bitrate", &kbit_per_s, nullptr);
    return kbit_per_s;
  }
};

TEST_F (FrontViewPattern, StreamsAndRecordsInBothBuilds)
{
  for (const bool simple : {true, false}) {
    SCOPED_TRACE (simple);
    if (!product_)
      SetUp ();
    start ("", simple, {640, 360});
    const VornFormat format = {{640, 360}, live_rate, 1};
    ASSERT_TRUE (vorn_view_set_streaming_format (view_, &format));
    ASSERT_TRUE (stream ());
    collect_units ();
    ASSERT_TRUE (wait_for_stream (5));
    ASSERT_TRUE (vorn_view_start_recording (view_));
    wait_for_event (VORN_RECORD_EVENT_STARTED);
    ASSERT_TRUE (wait_for_recording (5));
    ASSERT_TRUE (vorn_view_stop_recording (view_, 0));
    const Movie movie = probe (wait_for_event (VORN_RECORD_EVENT_STOPPED).filename);
    EXPECT_EQ (movie.errors, "");
    EXPECT_EQ (movie.value ("width"), simple ? "1280" : "640");
    EXPECT_GE (movie.frames, 5);
    const auto units = take_units ();
    ASSERT_FALSE (units.empty ());
    for (const auto &unit : units) {
      // Nobody captured these frames, and they say so.
      const VornFrameMeta *meta = vorn_frame_meta_get (gst_sample_get_buffer (unit.get ()));
      ASSERT_NE (meta, nullptr);
      guint64 time_ns = 99;
      gboolean sync_point = FALSE;
      EXPECT_TRUE (gst_structure_get_uint64 (meta->structure, "capture-timestamp", &time_ns));
      EXPECT_TRUE (gst_structure_get_boolean (meta->structure, "sync-point", &sync_point));
      EXPECT_EQ (time_ns, 0u);
      EXPECT_TRUE (sync_point);
    }
    TearDown ();
    view_ = nullptr;
    product_ = nullptr;
  }
}

TEST_F (FrontViewPattern, TakesPictures)
{
  start ("");
  const VornCameraMode mode = photo_mode (0, 0, 0);
  ASSERT_TRUE (vorn_virtual_camera_set_mode (camera_, &mode));
  struct Seen {
    std::vector<guint> events;
    Texts files;
  } seen;
  const gulong handler = g_signal_connect (
      view_, "snapshot-event",
      G_CALLBACK (+[] (VornView *, guint event, gchar **files, const GError *, gpointer data) {
        auto *all = static_cast<Seen *> (data);
        all->events.push_back (event);
        all->files.clear ();
        for (gchar **file = files; file && *file; file++)
          all->files.emplace_back (*file);
      }),
      &seen);
  for (int i = 0; i < 2; i++) {
    seen = {};
    const VornSnapshotRequest request = {};
    ASSERT_TRUE (vorn_view_take_snapshot (view_, &request));
    EXPECT_TRUE (vorn_view_is_taking_picture (view_));
    ASSERT_TRUE (run_until ([&] { return !vorn_view_is_taking_picture (view_); }));
    // Begun, written, done.
    EXPECT_EQ (seen.events, (std::vector<guint>{3, 0, 1}));
    ASSERT_EQ (seen.files.size (), 1u);
    const Movie picture = probe (seen.files[0]);
    EXPECT_EQ (picture.errors, "");
    EXPECT_EQ (picture.value ("codec_name"), "mjpeg");
    EXPECT_EQ (picture.frames, 1);
  }
  g_signal_handler_disconnect (view_, handler);
}

TEST_F (FrontViewPattern, BitratesAreTheEncoders)
{
  start ("");
  const auto recording = encoder ("recording-encoder");
  ASSERT_TRUE (recording);
  g_object_set (recording.get (), "bitrate", 4000u, nullptr);
  guint bit_per_s = 0;
  g_object_get (view_, "recording-bitrate", &bit_per_s, nullptr);
  EXPECT_EQ (bit_per_s, 4000000u);

  const auto streaming = encoder ("streaming-encoder");
  ASSERT_TRUE (streaming);
  for (const guint32 asked : {2500999u, 999u, 3000000u}) {
    const VornStreamParameters parameters = {.reserved = {}, .bitrate = asked};
    EXPECT_TRUE (vorn_view_stream_set_params (view_, &parameters));
    EXPECT_EQ (bitrate_of (streaming), asked / 1000);
  }
  EXPECT_EQ (bitrate_of (recording), 4000u);
}

TEST_F (FrontViewPattern, StreamingHindersTheSwitchToItsOwnFlavour)
{
  start ("");
  ASSERT_TRUE (stream ());
  CriticalCapture criticals;
  EXPECT_FALSE (vorn_product_set_flavor (product_, 0));
  EXPECT_TRUE (criticals.has_assertion ("vorn_view_is_streaming (target_view) == FALSE"));
  EXPECT_TRUE (vorn_view_is_streaming (view_));
}

TEST_F (FrontViewPattern, DeactivationEndsRecordingAndStream)
{
  start ("");
  ASSERT_TRUE (stream ());
  ASSERT_TRUE (vorn_view_start_recording (view_));
  wait_for_event (VORN_RECORD_EVENT_STARTED);
  ASSERT_TRUE (wait_for_recording (2));
  EXPECT_TRUE (vorn_virtual_camera_set_activation_state (camera_, FALSE));
  EXPECT_FALSE (vorn_view_is_recording (view_));
  EXPECT_FALSE (vorn_view_is_streaming (view_));
  EXPECT_EQ (probe (wait_for_event (VORN_RECORD_EVENT_STOPPED).filename).errors, "");
}

TEST_F (FrontViewPattern, ViewThatCannotBeMadeIsLeftOut)
{
  vorn_property_set ("ro.with-front-cam", "1");
  Configuration configuration ({front_camera}); // without an element
  EXPECT_FALSE (vorn_product_setup (product_, configuration.get ()));
  vorn_property_set ("ro.with-front-cam", nullptr);
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING), Texts{"failed to make front view"});
  EXPECT_EQ (
      log_.texts (VORN_LOG_PRIORITY_ERROR),
      (Texts{"failed to get camera video source", "failed to populate front streaming pipeline"}));
  EXPECT_EQ (vorn_product_get_virtual_cameras (product_), nullptr);
  EXPECT_EQ (vorn_product_get_active_cameras (product_), 1u);
  EXPECT_TRUE (vorn_product_is_flavor_supported (product_, 0));
  EXPECT_FALSE (
      vorn::adopt (vorn_product_get_pipeline_by_name (product_, "front-streaming-pipeline")));
  EXPECT_EQ (configuration.camera_references (), 3u); // ours and the two kept on purpose
}

} // namespace
