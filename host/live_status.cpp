// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "live_status.hpp"

#include <cstring>
#include <numbers>

#include <vorn/sections.h>

static constexpr double degrees_per_rad = 180 / std::numbers::pi;

bool LiveStatus::attitudes_flow ()
{
  bool found = false;
  vorn_sections_list (
      nullptr,
      [] (const VornSectionInfo *section, void *data) {
        if (section->kind == VORN_SECTION_BLACKBOARD &&
            strcmp (section->name, "accurate_attitude") == 0 && section->writer_lives)
          *static_cast<bool *> (data) = true;
      },
      &found);
  return found;
}

void LiveStatus::poll ()
{
  if (monitor_)
    monitor_->poll ([this] (const vorn::MonitoredAttitude &attitude) { second_.add (attitude); });
}

const LiveValues &LiveStatus::tick (const StreamSums &sums, int64_t now_ns)
{
  poll ();
  const double seconds = std::max (1e-3, static_cast<double> (now_ns - last_ns_) * 1e-9);
  last_ns_ = now_ns;
  // A view that is prepared anew counts from zero.
  const auto rate = [seconds] (uint64_t now, uint64_t before) {
    return static_cast<double> (now >= before ? now - before : now) / seconds;
  };
  values_ = {};
  values_.fps_in = rate (sums.frames_in, last_.frames_in);
  values_.fps_out = rate (sums.frames_out, last_.frames_out);
  values_.bits_per_second = 8 * rate (sums.bytes, last_.bytes);
  values_.drops = sums.drops;
  if (sums.timed_frames > last_.timed_frames)
    values_.latency_ms = static_cast<double> (sums.latency_ns - last_.latency_ns) * 1e-6 /
                         static_cast<double> (sums.timed_frames - last_.timed_frames);
  last_ = sums;
  if (monitor_) {
    values_.attitudes_per_second = static_cast<double> (second_.count) / seconds;
    if (second_.compared) {
      values_.error_rms_deg = second_.error_rms_rad () * degrees_per_rad;
      values_.error_max_deg = second_.error_max_rad * degrees_per_rad;
    }
    second_.restart ();
  } else if (attitudes_flow ()) {
    monitor_ = std::make_unique<vorn::AttitudeMonitor> ();
  }
  return values_;
}
