// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Modes, formats, stream and recordings in random order against a simple model of the view.
#include "live_product.hpp"

#include <filesystem>
#include <random>

#include "live_view.hpp"
#include "test_virtual_camera.hpp"

namespace
{

class FrontViewSteps : public LiveProduct
{
protected:
  struct Model {
    bool streaming = false;
    bool recording = false;
    bool photo_mode = false;
    int recordings = 0;
  };

  void start_recording ()
  {
    const bool expected = !model_.recording && !model_.photo_mode;
    EXPECT_EQ (vorn_view_start_recording (view_) != FALSE, expected);
    if (!expected)
      return;
    model_.recording = true;
    model_.recordings++;
    current_ = wait_for_event (VORN_RECORD_EVENT_STARTED).filename;
    EXPECT_TRUE (wait_for_recording (2));
  }

  /** What ended the recording has left a finished file. */
  void expect_file ()
  {
    if (!model_.recording)
      return;
    model_.recording = false;
    const auto stopped = wait_for_event (VORN_RECORD_EVENT_STOPPED);
    EXPECT_EQ (stopped.filename, current_);
    const Movie movie = probe (stopped.filename);
    EXPECT_EQ (movie.errors, "");
    EXPECT_GE (movie.frames, 2);
    EXPECT_EQ (movie.value ("codec_name"), "h264");
  }

  void set_mode (const VornCameraMode &mode, bool photo)
  {
    const bool expected = !model_.recording;
    EXPECT_EQ (vorn_virtual_camera_set_mode (camera_, &mode) != FALSE, expected);
    if (expected)
      model_.photo_mode = photo;
  }

  void set_format (const VornFormat &format, bool served)
  {
    // Photo modes film at another rate, which these do not divide.
    EXPECT_EQ (vorn_view_set_streaming_format (view_, &format) != FALSE,
               served && !model_.recording && !model_.photo_mode);
  }

  /** What the tables say of the mode. */
  bool can_stream () const
  {
    return vorn_view_check_feature (view_, VORN_VIEW_FEATURE_STREAMING) != FALSE;
  }

  const char *step (unsigned choice)
  {
    switch (choice) {
    case 0:
    case 1: {
      const bool expected = can_stream ();
      EXPECT_EQ (stream (), expected);
      model_.streaming |= expected;
      return "stream";
    }
    case 2: {
      const bool ends_recording = model_.streaming;
      EXPECT_TRUE (vorn_view_stream_teardown (view_, "step"));
      if (ends_recording)
        expect_file ();
      model_.streaming = false;
      return "teardown";
    }
    case 3:
    case 4:
    case 13:
      start_recording ();
      return "record";
    case 5:
    case 14:
      EXPECT_TRUE (vorn_view_stop_recording (view_, 0));
      expect_file ();
      return "stop";
    case 6:
    case 15:
      set_mode (recording_mode (1920, 1080, live_rate.num, live_rate.den), false);
      return "mode 1080p";
    case 7:
      set_mode (recording_mode (3840, 2160, live_rate.num, live_rate.den), false);
      return "mode 2160p";
    case 8:
      set_mode (photo_mode (0, 0, 0), true);
      return "photo mode";
    case 9:
      set_format ({{640, 360}, live_rate, 1}, true);
      return "format 360p";
    case 10:
      set_format ({{1280, 720}, live_rate, 1}, true);
      return "format 720p";
    case 11:
      set_format ({{640, 360}, {25, 1}, 1}, false);
      return "format too fast";
    default: {
      const VornFormat other = {{854, 480}, live_rate, 1};
      EXPECT_FALSE (vorn_view_set_recording_format (view_, &other));
      return "recording format";
    }
    }
  }

  Model model_;
  std::string current_;
};

TEST_F (FrontViewSteps, StateIsTheModelsAfterEachStep)
{
  start ("");
  const VornCameraMode mode = recording_mode (1920, 1080, live_rate.num, live_rate.den);
  ASSERT_TRUE (vorn_virtual_camera_set_mode (camera_, &mode));
  CriticalCapture messages;
  std::mt19937 random (20);
  const int steps = soak () ? 500 : 60;
  std::string history;
  for (int i = 0; i < steps && !HasFailure (); i++) {
    history += std::string (step (static_cast<unsigned> (random () % 16))) + "; ";
    SCOPED_TRACE (history);
    EXPECT_EQ (vorn_view_is_streaming (view_) != FALSE, model_.streaming);
    EXPECT_EQ (vorn_view_is_recording (view_) != FALSE, model_.recording);
    if (model_.streaming && !model_.photo_mode && i % 4 == 0) {
      EXPECT_TRUE (wait_for_stream (2));
    }
  }
  EXPECT_TRUE (vorn_view_stop_recording (view_, 0));
  expect_file ();
  EXPECT_GT (model_.recordings, 2);
  int files = 0;
  for (const auto &entry : std::filesystem::directory_iterator (media_.at ("videos")))
    files += entry.path ().extension () == ".mp4";
  EXPECT_EQ (files, model_.recordings);
  for (const auto &line : messages.criticals ())
    ADD_FAILURE () << line.domain << ": " << line.text;
}

} // namespace
