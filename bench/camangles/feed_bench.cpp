// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Time per gyro sample, fed and drained, beside two measures taken in the same run: the floor
// (floor.h) and a stack of well-known libraries (stack.hpp). "factor" is the resampling factor,
// "filter" whether the exposure filter is active (exposure 1/300 s at 1 kHz: cut-off 150 Hz).
// Compare the medians of one run:
//   bench-camangles-feed --benchmark_repetitions=9 --benchmark_enable_random_interleaving=true
#include <malloc.h>

#include <array>
#include <cmath>
#include <memory>
#include <vector>

#include <benchmark/benchmark.h>
#include <camangles/camera_angles.h>
#include <camangles/filters.h>

#include "floor.h"
#include "stack.hpp"

namespace
{

constexpr float rate_hz = 1000.0f;
constexpr float exposure_s = 1.0f / 300.0f;
constexpr size_t n_samples = 4096;

struct Closer {
  void operator() (cameraAngles_t *context) const { cameraAngles_Close (context); }
};
using Context = std::unique_ptr<cameraAngles_t, Closer>;

/** A handheld shake of some rad/s, different on each axis. */
std::array<std::vector<float>, 3> make_rates ()
{
  std::array<std::vector<float>, 3> rates;
  for (size_t axis = 0; axis < 3; axis++)
    for (size_t i = 0; i < n_samples; i++) {
      const auto t = static_cast<float> (i);
      const auto a = static_cast<float> (axis);
      rates[axis].push_back (1.5f * std::sin (0.02f * t + a) +
                             0.3f * std::sin (0.9f * t * (a + 1)));
    }
  return rates;
}

unsigned log2_of (int64_t factor)
{
  return static_cast<unsigned> (std::lround (std::log2 (factor)));
}

void feed (benchmark::State &state)
{
  const auto factor = static_cast<size_t> (state.range (0));
  const float duration = state.range (1) ? exposure_s : 0.0f;
  const auto rates = make_rates ();
  Context context (cameraAngles_New (log2_of (state.range (0)), rate_hz));
  std::vector<quat_t> attitudes (1024 * factor);
  std::vector<uint64_t> timestamps (1024 * factor);
  uint64_t i = 0;
  for ([[maybe_unused]] auto _ : state) {
    const size_t slot = i % n_samples;
    cameraAngles_Feed (context.get (), nullptr, i++, rates[0][slot], rates[1][slot], rates[2][slot],
                       duration);
    auto count = static_cast<int32_t> (attitudes.size ());
    cameraAngles_GetAnglesBuffer (context.get (), attitudes.data (), timestamps.data (), &count);
    benchmark::ClobberMemory ();
  }
}

/** As feed, with a reference attitude at every sample. */
void feed_referenced (benchmark::State &state)
{
  const auto factor = static_cast<size_t> (state.range (0));
  const auto rates = make_rates ();
  Context context (cameraAngles_New (log2_of (state.range (0)), rate_hz));
  std::vector<quat_t> attitudes (1024 * factor);
  const quat_t reference = {0.0f, 0.0f, 0.0f, 1.0f};
  uint64_t i = 0;
  for ([[maybe_unused]] auto _ : state) {
    const size_t slot = i % n_samples;
    cameraAngles_Feed (context.get (), &reference, i++, rates[0][slot], rates[1][slot],
                       rates[2][slot], 0.0f);
    auto count = static_cast<int32_t> (attitudes.size ());
    cameraAngles_GetAnglesBuffer (context.get (), attitudes.data (), nullptr, &count);
    benchmark::ClobberMemory ();
  }
}

void floor_of_feed (benchmark::State &state)
{
  const auto factor = static_cast<size_t> (state.range (0));
  const bool filtered = state.range (1) != 0;
  const auto rates = make_rates ();
  const size_t window = 10;
  float a[3], b[3];
  uint32_t length = 0;
  designIirButter2LowPass (a, b, 2 * 150.0f / rate_hz);
  IitButter2_impzlength (&length, 2 * 150.0f / rate_hz);

  std::array<std::vector<float>, 3> filtered_rates, resampled;
  for (size_t axis = 0; axis < 3; axis++) {
    filtered_rates[axis].resize (FLOOR_MAX_WINDOW);
    resampled[axis].resize (factor);
  }
  float *const filter_output[3] = {filtered_rates[0].data (), filtered_rates[1].data (),
                                   filtered_rates[2].data ()};
  float *const resample_output[3] = {resampled[0].data (), resampled[1].data (),
                                     resampled[2].data ()};
  const float angle = 0.0005f;
  const std::vector<quat_t> steps (factor, {std::sin (angle), 0.0f, 0.0f, std::cos (angle)});
  std::vector<quat_t> attitudes (factor);
  quat_t attitude = {0.0f, 0.0f, 0.0f, 1.0f};
  size_t i = 0;
  for ([[maybe_unused]] auto _ : state) {
    const size_t slot = i++ % (n_samples - 128);
    const float *const input[3] = {&rates[0][slot], &rates[1][slot], &rates[2][slot]};
    if (filtered && i % window == 0)
      floor_filter (a, b, window + length, length, input, filter_output);
    if (factor > 1)
      floor_resample (factor, input, resample_output);
    floor_attitudes (&attitude, steps.data (), attitudes.data (), factor);
    benchmark::ClobberMemory ();
  }
}

void library_stack (benchmark::State &state)
{
  const auto factor = static_cast<unsigned> (state.range (0));
  const auto rates = make_rates ();
  LibraryStack stack (factor, rate_hz, state.range (1) ? 150.0f / rate_hz : 0.0f);
  std::vector<float> attitudes (4 * static_cast<size_t> (factor));
  size_t i = 0;
  for ([[maybe_unused]] auto _ : state) {
    const size_t slot = i++ % n_samples;
    stack.feed (rates[0][slot], rates[1][slot], rates[2][slot], attitudes.data ());
    benchmark::ClobberMemory ();
  }
}

size_t heap_bytes ()
{
  const auto info = mallinfo2 ();
  return info.uordblks + info.hblkhd;
}

void new_and_close (benchmark::State &state)
{
  const unsigned log2_factor = log2_of (state.range (0));
  for ([[maybe_unused]] auto _ : state)
    Context (cameraAngles_New (log2_factor, rate_hz));
  const size_t before = heap_bytes ();
  Context context (cameraAngles_New (log2_factor, rate_hz));
  state.counters["bytes_per_context"] = static_cast<double> (heap_bytes () - before);
}

void factors_and_filter (benchmark::internal::Benchmark *benchmark)
{
  benchmark->ArgNames ({"factor", "filter"})->Args ({1, 0})->Args ({1, 1});
  benchmark->Args ({8, 0})->Args ({128, 0});
}

BENCHMARK (feed)->Apply (factors_and_filter);
BENCHMARK (floor_of_feed)->Apply (factors_and_filter);
BENCHMARK (library_stack)->Apply (factors_and_filter);
BENCHMARK (feed_referenced)->ArgName ("factor")->Arg (1)->Arg (8)->Arg (128);
BENCHMARK (new_and_close)->ArgName ("factor")->RangeMultiplier (2)->Range (1, 128);

} // namespace
