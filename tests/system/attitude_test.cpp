// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The camera's attitude from end to end: a simulator and a reader, each a process of its own, and
// the attitudes against the truth. Arguments: the paths of desk-simulator and zelto-imu.
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gio/gio.h>
#include <gtest/gtest.h>

#include "flight.hpp"
#include "log_capture.hpp"
#include "telemetry_publisher.hpp"
#include <vorn/attitude_monitor.hpp>
#include <vorn/raii.hpp>

namespace
{

std::string simulator_path;
std::string imu_path;

/** A running program whose lines we read. */
class Program
{
public:
  explicit Program (const std::vector<std::string> &arguments)
  {
    std::vector<const gchar *> pointers;
    for (const std::string &argument : arguments)
      pointers.push_back (argument.c_str ());
    pointers.push_back (nullptr);
    vorn::ErrorOut error;
    process_ = vorn::adopt (
        g_subprocess_newv (pointers.data (), G_SUBPROCESS_FLAGS_STDOUT_PIPE, error.out ()));
    if (!process_) {
      ADD_FAILURE () << error.message ();
      return;
    }
    stream_ =
        vorn::adopt (g_data_input_stream_new (g_subprocess_get_stdout_pipe (process_.get ())));
  }
  ~Program ()
  {
    if (process_)
      end (SIGKILL);
  }
  Program (const Program &) = delete;
  Program &operator= (const Program &) = delete;

  /** The next line; empty at the end. */
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
    g_subprocess_wait (process_.get (), nullptr, nullptr);
    return g_subprocess_get_if_signaled (process_.get ())
               ? -g_subprocess_get_term_sig (process_.get ())
               : g_subprocess_get_exit_status (process_.get ());
  }

private:
  vorn::Ref<GSubprocess> process_;
  vorn::Ref<GDataInputStream> stream_;
};

/** A simulator that serves; port 0: any. */
struct Simulator : Program {
  Simulator (const std::string &instance, const std::string &flight, const std::string &iio_port)
      : Program ({simulator_path, "--instance", instance, "--flight", flight, "--progress", "0",
                  "--iio-port", iio_port})
  {
    for (std::string line = next_line (); !line.empty (); line = next_line ()) {
      const std::string mark = "ip:127.0.0.1:";
      if (const auto at = line.find (mark); at != std::string::npos)
        port = line.substr (at + mark.size (), line.find (' ', at) - at - mark.size ());
      if (line.starts_with ("publishing telemetry"))
        return;
    }
    ADD_FAILURE () << "the simulator of " << instance << " did not start";
  }
  std::string port;
};

/** A number of a line of JSON. */
double number (const std::string &line, const std::string &key)
{
  const auto at = line.find ("\"" + key + "\":");
  EXPECT_NE (at, std::string::npos) << key << " is not in " << line;
  return at == std::string::npos ? std::nan ("") : atof (line.c_str () + at + key.size () + 3);
}

class Attitude : public testing::Test
{
protected:
  Attitude ()
  {
    char name[] = "/tmp/vorn-attitude-test-XXXXXX";
    root_ = mkdtemp (name);
    setenv ("XDG_RUNTIME_DIR", root_.c_str (), 1);
  }
  ~Attitude () override
  {
    std::filesystem::remove_all (root_);
    for (const std::string &instance : instances_)
      vorn_blackboard_remove_namespace (instance.c_str ());
  }
  std::string instance_of (const std::string &name)
  {
    instances_.push_back ("attitude-" + std::to_string (getpid ()) + "-" + name);
    return instances_.back ();
  }

private:
  std::string root_;
  std::vector<std::string> instances_;
};

double fastest_rate_rad_s (const sim::Flight &flight, double duration_s)
{
  double fastest = 0;
  for (double t = 0; t < duration_s; t += 0.001)
    fastest = std::max (fastest, length (flight.at (t).rate_rad_s));
  return fastest;
}

TEST_F (Attitude, FollowsTheTruthInEveryNamedFlight)
{
  const int duration_s = soak () ? 60 : 30;
  struct Run {
    std::string flight;
    std::unique_ptr<Simulator> simulator;
    std::unique_ptr<Program> imu;
  };
  std::vector<Run> runs;
  for (const auto &flight : sim::named_flights ()) {
    const std::string instance = instance_of (flight.name);
    Run run;
    run.flight = flight.name;
    run.simulator = std::make_unique<Simulator> (instance, flight.name, "0");
    run.imu = std::make_unique<Program> (std::vector<std::string>{
        imu_path, "--instance", instance, "--json", "--duration", std::to_string (duration_s)});
    runs.push_back (std::move (run));
  }
  ASSERT_GE (runs.size (), 4u);
  for (Run &run : runs) {
    SCOPED_TRACE (run.flight);
    std::string total;
    for (std::string line = run.imu->next_line (); !line.empty (); line = run.imu->next_line ())
      total = line;
    EXPECT_EQ (run.imu->end (), 0);
    printf ("%s: %s\n", run.flight.c_str (), total.c_str ());
    EXPECT_EQ (number (total, "gaps"), 0);
    // The reader takes its first block, and the monitor its first attitude, a moment after the
    // start.
    EXPECT_GT (number (total, "count"), duration_s * 1000 - 1000);
    EXPECT_GT (number (total, "compared"), 0.99 * number (total, "count"));
    EXPECT_GT (number (total, "spans"), 0);

    // The reference is as late as the estimator's delay, its sample's age and two blocks make it;
    // a machine that is busy makes it as much earlier as the samples were read late.
    const sim::TelemetryOptions telemetry;
    constexpr double blocks_s = 0.010;
    constexpr double poll_s = 0.040; // of an idle machine: the program looks every 20 ms
    const double late_s = std::max (0.0, number (total, "latest_seen_ms") * 1e-3 - poll_s);
    const double apart_s =
        static_cast<double> (telemetry.estimator_delay_ns + sim::video_period_ns) * 1e-9 +
        blocks_s + late_s;
    const auto flight = sim::make_named_flight (run.flight, 1);
    const double bound_rad =
        fastest_rate_rad_s (*flight, duration_s + 5) * apart_s + 6 * telemetry.estimator_noise_rad;
    EXPECT_LT (number (total, "error_max_deg"), bound_rad / sim::degree);
    EXPECT_LT (number (total, "error_rms_deg"), bound_rad / sim::degree / 2);
    EXPECT_GT (number (total, "error_max_deg"), 0) << "an estimate is never exact";
  }
}

bool await (const std::function<bool ()> &condition, std::chrono::seconds longest)
{
  const auto end = std::chrono::steady_clock::now () + longest;
  while (!condition ()) {
    if (std::chrono::steady_clock::now () > end)
      return false;
    std::this_thread::sleep_for (std::chrono::milliseconds (5));
  }
  return true;
}

TEST_F (Attitude, FlowsAgainAfterTheSimulatorWasKilled)
{
  const std::string instance = instance_of ("restart");
  auto simulator = std::make_unique<Simulator> (instance, "hover", "0");
  const std::string port = simulator->port;
  Program imu ({imu_path, "--instance", instance});
  EXPECT_FALSE (imu.next_line ().empty ()) << "it has begun";
  ASSERT_EQ (vorn_blackboard_set_namespace (instance.c_str ()), 0);
  vorn::AttitudeMonitor monitor;
  const auto newer_than = [&monitor] (int64_t time_ns) {
    monitor.poll ([] (const vorn::MonitoredAttitude &) {});
    return monitor.newest_ns () > time_ns;
  };
  ASSERT_TRUE (await ([&] { return newer_than (0); }, std::chrono::seconds (30)));
  for (int round = 0; round < 2; round++) {
    EXPECT_EQ (simulator->end (SIGKILL), -SIGKILL);
    // Long enough for the reader to have lost it and to be trying.
    std::this_thread::sleep_for (std::chrono::milliseconds (1200));
    simulator = std::make_unique<Simulator> (instance, "hover", port);
    ASSERT_EQ (simulator->port, port);
    const int64_t back_ns = vorn::AttitudeMonitor::monotonic_ns ();
    EXPECT_TRUE (await ([&] { return newer_than (back_ns); }, std::chrono::seconds (2)));
  }
  EXPECT_EQ (imu.end (SIGINT), 0) << "and it ends as asked";
}

TEST_F (Attitude, WithoutASimulatorTheReaderSaysSo)
{
  Program imu ({imu_path, "--instance", instance_of ("none")});
  EXPECT_EQ (imu.end (), 1);
  Program usage ({imu_path, "--duration", "-1"});
  EXPECT_EQ (usage.end (), 2);
}

} // namespace

int main (int argc, char **argv)
{
  testing::InitGoogleTest (&argc, argv);
  if (argc < 3) {
    fprintf (stderr, "usage: %s PATH-OF-DESK-SIMULATOR PATH-OF-ZELTO-IMU\n", argv[0]);
    return 2;
  }
  simulator_path = argv[1];
  imu_path = argv[2];
  return RUN_ALL_TESTS ();
}
