// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The payloads of SEI messages, as bits (Rec. ITU-T H.264, D.1).
#ifndef VORN_FRAMEWORK_H264_SEI_HPP
#define VORN_FRAMEWORK_H264_SEI_HPP

#include <array>
#include <cstddef>
#include <cstdint>

#include <gst/base/gstbitwriter.h>

#include <vorn/h264_writer.h>

namespace vorn::h264
{

/**
 * One payload being written, in fixed memory. The longest, a picture timing with three clock
 * timestamps and all lengths at their greatest, has 275 bits.
 */
class Payload
{
public:
  Payload ();
  Payload (const Payload &) = delete;
  Payload &operator= (const Payload &) = delete;

  /** u(n): the low bits of value; none for 0 bits. */
  void put (uint32_t value, unsigned bits);
  /** ue(v), for values below 2^16. */
  void put_ue (uint32_t value);
  /** Fills up to a byte: a one, then zeros (sei_payload, D.1). Nothing when aligned. */
  void align ();

  /** Not 0: something did not fit into the memory. */
  int error () const { return error_; }
  const uint8_t *data () const { return data_.data (); }
  size_t size () const { return (gst_bit_writer_get_size (&writer_) + 7) / 8; }

private:
  std::array<uint8_t, 64> data_ = {};
  GstBitWriter writer_;
  int error_ = 0;
};

/** Whether a stream with this SPS has a place for picture timing messages. */
bool carries_pic_timing (const VornH264Sps &sps);

/** Both write the payload, aligned. 0, or -ERANGE for a value that its field cannot carry. */
int write_recovery_point (Payload &payload, const VornH264RecoveryPoint &message,
                          const VornH264Sps *sps);
int write_pic_timing (Payload &payload, const VornH264PicTiming &message, const VornH264Sps &sps);

} // namespace vorn::h264

#endif
