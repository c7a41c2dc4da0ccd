// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Objects in shared memory that are no sections, or damaged ones.
#include "blackboard_fixture.hpp"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <vector>

#include <sys/stat.h>

using Image = std::vector<char>;

namespace
{

// Where the fields of a section are.
constexpr size_t at_magic = 0;
constexpr size_t at_byte_order = 8;
constexpr size_t at_version = 12;
constexpr size_t at_sample_size = 16;
constexpr size_t at_sample_count = 20;
constexpr size_t at_kind = 32;
constexpr size_t at_annex_size = 36;
constexpr size_t at_image_size = 40;
constexpr size_t at_done = 72;
constexpr size_t at_state = 88;

template <typename T>
void put (Image &image, size_t at, T value)
{
  memcpy (image.data () + at, &value, sizeof value);
}

class BlackboardImage : public BlackboardTest
{
protected:
  /** A good section of 5 samples of 16 bytes, three written, as its object holds it. */
  static Image good_image ()
  {
    const Writer writer = create ("good", {16, 5, 1000, 0});
    for (uint64_t k = 0; k < 3; k++)
      EXPECT_EQ (write (writer, 16, k), 0);
    std::ifstream file (object_path ("good"), std::ios::binary);
    return Image (std::istreambuf_iterator<char> (file), {});
  }
  static void place (const Image &image, const std::string &path, mode_t mode = 0600)
  {
    std::filesystem::remove (path);
    std::ofstream (path, std::ios::binary)
        .write (image.data (), static_cast<std::streamsize> (image.size ()));
    chmod (path.c_str (), mode);
  }
};

struct Damage {
  const char *name;
  std::function<void (Image &)> apply;
  int error;
  const char *reason;
};

const Damage damages[] = {
    {"empty", [] (Image &i) { i.clear (); }, EBADMSG, "its 0 bytes are too few for a section"},
    {"header cut", [] (Image &i) { i.resize (127); }, EBADMSG,
     "its 127 bytes are too few for a section"},
    {"body cut", [] (Image &i) { i.pop_back (); }, EBADMSG,
     "it has 319 bytes, its header asks for 320"},
    {"only the header", [] (Image &i) { i.resize (128); }, EBADMSG,
     "it has 128 bytes, its header asks for 320"},
    {"something behind", [] (Image &i) { i.resize (1000); }, EBADMSG,
     "it has 1000 bytes, its header asks for 320"},
    {"zeros", [] (Image &i) { i.assign (i.size (), 0); }, EBADMSG,
     "it is no section (no magic number)"},
    {"garbage", [] (Image &i) { i.assign (4096, '\xa5'); }, EBADMSG,
     "it is no section (no magic number)"},
    {"one magic byte", [] (Image &i) { put (i, at_magic + 7, '\r'); }, EBADMSG,
     "it is no section (no magic number)"},
    {"byte order", [] (Image &i) { put (i, at_byte_order, 0x04030201); }, EPROTONOSUPPORT,
     "it was written in another byte order"},
    {"next version", [] (Image &i) { put (i, at_version, 2); }, EPROTONOSUPPORT,
     "its format has version 2, this program reads version 1"},
    {"version 0", [] (Image &i) { put (i, at_version, 0); }, EPROTONOSUPPORT,
     "its format has version 0, this program reads version 1"},
    {"telemetry", [] (Image &i) { put (i, at_kind, 1); }, EBADMSG,
     "it is a section of another kind"},
    {"unknown kind", [] (Image &i) { put (i, at_kind, 77); }, EBADMSG,
     "it is a section of another kind"},
    {"sample size 0", [] (Image &i) { put (i, at_sample_size, 0); }, EBADMSG,
     "sample size 0 is not within 1 to 1048576"},
    {"sample size huge", [] (Image &i) { put (i, at_sample_size, UINT32_MAX); }, EBADMSG,
     "sample size 4294967295 is not within 1 to 1048576"},
    {"sample count 0", [] (Image &i) { put (i, at_sample_count, 0); }, EBADMSG,
     "sample count 0 is not within 1 to 16777216"},
    {"sample count huge", [] (Image &i) { put (i, at_sample_count, UINT32_MAX); }, EBADMSG,
     "sample count 4294967295 is not within 1 to 16777216"},
    {"product too large",
     [] (Image &i) {
       put (i, at_sample_size, 1048576);
       put (i, at_sample_count, 16777216);
     },
     EBADMSG, "section size 35184640524416 is not within 1 to 268435456"},
    {"sample size beyond the object", [] (Image &i) { put (i, at_sample_size, 17); }, EBADMSG,
     "its header asks for 384 bytes and claims 320"},
    {"sample count beyond the object", [] (Image &i) { put (i, at_sample_count, 8); }, EBADMSG,
     "its header asks for 512 bytes and claims 320"},
    {"annex huge", [] (Image &i) { put (i, at_annex_size, UINT32_MAX); }, EBADMSG,
     "annex size 4294967295 is not within 0 to 1048576"},
    {"annex beyond the object", [] (Image &i) { put (i, at_annex_size, 64); }, EBADMSG,
     "its header asks for 384 bytes and claims 320"},
    {"claimed size", [] (Image &i) { put (i, at_image_size, UINT64_MAX); }, EBADMSG,
     "its header asks for 320 bytes and claims 18446744073709551615"},
    {"unset state", [] (Image &i) { put (i, at_state, 0); }, EBADMSG, "it is in no known state"},
    {"unknown state", [] (Image &i) { put (i, at_state, 3); }, EBADMSG, "it is in no known state"},
};

} // namespace

TEST_F (BlackboardImage, GoodImageOfADeadWriterIsRead)
{
  place (good_image (), object_path ("image"));
  const Reader reader ("image");
  ASSERT_TRUE (reader);
  ASSERT_EQ (select_latest (reader), 0);
  EXPECT_EQ (read_numbers (reader), (std::vector<uint64_t>{2}));
}

TEST_F (BlackboardImage, DamagedImagesAreRefusedByNameAndReason)
{
  const Image good = good_image ();
  ASSERT_EQ (good.size (), 320u);
  for (const auto &damage : damages) {
    SCOPED_TRACE (damage.name);
    Image image = good;
    damage.apply (image);
    place (image, object_path ("image"));
    LogCapture capture;
    errno = 0;
    EXPECT_FALSE (Reader ("image"));
    EXPECT_EQ (errno, damage.error);
    ASSERT_EQ (capture.lines ().size (), 1u);
    EXPECT_EQ (capture.lines ()[0].tag, "blackboard");
    EXPECT_EQ (capture.lines ()[0].priority, 3);
    EXPECT_EQ (capture.lines ()[0].text, std::string ("section 'image' refused: ") + damage.reason);
  }
}

TEST_F (BlackboardImage, WriterReplacesWhateverADeadOneLeft)
{
  const Image good = good_image ();
  for (const auto &damage : damages) {
    SCOPED_TRACE (damage.name);
    Image image = good;
    damage.apply (image);
    place (image, object_path ("image"));
    LogCapture capture;
    const Writer writer = create ("image", {32, 7, 0, 0});
    ASSERT_TRUE (writer);
    EXPECT_TRUE (capture.has ("section 'image' taken over from a writer that died", 6));
    ASSERT_EQ (write (writer, 32, 4), 0);
    const Reader reader ("image");
    ASSERT_EQ (select_latest (reader), 0);
  }
}

TEST_F (BlackboardImage, WithdrawnImageDoesNotExist)
{
  Image image = good_image ();
  put (image, at_state, 2);
  place (image, object_path ("image"));
  LogCapture capture;
  EXPECT_FALSE (Reader ("image"));
  EXPECT_EQ (errno, ENOENT);
  EXPECT_TRUE (capture.has ("section 'image' not opened: it does not exist", 3));
}

TEST_F (BlackboardImage, CountersOfAnyValueAreHarmless)
{
  Image image = good_image ();
  for (const uint64_t done : {uint64_t{0}, uint64_t{1} << 63, UINT64_MAX}) {
    put (image, at_done, done);
    place (image, object_path ("image"));
    const Reader reader ("image");
    ASSERT_TRUE (reader);
    char buffer[16 * 5];
    for (uint32_t method = 0; method < 4; method++) {
      if (select (reader, pattern_time_ns (1), method) < 0)
        continue;
      EXPECT_LE (vorn_blackboard_read (reader.get (), 0, buffer, sizeof buffer), 5);
    }
  }
}

TEST_F (BlackboardImage, WhatIsNoFileIsRefused)
{
  const std::string path = object_path ("image");
  const struct {
    const char *name;
    std::function<void ()> make;
    const char *reason;
    const char *writer_reason;
  } rows[] = {
      // Opening a pipe must not wait for its other end.
      {"pipe", [&] { ASSERT_EQ (mkfifo (path.c_str (), 0600), 0); },
       "it is no shared memory object", "what has this name is no shared memory object"},
      {"folder", [&] { std::filesystem::create_directory (path); }, "it is no shared memory object",
       "what has this name cannot be opened: Is a directory"},
      {"link", [&] { std::filesystem::create_symlink ("/etc/hostname", path); },
       "it cannot be opened: Too many levels of symbolic links",
       "what has this name cannot be opened: Too many levels of symbolic links"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE (row.name);
    row.make ();
    LogCapture capture;
    EXPECT_FALSE (Reader ("image"));
    EXPECT_TRUE (capture.has (std::string ("section 'image' refused: ") + row.reason, 3));
    EXPECT_FALSE (create ("image", {16, 5, 0, 0}));
    EXPECT_TRUE (
        capture.has (std::string ("section 'image' not created: ") + row.writer_reason, 3));
    EXPECT_NE (vorn_blackboard_remove ("image"), 0);
    std::filesystem::remove (path);
  }
}

TEST_F (BlackboardImage, ObjectsOfOthersAreRefused)
{
  const Image good = good_image ();
  LogCapture capture;
  place (good, object_path ("image"), 0622);
  EXPECT_FALSE (Reader ("image"));
  EXPECT_EQ (errno, EPERM);
  EXPECT_TRUE (capture.has ("section 'image' refused: other users may write to it", 3));
  if (geteuid () != 0)
    GTEST_SKIP () << "to give a file away takes root";
  place (good, object_path ("image"));
  ASSERT_EQ (chown (object_path ("image").c_str (), 65534, 65534), 0);
  EXPECT_FALSE (Reader ("image"));
  EXPECT_EQ (errno, EPERM);
  EXPECT_TRUE (capture.has ("section 'image' refused: it belongs to user 65534", 3));
  EXPECT_FALSE (create ("image", {16, 5, 0, 0}));
  EXPECT_EQ (errno, EPERM);
  EXPECT_TRUE (capture.has ("section 'image' not created: belongs to user 65534", 3));
  EXPECT_EQ (vorn_blackboard_remove ("image"), -EPERM);
  std::filesystem::remove (object_path ("image"));
}

TEST_F (BlackboardImage, ReadersMapTheSectionReadOnly)
{
  const Writer writer = create ("image", {16, 5, 0, 0});
  const auto modes = [] {
    std::string result;
    std::ifstream maps ("/proc/self/maps");
    for (std::string line; std::getline (maps, line);)
      if (line.find ("(deleted)") == std::string::npos &&
          line.find (object_path ("image")) != std::string::npos)
        result += line.substr (line.find (' ') + 1, 4) + " ";
    return result;
  };
  EXPECT_EQ (modes (), "");
  const Reader reader ("image");
  EXPECT_EQ (modes (), "r--s ");
}

TEST_F (BlackboardImage, DamagedSuccessorIsRefusedOnceAndTheNextGoodOneIsTaken)
{
  const Image good = good_image ();
  Writer writer = create ("image", {16, 5, 1000, 0});
  const Reader reader ("image");
  ASSERT_EQ (write (writer, 16, 1), 0);
  writer.reset ();
  Image bad = good;
  put (bad, at_version, 9);
  place (bad, object_path ("image"));
  LogCapture capture;
  for (int i = 0; i < 3; i++)
    EXPECT_EQ (select_latest (reader), -EPROTONOSUPPORT);
  EXPECT_EQ (capture.count ("section 'image' refused: its format has version 9, this program reads "
                            "version 1",
                            3),
             1);
  place (good, object_path ("image"));
  EXPECT_EQ (select_latest (reader), 0);
}

TEST_F (BlackboardImage, ShortenedOrRemovedObjectIsLeftWhenNothingNewComes)
{
  Writer writer = create ("image", {16, 2000, 1000, 0});
  const Reader reader ("image");
  ASSERT_EQ (write (writer, 16, 1), 0);
  ASSERT_EQ (select_latest (reader), 0);
  // The first page stays, where the counters are.
  std::filesystem::resize_file (object_path ("image"), 4096);
  LogCapture capture;
  EXPECT_TRUE (await ([&] { return select_latest (reader) == -EBADMSG; }));
  EXPECT_TRUE (
      capture.has ("section 'image' refused: it has 4096 bytes, its header asks for 49280", 3));

  // Removed by hand, so that nobody told the reader.
  std::filesystem::remove (object_path ("image"));
  writer = create ("image", {16, 5, 1000, 0});
  ASSERT_EQ (write (writer, 16, 2), 0);
  ASSERT_EQ (select_latest (reader), 0);
  std::filesystem::remove (object_path ("image"));
  EXPECT_TRUE (await ([&] { return select_latest (reader) == -ENOENT; }));
}
