// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Numbers, names and moments as the result files write them.
#include <cmath>
#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "report/clock_pair.hpp"
#include "report/text.hpp"
#include "temp_dir.hpp"
#include <vorn/attitude_monitor.hpp>

using namespace report;

namespace
{

constexpr double nan = std::numeric_limits<double>::quiet_NaN ();
constexpr double infinite = std::numeric_limits<double>::infinity ();
constexpr int64_t s = 1'000'000'000;
constexpr int64_t hour = 3600 * s;

TEST (ReportText, Numbers)
{
  const struct {
    double value;
    int decimals;
    std::string text;
  } rows[] = {{0, 0, "0"},         {0.5, 0, "0"},        {1.5, 0, "2"},    {-1.25, 1, "-1.2"},
              {29.97, 2, "29.97"}, {-0.0001, 2, "0.00"}, {-0.0, 1, "0.0"}, {nan, 2, ""},
              {infinite, 2, ""},   {-infinite, 0, ""}};
  for (const auto &row : rows)
    EXPECT_EQ (fixed (row.value, row.decimals), row.text) << row.value;
  EXPECT_EQ (fixed (1e300, 0).size (), 301u);
  EXPECT_EQ (fixed (-std::numeric_limits<double>::max (), 9).size (), 320u);
  EXPECT_EQ (shortest (0.1f), "0.1");
  EXPECT_EQ (shortest (0.70710677f), "0.70710677");
  EXPECT_EQ (shortest (-1), "-1");
  EXPECT_EQ (shortest (std::numeric_limits<float>::quiet_NaN ()), "");
  EXPECT_EQ (fixed_or_dash (std::nullopt, 1), "-");
  EXPECT_EQ (fixed_or_dash (nan, 1), "-");
  EXPECT_EQ (fixed_or_dash (2.25, 1), "2.2");
}

TEST (ReportText, Times)
{
  EXPECT_EQ (seconds_text (0), "0.000000000");
  EXPECT_EQ (seconds_text (12 * s + 345), "12.000000345");
  EXPECT_EQ (seconds_text (-1), "-0.000000001");
  EXPECT_EQ (seconds_text (-3 * s / 2), "-1.500000000");
}

TEST (ReportText, Sizes)
{
  const struct {
    uint64_t bytes;
    const char *text;
  } rows[] = {{0, "0 B"},          {999, "999 B"},         {1000, "1.0 kB"},
              {12540, "12.5 kB"},  {999949, "999.9 kB"},   {999950, "1.0 MB"},
              {3200000, "3.2 MB"}, {7100000000, "7.1 GB"}, {2000000000000000, "2000.0 TB"}};
  for (const auto &row : rows)
    EXPECT_EQ (size_text (row.bytes), row.text);
}

TEST (ReportText, Escapes)
{
  EXPECT_EQ (escape_markup ("a < b & \"c\""), "a &lt; b &amp; &quot;c&quot;");
  EXPECT_EQ (escape_markup ("\xff"), "\xEF\xBF\xBD") << "what is no UTF-8 is replaced";
  EXPECT_EQ (csv_field ("plain.mp4"), "plain.mp4");
  EXPECT_EQ (csv_field ("a,b"), "\"a,b\"");
  EXPECT_EQ (csv_field ("say \"x\""), "\"say \"\"x\"\"\"");
}

TEST (ReportText, NamesInAFolder)
{
  const struct {
    const char *folder;
    const char *path;
    const char *name;
  } rows[] = {
      {"", "/out/a b/c.mp4", "c.mp4"},           {"", "c.mp4", "c.mp4"},
      {"/out", "/out/c.mp4", "c.mp4"},           {"/out/", "/out/videos/c.mp4", "videos/c.mp4"},
      {"/out", "/out/videos/../c.mp4", "c.mp4"}, {"/out/run", "/out/c.mp4", "c.mp4"},
      {"/out/run", "/out/run2/c.mp4", "c.mp4"},  {"out", "out/videos/c.mp4", "videos/c.mp4"}};
  for (const auto &row : rows)
    EXPECT_EQ (name_in (row.folder, row.path), row.name) << row.folder << " " << row.path;
}

TEST (ReportClock, Texts)
{
  const struct {
    int64_t utc_ns;
    const char *text;
  } rows[] = {{0, "1970-01-01T00:00:00.000000Z"},
              {1795183407LL * s + 500000999, "2026-11-20T14:03:27.500000Z"},
              {-1, "1969-12-31T23:59:59.999999Z"},
              {-s / 2, "1969-12-31T23:59:59.500000Z"}};
  for (const auto &row : rows)
    EXPECT_EQ (utc_text (row.utc_ns), row.text);
}

TEST (ReportClock, PairIsOfOneMoment)
{
  const int64_t before = vorn::AttitudeMonitor::monotonic_ns ();
  const ClockPair pair = ClockPair::now ();
  const int64_t after = vorn::AttitudeMonitor::monotonic_ns ();
  EXPECT_GE (pair.monotonic_ns, before);
  EXPECT_LE (pair.monotonic_ns, after);
  EXPECT_EQ (pair.utc_of (pair.monotonic_ns), pair.utc_ns);
  EXPECT_EQ (pair.utc_of (pair.monotonic_ns + 3 * s), pair.utc_ns + 3 * s);
  EXPECT_EQ (pair.utc_of (pair.monotonic_ns - 3 * s), pair.utc_ns - 3 * s);
}

TEST (ReportClock, MomentOfADay)
{
  const struct {
    const char *what;
    int64_t time_of_day_us;
    int64_t earliest_ns;
    int64_t moment_ns;
  } rows[] = {
      {"first day", 1'000'000, 0, s},
      {"at the earliest moment", 1'000'000, s, s},
      {"just before it: a day later", 1'000'000, s + 1, 24 * hour + s},
      {"third day", 1'000'000, 48 * hour, 48 * hour + s},
      {"over midnight", 500'000, 24 * hour - s, 24 * hour + s / 2},
      {"before the clock began", 23LL * 3600 * 1'000'000, -2 * hour, -hour},
      {"and after", 1'000'000, -2 * hour, s},
  };
  for (const auto &row : rows)
    EXPECT_EQ (moment_of_day (row.time_of_day_us, row.earliest_ns), row.moment_ns) << row.what;
}

TEST (ReportClock, LoadedFromAFile)
{
  const TempDir dir;
  std::string error;
  const auto pair = load_clock_pair (
      dir.write (
          "summary.json",
          R"({"clock": {"monotonic_ns": 123456789012345678, "utc_ns": 1795183407500000001}})"),
      &error);
  ASSERT_TRUE (pair) << error;
  EXPECT_EQ (pair->monotonic_ns, 123456789012345678) << "every digit";
  EXPECT_EQ (pair->utc_ns, 1795183407500000001);
}

TEST (ReportClock, FilesWithoutAPair)
{
  const TempDir dir;
  const std::string reason =
      "it has no pair of clocks (\"clock\": {\"monotonic_ns\": N, \"utc_ns\": N})";
  for (const char *text : {"{}", "[]", "3", "", "{\"clock\": 3}", "{\"clock\": {\"utc_ns\": 3}}",
                           "{\"clock\": {\"monotonic_ns\": \"3\", \"utc_ns\": 3}}",
                           "{\"clock\": {\"monotonic_ns\": null, \"utc_ns\": 3}}"}) {
    std::string error;
    EXPECT_FALSE (load_clock_pair (dir.write ("a.json", text), &error)) << text;
    EXPECT_EQ (error, reason) << text;
  }
  std::string error;
  EXPECT_FALSE (load_clock_pair (dir.write ("a.json", "{"), &error));
  EXPECT_NE (error, "");
  EXPECT_FALSE (load_clock_pair (dir.at ("absent.json"), &error));
  EXPECT_THAT (error, testing::HasSubstr ("No such file or directory"));
}

} // namespace
