// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * The results of a run, for the host: takes in what happens while the run goes on, and writes at
 * the end summary.json, frames.csv, attitude.csv and report.html beside the recordings and photos.
 *
 *     RunReport report ({.folder = "out/2026-11-20T14-03-27", .meta = {{"build", "full"}}});
 *     report.add_status (sample);                 // once a second; printed by the caller
 *     report.add_photo (path, "burst");
 *     report.add_recording (path);                // once its file is finished
 *     std::string error;
 *     fputs (report.finish (&error).c_str (), stdout);
 */
#ifndef HOST_REPORT_RUN_REPORT_HPP
#define HOST_REPORT_RUN_REPORT_HPP

#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "attitude_collector.hpp"
#include "record.hpp"

namespace report
{

struct RunReportOptions {
  std::string folder; // is there already; recordings and photos lie in it or below it
  std::vector<std::pair<std::string, std::string>> meta; // shown as they are
  std::string no_attitude_reason; // not empty: nobody computes attitudes in this run, and why
};

/**
 * Collects from when it is made, attitudes by itself (of the namespace that is current then). The
 * functions are thread-safe, but finish () comes last and from one thread.
 */
class RunReport
{
public:
  explicit RunReport (const RunReportOptions &options);

  /** The run's pair of clocks, as summary.json will have it. */
  const ClockPair &clock () const { return record_.clock; }

  /**
   * The state of the second that has just ended. What it leaves out of time and attitude is filled
   * in; the sample as it was kept is returned, for the line on the terminal (status_line).
   */
  StatusSample add_status (StatusSample sample);

  /**
   * When a frame was captured, CLOCK_MONOTONIC, in order of time: optional, makes the times in
   * frames.csv exact where a recording has them only to a tick of its clock.
   */
  void add_capture (int64_t capture_ns);

  /** A photo's file that is complete; group as people name it: "single", "burst". */
  void add_photo (const std::string &path, const std::string &group = {});
  /** A recording's file that is complete. */
  void add_recording (const std::string &path);
  /**
   * The recordings and photos (.mp4, .jpg) that lie in the folder or below it and have not been
   * added yet, by name; photos as old as their files.
   */
  void add_files_of_folder ();
  /** Something that is worth a mark in the charts; the moment is now. */
  void add_event (const std::string &text);
  /** Something that went wrong and that the reader should know. */
  void add_warning (const std::string &text);

  /** Also: what is only known later, the address of the stream say. */
  void set_meta (const std::string &name, const std::string &value);

  /**
   * Ends the collection, reads the recordings and photos, writes the files. Returns the table for
   * the terminal. error: empty, or what could not be written; the other files are written all the
   * same. To be called once; GStreamer must be initialised. Takes as long as reading all files.
   */
  std::string finish (std::string *error);

private:
  std::mutex mutex_; // guards the record; leaf lock
  RunRecord record_;
  AttitudeCollector collector_;
};

} // namespace report

#endif
