// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// "vorn-host topics": what flows on blackboard and telemetry of an instance.
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <vector>

#include "commands.hpp"
#include "instance_claim.hpp"
#include "json_writer.hpp"
#include "messages.hpp"
#include <vorn/sections.h>

namespace
{

struct Topic {
  std::string name;
  VornSectionInfo info;
  double rate_hz;
  double age_s; // negative: unknown
  std::vector<std::string> variables;
};

double seconds_of (const struct timespec &time)
{
  return static_cast<double> (time.tv_sec) + static_cast<double> (time.tv_nsec) * 1e-9;
}

double monotonic_s ()
{
  struct timespec now = {};
  clock_gettime (CLOCK_MONOTONIC, &now);
  return seconds_of (now);
}

std::vector<Topic> look (std::string *error)
{
  std::vector<Topic> topics;
  const int result = vorn_sections_list (
      nullptr,
      [] (const VornSectionInfo *info, void *data) {
        static_cast<std::vector<Topic> *> (data)->push_back ({info->name, *info, 0, -1, {}});
      },
      &topics);
  if (result < 0)
    *error = std::string ("shared memory: ") + g_strerror (-result);
  return topics;
}

void add_variables (Topic *topic)
{
  if (topic->info.kind != VORN_SECTION_TELEMETRY)
    return;
  vorn_telemetry_list_variables (
      topic->name.c_str (),
      [] (const VornTelemetryVariable *variable, void *data) {
        static_cast<std::vector<std::string> *> (data)->emplace_back (variable->name);
      },
      &topic->variables);
}

/** Rates from how much came between the two looks. */
void compare (const std::vector<Topic> &before, std::vector<Topic> *now, double seconds)
{
  for (Topic &topic : *now) {
    const auto former =
        std::find_if (before.begin (), before.end (), [&topic] (const Topic &other) {
          return other.name == topic.name && other.info.kind == topic.info.kind;
        });
    if (former != before.end () && former->info.written <= topic.info.written)
      topic.rate_hz = static_cast<double> (topic.info.written - former->info.written) / seconds;
    if (topic.info.written > 0)
      topic.age_s = monotonic_s () - seconds_of (topic.info.newest);
    add_variables (&topic);
  }
}

const char *kind_name (const Topic &topic)
{
  return topic.info.kind == VORN_SECTION_TELEMETRY ? "telemetry" : "blackboard";
}

void print_text (const std::vector<Topic> &topics)
{
  printf ("%-10s  %-24s  %9s  %10s  %-6s  %s\n", "kind", "section", "rate", "age", "writer",
          "what");
  for (const Topic &topic : topics) {
    std::string what;
    for (const std::string &variable : topic.variables)
      what += (what.empty () ? "" : " ") + variable;
    if (what.empty ())
      what = std::to_string (topic.info.header.sample_size) + " bytes, " +
             std::to_string (topic.info.header.sample_count) + " samples kept";
    const vorn::OwnedString age (topic.age_s < 0 ? g_strdup ("-")
                                                 : g_strdup_printf ("%.1f ms", topic.age_s * 1e3));
    printf ("%-10s  %-24s  %6.1f /s  %10s  %-6s  %s\n", kind_name (topic), topic.name.c_str (),
            topic.rate_hz, age.get (), topic.info.writer_lives ? "lives" : "dead", what.c_str ());
  }
}

void print_json (const std::vector<Topic> &topics)
{
  JsonWriter json;
  json.object ();
  json.array ("sections");
  for (const Topic &topic : topics) {
    json.object ();
    json.text ("kind", kind_name (topic));
    json.text ("name", topic.name);
    json.number ("rate_hz", topic.rate_hz);
    json.number ("age_s", topic.age_s < 0 ? std::nullopt : std::optional (topic.age_s));
    json.boolean ("writer_lives", topic.info.writer_lives != 0);
    json.integer ("sample_size", topic.info.header.sample_size);
    json.texts ("variables", topic.variables);
    json.end_object ();
  }
  json.end_array ();
  json.end_object ();
  puts (json.on_lines ().c_str ());
}

} // namespace

int topics_command (const Options &options)
{
  Instance instance;
  std::string error;
  if (!choose_instance (options.instance, &instance, &error))
    return fail (error, EXIT_USAGE);
  const double seconds = options.duration_s > 0 ? options.duration_s : 1;
  const double start_s = monotonic_s ();
  const std::vector<Topic> before = look (&error);
  g_usleep (static_cast<gulong> (seconds * 1e6));
  std::vector<Topic> topics = look (&error);
  if (!error.empty ())
    return fail (error);
  compare (before, &topics, monotonic_s () - start_s);
  if (options.json)
    print_json (topics);
  else if (topics.empty ())
    return fail ("nothing flows on instance '" + instance.name + "'");
  else
    print_text (topics);
  return finish_output ();
}
