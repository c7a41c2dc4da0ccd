// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "frame_postprocessor_support.hpp"

#include <gtest/gtest.h>

#include <vorn/frame_meta.h>

namespace postprocessing
{

Bytes access_unit (const std::vector<Bytes> &nalus)
{
  Bytes bytes;
  for (const Bytes &nalu : nalus) {
    const h264::Bytes length = h264::Bits ().u (nalu.size (), 32).align ().rbsp ();
    bytes.insert (bytes.end (), length.begin (), length.begin () + 4);
    bytes.insert (bytes.end (), nalu.begin (), nalu.end ());
  }
  return bytes;
}

std::vector<Bytes> nal_units (const Bytes &access_unit)
{
  std::vector<Bytes> nalus;
  auto at = access_unit.begin ();
  while (at != access_unit.end ()) {
    const auto left = static_cast<size_t> (access_unit.end () - at);
    size_t size = left;
    if (left >= 4) {
      size = static_cast<size_t> (at[0]) << 24 | static_cast<size_t> (at[1]) << 16 |
             static_cast<size_t> (at[2]) << 8 | at[3];
      if (size <= left - 4)
        at += 4;
      else
        size = left;
    }
    nalus.emplace_back (at, at + static_cast<std::ptrdiff_t> (size));
    at += static_cast<std::ptrdiff_t> (size);
  }
  return nalus;
}

std::vector<unsigned> types_of (const std::vector<Bytes> &nalus)
{
  std::vector<unsigned> types;
  for (const Bytes &nalu : nalus)
    types.push_back (nalu.empty () ? 0 : nalu[0] & 0x1f);
  return types;
}

size_t first_slice (const Bytes &access_unit)
{
  for (size_t at = 0; at + 4 < access_unit.size ();) {
    const uint8_t *unit = access_unit.data () + at;
    uint64_t size = 0;
    for (size_t i = 0; i < 4; i++)
      size = size << 8 | unit[i];
    const unsigned type = unit[4] & 0x1f;
    if (size == 0 || size > UINT32_MAX - 4)
      return 0;
    if (type == 1 || type == 5)
      return at;
    // Prefix and extension units have three bytes more in their header.
    if ((type == 14 || type == 20) && size < 4)
      return 0;
    at += 4 + size;
  }
  return 0;
}

BufferRef buffer_of (const Bytes &bytes)
{
  return vorn::adopt (bytes.empty () ? gst_buffer_new ()
                                     : gst_buffer_new_memdup (bytes.data (), bytes.size ()));
}

BufferRef buffer_of (const Bytes &bytes, const std::vector<size_t> &cuts)
{
  auto buffer = vorn::adopt (gst_buffer_new ());
  size_t begin = 0;
  auto append = [&] (size_t end) {
    if (end > begin) {
      auto part = vorn::adopt (gst_buffer_new_memdup (bytes.data () + begin, end - begin));
      gst_buffer_append_memory (buffer.get (), gst_buffer_get_all_memory (part.get ()));
    }
    begin = end;
  };
  for (const size_t cut : cuts)
    append (cut);
  append (bytes.size ());
  return buffer;
}

Bytes bytes_of (GstBuffer *buffer)
{
  Bytes bytes (gst_buffer_get_size (buffer));
  if (!bytes.empty ()) {
    EXPECT_EQ (gst_buffer_extract (buffer, 0, bytes.data (), bytes.size ()), bytes.size ());
  }
  return bytes;
}

std::vector<Bytes> nal_units (GstBuffer *buffer)
{
  return nal_units (bytes_of (buffer));
}

void set_meta (GstBuffer *buffer, GstClockTime capture_time_ns, bool sync_point)
{
  gst_structure_set (vorn_frame_meta_add (buffer)->structure, "capture-timestamp",
                     GST_TYPE_CLOCK_TIME, capture_time_ns, "sync-point", G_TYPE_BOOLEAN, sync_point,
                     nullptr);
}

static Bytes make_slice (uint8_t header, size_t size)
{
  Bytes nalu = {header};
  for (size_t i = 1; i < size; i++)
    nalu.push_back (static_cast<uint8_t> (i * 37 % 251 + 4));
  return nalu;
}

Bytes idr_slice (size_t size)
{
  return make_slice (0x65, size);
}

Bytes slice (size_t size)
{
  return make_slice (0x41, size);
}

SeiReader::SeiReader (const Bytes &sps)
{
  Bytes stream;
  h264::append_with_start_code (stream, sps);
  GstH264NalUnit unit = {};
  EXPECT_EQ (gst_h264_parser_identify_nalu_unchecked (parser_.get (), stream.data (), 0,
                                                      stream.size (), &unit),
             GST_H264_PARSER_OK);
  EXPECT_EQ (gst_h264_parser_parse_nal (parser_.get (), &unit), GST_H264_PARSER_OK);
}

std::vector<GstH264SEIMessage> SeiReader::read (const Bytes &sei)
{
  unit_.clear ();
  h264::append_with_start_code (unit_, sei);
  GstH264NalUnit unit = {};
  EXPECT_EQ (gst_h264_parser_identify_nalu_unchecked (parser_.get (), unit_.data (), 0,
                                                      unit_.size (), &unit),
             GST_H264_PARSER_OK);
  EXPECT_EQ (unit.type, GST_H264_NAL_SEI);
  EXPECT_EQ (unit.ref_idc, 0);
  GArray *array = nullptr;
  EXPECT_EQ (gst_h264_parser_parse_sei (parser_.get (), &unit, &array), GST_H264_PARSER_OK);
  messages_.reset (array);
  std::vector<GstH264SEIMessage> messages;
  for (guint i = 0; array && i < array->len; i++)
    messages.push_back (g_array_index (array, GstH264SEIMessage, i));
  return messages;
}

int64_t signed_time_offset (const GstH264ClockTimestamp &clock, unsigned length)
{
  const int64_t value = clock.time_offset;
  return value >> (length - 1) & 1 ? value - (int64_t{1} << length) : value;
}

} // namespace postprocessing
