// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "temp_dir.hpp"

#include <filesystem>
#include <fstream>

#include <glib.h>
#include <gtest/gtest.h>

#include <vorn/raii.hpp>

TempDir::TempDir ()
{
  vorn::ErrorOut error;
  const vorn::OwnedString path (g_dir_make_tmp ("vorn-test-XXXXXX", error.out ()));
  if (path)
    path_ = path.get ();
  else
    ADD_FAILURE () << error.message ();
}

TempDir::~TempDir ()
{
  std::error_code error;
  if (!path_.empty ())
    std::filesystem::remove_all (path_, error);
}

std::string TempDir::write (const std::string &name, const std::string &text) const
{
  const std::string file = at (name);
  std::error_code error;
  std::filesystem::create_directories (std::filesystem::path (file).parent_path (), error);
  std::ofstream stream (file);
  stream << text;
  if (!stream.flush ())
    ADD_FAILURE () << "cannot write " << file;
  return file;
}
