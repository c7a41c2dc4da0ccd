// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "recording_branch.hpp"

#include <gst/app/gstappsink.h>

namespace vorn
{

namespace
{

/** A recording should have every frame: a short want of processing power costs none. */
constexpr guint queue_frames = 8;
/** A fragment ends with a key frame; longer ones would lose more when the process is killed. */
constexpr guint longest_key_frame_interval_ms = 1000;

} // namespace

RecordingBranch::RecordingBranch (const std::string &view, RecordFile::Events events)
    : settings_ ({.name = "recordbin",
                  .view = view,
                  .what = "recording",
                  .queue_frames = queue_frames,
                  .scales = false,
                  .longest_key_frame_interval_ms = longest_key_frame_interval_ms}),
      chain_ (settings_), file_ (std::move (events)),
      bin_ (vorn::adopt (VORN_RECORD_BIN (
          g_object_new (VORN_TYPE_RECORD_BIN, "name", settings_.name.c_str (), nullptr))))
{
}

RecordingBranch::~RecordingBranch ()
{
  // Probes, callbacks and messages refer to this.
  gst_element_set_state (bin (), GST_STATE_NULL);
  record_bin_set_file (bin_.get (), nullptr);
}

bool RecordingBranch::build ()
{
  if (!chain_.build (GST_BIN (bin ())) || !file_.build (GST_BIN (bin ()), settings_.name) ||
      !build_units ())
    return false;
  record_bin_set_file (bin_.get (), &file_);
  return true;
}

bool RecordingBranch::build_units ()
{
  GstElement *sink = make_element (settings_, "appsink", "units");
  if (!sink)
    return false;
  gst_bin_add (GST_BIN (bin ()), sink);
  g_object_set (sink, "sync", FALSE, "async", FALSE, "enable-last-sample", FALSE, nullptr);
  GstAppSinkCallbacks callbacks = {};
  callbacks.new_sample = [] (GstAppSink *app_sink, gpointer data) {
    auto *branch = static_cast<RecordingBranch *> (data);
    const auto unit = vorn::adopt (gst_app_sink_pull_sample (app_sink));
    if (unit && branch->file_.write (unit.get ())) {
      auto &counters = branch->chain_.counters ();
      counters.frames_out++;
      counters.bytes += gst_buffer_get_size (gst_sample_get_buffer (unit.get ()));
    }
    return GST_FLOW_OK;
  };
  gst_app_sink_set_callbacks (GST_APP_SINK (sink), &callbacks, this, nullptr);
  return gst_element_link (chain_.tee (), sink);
}

bool RecordingBranch::start (const std::string &path, GError **error)
{
  if (!file_.start (path, error))
    return false;
  chain_.open (true);
  // Where the encoder has run before, its next key frame may be a second away.
  request_key_frame (chain_.encoder ());
  return true;
}

RecordedFile RecordingBranch::end ()
{
  chain_.open (false);
  return file_.end ();
}

} // namespace vorn
