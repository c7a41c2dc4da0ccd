// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "stream_branch.hpp"

#include <arpa/inet.h>

#include <gst/app/gstappsink.h>
#include <gst/sdp/gstsdpmessage.h>

namespace vorn
{

namespace
{

/** A stream is watched as it happens: what has waited longer than this is of no use. */
constexpr guint queue_frames = 3;
/** Who joins a bare UDP stream gets nothing before the next key frame. */
constexpr guint longest_key_frame_interval_ms = 1000;
constexpr guint payload_type = 96;

std::string to_text (guint32 address_in_network_order)
{
  char text[INET_ADDRSTRLEN] = "";
  const in_addr address = {address_in_network_order};
  inet_ntop (AF_INET, &address, text, sizeof text);
  return text;
}

} // namespace

StreamBranch::StreamBranch (const std::string &view, UnitFunc on_unit)
    : settings_ ({.name = "streamingbin",
                  .view = view,
                  .what = "streaming",
                  .queue_frames = queue_frames,
                  .scales = true,
                  .longest_key_frame_interval_ms = longest_key_frame_interval_ms}),
      on_unit_ (std::move (on_unit)), chain_ (settings_),
      bin_ (vorn::adopt (gst_bin_new (settings_.name.c_str ())))
{
}

StreamBranch::~StreamBranch ()
{
  // Probes and callbacks refer to this.
  gst_element_set_state (bin_.get (), GST_STATE_NULL);
}

bool StreamBranch::build ()
{
  return chain_.build (GST_BIN (bin_.get ())) && build_units () && build_udp ();
}

bool StreamBranch::build_units ()
{
  GstElement *sink = make_element (settings_, "appsink", "units");
  if (!sink)
    return false;
  gst_bin_add (GST_BIN (bin_.get ()), sink);
  g_object_set (sink, "sync", FALSE, "async", FALSE, "enable-last-sample", FALSE, nullptr);
  GstAppSinkCallbacks callbacks = {};
  callbacks.new_sample = [] (GstAppSink *app_sink, gpointer data) {
    auto *branch = static_cast<StreamBranch *> (data);
    const auto unit = vorn::adopt (gst_app_sink_pull_sample (app_sink));
    if (unit && branch->chain_.is_open ()) {
      auto &counters = branch->chain_.counters ();
      counters.frames_out++;
      counters.bytes += gst_buffer_get_size (gst_sample_get_buffer (unit.get ()));
      branch->on_unit_ (unit.get ());
    }
    return GST_FLOW_OK;
  };
  gst_app_sink_set_callbacks (GST_APP_SINK (sink), &callbacks, this, nullptr);
  return gst_element_link (chain_.tee (), sink);
}

bool StreamBranch::build_udp ()
{
  for (const auto &[element, factory_name, role] :
       {std::tuple{&udp_valve_, "valve", "udp-valve"},
        std::tuple{&payloader_, "rtph264pay", "payloader"},
        std::tuple{&udp_sink_, "multiudpsink", "udpsink"}}) {
    *element = make_element (settings_, factory_name, role);
    if (!*element)
      return false;
    gst_bin_add (GST_BIN (bin_.get ()), *element);
  }
  g_object_set (udp_valve_, "drop", TRUE, nullptr);
  // Who comes late finds the parameter sets in the stream.
  g_object_set (payloader_, "config-interval", -1, "pt", payload_type, nullptr);
  g_object_set (udp_sink_, "sync", FALSE, "async", FALSE, nullptr);
  return gst_element_link_many (chain_.tee (), udp_valve_, payloader_, udp_sink_, nullptr);
}

void StreamBranch::set_client (const std::string &host, guint port)
{
  host_ = host;
  port_ = port;
  g_object_set (udp_valve_, "drop", static_cast<gboolean> (host.empty ()), nullptr);
  g_signal_emit_by_name (udp_sink_, "clear");
  if (!host.empty ())
    g_signal_emit_by_name (udp_sink_, "add", host.c_str (), static_cast<gint> (port));
}

void StreamBranch::open (const VornStreamSetup &setup)
{
  set_client (setup.client_address != 0 ? to_text (setup.client_address) : "", setup.client_port);
  chain_.set_bitrate (setup.bitrate);
  const bool was_open = chain_.is_open ();
  chain_.open (true);
  if (was_open)
    request_key_frame (chain_.encoder ());
}

void StreamBranch::close ()
{
  chain_.open (false);
  set_client ("", 0);
}

std::string StreamBranch::describe () const
{
  if (host_.empty ())
    return {};
  GstSDPMessage *message = nullptr;
  gst_sdp_message_new (&message);
  const Owned<GstSDPMessage, gst_sdp_message_free> owner (message);
  gst_sdp_message_set_version (message, "0");
  gst_sdp_message_set_origin (message, "-", "0", "0", "IN", "IP4", host_.c_str ());
  gst_sdp_message_set_session_name (message, settings_.view.c_str ());
  gst_sdp_message_set_connection (message, "IN", "IP4", host_.c_str (), 0, 0);
  gst_sdp_message_add_time (message, "0", "0", nullptr);

  GstSDPMedia *media = nullptr;
  gst_sdp_media_new (&media);
  const Owned<GstSDPMedia, gst_sdp_media_free> media_owner (media);
  gst_sdp_media_set_port_info (media, port_, 1);
  gst_sdp_media_set_proto (media, "RTP/AVP");
  const auto pad = vorn::adopt (gst_element_get_static_pad (payloader_, "src"));
  auto caps = vorn::adopt (gst_pad_get_current_caps (pad.get ()));
  if (!caps)
    caps = vorn::adopt (gst_caps_new_simple (
        "application/x-rtp", "media", G_TYPE_STRING, "video", "clock-rate", G_TYPE_INT, 90000,
        "encoding-name", G_TYPE_STRING, "H264", "payload", G_TYPE_INT,
        static_cast<gint> (payload_type), "packetization-mode", G_TYPE_STRING, "1", nullptr));
  gst_sdp_media_set_media_from_caps (caps.get (), media);
  gst_sdp_message_add_media (message, media);
  const OwnedString text (gst_sdp_message_as_text (message));
  return text.get ();
}

} // namespace vorn
