// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Access units from anywhere into the frame postprocessor. The input is a number of access units,
// each led by a byte of flags, a byte that says where its memory is cut in two, and its length in
// two bytes, big endian. Whatever they hold: all bytes from the first slice on that can be told are
// at the end of what comes out, before them stand whole NAL units without start codes in them, and
// one memory or two make no difference.
#include <algorithm>
#include <cstdlib>
#include <vector>

#include <vorn/frame_meta.h>
#include <vorn/framework.h>
#include <vorn/gst_raii.hpp>
#include <vorn/log.h>

#include "frame_postprocessor.hpp"

namespace
{

using Bytes = std::vector<uint8_t>;
using Buffer = vorn::Ref<GstBuffer>;
using Postprocessor = vorn::Owned<FramePostprocessor, frame_postprocessor_free>;

enum Flags : uint8_t {
  WITH_META = 1,
  SYNC_POINT = 2,
  LATE_CLOCK = 4,
  READ_ONLY = 8,
  SHARED = 16,
};

void require (bool holds)
{
  if (!holds)
    abort ();
}

/** Big endian. */
uint32_t read_number (const uint8_t *data, unsigned bytes)
{
  uint32_t value = 0;
  for (unsigned i = 0; i < bytes; i++)
    value = value << 8 | data[i];
  return value;
}

/** Where the first slice begins that whole NAL units lead to; 0 without one. */
size_t first_slice (const Bytes &unit)
{
  for (size_t at = 0; at + 4 < unit.size ();) {
    const uint64_t size = read_number (unit.data () + at, 4);
    const unsigned type = unit[at + 4] & 0x1f;
    if (size == 0 || size > UINT32_MAX - 4)
      return 0;
    if (type == 1 || type == 5)
      return at;
    // Prefix and extension units have three bytes more in their header.
    if ((type == 14 || type == 20) && size < 4)
      return 0;
    at += 4 + size;
  }
  return 0;
}

Buffer make_buffer (const Bytes &unit, size_t cut, uint8_t flags)
{
  auto buffer = vorn::adopt (gst_buffer_new ());
  const auto append = [&] (const uint8_t *data, size_t size) {
    if (size == 0)
      return;
    const auto memory_flags =
        static_cast<GstMemoryFlags> ((flags & READ_ONLY) != 0 ? GST_MEMORY_FLAG_READONLY : 0);
    gst_buffer_append_memory (buffer.get (),
                              gst_memory_new_wrapped (memory_flags, const_cast<uint8_t *> (data),
                                                      size, 0, size, nullptr, nullptr));
  };
  append (unit.data (), cut);
  append (unit.data () + cut, unit.size () - cut);
  if ((flags & WITH_META) != 0)
    gst_structure_set (
        vorn_frame_meta_add (buffer.get ())->structure, "capture-timestamp", GST_TYPE_CLOCK_TIME,
        (flags & LATE_CLOCK) != 0 ? GST_CLOCK_TIME_NONE - 1 : GstClockTime{3723500000000},
        "sync-point", G_TYPE_BOOLEAN, (flags & SYNC_POINT) != 0, nullptr);
  return buffer;
}

Bytes bytes_of (GstBuffer *buffer)
{
  Bytes bytes (gst_buffer_get_size (buffer));
  if (!bytes.empty ())
    require (gst_buffer_extract (buffer, 0, bytes.data (), bytes.size ()) == bytes.size ());
  return bytes;
}

void check_what_was_put_before (const uint8_t *data, size_t size)
{
  while (size > 0) {
    require (size > 4);
    const size_t unit_size = read_number (data, 4);
    require (unit_size > 0 && unit_size <= size - 4);
    const uint8_t *unit = data + 4;
    const unsigned type = unit[0] & 0x1f;
    require (type == 6 || type == 7 || type == 8);
    if (type == 6) // the others are as they came
      for (size_t i = 2; i < unit_size; i++)
        require (unit[i - 2] != 0 || unit[i - 1] != 0 || unit[i] > 2);
    data += 4 + unit_size;
    size -= 4 + unit_size;
  }
}

void process (FramePostprocessor *state, const Bytes &unit, size_t cut, uint8_t flags,
              Bytes *result)
{
  Bytes bytes (unit.begin (), unit.end ()); // must come back as they are
  Buffer buffer = make_buffer (bytes, cut, flags);
  Buffer other = (flags & SHARED) != 0 ? vorn::adopt (gst_buffer_copy (buffer.get ())) : nullptr;
  const VornResolution frame_size = {1920, 1080};
  require (frame_postprocessor_process (state, &frame_size, buffer.get ()) != 0);
  *result = bytes_of (buffer.get ());
  require (bytes == unit);
  if (other)
    require (bytes_of (other.get ()) == unit);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size);

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
  static const bool initialized = [] {
    vorn_framework_init (nullptr, nullptr);
    vorn_log_set_level (nullptr, 0);
    gst_debug_set_default_threshold (GST_LEVEL_NONE);
    return true;
  }();
  (void)initialized;

  const Postprocessor whole (frame_postprocessor_new ());
  const Postprocessor parted (frame_postprocessor_new ());
  while (size >= 4) {
    const uint8_t flags = data[0];
    const size_t length = std::min<size_t> (read_number (data + 2, 2), size - 4);
    const Bytes unit (data + 4, data + 4 + length);
    const size_t cut = std::min<size_t> (data[1], length);
    data += 4 + length;
    size -= 4 + length;

    Bytes result;
    process (whole.get (), unit, 0, flags, &result);
    const size_t kept = unit.size () - first_slice (unit);
    require (result.size () >= kept &&
             std::equal (unit.rbegin (), unit.rbegin () + static_cast<std::ptrdiff_t> (kept),
                         result.rbegin ()));
    check_what_was_put_before (result.data (), result.size () - kept);

    Bytes parted_result;
    process (parted.get (), unit, cut, flags, &parted_result);
    require (parted_result == result);
  }
  return 0;
}
