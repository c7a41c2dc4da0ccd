// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What an answer about the attitudes of a frame costs, by the frame's span in milliseconds.
#include <benchmark/benchmark.h>

#include "../base/section_scope.hpp"
#include "accurate_attitude.hpp"
#include "vorn_tovrin_shdata_provider.hpp"
#include <vorn/gst_raii.hpp>

namespace
{

void BM_get_attitude (benchmark::State &state)
{
  gst_init (nullptr, nullptr);
  const SectionScope scope;
  const vorn::Owned<VornBlackboardWriter, vorn_blackboard_writer_close> writer (
      vorn_blackboard_create (accurate_attitude_section, &accurate_attitude_header));
  constexpr uint64_t samples = 3000;
  for (uint64_t k = 0; k < samples; k++) {
    const quat_t attitude = {0, 0, 0, 1};
    const timespec time = sample_time (k);
    vorn_blackboard_write (writer.get (), &attitude, &time);
  }
  const auto provider = vorn::adopt (vorn_tovrin_shdata_provider_new ());
  const auto span_ns = static_cast<GstClockTime> (state.range (0)) * GST_MSECOND;
  const GstClockTime stop = (samples - 10) * GST_MSECOND;
  for (auto _ : state) {
    const vorn::OwnedStructure answer (vorn_tovrin_provider_get_attitude (
        VORN_TOVRIN_PROVIDER (provider.get ()), stop - span_ns, stop));
    if (!answer)
      state.SkipWithError ("no answer");
  }
}
BENCHMARK (BM_get_attitude)->Arg (0)->Arg (20)->Arg (33);

} // namespace
