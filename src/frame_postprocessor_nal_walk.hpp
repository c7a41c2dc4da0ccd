// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A walk over the NAL units of an access unit, from its first byte on.
#ifndef FRAME_POSTPROCESSOR_NAL_WALK_HPP
#define FRAME_POSTPROCESSOR_NAL_WALK_HPP

#include "frame_postprocessor.hpp"

namespace frame_postprocessor
{

/** Bytes before each NAL unit: its length, big endian, or a start code. */
constexpr guint prefix_size = 4;

guint32 read_prefix (const guint8 *data);
void write_prefix (guint8 *data, guint32 value);

/**
 * Stands before the first unit; next () goes on to the following one. Only the memories that hold
 * the beginning of a unit are mapped: mapping several memories as one would copy them, and the
 * slices, nearly all of the bytes, are never looked at.
 *
 * A unit whose length goes beyond the buffer is cut: what is there of it is the rest of the buffer,
 * and the walk ends with it.
 */
class NalWalk
{
public:
  NalWalk (GstH264NalParser *parser, GstBuffer *buffer);
  ~NalWalk () { unmap (); }
  NalWalk (const NalWalk &) = delete;
  NalWalk &operator= (const NalWalk &) = delete;

  /** False at the end, and where the bytes are no NAL unit. */
  bool next ();

  guint type () const { return unit_.type; }
  /** Bytes that are there, from the header byte on. */
  guint size () const { return unit_.size; }
  /** Where the header byte lies in the buffer; the prefix lies before it. */
  guint offset () const { return begin_ + prefix_size; }
  bool is_slice () const
  {
    return unit_.type == GST_H264_NAL_SLICE || unit_.type == GST_H264_NAL_SLICE_IDR;
  }
  bool is_parameter_set () const
  {
    return unit_.type == GST_H264_NAL_SPS || unit_.type == GST_H264_NAL_PPS;
  }

  /**
   * The unit with all its bytes and its prefix mapped, until next (); NULL for one that is cut, of
   * which nothing is known any more then.
   */
  const GstH264NalUnit *whole ();

private:
  bool map (gsize offset, gsize size);
  void unmap ();
  GstH264ParserResult identify ();

  GstH264NalParser *parser_;
  GstBuffer *buffer_;
  guint total_;
  guint begin_ = 0; // of the current unit's prefix
  guint end_ = 0;   // of the current unit
  GstH264NalUnit unit_ = {};
  GstMapInfo window_ = GST_MAP_INFO_INIT;
  gsize window_offset_ = 0;
  bool mapped_ = false;
  bool merged_ = false; // of several memories
};

} // namespace frame_postprocessor

#endif
