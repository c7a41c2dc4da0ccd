// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A run's results as the host makes them: fed while time goes by, files at the end.
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json-glib/json-glib.h>

#include <vorn/framework.h>

#include "own_namespace.hpp"
#include "recording_maker.hpp"
#include "report/run_report.hpp"
#include "report/summary.hpp"
#include "temp_dir.hpp"
#include <vorn/raii.hpp>

using namespace report;
using testing::HasSubstr;

namespace
{

constexpr int64_t ms = 1'000'000;
constexpr int64_t s = 1000 * ms;

std::string content_of (const std::string &path)
{
  std::ifstream file (path, std::ios::binary);
  return {std::istreambuf_iterator<char> (file), {}};
}

std::vector<std::vector<std::string>> csv_of (const std::string &path)
{
  std::vector<std::vector<std::string>> rows;
  std::ifstream file (path);
  for (std::string line; std::getline (file, line);) {
    std::vector<std::string> fields;
    std::istringstream stream (line + ",");
    for (std::string field; std::getline (stream, field, ',');)
      fields.push_back (field);
    rows.push_back (fields);
  }
  return rows;
}

timespec timespec_of (int64_t time_ns)
{
  return {static_cast<time_t> (time_ns / s), static_cast<long> (time_ns % s)};
}

/**
 * Publishes a sample each millisecond as long as it lives: the truth level, the estimate 90 degrees
 * off.
 */
class Drone
{
public:
  Drone ()
  {
    const char *const names[] = {"time_s", "q_x", "q_y", "q_z", "q_w"};
    for (size_t i = 0; i < std::size (names); i++)
      vorn_telemetry_producer_register (producer_.get (), names[i], VORN_TELEMETRY_F64,
                                        sizeof (double), 1, &truth_[i]);
    EXPECT_EQ (vorn_telemetry_producer_complete (producer_.get ()), 0);
    const VornBlackboardHeader header = {16, 2000, 1000, 4};
    writer_.reset (vorn_blackboard_create ("accurate_attitude", &header));
    EXPECT_TRUE (writer_);
    thread_ = std::thread ([this] { run (); });
  }
  ~Drone ()
  {
    stop_ = true;
    thread_.join ();
  }
  Drone (const Drone &) = delete;
  Drone &operator= (const Drone &) = delete;

private:
  void run ()
  {
    const float estimate[] = {0, 0, 0.70710678f, 0.70710678f};
    for (int64_t next_ns = vorn::AttitudeMonitor::monotonic_ns (); !stop_;) {
      for (const int64_t now_ns = vorn::AttitudeMonitor::monotonic_ns (); next_ns <= now_ns;
           next_ns += ms) {
        truth_[0] = static_cast<double> (next_ns) * 1e-9;
        const timespec time = timespec_of (next_ns);
        vorn_telemetry_producer_put (producer_.get (), &time);
        vorn_blackboard_write (writer_.get (), estimate, &time);
      }
      std::this_thread::sleep_for (std::chrono::milliseconds (1));
    }
  }

  double truth_[5] = {0, 0, 0, 0, 1};
  vorn::Owned<VornTelemetryProducer, vorn_telemetry_producer_destroy> producer_{
      vorn_telemetry_producer_new ("truth", 4000, 1000)};
  vorn::Owned<VornBlackboardWriter, vorn_blackboard_writer_close> writer_;
  std::atomic<bool> stop_ = false;
  std::thread thread_;
};

/** Calls until the answer is yes; fails the test when it is not within half a minute. */
void await (const std::function<bool ()> &condition)
{
  const int64_t end_ns = vorn::AttitudeMonitor::monotonic_ns () + 30 * s;
  while (!condition ()) {
    ASSERT_LT (vorn::AttitudeMonitor::monotonic_ns (), end_ns);
    std::this_thread::sleep_for (std::chrono::milliseconds (5));
  }
}

class ReportRun : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }
  RunReportOptions options (const std::string &no_attitude_reason = {}) const
  {
    return {dir_.path (), {{"build", "full"}}, no_attitude_reason};
  }
  vorn::Ref<JsonParser> summary () const
  {
    auto parser = vorn::adopt (json_parser_new ());
    EXPECT_TRUE (
        json_parser_load_from_file (parser.get (), dir_.at ("summary.json").c_str (), nullptr));
    return parser;
  }

  TempDir dir_;
  OwnNamespace namespace_;
};

TEST_F (ReportRun, FromTheFirstSecondToTheFiles)
{
  const Drone drone;
  RunReport report (options ());
  report.add_event ("recording starts");
  await ([&] { return report.add_status ({}).attitudes_per_s > 0; });
  const int64_t first_ns = vorn::AttitudeMonitor::monotonic_ns ();
  // Frames that were captured while the attitudes came; the seventh was never told of.
  for (int i = 0; i < 30; i++)
    if (i != 7)
      report.add_capture (first_ns + i * 33'366'667);
  await ([&] { return vorn::AttitudeMonitor::monotonic_ns () > first_ns + s; });
  StatusSample sample;
  sample.fps_in = 30;
  const StatusSample kept = report.add_status (sample);
  EXPECT_GT (kept.time_ns, report.clock ().monotonic_ns);
  EXPECT_EQ (kept.fps_in, 30);
  EXPECT_GT (kept.attitudes_per_s.value_or (0), 100);
  EXPECT_NEAR (kept.error_deg.value_or (0), 90, 1e-3);
  make_recording ({.path = dir_.at ("flight.mp4"),
                   .frames = 30,
                   .first_capture_ns = static_cast<GstClockTime> (first_ns),
                   .has_cover = true});
  report.add_recording (dir_.at ("flight.mp4"));
  report.add_photo (dir_.write ("photo.jpg", make_jpeg (640, 360)), "burst");
  report.add_warning ("the sun was in the way");
  report.set_meta ("stream", "rtsp://host/");
  report.set_meta ("build", "fuller");

  std::string error;
  const std::string table = report.finish (&error);
  EXPECT_EQ (error, "");
  EXPECT_THAT (table, HasSubstr ("  build       fuller\n  stream      rtsp://host/\n"));
  EXPECT_THAT (table, HasSubstr ("flight.mp4: 128x96, 30 frames in 1.00 s, "));
  EXPECT_THAT (table, HasSubstr (", with cover, capture times in 30\n"));
  EXPECT_THAT (table, HasSubstr ("photo.jpg: 640x360, "));
  EXPECT_THAT (table, HasSubstr ("error RMS 90.000 degrees, at most 90.000 degrees\n"));
  EXPECT_THAT (table, HasSubstr ("  warning     the sun was in the way\n"));

  const auto frames = csv_of (dir_.at ("frames.csv"));
  ASSERT_EQ (frames.size (), 31u);
  for (int i = 0; i < 30; i++) {
    SCOPED_TRACE (i);
    const auto &row = frames[static_cast<size_t> (i) + 1];
    ASSERT_EQ (row.size (), 17u);
    EXPECT_EQ (row[0], "flight.mp4");
    EXPECT_EQ (row[1], std::to_string (i));
    // Exact where it was told, to half a tick of 1/60000 s and a microsecond where not.
    const double captured_s = static_cast<double> (first_ns + i * 33'366'667LL) * 1e-9;
    EXPECT_NEAR (std::stod (row[5]), captured_s, i == 7 ? 9.4e-6 : 2e-9);
    EXPECT_EQ (row[8] + "," + row[9] + "," + row[10] + "," + row[11], "0,0,0.70710677,0.70710677");
    EXPECT_EQ (row[12] + "," + row[13] + "," + row[14] + "," + row[15], "0,0,0,1");
    EXPECT_EQ (row[16], "90.00000");
  }
  const auto attitudes = csv_of (dir_.at ("attitude.csv"));
  EXPECT_GT (attitudes.size (), 900u);

  const auto parser = summary ();
  JsonObject *root = json_node_get_object (json_parser_get_root (parser.get ()));
  EXPECT_EQ (
      json_object_get_int_member (json_object_get_object_member (root, "clock"), "monotonic_ns"),
      report.clock ().monotonic_ns);
  EXPECT_THAT (content_of (dir_.at ("report.html")), HasSubstr ("photo.jpg"));
}

TEST_F (ReportRun, WithoutAttitudeChain)
{
  RunReport report (options ("the simple build has no attitude"));
  const StatusSample kept = report.add_status ({});
  EXPECT_FALSE (kept.attitudes_per_s);
  EXPECT_FALSE (kept.error_deg);
  EXPECT_THAT (status_line (kept, 1), HasSubstr (" - attitudes/s  error - deg"));
  std::string error;
  EXPECT_THAT (report.finish (&error),
               HasSubstr ("  attitude    none: the simple build has no attitude\n"));
  EXPECT_EQ (error, "");
  EXPECT_EQ (csv_of (dir_.at ("attitude.csv")).size (), 1u);
}

TEST_F (ReportRun, ThatWasOverAtOnce)
{
  RunReport report (options ());
  std::string error;
  const std::string table = report.finish (&error);
  EXPECT_EQ (error, "");
  EXPECT_THAT (table, HasSubstr ("  warning     no attitude came\n"));
  for (const char *name : {"summary.json", "frames.csv", "attitude.csv", "report.html"})
    EXPECT_TRUE (std::filesystem::exists (dir_.at (name))) << name;
}

TEST_F (ReportRun, FindsTheFilesOfItsFolder)
{
  RunReport report (options ("none"));
  dir_.write ("videos/readme.txt", "");
  make_recording ({.path = dir_.at ("videos/b.mp4"), .frames = 3});
  make_recording ({.path = dir_.at ("videos/a.mp4"), .frames = 4});
  report.add_recording (dir_.at ("videos/../videos/b.mp4"));
  dir_.write ("photos/group/1.jpg", make_jpeg (320, 180));
  report.add_files_of_folder ();
  report.add_files_of_folder ();
  std::string error;
  EXPECT_THAT (report.finish (&error),
               testing::ContainsRegex ("recordings  videos/b.mp4: 128x96, 3 frames.*\n"
                                       " +videos/a.mp4: 128x96, 4 frames.*\n"
                                       "  photos      photos/group/1.jpg: 320x180"));
  const auto parser = summary ();
  JsonObject *root = json_node_get_object (json_parser_get_root (parser.get ()));
  JsonArray *photos = json_object_get_array_member (root, "photos");
  ASSERT_EQ (json_array_get_length (photos), 1u);
  JsonObject *photo = json_array_get_object_element (photos, 0);
  EXPECT_NEAR (json_object_get_double_member (photo, "time_s"), 0, 10);
  EXPECT_THAT (content_of (dir_.at ("report.html")), HasSubstr ("href=\"./photos/group/1.jpg\""));
}

TEST_F (ReportRun, DamagedFilesAreNamed)
{
  RunReport report (options ("none"));
  report.add_photo (dir_.write ("a.jpg", "text"));
  report.add_recording (dir_.write ("b.mp4", "text"));
  std::string error;
  const std::string table = report.finish (&error);
  EXPECT_EQ (error, "") << "the results themselves could be written";
  EXPECT_THAT (table, HasSubstr ("  warning     a.jpg: "));
  EXPECT_THAT (table, HasSubstr ("  warning     b.mp4: it is neither an MP4 file nor an H.264 byte "
                                 "stream\n"));
}

TEST_F (ReportRun, FilesThatCannotBeWritten)
{
  RunReportOptions nowhere = options ("none");
  nowhere.folder = dir_.at ("absent");
  RunReport report (nowhere);
  std::string error;
  EXPECT_NE (report.finish (&error), "") << "the table is there all the same";
  for (const char *name : {"attitude.csv", "frames.csv", "summary.json", "report.html"})
    EXPECT_THAT (error, HasSubstr ("cannot write " + dir_.at ("absent/") + name + ": "));
}

TEST_F (ReportRun, FedFromManyThreads)
{
  RunReport report (options ("none"));
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; t++)
    threads.emplace_back ([&report, t] {
      for (int i = 0; i < 50; i++) {
        report.add_status ({});
        report.add_event ("event");
        report.add_warning ("warning");
        report.add_capture (i);
        report.set_meta ("key" + std::to_string (t), std::to_string (i));
      }
    });
  for (std::thread &thread : threads)
    thread.join ();
  std::string error;
  report.finish (&error);
  const auto parser = summary ();
  JsonObject *root = json_node_get_object (json_parser_get_root (parser.get ()));
  for (const char *name : {"seconds", "events", "warnings"})
    EXPECT_EQ (json_array_get_length (json_object_get_array_member (root, name)), 200u) << name;
}

} // namespace
