// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "h264_sei_decode.hpp"

#include <array>
#include <cstring>

#include <vorn/streaming_sei.h>

namespace h264_sei
{

namespace
{

constexpr gint64 day_us = gint64{24} * 3600 * 1000000;

[[gnu::format (printf, 1, 2)]] std::string format (const char *text, ...)
{
  va_list arguments;
  va_start (arguments, text);
  const vorn::OwnedString result (g_strdup_vprintf (text, arguments));
  va_end (arguments);
  return result.get ();
}

/** Table 7-1. */
const char *name_of (unsigned type)
{
  static constexpr std::array names = {"unspecified",
                                       "slice",
                                       "slice partition A",
                                       "slice partition B",
                                       "slice partition C",
                                       "IDR slice",
                                       "SEI",
                                       "SPS",
                                       "PPS",
                                       "delimiter",
                                       "end of sequence",
                                       "end of stream",
                                       "filler data",
                                       "SPS extension",
                                       "prefix",
                                       "subset SPS",
                                       "depth parameter set",
                                       "reserved",
                                       "reserved",
                                       "auxiliary slice",
                                       "slice extension",
                                       "depth slice extension"};
  return type < names.size () ? names[type] : type < 24 ? "reserved" : "unspecified";
}

const char *reason_of (GstH264ParserResult result)
{
  switch (result) {
  case GST_H264_PARSER_BROKEN_LINK:
    return "it refers to a parameter set that is not there";
  case GST_H264_PARSER_BROKEN_DATA:
    return "its fields contradict each other";
  default:
    return "it cannot be parsed";
  }
}

std::string hexadecimal (const guint8 *data, gsize size)
{
  std::string text;
  for (gsize i = 0; i < size; i++)
    text += format ("%02x", data[i]);
  return text;
}

std::string format_uuid (const guint8 *uuid)
{
  const std::string digits = hexadecimal (uuid, 16);
  return digits.substr (0, 8) + "-" + digits.substr (8, 4) + "-" + digits.substr (12, 4) + "-" +
         digits.substr (16, 4) + "-" + digits.substr (20);
}

bool is_streaming_uuid (const guint8 *uuid)
{
  const VornStreamingSeiSliceLayout layout = {1, 1};
  guint8 payload[VORN_STREAMING_SEI_PAYLOAD_SIZE];
  gsize size = sizeof payload;
  guint8 ours[VORN_STREAMING_SEI_UUID_SIZE];
  return vorn_streaming_sei_write (&layout, payload, &size, ours) == 0 &&
         memcmp (ours, uuid, sizeof ours) == 0;
}

SeiMessage decode_user_data (const GstH264UserDataUnregistered &user_data)
{
  SeiMessage result{5, "user data", {}, {}, {}};
  const std::string uuid = format_uuid (user_data.uuid);
  result.fields = {{"uuid", uuid}};
  if (is_streaming_uuid (user_data.uuid) && user_data.size == VORN_STREAMING_SEI_PAYLOAD_SIZE) {
    const auto word = [&] (unsigned at) -> unsigned {
      return static_cast<unsigned> (user_data.data[at]) << 8 | user_data.data[at + 1];
    };
    const unsigned slices = word (0);
    const unsigned macroblocks = word (2);
    result.text =
        format ("Kavrel Streaming v2, slices %u, macroblocks per slice %u", slices, macroblocks);
    result.fields.emplace_back ("content", "Kavrel Streaming v2");
    result.fields.emplace_back ("slice_count", gint64{slices});
    result.fields.emplace_back ("slice_mb_count", gint64{macroblocks});
    return result;
  }
  constexpr gsize shown = 16;
  result.text = uuid + format (", %u bytes: ", user_data.size) +
                hexadecimal (user_data.data, MIN (user_data.size, shown)) +
                (user_data.size > shown ? "..." : "");
  result.fields.emplace_back ("data", hexadecimal (user_data.data, user_data.size));
  return result;
}

SeiMessage decode_recovery_point (const GstH264RecoveryPoint &point)
{
  return {6,
          "recovery point",
          format ("frame count %d%s%s", point.recovery_frame_cnt,
                  point.exact_match_flag ? ", exact match" : "",
                  point.broken_link_flag ? ", broken link" : ""),
          {{"recovery_frame_cnt", gint64{point.recovery_frame_cnt}},
           {"exact_match_flag", point.exact_match_flag != 0},
           {"broken_link_flag", point.broken_link_flag != 0},
           {"changing_slice_group_idc", gint64{point.changing_slice_group_idc}}},
          {}};
}

const char *message_name (int payload_type)
{
  switch (payload_type) {
  case 0:
    return "buffering period";
  case 4:
    return "registered user data";
  case 21:
    return "stereo video";
  case 45:
    return "frame packing";
  case 137:
    return "mastering display";
  case 144:
    return "content light level";
  default:
    return "other";
  }
}

gint64 sign_extended (guint32 value, unsigned bits)
{
  if (bits == 0)
    return 0;
  const gint64 wide = value;
  return (wide >> (bits - 1) & 1) != 0 ? wide - (gint64{1} << bits) : wide;
}

} // namespace

std::string format_time_of_day (gint64 time_of_day_us)
{
  const gint64 seconds = time_of_day_us / 1000000;
  return format ("%02d:%02d:%02d.%06d", static_cast<int> (seconds / 3600),
                 static_cast<int> (seconds / 60 % 60), static_cast<int> (seconds % 60),
                 static_cast<int> (time_of_day_us % 1000000));
}

NalUnit Decoder::decode (const Bytes &nal_unit)
{
  const unsigned type = nal_unit[0] & 0x1f;
  NalUnit result{type, name_of (type), nal_unit.size (), {}, {}, {}};
  GstH264NalUnit unit = {};
  unit.ref_idc = (nal_unit[0] >> 5) & 3;
  unit.type = static_cast<guint16> (type);
  unit.idr_pic_flag = type == GST_H264_NAL_SLICE_IDR;
  unit.data = const_cast<guint8 *> (nal_unit.data ()); // it is only read
  unit.size = static_cast<guint> (nal_unit.size ());
  unit.header_bytes = 1;
  unit.valid = TRUE;
  if ((nal_unit[0] & 0x80) != 0) {
    result.damage = "its first bit is not 0";
    return result;
  }
  switch (type) {
  case GST_H264_NAL_SPS:
    decode_sps (&unit, &result);
    break;
  case GST_H264_NAL_PPS:
    decode_pps (&unit, &result);
    break;
  case GST_H264_NAL_SLICE:
  case GST_H264_NAL_SLICE_IDR:
    decode_slice (&unit, &result);
    break;
  case GST_H264_NAL_SEI:
    decode_sei (&unit, &result);
    break;
  default:
    break;
  }
  return result;
}

void Decoder::decode_sps (GstH264NalUnit *unit, NalUnit *result)
{
  GstH264SPS sps = {};
  const GstH264ParserResult parsed = gst_h264_parser_parse_sps (parser_.get (), unit, &sps);
  if (parsed != GST_H264_PARSER_OK) {
    result->damage = reason_of (parsed);
    return;
  }
  timing_ = {};
  result->text = format ("%dx%d", sps.crop_rect_width > 0 ? sps.crop_rect_width : sps.width,
                         sps.crop_rect_height > 0 ? sps.crop_rect_height : sps.height);
  if (sps.vui_parameters_present_flag) {
    const GstH264VUIParams &vui = sps.vui_parameters;
    if (vui.timing_info_present_flag) {
      timing_.num_units_in_tick = vui.num_units_in_tick;
      timing_.time_scale = vui.time_scale;
      result->text += format (", %u / %u ticks a second", vui.time_scale, vui.num_units_in_tick);
    }
    timing_.pic_struct = vui.pic_struct_present_flag != 0;
    if (vui.nal_hrd_parameters_present_flag)
      timing_.time_offset_length = vui.nal_hrd_parameters.time_offset_length;
    else if (vui.vcl_hrd_parameters_present_flag)
      timing_.time_offset_length = vui.vcl_hrd_parameters.time_offset_length;
  }
  if (timing_.time_scale == 0)
    result->text += ", no timing";
  gst_h264_sps_clear (&sps);
}

void Decoder::decode_pps (GstH264NalUnit *unit, NalUnit *result)
{
  GstH264PPS pps = {};
  const GstH264ParserResult parsed = gst_h264_parser_parse_pps (parser_.get (), unit, &pps);
  if (parsed == GST_H264_PARSER_OK)
    gst_h264_pps_clear (&pps);
  else
    result->damage = reason_of (parsed);
}

void Decoder::decode_slice (GstH264NalUnit *unit, NalUnit *result)
{
  GstH264SliceHdr header = {};
  const GstH264ParserResult parsed =
      gst_h264_parser_parse_slice_hdr (parser_.get (), unit, &header, FALSE, FALSE);
  if (parsed != GST_H264_PARSER_OK) {
    result->damage = reason_of (parsed);
    return;
  }
  static constexpr std::array types = {"P", "B", "I", "SP", "SI"};
  result->text = format ("%s, first macroblock %u", types[header.type % types.size ()],
                         header.first_mb_in_slice);
}

void Decoder::decode_sei (GstH264NalUnit *unit, NalUnit *result)
{
  GArray *array = nullptr;
  const GstH264ParserResult parsed = gst_h264_parser_parse_sei (parser_.get (), unit, &array);
  const vorn::Owned<GArray, g_array_unref> messages (array);
  for (guint i = 0; array && i < array->len; i++)
    result->messages.push_back (decode_message (g_array_index (array, GstH264SEIMessage, i)));
  if (parsed != GST_H264_PARSER_OK)
    result->damage = reason_of (parsed);
}

SeiMessage Decoder::decode_message (const GstH264SEIMessage &message) const
{
  switch (message.payloadType) {
  case GST_H264_SEI_PIC_TIMING:
    return decode_pic_timing (message.payload.pic_timing);
  case GST_H264_SEI_RECOVERY_POINT:
    return decode_recovery_point (message.payload.recovery_point);
  case GST_H264_SEI_USER_DATA_UNREGISTERED:
    return decode_user_data (message.payload.user_data_unregistered);
  case GST_H264_SEI_UNHANDLED_PAYLOAD: {
    const GstH264SEIUnhandledPayload &payload = message.payload.unhandled_payload;
    return {static_cast<int> (payload.payloadType),
            message_name (static_cast<int> (payload.payloadType)),
            format ("payload type %u, %u bytes", payload.payloadType, payload.size),
            {},
            {}};
  }
  default:
    return {message.payloadType, message_name (message.payloadType), {}, {}, {}};
  }
}

SeiMessage Decoder::decode_pic_timing (const GstH264PicTiming &timing) const
{
  SeiMessage result{1, "picture timing", "no clock timestamp", {}, {}};
  if (!timing_.pic_struct)
    return result;
  result.fields.emplace_back ("pic_struct", gint64{timing.pic_struct});
  // Of the up to three clock timestamps the first is the picture's.
  if (!timing.clock_timestamp_flag[0])
    return result;
  const GstH264ClockTimestamp &clock = timing.clock_timestamp[0];
  const gint64 offset = sign_extended (clock.time_offset, timing_.time_offset_length);
  result.fields.emplace_back ("hours_value", gint64{clock.hours_value});
  result.fields.emplace_back ("minutes_value", gint64{clock.minutes_value});
  result.fields.emplace_back ("seconds_value", gint64{clock.seconds_value});
  result.fields.emplace_back ("n_frames", gint64{clock.n_frames});
  result.fields.emplace_back ("time_offset", offset);
  const std::string fields =
      format ("%02d:%02d:%02d frame %d offset %" G_GINT64_FORMAT, clock.hours_value,
              clock.minutes_value, clock.seconds_value, clock.n_frames, offset);
  const bool whole =
      clock.full_timestamp_flag || (clock.seconds_flag && clock.minutes_flag && clock.hours_flag);
  if (!whole || timing_.time_scale == 0) {
    result.text = fields + (whole ? ", the SPS has no timing" : ", not a whole time");
    return result;
  }
  // Equation D-1, over a second's part alone.
  const gint64 frame_ticks = gint64{timing_.num_units_in_tick} * (1 + clock.nuit_field_based_flag);
  const gint64 ticks = clock.n_frames * frame_ticks + offset;
  const gint64 seconds =
      (gint64{clock.hours_value} * 60 + clock.minutes_value) * 60 + clock.seconds_value;
  const gint64 part_us = static_cast<gint64> (gst_util_uint64_scale_round (
      static_cast<guint64> (ABS (ticks)), 1000000, timing_.time_scale));
  const gint64 time_us = seconds * 1000000 + (ticks < 0 ? -part_us : part_us);
  result.time_of_day_us = (time_us % day_us + day_us) % day_us;
  const std::string time_of_day = format_time_of_day (*result.time_of_day_us);
  result.text = time_of_day + " (" + fields + ")";
  result.fields.emplace_back ("time_of_day", time_of_day);
  result.fields.emplace_back ("time_of_day_us", *result.time_of_day_us);
  return result;
}

} // namespace h264_sei
