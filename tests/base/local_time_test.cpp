// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/local_time.h>

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <random>

#include <glib.h>
#include <gtest/gtest.h>

#include <vorn/raii.hpp>

static bool operator== (const VornCalendarTime &a, const VornCalendarTime &b)
{
  return a.year == b.year && a.month == b.month && a.day == b.day && a.hour == b.hour &&
         a.minute == b.minute && a.second == b.second &&
         a.utc_offset_seconds == b.utc_offset_seconds;
}

static void PrintTo (const VornCalendarTime &time, std::ostream *out)
{
  *out << time.year + 1900 << '-' << time.month + 1 << '-' << time.day << ' ' << time.hour << ':'
       << time.minute << ':' << time.second << " offset " << time.utc_offset_seconds;
}

namespace
{

using OwnedDateTime = vorn::Owned<GDateTime, g_date_time_unref>;
using OwnedTimeZone = vorn::Owned<GTimeZone, g_time_zone_unref>;

class LocalTime : public testing::Test
{
protected:
  void TearDown () override { unsetenv ("TZ"); }
};

VornCalendarTime fields_at (int64_t unix_milliseconds)
{
  VornLocalTime time = {};
  VornCalendarTime fields = {};
  EXPECT_EQ (vorn_local_time_at (unix_milliseconds, &time), 0);
  EXPECT_EQ (vorn_local_time_break_down (&time, &fields), 0);
  return fields;
}

struct ZoneCase {
  const char *zone;
  int64_t unix_seconds;
  VornCalendarTime expected;
};

// Well-known moments: changes of daylight saving, half-hour and quarter-hour zones, leap days.
const ZoneCase zone_cases[] = {
    {"UTC", 0, {70, 0, 1, 0, 0, 0, 0}},
    {"UTC", -1, {69, 11, 31, 23, 59, 59, 0}},
    {"UTC", 951782400, {100, 1, 29, 0, 0, 0, 0}},
    {"UTC", 4107542400, {200, 2, 1, 0, 0, 0, 0}}, // 2100 has no leap day
    {"Europe/Paris", 1774745999, {126, 2, 29, 1, 59, 59, 3600}},
    {"Europe/Paris", 1774746000, {126, 2, 29, 3, 0, 0, 7200}},
    {"Europe/Paris", 1792889999, {126, 9, 25, 2, 59, 59, 7200}},
    {"Europe/Paris", 1792890000, {126, 9, 25, 2, 0, 0, 3600}},
    {"Asia/Kolkata", 1763596800, {125, 10, 20, 5, 30, 0, 19800}},
    {"Asia/Kathmandu", 1763596800, {125, 10, 20, 5, 45, 0, 20700}},
    {"Australia/Lord_Howe", 1763596800, {125, 10, 20, 11, 0, 0, 39600}},
    {"Australia/Lord_Howe", 1782777600, {126, 5, 30, 10, 30, 0, 37800}},
    {"America/St_Johns", 1763596800, {125, 10, 19, 20, 30, 0, -12600}},
    {"America/St_Johns", 1782777600, {126, 5, 29, 21, 30, 0, -9000}},
};

TEST_F (LocalTime, KnownMoments)
{
  for (const auto &row : zone_cases) {
    setenv ("TZ", row.zone, 1);
    EXPECT_EQ (fields_at (row.unix_seconds * 1000), row.expected) << row.zone;
  }
}

TEST_F (LocalTime, AgreesWithGDateTime)
{
  std::mt19937_64 random (7);
  std::uniform_int_distribution<int64_t> moments (-2'000'000'000, 2'145'000'000);
  for (const char *zone : {"UTC", "Europe/Paris", "America/New_York", "America/St_Johns",
                           "Asia/Kolkata", "Asia/Kathmandu", "Australia/Lord_Howe",
                           "Pacific/Auckland", "Pacific/Kiritimati", "Africa/Casablanca"}) {
    setenv ("TZ", zone, 1);
    const OwnedTimeZone reference_zone (g_time_zone_new_identifier (zone));
    ASSERT_TRUE (reference_zone) << zone << ": package tzdata is needed";
    for (int i = 0; i < 300; i++) {
      const int64_t moment = moments (random);
      const OwnedDateTime utc (g_date_time_new_from_unix_utc (moment));
      const OwnedDateTime local (g_date_time_to_timezone (utc.get (), reference_zone.get ()));
      const auto offset =
          static_cast<int32_t> (g_date_time_get_utc_offset (local.get ()) / G_USEC_PER_SEC);
      const VornCalendarTime expected = {g_date_time_get_year (local.get ()) - 1900,
                                         g_date_time_get_month (local.get ()) - 1,
                                         g_date_time_get_day_of_month (local.get ()),
                                         g_date_time_get_hour (local.get ()),
                                         g_date_time_get_minute (local.get ()),
                                         g_date_time_get_second (local.get ()),
                                         offset};
      EXPECT_EQ (fields_at (moment * 1000), expected) << zone << " at " << moment;
    }
  }
}

struct MillisecondCase {
  int64_t unix_milliseconds;
  int64_t seconds;
  int32_t milliseconds;
};

TEST_F (LocalTime, MillisecondsCountUpwards)
{
  setenv ("TZ", "UTC", 1);
  for (const auto &row : {MillisecondCase{0, 0, 0}, MillisecondCase{999, 0, 999},
                          MillisecondCase{1000, 1, 0}, MillisecondCase{-1, -1, 999},
                          MillisecondCase{-1000, -1, 0}, MillisecondCase{-1001, -2, 999}}) {
    VornLocalTime time = {};
    ASSERT_EQ (vorn_local_time_at (row.unix_milliseconds, &time), 0);
    EXPECT_EQ (time.seconds, row.seconds);
    EXPECT_EQ (time.milliseconds, row.milliseconds);
  }
}

TEST_F (LocalTime, NowIsNow)
{
  setenv ("TZ", "Asia/Kolkata", 1);
  const int64_t before = g_get_real_time () / 1000;
  VornLocalTime time = {};
  vorn_local_time_now (&time);
  const int64_t after = g_get_real_time () / 1000;
  const int64_t now = time.seconds * 1000 + time.milliseconds;
  EXPECT_LE (before, now);
  EXPECT_LE (now, after);
  EXPECT_EQ (time.utc_offset_seconds, 19800);
  EXPECT_GE (time.milliseconds, 0);
  EXPECT_LE (time.milliseconds, 999);
}

TEST_F (LocalTime, BreakDownKeepsToItsArgument)
{
  setenv ("TZ", "Asia/Kolkata", 1);
  const VornLocalTime time = {1763596800, 250, -12600};
  VornCalendarTime fields = {};
  ASSERT_EQ (vorn_local_time_break_down (&time, &fields), 0);
  EXPECT_EQ (fields, (VornCalendarTime{125, 10, 19, 20, 30, 0, -12600}));
}

TEST_F (LocalTime, YearsThatDoNotFit)
{
  setenv ("TZ", "UTC", 1);
  VornLocalTime time = {1, 2, 3};
  // The year of the greatest moment in milliseconds, 292278994, fits.
  EXPECT_EQ (vorn_local_time_at (std::numeric_limits<int64_t>::max (), &time), 0);
  time = {std::numeric_limits<int64_t>::max (), 0, 0};
  VornCalendarTime fields = {1, 2, 3, 4, 5, 6, 7};
  EXPECT_EQ (vorn_local_time_break_down (&time, &fields), -EOVERFLOW);
  time.utc_offset_seconds = 1;
  EXPECT_EQ (vorn_local_time_break_down (&time, &fields), -EOVERFLOW);
  EXPECT_EQ (fields, (VornCalendarTime{1, 2, 3, 4, 5, 6, 7}));
}

} // namespace
