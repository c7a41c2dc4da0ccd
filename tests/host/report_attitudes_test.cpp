// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The attitudes of a run: their arithmetic, how they are kept, and how they are collected.
#include <chrono>
#include <cmath>
#include <functional>
#include <numbers>
#include <thread>

#include <gtest/gtest.h>

#include "log_capture.hpp"
#include "own_namespace.hpp"
#include "report/attitude_collector.hpp"
#include "report/attitude_series.hpp"
#include <vorn/raii.hpp>

using namespace report;

namespace
{

constexpr int64_t ms = 1'000'000;
constexpr double degree = std::numbers::pi / 180;

/** A rotation about the z axis: yaw alone. */
Attitude yaw (double degrees)
{
  return {0, 0, static_cast<float> (std::sin (degrees * degree / 2)),
          static_cast<float> (std::cos (degrees * degree / 2))};
}

Attitude negated (const Attitude &q)
{
  return {-q.x, -q.y, -q.z, -q.w};
}

// ---- Arithmetic

TEST (ReportAttitude, Angles)
{
  const struct {
    Attitude a;
    Attitude b;
    double degrees;
  } rows[] = {{yaw (0), yaw (0), 0},
              {yaw (10), yaw (35), 25},
              {yaw (-170), yaw (170), 20},
              {yaw (0), yaw (180), 180},
              {yaw (10), negated (yaw (35)), 25}};
  for (const auto &row : rows) {
    const auto angle = angle_between (row.a, row.b);
    ASSERT_TRUE (angle);
    EXPECT_NEAR (*angle / degree, row.degrees, 2e-5);
  }
  EXPECT_NEAR (yaw (30).euler ().yaw_rad / degree, 30, 1e-5);
  EXPECT_NEAR (yaw (30).euler ().roll_rad, 0, 1e-6);
}

TEST (ReportAttitude, UnknownOnes)
{
  const float nan = std::numeric_limits<float>::quiet_NaN ();
  EXPECT_FALSE (Attitude ().known ());
  for (const Attitude &unknown :
       {Attitude{nan, 0, 0, 1}, Attitude{0, nan, 0, 1}, Attitude{0, 0, nan, 1},
        Attitude{0, 0, 0, nan}, Attitude{0, 0, 0, std::numeric_limits<float>::infinity ()}}) {
    EXPECT_FALSE (unknown.known ());
    EXPECT_FALSE (angle_between (unknown, yaw (0)));
    EXPECT_FALSE (angle_between (yaw (0), unknown));
  }
}

TEST (ReportAttitude, BetweenNeighbours)
{
  for (const double part : {0.0, 0.25, 0.5, 1.0}) {
    EXPECT_NEAR (*angle_between (between (yaw (10), yaw (11), part), yaw (10 + part)) / degree, 0,
                 1e-4);
    EXPECT_NEAR (*angle_between (between (yaw (10), negated (yaw (11)), part), yaw (10 + part)) /
                     degree,
                 0, 1e-4);
  }
}

// ---- Series

TEST (ReportAttitudeSeries, FindsByTime)
{
  AttitudeSeries series;
  EXPECT_FALSE (series.estimate_at (0).known ());
  EXPECT_FALSE (series.truth_at (0).known ());
  for (int i = 0; i < 10; i++)
    series.add ({(100 + i) * ms, yaw (i), yaw (2 * i)});
  const struct {
    int64_t time_ns;
    double estimate; // negative: none
    double truth;
  } rows[] = {{100 * ms - 1, -1, -1},    {100 * ms, 0, 0},
              {103 * ms + ms / 2, 3, 7}, // valid since 103; truth half way
              {104 * ms, 4, 8},          {109 * ms, 9, 18},
              {109 * ms + 1, 9, -1},     {114 * ms, 9, -1},
              {114 * ms + 1, -1, -1}};
  for (const auto &row : rows) {
    const Attitude estimate = series.estimate_at (row.time_ns);
    const Attitude truth = series.truth_at (row.time_ns);
    ASSERT_EQ (estimate.known (), row.estimate >= 0) << row.time_ns;
    ASSERT_EQ (truth.known (), row.truth >= 0) << row.time_ns;
    if (estimate.known ()) {
      EXPECT_NEAR (*angle_between (estimate, yaw (row.estimate)) / degree, 0, 1e-4);
    }
    if (truth.known ()) {
      EXPECT_NEAR (*angle_between (truth, yaw (row.truth)) / degree, 0, 1e-4);
    }
  }
}

TEST (ReportAttitudeSeries, OneSampleIsOfItsMoment)
{
  AttitudeSeries series;
  series.add ({100 * ms, yaw (1), yaw (2)});
  EXPECT_TRUE (series.estimate_at (100 * ms).known ());
  EXPECT_TRUE (series.truth_at (100 * ms).known ());
  EXPECT_FALSE (series.truth_at (101 * ms).known ());
}

TEST (ReportAttitudeSeries, NothingBetweenWhatIsFarApartOrUnknown)
{
  AttitudeSeries series;
  series.add ({100 * ms, yaw (1), yaw (2)});
  series.add ({200 * ms, yaw (1), yaw (2)});
  series.add ({201 * ms, yaw (1), {}});
  EXPECT_FALSE (series.truth_at (150 * ms).known ());
  EXPECT_FALSE (series.truth_at (200 * ms + 1).known ());
}

TEST (ReportAttitudeSeries, LeavesOutWhatComesTwice)
{
  AttitudeSeries series;
  for (const int64_t time : {5, 6, 6, 4, 7})
    series.add ({time * ms, yaw (1), yaw (1)});
  ASSERT_EQ (series.samples ().size (), 3u);
  EXPECT_EQ (series.samples ()[2].time_ns, 7 * ms);
}

TEST (ReportAttitudeSeries, ALongRunIsThinnedOut)
{
  AttitudeSeries series (100);
  for (int i = 0; i < 1000; i++)
    series.add ({i * ms, yaw (i * 0.1), yaw (i * 0.1)});
  EXPECT_EQ (series.kept_every (), 16u) << "1000 / 16 is below 100, 1000 / 8 above";
  EXPECT_LE (series.samples ().size (), 100u);
  EXPECT_GE (series.samples ().size (), 50u);
  for (size_t i = 1; i < series.samples ().size (); i++)
    EXPECT_LE (series.samples ()[i].time_ns - series.samples ()[i - 1].time_ns, 31 * ms);
  // What was kept still answers for all times.
  EXPECT_NEAR (*angle_between (series.truth_at (507 * ms), yaw (50.7)) / degree, 0, 1e-3);
  EXPECT_TRUE (series.estimate_at (507 * ms).known ());
}

// ---- Collector

timespec timespec_of (int64_t time_ns)
{
  return {static_cast<time_t> (time_ns / (1000 * ms)), static_cast<long> (time_ns % (1000 * ms))};
}

/** What a simulator publishes of its truth. */
class TruthProducer
{
public:
  TruthProducer () : producer_ (vorn_telemetry_producer_new ("truth", 4000, 1000))
  {
    const char *const names[] = {"time_s", "q_x", "q_y", "q_z", "q_w"};
    for (size_t i = 0; i < std::size (names); i++)
      EXPECT_EQ (vorn_telemetry_producer_register (producer_.get (), names[i], VORN_TELEMETRY_F64,
                                                   sizeof (double), 1, &values_[i]),
                 0);
    EXPECT_EQ (vorn_telemetry_producer_complete (producer_.get ()), 0);
  }
  void put (int64_t time_ns, const Attitude &attitude)
  {
    values_[0] = static_cast<double> (time_ns) * 1e-9;
    values_[1] = attitude.x;
    values_[2] = attitude.y;
    values_[3] = attitude.z;
    values_[4] = attitude.w;
    const timespec time = timespec_of (time_ns);
    EXPECT_EQ (vorn_telemetry_producer_put (producer_.get (), &time), 0);
  }

private:
  double values_[5] = {};
  vorn::Owned<VornTelemetryProducer, vorn_telemetry_producer_destroy> producer_;
};

class EstimateWriter
{
public:
  EstimateWriter ()
  {
    const VornBlackboardHeader header = {16, 2000, 1000, 4};
    writer_.reset (vorn_blackboard_create ("accurate_attitude", &header));
    EXPECT_TRUE (writer_);
  }
  void put (int64_t time_ns, const Attitude &attitude)
  {
    const float values[] = {attitude.x, attitude.y, attitude.z, attitude.w};
    const timespec time = timespec_of (time_ns);
    EXPECT_EQ (vorn_blackboard_write (writer_.get (), values, &time), 0);
  }

private:
  vorn::Owned<VornBlackboardWriter, vorn_blackboard_writer_close> writer_;
};

/** A millisecond after the other, on the clock's own time, until the condition holds. */
bool publish_until (const std::function<void (int64_t time_ns)> &publish,
                    const std::function<bool ()> &condition)
{
  const int64_t begin = vorn::AttitudeMonitor::monotonic_ns ();
  int64_t next = begin;
  while (!condition ()) {
    const int64_t now = vorn::AttitudeMonitor::monotonic_ns ();
    if (now - begin > 30'000 * ms)
      return false;
    for (; next <= now; next += ms)
      publish (next);
    std::this_thread::sleep_for (std::chrono::milliseconds (1));
  }
  return true;
}

TEST (ReportCollector, EstimatesBesideTheTruth)
{
  const OwnNamespace own_namespace;
  TruthProducer truth;
  EstimateWriter estimates;
  AttitudeCollector collector (true);
  AttitudeSecond second;
  int64_t last = 0;
  EXPECT_TRUE (publish_until (
      [&] (int64_t time_ns) {
        truth.put (time_ns, yaw (30));
        estimates.put (time_ns, yaw (32));
        last = time_ns;
      },
      [&, rounds = 0] () mutable {
        // Some hundred milliseconds of samples.
        if (++rounds % 200 != 0)
          return false;
        second = collector.take_second ();
        return second.per_s > 0 && second.error_rms_deg.has_value ();
      }));
  EXPECT_NEAR (second.error_rms_deg.value_or (0), 2, 1e-3);
  collector.stop ();
  EXPECT_GT (collector.totals ().count, 50u);
  EXPECT_EQ (collector.totals ().count, collector.totals ().compared);
  EXPECT_NEAR (collector.totals ().error_rms_rad () / degree, 2, 1e-3);
  EXPECT_EQ (collector.unusable (), 0u);
  const AttitudeSeries series = collector.take_series ();
  EXPECT_EQ (series.samples ().back ().time_ns, last) << "the last one came by the stop";
  size_t both = 0;
  for (const AttitudeSample &sample : series.samples ())
    if (sample.estimate.known ()) {
      both++;
      ASSERT_TRUE (sample.truth.known ());
      ASSERT_NEAR (*angle_between (sample.estimate, sample.truth) / degree, 2, 1e-3);
    }
  EXPECT_EQ (both, collector.totals ().count);
}

TEST (ReportCollector, TruthAloneWithoutEstimates)
{
  const OwnNamespace own_namespace;
  const LogCapture log;
  TruthProducer truth;
  AttitudeCollector collector (false);
  int64_t first = 0;
  int64_t last = 0;
  publish_until (
      [&] (int64_t time_ns) {
        truth.put (time_ns, yaw (30));
        first = first ? first : time_ns;
        last = time_ns;
      },
      [&] { return last - first > 300 * ms; });
  collector.stop ();
  EXPECT_EQ (collector.totals ().count, 0u);
  const AttitudeSeries series = collector.take_series ();
  EXPECT_GE (series.samples ().size (), 25u);
  for (const AttitudeSample &sample : series.samples ()) {
    EXPECT_FALSE (sample.estimate.known ());
    ASSERT_TRUE (sample.truth.known ());
    EXPECT_NEAR (*angle_between (sample.truth, yaw (30)) / degree, 0, 1e-4);
  }
  EXPECT_TRUE (log.lines ().empty ()) << "nobody looks for attitudes, nobody misses them";
}

TEST (ReportCollector, WhatIsNoNumberIsCounted)
{
  const OwnNamespace own_namespace;
  EstimateWriter estimates;
  AttitudeCollector collector (true);
  int count = 0;
  EXPECT_TRUE (publish_until (
      [&] (int64_t time_ns) { estimates.put (time_ns, ++count % 2 ? yaw (1) : Attitude ()); },
      [&, rounds = 0] () mutable {
        return ++rounds % 100 == 0 && collector.take_second ().per_s > 0;
      }));
  collector.stop ();
  EXPECT_GT (collector.unusable (), 0u);
  EXPECT_GT (collector.totals ().count, 0u);
  const AttitudeSeries series = collector.take_series ();
  for (const AttitudeSample &sample : series.samples ())
    EXPECT_TRUE (sample.estimate.known ());
}

TEST (ReportCollector, NothingAtAll)
{
  const OwnNamespace own_namespace;
  AttitudeCollector collector (true);
  const AttitudeSecond second = collector.take_second ();
  EXPECT_EQ (second.per_s, 0);
  EXPECT_FALSE (second.error_rms_deg);
  collector.stop ();
  collector.stop (); // a second time is nothing
  EXPECT_TRUE (collector.take_series ().samples ().empty ());
}

} // namespace
