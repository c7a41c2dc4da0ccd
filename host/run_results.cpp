// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "run_results.hpp"

#include <cerrno>

std::unique_ptr<RunResults> RunResults::make (const report::RunReportOptions &options,
                                              VornView *view, std::string *error)
{
  if (g_mkdir_with_parents (options.folder.c_str (), 0777) != 0) {
    *error = "--report: " + options.folder + ": " + g_strerror (errno);
    return nullptr;
  }
  return std::unique_ptr<RunResults> (new RunResults (options, view));
}

RunResults::RunResults (const report::RunReportOptions &options, VornView *view) : report_ (options)
{
  // Without a reference: the handlers go with the view.
  g_signal_connect (view, "record-event", G_CALLBACK (on_record_event), this);
  g_signal_connect (view, "snapshot-event", G_CALLBACK (on_snapshot_event), this);
}

static std::string reason_of (const GError *error)
{
  return error ? error->message : "no reason given";
}

void RunResults::on_record_event (VornView *, guint event, const gchar *file, const GError *error,
                                  gpointer self)
{
  report::RunReport &report = static_cast<RunResults *> (self)->report_;
  if (event == VORN_RECORD_EVENT_STOPPED && file)
    report.add_recording (file);
  if (event == VORN_RECORD_EVENT_FAILED)
    report.add_warning ("a recording failed: " + reason_of (error));
}

void RunResults::on_snapshot_event (VornView *view, guint event, gchar **files, const GError *error,
                                    gpointer self)
{
  report::RunReport &report = static_cast<RunResults *> (self)->report_;
  if (event == VORN_SNAPSHOT_EVENT_FAILED)
    report.add_warning ("a photo failed: " + reason_of (error));
  if (event != VORN_SNAPSHOT_EVENT_DONE)
    return;
  VornVirtualCamera *camera = vorn_view_get_parent (view);
  const VornCameraMode mode = camera ? *vorn_virtual_camera_get_mode (camera) : VornCameraMode{};
  const std::string group = mode.type == VORN_CAMERA_MODE_PHOTO
                                ? vorn_camera_mode_photo_get_name (mode.photo.photo_mode)
                                : "";
  for (gchar **file = files; file && *file; file++)
    report.add_photo (*file, group);
}

// ---- The show

constexpr guint16 burst_length = 5;

static Done to_done (ShowDone done)
{
  return [done = std::move (done)] (const Outcome &outcome) {
    done ({outcome.error ? outcome.error->message : "", outcome.files});
  };
}

static std::function<void (ShowDone)> set_mode (CameraControl *control, VornCameraMode mode)
{
  return [control, mode] (const ShowDone &done) {
    const auto error = control->set_mode (mode);
    done ({error ? error->message : "", {}});
  };
}

std::vector<ShowStep> make_show (CameraControl *control, double duration_s)
{
  VornVirtualCamera *camera = control->camera ();
  ShowActions actions;
  actions.start_recording = [control] (ShowDone done) {
    control->start_recording (to_done (std::move (done)));
  };
  actions.stop_recording = [control] (ShowDone done) {
    control->stop_recording (to_done (std::move (done)));
  };
  guint32 count = 0;
  const VornPhotoCapability *photos = vorn_virtual_camera_get_photo_capabilities (camera, &count);
  const VornDefaultPhotoMode *settings = vorn_virtual_camera_get_default_photo_mode (camera);
  VornCameraMode mode = {.type = VORN_CAMERA_MODE_PHOTO};
  mode.photo.count = 1;
  if (settings) {
    mode.photo.format = settings->format;
    mode.photo.file_format = settings->file_format;
  }
  if (vorn_camera_photo_capabilities_find (photos, count, &mode)) {
    actions.set_photo_mode = set_mode (control, mode);
    actions.take_photo = [control] (ShowDone done) {
      control->take_photo ({}, to_done (std::move (done)));
    };
  }
  mode.photo.photo_mode = VORN_PHOTO_MODE_BURST;
  mode.photo.count = settings && settings->burst_count ? settings->burst_count : 3;
  if (vorn_camera_photo_capabilities_find (photos, count, &mode)) {
    actions.set_burst_mode = set_mode (control, mode);
    actions.take_burst = [control] (ShowDone done) {
      control->take_photo ({VORN_PHOTO_GROUPING_BURST, burst_length, ""},
                           to_done (std::move (done)));
    };
  }
  if (control->has_magic_carpet ())
    actions.set_magic_carpet = [control] (bool active, const ShowDone &done) {
      const auto error = control->set_magic_carpet (active);
      done ({error ? error->message : "", {}});
    };
  actions.set_recording_mode = set_mode (control, *vorn_virtual_camera_get_mode (camera));
  return standard_show (actions, duration_s);
}

std::string text_of (const ShowNews &news)
{
  std::string text = news.step;
  if (news.what == ShowNews::What::failed)
    text += " failed: " + news.result.error;
  else if (news.what == ShowNews::What::skipped)
    text += " left out: " + news.result.error;
  for (const std::string &file : news.result.files)
    text += " " + file;
  return text;
}
