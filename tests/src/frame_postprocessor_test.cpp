// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What the frame postprocessor makes of access units: parameter sets, SEI, log lines.
#include <cstring>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vorn/frame_meta.h>
#include <vorn/framework.h>

#include "frame_postprocessor_sei.hpp"
#include "frame_postprocessor_support.hpp"
#include "log_capture.hpp"

using namespace postprocessing;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr int warning = VORN_LOG_PRIORITY_WARNING;
constexpr int debug = VORN_LOG_PRIORITY_DEBUG;

const h264::SpsVariant at_30000_1001 = {.num_units_in_tick = 1001, .time_scale = 30000};

class FramePostprocessorTest : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }

  /** Runs one access unit through; its NAL units afterwards. */
  std::vector<Bytes> process (const std::vector<Bytes> &nalus, GstClockTime capture_time_ns = 0,
                              bool sync_point = true)
  {
    auto buffer = buffer_of (access_unit (nalus));
    set_meta (buffer.get (), capture_time_ns, sync_point);
    EXPECT_NE (frame_postprocessor_process (state_.get (), &frame_size, buffer.get ()), 0);
    return nal_units (buffer.get ());
  }

  std::vector<Bytes> first_unit () const { return {sps_, pps_, idr_slice ()}; }

  const Bytes sps_ = h264::make_sps (at_30000_1001);
  const Bytes pps_ = h264::make_pps ();
  LogCapture log_;
  Postprocessor state_{frame_postprocessor_new ()};
};

} // namespace

TEST_F (FramePostprocessorTest, StartsFromItsDefaults)
{
  const FramePostprocessor &state = *state_;
  EXPECT_NE (state.writer, nullptr);
  EXPECT_NE (state.parser, nullptr);
  EXPECT_EQ (state.first_buffer, 1u);
  EXPECT_EQ (state.insert_parameter_sets, 0u);
  EXPECT_EQ (state.time_scale, 0u);
  EXPECT_EQ (state.num_units_in_tick, 0u);
  EXPECT_EQ (state.pic_timing_enabled, 1u);
  EXPECT_EQ (state.recovery_point_enabled, 1u);
  EXPECT_EQ (state.user_data_enabled, 1u);
  EXPECT_EQ (state.stream_format, 1u);
  EXPECT_EQ (state.recovery_frame_cnt, 0u);
  EXPECT_EQ (state.width_mbs, 0u);
  EXPECT_EQ (state.height_mbs, 0u);
  EXPECT_EQ (state.slice_count, 1u);
  EXPECT_EQ (state.sps, nullptr);
  EXPECT_EQ (state.pps, nullptr);
  frame_postprocessor_free (nullptr);
}

TEST_F (FramePostprocessorTest, FirstUnitGetsParameterSetsAndAllMessages)
{
  const auto nalus = process ({h264::make_access_unit_delimiter (), sps_, pps_,
                               Bytes{6, 5, 1, 0, 0x80}, idr_slice (), idr_slice (9)},
                              3723500000000);
  ASSERT_THAT (types_of (nalus), ElementsAre (7, 8, 6, 5, 5));
  EXPECT_EQ (nalus[0], sps_);
  EXPECT_EQ (nalus[1], pps_);
  EXPECT_EQ (nalus[3], idr_slice ());
  EXPECT_EQ (nalus[4], idr_slice (9));

  SeiReader reader (sps_);
  const auto messages = reader.read (nalus[2]);
  ASSERT_EQ (messages.size (), 3u);
  ASSERT_EQ (messages[0].payloadType, GST_H264_SEI_RECOVERY_POINT);
  const auto &recovery_point = messages[0].payload.recovery_point;
  EXPECT_EQ (recovery_point.recovery_frame_cnt, 0u);
  EXPECT_EQ (recovery_point.exact_match_flag, 1);
  EXPECT_EQ (recovery_point.broken_link_flag, 0);
  EXPECT_EQ (recovery_point.changing_slice_group_idc, 0);

  ASSERT_EQ (messages[1].payloadType, GST_H264_SEI_PIC_TIMING);
  const auto &timing = messages[1].payload.pic_timing;
  EXPECT_EQ (timing.pic_struct, 0);
  ASSERT_EQ (timing.clock_timestamp_flag[0], 1);
  EXPECT_EQ (timing.clock_timestamp_flag[1], 0);
  EXPECT_EQ (timing.clock_timestamp_flag[2], 0);
  const auto &clock = timing.clock_timestamp[0];
  EXPECT_EQ (clock.ct_type, 0);
  EXPECT_EQ (clock.nuit_field_based_flag, 0);
  EXPECT_EQ (clock.counting_type, 1);
  EXPECT_EQ (clock.full_timestamp_flag, 1);
  EXPECT_EQ (clock.discontinuity_flag, 0);
  EXPECT_EQ (clock.cnt_dropped_flag, 0);
  // 1 h 2 min 3.5 s; half a second is 14.985 frames.
  EXPECT_EQ (clock.hours_value, 1);
  EXPECT_EQ (clock.minutes_value, 2);
  EXPECT_EQ (clock.seconds_value, 3);
  EXPECT_EQ (clock.n_frames, 15);
  EXPECT_EQ (signed_time_offset (clock, 24), -15);

  ASSERT_EQ (messages[2].payloadType, GST_H264_SEI_USER_DATA_UNREGISTERED);
  const auto &user_data = messages[2].payload.user_data_unregistered;
  // One slice of 80 x 45 macroblocks.
  EXPECT_EQ (Bytes (user_data.data, user_data.data + user_data.size),
             (Bytes{0, 1, 3600 >> 8, 3600 & 0xff}));
  static constexpr uint8_t uuid[] = {0xb9, 0xa1, 0xf0, 0xd2, 0x6c, 0x3e, 0x4f, 0x57,
                                     0x8e, 0x04, 0x3d, 0x7b, 0x52, 0xc8, 0x16, 0xea};
  EXPECT_EQ (memcmp (user_data.uuid, uuid, sizeof uuid), 0);

  EXPECT_THAT (log_.texts (warning), IsEmpty ());
}

TEST_F (FramePostprocessorTest, LaterUnitsGetSeiOnly)
{
  process (first_unit ());
  auto nalus = process ({slice ()}, 0, false);
  ASSERT_THAT (types_of (nalus), ElementsAre (6, 1));
  auto messages = SeiReader (sps_).read (nalus[0]);
  ASSERT_EQ (messages.size (), 1u);
  EXPECT_EQ (messages[0].payloadType, GST_H264_SEI_PIC_TIMING);

  nalus = process ({h264::make_access_unit_delimiter (), sps_, pps_, idr_slice ()});
  ASSERT_THAT (types_of (nalus), ElementsAre (6, 5));
  messages = SeiReader (sps_).read (nalus[0]);
  ASSERT_EQ (messages.size (), 3u);
  EXPECT_EQ (messages[0].payloadType, GST_H264_SEI_RECOVERY_POINT);
  EXPECT_EQ (messages[1].payloadType, GST_H264_SEI_PIC_TIMING);
  EXPECT_EQ (messages[2].payloadType, GST_H264_SEI_USER_DATA_UNREGISTERED);
  EXPECT_THAT (log_.texts (warning), IsEmpty ());
}

TEST_F (FramePostprocessorTest, DebugLinesNameUnitsAndOffset)
{
  const Bytes delimiter = h264::make_access_unit_delimiter ();
  process ({delimiter, sps_, pps_, idr_slice (33), idr_slice (7)});
  size_t offset = 4;
  std::vector<std::string> expected;
  for (const auto &[type, size] : {std::pair{9u, delimiter.size ()},
                                   {7u, sps_.size ()},
                                   {8u, pps_.size ()},
                                   {5u, 33},
                                   {5u, 7}}) {
    expected.push_back ("found nal unit of type " + std::to_string (type) + " (" +
                        std::to_string (size) + " bytes at offset " + std::to_string (offset) +
                        ")");
    offset += size + 4;
  }
  const size_t vcl_offset = 3 * 4 + delimiter.size () + sps_.size () + pps_.size ();
  expected.push_back ("VCL offset = " + std::to_string (vcl_offset));
  EXPECT_EQ (log_.texts (debug), expected);
  for (const LogLine &line : log_.lines ())
    EXPECT_EQ (line.tag, "frame_postprocessor") << line.text;

  log_.clear ();
  process ({slice ()}, 0, false);
  EXPECT_THAT (log_.texts (debug), ElementsAre ("VCL offset = 0"));
}

TEST_F (FramePostprocessorTest, UnitThatBeginsWithASliceIsNotShortened)
{
  process (first_unit ());
  const auto nalus = process ({slice (), h264::make_access_unit_delimiter ()}, 0, false);
  ASSERT_THAT (types_of (nalus), ElementsAre (6, 1, 9));
  EXPECT_TRUE (log_.has ("VCL offset = 0", debug));
}

TEST_F (FramePostprocessorTest, UnitWithoutSliceKeepsAllItHas)
{
  process (first_unit ());
  const Bytes delimiter = h264::make_access_unit_delimiter ();
  const auto nalus = process ({delimiter, Bytes{12, 0xff, 0x80}}, 0, false);
  ASSERT_THAT (types_of (nalus), ElementsAre (6, 9, 12));
  EXPECT_EQ (nalus[1], delimiter);
}

TEST_F (FramePostprocessorTest, StreamWithoutTimingGetsNoSeiButItsParameterSets)
{
  for (const bool vui : {false, true}) {
    state_.reset (frame_postprocessor_new ());
    const Bytes sps = h264::make_sps ({.vui = vui, .timing = false});
    log_.clear ();
    EXPECT_THAT (types_of (process ({sps, pps_, idr_slice ()})), ElementsAre (7, 8, 5));
    EXPECT_THAT (types_of (process ({slice ()}, 0, false)), ElementsAre (1));
    const std::vector<std::string> frame = {"invalid time_scale and num_units_in_tick",
                                            "failed to create picture timing SEI",
                                            "failed to generate SEI"};
    std::vector<std::string> expected = frame;
    expected.insert (expected.end (), frame.begin (), frame.end ());
    EXPECT_EQ (log_.texts (warning), expected);
  }
}

TEST_F (FramePostprocessorTest, EitherTimingValueMissingIsInvalid)
{
  process (first_unit ());
  for (const auto &[time_scale, num_units_in_tick] : {std::pair{0u, 1001u}, {30000u, 0u}}) {
    state_->time_scale = time_scale;
    state_->num_units_in_tick = num_units_in_tick;
    log_.clear ();
    EXPECT_THAT (types_of (process ({slice ()}, 0, false)), ElementsAre (1));
    EXPECT_TRUE (log_.has ("invalid time_scale and num_units_in_tick", warning));
  }
}

TEST_F (FramePostprocessorTest, MissingParameterSetsAreMissedOnce)
{
  const std::vector<std::vector<Bytes>> first_units = {
      {idr_slice ()}, {sps_, idr_slice ()}, {pps_, idr_slice ()}, {}};
  for (const auto &first : first_units) {
    state_.reset (frame_postprocessor_new ());
    log_.clear ();
    const auto nalus = process (first);
    EXPECT_EQ (log_.count ("failed to insert SPS/PPS", warning), 1);
    for (const unsigned type : types_of (nalus))
      EXPECT_TRUE (type == 5 || type == 6) << type;
    process (first_unit ());
    process (first_unit ());
    EXPECT_EQ (log_.count ("failed to insert SPS/PPS", warning), 1);
  }
}

TEST_F (FramePostprocessorTest, StreamThatBeganWithoutSpsStaysWithoutSei)
{
  process ({idr_slice ()});
  log_.clear ();
  EXPECT_THAT (types_of (process (first_unit ())), ElementsAre (5));
  EXPECT_TRUE (log_.has ("invalid time_scale and num_units_in_tick", warning));
  EXPECT_EQ (state_->sps, nullptr);
}

TEST_F (FramePostprocessorTest, UnreadableParameterSetsAreKeptAndInserted)
{
  const Bytes bad_sps = {0x67, 0xff};
  const Bytes bad_pps = {0x68, 0xff};
  const auto nalus = process ({bad_sps, bad_pps, idr_slice ()});
  ASSERT_THAT (types_of (nalus), ElementsAre (7, 8, 5));
  EXPECT_EQ (nalus[0], bad_sps);
  EXPECT_EQ (nalus[1], bad_pps);
  EXPECT_TRUE (log_.has ("vorn_h264_writer_parse_sps failed: Bad message", warning));
  EXPECT_THAT (log_.texts (warning),
               testing::Contains (testing::StartsWith ("vorn_h264_writer_parse_pps failed: ")));
}

TEST_F (FramePostprocessorTest, RepeatedParameterSetsKeepTheirCopy)
{
  process (first_unit ());
  GstBuffer *const sps = state_->sps;
  GstBuffer *const pps = state_->pps;
  EXPECT_EQ (bytes_of (sps), access_unit ({sps_}));
  EXPECT_EQ (bytes_of (pps), access_unit ({pps_}));

  Bytes bytes = access_unit ({sps_});
  GstH264NalUnit unit = {};
  auto identify = [&] {
    ASSERT_EQ (gst_h264_parser_identify_nalu_avc (state_->parser, bytes.data (), 0, bytes.size (),
                                                  4, &unit),
               GST_H264_PARSER_OK);
  };
  identify ();
  EXPECT_EQ (frame_postprocessor_collect_sps_pps (state_.get (), &unit), 0);
  bytes = access_unit ({pps_});
  identify ();
  EXPECT_EQ (frame_postprocessor_collect_sps_pps (state_.get (), &unit), 0);
  bytes = access_unit ({slice ()});
  identify ();
  EXPECT_EQ (frame_postprocessor_collect_sps_pps (state_.get (), &unit), 0);
  process (first_unit ());
  EXPECT_EQ (state_->sps, sps);
  EXPECT_EQ (state_->pps, pps);

  for (const h264::SpsVariant &other :
       {h264::SpsVariant{.time_scale = 48000}, h264::SpsVariant{.vui = false}}) {
    bytes = access_unit ({h264::make_sps (other)});
    identify ();
    EXPECT_EQ (frame_postprocessor_collect_sps_pps (state_.get (), &unit), 1);
    EXPECT_EQ (bytes_of (state_->sps), bytes);
    EXPECT_EQ (frame_postprocessor_collect_sps_pps (state_.get (), &unit), 0);
  }
}

TEST_F (FramePostprocessorTest, ChangedSpsLaterChangesTheTiming)
{
  process (first_unit ());
  // The encoder was restarted at 50 ticks a second, with HRD parameters and short time offsets.
  const Bytes sps = h264::make_sps (
      {.num_units_in_tick = 1,
       .time_scale = 50,
       .nal_hrd = {.present = true, .cpb_removal_delay_length = 7, .time_offset_length = 5}});
  auto nalus = process ({h264::make_access_unit_delimiter (), sps, pps_, idr_slice ()}, 1500000000);
  ASSERT_THAT (types_of (nalus), ElementsAre (6, 5)); // not inserted again
  auto messages = SeiReader (sps).read (nalus[0]);
  ASSERT_EQ (messages.size (), 3u);
  EXPECT_EQ (messages[1].payload.pic_timing.cpb_removal_delay, 0u);
  EXPECT_EQ (messages[1].payload.pic_timing.dpb_output_delay, 0u);
  EXPECT_EQ (messages[1].payload.pic_timing.clock_timestamp[0].n_frames, 25);
  EXPECT_EQ (state_->time_scale, 50u);
  EXPECT_EQ (state_->num_units_in_tick, 1u);

  // Units between that carry none go by the same.
  nalus = process ({slice ()}, 1700000000, false);
  messages = SeiReader (sps).read (nalus[0]);
  ASSERT_EQ (messages.size (), 1u);
  EXPECT_EQ (messages[0].payload.pic_timing.clock_timestamp[0].n_frames, 35);

  // And one without timing ends the SEI.
  EXPECT_THAT (types_of (process ({h264::make_sps ({.vui = false}), pps_, idr_slice ()})),
               ElementsAre (5));
  EXPECT_EQ (state_->time_scale, 0u);
  EXPECT_EQ (state_->num_units_in_tick, 0u);
}

TEST_F (FramePostprocessorTest, ParameterSetsBehindTheFirstSliceAreNotFollowedLater)
{
  process (first_unit ());
  process ({slice (), h264::make_sps ({.num_units_in_tick = 1, .time_scale = 50})}, 0, false);
  EXPECT_EQ (state_->time_scale, 30000u);
}

TEST_F (FramePostprocessorTest, AStreamOfTwoSpsGoesByTheOneOfItsPps)
{
  // SPS 1 has no place for a clock timestamp, SPS 0 has; the PPS uses SPS 0.
  const Bytes other_sps = h264::make_sps (
      {.id = 1, .num_units_in_tick = 1001, .time_scale = 30000, .pic_struct = false});
  for (int i = 0; i < 3; i++) {
    const auto nalus = process ({sps_, other_sps, pps_, idr_slice ()}, 500000000);
    const auto messages = SeiReader (sps_).read (nalus[i == 0 ? 2 : 0]);
    ASSERT_EQ (messages.size (), 3u) << i;
    EXPECT_EQ (messages[1].payload.pic_timing.clock_timestamp[0].n_frames, 15);
  }
}

namespace
{

struct MetaCase {
  const char *name;
  const char *fields; // of the structure; nullptr: no meta at all
  const char *text;
};

class FramePostprocessorMeta : public FramePostprocessorTest,
                               public testing::WithParamInterface<MetaCase>
{
};

} // namespace

TEST_P (FramePostprocessorMeta, LackingDataCostsTheSeiOnly)
{
  auto buffer = buffer_of (access_unit (first_unit ()));
  if (GetParam ().fields) {
    VornFrameMeta *meta = vorn_frame_meta_add (buffer.get ());
    gst_structure_free (meta->structure);
    meta->structure = gst_structure_from_string (GetParam ().fields, nullptr);
    ASSERT_NE (meta->structure, nullptr);
  }
  EXPECT_NE (frame_postprocessor_process (state_.get (), &frame_size, buffer.get ()), 0);
  const auto nalus = nal_units (buffer.get ());
  EXPECT_THAT (types_of (nalus), ElementsAre (7, 8, 5));
  EXPECT_THAT (log_.texts (warning), ElementsAre (GetParam ().text, "failed to generate SEI"));
}

INSTANTIATE_TEST_SUITE_P (
    Cases, FramePostprocessorMeta,
    testing::Values (
        MetaCase{"no_meta", nullptr, "failed to get buffer metadata"},
        MetaCase{"no_time", "m,sync-point=true", "failed to get buffer capture timestamp"},
        MetaCase{"time_none", "m,capture-timestamp=(guint64)18446744073709551615,sync-point=true",
                 "failed to get buffer capture timestamp"},
        MetaCase{"time_of_other_type", "m,capture-timestamp=(int)5,sync-point=true",
                 "failed to get buffer capture timestamp"},
        MetaCase{"no_sync_point", "m,capture-timestamp=(guint64)5",
                 "failed to get buffer sync point"},
        MetaCase{"sync_point_of_other_type",
                 "m,capture-timestamp=(guint64)5,sync-point=(string)later",
                 "failed to get buffer sync point"}),
    [] (const auto &row) { return std::string (row.param.name); });

TEST_F (FramePostprocessorTest, NullBufferIsAnEmptyFrame)
{
  EXPECT_NE (frame_postprocessor_process (state_.get (), &frame_size, nullptr), 0);
  EXPECT_THAT (log_.texts (warning), ElementsAre ("empty buffer", "failed to generate SEI"));
  // The first real one is still the first.
  EXPECT_THAT (types_of (process (first_unit ())), ElementsAre (7, 8, 6, 5));
}

TEST_F (FramePostprocessorTest, MessagesCanBeTurnedOff)
{
  process (first_unit ());
  struct Row {
    guint32 recovery_point, pic_timing, user_data;
    std::vector<int> types;
  };
  for (const Row &row : {Row{1, 0, 0, {6}}, {0, 1, 0, {1}}, {0, 0, 1, {5}}, {1, 0, 1, {6, 5}}}) {
    state_->recovery_point_enabled = row.recovery_point;
    state_->pic_timing_enabled = row.pic_timing;
    state_->user_data_enabled = row.user_data;
    const auto nalus = process ({idr_slice ()});
    std::vector<int> types;
    for (const auto &message : SeiReader (sps_).read (nalus[0]))
      types.push_back (message.payloadType);
    EXPECT_EQ (types, row.types);
  }
  state_->recovery_point_enabled = state_->user_data_enabled = 0;
  EXPECT_THAT (types_of (process ({idr_slice ()})), ElementsAre (5));
  EXPECT_TRUE (log_.has ("failed to generate SEI", warning));
}

TEST_F (FramePostprocessorTest, RecoveryFrameCountSetting)
{
  process (first_unit ());
  for (const auto &[setting, count] : {std::pair{0u, 0u}, {1u, 0u}, {2u, 1u}, {16u, 15u}}) {
    state_->recovery_frame_cnt = setting;
    const auto nalus = process ({idr_slice ()});
    EXPECT_EQ (SeiReader (sps_).read (nalus[0])[0].payload.recovery_point.recovery_frame_cnt,
               count);
  }
  state_->recovery_frame_cnt = 18; // beyond the stream's MaxFrameNum
  EXPECT_THAT (types_of (process ({idr_slice ()})), ElementsAre (5));
  EXPECT_TRUE (
      log_.has ("vorn_h264_writer_add_sei failed: Numerical result out of range", warning));
  EXPECT_TRUE (log_.has ("failed to create recovery point SEI", warning));
}

TEST_F (FramePostprocessorTest, SliceLayoutOfTheFirstFrameSize)
{
  struct Row {
    VornResolution size;
    guint32 slices;
    unsigned slice_mb_count;
  };
  for (const Row &row : {Row{{1, 1}, 1, 1},
                         {{16, 16}, 1, 1},
                         {{17, 16}, 1, 2},
                         {{1920, 1080}, 1, 8160},
                         {{1920, 1080}, 3, 2760},
                         {{1920, 1080}, 68, 120},
                         {{1920, 1080}, 70, 120},
                         {{4096, 2160}, 1, 34560},
                         // 512 x 512 macroblocks: the product is of 16 bits.
                         {{8192, 8192}, 1, 0},
                         {{8208, 8192}, 1, 512}}) {
    Postprocessor state (frame_postprocessor_new ());
    state->slice_count = row.slices;
    auto buffer = buffer_of (access_unit (first_unit ()));
    set_meta (buffer.get (), 0, true);
    frame_postprocessor_process (state.get (), &row.size, buffer.get ());
    SeiReader reader (sps_);
    const auto messages = reader.read (nal_units (buffer.get ())[2]);
    ASSERT_EQ (messages.size (), 3u);
    const auto &data = messages[2].payload.user_data_unregistered;
    ASSERT_EQ (data.size, 4u);
    EXPECT_EQ (static_cast<unsigned> (data.data[0] << 8 | data.data[1]), row.slices);
    EXPECT_EQ (static_cast<unsigned> (data.data[2] << 8 | data.data[3]), row.slice_mb_count);
  }
}

TEST_F (FramePostprocessorTest, ByteStreamIsNotWalkedAndGetsAStartCode)
{
  state_->stream_format = FRAME_POSTPROCESSOR_STREAM_FORMAT_BYTE_STREAM;
  state_->time_scale = 30;
  state_->num_units_in_tick = 1;
  state_->pic_timing_enabled = 0;
  Bytes stream;
  for (const Bytes &nalu : first_unit ())
    h264::append_with_start_code (stream, nalu);
  auto buffer = buffer_of (stream);
  set_meta (buffer.get (), 0, true);
  EXPECT_NE (frame_postprocessor_process (state_.get (), &frame_size, buffer.get ()), 0);
  const Bytes result = bytes_of (buffer.get ());
  EXPECT_THAT (types_of (h264::split_byte_stream (result)), ElementsAre (6, 7, 8, 5));
  EXPECT_THAT (Bytes (result.begin (), result.begin () + 5), ElementsAre (0, 0, 0, 1, 6));
  EXPECT_TRUE (log_.has ("failed to insert SPS/PPS", warning));
  EXPECT_THAT (log_.texts (debug), IsEmpty ());
}

TEST_F (FramePostprocessorTest, OtherFormatsGetNoPrefix)
{
  state_->stream_format = 3;
  state_->pic_timing_enabled = 0;
  auto buffer = buffer_of (Bytes{1, 2, 3});
  set_meta (buffer.get (), 0, true);
  EXPECT_NE (frame_postprocessor_process (state_.get (), &frame_size, buffer.get ()), 0);
  const Bytes result = bytes_of (buffer.get ());
  EXPECT_EQ (result[0], 6);
  EXPECT_EQ (result[1], 6);
  EXPECT_EQ (Bytes (result.end () - 3, result.end ()), (Bytes{1, 2, 3}));
}

// --- capture times ---

TEST_F (FramePostprocessorTest, CaptureTimesSplitAsTheWholeFormulaSays)
{
  h264::Random random (6);
  const guint32 scales[] = {1,     9,     18,    24,    25,    30,         60,
                            24000, 30000, 48000, 60000, 90000, 2000000000, 4294967295};
  const guint32 units[] = {1, 2, 1000, 1001, 2002, 4294967295};
  const int rounds = soak () ? 200000 : 2000;
  for (int i = 0; i < rounds; i++) {
    const guint64 t = (i % 3 == 0 ? random () % 100 : random ()) >> random () % 64;
    for (const guint32 S : scales)
      for (const guint32 N : units) {
        // Over the whole time, with all the bits that takes.
        using wide = __int128;
        const wide hours = t / 3600000000;
        const wide r = t - hours * 3600000000;
        const wide minutes = r / 60000000;
        const wide seconds = (r - minutes * 60000000) / 1000000;
        const wide ticks = (wide{t} * S + 500000) / 1000000;
        const wide whole = hours * 3600 * S + minutes * 60 * S + seconds * S;
        const wide n_frames = (ticks - whole + N / 2) / N;
        const wide time_offset = ticks - whole - N * n_frames;
        const auto time = frame_postprocessor::split_capture_time (t, S, N);
        ASSERT_TRUE (wide{time.hours} == hours && wide{time.minutes} == minutes &&
                     wide{time.seconds} == seconds && wide{time.n_frames} == n_frames &&
                     wide{time.time_offset} == time_offset)
            << t << " " << S << " " << N;
      }
  }
}

TEST_F (FramePostprocessorTest, ClockThatRunsForYearsShowsTheTimeOfDay)
{
  process (first_unit ());
  // 584 years, the greatest that is a time.
  for (const GstClockTime ns : {GstClockTime{86400} * GST_SECOND, GST_CLOCK_TIME_NONE - 1}) {
    const auto nalus = process ({slice ()}, ns, false);
    const auto messages = SeiReader (sps_).read (nalus[0]);
    ASSERT_EQ (messages.size (), 1u);
    const auto &clock = messages[0].payload.pic_timing.clock_timestamp[0];
    EXPECT_EQ (clock.hours_value, ns / GST_SECOND / 3600 % 24);
    EXPECT_EQ (clock.minutes_value, ns / GST_SECOND / 60 % 60);
    EXPECT_EQ (clock.seconds_value, ns / GST_SECOND % 60);
  }
}

TEST_F (FramePostprocessorTest, TimesThatNoMessageCarriesCostTheSei)
{
  // 2 10^9 ticks a second, one a frame: frame numbers far beyond 255 in each second.
  const Bytes sps = h264::make_sps ({.num_units_in_tick = 1, .time_scale = 2000000000});
  EXPECT_THAT (types_of (process ({sps, pps_, idr_slice ()}, 500 * GST_MSECOND)),
               ElementsAre (7, 8, 5));
  EXPECT_THAT (log_.texts (warning),
               ElementsAre ("vorn_h264_writer_add_sei failed: Numerical result out of range",
                            "failed to create picture timing SEI", "failed to generate SEI"));
  EXPECT_THAT (types_of (process ({slice ()}, 3 * GST_SECOND, false)), ElementsAre (6, 1));
}
