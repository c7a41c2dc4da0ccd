// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/utils.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <string>

#include <vorn/log.h>
#include <vorn/raii.hpp>

VORN_LOG_TAG ("vorn_utils");

// The name becomes a string, blanks and all.
// clang-format off
G_DEFINE_QUARK (vorn-resource-error-quark, vorn_resource_error)
// clang-format on

namespace
{

constexpr int largest_group = 9999;
constexpr int largest_index = 9999;

// Guards everything below.
std::mutex mutex;
std::string media_folder = "media";
std::string last_location;
int last_group = 0; // of this process, so that a group without files yet is not given twice

std::string picture_folder ()
{
  return media_folder + "/photos";
}

/** The number in a name made by group_name, or 0. */
int group_number (const std::string &file_name)
{
  int number = 0;
  return sscanf (file_name.c_str (), "ZELTO_%4d", &number) == 1 ? number : 0;
}

std::string group_name (int number)
{
  char name[32];
  snprintf (name, sizeof name, "ZELTO_%04d", number);
  return name;
}

std::string picture_name (const std::string &group_location, int index)
{
  char suffix[32];
  snprintf (suffix, sizeof suffix, "_%04d.jpg", index);
  return group_location + suffix;
}

/** The number after the highest in use, 0 when there is none left. */
int next_group ()
{
  int highest = last_group;
  std::error_code error;
  std::filesystem::directory_iterator entry (picture_folder (), error);
  for (; !error && entry != std::filesystem::directory_iterator (); entry.increment (error))
    highest = std::max (highest, group_number (entry->path ().filename ()));
  return highest < largest_group ? highest + 1 : 0;
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
}

gchar *vorn_utils_get_media_folder (void)
{
  const std::lock_guard lock (mutex);
  return g_strdup (media_folder.c_str ());
}

gboolean vorn_utils_get_picture_location_pattern (guint32 flag, gchar **group_location,
                                                  gchar **pattern, gint *index)
{
  g_return_val_if_fail (flag == 0, FALSE);
  g_return_val_if_fail (group_location != NULL && pattern != NULL && index != NULL, FALSE);
  const std::lock_guard lock (mutex);
  const std::string folder = picture_folder ();
  if (g_mkdir_with_parents (folder.c_str (), 0755) != 0) {
    VORN_LOG_ERROR ("cannot make picture folder %s: %s", folder.c_str (), g_strerror (errno));
    return FALSE;
  }
  std::string location;
  if (*group_location) {
    location = *group_location;
  } else {
    const int number = next_group ();
    if (number == 0) {
      VORN_LOG_ERROR ("picture folder %s is full: %d groups", folder.c_str (), largest_group);
      return FALSE;
    }
    last_group = number;
    location = folder + "/" + group_name (number);
  }
  int first_free = 0;
  std::error_code error;
  while (first_free <= largest_index &&
         std::filesystem::exists (picture_name (location, first_free), error))
    first_free++;
  if (error) {
    VORN_LOG_ERROR ("cannot look for pictures of group %s: %s", location.c_str (),
                    error.message ().c_str ());
    return FALSE;
  }
  if (first_free > largest_index) {
    VORN_LOG_ERROR ("picture group %s is full: %d pictures", location.c_str (), largest_index + 1);
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
  std::error_code error;
  if (!std::filesystem::is_regular_file (filename, error))
    return FALSE;
  const std::lock_guard lock (mutex);
  last_location = filename;
  return TRUE;
}

gchar *vorn_utils_get_picture_last_location (void)
{
  const std::lock_guard lock (mutex);
  return last_location.empty () ? nullptr : g_strdup (last_location.c_str ());
}

GError *vorn_resource_error_new (VornResourceError code, const gchar *message)
{
  return g_error_new_literal (VORN_RESOURCE_ERROR, code, message ? message : "unknown");
}
