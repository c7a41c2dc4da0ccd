// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "rtsp_support.hpp"

#include <chrono>
#include <thread>

#include <gst/app/gstappsink.h>
#include <gtest/gtest.h>

bool await (const std::function<bool ()> &condition)
{
  const auto end = std::chrono::steady_clock::now () + std::chrono::minutes (1);
  while (!condition ()) {
    if (std::chrono::steady_clock::now () > end)
      return false;
    std::this_thread::sleep_for (std::chrono::milliseconds (5));
  }
  return true;
}

vorn::Ref<GstSample> make_unit (bool key, size_t size)
{
  // Parameter sets of a 320x240 baseline stream.
  static const auto caps = vorn::adopt (gst_caps_from_string (
      "video/x-h264,stream-format=avc,alignment=au,width=320,height=240,framerate=30/1,"
      "codec_data=(buffer)0142c015ffe100096742c015d901407b2001000468cb83cb"));
  const auto buffer = vorn::adopt (gst_buffer_new_allocate (nullptr, size + 4, nullptr));
  gst_buffer_memset (buffer.get (), 0, 0x55, size + 4);
  const guint8 head[] = {static_cast<guint8> (size >> 24), static_cast<guint8> (size >> 16),
                         static_cast<guint8> (size >> 8), static_cast<guint8> (size),
                         static_cast<guint8> (key ? 0x65 : 0x41)};
  gst_buffer_fill (buffer.get (), 0, head, sizeof head);
  if (!key)
    GST_BUFFER_FLAG_SET (buffer.get (), GST_BUFFER_FLAG_DELTA_UNIT);
  return vorn::adopt (gst_sample_new (buffer.get (), caps.get (), nullptr, nullptr));
}

EncodedStream::EncodedStream (std::function<void (GstSample *)> on_unit)
    : on_unit_ (std::move (on_unit))
{
  vorn::ErrorOut error;
  // Key frames far apart: who joins sees nothing for long unless one is asked for.
  pipeline_ = vorn::adopt (gst_parse_launch (
      "videotestsrc is-live=true ! video/x-raw,width=320,height=240,framerate=30/1 ! "
      "x264enc tune=zerolatency speed-preset=ultrafast key-int-max=3000 threads=1 ! "
      "video/x-h264,stream-format=avc,alignment=au ! "
      "appsink name=sink sync=false emit-signals=true",
      error.out ()));
  EXPECT_TRUE (pipeline_) << error.message ();
  sink_ = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline_.get ()), "sink"));
  g_signal_connect (sink_.get (), "new-sample", G_CALLBACK (on_sample), this);
  gst_element_set_state (pipeline_.get (), GST_STATE_PLAYING);
}

EncodedStream::~EncodedStream ()
{
  gst_element_set_state (pipeline_.get (), GST_STATE_NULL);
}

GstFlowReturn EncodedStream::on_sample (GstElement *sink, gpointer self)
{
  const auto sample = vorn::adopt (gst_app_sink_pull_sample (GST_APP_SINK (sink)));
  if (sample)
    static_cast<EncodedStream *> (self)->on_unit_ (sample.get ());
  return GST_FLOW_OK;
}

void EncodedStream::request_key_frame ()
{
  const auto pad = vorn::adopt (gst_element_get_static_pad (sink_.get (), "sink"));
  gst_pad_push_event (pad.get (),
                      gst_event_new_custom (GST_EVENT_CUSTOM_UPSTREAM,
                                            gst_structure_new ("GstForceKeyUnit", "all-headers",
                                                               G_TYPE_BOOLEAN, TRUE, nullptr)));
}

RtspClient::RtspClient (const std::string &uri)
{
  vorn::ErrorOut error;
  pipeline_ = vorn::adopt (
      gst_parse_launch (("rtspsrc protocols=tcp latency=0 location=" + uri +
                         " ! rtph264depay ! video/x-h264,stream-format=avc,alignment=au ! "
                         "fakesink name=sink sync=false async=false signal-handoffs=true")
                            .c_str (),
                        error.out ()));
  EXPECT_TRUE (pipeline_) << error.message ();
  const auto sink = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline_.get ()), "sink"));
  g_signal_connect (sink.get (), "handoff", G_CALLBACK (on_unit), this);
  gst_element_set_state (pipeline_.get (), GST_STATE_PLAYING);
}

RtspClient::~RtspClient ()
{
  gst_element_set_state (pipeline_.get (), GST_STATE_NULL);
}

void RtspClient::on_unit (GstElement *, GstBuffer *buffer, GstPad *, gpointer self)
{
  auto *client = static_cast<RtspClient *> (self);
  // Who joins others may get what follows an earlier key frame first.
  if (client->units_ > 0 || !GST_BUFFER_FLAG_IS_SET (buffer, GST_BUFFER_FLAG_DELTA_UNIT))
    client->units_++;
}

std::string RtspClient::error () const
{
  const auto bus = vorn::adopt (gst_element_get_bus (pipeline_.get ()));
  const auto message = vorn::adopt (gst_bus_pop_filtered (bus.get (), GST_MESSAGE_ERROR));
  if (!message)
    return {};
  vorn::ErrorOut error;
  gst_message_parse_error (message.get (), error.out (), nullptr);
  return error.message ();
}
