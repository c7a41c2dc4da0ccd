// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Photos of the whole product that cannot be written: what is told, and what is left.
#include "live_photos.hpp"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <sys/mount.h>
#include <sys/resource.h>

#include <vorn/utils.h>

namespace
{

namespace fs = std::filesystem;

constexpr VornResolution size = {1280, 720};

/** A file system of 64 KiB, for as long as it lives. */
class SmallDisk
{
public:
  explicit SmallDisk (const std::string &folder)
      : folder_ (folder), mounted_ (mount ("tmpfs", folder.c_str (), "tmpfs", 0, "size=64k") == 0)
  {
  }
  ~SmallDisk ()
  {
    if (mounted_)
      umount2 (folder_.c_str (), MNT_DETACH);
  }
  SmallDisk (const SmallDisk &) = delete;
  SmallDisk &operator= (const SmallDisk &) = delete;
  explicit operator bool () const { return mounted_; }
  bool set (unsigned long flags, const char *options)
  {
    return mount ("tmpfs", folder_.c_str (), "tmpfs", MS_REMOUNT | flags, options) == 0;
  }

private:
  std::string folder_;
  bool mounted_;
};

class FrontViewPhotoDisk : public LivePhotos
{
protected:
  void start_snow ()
  {
    start_photos ("", true, {5344, 3200});
    set_photo_size (size);
    // A picture that no encoder makes small.
    gst_util_set_object_arg (G_OBJECT (find ("front-picture-pipeline", "videotestsrc")), "pattern",
                             "snow");
  }
  std::vector<std::string> photos () const
  {
    std::vector<std::string> names;
    for (const auto &entry : fs::directory_iterator (media_.at ("photos")))
      names.push_back (entry.path ().filename ());
    return names;
  }
  void expect_failed (const Taken &taken, int code)
  {
    ASSERT_FALSE (taken.events.empty ());
    EXPECT_EQ (taken.events.back (), static_cast<guint> (VORN_SNAPSHOT_EVENT_FAILED));
    EXPECT_EQ (taken.error_code, code) << taken.error;
    EXPECT_NE (taken.error, "");
    for (const guint event : taken.events)
      EXPECT_NE (event, static_cast<guint> (VORN_SNAPSHOT_EVENT_TAKEN));
  }
};

TEST_F (FrontViewPhotoDisk, FullDiskIsToldAndLeavesNothing)
{
  SmallDisk disk (media_.path ());
  if (!disk)
    GTEST_SKIP () << "no disk may be mounted here: " << g_strerror (errno);
  start_snow ();
  expect_failed (photograph (), VORN_RESOURCE_ERROR_NO_SPACE_LEFT);
  EXPECT_EQ (photos (), std::vector<std::string>{});

  // With room again the next one is there.
  ASSERT_TRUE (disk.set (0, "size=64m"));
  const std::string file = photograph ().file ();
  ASSERT_NE (file, "");
  EXPECT_FALSE (decode (file).colors.empty ());
  EXPECT_EQ (photos ().size (), 1u);

  // A disk that only reads: refused before anything moves.
  ASSERT_TRUE (disk.set (MS_RDONLY, "size=64m"));
  const VornSnapshotRequest request = {};
  taken_ = {};
  EXPECT_FALSE (vorn_view_take_snapshot (view_, &request));
  EXPECT_TRUE (log_.has ("cannot put pictures into folder " + media_.at ("photos") +
                         ": Read-only file system"));
  EXPECT_TRUE (log_.has ("failed to get jpeg location pattern", VORN_LOG_PRIORITY_ERROR));
  EXPECT_FALSE (vorn_view_is_taking_picture (view_));
  EXPECT_TRUE (taken_.events.empty ());
  ASSERT_TRUE (disk.set (0, "size=64m"));
}

TEST_F (FrontViewPhotoDisk, FileThatMayNotGrowIsAFailureOfItsOwn)
{
  start_snow ();
  const auto handler = std::signal (SIGXFSZ, SIG_IGN);
  rlimit former = {};
  ASSERT_EQ (getrlimit (RLIMIT_FSIZE, &former), 0);
  const rlimit limit = {65536, former.rlim_max};
  ASSERT_EQ (setrlimit (RLIMIT_FSIZE, &limit), 0);
  const Taken taken = photograph ();
  ASSERT_EQ (setrlimit (RLIMIT_FSIZE, &former), 0);
  std::signal (SIGXFSZ, handler);
  expect_failed (taken, VORN_RESOURCE_ERROR_FAILED);
  EXPECT_EQ (photos (), std::vector<std::string>{});
  EXPECT_NE (photograph ().file (), "");
}

TEST_F (FrontViewPhotoDisk, FolderThatIsNoneIsRefused)
{
  media_.write ("photos", "no folder");
  start_snow ();
  const VornSnapshotRequest request = {};
  EXPECT_FALSE (vorn_view_take_snapshot (view_, &request));
  EXPECT_TRUE (log_.has ("failed to get jpeg location pattern", VORN_LOG_PRIORITY_ERROR));
  EXPECT_FALSE (vorn_view_is_taking_picture (view_));
  EXPECT_TRUE (taken_.events.empty ());
  fs::remove (media_.at ("photos"));
  EXPECT_NE (photograph ().file (), "");
}

} // namespace
