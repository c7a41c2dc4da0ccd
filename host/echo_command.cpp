// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// "vorn-host echo": the newest samples of a section as they come.
#include <array>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

#include <glib-unix.h>

#include "commands.hpp"
#include "instance_claim.hpp"
#include "json_writer.hpp"
#include "messages.hpp"
#include <vorn/sections.h>
#include <vorn/telemetry.h>

namespace
{

/** So often it is looked for a new sample; of faster sections the newest is shown. */
constexpr guint look_period_ms = 20;

using Consumer = vorn::Owned<VornTelemetryConsumer, vorn_telemetry_consumer_destroy>;

struct Variable {
  std::string name;
  uint32_t type;
  uint32_t size;
  uint32_t count;
  size_t offset;
};

struct Wanted {
  std::string name;
  std::optional<VornSectionInfo> telemetry;
  std::optional<VornSectionInfo> blackboard;
};

/** What there is of this name. */
Wanted find (const std::string &name)
{
  Wanted wanted = {name, {}, {}};
  vorn_sections_list (
      nullptr,
      [] (const VornSectionInfo *info, void *data) {
        auto *found = static_cast<Wanted *> (data);
        if (found->name == info->name)
          (info->kind == VORN_SECTION_TELEMETRY ? found->telemetry : found->blackboard) = *info;
      },
      &wanted);
  return wanted;
}

std::string text_of (const struct timespec &time)
{
  std::array<char, 48> text;
  g_snprintf (text.data (), text.size (), "%" PRId64 ".%09ld", static_cast<int64_t> (time.tv_sec),
              time.tv_nsec);
  return text.data ();
}

double number_at (const std::byte *at, uint32_t type)
{
  const auto number = [at]<typename T> (T value) {
    memcpy (&value, at, sizeof value);
    return static_cast<double> (value);
  };
  switch (type) {
  case VORN_TELEMETRY_INT16:
    return number (int16_t{});
  case VORN_TELEMETRY_INT32:
    return number (int32_t{});
  case VORN_TELEMETRY_F32:
    return number (float{});
  default:
    return number (double{});
  }
}

/** As exact as the type is. */
std::string text_of (double number, uint32_t type)
{
  std::array<char, 64> text;
  g_snprintf (text.data (), text.size (), "%.*g", type == VORN_TELEMETRY_F32 ? 9 : 17, number);
  return text.data ();
}

/** Follows one section and prints its samples. */
class Echo
{
public:
  Echo (std::string section, std::string variable, bool json)
      : section_ (std::move (section)), variable_ (std::move (variable)), json_ (json)
  {
  }

  /** Looks once whether the section and the variable are there; the reason when not. */
  std::string check ();
  /** Prints the newest sample if it is new; how many were printed. */
  int look ();

private:
  void open_telemetry ();
  bool read_blackboard (const VornSectionInfo &info);
  std::vector<double> numbers_of (const Variable &variable) const;
  void print (const struct timespec &time) const;
  void print_json (const struct timespec &time) const;

  std::string section_;
  std::string variable_;
  bool json_;
  std::vector<Variable> variables_;
  std::vector<std::byte> sample_;
  Consumer consumer_;
  uint64_t written_ = 0;
};

void Echo::open_telemetry ()
{
  variables_.clear ();
  vorn_telemetry_list_variables (
      section_.c_str (),
      [] (const VornTelemetryVariable *v, void *data) {
        auto *variables = static_cast<std::vector<Variable> *> (data);
        const size_t end = variables->empty ()
                               ? 0
                               : variables->back ().offset +
                                     size_t{variables->back ().size} * variables->back ().count;
        variables->push_back ({v->name, v->type, v->size, v->count, end});
      },
      &variables_);
  if (!variable_.empty ())
    std::erase_if (variables_, [this] (const Variable &v) { return v.name != variable_; });
  if (variables_.empty ())
    return;
  sample_.assign (variables_.back ().offset +
                      size_t{variables_.back ().size} * variables_.back ().count,
                  std::byte{});
  consumer_.reset (vorn_telemetry_consumer_new ());
  for (const Variable &v : variables_) {
    const std::string name = section_ + "." + v.name;
    const VornTelemetryEntry entry = {name.c_str (), v.type, v.size, v.count,
                                      sample_.data () + v.offset};
    vorn_telemetry_consumer_register (consumer_.get (), &entry, 1);
  }
  vorn_telemetry_consumer_complete (consumer_.get ());
}

std::string Echo::check ()
{
  const Wanted found = find (section_);
  if (!found.telemetry && !found.blackboard)
    return "there is no section '" + section_ + "': 'vorn-host topics' shows which there are";
  if (found.telemetry) {
    open_telemetry ();
    if (variables_.empty ())
      return "section '" + section_ + "' has no variable '" + variable_ + "'";
  } else if (!variable_.empty ()) {
    return "section '" + section_ + "' is one of the blackboard: it has no variables";
  }
  return {};
}

bool Echo::read_blackboard (const VornSectionInfo &info)
{
  VornBlackboardRevision *revision = nullptr;
  VornBlackboardReader *reader = vorn_blackboard_open (section_.c_str (), &revision);
  if (!reader)
    return false;
  sample_.assign (info.header.sample_size, std::byte{});
  const bool read =
      vorn_blackboard_select (reader, &info.newest, VORN_BLACKBOARD_AT_OR_BEFORE, 0) == 0 &&
      vorn_blackboard_read (reader, 0, sample_.data (), sample_.size ()) == 1 &&
      vorn_blackboard_end_read (reader, revision) == 0;
  vorn_blackboard_close (reader, revision);
  variables_ = {{"f32", VORN_TELEMETRY_F32, sizeof (float),
                 static_cast<uint32_t> (sample_.size () / sizeof (float)), 0}};
  return read;
}

std::vector<double> Echo::numbers_of (const Variable &variable) const
{
  std::vector<double> numbers;
  for (uint32_t i = 0; i < variable.count; i++)
    numbers.push_back (
        number_at (sample_.data () + variable.offset + size_t{i} * variable.size, variable.type));
  return numbers;
}

void Echo::print (const struct timespec &time) const
{
  std::string line = text_of (time);
  for (const Variable &variable : variables_) {
    line += " " + variable.name;
    for (const double number : numbers_of (variable))
      line += " " + text_of (number, variable.type);
  }
  puts (line.c_str ());
}

void Echo::print_json (const struct timespec &time) const
{
  JsonWriter json;
  json.object ();
  json.integer ("time_ns", int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec);
  // In an object of their own: a variable may have any name.
  json.object ("values");
  for (const Variable &variable : variables_) {
    const std::vector<double> numbers = numbers_of (variable);
    if (variable.count == 1)
      json.number (variable.name.c_str (), numbers[0]);
    else
      json.numbers (variable.name.c_str (), numbers);
  }
  json.end_object ();
  json.end_object ();
  puts (json.on_one_line ().c_str ());
}

int Echo::look ()
{
  const Wanted found = find (section_);
  const auto &info = found.telemetry ? found.telemetry : found.blackboard;
  if (!info || info->written == 0 || info->written == written_)
    return 0;
  written_ = info->written;
  const bool read = found.telemetry ? vorn_telemetry_consumer_get (consumer_.get (), &info->newest,
                                                                   VORN_TELEMETRY_VALID_AT) == 0
                                    : read_blackboard (*info);
  if (!read)
    return 0;
  json_ ? print_json (info->newest) : print (info->newest);
  return 1;
}

struct Follow {
  vorn::Owned<GMainLoop, g_main_loop_unref> loop{g_main_loop_new (nullptr, FALSE)};
  std::unique_ptr<Echo> echo;
  int shown = 0;
  int wanted = 0; // 0: no end
};

gboolean on_look (gpointer data)
{
  auto *follow = static_cast<Follow *> (data);
  follow->shown += follow->echo->look ();
  if ((follow->wanted && follow->shown >= follow->wanted) || ferror (stdout))
    g_main_loop_quit (follow->loop.get ());
  return G_SOURCE_CONTINUE;
}

gboolean on_end (gpointer data)
{
  g_main_loop_quit (static_cast<Follow *> (data)->loop.get ());
  return G_SOURCE_CONTINUE;
}

} // namespace

int echo_command (const Options &options)
{
  setvbuf (stdout, nullptr, _IOLBF, 0);
  Instance instance;
  std::string error;
  if (!choose_instance (options.instance, &instance, &error))
    return fail (error, EXIT_USAGE);
  const std::string &topic = options.arguments[0];
  const auto dot = topic.find ('.');
  Follow follow;
  follow.wanted = options.count;
  follow.echo = std::make_unique<Echo> (
      topic.substr (0, dot), dot == std::string::npos ? "" : topic.substr (dot + 1), options.json);
  error = follow.echo->check ();
  if (!error.empty ())
    return fail (error);
  g_unix_signal_add (SIGINT, on_end, &follow);
  g_unix_signal_add (SIGTERM, on_end, &follow);
  g_timeout_add (look_period_ms, on_look, &follow);
  if (options.duration_s > 0)
    g_timeout_add (static_cast<guint> (options.duration_s * 1000) + 1, on_end, &follow);
  g_main_loop_run (follow.loop.get ());
  return follow.shown
             ? finish_output ()
             : fail ("no sample came of '" + topic + "' on instance '" + instance.name + "'");
}
