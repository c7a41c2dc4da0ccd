/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * Frame metadata: what is known of a frame, carried by its buffer through a pipeline.
 *
 * A GstMeta with one GstStructure. It survives conversion, GL upload, filtering and download,
 * scaling, rate conversion, queues, tees and encoders; each buffer it is copied to gets a structure
 * of its own (a deep copy), so changing it never shows on another buffer.
 *
 * As with any meta, adding and changing it needs a writable buffer. Reentrant: buffers may be
 * handled on different threads, one buffer on one thread at a time unless it is only read.
 */
#ifndef VORN_FRAME_META_H
#define VORN_FRAME_META_H

#include <gst/gst.h>

#include <vorn/api.h>

VORN_BEGIN_DECLS

/** GstClockTime (unsigned 64 bit, ns): when the frame was captured; GST_CLOCK_TIME_NONE: absent. */
#define VORN_FRAME_META_CAPTURE_TIMESTAMP "capture-timestamp"
/** boolean: the frame is a sync (IDR) frame. */
#define VORN_FRAME_META_SYNC_POINT "sync-point"

typedef struct _VornFrameMeta VornFrameMeta;

/** The meta. The structure follows the header directly; it is the meta's own and never NULL. */
struct _VornFrameMeta {
  GstMeta meta;
  GstStructure *structure;
};

/** The meta's API type, by which gst_buffer_get_meta () finds it ("VornFrameMetaAPI"). No tags. */
VORN_API GType vorn_frame_meta_api_get_type (void);
#define VORN_FRAME_META_API_TYPE (vorn_frame_meta_api_get_type ())

/** The meta's implementation. vorn_framework_init () registers it. */
VORN_API const GstMetaInfo *vorn_frame_meta_get_info (void);

/**
 * The buffer's frame metadata, added with an empty structure when there is none: a buffer has at
 * most one. The buffer owns it. NULL, with a critical, when buffer is not a writable buffer.
 */
VORN_API VornFrameMeta *vorn_frame_meta_add (GstBuffer *buffer);

/** The buffer's frame metadata, or NULL. The buffer owns it. */
VORN_API VornFrameMeta *vorn_frame_meta_get (GstBuffer *buffer);

VORN_END_DECLS

#endif
