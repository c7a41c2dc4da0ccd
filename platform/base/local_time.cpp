// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/local_time.h>

#include <cerrno>
#include <ctime>

namespace
{

static_assert (sizeof (time_t) == sizeof (int64_t), "dates beyond 2038 need a 64-bit time_t");

int local_time_of (time_t seconds, int32_t milliseconds, VornLocalTime *time)
{
  // localtime_r alone may keep the zone that it read first.
  tzset ();
  tm fields = {};
  if (!localtime_r (&seconds, &fields))
    return -EOVERFLOW;
  *time = {seconds, milliseconds, static_cast<int32_t> (fields.tm_gmtoff)};
  return 0;
}

} // namespace

void vorn_local_time_now (VornLocalTime *time)
{
  timespec now = {};
  clock_gettime (CLOCK_REALTIME, &now);
  const auto milliseconds = static_cast<int32_t> (now.tv_nsec / 1000000);
  if (local_time_of (now.tv_sec, milliseconds, time) < 0)
    *time = {now.tv_sec, milliseconds, 0};
}

int vorn_local_time_at (int64_t unix_milliseconds, VornLocalTime *time)
{
  int64_t seconds = unix_milliseconds / 1000;
  auto milliseconds = static_cast<int32_t> (unix_milliseconds % 1000);
  if (milliseconds < 0) {
    milliseconds += 1000;
    seconds--;
  }
  return local_time_of (seconds, milliseconds, time);
}

int vorn_local_time_break_down (const VornLocalTime *time, VornCalendarTime *fields)
{
  time_t local_seconds = 0;
  if (__builtin_add_overflow (time->seconds, time->utc_offset_seconds, &local_seconds))
    return -EOVERFLOW;
  tm broken = {};
  if (!gmtime_r (&local_seconds, &broken))
    return -EOVERFLOW;
  *fields = {broken.tm_year, broken.tm_mon, broken.tm_mday,          broken.tm_hour,
             broken.tm_min,  broken.tm_sec, time->utc_offset_seconds};
  return 0;
}
