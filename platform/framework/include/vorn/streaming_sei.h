/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * The streaming SEI writer: the content of the user-data message "Kavrel Streaming v2", by which a
 * receiver of the video stream learns how its pictures are cut into slices, so that it knows what
 * is missing when one is lost. The message is sent as user_data_unregistered with each sync frame.
 *
 * UUID: b9a1f0d2-6c3e-4f57-8e04-3d7b52c816ea
 *
 *     byte 0, 1   slice count of a picture, unsigned, big endian
 *     byte 2, 3   macroblocks per slice (the last slice may have fewer), unsigned, big endian
 *
 * Thread-safe.
 */
#ifndef VORN_STREAMING_SEI_H
#define VORN_STREAMING_SEI_H

#include <stddef.h>
#include <stdint.h>

#include <vorn/api.h>

VORN_BEGIN_DECLS

/** Sizes in bytes of the message's UUID and of what follows it. */
#define VORN_STREAMING_SEI_UUID_SIZE 16
#define VORN_STREAMING_SEI_PAYLOAD_SIZE 4

/** How a picture is cut into slices. */
typedef struct {
  uint16_t slice_count;    /**< slices per picture, at least 1 */
  uint16_t slice_mb_count; /**< macroblocks per slice, modulo 65536 */
} VornStreamingSeiSliceLayout;

/**
 * Writes the message for a slice layout. payload_size: in, the bytes that payload has place for;
 * out, the bytes written (4). Returns 0 or a negative errno, then nothing is changed: -EINVAL, an
 * argument is NULL; -ERANGE, the slice count is 0; -ENOSPC, payload is too small.
 */
VORN_API int vorn_streaming_sei_write (const VornStreamingSeiSliceLayout *layout, uint8_t *payload,
                                       size_t *payload_size,
                                       uint8_t uuid[VORN_STREAMING_SEI_UUID_SIZE]);

VORN_END_DECLS

#endif
