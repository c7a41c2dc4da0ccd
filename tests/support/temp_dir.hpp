// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef TESTS_TEMP_DIR_HPP
#define TESTS_TEMP_DIR_HPP

#include <string>

/** A folder of its own, gone with all it contains when this goes. */
class TempDir
{
public:
  TempDir ();
  ~TempDir ();
  TempDir (const TempDir &) = delete;
  TempDir &operator= (const TempDir &) = delete;

  const std::string &path () const { return path_; }
  /** The path of an entry. */
  std::string at (const std::string &name) const { return path_ + "/" + name; }
  /** Writes a file (its folders too) and returns its path. */
  std::string write (const std::string &name, const std::string &text) const;

private:
  std::string path_;
};

#endif
