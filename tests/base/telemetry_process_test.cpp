// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The telemetry bus between processes: this one consumes, blackboard-helper produces.
#include "blackboard_fixture.hpp"

#include <cerrno>

#include <vorn/telemetry.h>

#include "child_process.hpp"

namespace
{

using Consumer = vorn::Owned<VornTelemetryConsumer, vorn_telemetry_consumer_destroy>;

struct Values {
  int16_t int16 = 0;
  int32_t int32 = 0;
  float f32 = 0;
  double f64 = 0;

  /** Whether all are of one sample; they hold its number, as far as their type goes. */
  bool whole () const
  {
    const auto k = static_cast<uint64_t> (f64);
    return int16 == static_cast<int16_t> (k & 0x7fff) &&
           int32 == static_cast<int32_t> (k & 0x7fffffff) &&
           f32 == static_cast<float> (k & 0xffffff);
  }
};

class TelemetryProcess : public BlackboardTest
{
protected:
  static std::unique_ptr<ChildProcess> start_producer (const char *section, uint32_t capacity,
                                                       uint64_t first, uint64_t samples,
                                                       unsigned period_us,
                                                       std::vector<std::string> variables)
  {
    std::vector<std::string> arguments = {"produce",
                                          section,
                                          std::to_string (capacity),
                                          std::to_string (first),
                                          std::to_string (samples),
                                          std::to_string (period_us)};
    arguments.insert (arguments.end (), variables.begin (), variables.end ());
    auto producer = std::make_unique<ChildProcess> (arguments);
    EXPECT_TRUE (producer->started ()) << "build tests/base/blackboard-helper";
    EXPECT_EQ (producer->read_line (), "ready");
    return producer;
  }
  static Consumer consume (const char *section, Values *values)
  {
    const std::string prefix = std::string (section) + ".";
    const std::string names[] = {prefix + "d", prefix + "f", prefix + "i", prefix + "s"};
    const VornTelemetryEntry entries[] = {
        {names[0].c_str (), VORN_TELEMETRY_F64, 8, 1, &values->f64},
        {names[1].c_str (), VORN_TELEMETRY_F32, 4, 1, &values->f32},
        {names[2].c_str (), VORN_TELEMETRY_INT32, 4, 1, &values->int32},
        {names[3].c_str (), VORN_TELEMETRY_INT16, 2, 1, &values->int16},
    };
    Consumer consumer (vorn_telemetry_consumer_new ());
    EXPECT_EQ (vorn_telemetry_consumer_register (consumer.get (), entries, 4), 0);
    EXPECT_EQ (vorn_telemetry_consumer_complete (consumer.get ()), 0);
    return consumer;
  }
  static int get_latest (const Consumer &consumer)
  {
    return vorn_telemetry_consumer_get (consumer.get (), nullptr, VORN_TELEMETRY_LATEST);
  }
};

const std::vector<std::string> all_types = {"3:s", "5:i", "9:f", "10:d"};

} // namespace

TEST_F (TelemetryProcess, SamplesOfAProducerAtFullSpeedAreWhole)
{
  const auto producer = start_producer ("fast", 3, 0, 0, 0, all_types);
  Values values;
  const Consumer consumer = consume ("fast", &values);
  const int enough = soak () ? 20000000 : 200000;
  int got = 0;
  double newest = 0;
  while (got < enough) {
    const int result = get_latest (consumer);
    ASSERT_TRUE (result == 0 || result == -EAGAIN) << result;
    if (result != 0)
      continue;
    got++;
    ASSERT_TRUE (values.whole ());
    ASSERT_GE (values.f64, newest);
    newest = values.f64;
  }
}

TEST_F (TelemetryProcess, ProducerKilledAndRestartedWithAnotherLayoutIsFollowed)
{
  Values values;
  const Consumer consumer = consume ("restart", &values);
  EXPECT_EQ (get_latest (consumer), -ENOENT);
  auto producer = start_producer ("restart", 10, 0, 5, 0, all_types);
  EXPECT_TRUE (await ([&] { return get_latest (consumer) == 0 && values.f64 == 4; }));
  EXPECT_TRUE (values.whole ());
  producer->kill_hard ();
  EXPECT_EQ (get_latest (consumer), 0); // what it published last
  producer = start_producer ("restart", 100, 1000, 5, 0,
                             {"10:new", "10:d", "5:other", "9:f", "5:i", "3:s"});
  EXPECT_TRUE (await ([&] { return get_latest (consumer) == 0 && values.f64 == 1004; }));
  EXPECT_TRUE (values.whole ());
  // The next one lacks a variable; the one after that has them all.
  producer->kill_hard ();
  LogCapture capture;
  producer = start_producer ("restart", 100, 2000, 5, 0, {"10:d", "9:f", "3:s"});
  EXPECT_EQ (get_latest (consumer), -ENXIO);
  EXPECT_TRUE (capture.has ("section 'restart' has no variable 'i'", 3));
  EXPECT_EQ (values.f64, 1004);
  producer->kill_hard ();
  producer = start_producer ("restart", 100, 3000, 5, 0, all_types);
  EXPECT_TRUE (await ([&] { return get_latest (consumer) == 0 && values.f64 == 3004; }));
  EXPECT_EQ (producer->finish (), 0);
  EXPECT_EQ (get_latest (consumer), -ENOENT);
}

TEST_F (TelemetryProcess, SectionsOfSeveralProcesses)
{
  Values controller;
  Values zoom;
  const VornTelemetryEntry entries[] = {
      {"controller.d", VORN_TELEMETRY_F64, 8, 1, &controller.f64},
      {"zoom.d", VORN_TELEMETRY_F64, 8, 1, &zoom.f64},
  };
  const Consumer consumer (vorn_telemetry_consumer_new ());
  ASSERT_EQ (vorn_telemetry_consumer_register (consumer.get (), entries, 2), 0);
  ASSERT_EQ (vorn_telemetry_consumer_complete (consumer.get ()), 0);
  const auto one = start_producer ("controller", 100, 0, 50, 0, all_types);
  EXPECT_EQ (get_latest (consumer), -ENOENT);
  const auto two = start_producer ("zoom", 100, 20, 10, 0, all_types);
  ASSERT_TRUE (
      await ([&] { return get_latest (consumer) == 0 && controller.f64 == 49 && zoom.f64 == 29; }));
  const auto get_at = [&] (uint64_t k) {
    const auto time = timespec_of (pattern_time_ns (k) + 1000);
    return vorn_telemetry_consumer_get (consumer.get (), &time, VORN_TELEMETRY_VALID_AT);
  };
  EXPECT_EQ (get_at (25), 0);
  EXPECT_EQ (controller.f64, 25);
  EXPECT_EQ (zoom.f64, 25);
  EXPECT_EQ (get_at (40), 0);
  EXPECT_EQ (controller.f64, 40);
  EXPECT_EQ (zoom.f64, 29);
  EXPECT_EQ (get_at (10), -ENOENT);
  EXPECT_EQ (controller.f64, 40);
}
