// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Samples that tell whether they are whole: every word depends on the sample's number.
#ifndef TESTS_SAMPLE_PATTERN_HPP
#define TESTS_SAMPLE_PATTERN_HPP

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <ctime>

inline struct timespec timespec_of (uint64_t ns)
{
  return {static_cast<time_t> (ns / 1000000000u), static_cast<long> (ns % 1000000000u)};
}

inline uint64_t ns_of (const struct timespec &time)
{
  return static_cast<uint64_t> (time.tv_sec) * 1000000000u + static_cast<uint64_t> (time.tv_nsec);
}

/** The time of sample number k: one per millisecond from 1 s on. */
inline uint64_t pattern_time_ns (uint64_t k)
{
  return 1000000000u + k * 1000000u;
}

inline void pattern_fill (void *sample, size_t size, uint64_t k)
{
  auto *bytes = static_cast<std::byte *> (sample);
  for (size_t at = 0; at < size; at += 8) {
    const uint64_t word = k + at * 0x9e3779b97f4a7c15u;
    memcpy (bytes + at, &word, size - at < 8 ? size - at : 8);
  }
}

/** Whether the sample is whole; its number goes to k. Samples have 8 bytes or more. */
inline bool pattern_whole (const void *sample, size_t size, uint64_t *k)
{
  const auto *bytes = static_cast<const std::byte *> (sample);
  memcpy (k, bytes, 8);
  for (size_t at = 8; at < size; at += 8) {
    const uint64_t word = *k + at * 0x9e3779b97f4a7c15u;
    if (memcmp (bytes + at, &word, size - at < 8 ? size - at : 8) != 0)
      return false;
  }
  return true;
}

#endif
