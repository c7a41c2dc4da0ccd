// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What a VornGstView holds, and its operations.
#ifndef VORN_FRAMEWORK_GST_VIEW_STATE_HPP
#define VORN_FRAMEWORK_GST_VIEW_STATE_HPP

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "recording_branch.hpp"
#include "recording_file.hpp"
#include "stream_branch.hpp"
#include "stream_units.hpp"
#include <vorn/gst_raii.hpp>
#include <vorn/gst_view.h>

namespace vorn
{

/** A pipeline whose bus the view watches. */
struct AttachedPipeline {
  Ref<GstElement> element;
  guint bus_watch = 0;
};

/** A pad of the product's and the branch's pad that is linked to it. */
struct BranchLink {
  Ref<GstPad> source;
  Ref<GstPad> sink;
};

/** The framework's thread's where nothing else is said. */
struct GstViewState {
  std::vector<AttachedPipeline> attached;
  Ref<GstPad> streaming_pad;
  Ref<GstPad> recording_pad;
  std::string streaming_preset;
  std::string recording_preset;
  guint recording_bitrate = 0; // bit/s; 0: the preset's

  // Guards the pointers to the branches and the location for who comes from other threads. Held for
  // moments, never while anything is called that waits.
  GMutex lock;
  std::unique_ptr<StreamBranch> stream;
  std::unique_ptr<RecordingBranch> recording;
  std::string recording_location;

  Ref<GstElement> tee; // of our own, for a pad that feeds both
  std::vector<BranchLink> links;
  std::optional<RecordingFile> file; // while a recording runs
  StreamUnits units;                 // thread-safe

  guint restart_timer = 0; // of a stream whose pipeline has failed
  guint restart_wait_ms = 500;
  gint64 restarted_us = 0;

  GstViewState () { g_mutex_init (&lock); }
  ~GstViewState () { g_mutex_clear (&lock); }
};

GstViewState &gst_view_state (VornGstView *view);

/** Fills the operations of VornView. */
void gst_view_fill_operations (VornViewClass *klass);

/** Builds the branches for the source pads; false, with an error logged, when that fails, nothing
 * is left then. */
bool gst_view_build_branches (VornGstView *view);

/** Takes the branches out of their pipelines and lets go of the pads. */
void gst_view_remove_branches (VornGstView *view);

/**
 * Ends a running recording; its last event follows when the file has its final name. reason: why it
 * ends before its time, NULL when it is ended in order.
 */
void gst_view_end_recording (VornGstView *view, const GError *reason);

/** What a bus message of an attached pipeline means for a running recording. */
void gst_view_watch_recording (VornGstView *view, GstMessage *message);

/**
 * Starts a stream's pipeline again that has failed: after 0.5 s, then 1 s and so on up to 5 s; ten
 * seconds without an error reset the wait.
 */
void gst_view_watch_stream (VornGstView *view, GstMessage *message);

/** Lets a pipeline that waits to be started again be. */
void gst_view_forget_restart (VornGstView *view);

} // namespace vorn

#endif
