// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What of a vision element several threads touch: the streaming thread, the tee's, the framework's.
#include <array>
#include <thread>

#include <gtest/gtest.h>

#include "log_capture.hpp"
#include "vision_calibration.hpp"
#include "vision_statistics.hpp"

namespace
{

constexpr int rounds = 2000;

TEST (VisionThreads, StatisticsAreCountedWhole)
{
  vision::Statistics statistics;
  std::thread frames ([&] {
    for (guint64 i = 1; i <= rounds; i++)
      statistics.add_frame (i * 1'000'000, static_cast<double> (i), static_cast<double> (i));
  });
  std::thread drops ([&] {
    for (int i = 0; i < rounds; i++)
      statistics.add_drop ();
  });
  vision::Snapshot snapshot;
  while (snapshot.frames < rounds || snapshot.drops < rounds) {
    snapshot = statistics.get ();
    // Of one frame, never of two.
    ASSERT_EQ (snapshot.age_ms, snapshot.mean_luma);
    ASSERT_EQ (snapshot.age_ms, static_cast<double> (snapshot.frames));
  }
  frames.join ();
  drops.join ();
}

TEST (VisionThreads, CalibrationIsReadWhole)
{
  const LogCapture log;
  static constexpr vision::Field fields[] = {{"place", "A place", vision::FieldType::text, 3}};
  vision::Calibration calibration (fields);
  const std::array texts = {"{1, 1, 1}", "{2, 2, 2}", "{3, 3}"};
  std::thread writer ([&] {
    for (int i = 0; i < rounds; i++) {
      GValue value = G_VALUE_INIT;
      g_value_init (&value, G_TYPE_STRING);
      g_value_set_static_string (&value, texts[static_cast<size_t> (i) % texts.size ()]);
      EXPECT_TRUE (calibration.set_property (1, &value));
      g_value_unset (&value);
    }
  });
  for (int i = 0; i < rounds; i++) {
    const auto numbers = calibration.numbers ("place");
    if (!numbers.empty ()) {
      ASSERT_EQ (numbers.size (), 3u);
      ASSERT_EQ (numbers[0], numbers[2]);
    }
    GValue value = G_VALUE_INIT;
    g_value_init (&value, G_TYPE_STRING);
    EXPECT_TRUE (calibration.get_property (1, &value));
    g_value_unset (&value);
  }
  writer.join ();
  EXPECT_EQ (log.texts (VORN_LOG_PRIORITY_WARNING).size (), rounds / 3u);
}

} // namespace
