// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// "vorn-host doctor": is everything there to run, and if not, what to do.
#include <algorithm>

#include "commands.hpp"
#include "doctor_checks.hpp"
#include "json_writer.hpp"
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
  JsonWriter json;
  json.object ();
  json.array ("checks");
  for (const Finding &finding : findings) {
    json.object ();
    json.text ("what", finding.what);
    json.text ("health", health_name (finding.health));
    json.text ("message", finding.message);
    json.text ("advice", finding.advice);
    json.end_object ();
  }
  json.end_array ();
  json.end_object ();
  puts (json.on_lines ().c_str ());
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
