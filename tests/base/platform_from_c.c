/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/* The public headers as a C program sees them. */
#include "platform_from_c.h"

#include <string.h>

#include <vorn/blackboard.h>
#include <vorn/telemetry.h>

int blackboard_from_c (void)
{
  const VornBlackboardHeader header = {16, 10, 1000, 4};
  const float sample[4] = {1, 2, 3, 4};
  const struct timespec time = {1, 500};
  VornBlackboardWriter *writer = vorn_blackboard_create ("from_c", &header);
  VornBlackboardRevision *revision = NULL;
  VornBlackboardReader *reader = vorn_blackboard_open ("from_c", &revision);
  float read[4] = {0};
  int failures = 0;
  failures += vorn_blackboard_write (writer, sample, &time) != 0;
  failures += vorn_blackboard_select (reader, &time, VORN_BLACKBOARD_SPAN, 3) != 0;
  failures += vorn_blackboard_read (reader, 0, read, sizeof read) != 1;
  failures += vorn_blackboard_end_read (reader, revision) != 0;
  failures += memcmp (read, sample, sizeof sample) != 0;
  failures += vorn_blackboard_close (reader, revision) != 0;
  failures += vorn_blackboard_writer_close (writer) != 0;
  return failures;
}

int telemetry_from_c (void)
{
  const float sent = 1.5f;
  float received = 0;
  const struct timespec time = {1, 500};
  const VornTelemetryEntry entry = {"from_c.value", VORN_TELEMETRY_F32, sizeof (float), 1,
                                    &received};
  VornTelemetryProducer *producer = vorn_telemetry_producer_new ("from_c", 120, 8333);
  VornTelemetryConsumer *consumer = vorn_telemetry_consumer_new ();
  int failures = 0;
  failures += vorn_telemetry_producer_register (producer, "value", VORN_TELEMETRY_F32,
                                                sizeof (float), 1, &sent) != 0;
  failures += vorn_telemetry_producer_complete (producer) != 0;
  failures += vorn_telemetry_producer_put (producer, &time) != 0;
  failures += vorn_telemetry_consumer_register (consumer, &entry, 1) != 0;
  failures += vorn_telemetry_consumer_complete (consumer) != 0;
  failures += vorn_telemetry_consumer_get (consumer, &time, VORN_TELEMETRY_VALID_AT) != 0;
  failures += memcmp (&received, &sent, sizeof sent) != 0;
  failures += vorn_telemetry_consumer_destroy (consumer) != 0;
  failures += vorn_telemetry_producer_destroy (producer) != 0;
  return failures;
}
