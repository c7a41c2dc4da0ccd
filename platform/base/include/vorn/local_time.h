/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * Local time helpers: the current local time with its offset from UTC, and its calendar fields.
 *
 * The time zone is the system's, or that of the environment variable TZ; a change of either is
 * noticed at the next call. All functions are thread-safe as long as no other thread changes the
 * environment meanwhile.
 */
#ifndef VORN_LOCAL_TIME_H
#define VORN_LOCAL_TIME_H

#include <stdint.h>

#include <vorn/api.h>

VORN_BEGIN_DECLS

/** A moment and the offset that local time has then. */
typedef struct {
  int64_t seconds;            /* since 1970-01-01 00:00:00 UTC, rounded down */
  int32_t milliseconds;       /* 0 to 999, to be added to seconds */
  int32_t utc_offset_seconds; /* local time minus UTC, daylight saving included; east is positive */
} VornLocalTime;

/** Calendar fields of local time, counted as in struct tm. */
typedef struct {
  int32_t year;   /* since 1900 */
  int32_t month;  /* 0 to 11 */
  int32_t day;    /* 1 to 31 */
  int32_t hour;   /* 0 to 23 */
  int32_t minute; /* 0 to 59 */
  int32_t second; /* 0 to 59 */
  int32_t utc_offset_seconds;
} VornCalendarTime;

/** The current local time, from the system's clock. */
VORN_API void vorn_local_time_now (VornLocalTime *time);

/**
 * The local time of a given moment, in milliseconds since 1970-01-01 00:00:00 UTC (negative:
 * before). Returns 0, or -EOVERFLOW when the calendar's year does not fit; time is then untouched.
 */
VORN_API int vorn_local_time_at (int64_t unix_milliseconds, VornLocalTime *time);

/**
 * Breaks a local time down into calendar fields (proleptic Gregorian calendar). Uses nothing but
 * its argument: the zone may have changed since. Returns 0, or -EOVERFLOW when the year does not
 * fit; fields is then untouched.
 */
VORN_API int vorn_local_time_break_down (const VornLocalTime *time, VornCalendarTime *fields);

VORN_END_DECLS

#endif
