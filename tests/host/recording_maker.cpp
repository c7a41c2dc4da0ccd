// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "recording_maker.hpp"

#include <gst/app/gstappsink.h>
#include <gtest/gtest.h>

#include <vorn/encoder.h>
#include <vorn/frame_meta.h>
#include <vorn/gst_raii.hpp>

#include "frame_postprocessor_support.hpp"

namespace
{

constexpr VornResolution size = {128, 96};

/** One that is being made. */
struct Making {
  const RecordingRequest &request;
  postprocessing::Postprocessor state{frame_postprocessor_new ()};
  GstClockTime captured = 0;
};

GstPadProbeReturn mark (GstPad *, GstPadProbeInfo *info, gpointer data)
{
  auto *making = static_cast<Making *> (data);
  GstBuffer *buffer = gst_buffer_make_writable (GST_PAD_PROBE_INFO_BUFFER (info));
  GST_PAD_PROBE_INFO_DATA (info) = buffer;
  const RecordingRequest &request = making->request;
  gst_structure_set (
      vorn_frame_meta_add (buffer)->structure, "capture-timestamp", GST_TYPE_CLOCK_TIME,
      request.first_capture_ns + making->captured++ * request.capture_step_ns, nullptr);
  return GST_PAD_PROBE_OK;
}

GstPadProbeReturn postprocess (GstPad *, GstPadProbeInfo *info, gpointer data)
{
  auto *making = static_cast<Making *> (data);
  GstBuffer *buffer = gst_buffer_make_writable (GST_PAD_PROBE_INFO_BUFFER (info));
  frame_postprocessor_process (making->state.get (), &size, buffer);
  if (making->request.muxer.empty ()) {
    h264::Bytes stream;
    for (const h264::Bytes &nalu : postprocessing::nal_units (buffer))
      h264::append_with_start_code (stream, nalu);
    gst_buffer_unref (buffer);
    buffer = gst_buffer_new_memdup (stream.data (), stream.size ());
  }
  GST_PAD_PROBE_INFO_DATA (info) = buffer;
  return GST_PAD_PROBE_OK;
}

vorn::Ref<GstElement> element_of (const vorn::Ref<GstElement> &pipeline, const char *name)
{
  return vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), name));
}

void add_probe (GstElement *element, GstPadProbeCallback callback, Making *making)
{
  auto pad = vorn::adopt (gst_element_get_static_pad (element, "src"));
  gst_pad_add_probe (pad.get (), GST_PAD_PROBE_TYPE_BUFFER, callback, making, nullptr);
}

vorn::Ref<GstSample> jpeg_sample (int width, int height)
{
  vorn::ErrorOut error;
  auto pipeline = vorn::adopt (gst_parse_launch (
      ("videotestsrc num-buffers=1 ! video/x-raw,width=" + std::to_string (width) +
       ",height=" + std::to_string (height) + " ! jpegenc ! appsink name=sink sync=false")
          .c_str (),
      error.out ()));
  EXPECT_FALSE (error) << error.message ();
  gst_element_set_state (pipeline.get (), GST_STATE_PLAYING);
  auto sample =
      vorn::adopt (gst_app_sink_pull_sample (GST_APP_SINK (element_of (pipeline, "sink").get ())));
  gst_element_set_state (pipeline.get (), GST_STATE_NULL);
  EXPECT_TRUE (sample);
  return sample;
}

} // namespace

std::string make_jpeg (int width, int height)
{
  const auto sample = jpeg_sample (width, height);
  const vorn::BufferMap map (gst_sample_get_buffer (sample.get ()), GST_MAP_READ);
  return {reinterpret_cast<const char *> (map.data ()), map.size ()};
}

void make_recording (const RecordingRequest &request)
{
  vorn::ErrorOut error;
  auto pipeline = vorn::adopt (gst_parse_launch (
      ("videotestsrc num-buffers=" + std::to_string (request.frames) +
       " ! video/x-raw,format=I420,width=128,height=96,framerate=" + request.framerate +
       " ! identity name=entry " + (request.muxer.empty () ? "identity" : request.muxer) +
       " name=mux ! filesink name=file")
          .c_str (),
      error.out ()));
  ASSERT_FALSE (error) << error.message ();
  Making making{.request = request};
  auto entry = element_of (pipeline, "entry");
  auto mux = element_of (pipeline, "mux");
  g_object_set (element_of (pipeline, "file").get (), "location", request.path.c_str (), nullptr);
  if (request.has_cover) {
    const auto cover = jpeg_sample (320, 240);
    gst_tag_setter_add_tags (GST_TAG_SETTER (mux.get ()), GST_TAG_MERGE_REPLACE, GST_TAG_IMAGE,
                             cover.get (), nullptr);
  }
  GstElement *encoder = vorn_encoder_new ("encoder");
  gst_bin_add (GST_BIN (pipeline.get ()), encoder);
  EXPECT_TRUE (gst_element_link_many (entry.get (), encoder, mux.get (), nullptr));
  add_probe (entry.get (), mark, &making);
  add_probe (encoder, postprocess, &making);
  gst_element_set_state (pipeline.get (), GST_STATE_PLAYING);
  auto bus = vorn::adopt (gst_element_get_bus (pipeline.get ()));
  auto message = vorn::adopt (gst_bus_timed_pop_filtered (
      bus.get (), 50 * GST_SECOND,
      static_cast<GstMessageType> (GST_MESSAGE_EOS | GST_MESSAGE_ERROR)));
  EXPECT_TRUE (message && GST_MESSAGE_TYPE (message.get ()) == GST_MESSAGE_EOS);
  gst_element_set_state (pipeline.get (), GST_STATE_NULL);
}
