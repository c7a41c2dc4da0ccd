// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Rates over time: every frame at its place, none twice, no delay that grows.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "camera_clients.hpp"
#include "log_capture.hpp"
#include "source_pipeline.hpp"

namespace
{

struct Rate {
  uint32_t numerator, denominator;
  int width, height;
};

constexpr Rate rates[] = {
    {30, 1, 320, 180}, {30000, 1001, 320, 180}, {24000, 1001, 320, 180}, {120, 1, 64, 48}};

/** What is remembered of each frame while it passes. */
struct Passed {
  uint64_t sequence;
  int64_t capture_ns;
  GstClockTime pts;
  int64_t arrived_ns;
};

struct Series {
  std::unique_ptr<SourcePipeline> pipeline;
  std::vector<Passed> frames;
};

GstPadProbeReturn on_frame (GstPad *, GstPadProbeInfo *info, gpointer series)
{
  GstBuffer *buffer = GST_PAD_PROBE_INFO_BUFFER (info);
  static_cast<Series *> (series)->frames.push_back (
      {GST_BUFFER_OFFSET (buffer), static_cast<int64_t> (facts_of (buffer).capture_ns),
       GST_BUFFER_PTS (buffer), now_ns ()});
  return GST_PAD_PROBE_OK;
}

TEST (MorvikSrcRate, IsHeldWithoutDrift)
{
  const int64_t seconds = soak () ? 60 : 10;
  const auto camera = small_camera ();
  const ServedCamera served (camera);
  Series runs[std::size (rates)];
  for (size_t i = 0; i < std::size (rates); i++) {
    const Rate &rate = rates[i];
    const std::string caps = "video/x-raw,width=" + std::to_string (rate.width) +
                             ",height=" + std::to_string (rate.height) +
                             ",framerate=" + std::to_string (rate.numerator) + "/" +
                             std::to_string (rate.denominator);
    runs[i].pipeline = std::make_unique<SourcePipeline> ("source=unix:" + served.path (),
                                                         caps + " ! fakesink name=sink sync=false");
    runs[i].pipeline->forget_buffers (false);
    const auto pad = vorn::adopt (gst_element_get_static_pad (runs[i].pipeline->source (), "src"));
    gst_pad_add_probe (pad.get (), GST_PAD_PROBE_TYPE_BUFFER, on_frame, &runs[i], nullptr);
    ASSERT_TRUE (runs[i].pipeline->play ());
  }
  g_usleep (static_cast<gulong> (seconds) * 1'000'000);
  for (size_t i = 0; i < std::size (rates); i++) {
    SCOPED_TRACE (std::to_string (rates[i].numerator) + "/" +
                  std::to_string (rates[i].denominator));
    const int64_t end_ns = now_ns ();
    runs[i].pipeline->set_state (GST_STATE_NULL);
    const auto &frames = runs[i].frames;
    ASSERT_GT (frames.size (), 20u);
    const GstClockTime base = gst_element_get_base_time (runs[i].pipeline->source ());
    for (size_t k = 0; k < frames.size (); k++) {
      // The frame's place, exact: 128 bits hold any product.
      const auto place =
          static_cast<int64_t> (static_cast<unsigned __int128> (frames[k].sequence) *
                                1'000'000'000 * rates[i].denominator / rates[i].numerator);
      ASSERT_EQ (frames[k].capture_ns, camera.epoch_ns + place);
      ASSERT_EQ (frames[k].pts, static_cast<GstClockTime> (frames[k].capture_ns) - base);
      if (k > 0) {
        ASSERT_GT (frames[k].sequence, frames[k - 1].sequence);
      }
    }
    // As many as the time has room for; a loaded machine may have lost a few.
    const uint64_t span = frames.back ().sequence - frames.front ().sequence + 1;
    EXPECT_NEAR (static_cast<double> (span),
                 static_cast<double> (seconds * rates[i].numerator) / rates[i].denominator,
                 1.5 * rates[i].numerator / rates[i].denominator);
    EXPECT_GE (static_cast<double> (frames.size ()), 0.9 * static_cast<double> (span));
    EXPECT_LT (end_ns - frames.back ().capture_ns, 1'000'000'000) << "no growing delay";
    RecordProperty ("frames_" + std::to_string (i), static_cast<int> (frames.size ()));
    RecordProperty ("lost_" + std::to_string (i), static_cast<int> (span - frames.size ()));
  }
}

} // namespace
