// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "figures.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <span>

namespace report
{

namespace
{

constexpr double degrees_per_rad = 180 / std::numbers::pi;

Spread spread_of (std::span<const double> values)
{
  Spread spread;
  double sum = 0;
  size_t count = 0;
  for (const double value : values) {
    if (!std::isfinite (value))
      continue;
    sum += value;
    count++;
    spread.least = std::min (spread.least.value_or (value), value);
    spread.most = std::max (spread.most.value_or (value), value);
  }
  if (count > 0)
    spread.mean = sum / static_cast<double> (count);
  return spread;
}

Spread spread_of (const RunRecord &record, std::optional<double> StatusSample::*field)
{
  std::vector<double> values;
  for (const StatusSample &sample : record.status)
    if (sample.*field)
      values.push_back (*(sample.*field));
  return spread_of (values);
}

RecordingFigures figures_of_recording (const RunRecord &record, size_t recording)
{
  RecordingFigures figures;
  uint64_t bytes = 0;
  std::vector<int64_t> times_ns;
  double square_sum = 0;
  size_t compared = 0;
  for (const Frame &frame : record.frames) {
    if (frame.recording != recording)
      continue;
    figures.frames++;
    figures.key_frames += frame.key_frame;
    figures.timed += frame.sei_time_of_day_us.has_value ();
    bytes += frame.bytes;
    if (frame.presentation_ns)
      times_ns.push_back (*frame.presentation_ns);
    if (const auto error_rad = angle_between (frame.estimate, frame.truth)) {
      square_sum += *error_rad * *error_rad;
      compared++;
    }
  }
  if (compared > 0)
    figures.attitude_error_deg =
        std::sqrt (square_sum / static_cast<double> (compared)) * degrees_per_rad;
  figures.interval_ms = spread_of (capture_intervals_ms (record, recording));
  if (times_ns.size () < 2)
    return figures;
  const auto [first, last] = std::minmax_element (times_ns.begin (), times_ns.end ());
  const double span_s = static_cast<double> (*last - *first) * 1e-9;
  if (span_s <= 0)
    return figures;
  // The last frame is shown as long as the others are on average.
  const auto count = static_cast<double> (times_ns.size ());
  figures.duration_s = span_s * count / (count - 1);
  figures.fps = count / *figures.duration_s;
  figures.bitrate_kbit_s = static_cast<double> (bytes) * 8 / 1000 / *figures.duration_s;
  return figures;
}

} // namespace

std::vector<double> capture_intervals_ms (const RunRecord &record, size_t recording)
{
  std::vector<double> intervals;
  std::optional<int64_t> last_ns;
  for (const Frame &frame : record.frames) {
    if (frame.recording != recording)
      continue;
    if (last_ns && frame.capture_ns)
      intervals.push_back (static_cast<double> (*frame.capture_ns - *last_ns) * 1e-6);
    last_ns = frame.capture_ns;
  }
  return intervals;
}

Figures figures_of (const RunRecord &record)
{
  Figures figures;
  figures.duration_s = std::max (record.seconds_since_start (record.end_ns), 0.0);
  figures.fps_in = spread_of (record, &StatusSample::fps_in);
  figures.fps_out = spread_of (record, &StatusSample::fps_out);
  figures.bitrate_kbit_s = spread_of (record, &StatusSample::bitrate_kbit_s);
  figures.latency_ms = spread_of (record, &StatusSample::latency_ms);
  for (const StatusSample &sample : record.status)
    figures.dropped = std::max (figures.dropped, sample.dropped);
  const vorn::AttitudeStatistics &totals = record.attitude_totals;
  figures.has_attitudes = totals.count > 0;
  const AttitudeSample *first = nullptr;
  for (const AttitudeSample &sample : record.attitudes.samples ())
    if (sample.estimate.known ()) {
      first = &sample;
      break;
    }
  if (first && totals.count > 1 && totals.last_ns > first->time_ns)
    figures.attitude_rate_hz = static_cast<double> (totals.count - 1) /
                               (static_cast<double> (totals.last_ns - first->time_ns) * 1e-9);
  if (totals.compared > 0) {
    figures.error_rms_deg = totals.error_rms_rad () * degrees_per_rad;
    figures.error_max_deg = totals.error_max_rad * degrees_per_rad;
  }
  for (size_t i = 0; i < record.recordings.size (); i++)
    figures.recordings.push_back (figures_of_recording (record, i));
  return figures;
}

} // namespace report
