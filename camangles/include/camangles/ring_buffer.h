/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * Ring-buffer handle: a size and two indices over arrays that the caller owns.
 *
 * The samples live in plain arrays (one per axis, one of timestamps, one of quaternions) that are
 * all indexed by the same handle; several handles may walk the same arrays. A handle is a plain
 * value: a copy is a second, independent cursor. One slot always stays free, so a handle of size n
 * holds at most n - 1 samples and rd == wr always means empty.
 *
 * All functions are reentrant; a handle and its arrays are bound to one thread at a time. Every
 * result is int32_t, -1 on failure; a null handle gives -1 without a log line unless said
 * otherwise. Errors are logged under the tag "camangles_ring_buffer".
 */
#ifndef CAMANGLES_RING_BUFFER_H
#define CAMANGLES_RING_BUFFER_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Cursor pair. {size, 0, 0} is an empty buffer. Any size is allowed, powers of two or not. */
typedef struct {
  uint32_t size; /**< slots of the arrays that the handle indexes; fixed */
  uint32_t rd;   /**< 0 <= rd < size: the oldest sample not yet consumed */
  uint32_t wr;   /**< 0 <= wr < size: the slot the next sample is written into */
} ringBuffer_t;

/**
 * Brings index into [0, size), unwrapping by at most one turn in either direction. Returns the
 * slot, or -1 after logging "error, value (%d) out of range for unwraping". Sizes are compared as
 * signed numbers.
 */
int32_t ringBufferWrapIndex (const ringBuffer_t *handle, int32_t index);

/** Number of samples ready to be read: (wr - rd) mod size. */
int32_t ringBufferDiff (const ringBuffer_t *handle);

/**
 * Advances the writer by offset samples that the caller has already written. An offset of size or
 * more is refused: a log line, -1, nothing changes. When older samples are overwritten the reader
 * is pushed forward over them and the result is -1 although the writer has moved (no log line).
 */
int32_t ringBufferMoveWriter (ringBuffer_t *handle, uint32_t offset);

/**
 * Consumes count samples. More than are ready is refused: a log line, -1, nothing changes. The
 * comparison is signed, so a count above INT32_MAX passes it, moves nothing and gives 0.
 */
int32_t ringBufferMoveReader (ringBuffer_t *handle, uint32_t count);

/**
 * Brings the writer of destination up to the writer of source, both being handles over the same
 * arrays. The destination's reader is pushed forward as in ringBufferMoveWriter, whose result this
 * returns. A null handle or different sizes: "error, both handlers don't match" and -1.
 */
int32_t ringBufferMergeWriter (const ringBuffer_t *source, ringBuffer_t *destination);

/**
 * Copies up to max_count elements of element_size bytes to out, in reading order, without
 * consuming. start is the slot to begin at, or negative for the reader. Returns the number of
 * elements copied, or -1 without a log line for null pointers, a non-positive size or count, a
 * start outside the buffer, or when nothing is ready behind start.
 */
int32_t ringBufferGetSamples (const ringBuffer_t *handle, const void *data, int32_t start,
                              int32_t element_size, void *out, int32_t max_count);

#ifdef __cplusplus
}
#endif

#endif
