// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef HOST_JSON_WRITER_HPP
#define HOST_JSON_WRITER_HPP

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include <json-glib/json-glib.h>

#include <vorn/raii.hpp>

/** Writes one JSON document from its beginning to its end; a member's name comes with its value. */
class JsonWriter
{
public:
  void object () { json_builder_begin_object (builder_.get ()); }
  void object (const char *name);
  void end_object () { json_builder_end_object (builder_.get ()); }
  void array (const char *name);
  void end_array () { json_builder_end_array (builder_.get ()); }

  /** Bytes that are no UTF-8 are replaced: a path may have any, JSON may not. */
  void text (const std::string &value);
  void text (const char *name, const std::string &value);
  /** Empty: null. */
  void text_or_null (const char *name, const std::string &value);
  void texts (const char *name, std::span<const std::string> values);
  void integer (const char *name, int64_t value);
  void boolean (const char *name, bool value);
  /** None, or not a finite number: null. */
  void number (const char *name, const std::optional<double> &value);
  void numbers (const char *name, std::span<const double> values);

  /** The document, without a line feed at its end. Nothing can be written any more. */
  std::string on_lines () { return finish (TRUE); }
  std::string on_one_line () { return finish (FALSE); }

private:
  void add (const std::optional<double> &value);
  void key (const char *name) { json_builder_set_member_name (builder_.get (), name); }
  std::string finish (gboolean pretty);

  vorn::Ref<JsonBuilder> builder_ = vorn::adopt (json_builder_new ());
};

#endif
