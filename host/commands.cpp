// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "commands.hpp"

#include <algorithm>
#include <array>

static constexpr char run_description[] =
    "Loads the product, sets it up from the configuration, streams the front camera and serves it\n"
    "to RTSP clients (rtsp://ADDRESS:PORT/front). The commands record, photo, set-mode,\n"
    "magic-carpet, status and stop talk to a host that runs on the same instance, through a "
    "socket\n"
    "in the instance's runtime directory that only the same user can use.\n"
    "\n"
    "The addresses of the simulated drone are taken from the instance's runtime directory: its "
    "IIO\n"
    "server, and its cameras where the configured video-device does not exist. Without a display\n"
    "GL renders off screen. A line a second tells frames per second into and out of the stream, "
    "its\n"
    "bitrate, the latency from capture to the encoded frame, attitudes per second, their error\n"
    "against the simulator's truth and the frames dropped; a dash stands where there is nothing "
    "to\n"
    "tell. The log goes to stderr.\n"
    "\n"
    "Ctrl-C or SIGTERM ends it: a running recording is finished first. A second Ctrl-C ends it at\n"
    "once; what was being recorded is then finished by the next run.\n"
    "\n"
    "Files: front.sdp in the runtime directory describes the --udp stream to players; a pipeline\n"
    "that fails leaves its graph as a .dot file in the media folder.\n"
    "\n"
    "Examples:\n"
    "  desk-simulator --flight orbit & vorn-host run\n"
    "  vorn-host run --record --duration 60 --media /tmp/flight\n"
    "  vorn-host run --instance two --port 0 --set ro.with-front-cam=0";

static constexpr char modes_description[] =
    "Sets the product up from the configuration, without starting anything, and prints its "
    "tables.\n"
    "\n"
    "Example: vorn-host modes --config host/desk.conf --json";

static constexpr char attitude_description[] =
    "Shows what computes attitudes on the instance, whichever program that is, until interrupted.\n"
    "Fails when no attitude came.\n"
    "\n"
    "Example: vorn-host attitude --duration 10 --csv attitude.csv";

static constexpr char record_description[] =
    "start returns once the first frame is in the file and prints the name that the file will "
    "have;\n"
    "stop returns once the file lies under it and prints it again.\n"
    "\n"
    "Example: vorn-host record start; sleep 10; vorn-host record stop";

static constexpr char photo_description[] =
    "Returns once the pictures are written and prints their files, one a line. The camera must be "
    "in\n"
    "a photo mode: see set-mode. In a group the pictures are numbered from 0.\n"
    "\n"
    "Example: vorn-host set-mode photo burst; vorn-host photo --group burst --count 3";

static constexpr char set_mode_description[] =
    "  recording WIDTHxHEIGHT@RATE [SUB-MODE]   RATE: 30000/1001 or 30; SUB-MODE: standard,\n"
    "                                           hyperlapse, ...\n"
    "  photo MODE [FORMAT] [FILE-FORMAT] [COUNT]\n"
    "                                           MODE: single, bracketing, burst; FORMAT: wide,\n"
    "                                           rectilinear; FILE-FORMAT: jpeg, ...\n"
    "\n"
    "'vorn-host modes' shows which there are. Refused while a recording runs or a picture is "
    "taken.\n"
    "\n"
    "Example: vorn-host set-mode recording 1920x1080@30000/1001";

static constexpr char magic_carpet_description[] =
    "Switches the vertical camera's picture of the ground below.\n"
    "\n"
    "Example: vorn-host magic-carpet on";

static constexpr char status_description[] =
    "Prints what the host does now: mode, stream, recording, frame rates, drops, attitude.\n"
    "\n"
    "Example: vorn-host status --json";

static constexpr char stop_description[] =
    "As Ctrl-C does; returns once the host has begun to end.\n"
    "\n"
    "Example: vorn-host stop --instance two";

static constexpr char topics_description[] =
    "Looks for a second (--duration) at the sections of the instance in shared memory. Columns: "
    "the\n"
    "kind and the name, samples per second meanwhile, the age of the newest sample, whether its\n"
    "writer lives, and bytes a sample or the variables of a telemetry section.\n"
    "\n"
    "Example: vorn-host topics --instance two";

static constexpr char echo_description[] =
    "Prints each new sample, led by its time, until interrupted. Telemetry shows all variables of\n"
    "the section or the one named; a blackboard section its bytes as 32-bit floats.\n"
    "\n"
    "Examples: vorn-host echo drone.altitude_m --count 5\n"
    "          vorn-host echo accurate_attitude --duration 1";

static constexpr char doctor_description[] =
    "Each check says what is wrong and what to do about it. Warnings do not count as failures.\n"
    "\n"
    "Example: vorn-host doctor --port 8554";

static constexpr std::array commands = {
    Command{COMMAND_RUN, "run", "", 0, 0, "run the product: stream, record, take pictures",
            run_description, run_command},
    Command{COMMAND_MODES, "modes", "", 0, 0,
            "print each virtual camera's modes, exposure limits and default state",
            modes_description, modes_command},
    Command{COMMAND_ATTITUDE, "attitude", "", 0, 0,
            "print the camera's attitude each second, and its error against a simulator's truth",
            attitude_description, attitude_command},
    Command{COMMAND_RECORD, "record", "start|stop", 1, 1,
            "start or stop a running host's recording", record_description, record_command},
    Command{COMMAND_PHOTO, "photo", "", 0, 0, "let a running host take a picture, or a group",
            photo_description, photo_command},
    Command{COMMAND_SET_MODE, "set-mode", "recording|photo ...", 2, 5,
            "change a running host's camera mode", set_mode_description, set_mode_command},
    Command{COMMAND_MAGIC_CARPET, "magic-carpet", "on|off", 1, 1,
            "switch the vertical camera's picture of a running host", magic_carpet_description,
            magic_carpet_command},
    Command{COMMAND_STATUS, "status", "", 0, 0, "print what a running host does",
            status_description, status_command},
    Command{COMMAND_STOP, "stop", "", 0, 0, "end a running host", stop_description, stop_command},
    Command{COMMAND_TOPICS, "topics", "", 0, 0, "list what flows on blackboard and telemetry",
            topics_description, topics_command},
    Command{COMMAND_ECHO, "echo", "SECTION[.VARIABLE]", 1, 1,
            "print the samples of a section as they come", echo_description, echo_command},
    Command{COMMAND_DOCTOR, "doctor", "", 0, 0, "check whether everything is there to run",
            doctor_description, doctor_command},
};

std::span<const Command> all_commands ()
{
  return commands;
}

const Command *find_command (std::string_view name)
{
  const auto found = std::find_if (commands.begin (), commands.end (),
                                   [&] (const Command &command) { return command.name == name; });
  return found == commands.end () ? nullptr : &*found;
}
