// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What stands in NAL units, as GStreamer's parser reads them.
#ifndef HOST_H264_SEI_DECODE_HPP
#define HOST_H264_SEI_DECODE_HPP

#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <gst/gst.h>
#define GST_USE_UNSTABLE_API
#include <gst/codecparsers/gsth264parser.h>

#include <vorn/raii.hpp>

#include "h264_sei_source.hpp"

namespace h264_sei
{

/** A named value, for machines. */
using Value = std::variant<gint64, bool, std::string>;
using Field = std::pair<const char *, Value>;

struct SeiMessage {
  int payload_type;
  const char *name;
  std::string text; // for people
  std::vector<Field> fields;
  std::optional<gint64> time_of_day_us; // of a picture timing with a whole clock timestamp
};

struct NalUnit {
  unsigned type;
  const char *name;
  gsize size;
  std::string text; // what is known of it beyond its name
  std::vector<SeiMessage> messages;
  std::string damage; // empty: none
};

/** Reads the NAL units of one stream, in order. */
class Decoder
{
public:
  NalUnit decode (const Bytes &nal_unit);

private:
  using Parser = vorn::Owned<GstH264NalParser, gst_h264_nal_parser_free>;

  void decode_sps (GstH264NalUnit *unit, NalUnit *result);
  void decode_pps (GstH264NalUnit *unit, NalUnit *result);
  void decode_slice (GstH264NalUnit *unit, NalUnit *result);
  void decode_sei (GstH264NalUnit *unit, NalUnit *result);
  SeiMessage decode_message (const GstH264SEIMessage &message) const;
  SeiMessage decode_pic_timing (const GstH264PicTiming &timing) const;

  /** Of the SPS that came last, what clock timestamps are counted in. */
  struct Timing {
    guint32 num_units_in_tick = 0;
    guint32 time_scale = 0;
    unsigned time_offset_length = 24;
    bool pic_struct = false;
  };

  Parser parser_{gst_h264_nal_parser_new ()};
  Timing timing_;
};

/** "14:03:27.500000". */
std::string format_time_of_day (gint64 time_of_day_us);

} // namespace h264_sei

#endif
