/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * What flows at present: the sections of a namespace, of the blackboard and of the telemetry bus,
 * for tools that look on. All functions are thread-safe.
 */
#ifndef VORN_SECTIONS_H
#define VORN_SECTIONS_H

#include <stdint.h>
#include <time.h>

#include <vorn/api.h>
#include <vorn/blackboard.h>

VORN_BEGIN_DECLS

/** What a section's samples are. */
typedef enum {
  VORN_SECTION_BLACKBOARD = 0,
  VORN_SECTION_TELEMETRY = 1,
} VornSectionKind;

/** A section as it is found. */
typedef struct {
  const char *name;
  uint32_t kind;         /**< VornSectionKind */
  uint32_t writer_lives; /**< 0: its writer died and nobody took it over */
  VornBlackboardHeader header;
  uint64_t written;       /**< samples since the writer began */
  struct timespec newest; /**< time of the newest sample; all zero before the first */
} VornSectionInfo;

/** A variable of a telemetry section. */
typedef struct {
  const char *name;
  uint32_t type;  /**< VornTelemetryType */
  uint32_t size;  /**< bytes of one element */
  uint32_t count; /**< elements */
} VornTelemetryVariable;

/** Gets a section, valid during the call only. */
typedef void (*VornSectionFunc) (const VornSectionInfo *section, void *user_data);

/** Gets a variable, valid during the call only. */
typedef void (*VornTelemetryVariableFunc) (const VornTelemetryVariable *variable, void *user_data);

/**
 * Calls func for every section of a namespace (NULL: the current one), the blackboard's first, each
 * kind in the order of the names. Sections that are withdrawn or made meanwhile may be missed; a
 * damaged one is logged and left out.
 *
 * Returns the number of sections, -EINVAL for a bad namespace or no func, or the negative errno of
 * looking into shared memory.
 */
VORN_API int vorn_sections_list (const char *name_space, VornSectionFunc func, void *user_data);

/**
 * Calls func for every variable of a telemetry section of the current namespace, in the order of
 * their registration.
 *
 * Returns their number, -ENOENT without such a section, -EBADMSG for a damaged one, -EINVAL for a
 * bad name or no func, or what vorn_blackboard_open reports.
 */
VORN_API int vorn_telemetry_list_variables (const char *section, VornTelemetryVariableFunc func,
                                            void *user_data);

VORN_END_DECLS

#endif
