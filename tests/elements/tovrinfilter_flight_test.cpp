// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The filter on what the desk simulator's camera films: its renderer, its hardest flight.
#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "filter_rig.hpp"
#include "flight.hpp"
#include "horizon.hpp"
#include "renderer.hpp"
#include "world.hpp"

using namespace scene;

namespace
{

constexpr uint32_t width = 640;
constexpr uint32_t height = 360;
constexpr double bound_deg = 0.2;
constexpr int64_t frame_ns = 1'000'000'000LL * 1001 / 24000;
constexpr int n_frames = 480; // 20 s: the camera often looks below the horizon

/** The angle of the line between sky and ground, degrees; NaN when there is none. */
double horizon_angle_deg (const Image &picture)
{
  const auto grey = [&] (int x, int y) {
    const uint8_t *p = picture.at (x, y);
    return (p[0] + p[1] + p[2]) / 3.0;
  };
  double n = 0, sx = 0, sy = 0, sxx = 0, sxy = 0;
  for (int x = 0; x < picture.width; x++) {
    const auto row = find_horizon_row ([&] (int y) { return grey (x, y); }, picture.height);
    if (!row)
      continue;
    n++;
    sx += x;
    sy += *row;
    sxx += x * x;
    sxy += x * *row;
  }
  return n < picture.width / 2.0 ? NAN
                                 : std::atan ((n * sxy - sx * sy) / (n * sxx - sx * sx)) / deg;
}

struct Result {
  double largest_input_deg = 0;
  double largest_output_deg = 0;
  int frames = 0; // with a horizon before and behind the filter
};

/** The seconds of the flight in which it turns hardest are not known beforehand: all are tried. */
class AggressiveFlight : public testing::Test
{
protected:
  std::array<double, 4> attitude_at (int64_t ns) const
  {
    const sim::Quat q = flight_->at (static_cast<double> (ns) * 1e-9).attitude;
    return {q.x, q.y, q.z, q.w};
  }

  /** The samples of the gyroscope's grid, of the span of this much earlier. */
  vorn::OwnedStructure answer (GstClockTime start, GstClockTime stop, int64_t late_ns,
                               bool inverted) const
  {
    std::vector<std::array<double, 4>> samples;
    const auto first = static_cast<int64_t> (start) / 1'000'000 * 1'000'000;
    for (int64_t t = first; t <= static_cast<int64_t> (stop); t += 1'000'000) {
      auto q = attitude_at (t - late_ns);
      if (inverted)
        q[3] = -q[3];
      samples.push_back (q);
    }
    return make_imu_data (samples);
  }

  Result fly (int64_t late_ns = 0, bool inverted = false)
  {
    sim::Renderer renderer (sim::make_bare_world (1));
    const sim::CameraSensor sensor;
    FilterRig rig (width, height);
    rig.set_answer ([=, this] (GstClockTime start, GstClockTime stop) {
      return answer (start, stop, late_ns, inverted);
    });
    sim::Shot shot = {};
    shot.geometry =
        sim::picture_geometry (sensor, {0, 0, sensor.width, sensor.height}, width, height);
    shot.exposure_ns = sensor.exposure_ns;
    Result result;
    std::vector<uint8_t> rgb (size_t{3} * width * height);
    for (int i = 0; i < n_frames; i++) {
      shot.capture_ns = 2'000'000'000 + i * frame_ns;
      renderer.render (
          shot,
          [this] (int64_t ns) {
            const sim::Vec3 &place = flight_->at (static_cast<double> (ns) * 1e-9).position_m;
            return sim::CameraPose{{place.x, place.y, place.z - 60}, attitude_at (ns)};
          },
          rgb.data (), size_t{3} * width);
      Image filmed (width, height);
      for (size_t p = 0; p < size_t{width} * height; p++)
        std::copy_n (&rgb[3 * p], 3, &filmed.pixels[4 * p]);
      const Image shown = rig.run (filmed, FrameTimes{static_cast<GstClockTime> (shot.capture_ns),
                                                      static_cast<GstClockTime> (shot.exposure_ns),
                                                      0, sensor.horizontal_fov_rad});
      const double before = horizon_angle_deg (filmed);
      const double behind = horizon_angle_deg (shown);
      if (std::isnan (before) || std::isnan (behind))
        continue;
      result.largest_input_deg = std::max (result.largest_input_deg, std::abs (before));
      result.largest_output_deg = std::max (result.largest_output_deg, std::abs (behind));
      result.frames++;
    }
    return result;
  }

private:
  std::unique_ptr<sim::Flight> flight_ = sim::make_named_flight ("aggressive", 1);
};

} // namespace

TEST_F (AggressiveFlight, ComesOutLevel)
{
  const Result result = fly ();
  EXPECT_GT (result.frames, 60);
  EXPECT_GT (result.largest_input_deg, 10);
  EXPECT_LT (result.largest_output_deg, bound_deg);
  RecordProperty ("largest_input_mdeg", static_cast<int> (1000 * result.largest_input_deg));
  RecordProperty ("largest_output_mdeg", static_cast<int> (1000 * result.largest_output_deg));
  RecordProperty ("frames", result.frames);
}

TEST_F (AggressiveFlight, AttitudesOf50MillisecondsBeforeShow)
{
  EXPECT_GT (fly (50'000'000).largest_output_deg, 5 * bound_deg);
}

TEST_F (AggressiveFlight, InvertedAttitudesShow)
{
  EXPECT_GT (fly (0, true).largest_output_deg, 5 * bound_deg);
}
