// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// "vorn-host run": the service, its status line and its end.
#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>

#include "commands.hpp"
#include "end_request.hpp"
#include "messages.hpp"
#include "report/summary.hpp"
#include "run_results.hpp"
#include "service.hpp"
#include <unistd.h>
#include <vorn/log.h>
#include <vorn/properties.h>

namespace
{

constexpr guint poll_period_ms = 100;
constexpr guint status_period_ms = 1000;

/** LEVEL or TAG=LEVEL; false when it is neither. */
bool set_log_level (const std::string &setting)
{
  static constexpr struct {
    const char *name;
    int level;
  } levels[] = {{"none", 0},
                {"error", VORN_LOG_PRIORITY_ERROR},
                {"warning", VORN_LOG_PRIORITY_WARNING},
                {"info", VORN_LOG_PRIORITY_INFO},
                {"debug", VORN_LOG_PRIORITY_DEBUG}};
  const auto at = setting.find ('=');
  const std::string name = at == std::string::npos ? setting : setting.substr (at + 1);
  const auto *const found =
      std::find_if (std::begin (levels), std::end (levels),
                    [&name] (const auto &level) { return name == level.name; });
  if (found == std::end (levels) || at == 0)
    return false;
  vorn_log_set_level (at == std::string::npos ? nullptr : setting.substr (0, at).c_str (),
                      found->level);
  return true;
}

struct Run {
  vorn::Owned<GMainLoop, g_main_loop_unref> loop{g_main_loop_new (nullptr, FALSE)};
  std::unique_ptr<RunResults> results; // hears of the view, so it goes after the service
  std::atomic<report::RunReport *> report = nullptr; // the same, for the streaming thread
  Service service;
  std::unique_ptr<Show> show;
  int64_t start_ns = vorn::AttitudeMonitor::monotonic_ns ();
  bool quiet = false;
  std::string failure; // why it ends before it was told to

  void quit () { g_main_loop_quit (loop.get ()); }
};

gboolean on_poll (gpointer run)
{
  static_cast<Run *> (run)->service.poll ();
  return G_SOURCE_CONTINUE;
}

gboolean on_second (gpointer data)
{
  auto *run = static_cast<Run *> (data);
  report::StatusSample sample = run->service.tick ();
  if (run->results)
    sample = run->results->report ().add_status (sample);
  const double seconds = static_cast<double> (sample.time_ns - run->start_ns) * 1e-9;
  if (!run->quiet)
    puts (report::status_line (sample, seconds).c_str ());
  return G_SOURCE_CONTINUE;
}

gboolean on_over (gpointer end)
{
  static_cast<EndRequest *> (end)->request ("the time is over");
  return G_SOURCE_REMOVE;
}

bool is_simple ()
{
  std::array<char, 8> value;
  vorn_property_get ("ro.simple-front-cam", value.data (), value.size (), "1");
  return strcmp (value.data (), "1") == 0;
}

bool start_report (Run *run, const Options &options, std::string *error)
{
  report::RunReportOptions wanted;
  wanted.folder = options.report;
  wanted.meta = {{"build", is_simple () ? "simple" : "full"},
                 {"instance", run->service.instance ().name},
                 {"stream", run->service.rtsp_uri ()}};
  if (is_simple ())
    wanted.no_attitude_reason = "the simple front camera computes none";
  run->results = RunResults::make (wanted, run->service.view (), error);
  if (!run->results)
    return false;
  report::RunReport &report = run->results->report ();
  for (const std::string &text : options.about) {
    const size_t length = text.find ('=');
    report.set_meta (text.substr (0, length), text.substr (length + 1));
  }
  run->report = &report;
  return true;
}

void start_show (Run *run, const Options &options)
{
  constexpr double live_show_s = 20;
  run->show =
      std::make_unique<Show> (make_show (run->service.control (),
                                         options.duration_s > 0 ? options.duration_s : live_show_s),
                              [run] (const ShowNews &news) {
                                if (news.what == ShowNews::What::begins)
                                  return;
                                printf ("show: %s\n", text_of (news).c_str ());
                                if (!run->results)
                                  return;
                                report::RunReport &report = run->results->report ();
                                if (news.what == ShowNews::What::done)
                                  report.add_event (text_of (news));
                                else
                                  report.add_warning (text_of (news));
                              });
  run->show->start ();
}

/** Runs until told to end; the timers go with it. */
void loop (Run *run, EndRequest *end, const Options &options)
{
  const guint timers[] = {
      g_timeout_add (poll_period_ms, on_poll, run),
      g_timeout_add (status_period_ms, on_second, run),
  };
  if (options.duration_s > 0)
    g_timeout_add (static_cast<guint> (std::max (options.duration_s * 1000, 1.0)), on_over, end);
  if (options.record)
    run->service.record ([run] (const HostError &error) {
      // Who ends the host before the first picture came wants no recording any more.
      if (EndRequest::requested ())
        return;
      run->failure = error.message;
      run->quit ();
    });
  if (options.show)
    start_show (run, options);
  // A refusal may come at once, when there is no loop yet that could be left.
  if (run->failure.empty ())
    g_main_loop_run (run->loop.get ());
  for (const guint timer : timers)
    g_source_remove (timer);
  run->show.reset ();
}

/** What remains to be written once everything is down. */
int finish_report (Run *run)
{
  if (!run->results)
    return EXIT_OK;
  EndRequest::lift_limit ();
  std::string error;
  fputs (run->results->report ().finish (&error).c_str (), stdout);
  return error.empty () ? int{EXIT_OK} : fail ("--report: " + error);
}

} // namespace

int run_command (const Options &options)
{
  if (options.verbose)
    vorn_log_set_level (nullptr, VORN_LOG_PRIORITY_DEBUG);
  for (const std::string &setting : options.logs)
    if (!set_log_level (setting))
      return fail ("--log: '" + setting + "' is not TAG=LEVEL (none, error, warning, info, debug)",
                   EXIT_USAGE);
  setvbuf (stdout, nullptr, _IOLBF, 0);
  Run run;
  run.quiet = options.quiet;
  EndRequest end ([&run] (const char *reason) {
    printf ("vorn-host: %s\n", reason);
    run.quit ();
  });
  run.service.on_capture = [&run] (int64_t capture_ns) {
    if (report::RunReport *report = run.report)
      report->add_capture (capture_ns);
  };
  std::string error;
  int status = run.service.start (
      options, [&end] { end.request ("stopped"); }, &error);
  if (status != EXIT_OK)
    return fail (error, status);
  if (!options.report.empty () && !start_report (&run, options, &error))
    return fail (error);
  printf ("vorn-host: instance %s, stream on %s\n", run.service.instance ().name.c_str (),
          run.service.rtsp_uri ().c_str ());
  if (!EndRequest::requested ())
    loop (&run, &end, options);
  const bool complete = run.service.stop ();
  if (!complete)
    g_printerr ("vorn-host: a recording is not finished yet: the next run does it\n");
  status = finish_report (&run);
  if (!run.failure.empty ())
    status = fail (run.failure);
  if (status == EXIT_OK)
    status = finish_output ();
  if (!complete) {
    // What still works in the background is not waited for.
    vorn_log_flush ();
    _exit (status);
  }
  return status;
}
