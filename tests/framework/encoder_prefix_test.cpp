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
#include "process.hpp"
#include "temp_dir.hpp"

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
    libraries_ = fs::path (prefix_.path ()) / "lib" / "of-this-machine";
    // As far from the libraries as it is in an installation.
    presets_ = (libraries_ / getenv ("VORN_TEST_PRESETS_FROM_LIBRARY")).lexically_normal ();
    fs::create_directories (libraries_);
    fs::create_directories (presets_);
    for (const fs::path &library : {library_of (vorn_encoder_new), library_of (vorn_log)})
      fs::copy (fs::canonical (library), libraries_ / library.filename ());
  }

  void run_child (const std::string &filter)
  {
    const ProcessResult child =
        run_process ({"env", "-u", "GST_PRESET_PATH", "LD_LIBRARY_PATH=" + libraries_.string (),
                      fs::read_symlink ("/proc/self/exe"), "--gtest_also_run_disabled_tests",
                      "--gtest_filter=" + filter});
    EXPECT_EQ (child.status, 0) << child.output << child.errors;
    EXPECT_NE (child.output.find ("[  PASSED  ] 1 test."), std::string::npos) << child.output;
  }

  TempDir prefix_;
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
