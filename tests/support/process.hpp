// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Runs programs as a user would: what they print and how they end.
#ifndef TESTS_PROCESS_HPP
#define TESTS_PROCESS_HPP

#include <string>
#include <vector>

struct ProcessResult {
  bool exited = false; // by itself, not by a signal
  int status = -1;     // the exit status when it exited, else the signal's number
  std::string output;  // stdout
  std::string errors;  // stderr
};

/**
 * Runs a program to its end; argv[0] is a path or found in PATH. folder: its working directory,
 * empty for ours. A program that cannot be started is a failure of the test.
 */
ProcessResult run_process (const std::vector<std::string> &argv, const std::string &folder = {});

#endif
