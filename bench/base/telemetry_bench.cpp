// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Six f32 over the telemetry bus, as the front view's bridge sends them, beside the blackboard's
// own cost for the same 24 bytes.
#include <benchmark/benchmark.h>

#include <vorn/telemetry.h>

#include "section_scope.hpp"

namespace
{

constexpr VornBlackboardHeader six_floats = {24, 120, 120, 8333};

/** In memory the fields of view come first, on the bus last. */
struct Record {
  float hfov = 1;
  float vfov = 2;
  float q_w = 3;
  float q_x = 4;
  float q_y = 5;
  float q_z = 6;
};

VornTelemetryProducer *make_producer (const Record &record)
{
  VornTelemetryProducer *producer = vorn_telemetry_producer_new ("bench", 120, 8333);
  const std::pair<const char *, const float *> variables[] = {
      {"q_w", &record.q_w}, {"q_x", &record.q_x},   {"q_y", &record.q_y},
      {"q_z", &record.q_z}, {"hfov", &record.hfov}, {"vfov", &record.vfov}};
  for (const auto &[name, address] : variables)
    vorn_telemetry_producer_register (producer, name, VORN_TELEMETRY_F32, 4, 1, address);
  if (vorn_telemetry_producer_complete (producer) != 0)
    abort ();
  return producer;
}

void advance (struct timespec &time)
{
  time.tv_nsec += 1000;
  if (time.tv_nsec >= 1000000000)
    time = {time.tv_sec + 1, 0};
}

void blackboard_write (benchmark::State &state)
{
  const SectionScope scope;
  VornBlackboardWriter *writer = vorn_blackboard_create ("bench", &six_floats);
  const Record record;
  struct timespec time = {1, 0};
  for (auto _ : state) {
    advance (time);
    vorn_blackboard_write (writer, &record, &time);
  }
  vorn_blackboard_writer_close (writer);
}
BENCHMARK (blackboard_write);

void telemetry_put (benchmark::State &state)
{
  const SectionScope scope;
  const Record record;
  VornTelemetryProducer *producer = make_producer (record);
  struct timespec time = {1, 0};
  for (auto _ : state) {
    advance (time);
    vorn_telemetry_producer_put (producer, &time);
  }
  vorn_telemetry_producer_destroy (producer);
}
BENCHMARK (telemetry_put);

/** 0: the latest; 1: the one valid at a time, a few samples before the newest. */
void blackboard_read (benchmark::State &state)
{
  const SectionScope scope;
  VornBlackboardWriter *writer = vorn_blackboard_create ("bench", &six_floats);
  Record record;
  for (uint64_t k = 0; k < 500; k++) {
    const auto time = sample_time (k * 8);
    vorn_blackboard_write (writer, &record, &time);
  }
  VornBlackboardRevision *revision;
  VornBlackboardReader *reader = vorn_blackboard_open ("bench", &revision);
  const auto time = sample_time (480 * 8);
  const auto method = static_cast<uint32_t> (state.range (0));
  for (auto _ : state) {
    vorn_blackboard_select (reader, &time, method, 0);
    if (vorn_blackboard_read (reader, 0, &record, sizeof record) != 1 ||
        vorn_blackboard_end_read (reader, revision) != 0)
      state.SkipWithError ("no sample");
    benchmark::DoNotOptimize (record);
  }
  vorn_blackboard_close (reader, revision);
  vorn_blackboard_writer_close (writer);
}
BENCHMARK (blackboard_read)->ArgName ("method")->Arg (0)->Arg (1);

void telemetry_get (benchmark::State &state)
{
  const SectionScope scope;
  const Record record;
  VornTelemetryProducer *producer = make_producer (record);
  for (uint64_t k = 0; k < 500; k++) {
    const auto time = sample_time (k * 8);
    vorn_telemetry_producer_put (producer, &time);
  }
  Record got;
  const VornTelemetryEntry entries[] = {
      {"bench.q_w", VORN_TELEMETRY_F32, 4, 1, &got.q_w},
      {"bench.q_x", VORN_TELEMETRY_F32, 4, 1, &got.q_x},
      {"bench.q_y", VORN_TELEMETRY_F32, 4, 1, &got.q_y},
      {"bench.q_z", VORN_TELEMETRY_F32, 4, 1, &got.q_z},
      {"bench.hfov", VORN_TELEMETRY_F32, 4, 1, &got.hfov},
      {"bench.vfov", VORN_TELEMETRY_F32, 4, 1, &got.vfov},
  };
  VornTelemetryConsumer *consumer = vorn_telemetry_consumer_new ();
  vorn_telemetry_consumer_register (consumer, entries, std::size (entries));
  vorn_telemetry_consumer_complete (consumer);
  const auto time = sample_time (480 * 8);
  const auto method = static_cast<uint32_t> (state.range (0));
  for (auto _ : state) {
    if (vorn_telemetry_consumer_get (consumer, &time, method) != 0)
      state.SkipWithError ("no sample");
    benchmark::DoNotOptimize (got);
  }
  vorn_telemetry_consumer_destroy (consumer);
  vorn_telemetry_producer_destroy (producer);
}
BENCHMARK (telemetry_get)->ArgName ("method")->Arg (0)->Arg (1);

} // namespace
