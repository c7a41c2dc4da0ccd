// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What the command line asks for.
#ifndef HOST_OPTIONS_HPP
#define HOST_OPTIONS_HPP

#include <string>
#include <vector>

/** Exit statuses of the host; told by --help, so they stay. */
enum ExitStatus {
  EXIT_OK = 0,
  EXIT_FAILED = 1,
  EXIT_USAGE = 2,
  EXIT_NO_HOST = 3, // no host runs on the instance, or it does not answer
  EXIT_REFUSED = 4, // it runs and refuses: busy, or not in this mode
};

constexpr int default_rtsp_port = 8554;

/** Every command's options together; a command is given only those that it knows. */
struct Options {
  std::string command; // empty with version
  std::vector<std::string> arguments;
  std::string config;
  std::string plugin;   // empty: the one that was built or installed with the host
  std::string instance; // empty: the environment's
  std::string csv;      // empty: none
  std::string media;
  std::string udp;
  std::string report; // folder; empty: no report
  std::string units;  // empty: none
  std::string mode;
  std::string group = "single";
  std::string panorama;
  std::vector<std::string> properties; // NAME=VALUE
  std::vector<std::string> logs;       // TAG=LEVEL or LEVEL
  std::vector<std::string> about;      // NAME=VALUE
  double duration_s = 0;               // 0: until interrupted
  int port = default_rtsp_port;
  int count = 0; // 0: the command's default
  bool record = false;
  bool show = false;
  bool simple = false;
  bool full = false;
  bool json = false;
  bool verbose = false;
  bool quiet = false;
  bool version = false;
};

/**
 * Reads the command line. Returns false when the host is to end at once with *status: after a
 * mistake, which is explained on stderr. --help prints and ends by itself.
 */
bool parse_options (int argc, char **argv, Options *options, int *status);

#endif
