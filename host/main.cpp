// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <clocale>
#include <csignal>
#include <cstdio>

#include "commands.hpp"
#include "messages.hpp"
#include <vorn/plugin.h>

int main (int argc, char **argv)
{
  setlocale (LC_ALL, "");
  // Numbers are written for machines, in every locale.
  setlocale (LC_NUMERIC, "C");
  // A peer that goes away is an error of that connection, not the end of the host.
  signal (SIGPIPE, SIG_IGN);
  Options options;
  int status = EXIT_OK;
  if (!parse_options (argc, argv, &options, &status))
    return status;
  if (options.version) {
    printf ("vorn-host %s (plug-in interface %u.%u)\n", VORN_VERSION, VORN_PLUGIN_VERSION_MAJOR,
            VORN_PLUGIN_VERSION_MINOR);
    return finish_output ();
  }
  return find_command (options.command)->execute (options);
}
