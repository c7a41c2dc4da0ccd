// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The host's commands: what they are called, what they take, what they do.
#ifndef HOST_COMMANDS_HPP
#define HOST_COMMANDS_HPP

#include <cstddef>
#include <span>
#include <string_view>

#include "options.hpp"

/** Bits: which command knows an option. */
enum CommandBit : unsigned {
  COMMAND_RUN = 1u << 0,
  COMMAND_MODES = 1u << 1,
  COMMAND_ATTITUDE = 1u << 2,
  COMMAND_RECORD = 1u << 3,
  COMMAND_PHOTO = 1u << 4,
  COMMAND_SET_MODE = 1u << 5,
  COMMAND_MAGIC_CARPET = 1u << 6,
  COMMAND_STATUS = 1u << 7,
  COMMAND_STOP = 1u << 8,
  COMMAND_TOPICS = 1u << 9,
  COMMAND_ECHO = 1u << 10,
  COMMAND_DOCTOR = 1u << 11,
};

struct Command {
  CommandBit bit;
  const char *name;
  const char *arguments; // as shown behind the name; empty: none
  size_t least_arguments;
  size_t most_arguments;
  const char *summary;     // one line
  const char *description; // behind the options of its --help
  int (*execute) (const Options &options);
};

/** All commands in the order in which --help lists them. */
std::span<const Command> all_commands ();

/** The command of this name, or NULL. */
const Command *find_command (std::string_view name);

// What they do. Each returns an ExitStatus, its reasons told on stderr.
int run_command (const Options &options);
int modes_command (const Options &options);
int attitude_command (const Options &options);
int record_command (const Options &options);
int photo_command (const Options &options);
int set_mode_command (const Options &options);
int magic_carpet_command (const Options &options);
int status_command (const Options &options);
int stop_command (const Options &options);
int topics_command (const Options &options);
int echo_command (const Options &options);
int doctor_command (const Options &options);

#endif
