// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What a picture costs: ms a frame on one core, and what that is of a core at 30 frames per second.
// Beside it, for scale: writing a picture of that size without computing anything.
#include <array>
#include <cmath>
#include <cstring>
#include <memory>
#include <numbers>
#include <vector>

#include <benchmark/benchmark.h>

#include "renderer.hpp"

namespace
{

constexpr double degree = std::numbers::pi / 180;

std::shared_ptr<const sim::World> world ()
{
  static const auto made = sim::make_world (1);
  return made;
}

/** Pitch first, in degrees; a little roll and yaw, as in flight, with a turn of 60 degrees a
 * second. */
sim::CameraMotion flying (double pitch, double height_m)
{
  return [=] (int64_t ns) {
    const double half = degree / 2;
    const double yaw = 30 + 60e-9 * static_cast<double> (ns);
    auto q = sim::compose ({0, 0, std::sin (yaw * half), std::cos (yaw * half)},
                           {0, std::sin (pitch * half), 0, std::cos (pitch * half)});
    q = sim::compose (q, {std::sin (5 * half), 0, 0, std::cos (5 * half)});
    return sim::CameraPose{{3, 4, -height_m}, q};
  };
}

void render (benchmark::State &state, uint32_t width, uint32_t height, double pitch,
             double height_m, int64_t readout_ns, int sub_exposures)
{
  sim::Renderer renderer (world ());
  const sim::CameraSensor sensor;
  sim::Shot shot = {};
  shot.geometry =
      sim::picture_geometry (sensor, {0, 0, sensor.width, sensor.height}, width, height);
  shot.exposure_ns = 2'000'000;
  shot.readout_ns = readout_ns;
  shot.sub_exposures = sub_exposures;
  const auto motion = flying (pitch, height_m);
  std::vector<uint8_t> pixels (3 * size_t{width} * height);
  for (auto _ : state) {
    renderer.render (shot, motion, pixels.data (), 3 * size_t{width});
    benchmark::ClobberMemory ();
    shot.capture_ns += 33'333'333;
  }
  state.SetItemsProcessed (state.iterations ());
  // The inverse of a rate, in seconds: times 30 it is the share of a core.
  state.counters["core_at_30_fps"] =
      benchmark::Counter (static_cast<double> (state.iterations ()) / 30,
                          benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_LookingAhead (benchmark::State &state)
{
  render (state, 1280, 720, -10, 30, 0, 1);
}

void BM_LookingAheadRollingShutter (benchmark::State &state)
{
  render (state, 1280, 720, -10, 30, 10'000'000, 1);
}

void BM_LookingAheadBlurredFourTimes (benchmark::State &state)
{
  render (state, 1280, 720, -10, 30, 10'000'000, 4);
}

void BM_LookingDown (benchmark::State &state)
{
  render (state, 1280, 720, -85, 30, 0, 1);
}

void BM_LookingDownFromTwoMetres (benchmark::State &state)
{
  render (state, 1280, 720, -85, 2, 0, 1);
}

void BM_LookingUp (benchmark::State &state)
{
  render (state, 1280, 720, 45, 30, 0, 1);
}

void BM_LookingAheadFullHd (benchmark::State &state)
{
  render (state, 1920, 1080, -10, 30, 0, 1);
}

void BM_WritingAPicture (benchmark::State &state)
{
  std::vector<uint8_t> pixels (3 * size_t{1280} * 720);
  int value = 0;
  for (auto _ : state) {
    memset (pixels.data (), value++, pixels.size ());
    benchmark::ClobberMemory ();
  }
}

} // namespace

BENCHMARK (BM_LookingAhead)->Unit (benchmark::kMillisecond);
BENCHMARK (BM_LookingAheadRollingShutter)->Unit (benchmark::kMillisecond);
BENCHMARK (BM_LookingAheadBlurredFourTimes)->Unit (benchmark::kMillisecond);
BENCHMARK (BM_LookingDown)->Unit (benchmark::kMillisecond);
BENCHMARK (BM_LookingDownFromTwoMetres)->Unit (benchmark::kMillisecond);
BENCHMARK (BM_LookingUp)->Unit (benchmark::kMillisecond);
BENCHMARK (BM_LookingAheadFullHd)->Unit (benchmark::kMillisecond);
BENCHMARK (BM_WritingAPicture)->Unit (benchmark::kMillisecond);
