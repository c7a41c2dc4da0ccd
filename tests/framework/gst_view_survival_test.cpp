// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Recordings of processes that are killed, on disks that are full, and at random.
#include <vorn/recording.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>

#include <sys/wait.h>

#include <gtest/gtest.h>

#include "live_view.hpp"
#include "process.hpp"
#include <vorn/utils.h>

namespace
{

namespace fs = std::filesystem;

constexpr char folder_variable[] = "VORN_TEST_MEDIA_FOLDER";

/** Runs one of the tests below in a process of its own, with this media folder. */
std::vector<std::string> command_of (const std::string &test)
{
  std::error_code error;
  return {fs::read_symlink ("/proc/self/exe", error), "--gtest_also_run_disabled_tests",
          "--gtest_filter=" + test};
}

std::string child_folder ()
{
  const char *folder = g_getenv (folder_variable);
  return folder ? folder : "";
}

// ---- Killed

/** In the child: records, and says so line by line. */
TEST (Child, DISABLED_RecordsUntilItIsKilled)
{
  ASSERT_NE (child_folder (), "");
  setvbuf (stdout, nullptr, _IOLBF, 0);
  LiveView live ({}, child_folder ());
  ASSERT_TRUE (live.prepare ());
  ASSERT_TRUE (live.start_recording ());
  live.wait_for_event (VORN_RECORD_EVENT_STARTED);
  const auto cover = make_cover ();
  gst_tag_setter_merge_tags (GST_TAG_SETTER (live.find ("recordbin-muxer").get ()), cover.get (),
                             GST_TAG_MERGE_REPLACE);
  while (live.wait_for_recording (1))
    printf ("units %d\n", static_cast<int> (live.statistics ().recording_frames_out));
}

/** A recording process that is killed once it has this many units in its file. */
void record_and_kill (const std::string &folder, int units)
{
  g_setenv (folder_variable, folder.c_str (), TRUE);
  const auto words = command_of ("Child.DISABLED_RecordsUntilItIsKilled");
  std::vector<gchar *> argv;
  argv.reserve (words.size () + 1);
  for (const std::string &word : words)
    argv.push_back (const_cast<gchar *> (word.c_str ()));
  argv.push_back (nullptr);
  GPid pid = 0;
  gint output = -1;
  vorn::ErrorOut error;
  ASSERT_TRUE (g_spawn_async_with_pipes (
      nullptr, argv.data (), nullptr,
      static_cast<GSpawnFlags> (G_SPAWN_SEARCH_PATH | G_SPAWN_DO_NOT_REAP_CHILD), nullptr, nullptr,
      &pid, nullptr, &output, nullptr, error.out ()))
      << error.message ();
  FILE *lines = fdopen (output, "r");
  char line[256];
  int seen = 0;
  while (seen < units && fgets (line, sizeof line, lines))
    sscanf (line, "units %d", &seen);
  kill (pid, SIGKILL);
  int status = 0;
  waitpid (pid, &status, 0);
  fclose (lines);
  EXPECT_GE (seen, units);
  EXPECT_TRUE (WIFSIGNALED (status));
}

TEST (Killed, FileInFragmentsPlaysAndIsFinishedLater)
{
  const TempDir folder;
  constexpr int units = 105; // 3.5 s
  record_and_kill (folder.path (), units);
  const std::string part = folder.at ("videos/.ZELTO_0001.mp4.part");
  const std::string final_path = folder.at ("videos/ZELTO_0001.mp4");
  ASSERT_TRUE (fs::exists (part));
  ASSERT_FALSE (fs::exists (final_path));
  // As it lies there; the torn end is of no use.
  Movie movie = probe (part);
  EXPECT_GE (movie.frames, units - 60);

  LogCapture log;
  vorn_utils_set_media_folder (folder.path ().c_str ());
  EXPECT_EQ (vorn_recordings_recover (folder.path ().c_str ()), 1u);
  EXPECT_TRUE (log.has ("recording " + final_path + " was left unfinished and is finished now",
                        VORN_LOG_PRIORITY_INFO));
  EXPECT_FALSE (fs::exists (part));
  movie = probe (final_path);
  EXPECT_EQ (movie.errors, "");
  EXPECT_GE (movie.frames, units - 60);
  EXPECT_NEAR (movie.duration, movie.frames / 30., 0.5);
  EXPECT_EQ (packet_flags (final_path)[0], 'K');
  EXPECT_EQ (vorn_recordings_recover (folder.path ().c_str ()), 0u);
}

// ---- Full disk

/** In the child, whose media folder is on a small disk: fills it. */
TEST (Child, DISABLED_RecordsUntilTheDiskIsFull)
{
  ASSERT_NE (child_folder (), "");
  LogCapture log;
  // Noise is what fills a disk.
  LiveView live ({.pattern = "snow"}, child_folder ());
  g_object_set (live.gst_view (), "recording-bitrate", 8000000u, nullptr);
  ASSERT_TRUE (live.prepare ());
  UnitCollector collector (live);
  ASSERT_TRUE (live.stream ());
  const auto cover = make_cover ();
  ASSERT_TRUE (live.start_recording ());
  live.wait_for_event (VORN_RECORD_EVENT_STARTED);
  gst_tag_setter_merge_tags (GST_TAG_SETTER (live.find ("recordbin-muxer").get ()), cover.get (),
                             GST_TAG_MERGE_REPLACE);
  const RecordEvent failed = live.wait_for_event (VORN_RECORD_EVENT_FAILED);
  EXPECT_EQ (failed.code, VORN_RESOURCE_ERROR_NO_SPACE_LEFT);
  EXPECT_EQ (live.messages, std::vector<std::string>{"no-space-left (error)"});
  EXPECT_EQ (failed.filename, live.videos () + "/ZELTO_0001.mp4");
  EXPECT_FALSE (vorn_view_is_recording (live.view ()));
  const Movie movie = probe (failed.filename);
  EXPECT_EQ (movie.errors, "");
  EXPECT_GE (movie.frames, 30);
  // The stream does not care.
  EXPECT_TRUE (vorn_view_is_streaming (live.view ()));
  EXPECT_TRUE (live.wait_for_stream (30));
  ASSERT_TRUE (live.teardown ());

  // No space for the rewriting alone: the file stays in fragments.
  ASSERT_EQ (unlink (failed.filename.c_str ()), 0);
  ASSERT_TRUE (live.start_recording ());
  live.wait_for_event (VORN_RECORD_EVENT_STARTED);
  const std::string part = live.videos () + "/.ZELTO_0002.mp4.part";
  std::error_code error;
  const auto half = fs::space (live.media (), error).capacity * 6 / 10;
  ASSERT_TRUE (run_until ([&] { return fs::file_size (part, error) > half; }));
  ASSERT_TRUE (live.stop_recording ());
  const RecordEvent stopped = live.wait_for_event (VORN_RECORD_EVENT_STOPPED);
  EXPECT_EQ (probe (stopped.filename).errors, "");
  EXPECT_FALSE (fs::exists (part));
  EXPECT_FALSE (fs::exists (live.videos () + "/.ZELTO_0002.mp4.rewrite"));
  bool said = false;
  for (const std::string &text : log.texts (VORN_LOG_PRIORITY_WARNING))
    said |= text.starts_with ("recording " + stopped.filename +
                              " stays in fragments and has no cover: ");
  EXPECT_TRUE (said);
}

TEST (FullDisk, EndsTheRecordingAndNothingElse)
{
  const TempDir folder;
  const std::string mount = "mount -t tmpfs -o size=3m none " + folder.path ();
  if (run_process ({"unshare", "-rm", "sh", "-c", mount}).status != 0)
    GTEST_SKIP () << "no small file system can be mounted here";
  g_setenv (folder_variable, folder.path ().c_str (), TRUE);
  std::string words;
  for (const std::string &word : command_of ("Child.DISABLED_RecordsUntilTheDiskIsFull"))
    words += " " + word;
  const ProcessResult child =
      run_process ({"unshare", "-rm", "sh", "-c", mount + " && exec" + words});
  EXPECT_EQ (child.status, 0) << child.output << child.errors;
}

TEST (FullDisk, OtherTroubleWithTheFileEndsTheStreamToo)
{
  LogCapture log;
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  ASSERT_TRUE (live.stream ());
  ASSERT_TRUE (live.start_recording ());
  live.wait_for_event (VORN_RECORD_EVENT_STARTED);
  ASSERT_TRUE (live.wait_for_recording (40));
  const auto sink = live.find ("recordbin-filesink");
  const vorn::OwnedError error (
      g_error_new_literal (GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_WRITE, "the disk is gone"));
  gst_element_post_message (
      sink.get (), gst_message_new_error (GST_OBJECT (sink.get ()), error.get (), nullptr));
  const RecordEvent failed = live.wait_for_event (VORN_RECORD_EVENT_FAILED);
  EXPECT_EQ (failed.code, VORN_RESOURCE_ERROR_FAILED);
  EXPECT_EQ (failed.error, "the disk is gone");
  EXPECT_EQ (live.messages, std::vector<std::string>{"record-done (error)"});
  EXPECT_EQ (GST_STATE (live.pipeline ()), GST_STATE_NULL) << "the product's own doing";
  EXPECT_EQ (probe (failed.filename).errors, "");
  EXPECT_FALSE (vorn_view_is_recording (live.view ()));
}

TEST (SlowDisk, CostsTheLastFragmentAtMost)
{
  LogCapture log;
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  ASSERT_TRUE (live.stream ());
  ASSERT_TRUE (live.start_recording ());
  live.wait_for_event (VORN_RECORD_EVENT_STARTED);
  ASSERT_TRUE (live.wait_for_recording (75));
  // From here on the disk takes nothing.
  const auto pad =
      vorn::adopt (gst_element_get_static_pad (live.find ("recordbin-filesink").get (), "sink"));
  const gulong probe_id = gst_pad_add_probe (
      pad.get (), GST_PAD_PROBE_TYPE_BLOCK_DOWNSTREAM,
      [] (GstPad *, GstPadProbeInfo *, gpointer) { return GST_PAD_PROBE_OK; }, nullptr, nullptr);
  EXPECT_TRUE (live.wait_for_stream (30)) << "the stream does not wait for it";
  ASSERT_TRUE (live.stop_recording ());
  EXPECT_TRUE (log.has ("the disk is too slow, a recording's last fragment may be missing",
                        VORN_LOG_PRIORITY_WARNING));
  const RecordEvent stopped = live.wait_for_event (VORN_RECORD_EVENT_STOPPED);
  const Movie movie = probe (stopped.filename);
  EXPECT_EQ (movie.errors, "");
  EXPECT_GE (movie.frames, 30);
  // The next one finds the disk as it was.
  gst_pad_remove_probe (pad.get (), probe_id);
  ASSERT_TRUE (live.start_recording ());
  live.wait_for_event (VORN_RECORD_EVENT_STARTED);
  ASSERT_TRUE (live.wait_for_recording (5));
  ASSERT_TRUE (live.stop_recording ());
  EXPECT_EQ (probe (live.wait_for_event (VORN_RECORD_EVENT_STOPPED).filename).errors, "");
}

// ---- Random

TEST (Random, StepsLeaveNothingBroken)
{
  const unsigned seed = soak () ? std::random_device () () : 20261120;
  SCOPED_TRACE ("seed " + std::to_string (seed));
  std::mt19937 random (seed);
  LogCapture log;
  LiveView live;
  ASSERT_TRUE (live.prepare ());
  const int steps = soak () ? 500 : 20;
  int started = 0;
  for (int step = 0; step < steps; step++) {
    const VornFormat formats[] = {{.resolution = {160, 120}, .framerate = {15, 1}, .flag = 1},
                                  {.resolution = {320, 240}, .framerate = {30, 1}, .flag = 1},
                                  {.resolution = {176, 144}, .framerate = {10, 1}, .flag = 1}};
    const VornFormat &format = formats[random () % 3];
    const bool recording = vorn_view_is_recording (live.view ());
    switch (random () % 6) {
    case 0:
      EXPECT_TRUE (live.stream ());
      break;
    case 1:
      EXPECT_TRUE (live.teardown ());
      break;
    case 2:
    case 3:
      if (recording) {
        EXPECT_TRUE (live.stop_recording ());
      } else {
        EXPECT_TRUE (live.start_recording ());
        started++;
      }
      break;
    case 4:
      EXPECT_EQ (vorn_view_set_streaming_format (live.view (), &format), !recording);
      break;
    default:
      EXPECT_EQ (vorn_view_set_recording_format (live.view (), &format), !recording);
      break;
    }
    // Some steps follow at once, some after a while.
    if (random () % 2 == 0 && vorn_view_is_streaming (live.view ())) {
      EXPECT_TRUE (live.wait_for_stream (1 + random () % 10)) << step;
    }
    if (random () % 2 == 0 && vorn_view_is_recording (live.view ())) {
      EXPECT_TRUE (live.wait_for_recording (1 + random () % 10)) << step;
    }
  }
  ASSERT_TRUE (live.teardown ());
  ASSERT_TRUE (live.stop_recording ());
  ASSERT_TRUE (vorn_recordings_wait (20000));
  run_pending ();
  int ended = 0;
  for (const RecordEvent &event : live.events)
    if (event.event == VORN_RECORD_EVENT_STOPPED) {
      EXPECT_EQ (probe (event.filename).errors, "") << event.filename;
      ended++;
    } else if (event.event == VORN_RECORD_EVENT_FAILED) {
      EXPECT_EQ (event.error, "it was ended before its first picture");
      ended++;
    }
  EXPECT_EQ (ended, started);
  for (const auto &entry : fs::directory_iterator (live.videos ()))
    EXPECT_TRUE (entry.path ().extension () == ".mp4" ||
                 entry.path ().filename () == ".last-recording")
        << entry.path ();
}

} // namespace
