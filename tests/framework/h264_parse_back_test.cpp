// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What the writer writes, read back by GStreamer's parser.
#include <gtest/gtest.h>

#include <gst/gst.h>
#define GST_USE_UNSTABLE_API
#include <gst/codecparsers/gsth264parser.h>

#include <vorn/framework.h>
#include <vorn/raii.hpp>

#include "h264_support.hpp"
#include "log_capture.hpp"

using namespace h264;

namespace
{

/** Reads SEI units with the SPS that it was given. */
class Reader
{
public:
  explicit Reader (const Bytes &sps)
  {
    feed (sps,
          [&] (GstH264NalUnit *unit) { return gst_h264_parser_parse_nal (parser_.get (), unit); });
  }

  /** The messages of a unit, in order; valid until the next call. */
  const std::vector<GstH264SEIMessage> &read (const Bytes &nalu)
  {
    GArray *array = nullptr;
    feed (nalu, [&] (GstH264NalUnit *unit) {
      EXPECT_EQ (unit->type, GST_H264_NAL_SEI);
      EXPECT_EQ (unit->ref_idc, 0);
      return gst_h264_parser_parse_sei (parser_.get (), unit, &array);
    });
    array_.reset (array);
    messages_.clear ();
    for (guint i = 0; array && i < array->len; i++)
      messages_.push_back (g_array_index (array, GstH264SEIMessage, i));
    return messages_;
  }

private:
  template <typename Parse>
  void feed (const Bytes &nalu, Parse parse)
  {
    stream_.clear ();
    append_with_start_code (stream_, nalu);
    GstH264NalUnit unit = {};
    ASSERT_EQ (gst_h264_parser_identify_nalu_unchecked (parser_.get (), stream_.data (), 0,
                                                        stream_.size (), &unit),
               GST_H264_PARSER_OK);
    ASSERT_EQ (parse (&unit), GST_H264_PARSER_OK);
  }

  vorn::Owned<GstH264NalParser, gst_h264_nal_parser_free> parser_{gst_h264_nal_parser_new ()};
  Bytes stream_;
  vorn::Owned<GArray, g_array_unref> array_;
  std::vector<GstH264SEIMessage> messages_;
};

void expect_equal (const GstH264ClockTimestamp &read, const VornH264ClockTimestamp &clock,
                   unsigned time_offset_length)
{
  EXPECT_EQ (read.ct_type, clock.ct_type);
  EXPECT_EQ (read.nuit_field_based_flag, clock.nuit_field_based_flag);
  EXPECT_EQ (read.counting_type, clock.counting_type);
  EXPECT_EQ (read.full_timestamp_flag, clock.full_timestamp_flag);
  EXPECT_EQ (read.discontinuity_flag, clock.discontinuity_flag);
  EXPECT_EQ (read.cnt_dropped_flag, clock.cnt_dropped_flag);
  EXPECT_EQ (read.n_frames, clock.n_frames);
  const bool seconds = clock.full_timestamp_flag || clock.seconds_flag;
  const bool minutes = clock.full_timestamp_flag || (seconds && clock.minutes_flag);
  const bool hours = clock.full_timestamp_flag || (minutes && clock.hours_flag);
  EXPECT_EQ (read.seconds_value, seconds ? clock.seconds_value : 0);
  EXPECT_EQ (read.minutes_value, minutes ? clock.minutes_value : 0);
  EXPECT_EQ (read.hours_value, hours ? clock.hours_value % 24 : 0);
  // The parser hands out the bare bits of the signed field.
  const uint64_t mask = (uint64_t{1} << time_offset_length) - 1;
  EXPECT_EQ (read.time_offset, static_cast<uint64_t> (clock.time_offset) & mask);
}

void expect_equal (const GstH264PicTiming &read, const VornH264PicTiming &timing,
                   const SpsVariant &variant)
{
  if (variant.hrd ()) {
    EXPECT_EQ (read.cpb_removal_delay, timing.cpb_removal_delay);
    EXPECT_EQ (read.dpb_output_delay, timing.dpb_output_delay);
  }
  if (!variant.pic_struct)
    return;
  EXPECT_EQ (read.pic_struct, timing.pic_struct);
  for (int i = 0; i < 3; i++) {
    ASSERT_EQ (read.clock_timestamp_flag[i], timing.clock_timestamp_flag[i]) << i;
    if (timing.clock_timestamp_flag[i])
      expect_equal (read.clock_timestamp[i], timing.clock_timestamp[i],
                    variant.time_offset_length ());
  }
}

void expect_equal (const GstH264SEIMessage &read, const VornH264Sei &sei, const SpsVariant &variant)
{
  ASSERT_EQ (static_cast<int> (read.payloadType), static_cast<int> (sei.payload_type));
  switch (sei.payload_type) {
  case VORN_H264_SEI_RECOVERY_POINT: {
    const VornH264RecoveryPoint &point = sei.payload.recovery_point;
    EXPECT_EQ (read.payload.recovery_point.recovery_frame_cnt, point.recovery_frame_cnt);
    EXPECT_EQ (read.payload.recovery_point.exact_match_flag, point.exact_match_flag);
    EXPECT_EQ (read.payload.recovery_point.broken_link_flag, point.broken_link_flag);
    EXPECT_EQ (read.payload.recovery_point.changing_slice_group_idc,
               point.changing_slice_group_idc);
    break;
  }
  case VORN_H264_SEI_PIC_TIMING:
    expect_equal (read.payload.pic_timing, sei.payload.pic_timing, variant);
    break;
  case VORN_H264_SEI_USER_DATA_UNREGISTERED: {
    const GstH264UserDataUnregistered &data = read.payload.user_data_unregistered;
    const VornH264UserDataUnregistered &wanted = sei.payload.user_data_unregistered;
    EXPECT_EQ (memcmp (data.uuid, wanted.uuid_iso_iec_11578, 16), 0);
    EXPECT_EQ (Bytes (data.data, data.data + data.size),
               Bytes (wanted.data, wanted.data + wanted.size));
    break;
  }
  }
}

class H264ParseBack : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }
};

} // namespace

TEST_F (H264ParseBack, RandomFieldsOnEverySpsVariant)
{
  Random random (20261120);
  const int rounds = soak () ? 5000 : 60;
  for (const SpsVariant &variant : all_sps_variants ()) {
    SCOPED_TRACE (variant.name ());
    auto writer = make_writer (variant);
    Reader reader (make_sps (variant));
    for (int i = 0; i < rounds; i++) {
      const Bytes data = random_bytes (random, 600);
      std::vector<VornH264Sei> messages = {random_recovery_point (random, variant),
                                           random_pic_timing (random, variant), user_data (data)};
      const Bytes nalu = write_sei (writer.get (), messages);
      if (!variant.carries_pic_timing ())
        messages.erase (messages.begin () + 1);
      const auto &read = reader.read (nalu);
      ASSERT_EQ (read.size (), messages.size ());
      for (size_t k = 0; k < messages.size (); k++)
        expect_equal (read[k], messages[k], variant);
      if (HasFailure ())
        return;
    }
  }
}

TEST_F (H264ParseBack, ClocksThatRunForDays)
{
  const SpsVariant variant;
  auto writer = make_writer (variant);
  Reader reader (make_sps (variant));
  for (const uint64_t hours : {0u, 23u, 24u, 71u, 24u * 30, 24u * 365 * 3}) {
    const VornH264Sei sei = pic_timing (hours, 59, 59, 29, -8388608);
    const auto &read = reader.read (write_sei (writer.get (), {sei}));
    ASSERT_EQ (read.size (), 1u);
    EXPECT_EQ (read[0].payload.pic_timing.clock_timestamp[0].hours_value, hours % 24);
    expect_equal (read[0], sei, variant);
  }
}

TEST_F (H264ParseBack, EveryTimeOffsetLengthCarriesItsLimits)
{
  for (const bool vcl : {false, true})
    for (unsigned length = 0; length <= 31; length++) {
      const HrdVariant hrd = {.present = true, .time_offset_length = length};
      const SpsVariant variant = vcl ? SpsVariant{.vcl_hrd = hrd} : SpsVariant{.nal_hrd = hrd};
      SCOPED_TRACE (variant.name ());
      auto writer = make_writer (variant);
      Reader reader (make_sps (variant));
      const int64_t half = length > 0 ? int64_t{1} << (length - 1) : 0;
      for (const int64_t offset : {-half, int64_t{0}, length > 0 ? half - 1 : 0}) {
        const VornH264Sei sei = pic_timing (1, 2, 3, 4, offset);
        const auto &read = reader.read (write_sei (writer.get (), {sei}));
        ASSERT_EQ (read.size (), 1u);
        expect_equal (read[0], sei, variant);
      }
      for (const int64_t offset : {-half - 1, length > 0 ? half : 1}) {
        const VornH264Sei sei = pic_timing (1, 2, 3, 4, offset);
        EXPECT_EQ (vorn_h264_writer_add_sei (writer.get (), &sei), -ERANGE) << offset;
      }
    }
}
