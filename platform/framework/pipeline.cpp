// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/pipeline.h>

#include <algorithm>

#include <vorn/gst_raii.hpp>
#include <vorn/log.h>

VORN_LOG_TAG ("vorn_pipeline");

namespace
{

constexpr guint first_wait_ms = 500;
constexpr guint longest_wait_ms = 30000;
constexpr gint64 calm_time_us = gint64{10} * G_USEC_PER_SEC;

/** What the framework keeps with a pipeline: who runs it, and while it plays it, watch and
 * back-off. */
struct Runner {
  GstElement *pipeline = nullptr; // borrowed: the runner lives in it
  bool run_by_view = false;
  guint bus_watch = 0;
  guint restart_timer = 0;
  guint wait_ms = first_wait_ms;
  gint64 started_us = 0;
};

GQuark runner_quark ()
{
  static const GQuark quark = g_quark_from_static_string ("vorn-pipeline-runner");
  return quark;
}

Runner *runner_of (GstElement *pipeline)
{
  return static_cast<Runner *> (g_object_get_qdata (G_OBJECT (pipeline), runner_quark ()));
}

void restart_later (Runner *runner);

void start (Runner *runner)
{
  runner->started_us = g_get_monotonic_time ();
  if (gst_element_set_state (runner->pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
    VORN_LOG_ERROR ("failed to start pipeline '%s'", GST_OBJECT_NAME (runner->pipeline));
    restart_later (runner);
  }
}

void restart_later (Runner *runner)
{
  if (runner->restart_timer != 0)
    return;
  gst_element_set_state (runner->pipeline, GST_STATE_NULL);
  if (g_get_monotonic_time () - runner->started_us >= calm_time_us)
    runner->wait_ms = first_wait_ms;
  VORN_LOG_WARNING ("pipeline '%s' starts again in %u ms", GST_OBJECT_NAME (runner->pipeline),
                    runner->wait_ms);
  runner->restart_timer = g_timeout_add (
      runner->wait_ms,
      [] (gpointer data) -> gboolean {
        auto *timed = static_cast<Runner *> (data);
        timed->restart_timer = 0;
        start (timed);
        return G_SOURCE_REMOVE;
      },
      runner);
  runner->wait_ms = std::min (runner->wait_ms * 2, longest_wait_ms);
}

gboolean on_bus_message (GstBus *, GstMessage *message, gpointer data)
{
  auto *runner = static_cast<Runner *> (data);
  if (GST_MESSAGE_TYPE (message) == GST_MESSAGE_ERROR) {
    vorn::ErrorOut error;
    gst_message_parse_error (message, error.out (), nullptr);
    VORN_LOG_ERROR ("pipeline '%s': %s: %s", GST_OBJECT_NAME (runner->pipeline),
                    GST_MESSAGE_SRC_NAME (message), error.message ());
    restart_later (runner);
  } else if (GST_MESSAGE_TYPE (message) == GST_MESSAGE_EOS) {
    VORN_LOG_WARNING ("pipeline '%s' has ended", GST_OBJECT_NAME (runner->pipeline));
    restart_later (runner);
  }
  return G_SOURCE_CONTINUE;
}

void unwatch (Runner *runner)
{
  for (guint *source : {&runner->bus_watch, &runner->restart_timer})
    if (*source != 0)
      g_source_remove (std::exchange (*source, 0u));
}

void free_runner (gpointer data)
{
  auto *runner = static_cast<Runner *> (data);
  unwatch (runner);
  delete runner;
}

} // namespace

GstElement *vorn_pipeline_new (const gchar *name, gboolean run_by_view)
{
  auto pipeline = vorn::adopt (gst_pipeline_new (name));
  auto *runner = new Runner;
  runner->pipeline = pipeline.get ();
  runner->run_by_view = run_by_view;
  g_object_set_qdata_full (G_OBJECT (pipeline.get ()), runner_quark (), runner, free_runner);
  return pipeline.release ();
}

gboolean vorn_pipeline_is_run_by_view (GstElement *pipeline)
{
  g_return_val_if_fail (GST_IS_PIPELINE (pipeline), TRUE);
  const Runner *runner = runner_of (pipeline);
  return !runner || runner->run_by_view;
}

void vorn_pipeline_play (GstElement *pipeline)
{
  g_return_if_fail (GST_IS_PIPELINE (pipeline));
  Runner *runner = runner_of (pipeline);
  if (!runner || runner->bus_watch != 0)
    return;
  auto bus = vorn::adopt (gst_element_get_bus (pipeline));
  runner->bus_watch = gst_bus_add_watch (bus.get (), on_bus_message, runner);
  runner->wait_ms = first_wait_ms;
  start (runner);
}

void vorn_pipeline_stop (GstElement *pipeline)
{
  g_return_if_fail (GST_IS_PIPELINE (pipeline));
  Runner *runner = runner_of (pipeline);
  if (!runner || runner->bus_watch == 0)
    return;
  unwatch (runner);
  gst_element_set_state (pipeline, GST_STATE_NULL);
}
