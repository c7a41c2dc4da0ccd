// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What the blackboard costs beside a plain copy of the same bytes. All times are of one thread with
// warm caches; "Live" reads while another thread writes at full speed.
#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "section_scope.hpp"

namespace
{

constexpr VornBlackboardHeader attitude = {16, 2000, 1000, 4};
constexpr uint32_t span = 33; // of 33.4 ms: 34 samples
constexpr size_t span_bytes = (size_t{span} + 1) * 16;

void append (VornBlackboardWriter *writer, uint64_t k)
{
  const uint64_t sample[2] = {k, ~k};
  const auto time = sample_time (k);
  vorn_blackboard_write (writer, sample, &time);
}

void memcpy_sample (benchmark::State &state)
{
  char from[16] = {};
  char to[16];
  for (auto _ : state) {
    benchmark::DoNotOptimize (from);
    memcpy (to, from, sizeof to);
    benchmark::DoNotOptimize (to);
    benchmark::ClobberMemory ();
  }
}
BENCHMARK (memcpy_sample);

void write_sample (benchmark::State &state)
{
  const SectionScope scope;
  VornBlackboardWriter *writer = vorn_blackboard_create ("bench", &attitude);
  const float sample[4] = {0, 0, 0, 1};
  struct timespec time = {1, 0};
  for (auto _ : state) {
    time.tv_nsec += 1000;
    if (time.tv_nsec >= 1000000000)
      time = {time.tv_sec + 1, 0};
    vorn_blackboard_write (writer, sample, &time);
  }
  vorn_blackboard_writer_close (writer);
}
BENCHMARK (write_sample);

void memcpy_span (benchmark::State &state)
{
  // The size is hidden from the compiler, as it is from the blackboard.
  std::vector<char> from (size_t{attitude.sample_size} * attitude.sample_count);
  char to[span_bytes];
  volatile size_t size = span_bytes;
  for (auto _ : state) {
    memcpy (to, from.data () + from.size () / 2, size);
    benchmark::DoNotOptimize (to);
    benchmark::ClobberMemory ();
  }
  state.SetBytesProcessed (static_cast<int64_t> (state.iterations ()) * int64_t{span_bytes});
}
BENCHMARK (memcpy_span);

/** Select, read and end: what a frame's request costs. */
bool read_one_span (VornBlackboardReader *reader, VornBlackboardRevision *revision,
                    const struct timespec &start, char *to)
{
  return vorn_blackboard_select (reader, &start, VORN_BLACKBOARD_SPAN, span) == 0 &&
         vorn_blackboard_read (reader, 0, to, span_bytes) == span + 1 &&
         vorn_blackboard_end_read (reader, revision) == 0;
}

/** age: how many samples lie behind the span. */
void read_span (benchmark::State &state)
{
  const SectionScope scope;
  VornBlackboardWriter *writer = vorn_blackboard_create ("bench", &attitude);
  for (uint64_t k = 0; k < 5000; k++)
    append (writer, k);
  VornBlackboardRevision *revision;
  VornBlackboardReader *reader = vorn_blackboard_open ("bench", &revision);
  // Half a sample after one, as frames are.
  struct timespec start = sample_time (5000 - 1 - span - static_cast<uint64_t> (state.range (0)));
  start.tv_nsec += 500000;
  if (state.range (0) == 0)
    start.tv_nsec -= 500000;
  char to[span_bytes];
  for (auto _ : state) {
    if (!read_one_span (reader, revision, start, to))
      state.SkipWithError ("not all samples");
    benchmark::DoNotOptimize (to);
    benchmark::ClobberMemory ();
  }
  state.SetBytesProcessed (static_cast<int64_t> (state.iterations ()) * int64_t{span_bytes});
  vorn_blackboard_close (reader, revision);
  vorn_blackboard_writer_close (writer);
}
BENCHMARK (read_span)->ArgName ("age")->Arg (0)->Arg (20)->Arg (1900);

/** The same span again and again while another thread appends a sample each microsecond or so. */
void read_span_live (benchmark::State &state)
{
  const SectionScope scope;
  VornBlackboardWriter *writer = vorn_blackboard_create ("bench", &attitude);
  uint64_t k = 0;
  for (; k < 5000; k++)
    append (writer, k);
  std::atomic<uint64_t> newest = k - 1;
  std::atomic<bool> stop = false;
  std::thread other ([&] {
    while (!stop) {
      append (writer, k);
      newest = k++;
      for (int i = 0; i < 1000; i++)
        benchmark::DoNotOptimize (i);
    }
  });
  VornBlackboardRevision *revision;
  VornBlackboardReader *reader = vorn_blackboard_open ("bench", &revision);
  char to[span_bytes];
  int64_t overtaken = 0;
  for (auto _ : state) {
    if (!read_one_span (reader, revision, sample_time (newest - 100), to))
      overtaken++;
    benchmark::DoNotOptimize (to);
    benchmark::ClobberMemory ();
  }
  stop = true;
  other.join ();
  state.counters["overtaken"] =
      benchmark::Counter (static_cast<double> (overtaken), benchmark::Counter::kAvgIterations);
  vorn_blackboard_close (reader, revision);
  vorn_blackboard_writer_close (writer);
}
BENCHMARK (read_span_live);

void read_latest (benchmark::State &state)
{
  const SectionScope scope;
  VornBlackboardWriter *writer = vorn_blackboard_create ("bench", &attitude);
  append (writer, 1);
  VornBlackboardRevision *revision;
  VornBlackboardReader *reader = vorn_blackboard_open ("bench", &revision);
  char to[16];
  for (auto _ : state) {
    vorn_blackboard_select (reader, nullptr, VORN_BLACKBOARD_LATEST, 0);
    vorn_blackboard_read (reader, 0, to, sizeof to);
    vorn_blackboard_end_read (reader, revision);
    benchmark::DoNotOptimize (to);
    benchmark::ClobberMemory ();
  }
  vorn_blackboard_close (reader, revision);
  vorn_blackboard_writer_close (writer);
}
BENCHMARK (read_latest);

} // namespace
