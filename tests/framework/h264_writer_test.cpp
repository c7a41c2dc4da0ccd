// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <cerrno>
#include <functional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <gst/gst.h>

#include <vorn/framework.h>
#include <vorn/h264_writer.h>

#include "h264_support.hpp"
#include "log_capture.hpp"

using namespace h264;
using testing::ElementsAreArray;

namespace
{

class H264Writer : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }

  static int add (VornH264Writer *writer, const VornH264Sei &sei)
  {
    return vorn_h264_writer_add_sei (writer, &sei);
  }
  static int parse_sps (VornH264Writer *writer, const Bytes &nalu, VornH264Sps &sps)
  {
    return vorn_h264_writer_parse_sps (writer, nalu.data (), nalu.size (), &sps);
  }
  static int parse_pps (VornH264Writer *writer, const Bytes &nalu, VornH264Pps &pps)
  {
    return vorn_h264_writer_parse_pps (writer, nalu.data (), nalu.size (), &pps);
  }
};

Bytes operator+ (Bytes left, const Bytes &right)
{
  left.insert (left.end (), right.begin (), right.end ());
  return left;
}

const Bytes test_uuid = {0xa0, 0xa1, 0xa2, 0xa3, 0xa4, 0xa5, 0xa6, 0xa7,
                         0xa8, 0xa9, 0xaa, 0xab, 0xac, 0xad, 0xae, 0xaf};

} // namespace

// --- the bytes of each message, worked out by hand from the syntax tables ---

TEST_F (H264Writer, RecoveryPointBytes)
{
  auto writer = make_writer ({});
  // ue 1, exact 1, broken 0, idc 00, alignment 100
  EXPECT_THAT (write_sei (writer.get (), {recovery_point ()}),
               ElementsAreArray (Bytes{0x06, 0x06, 0x01, 0xc4, 0x80}));
  // ue 00100, exact 1, broken 0, idc 00, alignment 1000000
  EXPECT_THAT (write_sei (writer.get (), {recovery_point (3)}),
               ElementsAreArray (Bytes{0x06, 0x06, 0x02, 0x24, 0x40, 0x80}));
}

TEST_F (H264Writer, PictureTimingBytesWithPicStructOnly)
{
  auto writer = make_writer ({});
  // 01:02:03, 15 frames of 1001/30000 s less 15/30000 s: 3723.5 s
  EXPECT_THAT (write_sei (writer.get (), {pic_timing (1, 2, 3, 15, -15)}),
               ElementsAreArray (Bytes{0x06, 0x01, 0x09, 0x08, 0x0c, 0x0f, 0x0c, 0x20, 0xff, 0xff,
                                       0xf8, 0xc0, 0x80}));
}

TEST_F (H264Writer, PictureTimingBytesWithHrdOnlyAreTheDelays)
{
  const HrdVariant hrd = {
      .present = true, .cpb_removal_delay_length = 14, .dpb_output_delay_length = 5};
  auto writer = make_writer ({.nal_hrd = hrd, .pic_struct = false});
  VornH264Sei sei = pic_timing (1, 2, 3, 15, -15);
  sei.payload.pic_timing.cpb_removal_delay = 0x2aaa;
  sei.payload.pic_timing.dpb_output_delay = 0x15;
  // 10101010101010 10101 alignment 10000
  EXPECT_THAT (write_sei (writer.get (), {sei}),
               ElementsAreArray (Bytes{0x06, 0x01, 0x03, 0xaa, 0xaa, 0xb0, 0x80}));
}

TEST_F (H264Writer, AnAlignedPayloadGetsNoAlignmentBits)
{
  const HrdVariant hrd = {
      .present = true, .cpb_removal_delay_length = 5, .dpb_output_delay_length = 3};
  auto writer = make_writer ({.vcl_hrd = hrd, .pic_struct = false});
  VornH264Sei sei = pic_timing (0, 0, 0, 0, 0);
  sei.payload.pic_timing.cpb_removal_delay = 31;
  EXPECT_THAT (write_sei (writer.get (), {sei}),
               ElementsAreArray (Bytes{0x06, 0x01, 0x01, 0xf8, 0x80}));
}

TEST_F (H264Writer, TheNalHrdIsFollowedWhereBothArePresent)
{
  auto writer = make_writer (
      {.nal_hrd = {.present = true, .cpb_removal_delay_length = 4, .dpb_output_delay_length = 4},
       .vcl_hrd = {.present = true, .cpb_removal_delay_length = 32, .dpb_output_delay_length = 32},
       .pic_struct = false});
  VornH264Sei sei = pic_timing (0, 0, 0, 0, 0);
  sei.payload.pic_timing.cpb_removal_delay = 0xa;
  sei.payload.pic_timing.dpb_output_delay = 0x5;
  EXPECT_THAT (write_sei (writer.get (), {sei}),
               ElementsAreArray (Bytes{0x06, 0x01, 0x01, 0xa5, 0x80}));
}

TEST_F (H264Writer, SeveralMessagesStandInOrderInOneUnit)
{
  auto writer = make_writer ({});
  const Bytes data = {0x12, 0x34};
  EXPECT_THAT (write_sei (writer.get (),
                          {recovery_point (), pic_timing (1, 2, 3, 15, -15), user_data (data)}),
               ElementsAreArray (Bytes{0x06, 0x06, 0x01, 0xc4, 0x01, 0x09, 0x08, 0x0c, 0x0f, 0x0c,
                                       0x20, 0xff, 0xff, 0xf8, 0xc0, 0x05, 0x12} +
                                 test_uuid + Bytes{0x12, 0x34, 0x80}));
}

TEST_F (H264Writer, PayloadSizesAreBytesOf255AndTheRest)
{
  auto writer = make_writer ({});
  const std::pair<size_t, Bytes> cases[] = {
      {0, {0x10}},         {238, {0xfe}},       {239, {0xff, 0x00}},
      {240, {0xff, 0x01}}, {493, {0xff, 0xfe}}, {494, {0xff, 0xff, 0x00}},
  };
  for (const auto &[size, coded] : cases) {
    const Bytes data (size, 0x55);
    EXPECT_THAT (write_sei (writer.get (), {user_data (data)}),
                 ElementsAreArray (Bytes{0x06, 0x05} + coded + test_uuid + data + Bytes{0x80}))
        << size;
  }
}

TEST_F (H264Writer, EmulationPrevention)
{
  auto writer = make_writer ({});
  const std::pair<Bytes, Bytes> cases[] = {
      {{0, 0, 0}, {0, 0, 3, 0}},
      {{0, 0, 1}, {0, 0, 3, 1}},
      {{0, 0, 2}, {0, 0, 3, 2}},
      {{0, 0, 3}, {0, 0, 3, 3}},
      {{0, 0, 4}, {0, 0, 4}},
      {{0, 1, 0, 0}, {0, 1, 0, 0}},
      {{0, 0, 0, 0, 0}, {0, 0, 3, 0, 0, 3, 0}},
      {{0, 0, 3, 0, 0, 3}, {0, 0, 3, 3, 0, 0, 3, 3}},
      {{0, 0, 0xff, 0, 0, 1}, {0, 0, 0xff, 0, 0, 3, 1}},
  };
  for (const auto &[data, coded] : cases) {
    const auto size = static_cast<uint8_t> (16 + data.size ());
    EXPECT_THAT (write_sei (writer.get (), {user_data (data)}),
                 ElementsAreArray (Bytes{0x06, 0x05, size} + test_uuid + coded + Bytes{0x80}));
  }
}

TEST_F (H264Writer, EmulationPreventionReachesAcrossMessages)
{
  auto writer = make_writer ({});
  const Bytes data = {0, 0};
  const Bytes nalu = write_sei (writer.get (), {user_data (data), pic_timing (1, 2, 3, 15, -15)});
  const Bytes expected =
      Bytes{0x06, 0x05, 0x12} + test_uuid + Bytes{0x00, 0x00, 0x03, 0x01, 0x09, 0x08, 0x0c, 0x0f,
                                                  0x0c, 0x20, 0xff, 0xff, 0xf8, 0xc0, 0x80};
  EXPECT_THAT (nalu, ElementsAreArray (expected));
}

TEST_F (H264Writer, NoStartCodeAppearsInRandomUnits)
{
  auto writer = make_writer ({});
  Random random (7);
  for (int i = 0; i < 2000; i++) {
    const Bytes data = random_bytes (random, 300);
    const Bytes nalu = write_sei (writer.get (), {user_data (data)});
    for (size_t k = 0; k + 2 < nalu.size (); k++)
      ASSERT_FALSE (nalu[k] == 0 && nalu[k + 1] == 0 && nalu[k + 2] <= 2) << "at " << k;
    ASSERT_EQ (nalu.back (), 0x80);
    const Bytes raw = without_emulation_prevention (nalu);
    ASSERT_TRUE (std::equal (data.rbegin (), data.rend (), raw.rbegin () + 1));
  }
}

// --- parameter sets ---

TEST_F (H264Writer, ParsesWhatTheSpsSays)
{
  Writer writer (vorn_h264_writer_new (), vorn_h264_writer_destroy);
  for (const SpsVariant &variant : all_sps_variants ()) {
    SCOPED_TRACE (variant.name ());
    VornH264Sps sps;
    ASSERT_EQ (parse_sps (writer.get (), make_sps (variant), sps), 0);
    EXPECT_EQ (sps.seq_parameter_set_id, variant.id);
    EXPECT_EQ (sps.max_frame_num, 1u << variant.log2_max_frame_num);
    EXPECT_EQ (sps.vui_parameters_present_flag, variant.vui);
    const bool timing = variant.vui && variant.timing;
    EXPECT_EQ (sps.timing_info_present_flag, timing);
    EXPECT_EQ (sps.num_units_in_tick, timing ? variant.num_units_in_tick : 0);
    EXPECT_EQ (sps.time_scale, timing ? variant.time_scale : 0);
    EXPECT_EQ (sps.pic_struct_present_flag, variant.vui && variant.pic_struct);
    const std::pair<VornH264Hrd, HrdVariant> hrds[] = {{sps.nal_hrd, variant.nal_hrd},
                                                       {sps.vcl_hrd, variant.vcl_hrd}};
    for (const auto &[hrd, wanted] : hrds) {
      ASSERT_EQ (hrd.present, variant.vui && wanted.present);
      if (!hrd.present)
        continue;
      EXPECT_EQ (hrd.cpb_removal_delay_length, wanted.cpb_removal_delay_length);
      EXPECT_EQ (hrd.dpb_output_delay_length, wanted.dpb_output_delay_length);
      EXPECT_EQ (hrd.time_offset_length, wanted.time_offset_length);
    }
  }
}

TEST_F (H264Writer, ParsesExtremeTiming)
{
  Writer writer (vorn_h264_writer_new (), vorn_h264_writer_destroy);
  VornH264Sps sps;
  for (const uint32_t value : {0u, 1u, 0xffffffffu}) {
    ASSERT_EQ (parse_sps (writer.get (),
                          make_sps ({.num_units_in_tick = value, .time_scale = ~value}), sps),
               0);
    EXPECT_TRUE (sps.timing_info_present_flag);
    EXPECT_EQ (sps.num_units_in_tick, value);
    EXPECT_EQ (sps.time_scale, ~value);
  }
}

TEST_F (H264Writer, RefusesWhatIsNoSps)
{
  Writer writer (vorn_h264_writer_new (), vorn_h264_writer_destroy);
  VornH264Sps sps = {};
  const Bytes good = make_sps ({});
  Bytes forbidden = good;
  forbidden[0] |= 0x80;
  EXPECT_EQ (parse_sps (writer.get (), make_pps (), sps), -EINVAL);
  EXPECT_EQ (parse_sps (writer.get (), {}, sps), -EINVAL);
  EXPECT_EQ (parse_sps (writer.get (), {0x67}, sps), -EINVAL);
  EXPECT_EQ (parse_sps (writer.get (), forbidden, sps), -EBADMSG);
  EXPECT_EQ (vorn_h264_writer_parse_sps (nullptr, good.data (), good.size (), &sps), -EINVAL);
  EXPECT_EQ (vorn_h264_writer_parse_sps (writer.get (), nullptr, good.size (), &sps), -EINVAL);
  EXPECT_EQ (vorn_h264_writer_parse_sps (writer.get (), good.data (), good.size (), nullptr),
             -EINVAL);
  for (size_t size = 2; size + 2 < good.size (); size++)
    EXPECT_EQ (parse_sps (writer.get (), Bytes (good.data (), good.data () + size), sps), -EBADMSG)
        << size;
  // A failed parse has not come through to the result.
  EXPECT_EQ (sps.max_frame_num, 0u);
}

TEST_F (H264Writer, ParsesAPpsOnceItsSpsIsKnown)
{
  Writer writer (vorn_h264_writer_new (), vorn_h264_writer_destroy);
  VornH264Sps sps;
  VornH264Pps pps = {};
  EXPECT_EQ (parse_pps (writer.get (), make_pps (3, 5), pps), -ENOENT);
  ASSERT_EQ (parse_sps (writer.get (), make_sps ({.id = 5}), sps), 0);
  ASSERT_EQ (parse_pps (writer.get (), make_pps (3, 5), pps), 0);
  EXPECT_EQ (pps.pic_parameter_set_id, 3);
  EXPECT_EQ (pps.seq_parameter_set_id, 5);
  EXPECT_EQ (parse_pps (writer.get (), make_pps (3, 6), pps), -ENOENT);
  EXPECT_EQ (parse_pps (writer.get (), make_sps ({}), pps), -EINVAL);
  EXPECT_EQ (parse_pps (writer.get (), {0x68, 0x00, 0x00, 0x80}, pps), -EBADMSG);
  EXPECT_EQ (vorn_h264_writer_parse_pps (nullptr, test_uuid.data (), 2, &pps), -EINVAL);
  EXPECT_EQ (vorn_h264_writer_parse_pps (writer.get (), nullptr, 2, &pps), -EINVAL);
  EXPECT_EQ (vorn_h264_writer_parse_pps (writer.get (), test_uuid.data (), 2, nullptr), -EINVAL);
}

TEST_F (H264Writer, RefusesParameterSetsOutOfRange)
{
  auto writer = make_writer ({});
  const VornH264Hrd hrd = {.present = true,
                           .cpb_removal_delay_length = 24,
                           .dpb_output_delay_length = 24,
                           .time_offset_length = 24};
  const VornH264Sps good = {.max_frame_num = 16, .nal_hrd = hrd, .vcl_hrd = hrd};
  ASSERT_EQ (vorn_h264_writer_set_sps (writer.get (), &good), 0);

  const std::function<void (VornH264Sps &)> changes[] = {
      [] (auto &sps) { sps.seq_parameter_set_id = 32; },
      [] (auto &sps) { sps.max_frame_num = 15; },
      [] (auto &sps) { sps.max_frame_num = 65537; },
      [] (auto &sps) { sps.nal_hrd.cpb_removal_delay_length = 0; },
      [] (auto &sps) { sps.nal_hrd.cpb_removal_delay_length = 33; },
      [] (auto &sps) { sps.vcl_hrd.dpb_output_delay_length = 0; },
      [] (auto &sps) { sps.vcl_hrd.dpb_output_delay_length = 33; },
      [] (auto &sps) { sps.vcl_hrd.time_offset_length = 32; },
  };
  for (const auto &change : changes) {
    VornH264Sps sps = good;
    change (sps);
    EXPECT_EQ (vorn_h264_writer_set_sps (writer.get (), &sps), -ERANGE);
  }
  EXPECT_EQ (vorn_h264_writer_set_sps (nullptr, &good), -EINVAL);
  EXPECT_EQ (vorn_h264_writer_set_sps (writer.get (), nullptr), -EINVAL);

  const VornH264Pps beyond = {.seq_parameter_set_id = 32};
  const VornH264Pps unknown = {.seq_parameter_set_id = 31};
  EXPECT_EQ (vorn_h264_writer_set_pps (writer.get (), &beyond), -ERANGE);
  EXPECT_EQ (vorn_h264_writer_set_pps (writer.get (), &unknown), -ENOENT);
  EXPECT_EQ (vorn_h264_writer_set_pps (nullptr, &unknown), -EINVAL);
  EXPECT_EQ (vorn_h264_writer_set_pps (writer.get (), nullptr), -EINVAL);
}

TEST_F (H264Writer, TheLastParameterSetDecidesWhichSpsIsActive)
{
  auto writer = make_writer ({.id = 0, .pic_struct = true});
  const VornH264Sei timing = pic_timing (1, 2, 3, 15, -15);
  const Bytes with_pic_struct = write_sei (writer.get (), {timing});

  const HrdVariant hrd = {
      .present = true, .cpb_removal_delay_length = 5, .dpb_output_delay_length = 3};
  VornH264Sps sps;
  ASSERT_EQ (
      parse_sps (writer.get (), make_sps ({.id = 31, .nal_hrd = hrd, .pic_struct = false}), sps),
      0);
  EXPECT_EQ (write_sei (writer.get (), {timing}), with_pic_struct)
      << "parsing alone changes nothing";
  ASSERT_EQ (vorn_h264_writer_set_sps (writer.get (), &sps), 0);
  EXPECT_THAT (write_sei (writer.get (), {timing}),
               ElementsAreArray (Bytes{0x06, 0x01, 0x01, 0x00, 0x80}));

  VornH264Pps pps;
  ASSERT_EQ (parse_pps (writer.get (), make_pps (0, 0), pps), 0);
  ASSERT_EQ (vorn_h264_writer_set_pps (writer.get (), &pps), 0);
  EXPECT_EQ (write_sei (writer.get (), {timing}), with_pic_struct);
}

// --- what is refused, what is left out ---

TEST_F (H264Writer, RefusesFieldsOutOfRange)
{
  const HrdVariant hrd = {.present = true,
                          .cpb_removal_delay_length = 4,
                          .dpb_output_delay_length = 4,
                          .time_offset_length = 8};
  auto writer = make_writer ({.log2_max_frame_num = 5, .nal_hrd = hrd});
  const std::function<void (VornH264PicTiming &, VornH264ClockTimestamp &)> changes[] = {
      [] (auto &, auto &clock) { clock.n_frames = 256; },
      [] (auto &, auto &clock) { clock.n_frames = 0xffffffff; },
      [] (auto &, auto &clock) { clock.time_offset = 128; },
      [] (auto &, auto &clock) { clock.time_offset = -129; },
      [] (auto &, auto &clock) { clock.time_offset = INT64_MAX; },
      [] (auto &, auto &clock) { clock.time_offset = INT64_MIN; },
      [] (auto &, auto &clock) { clock.seconds_value = 60; },
      [] (auto &, auto &clock) { clock.minutes_value = 60; },
      [] (auto &, auto &clock) { clock.ct_type = 3; },
      [] (auto &, auto &clock) { clock.counting_type = 7; },
      [] (auto &timing, auto &) { timing.cpb_removal_delay = 16; },
      [] (auto &timing, auto &) { timing.dpb_output_delay = 16; },
      [] (auto &timing, auto &) { timing.pic_struct = 9; },
      [] (auto &timing, auto &) { timing.clock_timestamp_flag[1] = true; },
      [] (auto &timing, auto &) {
        timing.pic_struct = 3;
        timing.clock_timestamp_flag[2] = true;
      },
  };
  const Bytes before = write_sei (writer.get (), {recovery_point (31)});
  for (size_t i = 0; i < std::size (changes); i++) {
    VornH264Sei sei = pic_timing (1, 2, 3, 255, i % 2 ? 127 : -128);
    changes[i](sei.payload.pic_timing, sei.payload.pic_timing.clock_timestamp[0]);
    EXPECT_EQ (add (writer.get (), sei), -ERANGE) << "case " << i;
  }
  EXPECT_EQ (add (writer.get (), recovery_point (32)), -ERANGE);
  VornH264Sei reserved_idc = recovery_point ();
  reserved_idc.payload.recovery_point.changing_slice_group_idc = 3;
  EXPECT_EQ (add (writer.get (), reserved_idc), -ERANGE);

  // What was pending is still there, and nothing else.
  Bytes after (before.size ());
  ASSERT_EQ (vorn_h264_writer_write (writer.get (), after.data (), after.size ()),
             static_cast<ssize_t> (before.size ()));
  EXPECT_EQ (after, before);
}

TEST_F (H264Writer, WithoutRoomForATimeOffsetOnlyZeroIsTaken)
{
  auto writer = make_writer ({.nal_hrd = {.present = true, .time_offset_length = 0}});
  EXPECT_EQ (add (writer.get (), pic_timing (1, 2, 3, 4, 0)), 0);
  EXPECT_EQ (add (writer.get (), pic_timing (1, 2, 3, 4, 1)), -ERANGE);
  EXPECT_EQ (add (writer.get (), pic_timing (1, 2, 3, 4, -1)), -ERANGE);
}

TEST_F (H264Writer, HoursAreATimeOfDay)
{
  auto writer = make_writer ({});
  const std::pair<uint64_t, uint64_t> cases[] = {
      {24, 0}, {25, 1}, {47, 23}, {24 * 365 * 10 + 7, 7}, {UINT64_MAX, UINT64_MAX % 24}};
  for (const auto &[hours, of_day] : cases)
    EXPECT_EQ (write_sei (writer.get (), {pic_timing (hours, 2, 3, 15, -15)}),
               write_sei (writer.get (), {pic_timing (of_day, 2, 3, 15, -15)}))
        << hours;
}

TEST_F (H264Writer, PictureTimingIsLeftOutWhereTheSpsHasNoPlaceForIt)
{
  LogCapture log;
  const std::string text =
      "picture timing is left out: the stream's SPS has neither pic_struct nor "
      "HRD parameters";
  for (const SpsVariant &variant : {SpsVariant{.vui = false}, SpsVariant{.pic_struct = false}}) {
    log.clear ();
    auto writer = make_writer (variant);
    const Bytes data = {1, 2};
    const std::vector<VornH264Sei> all = {recovery_point (), pic_timing (1, 2, 3, 15, -15),
                                          user_data (data)};
    EXPECT_EQ (write_sei (writer.get (), all), write_sei (writer.get (), {all[0], all[2]}));
    EXPECT_EQ (write_sei (writer.get (), all), write_sei (writer.get (), {all[0], all[2]}));
    EXPECT_EQ (log.count (text, VORN_LOG_PRIORITY_WARNING), 1);

    // Alone it leaves nothing to write.
    uint8_t memory[64];
    ASSERT_EQ (vorn_h264_writer_clear (writer.get ()), 0);
    ASSERT_EQ (vorn_h264_writer_set_nal_header (writer.get (), 0, 6), 0);
    EXPECT_EQ (add (writer.get (), all[1]), 0);
    EXPECT_EQ (vorn_h264_writer_write (writer.get (), memory, sizeof memory), -ENODATA);

    VornH264Sps sps;
    ASSERT_EQ (parse_sps (writer.get (), make_sps (variant), sps), 0);
    ASSERT_EQ (vorn_h264_writer_set_sps (writer.get (), &sps), 0);
    EXPECT_EQ (add (writer.get (), all[1]), 0);
    EXPECT_EQ (log.count (text, VORN_LOG_PRIORITY_WARNING), 2) << "once for each SPS that is set";
  }
}

TEST_F (H264Writer, RefusesPictureTimingWithoutAnSps)
{
  Writer writer (vorn_h264_writer_new (), vorn_h264_writer_destroy);
  EXPECT_EQ (add (writer.get (), pic_timing (1, 2, 3, 4, 5)), -ENOENT);
  EXPECT_EQ (add (writer.get (), recovery_point (65535)), 0);
  EXPECT_EQ (add (writer.get (), recovery_point (65536)), -ERANGE);
}

TEST_F (H264Writer, RefusesWrongArguments)
{
  auto writer = make_writer ({});
  const VornH264Sei good = recovery_point ();
  uint8_t memory[64];
  EXPECT_EQ (vorn_h264_writer_clear (nullptr), -EINVAL);
  EXPECT_EQ (vorn_h264_writer_add_sei (nullptr, &good), -EINVAL);
  EXPECT_EQ (vorn_h264_writer_add_sei (writer.get (), nullptr), -EINVAL);
  EXPECT_EQ (vorn_h264_writer_write (nullptr, memory, sizeof memory), -EINVAL);
  EXPECT_EQ (vorn_h264_writer_write (writer.get (), nullptr, sizeof memory), -EINVAL);
  EXPECT_EQ (vorn_h264_writer_set_nal_header (nullptr, 0, 6), -EINVAL);
  EXPECT_EQ (vorn_h264_writer_set_nal_header (writer.get (), 1, 6), -ERANGE);
  for (const uint8_t type : Bytes{0, 1, 5, 7, 8, 9, 32})
    EXPECT_EQ (vorn_h264_writer_set_nal_header (writer.get (), 0, type), -ENOTSUP);

  VornH264Sei unknown = good;
  unknown.payload_type = static_cast<VornH264SeiType> (4);
  EXPECT_EQ (add (writer.get (), unknown), -EINVAL);

  VornH264Sei no_data = user_data ({});
  no_data.payload.user_data_unregistered.data = nullptr;
  EXPECT_EQ (add (writer.get (), no_data), 0);
  no_data.payload.user_data_unregistered.size = 1;
  EXPECT_EQ (add (writer.get (), no_data), -EINVAL);
  vorn_h264_writer_destroy (nullptr);
}

TEST_F (H264Writer, AUnitNeedsAHeaderAndAMessage)
{
  auto writer = make_writer ({});
  uint8_t memory[64];
  EXPECT_EQ (vorn_h264_writer_write (writer.get (), memory, sizeof memory), -ENODATA);
  ASSERT_EQ (add (writer.get (), recovery_point ()), 0);
  EXPECT_EQ (vorn_h264_writer_write (writer.get (), memory, sizeof memory), -ENODATA);
  ASSERT_EQ (vorn_h264_writer_set_nal_header (writer.get (), 0, 6), 0);
  EXPECT_EQ (vorn_h264_writer_write (writer.get (), memory, sizeof memory), 5);
  EXPECT_EQ (vorn_h264_writer_write (writer.get (), memory, sizeof memory), 5)
      << "it stays pending";
  ASSERT_EQ (vorn_h264_writer_clear (writer.get ()), 0);
  EXPECT_EQ (vorn_h264_writer_write (writer.get (), memory, sizeof memory), -ENODATA);
}

TEST_F (H264Writer, KeepsToTheMemoryGiven)
{
  auto writer = make_writer ({});
  const Bytes data = {0, 0, 0, 0, 0, 0, 0, 0};
  const Bytes whole = write_sei (writer.get (), {recovery_point (), user_data (data)});
  for (size_t capacity = 0; capacity < whole.size (); capacity++) {
    Bytes memory (whole.size () + 8, 0xee);
    EXPECT_EQ (vorn_h264_writer_write (writer.get (), memory.data (), capacity), -ENOSPC);
    for (size_t i = capacity; i < memory.size (); i++)
      EXPECT_EQ (memory[i], 0xee);
  }
  Bytes memory (whole.size ());
  EXPECT_EQ (vorn_h264_writer_write (writer.get (), memory.data (), memory.size ()),
             static_cast<ssize_t> (whole.size ()));
  EXPECT_EQ (memory, whole);
}

TEST_F (H264Writer, MessagesHaveALimit)
{
  auto writer = make_writer ({});
  // type, 256 bytes of size, UUID
  const size_t most = VORN_H264_WRITER_MAX_SEI_SIZE - 1 - 256 - 16;
  const Bytes data (most + 1, 0x77);
  VornH264Sei sei = user_data (data);
  EXPECT_EQ (add (writer.get (), sei), -EMSGSIZE);
  sei.payload.user_data_unregistered.size = SIZE_MAX;
  EXPECT_EQ (add (writer.get (), sei), -EMSGSIZE);
  sei.payload.user_data_unregistered.size = most;
  EXPECT_EQ (add (writer.get (), sei), 0);
  EXPECT_EQ (add (writer.get (), recovery_point ()), -EMSGSIZE);
  ASSERT_EQ (vorn_h264_writer_set_nal_header (writer.get (), 0, 6), 0);
  Bytes memory (VORN_H264_WRITER_MAX_SEI_SIZE + 2);
  EXPECT_EQ (vorn_h264_writer_write (writer.get (), memory.data (), memory.size ()),
             static_cast<ssize_t> (memory.size ()));
  EXPECT_EQ (vorn_h264_writer_clear (writer.get ()), 0);
  EXPECT_EQ (add (writer.get (), recovery_point ()), 0);
}

TEST_F (H264Writer, AClearedUnitLeavesNoTraceInTheNext)
{
  auto writer = make_writer ({});
  const Bytes small = write_sei (writer.get (), {recovery_point ()});
  const Bytes ones (1000, 0xff);
  write_sei (writer.get (), {user_data (ones), user_data (ones)});
  EXPECT_EQ (write_sei (writer.get (), {recovery_point ()}), small);
}
