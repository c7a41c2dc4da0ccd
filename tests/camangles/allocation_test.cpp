// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The allocator is watched: after cameraAngles_New nothing may be taken from the heap. The
// program's own malloc counts and passes on to the C library's; under a sanitizer, which brings its
// own, its hooks count.
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <malloc.h>

#include <gtest/gtest.h>

#include "context_support.hpp"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SANITIZED 1
#endif
#endif

namespace
{
std::atomic<long> allocations{0};
#ifndef SANITIZED
std::atomic<long> frees{0};
/** The allocation, counted from now on, that fails; negative: none. */
std::atomic<long> fails_in{-1};
#endif
} // namespace

extern "C" {
#ifdef SANITIZED
int __sanitizer_install_malloc_and_free_hooks (void (*on_malloc) (const volatile void *, size_t),
                                               void (*on_free) (const volatile void *));
#else
void *__libc_malloc (size_t size);
void *__libc_calloc (size_t count, size_t size);
void *__libc_realloc (void *block, size_t size);
void *__libc_memalign (size_t alignment, size_t size);
void __libc_free (void *block);

static bool is_granted ()
{
  allocations++;
  return fails_in < 0 || fails_in-- != 0;
}

void *malloc (size_t size) noexcept
{
  return is_granted () ? __libc_malloc (size) : nullptr;
}
void *calloc (size_t count, size_t size) noexcept
{
  return is_granted () ? __libc_calloc (count, size) : nullptr;
}
void *realloc (void *block, size_t size) noexcept
{
  return is_granted () ? __libc_realloc (block, size) : nullptr;
}
void *aligned_alloc (size_t alignment, size_t size) noexcept
{
  return is_granted () ? __libc_memalign (alignment, size) : nullptr;
}
void *memalign (size_t alignment, size_t size) noexcept
{
  return is_granted () ? __libc_memalign (alignment, size) : nullptr;
}
int posix_memalign (void **block, size_t alignment, size_t size) noexcept
{
  *block = is_granted () ? __libc_memalign (alignment, size) : nullptr;
  return *block ? 0 : ENOMEM;
}
void free (void *block) noexcept
{
  frees += block != nullptr;
  __libc_free (block);
}
#endif
}

namespace
{

class Allocation : public testing::Test
{
protected:
  static void SetUpTestSuite ()
  {
#ifdef SANITIZED
    __sanitizer_install_malloc_and_free_hooks (
        [] (const volatile void *, size_t) { allocations++; }, [] (const volatile void *){});
#endif
  }
};

TEST_F (Allocation, NewAllocatesAndIsSeen)
{
  const long before = allocations;
  const Context context = make_context (0);
  /* The context, three arrays of rates at each of three places, two of timestamps, two of
   * quaternions. */
  EXPECT_EQ (allocations - before, 14);
}

TEST_F (Allocation, FeedAndGettersAllocateNothing)
{
  for (uint32_t log2_factor = 0; log2_factor <= 7; log2_factor++)
    for (const float exposure : {0.0f, 1.0f / 300, 1.0f / 60}) {
      const Context context = make_context (log2_factor);
      std::vector<quat_t> attitudes (1024ul << log2_factor);
      std::vector<uint64_t> timestamps (attitudes.size ());
      const quat_t reference = {0, 0, 0, 1};
      float x, y, z;
      uint64_t timestamp;
      int32_t failed = 0;
      const long before = allocations;
      for (uint64_t i = 0; i < 3000; i++) {
        const auto rate = static_cast<float> (i % 13);
        failed |= cameraAngles_Feed (context.get (), i % 2 ? &reference : nullptr, i, rate, -rate,
                                     50 * rate, exposure);
        cameraAngles_GetFilteredGyro (context.get (), &x, &y, &z, &timestamp);
        cameraAngles_GetRsGyro (context.get (), &x, &y, &z, &timestamp);
        cameraAngles_GetAngles (context.get (), attitudes.data (), &timestamp);
        auto count = static_cast<int32_t> (attitudes.size ());
        cameraAngles_GetAnglesBuffer (context.get (), attitudes.data (), timestamps.data (),
                                      &count);
      }
      cameraAngles_setConvergence (context.get (), 0.5f);
      cameraAngles_setBiasGain (context.get (), 0.5f);
      cameraAngles_setExpFilterRange (context.get (), 10, 20);
      cameraAngles_setExpFilterWindow (context.get (), 20);
      cameraAngles_setGyroInitStage (context.get (), 1);
      cameraAngles_resetBias (context.get ());
      const long after = allocations;
      EXPECT_EQ (failed, 0);
      EXPECT_EQ (after - before, 0) << "factor " << (1 << log2_factor) << " exposure " << exposure;
    }
}

#ifndef SANITIZED
TEST_F (Allocation, NewIsAllOrNothing)
{
  for (long failing = 0; failing < 14; failing++) {
    LogCapture log;
    const long before = allocations - frees;
    fails_in = failing;
    cameraAngles_t *context = cameraAngles_New (3, 1000);
    const long after = allocations - frees - 1; // one was not granted
    const std::vector<std::string> texts = log.texts (log_error);
    EXPECT_EQ (context, nullptr);
    if (failing == 0) {
      EXPECT_EQ (texts, std::vector<std::string>{"error, failed to alloc context"});
    } else {
      EXPECT_EQ (texts, std::vector<std::string>{}) << failing;
      EXPECT_EQ (after, before) << "allocation " << failing << " failed: the others are given back";
    }
    EXPECT_LT (fails_in, 0);
    cameraAngles_Close (context);
  }
}
#endif

} // namespace
