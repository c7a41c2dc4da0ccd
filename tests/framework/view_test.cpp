// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/view.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.hpp"
#include "test_view.hpp"
#include "test_virtual_camera.hpp"
#include <vorn/raii.hpp>

namespace
{

using Calls = std::vector<std::string>;

const VornFormat good_format = {{1280, 720}, {30, 1}, 0};

class View : public testing::Test
{
protected:
  void SetUp () override
  {
    owned_ = vorn::adopt (test_view_new ("front"));
    view_ = owned_.get ();
    g_signal_connect_swapped (view_, "state-changed", G_CALLBACK (+[] (int *count) { (*count)++; }),
                              &state_changes_);
  }

  /** Prepared, with these features. */
  void prepare (guint32 features = VORN_VIEW_FEATURE_STREAMING | VORN_VIEW_FEATURE_RECORDING |
                                   VORN_VIEW_FEATURE_SNAPSHOT)
  {
    ASSERT_TRUE (vorn_view_prepare (view_));
    set_features (features);
    record ().calls.clear ();
    log_.clear ();
  }
  void set_features (guint32 features)
  {
    const VornViewCapabilities capabilities = {.feature_mask = features};
    vorn_view_set_capabilities (view_, &capabilities);
  }
  void expect_refusal (const std::string &what, const std::string &reason)
  {
    EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING),
               Calls{"view 'front': " + what + " refused: " + reason});
    EXPECT_TRUE (record ().calls.empty ());
    log_.clear ();
  }

  TestViewRecord &record () { return test_view_record (view_); }

  LogCapture log_;
  vorn::Ref<VornView> owned_;
  VornView *view_ = nullptr;
  int state_changes_ = 0;
};

/** Every operation that a view must be prepared for, what it is called in refusals, what it needs.
 */
struct Operation {
  const char *name;
  const char *what;
  guint32 feature;
  gboolean (*call) (VornView *view);
};

const std::vector<Operation> operations = {
    {"stream_setup", "stream", VORN_VIEW_FEATURE_STREAMING,
     [] (VornView *view) {
       VornStreamSetup setup = {};
       return vorn_view_stream_setup (view, &setup);
     }},
    {"stream_set_params", "stream parameters", VORN_VIEW_FEATURE_STREAMING,
     [] (VornView *view) {
       const VornStreamParameters parameters = {.bitrate = 5};
       return vorn_view_stream_set_params (view, &parameters);
     }},
    {"start_recording", "recording", VORN_VIEW_FEATURE_RECORDING,
     [] (VornView *view) { return vorn_view_start_recording (view); }},
    {"take_snapshot", "snapshot", VORN_VIEW_FEATURE_SNAPSHOT,
     [] (VornView *view) {
       const VornSnapshotRequest request = {};
       return vorn_view_take_snapshot (view, &request);
     }},
    {"make_thumbnail", "thumbnail", VORN_VIEW_FEATURE_RECORDING,
     [] (VornView *view) { return vorn_view_make_thumbnail (view); }},
    {"set_streaming_format", "streaming format", VORN_VIEW_FEATURE_STREAMING,
     [] (VornView *view) { return vorn_view_set_streaming_format (view, &good_format); }},
    {"set_recording_format", "recording format", VORN_VIEW_FEATURE_RECORDING,
     [] (VornView *view) { return vorn_view_set_recording_format (view, &good_format); }},
    {"set_snapshot_format", "snapshot format", VORN_VIEW_FEATURE_SNAPSHOT,
     [] (VornView *view) { return vorn_view_set_snapshot_format (view, 0, 0, 0, 1); }},
    {"set_camera_orientation", "camera orientation", 0,
     [] (VornView *view) {
       const VornOrientation orientation = {1.0f, 0.0f, 0.0f, 0.0f};
       return vorn_view_set_camera_orientation (view, &orientation);
     }},
    {"update_camera_mode", "camera mode", 0,
     [] (VornView *view) {
       const auto mode = recording_mode (1280, 720, 30, 1);
       return vorn_view_update_camera_mode (view, &mode);
     }},
    {"set_activation", "activation", 0,
     [] (VornView *view) { return vorn_view_set_activation (view, TRUE); }},
};

TEST_F (View, NamesAreItsProperties)
{
  EXPECT_STREQ (vorn_view_get_name (view_), "front");
  EXPECT_STREQ (vorn_view_get_display_name (view_), "Test view");
  gchar *name = nullptr;
  gchar *display_name = nullptr;
  g_object_get (view_, "name", &name, "display-name", &display_name, nullptr);
  const vorn::OwnedString owned_name (name);
  const vorn::OwnedString owned_display_name (display_name);
  EXPECT_STREQ (name, "front");
  EXPECT_STREQ (display_name, "Test view");
  const auto nameless = vorn::adopt (VORN_VIEW (g_object_new (TEST_TYPE_VIEW, nullptr)));
  EXPECT_STREQ (vorn_view_get_name (nameless.get ()), "");
}

TEST_F (View, KeepsItsCameras)
{
  const VornCameraParameters parameters = {.name = "camera"};
  const auto first = vorn::adopt (vorn_camera_new (&parameters));
  const auto second = vorn::adopt (vorn_camera_new (&parameters));
  EXPECT_EQ (vorn_view_get_cameras (view_), nullptr);
  EXPECT_TRUE (vorn_view_add_camera (view_, first.get ()));
  EXPECT_TRUE (vorn_view_add_camera (view_, second.get ()));
  EXPECT_EQ (G_OBJECT (first.get ())->ref_count, 2u);
  const GList *cameras = vorn_view_get_cameras (view_);
  EXPECT_EQ (cameras->data, first.get ());
  EXPECT_EQ (cameras->next->data, second.get ());
  owned_.reset ();
  EXPECT_EQ (G_OBJECT (first.get ())->ref_count, 1u);
}

// ---- Prepared or not

TEST_F (View, IsPreparedOnce)
{
  EXPECT_FALSE (vorn_view_is_prepared (view_));
  EXPECT_TRUE (vorn_view_prepare (view_));
  EXPECT_TRUE (vorn_view_is_prepared (view_));
  EXPECT_TRUE (vorn_view_prepare (view_));
  EXPECT_EQ (record ().calls, Calls{"prepare"});
  EXPECT_TRUE (vorn_view_unprepare (view_));
  EXPECT_FALSE (vorn_view_is_prepared (view_));
  EXPECT_TRUE (vorn_view_unprepare (view_));
  EXPECT_EQ (record ().calls, (Calls{"prepare", "unprepare"}));
}

TEST_F (View, FailedPrepareLeavesItUnprepared)
{
  record ().failing = {"prepare"};
  EXPECT_FALSE (vorn_view_prepare (view_));
  EXPECT_FALSE (vorn_view_is_prepared (view_));
  EXPECT_TRUE (vorn_view_unprepare (view_));
  EXPECT_EQ (record ().calls, Calls{"prepare"});
}

TEST_F (View, FailedUnprepareIsReported)
{
  prepare ();
  record ().failing = {"unprepare"};
  EXPECT_FALSE (vorn_view_unprepare (view_));
  EXPECT_FALSE (vorn_view_is_prepared (view_));
}

TEST_F (View, UnprepareEndsRecordingAndStreamFirst)
{
  prepare ();
  VornStreamSetup setup = {};
  ASSERT_TRUE (vorn_view_stream_setup (view_, &setup));
  ASSERT_TRUE (vorn_view_start_recording (view_));
  record ().calls.clear ();
  EXPECT_TRUE (vorn_view_unprepare (view_));
  EXPECT_EQ (record ().calls, (Calls{"stop_recording", "stream_teardown", "unprepare"}));
  EXPECT_FALSE (vorn_view_is_recording (view_));
  EXPECT_FALSE (vorn_view_is_streaming (view_));
}

TEST_F (View, UnpreparedViewIsIdleWhateverFailed)
{
  const auto camera = vorn::adopt (test_virtual_camera_new ("camera"));
  ASSERT_TRUE (vorn_virtual_camera_add_view (camera.get (), vorn::share (view_).release ()));
  prepare ();
  VornStreamSetup setup = {};
  const VornSnapshotRequest request = {};
  ASSERT_TRUE (vorn_view_stream_setup (view_, &setup));
  ASSERT_TRUE (vorn_view_take_snapshot (view_, &request));
  vorn_view_notify_snapshot_event (view_, VORN_SNAPSHOT_EVENT_DONE, nullptr, nullptr);
  ASSERT_TRUE (vorn_view_start_recording (view_));
  record ().failing = {"stop_recording", "stream_teardown"};
  EXPECT_TRUE (vorn_view_unprepare (view_));
  EXPECT_FALSE (vorn_view_is_recording (view_));
  EXPECT_FALSE (vorn_view_is_streaming (view_));
  EXPECT_FALSE (vorn_view_is_taking_picture (view_));
  // Else the camera could never change its mode again.
  const auto mode = recording_mode (1280, 720, 30, 1);
  EXPECT_TRUE (vorn_virtual_camera_set_mode (camera.get (), &mode));
}

TEST_F (View, UnprepareEndsASnapshot)
{
  prepare ();
  const VornSnapshotRequest request = {};
  ASSERT_TRUE (vorn_view_take_snapshot (view_, &request));
  EXPECT_TRUE (vorn_view_unprepare (view_));
  EXPECT_FALSE (vorn_view_is_taking_picture (view_));
}

// ---- Operations

TEST_F (View, OperationsCallTheClassAndGiveItsResult)
{
  for (const auto &operation : operations) {
    SCOPED_TRACE (operation.name);
    SetUp ();
    prepare ();
    EXPECT_TRUE (operation.call (view_));
    ASSERT_FALSE (record ().calls.empty ());
    EXPECT_EQ (record ().calls.front (), operation.name);
    EXPECT_EQ (record ().count (operation.name), 1);
    SetUp ();
    prepare ();
    record ().failing = {operation.name};
    EXPECT_FALSE (operation.call (view_));
    EXPECT_FALSE (vorn_view_is_streaming (view_));
    EXPECT_FALSE (vorn_view_is_recording (view_));
    EXPECT_FALSE (vorn_view_is_taking_picture (view_));
  }
}

TEST_F (View, OperationsNeedAPreparedView)
{
  set_features (7);
  for (const auto &operation : operations) {
    SCOPED_TRACE (operation.name);
    EXPECT_FALSE (operation.call (view_));
    expect_refusal (operation.what, "the view is not prepared");
  }
  EXPECT_EQ (state_changes_, 0);
}

TEST_F (View, OperationsNeedTheirFeature)
{
  for (const auto &operation : operations) {
    SCOPED_TRACE (operation.name);
    SetUp ();
    prepare (7u & ~operation.feature);
    const bool allowed = operation.feature == 0;
    EXPECT_EQ (operation.call (view_) != FALSE, allowed);
    if (!allowed)
      expect_refusal (operation.what, "the camera mode lacks the feature");
  }
}

G_DECLARE_FINAL_TYPE (BareView, bare_view, BARE, VIEW, VornView)
struct _BareView {
  VornView parent_instance;
};
G_DEFINE_TYPE (BareView, bare_view, VORN_TYPE_VIEW)
void bare_view_class_init (BareViewClass *) {}
void bare_view_init (BareView *) {}

TEST_F (View, MissingOperationsAreRefused)
{
  const auto bare =
      vorn::adopt (VORN_VIEW (g_object_new (bare_view_get_type (), "name", "bare", nullptr)));
  ASSERT_TRUE (vorn_view_prepare (bare.get ()));
  const VornViewCapabilities all = {.feature_mask = 7};
  vorn_view_set_capabilities (bare.get (), &all);
  for (const auto &operation : operations) {
    SCOPED_TRACE (operation.name);
    log_.clear ();
    // A view that does nothing about activation is fine with it.
    const bool allowed = std::string (operation.name) == "set_activation";
    EXPECT_EQ (operation.call (bare.get ()) != FALSE, allowed);
    EXPECT_EQ (log_.count (std::string ("view 'bare': ") + operation.what +
                               " refused: the view cannot do it",
                           VORN_LOG_PRIORITY_WARNING),
               allowed ? 0 : 1);
  }
  EXPECT_TRUE (vorn_view_unprepare (bare.get ()));
}

TEST_F (View, FormatsWithAZeroWordAreRefused)
{
  prepare ();
  for (const VornFormat &format :
       {VornFormat{{0, 720}, {30, 1}, 0}, VornFormat{{1280, 0}, {30, 1}, 0},
        VornFormat{{1280, 720}, {0, 1}, 0}, VornFormat{{1280, 720}, {30, 0}, 0}, VornFormat{}}) {
    EXPECT_FALSE (vorn_view_set_streaming_format (view_, &format));
    expect_refusal ("streaming format", "a size or framerate of zero");
    EXPECT_FALSE (vorn_view_set_recording_format (view_, &format));
    expect_refusal ("recording format", "a size or framerate of zero");
  }
}

// ---- States

TEST_F (View, StreamingFromSetupToTeardown)
{
  prepare ();
  VornStreamSetup setup = {};
  EXPECT_FALSE (vorn_view_is_streaming (view_));
  EXPECT_TRUE (vorn_view_stream_setup (view_, &setup));
  EXPECT_EQ (setup.live, 1u);
  EXPECT_TRUE (vorn_view_is_streaming (view_));
  EXPECT_EQ (state_changes_, 1);
  EXPECT_TRUE (vorn_view_stream_teardown (view_, "enough"));
  EXPECT_EQ (record ().text, "enough");
  EXPECT_FALSE (vorn_view_is_streaming (view_));
  EXPECT_EQ (state_changes_, 2);
  // Ending what is idle is fine, and asks nobody.
  EXPECT_TRUE (vorn_view_stream_teardown (view_, "again"));
  EXPECT_EQ (record ().count ("stream_teardown"), 1);
  EXPECT_EQ (state_changes_, 2);
}

TEST_F (View, FailedTeardownKeepsStreaming)
{
  prepare ();
  VornStreamSetup setup = {};
  ASSERT_TRUE (vorn_view_stream_setup (view_, &setup));
  record ().failing = {"stream_teardown"};
  EXPECT_FALSE (vorn_view_stream_teardown (view_, "enough"));
  EXPECT_TRUE (vorn_view_is_streaming (view_));
}

TEST_F (View, RecordingFromStartToStop)
{
  prepare ();
  EXPECT_TRUE (vorn_view_stop_recording (view_, 1)); // idle already
  EXPECT_TRUE (vorn_view_start_recording (view_));
  EXPECT_TRUE (vorn_view_is_recording (view_));
  record ().failing = {"stop_recording"};
  EXPECT_FALSE (vorn_view_stop_recording (view_, 1));
  EXPECT_TRUE (vorn_view_is_recording (view_));
  record ().failing.clear ();
  EXPECT_TRUE (vorn_view_stop_recording (view_, 2));
  EXPECT_EQ (record ().number, 2u);
  EXPECT_FALSE (vorn_view_is_recording (view_));
  EXPECT_EQ (record ().calls, (Calls{"start_recording", "stop_recording", "stop_recording"}));
  EXPECT_EQ (state_changes_, 2);
}

TEST_F (View, RecordingEndsWithItsEvents)
{
  for (const guint32 event : {VORN_RECORD_EVENT_STOPPED, VORN_RECORD_EVENT_FAILED}) {
    SetUp ();
    prepare ();
    ASSERT_TRUE (vorn_view_start_recording (view_));
    vorn_view_notify_record_event (view_, VORN_RECORD_EVENT_STARTED, nullptr, nullptr, 0, 0);
    vorn_view_notify_record_event (view_, VORN_RECORD_EVENT_PREPARED, nullptr, nullptr, 0, 0);
    EXPECT_TRUE (vorn_view_is_recording (view_));
    vorn_view_notify_record_event (view_, event, nullptr, nullptr, 0, 0);
    EXPECT_FALSE (vorn_view_is_recording (view_));
  }
}

TEST_F (View, RecordingRefusesAllThatWouldChangeIt)
{
  prepare ();
  ASSERT_TRUE (vorn_view_start_recording (view_));
  record ().calls.clear ();
  const std::string reason = "a recording runs";
  const std::string refused[] = {"recording", "streaming format", "recording format",
                                 "snapshot format", "camera mode"};
  for (const auto &operation : operations)
    if (std::find (std::begin (refused), std::end (refused), operation.what) !=
        std::end (refused)) {
      SCOPED_TRACE (operation.name);
      EXPECT_FALSE (operation.call (view_));
      expect_refusal (operation.what, reason);
    }
  EXPECT_TRUE (vorn_view_is_recording (view_));
}

TEST_F (View, SnapshotRefusesAllThatWouldChangeIt)
{
  prepare ();
  const VornSnapshotRequest request = {};
  ASSERT_TRUE (vorn_view_take_snapshot (view_, &request));
  record ().calls.clear ();
  const std::string refused[] = {"recording", "streaming format", "recording format",
                                 "snapshot format", "camera mode"};
  for (const auto &operation : operations)
    if (std::find (std::begin (refused), std::end (refused), operation.what) !=
        std::end (refused)) {
      SCOPED_TRACE (operation.name);
      EXPECT_FALSE (operation.call (view_));
      expect_refusal (operation.what, "a picture is being taken");
    }
  EXPECT_FALSE (vorn_view_take_snapshot (view_, &request));
  expect_refusal ("snapshot", "the former one has not ended");
  EXPECT_TRUE (vorn_view_is_taking_picture (view_));
}

TEST_F (View, SnapshotLastsUntilItsEnd)
{
  prepare ();
  const VornSnapshotRequest request = {.photo_grouping = VORN_PHOTO_GROUPING_BURST};
  for (const guint32 end : {VORN_SNAPSHOT_EVENT_DONE, VORN_SNAPSHOT_EVENT_FAILED}) {
    ASSERT_TRUE (vorn_view_take_snapshot (view_, &request));
    EXPECT_EQ (record ().number, 2u);
    vorn_view_notify_snapshot_event (view_, VORN_SNAPSHOT_EVENT_STARTED, nullptr, nullptr);
    vorn_view_notify_snapshot_event (view_, VORN_SNAPSHOT_EVENT_TAKEN, nullptr, nullptr);
    EXPECT_TRUE (vorn_view_is_taking_picture (view_));
    vorn_view_notify_snapshot_event (view_, end, nullptr, nullptr);
    EXPECT_FALSE (vorn_view_is_taking_picture (view_));
  }
}

TEST_F (View, SnapshotMayEndWithinItsCall)
{
  prepare ();
  record ().end_within_snapshot = true;
  const VornSnapshotRequest request = {};
  EXPECT_TRUE (vorn_view_take_snapshot (view_, &request));
  EXPECT_FALSE (vorn_view_is_taking_picture (view_));
}

// ---- Events and capabilities

struct SeenEvent {
  guint event = 99;
  Calls files;
  std::string error;
};

void on_record_event (VornView *, guint event, const gchar *file, const GError *error,
                      gpointer data)
{
  *static_cast<SeenEvent *> (data) = {event, {file ? file : ""}, error ? error->message : ""};
}

void on_snapshot_event (VornView *, guint event, gchar **files, const GError *error, gpointer data)
{
  SeenEvent seen = {event, {}, error ? error->message : ""};
  for (gchar **file = files; file && *file; file++)
    seen.files.emplace_back (*file);
  *static_cast<SeenEvent *> (data) = seen;
}

TEST_F (View, RecordEventsCarryWhatWasReported)
{
  SeenEvent seen;
  g_signal_connect (view_, "record-event", G_CALLBACK (on_record_event), &seen);
  const vorn::OwnedError error (
      g_error_new_literal (g_quark_from_static_string ("test"), 1, "full"));
  vorn_view_notify_record_event (view_, VORN_RECORD_EVENT_FAILED, "a.mp4", error.get (), 7, 8);
  EXPECT_EQ (seen.event, 3u);
  EXPECT_EQ (seen.files, Calls{"a.mp4"});
  EXPECT_EQ (seen.error, "full");
  vorn_view_notify_record_event (view_, VORN_RECORD_EVENT_STARTED, nullptr, nullptr, 0, 0);
  EXPECT_EQ (seen.event, 0u);
  EXPECT_EQ (seen.files, Calls{""});
  EXPECT_EQ (seen.error, "");
}

TEST_F (View, SnapshotEventsCarryWhatWasReported)
{
  SeenEvent seen;
  g_signal_connect (view_, "snapshot-event", G_CALLBACK (on_snapshot_event), &seen);
  const gchar *files[] = {"1.jpg", "2.jpg", nullptr};
  vorn_view_notify_snapshot_event (view_, VORN_SNAPSHOT_EVENT_TAKEN, const_cast<gchar **> (files),
                                   nullptr);
  EXPECT_EQ (seen.event, 0u);
  EXPECT_EQ (seen.files, (Calls{"1.jpg", "2.jpg"}));
  const vorn::OwnedError error (
      g_error_new_literal (g_quark_from_static_string ("test"), 1, "dark"));
  vorn_view_notify_snapshot_event (view_, VORN_SNAPSHOT_EVENT_FAILED, nullptr, error.get ());
  EXPECT_EQ (seen.event, 2u);
  EXPECT_TRUE (seen.files.empty ());
  EXPECT_EQ (seen.error, "dark");
}

TEST_F (View, FeaturesAreCheckedTogether)
{
  EXPECT_EQ (vorn_view_get_capabilities (view_)->feature_mask, 0u);
  EXPECT_FALSE (vorn_view_check_feature (view_, 1));
  EXPECT_TRUE (vorn_view_check_feature (view_, 0));
  set_features (51);
  EXPECT_EQ (vorn_view_get_capabilities (view_)->feature_mask, 51u);
  EXPECT_TRUE (vorn_view_check_feature (view_, VORN_VIEW_FEATURE_STREAMING));
  EXPECT_TRUE (vorn_view_check_feature (view_, VORN_VIEW_FEATURE_RECORDING));
  EXPECT_FALSE (vorn_view_check_feature (view_, VORN_VIEW_FEATURE_SNAPSHOT));
  EXPECT_TRUE (vorn_view_check_feature (view_, 3));
  EXPECT_FALSE (vorn_view_check_feature (view_, 5));
}

TEST_F (View, NoViewIsACriticalAndFalse)
{
  CriticalCapture criticals;
  size_t expected = 0;
  for (const auto &operation : operations) {
    EXPECT_FALSE (operation.call (nullptr));
    expected++;
  }
  for (const auto predicate :
       {vorn_view_is_prepared, vorn_view_is_taking_picture, vorn_view_is_recording,
        vorn_view_is_streaming, vorn_view_prepare, vorn_view_unprepare}) {
    EXPECT_FALSE (predicate (nullptr));
    expected++;
  }
  EXPECT_FALSE (vorn_view_stop_recording (nullptr, 0));
  EXPECT_FALSE (vorn_view_stream_teardown (nullptr, nullptr));
  EXPECT_FALSE (vorn_view_check_feature (nullptr, 1));
  EXPECT_FALSE (vorn_view_add_camera (nullptr, nullptr));
  EXPECT_EQ (vorn_view_get_name (nullptr), nullptr);
  EXPECT_EQ (vorn_view_get_display_name (nullptr), nullptr);
  EXPECT_EQ (vorn_view_get_parent (nullptr), nullptr);
  EXPECT_EQ (vorn_view_get_cameras (nullptr), nullptr);
  EXPECT_EQ (vorn_view_get_capabilities (nullptr), nullptr);
  vorn_view_set_capabilities (nullptr, nullptr);
  vorn_view_notify_record_event (nullptr, 0, nullptr, nullptr, 0, 0);
  vorn_view_notify_snapshot_event (nullptr, 0, nullptr, nullptr);
  expected += 12;
  const auto all = criticals.criticals ();
  EXPECT_EQ (all.size (), expected);
  for (const auto &critical : all)
    EXPECT_NE (critical.text.find ("assertion 'VORN_IS_VIEW (view)' failed"), std::string::npos)
        << critical.text;
}

TEST_F (View, NoArgumentIsACriticalAndFalse)
{
  prepare ();
  CriticalCapture criticals;
  EXPECT_FALSE (vorn_view_stream_setup (view_, nullptr));
  EXPECT_FALSE (vorn_view_stream_set_params (view_, nullptr));
  EXPECT_FALSE (vorn_view_take_snapshot (view_, nullptr));
  EXPECT_FALSE (vorn_view_set_streaming_format (view_, nullptr));
  EXPECT_FALSE (vorn_view_set_recording_format (view_, nullptr));
  EXPECT_FALSE (vorn_view_set_camera_orientation (view_, nullptr));
  EXPECT_FALSE (vorn_view_update_camera_mode (view_, nullptr));
  EXPECT_FALSE (vorn_view_add_camera (view_, nullptr));
  vorn_view_set_capabilities (view_, nullptr);
  EXPECT_EQ (criticals.criticals ().size (), 9u);
  EXPECT_TRUE (record ().calls.empty ());
}

TEST_F (View, PredicatesAreAskedFromOtherThreads)
{
  std::atomic<bool> stop = false;
  std::atomic<int> asked = 0;
  std::thread asking ([&] {
    int all = 0;
    while (!stop || asked == 0) {
      all += vorn_view_is_prepared (view_) + vorn_view_is_streaming (view_) +
             vorn_view_is_recording (view_) + vorn_view_is_taking_picture (view_);
      asked++;
    }
    EXPECT_GE (all, 0);
  });
  for (int i = 0; i < 100; i++) {
    ASSERT_TRUE (vorn_view_prepare (view_));
    set_features (7);
    VornStreamSetup setup = {};
    const VornSnapshotRequest request = {};
    EXPECT_TRUE (vorn_view_stream_setup (view_, &setup));
    EXPECT_TRUE (vorn_view_start_recording (view_));
    EXPECT_TRUE (vorn_view_stop_recording (view_, 0));
    EXPECT_TRUE (vorn_view_take_snapshot (view_, &request));
    EXPECT_TRUE (vorn_view_unprepare (view_));
  }
  stop = true;
  asking.join ();
}

TEST_F (View, AModeBringsItsOwnSettings)
{
  TestViewRecord &record = test_view_record (view_);
  ASSERT_TRUE (vorn_view_prepare (view_));
  const auto recording = recording_mode (1280, 720, 30, 1);
  const auto photo = photo_mode (0, 1, 2, 3);
  const struct {
    const VornCameraMode &mode;
    guint32 features;
    std::set<std::string> failing;
    std::vector<std::string> calls;
    bool result;
  } rows[] = {
      {recording, 7, {}, {"update_camera_mode", "set_recording_format"}, true},
      {recording, VORN_VIEW_FEATURE_STREAMING, {}, {"update_camera_mode"}, true},
      {photo, 7, {}, {"update_camera_mode", "set_snapshot_format"}, true},
      {photo, VORN_VIEW_FEATURE_RECORDING, {}, {"update_camera_mode"}, true},
      {recording, 7, {"update_camera_mode"}, {"update_camera_mode"}, false},
      // The mode is in force; the view has said why it does not record that way.
      {recording,
       7,
       {"set_recording_format"},
       {"update_camera_mode", "set_recording_format"},
       true},
  };
  for (const auto &row : rows) {
    record.calls.clear ();
    record.features = row.features;
    record.failing = row.failing;
    EXPECT_EQ (vorn_view_update_camera_mode (view_, &row.mode), row.result);
    EXPECT_EQ (record.calls, row.calls);
  }
  EXPECT_EQ (record.number, 3u) << "the photo count";
  EXPECT_TRUE (log_.texts (VORN_LOG_PRIORITY_WARNING).empty ());
}

} // namespace
