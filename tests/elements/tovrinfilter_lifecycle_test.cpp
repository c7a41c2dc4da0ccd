// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// State cycling, caps changes, long runs: that nothing stays behind and nothing goes wrong on the
// way.
#include <atomic>
#include <cmath>
#include <cstdio>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <unistd.h>

#include <gst/gl/gl.h>
#include <gtest/gtest.h>

#include "filter_rig.hpp"
#include "log_capture.hpp"

using namespace scene;

namespace
{

constexpr FrameTimes times = {5 * GST_SECOND, 4 * GST_MSECOND, 10 * GST_MSECOND, 1.3};

FrameTimes times_of (int frame)
{
  FrameTimes result = times;
  result.capture_ns += static_cast<GstClockTime> (frame) * 40 * GST_MSECOND;
  return result;
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long most_growth_kib = 400 * 1024; // they keep freed memory; the leak check looks instead
#else
constexpr long most_growth_kib = 4096; // a leaked 160x90 frame is 56 KiB
#endif

Euler swaying (double t)
{
  return {0.3 * std::sin (3 * t), 0.1 * std::sin (2 * t), 0.2 * std::sin (t)};
}

/** How many objects of each GStreamer type there are, by the leaks tracer. */
std::map<std::string, int> live_objects ()
{
  std::map<std::string, int> counts;
  GList *tracers = gst_tracing_get_active_tracers ();
  for (GList *item = tracers; item; item = item->next) {
    if (std::string (G_OBJECT_TYPE_NAME (item->data)) != "GstLeaksTracer")
      continue;
    GstStructure *live = nullptr;
    g_signal_emit_by_name (item->data, "get-live-objects", &live);
    const vorn::OwnedStructure owned (live);
    const GValue *list = gst_structure_get_value (live, "live-objects-list");
    for (guint i = 0; i < gst_value_list_get_size (list); i++) {
      const GstStructure *entry = gst_value_get_structure (gst_value_list_get_value (list, i));
      const GValue *object = gst_structure_get_value (entry, "object");
      counts[G_VALUE_TYPE_NAME (object)]++;
      // GStreamer 1.22 lists objects without a reference of the list's own, and drops one.
      if (G_VALUE_HOLDS_OBJECT (object))
        g_object_ref (g_value_get_object (object));
      else
        gst_mini_object_ref (static_cast<GstMiniObject *> (g_value_get_boxed (object)));
    }
    counts["tracer"] = 1;
  }
  g_list_free_full (tracers, gst_object_unref);
  return counts;
}

/** Objects of pipelines; what GStreamer keeps for the process (registry, plug-ins) is left out. */
std::map<std::string, int> live_pipeline_objects ()
{
  std::map<std::string, int> counts = live_objects ();
  EXPECT_EQ (counts["tracer"], 1) << "run me with GST_TRACERS=leaks";
  std::erase_if (counts, [] (const auto &entry) {
    static const std::set<std::string> process_wide = {"tracer",
                                                       "GstElementFactory",
                                                       "GstPlugin",
                                                       "GstTypeFindFactory",
                                                       "GstPadTemplate",
                                                       "GstCaps",
                                                       "GstRegistry",
                                                       "GstTracerFactory",
                                                       "GstDeviceProviderFactory",
                                                       "GstSystemClock",
                                                       "GstAllocatorSysmem",
                                                       "GstLeaksTracer",
                                                       "GstTaskPool"};
    return process_wide.contains (entry.first);
  });
  return counts;
}

long resident_kib ()
{
  FILE *file = fopen ("/proc/self/statm", "r");
  long total = 0;
  long resident = 0;
  if (!file || fscanf (file, "%ld %ld", &total, &resident) != 2)
    ADD_FAILURE () << "no /proc/self/statm";
  if (file)
    fclose (file);
  return resident * sysconf (_SC_PAGESIZE) / 1024;
}

/** Texture names that leave the filter. */
struct Textures {
  std::mutex mutex;
  std::set<guint> names;

  static GstPadProbeReturn collect (GstPad *, GstPadProbeInfo *info, gpointer self)
  {
    auto *textures = static_cast<Textures *> (self);
    GstMemory *memory = gst_buffer_peek_memory (GST_PAD_PROBE_INFO_BUFFER (info), 0);
    const std::scoped_lock lock (textures->mutex);
    if (gst_is_gl_memory (memory))
      textures->names.insert (
          gst_gl_memory_get_texture_id (reinterpret_cast<GstGLMemory *> (memory)));
    return GST_PAD_PROBE_OK;
  }
};

} // namespace

TEST (Lifecycle, PipelinesLeaveNothingBehind)
{
  const Image picture = waves (64, 48, 1);
  const auto once = [&] {
    FilterRig rig (64, 48);
    rig.follow (swaying);
    for (int i = 0; i < 3; i++)
      EXPECT_EQ (rig.run (picture, times_of (i)).width, 64);
  };
  once (); // what is made on first use stays for the process
  const auto before = live_pipeline_objects ();
  for (int i = 0; i < (soak () ? 100 : 5); i++)
    once ();
  EXPECT_EQ (live_pipeline_objects (), before);
  EXPECT_TRUE (before.empty ()) << testing::PrintToString (before);
}

TEST (Lifecycle, StatesMayBeCycled)
{
  const Image picture = waves (64, 48, 1);
  FilterRig rig (64, 48);
  rig.follow (swaying);
  g_object_set (rig.filter (), "wobble-comp", TRUE, nullptr);
  constexpr GstState visited[] = {GST_STATE_NULL,   GST_STATE_READY,  GST_STATE_NULL,
                                  GST_STATE_PAUSED, GST_STATE_READY,  GST_STATE_PLAYING,
                                  GST_STATE_PAUSED, GST_STATE_PLAYING};
  rig.run (picture, times);
  for (int i = 0; i < (soak () ? 200 : 10); i++) {
    for (const GstState state : visited)
      ASSERT_NE (gst_element_set_state (rig.pipeline (), state), GST_STATE_CHANGE_FAILURE);
    const Image result = rig.run (picture, times_of (i));
    ASSERT_EQ (result.width, 64) << i;
  }
}

TEST (Lifecycle, ContextsEndWithTheirPipelines)
{
  GWeakRef weak;
  g_weak_ref_init (&weak, nullptr);
  {
    FilterRig rig (64, 48);
    rig.follow (swaying);
    rig.run (waves (64, 48, 1), times);
    GstGLContext *context = nullptr;
    g_object_get (rig.filter (), "context", &context, nullptr);
    const auto owned = vorn::adopt (context);
    ASSERT_TRUE (owned);
    g_weak_ref_set (&weak, context);
  }
  const auto left = vorn::adopt (static_cast<GObject *> (g_weak_ref_get (&weak)));
  EXPECT_FALSE (left);
  g_weak_ref_clear (&weak);
}

TEST (Lifecycle, CapsMayChangeWhilePlaying)
{
  FilterRig rig (64, 48);
  rig.follow ([] (double) { return Euler{}; });
  rig.set_orientation ({});
  int seed = 1;
  for (const auto &[width, height] :
       {std::pair{64, 48}, {320, 180}, {101, 57}, {640, 360}, {64, 48}}) {
    const Image picture = waves (width, height, static_cast<unsigned> (seed++));
    for (int i = 0; i < 3; i++)
      EXPECT_EQ (rig.run (picture, times_of (3 * seed + i)).pixels, picture.pixels)
          << width << "x" << height;
  }
}

TEST (Lifecycle, OutputSizeMayChangeWhilePlaying)
{
  FilterRig rig (320, 180);
  rig.follow (swaying);
  const Image picture = waves (320, 180, 2);
  for (const auto &[width, height] : {std::pair{640, 360}, {160, 90}, {180, 180}, {320, 180}}) {
    rig.set_output_size (width, height);
    // The change takes effect with one of the next frames.
    Image result;
    for (int i = 0; i < 5 && result.width != width; i++)
      result = rig.run (picture, times_of (i));
    EXPECT_EQ (result.width, width);
    EXPECT_EQ (result.height, height);
  }
}

TEST (Lifecycle, ManyFramesNeedNoMoreMemoryNorTextures)
{
  const int frames = soak () ? 10000 : 300;
  const Image picture = waves (160, 90, 3);
  FilterRig rig (160, 90);
  rig.follow (swaying);
  Textures textures;
  const auto pad = vorn::adopt (gst_element_get_static_pad (rig.filter (), "src"));
  gst_pad_add_probe (pad.get (), GST_PAD_PROBE_TYPE_BUFFER, Textures::collect, &textures, nullptr);
  long resident_early = 0;
  for (int i = 0; i < frames; i++) {
    if (i % 50 == 0) // both grids, again and again
      g_object_set (rig.filter (), "wobble-comp", (i / 50) % 2 == 1, nullptr);
    ASSERT_EQ (rig.run (picture, times_of (i)).width, 160) << i;
    if (i == 120)
      resident_early = resident_kib ();
  }
  EXPECT_LT (resident_kib () - resident_early, most_growth_kib);
  EXPECT_GE (textures.names.size (), 1u);
  EXPECT_LE (textures.names.size (), 8u);
}

TEST (Lifecycle, PropertiesMayBeSetWhileFramesRun)
{
  FilterRig rig (64, 48);
  rig.follow (swaying);
  const LogCapture log;
  std::atomic<bool> done = false;
  std::thread setter ([&] {
    for (guint i = 0; i < 2000; i++) {
      g_object_set (rig.filter (), "wobble-comp", i % 2, "smoothing-time", i % 500, "max-zoom",
                    1 + (i % 20) / 10.0, "sensor-capture-width", 64 * (i % 2),
                    "out-camera-orientation-quat", i % 3 == 0 ? "" : "0, 0, 0, 1", nullptr);
      gchar *text = nullptr;
      g_object_get (rig.filter (), "out-camera-orientation-quat", &text, nullptr);
      g_free (text);
    }
    done = true;
  });
  const Image picture = waves (64, 48, 3);
  for (int i = 0; i < 20 || !done; i++)
    EXPECT_EQ (rig.run (picture, times_of (i)).width, 64);
  setter.join ();
  EXPECT_TRUE (log.texts (VORN_LOG_PRIORITY_WARNING).empty ());
}
