// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// From one stream of access units into any number of appsrc elements, which come and go.
#ifndef HOST_RTSP_FEED_HPP
#define HOST_RTSP_FEED_HPP

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

#include <gst/app/gstappsrc.h>

#include <vorn/gst_raii.hpp>

/**
 * Thread-safe. Each source starts at a key frame. A source whose queue is full loses units until it
 * has room and a key frame comes, so that what it gets can be decoded.
 */
class RtspFeed
{
public:
  explicit RtspFeed (std::function<void ()> request_key_frame);
  ~RtspFeed ();
  RtspFeed (const RtspFeed &) = delete;
  RtspFeed &operator= (const RtspFeed &) = delete;

  /** Sets the source up and feeds it until it is removed. */
  void add (GstAppSrc *source);
  void remove (GstAppSrc *source);
  void push (GstSample *unit);
  void request_key_frame ();
  /** From when it returns nobody is asked for key frames any more: media may outlive who answers.
   */
  void end_requests ();

  guint64 units () const { return units_; }
  guint64 drops () const { return drops_; }

private:
  struct Source {
    vorn::Ref<GstAppSrc> element;
    bool waits_for_key = true;
    bool was_full = false;      // what it waits for, it has lost
    bool asked_for_key = false; // since it has room again
  };

  /** How many units a source may have waiting: a second of them. */
  static constexpr guint64 most_waiting = 30;

  GMutex request_mutex_; // guards request_key_frame_, also while it is called
  std::function<void ()> request_key_frame_;
  GMutex mutex_; // guards sources_; nothing that may block is called while it is held, nor the
                 // other taken
  std::vector<Source> sources_;
  std::atomic<guint64> units_ = 0;
  std::atomic<guint64> drops_ = 0;
};

#endif
