// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The access units of a file.
#ifndef HOST_H264_SEI_SOURCE_HPP
#define HOST_H264_SEI_SOURCE_HPP

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gst/gst.h>

namespace h264_sei
{

using Bytes = std::vector<guint8>;

struct AccessUnit {
  std::optional<GstClockTime> time_ns; // presentation time, where the file says it
  bool key_frame = false;
  std::vector<Bytes> nal_units; // from the header byte on
  // Parameter sets that the file keeps beside the stream, where they begin to count.
  std::vector<Bytes> configuration;
  std::string damage; // empty: none
};

class Source
{
public:
  virtual ~Source () = default;
  /** What kind of file it is. */
  virtual const char *kind () const = 0;
  /** False at the end, and when reading fails: error then says why. */
  virtual bool next (AccessUnit *unit, std::string *error) = 0;
};

/** Tells the kind of a file by how it begins. Null when it cannot be read: error says why. */
std::unique_ptr<Source> open_source (const std::string &path, std::string *error);

std::unique_ptr<Source> open_mp4 (const std::string &path, std::string *error);
std::unique_ptr<Source> open_byte_stream (const std::string &path, std::string *error);

} // namespace h264_sei

#endif
