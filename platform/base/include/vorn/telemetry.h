/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * The telemetry bus: named sections of named, typed variables. A producer registers variables and
 * puts samples of them; consumers, in any process of the same user, register arrays of
 * "section.variable" and get the sample valid at a time, or the latest.
 *
 *     VornTelemetryProducer *producer = vorn_telemetry_producer_new ("eis_video", 120, 8333);
 *     vorn_telemetry_producer_register (producer, "clipped_hfov", VORN_TELEMETRY_F32,
 *                                       sizeof (float), 1, &record.hfov);
 *     vorn_telemetry_producer_complete (producer);
 *     vorn_telemetry_producer_put (producer, &time);
 *
 *     const VornTelemetryEntry entries[] = {
 *         {"eis_video.clipped_hfov", VORN_TELEMETRY_F32, sizeof (float), 1, &hfov},
 *     };
 *     VornTelemetryConsumer *consumer = vorn_telemetry_consumer_new ();
 *     vorn_telemetry_consumer_register (consumer, entries, 1);
 *     vorn_telemetry_consumer_complete (consumer);
 *     if (vorn_telemetry_consumer_get (consumer, &time, VORN_TELEMETRY_VALID_AT) == 0)
 *       use (hfov);
 *
 * The bus stands on the blackboard: a telemetry section is a ring of samples with the layout of its
 * variables stored beside them, in the same namespaces (vorn_blackboard_set_namespace,
 * vorn_blackboard_remove_namespace), but telemetry sections and blackboard sections of one name are
 * different things. Producers may appear, die and come back at any time; consumers follow.
 *
 * Section names are those of the blackboard. Variable names have 1 to 63 characters: ASCII letters,
 * digits, '_', '-' and '.'. An entry's name is split at its first '.'.
 *
 * Errors: functions return a negative errno, constructors NULL with errno set. Refusals are logged
 * under the tag "telemetry" with the section, the variable and the reason (those that concern the
 * shared memory itself under "blackboard"). A NULL handle gives -EINVAL.
 *
 * Threads: a producer or a consumer is bound to one thread at a time; different handles may be used
 * in different threads at once.
 */
#ifndef VORN_TELEMETRY_H
#define VORN_TELEMETRY_H

#include <stddef.h>
#include <stdint.h>
#include <time.h>

#include <vorn/api.h>

VORN_BEGIN_DECLS

/** Type codes of variables. Integers are carried bit by bit, so unsigned ones pass as well. */
typedef enum {
  VORN_TELEMETRY_INT16 = 3,
  VORN_TELEMETRY_INT32 = 5,
  VORN_TELEMETRY_F32 = 9,
  VORN_TELEMETRY_F64 = 10,
} VornTelemetryType;

/** How a sample is looked up; the numbers are those of VornBlackboardMethod. */
typedef enum {
  VORN_TELEMETRY_LATEST = 0,           /**< the newest; the time is not looked at and may be NULL */
  VORN_TELEMETRY_VALID_AT = 1,         /**< the one valid at the time: the latest at or before it */
  VORN_TELEMETRY_FIRST_NOT_BEFORE = 2, /**< the first at or after the time */
} VornTelemetryMethod;

/** One variable that a consumer wants. */
typedef struct {
  const char *name;  /**< "section.variable"; read during registration only */
  uint32_t type;     /**< a VornTelemetryType; must be the producer's */
  uint32_t size;     /**< bytes of one element: 2, 4, 4 or 8, as the type says */
  uint32_t count;    /**< elements, 1 to 65536; must be the producer's */
  void *destination; /**< room for size * count bytes; must outlive the consumer */
} VornTelemetryEntry;

typedef struct VornTelemetryProducer VornTelemetryProducer;
typedef struct VornTelemetryConsumer VornTelemetryConsumer;

/**
 * Starts a producer. Nothing is visible to consumers before vorn_telemetry_producer_complete.
 *
 * section: copied. capacity: samples that the section keeps, 1 to 16777216. period_us: the sample
 * period in microseconds, at least 1; the time between samples may differ from it.
 * Returns the producer (release with vorn_telemetry_producer_destroy), or NULL with errno EINVAL.
 */
VORN_API VornTelemetryProducer *vorn_telemetry_producer_new (const char *section, uint32_t capacity,
                                                             uint32_t period_us);

/**
 * Adds a variable, in the order of the calls; at most 1024 of them, at most 65536 bytes together.
 *
 * name: copied. type: a VornTelemetryType. size: bytes of one element, as the type says. count:
 * elements, 1 to 65536. address: where each put finds size * count bytes; must stay valid as long
 * as the producer. Returns 0, -EEXIST for a name that is registered already, or -EINVAL, also after
 * completion.
 */
VORN_API int vorn_telemetry_producer_register (VornTelemetryProducer *producer, const char *name,
                                               uint32_t type, uint32_t size, uint32_t count,
                                               const void *address);

/**
 * Completes the registration and creates the section, taking over what a producer that died has
 * left. Returns 0, -EINVAL without variables or a second time, -EBUSY while another producer has
 * the section, or what vorn_blackboard_create reports.
 */
VORN_API int vorn_telemetry_producer_complete (VornTelemetryProducer *producer);

/**
 * Publishes what the variables hold now as the sample of this time. Wait-free, no system call;
 * times as with vorn_blackboard_write. Returns 0, or -EINVAL, also before completion.
 */
VORN_API int vorn_telemetry_producer_put (VornTelemetryProducer *producer,
                                          const struct timespec *time);

/** Withdraws the section and releases the producer. Returns 0 or -EINVAL. */
VORN_API int vorn_telemetry_producer_destroy (VornTelemetryProducer *producer);

/**
 * Starts a consumer, of the namespace that is current now. Returns it (release with
 * vorn_telemetry_consumer_destroy), or NULL with errno EINVAL.
 */
VORN_API VornTelemetryConsumer *vorn_telemetry_consumer_new (void);

/**
 * Adds variables, of one section or of several; the sections need not exist. May be called several
 * times. All entries are added or none. Returns 0, or -EINVAL, also after completion.
 */
VORN_API int vorn_telemetry_consumer_register (VornTelemetryConsumer *consumer,
                                               const VornTelemetryEntry *entries, size_t n_entries);

/**
 * Completes the registration. Sections that exist already are checked against the entries: what
 * does not fit is logged now, and reported by vorn_telemetry_consumer_get as long as it is so.
 * Returns 0, or -EINVAL without entries or a second time.
 */
VORN_API int vorn_telemetry_consumer_complete (VornTelemetryConsumer *consumer);

/**
 * Looks up a sample in every section and stores the variables in their destinations: all of them,
 * or none when any section fails. The variables of one section are of one sample; samples of
 * different sections are looked up one after the other. method: a VornTelemetryMethod.
 *
 * Returns 0, or the error of the first section that failed, in the order of the entries:
 *   -ENOENT   nothing was published, or nothing as early as that time
 *   -ERANGE   what was valid at that time has been overwritten
 *   -ENODATA  nothing at or after the time (VORN_TELEMETRY_FIRST_NOT_BEFORE)
 *   -EAGAIN   the producer overwrote samples faster than they could be read
 *   -ENXIO    the section has no such variable
 *   -EPROTO   a variable has another type, size or count than its entry
 *   -EINVAL   a bad argument, or before completion
 * or what vorn_blackboard_open reports for a section that cannot be opened.
 */
VORN_API int vorn_telemetry_consumer_get (VornTelemetryConsumer *consumer,
                                          const struct timespec *time, uint32_t method);

/** Releases the consumer. Returns 0 or -EINVAL. */
VORN_API int vorn_telemetry_consumer_destroy (VornTelemetryConsumer *consumer);

VORN_END_DECLS

#endif
