// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The blackboard between processes: this one reads, blackboard-helper writes.
#include "blackboard_fixture.hpp"

#include <cerrno>
#include <filesystem>
#include <vector>

#include "child_process.hpp"

namespace
{

class BlackboardProcess : public BlackboardTest
{
protected:
  /** Starts a writer and waits for its first sample. */
  static std::unique_ptr<ChildProcess> start_writer (const char *section, size_t sample_size,
                                                     uint32_t count, uint64_t first,
                                                     uint64_t samples, unsigned period_us)
  {
    auto writer = std::make_unique<ChildProcess> (std::vector<std::string>{
        "write", section, std::to_string (sample_size), std::to_string (count),
        std::to_string (first), std::to_string (samples), std::to_string (period_us)});
    EXPECT_TRUE (writer->started ()) << "build tests/base/blackboard-helper";
    EXPECT_EQ (writer->read_line (), "ready");
    return writer;
  }
  static uint64_t latest_number (const Reader &reader)
  {
    if (select_latest (reader) != 0)
      return UINT64_MAX;
    const auto numbers = read_numbers (reader, 1);
    return numbers.size () == 1 ? numbers[0] : UINT64_MAX;
  }
};

struct Tally {
  uint64_t accepted = 0; // reads
  uint64_t refused = 0;
  uint64_t torn = 0; // samples accepted though not whole
};

/**
 * Reads until so many reads were accepted: the latest sample, and spans from a sample that was the
 * latest once, until the writer has overwritten it.
 */
Tally read_under_fire (const Reader &reader, size_t sample_size, uint32_t span, uint64_t enough)
{
  Tally tally;
  std::vector<std::byte> samples (sample_size * (span + 1));
  std::vector<struct timespec> times (span + 1);
  struct timespec start = {};
  bool renew = true; // where the spans start
  for (uint64_t turn = 0; tally.accepted < enough; turn++) {
    const bool latest = renew || turn % 8 == 0;
    const auto method = latest ? VORN_BLACKBOARD_LATEST : VORN_BLACKBOARD_SPAN;
    int n = vorn_blackboard_select (reader.get (), &start, method, latest ? 0 : span);
    int n_times = 0;
    if (n == 0)
      n = vorn_blackboard_read (reader.get (), 0, samples.data (), samples.size ());
    if (n > 0)
      n_times = vorn_blackboard_read_times (reader.get (), times.data (), times.size ());
    // One read in two relies on the read's own check, the other on the check at its end.
    if (n <= 0 || n_times <= 0 ||
        (turn % 2 == 0 && vorn_blackboard_end_read (reader.get (), reader.revision ()) != 0)) {
      EXPECT_TRUE (n > 0 || n == -EAGAIN || n == -ERANGE) << n;
      tally.refused++;
      renew = renew || !latest;
      continue;
    }
    tally.accepted++;
    uint64_t first = 0;
    for (int i = 0; i < n; i++) {
      uint64_t k = 0;
      const bool whole =
          pattern_whole (samples.data () + static_cast<size_t> (i) * sample_size, sample_size, &k);
      first = i == 0 ? k : first;
      if (!whole || k != first + static_cast<uint64_t> (i) ||
          ns_of (times[static_cast<size_t> (i)]) != pattern_time_ns (k))
        tally.torn++;
    }
    if (renew)
      start = times[0];
    renew = false;
  }
  return tally;
}

} // namespace

TEST_F (BlackboardProcess, ReaderFollowsAWriterAt1Khz)
{
  const auto writer = start_writer ("live", 16, 2000, 0, 0, 1000);
  const Reader reader ("live");
  ASSERT_TRUE (reader);
  uint64_t newest = latest_number (reader);
  const uint64_t end = newest + (soak () ? 60000 : 700);
  while (newest < end) {
    const uint64_t before = newest;
    ASSERT_TRUE (await ([&] { return (newest = latest_number (reader)) > before; }));
    // The 21 samples of the last 20 ms, as far as they were written yet.
    const uint64_t start = newest > 20 ? newest - 20 : 0;
    ASSERT_EQ (select (reader, pattern_time_ns (start), VORN_BLACKBOARD_SPAN, 20), 0);
    const auto numbers = read_numbers (reader);
    ASSERT_EQ (vorn_blackboard_end_read (reader.get (), reader.revision ()), 0);
    ASSERT_GE (numbers.size (), newest - start + 1);
    ASSERT_LE (numbers.size (), 21u);
    for (size_t i = 0; i < numbers.size (); i++)
      ASSERT_EQ (numbers[i], start + i);
  }
}

TEST_F (BlackboardProcess, NoTornSampleIsAcceptedFromAWriterAtFullSpeed)
{
  // From rings that are overtaken at nearly every read to the one of the attitude.
  const struct {
    size_t sample_size;
    uint32_t count;
    uint32_t span;
    uint64_t reads;
  } rows[] = {
      {1032, 1, 0, 100000}, {136, 4, 3, 500000}, {16, 64, 33, 300000}, {16, 2000, 33, 300000}};
  const uint64_t factor = soak () ? 85 : 1; // 1.2 million reads, or more than 10^8
  uint64_t accepted = 0;
  uint64_t refused = 0;
  for (const auto &row : rows) {
    SCOPED_TRACE (std::to_string (row.count) + " samples of " + std::to_string (row.sample_size));
    const auto writer = start_writer ("fire", row.sample_size, row.count, 0, 0, 0);
    const Reader reader ("fire");
    ASSERT_TRUE (reader);
    const Tally tally = read_under_fire (reader, row.sample_size, row.span, row.reads * factor);
    EXPECT_EQ (tally.torn, 0u);
    accepted += tally.accepted;
    refused += tally.refused;
    printf ("%zu bytes, ring of %u: %llu reads accepted, %llu refused, %llu torn\n",
            row.sample_size, row.count, static_cast<unsigned long long> (tally.accepted),
            static_cast<unsigned long long> (tally.refused),
            static_cast<unsigned long long> (tally.torn));
  }
  EXPECT_GE (accepted, soak () ? 100000000u : 1200000u);
  // The writer did get in the way.
  EXPECT_GT (refused, 0u);
}

TEST_F (BlackboardProcess, WriterKilledAndRestartedIsFollowed)
{
  auto writer = start_writer ("phoenix", 16, 100, 0, 5, 0);
  const Reader reader ("phoenix");
  ASSERT_TRUE (reader);
  ASSERT_TRUE (await ([&] { return latest_number (reader) == 4; }));
  writer->kill_hard ();
  // What it wrote stays readable, also to whoever comes now.
  EXPECT_EQ (latest_number (reader), 4u);
  EXPECT_EQ (latest_number (Reader ("phoenix")), 4u);
  writer = start_writer ("phoenix", 16, 100, 1000, 5, 0);
  ASSERT_TRUE (await ([&] { return latest_number (reader) == 1004; }));
  // The history is the new writer's only.
  EXPECT_EQ (select (reader, pattern_time_ns (4), VORN_BLACKBOARD_AT_OR_BEFORE), -ENOENT);
}

TEST_F (BlackboardProcess, WriterKilledAgainAndAgainAtFullSpeed)
{
  Reader reader;
  std::vector<std::byte> sample (520);
  for (uint32_t round = 0; round < (soak () ? 1000 : 20); round++) {
    // Killed wherever it is: between samples or in the middle of one. Now and then the ring is
    // another one.
    const uint64_t first = 1000000000000u * (round + 1);
    const auto writer = start_writer ("fragile", 520, 3 + round % 2 * 20, first, 0, 0);
    if (!reader)
      reader = Reader ("fragile");
    ASSERT_TRUE (reader);
    int seen = 0;
    const bool followed = await ([&] {
      for (int i = 0; i < 1000 && seen < 200; i++) {
        uint64_t k = 0;
        if (select_latest (reader) != 0 ||
            vorn_blackboard_read (reader.get (), 0, sample.data (), sample.size ()) != 1)
          continue;
        EXPECT_TRUE (pattern_whole (sample.data (), sample.size (), &k));
        EXPECT_GE (k, first);
        seen++;
      }
      return seen == 200;
    });
    ASSERT_TRUE (followed) << "round " << round;
  }
}

TEST_F (BlackboardProcess, SuccessorWithOtherSamplesIsRefusedUntilReopened)
{
  LogCapture capture;
  auto writer = start_writer ("grown", 16, 100, 0, 5, 0);
  Reader reader ("grown");
  ASSERT_TRUE (reader);
  writer->kill_hard ();
  writer = start_writer ("grown", 32, 10, 50, 5, 0);
  EXPECT_EQ (select_latest (reader), -ESTALE);
  EXPECT_TRUE (capture.has (
      "section 'grown': its new writer has samples of 32 bytes, it was opened with 16", 3));
  reader = Reader ("grown");
  EXPECT_TRUE (await ([&] { return latest_number (reader) == 54; }));
}

TEST_F (BlackboardProcess, SecondWriterIsRefusedWhileTheFirstLives)
{
  LogCapture capture;
  auto writer = start_writer ("held", 16, 100, 0, 5, 0);
  EXPECT_FALSE (create ("held", {16, 100, 1000, 4}));
  EXPECT_EQ (errno, EBUSY);
  EXPECT_TRUE (capture.has ("section 'held' not created: has a living writer (process " +
                                std::to_string (writer->pid ()) + ")",
                            3));
  EXPECT_EQ (vorn_blackboard_remove ("held"), -EBUSY);
  writer->kill_hard ();
  const Writer second = create ("held", {16, 100, 1000, 4});
  EXPECT_TRUE (second);
  EXPECT_TRUE (capture.has ("section 'held' taken over from a writer that died", 6));
}

TEST_F (BlackboardProcess, LeftoverOfADeadWriterIsRemoved)
{
  const auto writer = start_writer ("left", 16, 100, 0, 5, 0);
  const Reader reader ("left");
  writer->kill_hard ();
  ASSERT_TRUE (std::filesystem::exists (object_path ("left")));
  EXPECT_EQ (select_latest (reader), 0);
  EXPECT_EQ (vorn_blackboard_remove ("left"), 0);
  EXPECT_FALSE (std::filesystem::exists (object_path ("left")));
  EXPECT_EQ (select_latest (reader), -ENOENT);
  EXPECT_EQ (vorn_blackboard_remove ("left"), -ENOENT);
}

TEST_F (BlackboardProcess, WriterThatEndsOrderlyWithdrawsItsSection)
{
  const auto writer = start_writer ("polite", 16, 100, 0, 5, 0);
  const Reader reader ("polite");
  ASSERT_TRUE (reader);
  EXPECT_EQ (writer->finish (), 0);
  EXPECT_FALSE (std::filesystem::exists (object_path ("polite")));
  EXPECT_EQ (select_latest (reader), -ENOENT);
}
