// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// zelto-imu: the camera IMU reader and the attitude provider alone, without cameras, against the
// simulator of an instance; tells how well they do.
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <numbers>
#include <string>
#include <vector>

#include <glib-unix.h>
#include <gst/gst.h>

#include "camera_imu.hpp"
#include "vorn_tovrin_shdata_provider.hpp"
#include <vorn/attitude_monitor.hpp>
#include <vorn/gst_raii.hpp>
#include <vorn/instance.h>
#include <vorn/raii.hpp>

namespace
{

enum ExitStatus { exit_ok = 0, exit_failed = 1, exit_usage = 2 };

constexpr double degrees_per_rad = 180 / std::numbers::pi;
constexpr guint poll_period_ms = 20;
constexpr guint span_period_ms = 33;
constexpr GstClockTime span_ns = 33 * GST_MSECOND;
constexpr gulong latency_period_us = 100;

using Reader = vorn::Owned<CameraImu, camera_imu_free>;
using MainLoop = vorn::Owned<GMainLoop, g_main_loop_unref>;

struct Options {
  std::string instance;
  double duration_s = 0; // 0: until interrupted
  bool json = false;
  bool latency = false;
};

int fail (int status, const std::string &reason)
{
  fprintf (stderr, "zelto-imu: %s\n", reason.c_str ());
  return status;
}

bool parse_options (int argc, char **argv, Options *options, std::string *error)
{
  gchar *instance = nullptr;
  gdouble duration_s = 0;
  gboolean json = FALSE;
  gboolean latency = FALSE;
  const GOptionEntry entries[] = {
      {"instance", 'i', 0, G_OPTION_ARG_STRING, &instance,
       "Whose simulator to read (default: $VORN_NAMESPACE, else \"default\")", "NAME"},
      {"duration", 'd', 0, G_OPTION_ARG_DOUBLE, &duration_s,
       "Stop after so many seconds (0: when interrupted)", "SECONDS"},
      {"json", 'j', 0, G_OPTION_ARG_NONE, &json, "Print a JSON object a line", nullptr},
      {"latency", 'l', 0, G_OPTION_ARG_NONE, &latency,
       "Look every 0.1 ms, and tell how long samples take to the blackboard", nullptr},
      {}};
  const vorn::Owned<GOptionContext, g_option_context_free> context (g_option_context_new (nullptr));
  g_option_context_set_summary (context.get (), "Runs the camera IMU reader and the attitude "
                                                "provider without cameras, against the simulator\n"
                                                "of an instance, and prints each second the rate "
                                                "and the age of the attitudes and their error\n"
                                                "against the simulator's truth.");
  g_option_context_set_description (
      context.get (), "Example: desk-simulator --flight orbit & zelto-imu --duration 10\n\n"
                      "Exit status: 0 done, 1 failed or no attitude came, 2 wrong usage.\n");
  g_option_context_add_main_entries (context.get (), entries, nullptr);
  vorn::ErrorOut failure;
  const bool parsed = g_option_context_parse (context.get (), &argc, &argv, failure.out ());
  const vorn::OwnedString owned_instance (instance);
  if (!parsed)
    *error = failure.message ();
  else if (argc > 1)
    *error = std::string ("unexpected argument '") + argv[1] + "'";
  else if (!(duration_s >= 0 && duration_s < 1e6))
    *error = "--duration: a number of seconds is needed, 0 for no end";
  else if (const char *name = vorn_instance_name (instance))
    options->instance = name;
  else
    *error = "an instance's name is at most 32 letters, digits, '_' and '-'";
  options->duration_s = duration_s;
  options->json = json;
  options->latency = latency;
  return error->empty ();
}

/** Where the instance's simulator serves its gyroscope; empty with the reason. */
std::string find_simulator (const std::string &instance, std::string *error)
{
  char dir[4096];
  const int result = vorn_instance_dir (instance.c_str (), dir, sizeof dir);
  if (result < 0) {
    *error = "instance '" + instance + "': " + g_strerror (-result);
    return {};
  }
  const std::string path = std::string (dir) + "/" + VORN_INSTANCE_IIO_URI_FILE;
  std::ifstream file (path);
  std::string uri;
  if (!std::getline (file, uri) || uri.empty ())
    *error = "no simulator flies instance '" + instance + "': there is no " + path;
  return uri;
}

/** Of latencies in nanoseconds; sorts them. */
double quantile_ms (std::vector<int64_t> *values, double quantile)
{
  if (values->empty ())
    return 0;
  std::sort (values->begin (), values->end ());
  const auto last = static_cast<double> (values->size () - 1);
  return static_cast<double> ((*values)[static_cast<size_t> (last * quantile)]) * 1e-6;
}

/** The running program. */
struct Program {
  Options options;
  MainLoop loop{g_main_loop_new (nullptr, FALSE)};
  vorn::AttitudeMonitor monitor;
  vorn::Ref<VornTovrinShdataProvider> provider;
  vorn::AttitudeStatistics second;
  vorn::AttitudeStatistics whole;
  vorn::MonitoredAttitude newest = {};
  int64_t start_ns = vorn::AttitudeMonitor::monotonic_ns ();
  int64_t second_ns = start_ns; // when the current second began
  uint64_t spans = 0;           // that the provider answered in full
  uint64_t short_spans = 0;
  std::vector<int64_t> latencies_ns;

  void poll ()
  {
    monitor.poll ([this] (const vorn::MonitoredAttitude &attitude) {
      second.add (attitude);
      whole.add (attitude);
      newest = attitude;
      if (options.latency)
        latencies_ns.push_back (attitude.seen_ns - attitude.time_ns);
    });
  }

  void ask_provider ()
  {
    // What is on the blackboard for sure: up to the newest that was seen.
    const int64_t newest_ns = monitor.newest_ns ();
    if (newest_ns == 0 || second.count < span_ns / GST_MSECOND)
      return;
    const auto stop = static_cast<GstClockTime> (newest_ns);
    const vorn::OwnedStructure answer (vorn_tovrin_provider_get_attitude (
        VORN_TOVRIN_PROVIDER (provider.get ()), stop - span_ns, stop));
    const GValue *value =
        answer ? gst_structure_get_value (answer.get (), "quaternions_w") : nullptr;
    const auto *array = value ? static_cast<const GArray *> (g_value_get_boxed (value)) : nullptr;
    if (array && array->len == span_ns / GST_MSECOND + 1)
      spans++;
    else
      short_spans++;
  }

  void print_second ()
  {
    poll ();
    const int64_t now_ns = vorn::AttitudeMonitor::monotonic_ns ();
    const double rate =
        static_cast<double> (second.count) / (static_cast<double> (now_ns - second_ns) * 1e-9);
    const double time_s = static_cast<double> (now_ns - start_ns) * 1e-9;
    const double age_ms = static_cast<double> (now_ns - monitor.newest_ns ()) * 1e-6;
    if (options.json)
      printf ("{\"time_s\":%.3f,\"count\":%" G_GUINT64_FORMAT ",\"rate_hz\":%.1f,\"age_ms\":%.3f,"
              "\"gaps\":%" G_GUINT64_FORMAT ",\"compared\":%" G_GUINT64_FORMAT
              ",\"error_rms_deg\":%.5f,\"error_max_deg\":%.5f}\n",
              time_s, second.count, rate, monitor.newest_ns () ? age_ms : -1.0, second.gaps,
              second.compared, second.error_rms_rad () * degrees_per_rad,
              second.error_max_rad * degrees_per_rad);
    else if (second.count == 0)
      printf ("%6.1f s: no attitude\n", time_s);
    else {
      const vorn::EulerAngles euler = newest.euler ();
      printf ("%6.1f s: %6.1f /s, age %.1f ms, roll %.2f, pitch %.2f, yaw %.2f degrees, ", time_s,
              rate, age_ms, euler.roll_rad * degrees_per_rad, euler.pitch_rad * degrees_per_rad,
              euler.yaw_rad * degrees_per_rad);
      if (second.compared)
        printf ("error RMS %.3f, max %.3f degrees", second.error_rms_rad () * degrees_per_rad,
                second.error_max_rad * degrees_per_rad);
      else
        printf ("truth unknown");
      if (second.gaps)
        printf (", %" G_GUINT64_FORMAT " gaps", second.gaps);
      printf ("\n");
    }
    second.restart ();
    second_ns = now_ns;
  }

  void print_end ()
  {
    const double median_ms = quantile_ms (&latencies_ns, 0.5);
    const double p99_ms = quantile_ms (&latencies_ns, 0.99);
    const auto longest_ms = static_cast<double> (whole.longest_step_ns) * 1e-6;
    if (options.json) {
      printf ("{\"total\":true,\"count\":%" G_GUINT64_FORMAT ",\"gaps\":%" G_GUINT64_FORMAT
              ",\"longest_step_ms\":%.3f,\"latest_seen_ms\":%.3f,\"compared\":%" G_GUINT64_FORMAT
              ",\"error_rms_deg\":%.5f,\"error_max_deg\":%.5f,\"spans\":%" G_GUINT64_FORMAT
              ",\"short_spans\":%" G_GUINT64_FORMAT,
              whole.count, whole.gaps, longest_ms,
              static_cast<double> (whole.latest_seen_ns) * 1e-6, whole.compared,
              whole.error_rms_rad () * degrees_per_rad, whole.error_max_rad * degrees_per_rad,
              spans, short_spans);
      if (options.latency)
        printf (",\"latency_median_ms\":%.3f,\"latency_p99_ms\":%.3f", median_ms, p99_ms);
      printf ("}\n");
      return;
    }
    printf ("in all: %" G_GUINT64_FORMAT " attitudes, %" G_GUINT64_FORMAT
            " gaps, longest step %.1f ms; error RMS %.3f, max %.3f degrees; provider: "
            "%" G_GUINT64_FORMAT " spans of 33 ms in full, %" G_GUINT64_FORMAT " not\n",
            whole.count, whole.gaps, longest_ms, whole.error_rms_rad () * degrees_per_rad,
            whole.error_max_rad * degrees_per_rad, spans, short_spans);
    if (options.latency)
      printf ("from sample to blackboard: median %.2f ms, 99 %% within %.2f ms\n", median_ms,
              p99_ms);
  }
};

gboolean on_poll (gpointer program)
{
  static_cast<Program *> (program)->poll ();
  return G_SOURCE_CONTINUE;
}

/** Busy looking: the main loop's timeouts are too coarse. */
gboolean on_idle (gpointer program)
{
  static_cast<Program *> (program)->poll ();
  g_usleep (latency_period_us);
  return G_SOURCE_CONTINUE;
}

gboolean on_span (gpointer program)
{
  static_cast<Program *> (program)->ask_provider ();
  return G_SOURCE_CONTINUE;
}

gboolean on_second (gpointer program)
{
  static_cast<Program *> (program)->print_second ();
  return G_SOURCE_CONTINUE;
}

gboolean on_end (gpointer program)
{
  g_main_loop_quit (static_cast<Program *> (program)->loop.get ());
  return G_SOURCE_CONTINUE;
}

int run (const Options &options)
{
  std::string error;
  const std::string uri = find_simulator (options.instance, &error);
  if (uri.empty ())
    return fail (exit_failed, error);
  g_setenv ("IIOD_REMOTE", uri.c_str (), TRUE);
  vorn_blackboard_set_namespace (options.instance.c_str ());
  const Reader reader (camera_imu_new ());
  if (!reader)
    return fail (exit_failed, "instance '" + options.instance + "': nothing to read at " + uri);
  Program program;
  program.options = options;
  program.provider = vorn::adopt (vorn_tovrin_shdata_provider_new ());
  if (!program.provider)
    return fail (exit_failed, "instance '" + options.instance + "': no attitude provider");

  g_unix_signal_add (SIGINT, on_end, &program);
  g_unix_signal_add (SIGTERM, on_end, &program);
  if (options.latency)
    g_idle_add (on_idle, &program);
  else
    g_timeout_add (poll_period_ms, on_poll, &program);
  g_timeout_add (span_period_ms, on_span, &program);
  g_timeout_add (1000, on_second, &program);
  if (options.duration_s > 0)
    g_timeout_add (static_cast<guint> (std::max (options.duration_s * 1000, 1.0)), on_end,
                   &program);
  if (!options.json)
    printf ("zelto-imu: instance %s, reading %s\n", options.instance.c_str (), uri.c_str ());
  g_main_loop_run (program.loop.get ());
  program.poll ();
  program.print_end ();
  if (program.whole.count == 0)
    return fail (exit_failed, "no attitude came");
  return exit_ok;
}

} // namespace

int main (int argc, char **argv)
{
  setvbuf (stdout, nullptr, _IOLBF, 0);
  // libiio sends without protection.
  signal (SIGPIPE, SIG_IGN);
  Options options;
  std::string error;
  if (!parse_options (argc, argv, &options, &error))
    return fail (exit_usage, error + "; see --help");
  gst_init (nullptr, nullptr);
  return run (options);
}
