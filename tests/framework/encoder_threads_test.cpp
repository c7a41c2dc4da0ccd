// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The encoder's settings from several threads at once, while caps and frames go through it.
#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include <vorn/framework.h>

#include "encoder_support.hpp"
#include "log_capture.hpp"

namespace
{

GstStaticPadTemplate any_caps =
    GST_STATIC_PAD_TEMPLATE ("after", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS_ANY);

GstFlowReturn drop (GstPad *, GstObject *, GstBuffer *buffer)
{
  gst_buffer_unref (buffer);
  return GST_FLOW_OK;
}

} // namespace

TEST (EncoderThreads, SettingsWhileItRuns)
{
  vorn_framework_init (nullptr, nullptr);
  const auto encoder = vorn::adopt (vorn_encoder_new ("e"));
  auto sink = vorn::adopt (gst_element_get_static_pad (encoder.get (), "sink"));
  auto src = vorn::adopt (gst_element_get_static_pad (encoder.get (), "src"));
  const auto before = vorn::adopt (gst_pad_new ("before", GST_PAD_SRC));
  const auto after = vorn::adopt (gst_pad_new_from_static_template (&any_caps, "after"));
  gst_pad_set_chain_function (after.get (), drop);
  gst_pad_set_active (before.get (), TRUE);
  gst_pad_set_active (after.get (), TRUE);
  ASSERT_EQ (gst_pad_link (before.get (), sink.get ()), GST_PAD_LINK_OK);
  ASSERT_EQ (gst_pad_link (src.get (), after.get ()), GST_PAD_LINK_OK);
  gst_element_set_state (encoder.get (), GST_STATE_PLAYING);

  std::atomic<bool> stop = false;
  std::thread setter ([&] {
    for (guint i = 0; !stop; i++)
      g_object_set (encoder.get (), "bitrate", i % 50 * 10, "preset-bitrate", 100 + i % 100,
                    "key-frame-interval", 100 + i % 900, "slices", 1 + i % 4, nullptr);
  });
  std::thread getter ([&] {
    while (!stop)
      EXPECT_GE (encoding::get_uint (encoder.get (), "effective-bitrate"), 1u);
  });

  // This thread is the streaming thread.
  gst_pad_push_event (before.get (), gst_event_new_stream_start ("test"));
  const int changes = soak () ? 200 : 8;
  for (int i = 0; i < changes; i++) {
    const int width = 32 << i % 2;
    const auto caps = vorn::adopt (gst_caps_new_simple (
        "video/x-raw", "format", G_TYPE_STRING, "I420", "width", G_TYPE_INT, width, "height",
        G_TYPE_INT, 32, "framerate", GST_TYPE_FRACTION, 30, 1, nullptr));
    EXPECT_TRUE (gst_pad_push_event (before.get (), gst_event_new_caps (caps.get ())));
    GstSegment segment;
    gst_segment_init (&segment, GST_FORMAT_TIME);
    EXPECT_TRUE (gst_pad_push_event (before.get (), gst_event_new_segment (&segment)));
    for (guint frame = 0; frame < 10; frame++) {
      GstBuffer *buffer =
          gst_buffer_new_allocate (nullptr, static_cast<gsize> (width * 32 * 3 / 2), nullptr);
      gst_buffer_memset (buffer, 0, static_cast<guint8> (frame * 20), G_MAXSIZE);
      GST_BUFFER_PTS (buffer) = frame * GST_SECOND / 30;
      EXPECT_EQ (gst_pad_push (before.get (), buffer), GST_FLOW_OK);
    }
  }
  stop = true;
  setter.join ();
  getter.join ();
  gst_element_set_state (encoder.get (), GST_STATE_NULL);
}
