// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "options.hpp"

#include <cmath>

#include <glib.h>
#include <vorn/raii.hpp>

namespace sim
{

namespace
{

using OptionContext = vorn::Owned<GOptionContext, g_option_context_free>;
using OwnedDateTime = vorn::Owned<GDateTime, g_date_time_unref>;
using OwnedTimeZone = vorn::Owned<GTimeZone, g_time_zone_unref>;

/** The arguments as GLib leaves them. */
struct Arguments {
  gboolean list = FALSE;
  gchar *flight = nullptr;
  gint64 seed = 1;
  gdouble duration_s = 0;
  gchar *instance = nullptr;
  gchar *home = nullptr;
  gchar *date = nullptr;
  gint iio_port = 0;
  gint64 queue_depth = 2000;
  gdouble progress_s = 10;
  gchar *mount = nullptr;
  gdouble noise_rad_s = GyroModel ().noise_rad_s;
  gchar *bias = nullptr;
  gdouble estimator_delay_ms = 5;
  gdouble hfov_deg = 60;

  Arguments () = default;
  Arguments (const Arguments &) = delete;
  Arguments &operator= (const Arguments &) = delete;
  ~Arguments ()
  {
    for (gchar *text : {flight, instance, home, date, mount, bias})
      g_free (text);
  }
};

bool parse_date (const char *text, int64_t *unix_ms)
{
  const OwnedTimeZone local (g_time_zone_new_local ());
  const OwnedDateTime date (g_date_time_new_from_iso8601 (text, local.get ()));
  if (!date)
    return false;
  *unix_ms =
      g_date_time_to_unix (date.get ()) * 1000 + g_date_time_get_microsecond (date.get ()) / 1000;
  return true;
}

bool parse_bias (const char *text, Vec3 *bias)
{
  char *end = nullptr;
  double *const numbers[] = {&bias->x, &bias->y, &bias->z};
  for (int i = 0; i < 3; i++) {
    *numbers[i] = g_ascii_strtod (text, &end);
    if (end == text || *end != (i == 2 ? '\0' : ',') || !std::isfinite (*numbers[i]))
      return false;
    text = end + 1;
  }
  return true;
}

/** Checks the ranges and takes over; the reason of a refusal, or empty. */
std::string take_over (const Arguments &arguments, SimulatorOptions *options)
{
  const auto refusal = [] (const char *option, const char *value, const char *wanted) {
    return std::string (option) + ": '" + value + "' is not " + wanted;
  };
  options->list = arguments.list;
  if (arguments.flight)
    options->flight = arguments.flight;
  options->seed = static_cast<uint64_t> (arguments.seed);
  options->gyro.seed = options->seed;
  options->telemetry.seed = options->seed;
  if (!(arguments.duration_s >= 0 && arguments.duration_s < 1e9))
    return "--duration: a number of seconds is needed, 0 for the whole flight";
  if (arguments.duration_s > 0)
    options->duration_s = arguments.duration_s;
  if (arguments.instance)
    options->instance = arguments.instance;
  if (arguments.home) {
    const auto home = parse_geo_position (arguments.home);
    if (!home)
      return refusal ("--home", arguments.home,
                      "LAT,LON,ALT (degrees north, degrees east, metres from -500 to 10000)");
    options->home = *home;
  }
  if (arguments.date) {
    int64_t unix_ms = 0;
    if (!parse_date (arguments.date, &unix_ms))
      return refusal ("--date", arguments.date, "a date like 2026-06-21T12:00:00 (or ...+02:00)");
    options->date_unix_ms = unix_ms;
  }
  if (arguments.iio_port < 0 || arguments.iio_port > 65535)
    return "--iio-port: " + std::to_string (arguments.iio_port) + " is not a port (0 to 65535)";
  options->iio_port = static_cast<uint16_t> (arguments.iio_port);
  if (arguments.queue_depth < 0)
    return "--queue-depth: at least 0 is needed";
  options->queue_depth = static_cast<uint64_t> (arguments.queue_depth);
  if (!(arguments.progress_s >= 0 && arguments.progress_s < 1e6))
    return "--progress: a number of seconds is needed, 0 for none";
  options->progress_s = arguments.progress_s;
  if (arguments.mount) {
    const auto matrix = parse_mount_matrix (arguments.mount);
    if (!matrix)
      return refusal ("--gyro-mount", arguments.mount,
                      "a rotation like \"1, 0, 0; 0, -1, 0; 0, 0, -1\"");
    options->gyro.mount_matrix = *matrix;
  }
  if (!(arguments.noise_rad_s >= 0 && arguments.noise_rad_s < 10))
    return "--gyro-noise: a number from 0 to 10 rad/s is needed";
  options->gyro.noise_rad_s = arguments.noise_rad_s;
  if (arguments.bias && !parse_bias (arguments.bias, &options->gyro.bias_rad_s))
    return refusal ("--gyro-bias", arguments.bias, "X,Y,Z in rad/s");
  if (!(arguments.estimator_delay_ms >= 0 && arguments.estimator_delay_ms <= 1000))
    return "--estimator-delay: a number from 0 to 1000 ms is needed";
  options->telemetry.estimator_delay_ns =
      static_cast<int64_t> (std::nearbyint (arguments.estimator_delay_ms * 1e6));
  if (!(arguments.hfov_deg >= 1 && arguments.hfov_deg <= 170))
    return "--hfov: a number from 1 to 170 degrees is needed";
  options->telemetry.hfov_rad = arguments.hfov_deg * degree;
  return {};
}

} // namespace

std::optional<SimulatorOptions> parse_options (int argc, char **argv, std::string *error)
{
  Arguments a;
  const GOptionEntry entries[] = {
      {"flight", 'f', 0, G_OPTION_ARG_FILENAME, &a.flight,
       "Named flight, or a log to fly (default: hover)", "NAME|FILE.csv"},
      {"list", 'l', 0, G_OPTION_ARG_NONE, &a.list, "List the named flights and exit", nullptr},
      {"seed", 's', 0, G_OPTION_ARG_INT64, &a.seed, "Seed of wind, vibration and noise (1)", "N"},
      {"duration", 'd', 0, G_OPTION_ARG_DOUBLE, &a.duration_s,
       "Stop after so many seconds (0: when the log ends, else never)", "SECONDS"},
      {"instance", 'i', 0, G_OPTION_ARG_STRING, &a.instance,
       "Name of this drone on this machine (default: $VORN_NAMESPACE, else \"default\")", "NAME"},
      {"home", 0, 0, G_OPTION_ARG_STRING, &a.home, "Place of the start (45,6,500)", "LAT,LON,ALT"},
      {"date", 0, 0, G_OPTION_ARG_STRING, &a.date, "Date and time of the start (now)", "ISO-8601"},
      {"iio-port", 0, 0, G_OPTION_ARG_INT, &a.iio_port,
       "TCP port of the IIO server (0: the system chooses)", "PORT"},
      {"queue-depth", 0, 0, G_OPTION_ARG_INT64, &a.queue_depth,
       "Gyro samples kept for a reader that is late (2000; 0: all)", "N"},
      {"gyro-mount", 0, 0, G_OPTION_ARG_STRING, &a.mount,
       "Mount matrix of the gyroscope, sensor to camera (identity)", "ROWS"},
      {"gyro-bias", 0, 0, G_OPTION_ARG_STRING, &a.bias,
       "Constant error of the gyroscope, rad/s (0.004,-0.006,0.003)", "X,Y,Z"},
      {"gyro-noise", 0, 0, G_OPTION_ARG_DOUBLE, &a.noise_rad_s,
       "Standard deviation of a gyro sample, rad/s (0.002)", "RATE"},
      {"estimator-delay", 0, 0, G_OPTION_ARG_DOUBLE, &a.estimator_delay_ms,
       "How late the drone's estimated attitude is, milliseconds (5)", "MS"},
      {"hfov", 0, 0, G_OPTION_ARG_DOUBLE, &a.hfov_deg,
       "Horizontal field of view of the picture, degrees (60)", "DEGREES"},
      {"progress", 0, 0, G_OPTION_ARG_DOUBLE, &a.progress_s,
       "Seconds between lines of progress (10; 0: none)", "SECONDS"},
      {}};
  CameraArguments camera_arguments;
  const OptionContext context (g_option_context_new (nullptr));
  g_option_context_set_summary (
      context.get (), "One simulated drone: its flight, its cameras, the front camera's "
                      "gyroscope over the network protocol\nof libiio, and its telemetry.");
  g_option_context_set_description (
      context.get (),
      "A log is a CSV file with the columns time_s, north_m, east_m, down_m, qx, qy, qz, qw\n"
      "(camera to NED), in this order or named by a header line.\n\n"
      "Example: desk-simulator --flight orbit & IIOD_REMOTE=ip:127.0.0.1:PORT iio_info\n");
  g_option_context_add_main_entries (context.get (), entries, nullptr);
  g_option_context_add_group (context.get (), camera_arguments.make_group ());
  vorn::ErrorOut failure;
  if (!g_option_context_parse (context.get (), &argc, &argv, failure.out ())) {
    *error = failure.message ();
    return std::nullopt;
  }
  if (argc > 1) {
    *error = std::string ("unexpected argument '") + argv[1] + "'";
    return std::nullopt;
  }
  SimulatorOptions options;
  *error = take_over (a, &options);
  // What the drone tells of its picture is true unless its camera is told otherwise.
  options.cameras.front.sensor.horizontal_fov_rad = options.telemetry.hfov_rad;
  if (error->empty ())
    *error = camera_arguments.take_over (&options.cameras);
  return error->empty () ? std::optional (options) : std::nullopt;
}

} // namespace sim
