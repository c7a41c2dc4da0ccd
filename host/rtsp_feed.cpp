// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "rtsp_feed.hpp"

#include <algorithm>
#include <utility>

RtspFeed::RtspFeed (std::function<void ()> request_key_frame)
    : request_key_frame_ (std::move (request_key_frame))
{
  g_mutex_init (&mutex_);
  g_mutex_init (&request_mutex_);
}

RtspFeed::~RtspFeed ()
{
  g_mutex_clear (&mutex_);
  g_mutex_clear (&request_mutex_);
}

void RtspFeed::request_key_frame ()
{
  const vorn::Lock lock (&request_mutex_);
  if (request_key_frame_)
    request_key_frame_ ();
}

void RtspFeed::end_requests ()
{
  const vorn::Lock lock (&request_mutex_);
  request_key_frame_ = nullptr;
}

void RtspFeed::add (GstAppSrc *source)
{
  // Units are stamped anew as they arrive: the encoder's clock is not the clients'.
  g_object_set (source, "is-live", TRUE, "do-timestamp", TRUE, "format", GST_FORMAT_TIME, "block",
                FALSE, "max-bytes", guint64{0}, "max-buffers", most_waiting, "min-latency",
                gint64{0}, "max-latency", gint64{GST_SECOND}, nullptr);
  {
    const vorn::Lock lock (&mutex_);
    sources_.push_back ({.element = vorn::share (source)});
  }
  request_key_frame ();
}

void RtspFeed::remove (GstAppSrc *source)
{
  Source removed;
  const vorn::Lock lock (&mutex_);
  const auto found =
      std::find_if (sources_.begin (), sources_.end (),
                    [source] (const Source &one) { return one.element.get () == source; });
  if (found == sources_.end ())
    return;
  removed = std::move (*found);
  sources_.erase (found);
}

/** The same data as a unit without times, for a source of its own. */
static vorn::Ref<GstSample> without_times (GstSample *unit)
{
  const auto buffer = vorn::adopt (gst_buffer_copy (gst_sample_get_buffer (unit)));
  GST_BUFFER_PTS (buffer.get ()) = GST_CLOCK_TIME_NONE;
  GST_BUFFER_DTS (buffer.get ()) = GST_CLOCK_TIME_NONE;
  return vorn::adopt (gst_sample_new (buffer.get (), gst_sample_get_caps (unit), nullptr, nullptr));
}

void RtspFeed::push (GstSample *unit)
{
  GstBuffer *buffer = gst_sample_get_buffer (unit);
  if (!buffer || !gst_sample_get_caps (unit))
    return;
  const bool key = !GST_BUFFER_FLAG_IS_SET (buffer, GST_BUFFER_FLAG_DELTA_UNIT);
  bool key_wanted = false;
  {
    const vorn::Lock lock (&mutex_);
    for (Source &source : sources_) {
      const bool full =
          gst_app_src_get_current_level_buffers (source.element.get ()) >= most_waiting;
      if (full)
        source.waits_for_key = source.was_full = true;
      else if (key)
        source.waits_for_key = source.was_full = source.asked_for_key = false;
      else if (source.was_full && !std::exchange (source.asked_for_key, true))
        key_wanted = true;
      if (source.waits_for_key) {
        drops_ += source.was_full;
        continue;
      }
      const auto copy = without_times (unit);
      gst_app_src_push_sample (source.element.get (), copy.get ());
      units_++;
    }
  }
  // It has room again; without this it would wait for the encoder's next one by itself.
  if (key_wanted)
    request_key_frame ();
}
