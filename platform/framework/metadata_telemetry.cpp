// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "metadata_telemetry.hpp"

#include <algorithm>
#include <cerrno>

#include <glib.h>

#include <vorn/log.h>

VORN_LOG_TAG ("vorn_metadata");

namespace vorn
{

namespace
{

constexpr int64_t ns_per_s = 1'000'000'000;
constexpr int64_t oldest_ns = ns_per_s; // a drone that fell silent is not where it was
constexpr int attempts = 3;             // against a producer that overtakes the reader

} // namespace

TelemetrySection::TelemetrySection (const char *name, std::span<const VornTelemetryEntry> entries)
    : name_ (name), consumer_ (vorn_telemetry_consumer_new ())
{
  int result =
      vorn_telemetry_consumer_register (consumer_.get (), entries.data (), entries.size ());
  if (result == 0)
    result = vorn_telemetry_consumer_complete (consumer_.get ());
  if (result < 0)
    VORN_LOG_ERROR ("cannot consume telemetry section '%s': %s", name, g_strerror (-result));
}

int TelemetrySection::look_up (int64_t time_ns, VornTelemetryMethod method)
{
  const timespec time = {.tv_sec = static_cast<time_t> (time_ns / ns_per_s),
                         .tv_nsec = static_cast<long> (time_ns % ns_per_s)};
  int result = -EAGAIN;
  for (int i = 0; i < attempts && result == -EAGAIN; i++)
    result = vorn_telemetry_consumer_get (consumer_.get (), &time, method);
  return result;
}

bool TelemetrySection::get (int64_t time_ns)
{
  const int64_t oldest = std::max<int64_t> (time_ns - oldest_ns, 0);
  if (look_up (oldest, VORN_TELEMETRY_FIRST_NOT_BEFORE) == -ENODATA)
    return false;
  const int result = look_up (time_ns, VORN_TELEMETRY_VALID_AT);
  if (result == 0)
    return true;
  const bool other_time = result == -ENOENT || result == -ERANGE;
  if (!other_time || look_up (0, VORN_TELEMETRY_LATEST) != 0)
    return false;
  VORN_LOG_WARNING ("telemetry section '%s' has no sample of the photo's capture time: the latest "
                    "one is taken",
                    name_);
  return true;
}

} // namespace vorn
