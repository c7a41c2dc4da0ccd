// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The SEI NAL unit of one access unit.
#ifndef FRAME_POSTPROCESSOR_SEI_HPP
#define FRAME_POSTPROCESSOR_SEI_HPP

#include "frame_postprocessor.hpp"

namespace frame_postprocessor
{

/** A capture time in the terms of a clock timestamp (Rec. ITU-T H.264, D.2.3). */
struct ClockTime {
  guint64 hours;
  guint32 minutes;
  guint32 seconds;
  guint64 n_frames;
  gint64 time_offset; /**< ticks by which the frame is later than n_frames says */
};

/**
 * Splits a time in us into hours, minutes, seconds, frames (rounded to the nearest) and the ticks
 * that remain. time_scale and num_units_in_tick above 0; any capture time.
 */
ClockTime split_capture_time (guint64 capture_time_us, guint32 time_scale,
                              guint32 num_units_in_tick);

/** Makes the SEI NAL unit that the frame calls for and puts it before the buffer's bytes. */
bool insert_sei (FramePostprocessor *state, GstBuffer *buffer);

} // namespace frame_postprocessor

#endif
