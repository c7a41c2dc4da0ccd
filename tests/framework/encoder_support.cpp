// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "encoder_support.hpp"

#include <algorithm>

#include <gst/app/gstappsink.h>
#include <gtest/gtest.h>

namespace encoding
{

size_t Unit::count (std::initializer_list<unsigned> types) const
{
  return static_cast<size_t> (std::count_if (nalus.begin (), nalus.end (), [&] (const Bytes &nalu) {
    return std::find (types.begin (), types.end (), nalu[0] & 0x1fu) != types.end ();
  }));
}

static Unit take_apart (GstBuffer *buffer)
{
  Unit unit{vorn::Ref<GstBuffer> (buffer), {}};
  const vorn::BufferMap map (buffer, GST_MAP_READ);
  size_t at = 0;
  while (at + 4 < map.size ()) {
    size_t size = 0;
    for (int i = 0; i < 4; i++)
      size = size << 8 | map.data ()[at++];
    if (size == 0 || size > map.size () - at)
      break;
    unit.nalus.emplace_back (map.data () + at, map.data () + at + size);
    at += size;
  }
  EXPECT_EQ (at, map.size ()) << "an access unit that is no AVC";
  return unit;
}

Pipeline::Pipeline (GstElement *encoder, const std::string &source, const std::string &caps)
    : encoder_ (encoder)
{
  vorn::ErrorOut error;
  pipeline_ = vorn::adopt (gst_parse_launch (("videotestsrc " + source +
                                              " ! capsfilter name=caps ! identity name=entry "
                                              "appsink name=sink sync=false max-buffers=4")
                                                 .c_str (),
                                             error.out ()));
  EXPECT_FALSE (error) << error.message ();
  auto entry = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline_.get ()), "entry"));
  auto sink = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline_.get ()), "sink"));
  gst_bin_add (GST_BIN (pipeline_.get ()), encoder);
  EXPECT_TRUE (gst_element_link_many (entry.get (), encoder, sink.get (), nullptr));
  auto pad = vorn::adopt (gst_element_get_static_pad (entry.get (), "src"));
  gst_pad_add_probe (pad.get (), GST_PAD_PROBE_TYPE_BUFFER, on_buffer, this, nullptr);
  set_caps (caps);
}

Pipeline::~Pipeline ()
{
  gst_element_set_state (pipeline_.get (), GST_STATE_NULL);
}

GstPadProbeReturn Pipeline::on_buffer (GstPad *, GstPadProbeInfo *info, gpointer data)
{
  auto *self = static_cast<Pipeline *> (data);
  GstBuffer *buffer = gst_buffer_make_writable (GST_PAD_PROBE_INFO_BUFFER (info));
  GST_PAD_PROBE_INFO_DATA (info) = buffer;
  if (self->on_frame)
    self->on_frame (buffer, self->frames_);
  self->frames_++;
  return GST_PAD_PROBE_OK;
}

void Pipeline::set_caps (const std::string &caps)
{
  auto filter = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline_.get ()), "caps"));
  gst_util_set_object_arg (G_OBJECT (filter.get ()), "caps", ("video/x-raw," + caps).c_str ());
}

vorn::Ref<GstElement> Pipeline::worker () const
{
  return vorn::adopt (gst_bin_get_by_name (
      GST_BIN (encoder_), (std::string (GST_OBJECT_NAME (encoder_)) + "-h264enc").c_str ()));
}

std::vector<Unit> Pipeline::run ()
{
  frames_ = 0;
  caps_.clear ();
  auto sink = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline_.get ()), "sink"));
  gst_element_set_state (pipeline_.get (), GST_STATE_PLAYING);
  std::vector<Unit> units;
  while (auto sample = vorn::adopt (gst_app_sink_pull_sample (GST_APP_SINK (sink.get ())))) {
    units.push_back (take_apart (gst_sample_get_buffer (sample.get ())));
    GstCaps *caps = gst_sample_get_caps (sample.get ());
    if (caps_.empty () || !gst_caps_is_equal (caps_.back ().get (), caps))
      caps_.emplace_back (caps);
  }
  auto bus = vorn::adopt (gst_element_get_bus (pipeline_.get ()));
  auto message = vorn::adopt (gst_bus_pop_filtered (bus.get (), GST_MESSAGE_ERROR));
  if (message) {
    vorn::ErrorOut error;
    gst_message_parse_error (message.get (), error.out (), nullptr);
    ADD_FAILURE () << error.message ();
  }
  gst_element_set_state (pipeline_.get (), GST_STATE_NULL);
  return units;
}

guint get_uint (gpointer object, const char *property)
{
  guint value = 0;
  g_object_get (object, property, &value, nullptr);
  return value;
}

VornH264Sps sps_of (const std::vector<Unit> &units)
{
  VornH264Sps sps = {};
  const h264::Writer writer (vorn_h264_writer_new (), vorn_h264_writer_destroy);
  for (const Unit &unit : units)
    for (const Bytes &nalu : unit.nalus)
      if ((nalu[0] & 0x1f) == 7) {
        EXPECT_EQ (vorn_h264_writer_parse_sps (writer.get (), nalu.data (), nalu.size (), &sps), 0);
        return sps;
      }
  ADD_FAILURE () << "no SPS";
  return sps;
}

std::vector<int> key_frames (const std::vector<Unit> &units)
{
  std::vector<int> result;
  for (size_t i = 0; i < units.size (); i++)
    if (units[i].is_key_frame ())
      result.push_back (static_cast<int> (i));
  return result;
}

} // namespace encoding
