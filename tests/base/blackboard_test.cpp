// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The blackboard's calls, writer and reader in one process.
#include "blackboard_fixture.hpp"

#include <cerrno>
#include <climits>
#include <filesystem>
#include <fstream>
#include <vector>

#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <gmock/gmock.h>

#include "platform_from_c.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace
{

constexpr VornBlackboardHeader attitude = {16, 2000, 1000, 4};

} // namespace

TEST_F (BlackboardTest, WrittenSampleIsReadWithItsTimeAndHeader)
{
  const Writer writer = create ("attitude", attitude);
  ASSERT_TRUE (writer);
  const Reader reader ("attitude");
  ASSERT_TRUE (reader);
  VornBlackboardHeader header = {};
  ASSERT_EQ (vorn_blackboard_get_header (reader.get (), &header), 0);
  EXPECT_EQ (header.sample_size, 16u);
  EXPECT_EQ (header.sample_count, 2000u);
  EXPECT_EQ (header.rate, 1000u);
  EXPECT_EQ (header.fourth, 4u);

  const float sample[4] = {0.1f, 0.2f, 0.3f, 0.9f};
  const struct timespec time = {12, 345678901};
  ASSERT_EQ (vorn_blackboard_write (writer.get (), sample, &time), 0);
  ASSERT_EQ (vorn_blackboard_select (reader.get (), nullptr, VORN_BLACKBOARD_LATEST, 0), 0);
  float read[4] = {};
  ASSERT_EQ (vorn_blackboard_read (reader.get (), 0, read, sizeof read), 1);
  EXPECT_THAT (read, ElementsAre (0.1f, 0.2f, 0.3f, 0.9f));
  struct timespec read_time = {};
  ASSERT_EQ (vorn_blackboard_read_times (reader.get (), &read_time, 1), 1);
  EXPECT_EQ (read_time.tv_sec, 12);
  EXPECT_EQ (read_time.tv_nsec, 345678901);
  EXPECT_EQ (vorn_blackboard_end_read (reader.get (), reader.revision ()), 0);
}

TEST_F (BlackboardTest, HeadersServeCPrograms)
{
  EXPECT_EQ (blackboard_from_c (), 0);
  EXPECT_EQ (telemetry_from_c (), 0);
}

TEST_F (BlackboardTest, SpanOf20MsHas21Samples)
{
  const Writer writer = create ("attitude", attitude);
  for (uint64_t k = 0; k < 100; k++)
    ASSERT_EQ (write (writer, 16, k), 0);
  const Reader reader ("attitude");
  ASSERT_EQ (select (reader, pattern_time_ns (30), VORN_BLACKBOARD_SPAN, 20), 0);
  const auto numbers = read_numbers (reader);
  ASSERT_EQ (numbers.size (), 21u);
  EXPECT_EQ (numbers.front (), 30u);
  EXPECT_EQ (numbers.back (), 50u);
  EXPECT_EQ (vorn_blackboard_end_read (reader.get (), reader.revision ()), 0);
}

TEST_F (BlackboardTest, SamplesOlderThanTwoSecondsAreOverwritten)
{
  const Writer writer = create ("attitude", attitude);
  for (uint64_t k = 0; k <= 5000; k++)
    ASSERT_EQ (write (writer, 16, k), 0);
  const Reader reader ("attitude");
  // 2000 samples are kept: 3001 to 5000.
  EXPECT_EQ (select (reader, pattern_time_ns (3001), VORN_BLACKBOARD_AT_OR_BEFORE), 0);
  EXPECT_THAT (read_numbers (reader), ElementsAre (3001));
  EXPECT_EQ (select (reader, pattern_time_ns (3001) - 1, VORN_BLACKBOARD_AT_OR_BEFORE), -ERANGE);
  EXPECT_EQ (select (reader, pattern_time_ns (3000), VORN_BLACKBOARD_SPAN, 20), -ERANGE);
  EXPECT_EQ (select (reader, pattern_time_ns (3001), VORN_BLACKBOARD_AT_OR_AFTER), 0);
  EXPECT_EQ (select (reader, pattern_time_ns (3001) - 1, VORN_BLACKBOARD_AT_OR_AFTER), -ERANGE);
}

namespace
{

constexpr uint64_t ms = 1000000;

struct Lookup {
  const char *name;
  uint64_t time_ns;
  uint32_t method;
  uint32_t count;
  int result; // of select
  std::vector<uint64_t> numbers;
};

void PrintTo (const Lookup &lookup, std::ostream *out)
{
  *out << lookup.name;
}

/** The ring holds samples 0 to 9 at 1000, 1001, ... 1009 ms, nothing lost. */
const Lookup lookups[] = {
    {"latest", 0, VORN_BLACKBOARD_LATEST, 0, 0, {9}},
    {"before_at_sample", 1004 * ms, VORN_BLACKBOARD_AT_OR_BEFORE, 0, 0, {4}},
    {"before_between", 1004 * ms + 1, VORN_BLACKBOARD_AT_OR_BEFORE, 0, 0, {4}},
    {"before_just_short", 1004 * ms - 1, VORN_BLACKBOARD_AT_OR_BEFORE, 0, 0, {3}},
    {"before_first", 1000 * ms - 1, VORN_BLACKBOARD_AT_OR_BEFORE, 0, -ENOENT, {}},
    {"before_at_first", 1000 * ms, VORN_BLACKBOARD_AT_OR_BEFORE, 0, 0, {0}},
    {"before_after_last", 999999 * ms, VORN_BLACKBOARD_AT_OR_BEFORE, 0, 0, {9}},
    {"before_time_zero", 0, VORN_BLACKBOARD_AT_OR_BEFORE, 0, -ENOENT, {}},
    {"after_at_sample", 1004 * ms, VORN_BLACKBOARD_AT_OR_AFTER, 0, 0, {4}},
    {"after_between", 1004 * ms + 1, VORN_BLACKBOARD_AT_OR_AFTER, 0, 0, {5}},
    {"after_before_first", 0, VORN_BLACKBOARD_AT_OR_AFTER, 0, 0, {0}},
    {"after_at_last", 1009 * ms, VORN_BLACKBOARD_AT_OR_AFTER, 0, 0, {9}},
    {"after_after_last", 1009 * ms + 1, VORN_BLACKBOARD_AT_OR_AFTER, 0, -ENODATA, {}},
    {"span_of_one", 1004 * ms, VORN_BLACKBOARD_SPAN, 0, 0, {4}},
    {"span_between", 1004 * ms + 999999, VORN_BLACKBOARD_SPAN, 2, 0, {4, 5, 6}},
    {"span_all", 1000 * ms, VORN_BLACKBOARD_SPAN, 9, 0, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9}},
    {"span_partly_future", 1008 * ms, VORN_BLACKBOARD_SPAN, 5, 0, {8, 9}},
    {"span_huge_count", 1008 * ms, VORN_BLACKBOARD_SPAN, UINT32_MAX, 0, {8, 9}},
    {"span_before_first", 1000 * ms - 1, VORN_BLACKBOARD_SPAN, 5, -ENOENT, {}},
    {"span_100_ms_ahead", 1109 * ms, VORN_BLACKBOARD_SPAN, 5, 0, {9}},
    {"span_too_far_ahead", 1109 * ms + 1, VORN_BLACKBOARD_SPAN, 5, -ENODATA, {}},
};

class BlackboardLookup : public BlackboardTest, public testing::WithParamInterface<Lookup>
{
};

} // namespace

TEST_P (BlackboardLookup, FindsTheSample)
{
  const auto &lookup = GetParam ();
  // Right for every rate that the header may claim: it is only where the search begins.
  for (const uint32_t rate : {0u, 1u, 900u, 1000u, 1100u, 1000000000u, UINT32_MAX}) {
    const Writer writer = create ("lookup", {24, 10, rate, 0});
    for (uint64_t k = 0; k < 10; k++)
      ASSERT_EQ (write (writer, 24, k), 0);
    const Reader reader ("lookup");
    EXPECT_EQ (select (reader, lookup.time_ns, lookup.method, lookup.count), lookup.result);
    if (lookup.result == 0) {
      EXPECT_EQ (read_numbers (reader), lookup.numbers);
      EXPECT_EQ (vorn_blackboard_end_read (reader.get (), reader.revision ()), 0);
    } else {
      char buffer[24];
      EXPECT_EQ (vorn_blackboard_read (reader.get (), 0, buffer, sizeof buffer), -EINVAL);
      EXPECT_EQ (vorn_blackboard_end_read (reader.get (), reader.revision ()), -EINVAL);
    }
  }
}

INSTANTIATE_TEST_SUITE_P (Times, BlackboardLookup, testing::ValuesIn (lookups),
                          [] (const auto &row) { return std::string (row.param.name); });

TEST_F (BlackboardTest, IrregularTimesAreFoundAsALinearSearchFindsThem)
{
  const Writer writer = create ("irregular", {8, 50, 1000, 0});
  const Reader reader ("irregular");
  std::vector<uint64_t> times;
  uint64_t time_ns = 5;
  for (uint64_t k = 0; k < 180; k++) {
    time_ns += k % 7 == 0 ? 0 : (k % 11 == 0 ? 400 * ms : k * 1000 + 1);
    times.push_back (time_ns);
    ASSERT_EQ (write (writer, 8, k, time_ns), 0);
    const size_t oldest = times.size () > 50 ? times.size () - 50 : 0;
    for (uint64_t probe : {times[oldest], times[oldest] + 1, times[times.size () / 2],
                           times[(times.size () + oldest) / 2] - 1, time_ns, time_ns + 7}) {
      // The newest of those at or before, the oldest of those at or after.
      size_t before = times.size ();
      size_t after = times.size ();
      for (size_t i = oldest; i < times.size (); i++) {
        if (times[i] <= probe)
          before = i;
        if (times[i] >= probe && after == times.size ())
          after = i;
      }
      const int result = select (reader, probe, VORN_BLACKBOARD_AT_OR_BEFORE);
      if (before == times.size ()) {
        EXPECT_EQ (result, oldest > 0 ? -ERANGE : -ENOENT);
      } else {
        ASSERT_EQ (result, 0);
        EXPECT_THAT (read_numbers (reader), ElementsAre (before));
      }
      const int result_after = select (reader, probe, VORN_BLACKBOARD_AT_OR_AFTER);
      if (after == times.size ()) {
        EXPECT_EQ (result_after, -ENODATA);
      } else if (after == oldest && oldest > 0 && times[after] > probe) {
        EXPECT_EQ (result_after, -ERANGE);
      } else {
        ASSERT_EQ (result_after, 0);
        EXPECT_THAT (read_numbers (reader), ElementsAre (after));
      }
    }
  }
}

TEST_F (BlackboardTest, SampleSizesAndCountsOfAllKinds)
{
  for (const uint32_t size : {8u, 9u, 12u, 15u, 16u, 17u, 100u, 136u}) {
    for (const uint32_t count : {1u, 2u, 3u, 4u, 7u, 8u, 9u}) {
      const Writer writer = create ("shape", {size, count, 1000, 0});
      ASSERT_TRUE (writer);
      const Reader reader ("shape");
      for (uint64_t k = 0; k < 40; k++) {
        ASSERT_EQ (write (writer, size, k), 0);
        const uint64_t first = k + 1 < count ? 0 : k + 1 - count;
        ASSERT_EQ (select (reader, pattern_time_ns (first), VORN_BLACKBOARD_SPAN, count), 0);
        const auto numbers = read_numbers (reader);
        ASSERT_EQ (numbers.size (), k - first + 1);
        EXPECT_EQ (numbers.front (), first);
        EXPECT_EQ (numbers.back (), k);
      }
    }
  }
}

TEST_F (BlackboardTest, BytesOfASampleSmallerThanAWord)
{
  const Writer writer = create ("small", {3, 5, 0, 0});
  const Reader reader ("small");
  for (uint64_t k = 1; k <= 12; k++) {
    const uint8_t sample[3] = {static_cast<uint8_t> (k), 7, static_cast<uint8_t> (k * 3)};
    const auto time = timespec_of (k);
    ASSERT_EQ (vorn_blackboard_write (writer.get (), sample, &time), 0);
  }
  ASSERT_EQ (select (reader, 10, VORN_BLACKBOARD_SPAN, 5), 0);
  uint8_t read[16];
  memset (read, 0xee, sizeof read);
  ASSERT_EQ (vorn_blackboard_read (reader.get (), 0, read, 10), 3);
  EXPECT_THAT (read, ElementsAre (10, 7, 30, 11, 7, 33, 12, 7, 36, 0xee, 0xee, 0xee, 0xee, 0xee,
                                  0xee, 0xee));
}

TEST_F (BlackboardTest, ShortBufferGivesFewerSamples)
{
  const Writer writer = create ("short", {16, 10, 1000, 0});
  for (uint64_t k = 0; k < 10; k++)
    ASSERT_EQ (write (writer, 16, k), 0);
  const Reader reader ("short");
  ASSERT_EQ (select (reader, pattern_time_ns (2), VORN_BLACKBOARD_SPAN, 5), 0);
  char buffer[47];
  EXPECT_EQ (vorn_blackboard_read (reader.get (), 0, buffer, sizeof buffer), 2);
  EXPECT_EQ (vorn_blackboard_read (reader.get (), 0, buffer, 15), -EINVAL);
  struct timespec times[3] = {};
  ASSERT_EQ (vorn_blackboard_read_times (reader.get (), times, 3), 3);
  EXPECT_EQ (ns_of (times[2]), pattern_time_ns (4));
  EXPECT_EQ (vorn_blackboard_read_times (reader.get (), times, 0), -EINVAL);
}

TEST_F (BlackboardTest, EmptySectionHasNoSample)
{
  const Writer writer = create ("empty", attitude);
  const Reader reader ("empty");
  ASSERT_TRUE (reader);
  EXPECT_EQ (select_latest (reader), -ENOENT);
  for (const auto method :
       {VORN_BLACKBOARD_AT_OR_BEFORE, VORN_BLACKBOARD_AT_OR_AFTER, VORN_BLACKBOARD_SPAN})
    EXPECT_EQ (select (reader, 5, method), -ENOENT);
}

TEST_F (BlackboardTest, OverwrittenSelectionIsRefused)
{
  // 3 samples are kept in 4 slots: the fourth write after a sample destroys it.
  const Writer writer = create ("overwritten", {16, 3, 1000, 0});
  const Reader reader ("overwritten");
  for (uint64_t k = 0; k < 3; k++)
    ASSERT_EQ (write (writer, 16, k), 0);
  ASSERT_EQ (select (reader, pattern_time_ns (0), VORN_BLACKBOARD_SPAN, 2), 0);
  EXPECT_THAT (read_numbers (reader), ElementsAre (0, 1, 2));
  ASSERT_EQ (write (writer, 16, 3), 0);
  EXPECT_THAT (read_numbers (reader), ElementsAre (0, 1, 2));
  ASSERT_EQ (write (writer, 16, 4), 0);
  char buffer[48];
  struct timespec times[3];
  EXPECT_EQ (vorn_blackboard_read (reader.get (), 0, buffer, sizeof buffer), -EAGAIN);
  EXPECT_EQ (vorn_blackboard_read_times (reader.get (), times, 3), -EAGAIN);
  EXPECT_EQ (vorn_blackboard_end_read (reader.get (), reader.revision ()), -EAGAIN);
  // Ended: there is nothing more to end.
  EXPECT_EQ (vorn_blackboard_end_read (reader.get (), reader.revision ()), -EINVAL);
}

TEST_F (BlackboardTest, EndOfReadFailsWhenOverwrittenAfterTheRead)
{
  const Writer writer = create ("late", {16, 3, 1000, 0});
  const Reader reader ("late");
  for (uint64_t k = 0; k < 3; k++)
    ASSERT_EQ (write (writer, 16, k), 0);
  ASSERT_EQ (select (reader, pattern_time_ns (1), VORN_BLACKBOARD_SPAN, 1), 0);
  EXPECT_THAT (read_numbers (reader), ElementsAre (1, 2));
  for (uint64_t k = 3; k < 6; k++)
    ASSERT_EQ (write (writer, 16, k), 0);
  EXPECT_EQ (vorn_blackboard_end_read (reader.get (), reader.revision ()), -EAGAIN);
}

TEST_F (BlackboardTest, EqualTimesAreKeptAndTheNewestIsValid)
{
  const Writer writer = create ("equal", {16, 10, 1000, 0});
  const Reader reader ("equal");
  for (uint64_t k = 0; k < 3; k++)
    ASSERT_EQ (write (writer, 16, k, 1000), 0);
  ASSERT_EQ (select (reader, 1000, VORN_BLACKBOARD_AT_OR_BEFORE), 0);
  EXPECT_THAT (read_numbers (reader), ElementsAre (2));
  ASSERT_EQ (select (reader, 1000, VORN_BLACKBOARD_AT_OR_AFTER), 0);
  EXPECT_THAT (read_numbers (reader), ElementsAre (0));
}

TEST_F (BlackboardTest, TimeSetBackStartsTheHistoryAnew)
{
  LogCapture capture;
  const Writer writer = create ("clock", {16, 10, 1000, 0});
  const Reader reader ("clock");
  for (uint64_t k = 0; k < 15; k++)
    ASSERT_EQ (write (writer, 16, k, 5000 + k), 0);
  EXPECT_TRUE (capture.texts (4).empty ());
  ASSERT_EQ (write (writer, 16, 15, 100), 0);
  EXPECT_TRUE (capture.has (
      "section 'clock': time went back from 5014 to 100 ns, its history starts anew", 4));
  ASSERT_EQ (write (writer, 16, 16, 200), 0);
  ASSERT_EQ (select (reader, 5003, VORN_BLACKBOARD_AT_OR_BEFORE), 0);
  EXPECT_THAT (read_numbers (reader), ElementsAre (16));
  // Nothing of this history was that early, and nothing of it is lost.
  EXPECT_EQ (select (reader, 99, VORN_BLACKBOARD_AT_OR_BEFORE), -ENOENT);
  ASSERT_EQ (select (reader, 99, VORN_BLACKBOARD_AT_OR_AFTER), 0);
  EXPECT_THAT (read_numbers (reader), ElementsAre (15));
  ASSERT_EQ (select (reader, 100, VORN_BLACKBOARD_SPAN, 100), 0);
  EXPECT_THAT (read_numbers (reader), ElementsAre (15, 16));
}

TEST_F (BlackboardTest, WriterClosedReadersFindNothingUntilAnotherIsBack)
{
  Writer writer = create ("closed", {16, 10, 1000, 0});
  const Reader reader ("closed");
  ASSERT_EQ (write (writer, 16, 1), 0);
  ASSERT_EQ (select_latest (reader), 0);
  writer.reset ();
  // What was selected before stays readable.
  EXPECT_THAT (read_numbers (reader), ElementsAre (1));
  EXPECT_EQ (select_latest (reader), -ENOENT);
  EXPECT_FALSE (std::filesystem::exists (object_path ("closed")));
  // Another ring size is no reason to stop.
  writer = create ("closed", {16, 400, 1000, 9});
  ASSERT_EQ (write (writer, 16, 7), 0);
  ASSERT_EQ (select_latest (reader), 0);
  EXPECT_THAT (read_numbers (reader), ElementsAre (7));
  VornBlackboardHeader header = {};
  ASSERT_EQ (vorn_blackboard_get_header (reader.get (), &header), 0);
  EXPECT_EQ (header.sample_count, 400u);
  EXPECT_EQ (header.fourth, 9u);
}

TEST_F (BlackboardTest, OtherSampleSizeOfTheNextWriterIsRefusedUntilReopened)
{
  LogCapture capture;
  Writer writer = create ("resized", {16, 10, 1000, 0});
  Reader reader ("resized");
  ASSERT_EQ (write (writer, 16, 1), 0);
  writer.reset ();
  writer = create ("resized", {24, 10, 1000, 0});
  ASSERT_EQ (write (writer, 24, 2), 0);
  EXPECT_EQ (select_latest (reader), -ESTALE);
  EXPECT_EQ (select_latest (reader), -ESTALE);
  char buffer[64];
  EXPECT_EQ (vorn_blackboard_read (reader.get (), 0, buffer, sizeof buffer), -EINVAL);
  EXPECT_EQ (
      capture.count (
          "section 'resized': its new writer has samples of 24 bytes, it was opened with 16", 3),
      1);
  reader = Reader ("resized");
  ASSERT_EQ (select_latest (reader), 0);
  EXPECT_THAT (read_numbers (reader), ElementsAre (2));
}

TEST_F (BlackboardTest, SecondWriterIsRefused)
{
  LogCapture capture;
  const Writer first = create ("taken", attitude);
  ASSERT_TRUE (first);
  const Writer second = create ("taken", attitude);
  EXPECT_FALSE (second);
  EXPECT_EQ (errno, EBUSY);
  EXPECT_TRUE (capture.has ("section 'taken' not created: has a living writer (process " +
                                std::to_string (getpid ()) + ")",
                            3));
  EXPECT_EQ (vorn_blackboard_remove ("taken"), -EBUSY);
  EXPECT_TRUE (capture.has ("section 'taken' not removed: has a living writer (process " +
                                std::to_string (getpid ()) + ")",
                            3));
  // The first one is none the worse.
  const Reader reader ("taken");
  ASSERT_EQ (write (first, 16, 3), 0);
  ASSERT_EQ (select_latest (reader), 0);
}

TEST_F (BlackboardTest, SectionIsReadableByTheWritersUserOnly)
{
  const mode_t mask = umask (0);
  const Writer writer = create ("private", attitude);
  umask (mask);
  struct stat status;
  ASSERT_EQ (stat (object_path ("private").c_str (), &status), 0);
  EXPECT_EQ (status.st_mode & 07777, 0600u);
  EXPECT_EQ (status.st_uid, geteuid ());
  if (geteuid () != 0)
    GTEST_SKIP () << "to become another user takes root";
  const pid_t child = fork ();
  if (child == 0) {
    LogCapture capture;
    if (setgroups (0, nullptr) != 0 || setgid (65534) != 0 || setuid (65534) != 0)
      _exit (99);
    const Reader reader ("private");
    const int open_error = reader ? 0 : errno;
    const Writer other = create ("private", attitude);
    const int create_error = other ? 0 : errno;
    const bool said =
        capture.has ("section 'private' refused: it cannot be opened: Permission denied", 3);
    _exit (open_error != EACCES ? 1 : create_error != EACCES ? 2 : said ? 0 : 3);
  }
  int exit_status = -1;
  ASSERT_EQ (waitpid (child, &exit_status, 0), child);
  EXPECT_EQ (exit_status, 0);
}

TEST_F (BlackboardTest, SeveralReadersAreIndependent)
{
  const Writer writer = create ("shared", {16, 10, 1000, 0});
  const Reader one ("shared");
  const Reader two ("shared");
  for (uint64_t k = 0; k < 5; k++)
    ASSERT_EQ (write (writer, 16, k), 0);
  ASSERT_EQ (select (one, pattern_time_ns (1), VORN_BLACKBOARD_SPAN, 1), 0);
  ASSERT_EQ (select_latest (two), 0);
  EXPECT_THAT (read_numbers (one), ElementsAre (1, 2));
  EXPECT_THAT (read_numbers (two), ElementsAre (4));
  // A revision belongs to its reader.
  EXPECT_EQ (vorn_blackboard_end_read (one.get (), two.revision ()), -EINVAL);
  EXPECT_EQ (vorn_blackboard_close (one.get (), two.revision ()), -EINVAL);
  EXPECT_EQ (vorn_blackboard_end_read (one.get (), one.revision ()), 0);
}

TEST_F (BlackboardTest, NullAndBadArgumentsGiveEinval)
{
  char buffer[64] = {};
  struct timespec time = {1, 0};
  VornBlackboardHeader header = attitude;
  VornBlackboardRevision *revision = nullptr;
  EXPECT_EQ (vorn_blackboard_write (nullptr, buffer, &time), -EINVAL);
  EXPECT_EQ (vorn_blackboard_writer_close (nullptr), -EINVAL);
  EXPECT_EQ (vorn_blackboard_get_header (nullptr, &header), -EINVAL);
  EXPECT_EQ (vorn_blackboard_select (nullptr, &time, VORN_BLACKBOARD_LATEST, 0), -EINVAL);
  EXPECT_EQ (vorn_blackboard_read (nullptr, 0, buffer, sizeof buffer), -EINVAL);
  EXPECT_EQ (vorn_blackboard_read_times (nullptr, &time, 1), -EINVAL);
  EXPECT_EQ (vorn_blackboard_end_read (nullptr, nullptr), -EINVAL);
  EXPECT_EQ (vorn_blackboard_close (nullptr, nullptr), -EINVAL);
  EXPECT_EQ (vorn_blackboard_remove (nullptr), -EINVAL);

  LogCapture capture;
  errno = 0;
  EXPECT_EQ (vorn_blackboard_create (nullptr, &header), nullptr);
  EXPECT_EQ (errno, EINVAL);
  errno = 0;
  EXPECT_EQ (vorn_blackboard_create ("args", nullptr), nullptr);
  EXPECT_EQ (errno, EINVAL);
  errno = 0;
  EXPECT_EQ (vorn_blackboard_open (nullptr, &revision), nullptr);
  EXPECT_EQ (errno, EINVAL);
  errno = 0;
  EXPECT_EQ (vorn_blackboard_open ("args", nullptr), nullptr);
  EXPECT_EQ (errno, EINVAL);
  EXPECT_TRUE (capture.has ("section 'args' not created: no header", 3));
  EXPECT_TRUE (capture.has ("section 'args' not opened: no place for the revision", 3));

  const Writer writer = create ("args", attitude);
  const Reader reader ("args");
  ASSERT_EQ (write (writer, 16, 0), 0);
  EXPECT_EQ (vorn_blackboard_write (writer.get (), nullptr, &time), -EINVAL);
  EXPECT_EQ (vorn_blackboard_write (writer.get (), buffer, nullptr), -EINVAL);
  for (const struct timespec bad : {timespec{-1, 0}, timespec{0, -1}, timespec{0, 1000000000},
                                    timespec{18446744073, 0}, timespec{LONG_MAX, 0}}) {
    EXPECT_EQ (vorn_blackboard_write (writer.get (), buffer, &bad), -EINVAL);
    EXPECT_EQ (vorn_blackboard_select (reader.get (), &bad, VORN_BLACKBOARD_SPAN, 0), -EINVAL);
  }
  EXPECT_EQ (vorn_blackboard_select (reader.get (), nullptr, VORN_BLACKBOARD_SPAN, 0), -EINVAL);
  EXPECT_EQ (vorn_blackboard_select (reader.get (), &time, VORN_BLACKBOARD_LATEST, 1), -EINVAL);
  for (const uint32_t method : {4u, 1000u, UINT32_MAX})
    EXPECT_EQ (vorn_blackboard_select (reader.get (), &time, method, 0), -EINVAL);
  // Without a selection.
  EXPECT_EQ (vorn_blackboard_read (reader.get (), 0, buffer, sizeof buffer), -EINVAL);
  EXPECT_EQ (vorn_blackboard_end_read (reader.get (), reader.revision ()), -EINVAL);
  ASSERT_EQ (select_latest (reader), 0);
  EXPECT_EQ (vorn_blackboard_read (reader.get (), 1, buffer, sizeof buffer), -EINVAL);
  EXPECT_EQ (vorn_blackboard_read (reader.get (), 0, nullptr, 16), -EINVAL);
  EXPECT_EQ (vorn_blackboard_get_header (reader.get (), nullptr), -EINVAL);
  EXPECT_EQ (vorn_blackboard_end_read (reader.get (), nullptr), -EINVAL);
  // The longest time that can be written.
  time = {18446744072, 999999999};
  EXPECT_EQ (vorn_blackboard_write (writer.get (), buffer, &time), 0);
  EXPECT_EQ (vorn_blackboard_select (reader.get (), &time, VORN_BLACKBOARD_AT_OR_BEFORE, 0), 0);
}

TEST_F (BlackboardTest, HeadersOutOfRangeAreRefused)
{
  const struct {
    VornBlackboardHeader header;
    const char *text;
  } rows[] = {
      {{0, 10, 0, 0}, "section 'range' not created: sample size 0 is not within 1 to 1048576"},
      {{1048577, 10, 0, 0},
       "section 'range' not created: sample size 1048577 is not within 1 to 1048576"},
      {{16, 0, 0, 0}, "section 'range' not created: sample count 0 is not within 1 to 16777216"},
      {{16, 16777217, 0, 0},
       "section 'range' not created: sample count 16777217 is not within 1 to 16777216"},
      {{UINT32_MAX, UINT32_MAX, 0, 0},
       "section 'range' not created: sample size 4294967295 is not within 1 to 1048576"},
      {{1048576, 16777216, 0, 0},
       "section 'range' not created: section size 35184640524416 is not within 1 to 268435456"},
  };
  for (const auto &row : rows) {
    LogCapture capture;
    errno = 0;
    EXPECT_FALSE (create ("range", row.header));
    EXPECT_EQ (errno, EINVAL);
    EXPECT_TRUE (capture.has (row.text, 3)) << row.text;
    EXPECT_FALSE (std::filesystem::exists (object_path ("range")));
  }
}

TEST_F (BlackboardTest, NamesAreChecked)
{
  const std::string longest (64, 'x');
  for (const std::string &good : {std::string ("a"), std::string ("A-b_9"), longest})
    EXPECT_TRUE (create (good.c_str (), attitude)) << good;
  for (const std::string &bad :
       {std::string (), std::string ("a.b"), std::string ("../x"), std::string ("a/b"),
        std::string ("a b"), std::string ("\xc3\xa9"), std::string ("a\n"), longest + "x"}) {
    LogCapture capture;
    EXPECT_FALSE (create (bad.c_str (), attitude)) << bad;
    EXPECT_EQ (errno, EINVAL);
    EXPECT_FALSE (Reader (bad.c_str ()));
    EXPECT_EQ (errno, EINVAL);
    EXPECT_EQ (vorn_blackboard_remove (bad.c_str ()), -EINVAL);
    EXPECT_EQ (capture.count ("section '" + bad +
                                  "' refused: a name has 1 to 64 letters, digits, '_' or '-'",
                              3),
               3);
  }
}

TEST_F (BlackboardTest, MissingSectionIsReported)
{
  LogCapture capture;
  errno = 0;
  EXPECT_FALSE (Reader ("missing"));
  EXPECT_EQ (errno, ENOENT);
  ASSERT_EQ (capture.lines ().size (), 1u);
  EXPECT_EQ (capture.lines ()[0].tag, "blackboard");
  EXPECT_EQ (capture.lines ()[0].text, "section 'missing' not opened: it does not exist");
  EXPECT_EQ (vorn_blackboard_remove ("missing"), -ENOENT);
}

TEST_F (BlackboardTest, NamespacesKeepSectionsApart)
{
  const std::string other = name_space () + "-b";
  const Writer here = create ("space", {16, 10, 1000, 0});
  ASSERT_EQ (vorn_blackboard_set_namespace (other.c_str ()), 0);
  EXPECT_FALSE (Reader ("space"));
  const Writer there = create ("space", {16, 10, 1000, 0});
  ASSERT_TRUE (there);
  ASSERT_EQ (write (there, 16, 5), 0);
  ASSERT_EQ (write (here, 16, 4), 0);
  const Reader reader ("space");
  ASSERT_EQ (vorn_blackboard_set_namespace (nullptr), 0);
  // A reader stays where it was opened.
  ASSERT_EQ (select_latest (reader), 0);
  EXPECT_THAT (read_numbers (reader), ElementsAre (5));
  const Reader reader_here ("space");
  ASSERT_EQ (select_latest (reader_here), 0);
  EXPECT_THAT (read_numbers (reader_here), ElementsAre (4));
}

TEST_F (BlackboardTest, BadNamespacesAreRefused)
{
  LogCapture capture;
  for (const char *bad : {"", "a.b", "a/b", "123456789012345678901234567890123"}) {
    EXPECT_EQ (vorn_blackboard_set_namespace (bad), -EINVAL);
    EXPECT_EQ (vorn_blackboard_remove_namespace (bad), -EINVAL);
  }
  EXPECT_TRUE (
      capture.has ("namespace 'a/b' refused: a name has 1 to 32 letters, digits, '_' or '-'", 3));
  setenv ("VORN_NAMESPACE", "not good", 1);
  EXPECT_FALSE (create ("any", attitude));
  EXPECT_EQ (errno, EINVAL);
  EXPECT_TRUE (capture.has ("namespace 'not good' from VORN_NAMESPACE refused: a name has 1 to 32 "
                            "letters, digits, '_' or '-'",
                            3));
  // Chosen by call the environment does not matter.
  ASSERT_EQ (vorn_blackboard_set_namespace (name_space ().c_str ()), 0);
  EXPECT_TRUE (create ("any", attitude));
}

TEST_F (BlackboardTest, RemovingANamespaceSparesLivingWriters)
{
  // Objects of a dead writer, made by hand: nobody holds their lock.
  for (const char *name : {"a", "b"})
    std::ofstream (object_path (name)) << "left over";
  std::ofstream (object_path ("c", "telemetry")) << "left over";
  {
    LogCapture capture;
    const Writer living = create ("living", attitude);
    EXPECT_EQ (vorn_blackboard_remove_namespace (nullptr), -EBUSY);
    EXPECT_TRUE (capture.has ("section 'blackboard.living' not removed: has a living writer "
                              "(process " +
                                  std::to_string (getpid ()) + ")",
                              3));
    EXPECT_TRUE (std::filesystem::exists (object_path ("living")));
    for (const char *name : {"a", "b"})
      EXPECT_FALSE (std::filesystem::exists (object_path (name)));
    EXPECT_FALSE (std::filesystem::exists (object_path ("c", "telemetry")));
  }
  for (const char *name : {"a", "b"})
    std::ofstream (object_path (name)) << "left over";
  EXPECT_EQ (vorn_blackboard_remove_namespace (nullptr), 2);
  EXPECT_EQ (vorn_blackboard_remove_namespace (nullptr), 0);
}
