// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Photo after photo of the whole product while it streams: single ones and series by turns. No file
// is missing or there twice, and the stream does not notice.
#include "live_photos.hpp"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include <unistd.h>

#include "live_view.hpp"
#include "photo_requests.hpp"
#include <vorn/frame_meta.h>

namespace
{

guint64 capture_time_of (GstSample *unit)
{
  const VornFrameMeta *meta = vorn_frame_meta_get (gst_sample_get_buffer (unit));
  guint64 time_ns = 0;
  if (meta)
    gst_structure_get_uint64 (meta->structure, VORN_FRAME_META_CAPTURE_TIMESTAMP, &time_ns);
  return time_ns;
}

/** The times from each frame of a stream to the next, in periods of the camera. */
struct Intervals {
  std::vector<double> frames;
  explicit Intervals (const std::vector<vorn::Ref<GstSample>> &units, VornFramerate rate)
  {
    for (size_t i = 1; i < units.size (); i++)
      frames.push_back (static_cast<double> (capture_time_of (units[i].get ()) -
                                             capture_time_of (units[i - 1].get ())) *
                        1e-9 * rate.num / rate.den);
  }
  double longest () const
  {
    return frames.empty () ? 0 : *std::max_element (frames.begin (), frames.end ());
  }
  /** How many frames of the camera did not come out. */
  int missing () const
  {
    int missing = 0;
    for (const double one : frames)
      missing += std::max (0, static_cast<int> (one + 0.5) - 1);
    return missing;
  }
};

long resident_kib ()
{
  std::ifstream statm ("/proc/self/statm");
  long pages = 0, resident = 0;
  statm >> pages >> resident;
  return resident * (sysconf (_SC_PAGESIZE) / 1024);
}

ptrdiff_t entries_in (const std::string &folder)
{
  const auto entries = std::filesystem::directory_iterator (folder);
  return std::distance (begin (entries), end (entries));
}

class FrontViewPhotoSeries : public LivePhotos
{
protected:
  void watch_source ()
  {
    const auto pad = vorn::adopt (
        gst_element_get_static_pad (find ("front-streaming-pipeline", "kavrel_morviksrc"), "src"));
    gst_pad_add_probe (
        pad.get (), GST_PAD_PROBE_TYPE_BUFFER,
        [] (GstPad *, GstPadProbeInfo *info, gpointer data) {
          auto *self = static_cast<FrontViewPhotoSeries *> (data);
          const GstBuffer *frame = GST_PAD_PROBE_INFO_BUFFER (info);
          if (GST_BUFFER_FLAG_IS_SET (frame, GST_BUFFER_FLAG_DISCONT))
            self->camera_gaps_++;
          self->camera_frames_++;
          return GST_PAD_PROBE_OK;
        },
        this, nullptr);
  }

  std::atomic<int> camera_gaps_ = 0;
  std::atomic<guint64> camera_frames_ = 0;
};

TEST_F (FrontViewPhotoSeries, LeavesTheStreamAlone)
{
  auto description = colorful_camera (1280, 720);
  description.motion = turning (40);
  const ServedCamera served (description);
  start_photos ("unix:" + served.path (), true, {5344, 3200});
  set_photo_size ({1280, 720});
  watch_source ();
  ASSERT_TRUE (stream ());
  collect_units ();
  // What this machine does without photos.
  ASSERT_TRUE (wait_for_stream (72));
  const auto alone = take_units ();
  const VornFramerate rate = live_rate;
  const Intervals before (alone, rate);
  const VornGstViewStatistics statistics_before = statistics ();
  const int gaps_before = camera_gaps_;
  const guint64 camera_frames_before = camera_frames_;

  const int count = soak () ? 1000 : 60;
  std::map<std::string, int> announced;
  std::vector<vorn::Ref<GstSample>> units;
  ptrdiff_t descriptors = 0, threads = 0;
  long memory_kib = 0;
  const gint64 start_us = g_get_monotonic_time ();
  std::vector<double> frames;
  int missing = 0;
  for (int number = 0; number < count && !HasFailure (); number++) {
    SCOPED_TRACE (number);
    const std::string photo = photograph (request_of (number)).file ();
    announced[photo]++;
    const auto some = take_units ();
    if (!units.empty () || !some.empty ()) {
      // The last one of before begins the first interval.
      std::vector<vorn::Ref<GstSample>> all;
      if (!units.empty ())
        all.push_back (units.back ());
      all.insert (all.end (), some.begin (), some.end ());
      const Intervals intervals (all, rate);
      frames.insert (frames.end (), intervals.frames.begin (), intervals.frames.end ());
      missing += intervals.missing ();
      if (!some.empty ())
        units = some;
    }
    if (number == count / 3) {
      descriptors = entries_in ("/proc/self/fd");
      threads = entries_in ("/proc/self/task");
      memory_kib = resident_kib ();
    }
  }
  const double lasted_s = static_cast<double> (g_get_monotonic_time () - start_us) * 1e-6;
  const VornGstViewStatistics after = statistics ();
  ASSERT_FALSE (frames.empty ());
  printf ("%d photos in %.1f s. Longest interval of the stream: %.2f frames, without photos %.2f. "
          "Missing beside %zu: %d, without photos beside %zu: %d; dropped by the branch %d, by the "
          "camera "
          "%d times\n",
          count, lasted_s, *std::max_element (frames.begin (), frames.end ()), before.longest (),
          frames.size (), missing, before.frames.size (), before.missing (),
          static_cast<int> (after.stream_drops - statistics_before.stream_drops),
          camera_gaps_ - gaps_before);
  printf ("%+ld KiB, %+td descriptors, %+td threads in the last two thirds\n",
          resident_kib () - memory_kib, entries_in ("/proc/self/fd") - descriptors,
          entries_in ("/proc/self/task") - threads);

  // Every photo has one file, which was announced once.
  EXPECT_EQ (announced.size (), static_cast<size_t> (count));
  std::set<std::string> found;
  for (const auto &entry : std::filesystem::directory_iterator (media_.at ("photos")))
    found.insert (entry.path ());
  EXPECT_EQ (found.size (), static_cast<size_t> (count));
  for (const auto &[path, times] : announced) {
    EXPECT_EQ (times, 1) << path;
    EXPECT_TRUE (found.contains (path)) << path;
  }
  // Nothing is left behind: that would be one a photo at least. A photo's pipeline may still be
  // there, and threads come from pools that idle for a while.
  EXPECT_LE (entries_in ("/proc/self/fd") - descriptors, 16);
  EXPECT_LE (entries_in ("/proc/self/task") - threads, 6);
#ifndef __SANITIZE_ADDRESS__ // which keeps what was freed for a while
  EXPECT_LT (resident_kib () - memory_kib, 40 * 1024);
#endif
  // Each frame that the camera gave has come out, is on its way, or has been counted as dropped.
  const auto since = [] (guint64 now, guint64 then) { return static_cast<double> (now - then); };
  const double came_in = since (after.stream_frames_in, statistics_before.stream_frames_in);
  EXPECT_NEAR (came_in, since (camera_frames_, camera_frames_before), 4);
  EXPECT_NEAR (since (after.stream_frames_out, statistics_before.stream_frames_out) +
                   since (after.stream_drops, statistics_before.stream_drops),
               came_in, 4);
  // The stream goes on, and no photo holds it.
  EXPECT_TRUE (vorn_view_is_streaming (view_));
  EXPECT_LT (*std::max_element (frames.begin (), frames.end ()), 24.0);
  ASSERT_TRUE (wait_for_stream (5));
  for (const LogLine &line : log_.lines ())
    EXPECT_FALSE (line.tag == "vorn_morvik_zelto_front_view" &&
                  line.priority <= VORN_LOG_PRIORITY_ERROR)
        << line.text;
}

} // namespace
