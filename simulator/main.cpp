// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <string>

#include <glib-unix.h>
#include <glib.h>
#include <vorn/blackboard.h>
#include <vorn/instance.h>
#include <vorn/raii.hpp>

#include "drone.hpp"
#include "drone_cameras.hpp"
#include "iio_server.hpp"
#include "instance_claim.hpp"
#include "options.hpp"
#include "telemetry_publisher.hpp"

using namespace sim;

namespace
{

constexpr int exit_failure = 1;
constexpr int exit_usage = 2;
constexpr uint32_t gyro_rate_hz = 1000;

using MainLoop = vorn::Owned<GMainLoop, g_main_loop_unref>;
using OwnedDateTime = vorn::Owned<GDateTime, g_date_time_unref>;

int fail (int status, const std::string &reason)
{
  fprintf (stderr, "desk-simulator: %s\n", reason.c_str ());
  return status;
}

void list_flights ()
{
  for (const auto &flight : named_flights ())
    printf ("%-12s%s\n", flight.name, flight.summary);
}

std::shared_ptr<const Flight> make_flight (const SimulatorOptions &options, std::string *error)
{
  if (auto named = make_named_flight (options.flight, options.seed))
    return named;
  if (options.flight.find_first_of ("./") != std::string::npos)
    return load_flight_log (options.flight, error);
  *error = "no flight is named '" + options.flight + "'; --list shows them, a log ends in .csv";
  return nullptr;
}

std::string date_text (int64_t unix_ms)
{
  const OwnedDateTime utc (g_date_time_new_from_unix_utc (unix_ms / 1000));
  const OwnedDateTime local (utc ? g_date_time_to_local (utc.get ()) : nullptr);
  const vorn::OwnedString text (local ? g_date_time_format_iso8601 (local.get ()) : nullptr);
  return text ? text.get () : "an unknown date";
}

/** The running program; its services are asked of one drone. */
struct Simulator {
  Drone drone;
  std::unique_ptr<InstanceClaim> claim;
  std::unique_ptr<IioServer> iio;
  std::unique_ptr<TelemetryPublisher> telemetry;
  std::unique_ptr<DroneCameras> cameras;
  MainLoop loop{g_main_loop_new (nullptr, FALSE)};
  std::string reason_to_stop;

  void stop (const char *reason)
  {
    reason_to_stop = reason;
    g_main_loop_quit (loop.get ());
  }
};

gboolean on_interrupt (gpointer simulator)
{
  static_cast<Simulator *> (simulator)->stop ("interrupted");
  return G_SOURCE_CONTINUE;
}

gboolean on_terminate (gpointer simulator)
{
  static_cast<Simulator *> (simulator)->stop ("terminated");
  return G_SOURCE_CONTINUE;
}

gboolean on_duration_over (gpointer simulator)
{
  static_cast<Simulator *> (simulator)->stop ("the flight is over");
  return G_SOURCE_REMOVE;
}

std::string served_text (const IioStatistics &statistics)
{
  return std::to_string (statistics.connections) + " connections, " +
         std::to_string (statistics.blocks) + " blocks, " + std::to_string (statistics.samples) +
         " samples, " + std::to_string (statistics.lost_samples) + " lost, " +
         std::to_string (statistics.refused_requests) + " requests refused";
}

gboolean on_progress (gpointer data)
{
  const auto *simulator = static_cast<Simulator *> (data);
  printf ("%s; IIO: %s%s\n", describe_state (simulator->drone, monotonic_ns ()).c_str (),
          served_text (simulator->iio->statistics ()).c_str (),
          simulator->cameras->served_text ().c_str ());
  return G_SOURCE_CONTINUE;
}

void print_start (const Simulator &simulator, const SimulatorOptions &options,
                  const std::string &uri_file)
{
  const Drone &drone = simulator.drone;
  printf ("desk-simulator: instance %s, flight %s, seed %llu\n", simulator.claim->name ().c_str (),
          options.flight.c_str (), static_cast<unsigned long long> (options.seed));
  printf ("home %.7f %.7f %.1f m, %s\n", drone.home.latitude_deg, drone.home.longitude_deg,
          drone.home.altitude_m, date_text (drone.date_unix_ms).c_str ());
  printf ("serving iio-cam_imu at %u Hz on %s (written to %s)\n", gyro_rate_hz,
          simulator.iio->uri ().c_str (), uri_file.c_str ());
  printf ("publishing telemetry: video (estimate %.1f ms late), camera_controller, "
          "camera_zoom_controller, drone, truth\n",
          static_cast<double> (options.telemetry.estimator_delay_ns) * 1e-6);
  printf ("%s", simulator.cameras->describe ().c_str ());
}

guint milliseconds (double seconds)
{
  return static_cast<guint> (std::clamp (seconds * 1000, 1.0, 4e9));
}

/** Starts all services; the reason of a failure, or empty. */
std::string start (Simulator *simulator, const SimulatorOptions &options,
                   std::shared_ptr<const World> world, std::string *uri_file)
{
  std::string error;
  simulator->claim =
      InstanceClaim::make (options.instance ? options.instance->c_str () : nullptr, &error);
  if (!simulator->claim)
    return error;
  const auto source =
      make_camera_imu_source (simulator->drone, options.gyro, gyro_rate_hz, options.queue_depth);
  IioServerOptions server_options;
  server_options.port = options.iio_port;
  simulator->iio = IioServer::start (source, server_options, &error);
  if (!simulator->iio)
    return error;
  vorn_blackboard_set_namespace (simulator->claim->name ().c_str ());
  simulator->telemetry = TelemetryPublisher::start (simulator->drone, options.telemetry, &error);
  if (!simulator->telemetry)
    return error;
  simulator->cameras = DroneCameras::start (simulator->drone, options.cameras, std::move (world),
                                            simulator->claim->dir (), &error);
  if (!simulator->cameras)
    return error;
  *uri_file =
      simulator->claim->publish (VORN_INSTANCE_IIO_URI_FILE, simulator->iio->uri (), &error);
  return error;
}

int run (const SimulatorOptions &options)
{
  std::string error;
  Simulator simulator;
  simulator.drone.flight = make_flight (options, &error);
  if (!simulator.drone.flight)
    return fail (exit_usage, error);
  simulator.drone.home = options.home;
  simulator.drone.date_unix_ms = options.date_unix_ms.value_or (g_get_real_time () / 1000);
  auto world = make_world (options.seed);
  simulator.drone.start_ns = monotonic_ns ();

  g_unix_signal_add (SIGINT, on_interrupt, &simulator);
  g_unix_signal_add (SIGTERM, on_terminate, &simulator);

  std::string uri_file;
  error = start (&simulator, options, std::move (world), &uri_file);
  if (!error.empty ())
    return fail (exit_failure, error);
  print_start (simulator, options, uri_file);
  const auto duration_s =
      options.duration_s ? options.duration_s : simulator.drone.flight->duration_s ();
  if (duration_s)
    g_timeout_add (milliseconds (*duration_s), on_duration_over, &simulator);
  if (options.progress_s > 0)
    g_timeout_add (milliseconds (options.progress_s), on_progress, &simulator);

  g_main_loop_run (simulator.loop.get ());
  printf ("%s after %.1f s; IIO: %s%s\n", simulator.reason_to_stop.c_str (),
          simulator.drone.time_s (monotonic_ns ()),
          served_text (simulator.iio->statistics ()).c_str (),
          simulator.cameras->served_text ().c_str ());
  return 0;
}

} // namespace

int main (int argc, char **argv)
{
  // Whoever reads our lines sees them at once, and may go away.
  setvbuf (stdout, nullptr, _IOLBF, 0);
  signal (SIGPIPE, SIG_IGN);
  std::string error;
  const auto options = parse_options (argc, argv, &error);
  if (!options)
    return fail (exit_usage, error + "; see --help");
  if (options->list) {
    list_flights ();
    return 0;
  }
  return run (*options);
}
