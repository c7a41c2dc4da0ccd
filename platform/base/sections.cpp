// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/sections.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>

#include "blackboard_section.hpp"
#include "telemetry_layout.hpp"

using namespace vorn::blackboard;

namespace
{

/** Names of all sections of a kind, sorted. */
int find_names (const std::string &name_space, Kind kind, std::vector<std::string> *names)
{
  const vorn::Owned<DIR, closedir> folder (opendir (shm_folder));
  if (!folder)
    return -errno;
  const std::string path_prefix = address_in (name_space, kind, "").path;
  const std::string prefix = path_prefix.substr (path_prefix.rfind ('/') + 1);
  while (const dirent *entry = readdir (folder.get ())) {
    const std::string file = entry->d_name;
    if (file.starts_with (prefix) && valid_name (file.substr (prefix.size ())))
      names->push_back (file.substr (prefix.size ()));
  }
  std::sort (names->begin (), names->end ());
  return 0;
}

/** Asks who holds the writer's lock without taking it. */
bool has_writer (const std::string &path)
{
  const vorn::Fd fd (open (path.c_str (), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return fd && fcntl (fd.get (), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

/** False when there is nothing (any more) that can be read. */
bool look_at (const Address &address, Kind kind, VornSectionInfo *info)
{
  SectionReader reader (address, kind);
  if (reader.refresh () != 0)
    return false;
  *info = {};
  info->name = address.name.c_str ();
  info->kind = kind == Kind::telemetry ? VORN_SECTION_TELEMETRY : VORN_SECTION_BLACKBOARD;
  info->writer_lives = has_writer (address.path);
  info->header = reader.geometry ().header;
  info->written = reader.written ();
  struct timespec newest = {};
  if (reader.select (0, VORN_BLACKBOARD_LATEST, 0) == 0 && reader.read_times (&newest, 1) == 1)
    info->newest = newest;
  return true;
}

} // namespace

int vorn_sections_list (const char *name_space, VornSectionFunc func, void *user_data)
{
  const auto space = current_namespace (name_space);
  if (!space || !func)
    return -EINVAL;
  int count = 0;
  for (const Kind kind : {Kind::samples, Kind::telemetry}) {
    std::vector<std::string> names;
    if (const int result = find_names (*space, kind, &names); result < 0)
      return result;
    for (const std::string &name : names) {
      const Address address = address_in (*space, kind, name);
      VornSectionInfo info;
      if (!look_at (address, kind, &info))
        continue;
      func (&info, user_data);
      count++;
    }
  }
  return count;
}

int vorn_telemetry_list_variables (const char *section, VornTelemetryVariableFunc func,
                                   void *user_data)
{
  const auto address = section_address (Kind::telemetry, section);
  if (!address || !func)
    return -EINVAL;
  SectionReader reader (*address, Kind::telemetry);
  if (const int result = reader.refresh (); result < 0)
    return result;
  const auto layout =
      vorn::telemetry::Layout::parse (reader.annex (), reader.geometry ().header.sample_size);
  if (!layout)
    return -EBADMSG;
  for (const auto &variable : layout->variables ()) {
    const VornTelemetryVariable shown = {variable.name.c_str (), variable.type, variable.size,
                                         variable.count};
    func (&shown, user_data);
  }
  return static_cast<int> (layout->variables ().size ());
}
