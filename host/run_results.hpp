// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What a run leaves behind when it is to be reported, and the show that it can play.
#ifndef HOST_RUN_RESULTS_HPP
#define HOST_RUN_RESULTS_HPP

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "camera_control.hpp"
#include "report/run_report.hpp"
#include "show.hpp"

/** Hears of the recordings and photos of a view and reports them. Bound to the framework's thread.
 */
class RunResults
{
public:
  /** Must outlive the view. The folder is made when it is missing. NULL with the reason. */
  static std::unique_ptr<RunResults> make (const report::RunReportOptions &options, VornView *view,
                                           std::string *error);
  RunResults (const RunResults &) = delete;
  RunResults &operator= (const RunResults &) = delete;

  report::RunReport &report () { return report_; }

private:
  RunResults (const report::RunReportOptions &options, VornView *view);
  static void on_record_event (VornView *view, guint event, const gchar *file, const GError *error,
                               gpointer self);
  static void on_snapshot_event (VornView *view, guint event, gchar **files, const GError *error,
                                 gpointer self);

  report::RunReport report_;
};

/** The standard show with this camera; what it cannot do is left out. control must outlive it. */
std::vector<ShowStep> make_show (CameraControl *control, double duration_s);

/** A step's news in words. */
std::string text_of (const ShowNews &news);

#endif
