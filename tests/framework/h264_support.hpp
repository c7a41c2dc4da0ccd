// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// H.264 streams made to measure for the tests: parameter sets with any combination of what the
// writer has to follow, pictures of one macroblock, and messages with random fields. Made bit by
// bit and without the code under test.
#ifndef TESTS_FRAMEWORK_H264_SUPPORT_HPP
#define TESTS_FRAMEWORK_H264_SUPPORT_HPP

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <vorn/h264_writer.h>

namespace h264
{

using Bytes = std::vector<uint8_t>;

/** Bits in the order in which they are sent. */
class Bits
{
public:
  Bits &u (uint64_t value, unsigned count);
  Bits &ue (uint32_t value);
  Bits &se (int32_t value);
  /** Zeros up to the next byte. */
  Bits &align ();
  /** The stop bit and zeros up to the next byte; the result is a whole RBSP. */
  Bytes rbsp ();

private:
  Bytes data_;
  size_t bits_ = 0;
};

/** Header byte and emulation prevention around an RBSP. */
Bytes nal_unit (unsigned nal_ref_idc, unsigned nal_unit_type, const Bytes &rbsp);

/** Takes the emulation prevention bytes out (header byte stays). */
Bytes without_emulation_prevention (const Bytes &nalu);

/** The NAL units of a byte stream (start codes of three or four bytes). */
std::vector<Bytes> split_byte_stream (const Bytes &stream);
void append_with_start_code (Bytes &stream, const Bytes &nalu);

struct HrdVariant {
  bool present = false;
  unsigned cpb_removal_delay_length = 24;
  unsigned dpb_output_delay_length = 24;
  unsigned time_offset_length = 24;
  unsigned cpb_count = 1;
};

/** A sequence parameter set: Baseline, one macroblock, and the VUI as wanted. */
struct SpsVariant {
  unsigned id = 0;
  unsigned log2_max_frame_num = 4;
  bool vui = true;
  bool timing = true;
  uint32_t num_units_in_tick = 1001;
  uint32_t time_scale = 60000;
  HrdVariant nal_hrd;
  HrdVariant vcl_hrd;
  bool pic_struct = true;

  /** The HRD parameters that count, or nullptr. */
  const HrdVariant *hrd () const;
  unsigned time_offset_length () const;
  bool carries_pic_timing () const { return vui && (hrd () || pic_struct); }
  std::string name () const;
};

Bytes make_sps (const SpsVariant &variant);
Bytes make_pps (unsigned id = 0, unsigned sps_id = 0);
Bytes make_access_unit_delimiter ();
/** An IDR picture of one raw macroblock for these parameter sets. */
Bytes make_idr_slice (const SpsVariant &variant, unsigned idr_pic_id);

/** With and without VUI, timing, HRD (NAL, VCL, both) and pic_struct; every length of every field.
 */
std::vector<SpsVariant> all_sps_variants ();

using Writer = std::unique_ptr<VornH264Writer, decltype (&vorn_h264_writer_destroy)>;
/** A writer to which this SPS is active, parsed from its bytes. */
Writer make_writer (const SpsVariant &variant);

VornH264Sei recovery_point (uint32_t recovery_frame_cnt = 0);
/** A full clock timestamp: hours : minutes : seconds, n_frames and time_offset. */
VornH264Sei pic_timing (uint64_t hours, uint32_t minutes, uint32_t seconds, uint32_t n_frames,
                        int64_t time_offset);
/** The data must outlive the message. */
VornH264Sei user_data (const Bytes &data);

using Random = std::mt19937_64;
/** A picture timing all of whose fields are random, within what the SPS can carry. */
VornH264Sei random_pic_timing (Random &random, const SpsVariant &variant);
VornH264Sei random_recovery_point (Random &random, const SpsVariant &variant);
/**
 * One byte or more (GStreamer's parser takes no user data without any), rich in zeros and small
 * values, which call for emulation prevention.
 */
Bytes random_bytes (Random &random, size_t max_size);

/** The unit that the writer makes of these messages; empty, with a failed test, when it cannot. */
Bytes write_sei (VornH264Writer *writer, const std::vector<VornH264Sei> &messages);

} // namespace h264

#endif
