// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A front view with a picture pipeline of the test's own, and the calls that the linker sends here
// (--wrap), so that a test sees or fails them.
#ifndef TESTS_FRONT_VIEW_PHOTO_SUPPORT_HPP
#define TESTS_FRONT_VIEW_PHOTO_SUPPORT_HPP

#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.hpp"
#include "temp_dir.hpp"
#include "vorn_morvik_zelto_front_view_private.hpp"
#include <vorn/gst_raii.hpp>
#include <vorn/metadata_provider.h>
#include <vorn/virtual_camera.h>

namespace photos
{

constexpr int error = VORN_LOG_PRIORITY_ERROR;
constexpr int warning = VORN_LOG_PRIORITY_WARNING;
constexpr int info = VORN_LOG_PRIORITY_INFO;

/** What the wrapped calls do and saw; reset before each test. Guarded where threads meet. */
struct Calls {
  std::set<std::string> missing;               // factories that cannot be had
  bool no_parent_element = false;              // of pads
  bool no_task = false;                        // for g_task_new
  bool no_tag_list = false;                    // for gst_tag_list_new
  gint64 first_time_shift_us = 0;              // the first monotonic time of another thread is off
  std::optional<gint64> first_time_us;         // what that was
  bool no_timed_metadata = false;              // the provider fails
  std::optional<VornTimedPhotoMetadata> timed; // what it gives
  std::vector<guint64> timed_times_ns;         // for which it was asked
  std::function<void ()> on_timed;
  std::vector<guint64> telemetry_times_ns; // photos told to the telemetry
  std::vector<guint64> frame_times_ns;     // frames told to the telemetry
  struct Cover {
    vorn::Ref<GstBuffer> frame;
    guint32 width, height, framerate_num, framerate_den;
  };
  std::vector<Cover> covers; // asked of the thumbnail maker
};
extern Calls calls;
extern std::mutex calls_mutex;

/** Reads a field of the calls. */
template <typename T>
T called (T Calls::*field)
{
  const std::lock_guard lock (calls_mutex);
  return calls.*field;
}

/** A front view of a camera, in a virtual camera, with a media folder of its own. */
class PhotoTest : public testing::Test
{
protected:
  static void SetUpTestSuite ();
  PhotoTest ();
  ~PhotoTest () override;

  /** A source of one frame (of what follows), and the tee. */
  vorn::Ref<GstElement>
  make_source_and_tee (const char *source = "videotestsrc is-live=true num-buffers=1");
  /** The view's picture pipeline with the branches asked for. */
  void build (bool with_photo = true, bool with_thumbnail = true,
              const char *source = "videotestsrc is-live=true num-buffers=1");
  /** The view's picture pipeline from a description. */
  void use (const char *description);

  gboolean take (const VornSnapshotRequest &request = {});
  /** Until the picture pipeline ends: "eos", or the text of its error. Collects the files. */
  std::string wait_for_end ();
  /** Takes a photo until its end; the pipeline then still plays. */
  void take_whole (const VornSnapshotRequest &request = {});
  std::vector<std::string> taken () const;
  vorn::Ref<GstElement> element (const char *name) const;
  GstState state () const;
  /** A copy of what the muxer's tag setter holds; empty rather than none. */
  vorn::Ref<GstTagList> muxer_tags () const;
  bool has_tag (const char *name) const;

  /** The view's messages of this priority. */
  std::vector<std::string> said (int priority) const;

  LogCapture log_;
  TempDir media_;
  vorn::Ref<VornCamera> camera_;
  vorn::Ref<VornVirtualCamera> virtual_camera_;
  vorn::Ref<VornView> owned_;
  VornView *base_;
  VornMorvikZeltoFrontView *view_;
};

std::string text_tag (const GstTagList *tags, const char *name);

} // namespace photos

#endif
