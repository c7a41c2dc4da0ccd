// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The program itself, with the stock tools of libiio. Its path is the first argument.
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gio/gio.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <vorn/blackboard.h>
#include <vorn/raii.hpp>

namespace
{

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

std::string simulator_path;

struct Result {
  int status; // exit status, or minus the signal
  std::string out;
  std::string err;
};

int status_of (GSubprocess *process)
{
  return g_subprocess_get_if_signaled (process) ? -g_subprocess_get_term_sig (process)
                                                : g_subprocess_get_exit_status (process);
}

std::vector<const gchar *> pointers (const std::vector<std::string> &arguments)
{
  std::vector<const gchar *> result;
  result.reserve (arguments.size () + 1);
  for (const auto &argument : arguments)
    result.push_back (argument.c_str ());
  result.push_back (nullptr);
  return result;
}

Result run (const std::vector<std::string> &arguments)
{
  vorn::ErrorOut error;
  const auto process = vorn::adopt (g_subprocess_newv (
      pointers (arguments).data (),
      GSubprocessFlags (G_SUBPROCESS_FLAGS_STDOUT_PIPE | G_SUBPROCESS_FLAGS_STDERR_PIPE),
      error.out ()));
  if (!process) {
    ADD_FAILURE () << error.message ();
    return {-1, "", ""};
  }
  GBytes *out = nullptr;
  GBytes *err = nullptr;
  EXPECT_TRUE (
      g_subprocess_communicate (process.get (), nullptr, nullptr, &out, &err, error.out ()));
  const auto text = [] (GBytes *bytes) {
    gsize size = 0;
    const auto *data = static_cast<const char *> (g_bytes_get_data (bytes, &size));
    std::string result (data ? data : "", size);
    g_bytes_unref (bytes);
    return result;
  };
  return {status_of (process.get ()), text (out), text (err)};
}

Result run_simulator (std::vector<std::string> arguments)
{
  arguments.insert (arguments.begin (), simulator_path);
  return run (arguments);
}

/** A simulator that runs; its first lines have been read. */
class Simulator
{
public:
  explicit Simulator (std::vector<std::string> arguments, bool with_progress = false)
  {
    arguments.insert (arguments.begin (), simulator_path);
    if (!with_progress)
      arguments.insert (arguments.end (), {"--progress", "0"});
    vorn::ErrorOut error;
    process_ = vorn::adopt (g_subprocess_newv (pointers (arguments).data (),
                                               G_SUBPROCESS_FLAGS_STDOUT_PIPE, error.out ()));
    if (!process_) {
      ADD_FAILURE () << error.message ();
      return;
    }
    stream_ =
        vorn::adopt (g_data_input_stream_new (g_subprocess_get_stdout_pipe (process_.get ())));
    for (int i = 0; i < 6; i++)
      start += next_line () + "\n";
    const auto at = start.find ("ip:127.0.0.1:");
    if (at != std::string::npos)
      uri = start.substr (at, start.find (' ', at) - at);
  }
  ~Simulator ()
  {
    if (process_ && !ended_) {
      g_subprocess_force_exit (process_.get ());
      g_subprocess_wait (process_.get (), nullptr, nullptr);
    }
  }
  std::string next_line ()
  {
    const vorn::OwnedString line (
        g_data_input_stream_read_line (stream_.get (), nullptr, nullptr, nullptr));
    return line ? line.get () : "";
  }
  /** Waits for the end; the exit status, or minus the signal. */
  int end (int signal = 0)
  {
    if (signal)
      g_subprocess_send_signal (process_.get (), signal);
    last_line = next_line ();
    g_subprocess_wait (process_.get (), nullptr, nullptr);
    ended_ = true;
    return status_of (process_.get ());
  }
  std::string pid () const { return g_subprocess_get_identifier (process_.get ()); }

  std::string start;
  std::string uri;
  std::string last_line;

private:
  vorn::Ref<GSubprocess> process_;
  vorn::Ref<GDataInputStream> stream_;
  bool ended_ = false;
};

std::string content (const std::string &path)
{
  std::ifstream file (path);
  std::ostringstream text;
  text << file.rdbuf ();
  return text.str ();
}

class DeskSimulator : public testing::Test
{
protected:
  void SetUp () override
  {
    char name[] = "/tmp/vorn-desk-test-XXXXXX";
    root_ = mkdtemp (name);
    setenv ("XDG_RUNTIME_DIR", root_.c_str (), 1);
    // Shared memory knows no runtime directory: names of our own keep us from other runs.
    setenv ("VORN_NAMESPACE", here_.c_str (), 1);
  }
  void TearDown () override
  {
    std::filesystem::remove_all (root_);
    for (const std::string &name : {here_, one_, two_, three_})
      vorn_blackboard_remove_namespace (name.c_str ());
  }
  std::string uri_file (const std::string &instance) const
  {
    return root_ + "/vorn/" + instance + "/iio-uri";
  }
  std::string root_;
  const std::string here_ = "desk-" + std::to_string (getpid ());
  const std::string one_ = here_ + "-one";
  const std::string two_ = here_ + "-two";
  const std::string three_ = here_ + "-three";
};

TEST_F (DeskSimulator, SaysWhatItServesAndWhere)
{
  Simulator simulator ({"--flight", "orbit", "--seed", "7", "--home", "46.5,7.25,1000", "--date",
                        "2026-06-21T12:00:00Z"});
  EXPECT_THAT (simulator.start, StartsWith ("desk-simulator: instance " + here_ +
                                            ", flight orbit, seed 7\n"
                                            "home 46.5000000 7.2500000 1000.0 m, 2026-06-21T"));
  EXPECT_THAT (simulator.start, HasSubstr ("serving iio-cam_imu at 1000 Hz on " + simulator.uri +
                                           " (written to " + uri_file (here_) + ")\n"));
  EXPECT_THAT (simulator.start,
               HasSubstr ("publishing telemetry: video (estimate 5.0 ms late), camera_controller, "
                          "camera_zoom_controller, drone, truth\n"));
  EXPECT_EQ (content (uri_file (here_)), simulator.uri + "\n");
  EXPECT_EQ (simulator.end (SIGTERM), 0);
  EXPECT_THAT (simulator.last_line, StartsWith ("terminated after "));
  EXPECT_FALSE (std::filesystem::exists (uri_file (here_)));
}

TEST_F (DeskSimulator, StopsCleanlyOnInterruptAndAtItsEnd)
{
  Simulator interrupted ({});
  EXPECT_EQ (interrupted.end (SIGINT), 0);
  EXPECT_THAT (interrupted.last_line, StartsWith ("interrupted after "));
  Simulator over ({"--duration", "0.2"});
  EXPECT_EQ (over.end (), 0);
  EXPECT_THAT (over.last_line, StartsWith ("the flight is over after 0."));
}

TEST_F (DeskSimulator, ProgressTellsWhereTheDroneIs)
{
  Simulator simulator ({"--progress", "0.05"}, true);
  EXPECT_THAT (simulator.next_line (),
               MatchesRegex ("t 0\\.[0-9] s: roll -?[0-9.]+, pitch -?[0-9.]+, yaw -?[0-9.]+ "
                             "degrees, 4[45]\\.[0-9]+ [56]\\.[0-9]+ [0-9.]+ m; IIO: 0 connections, "
                             "0 blocks, 0 samples, 0 lost, 0 requests refused"));
}

TEST_F (DeskSimulator, StockToolsWork)
{
  Simulator simulator ({"--flight", "aggressive", "--gyro-mount", "1,0,0;0,-1,0;0,0,-1"});
  const auto info = run ({"iio_info", "-u", simulator.uri});
  EXPECT_EQ (info.status, 0);
  EXPECT_EQ (info.err, "");
  for (const char *part :
       {"IIO context created with network backend.",
        "IIO context has 2 devices:", "iio:device0: iio-cam_imu (buffer capable)",
        "4 channels found:", "anglvel_x:  (input, index: 0, format: le:S16/16>>0)",
        "timestamp:  (input, index: 3, format: le:S64/64>>0)",
        "in_anglvel_scale value: 0.000266316", "trigger0: imu_cam_trig"})
    EXPECT_THAT (info.out, HasSubstr (part));

  const auto scale =
      run ({"iio_attr", "-u", simulator.uri, "-d", "iio-cam_imu", "in_anglvel_scale"});
  EXPECT_EQ (scale.out, "0.000266316\n");
  const auto matrix =
      run ({"iio_attr", "-u", simulator.uri, "-d", "iio-cam_imu", "in_anglvel_matrix"});
  EXPECT_EQ (matrix.out, "1, 0, 0; 0, -1, 0; 0, 0, -1\n");
  const auto raw = run ({"iio_attr", "-u", simulator.uri, "-c", "iio-cam_imu", "anglvel_x"});
  EXPECT_THAT (raw.out, HasSubstr ("channel 'anglvel_x' (input), attr 'raw', value '"));
  EXPECT_EQ (raw.err, "");

  const auto data = run ({"iio_readdev", "-u", simulator.uri, "-t", "imu_cam_trig", "-b", "5", "-s",
                          "500", "iio-cam_imu"});
  EXPECT_EQ (data.status, 0) << data.err;
  ASSERT_EQ (data.out.size (), 500u * 16);
  int64_t last_ns = 0;
  for (size_t at = 0; at < data.out.size (); at += 16) {
    int64_t time_ns = 0;
    memcpy (&time_ns, &data.out[at + 8], 8);
    if (at) {
      EXPECT_EQ (time_ns, last_ns + 1000000);
    }
    last_ns = time_ns;
  }
  EXPECT_EQ (simulator.end (SIGTERM), 0);
  EXPECT_THAT (simulator.last_line, HasSubstr (" 0 lost, 0 requests refused"));
}

TEST_F (DeskSimulator, FliesALog)
{
  // Half a turn to the right in two seconds, without noise: raw readings of its one rate.
  const std::string path = root_ + "/turn.csv";
  {
    std::ofstream log (path);
    log << "time_s,north_m,east_m,down_m,qx,qy,qz,qw\n";
    for (int i = 0; i <= 40; i++)
      log << 100 + i * 0.05 << ",0,0,-5,0,0," << std::sin (i * M_PI / 80) << ","
          << std::cos (i * M_PI / 80) << "\n";
  }
  Simulator simulator ({"--flight", path, "--gyro-noise", "0", "--gyro-bias", "0,0,0"});
  const auto data = run ({"iio_readdev", "-u", simulator.uri, "-t", "imu_cam_trig", "-b", "5", "-s",
                          "100", "iio-cam_imu"});
  ASSERT_EQ (data.out.size (), 100u * 16);
  for (size_t at = 0; at < data.out.size (); at += 16) {
    int16_t raw[3];
    memcpy (raw, &data.out[at], sizeof raw);
    EXPECT_EQ (raw[0], 0);
    EXPECT_EQ (raw[1], 0);
    EXPECT_NEAR (raw[2] * 0.000266316, M_PI / 2, 0.05);
  }
  EXPECT_EQ (simulator.end (), 0) << "the log's end is the flight's end";
  EXPECT_THAT (simulator.last_line, StartsWith ("the flight is over after 2."));
}

TEST_F (DeskSimulator, InstancesLiveSideBySide)
{
  Simulator one ({"--instance", one_});
  Simulator two ({"--instance", two_});
  EXPECT_NE (one.uri, two.uri);
  EXPECT_EQ (content (uri_file (one_)), one.uri + "\n");
  EXPECT_EQ (content (uri_file (two_)), two.uri + "\n");
  setenv ("VORN_NAMESPACE", three_.c_str (), 1);
  Simulator three ({});
  EXPECT_THAT (three.start, StartsWith ("desk-simulator: instance " + three_ + ","));
}

TEST_F (DeskSimulator, TakenInstanceAndTakenPort)
{
  Simulator first ({"--instance", one_});
  const auto same_instance = run_simulator ({"--instance", one_});
  EXPECT_EQ (same_instance.status, 1);
  EXPECT_EQ (same_instance.err, "desk-simulator: instance '" + one_ +
                                    "' is flown already by process " + first.pid () +
                                    "; choose another with --instance\n");
  EXPECT_EQ (content (uri_file (one_)), first.uri + "\n") << "the first one's file stays";

  const std::string port = first.uri.substr (first.uri.rfind (':') + 1);
  const auto same_port = run_simulator ({"--instance", two_, "--iio-port", port});
  EXPECT_EQ (same_port.status, 1);
  EXPECT_EQ (same_port.err,
             "desk-simulator: cannot listen on 127.0.0.1:" + port + ": Address already in use\n");
}

TEST_F (DeskSimulator, KilledOneLeavesNothingInTheWay)
{
  Simulator killed ({});
  EXPECT_EQ (killed.end (SIGKILL), -SIGKILL);
  EXPECT_TRUE (std::filesystem::exists (uri_file (here_)));
  Simulator next ({});
  EXPECT_EQ (content (uri_file (here_)), next.uri + "\n");
}

TEST_F (DeskSimulator, ListAndHelp)
{
  const auto list = run_simulator ({"--list"});
  EXPECT_EQ (list.status, 0);
  for (const char *name : {"hover", "orbit", "survey", "aggressive"})
    EXPECT_THAT (list.out, HasSubstr (name));
  const auto help = run_simulator ({"--help"});
  EXPECT_EQ (help.status, 0);
  for (const char *option :
       {"--flight", "--seed", "--duration", "--instance", "--home", "--date", "--list",
        "--iio-port", "--queue-depth", "--progress", "--estimator-delay", "--hfov"})
    EXPECT_THAT (help.out, HasSubstr (option));
}

struct RefusalCase {
  std::vector<std::string> arguments;
  const char *message;
};

TEST_F (DeskSimulator, WrongArgumentsAreNamed)
{
  const RefusalCase cases[] = {
      {{"--flight", "loop"}, "no flight is named 'loop'; --list shows them, a log ends in .csv"},
      {{"--flight", "/nonexistent.csv"}, "/nonexistent.csv: No such file or directory"},
      {{"--duration", "-1"},
       "--duration: a number of seconds is needed, 0 for the whole flight; see --help"},
      {{"--duration", "nan"},
       "--duration: a number of seconds is needed, 0 for the whole flight; see --help"},
      {{"--home", "1,2"},
       "--home: '1,2' is not LAT,LON,ALT (degrees north, degrees east, metres from -500 to "
       "10000); see --help"},
      {{"--date", "tomorrow"},
       "--date: 'tomorrow' is not a date like 2026-06-21T12:00:00 (or ...+02:00); see --help"},
      {{"--iio-port", "65536"}, "--iio-port: 65536 is not a port (0 to 65535); see --help"},
      {{"--queue-depth", "-1"}, "--queue-depth: at least 0 is needed; see --help"},
      {{"--progress", "-1"}, "--progress: a number of seconds is needed, 0 for none; see --help"},
      {{"--gyro-mount", "2"},
       "--gyro-mount: '2' is not a rotation like \"1, 0, 0; 0, -1, 0; 0, 0, -1\"; see --help"},
      {{"--gyro-noise", "-1"}, "--gyro-noise: a number from 0 to 10 rad/s is needed; see --help"},
      {{"--gyro-bias", "1,2"}, "--gyro-bias: '1,2' is not X,Y,Z in rad/s; see --help"},
      {{"--estimator-delay", "-1"},
       "--estimator-delay: a number from 0 to 1000 ms is needed; see --help"},
      {{"--hfov", "0"}, "--hfov: a number from 1 to 170 degrees is needed; see --help"},
      {{"extra"}, "unexpected argument 'extra'; see --help"},
      {{"--bogus"}, "Unknown option --bogus; see --help"},
  };
  for (const auto &[arguments, message] : cases) {
    const auto result = run_simulator (arguments);
    EXPECT_EQ (result.status, 2) << message;
    EXPECT_EQ (result.err, std::string ("desk-simulator: ") + message + "\n");
  }
  const auto name = run_simulator ({"--instance", "a/b"});
  EXPECT_EQ (name.status, 1);
  EXPECT_EQ (name.err, "desk-simulator: instance 'a/b': a name is at most 32 letters, digits, '_' "
                       "and '-'\n");
}

} // namespace

int main (int argc, char **argv)
{
  testing::InitGoogleMock (&argc, argv);
  if (argc < 2) {
    fprintf (stderr, "usage: %s PATH-OF-DESK-SIMULATOR\n", argv[0]);
    return 2;
  }
  simulator_path = argv[1];
  return RUN_ALL_TESTS ();
}
