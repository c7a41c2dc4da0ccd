// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The shipped presets below a prefix: the libraries are copied into one, and this program runs
// itself with them.
#include <cstdlib>
#include <filesystem>

#include <dlfcn.h>

#include <gtest/gtest.h>

#include <vorn/framework.h>
#include <vorn/log.h>

#include "encoder_support.hpp"

namespace fs = std::filesystem;

namespace
{

template <typename Function>
fs::path library_of (Function *function)
{
  Dl_info info = {};
  EXPECT_NE (dladdr (reinterpret_cast<void *> (function), &info), 0);
  return info.dli_fname;
}

class EncoderPrefix : public testing::Test
{
protected:
  EncoderPrefix ()
  {
    const vorn::OwnedString folder (g_dir_make_tmp ("encoder-prefix-XXXXXX", nullptr));
    prefix_ = fs::canonical (folder.get ());
    libraries_ = prefix_ / "lib" / "of-this-machine";
    // As far from the libraries as it is in an installation.
    presets_ = (libraries_ / getenv ("VORN_TEST_PRESETS_FROM_LIBRARY")).lexically_normal ();
    fs::create_directories (libraries_);
    fs::create_directories (presets_);
    for (const fs::path &library : {library_of (vorn_encoder_new), library_of (vorn_log)})
      fs::copy (fs::canonical (library), libraries_ / library.filename ());
  }
  ~EncoderPrefix () override { fs::remove_all (prefix_); }

  void run_child (const std::string &filter)
  {
    const std::string command = "env -u GST_PRESET_PATH LD_LIBRARY_PATH=" + libraries_.string () +
                                " " + fs::read_symlink ("/proc/self/exe").string () +
                                " --gtest_also_run_disabled_tests --gtest_filter=" + filter;
    gchar *out = nullptr;
    gint status = -1;
    ASSERT_TRUE (g_spawn_command_line_sync (command.c_str (), &out, nullptr, &status, nullptr));
    const vorn::OwnedString owner (out);
    EXPECT_EQ (status, 0) << out;
    EXPECT_NE (std::string (out).find ("[  PASSED  ] 1 test."), std::string::npos) << out;
  }

  fs::path prefix_;
  fs::path libraries_;
  fs::path presets_;
};

bool load_shipped_preset ()
{
  vorn_framework_init (nullptr, nullptr);
  EXPECT_NE (library_of (vorn_encoder_new).string ().find ("of-this-machine"), std::string::npos);
  const auto encoder = vorn::adopt (vorn_encoder_new ("e"));
  return gst_preset_load_preset (GST_PRESET (encoder.get ()), "ZeltoRecording720p") &&
         encoding::get_uint (encoder.get (), "preset-bitrate") == 5500;
}

} // namespace

TEST (EncoderPrefixChild, DISABLED_HasPresets)
{
  EXPECT_TRUE (load_shipped_preset ());
}

TEST (EncoderPrefixChild, DISABLED_HasNone)
{
  EXPECT_FALSE (load_shipped_preset ());
}

TEST_F (EncoderPrefix, PresetsAreFoundFromTheLibrary)
{
  fs::copy (fs::canonical (library_of (vorn_encoder_new)).parent_path () / "VornEncoder.prs",
            presets_);
  run_child ("EncoderPrefixChild.DISABLED_HasPresets");
}

TEST_F (EncoderPrefix, NothingElseServesForThem)
{
  run_child ("EncoderPrefixChild.DISABLED_HasNone");
}
