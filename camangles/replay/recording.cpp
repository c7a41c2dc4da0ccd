// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "recording.hpp"

#include <array>
#include <cctype>
#include <charconv>
#include <cmath>
#include <vector>

namespace
{

constexpr std::array field_names = {"timestamp", "x", "y", "z", "qx", "qy", "qz", "qw"};
constexpr size_t fields_without_reference = 4;

std::string_view trimmed (std::string_view text)
{
  constexpr std::string_view blanks = " \t\r";
  const size_t first = text.find_first_not_of (blanks);
  if (first == std::string_view::npos)
    return {};
  return text.substr (first, text.find_last_not_of (blanks) - first + 1);
}

std::vector<std::string_view> split (std::string_view line)
{
  std::vector<std::string_view> fields;
  for (size_t comma; (comma = line.find (',')) != std::string_view::npos;) {
    fields.push_back (trimmed (line.substr (0, comma)));
    line.remove_prefix (comma + 1);
  }
  fields.push_back (trimmed (line));
  return fields;
}

[[noreturn]] void refuse (size_t field, std::string_view text, const char *reason)
{
  throw MalformedLine (std::string (field_names[field]) + " '" + std::string (text.substr (0, 40)) +
                       "' " + reason);
}

template <typename Number>
Number number (size_t field, std::string_view text, const char *kind)
{
  Number value{};
  const auto [end, error] = std::from_chars (text.data (), text.data () + text.size (), value);
  if (error == std::errc::result_out_of_range)
    refuse (field, text, "is out of range");
  if (error != std::errc () || end != text.data () + text.size ())
    refuse (field, text, kind);
  return value;
}

float finite (size_t field, std::string_view text)
{
  const auto value = number<float> (field, text, "is not a number");
  if (!std::isfinite (value))
    refuse (field, text, "is not finite");
  return value;
}

} // namespace

std::optional<Sample> RecordingParser::parse (std::string_view line)
{
  line = trimmed (line);
  if (line.empty () || line.front () == '#')
    return {};
  const bool is_heading =
      heading_possible_ && std::isalpha (static_cast<unsigned char> (line.front ())) != 0;
  heading_possible_ = false;
  if (is_heading)
    return {};

  const auto fields = split (line);
  if (fields.size () != fields_without_reference && fields.size () != field_names.size ())
    throw MalformedLine ("expected 4 or 8 fields, found " + std::to_string (fields.size ()));
  Sample sample;
  sample.timestamp = number<uint64_t> (0, fields[0], "is not an unsigned integer");
  if (sample.timestamp == UINT64_MAX)
    refuse (0, fields[0], "is reserved for interpolated samples");
  if (last_timestamp_ && sample.timestamp <= *last_timestamp_)
    refuse (0, fields[0], "does not come after the one before");
  sample.x = finite (1, fields[1]);
  sample.y = finite (2, fields[2]);
  sample.z = finite (3, fields[3]);
  if (fields.size () == field_names.size ()) {
    const quat_t reference = {finite (4, fields[4]), finite (5, fields[5]), finite (6, fields[6]),
                              finite (7, fields[7])};
    /* Recordings carry few digits. All-zero means none. */
    if (quatIsZero (&reference) != 1 && quatIsRotation (&reference, 0.01f) != 1)
      throw MalformedLine ("the reference is neither a unit quaternion nor all zero");
    sample.reference = reference;
  }
  last_timestamp_ = sample.timestamp;
  return sample;
}
