// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "encoding_chain.hpp"

#include <cmath>

#include <gst/video/video.h>

#include <vorn/encoder.h>
#include <vorn/log.h>

VORN_LOG_TAG ("vorn_gst_view");

namespace vorn
{

namespace
{

/** Above this the picture gets borders rather than being stretched. */
constexpr double largest_stretch = 0.01;

} // namespace

GstElement *make_element (const ChainSettings &settings, const char *factory_name, const char *role)
{
  const std::string name = settings.name + "-" + role;
  GstElement *element = gst_element_factory_make (factory_name, name.c_str ());
  if (!element)
    VORN_LOG_ERROR ("view '%s': the %s branch lacks the element '%s'", settings.view.c_str (),
                    settings.what, factory_name);
  return element;
}

EncodingChain::EncodingChain (ChainSettings settings)
    : settings_ (std::move (settings)),
      rate_limit_ ([this] (VornFramerate wanted, VornFramerate source) {
        VORN_LOG_WARNING ("view '%s': %s at %u/%u is more than its source gives, %u/%u takes its "
                          "place",
                          settings_.view.c_str (), settings_.what, wanted.num, wanted.den,
                          source.num, source.den);
      })
{
}

bool EncodingChain::build (GstBin *bin)
{
  GstElement *last = nullptr;
  const auto append = [&] (GstElement *element) {
    if (!element)
      return false;
    gst_bin_add (bin, element);
    // Elements of our own choosing always fit.
    g_warn_if_fail (!last || gst_element_link (last, element));
    last = element;
    return true;
  };
  if (!append (queue_ = make_element (settings_, "queue", "queue")) ||
      !append (valve_ = make_element (settings_, "valve", "valve")))
    return false;
  if (settings_.scales && (!append (scale_ = make_element (settings_, "videoscale", "scale")) ||
                           !append (filter_ = make_element (settings_, "capsfilter", "caps"))))
    return false;
  if (!append (encoder_ = vorn_encoder_new ((settings_.name + "-encoder").c_str ())) ||
      !append (tee_ = make_element (settings_, "tee", "tee")))
    return false;

  gst_util_set_object_arg (G_OBJECT (queue_), "leaky", "downstream");
  g_object_set (queue_, "max-size-buffers", settings_.queue_frames, "max-size-bytes", 0u,
                "max-size-time", guint64{0}, nullptr);
  g_object_set (valve_, "drop", TRUE, nullptr);
  // Nothing that happens to one taker of units may stop the others.
  g_object_set (tee_, "allow-not-linked", TRUE, nullptr);

  g_signal_connect (queue_, "overrun", G_CALLBACK (+[] (GstElement *, gpointer data) {
                      auto *chain = static_cast<EncodingChain *> (data);
                      if (chain->opened_) {
                        chain->counters_.frames_in++;
                        chain->counters_.drops++;
                      }
                    }),
                    this);
  const auto queue_sink = adopt (gst_element_get_static_pad (queue_, "sink"));
  // They would wait for the branch's thread and with it for whatever that waits for.
  gst_pad_add_probe (
      queue_sink.get (), GST_PAD_PROBE_TYPE_QUERY_DOWNSTREAM,
      [] (GstPad *, GstPadProbeInfo *info, gpointer) {
        const GstQueryType type = GST_QUERY_TYPE (GST_PAD_PROBE_INFO_QUERY (info));
        const bool serialized = (gst_query_type_get_flags (type) & GST_QUERY_TYPE_SERIALIZED) != 0;
        return serialized ? GST_PAD_PROBE_DROP : GST_PAD_PROBE_OK;
      },
      nullptr, nullptr);
  const auto valve_source = adopt (gst_element_get_static_pad (valve_, "src"));
  // Here, for one that waits in the queue while the valve is opened is the branch's as well.
  gst_pad_add_probe (
      valve_source.get (), GST_PAD_PROBE_TYPE_BUFFER,
      [] (GstPad *, GstPadProbeInfo *, gpointer data) {
        static_cast<EncodingChain *> (data)->counters_.frames_in++;
        return GST_PAD_PROBE_OK;
      },
      this, nullptr);
  rate_limit_.attach (valve_source.get ());
  if (scale_) {
    const auto scale_sink = adopt (gst_element_get_static_pad (scale_, "sink"));
    gst_pad_add_probe (
        scale_sink.get (), GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM,
        [] (GstPad *, GstPadProbeInfo *info, gpointer data) {
          GstEvent *event = GST_PAD_PROBE_INFO_EVENT (info);
          if (GST_EVENT_TYPE (event) == GST_EVENT_CAPS) {
            GstCaps *caps = nullptr;
            gst_event_parse_caps (event, &caps);
            static_cast<EncodingChain *> (data)->fit_borders (caps);
          }
          return GST_PAD_PROBE_OK;
        },
        this, nullptr);
  }
  return gst_element_add_pad (GST_ELEMENT (bin), gst_ghost_pad_new ("sink", queue_sink.get ()));
}

/** Borders where the shapes differ to the eye; a difference of some lines is stretched away. */
void EncodingChain::fit_borders (const GstCaps *caps)
{
  GstVideoInfo info;
  const double aspect = aspect_;
  if (aspect <= 0 || !gst_video_info_from_caps (&info, caps))
    return;
  const double source_aspect = static_cast<double> (info.width) * info.par_n /
                               (static_cast<double> (info.height) * info.par_d);
  const gboolean borders = std::abs (aspect / source_aspect - 1) > largest_stretch;
  g_object_set (scale_, "add-borders", borders, nullptr);
}

void EncodingChain::open (bool opened)
{
  opened_ = opened;
  g_object_set (valve_, "drop", static_cast<gboolean> (!opened), nullptr);
}

void EncodingChain::set_format (const VornFormat *format)
{
  format_ = format ? *format : VornFormat{};
  rate_limit_.set (format ? format->framerate : VornFramerate{0, 1});
  if (!filter_)
    return;
  if (!format) {
    aspect_ = 0;
    const auto any = adopt (gst_caps_new_any ());
    g_object_set (filter_, "caps", any.get (), nullptr);
    return;
  }
  aspect_ = static_cast<double> (format->resolution.width) / format->resolution.height;
  const auto caps = adopt (gst_caps_new_simple (
      "video/x-raw", "width", G_TYPE_INT, static_cast<gint> (format->resolution.width), "height",
      G_TYPE_INT, static_cast<gint> (format->resolution.height), "pixel-aspect-ratio",
      GST_TYPE_FRACTION, 1, 1, nullptr));
  g_object_set (filter_, "caps", caps.get (), nullptr);
}

void EncodingChain::load_preset (const std::string &preset)
{
  if (preset.empty ())
    return;
  if (!gst_preset_load_preset (GST_PRESET (encoder_), preset.c_str ()))
    VORN_LOG_WARNING ("view '%s': there is no encoder preset '%s' for %s", settings_.view.c_str (),
                      preset.c_str (), settings_.what);
  guint interval_ms = 0;
  g_object_get (encoder_, "key-frame-interval", &interval_ms, nullptr);
  if (interval_ms > settings_.longest_key_frame_interval_ms)
    g_object_set (encoder_, "key-frame-interval", settings_.longest_key_frame_interval_ms, nullptr);
}

void EncodingChain::set_bitrate (guint bitrate)
{
  g_object_set (encoder_, "bitrate", bitrate / 1000, nullptr);
}

void request_key_frame (GstElement *encoder)
{
  const auto pad = adopt (gst_element_get_static_pad (encoder, "src"));
  gst_pad_send_event (pad.get (),
                      gst_video_event_new_upstream_force_key_unit (GST_CLOCK_TIME_NONE, TRUE, 0));
}

} // namespace vorn
