// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "test_camera.hpp"

#include <vorn/framework.h>

namespace
{

std::string test_camera_description;

struct TestCamera {
  GstBin parent_instance;
};
struct TestCameraClass {
  GstBinClass parent_class;
};

guint new_frame_signal;

G_DEFINE_TYPE (TestCamera, test_camera, GST_TYPE_BIN)

GstPadProbeReturn announce (GstPad *, GstPadProbeInfo *info, gpointer camera)
{
  g_signal_emit (camera, new_frame_signal, 0,
                 static_cast<guint64> (GST_BUFFER_PTS (GST_PAD_PROBE_INFO_BUFFER (info))));
  return GST_PAD_PROBE_OK;
}

void test_camera_class_init (TestCameraClass *klass)
{
  new_frame_signal = g_signal_new ("new-frame", G_TYPE_FROM_CLASS (klass), G_SIGNAL_RUN_LAST, 0,
                                   nullptr, nullptr, nullptr, G_TYPE_NONE, 1, G_TYPE_UINT64);
  gst_element_class_set_static_metadata (GST_ELEMENT_CLASS (klass), "Test camera", "Source/Video",
                                         "Frames of a test", "us");
}

void test_camera_init (TestCamera *camera)
{
  if (test_camera_description.empty ())
    return;
  vorn::ErrorOut error;
  GstElement *frames =
      gst_parse_bin_from_description (test_camera_description.c_str (), TRUE, error.out ());
  ASSERT_NE (frames, nullptr) << error.message ();
  gst_bin_add (GST_BIN (camera), frames);
  const auto pad = vorn::adopt (gst_element_get_static_pad (frames, "src"));
  gst_pad_add_probe (pad.get (), GST_PAD_PROBE_TYPE_BUFFER, announce, camera, nullptr);
  gst_element_add_pad (GST_ELEMENT (camera), gst_ghost_pad_new ("src", pad.get ()));
}

} // namespace

void prepare_test_camera ()
{
  vorn_framework_init (nullptr, nullptr);
  gst_registry_scan_path (gst_registry_get (), ELEMENT_DIR);
  gst_element_register (nullptr, "test_camera", GST_RANK_NONE, test_camera_get_type ());
}

void set_test_camera (const std::string &description)
{
  test_camera_description = description;
}

FrameCounter::FrameCounter (GstElement *element, const char *pad)
    : pad_ (vorn::adopt (gst_element_get_static_pad (element, pad))),
      probe_ (gst_pad_add_probe (pad_.get (), GST_PAD_PROBE_TYPE_BUFFER, on_buffer, this, nullptr))
{
}

FrameCounter::~FrameCounter ()
{
  gst_pad_remove_probe (pad_.get (), probe_);
}

GstPadProbeReturn FrameCounter::on_buffer (GstPad *, GstPadProbeInfo *info, gpointer self)
{
  auto *counter = static_cast<FrameCounter *> (self);
  const guint64 offset = GST_BUFFER_OFFSET (GST_PAD_PROBE_INFO_BUFFER (info));
  const std::scoped_lock lock (counter->mutex_);
  if (counter->count_++ > 0 && offset != counter->last_offset_ + 1)
    counter->gaps_++;
  counter->last_offset_ = offset;
  counter->arrived_.notify_all ();
  return GST_PAD_PROBE_OK;
}

size_t FrameCounter::count () const
{
  const std::scoped_lock lock (mutex_);
  return count_;
}

size_t FrameCounter::gaps () const
{
  const std::scoped_lock lock (mutex_);
  return gaps_;
}

guint64 FrameCounter::last_offset () const
{
  const std::scoped_lock lock (mutex_);
  return last_offset_;
}

bool FrameCounter::wait_for (size_t count) const
{
  std::unique_lock lock (mutex_);
  return arrived_.wait_for (lock, std::chrono::seconds (30), [&] { return count_ >= count; });
}
