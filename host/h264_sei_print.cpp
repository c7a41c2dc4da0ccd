// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "h264_sei_print.hpp"

#include <cstdio>

#include "json_writer.hpp"

namespace h264_sei
{

namespace
{

void add_value (JsonWriter *json, const char *name, const Value &value)
{
  if (const auto *number = std::get_if<gint64> (&value))
    json->integer (name, *number);
  else if (const auto *flag = std::get_if<bool> (&value))
    json->boolean (name, *flag);
  else
    json->text (name, std::get<std::string> (value));
}

void add_damage (JsonWriter *json, const std::string &damage)
{
  if (!damage.empty ())
    json->text ("damage", damage);
}

void add_message (JsonWriter *json, const SeiMessage &message)
{
  json->object ();
  json->integer ("payload_type", message.payload_type);
  json->text ("name", message.name);
  for (const auto &[name, value] : message.fields)
    add_value (json, name, value);
  json->end_object ();
}

void add_nal_unit (JsonWriter *json, const NalUnit &nal_unit)
{
  json->object ();
  json->integer ("nal_unit_type", nal_unit.type);
  json->text ("name", nal_unit.name);
  json->integer ("size", static_cast<gint64> (nal_unit.size));
  if (nal_unit.type == GST_H264_NAL_SEI) {
    json->array ("messages");
    for (const SeiMessage &message : nal_unit.messages)
      add_message (json, message);
    json->end_array ();
  }
  add_damage (json, nal_unit.damage);
  json->end_object ();
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
  JsonWriter json;
  json.object ();
  json.integer ("index", static_cast<gint64> (index));
  if (unit.time_ns)
    json.integer ("time_ns", static_cast<gint64> (*unit.time_ns));
  json.boolean ("key_frame", unit.key_frame);
  json.array ("nal_units");
  for (const NalUnit &nal_unit : nal_units)
    add_nal_unit (&json, nal_unit);
  json.end_array ();
  add_damage (&json, unit.damage);
  json.end_object ();
  puts (json.on_one_line ().c_str ());
}

} // namespace h264_sei
