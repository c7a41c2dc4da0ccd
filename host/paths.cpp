// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "paths.hpp"

#include <filesystem>

namespace fs = std::filesystem;

static fs::path executable_folder ()
{
  std::error_code error;
  return fs::read_symlink ("/proc/self/exe", error).parent_path ();
}

std::string find_plugin ()
{
  const fs::path built = executable_folder () / "../src/libvornmorvikzelto.so";
  const fs::path installed =
      executable_folder () / ".." / VORN_PLUGIN_DIR / "libvornmorvikzelto.so";
  std::error_code error;
  return (fs::exists (built, error) ? built : installed).lexically_normal ();
}
