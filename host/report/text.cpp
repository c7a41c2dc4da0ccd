// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "text.hpp"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <filesystem>

#include <glib.h>

#include <vorn/raii.hpp>

namespace report
{

std::string fixed (double value, int decimals)
{
  // Digits of the largest double, sign, point and decimals.
  std::array<char, 400> text;
  if (!std::isfinite (value))
    return {};
  const auto end = std::to_chars (text.data (), text.data () + text.size (), value,
                                  std::chars_format::fixed, decimals);
  std::string result (text.data (), end.ptr);
  // What rounds to nothing has no sign.
  if (result.starts_with ('-') && result.find_first_not_of ("-0.") == std::string::npos)
    result.erase (0, 1);
  return result;
}

std::string shortest (float value)
{
  std::array<char, 64> text;
  if (!std::isfinite (value))
    return {};
  return {text.data (), std::to_chars (text.data (), text.data () + text.size (), value).ptr};
}

std::string fixed_or_dash (const std::optional<double> &value, int decimals)
{
  return value && std::isfinite (*value) ? fixed (*value, decimals) : "-";
}

std::string seconds_text (int64_t time_ns)
{
  constexpr int64_t ns_per_s = 1'000'000'000;
  const int64_t part_ns = std::abs (time_ns % ns_per_s);
  std::array<char, 32> text;
  snprintf (text.data (), text.size (), "%s%lld.%09lld", time_ns < 0 ? "-" : "",
            static_cast<long long> (std::abs (time_ns / ns_per_s)),
            static_cast<long long> (part_ns));
  return text.data ();
}

std::string size_text (uint64_t bytes)
{
  static constexpr std::array units = {"kB", "MB", "GB", "TB"};
  if (bytes < 1000)
    return std::to_string (bytes) + " B";
  double value = static_cast<double> (bytes) / 1000;
  size_t unit = 0;
  while (value >= 999.95 && unit + 1 < units.size ()) {
    value /= 1000;
    unit++;
  }
  return fixed (value, 1) + " " + units[unit];
}

std::string escape_markup (std::string_view text)
{
  const vorn::OwnedString valid (
      g_utf8_make_valid (text.data (), static_cast<gssize> (text.size ())));
  const vorn::OwnedString escaped (g_markup_escape_text (valid.get (), -1));
  return escaped.get ();
}

std::string csv_field (std::string_view text)
{
  if (text.find_first_of ("\",\r\n") == std::string_view::npos)
    return std::string (text);
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"')
      quoted += '"';
    quoted += c;
  }
  return quoted + "\"";
}

std::string name_in (const std::string &folder, const std::string &path)
{
  const std::filesystem::path whole (path);
  const std::filesystem::path inside =
      folder.empty () ? std::filesystem::path ()
                      : whole.lexically_normal ().lexically_proximate (
                            std::filesystem::path (folder).lexically_normal ());
  const bool is_inside = !inside.empty () && inside.is_relative () && *inside.begin () != "..";
  return (is_inside ? inside : whole.filename ()).string ();
}

} // namespace report
