// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Parameter sets from anywhere into the H.264 writer. The input is a byte stream; its units of type
// 7 and 8 go to the writer, and its last bytes choose the fields of three messages. Whatever the
// parameter sets were, a unit that is written must hold no start code and must be read back by
// GStreamer's parser, under the same SPS, with the values that went in.
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#define GST_USE_UNSTABLE_API
#include <gst/codecparsers/gsth264parser.h>

#include <vorn/h264_writer.h>
#include <vorn/log.h>
#include <vorn/raii.hpp>

namespace
{

using Bytes = std::vector<uint8_t>;
using Writer = vorn::Owned<VornH264Writer, vorn_h264_writer_destroy>;
using Parser = vorn::Owned<GstH264NalParser, gst_h264_nal_parser_free>;

void require (bool holds)
{
  if (!holds)
    abort ();
}

/** Field values, from the end of the input. */
class Choices
{
public:
  Choices (const uint8_t *data, size_t size) : data_ (data), size_ (size) {}
  uint64_t next (unsigned bytes)
  {
    uint64_t value = 0;
    for (; bytes > 0; bytes--)
      value = value << 8 | (size_ > 0 ? data_[--size_] : 0);
    return value;
  }
  bool flag () { return next (1) & 1; }

private:
  const uint8_t *data_;
  size_t size_;
};

std::vector<Bytes> split (const uint8_t *data, size_t size)
{
  std::vector<Bytes> units;
  for (size_t i = 0; i < size; i++) {
    if (i + 2 < size && data[i] == 0 && data[i + 1] == 0 && data[i + 2] == 1) {
      units.emplace_back ();
      i += 2;
    } else if (!units.empty ()) {
      units.back ().push_back (data[i]);
    }
  }
  return units;
}

/** The writer, and the bytes of the SPS that is active in it. */
struct Stream {
  Writer writer{vorn_h264_writer_new ()};
  std::array<Bytes, 32> sps;
  const Bytes *active = nullptr;

  void take (const Bytes &unit)
  {
    VornH264Sps parsed_sps;
    VornH264Pps parsed_pps;
    if (vorn_h264_writer_parse_sps (writer.get (), unit.data (), unit.size (), &parsed_sps) == 0) {
      // What was parsed is always good enough to be set.
      require (vorn_h264_writer_set_sps (writer.get (), &parsed_sps) == 0);
      sps.at (parsed_sps.seq_parameter_set_id) = unit;
      active = &sps[parsed_sps.seq_parameter_set_id];
    }
    if (vorn_h264_writer_parse_pps (writer.get (), unit.data (), unit.size (), &parsed_pps) == 0) {
      require (vorn_h264_writer_set_pps (writer.get (), &parsed_pps) == 0);
      active = &sps.at (parsed_pps.seq_parameter_set_id);
    }
  }
};

VornH264Sei choose_recovery_point (Choices &choices)
{
  VornH264Sei sei = {.payload_type = VORN_H264_SEI_RECOVERY_POINT, .payload = {}};
  sei.payload.recovery_point = {
      .recovery_frame_cnt = static_cast<uint32_t> (choices.next (2) >> choices.next (1) % 16),
      .exact_match_flag = choices.flag (),
      .broken_link_flag = choices.flag (),
      .changing_slice_group_idc = static_cast<uint8_t> (choices.next (1) % 3)};
  return sei;
}

VornH264Sei choose_pic_timing (Choices &choices)
{
  VornH264Sei sei = {.payload_type = VORN_H264_SEI_PIC_TIMING, .payload = {}};
  VornH264PicTiming &timing = sei.payload.pic_timing;
  timing = {};
  timing.cpb_removal_delay = static_cast<uint32_t> (choices.next (4) >> choices.next (1) % 32);
  timing.dpb_output_delay = static_cast<uint32_t> (choices.next (4) >> choices.next (1) % 32);
  timing.pic_struct = static_cast<uint8_t> (choices.next (1) % 10);
  for (int i = 0; i < 3; i++) {
    timing.clock_timestamp_flag[i] = i == 0 ? choices.flag () : choices.next (1) % 8 == 1;
    VornH264ClockTimestamp &clock = timing.clock_timestamp[i];
    clock.ct_type = static_cast<uint8_t> (choices.next (1) % 3);
    clock.counting_type = static_cast<uint8_t> (choices.next (1) % 7);
    clock.nuit_field_based_flag = choices.flag ();
    clock.full_timestamp_flag = choices.flag ();
    clock.seconds_flag = choices.flag ();
    clock.minutes_flag = choices.flag ();
    clock.hours_flag = choices.flag ();
    clock.n_frames = static_cast<uint32_t> (choices.next (2) % 260);
    clock.seconds_value = static_cast<uint32_t> (choices.next (1) % 60);
    clock.minutes_value = static_cast<uint32_t> (choices.next (1) % 60);
    clock.hours_value = choices.next (8);
    clock.time_offset = static_cast<int64_t> (choices.next (8)) >> choices.next (1) % 64;
  }
  return sei;
}

void require_equal (const GstH264ClockTimestamp &read, const VornH264ClockTimestamp &clock)
{
  require (read.ct_type == clock.ct_type && read.counting_type == clock.counting_type);
  require (read.n_frames == clock.n_frames);
  require (!!read.full_timestamp_flag == clock.full_timestamp_flag);
  if (clock.full_timestamp_flag)
    require (read.seconds_value == clock.seconds_value &&
             read.minutes_value == clock.minutes_value &&
             read.hours_value == clock.hours_value % 24);
}

void require_equal (const GstH264PicTiming &read, const VornH264PicTiming &timing,
                    const GstH264SPS &sps)
{
  const GstH264VUIParams &vui = sps.vui_parameters;
  if (vui.nal_hrd_parameters_present_flag || vui.vcl_hrd_parameters_present_flag)
    require (read.cpb_removal_delay == timing.cpb_removal_delay &&
             read.dpb_output_delay == timing.dpb_output_delay);
  if (!vui.pic_struct_present_flag)
    return;
  require (read.pic_struct == timing.pic_struct);
  for (int i = 0; i < 3; i++) {
    require (!!read.clock_timestamp_flag[i] == timing.clock_timestamp_flag[i]);
    if (timing.clock_timestamp_flag[i])
      require_equal (read.clock_timestamp[i], timing.clock_timestamp[i]);
  }
}

void require_equal (const GstH264SEIMessage &read, const VornH264Sei &sei, const GstH264SPS &sps)
{
  require (static_cast<int> (read.payloadType) == static_cast<int> (sei.payload_type));
  if (sei.payload_type == VORN_H264_SEI_PIC_TIMING) {
    require_equal (read.payload.pic_timing, sei.payload.pic_timing, sps);
  } else if (sei.payload_type == VORN_H264_SEI_RECOVERY_POINT) {
    require (read.payload.recovery_point.recovery_frame_cnt ==
             sei.payload.recovery_point.recovery_frame_cnt);
  } else {
    const VornH264UserDataUnregistered &data = sei.payload.user_data_unregistered;
    require (read.payload.user_data_unregistered.size == data.size);
    require (memcmp (read.payload.user_data_unregistered.data, data.data, data.size) == 0);
  }
}

GstH264NalUnit identify (GstH264NalParser *parser, const Bytes &stream)
{
  GstH264NalUnit unit = {};
  require (gst_h264_parser_identify_nalu_unchecked (parser, stream.data (), 0, stream.size (),
                                                    &unit) == GST_H264_PARSER_OK);
  return unit;
}

/** Reads the unit back under the active SPS. */
void require_read_back (const Bytes &sps_unit, const Bytes &unit,
                        const std::vector<VornH264Sei> &messages)
{
  const Parser parser (gst_h264_nal_parser_new ());
  Bytes stream = {0, 0, 1};
  stream.insert (stream.end (), sps_unit.begin (), sps_unit.end ());
  GstH264NalUnit nal = identify (parser.get (), stream);
  GstH264SPS sps = {};
  require (gst_h264_parser_parse_sps (parser.get (), &nal, &sps) == GST_H264_PARSER_OK);

  stream = {0, 0, 1};
  stream.insert (stream.end (), unit.begin (), unit.end ());
  nal = identify (parser.get (), stream);
  GArray *array = nullptr;
  require (gst_h264_parser_parse_sei (parser.get (), &nal, &array) == GST_H264_PARSER_OK);
  const vorn::Owned<GArray, g_array_unref> owned (array);
  require (array->len == messages.size ());
  for (guint i = 0; i < array->len; i++)
    require_equal (g_array_index (array, GstH264SEIMessage, i), messages[i], sps);
  gst_h264_sps_clear (&sps);
}

bool has_place_for_timing (VornH264Writer *writer, const Bytes &sps_unit)
{
  VornH264Sps sps;
  require (vorn_h264_writer_parse_sps (writer, sps_unit.data (), sps_unit.size (), &sps) == 0);
  return sps.pic_struct_present_flag || sps.nal_hrd.present || sps.vcl_hrd.present;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size);

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
  vorn_log_set_level (nullptr, VORN_LOG_PRIORITY_ERROR);
  Stream stream;
  for (const Bytes &unit : split (data, size))
    stream.take (unit);

  Choices choices (data, size);
  std::array<uint8_t, 24> payload;
  for (uint8_t &byte : payload)
    byte = static_cast<uint8_t> (choices.next (1));
  VornH264Sei user_data = {.payload_type = VORN_H264_SEI_USER_DATA_UNREGISTERED, .payload = {}};
  user_data.payload.user_data_unregistered.data = payload.data ();
  user_data.payload.user_data_unregistered.size = 1 + choices.next (1) % payload.size ();

  VornH264Writer *writer = stream.writer.get ();
  require (vorn_h264_writer_set_nal_header (writer, 0, VORN_H264_NAL_UNIT_SEI) == 0);
  std::vector<VornH264Sei> added;
  for (const VornH264Sei &sei :
       {choose_recovery_point (choices), choose_pic_timing (choices), user_data}) {
    const int result = vorn_h264_writer_add_sei (writer, &sei);
    require (result == 0 || result == -ERANGE || (result == -ENOENT && !stream.active));
    const bool left_out = sei.payload_type == VORN_H264_SEI_PIC_TIMING && stream.active &&
                          !has_place_for_timing (writer, *stream.active);
    if (result == 0 && !left_out)
      added.push_back (sei);
  }

  Bytes unit (200);
  const ssize_t written = vorn_h264_writer_write (writer, unit.data (), unit.size ());
  require (written > 0);
  unit.resize (static_cast<size_t> (written));
  for (size_t i = 0; i + 2 < unit.size (); i++)
    require (unit[i] != 0 || unit[i + 1] != 0 || unit[i + 2] > 3 ||
             (unit[i + 2] == 3 && i + 3 < unit.size () && unit[i + 3] <= 3));
  if (stream.active)
    require_read_back (*stream.active, unit, added);
  return 0;
}
