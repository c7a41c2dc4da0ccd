// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The other process of the blackboard and telemetry tests:
//
//   blackboard-helper write SECTION SIZE COUNT FIRST SAMPLES PERIOD_US
//     writes samples of tests/base/sample_pattern.hpp from number FIRST on, SAMPLES of them (0:
//     without end), one every PERIOD_US (0: as fast as it can)
//   blackboard-helper produce SECTION CAPACITY FIRST SAMPLES PERIOD_US VARIABLE...
//     puts telemetry samples; a variable is TYPE:NAME (TYPE as a code) and holds the sample's
//     number
//
// The namespace is the environment's. It prints "ready" after its first sample, goes on, and ends
// in an orderly way at the end of its standard input.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <poll.h>
#include <unistd.h>

#include <vorn/blackboard.h>
#include <vorn/telemetry.h>

#include "sample_pattern.hpp"

namespace
{

/** Whether the standard input ended; waits for that at most so long (-1: as long as it takes). */
bool input_ended (int timeout_ms)
{
  struct pollfd input = {STDIN_FILENO, POLLIN, 0};
  char byte;
  return poll (&input, 1, timeout_ms) == 1 && read (STDIN_FILENO, &byte, 1) <= 0;
}

void run (uint64_t first, uint64_t samples, unsigned period_us,
          const std::function<int (uint64_t k)> &write)
{
  for (uint64_t i = 0; samples == 0 || i < samples; i++) {
    if (write (first + i) != 0)
      exit (2);
    if (i == 0) {
      puts ("ready");
      fflush (stdout);
    }
    if (period_us > 0)
      usleep (period_us);
    // Looking at the input costs more than a write: seldom, when at full speed.
    if ((period_us > 0 || i % 65536 == 0) && input_ended (0))
      return;
  }
  input_ended (-1);
}

int write_section (char **arguments)
{
  const VornBlackboardHeader header = {static_cast<uint32_t> (atoi (arguments[1])),
                                       static_cast<uint32_t> (atoi (arguments[2])), 1000, 4};
  VornBlackboardWriter *writer = vorn_blackboard_create (arguments[0], &header);
  if (!writer)
    return 1;
  std::vector<std::byte> sample (header.sample_size);
  run (strtoull (arguments[3], nullptr, 10), strtoull (arguments[4], nullptr, 10),
       static_cast<unsigned> (atoi (arguments[5])), [&] (uint64_t k) {
         pattern_fill (sample.data (), sample.size (), k);
         const auto time = timespec_of (pattern_time_ns (k));
         return vorn_blackboard_write (writer, sample.data (), &time);
       });
  return vorn_blackboard_writer_close (writer) == 0 ? 0 : 2;
}

struct Value {
  uint32_t type;
  int16_t int16 = 0;
  int32_t int32 = 0;
  float f32 = 0;
  double f64 = 0;
};

int produce (int n_arguments, char **arguments)
{
  VornTelemetryProducer *producer =
      vorn_telemetry_producer_new (arguments[0], static_cast<uint32_t> (atoi (arguments[1])), 1000);
  std::map<std::string, Value> values;
  int result = producer ? 0 : -1;
  for (int i = 5; i < n_arguments; i++) {
    char *name = strchr (arguments[i], ':') + 1;
    Value &value = values[name];
    value.type = static_cast<uint32_t> (atoi (arguments[i]));
    const std::map<uint32_t, std::pair<void *, uint32_t>> places = {
        {VORN_TELEMETRY_INT16, {&value.int16, 2}},
        {VORN_TELEMETRY_INT32, {&value.int32, 4}},
        {VORN_TELEMETRY_F32, {&value.f32, 4}},
        {VORN_TELEMETRY_F64, {&value.f64, 8}},
    };
    const auto &[address, size] = places.at (value.type);
    result |= vorn_telemetry_producer_register (producer, name, value.type, size, 1, address);
  }
  if (result != 0 || vorn_telemetry_producer_complete (producer) != 0)
    return 1;
  run (strtoull (arguments[2], nullptr, 10), strtoull (arguments[3], nullptr, 10),
       static_cast<unsigned> (atoi (arguments[4])), [&] (uint64_t k) {
         for (auto &[name, value] : values) {
           value.int16 = static_cast<int16_t> (k & 0x7fff);
           value.int32 = static_cast<int32_t> (k & 0x7fffffff);
           value.f32 = static_cast<float> (k & 0xffffff);
           value.f64 = static_cast<double> (k);
         }
         const auto time = timespec_of (pattern_time_ns (k));
         return vorn_telemetry_producer_put (producer, &time);
       });
  return vorn_telemetry_producer_destroy (producer) == 0 ? 0 : 2;
}

} // namespace

int main (int argc, char **argv)
{
  if (argc == 8 && strcmp (argv[1], "write") == 0)
    return write_section (argv + 2);
  if (argc >= 8 && strcmp (argv[1], "produce") == 0)
    return produce (argc - 2, argv + 2);
  fprintf (stderr, "usage: see the source\n");
  return 64;
}
