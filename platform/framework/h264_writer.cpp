// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/h264_writer.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <new>
#include <optional>

// The parser library is complete, but its interface is not declared stable.
#define GST_USE_UNSTABLE_API
#include <gst/codecparsers/gsth264parser.h>

#include <vorn/log.h>
#include <vorn/raii.hpp>

#include "h264_sei.hpp"

VORN_LOG_TAG ("h264_writer");

using vorn::h264::Payload;

namespace
{

constexpr unsigned sps_count = 32;          // seq_parameter_set_id is 0 to 31
constexpr uint8_t rbsp_stop = 0x80;         // the stop bit, in a byte of its own
constexpr uint8_t emulation_prevention = 3; // 7.4.1: no 00 00 00 to 00 00 03 within a NAL unit
constexpr guint initial_size = 256;

using OwnedParser = vorn::Owned<GstH264NalParser, gst_h264_nal_parser_free>;

/** SEI messages, one after the other, whole bytes each. Its memory only grows. */
class SeiMessages
{
public:
  SeiMessages () { gst_bit_writer_init_with_size (&writer_, initial_size, FALSE); }
  ~SeiMessages () { gst_bit_writer_reset (&writer_); }
  SeiMessages (const SeiMessages &) = delete;
  SeiMessages &operator= (const SeiMessages &) = delete;

  size_t size () const { return gst_bit_writer_get_size (&writer_) / 8; }
  const uint8_t *data () const { return gst_bit_writer_get_data (&writer_); }

  void clear ()
  {
    // Bits are OR-ed in: the memory must be zero where they go.
    memset (gst_bit_writer_get_data (&writer_), 0, size ());
    (void)gst_bit_writer_set_pos (&writer_, 0);
  }

  /** Adds sei_message (): type and size, then the two runs of bytes that make the payload. */
  int add (unsigned type, const uint8_t *head, size_t head_size, const uint8_t *tail,
           size_t tail_size)
  {
    const size_t free = VORN_H264_WRITER_MAX_SEI_SIZE - size ();
    if (tail_size > free || head_size + tail_size + (head_size + tail_size) / 255 + 2 > free)
      return -EMSGSIZE;
    bool written = put_number (type) && put_number (head_size + tail_size) && put (head, head_size);
    written = written && put (tail, tail_size);
    return written ? 0 : -ENOMEM;
  }

private:
  /** D.1.1: bytes of 255, then the rest. */
  bool put_number (size_t value)
  {
    for (; value >= 255; value -= 255) {
      if (!gst_bit_writer_put_bits_uint8 (&writer_, 255, 8))
        return false;
    }
    return gst_bit_writer_put_bits_uint8 (&writer_, static_cast<guint8> (value), 8);
  }
  bool put (const uint8_t *data, size_t size)
  {
    return size == 0 || gst_bit_writer_put_bytes (&writer_, data, static_cast<guint> (size));
  }

  GstBitWriter writer_;
};

/** Puts bytes into the caller's memory, keeping count of the zeros that stand before the next. */
class NalUnitMemory
{
public:
  NalUnitMemory (uint8_t *data, size_t capacity) : data_ (data), capacity_ (capacity) {}

  void put (uint8_t byte)
  {
    if (zeros_ >= 2 && byte <= 3) {
      put_raw (emulation_prevention);
      zeros_ = 0;
    }
    put_raw (byte);
    zeros_ = byte == 0 ? zeros_ + 1 : 0;
  }
  /** The size, or -ENOSPC. */
  ssize_t result () const { return size_ <= capacity_ ? static_cast<ssize_t> (size_) : -ENOSPC; }

private:
  void put_raw (uint8_t byte)
  {
    if (size_ < capacity_)
      data_[size_] = byte;
    size_++;
  }

  uint8_t *data_;
  size_t capacity_;
  size_t size_ = 0;
  unsigned zeros_ = 0;
};

} // namespace

struct _VornH264Writer {
  OwnedParser parser{gst_h264_nal_parser_new ()};
  std::array<std::optional<VornH264Sps>, sps_count> sps;
  const VornH264Sps *active_sps = nullptr; // one of the above
  bool left_out_logged = false;
  std::optional<uint8_t> header;
  SeiMessages messages;
};

namespace
{

/** Describes the bytes as the NAL unit that they are; the parser only reads them. */
int describe (const uint8_t *nalu, size_t size, unsigned type, GstH264NalUnit &unit)
{
  if (!nalu || size < 2 || size > UINT_MAX / 8 || (nalu[0] & 0x1f) != type)
    return -EINVAL;
  if (nalu[0] & 0x80) // forbidden_zero_bit
    return -EBADMSG;
  unit = {};
  unit.ref_idc = (nalu[0] >> 5) & 3;
  unit.type = static_cast<guint16> (type);
  unit.data = const_cast<guint8 *> (nalu);
  unit.size = static_cast<guint> (size);
  unit.header_bytes = 1;
  unit.valid = TRUE;
  return 0;
}

int to_errno (GstH264ParserResult result)
{
  switch (result) {
  case GST_H264_PARSER_OK:
    return 0;
  case GST_H264_PARSER_BROKEN_LINK:
    return -ENOENT;
  default:
    return -EBADMSG;
  }
}

VornH264Hrd lengths_of (bool present, const GstH264HRDParams &hrd)
{
  if (!present)
    return {};
  return {.present = true,
          .cpb_removal_delay_length =
              static_cast<uint8_t> (hrd.cpb_removal_delay_length_minus1 + 1),
          .dpb_output_delay_length = static_cast<uint8_t> (hrd.dpb_output_delay_length_minus1 + 1),
          .time_offset_length = hrd.time_offset_length};
}

VornH264Sps summary_of (const GstH264SPS &sps)
{
  VornH264Sps summary = {};
  summary.seq_parameter_set_id = static_cast<uint8_t> (sps.id);
  summary.max_frame_num = sps.max_frame_num;
  summary.vui_parameters_present_flag = sps.vui_parameters_present_flag;
  if (!sps.vui_parameters_present_flag)
    return summary;
  const GstH264VUIParams &vui = sps.vui_parameters;
  summary.timing_info_present_flag = vui.timing_info_present_flag;
  if (vui.timing_info_present_flag) {
    summary.num_units_in_tick = vui.num_units_in_tick;
    summary.time_scale = vui.time_scale;
  }
  summary.nal_hrd = lengths_of (vui.nal_hrd_parameters_present_flag, vui.nal_hrd_parameters);
  summary.vcl_hrd = lengths_of (vui.vcl_hrd_parameters_present_flag, vui.vcl_hrd_parameters);
  summary.pic_struct_present_flag = vui.pic_struct_present_flag;
  return summary;
}

bool is_valid (const VornH264Hrd &hrd)
{
  const auto is_length = [] (uint8_t bits) { return bits >= 1 && bits <= 32; };
  return !hrd.present || (is_length (hrd.cpb_removal_delay_length) &&
                          is_length (hrd.dpb_output_delay_length) && hrd.time_offset_length <= 31);
}

int add_payload (VornH264Writer *writer, VornH264SeiType type, int result, const Payload &payload)
{
  if (result < 0)
    return result;
  return writer->messages.add (type, payload.data (), payload.size (), nullptr, 0);
}

int add_pic_timing (VornH264Writer *writer, const VornH264PicTiming &message)
{
  if (!writer->active_sps)
    return -ENOENT;
  if (!vorn::h264::carries_pic_timing (*writer->active_sps)) {
    if (!writer->left_out_logged)
      VORN_LOG_WARNING (
          "picture timing is left out: the stream's SPS has neither pic_struct nor HRD "
          "parameters");
    writer->left_out_logged = true;
    return 0;
  }
  Payload payload;
  const int result = vorn::h264::write_pic_timing (payload, message, *writer->active_sps);
  return add_payload (writer, VORN_H264_SEI_PIC_TIMING, result, payload);
}

int add_recovery_point (VornH264Writer *writer, const VornH264RecoveryPoint &message)
{
  Payload payload;
  const int result = vorn::h264::write_recovery_point (payload, message, writer->active_sps);
  return add_payload (writer, VORN_H264_SEI_RECOVERY_POINT, result, payload);
}

int add_user_data (VornH264Writer *writer, const VornH264UserDataUnregistered &message)
{
  if (!message.data && message.size > 0)
    return -EINVAL;
  return writer->messages.add (VORN_H264_SEI_USER_DATA_UNREGISTERED, message.uuid_iso_iec_11578,
                               sizeof message.uuid_iso_iec_11578, message.data, message.size);
}

} // namespace

VornH264Writer *vorn_h264_writer_new (void)
{
  return new (std::nothrow) VornH264Writer;
}

void vorn_h264_writer_destroy (VornH264Writer *writer)
{
  delete writer;
}

int vorn_h264_writer_parse_sps (VornH264Writer *writer, const uint8_t *nalu, size_t size,
                                VornH264Sps *sps)
{
  GstH264NalUnit unit;
  if (!writer || !sps)
    return -EINVAL;
  if (const int result = describe (nalu, size, VORN_H264_NAL_UNIT_SPS, unit); result < 0)
    return result;

  GstH264SPS parsed = {};
  const int result = to_errno (gst_h264_parser_parse_sps (writer->parser.get (), &unit, &parsed));
  if (result == 0)
    *sps = summary_of (parsed);
  gst_h264_sps_clear (&parsed);
  return result;
}

int vorn_h264_writer_parse_pps (VornH264Writer *writer, const uint8_t *nalu, size_t size,
                                VornH264Pps *pps)
{
  GstH264NalUnit unit;
  if (!writer || !pps)
    return -EINVAL;
  if (const int result = describe (nalu, size, VORN_H264_NAL_UNIT_PPS, unit); result < 0)
    return result;

  GstH264PPS parsed = {};
  const int result = to_errno (gst_h264_parse_pps (writer->parser.get (), &unit, &parsed));
  if (result == 0)
    *pps = {.pic_parameter_set_id = static_cast<uint8_t> (parsed.id),
            .seq_parameter_set_id = static_cast<uint8_t> (parsed.sequence->id)};
  gst_h264_pps_clear (&parsed);
  return result;
}

int vorn_h264_writer_set_sps (VornH264Writer *writer, const VornH264Sps *sps)
{
  if (!writer || !sps)
    return -EINVAL;
  if (sps->seq_parameter_set_id >= sps_count || sps->max_frame_num < 16 ||
      sps->max_frame_num > 65536 || !is_valid (sps->nal_hrd) || !is_valid (sps->vcl_hrd))
    return -ERANGE;
  auto &slot = writer->sps[sps->seq_parameter_set_id];
  slot = *sps;
  writer->active_sps = &*slot;
  writer->left_out_logged = false;
  return 0;
}

int vorn_h264_writer_set_pps (VornH264Writer *writer, const VornH264Pps *pps)
{
  if (!writer || !pps)
    return -EINVAL;
  if (pps->seq_parameter_set_id >= sps_count)
    return -ERANGE;
  const auto &slot = writer->sps[pps->seq_parameter_set_id];
  if (!slot)
    return -ENOENT;
  writer->active_sps = &*slot;
  return 0;
}

int vorn_h264_writer_clear (VornH264Writer *writer)
{
  if (!writer)
    return -EINVAL;
  writer->header.reset ();
  writer->messages.clear ();
  return 0;
}

int vorn_h264_writer_set_nal_header (VornH264Writer *writer, uint8_t nal_ref_idc,
                                     uint8_t nal_unit_type)
{
  if (!writer)
    return -EINVAL;
  if (nal_unit_type != VORN_H264_NAL_UNIT_SEI)
    return -ENOTSUP;
  if (nal_ref_idc != 0)
    return -ERANGE;
  writer->header = nal_unit_type;
  return 0;
}

int vorn_h264_writer_add_sei (VornH264Writer *writer, const VornH264Sei *sei)
{
  if (!writer || !sei)
    return -EINVAL;
  switch (sei->payload_type) {
  case VORN_H264_SEI_PIC_TIMING:
    return add_pic_timing (writer, sei->payload.pic_timing);
  case VORN_H264_SEI_USER_DATA_UNREGISTERED:
    return add_user_data (writer, sei->payload.user_data_unregistered);
  case VORN_H264_SEI_RECOVERY_POINT:
    return add_recovery_point (writer, sei->payload.recovery_point);
  }
  return -EINVAL;
}

ssize_t vorn_h264_writer_write (VornH264Writer *writer, uint8_t *data, size_t capacity)
{
  if (!writer || !data)
    return -EINVAL;
  if (!writer->header || writer->messages.size () == 0)
    return -ENODATA;
  NalUnitMemory memory (data, capacity);
  memory.put (*writer->header);
  const uint8_t *messages = writer->messages.data ();
  for (size_t i = 0; i < writer->messages.size (); i++)
    memory.put (messages[i]);
  memory.put (rbsp_stop);
  return memory.result ();
}
