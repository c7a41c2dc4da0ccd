// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "pipeline_graphs.hpp"

#include <algorithm>
#include <atomic>

#include <vorn/log.h>

VORN_LOG_TAG ("pipeline_graphs");

namespace
{

/** A pipeline that fails over and over leaves no more than this many graphs. */
constexpr unsigned most_graphs = 20;

struct Destination {
  std::string folder;
  std::atomic<unsigned> graphs = 0;
};

/** The pipeline that an object is in. */
GstElement *pipeline_of (GstObject *object)
{
  while (object && GST_OBJECT_PARENT (object))
    object = GST_OBJECT_PARENT (object);
  return object && GST_IS_PIPELINE (object) ? GST_ELEMENT (object) : nullptr;
}

void write_graph (GstElement *pipeline, Destination *destination)
{
  const unsigned number = ++destination->graphs;
  if (number > most_graphs)
    return;
  const std::string path = destination->folder + "/failed-" + GST_OBJECT_NAME (pipeline) + "-" +
                           std::to_string (number) + ".dot";
  const vorn::OwnedString graph (
      gst_debug_bin_to_dot_data (GST_BIN (pipeline), GST_DEBUG_GRAPH_SHOW_ALL));
  g_mkdir_with_parents (destination->folder.c_str (), 0777);
  vorn::ErrorOut error;
  if (g_file_set_contents (path.c_str (), graph.get (), -1, error.out ()))
    VORN_LOG_ERROR ("pipeline '%s' failed, its graph is in %s", GST_OBJECT_NAME (pipeline),
                    path.c_str ());
  else
    VORN_LOG_ERROR ("pipeline '%s' failed, and its graph cannot be written: %s",
                    GST_OBJECT_NAME (pipeline), error.message ());
}

/** On the thread that failed: the view takes the pipeline down once it hears of it. */
void on_error (GstBus *, GstMessage *message, gpointer destination)
{
  if (GstElement *pipeline = pipeline_of (GST_MESSAGE_SRC (message)))
    write_graph (pipeline, static_cast<Destination *> (destination));
}

} // namespace

void PipelineGraphs::stop_watching (const Watched &one)
{
  g_signal_handler_disconnect (one.bus.get (), one.handler);
  gst_bus_disable_sync_message_emission (one.bus.get ());
}

PipelineGraphs::~PipelineGraphs ()
{
  std::for_each (watched_.begin (), watched_.end (), stop_watching);
}

void PipelineGraphs::watch (GstElement *pipeline)
{
  Watched one = {vorn::adopt (gst_element_get_bus (pipeline)), 0};
  const auto is_this = [&one] (const Watched &other) { return other.bus.get () == one.bus.get (); };
  if (!one.bus || std::any_of (watched_.begin (), watched_.end (), is_this))
    return;
  // The view has its own watch on this bus; this one only looks on.
  gst_bus_enable_sync_message_emission (one.bus.get ());
  one.handler = g_signal_connect_data (
      one.bus.get (), "sync-message::error", G_CALLBACK (on_error),
      new Destination{.folder = folder_},
      [] (gpointer data, GClosure *) { delete static_cast<Destination *> (data); },
      static_cast<GConnectFlags> (0));
  watched_.push_back (std::move (one));
}

void PipelineGraphs::watch_view (VornGstView *view)
{
  forget_unused ();
  for (const VornPipelineKind kind : {VORN_PIPELINE_KIND_STREAMING, VORN_PIPELINE_KIND_RECORDING})
    if (GstPad *pad = vorn_gst_view_get_source_pad (view, kind))
      if (GstElement *pipeline = pipeline_of (GST_OBJECT (pad)))
        watch (pipeline);
}

/** Buses of pipelines that are gone. */
void PipelineGraphs::forget_unused ()
{
  std::erase_if (watched_, [] (const Watched &one) {
    if (GST_OBJECT_REFCOUNT_VALUE (one.bus.get ()) > 1)
      return false;
    stop_watching (one);
    return true;
  });
}
