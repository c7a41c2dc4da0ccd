// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A pipeline with the camera source in it, and what came out of it.
#ifndef TESTS_SOURCE_PIPELINE_HPP
#define TESTS_SOURCE_PIPELINE_HPP

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include <vorn/gst_raii.hpp>

/** Makes the element known to this process; call before anything else. */
void register_source ();

/** A bus message in short. */
struct BusMessage {
  GstMessageType type = GST_MESSAGE_UNKNOWN;
  std::string text;  // an error's message
  std::string debug; // and its details
};

/**
 * "kavrel_morviksrc name=src ... ! TAIL", run to the sink's end. The sink is named "sink" and is a
 * fakesink that keeps what it gets when no tail is given.
 */
class SourcePipeline
{
public:
  /** properties: in gst-launch's form, for the source. */
  explicit SourcePipeline (const std::string &properties,
                           const std::string &tail = "fakesink name=sink sync=false");
  ~SourcePipeline ();

  GstElement *pipeline () const { return pipeline_.get (); }
  GstElement *source () const { return source_.get (); }
  bool play () { return set_state (GST_STATE_PLAYING); }
  bool set_state (GstState state);
  /** The next end of stream or error; type UNKNOWN when none came in time. */
  BusMessage wait_for_end (GstClockTime timeout = 30 * GST_SECOND);
  /** Waits until this many buffers reached the sink; false when they did not within 30 s. */
  bool wait_for_buffers (size_t count);
  /** The buffers that reached the sink so far. */
  std::vector<vorn::Ref<GstBuffer>> buffers ();
  /** Drops the kept buffers; from now on only counts when keep is false. */
  void forget_buffers (bool keep = true);
  size_t count ();

private:
  static GstPadProbeReturn on_buffer (GstPad *, GstPadProbeInfo *info, gpointer self);

  vorn::Ref<GstElement> pipeline_;
  vorn::Ref<GstElement> source_;
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::vector<vorn::Ref<GstBuffer>> buffers_;
  bool keep_ = true;
  size_t count_ = 0;
};

/** What the source says of a frame. */
struct FrameFacts {
  uint64_t capture_ns = 0;
  uint64_t exposure_ns = 0;
  uint64_t readout_ns = 0;
  double hfov = 0, vfov = 0;
  double focal_x = 0, focal_y = 0, center_x = 0, center_y = 0;
  guint left = 0, top = 0, width = 0, height = 0;
};

/** The buffer's frame metadata; fails the test when a field is missing. */
FrameFacts facts_of (GstBuffer *buffer);

#endif
