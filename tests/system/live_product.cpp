// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "live_product.hpp"

#include <vorn/properties.h>
#include <vorn/recording.h>
#include <vorn/utils.h>

void LiveProduct::start (const std::string &camera, bool simple, VornResolution sensor)
{
  gst_registry_scan_path (gst_registry_get (), ELEMENT_DIR);
  vorn_utils_set_media_folder (media_.path ().c_str ());
  vorn_property_set ("ro.with-front-cam", camera.empty () ? "0" : "1");
  vorn_property_set ("ro.simple-front-cam", simple ? "1" : "0");
  const CameraPlan plan = {"front", sensor, live_rate,
                           camera.empty () ? nullptr : "kavrel_morviksrc", camera.c_str ()};
  configuration_ = std::make_unique<Configuration> (std::vector<CameraPlan>{plan});
  if (!camera.empty ())
    g_key_file_set_string (configuration_->get ()->key_file, "camera-front", "video-device",
                           camera.c_str ());
  ASSERT_TRUE (vorn_product_setup (product_, configuration_->get ()));
  camera_ = vorn_product_get_virtual_camera_by_name (product_, "front");
  view_ = vorn_virtual_camera_get_first_view (camera_);
  ASSERT_NE (view_, nullptr);
  g_signal_connect (view_, "record-event",
                    G_CALLBACK (+[] (VornView *, guint event, const gchar *filename,
                                     const GError *error, gpointer data) {
                      static_cast<LiveProduct *> (data)->events_.push_back (
                          {event, filename ? filename : "", error ? error->message : ""});
                    }),
                    this);
}

void LiveProduct::TearDown ()
{
  if (view_) {
    g_signal_handlers_disconnect_by_data (view_, this);
    if (units_id_ != 0)
      vorn_gst_view_remove_stream_unit_func (VORN_GST_VIEW (view_), std::exchange (units_id_, 0));
  }
  units_.clear ();
  ProductFixture::TearDown ();
  configuration_.reset ();
  Configuration::release_cameras ();
  EXPECT_TRUE (vorn_recordings_wait (20000));
  run_pending ();
  for (const char *name : {"ro.with-front-cam", "ro.simple-front-cam"})
    vorn_property_set (name, nullptr);
}

void LiveProduct::start_again ()
{
  TearDown ();
  view_ = nullptr;
  product_ = nullptr;
  SetUp ();
}

GstElement *LiveProduct::find (const char *pipeline, const char *factory) const
{
  const auto bin = vorn::adopt (vorn_product_get_pipeline_by_name (product_, pipeline));
  for (const GList *item = GST_BIN (bin.get ())->children; item; item = item->next) {
    GstElementFactory *made_by = gst_element_get_factory (GST_ELEMENT (item->data));
    if (made_by && g_strcmp0 (GST_OBJECT_NAME (made_by), factory) == 0)
      return GST_ELEMENT (item->data);
  }
  return nullptr;
}

VornGstViewStatistics LiveProduct::statistics () const
{
  VornGstViewStatistics statistics = {};
  vorn_gst_view_get_statistics (VORN_GST_VIEW (view_), &statistics);
  return statistics;
}

bool LiveProduct::stream ()
{
  VornStreamSetup setup = {};
  return vorn_view_stream_setup (view_, &setup);
}

bool LiveProduct::wait_for_stream (guint64 units)
{
  const guint64 goal = statistics ().stream_frames_out + units;
  return run_until ([&] { return statistics ().stream_frames_out >= goal; });
}

bool LiveProduct::wait_for_recording (guint64 units)
{
  const guint64 goal = statistics ().recording_frames_out + units;
  return run_until ([&] { return statistics ().recording_frames_out >= goal; });
}

LiveProduct::RecordEvent LiveProduct::wait_for_event (guint event)
{
  const auto drop_prepared = [this] {
    std::erase_if (events_,
                   [] (const RecordEvent &one) { return one.event == VORN_RECORD_EVENT_PREPARED; });
    return !events_.empty ();
  };
  if (!run_until (drop_prepared)) {
    ADD_FAILURE () << "no event " << event;
    return {};
  }
  const RecordEvent first = events_.front ();
  events_.erase (events_.begin ());
  EXPECT_EQ (first.event, event) << first.filename << " " << first.error;
  return first;
}

void LiveProduct::collect_units ()
{
  if (units_id_ != 0)
    return;
  units_id_ = vorn_gst_view_add_stream_unit_func (
      VORN_GST_VIEW (view_),
      [] (VornGstView *, GstSample *unit, gpointer data) {
        auto *self = static_cast<LiveProduct *> (data);
        const std::lock_guard lock (self->units_mutex_);
        self->units_.push_back (vorn::share (unit));
      },
      this, nullptr);
}

std::vector<vorn::Ref<GstSample>> LiveProduct::take_units ()
{
  const std::lock_guard lock (units_mutex_);
  return std::exchange (units_, {});
}
