// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Access units for the frame postprocessor's tests, and what stands in them afterwards, read by
// GStreamer's parser.
#ifndef TESTS_SRC_FRAME_POSTPROCESSOR_SUPPORT_HPP
#define TESTS_SRC_FRAME_POSTPROCESSOR_SUPPORT_HPP

#include <optional>
#include <vector>

#include "frame_postprocessor.hpp"
#include "h264_support.hpp"
#include <vorn/gst_raii.hpp>

namespace postprocessing
{

using h264::Bytes;
using Postprocessor = vorn::Owned<FramePostprocessor, frame_postprocessor_free>;
using BufferRef = vorn::Ref<GstBuffer>;

constexpr VornResolution frame_size = {1280, 720};

/** NAL units with their lengths before them, as an encoder's access unit. */
Bytes access_unit (const std::vector<Bytes> &nalus);
/** The reverse; what is left over, or too short for its length, is the last element. */
std::vector<Bytes> nal_units (const Bytes &access_unit);
std::vector<unsigned> types_of (const std::vector<Bytes> &nalus);

/** Where the first slice of an access unit begins that whole units lead to; 0 without one. */
size_t first_slice (const Bytes &access_unit);

BufferRef buffer_of (const Bytes &bytes);
/** The same bytes in several memories, cut at these places. */
BufferRef buffer_of (const Bytes &bytes, const std::vector<size_t> &cuts);
Bytes bytes_of (GstBuffer *buffer);
std::vector<Bytes> nal_units (GstBuffer *buffer);

void set_meta (GstBuffer *buffer, GstClockTime capture_time_ns, bool sync_point);

/** Slices for the stream; of any size, with bytes that look like anything. */
Bytes idr_slice (size_t size = 40);
Bytes slice (size_t size = 40);

/** Reads SEI units, by the SPS of the stream. */
class SeiReader
{
public:
  explicit SeiReader (const Bytes &sps);
  /**
   * The messages, in order; fails the test when the parser cannot make sense of them. What they
   * point to lives as long as the reader.
   */
  std::vector<GstH264SEIMessage> read (const Bytes &sei);

private:
  vorn::Owned<GstH264NalParser, gst_h264_nal_parser_free> parser_{gst_h264_nal_parser_new ()};
  vorn::Owned<GArray, g_array_unref> messages_;
  Bytes unit_;
};

/** time_offset as the signed number that it is; the parser hands out bare bits. */
int64_t signed_time_offset (const GstH264ClockTimestamp &clock, unsigned length);

} // namespace postprocessing

#endif
