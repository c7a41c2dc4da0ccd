// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The video thumbnail maker: one raw frame becomes a small JPEG.
#ifndef MAKE_THUMBNAIL_HPP
#define MAKE_THUMBNAIL_HPP

#include <gst/gst.h>

/**
 * A JPEG of the frame, 320 pixels wide and as high as its shape asks for, as a sample that the
 * caller owns: one buffer and its caps. buffer: a frame of raw RGB with rows padded to four bytes,
 * borrowed; its timestamps do not matter. width, height: its size in pixels. framerate_num,
 * framerate_den: frames per second as a fraction.
 *
 * NULL, with an error logged, when the elements for it cannot be had, linked or started, or the
 * buffer is too small; NULL without a message when no picture comes of it (a width of 0).
 * Reentrant; blocks until the sample is there.
 */
GstSample *make_thumbnail (GstBuffer *buffer, guint32 width, guint32 height, guint32 framerate_num,
                           guint32 framerate_den);

#endif
