// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A stream whose pipeline fails comes back by itself: a camera that went away may have returned.
#include "gst_view_state.hpp"

#include <algorithm>

#include <vorn/log.h>

VORN_LOG_TAG ("vorn_gst_view");

namespace vorn
{

namespace
{

constexpr guint first_wait_ms = 500;
constexpr guint longest_wait_ms = 5000;
constexpr gint64 calm_time_us = 10 * G_USEC_PER_SEC;

Ref<GstElement> stream_pipeline (const GstViewState &state)
{
  if (!state.stream)
    return {};
  Ref<GstObject> top = share (GST_OBJECT (state.stream->bin ()));
  while (auto parent = adopt (gst_object_get_parent (top.get ())))
    top = std::move (parent);
  return share (GST_ELEMENT (top.get ()));
}

gboolean restart (gpointer data)
{
  auto *view = VORN_GST_VIEW (data);
  GstViewState &state = gst_view_state (view);
  state.restart_timer = 0;
  const auto pipeline = stream_pipeline (state);
  // A recording that was started meanwhile has restarted the pipeline.
  if (!pipeline || !vorn_view_is_streaming (VORN_VIEW (view)) ||
      vorn_view_is_recording (VORN_VIEW (view)))
    return G_SOURCE_REMOVE;
  state.restarted_us = g_get_monotonic_time ();
  gst_element_set_state (pipeline.get (), GST_STATE_NULL);
  // Why it fails, if it does, comes as a message, and so will the next turn.
  gst_element_set_state (pipeline.get (), GST_STATE_PLAYING);
  return G_SOURCE_REMOVE;
}

} // namespace

void gst_view_watch_stream (VornGstView *view, GstMessage *message)
{
  GstViewState &state = gst_view_state (view);
  if (GST_MESSAGE_TYPE (message) != GST_MESSAGE_ERROR || state.restart_timer != 0 ||
      !vorn_view_is_streaming (VORN_VIEW (view)))
    return;
  const auto pipeline = stream_pipeline (state);
  if (!pipeline || !GST_MESSAGE_SRC (message) ||
      !gst_object_has_as_ancestor (GST_MESSAGE_SRC (message), GST_OBJECT (pipeline.get ())))
    return;
  if (g_get_monotonic_time () - state.restarted_us >= calm_time_us)
    state.restart_wait_ms = first_wait_ms;
  VORN_LOG_WARNING ("view '%s': the stream starts again in %u ms",
                    vorn_view_get_name (VORN_VIEW (view)), state.restart_wait_ms);
  state.restart_timer = g_timeout_add (state.restart_wait_ms, restart, view);
  state.restart_wait_ms = std::min (2 * state.restart_wait_ms, longest_wait_ms);
}

void gst_view_forget_restart (VornGstView *view)
{
  guint &timer = gst_view_state (view).restart_timer;
  if (timer != 0)
    g_source_remove (std::exchange (timer, 0u));
}

} // namespace vorn
