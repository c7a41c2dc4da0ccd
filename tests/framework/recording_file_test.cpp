// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Names and leftovers of recordings on disk.
#include "recording_file.hpp"

#include <filesystem>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "live_view.hpp"
#include "log_capture.hpp"
#include "process.hpp"
#include "temp_dir.hpp"
#include <vorn/framework.h>
#include <vorn/recording.h>

namespace
{

namespace fs = std::filesystem;
using vorn::RecordingFile;

std::string created_in (const std::string &folder)
{
  vorn::ErrorOut error;
  const auto file = RecordingFile::create (folder, error.out ());
  return file ? fs::path (file->final_path ()).filename ().string () : error.message ();
}

TEST (RecordingFile, NumbersGoUpAndNeverComeBack)
{
  const TempDir folder;
  const std::string videos = folder.at ("a/videos"); // made on the way
  EXPECT_EQ (created_in (videos), "ZELTO_0001.mp4");
  EXPECT_EQ (created_in (videos), "ZELTO_0002.mp4");
  fs::remove_all (videos);
  EXPECT_EQ (created_in (videos), "ZELTO_0003.mp4") << "known to this process";
  // Known from the folder alone: another one, as after a start.
  const TempDir other;
  other.write (".last-recording", "41");
  EXPECT_EQ (created_in (other.path ()), "ZELTO_0042.mp4");
}

TEST (RecordingFile, WhatLiesThereCounts)
{
  const struct {
    const char *present;
    const char *next;
  } rows[] = {
      {"ZELTO_0007.mp4", "ZELTO_0008.mp4"},
      {".ZELTO_0007.mp4.part", "ZELTO_0008.mp4"},
      {"ZELTO_0007.mp4.damaged", "ZELTO_0008.mp4"},
      {"ZELTO_9999.mp4", "ZELTO_10000.mp4"},
      {"ZELTO_12345.mp4", "ZELTO_12346.mp4"},
      {"holiday.mp4", "ZELTO_0001.mp4"},
      {"ZELTO_.mp4", "ZELTO_0001.mp4"},
      {"ZELTO_-5.mp4", "ZELTO_0001.mp4"},
      {".last-recording", "ZELTO_0001.mp4"},
  };
  for (const auto &row : rows) {
    const TempDir folder;
    folder.write (row.present, "no number");
    EXPECT_EQ (created_in (folder.path ()), row.next) << row.present;
  }
}

TEST (RecordingFile, NamesWhileItIsNotFinished)
{
  const TempDir folder;
  vorn::ErrorOut error;
  const auto file = RecordingFile::create (folder.path (), error.out ());
  ASSERT_TRUE (file) << error.message ();
  EXPECT_EQ (file->final_path (), folder.at ("ZELTO_0001.mp4"));
  EXPECT_EQ (file->part_path (), folder.at (".ZELTO_0001.mp4.part"));
  EXPECT_EQ (file->rewrite_path (), folder.at (".ZELTO_0001.mp4.rewrite"));
  EXPECT_EQ (file->tags_path (), folder.at (".ZELTO_0001.mp4.tags"));
  EXPECT_TRUE (fs::exists (file->part_path ()));
  EXPECT_FALSE (fs::exists (file->final_path ()));
}

TEST (RecordingFile, OneIsAtItOnly)
{
  const TempDir folder;
  vorn::ErrorOut error;
  auto file = RecordingFile::create (folder.path (), error.out ());
  ASSERT_TRUE (file) << error.message ();
  const std::string part = file->part_path ();
  EXPECT_FALSE (RecordingFile::adopt (part));
  EXPECT_EQ (vorn_recordings_recover (folder.path ().c_str ()), 0u);
  EXPECT_TRUE (fs::exists (part)) << "who records keeps his file";
  file.reset ();
  auto adopted = RecordingFile::adopt (part);
  ASSERT_TRUE (adopted);
  EXPECT_EQ (adopted->final_path (), folder.at ("ZELTO_0001.mp4"));
  EXPECT_FALSE (RecordingFile::adopt (part));
}

TEST (RecordingFile, OtherFilesAreNotAdopted)
{
  const TempDir folder;
  for (const char *name : {"ZELTO_0001.mp4", ".ZELTO_0001.mp4", "ZELTO_0001.mp4.part", ".x.part"})
    EXPECT_FALSE (RecordingFile::adopt (folder.write (name, "x"))) << name;
  EXPECT_FALSE (RecordingFile::adopt (folder.at (".ZELTO_0009.mp4.part"))) << "is not there";
}

TEST (RecordingFile, FoldersThatCannotBeMade)
{
  const TempDir folder;
  const std::string file = folder.write ("file", "x");
  EXPECT_EQ (created_in (file + "/videos"),
             "cannot make the folder " + file + "/videos: Not a directory");
  EXPECT_EQ (created_in ("/proc/self"),
             "cannot make /proc/self/.ZELTO_0001.mp4.part: No such file or directory");
}

// ---- Leftovers

/** A recording as a killed process leaves it: fragments and perhaps a torn end. */
class LeftoverTest : public testing::Test
{
protected:
  void SetUp () override { vorn_framework_init (nullptr, nullptr); }

  void leave (int frames = 60, const std::string &torn_end = "")
  {
    const std::string script =
        "mkdir -p " + folder_.at ("videos") +
        " && gst-launch-1.0 -q videotestsrc num-buffers=" + std::to_string (frames) +
        " ! video/x-raw,width=64,height=48,framerate=30/1 ! x264enc key-int-max=30 tune=zerolatency"
        " ! video/x-h264,stream-format=avc ! mp4mux fragment-duration=1000 ! filesink location=" +
        part () + " && printf '" + torn_end + "' >> " + part ();
    const ProcessResult made = run_process ({"sh", "-c", script});
    ASSERT_EQ (made.status, 0) << made.errors;
  }
  std::string part () const { return folder_.at ("videos/.ZELTO_0003.mp4.part"); }
  std::string final_path () const { return folder_.at ("videos/ZELTO_0003.mp4"); }
  std::string decode ()
  {
    const ProcessResult result =
        run_process ({"ffprobe", "-v", "error", "-count_frames", "-show_entries",
                      "stream=nb_read_frames,disposition:stream_disposition=attached_pic", "-of",
                      "csv=p=0", final_path ()});
    return result.errors + result.output;
  }
  guint recover () { return vorn_recordings_recover (folder_.path ().c_str ()); }

  TempDir folder_;
  LogCapture log_;
};

TEST_F (LeftoverTest, IsFinished)
{
  folder_.write ("videos/.ZELTO_0003.mp4.rewrite", "half of it");
  ASSERT_NO_FATAL_FAILURE (leave (60, "\\0\\0\\1\\0moofto"));
  EXPECT_EQ (recover (), 1u);
  EXPECT_EQ (decode (), "60,0\n");
  EXPECT_FALSE (fs::exists (part ()));
  EXPECT_FALSE (fs::exists (folder_.at ("videos/.ZELTO_0003.mp4.rewrite")));
  EXPECT_TRUE (log_.texts (VORN_LOG_PRIORITY_WARNING).empty ());
}

TEST_F (LeftoverTest, HasItsCoverBeside)
{
  // Killed while it was rewritten: the muxer's tags are in no file yet.
  ASSERT_NO_FATAL_FAILURE (leave ());
  const auto cover = make_cover ();
  const vorn::OwnedString text (gst_tag_list_to_string (cover.get ()));
  folder_.write ("videos/.ZELTO_0003.mp4.tags", text.get ());
  EXPECT_EQ (recover (), 1u);
  const Movie movie = probe (final_path ());
  EXPECT_TRUE (movie.has_cover);
  EXPECT_EQ (movie.frames, 60);
  EXPECT_FALSE (fs::exists (folder_.at ("videos/.ZELTO_0003.mp4.tags")));
}

TEST_F (LeftoverTest, WasAllButDone)
{
  ASSERT_NO_FATAL_FAILURE (leave ());
  folder_.write ("videos/ZELTO_0003.mp4", "the finished one");
  folder_.write ("videos/.ZELTO_0003.mp4.tags", "x");
  EXPECT_EQ (recover (), 1u);
  EXPECT_FALSE (fs::exists (part ()));
  EXPECT_FALSE (fs::exists (folder_.at ("videos/.ZELTO_0003.mp4.tags")));
  EXPECT_EQ (fs::file_size (final_path ()), 16u) << "left alone";
}

TEST_F (LeftoverTest, HoldsNoPicture)
{
  folder_.write ("videos/.ZELTO_0003.mp4.part", "");
  folder_.write ("videos/.ZELTO_0004.mp4.part", "what is this");
  EXPECT_EQ (recover (), 0u);
  EXPECT_FALSE (fs::exists (part ()));
  EXPECT_TRUE (fs::exists (folder_.at ("videos/ZELTO_0004.mp4.damaged")));
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING),
             (std::vector<std::string>{"recording " + final_path () + " holds no picture: removed",
                                       "recording " + folder_.at ("videos/ZELTO_0004.mp4") +
                                           " holds no picture: kept with the ending .damaged"}));
  EXPECT_EQ (recover (), 0u);
}

TEST_F (LeftoverTest, FoldersWithoutAny)
{
  EXPECT_EQ (recover (), 0u);
  EXPECT_EQ (vorn_recordings_recover (folder_.at ("not there").c_str ()), 0u);
  CriticalCapture criticals;
  EXPECT_EQ (vorn_recordings_recover (nullptr), 0u);
  EXPECT_EQ (criticals.criticals ().size (), 1u);
  EXPECT_TRUE (vorn_recordings_wait (0));
}

} // namespace
