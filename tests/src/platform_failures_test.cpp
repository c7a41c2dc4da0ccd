// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What the telemetry bridges and the attitude provider say when bus or blackboard fail under them.
#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "accurate_attitude.hpp"
#include "clock_time.hpp"
#include "dewarper_eis.hpp"
#include "log_capture.hpp"
#include "own_namespace.hpp"
#include "selmac_info.hpp"
#include "telemetry_variable.hpp"
#include "trel_metadata.hpp"
#include "vorn_tovrin_shdata_provider.hpp"
#include <vorn/gst_raii.hpp>

namespace
{

/** The call that fails; the others work as ever. */
std::string failing_call;

} // namespace

#define WRAP(result_type, failure, call, parameters, arguments)                                    \
  extern "C" result_type __real_##call parameters;                                                 \
  extern "C" result_type __wrap_##call parameters;                                                 \
  result_type __wrap_##call parameters                                                             \
  {                                                                                                \
    return failing_call == #call ? (failure) : __real_##call arguments;                            \
  }

WRAP (VornTelemetryConsumer *, nullptr, vorn_telemetry_consumer_new, (), ())
WRAP (int, -ENOSPC, vorn_telemetry_consumer_register,
      (VornTelemetryConsumer * consumer, const VornTelemetryEntry *entries, size_t count),
      (consumer, entries, count))
WRAP (int, -EPROTO, vorn_telemetry_consumer_complete, (VornTelemetryConsumer * consumer),
      (consumer))
WRAP (int, 0, vorn_telemetry_consumer_get,
      (VornTelemetryConsumer * consumer, const struct timespec *time, uint32_t method),
      (consumer, time, method))
WRAP (VornTelemetryProducer *, nullptr, vorn_telemetry_producer_new,
      (const char *section, uint32_t capacity, uint32_t period_us), (section, capacity, period_us))
WRAP (int, -EINVAL, vorn_blackboard_read,
      (VornBlackboardReader * reader, uint32_t quantity, void *buffer, size_t size),
      (reader, quantity, buffer, size))
WRAP (int, -ESTALE, vorn_blackboard_end_read,
      (VornBlackboardReader * reader, VornBlackboardRevision *revision), (reader, revision))

namespace
{

std::string reason (int error)
{
  return g_strerror (error);
}

class PlatformFailures : public testing::Test
{
protected:
  static void SetUpTestSuite () { gst_init (nullptr, nullptr); }
  ~PlatformFailures () override
  {
    failing_call.clear ();
    dewarper_eis_free ();
    trel_metadata_free ();
  }

  OwnNamespace name_space_;
  LogCapture log_;
};

} // namespace

TEST_F (PlatformFailures, EisViewSaysWhatItCannotSetUp)
{
  const struct {
    const char *call;
    std::string message;
  } cases[] = {
      {"vorn_telemetry_consumer_new", "failed to create tlm_cons_video consumer"},
      {"vorn_telemetry_consumer_register", "failed to register telemetry data: " + reason (ENOSPC)},
      {"vorn_telemetry_consumer_complete",
       "failed to complete the registration: " + reason (EPROTO)},
      {"vorn_telemetry_producer_new", "failed to create tlm producer"},
  };
  for (const auto &row : cases) {
    log_.clear ();
    failing_call = row.call;
    EXPECT_TRUE (dewarper_eis_initialize ()) << row.call;
    EXPECT_EQ (log_.texts (3), std::vector<std::string>{row.message});
    failing_call.clear ();
    EXPECT_FALSE (dewarper_eis_push_tlm_video (1000)) << row.call;
    dewarper_eis_free ();
  }
}

TEST_F (PlatformFailures, PhotoMetadataSayWhatTheyCannotSetUp)
{
  const struct {
    const char *call;
    std::string message;
    std::string later; // of a photo
  } cases[] = {
      {"vorn_telemetry_consumer_new", "failed to create tlm_camera_controller_cons consumer",
       "no camera controller consumer"},
      {"vorn_telemetry_consumer_register", "failed to register telemetry data: " + reason (ENOSPC),
       "no camera controller consumer"},
      {"vorn_telemetry_consumer_complete", "failed to register camera_controller",
       "no camera controller consumer"},
      {"vorn_telemetry_producer_new", "failed to create tlm photo producer",
       "no tlm photo producer"},
  };
  for (const auto &row : cases) {
    log_.clear ();
    failing_call = row.call;
    trel_metadata_initialize ();
    EXPECT_EQ (log_.texts (3), std::vector<std::string>{row.message});
    failing_call.clear ();
    EXPECT_FALSE (trel_metadata_photo_update (1000)) << row.call;
    EXPECT_TRUE (log_.has (row.later, 3)) << row.call;
    trel_metadata_free ();
  }
}

TEST_F (PlatformFailures, SamplesThatTheBusRefusesAreTold)
{
  // A time of no clock: seconds that a sample cannot have.
  const std::string invalid = reason (EINVAL) + " (" + std::to_string (-EINVAL) + ")";
  failing_call = "vorn_telemetry_consumer_get"; // as if there were a sample
  trel_metadata_initialize ();
  EXPECT_FALSE (trel_metadata_photo_update (G_MAXUINT64));
  EXPECT_TRUE (log_.has ("failed to produce tlm photo sample: " + invalid, 3));

  SelmacData *record = selmacdata_new ();
  ASSERT_NE (record, nullptr);
  EXPECT_EQ (selmacdata_update (record, G_MAXUINT64), -1);
  EXPECT_TRUE (log_.has ("failed to produce tlm sample: " + invalid, 3));
  EXPECT_EQ (selmacdata_free (record), 0);
}

TEST_F (PlatformFailures, AttitudesThatCannotBeReadAreNone)
{
  const vorn::Owned<VornBlackboardWriter, vorn_blackboard_writer_close> writer (
      vorn_blackboard_create (accurate_attitude_section, &accurate_attitude_header));
  for (guint64 k = 1; k <= 100; k++) {
    const quat_t sample = {0, 0, 0, 1};
    const timespec time = timespec_of (k * GST_MSECOND);
    ASSERT_EQ (vorn_blackboard_write (writer.get (), &sample, &time), 0);
  }
  const auto provider = vorn::adopt (vorn_tovrin_shdata_provider_new ());
  const auto get = [&provider] {
    return vorn::OwnedStructure (vorn_tovrin_provider_get_attitude (
        VORN_TOVRIN_PROVIDER (provider.get ()), 50 * GST_MSECOND, 60 * GST_MSECOND));
  };
  EXPECT_TRUE (get ());
  const struct {
    const char *call;
    std::string message;
  } cases[] = {
      {"vorn_blackboard_read", "failed to read accurate attitude (" + reason (EINVAL) + ")"},
      {"vorn_blackboard_end_read",
       "failed to end shdata read for accurate attitude (" + reason (ESTALE) + ")"},
  };
  for (const auto &row : cases) {
    log_.clear ();
    failing_call = row.call;
    EXPECT_FALSE (get ()) << row.call;
    EXPECT_EQ (log_.texts (3), std::vector<std::string>{row.message});
  }
  failing_call.clear ();
  EXPECT_TRUE (get ()) << "and works again";
}
