// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Names of recordings on disk, and who is at which.
#ifndef VORN_FRAMEWORK_RECORDING_FILE_HPP
#define VORN_FRAMEWORK_RECORDING_FILE_HPP

#include <optional>
#include <string>

#include <vorn/raii.hpp>

namespace vorn
{

/**
 * A recording's file while it is not finished. Whoever has one is the only one at it on the
 * machine: its lock goes with the process, however that ends.
 */
class RecordingFile
{
public:
  /** Takes the next number in the media folder's "videos" and makes the file, empty. */
  static std::optional<RecordingFile> create (const std::string &folder, GError **error);

  /** A file that a process left; nothing when somebody is at it or it is not there. */
  static std::optional<RecordingFile> adopt (const std::string &part_path);

  const std::string &final_path () const { return final_path_; }
  std::string part_path () const { return hidden ("part"); }
  /** The plain MP4 file while it is being written. */
  std::string rewrite_path () const { return hidden ("rewrite"); }
  /** The tags while they are in no file yet. */
  std::string tags_path () const { return hidden ("tags"); }
  /** Open for reading and writing. */
  int fd () const { return fd_.get (); }

private:
  RecordingFile (std::string final_path, Fd fd)
      : final_path_ (std::move (final_path)), fd_ (std::move (fd))
  {
  }
  std::string hidden (const char *ending) const;

  std::string final_path_;
  Fd fd_; // holds the lock
};

/** The folder of recordings below the media folder in force. */
std::string recordings_folder ();

} // namespace vorn

#endif
