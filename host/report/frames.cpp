// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "frames.hpp"

#include <algorithm>
#include <cstdlib>

#include "../h264_sei_decode.hpp"
#include "../h264_sei_source.hpp"
#include "text.hpp"

namespace report
{

namespace
{

constexpr int64_t ns_per_s = 1'000'000'000;
constexpr int64_t day_ns = 86400 * ns_per_s;
// A recording is added when it has been finished, so its frames are older; clocks need no more.
constexpr int64_t slack_ns = ns_per_s;
// Coarser than half a tick of a clock of 60 ticks a second, finer than half a frame's distance.
constexpr int64_t same_capture_ns = 9'000'000;

std::optional<int64_t> time_of_day (const h264_sei::NalUnit &nal_unit)
{
  for (const h264_sei::SeiMessage &message : nal_unit.messages)
    if (message.time_of_day_us)
      return message.time_of_day_us;
  return std::nullopt;
}

/** The exact capture time that a coarse one means. */
int64_t exact_capture (const std::vector<int64_t> &captures_ns, int64_t coarse_ns)
{
  const auto next = std::lower_bound (captures_ns.begin (), captures_ns.end (), coarse_ns);
  int64_t best_ns = coarse_ns;
  int64_t closest_ns = same_capture_ns;
  for (auto it = next == captures_ns.begin () ? next : std::prev (next);
       it != captures_ns.end () && (it <= next); ++it)
    if (const int64_t apart_ns = std::abs (*it - coarse_ns); apart_ns < closest_ns) {
      closest_ns = apart_ns;
      best_ns = *it;
    }
  return best_ns;
}

} // namespace

std::vector<Frame> read_frames (const std::string &path, std::string *error)
{
  std::vector<Frame> frames;
  const auto source = h264_sei::open_source (path, error);
  if (!source)
    return frames;
  h264_sei::Decoder decoder;
  h264_sei::AccessUnit unit;
  while (source->next (&unit, error)) {
    Frame frame;
    frame.index = frames.size ();
    frame.key_frame = unit.key_frame;
    if (unit.time_ns)
      frame.presentation_ns = static_cast<int64_t> (*unit.time_ns);
    for (const h264_sei::Bytes &nal_unit : unit.configuration)
      decoder.decode (nal_unit);
    for (const h264_sei::Bytes &nal_unit : unit.nal_units) {
      frame.bytes += nal_unit.size ();
      if (const auto time_us = time_of_day (decoder.decode (nal_unit)))
        frame.sei_time_of_day_us = time_us;
    }
    frames.push_back (frame);
  }
  return frames;
}

void match_frames (const RunRecord &record, int64_t finished_ns, std::vector<Frame> *frames)
{
  for (Frame &frame : *frames) {
    if (!frame.sei_time_of_day_us)
      continue;
    const int64_t coarse_ns =
        moment_of_day (*frame.sei_time_of_day_us, finished_ns + slack_ns - day_ns);
    frame.capture_ns = exact_capture (record.captures_ns, coarse_ns);
    frame.estimate = record.attitudes.estimate_at (*frame.capture_ns);
    frame.truth = record.attitudes.truth_at (*frame.capture_ns);
  }
}

void add_frames (RunRecord *record)
{
  for (size_t i = 0; i < record->recordings.size (); i++) {
    Recording &recording = record->recordings[i];
    std::string error;
    std::vector<Frame> frames = read_frames (recording.path, &error);
    if (frames.empty () && error.empty ())
      error = "it has no frame";
    if (!error.empty ()) {
      recording.error = error;
      record->warnings.push_back (name_in (record->folder, recording.path) + ": " + error);
    }
    match_frames (*record, recording.added_ns, &frames);
    for (Frame &frame : frames) {
      frame.recording = i;
      record->frames.push_back (frame);
    }
  }
}

} // namespace report
