// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/telemetry.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include <vorn/log.h>

#include "blackboard_section.hpp"
#include "telemetry_layout.hpp"

VORN_LOG_TAG ("telemetry");

using namespace vorn::blackboard;
using namespace vorn::telemetry;

struct VornTelemetryProducer {
  Address address;
  uint32_t capacity = 0;
  uint32_t period_us = 0;
  Layout layout;
  std::vector<Run<const std::byte *>> runs; // from the variables into the sample
  std::vector<std::byte> sample;
  std::unique_ptr<SectionWriter> section; // after completion
};

VornTelemetryProducer *vorn_telemetry_producer_new (const char *section, uint32_t capacity,
                                                    uint32_t period_us)
{
  auto address = section_address (Kind::telemetry, section);
  if (address && (capacity < 1 || period_us < 1)) {
    VORN_LOG_ERROR ("section '%s' refused: capacity %u, period %u us", section, capacity,
                    period_us);
    address.reset ();
  }
  if (!address) {
    errno = EINVAL;
    return nullptr;
  }
  auto producer = std::make_unique<VornTelemetryProducer> ();
  producer->address = std::move (*address);
  producer->capacity = capacity;
  producer->period_us = period_us;
  return producer.release ();
}

int vorn_telemetry_producer_register (VornTelemetryProducer *producer, const char *name,
                                      uint32_t type, uint32_t size, uint32_t count,
                                      const void *address)
{
  if (!producer)
    return -EINVAL;
  std::string fault;
  int error = -EINVAL;
  if (producer->section) {
    fault = "the registration is complete";
  } else if (!name || !address) {
    fault = name ? "no address" : "no name";
  } else if (producer->layout.find (name)) {
    fault = "registered already";
    error = -EEXIST;
  } else {
    fault = producer->layout.add ({name, type, size, count, 0});
  }
  if (!fault.empty ()) {
    VORN_LOG_ERROR ("variable '%s.%.80s' refused: %s", producer->address.name.c_str (),
                    name ? name : "(null)", fault.c_str ());
    return error;
  }
  const Variable &added = producer->layout.variables ().back ();
  append_run (producer->runs,
              {static_cast<const std::byte *> (address), added.offset, added.bytes ()});
  return 0;
}

int vorn_telemetry_producer_complete (VornTelemetryProducer *producer)
{
  if (!producer)
    return -EINVAL;
  if (producer->section || producer->layout.variables ().empty ()) {
    VORN_LOG_ERROR ("section '%s': %s", producer->address.name.c_str (),
                    producer->section ? "the registration is complete already"
                                      : "no variables to complete the registration with");
    return -EINVAL;
  }
  VornBlackboardHeader header = {};
  header.sample_size = producer->layout.sample_bytes ();
  header.sample_count = producer->capacity;
  header.rate = (1000000 + producer->period_us / 2) / producer->period_us;
  header.fourth = producer->period_us;
  producer->section = SectionWriter::create (producer->address, header, Kind::telemetry,
                                             producer->layout.serialise ());
  if (!producer->section)
    return -errno;
  producer->sample.resize (header.sample_size);
  return 0;
}

int vorn_telemetry_producer_put (VornTelemetryProducer *producer, const struct timespec *time)
{
  const auto time_ns = time_to_ns (time);
  if (!producer || !producer->section || !time_ns)
    return -EINVAL;
  for (const auto &run : producer->runs)
    copy_run (producer->sample.data () + run.offset, run.memory, run.bytes);
  producer->section->write (producer->sample.data (), *time_ns);
  return 0;
}

int vorn_telemetry_producer_destroy (VornTelemetryProducer *producer)
{
  if (!producer)
    return -EINVAL;
  delete producer;
  return 0;
}
