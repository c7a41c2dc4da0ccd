// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "log_levels.hpp"

#include <algorithm>
#include <iterator>

#include <vorn/log.h>

namespace
{

struct NamedLevel {
  std::string_view name;
  int level;
};

constexpr NamedLevel named_levels[] = {
    {"none", LogLevels::none},
    {"error", VORN_LOG_PRIORITY_ERROR},
    {"warning", VORN_LOG_PRIORITY_WARNING},
    {"info", VORN_LOG_PRIORITY_INFO},
    {"debug", VORN_LOG_PRIORITY_DEBUG},
};

std::string_view trimmed (std::string_view text)
{
  const auto first = text.find_first_not_of (" \t");
  if (first == std::string_view::npos)
    return {};
  return text.substr (first, text.find_last_not_of (" \t") - first + 1);
}

} // namespace

LogLevels LogLevels::parse (std::string_view text, std::vector<std::string> *errors)
{
  LogLevels levels;
  while (!text.empty ()) {
    const auto comma = text.find (',');
    const auto entry = trimmed (text.substr (0, comma));
    text = comma == std::string_view::npos ? std::string_view () : text.substr (comma + 1);
    if (entry.empty ())
      continue;
    const auto equals = entry.find ('=');
    const bool has_tag = equals != std::string_view::npos;
    const auto tag = has_tag ? trimmed (entry.substr (0, equals)) : std::string_view ();
    const auto name = has_tag ? trimmed (entry.substr (equals + 1)) : entry;
    const auto *const known =
        std::find_if (std::begin (named_levels), std::end (named_levels),
                      [name] (const NamedLevel &level) { return level.name == name; });
    if (known == std::end (named_levels))
      errors->push_back ("unknown level '" + std::string (name) +
                         "' (none, error, warning, info or debug)");
    else if (has_tag && tag.empty ())
      errors->push_back ("no tag before '=' in '" + std::string (entry) + "'");
    else
      levels.entries_.push_back ({std::string (tag), known->level});
  }
  return levels;
}

int LogLevels::level_of (std::string_view tag) const
{
  const auto last = std::find_if (entries_.rbegin (), entries_.rend (), [tag] (const Entry &entry) {
    return entry.tag.empty () || entry.tag == tag;
  });
  return last == entries_.rend () ? int{VORN_LOG_PRIORITY_INFO} : last->level;
}

void LogOverrides::set (const char *tag, int level)
{
  const int bounded = std::clamp (level, from_environment, int{VORN_LOG_PRIORITY_DEBUG});
  if (tag) {
    by_tag_[tag] = bounded;
  } else {
    all_ = bounded;
    by_tag_.clear ();
  }
}

std::optional<int> LogOverrides::level_of (const std::string &tag) const
{
  const auto own = by_tag_.find (tag);
  const int level = own == by_tag_.end () ? all_ : own->second;
  return level == from_environment ? std::nullopt : std::optional (level);
}
