// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/instance.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace
{

class Instance : public testing::Test
{
protected:
  void SetUp () override
  {
    char name[] = "/tmp/vorn-instance-test-XXXXXX";
    root_ = mkdtemp (name);
    setenv ("XDG_RUNTIME_DIR", root_.c_str (), 1);
    unsetenv ("VORN_NAMESPACE");
  }
  void TearDown () override
  {
    std::filesystem::remove_all (root_);
    unsetenv ("XDG_RUNTIME_DIR");
    unsetenv ("VORN_NAMESPACE");
  }
  std::string root_;
};

TEST_F (Instance, NameOfArgumentEnvironmentOrDefault)
{
  EXPECT_STREQ (vorn_instance_name (nullptr), "default");
  setenv ("VORN_NAMESPACE", "", 1);
  EXPECT_STREQ (vorn_instance_name (nullptr), "default");
  setenv ("VORN_NAMESPACE", "two", 1);
  EXPECT_STREQ (vorn_instance_name (nullptr), "two");
  EXPECT_STREQ (vorn_instance_name ("Three_3-x"), "Three_3-x");
  EXPECT_STREQ (vorn_instance_name (std::string (32, 'a').c_str ()),
                std::string (32, 'a').c_str ());
}

TEST_F (Instance, BadNames)
{
  char path[256];
  for (const std::string &bad : {std::string ("a/b"), std::string (".."), std::string ("a b"),
                                 std::string ("\xc3\xa9"), std::string (33, 'a')}) {
    EXPECT_EQ (vorn_instance_name (bad.c_str ()), nullptr) << bad;
    EXPECT_EQ (vorn_instance_dir (bad.c_str (), path, sizeof path), -EINVAL) << bad;
  }
}

TEST_F (Instance, DirectoryIsMadeForItsOwner)
{
  char path[256];
  for (int i = 0; i < 2; i++) {
    ASSERT_EQ (vorn_instance_dir ("one", path, sizeof path), 0);
    EXPECT_EQ (path, root_ + "/vorn/one");
    struct stat found = {};
    ASSERT_EQ (stat (path, &found), 0);
    EXPECT_EQ (found.st_mode & 0777, 0700u);
  }
  ASSERT_EQ (vorn_instance_dir ("two", path, sizeof path), 0);
  EXPECT_TRUE (std::filesystem::is_directory (root_ + "/vorn/two"));
}

TEST_F (Instance, WithoutARuntimeDirectoryOfTheUser)
{
  char path[256];
  for (const char *unusable : {"", "relative"}) {
    setenv ("XDG_RUNTIME_DIR", unusable, 1);
    ASSERT_EQ (vorn_instance_dir ("instance-test", path, sizeof path), 0);
    EXPECT_EQ (path, "/tmp/vorn-" + std::to_string (geteuid ()) + "/instance-test");
    std::filesystem::remove (path);
  }
}

TEST_F (Instance, Refusals)
{
  char path[256] = "untouched";
  const std::string full = root_ + "/vorn/one";
  EXPECT_EQ (vorn_instance_dir ("one", path, full.size ()), -ENAMETOOLONG);
  EXPECT_STREQ (path, "untouched");
  EXPECT_EQ (vorn_instance_dir ("one", path, full.size () + 1), 0);

  chmod ((root_ + "/vorn").c_str (), 0777);
  EXPECT_EQ (vorn_instance_dir ("one", path, sizeof path), -EPERM)
      << "anyone could have planted it";
  std::filesystem::remove_all (root_ + "/vorn");
  std::filesystem::create_directory_symlink ("/tmp", root_ + "/vorn");
  EXPECT_EQ (vorn_instance_dir ("one", path, sizeof path), -ENOTDIR);
  setenv ("XDG_RUNTIME_DIR", "/nonexistent", 1);
  EXPECT_EQ (vorn_instance_dir ("one", path, sizeof path), -ENOENT);
}

} // namespace
