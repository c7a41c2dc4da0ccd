// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "html_charts.hpp"

#include <cmath>
#include <limits>
#include <numbers>

namespace report
{

namespace
{

constexpr double degrees_per_rad = 180 / std::numbers::pi;
constexpr double nan = std::numeric_limits<double>::quiet_NaN ();

Chart chart_of (const RunRecord &record, const char *title, const char *unit)
{
  Chart chart;
  chart.title = title;
  chart.unit = unit;
  chart.x_max = record.seconds_since_start (record.end_ns);
  for (const Event &event : record.events)
    chart.marks.push_back ({record.seconds_since_start (event.time_ns), event.text});
  return chart;
}

/** Adds a point; an angle that comes round the other way breaks the line. */
void add_angle (std::vector<Point> *points, double x, double degrees)
{
  if (!points->empty () && std::abs (points->back ().y - degrees) > 180)
    points->push_back ({x, nan});
  points->push_back ({x, degrees});
}

double angle_deg (const Attitude &attitude, double vorn::EulerAngles::*angle)
{
  return attitude.known () ? attitude.euler ().*angle * degrees_per_rad : nan;
}

Chart angle_chart (const RunRecord &record, const char *title, double vorn::EulerAngles::*angle)
{
  Chart chart = chart_of (record, title, "degrees");
  chart.series = {{"truth", "truth", {}}, {"estimate", "estimate", {}}};
  for (const AttitudeSample &sample : record.attitudes.samples ()) {
    const double x = record.seconds_since_start (sample.time_ns);
    add_angle (&chart.series[0].points, x, angle_deg (sample.truth, angle));
    add_angle (&chart.series[1].points, x, angle_deg (sample.estimate, angle));
  }
  return chart;
}

Chart error_chart (const RunRecord &record)
{
  Chart chart = chart_of (record, "Angle between estimate and truth", "degrees");
  chart.from_zero = true;
  chart.series = {{"error", "error", {}}};
  for (const AttitudeSample &sample : record.attitudes.samples ()) {
    const auto error_rad = angle_between (sample.estimate, sample.truth);
    chart.series[0].points.push_back ({record.seconds_since_start (sample.time_ns),
                                       error_rad ? *error_rad * degrees_per_rad : nan});
  }
  return chart;
}

Chart interval_chart (const RunRecord &record)
{
  Chart chart = chart_of (record, "Interval between recorded frames", "ms");
  chart.from_zero = true;
  chart.series = {{"interval", "estimate", {}}};
  const Frame *last = nullptr;
  for (const Frame &frame : record.frames) {
    const bool follows = last && last->recording == frame.recording && last->capture_ns;
    if (frame.capture_ns)
      chart.series[0].points.push_back (
          {record.seconds_since_start (*frame.capture_ns),
           follows ? static_cast<double> (*frame.capture_ns - *last->capture_ns) * 1e-6 : nan});
    last = &frame;
  }
  return chart;
}

std::vector<Point> status_points (const RunRecord &record,
                                  std::optional<double> StatusSample::*field)
{
  std::vector<Point> points;
  for (const StatusSample &sample : record.status)
    points.push_back (
        {record.seconds_since_start (sample.time_ns), (sample.*field).value_or (nan)});
  return points;
}

} // namespace

std::vector<Chart> attitude_charts (const RunRecord &record)
{
  return {angle_chart (record, "Roll", &vorn::EulerAngles::roll_rad),
          angle_chart (record, "Pitch", &vorn::EulerAngles::pitch_rad),
          angle_chart (record, "Yaw", &vorn::EulerAngles::yaw_rad), error_chart (record)};
}

std::vector<Chart> stream_charts (const RunRecord &record)
{
  Chart rates = chart_of (record, "Frame rate", "frames per second");
  rates.series = {{"from the camera", "truth", status_points (record, &StatusSample::fps_in)},
                  {"to the stream", "estimate", status_points (record, &StatusSample::fps_out)}};
  Chart latency = chart_of (record, "Latency from capture to stream", "ms");
  latency.series = {{"latency", "error", status_points (record, &StatusSample::latency_ms)}};
  Chart bitrate = chart_of (record, "Bitrate of the stream", "kbit/s");
  bitrate.series = {{"bitrate", "good", status_points (record, &StatusSample::bitrate_kbit_s)}};
  std::vector<Chart> charts = {interval_chart (record), rates, latency, bitrate};
  for (Chart &chart : charts)
    chart.from_zero = true;
  return charts;
}

} // namespace report
