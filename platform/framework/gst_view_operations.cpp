// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The view's operations on its branches.
#include "gst_view_state.hpp"

#include <glib/gstdio.h>

#include "framework_thread.hpp"
#include "internal.hpp"
#include "recording_finish.hpp"
#include <vorn/log.h>
#include <vorn/utils.h>

VORN_LOG_TAG ("vorn_gst_view");

namespace vorn
{

namespace
{

bool refuse (VornView *view, const char *what, const char *reason)
{
  VORN_LOG_ERROR ("view '%s': %s failed: %s", vorn_view_get_name (view), what, reason);
  return false;
}

GstViewState &state_of (VornView *view)
{
  return gst_view_state (VORN_GST_VIEW (view));
}

gboolean prepare (VornView *view)
{
  return gst_view_build_branches (VORN_GST_VIEW (view));
}

gboolean unprepare (VornView *)
{
  return TRUE; // the framework has taken everything down by now
}

bool is_complete (const VornFormat &format)
{
  return format.resolution.width != 0 && format.resolution.height != 0 &&
         format.framerate.num != 0 && format.framerate.den != 0;
}

bool is_equal (const VornFormat &a, const VornFormat &b)
{
  return a.resolution.width == b.resolution.width && a.resolution.height == b.resolution.height &&
         a.framerate.num == b.framerate.num && a.framerate.den == b.framerate.den;
}

gboolean stream_setup (VornView *view, VornStreamSetup *setup)
{
  GstViewState &state = state_of (view);
  if (!state.stream)
    return refuse (view, "stream", "it has no streaming branch");
  if (setup->client_address != 0 && (setup->client_port == 0 || setup->client_port > G_MAXUINT16))
    return refuse (view, "stream", "the client's port is out of range");
  // A format of the set-up's own goes the way of any other.
  if (is_complete (setup->format) && !is_equal (setup->format, state.stream->chain ().format ()) &&
      !vorn_view_set_streaming_format (view, &setup->format))
    return refuse (view, "stream", "its format is refused");
  setup->live = 1;
  state.stream->open (*setup);
  return TRUE;
}

gboolean stream_teardown (VornView *view, const gchar *)
{
  GstViewState &state = state_of (view);
  if (state.stream)
    state.stream->close ();
  // The product stops the pipeline that both branches are in.
  gst_view_end_recording (VORN_GST_VIEW (view), nullptr);
  return TRUE;
}

gboolean stream_set_params (VornView *view, const VornStreamParameters *parameters)
{
  GstViewState &state = state_of (view);
  if (!state.stream)
    return refuse (view, "stream parameters", "it has no streaming branch");
  state.stream->chain ().set_bitrate (parameters->bitrate);
  return TRUE;
}

gboolean start_recording (VornView *view)
{
  GstViewState &state = state_of (view);
  if (!state.recording)
    return refuse (view, "recording", "it has no recording branch");
  if (state.file)
    return refuse (view, "recording", "the former one has not ended");
  ErrorOut error;
  auto file = RecordingFile::create (recordings_folder (), error.out ());
  if (!file)
    return refuse (view, "recording", error.message ());
  {
    const Lock lock (&state.lock);
    state.recording_location = file->final_path ();
  }
  state.file = std::move (file);
  if (state.recording->start (state.file->part_path (), error.out ()))
    return TRUE;
  g_unlink (state.file->part_path ().c_str ());
  state.file.reset ();
  return refuse (view, "recording", error.message ());
}

gboolean stop_recording (VornView *view, guint32)
{
  gst_view_end_recording (VORN_GST_VIEW (view), nullptr);
  return TRUE;
}

gboolean set_streaming_format (VornView *view, const VornFormat *format)
{
  GstViewState &state = state_of (view);
  if (!state.stream)
    return refuse (view, "streaming format", "it has no streaming branch");
  state.stream->chain ().set_format (format);
  return TRUE;
}

gboolean set_recording_format (VornView *view, const VornFormat *format)
{
  GstViewState &state = state_of (view);
  if (!state.recording)
    return refuse (view, "recording format", "it has no recording branch");
  state.recording->chain ().set_format (format);
  return TRUE;
}

void set_format_of (EncodingChain &chain, const VornFormat &format)
{
  if (!is_equal (chain.format (), format))
    chain.set_format (is_complete (format) ? &format : nullptr);
}

/** Why a recording has failed, in the framework's terms; nothing when it has not. */
std::shared_ptr<GError> failure_of (const RecordedFile &ended, const GError *reason)
{
  GError *error = nullptr;
  if (ended.no_space_left ())
    error = vorn_resource_error_new (VORN_RESOURCE_ERROR_NO_SPACE_LEFT, ended.error->message);
  else if (ended.error || reason)
    error = vorn_resource_error_new (VORN_RESOURCE_ERROR_FAILED,
                                     ended.error ? ended.error->message : reason->message);
  else if (!ended.has_pictures)
    error = vorn_resource_error_new (VORN_RESOURCE_ERROR_FAILED,
                                     "it was ended before its first picture");
  return std::shared_ptr<GError> (error, [] (GError *owned) { g_clear_error (&owned); });
}

void report_end (VornGstView *view, const std::string &name, const GError *error)
{
  if (error)
    VORN_LOG_ERROR ("view '%s': recording %s failed: %s", vorn_view_get_name (VORN_VIEW (view)),
                    name.c_str (), error->message);
  view_emit_record_event (VORN_VIEW (view),
                          error ? VORN_RECORD_EVENT_FAILED : VORN_RECORD_EVENT_STOPPED,
                          name.c_str (), error);
}

} // namespace

ViewFormats gst_view_take_formats (VornGstView *view)
{
  const GstViewState &state = gst_view_state (view);
  ViewFormats formats;
  if (state.stream)
    formats.streaming = state.stream->chain ().format ();
  if (state.recording)
    formats.recording = state.recording->chain ().format ();
  gst_view_set_formats (view, {});
  return formats;
}

void gst_view_set_formats (VornGstView *view, const ViewFormats &formats)
{
  const GstViewState &state = gst_view_state (view);
  if (state.stream)
    set_format_of (state.stream->chain (), formats.streaming);
  if (state.recording)
    set_format_of (state.recording->chain (), formats.recording);
}

void gst_view_end_recording (VornGstView *view, const GError *reason)
{
  GstViewState &state = gst_view_state (view);
  if (!state.file)
    return;
  const RecordedFile ended = state.recording->end ();
  RecordingFile file = *std::exchange (state.file, {});
  const std::string name = file.final_path ();
  const auto failure = failure_of (ended, reason);
  const WeakRef<VornGstView> weak (view);
  if (!ended.has_pictures) {
    g_unlink (file.part_path ().c_str ());
    call_later ([weak, name, failure] {
      if (const auto held = weak.get ())
        report_end (held.get (), name, failure.get ());
    });
  } else {
    finish_recording_in_background ({std::move (file), ended.tags, ended.no_space_left ()},
                                    [weak, name, failure] (const GError *error) {
                                      if (const auto held = weak.get ())
                                        report_end (held.get (), name,
                                                    failure ? failure.get () : error);
                                    });
  }
  view_set_recording (VORN_VIEW (view), false);
}

void gst_view_watch_recording (VornGstView *view, GstMessage *message)
{
  const GstViewState &state = gst_view_state (view);
  if (!state.file)
    return;
  GstObject *source = GST_MESSAGE_SRC (message);
  if (GST_MESSAGE_TYPE (message) == GST_MESSAGE_ELEMENT &&
      source == GST_OBJECT (state.recording->bin ())) {
    const GstStructure *structure = gst_message_get_structure (message);
    if (structure && gst_structure_has_field (structure, "error"))
      gst_view_end_recording (view, nullptr); // it knows the error itself
    return;
  }
  if (GST_MESSAGE_TYPE (message) != GST_MESSAGE_ERROR)
    return;
  // Only what happens in the pipeline that is recorded.
  Ref<GstObject> top = share (GST_OBJECT (state.recording->bin ()));
  while (auto parent = adopt (gst_object_get_parent (top.get ())))
    top = std::move (parent);
  if (!source || !gst_object_has_as_ancestor (source, top.get ()))
    return;
  ErrorOut error;
  gst_message_parse_error (message, error.out (), nullptr);
  gst_view_end_recording (view, error.operator->());
}

void gst_view_fill_operations (VornViewClass *klass)
{
  klass->prepare = prepare;
  klass->unprepare = unprepare;
  klass->stream_setup = stream_setup;
  klass->stream_teardown = stream_teardown;
  klass->stream_set_params = stream_set_params;
  klass->start_recording = start_recording;
  klass->stop_recording = stop_recording;
  klass->set_streaming_format = set_streaming_format;
  klass->set_recording_format = set_recording_format;
}

} // namespace vorn
