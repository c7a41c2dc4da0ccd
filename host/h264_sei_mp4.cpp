// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The H.264 track of an MP4 file, fragmented or not, as qtdemux reads it.
#include "h264_sei_source.hpp"

#include <gst/app/gstappsink.h>
#define GST_USE_UNSTABLE_API
#include <gst/codecparsers/gsth264parser.h>

#include <vorn/gst_raii.hpp>

namespace h264_sei
{

namespace
{

using Parser = vorn::Owned<GstH264NalParser, gst_h264_nal_parser_free>;
using ConfigRecord = vorn::Owned<GstH264DecoderConfigRecord, gst_h264_decoder_config_record_free>;

class Mp4 : public Source
{
public:
  Mp4 (vorn::Ref<GstElement> pipeline, vorn::Ref<GstElement> sink)
      : pipeline_ (std::move (pipeline)), sink_ (std::move (sink))
  {
    gst_element_set_state (pipeline_.get (), GST_STATE_PLAYING);
  }
  ~Mp4 () override { gst_element_set_state (pipeline_.get (), GST_STATE_NULL); }
  Mp4 (const Mp4 &) = delete;
  Mp4 &operator= (const Mp4 &) = delete;

  const char *kind () const override { return "MP4"; }

  bool next (AccessUnit *unit, std::string *error) override
  {
    const auto sample = pull (error);
    if (!sample)
      return false;
    *unit = {};
    if (!caps_ || !gst_caps_is_equal (caps_.get (), gst_sample_get_caps (sample.get ())))
      take_caps (gst_sample_get_caps (sample.get ()), unit);
    GstBuffer *buffer = gst_sample_get_buffer (sample.get ());
    const GstClockTime time = gst_segment_to_stream_time (gst_sample_get_segment (sample.get ()),
                                                          GST_FORMAT_TIME, GST_BUFFER_PTS (buffer));
    if (GST_CLOCK_TIME_IS_VALID (time))
      unit->time_ns = time;
    unit->key_frame = !GST_BUFFER_FLAG_IS_SET (buffer, GST_BUFFER_FLAG_DELTA_UNIT);
    take_apart (buffer, unit);
    return true;
  }

private:
  vorn::Ref<GstSample> pull (std::string *error)
  {
    auto *sink = GST_APP_SINK (sink_.get ());
    const auto bus = vorn::adopt (gst_element_get_bus (pipeline_.get ()));
    for (;;) {
      auto sample = vorn::adopt (gst_app_sink_try_pull_sample (sink, 100 * GST_MSECOND));
      if (sample)
        return sample;
      const auto message = vorn::adopt (gst_bus_pop_filtered (bus.get (), GST_MESSAGE_ERROR));
      if (message) {
        vorn::ErrorOut failure;
        gst_message_parse_error (message.get (), failure.out (), nullptr);
        *error = lacks_track () ? "it has no H.264 track" : failure.message ();
        return nullptr;
      }
      if (gst_app_sink_is_eos (sink))
        return nullptr;
    }
  }

  /** The file could be read, but none of its tracks was one for the sink. */
  bool lacks_track () const
  {
    auto demuxer = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline_.get ()), "demuxer"));
    auto track = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline_.get ()), "track"));
    auto pad = vorn::adopt (gst_element_get_static_pad (track.get (), "sink"));
    return demuxer->numsrcpads > 0 && !gst_pad_is_linked (pad.get ());
  }

  /** The parameter sets that stand beside the track go before the unit that uses them. */
  void take_caps (GstCaps *caps, AccessUnit *unit)
  {
    caps_ = vorn::share (caps);
    const GValue *value = gst_structure_get_value (gst_caps_get_structure (caps, 0), "codec_data");
    if (!value)
      return;
    const vorn::BufferMap map (gst_value_get_buffer (value), GST_MAP_READ);
    GstH264DecoderConfigRecord *parsed = nullptr;
    if (!map || gst_h264_parser_parse_decoder_config_record (
                    parser_.get (), map.data (), map.size (), &parsed) != GST_H264_PARSER_OK) {
      unit->damage = "the track's configuration record cannot be parsed";
      return;
    }
    const ConfigRecord record (parsed);
    length_size_ = record->length_size_minus_one + 1u;
    for (const GArray *sets : {record->sps, record->pps})
      for (guint i = 0; i < sets->len; i++) {
        const auto &nal = g_array_index (sets, GstH264NalUnit, i);
        unit->configuration.emplace_back (nal.data + nal.offset, nal.data + nal.offset + nal.size);
      }
  }

  void take_apart (GstBuffer *buffer, AccessUnit *unit)
  {
    const vorn::BufferMap map (buffer, GST_MAP_READ);
    gsize at = 0;
    while (map && at < map.size ()) {
      gsize size = 0;
      for (guint i = 0; i < length_size_ && at < map.size (); i++)
        size = size << 8 | map.data ()[at++];
      if (size == 0 || size > map.size () - at) {
        unit->damage = "a NAL unit of " + std::to_string (size) + " bytes where " +
                       std::to_string (map.size () - at) + " are left";
        return;
      }
      unit->nal_units.emplace_back (map.data () + at, map.data () + at + size);
      at += size;
    }
    if (!map || map.size () == 0)
      unit->damage = "an empty sample";
  }

  vorn::Ref<GstElement> pipeline_;
  vorn::Ref<GstElement> sink_;
  vorn::Ref<GstCaps> caps_;
  Parser parser_{gst_h264_nal_parser_new ()};
  guint length_size_ = 4;
};

} // namespace

std::unique_ptr<Source> open_mp4 (const std::string &path, std::string *error)
{
  vorn::ErrorOut failure;
  auto pipeline = vorn::adopt (gst_parse_launch (
      "filesrc name=file ! qtdemux name=demuxer ! capsfilter name=track caps=video/x-h264 ! "
      "appsink name=sink sync=false max-buffers=8",
      failure.out ()));
  if (failure || !pipeline) {
    *error = failure.message ();
    return nullptr;
  }
  auto file = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), "file"));
  auto sink = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), "sink"));
  g_object_set (file.get (), "location", path.c_str (), nullptr);
  return std::make_unique<Mp4> (std::move (pipeline), std::move (sink));
}

} // namespace h264_sei
