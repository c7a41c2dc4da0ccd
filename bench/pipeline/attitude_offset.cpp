// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// How far apart picture and attitude are in time: the horizon's angle in raw frames of the
// simulated camera, against the angle that the true attitude gives at each frame's capture time.
// What is late by dt shows a difference of dt times the angle's rate, so dt is the slope of one
// over the other.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include <gst/app/gstappsink.h>
#include <gst/gst.h>

#include "horizon.hpp"
#include <vorn/frame_meta.h>
#include <vorn/framework.h>
#include <vorn/gst_raii.hpp>
#include <vorn/telemetry.h>

namespace
{

constexpr int width = 1280;
constexpr int height = 720;
constexpr double deg = G_PI / 180;
/** Landmarks cover the horizon in places: columns that lie farther from the line are not of it. */
constexpr double outlier_pixels = 1.5;
constexpr double shift_s = 0.005;

using Consumer = vorn::Owned<VornTelemetryConsumer, vorn_telemetry_consumer_destroy>;

struct Line {
  double offset;
  double slope;
  double at (double x) const { return offset + slope * x; }
};

struct Point {
  double x, y;
};

Line fit (const std::vector<Point> &points)
{
  double n = 0, sx = 0, sy = 0, sxx = 0, sxy = 0;
  for (const Point &p : points) {
    n++;
    sx += p.x;
    sy += p.y;
    sxx += p.x * p.x;
    sxy += p.x * p.y;
  }
  const double slope = (n * sxy - sx * sy) / (n * sxx - sx * sx);
  return {(sy - slope * sx) / n, slope};
}

/** The angle of the horizon in a frame, radians; none when it is not in enough of its columns. */
std::optional<double> horizon_angle (const uint8_t *pixels, size_t stride)
{
  std::vector<Point> points;
  for (int x = 0; x < width; x += 2) {
    const auto grey = [&] (int y) {
      const uint8_t *p = pixels + static_cast<size_t> (y) * stride + 3 * static_cast<size_t> (x);
      return (p[0] + p[1] + p[2]) / 3.0;
    };
    if (const auto row = scene::find_horizon_row (grey, height))
      points.push_back ({static_cast<double> (x), *row});
  }
  const size_t least = width / 2 * 6 / 10;
  for (double limit = 64; points.size () >= least; limit /= 2) {
    const Line line = fit (points);
    if (limit < outlier_pixels)
      return std::atan (line.slope);
    std::erase_if (points, [&] (const Point &p) { return std::abs (p.y - line.at (p.x)) > limit; });
  }
  return std::nullopt;
}

/** The true attitude of the simulated camera at any moment of the last seconds. */
class Truth
{
public:
  Truth ()
  {
    const VornTelemetryEntry entries[] = {
        {"truth.time_s", VORN_TELEMETRY_F64, 8, 1, &sample_.time_s},
        {"truth.q_x", VORN_TELEMETRY_F64, 8, 1, &sample_.q[0]},
        {"truth.q_y", VORN_TELEMETRY_F64, 8, 1, &sample_.q[1]},
        {"truth.q_z", VORN_TELEMETRY_F64, 8, 1, &sample_.q[2]},
        {"truth.q_w", VORN_TELEMETRY_F64, 8, 1, &sample_.q[3]},
    };
    vorn_telemetry_consumer_register (consumer_.get (), entries, G_N_ELEMENTS (entries));
    vorn_telemetry_consumer_complete (consumer_.get ());
  }

  /** The angle of the horizon in the picture, radians, ns of CLOCK_MONOTONIC. */
  std::optional<double> horizon_angle (int64_t ns)
  {
    const auto before = get (ns, VORN_TELEMETRY_VALID_AT);
    const auto after = get (ns + 1, VORN_TELEMETRY_FIRST_NOT_BEFORE);
    if (!before || !after || !find_start (ns, *before))
      return std::nullopt;
    const double time_s = static_cast<double> (ns - start_ns_) * 1e-9;
    const double part = (time_s - before->time_s) / (after->time_s - before->time_s);
    // Between samples of a millisecond the angle is a straight line.
    return angle_of (*before) * (1 - part) + angle_of (*after) * part;
  }

private:
  struct Sample {
    double time_s;
    double q[4]; // x, y, z, w: camera (forward, right, down) to NED
  };

  std::optional<Sample> get (int64_t ns, uint32_t method)
  {
    const timespec time = {ns / 1'000'000'000, ns % 1'000'000'000};
    if (vorn_telemetry_consumer_get (consumer_.get (), &time, method) != 0)
      return std::nullopt;
    return sample_;
  }

  /** When the drone's own time began: the moment from which on this sample is the valid one. */
  bool find_start (int64_t ns, const Sample &valid)
  {
    if (start_ns_ != 0)
      return true;
    int64_t out = ns - 10'000'000, in = ns;
    while (in - out > 1) {
      const int64_t middle = out + (in - out) / 2;
      const auto sample = get (middle, VORN_TELEMETRY_VALID_AT);
      if (!sample)
        return false;
      (sample->time_s == valid.time_s ? in : out) = middle;
    }
    start_ns_ = in - std::llround (valid.time_s * 1e9);
    return true;
  }

  /** Points of the horizon are seen along directions that are level in NED. */
  static double angle_of (const Sample &sample)
  {
    const auto [x, y, z, w] = sample.q;
    const double down_right = 2 * (y * z + w * x);
    const double down_down = 1 - 2 * (x * x + y * y);
    return std::atan (-down_right / down_down);
  }

  Sample sample_ = {};
  Consumer consumer_{vorn_telemetry_consumer_new ()};
  int64_t start_ns_ = 0;
};

struct Comparison {
  std::vector<Point> differences; // over the angle's rate
  bool add (Truth &truth, double seen, int64_t ns)
  {
    constexpr int64_t step_ns = 1'000'000;
    const auto now = truth.horizon_angle (ns);
    const auto before = truth.horizon_angle (ns - step_ns);
    const auto after = truth.horizon_angle (ns + step_ns);
    if (!now || !before || !after)
      return false;
    differences.push_back ({(*after - *before) / (2e-9 * step_ns), seen - *now});
    return true;
  }
  double rms (const Line &line) const
  {
    double sum = 0;
    for (const Point &p : differences)
      sum += std::pow (p.y - line.at (p.x), 2);
    return std::sqrt (sum / static_cast<double> (differences.size ()));
  }
  double largest_rate () const
  {
    double largest = 0;
    for (const Point &p : differences)
      largest = std::max (largest, std::abs (p.x));
    return largest;
  }
  /** Of the slope. */
  double standard_error (const Line &line) const
  {
    double mean = 0, sum = 0;
    for (const Point &p : differences)
      mean += p.x / static_cast<double> (differences.size ());
    for (const Point &p : differences)
      sum += std::pow (p.x - mean, 2);
    return rms (line) / std::sqrt (sum);
  }
};

/** When the middle of a frame's exposure was; rows are exposed together. */
std::optional<int64_t> middle_of_exposure (GstBuffer *buffer)
{
  const VornFrameMeta *meta = vorn_frame_meta_get (buffer);
  guint64 capture_ns = 0, exposure_ns = 0;
  if (!meta ||
      !gst_structure_get_uint64 (meta->structure, VORN_FRAME_META_CAPTURE_TIMESTAMP, &capture_ns) ||
      !gst_structure_get_uint64 (meta->structure, "exposure-ns", &exposure_ns))
    return std::nullopt;
  return static_cast<int64_t> (capture_ns + exposure_ns / 2);
}

int fail (const std::string &reason)
{
  fprintf (stderr, "attitude-offset: %s\n", reason.c_str ());
  return 1;
}

} // namespace

int main (int argc, char **argv)
{
  if (argc != 4) {
    puts ("usage: attitude-offset ELEMENTS-FOLDER CAMERA-SOCKET FRAMES\n\n"
          "Prints how late frames are against the attitude, as JSON, and what comes out when the\n"
          "attitude is taken 5 ms late. The instance is $VORN_NAMESPACE's; its rows are exposed "
          "together.");
    return 2;
  }
  vorn_framework_init (nullptr, nullptr);
  gst_registry_scan_path (gst_registry_get (), argv[1]);
  const std::string description = std::string ("kavrel_morviksrc source=unix:") + argv[2] +
                                  " ! video/x-raw,format=RGB,width=" + std::to_string (width) +
                                  ",height=" + std::to_string (height) +
                                  " ! appsink name=frames sync=false";
  vorn::ErrorOut error;
  const auto pipeline = vorn::adopt (gst_parse_launch (description.c_str (), error.out ()));
  if (!pipeline || error)
    return fail (error.message ());
  const auto sink = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), "frames"));
  gst_element_set_state (pipeline.get (), GST_STATE_PLAYING);

  Truth truth;
  Comparison exact, shifted;
  const long frames = strtol (argv[3], nullptr, 10);
  long seen_frames = 0;
  for (; seen_frames < frames; seen_frames++) {
    const auto frame =
        vorn::adopt (gst_app_sink_try_pull_sample (GST_APP_SINK (sink.get ()), 5 * GST_SECOND));
    if (!frame)
      break;
    GstBuffer *buffer = gst_sample_get_buffer (frame.get ());
    const auto middle_ns = middle_of_exposure (buffer);
    const vorn::BufferMap map (buffer, GST_MAP_READ);
    if (!middle_ns || !map)
      continue;
    const auto angle = horizon_angle (map.data (), size_t{3} * width);
    if (angle && exact.add (truth, *angle, *middle_ns))
      shifted.add (truth, *angle, *middle_ns - static_cast<int64_t> (shift_s * 1e9));
  }
  gst_element_set_state (pipeline.get (), GST_STATE_NULL);
  if (exact.differences.size () < 30 || shifted.differences.size () < 30)
    return fail ("too few of " + std::to_string (seen_frames) +
                 " frames show the horizon: " + std::to_string (exact.differences.size ()));
  const Line line = fit (exact.differences);
  const Line late = fit (shifted.differences);
  printf ("{\"frames\": %ld, \"with_horizon\": %zu, \"largest_rate_deg_s\": %.1f, "
          "\"offset_ms\": %.4f, \"standard_error_ms\": %.4f, \"residual_rms_deg\": %.4f, "
          "\"offset_with_attitude_5_ms_late_ms\": %.4f}\n",
          seen_frames, exact.differences.size (), exact.largest_rate () / deg, -line.slope * 1e3,
          exact.standard_error (line) * 1e3, exact.rms (line) / deg, -late.slope * 1e3);
  return 0;
}
