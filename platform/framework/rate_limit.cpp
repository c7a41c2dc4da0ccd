// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "rate_limit.hpp"

namespace vorn
{

RateLimit::RateLimit (TooSlowFunc too_slow) : too_slow_ (std::move (too_slow))
{
  g_mutex_init (&lock_);
}

RateLimit::~RateLimit ()
{
  g_mutex_clear (&lock_);
}

void RateLimit::attach (GstPad *pad)
{
  gst_pad_add_probe (pad,
                     static_cast<GstPadProbeType> (GST_PAD_PROBE_TYPE_BUFFER |
                                                   GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM),
                     on_data, this, nullptr);
}

void RateLimit::set (VornFramerate rate)
{
  const Lock lock (&lock_);
  wanted_ = rate;
  changed_ = true;
}

/** The source's caps with the rate that is left of them. */
Ref<GstEvent> RateLimit::limit_caps (GstEvent *event)
{
  VornFramerate wanted = {};
  {
    const Lock lock (&lock_);
    wanted = wanted_;
    changed_ = false;
  }
  GstCaps *source_caps = nullptr;
  gst_event_parse_caps (event, &source_caps);
  gint num = 0;
  gint den = 1;
  gst_structure_get_fraction (gst_caps_get_structure (source_caps, 0), "framerate", &num, &den);
  drops_ = false;
  next_ = GST_CLOCK_TIME_NONE;
  if (wanted.num == 0 || num <= 0)
    return Ref<GstEvent> (event);
  const gint wanted_num = static_cast<gint> (MIN (wanted.num, G_MAXINT));
  const gint wanted_den = static_cast<gint> (MIN (wanted.den, G_MAXINT));
  const gint order = gst_util_fraction_compare (num, den, wanted_num, wanted_den);
  if (order < 0)
    too_slow_ (wanted, {static_cast<guint32> (num), static_cast<guint32> (den)});
  if (order <= 0)
    return Ref<GstEvent> (event);
  drops_ = true;
  period_ = gst_util_uint64_scale (GST_SECOND, wanted.den, wanted.num);
  half_source_period_ = gst_util_uint64_scale_int (GST_SECOND, den, 2 * num);
  const auto caps = adopt (gst_caps_copy (source_caps));
  gst_caps_set_simple (caps.get (), "framerate", GST_TYPE_FRACTION, wanted_num, wanted_den,
                       nullptr);
  return vorn::adopt (gst_event_new_caps (caps.get ()));
}

bool RateLimit::is_due (GstClockTime timestamp)
{
  if (!drops_ || !GST_CLOCK_TIME_IS_VALID (timestamp))
    return true;
  // Timestamps that went back begin anew.
  if (!GST_CLOCK_TIME_IS_VALID (next_) || timestamp + 2 * period_ < next_)
    next_ = timestamp;
  if (timestamp + half_source_period_ < next_)
    return false;
  next_ += period_;
  if (next_ <= timestamp)
    next_ = timestamp + period_;
  return true;
}

/** Sends the caps again when the rate was changed since. */
void RateLimit::announce (GstPad *pad)
{
  {
    const Lock lock (&lock_);
    if (!changed_)
      return;
  }
  if (source_caps_)
    gst_pad_push_event (pad, gst_event_new_caps (source_caps_.get ()));
}

GstPadProbeReturn RateLimit::on_data (GstPad *pad, GstPadProbeInfo *info, gpointer self)
{
  auto *limit = static_cast<RateLimit *> (self);
  if (GST_PAD_PROBE_INFO_TYPE (info) & GST_PAD_PROBE_TYPE_BUFFER) {
    limit->announce (pad);
    return limit->is_due (GST_BUFFER_PTS (GST_PAD_PROBE_INFO_BUFFER (info))) ? GST_PAD_PROBE_OK
                                                                             : GST_PAD_PROBE_DROP;
  }
  GstEvent *event = GST_PAD_PROBE_INFO_EVENT (info);
  if (GST_EVENT_TYPE (event) == GST_EVENT_CAPS) {
    GstCaps *caps = nullptr;
    gst_event_parse_caps (event, &caps);
    limit->source_caps_ = share (caps);
    const auto replaced = adopt (event); // the probe's reference
    GST_PAD_PROBE_INFO_DATA (info) = limit->limit_caps (event).release ();
  } else if (GST_EVENT_TYPE (event) == GST_EVENT_SEGMENT) {
    limit->next_ = GST_CLOCK_TIME_NONE;
  }
  return GST_PAD_PROBE_OK;
}

} // namespace vorn
