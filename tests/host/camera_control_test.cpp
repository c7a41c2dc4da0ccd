// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// When operations end, how, and what they are refused for.
#include "camera_control.hpp"

#include "control_fixture.hpp"
#include "log_capture.hpp"
#include "main_context.hpp"
#include <vorn/utils.h>

namespace
{

using Code = HostErrorCode;

/** What came of an operation; may go before the operation ends. */
class Result
{
public:
  Done done ()
  {
    return [state = state_] (const Outcome &ended) {
      state->times++;
      state->outcome = ended;
    };
  }
  int times () const { return state_->times; }
  const std::vector<std::string> &files () const { return state_->outcome.files; }
  bool succeeded () const { return times () == 1 && !state_->outcome.error; }
  bool failed (Code code, const std::string &message) const
  {
    EXPECT_EQ (times (), 1);
    const auto &error = state_->outcome.error;
    EXPECT_TRUE (error);
    if (!error)
      return false;
    EXPECT_EQ (error->message, message);
    return error->code == code;
  }

private:
  struct State {
    int times = 0;
    Outcome outcome;
  };
  std::shared_ptr<State> state_ = std::make_shared<State> ();
};

class Control : public testing::Test
{
protected:
  ControlledCamera front_;
  CameraControl control_{front_.product.get (), front_.camera, front_.view, {50, 50, 50}};
  LogCapture log_;
};

TEST_F (Control, RecordingStartsWithItsFirstFrame)
{
  Result start;
  control_.start_recording (start.done ());
  EXPECT_EQ (start.times (), 0);
  front_.record_event (VORN_RECORD_EVENT_PREPARED);
  EXPECT_EQ (start.times (), 0);
  front_.record_event (VORN_RECORD_EVENT_STARTED, "/m/1.mp4");
  EXPECT_TRUE (start.succeeded ());
  EXPECT_EQ (start.files (), std::vector<std::string>{"/m/1.mp4"});
}

TEST_F (Control, RecordingStopsWhenItsFileIsThere)
{
  Result start;
  Result stop;
  control_.start_recording (start.done ());
  front_.record_event (VORN_RECORD_EVENT_STARTED, "/m/1.mp4");
  control_.stop_recording (stop.done ());
  EXPECT_EQ (stop.times (), 0);
  EXPECT_EQ (front_.record ().count ("stop_recording"), 1);
  front_.record_event (VORN_RECORD_EVENT_STOPPED, "/m/1.mp4");
  EXPECT_TRUE (stop.succeeded ());
  EXPECT_EQ (stop.files (), std::vector<std::string>{"/m/1.mp4"});
}

TEST_F (Control, SecondRecordingIsBusy)
{
  Result first;
  Result second;
  control_.start_recording (first.done ());
  control_.start_recording (second.done ());
  EXPECT_TRUE (second.failed (Code::busy, "a recording runs already"));
  front_.record_event (VORN_RECORD_EVENT_STARTED, "/m/1.mp4");
  Result third;
  control_.start_recording (third.done ());
  EXPECT_TRUE (third.failed (Code::busy, "a recording runs already"));
  EXPECT_EQ (front_.record ().count ("start_recording"), 1);

  Result stop;
  control_.stop_recording (stop.done ());
  Result fourth;
  control_.start_recording (fourth.done ());
  EXPECT_TRUE (fourth.failed (Code::busy, "the former recording is being finished"));
  Result again;
  control_.stop_recording (again.done ());
  EXPECT_TRUE (again.failed (Code::busy, "the recording is being finished already"));
}

TEST_F (Control, StoppingWhatDoesNotRunIsRefused)
{
  Result stop;
  control_.stop_recording (stop.done ());
  EXPECT_TRUE (stop.failed (Code::refused, "no recording runs"));
}

TEST_F (Control, StoppingBeforeTheFirstFrameEndsBoth)
{
  Result start;
  Result stop;
  control_.start_recording (start.done ());
  control_.stop_recording (stop.done ());
  EXPECT_TRUE (start.failed (Code::failed, "the recording was stopped"));
  front_.record_event (VORN_RECORD_EVENT_STOPPED);
  EXPECT_TRUE (stop.succeeded ());
}

TEST_F (Control, ARecordingThatFailsSaysWhy)
{
  Result start;
  control_.start_recording (start.done ());
  const vorn::OwnedError error (
      vorn_resource_error_new (VORN_RESOURCE_ERROR_NO_SPACE_LEFT, "no space left"));
  front_.record_event (VORN_RECORD_EVENT_FAILED, nullptr, error.get ());
  EXPECT_TRUE (start.failed (Code::failed, "recording: no space left"));
}

TEST_F (Control, WhatTheViewRefusesIsTold)
{
  front_.record ().failing = {"start_recording", "take_snapshot"};
  Result start;
  control_.start_recording (start.done ());
  EXPECT_TRUE (start.failed (Code::failed, "recording: the view refused, the log tells why"));
  Result photo;
  control_.take_photo ({}, photo.done ());
  EXPECT_TRUE (photo.failed (Code::failed, "picture: the view refused, the log tells why"));
}

TEST_F (Control, AViewThatIsSilentIsNotWaitedForForEver)
{
  Result start;
  control_.start_recording (start.done ());
  Result photo;
  front_.record ().calls.clear ();
  EXPECT_TRUE (run_until ([&start] { return start.times () > 0; }));
  EXPECT_TRUE (start.failed (Code::timed_out, "the view was told, but did not answer in time"));
  front_.record_event (VORN_RECORD_EVENT_STOPPED);
  control_.take_photo ({}, photo.done ());
  EXPECT_TRUE (run_until ([&photo] { return photo.times () > 0; }));
  EXPECT_TRUE (photo.failed (Code::timed_out,
                             "the picture was asked for, but the view did not tell its end"));
}

TEST_F (Control, ModesThatLackItAreNamed)
{
  front_.features (VORN_VIEW_FEATURE_STREAMING);
  Result start;
  control_.start_recording (start.done ());
  EXPECT_TRUE (start.failed (Code::refused, "no recording in the mode 'recording 1280x720@30/1 "
                                            "standard': set a recording mode first"));
  Result photo;
  control_.take_photo ({}, photo.done ());
  EXPECT_TRUE (photo.failed (Code::refused, "no photos in the mode 'recording 1280x720@30/1 "
                                            "standard': set a photo mode first"));
  vorn_view_unprepare (front_.view);
  Result unprepared;
  control_.start_recording (unprepared.done ());
  EXPECT_TRUE (unprepared.failed (Code::refused,
                                  "no recording: the view is not prepared, the log tells why"));
}

TEST_F (Control, APhotoEndsWithItsFile)
{
  Result photo;
  control_.take_photo ({}, photo.done ());
  front_.snapshot_event (VORN_SNAPSHOT_EVENT_STARTED);
  front_.snapshot_event (VORN_SNAPSHOT_EVENT_TAKEN, "/m/1.jpg");
  EXPECT_EQ (photo.times (), 0);
  front_.snapshot_event (VORN_SNAPSHOT_EVENT_DONE, "/m/1.jpg");
  EXPECT_TRUE (photo.succeeded ());
  EXPECT_EQ (photo.files (), std::vector<std::string>{"/m/1.jpg"});
}

TEST_F (Control, AGroupIsTakenOneAfterTheOther)
{
  Result photo;
  control_.take_photo ({VORN_PHOTO_GROUPING_BURST, 3, ""}, photo.done ());
  for (int i = 1; i <= 3; i++) {
    EXPECT_TRUE (run_until ([this, i] { return front_.record ().count ("take_snapshot") == i; }));
    EXPECT_EQ (front_.record ().number, guint32{VORN_PHOTO_GROUPING_BURST});
    front_.snapshot_event (VORN_SNAPSHOT_EVENT_DONE, ("/m/" + std::to_string (i)).c_str ());
  }
  EXPECT_TRUE (photo.succeeded ());
  EXPECT_EQ (photo.files (), (std::vector<std::string>{"/m/1", "/m/2", "/m/3"}));
}

TEST_F (Control, APhotoThatFailsEndsItsGroup)
{
  Result photo;
  control_.take_photo ({VORN_PHOTO_GROUPING_SINGLE, 2, ""}, photo.done ());
  front_.snapshot_event (VORN_SNAPSHOT_EVENT_FAILED);
  EXPECT_TRUE (photo.failed (Code::failed, "picture: the view gave no reason"));
  run_pending ();
  EXPECT_EQ (front_.record ().count ("take_snapshot"), 1);
}

TEST_F (Control, OnePhotoAtATimeAndAtLeastOne)
{
  Result first;
  Result second;
  control_.take_photo ({}, first.done ());
  control_.take_photo ({}, second.done ());
  EXPECT_TRUE (second.failed (Code::busy, "a picture is being taken already"));
  Result none;
  control_.take_photo ({VORN_PHOTO_GROUPING_SINGLE, 0, ""}, none.done ());
  EXPECT_TRUE (none.failed (Code::invalid, "at least one picture is needed"));
  Result recording;
  control_.start_recording (recording.done ());
  EXPECT_TRUE (recording.failed (Code::busy, "a picture is being taken"));
}

TEST_F (Control, ModesChangeOnlyWhileNothingRuns)
{
  const VornCameraMode mode = recording_mode (1920, 1080, 24, 1);
  EXPECT_FALSE (control_.set_mode (mode));
  EXPECT_EQ (front_.record ().mode.recording.resolution.width, 1920u);

  const auto none = control_.set_mode (recording_mode (640, 480, 24, 1));
  ASSERT_TRUE (none);
  EXPECT_EQ (none->code, Code::refused);
  EXPECT_EQ (none->message, "the camera has no mode 'recording 640x480@24/1 standard': 'vorn-host "
                            "modes' shows which there are");
  Result start;
  control_.start_recording (start.done ());
  const auto busy = control_.set_mode (mode);
  ASSERT_TRUE (busy);
  EXPECT_EQ (busy->code, Code::busy);
  EXPECT_EQ (busy->message, "a recording runs: stop it first");
}

TEST_F (Control, AProductWithoutMagicCarpetSaysSo)
{
  const auto error = control_.set_magic_carpet (true);
  ASSERT_TRUE (error);
  EXPECT_EQ (error->code, Code::failed);
  EXPECT_EQ (error->message, "the magic carpet cannot be switched on, the log tells why");
}

TEST (ControlEnd, WhoWaitsIsTold)
{
  ControlledCamera front;
  Result start;
  {
    CameraControl control (front.product.get (), front.camera, front.view);
    control.start_recording (start.done ());
  }
  EXPECT_TRUE (start.failed (Code::failed, "the host ends"));
}

} // namespace
