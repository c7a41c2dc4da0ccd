// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "recording_file.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <gio/gio.h>

#include <vorn/utils.h>

namespace fs = std::filesystem;

namespace vorn
{

namespace
{

constexpr char number_file[] = ".last-recording";

std::string name_of (int number)
{
  char name[32];
  snprintf (name, sizeof name, "ZELTO_%04d.mp4", number);
  return name;
}

/** The number in the name of a recording or of what belongs to one, or 0. */
int number_of (const std::string &name)
{
  int number = 0;
  const char *text = name.c_str () + (name.starts_with ('.') ? 1 : 0);
  return sscanf (text, "ZELTO_%9d", &number) == 1 ? std::max (number, 0) : 0;
}

/** The highest number that is in use, or was and is remembered. */
int highest_number (const fs::path &folder)
{
  int highest = 0;
  std::error_code error;
  fs::directory_iterator entry (folder, error);
  for (; !error && entry != fs::directory_iterator (); entry.increment (error))
    highest = std::max (highest, number_of (entry->path ().filename ()));
  gchar *text = nullptr;
  if (g_file_get_contents ((folder / number_file).c_str (), &text, nullptr, nullptr))
    highest = std::max (highest, atoi (text));
  const OwnedString owner (text);
  return highest;
}

/** So that a number does not come back when its recording was deleted. */
void remember_number (const fs::path &folder, int number)
{
  // Best effort: a full disk must not keep a recording from trying.
  g_file_set_contents ((folder / number_file).c_str (), std::to_string (number).c_str (), -1,
                       nullptr);
}

enum class Locked { YES, NO, FAILED };

/** Takes the lock on a file. NO: somebody has it, or the file has lost its name meanwhile. */
Locked lock (int fd)
{
  if (flock (fd, LOCK_EX | LOCK_NB) != 0)
    return errno == EWOULDBLOCK ? Locked::NO : Locked::FAILED;
  struct stat status = {};
  return fstat (fd, &status) == 0 && status.st_nlink > 0 ? Locked::YES : Locked::NO;
}

void set_error (GError **error, const std::string &what, int error_number)
{
  g_set_error (error, G_IO_ERROR, static_cast<gint> (g_io_error_from_errno (error_number)),
               "%s: %s", what.c_str (), g_strerror (error_number));
}

} // namespace

std::string recordings_folder ()
{
  const OwnedString media (vorn_utils_get_media_folder ());
  return std::string (media.get ()) + "/videos";
}

std::string RecordingFile::hidden (const char *ending) const
{
  const fs::path path (final_path_);
  return path.parent_path () / ("." + path.filename ().string () + "." + ending);
}

std::optional<RecordingFile> RecordingFile::create (const std::string &folder, GError **error)
{
  static std::mutex mutex; // guards last_numbers
  static std::map<std::string, int> last_numbers;
  const std::lock_guard guard (mutex);

  if (g_mkdir_with_parents (folder.c_str (), 0755) != 0) {
    set_error (error, "cannot make the folder " + folder, errno);
    return {};
  }
  int &last = last_numbers[folder];
  last = std::max (last, highest_number (folder));
  while (true) {
    last++;
    const std::string final_path = folder + "/" + name_of (last);
    RecordingFile file (final_path, Fd ());
    const std::string part_path = file.part_path ();
    file.fd_ = Fd (open (part_path.c_str (), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    // Another process may have taken the number, or tidied the empty file away before it was
    // locked.
    if (!file.fd_ && errno != EEXIST) {
      set_error (error, "cannot make " + part_path, errno);
      last--;
      return {};
    }
    const Locked locked = file.fd_ ? lock (file.fd ()) : Locked::NO;
    if (locked == Locked::FAILED) {
      set_error (error, "cannot lock " + part_path, errno);
      return {};
    }
    if (locked == Locked::NO)
      continue;
    remember_number (folder, last);
    return file;
  }
}

std::optional<RecordingFile> RecordingFile::adopt (const std::string &part_path)
{
  const fs::path path (part_path);
  const std::string name = path.filename ();
  constexpr std::string_view ending = ".part";
  if (!name.starts_with (".ZELTO_") || !name.ends_with (ending))
    return {};
  RecordingFile file (path.parent_path () / name.substr (1, name.size () - 1 - ending.size ()),
                      Fd (open (part_path.c_str (), O_RDWR | O_CLOEXEC)));
  if (!file.fd_ || lock (file.fd ()) != Locked::YES)
    return {};
  return file;
}

} // namespace vorn
