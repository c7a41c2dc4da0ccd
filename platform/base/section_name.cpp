// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "section_name.hpp"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <mutex>

#include <vorn/log.h>

VORN_LOG_TAG ("blackboard");

namespace vorn::blackboard
{

namespace
{

constexpr char default_namespace[] = "default";
constexpr size_t max_namespace = 32;

std::mutex chosen_mutex; // guards chosen_namespace
std::string chosen_namespace;

} // namespace

bool valid_name (std::string_view name, size_t max)
{
  return !name.empty () && name.size () <= max &&
         std::all_of (name.begin (), name.end (), [] (char c) {
           return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                  c == '_' || c == '-';
         });
}

std::optional<std::string> current_namespace (const char *wanted)
{
  std::string name;
  const char *origin = "";
  if (wanted) {
    name = wanted;
  } else {
    std::lock_guard lock (chosen_mutex);
    name = chosen_namespace;
  }
  if (!wanted && name.empty ()) {
    const char *value = getenv ("VORN_NAMESPACE");
    name = value && *value ? value : default_namespace;
    origin = " from VORN_NAMESPACE";
  }
  if (!valid_name (name, max_namespace)) {
    VORN_LOG_ERROR ("namespace '%.80s'%s refused: a name has 1 to %zu letters, digits, '_' or '-'",
                    name.c_str (), origin, max_namespace);
    return std::nullopt;
  }
  return name;
}

std::string namespace_prefix (const std::string &name)
{
  return "vorn." + name + ".";
}

Address address_in (const std::string &name_space, Kind kind, const std::string &name)
{
  const char *kind_name = kind == Kind::telemetry ? "telemetry." : "blackboard.";
  return {name, std::string (shm_folder) + "/" + namespace_prefix (name_space) + kind_name + name};
}

std::optional<Address> section_address (Kind kind, const char *name)
{
  if (!name || !valid_name (name)) {
    VORN_LOG_ERROR ("section '%.80s' refused: a name has 1 to %zu letters, digits, '_' or '-'",
                    name ? name : "(null)", max_section_name);
    return std::nullopt;
  }
  const auto name_space = current_namespace ();
  return name_space ? std::optional (address_in (*name_space, kind, name)) : std::nullopt;
}

} // namespace vorn::blackboard

int vorn_blackboard_set_namespace (const char *name)
{
  using namespace vorn::blackboard;
  if (name && !current_namespace (name))
    return -EINVAL;
  std::lock_guard lock (chosen_mutex);
  chosen_namespace = name ? name : "";
  return 0;
}
