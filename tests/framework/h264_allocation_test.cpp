// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A SEI unit goes with every frame: making it takes no memory from the heap.
#include <atomic>
#include <cstdlib>

#include <gtest/gtest.h>

#include <vorn/framework.h>
#include <vorn/streaming_sei.h>

#include "h264_support.hpp"

using namespace h264;

namespace
{

std::atomic<size_t> allocations = 0;

} // namespace

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ALLOCATIONS_ARE_COUNTED false
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ALLOCATIONS_ARE_COUNTED false
#endif
#endif

#ifndef ALLOCATIONS_ARE_COUNTED
#define ALLOCATIONS_ARE_COUNTED true

// glibc calls these in place of its own; the sanitizers need the place for themselves.
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
#endif

TEST (H264Allocation, NoneForAUnitOfTheSizeOfAnEarlierOne)
{
  if (!ALLOCATIONS_ARE_COUNTED)
    GTEST_SKIP () << "the sanitizer has malloc's place";
  vorn_framework_init (nullptr, nullptr);
  const size_t before = allocations;
  void *volatile block = malloc (100);
  free (block);
  ASSERT_EQ (allocations - before, 1u) << "the count itself";

  auto writer = make_writer ({});
  const VornH264Sei recovery = recovery_point ();
  const VornH264Sei timing = pic_timing (1, 2, 3, 15, -15);
  VornH264Sei slices = user_data ({});
  uint8_t payload[VORN_STREAMING_SEI_PAYLOAD_SIZE];
  slices.payload.user_data_unregistered.data = payload;
  const VornStreamingSeiSliceLayout layout = {1, 3600};
  uint8_t memory[200];

  size_t used = 0;
  bool good = true;
  for (int frame = 0; frame < 1000; frame++) {
    const size_t start = allocations;
    size_t size = sizeof payload;
    auto &data = slices.payload.user_data_unregistered;
    good &= vorn_streaming_sei_write (&layout, payload, &size, data.uuid_iso_iec_11578) == 0;
    data.size = size;
    good &= vorn_h264_writer_clear (writer.get ()) == 0;
    good &= vorn_h264_writer_set_nal_header (writer.get (), 0, VORN_H264_NAL_UNIT_SEI) == 0;
    good &= vorn_h264_writer_add_sei (writer.get (), &recovery) == 0;
    good &= vorn_h264_writer_add_sei (writer.get (), &timing) == 0;
    good &= vorn_h264_writer_add_sei (writer.get (), &slices) == 0;
    good &= vorn_h264_writer_write (writer.get (), memory, sizeof memory) > 0;
    used += allocations - start;
  }
  EXPECT_TRUE (good);
  EXPECT_EQ (used, 0u);
}
