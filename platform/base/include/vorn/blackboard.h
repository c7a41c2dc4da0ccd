/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * The shared-data blackboard: named sections of timestamped samples of one size, in shared memory.
 * One writer per section, any number of readers in any process of the same user.
 *
 *     const VornBlackboardHeader header = {16, 2000, 1000, 4};
 *     VornBlackboardWriter *writer = vorn_blackboard_create ("accurate_attitude", &header);
 *     vorn_blackboard_write (writer, quaternion, &time);
 *
 *     VornBlackboardRevision *revision;
 *     VornBlackboardReader *reader = vorn_blackboard_open ("accurate_attitude", &revision);
 *     vorn_blackboard_select (reader, &start, VORN_BLACKBOARD_SPAN, 33);
 *     int n = vorn_blackboard_read (reader, 0, quaternions, sizeof quaternions);
 *     if (vorn_blackboard_end_read (reader, revision) == 0)
 *       use (quaternions, n);
 *
 * A section is a ring: it keeps the last sample_count samples. Writing never waits for readers and
 * reading never waits for the writer; a read that the writer overtook fails with -EAGAIN, and no
 * read ever yields a sample that is part old, part new.
 *
 * Sections live in a namespace, so that several drones and parallel tests share a machine. The
 * default blackboard is the namespace named by the environment variable VORN_NAMESPACE ("default"
 * when it is not set or empty), unless vorn_blackboard_set_namespace chose another.
 *
 * Names (sections: at most 64 characters, namespaces: at most 32) are made of ASCII letters,
 * digits, '_' and '-'.
 *
 * Errors: functions return a negative errno, constructors NULL with errno set. Refusals are logged
 * under the tag "blackboard" with the section and the reason. A NULL handle gives -EINVAL.
 *
 * Threads: a writer or a reader is bound to one thread at a time; the functions without a handle
 * are thread-safe, and different handles may be used in different threads at once.
 */
#ifndef VORN_BLACKBOARD_H
#define VORN_BLACKBOARD_H

#include <stddef.h>
#include <stdint.h>
#include <time.h>

#include <vorn/api.h>

VORN_BEGIN_DECLS

/** A section's header. */
typedef struct {
  uint32_t sample_size;  /**< bytes of one sample, 1 to 1048576 */
  uint32_t sample_count; /**< samples that the section keeps, 1 to 16777216 */
  uint32_t rate;         /**< samples per second, 0 when irregular; only speeds up the search */
  uint32_t fourth;       /**< carried as it is */
} VornBlackboardHeader;

/** How samples are selected by time. Of samples with equal times the newest counts as the latest.
 */
typedef enum {
  /** the newest sample; the time is not looked at and may be NULL */
  VORN_BLACKBOARD_LATEST = 0,
  /** the sample valid at the time: the latest at or before it */
  VORN_BLACKBOARD_AT_OR_BEFORE = 1,
  /** the first sample at or after the time */
  VORN_BLACKBOARD_AT_OR_AFTER = 2,
  /** the reference sample, which is the latest at or before the time, and the samples after it */
  VORN_BLACKBOARD_SPAN = 3,
} VornBlackboardMethod;

/** How far after the newest sample a span may start, in milliseconds. */
#define VORN_BLACKBOARD_SPAN_MAX_AHEAD_MS 100

/** A section as its writer holds it. */
typedef struct VornBlackboardWriter VornBlackboardWriter;

/** A section as a reader holds it. */
typedef struct VornBlackboardReader VornBlackboardReader;

/** What a read relied on; belongs to the reader that it came with. */
typedef struct VornBlackboardRevision VornBlackboardRevision;

/**
 * Creates a section, readable and writable by the user of the writer only. What a writer that died
 * has left under this name is taken over: its history ends and its readers find the new section.
 *
 * Returns the writer (release with vorn_blackboard_writer_close), or NULL with errno: EINVAL for a
 * name or a header out of range, EBUSY while another writer has the section, EPERM when it belongs
 * to another user, ENOSPC or ENOMEM without room, or what the system says.
 */
VORN_API VornBlackboardWriter *vorn_blackboard_create (const char *name,
                                                       const VornBlackboardHeader *header);

/**
 * Appends one sample of the section's sample size; the oldest one goes when the ring is full.
 * Wait-free, no system call. Times are expected to grow, equal ones are fine; a time before the
 * newest sample's (the clock was set back) starts the history anew, with a warning.
 *
 * time: seconds 0 to 18446744072, nanoseconds 0 to 999999999.
 * Returns 0 or -EINVAL.
 */
VORN_API int vorn_blackboard_write (VornBlackboardWriter *writer, const void *sample,
                                    const struct timespec *time);

/**
 * Withdraws the section and releases the writer. Readers that hold it find -ENOENT at their next
 * select, until a writer is back. Returns 0 or -EINVAL.
 */
VORN_API int vorn_blackboard_writer_close (VornBlackboardWriter *writer);

/**
 * Opens a section for reading. The section of a writer that died is readable until it is taken
 * over or removed.
 *
 * revision: receives the handle that vorn_blackboard_end_read and vorn_blackboard_close want.
 * Returns the reader (release with vorn_blackboard_close), or NULL with errno: ENOENT without such
 * a section, EACCES or EPERM when it is not this user's, EBADMSG when it is damaged or no section
 * at all, EPROTONOSUPPORT when its format is of another version or byte order, EINVAL for a bad
 * name.
 */
VORN_API VornBlackboardReader *vorn_blackboard_open (const char *name,
                                                     VornBlackboardRevision **revision);

/** Stores the header of the section as found when it was last opened or selected from. */
VORN_API int vorn_blackboard_get_header (VornBlackboardReader *reader,
                                         VornBlackboardHeader *header);

/**
 * Selects samples by time; starts a read. A section that was withdrawn or taken over since is
 * looked up anew first.
 *
 * method: a VornBlackboardMethod.
 * count: with VORN_BLACKBOARD_SPAN the number of samples wanted after the reference sample (fewer
 * are selected when the newest comes first); 0 with the other methods.
 *
 * Returns 0, or
 *   -ENOENT   no section at present, no sample yet, or none so early (the first came later)
 *   -ERANGE   the samples of that time have been overwritten
 *   -ENODATA  no sample so late: none at or after the time, or a span that starts more than
 *             VORN_BLACKBOARD_SPAN_MAX_AHEAD_MS after the newest sample
 *   -EAGAIN   the writer overwrote samples faster than they could be searched
 *   -ESTALE   a new writer gave the section another sample size: close and open it again
 *   -EINVAL   a bad argument
 * or what vorn_blackboard_open reports for a section that cannot be opened.
 */
VORN_API int vorn_blackboard_select (VornBlackboardReader *reader, const struct timespec *time,
                                     uint32_t method, uint32_t count);

/**
 * Copies a quantity of the selected samples, oldest first. A sample has one quantity, index 0: its
 * sample_size bytes.
 *
 * size: room in buffer, in bytes; at least one sample. Fewer samples are read when it is short.
 * Returns the number of samples read, -EAGAIN when the writer overwrote one of them (the buffer's
 * content is then meaningless), or -EINVAL, also without a selection.
 */
VORN_API int vorn_blackboard_read (VornBlackboardReader *reader, uint32_t quantity, void *buffer,
                                   size_t size);

/** As vorn_blackboard_read, for the times of the selected samples; count: room in times. */
VORN_API int vorn_blackboard_read_times (VornBlackboardReader *reader, struct timespec *times,
                                         size_t count);

/**
 * Ends the read. Returns 0 when the selected samples are still what they were at the selection,
 * -EAGAIN when the writer has overwritten any of them since, -EINVAL without a selection or for
 * another reader's revision.
 */
VORN_API int vorn_blackboard_end_read (VornBlackboardReader *reader,
                                       VornBlackboardRevision *revision);

/** Closes the section and releases reader and revision. Returns 0 or -EINVAL. */
VORN_API int vorn_blackboard_close (VornBlackboardReader *reader, VornBlackboardRevision *revision);

/**
 * Chooses the namespace of what is created and opened from now on in this process, telemetry
 * included (NULL: the environment's again). Returns 0 or -EINVAL.
 */
VORN_API int vorn_blackboard_set_namespace (const char *name);

/**
 * Removes what a dead writer has left of a section. Returns 0, -ENOENT, -EBUSY while its writer
 * lives, or another negative errno.
 */
VORN_API int vorn_blackboard_remove (const char *name);

/**
 * Removes what dead writers have left of all sections of a namespace (NULL: the current one),
 * telemetry included. Returns the number of sections removed, or -EBUSY when at least one had a
 * living writer (it stays, the others are gone), or another negative errno.
 */
VORN_API int vorn_blackboard_remove_namespace (const char *name);

VORN_END_DECLS

#endif
