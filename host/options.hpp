// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What the command line asks for.
#ifndef HOST_OPTIONS_HPP
#define HOST_OPTIONS_HPP

#include <string>

/** Exit statuses of the host. */
enum ExitStatus { EXIT_OK = 0, EXIT_FAILED = 1, EXIT_USAGE = 2 };

struct Options {
  std::string command;
  std::string config;
  std::string plugin; // empty: the one that was built or installed with the host
  bool json = false;
  bool version = false;
};

/**
 * Reads the command line. Returns false when the host is to end at once with *status: after a
 * mistake, which is explained on stderr. --help prints and ends by itself.
 */
bool parse_options (int argc, char **argv, Options *options, int *status);

#endif
