// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// "vorn-host doctor": is everything there to run, and if not, what to do.
#include <algorithm>

#include <json-glib/json-glib.h>

#include "commands.hpp"
#include "doctor_checks.hpp"
#include "messages.hpp"

namespace
{

const char *health_name (Health health)
{
  switch (health) {
  case Health::good:
    return "good";
  case Health::warning:
    return "warning";
  default:
    return "bad";
  }
}

void print_text (const std::vector<Finding> &findings)
{
  for (const Finding &finding : findings) {
    printf ("%-8s %-14s %s\n", health_name (finding.health), finding.what.c_str (),
            finding.message.c_str ());
    if (!finding.advice.empty ())
      printf ("%-23s -> %s\n", "", finding.advice.c_str ());
  }
}

void print_json (const std::vector<Finding> &findings)
{
  const auto builder = vorn::adopt (json_builder_new ());
  const auto member = [&builder] (const char *name, const std::string &value) {
    json_builder_set_member_name (builder.get (), name);
    json_builder_add_string_value (builder.get (), value.c_str ());
  };
  json_builder_begin_object (builder.get ());
  json_builder_set_member_name (builder.get (), "checks");
  json_builder_begin_array (builder.get ());
  for (const Finding &finding : findings) {
    json_builder_begin_object (builder.get ());
    member ("what", finding.what);
    member ("health", health_name (finding.health));
    member ("message", finding.message);
    member ("advice", finding.advice);
    json_builder_end_object (builder.get ());
  }
  json_builder_end_array (builder.get ());
  json_builder_end_object (builder.get ());
  const vorn::Owned<JsonNode, json_node_unref> root (json_builder_get_root (builder.get ()));
  const vorn::OwnedString text (json_to_string (root.get (), TRUE));
  puts (text.get ());
}

} // namespace

int doctor_command (const Options &options)
{
  Instance instance;
  std::string error;
  if (!choose_instance (options.instance, &instance, &error))
    return fail (error, EXIT_USAGE);
  const std::vector<Finding> findings = examine (options, instance);
  if (options.json)
    print_json (findings);
  else
    print_text (findings);
  const int written = finish_output ();
  const bool bad = std::any_of (findings.begin (), findings.end (), [] (const Finding &finding) {
    return finding.health == Health::bad;
  });
  return bad ? int{EXIT_FAILED} : written;
}
