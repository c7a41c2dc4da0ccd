// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The frame postprocessor when what it builds on fails: each call can be made to. The linker sends
// the calls of the code under test here (--wrap).
#include <cerrno>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vorn/framework.h>
#include <vorn/streaming_sei.h>

#include "frame_postprocessor_support.hpp"
#include "log_capture.hpp"

using namespace postprocessing;
using testing::ElementsAre;
using testing::ElementsAreArray;

namespace
{
/** The call that fails now; for vorn_h264_writer_add_sei with ":" and the payload type, for
 * gst_memory_map with what it maps for. */
std::string failing; // NOLINT(bugprone-throwing-static-initialization)
} // namespace

#define FALLIBLE(type, name, failure, parameters, arguments)                                       \
  type __real_##name parameters;                                                                   \
  type __wrap_##name parameters;                                                                   \
  type __wrap_##name parameters                                                                    \
  {                                                                                                \
    return failing == #name ? (failure) : __real_##name arguments;                                 \
  }

extern "C" {
FALLIBLE (VornH264Writer *, vorn_h264_writer_new, nullptr, (void), ())
FALLIBLE (int, vorn_h264_writer_parse_sps, -EBADMSG,
          (VornH264Writer * w, const uint8_t *d, size_t n, VornH264Sps *s), (w, d, n, s))
FALLIBLE (int, vorn_h264_writer_parse_pps, -ENOENT,
          (VornH264Writer * w, const uint8_t *d, size_t n, VornH264Pps *p), (w, d, n, p))
FALLIBLE (int, vorn_h264_writer_set_sps, -ERANGE, (VornH264Writer * w, const VornH264Sps *s),
          (w, s))
FALLIBLE (int, vorn_h264_writer_set_pps, -ENOENT, (VornH264Writer * w, const VornH264Pps *p),
          (w, p))
FALLIBLE (int, vorn_h264_writer_clear, -EINVAL, (VornH264Writer * w), (w))
FALLIBLE (int, vorn_h264_writer_set_nal_header, -ERANGE,
          (VornH264Writer * w, uint8_t idc, uint8_t type), (w, idc, type))
FALLIBLE (ssize_t, vorn_h264_writer_write, -ENOSPC, (VornH264Writer * w, uint8_t *d, size_t n),
          (w, d, n))
FALLIBLE (int, vorn_streaming_sei_write, -ENOSPC,
          (const VornStreamingSeiSliceLayout *l, uint8_t *p, size_t *n, uint8_t *u), (l, p, n, u))
FALLIBLE (GstMemory *, gst_allocator_alloc, nullptr,
          (GstAllocator * a, gsize n, GstAllocationParams *p), (a, n, p))
FALLIBLE (gboolean, gst_buffer_map_range, FALSE,
          (GstBuffer * b, guint i, gint n, GstMapInfo *m, GstMapFlags f), (b, i, n, m, f))

int __real_vorn_h264_writer_add_sei (VornH264Writer *writer, const VornH264Sei *sei);
int __wrap_vorn_h264_writer_add_sei (VornH264Writer *writer, const VornH264Sei *sei);
int __wrap_vorn_h264_writer_add_sei (VornH264Writer *writer, const VornH264Sei *sei)
{
  if (failing == "vorn_h264_writer_add_sei:" + std::to_string (sei->payload_type))
    return -EMSGSIZE;
  return __real_vorn_h264_writer_add_sei (writer, sei);
}

gboolean __real_gst_memory_map (GstMemory *memory, GstMapInfo *info, GstMapFlags flags);
gboolean __wrap_gst_memory_map (GstMemory *memory, GstMapInfo *info, GstMapFlags flags);
gboolean __wrap_gst_memory_map (GstMemory *memory, GstMapInfo *info, GstMapFlags flags)
{
  const bool writes = (flags & GST_MAP_WRITE) != 0;
  if (failing == (writes ? "gst_memory_map:write" : "gst_memory_map:read"))
    return FALSE;
  return __real_gst_memory_map (memory, info, flags);
}
}

namespace
{

constexpr int warning = VORN_LOG_PRIORITY_WARNING;

struct Failure {
  const char *call;
  std::vector<std::string> warnings;
  std::vector<unsigned> first_unit; // types of its NAL units
  bool split = false;               // in the midst of the first prefix, over two memories
};

class FramePostprocessorFailures : public testing::TestWithParam<Failure>
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }
  void TearDown () override { failing.clear (); }

  static std::vector<unsigned> process (FramePostprocessor *state, const std::vector<Bytes> &nalus,
                                        bool split = false)
  {
    const Bytes bytes = access_unit (nalus);
    auto buffer = split ? buffer_of (bytes, {2}) : buffer_of (bytes);
    set_meta (buffer.get (), 7, true);
    EXPECT_NE (frame_postprocessor_process (state, &frame_size, buffer.get ()), 0);
    const std::string call = std::exchange (failing, "");
    const Bytes result = bytes_of (buffer.get ());
    EXPECT_TRUE (std::equal (nalus.back ().rbegin (), nalus.back ().rend (), result.rbegin ()));
    failing = call;
    return types_of (nal_units (result));
  }
};

} // namespace

TEST_F (FramePostprocessorFailures, NoWriterNoState)
{
  LogCapture log;
  failing = "vorn_h264_writer_new";
  EXPECT_EQ (frame_postprocessor_new (), nullptr);
  EXPECT_THAT (log.texts (VORN_LOG_PRIORITY_ERROR), ElementsAre ("failed to create H.264 writer"));
  EXPECT_EQ (log.lines ().size (), 1u);
  EXPECT_EQ (log.lines ()[0].tag, "frame_postprocessor");
}

TEST_P (FramePostprocessorFailures, CostsTheSeiOfTheFrameOnly)
{
  LogCapture log;
  Postprocessor state (frame_postprocessor_new ());
  const std::vector<Bytes> first = {h264::make_sps ({}), h264::make_pps (), idr_slice ()};
  failing = GetParam ().call;
  EXPECT_THAT (process (state.get (), first, GetParam ().split),
               ElementsAreArray (GetParam ().first_unit));
  EXPECT_THAT (log.texts (warning), ElementsAreArray (GetParam ().warnings));
}

INSTANTIATE_TEST_SUITE_P (
    Calls, FramePostprocessorFailures,
    testing::Values (
        Failure{"vorn_h264_writer_clear",
                {"vorn_h264_writer_clear failed: Invalid argument", "failed to generate SEI"},
                {7, 8, 5}},
        Failure{"vorn_h264_writer_set_nal_header",
                {"vorn_h264_writer_set_nal_header failed: Numerical result out of range",
                 "failed to generate SEI"},
                {7, 8, 5}},
        Failure{"vorn_h264_writer_add_sei:6",
                {"vorn_h264_writer_add_sei failed: Message too long",
                 "failed to create recovery point SEI", "failed to generate SEI"},
                {7, 8, 5}},
        Failure{"vorn_h264_writer_add_sei:1",
                {"vorn_h264_writer_add_sei failed: Message too long",
                 "failed to create picture timing SEI", "failed to generate SEI"},
                {7, 8, 5}},
        Failure{"vorn_h264_writer_add_sei:5",
                {"vorn_h264_writer_add_sei failed: Message too long",
                 "failed to create Kavrel Streaming v2 user data SEI", "failed to generate SEI"},
                {7, 8, 5}},
        Failure{"vorn_streaming_sei_write",
                {"vorn_streaming_sei_write failed: No space left on device",
                 "failed to create Kavrel Streaming v2 user data SEI", "failed to generate SEI"},
                {7, 8, 5}},
        Failure{
            "vorn_h264_writer_write",
            {"vorn_h264_writer_write failed: No space left on device", "failed to generate SEI"},
            {7, 8, 5}},
        Failure{"gst_allocator_alloc",
                {"gst_allocator_alloc failed", "failed to generate SEI"},
                {7, 8, 5}},
        Failure{
            "gst_memory_map:write", {"failed to map memory", "failed to generate SEI"}, {7, 8, 5}},
        Failure{"gst_memory_map:read",
                {"invalid time_scale and num_units_in_tick", "failed to create picture timing SEI",
                 "failed to generate SEI", "failed to insert SPS/PPS"},
                {7, 8, 5}}, // as they came
        Failure{"gst_buffer_map_range",
                {"invalid time_scale and num_units_in_tick", "failed to create picture timing SEI",
                 "failed to generate SEI", "failed to insert SPS/PPS"},
                {7, 8, 5},
                true},
        Failure{"vorn_h264_writer_parse_sps",
                {"vorn_h264_writer_parse_sps failed: Bad message",
                 "vorn_h264_writer_parse_pps failed: No such file or directory",
                 "invalid time_scale and num_units_in_tick", "failed to create picture timing SEI",
                 "failed to generate SEI"},
                {7, 8, 5}},
        Failure{"vorn_h264_writer_parse_pps",
                {"vorn_h264_writer_parse_pps failed: No such file or directory"},
                {7, 8, 6, 5}},
        Failure{"vorn_h264_writer_set_sps",
                {"vorn_h264_writer_set_sps failed: Numerical result out of range",
                 "vorn_h264_writer_set_pps failed: No such file or directory",
                 "vorn_h264_writer_add_sei failed: No such file or directory",
                 "failed to create picture timing SEI", "failed to generate SEI"},
                {7, 8, 5}},
        Failure{"vorn_h264_writer_set_pps",
                {"vorn_h264_writer_set_pps failed: No such file or directory"},
                {7, 8, 6, 5}}),
    [] (const auto &row) {
      std::string name = row.param.call;
      std::replace (name.begin (), name.end (), ':', '_');
      return name;
    });

TEST_F (FramePostprocessorFailures, TheNextFrameIsWholeAgain)
{
  for (const char *call :
       {"vorn_h264_writer_clear", "vorn_h264_writer_set_nal_header", "vorn_h264_writer_add_sei:5",
        "vorn_streaming_sei_write", "vorn_h264_writer_write", "gst_allocator_alloc",
        "gst_memory_map:write"}) {
    LogCapture log;
    Postprocessor state (frame_postprocessor_new ());
    const std::vector<Bytes> first = {h264::make_sps ({}), h264::make_pps (), idr_slice ()};
    failing = call;
    process (state.get (), first);
    failing.clear ();
    EXPECT_THAT (process (state.get (), {idr_slice ()}), ElementsAre (6, 5)) << call;
  }
}
