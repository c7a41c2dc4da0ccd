// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The tool h264-sei, run on recordings as the product makes them: encoded, post-processed, muxed.
// argv[1] is the tool.
#include <cmath>
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <json-glib/json-glib.h>

#include <vorn/framework.h>

#include "frame_postprocessor_support.hpp"
#include "process.hpp"
#include "recording_maker.hpp"
#include "temp_dir.hpp"

using h264::Bytes;
using testing::HasSubstr;
using testing::StartsWith;

namespace
{

std::string tool; // NOLINT(bugprone-throwing-static-initialization)

constexpr int frame_count = 40;
// A minute before the second day begins.
constexpr GstClockTime first_capture_ns = (GstClockTime{86400} - 1) * GST_SECOND + 123456789;
constexpr GstClockTime capture_step_ns = 33366667;

/** How the tool ended, by itself, and what it printed. */
struct Outcome {
  int status;
  std::string out;
  std::string err;

  std::vector<std::string> lines () const
  {
    std::vector<std::string> result;
    std::istringstream stream (out);
    for (std::string line; std::getline (stream, line);)
      result.push_back (line);
    return result;
  }
};

Outcome run (std::vector<std::string> arguments)
{
  arguments.insert (arguments.begin (), tool);
  const ProcessResult result = run_process (arguments);
  EXPECT_TRUE (result.exited) << result.errors;
  return {result.status, result.output, result.errors};
}

class H264SeiTool : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }
  std::string path (const std::string &name) const { return folder_.at (name); }

  std::string write (const std::string &name, const Bytes &bytes) const
  {
    std::ofstream (path (name), std::ios::binary)
        .write (reinterpret_cast<const char *> (bytes.data ()),
                static_cast<std::streamsize> (bytes.size ()));
    return path (name);
  }

  Bytes read (const std::string &name) const
  {
    std::ifstream file (path (name), std::ios::binary);
    return Bytes (std::istreambuf_iterator<char> (file), {});
  }

  /** Records; the muxer is "mp4mux" with properties, or nothing for a byte stream. */
  std::string record (const std::string &name, const std::string &muxer) const
  {
    make_recording ({.path = path (name),
                     .muxer = muxer,
                     .frames = frame_count,
                     .first_capture_ns = first_capture_ns,
                     .capture_step_ns = capture_step_ns});
    return path (name);
  }

  TempDir folder_;
};

std::string time_of_day (int frame)
{
  const GstClockTime us =
      (first_capture_ns + static_cast<GstClockTime> (frame) * capture_step_ns) / 1000;
  // Carried in ticks of 1/60000 s, shown in microseconds.
  const GstClockTime ticks = (us % 1000000 * 60000 + 500000) / 1000000;
  const GstClockTime shown =
      us / 1000000 * 1000000 + gst_util_uint64_scale_round (ticks, 1000000, 60000);
  const vorn::OwnedString text (g_strdup_printf (
      "%02u:%02u:%02u.%06u", static_cast<guint> (shown / 3600000000 % 24),
      static_cast<guint> (shown / 60000000 % 60), static_cast<guint> (shown / 1000000 % 60),
      static_cast<guint> (shown % 1000000)));
  return text.get ();
}

} // namespace

class H264SeiToolFiles : public H264SeiTool,
                         public testing::WithParamInterface<std::pair<const char *, const char *>>
{
};

TEST_P (H264SeiToolFiles, ShowsTheCaptureTimeOfEveryFrame)
{
  const auto &[name, muxer] = GetParam ();
  const std::string file = record (name, muxer);
  const Outcome json = run ({"--json", file});
  EXPECT_EQ (json.status, 0);
  EXPECT_EQ (json.err, "");
  ASSERT_EQ (json.lines ().size (), static_cast<size_t> (frame_count));
  for (int i = 0; i < frame_count; i++) {
    const vorn::Ref<JsonParser> parser = vorn::adopt (json_parser_new ());
    ASSERT_TRUE (json_parser_load_from_data (
        parser.get (), json.lines ()[static_cast<size_t> (i)].c_str (), -1, nullptr));
    JsonObject *unit = json_node_get_object (json_parser_get_root (parser.get ()));
    EXPECT_EQ (json_object_get_int_member (unit, "index"), i);
    const bool key_frame = i == 0 || i == 30;
    EXPECT_EQ (json_object_get_boolean_member (unit, "key_frame"), key_frame) << i;
    EXPECT_EQ (json_object_has_member (unit, "time_ns"), *muxer != 0);
    EXPECT_FALSE (json_object_has_member (unit, "damage"));
    JsonArray *nal_units = json_object_get_array_member (unit, "nal_units");
    std::vector<gint64> types;
    JsonArray *messages = nullptr;
    for (guint k = 0; k < json_array_get_length (nal_units); k++) {
      JsonObject *nal_unit = json_array_get_object_element (nal_units, k);
      types.push_back (json_object_get_int_member (nal_unit, "nal_unit_type"));
      EXPECT_GT (json_object_get_int_member (nal_unit, "size"), 0);
      if (types.back () == 6)
        messages = json_object_get_array_member (nal_unit, "messages");
    }
    EXPECT_EQ (types, i == 0      ? (std::vector<gint64>{7, 8, 6, 5})
                      : key_frame ? (std::vector<gint64>{6, 5})
                                  : (std::vector<gint64>{6, 1}));
    ASSERT_NE (messages, nullptr);
    ASSERT_EQ (json_array_get_length (messages), key_frame ? 3u : 1u);
    JsonObject *timing = json_array_get_object_element (messages, key_frame ? 1 : 0);
    EXPECT_EQ (json_object_get_string_member (timing, "time_of_day"), time_of_day (i));
    if (key_frame) {
      JsonObject *recovery_point = json_array_get_object_element (messages, 0);
      EXPECT_EQ (json_object_get_int_member (recovery_point, "payload_type"), 6);
      EXPECT_EQ (json_object_get_int_member (recovery_point, "recovery_frame_cnt"), 0);
      EXPECT_TRUE (json_object_get_boolean_member (recovery_point, "exact_match_flag"));
      JsonObject *user_data = json_array_get_object_element (messages, 2);
      EXPECT_STREQ (json_object_get_string_member (user_data, "content"), "Kavrel Streaming v2");
      EXPECT_STREQ (json_object_get_string_member (user_data, "uuid"),
                    "b9a1f0d2-6c3e-4f57-8e04-3d7b52c816ea");
      EXPECT_EQ (json_object_get_int_member (user_data, "slice_count"), 1);
      EXPECT_EQ (json_object_get_int_member (user_data, "slice_mb_count"), 48);
    }
  }

  const Outcome text = run ({file});
  EXPECT_EQ (text.status, 0);
  EXPECT_EQ (text.err, "");
  EXPECT_THAT (text.out, HasSubstr ("\n  SPS              type  7 "));
  EXPECT_THAT (text.out, HasSubstr ("  128x96, 60000 / 1001 ticks a second\n"));
  EXPECT_THAT (text.out, HasSubstr ("\n    recovery point: frame count 0, exact match\n"));
  EXPECT_THAT (text.out,
               HasSubstr ("\n    picture timing: 23:59:59.123450 (23:59:59 frame 7 offset 400)\n"));
  EXPECT_THAT (
      text.out,
      HasSubstr ("\n    user data: Kavrel Streaming v2, slices 1, macroblocks per slice 48\n"));
  EXPECT_THAT (text.lines ().back (),
               HasSubstr (": 40 access units, 2 key frames, 40 with their time of day, " +
                          time_of_day (0) + " to " + time_of_day (frame_count - 1)));
}

INSTANTIATE_TEST_SUITE_P (Kinds, H264SeiToolFiles,
                          testing::Values (std::pair{"plain.mp4", "mp4mux"},
                                           std::pair{"fragmented.mp4",
                                                     "mp4mux fragment-duration=500"},
                                           std::pair{"stream.h264", ""},
                                           // The name says nothing.
                                           std::pair{"recording.tmp", "mp4mux faststart=true"}),
                          [] (const auto &row) {
                            std::string name = row.param.first;
                            std::replace (name.begin (), name.end (), '.', '_');
                            return name;
                          });

// The first capture is a second before the clock's second day: 2026-11-20 14:03:27.123456 in UTC.
constexpr const char *summary =
    R"({"clock": {"monotonic_ns": 86398123456789, "utc_ns": 1795183406123456789}})";

TEST_F (H264SeiTool, TellsUtcByThePairOfClocks)
{
  const std::string file = record ("a.mp4", "mp4mux");
  folder_.write ("summary.json", summary);
  const std::string other = folder_.write (
      "other.json", R"({"clock": {"monotonic_ns": 86398123456789, "utc_ns": 6123456789}})");
  for (const std::vector<std::string> &arguments :
       {std::vector<std::string>{"--utc", file}, {"--clock", path ("summary.json"), file}}) {
    const Outcome text = run (arguments);
    EXPECT_EQ (text.status, 0) << text.err;
    // The clock's ticks are 1/60000 s.
    EXPECT_THAT (text.out, HasSubstr ("picture timing: 2026-11-20T14:03:27.123450Z, "
                                      "23:59:59.123450 (23:59:59 frame 7 offset 400)\n"));
    // 39 frames later, on the clock's next day.
    EXPECT_THAT (text.out, HasSubstr ("picture timing: 2026-11-20T14:03:28.424"));
  }
  EXPECT_THAT (run ({"--utc", "--clock", other, file}).out,
               HasSubstr ("picture timing: 1970-01-01T00:00:07.123450Z, "));
  EXPECT_THAT (run ({"--utc", "--json", file}).lines ()[0],
               HasSubstr (R"("utc":"2026-11-20T14:03:27.123450Z")"));
  EXPECT_THAT (run ({file}).out, testing::Not (HasSubstr ("2026-")));
}

TEST_F (H264SeiTool, LooksForThePairOneFolderUp)
{
  folder_.write ("videos/readme", "");
  const std::string file = record ("videos/a.mp4", "mp4mux");
  folder_.write ("summary.json", summary);
  EXPECT_THAT (run ({"--utc", file}).out, HasSubstr ("2026-11-20T14:03:27.123450Z"));
  folder_.write ("videos/summary.json",
                 R"({"clock": {"monotonic_ns": 86398123456789, "utc_ns": 6123456789}})");
  EXPECT_THAT (run ({"--utc", file}).out, HasSubstr ("1970-01-01T00:00:07.123450Z"))
      << "the nearer one counts";
}

TEST_F (H264SeiTool, PairOfClocksThatIsNotThere)
{
  const std::string file = record ("a.mp4", "mp4mux");
  const Outcome absent = run ({"--utc", file});
  EXPECT_EQ (absent.status, 1);
  EXPECT_EQ (absent.out, "");
  EXPECT_THAT (absent.err, StartsWith ("h264-sei: " + path ("summary.json") + ": "));
  EXPECT_THAT (absent.err, HasSubstr ("No such file or directory"));
  const Outcome wrong = run ({"--clock", folder_.write ("wrong.json", "{}"), file});
  EXPECT_EQ (wrong.status, 1);
  EXPECT_EQ (wrong.err, "h264-sei: " + path ("wrong.json") +
                            ": it has no pair of clocks (\"clock\": {\"monotonic_ns\": N, "
                            "\"utc_ns\": N})\n");
}

TEST_F (H264SeiTool, SplitsAStreamIntoItsAccessUnits)
{
  // Two slices a picture, with and without anything between the pictures; a stream that gives no
  // timing; a message that nobody knows.
  const h264::SpsVariant variant = {.vui = false};
  Bytes stream;
  const auto slice = h264::make_idr_slice (variant, 0);
  Bytes second = slice;
  second[1] = 0x40; // first macroblock 1
  for (const Bytes &nalu :
       {h264::make_access_unit_delimiter (), h264::make_sps (variant), h264::make_pps (),
        Bytes{6, 200, 2, 7, 7, 0x80}, slice, second, slice, second,
        Bytes{6, 5, 17, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 99, 0x80}, slice})
    h264::append_with_start_code (stream, nalu);
  const Outcome result = run ({write ("a.h264", stream)});
  EXPECT_THAT (
      result.out,
      HasSubstr ("H.264 byte stream: 3 access units, 3 key frames, 0 with their time of day\n"));
  EXPECT_THAT (result.out, HasSubstr ("16x16, no timing"));
  EXPECT_THAT (result.out, HasSubstr ("other: payload type 200, 2 bytes"));
  EXPECT_THAT (result.out,
               HasSubstr ("user data: 00010203-0405-0607-0809-0a0b0c0d0e0f, 1 bytes: 63"));
}

TEST_F (H264SeiTool, MissingOrForeignFiles)
{
  struct Row {
    std::string file;
    const char *reason;
  };
  for (const Row &row :
       {Row{path ("absent.mp4"), "No such file or directory"},
        Row{write ("empty.h264", {}), "it is empty"}, Row{path (""), "Is a directory"},
        Row{write ("text.mp4", Bytes (100, 'x')),
            "it is neither an MP4 file nor an H.264 byte stream"}}) {
    const Outcome result = run ({row.file});
    EXPECT_EQ (result.status, 1);
    EXPECT_EQ (result.out, "");
    EXPECT_EQ (result.err, "h264-sei: " + row.file + ": " + row.reason + "\n");
  }
}

TEST_F (H264SeiTool, FileWithoutH264)
{
  vorn::ErrorOut error;
  auto pipeline = vorn::adopt (gst_parse_launch (
      ("videotestsrc num-buffers=3 ! jpegenc ! qtmux ! filesink location=" + path ("jpeg.mp4"))
          .c_str (),
      error.out ()));
  gst_element_set_state (pipeline.get (), GST_STATE_PLAYING);
  auto bus = vorn::adopt (gst_element_get_bus (pipeline.get ()));
  auto message = vorn::adopt (gst_bus_timed_pop_filtered (
      bus.get (), 20 * GST_SECOND,
      static_cast<GstMessageType> (GST_MESSAGE_EOS | GST_MESSAGE_ERROR)));
  ASSERT_TRUE (message && GST_MESSAGE_TYPE (message.get ()) == GST_MESSAGE_EOS);
  gst_element_set_state (pipeline.get (), GST_STATE_NULL);
  const Outcome result = run ({path ("jpeg.mp4")});
  EXPECT_EQ (result.status, 1);
  EXPECT_EQ (result.err, "h264-sei: " + path ("jpeg.mp4") + ": it has no H.264 track\n");
}

TEST_F (H264SeiTool, DamagedMp4)
{
  record ("whole.mp4", "mp4mux");
  const Bytes whole = read ("whole.mp4");
  for (const double part : {0.01, 0.5, 0.97}) {
    Bytes cut = whole;
    cut.resize (static_cast<size_t> (part * static_cast<double> (whole.size ())));
    const Outcome result = run ({write ("cut.mp4", cut)});
    EXPECT_EQ (result.status, 1) << part;
    EXPECT_THAT (result.err, StartsWith ("h264-sei: " + path ("cut.mp4") + ": "));
  }
  // A length in the first sample that cannot be.
  Bytes wrong = whole;
  const Bytes mdat = {'m', 'd', 'a', 't'};
  const auto at = std::search (wrong.begin (), wrong.end (), mdat.begin (), mdat.end ());
  ASSERT_NE (at, wrong.end ());
  at[4] = 0x7f;
  const Outcome result = run ({write ("wrong.mp4", wrong)});
  EXPECT_EQ (result.status, 1);
  EXPECT_THAT (result.out, HasSubstr ("damaged: a NAL unit of 2130706"));
  EXPECT_THAT (result.out, HasSubstr ("MP4: 40 access units"));
  EXPECT_EQ (result.err,
             "h264-sei: " + path ("wrong.mp4") + ": 1 of its access units are damaged\n");
}

TEST_F (H264SeiTool, DamagedStream)
{
  record ("whole.h264", "");
  const Bytes whole = read ("whole.h264");
  std::vector<Bytes> nalus = h264::split_byte_stream (whole);
  nalus[0] = {0x67, 0xff}; // the SPS
  Bytes stream;
  for (const Bytes &nalu : nalus)
    h264::append_with_start_code (stream, nalu);
  const Outcome result = run ({write ("a.h264", stream)});
  EXPECT_EQ (result.status, 1);
  EXPECT_THAT (result.out, HasSubstr ("damaged: it cannot be parsed"));
  EXPECT_THAT (result.out, HasSubstr ("damaged: it refers to a parameter set that is not there"));
  EXPECT_EQ (result.err, "h264-sei: " + path ("a.h264") + ": 40 of its access units are damaged\n");
  const Outcome json = run ({"--json", path ("a.h264")});
  EXPECT_EQ (json.status, 1);
  EXPECT_THAT (json.lines ()[0], HasSubstr (R"("damage":"it cannot be parsed")"));
}

TEST_F (H264SeiTool, RandomDamageIsSurvived)
{
  record ("whole.h264", "");
  record ("whole.mp4", "mp4mux fragment-duration=500");
  h264::Random random (3);
  for (const char *name : {"whole.h264", "whole.mp4"}) {
    const Bytes whole = read (name);
    for (int i = 0; i < 6; i++) {
      Bytes bytes = whole;
      for (int k = 0; k < 30; k++)
        bytes[12 + random () % (bytes.size () - 12)] = static_cast<uint8_t> (random ());
      const Outcome result = run ({write ("damaged", bytes)});
      EXPECT_THAT (result.status, testing::AnyOf (0, 1));
      EXPECT_EQ (result.err.empty (), result.status == 0);
    }
  }
}

TEST_F (H264SeiTool, Usage)
{
  struct Row {
    std::vector<std::string> arguments;
    const char *reason;
  };
  for (const Row &row : {Row{{}, "which file?"},
                         {{"a", "b"}, "one file at a time"},
                         {{"--wrong"}, "Unknown option --wrong"}}) {
    const Outcome result = run (row.arguments);
    EXPECT_EQ (result.status, 2);
    EXPECT_EQ (result.out, "");
    EXPECT_EQ (result.err, "h264-sei: " + std::string (row.reason) + "\nTry 'h264-sei --help'.\n");
  }
  const Outcome help = run ({"--help"});
  EXPECT_EQ (help.status, 0);
  EXPECT_THAT (help.out, HasSubstr ("--json"));
  EXPECT_THAT (help.out, HasSubstr ("Exit status: 0 done, 1 the file is missing or damaged"));
  const Outcome version = run ({"--version"});
  EXPECT_EQ (version.status, 0);
  EXPECT_THAT (version.out, StartsWith ("h264-sei "));
  EXPECT_EQ (version.lines ().size (), 1u);
}

int main (int argc, char **argv)
{
  testing::InitGoogleTest (&argc, argv);
  tool = argc > 1 ? argv[1] : "h264-sei";
  return RUN_ALL_TESTS ();
}
