// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The key figures of a run.
#ifndef HOST_REPORT_FIGURES_HPP
#define HOST_REPORT_FIGURES_HPP

#include <cstdint>
#include <optional>
#include <vector>

#include "record.hpp"

namespace report
{

/** Of the values that are known; all empty without one. */
struct Spread {
  std::optional<double> mean;
  std::optional<double> least;
  std::optional<double> most;
};

struct RecordingFigures {
  size_t frames = 0;
  size_t key_frames = 0;
  size_t timed = 0;                         // frames whose SEI tells their capture time
  std::optional<double> duration_s;         // from the first frame to the end of the last
  std::optional<double> fps;                // frames per second of presentation time
  std::optional<double> bitrate_kbit_s;     // of the H.264 stream alone
  Spread interval_ms;                       // between captures of neighbours
  std::optional<double> attitude_error_deg; // RMS over the frames with estimate and truth
};

struct Figures {
  double duration_s = 0;
  Spread fps_in;
  Spread fps_out;
  Spread bitrate_kbit_s;
  Spread latency_ms;
  uint64_t dropped = 0;
  bool has_attitudes = false;
  std::optional<double> attitude_rate_hz; // from the first attitude to the last
  std::optional<double> error_rms_deg;
  std::optional<double> error_max_deg;
  std::vector<RecordingFigures> recordings; // as RunRecord::recordings
};

/** Reentrant; takes one pass over the record. */
Figures figures_of (const RunRecord &record);

/** The times between captures of neighbouring frames of one recording, milliseconds. */
std::vector<double> capture_intervals_ms (const RunRecord &record, size_t recording);

} // namespace report

#endif
