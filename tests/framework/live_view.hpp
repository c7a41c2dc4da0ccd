// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A view with a live test picture, which takes its pipeline through the states that products do.
#ifndef TESTS_FRAMEWORK_LIVE_VIEW_HPP
#define TESTS_FRAMEWORK_LIVE_VIEW_HPP

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include <vorn/gst_raii.hpp>
#include <vorn/gst_view.h>

#include "log_capture.hpp"
#include "main_context.hpp"
#include "temp_dir.hpp"

/** How the picture is made and handed over. */
struct LivePicture {
  guint32 width = 320;
  guint32 height = 240;
  int rate_num = 30;
  int rate_den = 1;
  bool two_pads = false;         // a tee's pads of kinds 1 and 2 instead of one of kind 3
  std::string pattern = "smpte"; // of the videotestsrc
};

struct RecordEvent {
  guint32 event;
  std::string filename;
  int code; // of the error; 0: none
  std::string error;
};

#define TEST_TYPE_LIVE_VIEW (test_live_view_get_type ())
G_DECLARE_FINAL_TYPE (TestLiveView, test_live_view, TEST, LIVE_VIEW, VornGstView)

/** The view, its media folder, and what it reports. */
class LiveView
{
public:
  explicit LiveView (const LivePicture &picture = {}, const std::string &media_folder = {});
  ~LiveView ();

  VornView *view () const { return VORN_VIEW (view_.get ()); }
  VornGstView *gst_view () const { return view_.get (); }
  GstElement *pipeline () const { return pipeline_.get (); }
  /** Owned; found anywhere in the pipeline. */
  vorn::Ref<GstElement> find (const char *name) const;
  const std::string &media () const { return media_; }
  std::string videos () const { return media_ + "/videos"; }

  bool prepare ();
  bool stream (guint16 udp_port = 0, guint32 bitrate = 0);
  bool teardown () { return vorn_view_stream_teardown (view (), "test"); }
  bool start_recording () { return vorn_view_start_recording (view ()); }
  bool stop_recording () { return vorn_view_stop_recording (view (), 0); }
  VornGstViewStatistics statistics () const;
  std::string location () const;

  /** Waits for the next event of this kind and returns it; others fail the test. */
  RecordEvent wait_for_event (guint32 event);
  /** Waits until this many more units have gone out. */
  bool wait_for_stream (guint64 units);
  bool wait_for_recording (guint64 units);

  /** Lets go of the view. */
  void drop ();

  void refuse_modes (bool refuse);

  std::vector<RecordEvent> events;   // that came and were not waited for
  std::vector<std::string> messages; // of the recording branch, "name" or "name (error)"

private:
  TempDir folder_;
  std::string media_;
  vorn::Ref<VornGstView> view_;
  vorn::Ref<GstElement> pipeline_;
};

/** Collects the stream's units. */
class UnitCollector
{
public:
  explicit UnitCollector (LiveView &view);
  ~UnitCollector ();
  size_t count () const;
  std::vector<vorn::Ref<GstSample>> units () const;

private:
  mutable std::mutex mutex_;
  std::vector<vorn::Ref<GstSample>> units_;
  LiveView &view_;
  guint id_;
};

/** What ffprobe and ffmpeg say of a file. */
struct Movie {
  std::string video; // lines "key=value" of the video stream
  std::string format;
  std::string errors; // of decoding it to the end
  int frames = 0;     // decoded
  double duration = 0;
  bool has_cover = false;
  /** Value of a line of either. */
  std::string value (const std::string &key) const;
};

Movie probe (const std::string &path);

/** Flags of the file's packets, 'K' for key frames, in order. */
std::string packet_flags (const std::string &path);

/** A JPEG picture as products merge it into the muxer's tags. */
vorn::Ref<GstTagList> make_cover ();

#endif
