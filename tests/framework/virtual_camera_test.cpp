// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/virtual_camera.h>

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.hpp"
#include "test_view.hpp"
#include "test_virtual_camera.hpp"
#include <vorn/raii.hpp>

namespace
{

guint references (gpointer object)
{
  return G_OBJECT (object)->ref_count;
}

const VornCameraMode good_mode = recording_mode (1280, 720, 30, 1);
const VornCameraMode other_mode = recording_mode (1920, 1080, 25, 1);

class VirtualCamera : public testing::Test
{
protected:
  void SetUp () override
  {
    owned_ = vorn::adopt (test_virtual_camera_new ("camera"));
    camera_ = owned_.get ();
    g_signal_connect_swapped (camera_, "mode-changed",
                              G_CALLBACK (+[] (int *count) { (*count)++; }), &mode_changes_);
  }

  /** A view that the camera owns; borrowed. */
  VornView *add_view (const char *name)
  {
    VornView *view = test_view_new (name);
    EXPECT_TRUE (vorn_virtual_camera_add_view (camera_, view));
    return view;
  }

  TestVirtualCameraRecord &record () { return test_virtual_camera_record (camera_); }

  LogCapture log_;
  vorn::Ref<VornVirtualCamera> owned_;
  VornVirtualCamera *camera_ = nullptr;
  int mode_changes_ = 0;
};

// ---- Views

TEST_F (VirtualCamera, TakesViewsOver)
{
  EXPECT_EQ (vorn_virtual_camera_get_first_view (camera_), nullptr);
  EXPECT_EQ (vorn_virtual_camera_get_views (camera_), nullptr);
  const auto first = vorn::adopt (test_view_new ("first"));
  EXPECT_TRUE (vorn_virtual_camera_add_view (camera_, vorn::share (first.get ()).release ()));
  EXPECT_EQ (references (first.get ()), 2u);
  VornView *second = add_view ("second");
  EXPECT_EQ (references (second), 1u);

  EXPECT_EQ (vorn_virtual_camera_get_first_view (camera_), first.get ());
  EXPECT_EQ (vorn_virtual_camera_get_view_by_name (camera_, "first"), first.get ());
  EXPECT_EQ (vorn_virtual_camera_get_view_by_name (camera_, "second"), second);
  EXPECT_EQ (vorn_virtual_camera_get_view_by_name (camera_, "third"), nullptr);
  EXPECT_EQ (vorn_virtual_camera_get_view_by_name (camera_, nullptr), nullptr);
  const GList *views = vorn_virtual_camera_get_views (camera_);
  ASSERT_EQ (g_list_length (const_cast<GList *> (views)), 2u);
  EXPECT_EQ (views->data, first.get ());
  EXPECT_EQ (views->next->data, second);
  EXPECT_EQ (vorn_view_get_parent (first.get ()), camera_);

  owned_.reset ();
  EXPECT_EQ (references (first.get ()), 1u);
  EXPECT_EQ (vorn_view_get_parent (first.get ()), nullptr);
}

TEST_F (VirtualCamera, RefusesANameTwiceAndDropsTheReference)
{
  VornView *first = add_view ("same");
  const auto second = vorn::adopt (test_view_new ("same"));
  EXPECT_FALSE (vorn_virtual_camera_add_view (camera_, vorn::share (second.get ()).release ()));
  EXPECT_EQ (references (second.get ()), 1u);
  EXPECT_EQ (vorn_virtual_camera_get_view_by_name (camera_, "same"), first);
  EXPECT_EQ (vorn_view_get_parent (second.get ()), nullptr);
  EXPECT_TRUE (log_.has ("virtual camera 'camera': view 'same' refused: it has a virtual camera, "
                         "or its name is taken",
                         VORN_LOG_PRIORITY_ERROR));
}

TEST_F (VirtualCamera, RefusesAViewOfAnotherCamera)
{
  const auto other = vorn::adopt (test_virtual_camera_new ("other"));
  VornView *view = add_view ("view");
  EXPECT_FALSE (vorn_virtual_camera_add_view (other.get (), vorn::share (view).release ()));
  EXPECT_EQ (references (view), 1u);
  EXPECT_EQ (vorn_view_get_parent (view), camera_);
  EXPECT_EQ (vorn_virtual_camera_get_first_view (other.get ()), nullptr);
}

TEST_F (VirtualCamera, UnpreparesItsViewsWhenItGoes)
{
  const auto view = vorn::adopt (test_view_new ("view"));
  vorn_virtual_camera_add_view (camera_, vorn::share (view.get ()).release ());
  ASSERT_TRUE (vorn_view_prepare (view.get ()));
  owned_.reset ();
  EXPECT_FALSE (vorn_view_is_prepared (view.get ()));
  EXPECT_EQ (test_view_record (view.get ()).count ("unprepare"), 1);
}

// ---- Modes

TEST_F (VirtualCamera, HasNoModeAtFirst)
{
  EXPECT_FALSE (vorn_virtual_camera_has_mode (camera_));
  const VornCameraMode *mode = vorn_virtual_camera_get_mode (camera_);
  ASSERT_NE (mode, nullptr);
  EXPECT_EQ (mode->recording.resolution.width, 0u);
  EXPECT_EQ (mode->recording.framerate.num, 0u);
}

TEST_F (VirtualCamera, AppliesAModeOfItsTables)
{
  EXPECT_TRUE (vorn_virtual_camera_set_mode (camera_, &good_mode));
  EXPECT_TRUE (vorn_virtual_camera_has_mode (camera_));
  EXPECT_EQ (vorn_virtual_camera_get_mode (camera_)->recording.resolution.width, 1280u);
  EXPECT_EQ (record ().count ("set_mode"), 1);
  EXPECT_EQ (mode_changes_, 1);
  const auto photo = photo_mode (0, 0, 0);
  EXPECT_TRUE (vorn_virtual_camera_set_mode (camera_, &photo));
  EXPECT_EQ (vorn_virtual_camera_get_mode (camera_)->type, 1u);
  EXPECT_EQ (mode_changes_, 2);
  // Its own mode once more, as a flavour switch does it.
  EXPECT_TRUE (vorn_virtual_camera_set_mode (camera_, vorn_virtual_camera_get_mode (camera_)));
  EXPECT_EQ (mode_changes_, 3);
}

TEST_F (VirtualCamera, RefusesModesWithAReason)
{
  auto typeless = good_mode;
  typeless.type = 2;
  const struct {
    VornCameraMode mode;
    const char *message;
  } rows[] = {
      {recording_mode (1280, 720, 0, 1), "recording mode refused: a framerate of zero"},
      {recording_mode (1280, 720, 30, 0), "recording mode refused: a framerate of zero"},
      {recording_mode (0, 0, 0, 0), "recording mode refused: a framerate of zero"},
      {recording_mode (640, 480, 30, 1),
       "recording mode refused: it is not in the camera's tables"},
      {recording_mode (1280, 720, 60, 1),
       "recording mode refused: it is not in the camera's tables"},
      {recording_mode (1280, 720, 30, 1, 1),
       "recording mode refused: it is not in the camera's tables"},
      {photo_mode (0, 0, 0, 0), "photo mode refused: a photo count of zero"},
      {photo_mode (1, 0, 0), "photo mode refused: it is not in the camera's tables"},
      {photo_mode (0, 1, 0), "photo mode refused: it is not in the camera's tables"},
      {photo_mode (0, 0, 2), "photo mode refused: it is not in the camera's tables"},
      {typeless, "unknown mode refused: no such type"},
  };
  VornView *view = add_view ("view");
  ASSERT_TRUE (vorn_view_prepare (view));
  ASSERT_TRUE (vorn_virtual_camera_set_mode (camera_, &other_mode));
  for (const auto &row : rows) {
    SCOPED_TRACE (row.message);
    log_.clear ();
    EXPECT_FALSE (vorn_virtual_camera_set_mode (camera_, &row.mode));
    EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING),
               std::vector<std::string>{std::string ("virtual camera 'camera': ") + row.message});
    // The former mode stays, and nobody was told.
    EXPECT_EQ (vorn_virtual_camera_get_mode (camera_)->recording.resolution.width, 1920u);
    EXPECT_TRUE (vorn_virtual_camera_get_hdr_availability (camera_));
  }
  EXPECT_EQ (record ().count ("set_mode"), 1);
  EXPECT_EQ (test_view_record (view).count ("update_camera_mode"), 1);
  EXPECT_EQ (mode_changes_, 1);
}

TEST_F (VirtualCamera, WithoutTablesHasNoModes)
{
  record ().recording.clear ();
  record ().photo.clear ();
  const auto photo = photo_mode (0, 0, 0);
  EXPECT_FALSE (vorn_virtual_camera_set_mode (camera_, &good_mode));
  EXPECT_FALSE (vorn_virtual_camera_set_mode (camera_, &photo));
  EXPECT_FALSE (vorn_virtual_camera_has_mode (camera_));
}

TEST_F (VirtualCamera, KeepsItsModeWhenTheProductRefuses)
{
  const auto photo = photo_mode (0, 0, 0);
  ASSERT_TRUE (vorn_virtual_camera_set_mode (camera_, &photo));
  ASSERT_FALSE (vorn_virtual_camera_get_hdr_availability (camera_));
  record ().failing = {"set_mode"};
  EXPECT_FALSE (vorn_virtual_camera_set_mode (camera_, &good_mode));
  EXPECT_EQ (vorn_virtual_camera_get_mode (camera_)->type, 1u);
  EXPECT_FALSE (vorn_virtual_camera_get_hdr_availability (camera_));
  EXPECT_EQ (mode_changes_, 1);
}

TEST_F (VirtualCamera, ForwardsModesToPreparedViewsOnly)
{
  VornView *prepared = add_view ("prepared");
  VornView *waiting = add_view ("waiting");
  ASSERT_TRUE (vorn_view_prepare (prepared));
  // Without a mode there is nothing to apply yet.
  EXPECT_EQ (test_view_record (prepared).count ("update_camera_mode"), 0);
  EXPECT_TRUE (vorn_virtual_camera_set_mode (camera_, &good_mode));
  EXPECT_EQ (test_view_record (prepared).count ("update_camera_mode"), 1);
  EXPECT_EQ (test_view_record (prepared).mode.recording.resolution.width, 1280u);
  EXPECT_EQ (test_view_record (waiting).calls.size (), 0u);

  // Preparing applies the stored mode, once.
  ASSERT_TRUE (vorn_view_prepare (waiting));
  EXPECT_EQ (test_view_record (waiting).calls,
             (std::vector<std::string>{"prepare", "update_camera_mode", "set_recording_format"}));
  EXPECT_EQ (test_view_record (waiting).mode.recording.resolution.width, 1280u);
}

TEST_F (VirtualCamera, ViewThatIsPreparedBeforeItIsAddedGetsTheMode)
{
  const auto make = [] (const char *name) {
    auto view = vorn::adopt (test_view_new (name));
    EXPECT_TRUE (vorn_view_prepare (view.get ()));
    return view;
  };
  // Without a mode there is nothing to get.
  auto early = make ("early");
  TestViewRecord &early_record = test_view_record (early.get ());
  ASSERT_TRUE (vorn_virtual_camera_add_view (camera_, early.release ()));
  EXPECT_EQ (early_record.count ("update_camera_mode"), 0);
  ASSERT_TRUE (vorn_virtual_camera_set_mode (camera_, &good_mode));
  auto late = make ("late");
  TestViewRecord &late_record = test_view_record (late.get ());
  ASSERT_TRUE (vorn_virtual_camera_add_view (camera_, late.release ()));
  EXPECT_EQ (late_record.count ("update_camera_mode"), 1);
  EXPECT_EQ (late_record.mode.recording.resolution.width, 1280u);
}

TEST_F (VirtualCamera, ViewThatFailsToPrepareGetsNoMode)
{
  ASSERT_TRUE (vorn_virtual_camera_set_mode (camera_, &good_mode));
  VornView *view = add_view ("view");
  test_view_record (view).failing = {"prepare"};
  EXPECT_FALSE (vorn_view_prepare (view));
  EXPECT_FALSE (vorn_view_is_prepared (view));
  EXPECT_TRUE (vorn_virtual_camera_set_mode (camera_, &other_mode));
  EXPECT_EQ (test_view_record (view).count ("update_camera_mode"), 0);
}

TEST_F (VirtualCamera, ModeThatAViewFailsToApplyIsReported)
{
  VornView *first = add_view ("first");
  VornView *second = add_view ("second");
  ASSERT_TRUE (vorn_view_prepare (first) && vorn_view_prepare (second));
  test_view_record (first).failing = {"update_camera_mode"};
  EXPECT_FALSE (vorn_virtual_camera_set_mode (camera_, &good_mode));
  // The others got it nevertheless.
  EXPECT_EQ (test_view_record (second).count ("update_camera_mode"), 1);
}

TEST_F (VirtualCamera, ModeChangeWaitsForRecordingsAndPictures)
{
  VornView *idle = add_view ("idle");
  VornView *busy = add_view ("busy");
  ASSERT_TRUE (vorn_view_prepare (idle) && vorn_view_prepare (busy));
  ASSERT_TRUE (vorn_virtual_camera_set_mode (camera_, &good_mode));

  ASSERT_TRUE (vorn_view_start_recording (busy));
  EXPECT_FALSE (vorn_virtual_camera_set_mode (camera_, &other_mode));
  EXPECT_TRUE (log_.has ("virtual camera 'camera': recording mode refused: a view records or takes "
                         "a picture",
                         VORN_LOG_PRIORITY_WARNING));
  EXPECT_EQ (vorn_virtual_camera_get_mode (camera_)->recording.resolution.width, 1280u);
  EXPECT_EQ (test_view_record (idle).count ("update_camera_mode"), 1);
  ASSERT_TRUE (vorn_view_stop_recording (busy, 0));

  const VornSnapshotRequest request = {};
  ASSERT_TRUE (vorn_view_take_snapshot (busy, &request));
  EXPECT_FALSE (vorn_virtual_camera_set_mode (camera_, &other_mode));
  vorn_view_notify_snapshot_event (busy, VORN_SNAPSHOT_EVENT_DONE, nullptr, nullptr);

  EXPECT_TRUE (vorn_virtual_camera_set_mode (camera_, &other_mode));
  EXPECT_EQ (test_view_record (idle).mode.recording.resolution.width, 1920u);
}

TEST_F (VirtualCamera, StreamingDoesNotHinderAModeChange)
{
  VornView *view = add_view ("view");
  ASSERT_TRUE (vorn_view_prepare (view));
  ASSERT_TRUE (vorn_virtual_camera_set_mode (camera_, &good_mode));
  VornStreamSetup setup = {};
  ASSERT_TRUE (vorn_view_stream_setup (view, &setup));
  EXPECT_TRUE (vorn_virtual_camera_set_mode (camera_, &other_mode));
}

// ---- HDR

TEST_F (VirtualCamera, HdrAvailabilityIsTheModes)
{
  EXPECT_TRUE (vorn_virtual_camera_set_mode (camera_, &good_mode));
  EXPECT_TRUE (vorn_virtual_camera_get_hdr_availability (camera_));
  // The product sees it already when it is told of the mode.
  EXPECT_TRUE (record ().hdr_available_at_set_mode);
  const auto photo = photo_mode (0, 0, 0);
  EXPECT_TRUE (vorn_virtual_camera_set_mode (camera_, &photo));
  EXPECT_FALSE (vorn_virtual_camera_get_hdr_availability (camera_));
  EXPECT_FALSE (record ().hdr_available_at_set_mode);
}

using Published = std::vector<std::pair<bool, bool>>;

void on_hdr_changed (VornVirtualCamera *, gboolean state, gboolean availability, gpointer data)
{
  static_cast<Published *> (data)->emplace_back (state, availability);
}

TEST_F (VirtualCamera, HdrIsPublishedWheneverItIsSet)
{
  Published published;
  g_signal_connect (camera_, "hdr-changed", G_CALLBACK (on_hdr_changed), &published);
  vorn_virtual_camera_set_hdr_state (camera_, TRUE);
  vorn_virtual_camera_set_hdr_availability (camera_, TRUE);
  vorn_virtual_camera_set_hdr_availability (camera_, TRUE); // even unchanged
  vorn_virtual_camera_set_hdr_state (camera_, FALSE);
  EXPECT_EQ (published, (Published{{true, false}, {true, true}, {true, true}, {false, true}}));
  EXPECT_FALSE (vorn_virtual_camera_get_hdr_state (camera_));
  EXPECT_TRUE (vorn_virtual_camera_get_hdr_availability (camera_));
}

TEST_F (VirtualCamera, HdrOfANewModeIsPublishedWithoutTheProductsHelp)
{
  VornVirtualCameraClass *klass = VORN_VIRTUAL_CAMERA_GET_CLASS (camera_);
  const auto set_mode = std::exchange (klass->set_mode, nullptr);
  Published published;
  g_signal_connect (camera_, "hdr-changed", G_CALLBACK (on_hdr_changed), &published);
  const auto photo = photo_mode (0, 0, 0);
  EXPECT_TRUE (vorn_virtual_camera_set_mode (camera_, &good_mode));
  EXPECT_TRUE (vorn_virtual_camera_set_mode (camera_, &good_mode));
  EXPECT_TRUE (vorn_virtual_camera_set_mode (camera_, &photo));
  klass->set_mode = set_mode;
  EXPECT_EQ (published, (Published{{false, true}, {false, false}}));
}

// ---- Activation

TEST_F (VirtualCamera, ActivationReachesThePreparedViews)
{
  VornView *prepared = add_view ("prepared");
  VornView *waiting = add_view ("waiting");
  ASSERT_TRUE (vorn_view_prepare (prepared));
  EXPECT_FALSE (vorn_virtual_camera_is_active (camera_));
  EXPECT_TRUE (vorn_virtual_camera_set_activation_state (camera_, TRUE));
  EXPECT_TRUE (vorn_virtual_camera_is_active (camera_));
  EXPECT_TRUE (test_view_record (prepared).active);
  EXPECT_EQ (test_view_record (waiting).calls.size (), 0u);
  EXPECT_TRUE (vorn_virtual_camera_set_activation_state (camera_, FALSE));
  EXPECT_FALSE (vorn_virtual_camera_is_active (camera_));
  EXPECT_FALSE (test_view_record (prepared).active);
  EXPECT_EQ (record ().count ("set_activation_state"), 2);
}

TEST_F (VirtualCamera, ActivationThatFailsIsReported)
{
  VornView *view = add_view ("view");
  ASSERT_TRUE (vorn_view_prepare (view));
  test_view_record (view).failing = {"set_activation"};
  EXPECT_FALSE (vorn_virtual_camera_set_activation_state (camera_, TRUE));
  EXPECT_FALSE (vorn_virtual_camera_is_active (camera_));
  record ().failing = {"set_activation_state"};
  EXPECT_FALSE (vorn_virtual_camera_set_activation_state (camera_, TRUE));
  EXPECT_EQ (test_view_record (view).count ("set_activation"), 1);
}

// ---- What the class does not have, and wrong calls

TEST_F (VirtualCamera, MissingOperationsAnswerNothing)
{
  EXPECT_EQ (vorn_virtual_camera_get_capabilities (camera_), nullptr);
  EXPECT_EQ (vorn_virtual_camera_get_default_state (camera_), nullptr);
  EXPECT_EQ (vorn_virtual_camera_get_default_photo_mode (camera_), nullptr);
  EXPECT_EQ (vorn_virtual_camera_get_alignment_offsets (camera_), nullptr);
  EXPECT_EQ (vorn_virtual_camera_get_alignment_offsets_capabilities (camera_), nullptr);
  EXPECT_FALSE (vorn_virtual_camera_get_exposure (camera_, nullptr, nullptr, nullptr, nullptr,
                                                  nullptr, nullptr, nullptr));
  EXPECT_FALSE (vorn_virtual_camera_set_exposure (camera_, nullptr));
  EXPECT_FALSE (vorn_virtual_camera_get_wb (camera_, nullptr, nullptr));
  EXPECT_FALSE (vorn_virtual_camera_set_wb (camera_, 0, 0));
  EXPECT_FALSE (vorn_virtual_camera_get_ev_compensation (camera_, nullptr));
  EXPECT_FALSE (vorn_virtual_camera_set_ev_compensation (camera_, 0.0));
  EXPECT_FALSE (vorn_virtual_camera_set_antiflicker_mode (camera_, 0));
  EXPECT_FALSE (vorn_virtual_camera_set_image_style (camera_, 0));
  EXPECT_FALSE (vorn_virtual_camera_set_image_style_params (camera_, nullptr));
}

TEST_F (VirtualCamera, NoCameraIsACriticalAndNothing)
{
  CriticalCapture criticals;
  VornView *no_view = nullptr;
  guint32 count = 5;
  EXPECT_EQ (vorn_virtual_camera_get_name (nullptr), nullptr);
  EXPECT_FALSE (vorn_virtual_camera_add_view (nullptr, no_view));
  EXPECT_EQ (vorn_virtual_camera_get_first_view (nullptr), nullptr);
  EXPECT_EQ (vorn_virtual_camera_get_view_by_name (nullptr, "x"), nullptr);
  EXPECT_EQ (vorn_virtual_camera_get_views (nullptr), nullptr);
  EXPECT_FALSE (vorn_virtual_camera_set_mode (nullptr, &good_mode));
  EXPECT_EQ (vorn_virtual_camera_get_mode (nullptr), nullptr);
  EXPECT_FALSE (vorn_virtual_camera_has_mode (nullptr));
  EXPECT_FALSE (vorn_virtual_camera_get_hdr_state (nullptr));
  vorn_virtual_camera_set_hdr_state (nullptr, TRUE);
  EXPECT_FALSE (vorn_virtual_camera_get_hdr_availability (nullptr));
  vorn_virtual_camera_set_hdr_availability (nullptr, TRUE);
  EXPECT_FALSE (vorn_virtual_camera_set_activation_state (nullptr, TRUE));
  EXPECT_FALSE (vorn_virtual_camera_is_active (nullptr));
  EXPECT_EQ (vorn_virtual_camera_get_capabilities (nullptr), nullptr);
  EXPECT_EQ (vorn_virtual_camera_get_recording_capabilities (nullptr, &count), nullptr);
  EXPECT_EQ (count, 0u);
  EXPECT_FALSE (vorn_virtual_camera_set_wb (nullptr, 0, 0));
  const auto all = criticals.criticals ();
  EXPECT_EQ (all.size (), 17u);
  for (const auto &critical : all)
    EXPECT_NE (critical.text.find ("assertion 'VORN_IS_VIRTUAL_CAMERA (camera)' failed"),
               std::string::npos)
        << critical.text;
}

TEST_F (VirtualCamera, NoViewAndNoModeAreCriticals)
{
  CriticalCapture criticals;
  EXPECT_FALSE (vorn_virtual_camera_add_view (camera_, nullptr));
  EXPECT_FALSE (vorn_virtual_camera_set_mode (camera_, nullptr));
  EXPECT_EQ (criticals.criticals ().size (), 2u);
}

} // namespace
