// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/properties.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <vorn/raii.hpp>

namespace
{

std::string get (const char *name, const char *default_value = nullptr)
{
  char value[64];
  const size_t length = vorn_property_get (name, value, sizeof value, default_value);
  EXPECT_EQ (length, strlen (value));
  return value;
}

TEST (Properties, DefaultUntilSetAndAfterRemoval)
{
  EXPECT_EQ (get ("p.default", "0"), "0");
  EXPECT_EQ (get ("p.default", nullptr), "");
  EXPECT_EQ (vorn_property_set ("p.default", "1"), 0);
  EXPECT_EQ (get ("p.default", "0"), "1");
  EXPECT_EQ (vorn_property_set ("p.default", ""), 0);
  EXPECT_EQ (get ("p.default", "0"), "") << "the empty string is a value";
  EXPECT_EQ (vorn_property_set ("p.default", nullptr), 0);
  EXPECT_EQ (get ("p.default", "0"), "0");
  EXPECT_EQ (vorn_property_set ("p.default", nullptr), 0) << "removing what is not there";
}

TEST (Properties, BadNames)
{
  EXPECT_EQ (vorn_property_set (nullptr, "1"), -EINVAL);
  EXPECT_EQ (vorn_property_set ("", "1"), -EINVAL);
  EXPECT_EQ (get (nullptr, "d"), "d");
  EXPECT_EQ (get ("", "d"), "d");
}

struct CutCase {
  size_t size;
  const char *expected;
};

TEST (Properties, CutValuesAreTerminatedAndTheirLengthIsKnown)
{
  vorn_property_set ("p.cut", "abcdef");
  for (const auto &[size, expected] :
       {CutCase{1, ""}, CutCase{2, "a"}, CutCase{6, "abcde"}, CutCase{7, "abcdef"}}) {
    char value[8];
    memset (value, 'Z', sizeof value);
    EXPECT_EQ (vorn_property_get ("p.cut", value, size, nullptr), 6u);
    EXPECT_STREQ (value, expected);
    EXPECT_EQ (value[size], 'Z') << "nothing beyond the buffer";
  }
  EXPECT_EQ (vorn_property_get ("p.cut", nullptr, 0, nullptr), 6u);
  char value[3];
  EXPECT_EQ (vorn_property_get ("p.absent", value, sizeof value, "12345"), 5u)
      << "a default is cut like a value";
  EXPECT_STREQ (value, "12");
}

vorn::OwnedKeyFile key_file (const char *text)
{
  vorn::OwnedKeyFile file (g_key_file_new ());
  vorn::ErrorOut error;
  EXPECT_TRUE (
      g_key_file_load_from_data (file.get (), text, strlen (text), G_KEY_FILE_NONE, error.out ()))
      << error.message ();
  return file;
}

TEST (Properties, GroupOfAKeyFile)
{
  const auto file = key_file ("[other]\nro.with-front-cam=no\n"
                              "[properties]\nro.with-front-cam=1\np.text = a b\\sc \np.empty=\n");
  vorn_property_set ("p.text", "former");
  vorn_property_set ("p.stays", "here");
  vorn::ErrorOut error;
  EXPECT_EQ (vorn_properties_load (file.get (), "properties", error.out ()), 3);
  EXPECT_FALSE (error);
  EXPECT_EQ (get ("ro.with-front-cam", "0"), "1");
  EXPECT_EQ (get ("p.text"), "a b c ");
  EXPECT_EQ (get ("p.empty", "d"), "");
  EXPECT_EQ (get ("p.stays"), "here");
}

TEST (Properties, MissingGroupAndBadValueSetNothing)
{
  vorn::ErrorOut error;
  const auto file = key_file ("[properties]\np.good=1\np.bad=a\\qb\n");
  EXPECT_EQ (vorn_properties_load (file.get (), "absent", error.out ()), -1);
  ASSERT_TRUE (error);
  EXPECT_TRUE (
      g_error_matches (error.operator->(), G_KEY_FILE_ERROR, G_KEY_FILE_ERROR_GROUP_NOT_FOUND));
  EXPECT_EQ (vorn_properties_load (file.get (), "properties", error.out ()), -1);
  ASSERT_TRUE (error);
  EXPECT_TRUE (strstr (error.message (), "property 'p.bad': ")) << error.message ();
  EXPECT_EQ (get ("p.good", "unset"), "unset");
  EXPECT_EQ (vorn_properties_load (file.get (), "absent", nullptr), -1) << "error may be NULL";
}

TEST (Properties, ReadersNeverSeeHalfAValue)
{
  const std::string a (60, 'a');
  const std::string b (30, 'b');
  vorn_property_set ("p.race", a.c_str ());
  constexpr int n_readers = 3;
  std::atomic<int> finished = 0;
  std::vector<std::thread> readers;
  readers.reserve (n_readers);
  for (int i = 0; i < n_readers; i++)
    readers.emplace_back ([&] {
      for (int reads = 0; reads < 5000; reads++) {
        const std::string value = get ("p.race", "");
        EXPECT_TRUE (value == a || value == b) << value;
      }
      finished++;
    });
  for (int i = 0; finished < n_readers; i++) {
    vorn_property_set ("p.race", i % 2 ? a.c_str () : b.c_str ());
    vorn_property_set (("p.other" + std::to_string (i % 50)).c_str (), i % 3 ? "x" : nullptr);
  }
  for (auto &reader : readers)
    reader.join ();
}

} // namespace
