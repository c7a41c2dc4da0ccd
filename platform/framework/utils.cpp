// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/utils.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fnmatch.h>
#include <mutex>
#include <optional>
#include <string>
#include <unistd.h>

#include <vorn/log.h>
#include <vorn/raii.hpp>

VORN_LOG_TAG ("vorn_utils");

// The name becomes a string, blanks and all.
// clang-format off
G_DEFINE_QUARK (vorn-resource-error-quark, vorn_resource_error)
// clang-format on

namespace
{

namespace fs = std::filesystem;

constexpr int largest_group = 9999;
constexpr int largest_index = 9999;
// In the media folder; holds the path of the last picture from there.
constexpr char state_file[] = "/.last-picture";
constexpr std::chrono::minutes leftover_age (1); // a younger one may still be written

// Guards everything below.
std::mutex mutex;
std::string media_folder = "media";
std::string last_location;
int last_group = 0; // of this process, so that a group without files yet is not given twice

bool is_file (const std::string &path)
{
  std::error_code error;
  return fs::is_regular_file (path, error);
}

std::string picture_folder ()
{
  return media_folder + "/photos";
}

std::string group_name (int number)
{
  char name[32];
  snprintf (name, sizeof name, "ZELTO_%04d", number);
  return name;
}

/** The number in a name made by group_name, or 0. */
int group_number (const std::string &file_name)
{
  int number = 0;
  return sscanf (file_name.c_str (), "ZELTO_%4d", &number) == 1 ? number : 0;
}

/** The index of a picture of the group, or none for other files. */
std::optional<int> picture_index (const std::string &group, const std::string &file_name)
{
  int index = 0;
  int length = 0;
  if (!file_name.starts_with (group) ||
      sscanf (file_name.c_str () + group.size (), "_%4d.jpg%n", &index, &length) != 1 ||
      group.size () + static_cast<size_t> (length) != file_name.size () || index < 0)
    return std::nullopt;
  return index;
}

std::string picture_name (const std::string &group_location, int index)
{
  char suffix[32];
  snprintf (suffix, sizeof suffix, "_%04d.jpg", index);
  return group_location + suffix;
}

/** What the sink leaves when the process ends while it writes: the picture's name and six letters.
 */
bool is_unfinished (const std::string &file_name)
{
  return fnmatch ("ZELTO_[0-9][0-9][0-9][0-9]_[0-9][0-9][0-9][0-9].jpg.??????", file_name.c_str (),
                  0) == 0;
}

/** Calls visit for every entry; what went wrong, if anything. */
template <typename Visit>
std::error_code for_each_entry (const std::string &folder, Visit visit)
{
  std::error_code error;
  fs::directory_iterator entry (folder, error);
  for (; !error && entry != fs::directory_iterator (); entry.increment (error))
    visit (*entry);
  return error;
}

void remove_unfinished (const std::string &folder)
{
  const auto newest = fs::file_time_type::clock::now () - leftover_age;
  for_each_entry (folder, [&] (const fs::directory_entry &entry) {
    std::error_code error;
    if (!is_unfinished (entry.path ().filename ()) || entry.last_write_time (error) > newest ||
        error)
      return;
    if (fs::remove (entry.path (), error))
      VORN_LOG_INFO ("removed unfinished picture %s", entry.path ().c_str ());
  });
}

/** The path in the state file of the media folder, or empty. */
std::string read_state ()
{
  gchar *contents = nullptr;
  if (!g_file_get_contents ((media_folder + state_file).c_str (), &contents, nullptr, nullptr))
    return {};
  const vorn::OwnedString owned (g_strchomp (contents));
  if (*contents == '\0')
    return {};
  return (fs::path (media_folder) / contents).string (); // an absolute one stays as it is
}

void write_state (const std::string &picture)
{
  const std::string prefix = media_folder + "/";
  const std::string text =
      (picture.starts_with (prefix) ? picture.substr (prefix.size ()) : picture) + "\n";
  vorn::ErrorOut error;
  if (!g_file_set_contents_full ((media_folder + state_file).c_str (), text.c_str (), -1,
                                 G_FILE_SET_CONTENTS_CONSISTENT, 0644, error.out ()))
    VORN_LOG_WARNING ("the last picture is not remembered beyond this run: %s", error.message ());
}

/** The number after the highest in use and that of the last picture, 0 when there is none left. */
int next_group (const std::string &folder, std::error_code *error)
{
  const std::string last = last_location.empty () ? read_state () : last_location;
  int highest = std::max (last_group, group_number (fs::path (last).filename ()));
  *error = for_each_entry (folder, [&] (const fs::directory_entry &entry) {
    highest = std::max (highest, group_number (entry.path ().filename ()));
  });
  return highest < largest_group ? highest + 1 : 0;
}

/** The index after the highest in use: whatever is written from there on overwrites nothing. */
int next_index (const std::string &location, std::error_code *error)
{
  const fs::path path (location);
  const std::string group = path.filename ();
  int next = 0;
  *error = for_each_entry (path.parent_path (), [&] (const fs::directory_entry &entry) {
    next = std::max (next, picture_index (group, entry.path ().filename ()).value_or (-1) + 1);
  });
  // A name that no file can have is found out here.
  const bool taken = !*error && fs::exists (picture_name (location, next), *error);
  return taken ? next + 1 : next;
}

/** Why no picture can be put there, or NULL. */
const char *make_writable (const std::string &folder)
{
  if (g_mkdir_with_parents (folder.c_str (), 0755) != 0 ||
      faccessat (AT_FDCWD, folder.c_str (), W_OK | X_OK, AT_EACCESS) != 0)
    return g_strerror (errno);
  return nullptr;
}

/** So that a loss of power cannot leave the name without the picture. */
void make_durable (const char *path)
{
  const vorn::Fd file (open (path, O_RDONLY | O_CLOEXEC));
  if (!file || fsync (file.get ()) != 0)
    VORN_LOG_WARNING ("cannot make sure that %s is on the disk: %s", path, g_strerror (errno));
}

/** The sink formats its location: what is literal must say so. */
std::string escape_percent (const std::string &text)
{
  std::string escaped;
  for (const char c : text)
    escaped.append (c == '%' ? 2 : 1, c);
  return escaped;
}

} // namespace

void vorn_utils_set_media_folder (const gchar *folder)
{
  const std::lock_guard lock (mutex);
  media_folder = folder ? folder : "media";
  last_group = 0;
  last_location.clear ();
}

gchar *vorn_utils_get_media_folder (void)
{
  const std::lock_guard lock (mutex);
  return g_strdup (media_folder.c_str ());
}

/** The location of a new group, or empty with an error logged. */
static std::string new_group (const std::string &folder)
{
  if (last_group == 0)
    remove_unfinished (folder);
  std::error_code error;
  const int number = next_group (folder, &error);
  if (error) {
    VORN_LOG_ERROR ("cannot look for groups in picture folder %s: %s", folder.c_str (),
                    error.message ().c_str ());
    return {};
  }
  if (number == 0) {
    VORN_LOG_ERROR ("picture folder %s is full: %d groups", folder.c_str (), largest_group);
    return {};
  }
  last_group = number;
  return folder + "/" + group_name (number);
}

gboolean vorn_utils_get_picture_location_pattern (guint32 flag, gchar **group_location,
                                                  gchar **pattern, gint *index)
{
  g_return_val_if_fail (flag == 0, FALSE);
  g_return_val_if_fail (group_location != NULL && pattern != NULL && index != NULL, FALSE);
  const std::lock_guard lock (mutex);
  const std::string folder = picture_folder ();
  if (const char *reason = make_writable (folder)) {
    VORN_LOG_ERROR ("cannot put pictures into folder %s: %s", folder.c_str (), reason);
    return FALSE;
  }
  const bool continued = *group_location && **group_location;
  const std::string location = continued ? *group_location : new_group (folder);
  if (location.empty ())
    return FALSE;
  std::error_code error;
  const int first_free = next_index (location, &error);
  if (error) {
    VORN_LOG_ERROR ("cannot look for pictures of group %s: %s", location.c_str (),
                    error.message ().c_str ());
    return FALSE;
  }
  if (first_free > largest_index) {
    VORN_LOG_ERROR ("picture group %s is full: its last index is %d", location.c_str (),
                    largest_index);
    return FALSE;
  }
  g_free (*group_location);
  *group_location = g_strdup (location.c_str ());
  *pattern = g_strdup ((escape_percent (location) + "_%04d.jpg").c_str ());
  *index = first_free;
  return TRUE;
}

gboolean vorn_utils_set_picture_last_location (const gchar *filename)
{
  g_return_val_if_fail (filename != NULL, FALSE);
  if (!is_file (filename))
    return FALSE;
  make_durable (filename);
  const fs::path folder = fs::path (filename).parent_path ();
  make_durable (folder.empty () ? "." : folder.c_str ());
  const std::lock_guard lock (mutex);
  last_location = filename;
  write_state (last_location);
  return TRUE;
}

gchar *vorn_utils_get_picture_last_location (void)
{
  const std::lock_guard lock (mutex);
  const std::string last = last_location.empty () ? read_state () : last_location;
  return is_file (last) ? g_strdup (last.c_str ()) : nullptr;
}

GError *vorn_resource_error_new (VornResourceError code, const gchar *message)
{
  return g_error_new_literal (VORN_RESOURCE_ERROR, code, message ? message : "unknown");
}
