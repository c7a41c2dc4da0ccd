// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/** What is known of the frames that reach a vision algorithm, as properties and on telemetry. */
#ifndef VISION_STATISTICS_HPP
#define VISION_STATISTICS_HPP

#include <array>
#include <string>

#include <glib-object.h>
#include <vorn/raii.hpp>
#include <vorn/telemetry.h>

namespace vision
{

/** Since the element was started. */
struct Snapshot {
  guint64 frames = 0;   // that the algorithm got
  guint64 drops = 0;    // that were thrown away before it, because it was busy
  double rate_hz = 0;   // over the last second, or the last 32 frames where that is less
  double age_ms = 0;    // of the latest frame when the algorithm got it, from its capture
  double mean_luma = 0; // of the latest frame, 0 to 255
};

/** The names of the properties that show a snapshot. */
enum StatisticsProperty {
  STATISTICS_FRAMES = 1000,
  STATISTICS_DROPS,
  STATISTICS_RATE,
  STATISTICS_AGE,
  STATISTICS_MEAN_LUMA,
};

/** Installs the read-only properties "frames", "drops", "frame-rate", "frame-age", "mean-luma". */
void install_statistics (GObjectClass *object_class);

/** Stores what the property shows; FALSE when it is none of them. */
bool get_statistics_property (const Snapshot &snapshot, guint id, GValue *value);

/** Counts frames. Thread-safe. */
class Statistics
{
public:
  Statistics () { g_mutex_init (&mutex_); }
  ~Statistics () { g_mutex_clear (&mutex_); }
  Statistics (const Statistics &) = delete;
  Statistics &operator= (const Statistics &) = delete;

  /** Forgets all. */
  void reset ();
  /** A frame that came now (monotonic, ns). Returns what is known with it. */
  Snapshot add_frame (guint64 now_ns, double age_ms, double mean_luma);
  void add_drop ();
  Snapshot get () const;

private:
  /** Guards all below; nothing is called while it is held. */
  mutable GMutex mutex_{};
  Snapshot snapshot_;
  std::array<guint64, 32> arrivals_ns_{}; // a ring: frame n at n modulo its size
};

/** Publishes snapshots in a telemetry section. Bound to one thread at a time. */
class Telemetry
{
public:
  /** Creates the section. FALSE (logged) when the bus refuses; put then does nothing. */
  bool start (const std::string &section);
  /** One sample with the frame's time, ns of the monotonic clock. */
  void put (const Snapshot &snapshot, guint64 time_ns);
  void stop () { producer_.reset (); }

private:
  struct Record {
    gint32 frames;
    gint32 drops;
    gfloat frame_rate_hz;
    gfloat frame_age_ms;
    gfloat mean_luma;
  };
  Record record_ = {};
  vorn::Owned<VornTelemetryProducer, vorn_telemetry_producer_destroy> producer_;
};

} // namespace vision

#endif
