// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What a frame's SEI unit costs: with all three messages (sync frames), with the picture timing
// alone (all others), and beside them a plain copy of the same bytes.
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <benchmark/benchmark.h>

#include <vorn/framework.h>
#include <vorn/h264_writer.h>
#include <vorn/streaming_sei.h>

namespace
{

std::atomic<size_t> allocations = 0;

} // namespace

// glibc calls these in place of its own.
extern "C" {
void *__libc_malloc (size_t size);
void *__libc_calloc (size_t count, size_t size);
void *__libc_realloc (void *memory, size_t size);

void *malloc (size_t size)
{
  allocations++;
  return __libc_malloc (size);
}

void *calloc (size_t count, size_t size)
{
  allocations++;
  return __libc_calloc (count, size);
}

void *realloc (void *memory, size_t size)
{
  allocations++;
  return __libc_realloc (memory, size);
}
}

namespace
{

using Writer = std::unique_ptr<VornH264Writer, decltype (&vorn_h264_writer_destroy)>;
using Memory = std::array<uint8_t, 200>;

constexpr VornH264Hrd hrd = {.present = true,
                             .cpb_removal_delay_length = 24,
                             .dpb_output_delay_length = 24,
                             .time_offset_length = 24};

Writer make_writer (bool with_hrd)
{
  vorn_framework_init (nullptr, nullptr);
  Writer writer (vorn_h264_writer_new (), vorn_h264_writer_destroy);
  const VornH264Sps sps = {.max_frame_num = 16,
                           .vui_parameters_present_flag = true,
                           .nal_hrd = with_hrd ? hrd : VornH264Hrd{},
                           .pic_struct_present_flag = true};
  vorn_h264_writer_set_sps (writer.get (), &sps);
  return writer;
}

VornH264Sei make_pic_timing (uint32_t frame)
{
  VornH264Sei sei = {.payload_type = VORN_H264_SEI_PIC_TIMING, .payload = {}};
  VornH264PicTiming &timing = sei.payload.pic_timing;
  timing = {};
  timing.clock_timestamp_flag[0] = true;
  timing.clock_timestamp[0] = {.counting_type = 1,
                               .full_timestamp_flag = true,
                               .n_frames = frame % 30,
                               .seconds_value = frame / 30 % 60,
                               .minutes_value = frame / 1800 % 60,
                               .hours_value = frame / 108000,
                               .time_offset = -15};
  return sei;
}

ssize_t write_unit (VornH264Writer *writer, uint32_t frame, bool sync_point, Memory &memory)
{
  vorn_h264_writer_clear (writer);
  vorn_h264_writer_set_nal_header (writer, 0, VORN_H264_NAL_UNIT_SEI);
  if (sync_point) {
    VornH264Sei recovery = {.payload_type = VORN_H264_SEI_RECOVERY_POINT, .payload = {}};
    recovery.payload.recovery_point = {.exact_match_flag = true};
    vorn_h264_writer_add_sei (writer, &recovery);
  }
  const VornH264Sei timing = make_pic_timing (frame);
  vorn_h264_writer_add_sei (writer, &timing);
  if (sync_point) {
    VornH264Sei slices = {.payload_type = VORN_H264_SEI_USER_DATA_UNREGISTERED, .payload = {}};
    VornH264UserDataUnregistered &data = slices.payload.user_data_unregistered;
    const VornStreamingSeiSliceLayout layout = {1, 3600};
    uint8_t payload[VORN_STREAMING_SEI_PAYLOAD_SIZE];
    data.size = sizeof payload;
    vorn_streaming_sei_write (&layout, payload, &data.size, data.uuid_iso_iec_11578);
    data.data = payload;
    vorn_h264_writer_add_sei (writer, &slices);
  }
  return vorn_h264_writer_write (writer, memory.data (), memory.size ());
}

void report (benchmark::State &state, size_t allocations_before, ssize_t size)
{
  state.counters["allocations"] = benchmark::Counter (
      static_cast<double> (allocations - allocations_before), benchmark::Counter::kAvgIterations);
  state.counters["bytes"] = static_cast<double> (size);
}

void sei_unit (benchmark::State &state, bool sync_point, bool with_hrd)
{
  const Writer writer = make_writer (with_hrd);
  Memory memory;
  uint32_t frame = 0;
  ssize_t size = write_unit (writer.get (), frame, sync_point, memory);
  if (size <= 0) {
    state.SkipWithError ("no unit was written");
    return;
  }
  const size_t before = allocations;
  for ([[maybe_unused]] auto _ : state) {
    size = write_unit (writer.get (), frame++, sync_point, memory);
    benchmark::DoNotOptimize (memory);
  }
  report (state, before, size);
}

void copy_of_three_messages (benchmark::State &state)
{
  const Writer writer = make_writer (true);
  Memory memory;
  Memory copy;
  const ssize_t size = write_unit (writer.get (), 0, true, memory);
  const size_t before = allocations;
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize (memory);
    memcpy (copy.data (), memory.data (), static_cast<size_t> (size));
    benchmark::DoNotOptimize (copy);
  }
  report (state, before, size);
}

void writer_lifetime (benchmark::State &state)
{
  vorn_framework_init (nullptr, nullptr);
  const size_t before = allocations;
  for ([[maybe_unused]] auto _ : state)
    make_writer (true);
  report (state, before, 0);
}

BENCHMARK_CAPTURE (sei_unit, three_messages, true, false);
BENCHMARK_CAPTURE (sei_unit, three_messages_with_hrd, true, true);
BENCHMARK_CAPTURE (sei_unit, picture_timing_alone, false, false);
BENCHMARK (copy_of_three_messages);
BENCHMARK (writer_lifetime);

} // namespace
