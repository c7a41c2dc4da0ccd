// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Lowers the framerate of raw video by dropping frames, and says so in the caps.
#ifndef VORN_FRAMEWORK_RATE_LIMIT_HPP
#define VORN_FRAMEWORK_RATE_LIMIT_HPP

#include <functional>

#include <vorn/gst_raii.hpp>
#include <vorn/modes.h>

namespace vorn
{

/**
 * Sits on a source pad. Frames keep their timestamps and go at once; the one nearest to where one
 * is due stays, so that a jitter of less than half a frame costs nothing. The "videorate" element
 * would drop every frame that comes a nanosecond early.
 */
class RateLimit
{
public:
  /** Called on a streaming thread when the source gives less than what was asked for. */
  using TooSlowFunc = std::function<void (VornFramerate wanted, VornFramerate source)>;

  explicit RateLimit (TooSlowFunc too_slow);
  ~RateLimit ();
  RateLimit (const RateLimit &) = delete;
  RateLimit &operator= (const RateLimit &) = delete;

  /** Once; the pad must give nothing any more when this goes. */
  void attach (GstPad *pad);

  /** The most frames per second; 0/1: all. Acts with the next frame. Thread-safe. */
  void set (VornFramerate rate);

private:
  static GstPadProbeReturn on_data (GstPad *pad, GstPadProbeInfo *info, gpointer self);
  Ref<GstEvent> limit_caps (GstEvent *event);
  bool is_due (GstClockTime timestamp);
  void announce (GstPad *pad);

  TooSlowFunc too_slow_;
  GMutex lock_; // guards wanted_ and changed_
  VornFramerate wanted_ = {0, 1};
  bool changed_ = false;
  // The streaming thread's.
  Ref<GstCaps> source_caps_;
  bool drops_ = false;
  GstClockTime period_ = 0;
  GstClockTime half_source_period_ = 0;
  GstClockTime next_ = GST_CLOCK_TIME_NONE;
};

} // namespace vorn

#endif
