// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The frame postprocessor over streams of real encoders: what comes out is read by GStreamer's
// parser and by FFmpeg, and decodes to the same pictures as what went in.
#include <cmath>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <gst/app/gstappsink.h>

#include <vorn/framework.h>

#include "frame_postprocessor_support.hpp"
#include "h264_trace.hpp"
#include "log_capture.hpp"
#include "process.hpp"
#include "temp_dir.hpp"

using namespace postprocessing;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace
{

constexpr int warning = VORN_LOG_PRIORITY_WARNING;
constexpr VornResolution size = {128, 96};

struct Rate {
  unsigned num;
  unsigned den;
};

std::vector<BufferRef> encode (const std::string &encoder, Rate rate, int frames)
{
  vorn::ErrorOut error;
  auto pipeline = vorn::adopt (gst_parse_launch (
      ("videotestsrc num-buffers=" + std::to_string (frames) +
       " pattern=ball ! video/x-raw,format=I420,width=128,height=96,framerate=" +
       std::to_string (rate.num) + "/" + std::to_string (rate.den) + " ! " + encoder +
       " ! video/x-h264,stream-format=avc,alignment=au ! appsink name=sink sync=false")
          .c_str (),
      error.out ()));
  EXPECT_FALSE (error) << error.message ();
  auto sink = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), "sink"));
  gst_element_set_state (pipeline.get (), GST_STATE_PLAYING);
  std::vector<BufferRef> units;
  while (auto sample = vorn::adopt (gst_app_sink_pull_sample (GST_APP_SINK (sink.get ()))))
    units.push_back (vorn::adopt (gst_buffer_copy (gst_sample_get_buffer (sample.get ()))));
  gst_element_set_state (pipeline.get (), GST_STATE_NULL);
  return units;
}

Bytes byte_stream (const std::vector<std::vector<Bytes>> &units)
{
  Bytes stream;
  for (const auto &nalus : units)
    for (const Bytes &nalu : nalus)
      h264::append_with_start_code (stream, nalu);
  return stream;
}

/** Checksums of the pictures that FFmpeg decodes, in order; its complaints fail the test. */
std::vector<std::string> decode (const Bytes &stream)
{
  const TempDir folder;
  const std::string path =
      folder.write ("stream.h264", std::string (stream.begin (), stream.end ()));
  const ProcessResult ffmpeg = run_process ({"ffmpeg", "-hide_banner", "-nostdin", "-v", "warning",
                                             "-f", "h264", "-i", path, "-f", "framemd5", "-"});
  EXPECT_EQ (ffmpeg.status, 0);
  EXPECT_EQ (ffmpeg.errors, "");
  std::vector<std::string> pictures;
  std::istringstream lines (ffmpeg.output);
  for (std::string line; std::getline (lines, line);)
    if (!line.empty () && line[0] != '#')
      pictures.push_back (line.substr (line.rfind (' ') + 1));
  return pictures;
}

bool is_slice (const Bytes &nalu)
{
  return (nalu[0] & 0x1f) == 1 || (nalu[0] & 0x1f) == 5;
}

/** GStreamer's parser takes every unit, slice headers included. */
void expect_parses (const Bytes &stream)
{
  const vorn::Owned<GstH264NalParser, gst_h264_nal_parser_free> parser (gst_h264_nal_parser_new ());
  GstH264NalUnit unit = {};
  guint offset = 0;
  while (gst_h264_parser_identify_nalu (parser.get (), stream.data (), offset, stream.size (),
                                        &unit) != GST_H264_PARSER_NO_NAL) {
    GstH264SliceHdr header;
    if (unit.type == GST_H264_NAL_SLICE || unit.type == GST_H264_NAL_SLICE_IDR) {
      ASSERT_EQ (gst_h264_parser_parse_slice_hdr (parser.get (), &unit, &header, TRUE, TRUE),
                 GST_H264_PARSER_OK);
    } else if (unit.type == GST_H264_NAL_SEI) {
      GArray *messages = nullptr;
      ASSERT_EQ (gst_h264_parser_parse_sei (parser.get (), &unit, &messages), GST_H264_PARSER_OK);
      g_array_unref (messages);
    } else {
      ASSERT_EQ (gst_h264_parser_parse_nal (parser.get (), &unit), GST_H264_PARSER_OK);
    }
    offset = unit.offset + unit.size;
    if (offset >= stream.size ())
      break;
  }
  EXPECT_EQ (offset, stream.size ());
}

/** The messages that a frame should carry; x264 counts two ticks a frame. */
h264::Fields expected_messages (GstClockTime capture_time_ns, bool sync_point, Rate rate)
{
  const double seconds = static_cast<double> (capture_time_ns / 1000) / 1e6;
  const auto whole = static_cast<int64_t> (seconds);
  const auto ticks =
      static_cast<int64_t> (std::llround ((seconds - static_cast<double> (whole)) * 2 * rate.num));
  const auto n_frames = (ticks + rate.den / 2) / rate.den;
  std::vector<VornH264Sei> messages = {
      h264::pic_timing (static_cast<uint64_t> (whole / 3600),
                        static_cast<uint32_t> (whole / 60 % 60), static_cast<uint32_t> (whole % 60),
                        static_cast<uint32_t> (n_frames), ticks - rate.den * n_frames)};
  static const Bytes layout = {0, 1, 0, 48}; // 8 x 6 macroblocks
  VornH264Sei user_data = h264::user_data (layout);
  static constexpr uint8_t uuid[] = {0xb9, 0xa1, 0xf0, 0xd2, 0x6c, 0x3e, 0x4f, 0x57,
                                     0x8e, 0x04, 0x3d, 0x7b, 0x52, 0xc8, 0x16, 0xea};
  std::copy (std::begin (uuid), std::end (uuid),
             user_data.payload.user_data_unregistered.uuid_iso_iec_11578);
  if (sync_point)
    messages = {h264::recovery_point (), messages[0], user_data};
  return h264::expected_fields (messages, {});
}

struct Encoder {
  const char *name;
  const char *launch;
};

class FramePostprocessorEncodes : public testing::TestWithParam<std::tuple<Encoder, Rate>>
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }
};

} // namespace

TEST_P (FramePostprocessorEncodes, SeiIsReadAndPicturesAreTheSame)
{
  const auto &[encoder, rate] = GetParam ();
  const int frames = soak () ? 600 : 25;
  const auto buffers = encode (encoder.launch, rate, frames);
  ASSERT_EQ (buffers.size (), static_cast<size_t> (frames));

  LogCapture log;
  const Postprocessor state (frame_postprocessor_new ());
  std::vector<std::vector<Bytes>> before;
  std::vector<std::vector<Bytes>> after;
  std::vector<h264::Fields> expected;
  const GstClockTime first_pts = GST_BUFFER_PTS (buffers[0].get ());
  for (const BufferRef &buffer : buffers) {
    const GstClockTime capture_time =
        3723500000 * GST_USECOND + GST_BUFFER_PTS (buffer.get ()) - first_pts;
    const bool sync_point = !GST_BUFFER_FLAG_IS_SET (buffer.get (), GST_BUFFER_FLAG_DELTA_UNIT);
    before.push_back (nal_units (buffer.get ()));
    set_meta (buffer.get (), capture_time, sync_point);
    ASSERT_NE (frame_postprocessor_process (state.get (), &size, buffer.get ()), 0);
    after.push_back (nal_units (buffer.get ()));
    expected.push_back (expected_messages (capture_time, sync_point, rate));
  }
  EXPECT_THAT (log.texts (warning), IsEmpty ());

  for (size_t i = 0; i < after.size (); i++) {
    std::vector<unsigned> types = {6};
    if (i == 0)
      types = {7, 8, 6};
    for (const Bytes &nalu : before[i])
      if (is_slice (nalu))
        types.push_back (nalu[0] & 0x1f);
    ASSERT_THAT (types_of (after[i]), ElementsAreArray (types)) << i;
    // The slices are the encoder's, byte for byte.
    ASSERT_TRUE (std::equal (after[i].rbegin (),
                             after[i].rbegin () + std::ssize (types) - (i == 0 ? 3 : 1),
                             before[i].rbegin ()));
  }
  EXPECT_GT (std::count_if (before.begin (), before.end (),
                            [] (const auto &nalus) { return (nalus.back ()[0] & 0x1f) == 5; }),
             1);

  const Bytes stream = byte_stream (after);
  expect_parses (stream);
  const std::vector<h264::TracedAccessUnit> traced = h264::trace (stream);
  ASSERT_EQ (traced.size (), after.size ());
  for (size_t i = 0; i < traced.size (); i++) {
    EXPECT_EQ (traced[i].sei_units, 1);
    EXPECT_THAT (traced[i].sei, ElementsAreArray (expected[i])) << i;
  }
  const auto pictures = decode (byte_stream (before));
  EXPECT_EQ (pictures.size (), static_cast<size_t> (frames));
  EXPECT_EQ (decode (stream), pictures);
}

INSTANTIATE_TEST_SUITE_P (
    Streams, FramePostprocessorEncodes,
    testing::Combine (
        testing::Values (
            Encoder{"one_slice", "x264enc tune=zerolatency speed-preset=ultrafast threads=1 "
                                 "aud=false key-int-max=10 option-string=pic-struct=1"},
            // Access unit delimiters, the encoder's own picture timing in each frame, and its
            // options as user data in the first.
            Encoder{
                "b_frames_and_own_sei",
                "x264enc speed-preset=veryfast threads=1 bframes=3 b-adapt=false b-pyramid=true "
                "key-int-max=10 option-string=pic-struct=1"},
            Encoder{"four_slices", "x264enc tune=zerolatency speed-preset=superfast threads=1 "
                                   "key-int-max=10 option-string=pic-struct=1:slices=4"}),
        testing::Values (Rate{30, 1}, Rate{24000, 1001}, Rate{60000, 1001}, Rate{9, 1})),
    [] (const auto &row) {
      return std::get<0> (row.param).name + std::string ("_") +
             std::to_string (std::get<1> (row.param).num) + "_" +
             std::to_string (std::get<1> (row.param).den);
    });

TEST_F (FramePostprocessorEncodes, StreamRestartedAtAnotherRateIsTimedByTheNewOne)
{
  const char *const launch = "x264enc tune=zerolatency speed-preset=ultrafast threads=1 "
                             "key-int-max=10 option-string=pic-struct=1";
  LogCapture log;
  const Postprocessor state (frame_postprocessor_new ());
  int n_frames = 0;
  for (const Rate rate : {Rate{30, 1}, Rate{24000, 1001}, Rate{9, 1}}) {
    Bytes stream;
    std::vector<h264::Fields> expected;
    for (const BufferRef &buffer : encode (launch, rate, 12)) {
      const bool sync_point = !GST_BUFFER_FLAG_IS_SET (buffer.get (), GST_BUFFER_FLAG_DELTA_UNIT);
      const GstClockTime capture_time = 700 * GST_MSECOND + static_cast<GstClockTime> (n_frames);
      const std::vector<Bytes> before = nal_units (buffer.get ());
      set_meta (buffer.get (), capture_time, sync_point);
      frame_postprocessor_process (state.get (), &size, buffer.get ());
      const std::vector<Bytes> after = nal_units (buffer.get ());
      EXPECT_EQ ((after[0][0] & 0x1f) == 7, n_frames == 0);
      // The parameter sets come to the receiver beside the stream.
      for (const Bytes &nalu : n_frames > 0 ? before : std::vector<Bytes>{})
        if ((nalu[0] & 0x1f) == 7 || (nalu[0] & 0x1f) == 8)
          h264::append_with_start_code (stream, nalu);
      for (const Bytes &nalu : after)
        h264::append_with_start_code (stream, nalu);
      expected.push_back (expected_messages (capture_time, sync_point, rate));
      n_frames++;
    }
    const auto traced = h264::trace (stream);
    ASSERT_EQ (traced.size (), expected.size ());
    for (size_t i = 0; i < traced.size (); i++)
      EXPECT_THAT (traced[i].sei, ElementsAreArray (expected[i])) << i;
  }
  EXPECT_THAT (log.texts (warning), IsEmpty ());
}

TEST_F (FramePostprocessorEncodes, StreamWithoutTimingKeepsItsSlices)
{
  const auto buffers =
      encode ("openh264enc gop-size=10 ! h264parse config-interval=-1", {30, 1}, 25);
  ASSERT_EQ (buffers.size (), 25u);
  LogCapture log;
  const Postprocessor state (frame_postprocessor_new ());
  std::vector<std::vector<Bytes>> before;
  std::vector<std::vector<Bytes>> after;
  for (const BufferRef &buffer : buffers) {
    before.push_back (nal_units (buffer.get ()));
    set_meta (buffer.get (), GST_SECOND, before.size () == 1);
    ASSERT_NE (frame_postprocessor_process (state.get (), &size, buffer.get ()), 0);
    after.push_back (nal_units (buffer.get ()));
  }
  EXPECT_EQ (types_of (after[0])[0], 7u);
  for (size_t i = 1; i < after.size (); i++)
    for (const Bytes &nalu : after[i])
      EXPECT_TRUE (is_slice (nalu));
  EXPECT_EQ (decode (byte_stream (after)), decode (byte_stream (before)));
  EXPECT_EQ (log.count ("invalid time_scale and num_units_in_tick", warning), 25);
  EXPECT_EQ (log.count ("failed to create picture timing SEI", warning), 25);
  EXPECT_EQ (log.count ("failed to generate SEI", warning), 25);
  EXPECT_EQ (log.texts (warning).size (), 75u);
}
