// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Recordings of a view with a live picture, looked at with FFmpeg.
#include <algorithm>
#include <vorn/recording.h>

#include <ctime>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "live_view.hpp"
#include <vorn/utils.h>

namespace
{

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

std::vector<std::string> files_in (const std::string &folder)
{
  std::vector<std::string> names;
  std::error_code error;
  for (const auto &entry : fs::directory_iterator (folder, error))
    names.push_back (entry.path ().filename ());
  std::sort (names.begin (), names.end ());
  return names;
}

/** Of the recordings only. */
Texts recordings_in (const std::string &folder)
{
  Texts names = files_in (folder);
  std::erase (names, ".last-recording");
  return names;
}

double seconds_since_utc (const std::string &text)
{
  struct tm fields = {};
  if (!strptime (text.c_str (), "%Y-%m-%dT%H:%M:%S", &fields))
    return 1e9;
  return std::difftime (time (nullptr), timegm (&fields));
}

class RecordingTest : public testing::Test
{
protected:
  void TearDown () override
  {
    for (const auto &line : criticals_.criticals ())
      ADD_FAILURE () << line.domain << ": " << line.text;
  }
  LogCapture log_;
  CriticalCapture criticals_;
};

/**
 * One recording's end and the next one's start, in either order: a file is finished beside the next
 * one's beginning. Returns the start.
 */
RecordEvent wait_for_end_and_start (LiveView &live)
{
  EXPECT_TRUE (run_until ([&live] { return live.events.size () >= 2; }));
  if (!live.events.empty () && live.events.front ().event == VORN_RECORD_EVENT_STARTED)
    std::rotate (live.events.begin (), live.events.begin () + 1, live.events.end ());
  live.wait_for_event (VORN_RECORD_EVENT_STOPPED);
  return live.wait_for_event (VORN_RECORD_EVENT_STARTED);
}

/** Starts a recording and waits until it has this many units. */
bool record (LiveView &live, guint64 units)
{
  if (!live.start_recording ())
    return false;
  live.wait_for_event (VORN_RECORD_EVENT_STARTED);
  return live.wait_for_recording (units);
}

/** Of the last recording; the event and a file that plays. */
Movie expect_stopped (LiveView &live, guint32 event = VORN_RECORD_EVENT_STOPPED)
{
  const RecordEvent last = live.wait_for_event (event);
  EXPECT_EQ (last.filename, live.location ());
  Movie movie = probe (last.filename);
  EXPECT_EQ (movie.errors, "");
  return movie;
}

class PadsTest : public RecordingTest, public testing::WithParamInterface<bool>
{
};

TEST_P (PadsTest, IsAPlainFileInTheEnd)
{
  LiveView live ({.two_pads = GetParam ()});
  ASSERT_TRUE (live.prepare ());
  EXPECT_EQ (live.location (), "");
  EXPECT_FALSE (fs::exists (live.videos ()));
  const time_t before = time (nullptr);
  ASSERT_TRUE (live.start_recording ());
  EXPECT_TRUE (vorn_view_is_recording (live.view ()));
  const std::string path = live.videos () + "/ZELTO_0001.mp4";
  EXPECT_EQ (live.location (), path);
  EXPECT_EQ (live.wait_for_event (VORN_RECORD_EVENT_STARTED).filename, path);
  EXPECT_EQ (recordings_in (live.videos ()), Texts{".ZELTO_0001.mp4.part"});
  ASSERT_TRUE (live.wait_for_recording (75));
  ASSERT_TRUE (live.stop_recording ());
  EXPECT_FALSE (vorn_view_is_recording (live.view ()));
  const guint64 units = live.statistics ().recording_frames_out;
  const RecordEvent stopped = live.wait_for_event (VORN_RECORD_EVENT_STOPPED);
  EXPECT_EQ (stopped.filename, path);
  EXPECT_EQ (stopped.code, 0);
  EXPECT_EQ (live.messages, Texts{"record-done"});
  EXPECT_EQ (recordings_in (live.videos ()), Texts{"ZELTO_0001.mp4"});

  const Movie movie = probe (path);
  EXPECT_EQ (movie.errors, "");
  EXPECT_EQ (movie.frames, static_cast<int> (units));
  EXPECT_EQ (movie.value ("codec_name"), "h264");
  EXPECT_EQ (movie.value ("width"), "320");
  EXPECT_EQ (movie.value ("height"), "240");
  EXPECT_EQ (movie.value ("start_time"), "0.000000");
  EXPECT_NEAR (movie.duration, movie.frames / 30., 0.5);
  EXPECT_FALSE (movie.has_cover);
  const double age = seconds_since_utc (movie.value ("TAG:creation_time"));
  EXPECT_GE (age, 2.0) << "it was begun before it was ended";
  EXPECT_LE (age, std::difftime (time (nullptr), before) + 1);
  const std::string flags = packet_flags (path);
  EXPECT_EQ (static_cast<guint64> (flags.size ()), units);
  EXPECT_EQ (flags[0], 'K');
  EXPECT_EQ (std::count (flags.begin (), flags.end (), 'K'), 3) << flags; // one a second
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING), Texts{});
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR), Texts{});
}

// ---- Covers

TEST_F (RecordingTest, CoverOfTheRunningRecordingOnly)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  const auto cover = make_cover ();
  const auto muxer = live.find ("recordbin-muxer");
  ASSERT_TRUE (muxer);
  // One that came too late for its recording.
  gst_tag_setter_merge_tags (GST_TAG_SETTER (muxer.get ()), cover.get (), GST_TAG_MERGE_REPLACE);
  ASSERT_TRUE (record (live, 10));
  EXPECT_TRUE (live.stop_recording ());
  EXPECT_FALSE (expect_stopped (live).has_cover);

  ASSERT_TRUE (record (live, 10));
  gst_tag_setter_merge_tags (GST_TAG_SETTER (muxer.get ()), cover.get (), GST_TAG_MERGE_REPLACE);
  ASSERT_TRUE (live.wait_for_recording (10));
  EXPECT_TRUE (live.stop_recording ());
  const Movie movie = expect_stopped (live);
  EXPECT_TRUE (movie.has_cover);
  EXPECT_GE (movie.frames, 20);

  ASSERT_TRUE (record (live, 10));
  EXPECT_TRUE (live.stop_recording ());
  EXPECT_FALSE (expect_stopped (live).has_cover);
  EXPECT_EQ (recordings_in (live.videos ()),
             (Texts{"ZELTO_0001.mp4", "ZELTO_0002.mp4", "ZELTO_0003.mp4"}));
}

// ---- Beginnings and ends

TEST_F (RecordingTest, StoppingWhatIsStoppedIsFine)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  EXPECT_TRUE (live.stop_recording ());
  ASSERT_TRUE (record (live, 3));
  EXPECT_TRUE (live.stop_recording ());
  EXPECT_TRUE (live.stop_recording ());
  EXPECT_TRUE (VORN_VIEW_GET_CLASS (live.view ())->stop_recording (live.view (), 0));
  expect_stopped (live);
  run_pending ();
  EXPECT_TRUE (live.events.empty ());
}

TEST_F (RecordingTest, EndedBeforeItsFirstPicture)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  // Nothing comes from the source.
  const auto pad = vorn::adopt (gst_element_get_static_pad (live.find ("source").get (), "src"));
  gst_pad_add_probe (
      pad.get (), GST_PAD_PROBE_TYPE_BUFFER,
      [] (GstPad *, GstPadProbeInfo *, gpointer) { return GST_PAD_PROBE_DROP; }, nullptr, nullptr);
  ASSERT_TRUE (live.start_recording ());
  ASSERT_TRUE (live.stop_recording ());
  const RecordEvent failed = live.wait_for_event (VORN_RECORD_EVENT_FAILED);
  EXPECT_EQ (failed.filename, live.videos () + "/ZELTO_0001.mp4");
  EXPECT_EQ (failed.code, VORN_RESOURCE_ERROR_FAILED);
  EXPECT_EQ (failed.error, "it was ended before its first picture");
  EXPECT_TRUE (log_.has ("view 'front': recording " + failed.filename +
                             " failed: it was ended before its first picture",
                         VORN_LOG_PRIORITY_ERROR));
  EXPECT_EQ (recordings_in (live.videos ()), Texts{});
  ASSERT_TRUE (live.start_recording ());
  EXPECT_EQ (live.location (), live.videos () + "/ZELTO_0002.mp4") << "a number is not reused";
}

TEST_F (RecordingTest, TheNextMayBeginWhileTheLastIsRewritten)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  ASSERT_TRUE (record (live, 20));
  ASSERT_TRUE (live.stop_recording ());
  ASSERT_TRUE (live.start_recording ());
  const auto started = wait_for_end_and_start (live);
  EXPECT_TRUE (vorn_view_is_recording (live.view ())) << "the end was the former one's";
  EXPECT_EQ (started.filename, live.videos () + "/ZELTO_0002.mp4");
  ASSERT_TRUE (live.wait_for_recording (10));
  ASSERT_TRUE (live.stop_recording ());
  EXPECT_GE (expect_stopped (live).frames, 10);
}

TEST_F (RecordingTest, TearingTheStreamDownEndsIt)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  ASSERT_TRUE (live.stream ());
  ASSERT_TRUE (record (live, 20));
  ASSERT_TRUE (live.teardown ());
  EXPECT_FALSE (vorn_view_is_recording (live.view ()));
  const guint64 units = live.statistics ().recording_frames_out;
  EXPECT_EQ (expect_stopped (live).frames, static_cast<int> (units));
}

TEST_F (RecordingTest, ThePipelinesEndEndsItInOrder)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  ASSERT_TRUE (record (live, 40));
  gst_element_set_state (live.pipeline (), GST_STATE_NULL);
  const guint64 units = live.statistics ().recording_frames_out;
  EXPECT_EQ (expect_stopped (live).frames, static_cast<int> (units));
  EXPECT_FALSE (vorn_view_is_recording (live.view ()));
  // Told to end before the framework hears of it, and the next one begun.
  ASSERT_TRUE (record (live, 5));
  gst_element_set_state (live.pipeline (), GST_STATE_NULL);
  ASSERT_TRUE (live.stop_recording ());
  ASSERT_TRUE (live.start_recording ());
  wait_for_end_and_start (live);
  EXPECT_TRUE (vorn_view_is_recording (live.view ()));
}

TEST_F (RecordingTest, UnpreparingEndsIt)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  ASSERT_TRUE (record (live, 20));
  const std::string path = live.location ();
  ASSERT_TRUE (vorn_view_unprepare (live.view ()));
  EXPECT_EQ (live.wait_for_event (VORN_RECORD_EVENT_STOPPED).filename, path);
  EXPECT_GE (probe (path).frames, 20);
  EXPECT_EQ (live.location (), path) << "still the last one";
}

TEST_F (RecordingTest, TheViewMayGoBeforeItsRecordingIsFinished)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  ASSERT_TRUE (record (live, 20));
  const std::string path = live.location ();
  live.drop ();
  ASSERT_TRUE (vorn_recordings_wait (20000));
  run_pending ();
  EXPECT_GE (probe (path).frames, 20);
}

TEST_F (RecordingTest, AnErrorInThePipelineEndsIt)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  ASSERT_TRUE (live.stream ());
  ASSERT_TRUE (record (live, 20));
  const auto source = live.find ("source");
  const vorn::OwnedError error (
      g_error_new_literal (GST_STREAM_ERROR, GST_STREAM_ERROR_FAILED, "the lens fell off"));
  gst_element_post_message (
      source.get (), gst_message_new_error (GST_OBJECT (source.get ()), error.get (), nullptr));
  const RecordEvent failed = live.wait_for_event (VORN_RECORD_EVENT_FAILED);
  EXPECT_EQ (failed.code, VORN_RESOURCE_ERROR_FAILED);
  EXPECT_EQ (failed.error, "the lens fell off");
  EXPECT_EQ (failed.filename, live.location ());
  EXPECT_FALSE (vorn_view_is_recording (live.view ()));
  const Movie movie = probe (failed.filename);
  EXPECT_EQ (movie.errors, "");
  EXPECT_GE (movie.frames, 20);
  EXPECT_TRUE (log_.has ("view 'front': source: the lens fell off", VORN_LOG_PRIORITY_ERROR));
  // Nor is one of another pipeline its business.
  const auto other = vorn::adopt (gst_pipeline_new ("other"));
  ASSERT_TRUE (vorn_gst_view_attach_element (live.gst_view (), other.get ()));
  ASSERT_TRUE (record (live, 3));
  gst_element_post_message (
      other.get (), gst_message_new_error (GST_OBJECT (other.get ()), error.get (), nullptr));
  ASSERT_TRUE (run_until ([&] { return log_.has ("view 'front': other: the lens fell off"); }));
  EXPECT_TRUE (vorn_view_is_recording (live.view ()));
}

TEST_F (RecordingTest, FoldersThatCannotBeMadeRefuseIt)
{
  const TempDir folder;
  const std::string media = folder.write ("media", "a file");
  LiveView live ({}, media);
  ASSERT_TRUE (live.prepare ());
  EXPECT_FALSE (live.start_recording ());
  EXPECT_FALSE (vorn_view_is_recording (live.view ()));
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR),
             Texts{"view 'front': recording failed: cannot make the folder " + media +
                   "/videos: Not a directory"});
  EXPECT_EQ (live.location (), "");
}

TEST_F (RecordingTest, APipelineThatDoesNotPlayRefusesIt)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  // As if the product forgot to.
  VornViewClass *klass = VORN_VIEW_CLASS (g_type_class_peek (VORN_TYPE_GST_VIEW));
  EXPECT_FALSE (klass->start_recording (live.view ()));
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR),
             Texts{"view 'front': recording failed: the pipeline does not play"});
  EXPECT_EQ (recordings_in (live.videos ()), Texts{});
  ASSERT_TRUE (record (live, 3));
  EXPECT_FALSE (klass->start_recording (live.view ()));
  EXPECT_TRUE (log_.has ("view 'front': recording failed: the former one has not ended",
                         VORN_LOG_PRIORITY_ERROR));
}

// ---- Stream and recording together

TEST_F (RecordingTest, TheStreamGoesOn)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  UnitCollector collector (live);
  ASSERT_TRUE (live.stream ());
  ASSERT_TRUE (live.wait_for_stream (10));
  ASSERT_TRUE (record (live, 10));
  ASSERT_TRUE (live.wait_for_stream (10));
  ASSERT_TRUE (live.stop_recording ());
  ASSERT_TRUE (live.wait_for_stream (10));
  expect_stopped (live);
  const VornGstViewStatistics statistics = live.statistics ();
  EXPECT_GE (statistics.stream_frames_in, statistics.stream_frames_out);
  EXPECT_GE (statistics.recording_frames_in, statistics.recording_frames_out);
  EXPECT_GT (statistics.recording_bytes, 0u);
  EXPECT_GE (collector.count (), 30u);
}

TEST_F (RecordingTest, RateIsLoweredByDropping)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  const VornFormat format = {.resolution = {320, 240}, .framerate = {10, 1}, .flag = 1};
  ASSERT_TRUE (vorn_view_set_recording_format (live.view (), &format));
  ASSERT_TRUE (record (live, 20));
  log_.clear ();
  EXPECT_FALSE (vorn_view_set_recording_format (live.view (), &format));
  EXPECT_TRUE (log_.has ("view 'front': recording format refused: a recording runs",
                         VORN_LOG_PRIORITY_WARNING));
  ASSERT_TRUE (live.stop_recording ());
  const Movie movie = expect_stopped (live);
  EXPECT_GE (movie.frames, 20);
  EXPECT_GE (movie.duration, 1.9);
  EXPECT_EQ (movie.value ("width"), "320");
}

TEST_F (RecordingTest, WhatAProbeAddsIsInTheFile)
{
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  const auto pad =
      vorn::adopt (gst_element_get_static_pad (live.find ("recordbin-tee").get (), "sink"));
  // A message of user data (ISO/IEC 14496-10, payload type 5) before each unit.
  gst_pad_add_probe (
      pad.get (), GST_PAD_PROBE_TYPE_BUFFER,
      [] (GstPad *, GstPadProbeInfo *info, gpointer) {
        static const guint8 message[] = "\0\0\0\x18\x06\x05\x14"
                                        "0123456789abcdefmark\x80";
        GstBuffer *buffer = gst_buffer_make_writable (GST_PAD_PROBE_INFO_BUFFER (info));
        gpointer copy = g_memdup2 (message, 28);
        gst_buffer_prepend_memory (buffer, gst_memory_new_wrapped (GST_MEMORY_FLAG_READONLY, copy,
                                                                   28, 0, 28, copy, g_free));
        GST_PAD_PROBE_INFO_DATA (info) = buffer;
        return GST_PAD_PROBE_OK;
      },
      nullptr, nullptr);
  ASSERT_TRUE (record (live, 10));
  ASSERT_TRUE (live.stop_recording ());
  const Movie movie = expect_stopped (live);
  gchar *data = nullptr;
  gsize size = 0;
  ASSERT_TRUE (g_file_get_contents (live.location ().c_str (), &data, &size, nullptr));
  const vorn::OwnedString owner (data);
  int marks = 0;
  for (std::string_view rest (data, size); rest.find ("0123456789abcdefmark") != rest.npos;
       rest.remove_prefix (rest.find ("0123456789abcdefmark") + 20))
    marks++;
  EXPECT_EQ (marks, movie.frames);
}

INSTANTIATE_TEST_SUITE_P (Pads, PadsTest, testing::Bool (), [] (const auto &row) {
  return std::string (row.param ? "TwoPads" : "OnePad");
});

} // namespace
