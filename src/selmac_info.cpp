// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "selmac_info.hpp"

#include <memory>

#include "clock_time.hpp"
#include "telemetry_variable.hpp"
#include <vorn/log.h>
#include <vorn/raii.hpp>

VORN_LOG_TAG ("selmac_info");

static constexpr char section[] = "selmacdata";
static constexpr guint32 capacity = 60;
static constexpr guint32 period_us = 16666;
static constexpr guint16 middle_luma = 512;

struct SelmacData {
  VornTelemetryProducer *producer;
  gfloat in_expo_ms;
  gfloat in_a_gain;
  guint16 out_luma;
};

SelmacData *selmacdata_new (void)
{
  auto record = std::make_unique<SelmacData> ();
  vorn::Owned<VornTelemetryProducer, vorn_telemetry_producer_destroy> producer (
      vorn_telemetry_producer_new (section, capacity, period_us));
  int result = producer ? 0 : -1;
  result |= telemetry_register (producer.get (), "in_expo_ms", record->in_expo_ms);
  result |= telemetry_register (producer.get (), "out_luma", record->out_luma);
  result |= telemetry_register (producer.get (), "in_a_gain", record->in_a_gain);
  result |= vorn_telemetry_producer_complete (producer.get ());
  if (result < 0) {
    VORN_LOG_ERROR ("failed to register %s", section);
    return nullptr;
  }
  record->producer = producer.release ();
  return record.release ();
}

int selmacdata_update (SelmacData *record, guint64 timestamp_ns)
{
  if (!record)
    return -1;
  const timespec time = timespec_of (timestamp_ns);
  record->in_expo_ms = 0.0f;
  record->in_a_gain = 0.0f;
  record->out_luma = middle_luma;
  const int result = vorn_telemetry_producer_put (record->producer, &time);
  if (result < 0) {
    VORN_LOG_ERROR ("failed to produce tlm sample: %s (%d)", g_strerror (-result), result);
    return -1;
  }
  return 0;
}

int selmacdata_free (SelmacData *record)
{
  if (!record) {
    VORN_LOG_ERROR ("invalid argument");
    return -1;
  }
  vorn_telemetry_producer_destroy (record->producer);
  delete record;
  return 0;
}
