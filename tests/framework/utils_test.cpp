// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/utils.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "log_capture.hpp"
#include "temp_dir.hpp"
#include <vorn/raii.hpp>

namespace fs = std::filesystem;

namespace
{

/** What a call gives; group: what was passed in, and what came out. */
struct Location {
  bool found = false;
  std::string group;
  std::string pattern;
  gint index = -1;

  /** What a multifilesink makes of the pattern. */
  std::string file_name (gint number) const
  {
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const vorn::OwnedString name (g_strdup_printf (pattern.c_str (), number));
#pragma GCC diagnostic pop
    G_GNUC_END_IGNORE_DEPRECATIONS
    return name.get ();
  }
};

Location next_location (const std::string &group = {})
{
  gchar *location = group.empty () ? nullptr : g_strdup (group.c_str ());
  gchar *pattern = nullptr;
  Location result;
  result.found =
      vorn_utils_get_picture_location_pattern (0, &location, &pattern, &result.index) != FALSE;
  const vorn::OwnedString owned_location (location);
  const vorn::OwnedString owned_pattern (pattern);
  result.group = location ? location : "";
  result.pattern = pattern ? pattern : "";
  return result;
}

void touch (const std::string &file)
{
  std::ofstream stream (file);
}

class Pictures : public testing::Test
{
protected:
  void SetUp () override { vorn_utils_set_media_folder (dir_.path ().c_str ()); }
  void TearDown () override { vorn_utils_set_media_folder (nullptr); }

  /** As a new process finds it. */
  void restart () { vorn_utils_set_media_folder (dir_.path ().c_str ()); }
  /** Empty: none. */
  static std::string last_location ()
  {
    const vorn::OwnedString last (vorn_utils_get_picture_last_location ());
    return last ? last.get () : "";
  }

  TempDir dir_;
  LogCapture log_;
};

TEST_F (Pictures, MediaFolderIsKept)
{
  const vorn::OwnedString folder (vorn_utils_get_media_folder ());
  EXPECT_EQ (folder.get (), dir_.path ());
  vorn_utils_set_media_folder (nullptr);
  const vorn::OwnedString fallback (vorn_utils_get_media_folder ());
  EXPECT_STREQ (fallback.get (), "media");
}

TEST_F (Pictures, FirstGroupInANewFolder)
{
  const Location location = next_location ();
  EXPECT_TRUE (location.found);
  EXPECT_EQ (location.group, dir_.at ("photos/ZELTO_0001"));
  EXPECT_EQ (location.pattern, dir_.at ("photos/ZELTO_0001_%04d.jpg"));
  EXPECT_EQ (location.index, 0);
  EXPECT_EQ (location.file_name (location.index), dir_.at ("photos/ZELTO_0001_0000.jpg"));
  EXPECT_TRUE (fs::is_directory (dir_.at ("photos")));
  EXPECT_TRUE (log_.lines ().empty ());
}

TEST_F (Pictures, NewGroupsAreNeverGivenTwice)
{
  // Nothing was written in between.
  EXPECT_EQ (next_location ().group, dir_.at ("photos/ZELTO_0001"));
  EXPECT_EQ (next_location ().group, dir_.at ("photos/ZELTO_0002"));
  EXPECT_EQ (next_location ().group, dir_.at ("photos/ZELTO_0003"));
}

TEST_F (Pictures, NewGroupFollowsTheHighestOnDisk)
{
  dir_.write ("photos/ZELTO_0041_0003.jpg", "x");
  dir_.write ("photos/ZELTO_0007_0000.jpg", "x");
  dir_.write ("photos/holiday.jpg", "x");
  dir_.write ("photos/ZELTO_broken.jpg", "x");
  EXPECT_EQ (next_location ().group, dir_.at ("photos/ZELTO_0042"));
}

TEST_F (Pictures, ContinuedGroupGoesOnAfterTheHighestIndex)
{
  const Location first = next_location ();
  touch (first.file_name (0));
  touch (first.file_name (1));
  touch (first.file_name (3));
  touch (first.group + "_0009.jpeg");
  touch (first.group + "_0009.jpg.tmp");
  touch (first.group + "0_0009.jpg");
  touch (first.group + "_-001.jpg");
  // A series that is written from here on overwrites nothing.
  const Location second = next_location (first.group);
  EXPECT_TRUE (second.found);
  EXPECT_EQ (second.group, first.group);
  EXPECT_EQ (second.pattern, first.pattern);
  EXPECT_EQ (second.index, 4);
}

TEST_F (Pictures, EmptyGroupLocationIsANewGroup)
{
  gchar *location = g_strdup ("");
  gchar *pattern = nullptr;
  gint index = -1;
  EXPECT_TRUE (vorn_utils_get_picture_location_pattern (0, &location, &pattern, &index));
  const vorn::OwnedString owned_location (location);
  const vorn::OwnedString owned_pattern (pattern);
  EXPECT_EQ (location, dir_.at ("photos/ZELTO_0001"));
  EXPECT_EQ (index, 0);
}

TEST_F (Pictures, PercentSignsOfTheFolderAreDoubled)
{
  const std::string folder = dir_.at ("50% sharp %s %n");
  vorn_utils_set_media_folder (folder.c_str ());
  const Location location = next_location ();
  ASSERT_TRUE (location.found);
  EXPECT_EQ (location.group, folder + "/photos/ZELTO_0001");
  EXPECT_EQ (location.pattern, dir_.at ("50%% sharp %%s %%n/photos/ZELTO_0001_%04d.jpg"));
  EXPECT_EQ (location.file_name (7), folder + "/photos/ZELTO_0001_0007.jpg");
  // The group continues under its real name.
  touch (location.file_name (0));
  const Location second = next_location (location.group);
  EXPECT_EQ (second.pattern, location.pattern);
  EXPECT_EQ (second.index, 1);
}

TEST_F (Pictures, FolderThatCannotBeMadeIsAnError)
{
  const std::string in_the_way = dir_.write ("media", "a file, no folder");
  vorn_utils_set_media_folder (in_the_way.c_str ());
  const Location location = next_location ();
  EXPECT_FALSE (location.found);
  EXPECT_TRUE (location.group.empty ());
  EXPECT_TRUE (location.pattern.empty ());
  const auto errors = log_.texts (VORN_LOG_PRIORITY_ERROR);
  ASSERT_EQ (errors.size (), 1u);
  EXPECT_EQ (errors[0].find ("cannot put pictures into folder " + in_the_way + "/photos: "), 0u)
      << errors[0];
}

TEST_F (Pictures, LastGroupLeavesNone)
{
  dir_.write ("photos/ZELTO_9999_0000.jpg", "x");
  const Location location = next_location ();
  EXPECT_FALSE (location.found);
  EXPECT_TRUE (log_.has ("picture folder " + dir_.at ("photos") + " is full: 9999 groups",
                         VORN_LOG_PRIORITY_ERROR));
}

TEST_F (Pictures, FolderThatCannotBeWrittenIsAnError)
{
  ASSERT_TRUE (next_location ().found);
  const std::string folder = dir_.at ("photos");
  ASSERT_EQ (chmod (dir_.path ().c_str (), 0755), 0);
  ASSERT_EQ (chmod (folder.c_str (), 0555), 0);
  // Nothing is closed to root.
  const bool is_root = geteuid () == 0;
  ASSERT_EQ (is_root ? seteuid (65534) : 0, 0);
  const Location location = next_location ();
  ASSERT_EQ (is_root ? seteuid (0) : 0, 0);
  EXPECT_FALSE (location.found);
  EXPECT_TRUE (log_.has ("cannot put pictures into folder " + folder + ": Permission denied",
                         VORN_LOG_PRIORITY_ERROR));
  ASSERT_EQ (chmod (folder.c_str (), 0755), 0);
  EXPECT_EQ (next_location ().group, dir_.at ("photos/ZELTO_0002"));
}

TEST_F (Pictures, FullGroupIsAnError)
{
  const Location first = next_location ();
  touch (first.file_name (9998));
  EXPECT_EQ (next_location (first.group).index, 9999);
  touch (first.file_name (9999));
  const Location full = next_location (first.group);
  EXPECT_FALSE (full.found);
  EXPECT_EQ (full.group, first.group);
  EXPECT_TRUE (log_.has ("picture group " + first.group + " is full: its last index is 9999",
                         VORN_LOG_PRIORITY_ERROR));
}

TEST_F (Pictures, GroupOfAFolderThatIsGoneIsAnError)
{
  const std::string group = dir_.at ("elsewhere/ZELTO_0001");
  EXPECT_FALSE (next_location (group).found);
  EXPECT_TRUE (
      log_.has ("cannot look for pictures of group " + group + ": No such file or directory",
                VORN_LOG_PRIORITY_ERROR));
}

TEST_F (Pictures, UnfinishedPicturesAreClearedAwayOnce)
{
  const std::string old = dir_.write ("photos/ZELTO_0001_0000.jpg.A1b2C3", "half");
  const std::string young = dir_.write ("photos/ZELTO_0001_0001.jpg.A1b2C3", "half");
  const std::string whole = dir_.write ("photos/ZELTO_0001_0002.jpg", "whole");
  const std::string other = dir_.write ("photos/holiday.jpg.A1b2C3", "mine");
  const auto long_ago = fs::file_time_type::clock::now () - std::chrono::minutes (2);
  for (const std::string &file : {old, whole, other})
    fs::last_write_time (file, long_ago);
  EXPECT_TRUE (next_location ().found);
  EXPECT_FALSE (fs::exists (old));
  EXPECT_TRUE (log_.has ("removed unfinished picture " + old, VORN_LOG_PRIORITY_INFO));
  for (const std::string &file : {young, whole, other})
    EXPECT_TRUE (fs::exists (file)) << file;
  fs::last_write_time (young, long_ago);
  EXPECT_TRUE (next_location ().found);
  EXPECT_TRUE (fs::exists (young));
}

TEST_F (Pictures, GroupWithANameThatNoFileCanHaveIsAnError)
{
  const std::string group = dir_.at ("photos/" + std::string (400, 'x'));
  const Location location = next_location (group);
  EXPECT_FALSE (location.found);
  EXPECT_EQ (location.group, group);
  const auto errors = log_.texts (VORN_LOG_PRIORITY_ERROR);
  ASSERT_EQ (errors.size (), 1u);
  EXPECT_NE (errors[0].find (group), std::string::npos) << errors[0];
}

TEST_F (Pictures, WrongCallsAreCriticals)
{
  CriticalCapture criticals;
  gchar *location = nullptr;
  gchar *pattern = nullptr;
  gint index = 5;
  EXPECT_FALSE (vorn_utils_get_picture_location_pattern (1, &location, &pattern, &index));
  EXPECT_FALSE (vorn_utils_get_picture_location_pattern (0, nullptr, &pattern, &index));
  EXPECT_FALSE (vorn_utils_get_picture_location_pattern (0, &location, nullptr, &index));
  EXPECT_FALSE (vorn_utils_get_picture_location_pattern (0, &location, &pattern, nullptr));
  EXPECT_FALSE (vorn_utils_set_picture_last_location (nullptr));
  EXPECT_EQ (criticals.criticals ().size (), 5u);
  EXPECT_EQ (location, nullptr);
  EXPECT_EQ (pattern, nullptr);
  EXPECT_EQ (index, 5);
}

TEST_F (Pictures, LastLocationIsAFileThatExists)
{
  const std::string picture = dir_.write ("photos/ZELTO_0001_0000.jpg", "x");
  EXPECT_TRUE (vorn_utils_set_picture_last_location (picture.c_str ()));
  const vorn::OwnedString last (vorn_utils_get_picture_last_location ());
  EXPECT_EQ (last.get (), picture);

  EXPECT_FALSE (vorn_utils_set_picture_last_location (dir_.at ("no.jpg").c_str ()));
  EXPECT_FALSE (vorn_utils_set_picture_last_location (dir_.path ().c_str ()));
  EXPECT_FALSE (vorn_utils_set_picture_last_location (""));
  const vorn::OwnedString still (vorn_utils_get_picture_last_location ());
  EXPECT_EQ (still.get (), picture);
}

// ---- The last picture, from one run to the next

TEST_F (Pictures, LastLocationIsRememberedAcrossRuns)
{
  const std::string picture = dir_.write ("photos/ZELTO_0012_0003.jpg", "x");
  EXPECT_EQ (last_location (), "");
  ASSERT_TRUE (vorn_utils_set_picture_last_location (picture.c_str ()));
  restart ();
  EXPECT_EQ (last_location (), picture);
  // The folder may have moved meanwhile.
  const std::string moved = dir_.path () + "-moved";
  fs::rename (dir_.path (), moved);
  vorn_utils_set_media_folder (moved.c_str ());
  EXPECT_EQ (last_location (), moved + "/photos/ZELTO_0012_0003.jpg");
  fs::rename (moved, dir_.path ());
}

TEST_F (Pictures, LastPictureElsewhereIsRememberedAsWell)
{
  const TempDir elsewhere;
  const std::string picture = elsewhere.write ("a.jpg", "x");
  ASSERT_TRUE (vorn_utils_set_picture_last_location (picture.c_str ()));
  restart ();
  EXPECT_EQ (last_location (), picture);
}

TEST_F (Pictures, NumbersGoOnWhenThePicturesWereDeleted)
{
  const std::string picture = dir_.write ("photos/ZELTO_0012_0003.jpg", "x");
  ASSERT_TRUE (vorn_utils_set_picture_last_location (picture.c_str ()));
  fs::remove (picture);
  restart ();
  EXPECT_EQ (last_location (), "");
  EXPECT_EQ (next_location ().group, dir_.at ("photos/ZELTO_0013"));
}

TEST_F (Pictures, StateFileThatTellsNothingIsIgnored)
{
  for (const std::string &text :
       {std::string (), std::string ("\n"), std::string ("gone.jpg\n"), std::string (3, '\0'),
        std::string (100000, 'x'), std::string ("\xff\xfe%s%n"), std::string ("photos")}) {
    dir_.write (".last-picture", text);
    dir_.write ("photos/ZELTO_0001_0000.jpg", "x");
    restart ();
    EXPECT_EQ (last_location (), "");
    EXPECT_EQ (next_location ().group, dir_.at ("photos/ZELTO_0002"));
  }
  EXPECT_TRUE (log_.lines ().empty ());
}

TEST_F (Pictures, StateThatCannotBeWrittenIsTold)
{
  const std::string picture = dir_.write ("photos/ZELTO_0001_0000.jpg", "x");
  ASSERT_TRUE (fs::create_directory (dir_.at (".last-picture")));
  EXPECT_TRUE (vorn_utils_set_picture_last_location (picture.c_str ()));
  EXPECT_EQ (last_location (), picture);
  const auto warnings = log_.texts (VORN_LOG_PRIORITY_WARNING);
  ASSERT_EQ (warnings.size (), 1u);
  EXPECT_EQ (warnings[0].find ("the last picture is not remembered beyond this run: "), 0u)
      << warnings[0];
  // Nothing half written stays.
  int entries = 0;
  for ([[maybe_unused]] const auto &entry : fs::directory_iterator (dir_.path ()))
    entries++;
  EXPECT_EQ (entries, 2);
}

TEST (ResourceError, CarriesCodeAndMessage)
{
  const vorn::OwnedError error (
      vorn_resource_error_new (VORN_RESOURCE_ERROR_NO_SPACE_LEFT, "no space left"));
  EXPECT_TRUE (g_error_matches (error.get (), VORN_RESOURCE_ERROR, 3));
  EXPECT_STREQ (error->message, "no space left");
  const vorn::OwnedError nameless (vorn_resource_error_new (VORN_RESOURCE_ERROR_FAILED, nullptr));
  EXPECT_TRUE (g_error_matches (nameless.get (), VORN_RESOURCE_ERROR, 1));
  EXPECT_STREQ (nameless->message, "unknown");
}

TEST (ResourceError, HasADomainOfItsName)
{
  EXPECT_STREQ (g_quark_to_string (VORN_RESOURCE_ERROR), "vorn-resource-error-quark");
}

} // namespace
