// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "clock_pair.hpp"

#include <array>
#include <cstdio>
#include <ctime>
#include <limits>

#include <json-glib/json-glib.h>

#include <vorn/raii.hpp>

namespace report
{

namespace
{

constexpr int64_t ns_per_s = 1'000'000'000;
constexpr int64_t day_ns = 86400 * ns_per_s;

using OwnedDateTime = vorn::Owned<GDateTime, g_date_time_unref>;

int64_t read_clock (clockid_t clock)
{
  timespec time = {};
  clock_gettime (clock, &time);
  return int64_t{time.tv_sec} * ns_per_s + time.tv_nsec;
}

/** The quotient rounded down, for negative numbers too. */
int64_t floor_divide (int64_t a, int64_t b)
{
  return a / b - (a % b < 0 ? 1 : 0);
}

JsonNode *member (JsonNode *node, const char *name)
{
  return node && JSON_NODE_HOLDS_OBJECT (node)
             ? json_object_get_member (json_node_get_object (node), name)
             : nullptr;
}

std::optional<int64_t> integer_member (JsonNode *node, const char *name)
{
  JsonNode *value = member (node, name);
  if (!value || !JSON_NODE_HOLDS_VALUE (value) || json_node_get_value_type (value) != G_TYPE_INT64)
    return std::nullopt;
  return json_node_get_int (value);
}

} // namespace

ClockPair ClockPair::now ()
{
  // A reader that is put aside between the two gives a bad pair: the closest of some counts.
  ClockPair best;
  int64_t closest_ns = std::numeric_limits<int64_t>::max ();
  for (int i = 0; i < 8; i++) {
    const int64_t before_ns = read_clock (CLOCK_MONOTONIC);
    const int64_t utc_ns = read_clock (CLOCK_REALTIME);
    const int64_t taken_ns = read_clock (CLOCK_MONOTONIC) - before_ns;
    if (taken_ns < closest_ns) {
      closest_ns = taken_ns;
      best = {before_ns + taken_ns / 2, utc_ns};
    }
  }
  return best;
}

std::string utc_text (int64_t utc_ns)
{
  const int64_t seconds = floor_divide (utc_ns, ns_per_s);
  const OwnedDateTime time (g_date_time_new_from_unix_utc (seconds));
  if (!time)
    return {};
  const vorn::OwnedString text (g_date_time_format (time.get (), "%Y-%m-%dT%H:%M:%S"));
  std::array<char, 16> part;
  snprintf (part.data (), part.size (), ".%06dZ",
            static_cast<int> ((utc_ns - seconds * ns_per_s) / 1000));
  return std::string (text.get ()) + part.data ();
}

int64_t moment_of_day (int64_t time_of_day_us, int64_t earliest_ns)
{
  const int64_t moment_ns = floor_divide (earliest_ns, day_ns) * day_ns + time_of_day_us * 1000;
  return moment_ns < earliest_ns ? moment_ns + day_ns : moment_ns;
}

std::optional<ClockPair> load_clock_pair (const std::string &path, std::string *error)
{
  const auto parser = vorn::adopt (json_parser_new ());
  vorn::ErrorOut failure;
  if (!json_parser_load_from_file (parser.get (), path.c_str (), failure.out ())) {
    *error = failure.message ();
    return std::nullopt;
  }
  JsonNode *clock = member (json_parser_get_root (parser.get ()), "clock");
  const auto monotonic_ns = integer_member (clock, "monotonic_ns");
  const auto utc_ns = integer_member (clock, "utc_ns");
  if (!monotonic_ns || !utc_ns) {
    *error = "it has no pair of clocks (\"clock\": {\"monotonic_ns\": N, \"utc_ns\": N})";
    return std::nullopt;
  }
  return ClockPair{*monotonic_ns, *utc_ns};
}

} // namespace report
