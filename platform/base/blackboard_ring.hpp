// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A section's image in memory and the lock-free protocol of its ring.
//
//   0                128        times_offset        samples_offset             image_size
//   | ImageHeader    | annex .. | slot_count times  | slot_count samples       |
//
// Sample i lives in slot i modulo slot_count. The writer announces a sample in `begun` before it
// touches the slot and commits it in `done` afterwards; both only grow. The write of sample
// i + slot_count is the first one to destroy sample i, so a copy of samples first, first + 1, ...
// is whole when, after copying,
//
//   begun <= first + slot_count
//
//   begun = 11, done = 10, slot_count = 8:    slot   0   1   2*  3   4   5   6   7
//                                             holds  8   9   10? 3   4   5   6   7
//
// Slots are a power of two above the number of samples kept, so all kept samples stay readable
// while the next one is being written.
#ifndef VORN_BLACKBOARD_RING_HPP
#define VORN_BLACKBOARD_RING_HPP

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

#include <vorn/blackboard.h>

namespace vorn::blackboard
{

using Word = std::atomic<uint64_t>;
static_assert (Word::is_always_lock_free && sizeof (Word) == sizeof (uint64_t));

/** What a section's samples are. */
enum class Kind : uint32_t { samples = 0, telemetry = 1 };

enum State : uint32_t { state_unset = 0, state_ready = 1, state_retired = 2 };

constexpr char image_magic[8] = {'V', 'O', 'R', 'N', 'S', 'E', 'C', '\n'};
constexpr uint32_t image_byte_order = 0x01020304;
constexpr uint32_t image_version = 1;

struct ImageHeader {
  char magic[8];
  uint32_t byte_order;
  uint32_t version;
  VornBlackboardHeader header;
  Kind kind;
  uint32_t annex_size;
  uint64_t image_size;
  int32_t writer_pid; // for messages only
  uint32_t reserved[3];
  // What changes later on stands in a cache line of its own.
  alignas (64) Word begun;     // samples whose writing has begun
  Word done;                   // samples written
  Word history_start;          // first sample since the clock was last set back
  std::atomic<uint32_t> state; // State
};
static_assert (std::is_standard_layout_v<ImageHeader>);
static_assert (sizeof (VornBlackboardHeader) == 16 && sizeof (ImageHeader) == 128);
static_assert (offsetof (ImageHeader, header) == 16 && offsetof (ImageHeader, image_size) == 40 &&
               offsetof (ImageHeader, begun) == 64 && offsetof (ImageHeader, state) == 88);

/** Where everything is in an image. Derived from few numbers, so that there is little to check. */
struct Geometry {
  VornBlackboardHeader header = {};
  uint32_t annex_size = 0;
  uint64_t slot_count = 0; // a power of two
  uint64_t slot_words = 0;
  uint64_t times_offset = 0;
  uint64_t samples_offset = 0;
  uint64_t image_size = 0;

  /** Fills in everything; returns an empty text, or the reason why there can be no such image. */
  std::string derive (const VornBlackboardHeader &wanted, uint32_t wanted_annex_size);
};

/** The writer's side. Does not own the image. */
class RingWriter
{
public:
  RingWriter () = default;
  /** image: zeroed, of the geometry's size, aligned to 64 bytes. */
  RingWriter (void *image, const Geometry &geometry, Kind kind, const void *annex);

  /** Whether the time lies before the newest sample's. */
  bool goes_back (uint64_t time_ns) const { return time_ns < newest_ns_; }
  uint64_t newest_ns () const { return newest_ns_; }
  void write (const void *sample, uint64_t time_ns);
  /** Tells readers that the section is no longer written. */
  void retire ();

private:
  ImageHeader *header_ = nullptr;
  Word *times_ = nullptr;
  Word *samples_ = nullptr;
  size_t sample_size_ = 0;
  uint64_t slot_words_ = 0;
  uint64_t slot_mask_ = 0;
  uint64_t written_ = 0;
  uint64_t newest_ns_ = 0;
};

/** Samples first to first + count - 1. */
struct Selection {
  uint64_t first = 0;
  uint64_t count = 0;
};

/**
 * A reader's side. Does not own the image, never writes to it, and takes nothing on trust that
 * could lead it out of the geometry: the counters may hold anything.
 */
class RingReader
{
public:
  RingReader () = default;
  RingReader (const void *image, const Geometry &geometry);

  uint32_t state () const { return header_->state.load (std::memory_order_acquire); }
  uint64_t done () const { return header_->done.load (std::memory_order_acquire); }

  /** As vorn_blackboard_select, for a ring that is there. */
  int select (uint64_t time_ns, uint32_t method, uint32_t count, Selection *selection) const;
  /** Whether sample first and all after it are still in their slots; call after copying. */
  bool intact (uint64_t first) const;
  /** Copies samples; meaningless unless intact (first) holds afterwards. */
  void copy (uint64_t first, uint64_t count, void *to) const;
  uint64_t time_ns (uint64_t index) const
  {
    return times_[index & slot_mask_].load (std::memory_order_relaxed);
  }

private:
  int select_once (uint64_t time_ns, uint32_t method, uint32_t count, Selection *selection) const;

  const ImageHeader *header_ = nullptr;
  const Word *times_ = nullptr;
  const Word *samples_ = nullptr;
  size_t sample_size_ = 0;
  uint64_t sample_count_ = 0;
  uint64_t slot_words_ = 0;
  uint64_t slot_count_ = 0;
  uint64_t slot_mask_ = 0;
  double samples_per_ns_ = 0;
};

} // namespace vorn::blackboard

#endif
