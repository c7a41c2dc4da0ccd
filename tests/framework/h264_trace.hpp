// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// H.264 streams as FFmpeg reads them: its trace_headers filter names every field that it parses.
#ifndef TESTS_FRAMEWORK_H264_TRACE_HPP
#define TESTS_FRAMEWORK_H264_TRACE_HPP

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "h264_support.hpp"

namespace h264
{

using Fields = std::vector<std::pair<std::string, int64_t>>;

/** The fields of all SEI messages of one access unit, in order, each begun by "payload_type". */
struct TracedAccessUnit {
  Fields sei;
  int sei_units = 0;
};

/** What FFmpeg finds in a byte stream; complaints of FFmpeg fail the test. */
std::vector<TracedAccessUnit> trace (const Bytes &stream);

/** What it should find of these messages. */
Fields expected_fields (const std::vector<VornH264Sei> &messages, const SpsVariant &variant);

/** Decodes a byte stream with FFmpeg; every warning and error of it. */
std::string decoder_complaints (const Bytes &stream, int *frame_count);

} // namespace h264

#endif
