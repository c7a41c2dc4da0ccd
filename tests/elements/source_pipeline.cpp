// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "source_pipeline.hpp"

#include <gtest/gtest.h>

#include <vorn/frame_meta.h>

#include "morviksrc.hpp"

void register_source ()
{
  gst_init (nullptr, nullptr);
  static const bool registered = GST_ELEMENT_REGISTER (kavrel_morviksrc, nullptr);
  ASSERT_TRUE (registered);
}

SourcePipeline::SourcePipeline (const std::string &properties, const std::string &tail)
{
  register_source ();
  vorn::ErrorOut error;
  const std::string description = "kavrel_morviksrc name=src " + properties + " ! " + tail;
  pipeline_ = vorn::adopt (gst_parse_launch (description.c_str (), error.out ()));
  if (error)
    ADD_FAILURE () << error.message ();
  source_ = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline_.get ()), "src"));
  const auto sink = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline_.get ()), "sink"));
  const auto pad = vorn::adopt (gst_element_get_static_pad (sink.get (), "sink"));
  gst_pad_add_probe (pad.get (), GST_PAD_PROBE_TYPE_BUFFER, on_buffer, this, nullptr);
}

SourcePipeline::~SourcePipeline ()
{
  set_state (GST_STATE_NULL);
}

GstPadProbeReturn SourcePipeline::on_buffer (GstPad *, GstPadProbeInfo *info, gpointer self)
{
  auto *pipeline = static_cast<SourcePipeline *> (self);
  const std::scoped_lock lock (pipeline->mutex_);
  pipeline->count_++;
  if (pipeline->keep_)
    pipeline->buffers_.push_back (vorn::share (GST_PAD_PROBE_INFO_BUFFER (info)));
  pipeline->arrived_.notify_all ();
  return GST_PAD_PROBE_OK;
}

bool SourcePipeline::set_state (GstState state)
{
  return gst_element_set_state (pipeline_.get (), state) != GST_STATE_CHANGE_FAILURE;
}

BusMessage SourcePipeline::wait_for_end (GstClockTime timeout)
{
  const auto bus = vorn::adopt (gst_element_get_bus (pipeline_.get ()));
  const auto message = vorn::adopt (gst_bus_timed_pop_filtered (
      bus.get (), timeout, static_cast<GstMessageType> (GST_MESSAGE_EOS | GST_MESSAGE_ERROR)));
  if (!message)
    return {};
  if (GST_MESSAGE_TYPE (message.get ()) == GST_MESSAGE_EOS)
    return {GST_MESSAGE_EOS, "", ""};
  vorn::ErrorOut error;
  gchar *debug = nullptr;
  gst_message_parse_error (message.get (), error.out (), &debug);
  const vorn::OwnedString owned (debug);
  return {GST_MESSAGE_ERROR, error.message (), debug ? debug : ""};
}

bool SourcePipeline::wait_for_buffers (size_t count)
{
  std::unique_lock lock (mutex_);
  return arrived_.wait_for (lock, std::chrono::seconds (30), [&] { return count_ >= count; });
}

std::vector<vorn::Ref<GstBuffer>> SourcePipeline::buffers ()
{
  const std::scoped_lock lock (mutex_);
  return buffers_;
}

void SourcePipeline::forget_buffers (bool keep)
{
  const std::scoped_lock lock (mutex_);
  buffers_.clear ();
  keep_ = keep;
  count_ = 0;
}

size_t SourcePipeline::count ()
{
  const std::scoped_lock lock (mutex_);
  return count_;
}

FrameFacts facts_of (GstBuffer *buffer)
{
  FrameFacts facts;
  VornFrameMeta *meta = vorn_frame_meta_get (buffer);
  if (!meta) {
    ADD_FAILURE () << "buffer without frame metadata";
    return facts;
  }
  EXPECT_TRUE (
      gst_structure_get_clock_time (meta->structure, "capture-timestamp", &facts.capture_ns));
  EXPECT_TRUE (gst_structure_get (
      meta->structure, "exposure-ns", G_TYPE_UINT64, &facts.exposure_ns, "readout-ns",
      G_TYPE_UINT64, &facts.readout_ns, "hfov", G_TYPE_DOUBLE, &facts.hfov, "vfov", G_TYPE_DOUBLE,
      &facts.vfov, "focal-x", G_TYPE_DOUBLE, &facts.focal_x, "focal-y", G_TYPE_DOUBLE,
      &facts.focal_y, "center-x", G_TYPE_DOUBLE, &facts.center_x, "center-y", G_TYPE_DOUBLE,
      &facts.center_y, "sensor-rect-left", G_TYPE_UINT, &facts.left, "sensor-rect-top", G_TYPE_UINT,
      &facts.top, "sensor-rect-width", G_TYPE_UINT, &facts.width, "sensor-rect-height", G_TYPE_UINT,
      &facts.height, nullptr));
  return facts;
}
