// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// An access unit on stdout: as lines for people or as one JSON object on a line.
#ifndef HOST_H264_SEI_PRINT_HPP
#define HOST_H264_SEI_PRINT_HPP

#include <vector>

#include "h264_sei_decode.hpp"
#include "h264_sei_source.hpp"

namespace h264_sei
{

void print_text (guint64 index, const AccessUnit &unit, const std::vector<NalUnit> &nal_units);
void print_json (guint64 index, const AccessUnit &unit, const std::vector<NalUnit> &nal_units);

} // namespace h264_sei

#endif
