/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * A view made of GStreamer pipelines. The product builds pipelines, attaches them and names the
 * pads that give raw frames; the framework dispatches their bus messages on its thread and hangs a
 * streaming and a recording branch on the pads when the view is prepared. Both branches are closed
 * at first: an idle one encodes nothing and opens no file. Implements GInitable. Bound to the
 * framework's thread where nothing else is said.
 *
 * The class fills these operations of VornView; products chain up to them:
 *
 *     prepare              builds the branches. Without a source pad there is nothing to build
 *     stream_setup         opens the streaming branch; the product has the pipeline playing by then
 *     stream_teardown      closes it, and ends a running recording; the product then stops the
 *                          pipeline
 *     stream_set_params    changes the streaming encoder's bitrate
 *     start_recording      starts a file; the product has the pipeline playing by then
 *     stop_recording       ends the file
 *     set_streaming_format, set_recording_format: what the branches make of the source's frames;
 *                          the product has the pipeline stopped meanwhile
 *     unprepare            nothing more: the branches are gone by then
 *
 * Elements that products may look up: "streamingbin-encoder", whose "src" pad gives the stream's
 * access units; "recordbin-tee", whose "sink" pad takes the recording's; "recordbin-muxer", a
 * GstTagSetter whose tags the finished file carries. What a probe on these pads does to a unit is
 * streamed and recorded.
 *
 * Properties: "streaming-preset" and "recording-preset" (strings: encoder presets),
 * "recording-bitrate" (bit/s, 0 for the preset's; read and write), "streaming-encoder" and
 * "recording-encoder" (elements, read only, NULL before there is one).
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

/**
 * Gets each encoded unit of the stream: a sample with caps (avc, codec_data) and one access unit,
 * borrowed. Called on a streaming thread, one call at a time; must not block. May remove itself.
 */
typedef void (*VornStreamUnitFunc) (VornGstView *view, GstSample *unit, gpointer data);

/**
 * Has a function called with each unit of the stream, and asks for a key frame so that it can begin
 * with the next one. Kept while pipelines restart, until it is removed or the view is unprepared or
 * gone; destroy (may be NULL) then gets data, once. Returns an id above 0. Thread-safe.
 */
VORN_API guint vorn_gst_view_add_stream_unit_func (VornGstView *view, VornStreamUnitFunc func,
                                                   gpointer data, GDestroyNotify destroy);

/**
 * After it returns the function is not running (unless it is the function that calls) and never
 * called again. Waits for a call that runs: not to be called with a lock held that the function
 * takes. An id that is not (or no longer) there is ignored. Thread-safe.
 */
VORN_API void vorn_gst_view_remove_stream_unit_func (VornGstView *view, guint id);

/** Asks for a key frame at once; does nothing while no stream runs. Thread-safe. */
VORN_API void vorn_gst_view_request_key_frame (VornGstView *view);

/** What the branches did since prepare, while they were open. */
typedef struct {
  guint64 stream_frames_in;     /**< raw frames given to the branch */
  guint64 stream_frames_out;    /**< access units that left its encoder */
  guint64 stream_bytes;         /**< of these units */
  guint64 stream_drops;         /**< raw frames that the branch was too slow for */
  guint64 recording_frames_in;  /**< the same for the recording branch */
  guint64 recording_frames_out; /**< units that went into files */
  guint64 recording_bytes;
  guint64 recording_drops;
} VornGstViewStatistics;

/** Copies the counters; all zero on a view that is not prepared. Thread-safe. */
VORN_API void vorn_gst_view_get_statistics (VornGstView *view, VornGstViewStatistics *statistics);

/**
 * The stream as a bare UDP client needs it described (SDP, RFC 8866, with the H.264 parameters of
 * RFC 6184), to be written to a file of the client's. NULL while no stream runs or it has no
 * client of its own. Before the first picture left the encoder it comes without parameter sets,
 * which are in the stream as well. Free with g_free.
 */
VORN_API gchar *vorn_gst_view_get_stream_description (VornGstView *view);

/**
 * The file name under which the running recording will lie, or the last one lies; NULL when there
 * was none. Free with g_free. Thread-safe.
 */
VORN_API gchar *vorn_gst_view_get_recording_location (VornGstView *view);

VORN_END_DECLS

#endif
