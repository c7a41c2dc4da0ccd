// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "recording.hpp"
#include "support.hpp"

namespace
{

std::string error_of (RecordingParser &parser, std::string_view line)
{
  try {
    parser.parse (line);
  } catch (const MalformedLine &error) {
    return error.what ();
  }
  return "";
}

TEST (Recording, LinesWithAndWithoutReference)
{
  RecordingParser parser;
  auto sample = parser.parse ("17,0.5,-1e-3,2");
  ASSERT_TRUE (sample);
  EXPECT_EQ (sample->timestamp, 17u);
  EXPECT_EQ (sample->x, 0.5f);
  EXPECT_EQ (sample->y, -1e-3f);
  EXPECT_EQ (sample->z, 2.0f);
  EXPECT_FALSE (sample->reference);
  sample = parser.parse (" 18 , 1,2 ,3,\t0,0,0.6,0.8\r");
  ASSERT_TRUE (sample);
  ASSERT_TRUE (sample->reference);
  EXPECT_EQ (*sample->reference, (quat_t{0, 0, 0.6f, 0.8f}));
  sample = parser.parse ("19,1,2,3,0,0,0,0");
  ASSERT_TRUE (sample && sample->reference);
  EXPECT_EQ (*sample->reference, (quat_t{0, 0, 0, 0}));
}

TEST (Recording, LinesWithoutSamples)
{
  RecordingParser parser;
  for (const char *line : {"", "   ", "\r", "# comment", "timestamp,x,y,z", "# again"})
    EXPECT_FALSE (parser.parse (line)) << line;
  EXPECT_TRUE (parser.parse ("1,0,0,0"));
  EXPECT_EQ (error_of (parser, "timestamp,x,y,z"),
             "timestamp 'timestamp' is not an unsigned integer")
      << "a heading comes first or not at all";
}

TEST (Recording, MalformedLines)
{
  const std::pair<const char *, const char *> rows[] = {
      {"1,2,3", "expected 4 or 8 fields, found 3"},
      {"1,2,3,4,5", "expected 4 or 8 fields, found 5"},
      {"1,2,3,4,5,6,7,8,9", "expected 4 or 8 fields, found 9"},
      {"1", "expected 4 or 8 fields, found 1"},
      {",,,", "timestamp '' is not an unsigned integer"},
      {"-1,2,3,4", "timestamp '-1' is not an unsigned integer"},
      {"1.5,2,3,4", "timestamp '1.5' is not an unsigned integer"},
      {"99999999999999999999,2,3,4", "timestamp '99999999999999999999' is out of range"},
      {"18446744073709551615,2,3,4",
       "timestamp '18446744073709551615' is reserved for interpolated samples"},
      {"10,2,3,4", "timestamp '10' does not come after the one before"},
      {"9,2,3,4", "timestamp '9' does not come after the one before"},
      {"11,abc,3,4", "x 'abc' is not a number"},
      {"11,2,3x,4", "y '3x' is not a number"},
      {"11,2,3,", "z '' is not a number"},
      {"11,2,3,nan", "z 'nan' is not finite"},
      {"11,inf,3,4", "x 'inf' is not finite"},
      {"11,2,1e99,4", "y '1e99' is out of range"},
      {"11,2,3,4,0,0,zero,1", "qz 'zero' is not a number"},
      {"11,2,3,4,0,0,0,2", "the reference is neither a unit quaternion nor all zero"},
  };
  RecordingParser parser;
  ASSERT_TRUE (parser.parse ("10,0,0,0"));
  for (const auto &[line, message] : rows)
    EXPECT_EQ (error_of (parser, line), message) << line;
  EXPECT_TRUE (parser.parse ("11,2,3,4")) << "a refused line leaves no trace";
}

TEST (Recording, LongFieldsAreCutInTheMessage)
{
  RecordingParser parser;
  EXPECT_EQ (error_of (parser, std::string (100000, '7') + ",1,2,3").size (),
             std::string ("timestamp '' is out of range").size () + 40);
}

TEST (Recording, MutatedLinesAreReadOrRefused)
{
  std::mt19937 random (21);
  const std::string seeds[] = {"17,0.5,-1e-3,2", "18,1,2,3,0,0,0.6,0.8", "# comment", "t,x,y,z"};
  const std::string alphabet = ",,..--++eE0123456789 \t\r#xinfa\"\xff";
  int read = 0, refused = 0;
  for (int n = 0; n < (soak () ? 5000000 : 100000); n++) {
    std::string line = seeds[random () % std::size (seeds)];
    for (size_t edits = random () % 4; edits > 0; edits--) {
      const size_t at = random () % (line.size () + 1);
      if (random () % 3 == 0 && at < line.size ())
        line.erase (at, 1 + random () % 3);
      else
        line.insert (at, 1, random () % 50 == 0 ? '\0' : alphabet[random () % alphabet.size ()]);
    }
    RecordingParser parser;
    try {
      const auto sample = parser.parse (line);
      read++;
      if (sample) {
        ASSERT_TRUE (std::isfinite (sample->x) && std::isfinite (sample->y) &&
                     std::isfinite (sample->z))
            << line;
        ASSERT_TRUE (!sample->reference || quatIsFinite (&*sample->reference) == 1) << line;
      }
    } catch (const MalformedLine &) {
      refused++;
    }
  }
  EXPECT_GT (read, 1000);
  EXPECT_GT (refused, 1000);
}

} // namespace
