// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef VORN_LOG_LEVELS_HPP
#define VORN_LOG_LEVELS_HPP

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/** The level entries of VORN_LOG, in order; what is no entry is reported in errors. */
class LogLevels
{
public:
  /** 0 none, else the highest priority number that passes. */
  static constexpr int none = 0;

  /** text: "level" and "tag=level" entries separated by commas. */
  static LogLevels parse (std::string_view text, std::vector<std::string> *errors);
  /** The level of the last entry that fits this tag; info when none does. */
  int level_of (std::string_view tag) const;

private:
  struct Entry {
    std::string tag; // empty: all tags
    int level;
  };
  std::vector<Entry> entries_;
};

/** What the program asked for with vorn_log_set_level, on top of the environment. */
class LogOverrides
{
public:
  static constexpr int from_environment = -1;

  void set (const char *tag, int level);
  /** Empty when the environment decides. */
  std::optional<int> level_of (const std::string &tag) const;

private:
  int all_ = from_environment;
  std::map<std::string, int> by_tag_;
};

#endif
