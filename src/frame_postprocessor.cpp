// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "frame_postprocessor.hpp"

#include <vorn/gst_raii.hpp>
#include <vorn/log.h>

#include "frame_postprocessor_nal_walk.hpp"
#include "frame_postprocessor_sei.hpp"

VORN_LOG_TAG ("frame_postprocessor");

using frame_postprocessor::NalWalk;
using frame_postprocessor::prefix_size;

static void check (const char *call, int result)
{
  if (result < 0)
    VORN_LOG_WARNING ("%s failed: %s", call, g_strerror (-result));
}

static void show_sps (FramePostprocessor *state, const guint8 *data, gsize size)
{
  VornH264Sps sps = {};
  const int parsed = vorn_h264_writer_parse_sps (state->writer, data, size, &sps);
  check ("vorn_h264_writer_parse_sps", parsed);
  if (parsed < 0)
    return;
  check ("vorn_h264_writer_set_sps", vorn_h264_writer_set_sps (state->writer, &sps));
  const bool timing = sps.vui_parameters_present_flag && sps.timing_info_present_flag;
  state->num_units_in_tick = timing ? sps.num_units_in_tick : 0;
  state->time_scale = timing ? sps.time_scale : 0;
}

static void show_pps (FramePostprocessor *state, const guint8 *data, gsize size)
{
  VornH264Pps pps = {};
  const int parsed = vorn_h264_writer_parse_pps (state->writer, data, size, &pps);
  check ("vorn_h264_writer_parse_pps", parsed);
  if (parsed == 0)
    check ("vorn_h264_writer_set_pps", vorn_h264_writer_set_pps (state->writer, &pps));
}

/** Where a parameter set of the unit's type is kept. */
static GstBuffer **slot_of (FramePostprocessor *state, const GstH264NalUnit *unit)
{
  return unit->type == GST_H264_NAL_SPS ? &state->sps : &state->pps;
}

static bool is_stored (FramePostprocessor *state, const GstH264NalUnit *unit)
{
  GstBuffer *stored = *slot_of (state, unit);
  return stored && gst_buffer_memcmp (stored, 0, unit->data + unit->offset - prefix_size,
                                      unit->size + prefix_size) == 0;
}

int frame_postprocessor_collect_sps_pps (FramePostprocessor *state, const GstH264NalUnit *unit)
{
  const guint8 *data = unit->data + unit->offset;
  if (unit->type == GST_H264_NAL_SPS)
    show_sps (state, data, unit->size);
  else if (unit->type == GST_H264_NAL_PPS)
    show_pps (state, data, unit->size);
  else
    return 0;

  if (is_stored (state, unit))
    return 0;
  GstBuffer **slot = slot_of (state, unit);
  gst_clear_buffer (slot);
  *slot = gst_buffer_new_memdup (data - prefix_size, unit->size + prefix_size);
  return 1;
}

static bool is_walked (const FramePostprocessor *state)
{
  return state->stream_format == FRAME_POSTPROCESSOR_STREAM_FORMAT_AVC;
}

static void take_first_buffer (FramePostprocessor *state, const VornResolution &frame_size,
                               GstBuffer *buffer)
{
  if (is_walked (state)) {
    NalWalk walk (state->parser, buffer);
    while (walk.next ()) {
      VORN_LOG_DEBUG ("found nal unit of type %u (%u bytes at offset %u)", walk.type (),
                      walk.size (), walk.offset ());
      const GstH264NalUnit *unit = walk.is_parameter_set () ? walk.whole () : nullptr;
      if (unit)
        frame_postprocessor_collect_sps_pps (state, unit);
    }
  }
  state->insert_parameter_sets = 1;
  state->first_buffer = 0;
  // Wide, so that the greatest sizes do not wrap.
  state->width_mbs = static_cast<guint32> ((guint64{frame_size.width} + 15) >> 4);
  state->height_mbs = static_cast<guint32> ((guint64{frame_size.height} + 15) >> 4);
}

/**
 * Where the first slice begins, 0 when there is none. follow: on the way there take changed
 * parameter sets over, in which an encoder that was restarted at another rate says so.
 */
static guint find_first_slice (FramePostprocessor *state, GstBuffer *buffer, bool follow)
{
  if (!is_walked (state))
    return 0;
  NalWalk walk (state->parser, buffer);
  bool changed = false;
  while (walk.next ()) {
    if (walk.is_slice ()) {
      const guint offset = walk.offset () - prefix_size;
      VORN_LOG_DEBUG ("VCL offset = %d", static_cast<int> (offset));
      return offset;
    }
    const GstH264NalUnit *unit = follow && walk.is_parameter_set () ? walk.whole () : nullptr;
    // After a changed one all count: a PPS says which SPS is active.
    if (unit && (changed || !is_stored (state, unit))) {
      frame_postprocessor_collect_sps_pps (state, unit);
      changed = true;
    }
  }
  return 0;
}

/** Drops what lies before the offset. Memories that are left empty would count against a buffer's
 * few, and a buffer that has too many is copied together. */
static void drop_front (GstBuffer *buffer, guint offset)
{
  guint index = 0;
  guint count = 0;
  gsize skip = 0;
  if (offset == 0 || !gst_buffer_find_memory (buffer, offset, 1, &index, &count, &skip))
    return;
  if (index > 0)
    gst_buffer_remove_memory_range (buffer, 0, static_cast<gint> (index));
  gst_buffer_resize (buffer, static_cast<gssize> (skip), -1);
}

static void insert_parameter_sets (FramePostprocessor *state, GstBuffer *buffer)
{
  if (!state->insert_parameter_sets)
    return;
  state->insert_parameter_sets = 0;
  if (!state->sps || !state->pps) {
    VORN_LOG_WARNING ("failed to insert SPS/PPS");
    return;
  }
  gst_buffer_prepend_memory (buffer, gst_buffer_get_all_memory (state->pps));
  gst_buffer_prepend_memory (buffer, gst_buffer_get_all_memory (state->sps));
}

FramePostprocessor *frame_postprocessor_new (void)
{
  auto *state = g_new0 (FramePostprocessor, 1);
  state->writer = vorn_h264_writer_new ();
  if (!state->writer) {
    VORN_LOG_ERROR ("failed to create H.264 writer");
    frame_postprocessor_free (state);
    return nullptr;
  }
  state->parser = gst_h264_nal_parser_new ();
  state->first_buffer = 1;
  state->pic_timing_enabled = 1;
  state->recovery_point_enabled = 1;
  state->user_data_enabled = 1;
  state->stream_format = FRAME_POSTPROCESSOR_STREAM_FORMAT_AVC;
  state->slice_count = 1;
  return state;
}

void frame_postprocessor_free (FramePostprocessor *state)
{
  if (!state)
    return;
  gst_clear_buffer (&state->sps);
  gst_clear_buffer (&state->pps);
  vorn_h264_writer_destroy (state->writer);
  if (state->parser)
    gst_h264_nal_parser_free (state->parser);
  g_free (state);
}

int frame_postprocessor_process (FramePostprocessor *state, const VornResolution *frame_size,
                                 GstBuffer *buffer)
{
  g_return_val_if_fail (state != nullptr, 0);
  g_return_val_if_fail (frame_size != nullptr, 0);
  g_return_val_if_fail (buffer == nullptr || gst_buffer_is_writable (buffer), 0);

  if (buffer) {
    // A stream that began without an SPS has no timing, whatever comes later.
    const bool follow = !state->first_buffer && state->sps;
    if (state->first_buffer)
      take_first_buffer (state, *frame_size, buffer);
    drop_front (buffer, find_first_slice (state, buffer, follow));
  }
  if (!frame_postprocessor::insert_sei (state, buffer))
    VORN_LOG_WARNING ("failed to generate SEI");
  if (buffer)
    insert_parameter_sets (state, buffer);
  return 1;
}
