// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The branches in the product's pipelines.
#include "gst_view_state.hpp"

#include "framework_thread.hpp"
#include "internal.hpp"
#include <vorn/log.h>

VORN_LOG_TAG ("vorn_gst_view");

namespace vorn
{

namespace
{

const char *name_of (VornGstView *view)
{
  return vorn_view_get_name (VORN_VIEW (view));
}

/** The bin in which the pad's element is; nothing, with an error logged, when there is none. */
Ref<GstElement> find_bin (VornGstView *view, GstPad *pad)
{
  const auto element = adopt (gst_pad_get_parent_element (pad));
  auto bin = adopt (element ? gst_object_get_parent (GST_OBJECT (element.get ())) : nullptr);
  if (!bin || !GST_IS_BIN (bin.get ())) {
    VORN_LOG_ERROR ("view '%s': source pad '%s' is in no pipeline", name_of (view),
                    GST_OBJECT_NAME (pad));
    return nullptr;
  }
  return adopt (GST_ELEMENT (bin.release ()));
}

/** Links a source pad to the pad "sink" of an element that is added beside it. */
bool link (VornGstView *view, GstPad *source, GstElement *element)
{
  const auto bin = find_bin (view, source);
  if (!bin)
    return false;
  gst_bin_add (GST_BIN (bin.get ()), element);
  BranchLink made = {share (source), adopt (gst_element_get_static_pad (element, "sink"))};
  const GstPadLinkReturn result = gst_pad_link (source, made.sink.get ());
  if (result != GST_PAD_LINK_OK) {
    VORN_LOG_ERROR ("view '%s': source pad '%s' cannot be linked to '%s': %s", name_of (view),
                    GST_OBJECT_NAME (source), GST_OBJECT_NAME (element),
                    gst_pad_link_get_name (result));
    gst_bin_remove (GST_BIN (bin.get ()), element);
    return false;
  }
  gst_view_state (view).links.push_back (std::move (made));
  return gst_element_sync_state_with_parent (element) != FALSE;
}

std::unique_ptr<StreamBranch> make_stream_branch (VornGstView *view)
{
  // The view takes the branch away before it goes itself.
  auto branch = std::make_unique<StreamBranch> (name_of (view), [view] (GstSample *unit) {
    gst_view_state (view).units.deliver (view, unit);
  });
  if (!branch->build ())
    return nullptr;
  branch->chain ().load_preset (gst_view_state (view).streaming_preset);
  return branch;
}

void report_start (VornGstView *view)
{
  // The name of now: by the time it is told, another recording may run.
  const OwnedString location (vorn_gst_view_get_recording_location (view));
  call_later ([weak = WeakRef<VornGstView> (view), name = std::string (location.get ())] {
    if (const auto held = weak.get ())
      view_emit_record_event (VORN_VIEW (held.get ()), VORN_RECORD_EVENT_STARTED, name.c_str (),
                              nullptr);
  });
}

void end_later (VornGstView *view)
{
  const OwnedString location (vorn_gst_view_get_recording_location (view));
  call_later ([weak = WeakRef<VornGstView> (view), name = std::string (location.get ())] {
    const auto held = weak.get ();
    if (!held)
      return;
    // It may have been told to end meanwhile, and the next one may run.
    const auto &file = gst_view_state (held.get ()).file;
    if (file && file->final_path () == name)
      gst_view_end_recording (held.get (), nullptr);
  });
}

std::unique_ptr<RecordingBranch> make_recording_branch (VornGstView *view)
{
  auto branch = std::make_unique<RecordingBranch> (
      name_of (view),
      RecordFile::Events{[view] { report_start (view); }, [view] { end_later (view); }});
  if (!branch->build ())
    return nullptr;
  const GstViewState &state = gst_view_state (view);
  branch->chain ().load_preset (state.recording_preset);
  branch->chain ().set_bitrate (state.recording_bitrate);
  return branch;
}

bool add_tee (VornGstView *view, GstPad *source)
{
  GstViewState &state = gst_view_state (view);
  state.tee = adopt (gst_element_factory_make ("tee", nullptr));
  if (!state.tee) {
    VORN_LOG_ERROR ("view '%s': the element 'tee' is missing", name_of (view));
    return false;
  }
  return link (view, source, state.tee.get ());
}

/** The pad that feeds one branch: the product's, or one of our tee behind it. */
Ref<GstPad> feed_of (GstViewState &state, const Ref<GstPad> &pad)
{
  return state.tee ? adopt (gst_element_request_pad_simple (state.tee.get (), "src_%u")) : pad;
}

bool build (VornGstView *view)
{
  GstViewState &state = gst_view_state (view);
  if (state.streaming_pad && state.streaming_pad.get () == state.recording_pad.get () &&
      !add_tee (view, state.streaming_pad.get ()))
    return false;
  if (state.streaming_pad) {
    auto branch = make_stream_branch (view);
    if (!branch || !link (view, feed_of (state, state.streaming_pad).get (), branch->bin ()))
      return false;
    const Lock lock (&state.lock);
    state.stream = std::move (branch);
  }
  if (state.recording_pad) {
    auto branch = make_recording_branch (view);
    if (!branch || !link (view, feed_of (state, state.recording_pad).get (), branch->bin ()))
      return false;
    const Lock lock (&state.lock);
    state.recording = std::move (branch);
  }
  return true;
}

/** Out of its pipeline, if that has not let go of it. */
void remove (GstElement *element)
{
  gst_element_set_state (element, GST_STATE_NULL);
  const auto parent = adopt (gst_object_get_parent (GST_OBJECT (element)));
  if (parent)
    gst_bin_remove (GST_BIN (parent.get ()), element);
}

} // namespace

bool gst_view_build_branches (VornGstView *view)
{
  if (build (view))
    return true;
  gst_view_remove_branches (view);
  return false;
}

void gst_view_remove_branches (VornGstView *view)
{
  GstViewState &state = gst_view_state (view);
  std::unique_ptr<StreamBranch> stream;
  std::unique_ptr<RecordingBranch> recording;
  {
    const Lock lock (&state.lock);
    stream = std::move (state.stream);
    recording = std::move (state.recording);
  }
  for (const BranchLink &made : std::exchange (state.links, {}))
    gst_pad_unlink (made.source.get (), made.sink.get ());
  if (stream)
    remove (stream->bin ());
  if (recording)
    remove (recording->bin ());
  if (state.tee)
    remove (state.tee.get ());
  state.tee.reset ();
}

} // namespace vorn
