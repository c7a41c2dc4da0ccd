// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A bare H.264 byte stream (Rec. ITU-T H.264, annex B).
#include "h264_sei_source.hpp"

#define GST_USE_UNSTABLE_API
#include <gst/codecparsers/gsth264parser.h>

#include <vorn/raii.hpp>

namespace h264_sei
{

namespace
{

using MappedFile = vorn::Owned<GMappedFile, g_mapped_file_unref>;
using Parser = vorn::Owned<GstH264NalParser, gst_h264_nal_parser_free>;

class ByteStream : public Source
{
public:
  explicit ByteStream (MappedFile file) : file_ (std::move (file))
  {
    data_ = reinterpret_cast<const guint8 *> (g_mapped_file_get_contents (file_.get ()));
    size_ = g_mapped_file_get_length (file_.get ());
    read_unit ();
  }

  const char *kind () const override { return "H.264 byte stream"; }

  bool next (AccessUnit *unit, std::string *) override
  {
    *unit = {};
    bool has_slice = false;
    while (!pending_.empty () && !(has_slice && begins_access_unit (pending_))) {
      const unsigned type = pending_[0] & 0x1f;
      has_slice = has_slice || (type >= GST_H264_NAL_SLICE && type <= GST_H264_NAL_SLICE_IDR);
      unit->key_frame = unit->key_frame || type == GST_H264_NAL_SLICE_IDR;
      unit->nal_units.push_back (std::move (pending_));
      read_unit ();
    }
    return !unit->nal_units.empty ();
  }

private:
  /** 7.4.1.2.3: what comes after the last slice of a picture; slices are in order here. */
  static bool begins_access_unit (const Bytes &nal_unit)
  {
    const unsigned type = nal_unit[0] & 0x1f;
    if (type >= GST_H264_NAL_SLICE && type <= GST_H264_NAL_SLICE_IDR)
      return nal_unit.size () > 1 && (nal_unit[1] & 0x80) != 0; // first_mb_in_slice is 0
    return (type >= GST_H264_NAL_SEI && type <= GST_H264_NAL_AU_DELIMITER) ||
           (type >= GST_H264_NAL_PREFIX_UNIT && type <= 18);
  }

  void read_unit ()
  {
    pending_.clear ();
    GstH264NalUnit unit = {};
    // The parser counts in 32 bits: it is shown a file of any size from where it has come to.
    const gsize shown = MIN (size_ - offset_, gsize{G_MAXINT32});
    const GstH264ParserResult result =
        gst_h264_parser_identify_nalu (parser_.get (), data_ + offset_, 0, shown, &unit);
    if (result != GST_H264_PARSER_OK && result != GST_H264_PARSER_NO_NAL_END)
      return;
    if (result == GST_H264_PARSER_NO_NAL_END) // the last one
      unit.size = static_cast<guint> (shown) - unit.offset;
    pending_.assign (data_ + offset_ + unit.offset, data_ + offset_ + unit.offset + unit.size);
    offset_ += unit.offset + unit.size;
  }

  MappedFile file_;
  Parser parser_{gst_h264_nal_parser_new ()};
  const guint8 *data_ = nullptr;
  gsize size_ = 0;
  gsize offset_ = 0;
  Bytes pending_; // the next NAL unit; empty at the end
};

} // namespace

std::unique_ptr<Source> open_byte_stream (const std::string &path, std::string *error)
{
  vorn::ErrorOut failure;
  MappedFile file (g_mapped_file_new (path.c_str (), FALSE, failure.out ()));
  if (!file) {
    *error = failure.message ();
    return nullptr;
  }
  return std::make_unique<ByteStream> (std::move (file));
}

} // namespace h264_sei
