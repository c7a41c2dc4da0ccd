// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What each source of the feed gets, and what it loses.
#include <gtest/gtest.h>

#include "rtsp_feed.hpp"
#include "rtsp_support.hpp"

namespace
{

constexpr int most_waiting = 30;

class Feed : public testing::Test
{
protected:
  Feed ()
  {
    gst_init (nullptr, nullptr);
    pipeline_ = vorn::adopt (gst_parse_launch ("appsrc name=src ! fakesink sync=false", nullptr));
    source_ = vorn::adopt (GST_APP_SRC (gst_bin_get_by_name (GST_BIN (pipeline_.get ()), "src")));
  }
  ~Feed () override { gst_element_set_state (pipeline_.get (), GST_STATE_NULL); }

  guint64 waiting () const { return gst_app_src_get_current_level_buffers (source_.get ()); }
  void push (bool key) { feed_.push (make_unit (key, 16).get ()); }
  void drain ()
  {
    gst_element_set_state (pipeline_.get (), GST_STATE_PLAYING);
    EXPECT_TRUE (await ([this] { return waiting () == 0; }));
  }

  int requests_ = 0;
  RtspFeed feed_{[this] { requests_++; }};
  vorn::Ref<GstElement> pipeline_;
  vorn::Ref<GstAppSrc> source_;
};

TEST_F (Feed, StartsAtAKeyFrame)
{
  feed_.add (source_.get ());
  EXPECT_EQ (requests_, 1) << "who joins does not wait for the encoder's next one";
  push (false);
  push (false);
  EXPECT_EQ (waiting (), 0u);
  push (true);
  push (false);
  EXPECT_EQ (waiting (), 2u);
  EXPECT_EQ (feed_.units (), 2u);
  EXPECT_EQ (feed_.drops (), 0u) << "what came before it joined is not lost";
}

TEST_F (Feed, AFullSourceLosesUnitsUntilAKeyFrame)
{
  feed_.add (source_.get ());
  push (true);
  for (int i = 1; i < most_waiting; i++)
    push (false);
  EXPECT_EQ (waiting (), guint64{most_waiting});
  push (false);
  push (true);
  EXPECT_EQ (waiting (), guint64{most_waiting});
  EXPECT_EQ (feed_.drops (), 2u);
  EXPECT_EQ (requests_, 1);

  drain ();
  push (false);
  push (false);
  EXPECT_EQ (feed_.drops (), 4u) << "it could not be decoded";
  EXPECT_EQ (requests_, 2) << "one key frame is asked for, once there is room";
  push (true);
  push (false);
  EXPECT_EQ (feed_.units (), guint64{most_waiting} + 2);
  EXPECT_EQ (feed_.drops (), 4u);
}

TEST_F (Feed, AFullSourceCostsOnlyItself)
{
  const auto other =
      vorn::adopt (GST_APP_SRC (g_object_ref_sink (gst_element_factory_make ("appsrc", nullptr))));
  feed_.add (source_.get ());
  for (int i = 0; i < most_waiting + 5; i++)
    push (i == 0);
  feed_.add (other.get ());
  push (true);
  push (false);
  EXPECT_EQ (gst_app_src_get_current_level_buffers (other.get ()), 2u);
  EXPECT_EQ (waiting (), guint64{most_waiting});
}

TEST_F (Feed, NothingAfterItWasRemoved)
{
  feed_.add (source_.get ());
  push (true);
  feed_.remove (source_.get ());
  feed_.remove (source_.get ());
  push (true);
  EXPECT_EQ (waiting (), 1u);
}

TEST_F (Feed, NoRequestsAfterTheirEnd)
{
  feed_.end_requests ();
  feed_.add (source_.get ());
  EXPECT_EQ (requests_, 0);
}

TEST_F (Feed, TheUnitsThemselvesAreLeftAlone)
{
  feed_.add (source_.get ());
  const auto unit = make_unit (true, 16);
  GST_BUFFER_PTS (gst_sample_get_buffer (unit.get ())) = 5;
  feed_.push (unit.get ());
  EXPECT_EQ (GST_BUFFER_PTS (gst_sample_get_buffer (unit.get ())), 5u);
}

TEST_F (Feed, WhatIsNoUnitIsNotPassedOn)
{
  feed_.add (source_.get ());
  const auto empty = vorn::adopt (gst_sample_new (nullptr, nullptr, nullptr, nullptr));
  feed_.push (empty.get ());
  EXPECT_EQ (feed_.units (), 0u);
}

} // namespace
