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

std::string find_elements ()
{
  const fs::path built = executable_folder () / "../elements";
  const fs::path installed = executable_folder () / ".." / VORN_ELEMENT_DIR;
  std::error_code error;
  return (fs::exists (built / "libvornelements.so", error) ? built : installed).lexically_normal ();
}

std::string find_configuration (bool full)
{
  const char *name = full ? "desk-full.conf" : "desk.conf";
  const fs::path built = executable_folder () / name;
  const fs::path installed = executable_folder () / ".." / VORN_DATA_DIR / name;
  std::error_code error;
  return (fs::exists (built, error) ? built : installed).lexically_normal ();
}
