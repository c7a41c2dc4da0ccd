// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "mp4_boxes.hpp"

#include <cstring>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "temp_dir.hpp"
#include <vorn/raii.hpp>

namespace
{

std::string be (guint64 value, int bytes)
{
  std::string text;
  for (int i = bytes - 1; i >= 0; i--)
    text += static_cast<char> (value >> (8 * i));
  return text;
}

std::string box (const char *type, const std::string &content = "")
{
  return be (content.size () + 8, 4) + type + content;
}

std::string wide_box (const char *type, const std::string &content = "")
{
  return be (1, 4) + type + be (content.size () + 16, 8) + content;
}

/** Version, flags, creation and modification time, and something behind. */
std::string header (int version, guint64 created, guint64 modified)
{
  const int size = version == 0 ? 4 : 8;
  return be (static_cast<guint64> (version), 1) + be (0, 3) + be (created, size) +
         be (modified, size) + "rest of the header";
}

std::string movie (int version, guint64 created)
{
  return box ("moov", box ("mvhd", header (version, created, 7)) +
                          box ("trak", box ("tkhd", header (version, created, 7)) +
                                           box ("mdia", box ("mdhd", header (version, created, 7)) +
                                                            box ("hdlr", "video"))));
}

class Boxes
{
public:
  explicit Boxes (const std::string &content)
      : fd_ (open (folder_.write ("movie.mp4", content).c_str (), O_RDWR))
  {
  }
  int fd () const { return fd_.get (); }
  std::string content () const
  {
    std::string text (10000, '\0');
    text.resize (static_cast<size_t> (pread (fd (), text.data (), text.size (), 0)));
    return text;
  }

private:
  TempDir folder_;
  vorn::Fd fd_;
};

TEST (Mp4Boxes, FragmentsThatAreComplete)
{
  const std::string begin = box ("ftyp", "isom") + movie (0, 1);
  const std::string fragment = box ("moof", "index") + box ("mdat", "pictures");
  const struct {
    const char *what;
    std::string content;
    guint count;
    size_t complete;
  } rows[] = {
      {"header only", begin, 0, begin.size ()},
      {"one fragment", begin + fragment, 1, begin.size () + fragment.size ()},
      {"three", begin + fragment + fragment + fragment, 3, begin.size () + 3 * fragment.size ()},
      {"torn index", begin + fragment + box ("moof", "index").substr (0, 11), 1,
       begin.size () + fragment.size ()},
      {"index without pictures", begin + fragment + box ("moof", "index"), 1,
       begin.size () + fragment.size ()},
      {"torn pictures", begin + fragment + fragment.substr (0, fragment.size () - 1), 1,
       begin.size () + fragment.size ()},
      {"size and half a type", begin + fragment + be (100, 4) + "mo", 1,
       begin.size () + fragment.size ()},
      {"zeros", begin + fragment + std::string (64, '\0'), 1, begin.size () + fragment.size ()},
      {"a size below its own header", begin + fragment + be (7, 4) + "moof", 1,
       begin.size () + fragment.size ()},
      {"a wide box", begin + box ("moof", "index") + wide_box ("mdat", "pictures"), 1,
       begin.size () + fragment.size () + 8},
      {"a wide box without end", begin + fragment + be (1, 4) + "mdat" + be (~guint64{0}, 8), 1,
       begin.size () + fragment.size ()},
      {"an index of the whole", begin + fragment + box ("mfra", "x"), 1,
       begin.size () + fragment.size () + 9},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE (row.what);
    const Boxes boxes (row.content);
    const auto found = vorn::mp4::find_fragments (boxes.fd ());
    ASSERT_TRUE (found);
    EXPECT_EQ (found->count, row.count);
    EXPECT_EQ (found->complete_size, row.complete);
    EXPECT_EQ (found->file_size, row.content.size ());
  }
}

TEST (Mp4Boxes, WithoutHeaderThereIsNothing)
{
  for (const std::string &content :
       {std::string (), std::string ("not a movie"), box ("ftyp", "isom"),
        box ("ftyp", "isom") + box ("moof") + box ("mdat"), movie (0, 1).substr (0, 100)}) {
    const Boxes boxes (content);
    EXPECT_FALSE (vorn::mp4::find_fragments (boxes.fd ()));
    EXPECT_FALSE (vorn::mp4::read_creation_time (boxes.fd ()));
    EXPECT_FALSE (vorn::mp4::write_creation_time (boxes.fd (), 1));
    EXPECT_EQ (boxes.content (), content);
  }
  EXPECT_FALSE (vorn::mp4::find_fragments (-1));
}

TEST (Mp4Boxes, CreationTimeOfMovieTracksAndMedia)
{
  for (const int version : {0, 1}) {
    const guint64 time = version == 0 ? 0xf0e1d2c3 : 0x1f0e1d2c3;
    const Boxes boxes (box ("ftyp", "isom") + movie (version, 5) + box ("mdat", "x"));
    EXPECT_EQ (vorn::mp4::read_creation_time (boxes.fd ()), 5u);
    EXPECT_TRUE (vorn::mp4::write_creation_time (boxes.fd (), time));
    EXPECT_EQ (vorn::mp4::read_creation_time (boxes.fd ()), time);
    EXPECT_EQ (boxes.content (), box ("ftyp", "isom") + movie (version, time) + box ("mdat", "x"))
        << "nothing else is changed";
  }
}

TEST (Mp4Boxes, HeadersTooShortForATime)
{
  const std::string content = box ("moov", box ("mvhd", "short"));
  const Boxes boxes (content);
  EXPECT_FALSE (vorn::mp4::read_creation_time (boxes.fd ()));
  EXPECT_FALSE (vorn::mp4::write_creation_time (boxes.fd (), 5));
  EXPECT_EQ (boxes.content (), content);
}

} // namespace
