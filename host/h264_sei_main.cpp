// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// h264-sei: what stands in the access units of a recording, the capture times above all.
#include <array>
#include <clocale>
#include <cstdio>
#include <filesystem>

#include "h264_sei_decode.hpp"
#include "h264_sei_print.hpp"
#include "h264_sei_source.hpp"
#include "report/clock_pair.hpp"
#include <vorn/framework.h>

using h264_sei::AccessUnit;
using h264_sei::NalUnit;

namespace
{

enum ExitStatus { EXIT_OK = 0, EXIT_FAILED = 1, EXIT_USAGE = 2 };

constexpr char summary[] =
    "Prints the access units of an MP4 file or an H.264 byte stream: their NAL units and what the\n"
    "SEI says, such as the time of day at which each frame was captured.";

constexpr char description[] =
    "With --json each access unit is an object on a line of its own.\n"
    "\n"
    "Frames carry the time of day of the drone's clock, which began when its machine did. --utc\n"
    "tells when that was: by the pair of clocks in the run's summary.json, which is looked for\n"
    "beside the recording and one folder up unless --clock names it. It knows the day for a run "
    "of\n"
    "up to 23 hours.\n"
    "\n"
    "Examples:\n"
    "  h264-sei flight.mp4\n"
    "  h264-sei --utc out/2026-11-20T14-03-27/videos/ZELTO_0001.mp4\n"
    "  h264-sei --json flight.mp4 | jq -r '.nal_units[].messages[]?.time_of_day // empty'\n"
    "\n"
    "Exit status: 0 done, 1 the file is missing or damaged, 2 wrong usage.";

struct Options {
  std::string path;
  bool json = false;
  std::string clock; // empty: no UTC
};

/** Beside the recording or one folder up, where a run keeps its recordings in one of their own. */
std::string find_summary (const char *recording)
{
  const std::filesystem::path beside =
      std::filesystem::absolute (recording).replace_filename ("summary.json");
  const std::filesystem::path above = beside.parent_path ().parent_path () / "summary.json";
  std::error_code error;
  return !std::filesystem::exists (beside, error) && std::filesystem::exists (above, error)
             ? above.string ()
             : beside.string ();
}

/** False when the program is to end at once with *status. */
bool parse_options (int argc, char **argv, Options *options, int *status)
{
  gboolean json = FALSE;
  gboolean version = FALSE;
  gboolean utc = FALSE;
  gchar *clock = nullptr;
  const std::array<GOptionEntry, 5> entries = {{
      {"json", 'j', 0, G_OPTION_ARG_NONE, &json, "Print JSON, one access unit a line", nullptr},
      {"utc", 'u', 0, G_OPTION_ARG_NONE, &utc, "Tell the capture times in UTC as well", nullptr},
      {"clock", 'c', 0, G_OPTION_ARG_FILENAME, &clock,
       "Where the pair of clocks is (with --utc: the run's summary.json)", "SUMMARY"},
      {"version", 'V', 0, G_OPTION_ARG_NONE, &version, "Print the version and exit", nullptr},
      {},
  }};
  const vorn::Owned<GOptionContext, g_option_context_free> context (g_option_context_new ("FILE"));
  g_option_context_set_summary (context.get (), summary);
  g_option_context_set_description (context.get (), description);
  g_option_context_add_main_entries (context.get (), entries.data (), nullptr);
  vorn::ErrorOut error;
  const bool parsed = g_option_context_parse (context.get (), &argc, &argv, error.out ());
  const vorn::OwnedString owned_clock (clock);
  if (!parsed) {
    g_printerr ("h264-sei: %s\nTry 'h264-sei --help'.\n", error.message ());
    *status = EXIT_USAGE;
    return false;
  }
  if (version) {
    printf ("h264-sei %s\n", VORN_VERSION);
    *status = EXIT_OK;
    return false;
  }
  if (argc != 2) {
    g_printerr ("h264-sei: %s\nTry 'h264-sei --help'.\n",
                argc < 2 ? "which file?" : "one file at a time");
    *status = EXIT_USAGE;
    return false;
  }
  *options = {argv[1], json != FALSE, {}};
  if (clock)
    options->clock = clock;
  else if (utc)
    options->clock = find_summary (argv[1]);
  return true;
}

/** What the whole file holds, for the line at the end. */
struct Totals {
  guint64 units = 0;
  guint64 key_frames = 0;
  guint64 timed = 0;
  guint64 damaged = 0;
  std::optional<gint64> first_time_us;
  std::optional<gint64> last_time_us;

  void add (const AccessUnit &unit, const std::vector<NalUnit> &nal_units)
  {
    bool is_damaged = !unit.damage.empty ();
    std::optional<gint64> time_us;
    for (const NalUnit &nal_unit : nal_units) {
      is_damaged = is_damaged || !nal_unit.damage.empty ();
      for (const h264_sei::SeiMessage &message : nal_unit.messages)
        if (message.time_of_day_us)
          time_us = message.time_of_day_us;
    }
    units++;
    key_frames += unit.key_frame;
    timed += time_us.has_value ();
    damaged += is_damaged;
    if (!first_time_us)
      first_time_us = time_us;
    if (time_us)
      last_time_us = time_us;
  }

  void print (const char *kind) const
  {
    printf ("%s: %" G_GUINT64_FORMAT " access units, %" G_GUINT64_FORMAT
            " key frames, %" G_GUINT64_FORMAT " with their time of day",
            kind, units, key_frames, timed);
    if (first_time_us)
      printf (", %s to %s", h264_sei::format_time_of_day (*first_time_us).c_str (),
              h264_sei::format_time_of_day (*last_time_us).c_str ());
    printf ("\n");
  }
};

int fail (const Options &options, const std::string &reason)
{
  fflush (stdout);
  g_printerr ("h264-sei: %s: %s\n", options.path.c_str (), reason.c_str ());
  return EXIT_FAILED;
}

/** Says in UTC what the picture timings of an access unit say. */
void add_utc (const report::ClockPair &clock, std::vector<NalUnit> *nal_units)
{
  // Recordings begin after the pair was taken, or as it was.
  constexpr int64_t hour_ns = int64_t{3600} * 1000000000;
  for (NalUnit &nal_unit : *nal_units)
    for (h264_sei::SeiMessage &message : nal_unit.messages) {
      if (!message.time_of_day_us)
        continue;
      const int64_t moment_ns =
          report::moment_of_day (*message.time_of_day_us, clock.monotonic_ns - hour_ns);
      const std::string utc = report::utc_text (clock.utc_of (moment_ns));
      message.text = utc + ", " + message.text;
      message.fields.emplace_back ("utc", utc);
    }
}

int print_file (const Options &options)
{
  std::string error;
  std::optional<report::ClockPair> clock;
  if (!options.clock.empty ()) {
    clock = report::load_clock_pair (options.clock, &error);
    if (!clock) {
      g_printerr ("h264-sei: %s: %s\n", options.clock.c_str (), error.c_str ());
      return EXIT_FAILED;
    }
  }
  const auto source = h264_sei::open_source (options.path, &error);
  if (!source)
    return fail (options, error);
  h264_sei::Decoder decoder;
  Totals totals;
  AccessUnit unit;
  while (source->next (&unit, &error)) {
    for (const h264_sei::Bytes &nal_unit : unit.configuration)
      if (const std::string damage = decoder.decode (nal_unit).damage; !damage.empty ())
        unit.damage = "a parameter set beside the stream: " + damage;
    std::vector<NalUnit> nal_units;
    for (const h264_sei::Bytes &nal_unit : unit.nal_units)
      nal_units.push_back (decoder.decode (nal_unit));
    if (clock)
      add_utc (*clock, &nal_units);
    (options.json ? h264_sei::print_json : h264_sei::print_text) (totals.units, unit, nal_units);
    totals.add (unit, nal_units);
  }
  if (!options.json)
    totals.print (source->kind ());
  if (!error.empty ())
    return fail (options, error);
  if (totals.units == 0)
    return fail (options, "it has no access unit");
  if (totals.damaged > 0)
    return fail (options, std::to_string (totals.damaged) + " of its access units are damaged");
  if (fflush (stdout) != 0 || ferror (stdout))
    return fail (options, "the output cannot be written");
  return EXIT_OK;
}

} // namespace

int main (int argc, char **argv)
{
  setlocale (LC_ALL, "");
  // Numbers are written for machines, in every locale.
  setlocale (LC_NUMERIC, "C");
  Options options;
  int status = EXIT_OK;
  if (!parse_options (argc, argv, &options, &status))
    return status;
  vorn_framework_init (nullptr, nullptr);
  return print_file (options);
}
