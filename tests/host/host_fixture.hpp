// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Runs vorn-host as a user would.
#ifndef TESTS_HOST_FIXTURE_HPP
#define TESTS_HOST_FIXTURE_HPP

#include <string>
#include <vector>

#include <glib.h>
#include <gtest/gtest.h>

#include "process.hpp"
#include "temp_dir.hpp"

inline std::string environment (const char *name)
{
  const char *value = g_getenv (name);
  return value ? value : "";
}

inline std::string host_path ()
{
  return environment ("VORN_TEST_HOST");
}

inline std::string desk_configuration ()
{
  return environment ("VORN_TEST_SOURCE") + "/host/desk.conf";
}

inline ProcessResult run_host (std::vector<std::string> arguments, const std::string &folder = {})
{
  arguments.insert (arguments.begin (), host_path ());
  return run_process (arguments, folder);
}

inline bool contains (const std::string &text, const std::string &part)
{
  return text.find (part) != std::string::npos;
}

#endif
