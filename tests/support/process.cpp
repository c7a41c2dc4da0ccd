// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "process.hpp"

#include <sys/wait.h>

#include <glib.h>
#include <gtest/gtest.h>

#include <vorn/raii.hpp>

ProcessResult run_process (const std::vector<std::string> &argv, const std::string &folder)
{
  std::vector<gchar *> arguments;
  for (const std::string &argument : argv)
    arguments.push_back (const_cast<gchar *> (argument.c_str ()));
  arguments.push_back (nullptr);
  gchar *output = nullptr;
  gchar *errors = nullptr;
  gint wait_status = 0;
  vorn::ErrorOut error;
  const bool started = g_spawn_sync (folder.empty () ? nullptr : folder.c_str (), arguments.data (),
                                     nullptr, G_SPAWN_SEARCH_PATH, nullptr, nullptr, &output,
                                     &errors, &wait_status, error.out ());
  const vorn::OwnedString owned_output (output);
  const vorn::OwnedString owned_errors (errors);
  ProcessResult result;
  if (!started) {
    ADD_FAILURE () << argv.front () << ": " << error.message ();
    return result;
  }
  result.exited = WIFEXITED (wait_status);
  result.status = result.exited ? WEXITSTATUS (wait_status) : WTERMSIG (wait_status);
  result.output = output;
  result.errors = errors;
  return result;
}
