// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The frames of recordings and what is known of their moments, up to the CSV files; small pictures.
#include <cmath>
#include <fstream>
#include <numbers>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vorn/framework.h>

#include "recording_maker.hpp"
#include "report/csv.hpp"
#include "report/frames.hpp"
#include "report/media.hpp"
#include "temp_dir.hpp"

using namespace report;
using testing::HasSubstr;

namespace
{

constexpr int64_t ms = 1'000'000;
constexpr int64_t s = 1000 * ms;
constexpr int64_t day = 86400 * s;
constexpr double degree = std::numbers::pi / 180;

Attitude yaw (double degrees)
{
  return {0, 0, static_cast<float> (std::sin (degrees * degree / 2)),
          static_cast<float> (std::cos (degrees * degree / 2))};
}

std::vector<std::string> lines_of (const std::string &path)
{
  std::vector<std::string> lines;
  std::ifstream file (path);
  for (std::string line; std::getline (file, line);)
    lines.push_back (line);
  return lines;
}

std::vector<std::string> fields_of (const std::string &line)
{
  std::vector<std::string> fields;
  std::istringstream stream (line + ",");
  for (std::string field; std::getline (stream, field, ',');)
    fields.push_back (field);
  return fields;
}

class ReportFrames : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }
  TempDir dir_;
};

// ---- Reading

TEST_F (ReportFrames, OfARecording)
{
  const int64_t first = 3 * day + 12345 * s + 678 * ms;
  make_recording ({.path = dir_.at ("a.mp4"),
                   .frames = 35,
                   .first_capture_ns = static_cast<GstClockTime> (first)});
  std::string error;
  const std::vector<Frame> frames = read_frames (dir_.at ("a.mp4"), &error);
  EXPECT_EQ (error, "");
  ASSERT_EQ (frames.size (), 35u);
  for (size_t i = 0; i < frames.size (); i++) {
    const Frame &frame = frames[i];
    EXPECT_EQ (frame.index, i);
    EXPECT_EQ (frame.key_frame, i == 0 || i == 30);
    EXPECT_GT (frame.bytes, 10u);
    ASSERT_TRUE (frame.presentation_ns && frame.sei_time_of_day_us);
    const auto step = static_cast<int64_t> (i);
    EXPECT_NEAR (static_cast<double> (*frame.presentation_ns),
                 static_cast<double> (step) * 1001 / 30000 * 1e9, 1e6);
    // Half a tick of 1/60000 s.
    const int64_t captured_us = (first + step * 33366667) % day / 1000;
    EXPECT_NEAR (static_cast<double> (*frame.sei_time_of_day_us), static_cast<double> (captured_us),
                 9.5);
    EXPECT_FALSE (frame.capture_ns) << "the day is not known yet";
  }
}

TEST_F (ReportFrames, FilesThatCannotBeRead)
{
  std::string error;
  EXPECT_TRUE (read_frames (dir_.at ("absent.mp4"), &error).empty ());
  EXPECT_EQ (error, "No such file or directory");
  EXPECT_TRUE (read_frames (dir_.write ("text.mp4", "text"), &error).empty ());
  EXPECT_EQ (error, "it is neither an MP4 file nor an H.264 byte stream");

  RunRecord record;
  record.recordings.resize (2);
  record.recordings[0].path = dir_.at ("absent.mp4");
  record.recordings[1].path = dir_.write ("empty.mp4", "");
  add_frames (&record);
  EXPECT_TRUE (record.frames.empty ());
  EXPECT_EQ (record.recordings[0].error, "No such file or directory");
  EXPECT_THAT (record.warnings, testing::ElementsAre ("absent.mp4: No such file or directory",
                                                      "empty.mp4: it is empty"));
}

TEST_F (ReportFrames, ABrokenOneGivesWhatItHas)
{
  make_recording ({.path = dir_.at ("whole.mp4"), .muxer = "mp4mux fragment-duration=200"});
  std::ifstream file (dir_.at ("whole.mp4"), std::ios::binary);
  std::string bytes (std::istreambuf_iterator<char> (file), {});
  bytes.resize (bytes.size () * 6 / 10);
  dir_.write ("cut.mp4", bytes);
  std::string error;
  const std::vector<Frame> frames = read_frames (dir_.at ("cut.mp4"), &error);
  EXPECT_GT (frames.size (), 0u);
  EXPECT_LT (frames.size (), 40u);
}

// ---- Matching

Frame frame_at (int64_t time_of_day_us)
{
  Frame frame;
  frame.sei_time_of_day_us = time_of_day_us;
  return frame;
}

TEST_F (ReportFrames, TheDayIsThatBeforeTheEnd)
{
  const struct {
    const char *what;
    int64_t capture_ns; // whole microseconds
    int64_t finished_ns;
  } rows[] = {{"first day", 100 * s, 103 * s},
              {"third day", 2 * day + 100 * s, 2 * day + 103 * s},
              {"over midnight", 2 * day - s, 2 * day + s},
              {"many hours of it", 2 * day - 22 * 3600 * s, 2 * day},
              {"at once", 100 * s, 100 * s}};
  for (const auto &row : rows) {
    std::vector<Frame> frames = {frame_at (row.capture_ns % day / 1000)};
    match_frames (RunRecord (), row.finished_ns, &frames);
    EXPECT_EQ (frames[0].capture_ns, row.capture_ns) << row.what;
    EXPECT_FALSE (frames[0].estimate.known ());
    EXPECT_FALSE (frames[0].truth.known ());
  }
}

TEST_F (ReportFrames, TheExactTimeIsTheNearestOne)
{
  RunRecord record;
  record.captures_ns = {1000 * ms, 1033 * ms, 1066 * ms};
  const struct {
    int64_t sei_us;
    int64_t capture_ns;
  } rows[] = {{1'000'000, 1000 * ms},
              {1'008'300, 1000 * ms},
              {992'000, 1000 * ms},
              {1'025'000, 1033 * ms},
              {1'041'000, 1033 * ms},
              {1'066'001, 1066 * ms},
              {990'000, 990 * ms},
              {1'080'000, 1080 * ms}, // none is meant
              {1'016'500, 1016500 * ms / 1000}};
  for (const auto &row : rows) {
    std::vector<Frame> frames = {frame_at (row.sei_us)};
    match_frames (record, 2 * s, &frames);
    EXPECT_EQ (frames[0].capture_ns, row.capture_ns) << row.sei_us;
  }
}

TEST_F (ReportFrames, AttitudesOfTheMoment)
{
  RunRecord record;
  for (int i = 0; i <= 100; i++)
    record.attitudes.add ({s + i * ms, yaw (i), yaw (i + 1)});
  std::vector<Frame> frames = {frame_at (1'050'500), frame_at (900'000), Frame ()};
  match_frames (record, 2 * s, &frames);
  EXPECT_NEAR (*angle_between (frames[0].estimate, yaw (50)) / degree, 0, 1e-4);
  EXPECT_NEAR (*angle_between (frames[0].truth, yaw (51.5)) / degree, 0, 1e-4);
  EXPECT_FALSE (frames[1].estimate.known ()) << "before the first";
  EXPECT_FALSE (frames[2].capture_ns) << "a frame without SEI";
}

// ---- CSV

TEST_F (ReportFrames, AttitudeCsv)
{
  RunRecord record;
  record.attitudes.add ({12 * s + 345, yaw (0), yaw (90)});
  record.attitudes.add ({13 * s, {}, yaw (0)});
  record.attitudes.add ({14 * s, yaw (0), {}});
  ASSERT_EQ (write_attitude_csv (record, dir_.at ("a.csv")), "");
  const auto lines = lines_of (dir_.at ("a.csv"));
  ASSERT_EQ (lines.size (), 4u);
  EXPECT_EQ (lines[0], "time_s,qx,qy,qz,qw,roll_deg,pitch_deg,yaw_deg,true_qx,true_qy,true_qz,"
                       "true_qw,true_roll_deg,true_pitch_deg,true_yaw_deg,error_deg");
  EXPECT_EQ (lines[1], "12.000000345,0,0,0,1,0.00000,0.00000,0.00000,0,0,0.70710677,0.70710677,"
                       "0.00000,0.00000,90.00000,90.00000");
  EXPECT_EQ (lines[2], "13.000000000,,,,,,,,0,0,0,1,0.00000,0.00000,0.00000,");
  EXPECT_EQ (lines[3], "14.000000000,0,0,0,1,0.00000,0.00000,0.00000,,,,,,,,");
}

TEST_F (ReportFrames, FramesCsv)
{
  RunRecord record;
  record.clock = {10 * s, 1795183407 * s}; // 2026-11-20 14:03:27
  record.recordings.resize (2);
  record.recordings[0].path = "/out/a.mp4";
  record.recordings[1].path = "/out/b, \"c\".mp4";
  Frame whole;
  whole.index = 7;
  whole.key_frame = true;
  whole.bytes = 1234;
  whole.presentation_ns = s / 2;
  whole.capture_ns = 12 * s + 250 * ms;
  whole.sei_time_of_day_us = 12'250'008;
  whole.estimate = yaw (0);
  whole.truth = yaw (90);
  Frame bare;
  bare.recording = 1;
  record.frames = {whole, bare};
  ASSERT_EQ (write_frames_csv (record, dir_.at ("f.csv")), "");
  const auto lines = lines_of (dir_.at ("f.csv"));
  ASSERT_EQ (lines.size (), 3u);
  EXPECT_EQ (lines[0], "recording,frame,key_frame,bytes,presentation_s,capture_s,capture_utc,"
                       "sei_time,qx,qy,qz,qw,true_qx,true_qy,true_qz,true_qw,error_deg");
  EXPECT_EQ (lines[1], "a.mp4,7,1,1234,0.500000000,12.250000000,2026-11-20T14:03:29.250000Z,"
                       "00:00:12.250008,0,0,0,1,0,0,0.70710677,0.70710677,90.00000");
  EXPECT_EQ (lines[2], "\"b, \"\"c\"\".mp4\",0,0,0,,,,,,,,,,,,,");
}

TEST_F (ReportFrames, EmptyTablesHaveTheirHeads)
{
  ASSERT_EQ (write_attitude_csv (RunRecord (), dir_.at ("a.csv")), "");
  ASSERT_EQ (write_frames_csv (RunRecord (), dir_.at ("f.csv")), "");
  EXPECT_EQ (lines_of (dir_.at ("a.csv")).size (), 1u);
  EXPECT_EQ (lines_of (dir_.at ("f.csv")).size (), 1u);
  EXPECT_EQ (fields_of (lines_of (dir_.at ("a.csv"))[0]).size (), 16u);
  EXPECT_EQ (fields_of (lines_of (dir_.at ("f.csv"))[0]).size (), 17u);
}

TEST_F (ReportFrames, CsvThatCannotBeWritten)
{
  RunRecord record;
  for (int i = 0; i < 1000; i++)
    record.attitudes.add ({i * ms, yaw (0), yaw (90)});
  const std::string nowhere = dir_.at ("absent/a.csv");
  EXPECT_EQ (write_attitude_csv (record, nowhere),
             "cannot write " + nowhere + ": No such file or directory");
  EXPECT_EQ (write_frames_csv (record, nowhere),
             "cannot write " + nowhere + ": No such file or directory");
  EXPECT_EQ (write_attitude_csv (record, "/dev/full"),
             "cannot write /dev/full: No space left on device");
  EXPECT_EQ (write_frames_csv (record, "/dev/full"),
             "cannot write /dev/full: No space left on device");
}

// ---- Pictures

TEST_F (ReportFrames, PhotosGetSmallPictures)
{
  Photo photo;
  photo.path = dir_.write ("a b%d.jpg", make_jpeg (1600, 900));
  inspect_photo (&photo);
  EXPECT_EQ (photo.error, "");
  EXPECT_EQ (photo.width, 1600);
  EXPECT_EQ (photo.height, 900);
  EXPECT_GT (photo.bytes, 1000u);
  Photo small;
  small.path = dir_.write ("small.jpg", photo.thumbnail_jpeg);
  inspect_photo (&small);
  EXPECT_EQ (small.width, 480);
  EXPECT_EQ (small.height, 270);
}

TEST_F (ReportFrames, PhotosThatCannotBeRead)
{
  for (const std::string &path :
       {dir_.at ("absent.jpg"), dir_.write ("empty.jpg", ""), dir_.write ("text.jpg", "text")}) {
    Photo photo;
    photo.path = path;
    inspect_photo (&photo);
    EXPECT_NE (photo.error, "") << path;
    EXPECT_EQ (photo.error == "it holds no picture", path == dir_.at ("empty.jpg")) << photo.error;
    EXPECT_EQ (photo.thumbnail_jpeg, "");
    EXPECT_EQ (photo.width, 0);
  }
}

TEST_F (ReportFrames, RecordingsShowTheirCover)
{
  make_recording ({.path = dir_.at ("with.mp4"), .frames = 3, .has_cover = true});
  make_recording ({.path = dir_.at ("without.mp4"), .frames = 3});
  for (const bool has_cover : {true, false}) {
    Recording recording;
    recording.path = dir_.at (has_cover ? "with.mp4" : "without.mp4");
    inspect_recording (&recording);
    EXPECT_EQ (recording.width, 128);
    EXPECT_EQ (recording.height, 96);
    EXPECT_GT (recording.bytes, 1000u);
    ASSERT_EQ (recording.cover_jpeg.empty (), !has_cover);
    if (!has_cover)
      continue;
    Photo cover;
    cover.path = dir_.write ("cover.jpg", recording.cover_jpeg);
    inspect_photo (&cover);
    EXPECT_EQ (cover.width, 480);
    EXPECT_EQ (cover.height, 360);
  }
  Recording absent;
  absent.path = dir_.at ("absent.mp4");
  inspect_recording (&absent);
  EXPECT_EQ (absent.width, 0);
  EXPECT_EQ (absent.bytes, 0u);
}

} // namespace
