// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "h264_sei.hpp"

#include <bit>
#include <cerrno>

namespace vorn::h264
{

namespace
{

// Annex D, time_offset_length: 24 bits where no HRD parameters say otherwise.
constexpr uint8_t default_time_offset_length = 24;

// Table D-1: how many clock timestamps a pic_struct has place for.
constexpr uint8_t num_clock_ts[] = {1, 1, 1, 2, 2, 3, 3, 2, 3};

constexpr uint32_t max_frame_num_limit = 65536; // log2_max_frame_num_minus4 is at most 12

bool fits_unsigned (uint64_t value, unsigned bits)
{
  return value >> bits == 0;
}

bool fits_signed (int64_t value, unsigned bits)
{
  if (bits == 0)
    return value == 0;
  const int64_t limit = int64_t{1} << (bits - 1);
  return value >= -limit && value < limit;
}

bool is_valid (const VornH264ClockTimestamp &clock, unsigned time_offset_length)
{
  return clock.ct_type <= 2 && clock.counting_type <= 6 && fits_unsigned (clock.n_frames, 8) &&
         clock.seconds_value <= 59 && clock.minutes_value <= 59 &&
         fits_signed (clock.time_offset, time_offset_length);
}

/** The sps's HRD parameters that count: where both are there their lengths must be equal (E.2.2).
 */
const VornH264Hrd *hrd_of (const VornH264Sps &sps)
{
  if (sps.nal_hrd.present)
    return &sps.nal_hrd;
  return sps.vcl_hrd.present ? &sps.vcl_hrd : nullptr;
}

void write_time_of_day (Payload &payload, const VornH264ClockTimestamp &clock)
{
  const bool full = clock.full_timestamp_flag;
  const auto hours = static_cast<uint32_t> (clock.hours_value % 24);
  // Each value may be left out, and with it those that follow; a full timestamp has no flags.
  if (!full)
    payload.put (clock.seconds_flag, 1);
  if (!full && !clock.seconds_flag)
    return;
  payload.put (clock.seconds_value, 6);
  if (!full)
    payload.put (clock.minutes_flag, 1);
  if (!full && !clock.minutes_flag)
    return;
  payload.put (clock.minutes_value, 6);
  if (!full)
    payload.put (clock.hours_flag, 1);
  if (!full && !clock.hours_flag)
    return;
  payload.put (hours, 5);
}

void write_clock_timestamp (Payload &payload, const VornH264ClockTimestamp &clock,
                            unsigned time_offset_length)
{
  payload.put (clock.ct_type, 2);
  payload.put (clock.nuit_field_based_flag, 1);
  payload.put (clock.counting_type, 5);
  payload.put (clock.full_timestamp_flag, 1);
  payload.put (clock.discontinuity_flag, 1);
  payload.put (clock.cnt_dropped_flag, 1);
  payload.put (clock.n_frames, 8);
  write_time_of_day (payload, clock);
  payload.put (static_cast<uint32_t> (clock.time_offset), time_offset_length);
}

} // namespace

Payload::Payload ()
{
  gst_bit_writer_init_with_data (&writer_, data_.data (), static_cast<guint> (data_.size ()),
                                 FALSE);
}

void Payload::put (uint32_t value, unsigned bits)
{
  if (bits > 0 && !gst_bit_writer_put_bits_uint32 (&writer_, value, bits))
    error_ = -EMSGSIZE;
}

void Payload::put_ue (uint32_t value)
{
  // 9.1: as many zeros as the value plus one has bits after its first, then the value plus one.
  const auto bits = static_cast<unsigned> (std::bit_width (value + 1));
  put (0, bits - 1);
  put (value + 1, bits);
}

void Payload::align ()
{
  const unsigned used = gst_bit_writer_get_size (&writer_) % 8;
  if (used > 0)
    put (1u << (7 - used), 8 - used);
}

bool carries_pic_timing (const VornH264Sps &sps)
{
  return sps.pic_struct_present_flag || hrd_of (sps) != nullptr;
}

int write_recovery_point (Payload &payload, const VornH264RecoveryPoint &message,
                          const VornH264Sps *sps)
{
  const uint32_t max_frame_num = sps ? sps->max_frame_num : max_frame_num_limit;
  if (message.recovery_frame_cnt >= max_frame_num || message.changing_slice_group_idc > 2)
    return -ERANGE;

  payload.put_ue (message.recovery_frame_cnt);
  payload.put (message.exact_match_flag, 1);
  payload.put (message.broken_link_flag, 1);
  payload.put (message.changing_slice_group_idc, 2);
  payload.align ();
  return payload.error ();
}

int write_pic_timing (Payload &payload, const VornH264PicTiming &message, const VornH264Sps &sps)
{
  unsigned time_offset_length = default_time_offset_length;
  if (const VornH264Hrd *hrd = hrd_of (sps)) {
    if (!fits_unsigned (message.cpb_removal_delay, hrd->cpb_removal_delay_length) ||
        !fits_unsigned (message.dpb_output_delay, hrd->dpb_output_delay_length))
      return -ERANGE;
    time_offset_length = hrd->time_offset_length;
    payload.put (message.cpb_removal_delay, hrd->cpb_removal_delay_length);
    payload.put (message.dpb_output_delay, hrd->dpb_output_delay_length);
  }

  if (sps.pic_struct_present_flag) {
    if (message.pic_struct >= std::size (num_clock_ts))
      return -ERANGE;
    payload.put (message.pic_struct, 4);
    for (unsigned i = 0; i < std::size (message.clock_timestamp); i++) {
      const bool present = message.clock_timestamp_flag[i];
      const bool has_place = i < num_clock_ts[message.pic_struct];
      if (present && (!has_place || !is_valid (message.clock_timestamp[i], time_offset_length)))
        return -ERANGE;
      if (has_place)
        payload.put (present, 1);
      if (present)
        write_clock_timestamp (payload, message.clock_timestamp[i], time_offset_length);
    }
  }
  payload.align ();
  return payload.error ();
}

} // namespace vorn::h264
