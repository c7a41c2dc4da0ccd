// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Recorded gyro data as CSV.
#ifndef CAMANGLES_REPLAY_RECORDING_HPP
#define CAMANGLES_REPLAY_RECORDING_HPP

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include <camangles/quaternion.h>

/** One line: rates in rad/s, and the reference attitude where the line has one. */
struct Sample {
  uint64_t timestamp = 0;
  float x = 0;
  float y = 0;
  float z = 0;
  std::optional<quat_t> reference;
};

/** What is wrong with a line, without its place. */
struct MalformedLine : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/**
 * Reads a recording line by line. A line has "timestamp,x,y,z" or "timestamp,x,y,z,qx,qy,qz,qw",
 * blanks around fields are allowed. Empty lines, lines that begin with '#' and a heading (a first
 * line whose first field begins with a letter) are skipped.
 */
class RecordingParser
{
public:
  /** The sample of the next line, nothing for a line without one. Throws MalformedLine. */
  std::optional<Sample> parse (std::string_view line);

private:
  bool heading_possible_ = true;
  std::optional<uint64_t> last_timestamp_;
};

#endif
