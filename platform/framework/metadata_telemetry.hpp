// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/** What the telemetry bus tells for a photo. */
#ifndef VORN_METADATA_TELEMETRY_HPP
#define VORN_METADATA_TELEMETRY_HPP

#include <cstdint>
#include <span>

#include <vorn/raii.hpp>
#include <vorn/telemetry.h>

namespace vorn
{

/** One section. Bound to one thread at a time. */
class TelemetrySection
{
public:
  /** The entries' destinations must outlive the section. */
  TelemetrySection (const char *name, std::span<const VornTelemetryEntry> entries);

  const char *name () const { return name_; }

  /**
   * Fills the destinations with the sample valid at the time, or the latest (with a warning) when
   * that one is not there (any more). FALSE when there is none, or none of the second before.
   */
  bool get (int64_t time_ns);

private:
  int look_up (int64_t time_ns, VornTelemetryMethod method);

  const char *name_;
  Owned<VornTelemetryConsumer, vorn_telemetry_consumer_destroy> consumer_;
};

} // namespace vorn

#endif
