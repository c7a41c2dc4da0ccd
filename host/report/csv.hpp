// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The tables of a run as CSV (RFC 4180, but lines end as on this system), for other programs.
#ifndef HOST_REPORT_CSV_HPP
#define HOST_REPORT_CSV_HPP

#include <string>

#include "record.hpp"

namespace report
{

/**
 * A line for each attitude: time_s (CLOCK_MONOTONIC), the estimate qx, qy, qz, qw (camera to NED)
 * and as roll_deg, pitch_deg, yaw_deg, the same of the truth led by true_, and error_deg, the angle
 * between them. What is not known is empty. Returns the reason of a failure, or empty; so does the
 * next.
 */
std::string write_attitude_csv (const RunRecord &record, const std::string &path);

/**
 * A line for each recorded frame: recording (file), frame (from 0), key_frame (0 or 1), bytes,
 * presentation_s (in the file), capture_s (CLOCK_MONOTONIC), capture_utc, sei_time (the time of day
 * that stands in the frame), the attitude that was used: qx, qy, qz, qw, the truth true_qx ... and
 * error_deg.
 */
std::string write_frames_csv (const RunRecord &record, const std::string &path);

} // namespace report

#endif
