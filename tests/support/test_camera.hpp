// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A camera element whose frames are the test's, and the counting of frames.
#ifndef TESTS_TEST_CAMERA_HPP
#define TESTS_TEST_CAMERA_HPP

#include <condition_variable>
#include <mutex>
#include <string>

#include <gtest/gtest.h>

#include <vorn/gst_raii.hpp>

/** Makes the framework, our elements and the test's camera known to this process. */
void prepare_test_camera ();

/**
 * What "test_camera" elements made from now on deliver: a description in gst-launch's form whose
 * last element's "src" is the camera's; empty: a camera without a pad. Each buffer's PTS is
 * announced by "new-frame" before it is pushed.
 */
void set_test_camera (const std::string &description);

/** Frames at their own pace: about 200 a second, small, numbered from 0 by their offset. */
inline constexpr char live_frames[] = "videotestsrc is-live=true pattern=black";
/** Frames when the test pushes them into "frames". */
inline constexpr char pushed_frames[] =
    "appsrc name=frames format=time is-live=true caps=video/x-raw,format=GRAY8,width=64,height=48,"
    "framerate=200/1";

/** Counts the frames that pass a pad and checks that none is left out. */
class FrameCounter
{
public:
  explicit FrameCounter (GstElement *element, const char *pad = "sink");
  ~FrameCounter ();
  FrameCounter (const FrameCounter &) = delete;
  FrameCounter &operator= (const FrameCounter &) = delete;

  size_t count () const;
  /** How often a frame's offset was not its forerunner's + 1. */
  size_t gaps () const;
  guint64 last_offset () const;
  /** Waits until this many have come; false when they do not within 30 s. */
  bool wait_for (size_t count) const;

private:
  static GstPadProbeReturn on_buffer (GstPad *, GstPadProbeInfo *info, gpointer self);

  vorn::Ref<GstPad> pad_;
  gulong probe_;
  mutable std::mutex mutex_;
  mutable std::condition_variable arrived_;
  size_t count_ = 0;
  size_t gaps_ = 0;
  guint64 last_offset_ = GST_BUFFER_OFFSET_NONE;
};

/** Waits until the condition holds, looking again and again; false when it does not within 30 s. */
template <typename Condition>
bool eventually (Condition condition)
{
  const gint64 deadline = g_get_monotonic_time () + 30 * G_USEC_PER_SEC;
  while (!condition ()) {
    if (g_get_monotonic_time () > deadline)
      return false;
    g_usleep (500);
  }
  return true;
}

#endif
