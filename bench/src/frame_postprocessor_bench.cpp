// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What post-processing an access unit costs, by the size of its slice, beside what stock parts do
// on the same units: GStreamer's codec parsers (walk to the first slice, make a picture timing SEI,
// insert it) and the element h264parse. "sync" units carry parameter sets and get three messages,
// the others one. With VORN_BENCH_COUNT=1 heap allocations and the bytes copied by memcpy and
// memmove are counted per unit; the times are then of no use.
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <dlfcn.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <vorn/frame_meta.h>
#include <vorn/framework.h>
#include <vorn/gst_raii.hpp>
#include <vorn/log.h>

#include "frame_postprocessor.hpp"

namespace
{

std::atomic<bool> counting = false;
std::atomic<size_t> allocations = 0;
std::atomic<size_t> copied_bytes = 0;

void count (std::atomic<size_t> &counter, size_t amount)
{
  if (counting.load (std::memory_order_relaxed))
    counter.fetch_add (amount, std::memory_order_relaxed);
}

using Copy = void *(*)(void *, const void *, size_t);

} // namespace

// glibc calls these in place of its own, and so do the libraries.
extern "C" {
void *__libc_malloc (size_t size);
void *__libc_calloc (size_t count, size_t size);
void *__libc_realloc (void *memory, size_t size);

void *malloc (size_t size)
{
  count (allocations, 1);
  return __libc_malloc (size);
}

void *calloc (size_t number, size_t size)
{
  count (allocations, 1);
  return __libc_calloc (number, size);
}

void *realloc (void *memory, size_t size)
{
  count (allocations, 1);
  return __libc_realloc (memory, size);
}

void *memmove (void *to, const void *from, size_t size)
{
  static const auto real = reinterpret_cast<Copy> (dlsym (RTLD_NEXT, "memmove"));
  count (copied_bytes, size);
  return real (to, from, size);
}

void *memcpy (void *__restrict to, const void *__restrict from, size_t size)
{
  static const auto real = reinterpret_cast<Copy> (dlsym (RTLD_NEXT, "memcpy"));
  count (copied_bytes, size);
  return real (to, from, size);
}
}

namespace
{

using Bytes = std::vector<guint8>;
using Parser = vorn::Owned<GstH264NalParser, gst_h264_nal_parser_free>;

constexpr VornResolution frame_size = {1280, 720};
constexpr GstClockTime capture_time_ns = 3723500000000;
constexpr size_t batch = 128;

// Of x264 at 1280x720 and 30 frames a second, with timing and pic_struct.
constexpr guint8 sps[] = {0x67, 0x42, 0xc0, 0x1f, 0xda, 0x01, 0x40, 0x16, 0xec, 0x05,
                          0xa8, 0x08, 0x08, 0x0a, 0x00, 0x00, 0x03, 0x00, 0x02, 0x00,
                          0x00, 0x03, 0x00, 0x79, 0x3e, 0x30, 0x65, 0x40};
constexpr guint8 pps[] = {0x68, 0xce, 0x3c, 0x80};
constexpr guint8 delimiter[] = {0x09, 0xf0};
constexpr guint8 own_sei[] = {0x06, 0x01, 0x01, 0x04, 0x80};

void append (Bytes &unit, const guint8 *data, size_t size)
{
  for (int shift = 24; shift >= 0; shift -= 8)
    unit.push_back (static_cast<guint8> (size >> shift));
  unit.insert (unit.end (), data, data + size);
}

Bytes make_unit (bool sync, size_t slice_size)
{
  Bytes unit;
  append (unit, delimiter, sizeof delimiter);
  if (sync) {
    append (unit, sps, sizeof sps);
    append (unit, pps, sizeof pps);
  }
  append (unit, own_sei, sizeof own_sei);
  // The header of a slice, and bytes that need no emulation prevention.
  Bytes slice (slice_size);
  for (size_t i = 0; i < slice_size; i++)
    slice[i] = static_cast<guint8> (i * 37 % 251 + 4);
  slice[0] = sync ? 0x65 : 0x41;
  slice[1] = 0x88;
  slice[2] = 0x84;
  append (unit, slice.data (), slice.size ());
  return unit;
}

/** Of its own memory, as an encoder's buffer; the bytes themselves are not made anew. */
GstBuffer *make_buffer (Bytes &unit, bool sync)
{
  GstBuffer *buffer = gst_buffer_new_wrapped_full (static_cast<GstMemoryFlags> (0), unit.data (),
                                                   unit.size (), 0, unit.size (), nullptr, nullptr);
  GST_BUFFER_PTS (buffer) = GST_SECOND;
  gst_structure_set (vorn_frame_meta_add (buffer)->structure, "capture-timestamp",
                     GST_TYPE_CLOCK_TIME, capture_time_ns, "sync-point", G_TYPE_BOOLEAN, sync,
                     nullptr);
  return buffer;
}

/** What is compared: takes a unit's buffer over and gives one back, or NULL when it went on. */
class Method
{
public:
  virtual ~Method () = default;
  virtual GstBuffer *process (GstBuffer *buffer) = 0;
};

class Postprocessing : public Method
{
public:
  GstBuffer *process (GstBuffer *buffer) override
  {
    frame_postprocessor_process (state_.get (), &frame_size, buffer);
    return buffer;
  }

private:
  vorn::Owned<FramePostprocessor, frame_postprocessor_free> state_{frame_postprocessor_new ()};
};

/** One message, the picture timing: the parsers' writer leaves out the other two. */
class StockParsers : public Method
{
public:
  GstBuffer *process (GstBuffer *buffer) override
  {
    GstMapInfo map;
    gst_buffer_map (buffer, &map, GST_MAP_READ);
    GstH264NalUnit unit = {};
    guint offset = 0;
    while (gst_h264_parser_identify_nalu_avc (parser_.get (), map.data, offset, map.size, 4,
                                              &unit) == GST_H264_PARSER_OK &&
           unit.type != GST_H264_NAL_SLICE && unit.type != GST_H264_NAL_SLICE_IDR)
      offset = unit.offset + unit.size;
    gst_buffer_unmap (buffer, &map);
    benchmark::DoNotOptimize (offset);

    GstH264SEIMessage message = {};
    message.payloadType = GST_H264_SEI_PIC_TIMING;
    GstH264PicTiming &timing = message.payload.pic_timing;
    timing.pic_struct_present_flag = 1;
    timing.time_offset_length = 24;
    timing.clock_timestamp_flag[0] = 1;
    timing.clock_timestamp[0] = {.ct_type = 0,
                                 .nuit_field_based_flag = 0,
                                 .counting_type = 1,
                                 .full_timestamp_flag = 1,
                                 .discontinuity_flag = 0,
                                 .cnt_dropped_flag = 0,
                                 .n_frames = 30,
                                 .seconds_flag = 1,
                                 .seconds_value = 3,
                                 .minutes_flag = 1,
                                 .minutes_value = 2,
                                 .hours_flag = 1,
                                 .hours_value = 1,
                                 .time_offset = 0};
    g_array_set_size (messages_.get (), 0);
    g_array_append_val (messages_.get (), message);
    GstMemory *sei = gst_h264_create_sei_memory_avc (4, messages_.get ());
    GstBuffer *result = gst_h264_parser_insert_sei_avc (parser_.get (), 4, buffer, sei);
    gst_memory_unref (sei);
    gst_buffer_unref (buffer);
    return result;
  }

private:
  Parser parser_{gst_h264_nal_parser_new ()};
  vorn::Owned<GArray, g_array_unref> messages_{
      g_array_new (FALSE, FALSE, sizeof (GstH264SEIMessage))};
};

/** The element, fed on its sink pad; nothing behind it. */
class ParseElement : public Method
{
public:
  ParseElement ()
  {
    auto sink = vorn::adopt (gst_element_get_static_pad (parse_.get (), "sink"));
    auto src = vorn::adopt (gst_element_get_static_pad (parse_.get (), "src"));
    gst_pad_set_chain_function (after_.get (), drop);
    gst_pad_set_active (before_.get (), TRUE);
    gst_pad_set_active (after_.get (), TRUE);
    gst_pad_link (before_.get (), sink.get ());
    gst_pad_link (src.get (), after_.get ());
    gst_element_set_state (parse_.get (), GST_STATE_PLAYING);
    gst_pad_push_event (before_.get (), gst_event_new_stream_start ("bench"));
    // avcC with one SPS and one PPS.
    Bytes record = {1, sps[1], sps[2], sps[3], 0xff, 0xe1, 0, sizeof sps};
    record.insert (record.end (), std::begin (sps), std::end (sps));
    record.insert (record.end (), {1, 0, sizeof pps});
    record.insert (record.end (), std::begin (pps), std::end (pps));
    auto data = vorn::adopt (gst_buffer_new_memdup (record.data (), record.size ()));
    auto caps = vorn::adopt (
        gst_caps_new_simple ("video/x-h264", "stream-format", G_TYPE_STRING, "avc", "alignment",
                             G_TYPE_STRING, "au", "width", G_TYPE_INT, 1280, "height", G_TYPE_INT,
                             720, "codec_data", GST_TYPE_BUFFER, data.get (), nullptr));
    gst_pad_push_event (before_.get (), gst_event_new_caps (caps.get ()));
    GstSegment segment;
    gst_segment_init (&segment, GST_FORMAT_TIME);
    gst_pad_push_event (before_.get (), gst_event_new_segment (&segment));
  }
  ~ParseElement () override { gst_element_set_state (parse_.get (), GST_STATE_NULL); }
  ParseElement (const ParseElement &) = delete;
  ParseElement &operator= (const ParseElement &) = delete;

  GstBuffer *process (GstBuffer *buffer) override
  {
    if (gst_pad_push (before_.get (), buffer) != GST_FLOW_OK)
      abort ();
    return nullptr;
  }

private:
  static GstFlowReturn drop (GstPad *, GstObject *, GstBuffer *buffer)
  {
    gst_buffer_unref (buffer);
    return GST_FLOW_OK;
  }

  vorn::Ref<GstElement> parse_ = vorn::adopt (gst_element_factory_make ("h264parse", nullptr));
  vorn::Ref<GstPad> before_ = vorn::adopt (gst_pad_new ("before", GST_PAD_SRC));
  vorn::Ref<GstPad> after_ = vorn::adopt (gst_pad_new ("after", GST_PAD_SINK));
};

template <typename M>
void BM_access_unit (benchmark::State &state)
{
  const bool sync = state.range (0) != 0;
  Bytes first = make_unit (true, 1000);
  Bytes unit = make_unit (sync, static_cast<size_t> (state.range (1)));
  M method;
  const auto release = [] (GstBuffer *buffer) {
    if (buffer)
      gst_buffer_unref (buffer);
  };
  release (method.process (make_buffer (first, true)));

  std::vector<GstBuffer *> buffers (batch);
  size_t units = 0;
  allocations = 0;
  copied_bytes = 0;
  while (state.KeepRunningBatch (batch)) {
    state.PauseTiming ();
    for (GstBuffer *&buffer : buffers)
      buffer = make_buffer (unit, sync);
    counting = getenv ("VORN_BENCH_COUNT") != nullptr;
    state.ResumeTiming ();
    for (GstBuffer *&buffer : buffers)
      buffer = method.process (buffer);
    state.PauseTiming ();
    counting = false;
    for (GstBuffer *buffer : buffers)
      release (buffer);
    units += batch;
    state.ResumeTiming ();
  }
  if (getenv ("VORN_BENCH_COUNT")) {
    state.counters["allocations"] = static_cast<double> (allocations) / static_cast<double> (units);
    state.counters["copied_bytes"] =
        static_cast<double> (copied_bytes) / static_cast<double> (units);
  }
}

void each_unit (benchmark::internal::Benchmark *benchmark)
{
  benchmark->ArgNames ({"sync", "bytes"});
  for (const int sync : {1, 0})
    for (const int bytes : {10000, 100000, 1000000})
      benchmark->Args ({sync, bytes});
}

BENCHMARK (BM_access_unit<Postprocessing>)->Name ("frame_postprocessor")->Apply (each_unit);
BENCHMARK (BM_access_unit<StockParsers>)->Name ("codecparsers")->Apply (each_unit);
BENCHMARK (BM_access_unit<ParseElement>)->Name ("h264parse")->Apply (each_unit);

} // namespace

int main (int argc, char **argv)
{
  // GLib's slices would hide what they take from the heap.
  if (getenv ("VORN_BENCH_COUNT") && !getenv ("G_SLICE")) {
    setenv ("G_SLICE", "always-malloc", 1);
    execv ("/proc/self/exe", argv);
  }
  vorn_framework_init (nullptr, nullptr);
  benchmark::Initialize (&argc, argv);
  benchmark::RunSpecifiedBenchmarks ();
  return 0;
}
