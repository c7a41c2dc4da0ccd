// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "camera_control.hpp"

#include <algorithm>
#include <utility>

#include "mode_argument.hpp"

CameraControl::CameraControl (VornProduct *product, VornVirtualCamera *camera, VornView *view,
                              ControlTimeouts timeouts)
    : product_ (product), camera_ (camera), view_ (view), timeouts_ (timeouts)
{
  record_handler_ =
      g_signal_connect (view, "record-event", G_CALLBACK (CameraControl::record_event), this);
  snapshot_handler_ =
      g_signal_connect (view, "snapshot-event", G_CALLBACK (CameraControl::snapshot_event), this);
}

CameraControl::~CameraControl ()
{
  g_signal_handler_disconnect (view_, record_handler_);
  g_signal_handler_disconnect (view_, snapshot_handler_);
  end ();
}

void CameraControl::end ()
{
  if (next_shot_)
    g_source_remove (std::exchange (next_shot_, 0u));
  for (Waiting *waiting : {&recording_, &photo_})
    finish (waiting, HostError{HostErrorCode::failed, "the host ends"});
}

void CameraControl::wait (Waiting *waiting, Waiting::For what, guint timeout_ms, Done done)
{
  *waiting = {};
  waiting->what = what;
  waiting->done = std::move (done);
  struct Alarm {
    CameraControl *control;
    Waiting *waiting;
  };
  waiting->timeout = g_timeout_add_full (
      G_PRIORITY_DEFAULT, timeout_ms,
      [] (gpointer data) -> gboolean {
        const auto *alarm = static_cast<Alarm *> (data);
        alarm->waiting->timeout = 0;
        const bool photo = alarm->waiting->what == Waiting::For::photo;
        alarm->control->finish (
            alarm->waiting,
            HostError{HostErrorCode::timed_out,
                      photo ? "the picture was asked for, but the view did not tell its end"
                            : "the view was told, but did not answer in time"});
        return G_SOURCE_REMOVE;
      },
      new Alarm{this, waiting}, [] (gpointer data) { delete static_cast<Alarm *> (data); });
}

void CameraControl::finish (Waiting *waiting, std::optional<HostError> error)
{
  if (waiting->what == Waiting::For::nothing)
    return;
  // Whoever is told may ask for the next thing at once.
  const Waiting ended = std::exchange (*waiting, Waiting ());
  if (ended.timeout)
    g_source_remove (ended.timeout);
  ended.done ({std::move (error), ended.files});
}

/** Why the view cannot do this now. */
std::optional<HostError> CameraControl::refusal (const char *what, guint32 feature) const
{
  if (!vorn_view_is_prepared (view_))
    return HostError{HostErrorCode::refused,
                     std::string ("no ") + what + ": the view is not prepared, the log tells why"};
  if (!vorn_view_check_feature (view_, feature))
    return HostError{
        HostErrorCode::refused,
        std::string ("no ") + what + " in the mode '" +
            camera_mode_argument (*vorn_virtual_camera_get_mode (camera_)) + "': set a " +
            (feature == VORN_VIEW_FEATURE_SNAPSHOT ? "photo" : "recording") + " mode first"};
  return std::nullopt;
}

static HostError view_refused (const char *what)
{
  return {HostErrorCode::failed, std::string (what) + ": the view refused, the log tells why"};
}

void CameraControl::start_recording (Done done)
{
  auto error = refusal ("recording", VORN_VIEW_FEATURE_RECORDING);
  if (!error && recording_.what == Waiting::For::record_stop)
    error = HostError{HostErrorCode::busy, "the former recording is being finished"};
  else if (!error &&
           (vorn_view_is_recording (view_) || recording_.what == Waiting::For::record_start))
    error = HostError{HostErrorCode::busy, "a recording runs already"};
  else if (!error && vorn_view_is_taking_picture (view_))
    error = HostError{HostErrorCode::busy, "a picture is being taken"};
  if (error)
    return done ({error, {}});
  // Before the call: the event may come while it runs.
  wait (&recording_, Waiting::For::record_start, timeouts_.record_start, std::move (done));
  if (!vorn_view_start_recording (view_))
    return finish (&recording_, view_refused ("recording"));
  vorn_view_make_thumbnail (view_);
}

void CameraControl::stop_recording (Done done)
{
  if (recording_.what == Waiting::For::record_stop)
    return done ({HostError{HostErrorCode::busy, "the recording is being finished already"}, {}});
  if (!vorn_view_is_recording (view_))
    return done ({HostError{HostErrorCode::refused, "no recording runs"}, {}});
  finish (&recording_, HostError{HostErrorCode::failed, "the recording was stopped"});
  wait (&recording_, Waiting::For::record_stop, timeouts_.record_stop, std::move (done));
  if (!vorn_view_stop_recording (view_, 0))
    finish (&recording_, view_refused ("end of the recording"));
}

void CameraControl::take_photo (const PhotoRequest &request, Done done)
{
  auto error = refusal ("photos", VORN_VIEW_FEATURE_SNAPSHOT);
  if (request.count < 1)
    error = HostError{HostErrorCode::invalid, "at least one picture is needed"};
  else if (!error && (photo_.what != Waiting::For::nothing || vorn_view_is_taking_picture (view_)))
    error = HostError{HostErrorCode::busy, "a picture is being taken already"};
  if (error)
    return done ({error, {}});
  wait (&photo_, Waiting::For::photo, timeouts_.snapshot * request.count, std::move (done));
  photo_.request = request;
  shoot ();
}

/** The next picture of the group. */
void CameraControl::shoot ()
{
  const bool panorama = photo_.request.grouping == VORN_PHOTO_GROUPING_PANORAMA;
  const std::string type = photo_.request.panorama_type;
  const VornSnapshotRequest request = {
      .photo_grouping = photo_.request.grouping,
      .sequence_number = photo_.next++,
      .panorama_type = panorama ? type.c_str () : nullptr,
      .shot_count = panorama ? photo_.request.count : guint16{0},
  };
  if (!vorn_view_take_snapshot (view_, &request))
    finish (&photo_, view_refused ("picture"));
}

static std::string text_of (const GError *error)
{
  return error ? error->message : "the view gave no reason";
}

void CameraControl::record_event (VornView *, guint event, const gchar *file, const GError *error,
                                  gpointer self)
{
  auto *control = static_cast<CameraControl *> (self);
  Waiting *waiting = &control->recording_;
  if (file)
    waiting->files = {file};
  if (event == VORN_RECORD_EVENT_FAILED)
    control->finish (waiting, HostError{HostErrorCode::failed, "recording: " + text_of (error)});
  else if ((event == VORN_RECORD_EVENT_STARTED && waiting->what == Waiting::For::record_start) ||
           (event == VORN_RECORD_EVENT_STOPPED && waiting->what == Waiting::For::record_stop))
    control->finish (waiting, std::nullopt);
  else if (event == VORN_RECORD_EVENT_STOPPED)
    control->finish (
        waiting, HostError{HostErrorCode::failed, "the recording ended before its first frame"});
  if (control->on_record_event)
    control->on_record_event (event, file, error);
}

void CameraControl::snapshot_event (VornView *, guint event, gchar **files, const GError *error,
                                    gpointer self)
{
  auto *control = static_cast<CameraControl *> (self);
  Waiting *waiting = &control->photo_;
  std::vector<std::string> names;
  for (gchar **file = files; file && *file; file++)
    names.emplace_back (*file);
  // A picture is named when it is taken, when it is done, or both times.
  for (const std::string &name : names)
    if (std::find (waiting->files.begin (), waiting->files.end (), name) == waiting->files.end ())
      waiting->files.push_back (name);
  if (event == VORN_SNAPSHOT_EVENT_FAILED)
    control->finish (waiting, HostError{HostErrorCode::failed, "picture: " + text_of (error)});
  else if (event == VORN_SNAPSHOT_EVENT_DONE && waiting->what == Waiting::For::photo) {
    if (waiting->next < waiting->request.count)
      // Not within the event: the view is still about to end this one.
      control->next_shot_ = g_idle_add (
          [] (gpointer data) -> gboolean {
            auto *later = static_cast<CameraControl *> (data);
            later->next_shot_ = 0;
            if (later->photo_.what == Waiting::For::photo)
              later->shoot ();
            return G_SOURCE_REMOVE;
          },
          control);
    else
      control->finish (waiting, std::nullopt);
  }
  if (control->on_snapshot_event)
    control->on_snapshot_event (event, names, error);
}

std::optional<HostError> CameraControl::set_mode (const VornCameraMode &mode)
{
  if (vorn_view_is_recording (view_))
    return HostError{HostErrorCode::busy, "a recording runs: stop it first"};
  if (vorn_view_is_taking_picture (view_))
    return HostError{HostErrorCode::busy, "a picture is being taken"};
  if (!vorn_virtual_camera_set_mode (camera_, &mode))
    return HostError{HostErrorCode::refused, "the camera has no mode '" +
                                                 camera_mode_argument (mode) +
                                                 "': 'vorn-host modes' shows which there are"};
  return std::nullopt;
}

bool CameraControl::has_magic_carpet () const
{
  GKeyFile *settings = vorn_product_get_settings (product_);
  return !settings || g_key_file_has_group (settings, "camera-vertical");
}

std::optional<HostError> CameraControl::set_magic_carpet (bool active)
{
  if (!has_magic_carpet ())
    return HostError{HostErrorCode::refused,
                     "no vertical camera: the configuration has no group 'camera-vertical'"};
  if (!vorn_product_set_magic_carpet_active (product_, active))
    return HostError{HostErrorCode::failed, std::string ("the magic carpet cannot be switched ") +
                                                (active ? "on" : "off") + ", the log tells why"};
  return std::nullopt;
}
