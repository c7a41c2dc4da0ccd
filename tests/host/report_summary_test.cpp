// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The key figures of a run, as JSON and on the terminal.
#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json-glib/json-glib.h>

#include "report/figures.hpp"
#include "report/summary.hpp"
#include "report_support.hpp"
#include "temp_dir.hpp"
#include <vorn/raii.hpp>

using namespace report;
using namespace report_support;
using testing::ElementsAre;
using testing::HasSubstr;

namespace
{

constexpr double nan = std::numeric_limits<double>::quiet_NaN ();

/** The values of a JSON text, asked for by paths: "stream.fps_in.mean", "photos.1.file". */
class Json
{
public:
  explicit Json (const std::string &text)
  {
    vorn::ErrorOut error;
    EXPECT_TRUE (json_parser_load_from_data (parser_.get (), text.c_str (), -1, error.out ()))
        << error.message () << "\n"
        << text;
  }
  JsonNode *node (const std::string &path) const
  {
    JsonNode *node = json_parser_get_root (parser_.get ());
    const vorn::OwnedStrings parts (g_strsplit (path.c_str (), ".", -1));
    for (gchar **part = parts.get (); node && *part; part++) {
      if (JSON_NODE_HOLDS_ARRAY (node))
        node = json_array_get_element (json_node_get_array (node),
                                       static_cast<guint> (g_ascii_strtoull (*part, nullptr, 10)));
      else
        node = json_object_get_member (json_node_get_object (node), *part);
    }
    EXPECT_TRUE (node) << path;
    return node;
  }
  double number (const std::string &path) const { return json_node_get_double (node (path)); }
  int64_t integer (const std::string &path) const { return json_node_get_int (node (path)); }
  std::string text (const std::string &path) const { return json_node_get_string (node (path)); }
  bool boolean (const std::string &path) const { return json_node_get_boolean (node (path)); }
  bool is_null (const std::string &path) const { return JSON_NODE_HOLDS_NULL (node (path)); }
  guint length (const std::string &path) const
  {
    return json_array_get_length (json_node_get_array (node (path)));
  }
  std::vector<std::string> keys (const std::string &path) const
  {
    std::vector<std::string> keys;
    const vorn::Owned<GList, g_list_free> list (
        json_object_get_members (json_node_get_object (node (path))));
    for (const GList *item = list.get (); item; item = item->next)
      keys.emplace_back (static_cast<const char *> (item->data));
    return keys;
  }
  JsonNode *root () const { return json_parser_get_root (parser_.get ()); }

private:
  vorn::Ref<JsonParser> parser_ = vorn::adopt (json_parser_new ());
};

Json json_of (const RunRecord &record)
{
  return Json (summary_json (record, figures_of (record)));
}

// ---- Figures

TEST (ReportFigures, OfAMadeUpRun)
{
  const Figures figures = figures_of (made_up_run ());
  EXPECT_DOUBLE_EQ (figures.duration_s, 10);
  EXPECT_DOUBLE_EQ (*figures.fps_in.mean, 24.5);
  EXPECT_DOUBLE_EQ (*figures.fps_in.least, 24);
  EXPECT_DOUBLE_EQ (*figures.fps_in.most, 25);
  EXPECT_DOUBLE_EQ (*figures.bitrate_kbit_s.mean, 1550);
  EXPECT_DOUBLE_EQ (*figures.latency_ms.mean, 45.5);
  EXPECT_DOUBLE_EQ (*figures.latency_ms.most, 50);
  EXPECT_EQ (figures.dropped, 1u);
  EXPECT_TRUE (figures.has_attitudes);
  EXPECT_NEAR (*figures.attitude_rate_hz, 100, 1e-9);
  EXPECT_NEAR (*figures.error_rms_deg, 1, 1e-12);
  EXPECT_NEAR (*figures.error_max_deg, 1, 1e-12);
  ASSERT_EQ (figures.recordings.size (), 2u);
  const RecordingFigures &first = figures.recordings[0];
  EXPECT_EQ (first.frames, 30u);
  EXPECT_EQ (first.key_frames, 1u);
  EXPECT_EQ (first.timed, 30u);
  // 30 frames over 30 steps of 40 ms: 29 intervals on average 1200 / 29 ms.
  EXPECT_NEAR (*first.duration_s, 1.2 * 30 / 29, 1e-9);
  EXPECT_NEAR (*first.fps, 29 / 1.2, 1e-9);
  EXPECT_NEAR (*first.bitrate_kbit_s, 240 / (1.2 * 30 / 29), 1e-9);
  EXPECT_NEAR (*first.interval_ms.mean, 1200.0 / 29, 1e-9);
  EXPECT_DOUBLE_EQ (*first.interval_ms.least, 40);
  EXPECT_DOUBLE_EQ (*first.interval_ms.most, 80);
  EXPECT_NEAR (*first.attitude_error_deg, 3, 1e-4);
  const RecordingFigures &second = figures.recordings[1];
  EXPECT_EQ (second.frames, 1u);
  EXPECT_FALSE (second.duration_s) << "one frame alone lasts nobody knows how long";
  EXPECT_FALSE (second.fps);
  EXPECT_FALSE (second.interval_ms.mean);
}

TEST (ReportFigures, OfNothing)
{
  const Figures figures = figures_of (RunRecord ());
  EXPECT_EQ (figures.duration_s, 0);
  EXPECT_FALSE (figures.fps_in.mean || figures.fps_in.least || figures.fps_in.most);
  EXPECT_FALSE (figures.has_attitudes);
  EXPECT_FALSE (figures.attitude_rate_hz || figures.error_rms_deg || figures.error_max_deg);
  EXPECT_TRUE (figures.recordings.empty ());
}

TEST (ReportFigures, LeaveOutWhatIsNoNumber)
{
  RunRecord record;
  for (const double value : {nan, 10.0, std::numeric_limits<double>::infinity (), 20.0}) {
    StatusSample sample;
    sample.fps_in = value;
    record.status.push_back (sample);
  }
  const Figures figures = figures_of (record);
  EXPECT_DOUBLE_EQ (*figures.fps_in.mean, 15);
  EXPECT_DOUBLE_EQ (*figures.fps_in.most, 20);
}

TEST (ReportFigures, FramesAtOneTime)
{
  RunRecord record;
  record.recordings.resize (1);
  Frame frame;
  frame.presentation_ns = 0;
  record.frames = {frame, frame};
  EXPECT_FALSE (figures_of (record).recordings[0].fps);
}

TEST (ReportFigures, IntervalsStopWhereNoTimeIsKnown)
{
  RunRecord record;
  record.recordings.resize (1);
  for (const int64_t time_ms : {0, 40, -1, 120, 160}) {
    Frame frame;
    if (time_ms >= 0)
      frame.capture_ns = time_ms * ms;
    record.frames.push_back (frame);
  }
  EXPECT_THAT (capture_intervals_ms (record, 0), ElementsAre (40, 40));
  EXPECT_TRUE (capture_intervals_ms (record, 1).empty ());
}

// ---- JSON

TEST (ReportJson, KeysAreStable)
{
  const Json json = json_of (made_up_run ());
  EXPECT_THAT (json.keys ("run"), ElementsAre ("build", "flight", "stream"));
  EXPECT_THAT (json.keys ("clock"), ElementsAre ("monotonic_ns", "utc_ns", "utc"));
  EXPECT_THAT (json.keys ("stream"),
               ElementsAre ("fps_in", "fps_out", "bitrate_kbit_s", "latency_ms", "dropped"));
  EXPECT_THAT (json.keys ("stream.fps_in"), ElementsAre ("mean", "min", "max"));
  EXPECT_THAT (json.keys ("attitude"),
               ElementsAre ("available", "reason", "count", "rate_hz", "gaps", "longest_step_ms",
                            "compared", "error_rms_deg", "error_max_deg", "kept_every"));
  EXPECT_THAT (json.keys ("recordings.0"),
               ElementsAre ("file", "bytes", "width", "height", "frames", "key_frames",
                            "frames_with_time", "duration_s", "fps", "bitrate_kbit_s",
                            "interval_ms", "attitude_error_rms_deg", "cover", "error"));
  EXPECT_THAT (json.keys ("photos.0"),
               ElementsAre ("file", "group", "time_s", "bytes", "width", "height", "error"));
  EXPECT_THAT (json.keys ("events.0"), ElementsAre ("time_s", "text"));
  EXPECT_THAT (json.keys ("seconds.0"),
               ElementsAre ("time_s", "mode", "fps_in", "fps_out", "bitrate_kbit_s", "latency_ms",
                            "attitudes_per_s", "error_deg", "dropped"));
}

TEST (ReportJson, Values)
{
  const Json json = json_of (made_up_run ());
  EXPECT_EQ (json.integer ("format"), 1);
  EXPECT_EQ (json.text ("run.flight"), "orbit <1>");
  EXPECT_EQ (json.integer ("clock.monotonic_ns"), 5000 * s);
  EXPECT_EQ (json.integer ("clock.utc_ns"), 1795183407 * s);
  EXPECT_EQ (json.text ("clock.utc"), "2026-11-20T14:03:27.000000Z");
  EXPECT_EQ (json.number ("duration_s"), 10);
  EXPECT_EQ (json.number ("stream.fps_in.mean"), 24.5);
  EXPECT_EQ (json.number ("stream.latency_ms.max"), 50);
  EXPECT_EQ (json.integer ("stream.dropped"), 1);
  EXPECT_TRUE (json.boolean ("attitude.available"));
  EXPECT_TRUE (json.is_null ("attitude.reason"));
  EXPECT_EQ (json.integer ("attitude.count"), 1001);
  EXPECT_EQ (json.integer ("attitude.compared"), 1001);
  EXPECT_EQ (json.number ("attitude.rate_hz"), 100);
  EXPECT_EQ (json.integer ("attitude.gaps"), 1000) << "steps of 10 ms, where 1 ms is regular";
  EXPECT_EQ (json.number ("attitude.longest_step_ms"), 10);
  EXPECT_EQ (json.number ("attitude.error_rms_deg"), 1);
  EXPECT_EQ (json.integer ("attitude.kept_every"), 1);
  EXPECT_EQ (json.length ("recordings"), 2u);
  EXPECT_EQ (json.text ("recordings.0.file"), "first & last.mp4");
  EXPECT_EQ (json.number ("recordings.0.width"), 1280);
  EXPECT_EQ (json.number ("recordings.0.fps"), 24.1667);
  EXPECT_EQ (json.number ("recordings.0.interval_ms.max"), 80);
  EXPECT_TRUE (json.boolean ("recordings.0.cover"));
  EXPECT_FALSE (json.boolean ("recordings.1.cover"));
  EXPECT_TRUE (json.is_null ("recordings.1.width"));
  EXPECT_TRUE (json.is_null ("recordings.1.duration_s"));
  EXPECT_TRUE (json.is_null ("recordings.0.error"));
  EXPECT_EQ (json.length ("photos"), 2u);
  EXPECT_EQ (json.text ("photos.0.group"), "single");
  EXPECT_EQ (json.number ("photos.0.time_s"), 6);
  EXPECT_TRUE (json.is_null ("photos.1.width"));
  EXPECT_EQ (json.text ("photos.1.error"), "it holds no picture");
  EXPECT_EQ (json.text ("events.1.text"), "photo");
  EXPECT_EQ (json.length ("seconds"), 10u);
  EXPECT_EQ (json.number ("seconds.4.time_s"), 5);
  EXPECT_EQ (json.text ("warnings.0"), "photo <two>: it holds no picture");
}

TEST (ReportJson, OfNothing)
{
  RunRecord record;
  record.no_attitude_reason = "the simple build has no attitude";
  const Json json = json_of (record);
  EXPECT_FALSE (json.boolean ("attitude.available"));
  EXPECT_EQ (json.text ("attitude.reason"), "the simple build has no attitude");
  for (const char *path : {"attitude.rate_hz", "attitude.longest_step_ms", "attitude.error_rms_deg",
                           "attitude.error_max_deg", "stream.fps_in.mean", "stream.latency_ms.max"})
    EXPECT_TRUE (json.is_null (path)) << path;
  for (const char *path : {"recordings", "photos", "events", "seconds", "warnings"})
    EXPECT_EQ (json.length (path), 0u) << path;
}

TEST (ReportJson, WhatIsNoNumberIsNull)
{
  RunRecord record;
  record.status.resize (1);
  record.status[0].fps_in = nan;
  record.status[0].latency_ms = std::numeric_limits<double>::infinity ();
  record.status[0].mode = "\xff broken";
  const Json json = json_of (record);
  EXPECT_TRUE (json.is_null ("seconds.0.fps_in"));
  EXPECT_TRUE (json.is_null ("seconds.0.latency_ms"));
  EXPECT_THAT (json.text ("seconds.0.mode"), HasSubstr (" broken"));
}

TEST (ReportJson, ItsClockIsReadBack)
{
  const TempDir dir;
  RunRecord record;
  record.clock = {123456789012345678, 1795183407123456789};
  std::string error;
  const auto pair = load_clock_pair (
      dir.write ("summary.json", summary_json (record, figures_of (record))), &error);
  ASSERT_TRUE (pair) << error;
  EXPECT_EQ (pair->monotonic_ns, record.clock.monotonic_ns);
  EXPECT_EQ (pair->utc_ns, record.clock.utc_ns);
}

// ---- Terminal

TEST (ReportTable, OfAMadeUpRun)
{
  const RunRecord record = made_up_run ();
  EXPECT_EQ (summary_table (record, figures_of (record)),
             "  run         10.0 s from 2026-11-20T14:03:27 UTC\n"
             "  build       full\n"
             "  flight      orbit <1>\n"
             "  stream      rtsp://host:8554/live\n"
             "  frames      24.5 fps in, 25.0 fps out, 1550 kbit/s, latency 45.5 ms (at most 50.0 "
             "ms), 1 dropped\n"
             "  attitude    1001 at 100.0 Hz, 1000 gaps, error RMS 1.000 degrees, at most 1.000 "
             "degrees\n"
             "  recordings  first & last.mp4: 1280x720, 30 frames in 1.24 s, 123.5 kB, with "
             "cover, capture times in 30\n"
             "              videos/second.mp4: 1 frames in -, 0 B, no cover, capture times in 1\n"
             "  photos      one.jpg: 1600x900, 54.3 kB, single\n"
             "              100% \"two\".jpg: it holds no picture\n"
             "  warning     photo <two>: it holds no picture\n");
}

TEST (ReportTable, OfNothing)
{
  RunRecord record;
  EXPECT_THAT (summary_table (record, figures_of (record)),
               HasSubstr ("  attitude    none: no attitude came\n"
                          "  recordings  none\n"
                          "  photos      none\n"));
  record.no_attitude_reason = "the simple build has no attitude";
  EXPECT_THAT (summary_table (record, figures_of (record)),
               HasSubstr ("  attitude    none: the simple build has no attitude\n"));
  record.recordings.resize (1);
  record.recordings[0].path = "a.mp4";
  record.recordings[0].error = "it is empty";
  EXPECT_THAT (summary_table (record, figures_of (record)),
               HasSubstr ("  recordings  a.mp4: it is empty\n"));
}

TEST (ReportTable, StatusLine)
{
  const StatusSample full = made_up_run ().status[4];
  EXPECT_EQ (status_line (full, 5), "   5 s  recording 1280x720 at 25/1  in 25.0 out 25.0 fps  "
                                    "1500 kbit/s  latency 45 ms  100 attitudes/s  error 1.000 deg  "
                                    "0 dropped");
  EXPECT_EQ (status_line (StatusSample (), 1234.4),
             "1234 s  in - out - fps  - kbit/s  latency - ms  - attitudes/s  error - deg  "
             "0 dropped");
  StatusSample odd;
  odd.fps_in = nan;
  EXPECT_THAT (status_line (odd, 12345), testing::StartsWith ("12345 s  in - out"));
}

} // namespace
