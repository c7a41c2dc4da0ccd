// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Reading a property and comparing its value, as the front view does for every frame.
#include <cstring>
#include <string>

#include <benchmark/benchmark.h>

#include <vorn/properties.h>

namespace
{

/** A store of the size that a product's configuration has. */
void fill_store ()
{
  for (int i = 0; i < 40; i++)
    vorn_property_set (("persist.example.property-" + std::to_string (i)).c_str (), "some value");
  vorn_property_set ("ro.with-front-cam", "1");
}

bool with_front_cam ()
{
  char value[8];
  vorn_property_get ("ro.with-front-cam", value, sizeof value, "0");
  return strcmp (value, "1") == 0;
}

void BM_property_read_and_compare (benchmark::State &state)
{
  if (state.thread_index () == 0)
    fill_store ();
  for (auto _ : state)
    benchmark::DoNotOptimize (with_front_cam ());
}
BENCHMARK (BM_property_read_and_compare)->Threads (1)->Threads (2)->Threads (4)->UseRealTime ();

/** One thread writes without pause, the others read: far beyond any real use. */
void BM_property_read_beside_a_writer (benchmark::State &state)
{
  if (state.thread_index () == 0)
    fill_store ();
  const bool writer = state.thread_index () == 0;
  for (auto _ : state) {
    if (writer)
      vorn_property_set ("ro.with-front-cam", "1");
    else
      benchmark::DoNotOptimize (with_front_cam ());
  }
}
BENCHMARK (BM_property_read_beside_a_writer)->Threads (2)->UseRealTime ();

/** What the comparison costs without the store. */
void BM_compare_only (benchmark::State &state)
{
  char value[8] = "1";
  for (auto _ : state) {
    benchmark::DoNotOptimize (value);
    benchmark::DoNotOptimize (strcmp (value, "1") == 0);
  }
}
BENCHMARK (BM_compare_only);

} // namespace
