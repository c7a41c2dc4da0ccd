// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The ring's protocol, writer and readers on one piece of memory: what the thread sanitizer can
// see.
#include "blackboard_ring.hpp"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <vorn/raii.hpp>

#include "log_capture.hpp"
#include "sample_pattern.hpp"

using namespace vorn::blackboard;

namespace
{

class RingImage
{
public:
  explicit RingImage (const VornBlackboardHeader &header)
  {
    EXPECT_EQ (geometry_.derive (header, 0), "");
    image_.reset (std::aligned_alloc (64, (geometry_.image_size + 63) / 64 * 64));
    memset (image_.get (), 0, geometry_.image_size);
    writer = RingWriter (image_.get (), geometry_, Kind::samples, nullptr);
  }
  RingReader reader () const { return {image_.get (), geometry_}; }
  ImageHeader *header () const { return static_cast<ImageHeader *> (image_.get ()); }
  const Geometry &geometry () const { return geometry_; }

  RingWriter writer;

private:
  Geometry geometry_;
  vorn::Owned<void, free> image_;
};

/** What a reader met. */
struct Tally {
  uint64_t accepted = 0;
  uint64_t refused = 0;
  uint64_t torn_accepted = 0;
  uint64_t torn_refused = 0;
};

/** Reads as the blackboard does, latest and spans in turn, and looks at refused copies too. */
Tally read_until (const RingReader &reader, size_t sample_size, const std::atomic<bool> &stop,
                  uint64_t enough)
{
  Tally tally;
  std::vector<std::byte> buffer (sample_size * 4);
  uint64_t newest_ns = 0;
  for (uint64_t turn = 0; tally.accepted < enough && !stop.load (std::memory_order_relaxed);
       turn++) {
    Selection selection;
    const auto method = turn % 2 == 0 ? VORN_BLACKBOARD_LATEST : VORN_BLACKBOARD_SPAN;
    if (reader.select (newest_ns, method, 3, &selection) < 0) {
      tally.refused++;
      continue;
    }
    reader.copy (selection.first, selection.count, buffer.data ());
    const uint64_t time_ns = reader.time_ns (selection.first);
    const bool accepted = reader.intact (selection.first);
    bool whole = true;
    for (uint64_t i = 0; i < selection.count; i++) {
      uint64_t k = 0;
      whole = pattern_whole (buffer.data () + i * sample_size, sample_size, &k) &&
              k == selection.first + i && whole;
    }
    whole = whole && time_ns == pattern_time_ns (selection.first);
    (accepted ? tally.accepted : tally.refused)++;
    if (!whole)
      (accepted ? tally.torn_accepted : tally.torn_refused)++;
    if (accepted)
      newest_ns = time_ns;
  }
  return tally;
}

} // namespace

TEST (BlackboardRing, NoTornSampleIsAcceptedWhileTheWriterRunsAtFullSpeed)
{
  constexpr size_t sample_size = 520; // many cache lines
  RingImage image ({sample_size, 4, 1000, 0});
  std::atomic<bool> stop = false;
  std::thread writer ([&] {
    std::vector<std::byte> sample (sample_size);
    for (uint64_t k = 0; !stop.load (std::memory_order_relaxed); k++) {
      pattern_fill (sample.data (), sample_size, k);
      image.writer.write (sample.data (), pattern_time_ns (k));
    }
  });
  const uint64_t enough = soak () ? 20000000 : 200000;
  Tally tallies[2];
  std::thread other (
      [&] { tallies[1] = read_until (image.reader (), sample_size, stop, UINT64_MAX); });
  tallies[0] = read_until (image.reader (), sample_size, stop, enough);
  stop = true;
  writer.join ();
  other.join ();
  EXPECT_EQ (tallies[0].accepted, enough);
  for (const auto &tally : tallies)
    EXPECT_EQ (tally.torn_accepted, 0u);
  RecordProperty ("refused", std::to_string (tallies[0].refused));
  RecordProperty ("torn_refused", std::to_string (tallies[0].torn_refused));
}

TEST (BlackboardRing, WriterStoppedInTheMiddleOfASample)
{
  RingImage image ({16, 3, 1000, 0});
  std::byte sample[16];
  for (uint64_t k = 0; k < 10; k++) {
    pattern_fill (sample, sizeof sample, k);
    image.writer.write (sample, pattern_time_ns (k));
  }
  // Announced, half written, never committed: what a killed writer leaves.
  image.header ()->begun.store (11);
  const auto reader = image.reader ();
  Selection selection;
  ASSERT_EQ (reader.select (0, VORN_BLACKBOARD_LATEST, 0, &selection), 0);
  EXPECT_EQ (selection.first, 9u);
  // All three samples that it keeps can still be read.
  ASSERT_EQ (reader.select (pattern_time_ns (7), VORN_BLACKBOARD_SPAN, 9, &selection), 0);
  EXPECT_EQ (selection.first, 7u);
  EXPECT_EQ (selection.count, 3u);
  EXPECT_TRUE (reader.intact (7));
  EXPECT_FALSE (reader.intact (6));
}

TEST (BlackboardRing, SearchThatTheWriterOvertookIsRefused)
{
  RingImage image ({16, 3, 1000, 0});
  std::byte sample[16] = {};
  for (uint64_t k = 0; k < 10; k++)
    image.writer.write (sample, pattern_time_ns (k));
  // As if four more samples were under way, which no single writer does: nothing can be relied on.
  image.header ()->begun.store (14);
  const auto reader = image.reader ();
  Selection selection;
  for (const auto method :
       {VORN_BLACKBOARD_AT_OR_BEFORE, VORN_BLACKBOARD_AT_OR_AFTER, VORN_BLACKBOARD_SPAN})
    EXPECT_EQ (reader.select (pattern_time_ns (7), method, 0, &selection), -EAGAIN);
}

TEST (BlackboardRing, ClockBeingSetBackLeavesNothingToSelect)
{
  RingImage image ({16, 3, 1000, 0});
  std::byte sample[16] = {};
  for (uint64_t k = 0; k < 10; k++)
    image.writer.write (sample, pattern_time_ns (k));
  // The moment between the new start of history and the commit of its first sample.
  image.header ()->history_start.store (10);
  Selection selection;
  EXPECT_EQ (image.reader ().select (0, VORN_BLACKBOARD_LATEST, 0, &selection), -ENOENT);
  EXPECT_EQ (
      image.reader ().select (pattern_time_ns (9), VORN_BLACKBOARD_AT_OR_BEFORE, 0, &selection),
      -ENOENT);
}

TEST (BlackboardRing, AnyCountersStayInsideTheImage)
{
  // Run under the address sanitizer: an access outside of the image would show.
  RingImage image ({24, 5, 1000, 0});
  const auto reader = image.reader ();
  std::vector<std::byte> buffer (size_t{24} * 8);
  const uint64_t values[] = {0,
                             1,
                             4,
                             5,
                             6,
                             7,
                             8,
                             9,
                             1ull << 31,
                             1ull << 32,
                             1ull << 63,
                             UINT64_MAX,
                             UINT64_MAX - 1,
                             UINT64_MAX - 7};
  for (const uint64_t begun : values)
    for (const uint64_t done : values)
      for (const uint64_t start : values)
        for (const uint64_t time : values) {
          image.header ()->begun.store (begun);
          image.header ()->done.store (done);
          image.header ()->history_start.store (start);
          for (uint32_t method = 0; method < 4; method++) {
            Selection selection;
            if (reader.select (time, method, method == 3 ? UINT32_MAX : 0, &selection) < 0)
              continue;
            ASSERT_LE (selection.count, 8u);
            reader.copy (selection.first, selection.count, buffer.data ());
          }
        }
}

TEST (BlackboardRing, GeometryHasRoomForTheSampleBeingWritten)
{
  Geometry geometry;
  for (const auto &[count, slots] : {std::pair (1u, 2u), std::pair (2u, 4u), std::pair (3u, 4u),
                                     std::pair (4u, 8u), std::pair (2000u, 2048u)}) {
    ASSERT_EQ (geometry.derive ({16, count, 0, 0}, 80), "");
    EXPECT_EQ (geometry.slot_count, slots);
    EXPECT_EQ (geometry.times_offset, 256u);
    EXPECT_EQ (geometry.samples_offset % 64, 0u);
    EXPECT_EQ (geometry.image_size, geometry.samples_offset + uint64_t{slots} * 16);
  }
  EXPECT_EQ (geometry.derive ({16, 1, 0, 0}, 1048577),
             "annex size 1048577 is not within 0 to 1048576");
}
