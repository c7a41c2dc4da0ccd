// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What one instant of a flight costs, and one gyro sample on its way to a client.
#include <benchmark/benchmark.h>

#include "drone.hpp"

namespace
{

using namespace sim;

void BM_flight_state (benchmark::State &state, const char *name)
{
  const auto flight = make_named_flight (name, 1);
  double t = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize (flight->at (t));
    t += 1e-3;
  }
}
BENCHMARK_CAPTURE (BM_flight_state, hover, "hover");
BENCHMARK_CAPTURE (BM_flight_state, survey, "survey");
BENCHMARK_CAPTURE (BM_flight_state, aggressive, "aggressive");

/** A block of five samples: sensor, layout, protocol. */
void BM_gyro_block (benchmark::State &state)
{
  Drone drone;
  drone.flight = make_named_flight ("aggressive", 1);
  const auto source = make_camera_imu_source (drone, GyroModel (), 1000, 0);
  IioShared shared;
  IioSession session (source, shared);
  session.receive ("SETTRIG iio:device0 trigger0\r\nOPEN iio:device0 5 0000000f\r\n", 0);
  int64_t now_ns = 0;
  for (auto _ : state) {
    now_ns += 5'000'000;
    session.output ().clear ();
    session.receive ("READBUF iio:device0 80\r\n", now_ns);
    benchmark::DoNotOptimize (session.output ());
  }
}
BENCHMARK (BM_gyro_block);

} // namespace
