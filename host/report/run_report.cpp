// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "run_report.hpp"

#include <algorithm>
#include <filesystem>
#include <set>

#include <sys/stat.h>

#include <glib.h>

#include "csv.hpp"
#include "figures.hpp"
#include "frames.hpp"
#include "html.hpp"
#include "media.hpp"
#include "summary.hpp"
#include "text.hpp"
#include <vorn/raii.hpp>

namespace fs = std::filesystem;

namespace report
{

namespace
{

int64_t now_ns ()
{
  return vorn::AttitudeMonitor::monotonic_ns ();
}

int64_t modified_utc_ns (const fs::path &path)
{
  struct stat status = {};
  stat (path.c_str (), &status);
  return int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec;
}

/** Whole or not at all. The reason of a failure, or empty. */
std::string write_text (const std::string &path, const std::string &text)
{
  vorn::ErrorOut error;
  if (g_file_set_contents (path.c_str (), text.data (), static_cast<gssize> (text.size ()),
                           error.out ()))
    return {};
  return "cannot write " + path + ": " + error.message ();
}

void warn_of_attitudes (RunRecord *record, uint64_t unusable)
{
  if (unusable > 0)
    record->warnings.push_back (std::to_string (unusable) + " attitudes were no numbers");
  if (record->attitudes.kept_every () > 1)
    record->warnings.push_back ("a long run: one of " +
                                std::to_string (record->attitudes.kept_every ()) +
                                " attitudes is kept");
  if (record->no_attitude_reason.empty () && record->attitude_totals.count == 0)
    record->warnings.emplace_back ("no attitude came");
}

/** All files, whatever happens to one. The reasons of failures, or empty. */
std::string write_files (const RunRecord &record, const Figures &figures)
{
  const std::string &folder = record.folder;
  std::string errors;
  for (const std::string &error :
       {write_attitude_csv (record, folder + "/attitude.csv"),
        write_frames_csv (record, folder + "/frames.csv"),
        write_text (folder + "/summary.json", summary_json (record, figures)),
        write_text (folder + "/report.html", report_html (record, figures))})
    if (!error.empty ())
      errors += (errors.empty () ? "" : "; ") + error;
  return errors;
}

} // namespace

RunReport::RunReport (const RunReportOptions &options)
    : collector_ (options.no_attitude_reason.empty ())
{
  record_.folder = options.folder;
  record_.meta = options.meta;
  record_.no_attitude_reason = options.no_attitude_reason;
  record_.clock = ClockPair::now ();
}

StatusSample RunReport::add_status (StatusSample sample)
{
  const AttitudeSecond second = collector_.take_second ();
  const std::lock_guard lock (mutex_);
  if (sample.time_ns == 0)
    sample.time_ns = now_ns ();
  if (record_.no_attitude_reason.empty ()) {
    if (!sample.attitudes_per_s)
      sample.attitudes_per_s = second.per_s;
    if (!sample.error_deg)
      sample.error_deg = second.error_rms_deg;
  }
  record_.status.push_back (sample);
  return sample;
}

void RunReport::add_capture (int64_t capture_ns)
{
  const std::lock_guard lock (mutex_);
  if (record_.captures_ns.empty () || capture_ns > record_.captures_ns.back ())
    record_.captures_ns.push_back (capture_ns);
}

void RunReport::add_photo (const std::string &path, const std::string &group)
{
  Photo photo;
  photo.path = path;
  photo.group = group;
  photo.added_ns = now_ns ();
  const std::lock_guard lock (mutex_);
  record_.photos.push_back (photo);
}

void RunReport::add_recording (const std::string &path)
{
  Recording recording;
  recording.path = path;
  recording.added_ns = now_ns ();
  const std::lock_guard lock (mutex_);
  record_.recordings.push_back (recording);
}

void RunReport::add_files_of_folder ()
{
  const std::lock_guard lock (mutex_);
  std::set<fs::path> known;
  std::error_code error;
  for (const Photo &photo : record_.photos)
    known.insert (fs::weakly_canonical (photo.path, error));
  for (const Recording &recording : record_.recordings)
    known.insert (fs::weakly_canonical (recording.path, error));
  std::set<fs::path> found;
  for (fs::recursive_directory_iterator it (record_.folder, error), end; !error && it != end;
       it.increment (error))
    if (it->is_regular_file (error) && !known.contains (fs::weakly_canonical (it->path (), error)))
      found.insert (it->path ());
  for (const fs::path &path : found) {
    if (path.extension () == ".mp4") {
      Recording recording;
      recording.path = path;
      recording.added_ns = now_ns ();
      record_.recordings.push_back (recording);
    } else if (path.extension () == ".jpg") {
      Photo photo;
      photo.path = path;
      photo.added_ns = record_.clock.monotonic_ns + (modified_utc_ns (path) - record_.clock.utc_ns);
      record_.photos.push_back (photo);
    }
  }
}

void RunReport::add_event (const std::string &text)
{
  const std::lock_guard lock (mutex_);
  record_.events.push_back ({now_ns (), text});
}

void RunReport::add_warning (const std::string &text)
{
  const std::lock_guard lock (mutex_);
  record_.warnings.push_back (text);
}

void RunReport::set_meta (const std::string &name, const std::string &value)
{
  const std::lock_guard lock (mutex_);
  const auto known = std::find_if (record_.meta.begin (), record_.meta.end (),
                                   [&name] (const auto &entry) { return entry.first == name; });
  if (known != record_.meta.end ())
    known->second = value;
  else
    record_.meta.emplace_back (name, value);
}

std::string RunReport::finish (std::string *error)
{
  collector_.stop ();
  RunRecord record;
  {
    const std::lock_guard lock (mutex_);
    record = record_;
  }
  record.end_ns = now_ns ();
  record.attitudes = collector_.take_series ();
  record.attitude_totals = collector_.totals ();
  warn_of_attitudes (&record, collector_.unusable ());
  for (Photo &photo : record.photos) {
    inspect_photo (&photo);
    if (!photo.error.empty ())
      record.warnings.push_back (name_in (record.folder, photo.path) + ": " + photo.error);
  }
  for (Recording &recording : record.recordings)
    inspect_recording (&recording);
  add_frames (&record);
  const Figures figures = figures_of (record);
  *error = write_files (record, figures);
  return summary_table (record, figures);
}

} // namespace report
