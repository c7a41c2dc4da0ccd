// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "blackboard_ring.hpp"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include <unistd.h>

// The thread sanitizer does not model fences. Everything that is shared here is atomic, so there is
// nothing that it could misjudge for want of them.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wtsan"
#endif

namespace vorn::blackboard
{

namespace
{

constexpr uint32_t max_sample_size = 1u << 20;
constexpr uint32_t max_sample_count = 1u << 24;
constexpr uint32_t max_annex_size = 1u << 20;
constexpr uint64_t max_image_size = 1ull << 28;
constexpr int select_attempts = 8;
constexpr uint64_t span_max_ahead_ns = VORN_BLACKBOARD_SPAN_MAX_AHEAD_MS * 1000000ull;

constexpr uint64_t round_up (uint64_t value, uint64_t alignment)
{
  return (value + alignment - 1) / alignment * alignment;
}

std::string out_of_range (const char *what, uint64_t value, uint64_t minimum, uint64_t maximum)
{
  return std::string (what) + " " + std::to_string (value) + " is not within " +
         std::to_string (minimum) + " to " + std::to_string (maximum);
}

void store_word (Word *to, const std::byte *from)
{
  uint64_t word;
  memcpy (&word, from, sizeof word);
  to->store (word, std::memory_order_relaxed);
}

void load_word (std::byte *to, const Word *from)
{
  const uint64_t word = from->load (std::memory_order_relaxed);
  memcpy (to, &word, sizeof word);
}

void store_words (Word *to, const void *from, size_t size)
{
  const auto *bytes = static_cast<const std::byte *> (from);
  for (; size >= sizeof (Word); size -= sizeof (Word), bytes += sizeof (Word))
    store_word (to++, bytes);
  if (size > 0) {
    std::byte rest[sizeof (Word)] = {};
    memcpy (rest, bytes, size);
    store_word (to, rest);
  }
}

/** Eight words at a time: one by one the loop costs more than the copy. */
template <size_t... i>
void load_block (std::byte *to, const Word *from, std::index_sequence<i...>)
{
  (load_word (to + i * sizeof (Word), from + i), ...);
}

void load_words (void *to, const Word *from, size_t size)
{
  constexpr size_t block = 8;
  auto *bytes = static_cast<std::byte *> (to);
  for (; size >= block * sizeof (Word); size -= block * sizeof (Word)) {
    load_block (bytes, from, std::make_index_sequence<block> ());
    bytes += block * sizeof (Word);
    from += block;
  }
  for (; size >= sizeof (Word); size -= sizeof (Word), bytes += sizeof (Word))
    load_word (bytes, from++);
  if (size > 0) {
    std::byte rest[sizeof (Word)];
    load_word (rest, from);
    memcpy (bytes, rest, size);
  }
}

/** Search by time among samples oldest to newest. */
class TimeSearch
{
public:
  TimeSearch (const RingReader &ring, uint64_t oldest, uint64_t newest, double samples_per_ns)
      : ring_ (ring), oldest_ (oldest), newest_ (newest), lowest_probed_ (newest),
        samples_per_ns_ (samples_per_ns)
  {
  }

  /** The first sample whose time is limit_ns or later; newest + 1 when there is none. */
  uint64_t first_at_or_after (uint64_t limit_ns)
  {
    const uint64_t newest_ns = probe (newest_);
    if (newest_ns < limit_ns)
      return newest_ + 1;
    // Look first where a steady writer would have put it, then in growing steps away from there.
    uint64_t low = oldest_;
    uint64_t high = newest_;
    const uint64_t guess = high - steps_back (newest_ns - limit_ns, high - low);
    if (probe (guess) >= limit_ns) {
      high = guess;
      for (uint64_t step = 1; high > low; step *= 2) {
        const uint64_t next = high - std::min (step, high - low);
        if (probe (next) < limit_ns) {
          low = next + 1;
          break;
        }
        high = next;
      }
    } else {
      low = guess + 1;
      for (uint64_t step = 1; high - low >= step; step *= 2) {
        const uint64_t next = low + step - 1;
        if (probe (next) >= limit_ns) {
          high = next;
          break;
        }
        low = next + 1;
      }
    }
    while (low < high) {
      const uint64_t middle = low + (high - low) / 2;
      if (probe (middle) >= limit_ns)
        high = middle;
      else
        low = middle + 1;
    }
    return high;
  }

  /** The oldest sample whose time the result depends on. */
  uint64_t lowest_probed () const { return lowest_probed_; }

private:
  /** How many samples a steady writer makes in so long, at most maximum. */
  uint64_t steps_back (uint64_t duration_ns, uint64_t maximum) const
  {
    // By way of signed numbers, which convert in one instruction.
    const double steps = static_cast<double> (static_cast<int64_t> (duration_ns)) * samples_per_ns_;
    return steps >= 0 && steps < static_cast<double> (static_cast<int64_t> (maximum))
               ? static_cast<uint64_t> (static_cast<int64_t> (steps))
               : maximum;
  }

  uint64_t probe (uint64_t index)
  {
    lowest_probed_ = std::min (lowest_probed_, index);
    return ring_.time_ns (index);
  }

  const RingReader &ring_;
  uint64_t oldest_;
  uint64_t newest_;
  uint64_t lowest_probed_;
  double samples_per_ns_;
};

} // namespace

std::string Geometry::derive (const VornBlackboardHeader &wanted, uint32_t wanted_annex_size)
{
  if (wanted.sample_size < 1 || wanted.sample_size > max_sample_size)
    return out_of_range ("sample size", wanted.sample_size, 1, max_sample_size);
  if (wanted.sample_count < 1 || wanted.sample_count > max_sample_count)
    return out_of_range ("sample count", wanted.sample_count, 1, max_sample_count);
  if (wanted_annex_size > max_annex_size)
    return out_of_range ("annex size", wanted_annex_size, 0, max_annex_size);
  header = wanted;
  annex_size = wanted_annex_size;
  slot_count = std::bit_ceil (uint64_t{wanted.sample_count} + 1);
  slot_words = round_up (wanted.sample_size, sizeof (Word)) / sizeof (Word);
  times_offset = round_up (sizeof (ImageHeader) + annex_size, 64);
  samples_offset = round_up (times_offset + slot_count * sizeof (Word), 64);
  // At most 2^25 slots of 2^20 bytes each: far from the end of 64 bits.
  image_size = samples_offset + slot_count * slot_words * sizeof (Word);
  if (image_size > max_image_size)
    return out_of_range ("section size", image_size, 1, max_image_size);
  return {};
}

RingWriter::RingWriter (void *image, const Geometry &geometry, Kind kind, const void *annex)
    : header_ (new (image) ImageHeader{}),
      times_ (reinterpret_cast<Word *> (static_cast<std::byte *> (image) + geometry.times_offset)),
      samples_ (
          reinterpret_cast<Word *> (static_cast<std::byte *> (image) + geometry.samples_offset)),
      sample_size_ (geometry.header.sample_size), slot_words_ (geometry.slot_words),
      slot_mask_ (geometry.slot_count - 1)
{
  memcpy (header_->magic, image_magic, sizeof image_magic);
  header_->byte_order = image_byte_order;
  header_->version = image_version;
  header_->header = geometry.header;
  header_->kind = kind;
  header_->annex_size = geometry.annex_size;
  header_->image_size = geometry.image_size;
  header_->writer_pid = getpid ();
  if (geometry.annex_size > 0)
    memcpy (static_cast<std::byte *> (image) + sizeof (ImageHeader), annex, geometry.annex_size);
  header_->state.store (state_ready, std::memory_order_release);
}

void RingWriter::write (const void *sample, uint64_t time_ns)
{
  const uint64_t index = written_;
  const uint64_t slot = index & slot_mask_;
  if (goes_back (time_ns))
    header_->history_start.store (index, std::memory_order_relaxed);
  header_->begun.store (index + 1, std::memory_order_relaxed);
  // Whoever sees one of the stores below sees the announcement too: pairs with the fence of
  // RingReader::intact.
  std::atomic_thread_fence (std::memory_order_release);
  times_[slot].store (time_ns, std::memory_order_relaxed);
  store_words (samples_ + slot * slot_words_, sample, sample_size_);
  header_->done.store (index + 1, std::memory_order_release);
  written_ = index + 1;
  newest_ns_ = time_ns;
}

void RingWriter::retire ()
{
  header_->state.store (state_retired, std::memory_order_release);
}

RingReader::RingReader (const void *image, const Geometry &geometry)
    : header_ (static_cast<const ImageHeader *> (image)),
      times_ (reinterpret_cast<const Word *> (static_cast<const std::byte *> (image) +
                                              geometry.times_offset)),
      samples_ (reinterpret_cast<const Word *> (static_cast<const std::byte *> (image) +
                                                geometry.samples_offset)),
      sample_size_ (geometry.header.sample_size), sample_count_ (geometry.header.sample_count),
      slot_words_ (geometry.slot_words), slot_count_ (geometry.slot_count),
      slot_mask_ (geometry.slot_count - 1),
      samples_per_ns_ (static_cast<double> (geometry.header.rate) * 1e-9)
{
}

bool RingReader::intact (uint64_t first) const
{
  std::atomic_thread_fence (std::memory_order_acquire);
  return header_->begun.load (std::memory_order_relaxed) - first <= slot_count_;
}

void RingReader::copy (uint64_t first, uint64_t count, void *to) const
{
  auto *bytes = static_cast<std::byte *> (to);
  while (count > 0) {
    const uint64_t slot = first & slot_mask_;
    const Word *from = samples_ + slot * slot_words_;
    // Samples of whole words lie side by side up to the last slot, others have gaps.
    const bool packed = sample_size_ == slot_words_ * sizeof (Word);
    const uint64_t run = packed ? std::min (count, slot_count_ - slot) : 1;
    load_words (bytes, from, run * sample_size_);
    bytes += run * sample_size_;
    first += run;
    count -= run;
  }
}

int RingReader::select (uint64_t time_ns, uint32_t method, uint32_t count,
                        Selection *selection) const
{
  for (int attempt = 0; attempt < select_attempts; attempt++) {
    const int result = select_once (time_ns, method, count, selection);
    if (result != -EAGAIN)
      return result;
  }
  return -EAGAIN;
}

int RingReader::select_once (uint64_t time_ns, uint32_t method, uint32_t count,
                             Selection *selection) const
{
  const uint64_t end = done ();
  // Stored before the commit of the sample that it names: not older than `end`.
  const uint64_t start = header_->history_start.load (std::memory_order_relaxed);
  if (start >= end)
    return done () == end ? -ENOENT : -EAGAIN;
  if (method == VORN_BLACKBOARD_LATEST) {
    *selection = {end - 1, 1};
    return 0;
  }

  const uint64_t kept_from = end - std::min (end, sample_count_);
  const uint64_t oldest = std::max (kept_from, start);
  const bool some_lost = oldest > start;
  TimeSearch search (*this, oldest, end - 1, samples_per_ns_);
  int result = 0;
  if (method == VORN_BLACKBOARD_AT_OR_AFTER) {
    const uint64_t first = search.first_at_or_after (time_ns);
    *selection = {first, 1};
    if (first == end)
      result = -ENODATA;
    else if (first == oldest && some_lost && this->time_ns (first) > time_ns)
      result = -ERANGE; // the first one may have been among those lost
  } else {
    const uint64_t after = search.first_at_or_after (time_ns + 1);
    *selection = {after - 1, 1};
    if (after == oldest)
      result = some_lost ? -ERANGE : -ENOENT;
    else if (method == VORN_BLACKBOARD_SPAN) {
      selection->count = std::min (uint64_t{count} + 1, end - selection->first);
      if (after == end && time_ns > this->time_ns (end - 1) + span_max_ahead_ns)
        result = -ENODATA;
    }
  }
  return intact (search.lowest_probed ()) ? result : -EAGAIN;
}

} // namespace vorn::blackboard
