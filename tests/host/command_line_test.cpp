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

TEST (CommandLine, HelpTellsCommandsAndOptions)
{
  for (const std::string option : {"--help", "-h"}) {
    const ProcessResult host = run_host ({option});
    EXPECT_TRUE (host.exited);
    EXPECT_EQ (host.status, done);
    for (const std::string part : {"Usage:", "COMMAND", "modes", "--config=FILE", "--plugin=FILE",
                                   "--json", "--version", "host/desk.conf", "Exit status"})
      EXPECT_TRUE (contains (host.output, part)) << part << " is not in\n" << host.output;
    EXPECT_EQ (host.errors, "");
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
  const struct {
    Arguments arguments;
    std::string message;
  } rows[] = {
      {{}, "vorn-host: which command?" + hint},
      {{"--config", "x"}, "vorn-host: which command?" + hint},
      {{"fly"}, "vorn-host: there is no command 'fly'" + hint},
      {{"--config", "x", ""}, "vorn-host: there is no command ''" + hint},
      {{"modes", "modes"}, "vorn-host: one command at a time" + hint},
      {{"modes"}, "vorn-host: 'modes' needs --config FILE\n"},
      {{"--config", "", "modes"}, "vorn-host: 'modes' needs --config FILE\n"},
      {{"--json", "modes"}, "vorn-host: 'modes' needs --config FILE\n"},
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
       {Arguments{"--fly"}, Arguments{"modes", "-x"}, Arguments{"modes", "--config"}}) {
    const ProcessResult host = run_host (arguments);
    EXPECT_EQ (host.status, wrong_usage);
    EXPECT_EQ (host.errors.find ("vorn-host: "), 0u) << host.errors;
    EXPECT_TRUE (contains (host.errors, "Try 'vorn-host --help'."));
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

TEST (Configuration, WithoutFrontCameraNothingCanBeSetUp)
{
  const TempDir dir;
  const std::string path =
      dir.write ("drone.conf",
                 "[camera-vertical]\nvideo-device=unix:/x\nsensor-size=640x480\nframerate=90/1\n");
  const ProcessResult host = run_host ({"--config", path, "modes"});
  EXPECT_EQ (host.status, failed);
  EXPECT_TRUE (contains (host.errors, "vorn-host: " + path + ": the product could not be set up\n"))
      << host.errors;
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
