// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/streaming_sei.h>

#include <cerrno>
#include <cstring>

namespace
{

constexpr uint8_t streaming_uuid[VORN_STREAMING_SEI_UUID_SIZE] = {
    0xb9, 0xa1, 0xf0, 0xd2, 0x6c, 0x3e, 0x4f, 0x57, 0x8e, 0x04, 0x3d, 0x7b, 0x52, 0xc8, 0x16, 0xea,
};

void put_u16 (uint8_t *data, uint16_t value)
{
  data[0] = static_cast<uint8_t> (value >> 8);
  data[1] = static_cast<uint8_t> (value);
}

} // namespace

int vorn_streaming_sei_write (const VornStreamingSeiSliceLayout *layout, uint8_t *payload,
                              size_t *payload_size, uint8_t uuid[VORN_STREAMING_SEI_UUID_SIZE])
{
  if (!layout || !payload || !payload_size || !uuid)
    return -EINVAL;
  if (layout->slice_count == 0)
    return -ERANGE;
  if (*payload_size < VORN_STREAMING_SEI_PAYLOAD_SIZE)
    return -ENOSPC;
  put_u16 (payload, layout->slice_count);
  put_u16 (payload + 2, layout->slice_mb_count);
  *payload_size = VORN_STREAMING_SEI_PAYLOAD_SIZE;
  memcpy (uuid, streaming_uuid, sizeof streaming_uuid);
  return 0;
}
