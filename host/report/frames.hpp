// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The frames of recordings: what stands in the files, and what is known of the moments they show.
#ifndef HOST_REPORT_FRAMES_HPP
#define HOST_REPORT_FRAMES_HPP

#include <string>
#include <vector>

#include "record.hpp"

namespace report
{

/**
 * Reads all frames of a recording: presentation time, size, and the time of day of its SEI. Empty
 * when the file cannot be read (error says why); when it breaks off, what was read and the error.
 * The frames' recording is left 0. GStreamer must be initialised. Reentrant; takes about as long as
 * reading the file.
 */
std::vector<Frame> read_frames (const std::string &path, std::string *error);

/**
 * Reads the frames of all recordings of the record and finds out when each was captured and which
 * attitudes belong to that moment. A recording that cannot be read gets an error and a warning.
 */
void add_frames (RunRecord *record);

/**
 * Fills in capture time and attitudes of frames that have been read.
 *
 * The SEI tells the capture time to a tick of the stream's clock and modulo a day; finished_ns
 * (when the recording ended) tells the day, and the exact time is taken from captures_ns when one
 * of them is near enough to be meant.
 */
void match_frames (const RunRecord &record, int64_t finished_ns, std::vector<Frame> *frames);

} // namespace report

#endif
