// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <algorithm>

#include "summary.hpp"
#include "text.hpp"

namespace report
{

namespace
{

constexpr size_t name_width = 12;

void add_row (std::string *table, const std::string &name, const std::string &value)
{
  *table += "  " + name + std::string (name_width - std::min (name.size (), name_width - 1), ' ') +
            value + "\n";
}

std::string with_unit (const std::optional<double> &value, int decimals, const char *unit)
{
  const std::string text = fixed_or_dash (value, decimals);
  return text == "-" ? text : text + " " + unit;
}

std::string stream_text (const Figures &figures)
{
  return with_unit (figures.fps_in.mean, 1, "fps in") + ", " +
         with_unit (figures.fps_out.mean, 1, "fps out") + ", " +
         with_unit (figures.bitrate_kbit_s.mean, 0, "kbit/s") + ", latency " +
         with_unit (figures.latency_ms.mean, 1, "ms") + " (at most " +
         with_unit (figures.latency_ms.most, 1, "ms") + "), " + std::to_string (figures.dropped) +
         " dropped";
}

std::string attitude_text (const RunRecord &record, const Figures &figures)
{
  if (!figures.has_attitudes)
    return "none: " +
           (record.no_attitude_reason.empty () ? "no attitude came" : record.no_attitude_reason);
  return std::to_string (record.attitude_totals.count) + " at " +
         with_unit (figures.attitude_rate_hz, 1, "Hz") + ", " +
         std::to_string (record.attitude_totals.gaps) + " gaps, error RMS " +
         with_unit (figures.error_rms_deg, 3, "degrees") + ", at most " +
         with_unit (figures.error_max_deg, 3, "degrees");
}

std::string recording_text (const std::string &name, const Recording &recording,
                            const RecordingFigures &figures)
{
  std::string text = name + ": ";
  if (!recording.error.empty ())
    return text + recording.error;
  if (recording.width > 0)
    text += std::to_string (recording.width) + "x" + std::to_string (recording.height) + ", ";
  return text + std::to_string (figures.frames) + " frames in " +
         with_unit (figures.duration_s, 2, "s") + ", " + size_text (recording.bytes) +
         (recording.cover_jpeg.empty () ? ", no cover" : ", with cover") + ", capture times in " +
         std::to_string (figures.timed);
}

std::string photo_text (const std::string &name, const Photo &photo)
{
  if (!photo.error.empty ())
    return name + ": " + photo.error;
  return name + ": " + std::to_string (photo.width) + "x" + std::to_string (photo.height) + ", " +
         size_text (photo.bytes) + (photo.group.empty () ? "" : ", " + photo.group);
}

} // namespace

std::string summary_table (const RunRecord &record, const Figures &figures)
{
  std::string table;
  add_row (&table, "run",
           fixed (figures.duration_s, 1) + " s from " +
               utc_text (record.clock.utc_ns).substr (0, 19) + " UTC");
  for (const auto &[name, value] : record.meta)
    add_row (&table, name, value);
  add_row (&table, "frames", stream_text (figures));
  add_row (&table, "attitude", attitude_text (record, figures));
  for (size_t i = 0; i < record.recordings.size (); i++)
    add_row (&table, i == 0 ? "recordings" : "",
             recording_text (name_in (record.folder, record.recordings[i].path),
                             record.recordings[i], figures.recordings.at (i)));
  if (record.recordings.empty ())
    add_row (&table, "recordings", "none");
  for (size_t i = 0; i < record.photos.size (); i++)
    add_row (&table, i == 0 ? "photos" : "",
             photo_text (name_in (record.folder, record.photos[i].path), record.photos[i]));
  if (record.photos.empty ())
    add_row (&table, "photos", "none");
  for (const std::string &warning : record.warnings)
    add_row (&table, "warning", warning);
  return table;
}

std::string status_line (const StatusSample &sample, double seconds_since_start)
{
  std::string line = fixed (seconds_since_start, 0);
  line.insert (0, 4 - std::min<size_t> (line.size (), 4), ' ');
  line += " s  ";
  if (!sample.mode.empty ())
    line += sample.mode + "  ";
  return line + "in " + fixed_or_dash (sample.fps_in, 1) + " out " +
         fixed_or_dash (sample.fps_out, 1) + " fps  " + fixed_or_dash (sample.bitrate_kbit_s, 0) +
         " kbit/s  latency " + fixed_or_dash (sample.latency_ms, 0) + " ms  " +
         fixed_or_dash (sample.attitudes_per_s, 0) + " attitudes/s  error " +
         fixed_or_dash (sample.error_deg, 3) + " deg  " + std::to_string (sample.dropped) +
         " dropped";
}

} // namespace report
