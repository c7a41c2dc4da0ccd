// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// "vorn-host attitude": the camera's attitude, live, whoever computes it.
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <numbers>

#include <glib-unix.h>

#include "commands.hpp"
#include "messages.hpp"
#include <vorn/attitude_monitor.hpp>
#include <vorn/instance.h>
#include <vorn/raii.hpp>

namespace
{

constexpr double degrees_per_rad = 180 / std::numbers::pi;
constexpr guint poll_period_ms = 20;

struct Live {
  vorn::Owned<GMainLoop, g_main_loop_unref> loop{g_main_loop_new (nullptr, FALSE)};
  vorn::AttitudeMonitor monitor;
  vorn::AttitudeStatistics second;
  vorn::MonitoredAttitude newest = {};
  uint64_t count = 0;
  int64_t second_ns = vorn::AttitudeMonitor::monotonic_ns (); // when the current one began
  vorn::Owned<FILE, fclose> csv;

  void poll ()
  {
    monitor.poll ([this] (const vorn::MonitoredAttitude &attitude) {
      second.add (attitude);
      newest = attitude;
      count++;
      if (csv)
        write_csv (attitude);
    });
  }
  void write_csv (const vorn::MonitoredAttitude &a) const
  {
    const vorn::EulerAngles euler = a.euler ();
    fprintf (csv.get (), "%lld.%09lld,%.9g,%.9g,%.9g,%.9g,%.5f,%.5f,%.5f,",
             static_cast<long long> (a.time_ns / 1'000'000'000),
             static_cast<long long> (a.time_ns % 1'000'000'000), double{a.x}, double{a.y},
             double{a.z}, double{a.w}, euler.roll_rad * degrees_per_rad,
             euler.pitch_rad * degrees_per_rad, euler.yaw_rad * degrees_per_rad);
    if (a.error_rad)
      fprintf (csv.get (), "%.5f", *a.error_rad * degrees_per_rad);
    fputc ('\n', csv.get ());
  }
  void print_second ()
  {
    poll ();
    const int64_t now_ns = vorn::AttitudeMonitor::monotonic_ns ();
    const double seconds = static_cast<double> (now_ns - second_ns) * 1e-9;
    second_ns = now_ns;
    if (second.count == 0) {
      printf ("no attitude\n");
      return;
    }
    const vorn::EulerAngles euler = newest.euler ();
    printf ("roll %7.2f, pitch %6.2f, yaw %7.2f degrees, %6.1f /s, age %4.1f ms, ",
            euler.roll_rad * degrees_per_rad, euler.pitch_rad * degrees_per_rad,
            euler.yaw_rad * degrees_per_rad, static_cast<double> (second.count) / seconds,
            static_cast<double> (now_ns - monitor.newest_ns ()) * 1e-6);
    if (second.compared)
      printf ("error RMS %.3f, max %.3f degrees\n", second.error_rms_rad () * degrees_per_rad,
              second.error_max_rad * degrees_per_rad);
    else
      printf ("truth unknown\n");
    second.restart ();
  }
};

gboolean on_poll (gpointer live)
{
  static_cast<Live *> (live)->poll ();
  return G_SOURCE_CONTINUE;
}

gboolean on_second (gpointer live)
{
  static_cast<Live *> (live)->print_second ();
  return G_SOURCE_CONTINUE;
}

gboolean on_end (gpointer live)
{
  g_main_loop_quit (static_cast<Live *> (live)->loop.get ());
  return G_SOURCE_CONTINUE;
}

} // namespace

int attitude_command (const Options &options)
{
  setvbuf (stdout, nullptr, _IOLBF, 0);
  const char *name =
      vorn_instance_name (options.instance.empty () ? nullptr : options.instance.c_str ());
  if (!name || vorn_blackboard_set_namespace (name) < 0)
    return fail ("an instance's name is at most 32 letters, digits, '_' and '-'");
  Live live;
  if (!options.csv.empty ()) {
    live.csv.reset (fopen (options.csv.c_str (), "we"));
    if (!live.csv)
      return fail ("cannot write " + options.csv + ": " + g_strerror (errno));
    fputs ("time_s,qx,qy,qz,qw,roll_deg,pitch_deg,yaw_deg,error_deg\n", live.csv.get ());
  }
  g_unix_signal_add (SIGINT, on_end, &live);
  g_unix_signal_add (SIGTERM, on_end, &live);
  g_timeout_add (poll_period_ms, on_poll, &live);
  g_timeout_add (1000, on_second, &live);
  if (options.duration_s > 0)
    g_timeout_add (static_cast<guint> (std::max (options.duration_s * 1000, 1.0)), on_end, &live);
  g_main_loop_run (live.loop.get ());
  live.poll ();
  FILE *csv = live.csv.release ();
  if (csv) {
    const bool failed = ferror (csv);
    if (fclose (csv) != 0 || failed)
      return fail ("cannot write " + options.csv + ": " + g_strerror (errno));
  }
  if (live.count == 0)
    return fail (std::string ("no attitude came on instance '") + name + "'");
  return finish_output ();
}
