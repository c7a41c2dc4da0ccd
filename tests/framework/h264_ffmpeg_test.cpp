// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What the writer writes, read back by FFmpeg: on streams made to measure with every variant of the
// SPS, and put into streams of a real encoder.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <gst/app/gstappsink.h>
#include <gst/gst.h>

#include <vorn/framework.h>
#include <vorn/gst_raii.hpp>
#include <vorn/streaming_sei.h>

#include "h264_support.hpp"
#include "h264_trace.hpp"
#include "log_capture.hpp"

using namespace h264;
using testing::ElementsAreArray;

namespace
{

struct Wanted {
  std::string name;
  Fields fields;
};

class H264Ffmpeg : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }

  /** One access unit of one macroblock with its own parameter sets and these messages. */
  void add_access_unit (VornH264Writer *writer, const SpsVariant &variant,
                        const std::vector<VornH264Sei> &messages)
  {
    append_with_start_code (stream_, make_access_unit_delimiter ());
    append_with_start_code (stream_, make_sps (variant));
    append_with_start_code (stream_, make_pps ());
    append_with_start_code (stream_, write_sei (writer, messages));
    append_with_start_code (stream_,
                            make_idr_slice (variant, static_cast<unsigned> (wanted_.size () % 2)));
    wanted_.push_back ({variant.name (), expected_fields (messages, variant)});
  }

  void expect_trace ()
  {
    const std::vector<TracedAccessUnit> traced = trace (stream_);
    ASSERT_EQ (traced.size (), wanted_.size ());
    for (size_t i = 0; i < traced.size (); i++) {
      ASSERT_EQ (traced[i].sei_units, 1) << wanted_[i].name;
      ASSERT_THAT (traced[i].sei, ElementsAreArray (wanted_[i].fields)) << wanted_[i].name;
    }
  }

  Bytes stream_;
  std::vector<Wanted> wanted_;
};

} // namespace

TEST_F (H264Ffmpeg, RandomFieldsOnEverySpsVariant)
{
  LogCapture log; // what is left out is said for each of the variants without a place for it
  Random random (11);
  const int rounds = soak () ? 50 : 3;
  for (const SpsVariant &variant : all_sps_variants ()) {
    auto writer = make_writer (variant);
    for (int i = 0; i < rounds; i++) {
      const Bytes data = random_bytes (random, 40);
      add_access_unit (writer.get (), variant,
                       {random_recovery_point (random, variant),
                        random_pic_timing (random, variant), user_data (data)});
    }
  }
  expect_trace ();
}

TEST_F (H264Ffmpeg, EveryTimeOffsetLengthCarriesItsLimits)
{
  for (const bool vcl : {false, true})
    for (unsigned length = 0; length <= 31; length++) {
      const HrdVariant hrd = {.present = true, .time_offset_length = length};
      const SpsVariant variant = vcl ? SpsVariant{.vcl_hrd = hrd} : SpsVariant{.nal_hrd = hrd};
      auto writer = make_writer (variant);
      const int64_t half = length > 0 ? int64_t{1} << (length - 1) : 0;
      for (const int64_t offset : {-half, int64_t{0}, length > 0 ? half - 1 : 0})
        add_access_unit (writer.get (), variant, {pic_timing (23, 59, 59, 255, offset)});
    }
  expect_trace ();
}

TEST_F (H264Ffmpeg, ClocksThatRunForDays)
{
  const SpsVariant variant;
  auto writer = make_writer (variant);
  for (const uint64_t hours : {0u, 23u, 24u, 71u, 24u * 30, 24u * 365 * 3})
    add_access_unit (writer.get (), variant, {pic_timing (hours, 59, 59, 59, 8388607)});
  expect_trace ();
}

// --- streams of a real encoder ---

namespace
{

struct EncoderCase {
  const char *name;
  const char *option_string;
  SpsVariant sps; // as the encoder is known to write it, field lengths apart
};

/** The access units of a short encoded video, as byte streams. */
std::vector<Bytes> encode (const std::string &options)
{
  vorn::ErrorOut error;
  auto pipeline = vorn::adopt (gst_parse_launch (
      ("videotestsrc num-buffers=12 ! video/x-raw,format=I420,width=64,height=48,framerate=30/1 ! "
       "x264enc tune=zerolatency threads=1 key-int-max=5 bitrate=300 vbv-buf-capacity=1000 "
       "option-string=\"" +
       options +
       "\" ! video/x-h264,stream-format=byte-stream,alignment=au ! appsink name=sink sync=false")
          .c_str (),
      error.out ()));
  EXPECT_FALSE (error) << error.message ();
  auto sink = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), "sink"));
  gst_element_set_state (pipeline.get (), GST_STATE_PLAYING);
  std::vector<Bytes> units;
  while (auto sample = vorn::adopt (gst_app_sink_pull_sample (GST_APP_SINK (sink.get ())))) {
    const vorn::BufferMap map (gst_sample_get_buffer (sample.get ()), GST_MAP_READ);
    units.emplace_back (map.data (), map.data () + map.size ());
  }
  gst_element_set_state (pipeline.get (), GST_STATE_NULL);
  return units;
}

class H264FfmpegEncoder : public testing::TestWithParam<EncoderCase>
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }

  /** Shows the writer the unit's parameter sets, and keeps what the SPS says. */
  void take_parameter_sets (VornH264Writer *writer, const std::vector<Bytes> &nalus)
  {
    for (const Bytes &nalu : nalus) {
      const unsigned type = nalu[0] & 0x1f;
      if (type == VORN_H264_NAL_UNIT_SPS) {
        ASSERT_EQ (vorn_h264_writer_parse_sps (writer, nalu.data (), nalu.size (), &sps_), 0);
        ASSERT_EQ (vorn_h264_writer_set_sps (writer, &sps_), 0);
      } else if (type == VORN_H264_NAL_UNIT_PPS) {
        VornH264Pps pps;
        ASSERT_EQ (vorn_h264_writer_parse_pps (writer, nalu.data (), nalu.size (), &pps), 0);
        ASSERT_EQ (vorn_h264_writer_set_pps (writer, &pps), 0);
      }
    }
  }

  /** The encoder's own SEI and delimiters out, ours in before the first slice. */
  static void append (Bytes &stream, const std::vector<Bytes> &nalus, const Bytes &sei)
  {
    bool inserted = false;
    for (const Bytes &nalu : nalus) {
      const unsigned type = nalu[0] & 0x1f;
      if (type == 6 || type == 9)
        continue;
      if (!inserted && (type == 1 || type == 5)) {
        append_with_start_code (stream, sei);
        inserted = true;
      }
      append_with_start_code (stream, nalu);
    }
    EXPECT_TRUE (inserted);
  }

  VornH264Sps sps_ = {};
};

} // namespace

TEST_P (H264FfmpegEncoder, SeiIsReadAndPicturesDecode)
{
  LogCapture log;
  Writer writer (vorn_h264_writer_new (), vorn_h264_writer_destroy);
  SpsVariant variant = GetParam ().sps;
  Bytes stream;
  std::vector<Fields> wanted;

  uint8_t payload[VORN_STREAMING_SEI_PAYLOAD_SIZE];
  size_t payload_size = sizeof payload;
  VornH264Sei slices = user_data ({});
  const VornStreamingSeiSliceLayout layout = {1, 12};
  ASSERT_EQ (vorn_streaming_sei_write (&layout, payload, &payload_size,
                                       slices.payload.user_data_unregistered.uuid_iso_iec_11578),
             0);
  slices.payload.user_data_unregistered.data = payload;
  slices.payload.user_data_unregistered.size = payload_size;

  const std::vector<Bytes> units = encode (GetParam ().option_string);
  ASSERT_EQ (units.size (), 12u);
  for (uint32_t i = 0; i < units.size (); i++) {
    const std::vector<Bytes> nalus = split_byte_stream (units[i]);
    ASSERT_NO_FATAL_FAILURE (take_parameter_sets (writer.get (), nalus));
    variant.nal_hrd.cpb_removal_delay_length = sps_.nal_hrd.cpb_removal_delay_length;
    variant.nal_hrd.dpb_output_delay_length = sps_.nal_hrd.dpb_output_delay_length;
    variant.nal_hrd.time_offset_length = sps_.nal_hrd.time_offset_length;
    const int64_t offset = variant.time_offset_length () > 0 ? -15 : 0;
    const bool sync_point = i % 5 == 0;
    std::vector<VornH264Sei> messages = {pic_timing (49, 2, 3, i, offset)};
    // A picture leaves the coded picture buffer so many ticks after the last buffering period.
    messages[0].payload.pic_timing.cpb_removal_delay = i == 0 ? 0 : 2 * ((i - 1) % 5 + 1);
    if (sync_point)
      messages = {recovery_point (), messages[0], slices};
    if (!sync_point && !variant.carries_pic_timing ())
      messages = {recovery_point ()};
    append (stream, nalus, write_sei (writer.get (), messages));
    wanted.push_back (expected_fields (messages, variant));
  }
  EXPECT_TRUE (sps_.timing_info_present_flag);
  EXPECT_EQ (sps_.num_units_in_tick, 1u);
  EXPECT_EQ (sps_.time_scale, 60u);
  EXPECT_EQ (sps_.pic_struct_present_flag, GetParam ().sps.pic_struct);
  EXPECT_EQ (sps_.nal_hrd.present, GetParam ().sps.nal_hrd.present);

  const std::vector<TracedAccessUnit> traced = trace (stream);
  ASSERT_EQ (traced.size (), wanted.size ());
  for (size_t i = 0; i < traced.size (); i++)
    EXPECT_THAT (traced[i].sei, ElementsAreArray (wanted[i])) << "access unit " << i;
  int frame_count = 0;
  EXPECT_EQ (decoder_complaints (stream, &frame_count), "");
  EXPECT_EQ (frame_count, 12);
}

INSTANTIATE_TEST_SUITE_P (
    Streams, H264FfmpegEncoder,
    testing::Values (EncoderCase{"plain", "scenecut=0", {.pic_struct = false}},
                     EncoderCase{"pic_struct", "scenecut=0:pic-struct=1", {.pic_struct = true}},
                     EncoderCase{"hrd",
                                 "scenecut=0:nal-hrd=cbr",
                                 {.nal_hrd = {.present = true}, .pic_struct = false}},
                     EncoderCase{"hrd_and_pic_struct",
                                 "scenecut=0:nal-hrd=vbr:vbv-maxrate=400:vbv-bufsize=400:"
                                 "pic-struct=1",
                                 {.nal_hrd = {.present = true}, .pic_struct = true}}),
    [] (const auto &stream) { return std::string (stream.param.name); });
