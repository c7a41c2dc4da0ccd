// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "rate_limit.hpp"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace
{

/** A source pad with the limit on it, and what arrives behind it. */
class Line
{
public:
  Line ()
      : limit ([this] (VornFramerate wanted, VornFramerate source) {
          too_slow.push_back (std::to_string (wanted.num) + "/" + std::to_string (wanted.den) +
                              " > " + std::to_string (source.num) + "/" +
                              std::to_string (source.den));
        })
  {
    gst_init (nullptr, nullptr);
    source_ = vorn::adopt (gst_pad_new ("src", GST_PAD_SRC));
    // A pad without a template takes no other caps than its first.
    static GstStaticPadTemplate any =
        GST_STATIC_PAD_TEMPLATE ("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS_ANY);
    sink_ = vorn::adopt (gst_pad_new_from_static_template (&any, "sink"));
    gst_pad_set_element_private (sink_.get (), this);
    gst_pad_set_chain_function (sink_.get (), [] (GstPad *pad, GstObject *, GstBuffer *buffer) {
      const auto owned = vorn::adopt (buffer);
      static_cast<Line *> (gst_pad_get_element_private (pad))
          ->times.push_back (GST_BUFFER_PTS (buffer));
      return GST_FLOW_OK;
    });
    gst_pad_set_event_function (sink_.get (), [] (GstPad *pad, GstObject *, GstEvent *event) {
      const auto owned = vorn::adopt (event);
      if (GST_EVENT_TYPE (event) == GST_EVENT_CAPS) {
        GstCaps *caps = nullptr;
        gst_event_parse_caps (event, &caps);
        gint num = 0;
        gint den = 0;
        gst_structure_get_fraction (gst_caps_get_structure (caps, 0), "framerate", &num, &den);
        static_cast<Line *> (gst_pad_get_element_private (pad))
            ->rates.push_back (std::to_string (num) + "/" + std::to_string (den));
      }
      return gboolean{TRUE};
    });
    gst_pad_set_active (source_.get (), TRUE);
    gst_pad_set_active (sink_.get (), TRUE);
    EXPECT_EQ (gst_pad_link (source_.get (), sink_.get ()), GST_PAD_LINK_OK);
    limit.attach (source_.get ());
  }
  ~Line ()
  {
    gst_pad_set_active (source_.get (), FALSE);
    gst_pad_set_active (sink_.get (), FALSE);
  }

  void start (int num, int den)
  {
    gst_pad_push_event (source_.get (), gst_event_new_stream_start ("test"));
    push_caps (num, den);
    GstSegment segment;
    gst_segment_init (&segment, GST_FORMAT_TIME);
    gst_pad_push_event (source_.get (), gst_event_new_segment (&segment));
  }
  void push_caps (int num, int den)
  {
    const auto caps = vorn::adopt (
        gst_caps_new_simple ("video/x-raw", "framerate", GST_TYPE_FRACTION, num, den, nullptr));
    gst_pad_push_event (source_.get (), gst_event_new_caps (caps.get ()));
  }
  void push (GstClockTime time)
  {
    GstBuffer *buffer = gst_buffer_new ();
    GST_BUFFER_PTS (buffer) = time;
    EXPECT_EQ (gst_pad_push (source_.get (), buffer), GST_FLOW_OK);
  }
  /** Frames first to last of the rate's own grid, each late by this much in turn. */
  void push_frames (int first, int last, int num, int den,
                    const std::vector<GstClockTimeDiff> &late = {0})
  {
    for (int i = first; i < last; i++)
      push (gst_util_uint64_scale (static_cast<guint64> (i) * GST_SECOND,
                                   static_cast<guint64> (den), static_cast<guint64> (num)) +
            GST_SECOND + static_cast<GstClockTime> (late[static_cast<size_t> (i) % late.size ()]));
  }

  std::vector<std::string> too_slow;
  std::vector<std::string> rates;
  std::vector<GstClockTime> times;
  vorn::RateLimit limit;

private:
  vorn::Ref<GstPad> source_;
  vorn::Ref<GstPad> sink_;
};

TEST (RateLimit, RatesAndHowManyFramesAreLeft)
{
  const struct {
    int num, den;
    VornFramerate wanted;
    int frames;
    const char *rate;
    size_t left;
    const char *too_slow; // "" for none
  } rows[] = {
      {30, 1, {0, 1}, 300, "30/1", 300, ""},
      {30, 1, {30, 1}, 300, "30/1", 300, ""},
      {30, 1, {15, 1}, 300, "15/1", 150, ""},
      {30, 1, {10, 1}, 300, "10/1", 100, ""},
      {30, 1, {20, 1}, 300, "20/1", 200, ""},
      {30, 1, {1, 1}, 300, "1/1", 10, ""},
      {60, 1, {24, 1}, 600, "24/1", 240, ""},
      {30000, 1001, {15000, 1001}, 300, "15000/1001", 150, ""},
      {24000, 1001, {24000, 1001}, 300, "24000/1001", 300, ""},
      {24000, 1001, {24, 1}, 300, "24000/1001", 300, "24/1 > 24000/1001"},
      {30, 1, {60, 1}, 300, "30/1", 300, "60/1 > 30/1"},
      {0, 1, {15, 1}, 300, "0/1", 300, ""},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE (std::to_string (row.num) + " to " + std::to_string (row.wanted.num));
    Line line;
    line.limit.set (row.wanted);
    line.start (row.num, row.den);
    line.push_frames (0, row.frames, row.num == 0 ? 30 : row.num, row.den);
    EXPECT_EQ (line.rates, std::vector<std::string>{row.rate});
    EXPECT_EQ (line.times.size (), row.left);
    EXPECT_EQ (line.times.front (), GST_SECOND) << "the first frame goes at once";
    EXPECT_EQ (line.too_slow.size (), row.too_slow[0] ? 1u : 0u);
    if (!line.too_slow.empty ()) {
      EXPECT_EQ (line.too_slow.front (), row.too_slow);
    }
  }
}

TEST (RateLimit, JitterCostsNoFrame)
{
  constexpr GstClockTimeDiff ms = GST_MSECOND;
  for (const auto &late : {std::vector<GstClockTimeDiff>{0, -1},
                           {0, 12 * ms, -12 * ms},
                           {-1, 1, -14 * ms, 0, 3 * ms}}) {
    Line line;
    line.limit.set ({15, 1});
    line.start (30, 1);
    line.push_frames (0, 3000, 30, 1, late);
    EXPECT_NEAR (static_cast<double> (line.times.size ()), 1500., 1.);
    for (size_t i = 1; i < line.times.size (); i++)
      EXPECT_LE (line.times[i] - line.times[i - 1], GST_SECOND / 10);
  }
}

TEST (RateLimit, ActsWithTheNextFrame)
{
  Line line;
  line.start (30, 1);
  line.push_frames (0, 30, 30, 1);
  line.limit.set ({15, 1});
  line.push_frames (30, 60, 30, 1);
  line.limit.set ({0, 1});
  line.push_frames (60, 90, 30, 1);
  EXPECT_EQ (line.rates, (std::vector<std::string>{"30/1", "15/1", "30/1"}));
  EXPECT_EQ (line.times.size (), 75u);
}

TEST (RateLimit, GapsAndTimesThatGoBackBeginAnew)
{
  Line line;
  line.limit.set ({10, 1});
  line.start (30, 1);
  line.push_frames (0, 30, 30, 1);
  line.push_frames (300, 330, 30, 1); // nine seconds without a frame
  line.push_frames (0, 30, 30, 1);
  EXPECT_EQ (line.times.size (), 30u);
  line.push (GST_CLOCK_TIME_NONE);
  EXPECT_EQ (line.times.size (), 31u) << "what has no time passes";
}

} // namespace
