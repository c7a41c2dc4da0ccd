// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "frame_postprocessor_nal_walk.hpp"

#include <algorithm>
#include <cstring>

namespace frame_postprocessor
{

// GStreamer's macros for this read unaligned words, which the language does not allow.
guint32 read_prefix (const guint8 *data)
{
  guint32 value = 0;
  memcpy (&value, data, prefix_size);
  return GUINT32_FROM_BE (value);
}

void write_prefix (guint8 *data, guint32 value)
{
  value = GUINT32_TO_BE (value);
  memcpy (data, &value, prefix_size);
}

NalWalk::NalWalk (GstH264NalParser *parser, GstBuffer *buffer) : parser_ (parser), buffer_ (buffer)
{
  const gsize size = gst_buffer_get_size (buffer);
  // No access unit is that long, and the parser's offsets end there.
  total_ = size <= G_MAXINT32 ? static_cast<guint> (size) : 0;
}

bool NalWalk::next ()
{
  begin_ = end_;
  end_ = total_;
  unit_ = {};
  if (!map (begin_, prefix_size + 1))
    return false;
  const guint8 *prefix = window_.data + (begin_ - window_offset_);
  const GstH264ParserResult result = identify ();
  if (result != GST_H264_PARSER_OK && result != GST_H264_PARSER_NO_NAL_END)
    return false;
  if (result == GST_H264_PARSER_NO_NAL_END) {
    // It goes beyond what is mapped, and perhaps beyond the buffer: the parser gave it up.
    unit_.type = prefix[prefix_size] & 0x1f;
    unit_.size = std::min (read_prefix (prefix), total_ - offset ());
  }
  end_ = offset () + unit_.size;
  return true;
}

const GstH264NalUnit *NalWalk::whole ()
{
  if (unit_.valid)
    return &unit_;
  // Of one that is cut the parser does not find the end in all there is either.
  const bool found = map (begin_, prefix_size + unit_.size) && identify () == GST_H264_PARSER_OK;
  return found ? &unit_ : nullptr;
}

bool NalWalk::map (gsize offset, gsize size)
{
  if (mapped_ && offset >= window_offset_ && offset + size <= window_offset_ + window_.size)
    return true;
  unmap ();
  guint index = 0;
  guint count = 0;
  gsize skip = 0;
  if (!gst_buffer_find_memory (buffer_, offset, size, &index, &count, &skip))
    return false;
  // Nearly always it is in one memory, which the buffer keeps for us.
  merged_ = count != 1;
  mapped_ =
      merged_
          ? gst_buffer_map_range (buffer_, index, static_cast<gint> (count), &window_, GST_MAP_READ)
          : gst_memory_map (gst_buffer_peek_memory (buffer_, index), &window_, GST_MAP_READ);
  window_offset_ = offset - skip;
  return mapped_;
}

void NalWalk::unmap ()
{
  if (mapped_ && merged_)
    gst_buffer_unmap (buffer_, &window_);
  else if (mapped_)
    gst_memory_unmap (window_.memory, &window_);
  mapped_ = false;
}

GstH264ParserResult NalWalk::identify ()
{
  return gst_h264_parser_identify_nalu_avc (parser_, window_.data,
                                            static_cast<guint> (begin_ - window_offset_),
                                            window_.size, prefix_size, &unit_);
}

} // namespace frame_postprocessor
