// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A run that is made up, with figures that are easy to reckon.
#ifndef TESTS_HOST_REPORT_SUPPORT_HPP
#define TESTS_HOST_REPORT_SUPPORT_HPP

#include <cmath>
#include <numbers>

#include "report/record.hpp"

namespace report_support
{

constexpr int64_t ms = 1'000'000;
constexpr int64_t s = 1000 * ms;
constexpr int64_t start_ns = 5000 * s;
constexpr double degree = std::numbers::pi / 180;

/** A rotation about the z axis: yaw alone. */
inline report::Attitude yaw (double degrees)
{
  return {0, 0, static_cast<float> (std::sin (degrees * degree / 2)),
          static_cast<float> (std::cos (degrees * degree / 2))};
}

/**
 * Ten seconds that began at 2026-11-20 14:03:27 UTC: attitudes at 100 Hz, yaw 9 degrees a second,
 * the estimate 1 degree ahead; two recordings of 30 and 1 frames, 25 frames a second, one frame
 * missing in the first; two photos, one of them damaged.
 */
inline report::RunRecord made_up_run ()
{
  report::RunRecord record;
  record.folder = "/out/run";
  record.meta = {{"build", "full"}, {"flight", "orbit <1>"}, {"stream", "rtsp://host:8554/live"}};
  record.clock = {start_ns, 1795183407 * s};
  record.end_ns = start_ns + 10 * s;
  for (int i = 0; i <= 1000; i++) {
    const double degrees = 0.09 * i;
    const int64_t time_ns = start_ns + i * 10 * ms;
    record.attitudes.add ({time_ns, yaw (degrees + 1), yaw (degrees)});
    const report::Attitude q = yaw (degrees + 1);
    record.attitude_totals.add ({time_ns, time_ns + ms, q.x, q.y, q.z, q.w, 1 * degree});
  }
  for (int i = 1; i <= 10; i++) {
    report::StatusSample sample;
    sample.time_ns = start_ns + i * s;
    sample.mode = "recording 1280x720 at 25/1";
    sample.fps_in = 24 + i % 2; // 24.5 on average
    sample.fps_out = 25;
    sample.bitrate_kbit_s = 1000 + 100 * i; // 1550
    sample.latency_ms = 40 + i;             // 45.5
    sample.attitudes_per_s = 100;
    sample.error_deg = 1;
    sample.dropped = i > 5 ? 1 : 0;
    record.status.push_back (sample);
  }
  report::Recording recording;
  recording.path = "/out/run/first & last.mp4";
  recording.bytes = 123456;
  recording.width = 1280;
  recording.height = 720;
  recording.cover_jpeg = "cover's bytes";
  record.recordings.push_back (recording);
  recording = {};
  recording.path = "/out/run/videos/second.mp4";
  record.recordings.push_back (recording);
  for (int i = 0; i < 31; i++) {
    report::Frame frame;
    frame.recording = i < 30 ? 0 : 1;
    frame.index = static_cast<size_t> (i % 30);
    frame.key_frame = frame.index == 0;
    frame.bytes = 1000;
    const int shown = i % 30 + (i % 30 >= 10 && i < 30 ? 1 : 0); // a frame is missing before it
    frame.presentation_ns = shown * 40 * ms;
    frame.capture_ns = start_ns + s + shown * 40 * ms;
    frame.sei_time_of_day_us = *frame.capture_ns / 1000;
    frame.estimate = yaw (11);
    frame.truth = yaw (8);
    record.frames.push_back (frame);
  }
  report::Photo photo;
  photo.path = "/out/run/one.jpg";
  photo.group = "single";
  photo.added_ns = start_ns + 6 * s;
  photo.bytes = 54321;
  photo.width = 1600;
  photo.height = 900;
  photo.thumbnail_jpeg = "jpeg's bytes";
  record.photos.push_back (photo);
  photo = {};
  photo.path = "/out/run/100% \"two\".jpg";
  photo.added_ns = start_ns + 7 * s;
  photo.error = "it holds no picture";
  record.photos.push_back (photo);
  record.events = {{start_ns + s, "recording starts"}, {start_ns + 6 * s, "photo"}};
  record.warnings = {"photo <two>: it holds no picture"};
  return record;
}

} // namespace report_support

#endif
