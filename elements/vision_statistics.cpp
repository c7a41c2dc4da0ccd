// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "vision_statistics.hpp"

#include <algorithm>

#include <vorn/log.h>

VORN_LOG_TAG ("vision");

namespace vision
{
namespace
{

constexpr guint64 ns_per_s = 1'000'000'000;
constexpr auto read_only = static_cast<GParamFlags> (G_PARAM_READABLE | G_PARAM_STATIC_STRINGS);

// Two seconds of a camera of 30 frames per second.
constexpr guint32 section_capacity = 60;
constexpr guint32 section_period_us = 33333;

GParamSpec *number (const char *name, const char *blurb)
{
  return g_param_spec_double (name, nullptr, blurb, 0, G_MAXDOUBLE, 0, read_only);
}

} // namespace

void install_statistics (GObjectClass *object_class)
{
  g_object_class_install_property (object_class, STATISTICS_FRAMES,
                                   g_param_spec_uint64 ("frames", nullptr,
                                                        "Frames that the algorithm got", 0,
                                                        G_MAXUINT64, 0, read_only));
  g_object_class_install_property (
      object_class, STATISTICS_DROPS,
      g_param_spec_uint64 ("drops", nullptr,
                           "Frames that were thrown away because the algorithm was busy", 0,
                           G_MAXUINT64, 0, read_only));
  g_object_class_install_property (
      object_class, STATISTICS_RATE,
      number ("frame-rate", "Frames per second that the algorithm gets"));
  g_object_class_install_property (
      object_class, STATISTICS_AGE,
      number ("frame-age", "Age of the latest frame when the algorithm got it, ms"));
  g_object_class_install_property (object_class, STATISTICS_MEAN_LUMA,
                                   number ("mean-luma", "Mean luma of the latest frame, 0 to 255"));
}

bool get_statistics_property (const Snapshot &snapshot, guint id, GValue *value)
{
  switch (id) {
  case STATISTICS_FRAMES:
    g_value_set_uint64 (value, snapshot.frames);
    break;
  case STATISTICS_DROPS:
    g_value_set_uint64 (value, snapshot.drops);
    break;
  case STATISTICS_RATE:
    g_value_set_double (value, snapshot.rate_hz);
    break;
  case STATISTICS_AGE:
    g_value_set_double (value, snapshot.age_ms);
    break;
  case STATISTICS_MEAN_LUMA:
    g_value_set_double (value, snapshot.mean_luma);
    break;
  default:
    return false;
  }
  return true;
}

void Statistics::reset ()
{
  const vorn::Lock lock (&mutex_);
  snapshot_ = {};
}

Snapshot Statistics::add_frame (guint64 now_ns, double age_ms, double mean_luma)
{
  const vorn::Lock lock (&mutex_);
  const auto arrival = [this] (guint64 frame) -> guint64 & {
    return arrivals_ns_[frame % arrivals_ns_.size ()];
  };
  const guint64 latest = snapshot_.frames++;
  arrival (latest) = now_ns;
  guint64 first = latest - std::min<guint64> (latest, arrivals_ns_.size () - 1);
  // Two frames are a rate at least, however slow.
  while (first + 1 < latest && now_ns - arrival (first) > ns_per_s)
    first++;
  const guint64 span_ns = now_ns - arrival (first);
  snapshot_.rate_hz = span_ns > 0
                          ? static_cast<double> (latest - first) * static_cast<double> (ns_per_s) /
                                static_cast<double> (span_ns)
                          : 0;
  snapshot_.age_ms = age_ms;
  snapshot_.mean_luma = mean_luma;
  return snapshot_;
}

void Statistics::add_drop ()
{
  const vorn::Lock lock (&mutex_);
  snapshot_.drops++;
}

Snapshot Statistics::get () const
{
  const vorn::Lock lock (&mutex_);
  return snapshot_;
}

bool Telemetry::start (const std::string &section)
{
  producer_.reset (
      vorn_telemetry_producer_new (section.c_str (), section_capacity, section_period_us));
  const struct {
    const char *name;
    VornTelemetryType type;
    const void *address;
  } variables[] = {
      {"frames", VORN_TELEMETRY_INT32, &record_.frames},
      {"drops", VORN_TELEMETRY_INT32, &record_.drops},
      {"frame_rate_hz", VORN_TELEMETRY_F32, &record_.frame_rate_hz},
      {"frame_age_ms", VORN_TELEMETRY_F32, &record_.frame_age_ms},
      {"mean_luma", VORN_TELEMETRY_F32, &record_.mean_luma},
  };
  bool good = producer_ != nullptr;
  for (const auto &variable : variables)
    good = good && vorn_telemetry_producer_register (producer_.get (), variable.name, variable.type,
                                                     4, 1, variable.address) == 0;
  if (good && vorn_telemetry_producer_complete (producer_.get ()) == 0)
    return true;
  VORN_LOG_WARNING ("no statistics on telemetry: section '%s' cannot be made", section.c_str ());
  producer_.reset ();
  return false;
}

void Telemetry::put (const Snapshot &snapshot, guint64 time_ns)
{
  if (!producer_)
    return;
  record_ = {.frames = static_cast<gint32> (snapshot.frames),
             .drops = static_cast<gint32> (snapshot.drops),
             .frame_rate_hz = static_cast<gfloat> (snapshot.rate_hz),
             .frame_age_ms = static_cast<gfloat> (snapshot.age_ms),
             .mean_luma = static_cast<gfloat> (snapshot.mean_luma)};
  const timespec time = {static_cast<time_t> (time_ns / ns_per_s),
                         static_cast<long> (time_ns % ns_per_s)};
  if (vorn_telemetry_producer_put (producer_.get (), &time) < 0)
    VORN_LOG_WARNING ("statistics are not published: the bus refuses the sample");
}

} // namespace vision
