// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "json_writer.hpp"

#include <cmath>

void JsonWriter::object (const char *name)
{
  key (name);
  object ();
}

void JsonWriter::array (const char *name)
{
  key (name);
  json_builder_begin_array (builder_.get ());
}

void JsonWriter::text (const std::string &value)
{
  const vorn::OwnedString valid (
      g_utf8_make_valid (value.data (), static_cast<gssize> (value.size ())));
  json_builder_add_string_value (builder_.get (), valid.get ());
}

void JsonWriter::text (const char *name, const std::string &value)
{
  key (name);
  text (value);
}

void JsonWriter::text_or_null (const char *name, const std::string &value)
{
  if (!value.empty ())
    return text (name, value);
  key (name);
  json_builder_add_null_value (builder_.get ());
}

void JsonWriter::texts (const char *name, std::span<const std::string> values)
{
  array (name);
  for (const std::string &value : values)
    text (value);
  end_array ();
}

void JsonWriter::integer (const char *name, int64_t value)
{
  key (name);
  json_builder_add_int_value (builder_.get (), value);
}

void JsonWriter::boolean (const char *name, bool value)
{
  key (name);
  json_builder_add_boolean_value (builder_.get (), value);
}

void JsonWriter::add (const std::optional<double> &value)
{
  if (value && std::isfinite (*value))
    json_builder_add_double_value (builder_.get (), *value);
  else
    json_builder_add_null_value (builder_.get ());
}

void JsonWriter::number (const char *name, const std::optional<double> &value)
{
  key (name);
  add (value);
}

void JsonWriter::numbers (const char *name, std::span<const double> values)
{
  array (name);
  for (const double value : values)
    add (value);
  end_array ();
}

std::string JsonWriter::finish (gboolean pretty)
{
  const vorn::Owned<JsonNode, json_node_unref> root (json_builder_get_root (builder_.get ()));
  const vorn::OwnedString text (json_to_string (root.get (), pretty));
  return text.get ();
}
