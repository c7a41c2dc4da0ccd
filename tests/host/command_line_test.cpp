// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "host_fixture.hpp"

#include <filesystem>

#include <vorn/raii.hpp>

namespace
{

using Arguments = std::vector<std::string>;

constexpr int done = 0;
constexpr int failed = 1;
constexpr int wrong_usage = 2;

const Arguments command_names = {"run",   "modes",    "attitude",     "record",
                                 "photo", "set-mode", "magic-carpet", "status",
                                 "stop",  "topics",   "echo",         "doctor"};

TEST (CommandLine, HelpTellsCommandsAndStatuses)
{
  for (const std::string option : {"--help", "-h"}) {
    const ProcessResult host = run_host ({option});
    EXPECT_TRUE (host.exited);
    EXPECT_EQ (host.status, done);
    for (const std::string part :
         {"Usage:", "COMMAND", "--version", "host/desk.conf", "Exit status: 0 done, 1 failed, 2",
          "3 no host runs", "4 the host refused", "'vorn-host COMMAND --help'"})
      EXPECT_TRUE (contains (host.output, part)) << part << " is not in\n" << host.output;
    for (const std::string &command : command_names)
      EXPECT_TRUE (contains (host.output, "\n  " + command + " ")) << command;
    EXPECT_EQ (host.errors, "");
  }
}

TEST (CommandLine, EveryCommandHasItsOwnHelp)
{
  const struct {
    std::string command;
    Arguments parts;
  } rows[] = {
      {"run",
       {"--config=FILE", "--instance=NAME", "--duration=SECONDS", "--record", "--simple", "--full",
        "--set=PROPERTY=VALUE", "--port=PORT", "--udp=HOST:PORT", "--media=FOLDER",
        "--about=NAME=VALUE", "--log=TAG=LEVEL", "--units=FILE", "-v, --verbose", "rtsp://",
        "Ctrl-C", "front.sdp"}},
      {"modes", {"--config=FILE", "--plugin=FILE", "--json"}},
      {"attitude", {"--csv=FILE", "--duration=SECONDS", "--instance=NAME"}},
      {"record", {"start|stop", "--instance=NAME"}},
      {"photo", {"--group=GROUP", "single, bracketing, burst, panorama", "--count=N"}},
      {"set-mode", {"recording WIDTHxHEIGHT@RATE", "photo MODE"}},
      {"magic-carpet", {"on|off"}},
      {"status", {"--json"}},
      {"stop", {"--instance=NAME"}},
      {"topics", {"--json", "--duration=SECONDS"}},
      {"echo", {"SECTION[.VARIABLE]", "--count=N"}},
      {"doctor", {"--json", "--port=PORT"}},
  };
  ASSERT_EQ (std::size (rows), command_names.size ());
  for (const auto &row : rows) {
    const ProcessResult host = run_host ({row.command, "--help"});
    EXPECT_EQ (host.status, done);
    EXPECT_EQ (host.errors, "");
    Arguments parts = row.parts;
    parts.insert (parts.end (), {"  vorn-host " + row.command + " [OPTION", "Example", "vorn-host",
                                 "Exit status: 0 done"});
    for (const std::string &part : parts)
      EXPECT_TRUE (contains (host.output, part)) << part << " is not in\n" << host.output;
  }
}

TEST (CommandLine, CompletionKnowsEveryCommandAndOption)
{
  gchar *text = nullptr;
  const std::string path = environment ("VORN_TEST_SOURCE") + "/host/vorn-host.bash-completion";
  ASSERT_TRUE (g_file_get_contents (path.c_str (), &text, nullptr, nullptr));
  const vorn::OwnedString owned (text);
  for (const std::string &command : command_names) {
    std::string line = text;
    const auto at = line.find ("\n    " + command + ") words=");
    ASSERT_NE (at, std::string::npos) << command;
    line = line.substr (at + 1, line.find ('\n', at + 1) - at);
    const std::string help = run_host ({command, "--help"}).output;
    for (auto option = help.find ("--"); option != std::string::npos;
         option = help.find ("--", option + 2)) {
      // At the head of a line of the table, alone or behind its short form.
      const bool first = option >= 2 && (help.compare (option - 2, 2, "  ") == 0 ||
                                         help.compare (option - 2, 2, ", ") == 0);
      const auto end = help.find_first_of ("= \n", option);
      const std::string name = help.substr (option, end - option);
      if (!first || name == "--help-all" || name == "--help-gst")
        continue;
      EXPECT_TRUE (contains (line, name)) << command << " " << name;
    }
  }
}

TEST (CommandLine, VersionNamesProgramAndInterface)
{
  for (const std::string option : {"--version", "-V"}) {
    const ProcessResult host = run_host ({option});
    EXPECT_TRUE (host.exited);
    EXPECT_EQ (host.status, done);
    EXPECT_EQ (host.output,
               "vorn-host " + environment ("VORN_TEST_VERSION") + " (plug-in interface 0.5)\n");
    EXPECT_EQ (host.errors, "");
  }
}

TEST (CommandLine, MistakesAreExplained)
{
  const std::string hint = "\nTry 'vorn-host --help'.\n";
  const auto hint_of = [] (const std::string &command) {
    return "\nTry 'vorn-host " + command + " --help'.\n";
  };
  const struct {
    Arguments arguments;
    std::string message;
  } rows[] = {
      {{}, "vorn-host: which command?" + hint},
      {{"--config", "x"}, "vorn-host: which command?" + hint},
      {{"fly"}, "vorn-host: there is no command 'fly'" + hint},
      {{"--config", "x", ""}, "vorn-host: there is no command ''" + hint},
      {{"modes", "modes"}, "vorn-host: 'modes': unexpected argument 'modes'" + hint_of ("modes")},
      {{"modes"}, "vorn-host: 'modes' needs --config FILE" + hint_of ("modes")},
      {{"--config", "", "modes"}, "vorn-host: 'modes' needs --config FILE" + hint_of ("modes")},
      {{"--json", "modes"}, "vorn-host: 'modes' needs --config FILE" + hint_of ("modes")},
      {{"attitude", "--duration", "-1"},
       "vorn-host: --duration: a number of seconds is needed, 0 for no end" + hint_of ("attitude")},
      {{"run", "--port", "70000"},
       "vorn-host: --port: 70000 is not a port (0 to 65535)" + hint_of ("run")},
      {{"run", "--simple", "--full"},
       "vorn-host: --simple and --full exclude each other" + hint_of ("run")},
      {{"run", "--report", "x", "--about", "fl ight=orbit"},
       "vorn-host: --about: 'fl ight=orbit' is not NAME=VALUE (a name has letters, digits, '_' or "
       "'-')" +
           hint_of ("run")},
      {{"run", "--report", "x", "--about", "=orbit"},
       "vorn-host: --about: '=orbit' is not NAME=VALUE (a name has letters, digits, '_' or '-')" +
           hint_of ("run")},
      {{"run", "--about", "flight=orbit"},
       "vorn-host: --about says something in a report: --report FOLDER is needed" +
           hint_of ("run")},
      {{"run", "now"}, "vorn-host: 'run': unexpected argument 'now'" + hint_of ("run")},
      {{"run", "--log", "loud"},
       "vorn-host: --log: 'loud' is not TAG=LEVEL (none, error, warning, info, debug)\n"},
      {{"run", "--log", "=info"},
       "vorn-host: --log: '=info' is not TAG=LEVEL (none, error, warning, info, debug)\n"},
      {{"run", "--udp", "nowhere"}, "vorn-host: --udp: 'nowhere' is not HOST:PORT\n"},
      {{"run", "--udp", "127.0.0.1:0"}, "vorn-host: --udp: '127.0.0.1:0' is not HOST:PORT\n"},
      {{"run", "--mode", "film"}, "vorn-host: a camera mode begins with 'recording' or 'photo'\n"},
      {{"run", "--instance", "a b"},
       "vorn-host: an instance's name is at most 32 letters, digits, '_' and '-'\n"},
      {{"record"}, "vorn-host: 'record' needs start|stop" + hint_of ("record")},
      {{"record", "fly"},
       "vorn-host: 'record' takes start or stop, not 'fly'" + hint_of ("record")},
      {{"magic-carpet", "up"},
       "vorn-host: 'magic-carpet' takes on or off, not 'up'" + hint_of ("magic-carpet")},
      {{"photo", "--group", "heap"},
       "vorn-host: --group: there is no group 'heap': single, bracketing, burst, panorama\n"},
      {{"photo", "--count", "-1"}, "vorn-host: --count: at least 0 is needed" + hint_of ("photo")},
      {{"photo", "--count", "1000"}, "vorn-host: --count: a group has 1 to 999 pictures\n"},
      {{"set-mode", "recording"},
       "vorn-host: 'set-mode' needs recording|photo ..." + hint_of ("set-mode")},
      {{"set-mode", "photo", "many"},
       "vorn-host: there is no photo mode 'many': single, bracketing, burst\n"},
      {{"echo"}, "vorn-host: 'echo' needs SECTION[.VARIABLE]" + hint_of ("echo")},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE (row.message);
    const ProcessResult host = run_host (row.arguments);
    EXPECT_TRUE (host.exited);
    EXPECT_EQ (host.status, wrong_usage);
    EXPECT_EQ (host.errors, row.message);
    EXPECT_EQ (host.output, "");
  }
}

TEST (CommandLine, OptionsThatThereAreNot)
{
  for (const Arguments &arguments :
       {Arguments{"--fly"}, Arguments{"modes", "-x"}, Arguments{"modes", "--config"},
        Arguments{"stop", "--json"}, Arguments{"run", "--csv", "x"},
        Arguments{"run", "--port", "x"}}) {
    SCOPED_TRACE (arguments.back ());
    const ProcessResult host = run_host (arguments);
    EXPECT_EQ (host.status, wrong_usage);
    EXPECT_EQ (host.errors.find ("vorn-host: "), 0u) << host.errors;
    EXPECT_TRUE (contains (host.errors, "--help'.\n"));
    EXPECT_EQ (host.output, "");
  }
}

// ---- Configurations

TEST (Configuration, BrokenOnesNameFileGroupAndKey)
{
  const TempDir dir;
  const std::string path = dir.at ("drone.conf");
  const std::string head = "[camera-front]\nvideo-device=unix:/x\n";
  const struct {
    std::string text;
    std::string message;
  } rows[] = {
      {"", path + ": no camera is configured: there is no group 'camera-NAME' (camera-front, "
                  "camera-vertical)"},
      {"[camera-front]\nsensor-size=5344x3200\nframerate=30000/1001\n",
       path + ": group 'camera-front', key 'video-device': missing"},
      {head + "framerate=30000/1001\n",
       path + ": group 'camera-front', key 'sensor-size': missing"},
      {head + "sensor-size=0x3200\nframerate=30/1\n",
       path + ": group 'camera-front', key 'sensor-size': a size of zero"},
      {head + "sensor-size=5344x3200\nframerate=0/1\n",
       path + ": group 'camera-front', key 'framerate': a framerate of zero"},
      {head + "sensor-size=5344x3200\nframerate=30/0\n",
       path + ": group 'camera-front', key 'framerate': a framerate of zero"},
      {head + "sensor-size=big\nframerate=30/1\n",
       path +
           ": group 'camera-front', key 'sensor-size': 'big' is not of the form 1280x720 (width x "
           "height)"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE (row.message);
    dir.write ("drone.conf", row.text);
    const ProcessResult host = run_host ({"--config", path, "modes"});
    EXPECT_TRUE (host.exited);
    EXPECT_EQ (host.status, failed);
    EXPECT_EQ (host.errors, "vorn-host: " + row.message + "\n");
    EXPECT_EQ (host.output, "");
  }
}

TEST (Configuration, UnreadableOnesNameTheFile)
{
  const TempDir dir;
  const std::string garbage = dir.write ("garbage.conf", "this is no key file\n");
  for (const std::string &path : {dir.at ("missing.conf"), garbage, dir.path ()}) {
    const ProcessResult host = run_host ({"--config", path, "modes"});
    EXPECT_TRUE (host.exited);
    EXPECT_EQ (host.status, failed);
    EXPECT_EQ (host.errors.find ("vorn-host: cannot read configuration " + path + ": "), 0u)
        << host.errors;
    EXPECT_EQ (host.output, "");
  }
}

TEST (Configuration, WithoutFrontCameraThereAreNoModes)
{
  for (const std::string group : {"camera-vertical", "camera-rear"}) {
    const TempDir dir;
    const std::string path = dir.write ("drone.conf", "[" + group +
                                                          "]\nvideo-device=unix:/x\n"
                                                          "sensor-size=640x480\nframerate=90/1\n");
    const ProcessResult host = run_host ({"--config", path, "modes"});
    EXPECT_EQ (host.status, failed);
    EXPECT_TRUE (
        contains (host.errors, "vorn-host: " + path + ": the product could not be set up\n"))
        << host.errors;
  }
}

// ---- Plug-ins

TEST (Plugins, CanBeNamed)
{
  const ProcessResult host = run_host (
      {"--config", desk_configuration (), "--plugin", environment ("VORN_TEST_PLUGIN"), "modes"});
  EXPECT_EQ (host.status, done) << host.errors;
  EXPECT_EQ (host.output.find ("front (Front camera)\n"), 0u);
}

TEST (Plugins, ThatCannotBeLoadedAreNamed)
{
  const TempDir dir;
  const std::string text = dir.write ("text.so", "no library\n");
  for (const std::string &path : {dir.at ("missing.so"), text}) {
    const ProcessResult host =
        run_host ({"--config", desk_configuration (), "--plugin", path, "modes"});
    EXPECT_TRUE (host.exited);
    EXPECT_EQ (host.status, failed);
    EXPECT_EQ (host.errors.find ("vorn-host: cannot load plug-in " + path + ": "), 0u)
        << host.errors;
  }
}

// ---- Where it runs

TEST (Place, AnyWorkingDirectory)
{
  const TempDir dir;
  std::filesystem::copy_file (desk_configuration (), dir.at ("desk.conf"));
  const ProcessResult host = run_host ({"--config", "desk.conf", "modes"}, dir.path ());
  EXPECT_EQ (host.status, done) << host.errors;
  EXPECT_EQ (host.output, run_host ({"--config", desk_configuration (), "modes"}).output);
}

TEST (Place, ThroughASymbolicLink)
{
  const TempDir dir;
  const std::string link = dir.at ("my-host");
  std::filesystem::create_symlink (host_path (), link);
  const ProcessResult host =
      run_process ({link, "--config", desk_configuration (), "modes"}, dir.path ());
  EXPECT_EQ (host.status, done) << host.errors;
}

TEST (Place, AFullDiskIsNoticed)
{
  for (const std::string option : {"", "--json"}) {
    const ProcessResult host =
        run_process ({"sh", "-c", "exec \"$0\" --config \"$1\" modes $2 >/dev/full", host_path (),
                      desk_configuration (), option});
    EXPECT_TRUE (host.exited);
    EXPECT_EQ (host.status, failed);
    EXPECT_TRUE (contains (host.errors, "vorn-host: cannot write the output: ")) << host.errors;
  }
}

} // namespace
