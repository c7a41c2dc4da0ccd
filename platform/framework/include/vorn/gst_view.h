/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * A view made of GStreamer pipelines. The product builds pipelines, attaches them and names the
 * pads that give raw frames; the framework dispatches their bus messages on its thread. Implements
 * GInitable. Properties: "streaming-preset" and "recording-preset" (strings), "recording-bitrate"
 * (bit/s, read and write), "streaming-encoder" and "recording-encoder" (elements, read only, NULL
 * before there is one).
 */
#ifndef VORN_GST_VIEW_H
#define VORN_GST_VIEW_H

#include <gst/gst.h>

#include <vorn/api.h>
#include <vorn/view.h>

VORN_BEGIN_DECLS

#define VORN_TYPE_GST_VIEW (vorn_gst_view_get_type ())
VORN_API G_DECLARE_DERIVABLE_TYPE (VornGstView, vorn_gst_view, VORN, GST_VIEW, VornView)

    /** What a source pad feeds: bits. */
    typedef enum {
      VORN_PIPELINE_KIND_STREAMING = 1,
      VORN_PIPELINE_KIND_RECORDING = 2,
      VORN_PIPELINE_KIND_BOTH = 3,
    } VornPipelineKind;

struct _VornGstViewClass {
  VornViewClass parent_class;
  /**
   * A message from the bus of an attached pipeline, on the framework's thread. TRUE: taken care of.
   * The parent's logs errors and warnings.
   */
  gboolean (*handle_message) (VornGstView *view, GstMessage *message);

  gpointer reserved[8];
};

/**
 * Makes a pipeline (or any bin with a bus) one of the view's: its bus messages go to handle_message
 * until the view is unprepared or gone. The view takes a reference of its own.
 */
VORN_API gboolean vorn_gst_view_attach_element (VornGstView *view, GstElement *element);

/**
 * Names a raw-video source pad for the given kinds (VornPipelineKind bits); the view takes a
 * reference of its own. FALSE for a pad that is no source or is linked, for kinds outside 1 to 3,
 * and for a kind that has its pad already.
 */
VORN_API gboolean vorn_gst_view_set_source_pad (VornGstView *view, GstPad *pad, guint32 kinds);

/** The pad that feeds this one kind, or NULL; borrowed. */
VORN_API GstPad *vorn_gst_view_get_source_pad (VornGstView *view, VornPipelineKind kind);

VORN_END_DECLS

#endif
