// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "vertical_camera_support.hpp"

VornCameraParameters small_camera ()
{
  return {.name = "vertical",
          .element_factory = "test_camera",
          .sensor_configuration = {.resolution = {64, 48}, .framerate = {200, 1}},
          .optical_center_x = 32,
          .optical_center_y = 24,
          .focal_length = 2};
}

VerticalPipeline::VerticalPipeline (const VornCameraParameters &parameters, SelmacData *selmacdata)
    : camera_ (vorn::adopt (vorn_camera_new (&parameters))),
      pipeline_ (vorn::adopt (gst_pipeline_new ("vertical-pipeline")))
{
  EXPECT_TRUE (vertical_camera_pipeline_populate (bin (), camera_.get (), nullptr, selmacdata));
}

VerticalPipeline::~VerticalPipeline ()
{
  stop ();
  const auto tee = vorn::adopt (gst_bin_get_by_name (bin (), "vision-tee"));
  if (!tee)
    return;
  const auto pad = vorn::adopt (gst_element_get_static_pad (tee.get (), "sink"));
  for (; switches_ > 0; switches_--) {
    gst_object_unref (tee.get ());
    gst_object_unref (pad.get ());
  }
}

GstElement *VerticalPipeline::child (const std::string &name) const
{
  return vorn::adopt (gst_bin_get_by_name (bin (), name.c_str ())).get ();
}

bool VerticalPipeline::play () const
{
  return gst_element_set_state (pipeline_.get (), GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE;
}

void VerticalPipeline::switch_carpet (bool active)
{
  switches_++;
  EXPECT_TRUE (vertical_camera_pipeline_set_magic_carpet_active (bin (), active));
}

void VerticalPipeline::push (GstBuffer *buffer) const
{
  const auto owned = vorn::adopt (buffer);
  GstFlowReturn flow = GST_FLOW_OK;
  g_signal_emit_by_name (child ("frames"), "push-buffer", buffer, &flow);
  EXPECT_EQ (flow, GST_FLOW_OK);
}

void VerticalPipeline::push_frame (guint64 number) const
{
  constexpr gsize size = 64 * 48;
  GstBuffer *buffer = gst_buffer_new_allocate (nullptr, size, nullptr);
  gst_buffer_memset (buffer, 0, 0, size);
  GST_BUFFER_PTS (buffer) = number * 5 * GST_MSECOND;
  GST_BUFFER_OFFSET (buffer) = number;
  push (buffer);
}

size_t VerticalPipeline::tee_pads () const
{
  GstElement *tee = child ("vision-tee");
  GST_OBJECT_LOCK (tee);
  const size_t count = tee->numsrcpads;
  GST_OBJECT_UNLOCK (tee);
  return count;
}

bool VerticalPipeline::carpet_is_linked () const
{
  const auto pad = vorn::adopt (gst_element_get_static_pad (child ("magic-carpet-bin"), "sink"));
  return gst_pad_is_linked (pad.get ());
}
