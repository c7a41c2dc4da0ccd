// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What is known of a run: the data that all its result files are written from.
#ifndef HOST_REPORT_RECORD_HPP
#define HOST_REPORT_RECORD_HPP

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "attitude_series.hpp"
#include "clock_pair.hpp"

namespace report
{

/** The state of one second; what is empty is not known or does not exist. */
struct StatusSample {
  int64_t time_ns = 0;                   // CLOCK_MONOTONIC, at the second's end
  std::string mode;                      // as people read it: "recording 1280x720 at 30000/1001"
  std::optional<double> fps_in;          // frames per second from the camera
  std::optional<double> fps_out;         // frames per second to the stream
  std::optional<double> bitrate_kbit_s;  // of the stream
  std::optional<double> latency_ms;      // from capture to the encoded stream, the mean
  std::optional<double> attitudes_per_s; // that came onto the blackboard
  std::optional<double> error_deg;       // of the attitudes, RMS over the second
  uint64_t dropped = 0;                  // frames lost since the start
};

/** One frame of a recording. */
struct Frame {
  size_t recording = 0; // index into RunRecord::recordings
  size_t index = 0;     // in its recording, from 0
  bool key_frame = false;
  uint64_t bytes = 0;
  std::optional<int64_t> presentation_ns;    // in its recording
  std::optional<int64_t> sei_time_of_day_us; // what its SEI says: capture time, modulo 24 h
  std::optional<int64_t> capture_ns;         // CLOCK_MONOTONIC
  Attitude estimate;                         // that was valid when it was captured
  Attitude truth;                            // of that moment
};

struct Recording {
  std::string path;
  int64_t added_ns = 0; // CLOCK_MONOTONIC, when it was finished
  uint64_t bytes = 0;
  int width = 0; // 0: not known
  int height = 0;
  std::string cover_jpeg; // scaled down; empty: it has none
  std::string error;      // why it cannot be read, empty: it can
};

struct Photo {
  std::string path;
  std::string group; // how it was taken: "single", "burst"; may be empty
  int64_t added_ns = 0;
  uint64_t bytes = 0;
  int width = 0; // 0: not known
  int height = 0;
  std::string thumbnail_jpeg; // scaled down; empty: it cannot be read
  std::string error;
};

/** Something that happened: a step of the show, a mode change. */
struct Event {
  int64_t time_ns = 0; // CLOCK_MONOTONIC
  std::string text;
};

struct RunRecord {
  std::string folder; // of the results; recordings and photos lie in it or below it
  std::vector<std::pair<std::string, std::string>> meta; // key, value: build, instance, flight ...
  ClockPair clock;                                       // at the start
  int64_t end_ns = 0;                                    // CLOCK_MONOTONIC
  std::string no_attitude_reason; // why no attitudes are to be expected; empty: they are
  AttitudeSeries attitudes;
  vorn::AttitudeStatistics attitude_totals; // of all that came, whatever the series keeps
  std::vector<StatusSample> status;
  std::vector<int64_t> captures_ns; // exact capture times, in order; may be empty
  std::vector<Recording> recordings;
  std::vector<Frame> frames;
  std::vector<Photo> photos;
  std::vector<Event> events;
  std::vector<std::string> warnings;

  double seconds_since_start (int64_t time_ns) const
  {
    return static_cast<double> (time_ns - clock.monotonic_ns) * 1e-9;
  }
};

} // namespace report

#endif
