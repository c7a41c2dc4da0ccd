// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "h264_sei_print.hpp"

#include <cstdio>

#include <json-glib/json-glib.h>

#include <vorn/raii.hpp>

namespace h264_sei
{

namespace
{

void add_value (JsonBuilder *builder, const char *name, const Value &value)
{
  json_builder_set_member_name (builder, name);
  if (const auto *number = std::get_if<gint64> (&value))
    json_builder_add_int_value (builder, *number);
  else if (const auto *flag = std::get_if<bool> (&value))
    json_builder_add_boolean_value (builder, *flag);
  else
    json_builder_add_string_value (builder, std::get<std::string> (value).c_str ());
}

void add_damage (JsonBuilder *builder, const std::string &damage)
{
  if (!damage.empty ())
    add_value (builder, "damage", damage);
}

void add_message (JsonBuilder *builder, const SeiMessage &message)
{
  json_builder_begin_object (builder);
  add_value (builder, "payload_type", gint64{message.payload_type});
  add_value (builder, "name", std::string (message.name));
  for (const auto &[name, value] : message.fields)
    add_value (builder, name, value);
  json_builder_end_object (builder);
}

void add_nal_unit (JsonBuilder *builder, const NalUnit &nal_unit)
{
  json_builder_begin_object (builder);
  add_value (builder, "nal_unit_type", gint64{nal_unit.type});
  add_value (builder, "name", std::string (nal_unit.name));
  add_value (builder, "size", static_cast<gint64> (nal_unit.size));
  if (nal_unit.type == GST_H264_NAL_SEI) {
    json_builder_set_member_name (builder, "messages");
    json_builder_begin_array (builder);
    for (const SeiMessage &message : nal_unit.messages)
      add_message (builder, message);
    json_builder_end_array (builder);
  }
  add_damage (builder, nal_unit.damage);
  json_builder_end_object (builder);
}

} // namespace

void print_text (guint64 index, const AccessUnit &unit, const std::vector<NalUnit> &nal_units)
{
  printf ("%" G_GUINT64_FORMAT, index);
  if (unit.time_ns)
    printf ("  %.6f s", static_cast<double> (*unit.time_ns) / 1e9);
  printf ("%s%s%s\n", unit.key_frame ? "  key frame" : "",
          unit.damage.empty () ? "" : "  damaged: ", unit.damage.c_str ());
  for (const NalUnit &nal_unit : nal_units) {
    printf ("  %-16s type %2u  %8zu bytes", nal_unit.name, nal_unit.type, nal_unit.size);
    if (!nal_unit.text.empty ())
      printf ("  %s", nal_unit.text.c_str ());
    if (!nal_unit.damage.empty ())
      printf ("  damaged: %s", nal_unit.damage.c_str ());
    printf ("\n");
    for (const SeiMessage &message : nal_unit.messages)
      printf ("    %s%s%s\n", message.name, message.text.empty () ? "" : ": ",
              message.text.c_str ());
  }
}

void print_json (guint64 index, const AccessUnit &unit, const std::vector<NalUnit> &nal_units)
{
  const auto owner = vorn::adopt (json_builder_new ());
  JsonBuilder *builder = owner.get ();
  json_builder_begin_object (builder);
  add_value (builder, "index", static_cast<gint64> (index));
  if (unit.time_ns)
    add_value (builder, "time_ns", static_cast<gint64> (*unit.time_ns));
  add_value (builder, "key_frame", unit.key_frame);
  json_builder_set_member_name (builder, "nal_units");
  json_builder_begin_array (builder);
  for (const NalUnit &nal_unit : nal_units)
    add_nal_unit (builder, nal_unit);
  json_builder_end_array (builder);
  add_damage (builder, unit.damage);
  json_builder_end_object (builder);

  const vorn::Owned<JsonNode, json_node_unref> root (json_builder_get_root (builder));
  const vorn::OwnedString text (json_to_string (root.get (), FALSE));
  printf ("%s\n", text.get ());
}

} // namespace h264_sei
