// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "h264_trace.hpp"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include <vorn/raii.hpp>

namespace h264
{

namespace
{

/** A stream in a file, as long as it lives. */
class StreamFile
{
public:
  explicit StreamFile (const Bytes &stream)
  {
    vorn::ErrorOut error;
    directory_.reset (g_dir_make_tmp ("h264-XXXXXX", error.out ()));
    EXPECT_FALSE (error) << error.message ();
    std::ofstream file (path (), std::ios::binary);
    file.write (reinterpret_cast<const char *> (stream.data ()),
                static_cast<std::streamsize> (stream.size ()));
  }
  ~StreamFile () { std::filesystem::remove_all (directory_.get ()); }
  StreamFile (const StreamFile &) = delete;
  StreamFile &operator= (const StreamFile &) = delete;

  std::string path () const { return std::string (directory_.get ()) + "/stream.h264"; }

private:
  vorn::OwnedString directory_;
};

struct Output {
  std::string out;
  std::string err;
};

Output run_ffmpeg (const std::vector<std::string> &arguments)
{
  std::vector<gchar *> argv;
  argv.reserve (arguments.size () + 1);
  for (const std::string &argument : arguments)
    argv.push_back (const_cast<gchar *> (argument.c_str ()));
  argv.push_back (nullptr);
  gchar *out = nullptr;
  gchar *err = nullptr;
  gint status = -1;
  vorn::ErrorOut error;
  g_spawn_sync (nullptr, argv.data (), nullptr, G_SPAWN_SEARCH_PATH, nullptr, nullptr, &out, &err,
                &status, error.out ());
  const vorn::OwnedString out_owner (out);
  const vorn::OwnedString err_owner (err);
  EXPECT_FALSE (error) << error.message ();
  EXPECT_EQ (status, 0) << (err ? err : "");
  return {out ? out : "", err ? err : ""};
}

/** Framing, not content. */
bool is_framing (const std::string &name)
{
  for (const char *prefix : {"forbidden_zero_bit", "nal_", "ff_byte", "last_payload_size_byte",
                             "bit_equal_to_", "rbsp_", "reserved_"})
    if (name.starts_with (prefix))
      return true;
  return false;
}

} // namespace

std::vector<TracedAccessUnit> trace (const Bytes &stream)
{
  const StreamFile file (stream);
  const Output output =
      run_ffmpeg ({"ffmpeg", "-hide_banner", "-nostats", "-nostdin", "-f", "h264", "-i",
                   file.path (), "-c", "copy", "-bsf:v", "trace_headers", "-f", "null", "-"});

  std::vector<TracedAccessUnit> units;
  bool in_sei = false;
  std::istringstream lines (output.err);
  for (std::string line; std::getline (lines, line);) {
    const size_t bracket = line.find ("] ");
    if (!line.starts_with ("[trace_headers @") || bracket == std::string::npos)
      continue;
    const std::string text = line.substr (bracket + 2);
    char name[64];
    int64_t value = 0;
    if (text.starts_with ("Packet: ")) {
      units.emplace_back ();
      in_sei = false;
      // position, name, bits, value
    } else if (sscanf (text.c_str (), "%*u %63s %*[01] = %" SCNd64, name, &value) == 2) {
      if (!in_sei || units.empty () || is_framing (name))
        continue;
      const bool type = strcmp (name, "last_payload_type_byte") == 0;
      units.back ().sei.emplace_back (type ? "payload_type" : name, value);
    } else if (text == "Supplemental Enhancement Information") {
      in_sei = true;
      if (!units.empty ())
        units.back ().sei_units++;
    } else if (text == "Slice Header" || text == "Sequence Parameter Set" ||
               text == "Picture Parameter Set" || text == "Access Unit Delimiter") {
      in_sei = false;
    } else if (text != "Recovery Point" && text != "Picture Timing" &&
               text != "User Data Unregistered" && text != "Filler Data" && text != "Extradata") {
      ADD_FAILURE () << "FFmpeg says: " << text;
    }
  }
  return units;
}

namespace
{

void add_clock (Fields &fields, const VornH264ClockTimestamp &clock, const SpsVariant &variant)
{
  fields.emplace_back ("ct_type", clock.ct_type);
  fields.emplace_back ("nuit_field_based_flag", clock.nuit_field_based_flag);
  fields.emplace_back ("counting_type", clock.counting_type);
  fields.emplace_back ("full_timestamp_flag", clock.full_timestamp_flag);
  fields.emplace_back ("discontinuity_flag", clock.discontinuity_flag);
  fields.emplace_back ("cnt_dropped_flag", clock.cnt_dropped_flag);
  fields.emplace_back ("n_frames", clock.n_frames);
  const auto hours = static_cast<int64_t> (clock.hours_value % 24);
  if (clock.full_timestamp_flag) {
    fields.emplace_back ("seconds_value", clock.seconds_value);
    fields.emplace_back ("minutes_value", clock.minutes_value);
    fields.emplace_back ("hours_value", hours);
  } else {
    fields.emplace_back ("seconds_flag", clock.seconds_flag);
    if (clock.seconds_flag) {
      fields.emplace_back ("seconds_value", clock.seconds_value);
      fields.emplace_back ("minutes_flag", clock.minutes_flag);
    }
    if (clock.seconds_flag && clock.minutes_flag) {
      fields.emplace_back ("minutes_value", clock.minutes_value);
      fields.emplace_back ("hours_flag", clock.hours_flag);
    }
    if (clock.seconds_flag && clock.minutes_flag && clock.hours_flag)
      fields.emplace_back ("hours_value", hours);
  }
  if (variant.time_offset_length () > 0)
    fields.emplace_back ("time_offset", clock.time_offset);
}

void add_pic_timing (Fields &fields, const VornH264PicTiming &timing, const SpsVariant &variant)
{
  static constexpr unsigned num_clock_ts[] = {1, 1, 1, 2, 2, 3, 3, 2, 3};
  if (variant.hrd ()) {
    fields.emplace_back ("cpb_removal_delay", timing.cpb_removal_delay);
    fields.emplace_back ("dpb_output_delay", timing.dpb_output_delay);
  }
  if (!variant.pic_struct)
    return;
  fields.emplace_back ("pic_struct", timing.pic_struct);
  for (unsigned i = 0; i < num_clock_ts[timing.pic_struct]; i++) {
    fields.emplace_back ("clock_timestamp_flag[" + std::to_string (i) + "]",
                         timing.clock_timestamp_flag[i]);
    if (timing.clock_timestamp_flag[i])
      add_clock (fields, timing.clock_timestamp[i], variant);
  }
}

} // namespace

Fields expected_fields (const std::vector<VornH264Sei> &messages, const SpsVariant &variant)
{
  Fields fields;
  for (const VornH264Sei &message : messages) {
    if (message.payload_type == VORN_H264_SEI_PIC_TIMING && !variant.carries_pic_timing ())
      continue;
    fields.emplace_back ("payload_type", message.payload_type);
    if (message.payload_type == VORN_H264_SEI_PIC_TIMING) {
      add_pic_timing (fields, message.payload.pic_timing, variant);
    } else if (message.payload_type == VORN_H264_SEI_RECOVERY_POINT) {
      const VornH264RecoveryPoint &point = message.payload.recovery_point;
      fields.emplace_back ("recovery_frame_cnt", point.recovery_frame_cnt);
      fields.emplace_back ("exact_match_flag", point.exact_match_flag);
      fields.emplace_back ("broken_link_flag", point.broken_link_flag);
      fields.emplace_back ("changing_slice_group_idc", point.changing_slice_group_idc);
    } else {
      const VornH264UserDataUnregistered &data = message.payload.user_data_unregistered;
      for (size_t i = 0; i < 16; i++)
        fields.emplace_back ("uuid_iso_iec_11578[" + std::to_string (i) + "]",
                             data.uuid_iso_iec_11578[i]);
      for (size_t i = 0; i < data.size; i++)
        fields.emplace_back ("user_data_payload_byte[" + std::to_string (i) + "]", data.data[i]);
    }
  }
  return fields;
}

std::string decoder_complaints (const Bytes &stream, int *frame_count)
{
  const StreamFile file (stream);
  const Output output =
      run_ffmpeg ({"ffmpeg", "-hide_banner", "-nostats", "-nostdin", "-v", "warning", "-f", "h264",
                   "-i", file.path (), "-f", "framemd5", "-"});
  *frame_count = 0;
  std::istringstream lines (output.out);
  for (std::string line; std::getline (lines, line);)
    *frame_count += !line.empty () && line[0] != '#';
  return output.err;
}

} // namespace h264
