/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * Pipelines of a product. One that a view runs is only named and kept; one that nobody else runs is
 * played by the framework: its bus is watched, and after an error or an end of stream it is started
 * again with back-off. Bound to the framework's thread.
 */
#ifndef VORN_PIPELINE_H
#define VORN_PIPELINE_H

#include <gst/gst.h>

#include <vorn/api.h>

VORN_BEGIN_DECLS

/** A new empty pipeline; the caller owns the (full) reference. */
VORN_API GstElement *vorn_pipeline_new (const gchar *name, gboolean run_by_view);

/** TRUE when a view runs the pipeline, FALSE when the framework does. */
VORN_API gboolean vorn_pipeline_is_run_by_view (GstElement *pipeline);

/**
 * Plays a pipeline until vorn_pipeline_stop: watches its bus, logs its errors, and starts it again
 * after 0.5 s, then 1 s, 2 s and so on up to 30 s; ten seconds without an error reset the wait.
 */
VORN_API void vorn_pipeline_play (GstElement *pipeline);

/** Takes a pipeline to NULL and stops watching it. Does nothing when it was not played. */
VORN_API void vorn_pipeline_stop (GstElement *pipeline);

VORN_END_DECLS

#endif
