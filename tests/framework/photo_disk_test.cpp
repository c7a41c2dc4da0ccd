// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// How pictures come to lie in their folder: whole or not at all.
#include <csignal>
#include <filesystem>
#include <map>
#include <string>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.hpp"
#include "photo_file_support.hpp"
#include "temp_dir.hpp"
#include <vorn/framework.h>
#include <vorn/utils.h>

namespace fs = std::filesystem;

namespace
{

std::vector<std::string> names_in (const std::string &folder)
{
  std::vector<std::string> names;
  for (const auto &entry : fs::directory_iterator (folder))
    names.push_back (entry.path ().filename ());
  return names;
}

/** What happened to each name of a folder, as a union of inotify's bits. */
class FolderWatch
{
public:
  explicit FolderWatch (const std::string &folder) : fd_ (inotify_init1 (IN_NONBLOCK | IN_CLOEXEC))
  {
    EXPECT_GE (inotify_add_watch (fd_.get (), folder.c_str (),
                                  IN_CREATE | IN_MODIFY | IN_MOVED_TO | IN_DELETE),
               0);
  }
  std::map<std::string, uint32_t> events ()
  {
    std::map<std::string, uint32_t> events;
    alignas (inotify_event) char buffer[16384];
    ssize_t size = 0;
    while ((size = read (fd_.get (), buffer, sizeof buffer)) > 0)
      for (ssize_t at = 0; at < size;) {
        const auto *event = reinterpret_cast<const inotify_event *> (buffer + at);
        events[event->name] |= event->mask;
        at += static_cast<ssize_t> (sizeof *event) + event->len;
      }
    return events;
  }

private:
  vorn::Fd fd_;
};

/** A small disk of its own. */
class SmallDisk
{
public:
  SmallDisk (const std::string &folder, const char *size)
      : folder_ (folder), mounted_ (mount ("tmpfs", folder.c_str (), "tmpfs", 0,
                                           (std::string ("size=") + size).c_str ()) == 0)
  {
  }
  ~SmallDisk ()
  {
    if (mounted_)
      umount (folder_.c_str ());
  }
  SmallDisk (const SmallDisk &) = delete;
  SmallDisk &operator= (const SmallDisk &) = delete;
  explicit operator bool () const { return mounted_; }
  bool resize (const char *size)
  {
    return mount ("tmpfs", folder_.c_str (), "tmpfs", MS_REMOUNT,
                  (std::string ("size=") + size).c_str ()) == 0;
  }

private:
  std::string folder_;
  bool mounted_;
};

/** No file of this process may grow beyond this. */
class FileSizeLimit
{
public:
  explicit FileSizeLimit (rlim_t bytes) : handler_ (std::signal (SIGXFSZ, SIG_IGN))
  {
    EXPECT_EQ (getrlimit (RLIMIT_FSIZE, &former_), 0);
    const rlimit limit = {bytes, former_.rlim_max};
    EXPECT_EQ (setrlimit (RLIMIT_FSIZE, &limit), 0);
  }
  ~FileSizeLimit ()
  {
    setrlimit (RLIMIT_FSIZE, &former_);
    std::signal (SIGXFSZ, handler_);
  }
  FileSizeLimit (const FileSizeLimit &) = delete;
  FileSizeLimit &operator= (const FileSizeLimit &) = delete;

private:
  void (*handler_) (int);
  rlimit former_ = {};
};

class PhotoDisk : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }

  TempDir dir_;
  LogCapture log_;
};

constexpr char snow[] =
    "videotestsrc num-buffers=1 pattern=snow ! video/x-raw,width=640,height=480";

TEST_F (PhotoDisk, PicturesGetTheirNameWhenTheyAreWhole)
{
  FolderWatch watch (dir_.path ());
  PhotoPipeline photo (dir_.at ("photo_%04d.jpg"), "videotestsrc num-buffers=3");
  photo.set_tags ("run-id", "run-8", nullptr);
  ASSERT_TRUE (photo.run ());
  const auto events = watch.events ();
  for (const char *name : {"photo_0000.jpg", "photo_0001.jpg", "photo_0002.jpg"}) {
    ASSERT_TRUE (events.contains (name));
    EXPECT_EQ (events.at (name), static_cast<uint32_t> (IN_MOVED_TO)) << name;
  }
  EXPECT_EQ (names_in (dir_.path ()).size (), 3u);
}

TEST_F (PhotoDisk, FullDiskIsToldAndLeavesNothing)
{
  SmallDisk disk (dir_.path (), "16k");
  if (!disk)
    GTEST_SKIP () << "no disk may be mounted here: " << g_strerror (errno);
  PhotoPipeline photo (dir_.at ("photo_%04d.jpg"), snow);
  photo.set_tags ("run-id", "run-8", nullptr);
  EXPECT_FALSE (photo.run ());
  ASSERT_FALSE (photo.errors ().empty ());
  EXPECT_TRUE (g_error_matches (photo.errors ()[0].get (), GST_RESOURCE_ERROR,
                                GST_RESOURCE_ERROR_NO_SPACE_LEFT))
      << photo.errors ()[0]->message;
  EXPECT_TRUE (photo.files ().empty ());
  EXPECT_EQ (names_in (dir_.path ()), std::vector<std::string>{});

  // With room again the next picture is there.
  ASSERT_TRUE (disk.resize ("4m"));
  photo.set_tags ("run-id", "run-8", nullptr);
  ASSERT_TRUE (photo.run ());
  ASSERT_EQ (photo.files ().size (), 1u);
  EXPECT_EQ (Metadata (photo.files ()[0]).text ("XMP-vorn:RunId"), "run-8");
}

TEST_F (PhotoDisk, PictureThatCannotBeWrittenInFullLeavesNothing)
{
  PhotoPipeline photo (dir_.at ("photo_%04d.jpg"), snow);
  {
    const FileSizeLimit limit (8192);
    EXPECT_FALSE (photo.run ());
  }
  ASSERT_FALSE (photo.errors ().empty ());
  EXPECT_EQ (photo.errors ()[0]->domain, GST_RESOURCE_ERROR);
  EXPECT_TRUE (photo.files ().empty ());
  EXPECT_EQ (names_in (dir_.path ()), std::vector<std::string>{});
}

TEST_F (PhotoDisk, FolderThatIsGoneIsAnError)
{
  PhotoPipeline photo (dir_.at ("gone/photo_%04d.jpg"));
  EXPECT_FALSE (photo.run ());
  ASSERT_FALSE (photo.errors ().empty ());
  EXPECT_EQ (photo.errors ()[0]->domain, GST_RESOURCE_ERROR);
  EXPECT_EQ (names_in (dir_.path ()), std::vector<std::string>{});
}

TEST_F (PhotoDisk, PicturesGoWhereTheNextLocationSays)
{
  const std::string media = dir_.at ("50% of it");
  vorn_utils_set_media_folder (media.c_str ());
  gchar *group = nullptr;
  std::vector<std::string> files;
  PhotoPipeline photo ("unused");
  for (int shot = 0; shot < 3; shot++) {
    gchar *pattern = nullptr;
    gint index = -1;
    ASSERT_TRUE (vorn_utils_get_picture_location_pattern (0, &group, &pattern, &index));
    g_object_set (photo.sink (), "location", pattern, "index", index, nullptr);
    g_free (pattern);
    photo.set_tags ("sequence-number", static_cast<guint> (shot), nullptr);
    ASSERT_TRUE (photo.run ());
    ASSERT_EQ (photo.files ().size (), static_cast<size_t> (shot) + 1);
    EXPECT_TRUE (vorn_utils_set_picture_last_location (photo.files ().back ().c_str ()));
  }
  g_free (group);
  for (int shot = 0; shot < 3; shot++) {
    const std::string file = media + "/photos/ZELTO_0001_000" + std::to_string (shot) + ".jpg";
    EXPECT_EQ (photo.files ()[static_cast<size_t> (shot)], file);
    EXPECT_EQ (Metadata (file).number ("XMP-vorn:SequenceNumber"), shot);
  }
  const vorn::OwnedString last (vorn_utils_get_picture_last_location ());
  EXPECT_EQ (last.get (), media + "/photos/ZELTO_0001_0002.jpg");
  vorn_utils_set_media_folder (nullptr);
}

} // namespace
