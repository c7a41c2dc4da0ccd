// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <atomic>
#include <cmath>
#include <limits>
#include <thread>

#include <gio/gio.h>

#include <gtest/gtest.h>

#include "accurate_attitude.hpp"
#include "clock_time.hpp"
#include "log_capture.hpp"
#include "own_namespace.hpp"
#include "vorn_tovrin_shdata_provider.hpp"
#include <vorn/gst_raii.hpp>

namespace
{

constexpr guint64 ms = 1000000;
constexpr guint64 first_ns = 5000 * ms + 17;

using Writer = vorn::Owned<VornBlackboardWriter, vorn_blackboard_writer_close>;

/** Sample number k, recognisable in each component. */
quat_t sample_of (guint64 k)
{
  const auto number = static_cast<float> (k);
  return {number, number + 0.25f, number + 0.5f, number + 0.75f};
}

class AttitudeProvider : public testing::Test
{
protected:
  static void SetUpTestSuite () { gst_init (nullptr, nullptr); }

  void create_section ()
  {
    writer_.reset (vorn_blackboard_create (accurate_attitude_section, &accurate_attitude_header));
  }

  /** Writes samples first to end - 1, one a millisecond. */
  void write (guint64 first, guint64 end)
  {
    for (guint64 k = first; k < end; k++) {
      const quat_t sample = sample_of (k);
      const timespec time = timespec_of (first_ns + k * ms);
      ASSERT_EQ (vorn_blackboard_write (writer_.get (), &sample, &time), 0);
    }
  }

  static vorn::Ref<VornTovrinShdataProvider> create_provider ()
  {
    return vorn::adopt (vorn_tovrin_shdata_provider_new ());
  }

  static vorn::OwnedStructure get (const vorn::Ref<VornTovrinShdataProvider> &provider,
                                   GstClockTime start, GstClockTime stop)
  {
    return vorn::OwnedStructure (
        vorn_tovrin_provider_get_attitude (VORN_TOVRIN_PROVIDER (provider.get ()), start, stop));
  }

  /** The sample numbers in an answer; checks its form. */
  static std::vector<guint64> numbers_in (const GstStructure *imu_data)
  {
    static constexpr const char *names[] = {"quaternions_x", "quaternions_y", "quaternions_z",
                                            "quaternions_w"};
    EXPECT_STREQ (gst_structure_get_name (imu_data), "imu-data");
    EXPECT_EQ (gst_structure_n_fields (imu_data), 4);
    std::vector<guint64> numbers;
    GArray *arrays[4];
    for (guint i = 0; i < 4; i++) {
      EXPECT_STREQ (gst_structure_nth_field_name (imu_data, i), names[i]);
      arrays[i] =
          static_cast<GArray *> (g_value_get_boxed (gst_structure_get_value (imu_data, names[i])));
      EXPECT_EQ (g_array_get_element_size (arrays[i]), sizeof (gfloat));
      EXPECT_EQ (arrays[i]->len, arrays[0]->len);
    }
    for (guint sample = 0; sample < arrays[0]->len; sample++) {
      const gfloat x = g_array_index (arrays[0], gfloat, sample);
      for (guint i = 0; i < 4; i++)
        EXPECT_EQ (g_array_index (arrays[i], gfloat, sample), x + 0.25f * static_cast<float> (i));
      numbers.push_back (static_cast<guint64> (x));
    }
    return numbers;
  }

  /** Sample numbers first to last. */
  static std::vector<guint64> range (guint64 first, guint64 last)
  {
    std::vector<guint64> numbers;
    for (guint64 k = first; k <= last; k++)
      numbers.push_back (k);
    return numbers;
  }

  OwnNamespace name_space_;
  LogCapture log_;
  Writer writer_;
};

} // namespace

TEST_F (AttitudeProvider, IsNotMadeWithoutTheSection)
{
  EXPECT_EQ (vorn_tovrin_shdata_provider_new (), nullptr);
  EXPECT_TRUE (log_.has ("failed to open 'accurate_attitude' component from shdata", 3));
}

TEST_F (AttitudeProvider, AnswersOneSampleAMillisecond)
{
  create_section ();
  write (0, 200);
  const auto provider = create_provider ();
  ASSERT_TRUE (provider);
  struct {
    guint64 start_ns;
    guint64 duration_ns;
    guint64 first;
    guint64 last;
  } cases[] = {
      {first_ns + 50 * ms, 0, 50, 50},                // a moment: one sample
      {first_ns + 50 * ms, 20 * ms, 50, 70},          // 21 samples
      {first_ns + 50 * ms, 33400000, 50, 83},         // 34 samples
      {first_ns + 50 * ms + 999999, 20 * ms, 50, 70}, // the sample valid at the start comes first
      {first_ns + 50 * ms - 1, 1 * ms, 49, 50},       // just before a sample
      {first_ns, 199 * ms, 0, 199},                   // all there is
  };
  for (const auto &row : cases) {
    const auto imu_data = get (provider, row.start_ns, row.start_ns + row.duration_ns);
    ASSERT_TRUE (imu_data);
    EXPECT_EQ (numbers_in (imu_data.get ()), range (row.first, row.last)) << row.duration_ns;
  }
  EXPECT_TRUE (log_.lines ().empty ());
}

TEST_F (AttitudeProvider, SpanPartlyInTheFutureGivesWhatThereIs)
{
  create_section ();
  write (0, 100);
  const auto provider = create_provider ();
  const auto imu_data = get (provider, first_ns + 90 * ms, first_ns + 110 * ms);
  ASSERT_TRUE (imu_data);
  EXPECT_EQ (numbers_in (imu_data.get ()), range (90, 99));
  EXPECT_TRUE (log_.has ("failed to retrieve all expected quaternions 10/21", 3));
}

TEST_F (AttitudeProvider, SpanBeyondTheSectionIsCutNotAllocated)
{
  create_section ();
  write (0, 100);
  const auto provider = create_provider ();
  const auto imu_data = get (provider, first_ns, std::numeric_limits<guint64>::max () - 1);
  ASSERT_TRUE (imu_data);
  EXPECT_EQ (numbers_in (imu_data.get ()), range (0, 99));
}

TEST_F (AttitudeProvider, SpansThatAreNotThereAreErrors)
{
  create_section ();
  const auto provider = create_provider ();
  EXPECT_FALSE (get (provider, first_ns, first_ns)) << "nothing was written";
  write (0, 3000);
  struct {
    guint64 start_ns;
    int error;
  } cases[] = {
      {first_ns + 900 * ms, ERANGE},   // older than the 2000 samples that are kept
      {first_ns + 3200 * ms, ENODATA}, // more than 100 ms after the newest
  };
  for (const auto &row : cases) {
    log_.clear ();
    EXPECT_FALSE (get (provider, row.start_ns, row.start_ns + 10 * ms));
    EXPECT_TRUE (log_.has (std::string ("failed to select accurate attitude samples (") +
                               g_strerror (row.error) + ")",
                           3));
  }
}

TEST_F (AttitudeProvider, InvalidTimesAreCriticals)
{
  create_section ();
  write (0, 10);
  const auto provider = create_provider ();
  CriticalCapture criticals;
  EXPECT_FALSE (get (provider, first_ns, GST_CLOCK_TIME_NONE));
  EXPECT_TRUE (criticals.has_assertion ("GST_CLOCK_TIME_IS_VALID (stop)"));
  criticals.clear ();
  EXPECT_FALSE (get (provider, GST_CLOCK_TIME_NONE, first_ns));
  EXPECT_TRUE (criticals.has_assertion ("GST_CLOCK_TIME_IS_VALID (start)"));
  criticals.clear ();
  EXPECT_EQ (vorn_tovrin_provider_get_attitude (nullptr, 0, 0), nullptr);
  EXPECT_TRUE (criticals.has_assertion ("VORN_IS_TOVRIN_PROVIDER (provider)"));
}

TEST_F (AttitudeProvider, StopBeforeStartGivesOneSample)
{
  create_section ();
  write (0, 10);
  const auto provider = create_provider ();
  const auto imu_data = get (provider, first_ns + 5 * ms, first_ns);
  ASSERT_TRUE (imu_data);
  EXPECT_EQ (numbers_in (imu_data.get ()), range (5, 5));
}

// A writer that laps the ring while spans are read: every answer is whole or refused.
TEST_F (AttitudeProvider, NeverAnswersWithOverwrittenSamples)
{
  create_section ();
  write (0, 2000);
  const auto provider = create_provider ();
  std::atomic<guint64> written = 2000;
  std::atomic<bool> done = false;
  std::thread writer ([&] {
    for (guint64 k = 2000; !done; k++) {
      const quat_t sample = sample_of (k % 4000000); // exact in a float
      const timespec time = timespec_of (first_ns + k * ms);
      vorn_blackboard_write (writer_.get (), &sample, &time);
      written = k + 1;
    }
  });
  int answers = 0;
  for (int i = 0; i < 20000; i++) {
    const guint64 start = written - (i % 2 == 0 ? 1000 : 1960); // safely inside, at the far end
    const auto imu_data = get (provider, first_ns + start * ms, first_ns + (start + 30) * ms);
    if (!imu_data)
      continue;
    answers++;
    const auto numbers = numbers_in (imu_data.get ());
    ASSERT_EQ (numbers.size (), 31u);
    for (size_t n = 0; n < numbers.size (); n++)
      ASSERT_EQ (numbers[n], (start + n) % 4000000);
  }
  done = true;
  writer.join ();
  EXPECT_GT (answers, 0);
}

TEST_F (AttitudeProvider, ServesTwoThreadsAtOnce)
{
  create_section ();
  write (0, 2000);
  const auto provider = create_provider ();
  const auto ask = [&] {
    for (guint64 k = 100; k < 1100; k++) {
      const auto imu_data = get (provider, first_ns + k * ms, first_ns + (k + 20) * ms);
      ASSERT_TRUE (imu_data);
      ASSERT_EQ (numbers_in (imu_data.get ()), range (k, k + 20));
    }
  };
  std::thread other (ask);
  ask ();
  other.join ();
}

TEST_F (AttitudeProvider, IsAFloatingObjectWithTheInterfaces)
{
  create_section ();
  VornTovrinShdataProvider *provider = vorn_tovrin_shdata_provider_new ();
  ASSERT_NE (provider, nullptr);
  EXPECT_TRUE (g_object_is_floating (provider));
  EXPECT_TRUE (VORN_IS_TOVRIN_PROVIDER (provider));
  EXPECT_TRUE (G_IS_INITABLE (provider));
  EXPECT_EQ (g_type_parent (VORN_TYPE_TOVRIN_SHDATA_PROVIDER), G_TYPE_INITIALLY_UNOWNED);
  EXPECT_EQ (sizeof (VornTovrinProviderInterface), sizeof (GTypeInterface) + 9 * sizeof (gpointer));
  g_object_unref (provider);
}
