/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
#include <camangles/ring_buffer.h>

#include <stddef.h>
#include <string.h>

#include <vorn/log.h>

#include "ring_moves.h"

VORN_LOG_TAG ("camangles_ring_buffer");

int32_t ringBufferWrapIndex (const ringBuffer_t *handle, int32_t index)
{
  if (!handle)
    return -1;
  const int64_t size = (int32_t)handle->size;
  int64_t wrapped = index;
  if (wrapped < 0)
    wrapped += size;
  else if (wrapped >= size)
    wrapped -= size;
  if (wrapped >= 0 && wrapped < size)
    return (int32_t)wrapped;
  VORN_LOG_ERROR ("error, value (%d) out of range for unwraping", index);
  return -1;
}

int32_t ringBufferDiff (const ringBuffer_t *handle)
{
  return handle ? ring_ready (handle) : -1;
}

int32_t ringBufferMoveWriter (ringBuffer_t *handle, uint32_t offset)
{
  if (!handle)
    return -1;
  const uint32_t size = handle->size;
  if (offset >= size) {
    VORN_LOG_ERROR ("error, can't move writer, offset (%u) >= ring buffer size (%u)", offset, size);
    return -1;
  }
  int32_t result = 0;
  const uint32_t used = (uint32_t)ring_ready (handle);
  const uint32_t room = size - 1 - used;
  if ((int32_t)offset > (int32_t)room) {
    const uint32_t lost = used + offset - (size - 1);
    if (lost < size)
      handle->rd = ring_advance (handle, handle->rd, lost);
    result = -1;
  }
  handle->wr = ring_advance (handle, handle->wr, offset);
  return result;
}

int32_t ringBufferMoveReader (ringBuffer_t *handle, uint32_t count)
{
  if (!handle)
    return -1;
  if ((int32_t)count > ring_ready (handle)) {
    VORN_LOG_ERROR ("error, can't move reader by %u, (wr %u rd %u sz %u)", count, handle->wr,
                    handle->rd, handle->size);
    return -1;
  }
  if (count < handle->size)
    handle->rd = ring_advance (handle, handle->rd, count);
  return 0;
}

int32_t ringBufferMergeWriter (const ringBuffer_t *source, ringBuffer_t *destination)
{
  if (!source || !destination || source->size != destination->size) {
    VORN_LOG_ERROR ("error, both handlers don't match");
    return -1;
  }
  const ringBuffer_t lag = {source->size, destination->wr, source->wr};
  return ringBufferMoveWriter (destination, (uint32_t)ring_ready (&lag));
}

int32_t ringBufferGetSamples (const ringBuffer_t *handle, const void *data, int32_t start,
                              int32_t element_size, void *out, int32_t max_count)
{
  if (!handle || !data || !out || element_size < 1 || max_count < 1)
    return -1;
  const uint32_t position = start >= 0 ? (uint32_t)start : handle->rd;
  if (position >= handle->size)
    return -1;
  const ringBuffer_t rest = {handle->size, position, handle->wr};
  const int32_t ready = ring_ready (&rest);
  const int32_t count = max_count < ready ? max_count : ready;
  if (count < 1)
    return -1;
  const size_t bytes = (size_t)element_size;
  const size_t to_end = handle->size - position;
  const size_t first = (size_t)count < to_end ? (size_t)count : to_end;
  memcpy (out, (const char *)data + position * bytes, first * bytes);
  memcpy ((char *)out + first * bytes, data, ((size_t)count - first) * bytes);
  return count;
}
