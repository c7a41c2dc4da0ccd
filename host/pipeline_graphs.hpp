// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Leaves the graph of a pipeline that failed, as a file that Graphviz draws.
#ifndef HOST_PIPELINE_GRAPHS_HPP
#define HOST_PIPELINE_GRAPHS_HPP

#include <string>
#include <vector>

#include <gst/gst.h>

#include <vorn/gst_view.h>
#include <vorn/raii.hpp>

/** Bound to the framework's thread. */
class PipelineGraphs
{
public:
  /** folder: where the files go; made when it is missing. */
  explicit PipelineGraphs (std::string folder) : folder_ (std::move (folder)) {}
  ~PipelineGraphs ();
  PipelineGraphs (const PipelineGraphs &) = delete;
  PipelineGraphs &operator= (const PipelineGraphs &) = delete;

  /** Watches a pipeline until it goes; once more does nothing. */
  void watch (GstElement *pipeline);
  /** Watches the pipelines that the view runs now; to be called whenever they may have changed. */
  void watch_view (VornGstView *view);

private:
  /** A bus alone: what is kept must not keep a pipeline. */
  struct Watched {
    vorn::Ref<GstBus> bus;
    gulong handler;
  };
  static void stop_watching (const Watched &one);
  void forget_unused ();

  std::string folder_;
  std::vector<Watched> watched_;
};

#endif
