// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "options.hpp"

#include <array>

#include <gst/gst.h>

#include <vorn/raii.hpp>

static constexpr char summary[] =
    "Loads a product plug-in of the camera-pipeline framework and drives it.\n"
    "\n"
    "Commands:\n"
    "  modes    print each virtual camera's modes, exposure limits and default state";

static constexpr char description[] =
    "A configuration is a key file; host/desk.conf is a commented sample.\n"
    "\n"
    "Example: vorn-host --config host/desk.conf modes\n"
    "\n"
    "Exit status: 0 done, 1 failed, 2 wrong usage.";

bool parse_options (int argc, char **argv, Options *options, int *status)
{
  gchar *config = nullptr;
  gchar *plugin = nullptr;
  gboolean json = FALSE;
  gboolean version = FALSE;
  const std::array<GOptionEntry, 5> entries = {{
      {"config", 'c', 0, G_OPTION_ARG_FILENAME, &config, "The configuration to set up from",
       "FILE"},
      {"plugin", 'p', 0, G_OPTION_ARG_FILENAME, &plugin, "The plug-in to load instead of our own",
       "FILE"},
      {"json", 'j', 0, G_OPTION_ARG_NONE, &json, "Print JSON instead of tables", nullptr},
      {"version", 'V', 0, G_OPTION_ARG_NONE, &version, "Print the version and exit", nullptr},
      {},
  }};
  const vorn::Owned<GOptionContext, g_option_context_free> context (
      g_option_context_new ("COMMAND"));
  g_option_context_set_summary (context.get (), summary);
  g_option_context_set_description (context.get (), description);
  g_option_context_add_main_entries (context.get (), entries.data (), nullptr);
  g_option_context_add_group (context.get (), gst_init_get_option_group ());
  vorn::ErrorOut error;
  const bool parsed = g_option_context_parse (context.get (), &argc, &argv, error.out ());
  const vorn::OwnedString owned_config (config);
  const vorn::OwnedString owned_plugin (plugin);
  *status = EXIT_USAGE;
  if (!parsed) {
    g_printerr ("vorn-host: %s\nTry 'vorn-host --help'.\n", error.message ());
    return false;
  }
  options->version = version;
  options->json = json;
  options->config = config ? config : "";
  options->plugin = plugin ? plugin : "";
  if (version)
    return true;
  if (argc != 2) {
    g_printerr ("vorn-host: %s\nTry 'vorn-host --help'.\n",
                argc < 2 ? "which command?" : "one command at a time");
    return false;
  }
  options->command = argv[1];
  if (options->command != "modes") {
    g_printerr ("vorn-host: there is no command '%s'\nTry 'vorn-host --help'.\n", argv[1]);
    return false;
  }
  if (options->config.empty ()) {
    g_printerr ("vorn-host: '%s' needs --config FILE\n", argv[1]);
    return false;
  }
  return true;
}
