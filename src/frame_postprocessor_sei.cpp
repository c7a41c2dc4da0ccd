// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "frame_postprocessor_sei.hpp"

#include <cstring>

#include <vorn/frame_meta.h>
#include <vorn/gst_raii.hpp>
#include <vorn/log.h>
#include <vorn/streaming_sei.h>

#include "frame_postprocessor_nal_walk.hpp"

VORN_LOG_TAG ("frame_postprocessor");

namespace frame_postprocessor
{

namespace
{

constexpr guint64 us_per_second = 1000000;
constexpr guint64 us_per_minute = 60 * us_per_second;
constexpr guint64 us_per_hour = 60 * us_per_minute;

/** Room for the SEI NAL unit and its prefix; the three messages take about 60 bytes. */
constexpr gsize sei_memory_size = 200;

/** What the frame metadata says of a frame. */
struct Frame {
  guint64 capture_time_us;
  bool sync_point;
};

/** Logs a failed writer call; true when it went well. */
bool check (const char *call, int result)
{
  if (result < 0)
    VORN_LOG_WARNING ("%s failed: %s", call, g_strerror (-result));
  return result >= 0;
}

bool add_sei (FramePostprocessor *state, const VornH264Sei &sei)
{
  return check ("vorn_h264_writer_add_sei", vorn_h264_writer_add_sei (state->writer, &sei));
}

/** A field of the frame metadata, found by number: by name it would be hashed at every frame. NULL:
 * there is none of this type. */
const GValue *field (const GstStructure *structure, GQuark name, GType type)
{
  const GValue *value = gst_structure_id_get_value (structure, name);
  return value && G_VALUE_HOLDS (value, type) ? value : nullptr;
}

bool read_frame (GstBuffer *buffer, Frame *frame)
{
  static const GQuark capture_name = g_quark_from_static_string (VORN_FRAME_META_CAPTURE_TIMESTAMP);
  static const GQuark sync_name = g_quark_from_static_string (VORN_FRAME_META_SYNC_POINT);
  const VornFrameMeta *meta = vorn_frame_meta_get (buffer);
  if (!meta) {
    VORN_LOG_WARNING ("failed to get buffer metadata");
    return false;
  }
  const GValue *captured = field (meta->structure, capture_name, GST_TYPE_CLOCK_TIME);
  const GstClockTime capture_time = captured ? g_value_get_uint64 (captured) : GST_CLOCK_TIME_NONE;
  if (!GST_CLOCK_TIME_IS_VALID (capture_time)) {
    VORN_LOG_WARNING ("failed to get buffer capture timestamp");
    return false;
  }
  const GValue *sync_point = field (meta->structure, sync_name, G_TYPE_BOOLEAN);
  if (!sync_point) {
    VORN_LOG_WARNING ("failed to get buffer sync point");
    return false;
  }
  *frame = {.capture_time_us = capture_time / 1000,
            .sync_point = g_value_get_boolean (sync_point) != FALSE};
  return true;
}

bool add_recovery_point (FramePostprocessor *state)
{
  VornH264Sei sei = {.payload_type = VORN_H264_SEI_RECOVERY_POINT, .payload = {}};
  sei.payload.recovery_point = {
      .recovery_frame_cnt = state->recovery_frame_cnt == 0 ? 0 : state->recovery_frame_cnt - 1,
      .exact_match_flag = true,
      .broken_link_flag = false,
      .changing_slice_group_idc = 0,
  };
  return add_sei (state, sei);
}

bool add_pic_timing (FramePostprocessor *state, guint64 capture_time_us)
{
  if (state->time_scale == 0 || state->num_units_in_tick == 0) {
    VORN_LOG_WARNING ("invalid time_scale and num_units_in_tick");
    return false;
  }
  const ClockTime time =
      split_capture_time (capture_time_us, state->time_scale, state->num_units_in_tick);

  VornH264Sei sei = {.payload_type = VORN_H264_SEI_PIC_TIMING, .payload = {}};
  VornH264PicTiming &timing = sei.payload.pic_timing;
  timing = {};
  timing.clock_timestamp_flag[0] = true;
  timing.clock_timestamp[0] = {
      .ct_type = 0,
      .nuit_field_based_flag = false,
      .counting_type = 1,
      .full_timestamp_flag = true,
      .discontinuity_flag = false,
      .cnt_dropped_flag = false,
      // What a message cannot carry stays too great for the writer, which refuses it.
      .n_frames = static_cast<guint32> (MIN (time.n_frames, G_MAXUINT32)),
      .seconds_flag = false,
      .minutes_flag = false,
      .hours_flag = false,
      .seconds_value = time.seconds,
      .minutes_value = time.minutes,
      .hours_value = time.hours,
      .time_offset = time.time_offset,
  };
  return add_sei (state, sei);
}

bool add_streaming_user_data (FramePostprocessor *state)
{
  // A count of 0 is the streaming SEI writer's to refuse.
  const guint32 slices = state->slice_count;
  const guint32 mb_rows =
      slices == 0 ? 0 : state->height_mbs / slices + (state->height_mbs % slices != 0);
  const VornStreamingSeiSliceLayout layout = {
      .slice_count = static_cast<guint16> (slices),
      .slice_mb_count = static_cast<guint16> (mb_rows * state->width_mbs),
  };
  guint8 payload[VORN_STREAMING_SEI_PAYLOAD_SIZE];
  gsize payload_size = sizeof payload;
  VornH264Sei sei = {.payload_type = VORN_H264_SEI_USER_DATA_UNREGISTERED, .payload = {}};
  VornH264UserDataUnregistered &user_data = sei.payload.user_data_unregistered;
  user_data = {};
  if (!check ("vorn_streaming_sei_write", vorn_streaming_sei_write (&layout, payload, &payload_size,
                                                                    user_data.uuid_iso_iec_11578)))
    return false;
  user_data.data = payload;
  user_data.size = payload_size;
  return add_sei (state, sei);
}

/** The messages that the frame calls for, in the order in which they stand in the NAL unit. */
bool add_messages (FramePostprocessor *state, const Frame &frame)
{
  if (state->recovery_point_enabled && frame.sync_point && !add_recovery_point (state)) {
    VORN_LOG_WARNING ("failed to create recovery point SEI");
    return false;
  }
  if (state->pic_timing_enabled && !add_pic_timing (state, frame.capture_time_us)) {
    VORN_LOG_WARNING ("failed to create picture timing SEI");
    return false;
  }
  if (state->user_data_enabled && frame.sync_point && !add_streaming_user_data (state)) {
    VORN_LOG_WARNING ("failed to create Kavrel Streaming v2 user data SEI");
    return false;
  }
  return true;
}

/** The pending NAL unit with its prefix, or NULL. */
vorn::Ref<GstMemory> write_nal_unit (FramePostprocessor *state)
{
  auto memory = vorn::adopt (gst_allocator_alloc (nullptr, sei_memory_size, nullptr));
  if (!memory) {
    VORN_LOG_WARNING ("gst_allocator_alloc failed");
    return nullptr;
  }
  const bool avc = state->stream_format == FRAME_POSTPROCESSOR_STREAM_FORMAT_AVC;
  const bool byte_stream = state->stream_format == FRAME_POSTPROCESSOR_STREAM_FORMAT_BYTE_STREAM;
  const gsize reserved = avc || byte_stream ? prefix_size : 0;
  gssize size = 0;
  {
    const vorn::MemoryMap map (memory.get (), GST_MAP_READWRITE);
    if (!map) {
      VORN_LOG_WARNING ("failed to map memory");
      return nullptr;
    }
    size = vorn_h264_writer_write (state->writer, map.data () + reserved, map.size () - reserved);
    if (!check ("vorn_h264_writer_write", static_cast<int> (size)))
      return nullptr;
    if (avc)
      write_prefix (map.data (), static_cast<guint32> (size));
    else if (byte_stream)
      write_prefix (map.data (), 1);
  }
  gst_memory_resize (memory.get (), 0, static_cast<gsize> (size) + reserved);
  return memory;
}

} // namespace

ClockTime split_capture_time (guint64 capture_time_us, guint32 time_scale,
                              guint32 num_units_in_tick)
{
  // Whole seconds are whole ticks, so the ticks since the last one, rounded, come from the part of
  // a second alone: below 2^52, however long the clock has run.
  const guint64 us = capture_time_us % us_per_second;
  const guint64 ticks = (us * time_scale + us_per_second / 2) / us_per_second;
  const guint64 n_frames = (ticks + num_units_in_tick / 2) / num_units_in_tick;
  return {
      .hours = capture_time_us / us_per_hour,
      .minutes = static_cast<guint32> (capture_time_us % us_per_hour / us_per_minute),
      .seconds = static_cast<guint32> (capture_time_us % us_per_minute / us_per_second),
      .n_frames = n_frames,
      .time_offset =
          static_cast<gint64> (ticks) - static_cast<gint64> (num_units_in_tick * n_frames),
  };
}

bool insert_sei (FramePostprocessor *state, GstBuffer *buffer)
{
  if (!buffer) {
    VORN_LOG_WARNING ("empty buffer");
    return false;
  }
  if (!check ("vorn_h264_writer_clear", vorn_h264_writer_clear (state->writer)) ||
      !check ("vorn_h264_writer_set_nal_header",
              vorn_h264_writer_set_nal_header (state->writer, 0, VORN_H264_NAL_UNIT_SEI)))
    return false;
  Frame frame;
  if (!read_frame (buffer, &frame) || !add_messages (state, frame))
    return false;
  auto memory = write_nal_unit (state);
  if (!memory)
    return false;
  gst_buffer_prepend_memory (buffer, memory.release ());
  return true;
}

} // namespace frame_postprocessor
