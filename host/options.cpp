// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "options.hpp"

#include <algorithm>
#include <cstring>
#include <string_view>

#include <gst/gst.h>

#include "commands.hpp"
#include <vorn/raii.hpp>

namespace
{

constexpr char general_description[] =
    "'vorn-host COMMAND --help' tells more about a command.\n"
    "\n"
    "A configuration is a key file; host/desk.conf is a commented sample.\n"
    "\n"
    "Examples: desk-simulator --flight orbit & vorn-host run\n"
    "          vorn-host modes --config host/desk.conf\n"
    "          vorn-host attitude --duration 10 --csv attitude.csv";

constexpr char exit_description[] =
    "\n\n"
    "Exit status: 0 done, 1 failed, 2 wrong usage, 3 no host runs on the instance or it does not\n"
    "answer, 4 the host refused (busy, or not in this mode).";

/** The values as GLib stores them. */
struct Values {
  gchar *config = nullptr;
  gchar *plugin = nullptr;
  gchar *instance = nullptr;
  gchar *csv = nullptr;
  gchar *media = nullptr;
  gchar *udp = nullptr;
  gchar *report = nullptr;
  gchar *units = nullptr;
  gchar *mode = nullptr;
  gchar *group = nullptr;
  gchar *panorama = nullptr;
  gchar **properties = nullptr;
  gchar **logs = nullptr;
  gchar **about = nullptr;
  gdouble duration_s = 0;
  gint port = default_rtsp_port;
  gint count = 0;
  gboolean record = FALSE;
  gboolean show = FALSE;
  gboolean simple = FALSE;
  gboolean full = FALSE;
  gboolean json = FALSE;
  gboolean verbose = FALSE;
  gboolean quiet = FALSE;
  gboolean version = FALSE;

  Values () = default;
  Values (const Values &) = delete;
  Values &operator= (const Values &) = delete;
  ~Values ()
  {
    for (gchar *text :
         {config, plugin, instance, csv, media, udp, report, units, mode, group, panorama})
      g_free (text);
    for (gchar **texts : {properties, logs, about})
      g_strfreev (texts);
  }
};

struct OptionRow {
  unsigned commands; // that know it; 0: only without a command
  GOptionEntry entry;
};

/** Every option once, for all commands that know it: a name never means two things. */
std::vector<OptionRow> option_rows (Values *v)
{
  const unsigned all = ~0u;
  return {
      {COMMAND_RUN | COMMAND_MODES | COMMAND_DOCTOR,
       {"config", 'c', 0, G_OPTION_ARG_FILENAME, &v->config,
        "The configuration to set up from (run, doctor: the desk's)", "FILE"}},
      {COMMAND_RUN | COMMAND_MODES | COMMAND_DOCTOR,
       {"plugin", 'p', 0, G_OPTION_ARG_FILENAME, &v->plugin,
        "The plug-in to load instead of our own", "FILE"}},
      {all & ~unsigned{COMMAND_MODES},
       {"instance", 'i', 0, G_OPTION_ARG_STRING, &v->instance,
        "The drone on this machine (default: $VORN_NAMESPACE, else \"default\")", "NAME"}},
      {COMMAND_RUN | COMMAND_ATTITUDE | COMMAND_TOPICS | COMMAND_ECHO,
       {"duration", 'd', 0, G_OPTION_ARG_DOUBLE, &v->duration_s,
        "Stop after so many seconds (0: when interrupted; topics: 1)", "SECONDS"}},
      {COMMAND_RUN,
       {"mode", 'm', 0, G_OPTION_ARG_STRING, &v->mode,
        "The camera mode to start in, as set-mode takes it (default: the product's)", "MODE"}},
      {COMMAND_RUN,
       {"record", 'r', 0, G_OPTION_ARG_NONE, &v->record, "Record from the start to the end",
        nullptr}},
      {COMMAND_RUN,
       {"simple", 's', 0, G_OPTION_ARG_NONE, &v->simple,
        "The simple front camera: no dewarping (ro.simple-front-cam=1)", nullptr}},
      {COMMAND_RUN,
       {"full", 'f', 0, G_OPTION_ARG_NONE, &v->full,
        "The full front camera: stabilised pictures (ro.simple-front-cam=0)", nullptr}},
      {COMMAND_RUN,
       {"set", 0, 0, G_OPTION_ARG_STRING_ARRAY, &v->properties,
        "Set a system property, over the configuration's (may be given again)", "PROPERTY=VALUE"}},
      {COMMAND_RUN | COMMAND_DOCTOR,
       {"port", 0, 0, G_OPTION_ARG_INT, &v->port,
        "TCP port of the RTSP server (8554; 0: the system chooses)", "PORT"}},
      {COMMAND_RUN,
       {"udp", 0, 0, G_OPTION_ARG_STRING, &v->udp, "Send the stream there as bare RTP too",
        "HOST:PORT"}},
      {COMMAND_RUN | COMMAND_DOCTOR,
       {"media", 0, 0, G_OPTION_ARG_FILENAME, &v->media,
        "Folder of pictures and recordings (default: media)", "FOLDER"}},
      {COMMAND_RUN,
       {"report", 0, 0, G_OPTION_ARG_FILENAME, &v->report,
        "Write the run's results there: report.html, summary.json, frames.csv, attitude.csv",
        "FOLDER"}},
      {COMMAND_RUN,
       {"about", 0, 0, G_OPTION_ARG_STRING_ARRAY, &v->about,
        "Say this of the run in its report, as flight=orbit (may be given again)", "NAME=VALUE"}},
      {COMMAND_RUN,
       {"units", 0, 0, G_OPTION_ARG_FILENAME, &v->units,
        "Write a line there for each unit of the stream: capture_ns,encoded_ns,bytes", "FILE"}},
      {COMMAND_RUN,
       {"show", 0, 0, G_OPTION_ARG_NONE, &v->show,
        "Let the drone do everything once: record, take pictures, switch modes", nullptr}},
      {COMMAND_RUN,
       {"log", 0, 0, G_OPTION_ARG_STRING_ARRAY, &v->logs,
        "Set what a module logs: none, error, warning, info, debug (may be given again)",
        "TAG=LEVEL"}},
      {COMMAND_RUN,
       {"verbose", 'v', 0, G_OPTION_ARG_NONE, &v->verbose, "Log all there is to log", nullptr}},
      {COMMAND_RUN,
       {"quiet", 'q', 0, G_OPTION_ARG_NONE, &v->quiet, "No line of status each second", nullptr}},
      {COMMAND_ATTITUDE,
       {"csv", 0, 0, G_OPTION_ARG_FILENAME, &v->csv, "Write each attitude there as well", "FILE"}},
      {COMMAND_PHOTO,
       {"group", 'g', 0, G_OPTION_ARG_STRING, &v->group,
        "How the pictures belong together: single, bracketing, burst, panorama", "GROUP"}},
      {COMMAND_PHOTO,
       {"panorama-type", 0, 0, G_OPTION_ARG_STRING, &v->panorama,
        "What kind of panorama (spherical)", "TYPE"}},
      {COMMAND_PHOTO | COMMAND_ECHO,
       {"count", 'n', 0, G_OPTION_ARG_INT, &v->count, "So many pictures (1) or samples (0: no end)",
        "N"}},
      {COMMAND_MODES | COMMAND_STATUS | COMMAND_TOPICS | COMMAND_ECHO | COMMAND_DOCTOR,
       {"json", 'j', 0, G_OPTION_ARG_NONE, &v->json, "Print JSON instead of text", nullptr}},
      {0,
       {"version", 'V', 0, G_OPTION_ARG_NONE, &v->version, "Print the version and exit", nullptr}},
  };
}

int mistake (const std::string &message, const Command *command)
{
  g_printerr ("vorn-host: %s\nTry 'vorn-host %s%s--help'.\n", message.c_str (),
              command ? command->name : "", command ? " " : "");
  return EXIT_USAGE;
}

/** Whether the next argument is this option's value. */
bool takes_next (const std::vector<OptionRow> &rows, std::string_view argument)
{
  for (const OptionRow &row : rows) {
    if (row.entry.arg == G_OPTION_ARG_NONE)
      continue;
    if (argument.starts_with ("--") ? argument.substr (2) == row.entry.long_name
                                    : argument.back () == row.entry.short_name)
      return true;
  }
  return false;
}

/** The index of the first argument that is no option nor an option's value; 0: none. */
int find_command_word (int argc, char **argv, const std::vector<OptionRow> &rows)
{
  for (int i = 1; i < argc; i++) {
    const std::string_view argument = argv[i];
    if (argument == "--")
      return i + 1 < argc ? i + 1 : 0;
    if (argument.size () < 2 || argument[0] != '-')
      return i;
    if (takes_next (rows, argument))
      i++;
  }
  return 0;
}

std::string command_list ()
{
  std::string list = "Drives a product of the camera-pipeline framework, and looks at one.\n"
                     "\n"
                     "Commands:\n";
  for (const Command &command : all_commands ()) {
    std::string name = command.name;
    if (*command.arguments)
      name += std::string (" ") + command.arguments;
    name.resize (std::max<size_t> (name.size (), 26), ' ');
    list += "  " + name + " " + command.summary + "\n";
  }
  list.pop_back ();
  return list;
}

/** Parses all arguments but the command's own name. */
bool parse (const Command *command, const std::vector<OptionRow> &rows, int *argc, char ***argv,
            vorn::ErrorOut *error)
{
  std::vector<GOptionEntry> entries;
  for (const OptionRow &row : rows)
    if (!command || (row.commands & command->bit)) {
      entries.push_back (row.entry);
      // Without a command the options of commands are known, but not of interest.
      if (row.commands != 0 && !command)
        entries.back ().flags |= G_OPTION_FLAG_HIDDEN;
    }
  entries.push_back ({});
  const vorn::Owned<GOptionContext, g_option_context_free> context (
      g_option_context_new (command ? command->arguments : "COMMAND"));
  const std::string summary = command ? command->summary : command_list ();
  g_option_context_set_summary (context.get (), summary.c_str ());
  g_option_context_set_description (
      context.get (),
      (std::string (command ? command->description : general_description) + exit_description)
          .c_str ());
  g_option_context_add_main_entries (context.get (), entries.data (), nullptr);
  // Only these make pipelines: the others start at once.
  if (!command || (command->bit & (COMMAND_RUN | COMMAND_MODES | COMMAND_DOCTOR)))
    g_option_context_add_group (context.get (), gst_init_get_option_group ());
  g_set_prgname (command ? (std::string ("vorn-host ") + command->name).c_str () : "vorn-host");
  const bool parsed = g_option_context_parse (context.get (), argc, argv, error->out ());
  g_set_prgname ("vorn-host");
  return parsed;
}

void take_over (const Values &v, Options *options)
{
  const auto text = [] (const gchar *value, std::string *to) {
    if (value)
      *to = value;
  };
  text (v.config, &options->config);
  text (v.plugin, &options->plugin);
  text (v.instance, &options->instance);
  text (v.csv, &options->csv);
  text (v.media, &options->media);
  text (v.udp, &options->udp);
  text (v.report, &options->report);
  text (v.units, &options->units);
  text (v.mode, &options->mode);
  text (v.group, &options->group);
  text (v.panorama, &options->panorama);
  for (gchar **item = v.properties; item && *item; item++)
    options->properties.emplace_back (*item);
  for (gchar **item = v.logs; item && *item; item++)
    options->logs.emplace_back (*item);
  for (gchar **item = v.about; item && *item; item++)
    options->about.emplace_back (*item);
  options->duration_s = v.duration_s;
  options->port = v.port;
  options->count = v.count;
  options->record = v.record;
  options->show = v.show;
  options->simple = v.simple;
  options->full = v.full;
  options->json = v.json;
  options->verbose = v.verbose;
  options->quiet = v.quiet;
  options->version = v.version;
}

/** NAME=VALUE of a report; the value may be anything. */
bool is_about (const std::string &text)
{
  const size_t length = text.find ('=');
  return length != std::string::npos && length > 0 &&
         std::all_of (text.begin (), text.begin () + static_cast<ptrdiff_t> (length),
                      [] (char c) { return g_ascii_isalnum (c) || c == '_' || c == '-'; });
}

/** What of the values cannot be; empty when all can. */
std::string fault (const Options &options, const Command &command)
{
  const std::string quoted = std::string ("'") + command.name + "'";
  const size_t count = options.arguments.size ();
  if (count > command.most_arguments)
    return quoted + ": unexpected argument '" + options.arguments[command.most_arguments] + "'";
  if (count < command.least_arguments)
    return quoted + " needs " + command.arguments;
  if (!(options.duration_s >= 0 && options.duration_s < 1e6))
    return "--duration: a number of seconds is needed, 0 for no end";
  if (options.port < 0 || options.port > 65535)
    return "--port: " + std::to_string (options.port) + " is not a port (0 to 65535)";
  if (options.count < 0)
    return "--count: at least 0 is needed";
  if (options.simple && options.full)
    return "--simple and --full exclude each other";
  for (const std::string &text : options.about)
    if (!is_about (text))
      return "--about: '" + text + "' is not NAME=VALUE (a name has letters, digits, '_' or '-')";
  if (!options.about.empty () && options.report.empty ())
    return "--about says something in a report: --report FOLDER is needed";
  if (command.bit == COMMAND_MODES && options.config.empty ())
    return "'modes' needs --config FILE";
  return {};
}

} // namespace

bool parse_options (int argc, char **argv, Options *options, int *status)
{
  Values values;
  const std::vector<OptionRow> rows = option_rows (&values);
  *status = EXIT_USAGE;
  const Command *command = nullptr;
  std::vector<char *> arguments (argv, argv + argc);
  if (const int word = find_command_word (argc, argv, rows)) {
    command = find_command (argv[word]);
    if (!command) {
      mistake (std::string ("there is no command '") + argv[word] + "'", nullptr);
      return false;
    }
    arguments.erase (arguments.begin () + word);
  }
  int count = static_cast<int> (arguments.size ());
  arguments.push_back (nullptr);
  char **list = arguments.data ();
  vorn::ErrorOut error;
  if (!parse (command, rows, &count, &list, &error)) {
    mistake (error.message (), command);
    return false;
  }
  take_over (values, options);
  if (options->version)
    return true;
  if (!command) {
    mistake ("which command?", nullptr);
    return false;
  }
  options->command = command->name;
  for (int i = 1; i < count; i++)
    if (strcmp (list[i], "--") != 0)
      options->arguments.emplace_back (list[i]);
  const std::string reason = fault (*options, *command);
  if (!reason.empty ())
    mistake (reason, command);
  return reason.empty ();
}
