// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * The frame postprocessor: rewrites each H.264 access unit that leaves an encoder before it goes to
 * a muxer or to the network. Everything before the first slice is dropped; in its place comes one
 * SEI NAL unit with what the frame calls for:
 *
 *     recovery point      sync frames
 *     picture timing      every frame: its capture time as a time of day
 *     user data           sync frames: how the pictures are cut into slices ("Kavrel Streaming v2")
 *
 * and on the very first access unit the stream's SPS and PPS before it. What it knows of a frame
 * comes from the buffer's frame metadata (<vorn/frame_meta.h>). A frame of which too little is
 * known goes without SEI, with a warning; slices are never touched, copied or held back.
 *
 * One state serves one encoder's stream and is bound to one thread at a time. GStreamer must be
 * initialised.
 */
#ifndef FRAME_POSTPROCESSOR_HPP
#define FRAME_POSTPROCESSOR_HPP

#include <gst/gst.h>
#ifndef GST_USE_UNSTABLE_API
#define GST_USE_UNSTABLE_API
#endif
#include <gst/codecparsers/gsth264parser.h>

#include <vorn/h264_writer.h>
#include <vorn/modes.h>

/** How NAL units are told apart in a buffer. */
enum FramePostprocessorStreamFormat : guint32 {
  FRAME_POSTPROCESSOR_STREAM_FORMAT_AVC = 1,         /**< lengths of 4 bytes, big endian */
  FRAME_POSTPROCESSOR_STREAM_FORMAT_BYTE_STREAM = 2, /**< start codes of 4 bytes; not walked */
};

/** The state. Zero-filled when made; only frame_postprocessor_new () makes one. */
struct FramePostprocessor {
  VornH264Writer *writer;        /**< owned */
  guint32 insert_parameter_sets; /**< set by the first buffer, cleared once it was tried */
  guint32 first_buffer;          /**< 1 until a buffer came */
  GstH264NalParser *parser;      /**< owned */
  guint32 time_scale;            /**< ticks a second, from the SPS; 0 without timing info */
  guint32 num_units_in_tick;     /**< ticks a frame (or field), likewise */
  guint32 pic_timing_enabled;
  guint32 recovery_point_enabled;
  guint32 user_data_enabled;
  guint32 stream_format;      /**< FramePostprocessorStreamFormat */
  guint32 recovery_frame_cnt; /**< frames until the picture is whole, this one counted; 0 as 1 */
  guint32 width_mbs;          /**< frame size of the first buffer, in macroblocks */
  guint32 height_mbs;
  guint32 slice_count; /**< slices of a picture */
  GstBuffer *sps;      /**< owned: the last SPS with the 4 bytes before it, or NULL */
  GstBuffer *pps;      /**< owned: likewise the last PPS */
};

/** Makes a state for one stream. NULL, with an error in the log, when there is no H.264 writer. */
FramePostprocessor *frame_postprocessor_new (void);

/** Releases a state and what it holds. NULL is accepted. */
void frame_postprocessor_free (FramePostprocessor *state);

/**
 * Rewrites one access unit in place. frame_size: of the picture, in pixels; the first buffer's
 * counts. The bytes of the slices stay where they are in memory: the buffer is shortened at its
 * front and memory is put before it, so shared and read-only memory will do.
 *
 * A unit that has no slice, or that is damaged before its first slice, keeps all its bytes. Once
 * the first unit has carried an SPS, changed parameter sets in later units are followed (their
 * timing, their field lengths); they are not inserted again.
 *
 * Returns nonzero, whatever is wrong with the frame, the log says what. 0 only, with a critical and
 * nothing done, for a NULL state or frame size or a buffer that is not writable. A NULL buffer is
 * an empty frame.
 */
int frame_postprocessor_process (FramePostprocessor *state, const VornResolution *frame_size,
                                 GstBuffer *buffer);

/**
 * Keeps an SPS or PPS and shows it to the writer. The 4 bytes before the unit must be there. 1 when
 * the stored copy changed; 0 when it is the same, or the unit is of another type.
 */
int frame_postprocessor_collect_sps_pps (FramePostprocessor *state, const GstH264NalUnit *unit);

#endif
