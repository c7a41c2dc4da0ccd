// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "vision_calibration.hpp"

#include <charconv>
#include <cmath>
#include <cstring>
#include <optional>
#include <string_view>

#include <vorn/log.h>

VORN_LOG_TAG ("vision");

namespace vision
{
namespace
{

using Numbers = std::optional<std::vector<double>>;

constexpr auto flags = static_cast<GParamFlags> (G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                 GST_PARAM_MUTABLE_PLAYING);
constexpr unsigned matrix_side = 3;

/** "{1.0, 2.0}", blanks wherever one likes. */
Numbers parse_text (const char *text, unsigned count)
{
  if (!text)
    return std::nullopt;
  std::string_view rest = text;
  const auto take = [&rest] (char expected) {
    while (!rest.empty () && g_ascii_isspace (rest.front ()))
      rest.remove_prefix (1);
    const bool found = !rest.empty () && rest.front () == expected;
    if (found)
      rest.remove_prefix (1);
    return found;
  };
  if (!take ('{'))
    return std::nullopt;
  std::vector<double> numbers;
  do {
    take (' ');
    double number = 0;
    const auto [end, status] = std::from_chars (rest.data (), rest.data () + rest.size (), number);
    if (status != std::errc () || !std::isfinite (number))
      return std::nullopt;
    rest.remove_prefix (static_cast<size_t> (end - rest.data ()));
    numbers.push_back (number);
  } while (take (','));
  if (!take ('}') || take ('}') || numbers.size () != count)
    return std::nullopt;
  while (!rest.empty () && g_ascii_isspace (rest.front ()))
    rest.remove_prefix (1);
  return rest.empty () ? Numbers (numbers) : std::nullopt;
}

Numbers parse_array (const GValue *array, unsigned count)
{
  if (!GST_VALUE_HOLDS_ARRAY (array) || gst_value_array_get_size (array) != count)
    return std::nullopt;
  std::vector<double> numbers;
  for (guint i = 0; i < count; i++) {
    const GValue *item = gst_value_array_get_value (array, i);
    if (!G_VALUE_HOLDS_FLOAT (item) || !std::isfinite (g_value_get_float (item)))
      return std::nullopt;
    numbers.push_back (static_cast<double> (g_value_get_float (item)));
  }
  return numbers;
}

Numbers parse_matrix (const GValue *array)
{
  if (!GST_VALUE_HOLDS_ARRAY (array) || gst_value_array_get_size (array) != matrix_side)
    return std::nullopt;
  std::vector<double> numbers;
  for (guint row = 0; row < matrix_side; row++) {
    const Numbers parsed = parse_array (gst_value_array_get_value (array, row), matrix_side);
    if (!parsed)
      return std::nullopt;
    numbers.insert (numbers.end (), parsed->begin (), parsed->end ());
  }
  return numbers;
}

Numbers parse (const Field &field, const GValue *value)
{
  switch (field.type) {
  case FieldType::pixels:
    return std::vector<double>{static_cast<double> (g_value_get_uint (value))};
  case FieldType::single:
    return std::vector<double>{static_cast<double> (g_value_get_float (value))};
  case FieldType::real:
    return std::vector<double>{g_value_get_double (value)};
  case FieldType::text:
    return parse_text (g_value_get_string (value), field.count);
  case FieldType::numbers:
    return parse_array (value, field.count);
  case FieldType::matrix:
    return parse_matrix (value);
  }
  return std::nullopt;
}

/** What a value should have been, for the warning. */
std::string wanted (const Field &field)
{
  const std::string count = std::to_string (field.count);
  switch (field.type) {
  case FieldType::text:
    return "of the form \"{a, b, ...}\" with " + count + " finite numbers";
  case FieldType::numbers:
    return "an array of " + count + " finite floats";
  case FieldType::matrix:
    return "an array of three arrays of three finite floats";
  default:
    return "a number"; // GLib has checked type, range and finiteness
  }
}

vorn::OwnedString printable (const GValue *value)
{
  return vorn::OwnedString (G_VALUE_HOLDS_STRING (value) ? g_value_dup_string (value)
                                                         : gst_value_serialize (value));
}

GParamSpec *spec_of (const Field &field)
{
  switch (field.type) {
  case FieldType::pixels:
    return g_param_spec_uint (field.name, nullptr, field.blurb, static_cast<guint> (field.least),
                              static_cast<guint> (field.most), 0, flags);
  case FieldType::single:
    return g_param_spec_float (field.name, nullptr, field.blurb, static_cast<gfloat> (field.least),
                               static_cast<gfloat> (field.most), 0, flags);
  case FieldType::real:
    return g_param_spec_double (field.name, nullptr, field.blurb, field.least, field.most, 0,
                                flags);
  case FieldType::text:
    return g_param_spec_string (field.name, nullptr, field.blurb, nullptr, flags);
  default:
    return gst_param_spec_array (field.name, nullptr, field.blurb, nullptr, flags);
  }
}

} // namespace

void install_fields (GObjectClass *object_class, std::span<const Field> fields)
{
  for (size_t i = 0; i < fields.size (); i++)
    g_object_class_install_property (object_class, static_cast<guint> (i + 1), spec_of (fields[i]));
}

Calibration::Calibration (std::span<const Field> fields)
    : fields_ (fields), entries_ (fields.size ())
{
  g_mutex_init (&mutex_);
}

bool Calibration::set_property (guint id, const GValue *value)
{
  if (id == 0 || id > fields_.size ())
    return false;
  const Field &field = fields_[id - 1];
  Numbers numbers = parse (field, value);
  if (!numbers) {
    const auto text = printable (value);
    VORN_LOG_WARNING ("%s: \"%s\" is not %s, the old value stays", field.name,
                      text ? text.get () : "(null)", wanted (field).c_str ());
    return true;
  }
  const vorn::Lock lock (&mutex_);
  Entry &entry = entries_[id - 1];
  if (!G_IS_VALUE (&entry.value))
    g_value_init (&entry.value, G_VALUE_TYPE (value));
  g_value_copy (value, &entry.value);
  entry.numbers = std::move (*numbers);
  return true;
}

bool Calibration::get_property (guint id, GValue *value) const
{
  if (id == 0 || id > fields_.size ())
    return false;
  const vorn::Lock lock (&mutex_);
  const Entry &entry = entries_[id - 1];
  if (G_IS_VALUE (&entry.value))
    g_value_copy (&entry.value, value);
  return true;
}

std::vector<double> Calibration::numbers (const char *name) const
{
  for (size_t i = 0; i < fields_.size (); i++)
    if (strcmp (fields_[i].name, name) == 0) {
      const vorn::Lock lock (&mutex_);
      return entries_[i].numbers;
    }
  return {};
}

} // namespace vision
