// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "h264_support.hpp"

#include <bit>

#include <gtest/gtest.h>

namespace h264
{

Bits &Bits::u (uint64_t value, unsigned count)
{
  for (unsigned i = count; i-- > 0; bits_++) {
    if (bits_ % 8 == 0)
      data_.push_back (0);
    if (value >> i & 1)
      data_.back () = static_cast<uint8_t> (data_.back () | 0x80 >> bits_ % 8);
  }
  return *this;
}

Bits &Bits::ue (uint32_t value)
{
  const auto length = static_cast<unsigned> (std::bit_width (uint64_t{value} + 1));
  return u (0, length - 1).u (uint64_t{value} + 1, length);
}

Bits &Bits::se (int32_t value)
{
  return ue (value > 0 ? static_cast<uint32_t> (2 * value - 1)
                       : static_cast<uint32_t> (-2 * value));
}

Bits &Bits::align ()
{
  return u (0, static_cast<unsigned> ((8 - bits_ % 8) % 8));
}

Bytes Bits::rbsp ()
{
  u (1, 1).align ();
  return data_;
}

Bytes nal_unit (unsigned nal_ref_idc, unsigned nal_unit_type, const Bytes &rbsp)
{
  Bytes nalu = {static_cast<uint8_t> (nal_ref_idc << 5 | nal_unit_type)};
  for (const uint8_t byte : rbsp) {
    const size_t size = nalu.size ();
    if (size >= 3 && nalu[size - 1] == 0 && nalu[size - 2] == 0 && byte <= 3)
      nalu.push_back (3);
    nalu.push_back (byte);
  }
  return nalu;
}

Bytes without_emulation_prevention (const Bytes &nalu)
{
  Bytes result;
  size_t zeros = 0;
  for (const uint8_t byte : nalu) {
    if (zeros >= 2 && byte == 3) {
      zeros = 0;
      continue;
    }
    result.push_back (byte);
    zeros = byte == 0 ? zeros + 1 : 0;
  }
  return result;
}

std::vector<Bytes> split_byte_stream (const Bytes &stream)
{
  std::vector<Bytes> units;
  for (size_t i = 0; i < stream.size (); i++) {
    if (i + 2 < stream.size () && stream[i] == 0 && stream[i + 1] == 0 && stream[i + 2] == 1) {
      if (!units.empty () && !units.back ().empty () && units.back ().back () == 0)
        units.back ().pop_back (); // the first of a start code of four bytes
      units.emplace_back ();
      i += 2;
    } else if (!units.empty ()) {
      units.back ().push_back (stream[i]);
    }
  }
  return units;
}

void append_with_start_code (Bytes &stream, const Bytes &nalu)
{
  stream.insert (stream.end (), {0, 0, 0, 1});
  stream.insert (stream.end (), nalu.begin (), nalu.end ());
}

const HrdVariant *SpsVariant::hrd () const
{
  if (!vui)
    return nullptr;
  if (nal_hrd.present)
    return &nal_hrd;
  return vcl_hrd.present ? &vcl_hrd : nullptr;
}

unsigned SpsVariant::time_offset_length () const
{
  return hrd () ? hrd ()->time_offset_length : 24;
}

std::string SpsVariant::name () const
{
  const auto describe = [] (const HrdVariant &hrd) {
    if (!hrd.present)
      return std::string ("none");
    return std::to_string (hrd.cpb_removal_delay_length) + "/" +
           std::to_string (hrd.dpb_output_delay_length) + "/" +
           std::to_string (hrd.time_offset_length);
  };
  return "vui " + std::to_string (vui) + " timing " + std::to_string (timing) + " pic_struct " +
         std::to_string (pic_struct) + " nal_hrd " + describe (nal_hrd) + " vcl_hrd " +
         describe (vcl_hrd) + " log2_max_frame_num " + std::to_string (log2_max_frame_num);
}

namespace
{

void put_hrd (Bits &bits, const HrdVariant &hrd)
{
  bits.ue (hrd.cpb_count - 1).u (4, 4).u (6, 4);
  for (unsigned i = 0; i < hrd.cpb_count; i++)
    bits.ue (999 + i).ue (1999 + i).u (i % 2, 1);
  bits.u (23, 5);
  bits.u (hrd.cpb_removal_delay_length - 1, 5).u (hrd.dpb_output_delay_length - 1, 5);
  bits.u (hrd.time_offset_length, 5);
}

void put_vui (Bits &bits, const SpsVariant &variant)
{
  bits.u (0, 1).u (0, 1).u (0, 1).u (0, 1); // aspect ratio, overscan, video signal, chroma location
  bits.u (variant.timing, 1);
  if (variant.timing)
    bits.u (variant.num_units_in_tick, 32).u (variant.time_scale, 32).u (1, 1);
  bits.u (variant.nal_hrd.present, 1);
  if (variant.nal_hrd.present)
    put_hrd (bits, variant.nal_hrd);
  bits.u (variant.vcl_hrd.present, 1);
  if (variant.vcl_hrd.present)
    put_hrd (bits, variant.vcl_hrd);
  if (variant.nal_hrd.present || variant.vcl_hrd.present)
    bits.u (0, 1); // low_delay_hrd_flag
  bits.u (variant.pic_struct, 1);
  bits.u (0, 1); // bitstream_restriction_flag
}

} // namespace

Bytes make_sps (const SpsVariant &variant)
{
  Bits bits;
  bits.u (66, 8).u (0xc0, 8).u (10, 8).ue (variant.id); // constrained Baseline, level 1
  bits.ue (variant.log2_max_frame_num - 4);
  bits.ue (2);                     // pic_order_cnt_type
  bits.ue (1).u (0, 1);            // max_num_ref_frames, gaps_in_frame_num_allowed_flag
  bits.ue (0).ue (0);              // one macroblock wide and high
  bits.u (1, 1).u (1, 1).u (0, 1); // frame_mbs_only, direct_8x8_inference, frame_cropping
  bits.u (variant.vui, 1);
  if (variant.vui)
    put_vui (bits, variant);
  return nal_unit (3, 7, bits.rbsp ());
}

Bytes make_pps (unsigned id, unsigned sps_id)
{
  Bits bits;
  bits.ue (id).ue (sps_id).u (0, 1).u (0, 1).ue (0); // CAVLC, one slice group
  bits.ue (0).ue (0).u (0, 1).u (0, 2);              // reference counts, no weighting
  bits.se (0).se (0).se (0).u (0, 1).u (0, 1).u (0, 1);
  return nal_unit (3, 8, bits.rbsp ());
}

Bytes make_access_unit_delimiter ()
{
  return nal_unit (0, 9, Bits ().u (0, 3).rbsp ());
}

Bytes make_idr_slice (const SpsVariant &variant, unsigned idr_pic_id)
{
  Bits bits;
  bits.ue (0).ue (7).ue (0);                     // first macroblock, I, PPS 0
  bits.u (0, variant.log2_max_frame_num);        // frame_num
  bits.ue (idr_pic_id).u (0, 1).u (0, 1).se (0); // marking, slice_qp_delta
  bits.ue (25).align ();                         // I_PCM
  for (unsigned i = 0; i < 384; i++)
    bits.u (16 + i % 200, 8);
  return nal_unit (3, 5, bits.rbsp ());
}

std::vector<SpsVariant> all_sps_variants ()
{
  std::vector<SpsVariant> variants;
  variants.push_back ({.vui = false});
  const HrdVariant present = {.present = true};
  for (const bool timing : {false, true})
    for (const bool pic_struct : {false, true})
      for (const bool nal : {false, true})
        for (const bool vcl : {false, true})
          variants.push_back ({.timing = timing,
                               .nal_hrd = nal ? present : HrdVariant{},
                               .vcl_hrd = vcl ? present : HrdVariant{},
                               .pic_struct = pic_struct});
  for (unsigned length = 0; length <= 31; length++) {
    const HrdVariant hrd = {.present = true, .time_offset_length = length};
    variants.push_back ({.nal_hrd = hrd});
    variants.push_back ({.vcl_hrd = hrd});
  }
  for (unsigned length = 1; length <= 32; length++) {
    const HrdVariant hrd = {.present = true,
                            .cpb_removal_delay_length = length,
                            .dpb_output_delay_length = 33 - length,
                            .time_offset_length = 31 - length % 32,
                            .cpb_count = length};
    variants.push_back ({.nal_hrd = hrd});
    variants.push_back ({.vcl_hrd = hrd, .pic_struct = false});
  }
  for (unsigned log2 = 4; log2 <= 16; log2++)
    variants.push_back ({.log2_max_frame_num = log2});
  return variants;
}

Writer make_writer (const SpsVariant &variant)
{
  Writer writer (vorn_h264_writer_new (), vorn_h264_writer_destroy);
  const Bytes nalu = make_sps (variant);
  VornH264Sps sps;
  EXPECT_EQ (vorn_h264_writer_parse_sps (writer.get (), nalu.data (), nalu.size (), &sps), 0)
      << variant.name ();
  EXPECT_EQ (vorn_h264_writer_set_sps (writer.get (), &sps), 0) << variant.name ();
  return writer;
}

VornH264Sei recovery_point (uint32_t recovery_frame_cnt)
{
  VornH264Sei sei = {.payload_type = VORN_H264_SEI_RECOVERY_POINT, .payload = {}};
  sei.payload.recovery_point = {.recovery_frame_cnt = recovery_frame_cnt,
                                .exact_match_flag = true,
                                .broken_link_flag = false,
                                .changing_slice_group_idc = 0};
  return sei;
}

VornH264Sei pic_timing (uint64_t hours, uint32_t minutes, uint32_t seconds, uint32_t n_frames,
                        int64_t time_offset)
{
  VornH264Sei sei = {.payload_type = VORN_H264_SEI_PIC_TIMING, .payload = {}};
  VornH264PicTiming &timing = sei.payload.pic_timing;
  timing = {};
  timing.clock_timestamp_flag[0] = true;
  VornH264ClockTimestamp &clock = timing.clock_timestamp[0];
  clock.counting_type = 1;
  clock.full_timestamp_flag = true;
  clock.n_frames = n_frames;
  clock.seconds_value = seconds;
  clock.minutes_value = minutes;
  clock.hours_value = hours;
  clock.time_offset = time_offset;
  return sei;
}

VornH264Sei user_data (const Bytes &data)
{
  VornH264Sei sei = {.payload_type = VORN_H264_SEI_USER_DATA_UNREGISTERED, .payload = {}};
  VornH264UserDataUnregistered &message = sei.payload.user_data_unregistered;
  for (uint8_t i = 0; i < 16; i++)
    message.uuid_iso_iec_11578[i] = static_cast<uint8_t> (0xa0 + i);
  message.data = data.data ();
  message.size = data.size ();
  return sei;
}

namespace
{

/** Of so many bits; the least and the greatest come up often. */
uint64_t random_bits (Random &random, unsigned bits)
{
  const uint64_t greatest = bits == 0 ? 0 : ~uint64_t{0} >> (64 - bits);
  switch (random () % 4) {
  case 0:
    return 0;
  case 1:
    return greatest;
  default:
    return random () & greatest;
  }
}

VornH264ClockTimestamp random_clock (Random &random, unsigned time_offset_length)
{
  VornH264ClockTimestamp clock = {};
  clock.ct_type = static_cast<uint8_t> (random () % 3);
  clock.nuit_field_based_flag = random () % 2;
  clock.counting_type = static_cast<uint8_t> (random () % 7);
  clock.full_timestamp_flag = random () % 2;
  clock.discontinuity_flag = random () % 2;
  clock.cnt_dropped_flag = random () % 2;
  clock.n_frames = static_cast<uint32_t> (random_bits (random, 8));
  clock.seconds_flag = random () % 4 > 0;
  clock.minutes_flag = random () % 4 > 0;
  clock.hours_flag = random () % 4 > 0;
  clock.seconds_value = static_cast<uint32_t> (random () % 60);
  clock.minutes_value = static_cast<uint32_t> (random () % 60);
  clock.hours_value = random () >> random () % 64;
  if (time_offset_length > 0) {
    const int64_t half = int64_t{1} << (time_offset_length - 1);
    clock.time_offset = static_cast<int64_t> (random_bits (random, time_offset_length)) - half;
  }
  return clock;
}

} // namespace

VornH264Sei random_pic_timing (Random &random, const SpsVariant &variant)
{
  static constexpr unsigned num_clock_ts[] = {1, 1, 1, 2, 2, 3, 3, 2, 3};
  VornH264Sei sei = {.payload_type = VORN_H264_SEI_PIC_TIMING, .payload = {}};
  VornH264PicTiming &timing = sei.payload.pic_timing;
  timing = {};
  if (const HrdVariant *hrd = variant.hrd ()) {
    timing.cpb_removal_delay =
        static_cast<uint32_t> (random_bits (random, hrd->cpb_removal_delay_length));
    timing.dpb_output_delay =
        static_cast<uint32_t> (random_bits (random, hrd->dpb_output_delay_length));
  }
  timing.pic_struct = static_cast<uint8_t> (random () % 9);
  for (unsigned i = 0; i < num_clock_ts[timing.pic_struct]; i++) {
    timing.clock_timestamp_flag[i] = random () % 4 > 0;
    timing.clock_timestamp[i] = random_clock (random, variant.time_offset_length ());
  }
  return sei;
}

VornH264Sei random_recovery_point (Random &random, const SpsVariant &variant)
{
  VornH264Sei sei =
      recovery_point (static_cast<uint32_t> (random_bits (random, variant.log2_max_frame_num)));
  sei.payload.recovery_point.exact_match_flag = random () % 2;
  sei.payload.recovery_point.broken_link_flag = random () % 2;
  sei.payload.recovery_point.changing_slice_group_idc = static_cast<uint8_t> (random () % 3);
  return sei;
}

Bytes random_bytes (Random &random, size_t max_size)
{
  Bytes data (1 + random () % max_size);
  for (uint8_t &byte : data)
    byte = static_cast<uint8_t> (random () % 3 > 0 ? random () % 5 : random ());
  return data;
}

Bytes write_sei (VornH264Writer *writer, const std::vector<VornH264Sei> &messages)
{
  EXPECT_EQ (vorn_h264_writer_clear (writer), 0);
  EXPECT_EQ (vorn_h264_writer_set_nal_header (writer, 0, VORN_H264_NAL_UNIT_SEI), 0);
  for (const VornH264Sei &message : messages)
    EXPECT_EQ (vorn_h264_writer_add_sei (writer, &message), 0);
  Bytes nalu (size_t{2} * VORN_H264_WRITER_MAX_SEI_SIZE);
  const ssize_t size = vorn_h264_writer_write (writer, nalu.data (), nalu.size ());
  EXPECT_GT (size, 0);
  nalu.resize (size > 0 ? static_cast<size_t> (size) : 0);
  return nalu;
}

} // namespace h264
