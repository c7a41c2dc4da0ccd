// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "front_view_photo_support.hpp"

#include <cstdarg>
#include <thread>

#include <gio/gio.h>

#include "main_context.hpp"
#include "own_namespace.hpp"
#include "test_virtual_camera.hpp"
#include <vorn/framework.h>
#include <vorn/properties.h>
#include <vorn/utils.h>

namespace photos
{

Calls calls; // NOLINT(bugprone-throwing-static-initialization)
std::mutex calls_mutex;

} // namespace photos

using photos::calls;
using photos::calls_mutex;

static const std::thread::id test_thread = std::this_thread::get_id ();

extern "C" {
GstElement *__real_gst_element_factory_make (const gchar *factory, const gchar *name);
GstElement *__wrap_gst_element_factory_make (const gchar *factory, const gchar *name);
GstElement *__wrap_gst_element_factory_make (const gchar *factory, const gchar *name)
{
  return calls.missing.contains (factory) ? nullptr
                                          : __real_gst_element_factory_make (factory, name);
}

GstElement *__real_gst_pad_get_parent_element (GstPad *pad);
GstElement *__wrap_gst_pad_get_parent_element (GstPad *pad);
GstElement *__wrap_gst_pad_get_parent_element (GstPad *pad)
{
  return calls.no_parent_element ? nullptr : __real_gst_pad_get_parent_element (pad);
}

GTask *__real_g_task_new (gpointer source, GCancellable *cancellable, GAsyncReadyCallback callback,
                          gpointer data);
GTask *__wrap_g_task_new (gpointer source, GCancellable *cancellable, GAsyncReadyCallback callback,
                          gpointer data);
GTask *__wrap_g_task_new (gpointer source, GCancellable *cancellable, GAsyncReadyCallback callback,
                          gpointer data)
{
  return calls.no_task ? nullptr : __real_g_task_new (source, cancellable, callback, data);
}

GstTagList *__wrap_gst_tag_list_new (const gchar *tag, ...);
GstTagList *__wrap_gst_tag_list_new (const gchar *tag, ...)
{
  if (calls.no_tag_list)
    return nullptr;
  va_list values;
  va_start (values, tag);
  GstTagList *list = gst_tag_list_new_empty ();
  gst_tag_list_add_valist (list, GST_TAG_MERGE_APPEND, tag, values);
  va_end (values);
  return list;
}

gint64 __real_g_get_monotonic_time (void);
gint64 __wrap_g_get_monotonic_time (void);
gint64 __wrap_g_get_monotonic_time (void)
{
  const std::lock_guard lock (calls_mutex);
  const gint64 now_us = __real_g_get_monotonic_time ();
  if (calls.first_time_us || std::this_thread::get_id () == test_thread)
    return now_us;
  calls.first_time_us = now_us + calls.first_time_shift_us;
  return *calls.first_time_us;
}

gint __real_vorn_metadata_provider_get_timed_photo_meta (VornMetadataProvider *provider,
                                                         guint64 time_ns,
                                                         VornTimedPhotoMetadata *record);
gint __wrap_vorn_metadata_provider_get_timed_photo_meta (VornMetadataProvider *provider,
                                                         guint64 time_ns,
                                                         VornTimedPhotoMetadata *record);
gint __wrap_vorn_metadata_provider_get_timed_photo_meta (VornMetadataProvider *provider,
                                                         guint64 time_ns,
                                                         VornTimedPhotoMetadata *record)
{
  EXPECT_NE (provider, nullptr);
  {
    const std::lock_guard lock (calls_mutex);
    calls.timed_times_ns.push_back (time_ns);
  }
  if (calls.on_timed)
    calls.on_timed ();
  if (calls.no_timed_metadata)
    return 0;
  if (!calls.timed)
    return __real_vorn_metadata_provider_get_timed_photo_meta (provider, time_ns, record);
  *record = *calls.timed;
  return 1;
}

// gboolean trel_metadata_photo_update (guint64)
gboolean __wrap__Z26trel_metadata_photo_updatem (guint64 time_ns);
gboolean __wrap__Z26trel_metadata_photo_updatem (guint64 time_ns)
{
  const std::lock_guard lock (calls_mutex);
  calls.telemetry_times_ns.push_back (time_ns);
  return TRUE;
}

// gboolean dewarper_eis_push_tlm_video (guint64)
gboolean __wrap__Z27dewarper_eis_push_tlm_videom (guint64 time_ns);
gboolean __wrap__Z27dewarper_eis_push_tlm_videom (guint64 time_ns)
{
  const std::lock_guard lock (calls_mutex);
  calls.frame_times_ns.push_back (time_ns);
  return TRUE;
}

// GstSample *make_thumbnail (GstBuffer *, guint32, guint32, guint32, guint32)
GstSample *__real__Z14make_thumbnailP10_GstBufferjjjj (GstBuffer *frame, guint32 width,
                                                       guint32 height, guint32 num, guint32 den);
GstSample *__wrap__Z14make_thumbnailP10_GstBufferjjjj (GstBuffer *frame, guint32 width,
                                                       guint32 height, guint32 num, guint32 den);
GstSample *__wrap__Z14make_thumbnailP10_GstBufferjjjj (GstBuffer *frame, guint32 width,
                                                       guint32 height, guint32 num, guint32 den)
{
  {
    const std::lock_guard lock (calls_mutex);
    calls.covers.push_back ({vorn::share (frame), width, height, num, den});
  }
  return __real__Z14make_thumbnailP10_GstBufferjjjj (frame, width, height, num, den);
}
}

namespace photos
{

void PhotoTest::SetUpTestSuite ()
{
  static const OwnNamespace own_namespace;
  vorn_framework_init (nullptr, nullptr);
}

PhotoTest::PhotoTest ()
{
  {
    const std::lock_guard lock (calls_mutex);
    calls = {};
  }
  vorn_property_set ("ro.with-front-cam", nullptr);
  vorn_property_set ("ro.simple-front-cam", nullptr);
  vorn_utils_set_media_folder (media_.path ().c_str ());
  const VornCameraParameters parameters = {
      .name = "front",
      .sensor_configuration = {.resolution = {1312, 788}, .framerate = {24000, 1001}}};
  camera_ = vorn::adopt (vorn_camera_new (&parameters));
  virtual_camera_ = vorn::adopt (test_virtual_camera_new ("front"));
  base_ = vorn_morvik_zelto_front_view_new ("front-view", "Front", camera_.get (), "unix:/none",
                                            nullptr);
  owned_ = vorn::share (base_);
  vorn_virtual_camera_add_view (virtual_camera_.get (), base_); // takes the first reference
  view_ = VORN_MORVIK_ZELTO_FRONT_VIEW (base_);
  store_relaxed (view_->photo_format_size, {.resolution = {1280, 720}, .framerate = {30, 1}});
  store_relaxed (view_->photo_count, 1);
}

PhotoTest::~PhotoTest ()
{
  vorn_morvik_zelto_front_view_wait_for_covers ();
  run_pending ();
  for (GstElement *pipeline : {view_->picture_pipeline, view_->main_pipeline})
    if (pipeline)
      gst_element_set_state (pipeline, GST_STATE_NULL);
  // The view keeps what belongs to its last photos.
  g_slist_free_full (std::exchange (view_->taken_snapshots, nullptr), g_free);
  g_free (std::exchange (view_->location_pattern, nullptr));
  vorn_utils_set_media_folder (nullptr);
  EXPECT_EQ (G_OBJECT (base_)->ref_count, 2u);
  const std::lock_guard lock (calls_mutex);
  calls = {};
}

vorn::Ref<GstElement> PhotoTest::make_source_and_tee (const char *source)
{
  const std::string description =
      std::string (source) +
      " name=source ! video/x-raw,width=1280,height=720,format=I420,framerate=30/1 ! tee name=tee";
  vorn::ErrorOut parse_error;
  auto pipeline = vorn::adopt (gst_parse_launch (description.c_str (), parse_error.out ()));
  EXPECT_FALSE (parse_error) << parse_error.message ();
  gst_object_set_name (GST_OBJECT (pipeline.get ()), "front-picture-pipeline");
  return pipeline;
}

void PhotoTest::build (bool with_photo, bool with_thumbnail, const char *source)
{
  auto pipeline = make_source_and_tee (source);
  GstBin *bin = GST_BIN (pipeline.get ());
  const auto tee = vorn::adopt (gst_bin_get_by_name (bin, "tee"));
  if (with_photo) {
    ASSERT_TRUE (populate_picture_main_pipeline (bin, tee.get (), view_, 1280, 720));
  }
  if (with_thumbnail) {
    ASSERT_TRUE (populate_picture_thumbnail_pipeline (bin, tee.get (), view_));
  }
  view_->picture_pipeline = pipeline.release ();
}

void PhotoTest::use (const char *description)
{
  vorn::ErrorOut parse_error;
  auto pipeline = vorn::adopt (gst_parse_launch (description, parse_error.out ()));
  ASSERT_FALSE (parse_error) << parse_error.message ();
  view_->picture_pipeline = pipeline.release ();
}

gboolean PhotoTest::take (const VornSnapshotRequest &request)
{
  return VORN_VIEW_GET_CLASS (base_)->take_snapshot (base_, &request);
}

std::string PhotoTest::wait_for_end ()
{
  const auto bus = vorn::adopt (gst_element_get_bus (view_->picture_pipeline));
  constexpr auto types =
      static_cast<GstMessageType> (GST_MESSAGE_EOS | GST_MESSAGE_ERROR | GST_MESSAGE_ELEMENT);
  for (;;) {
    const auto message =
        vorn::adopt (gst_bus_timed_pop_filtered (bus.get (), 30 * GST_SECOND, types));
    if (!message)
      return "nothing for 30 s";
    switch (GST_MESSAGE_TYPE (message.get ())) {
    case GST_MESSAGE_EOS:
      return "eos";
    case GST_MESSAGE_ERROR: {
      vorn::ErrorOut reason;
      gst_message_parse_error (message.get (), reason.out (), nullptr);
      return reason.message ();
    }
    default:
      if (const gchar *file =
              gst_structure_get_string (gst_message_get_structure (message.get ()), "filename"))
        view_->taken_snapshots = g_slist_append (view_->taken_snapshots, g_strdup (file));
    }
  }
}

void PhotoTest::take_whole (const VornSnapshotRequest &request)
{
  ASSERT_TRUE (take (request));
  ASSERT_EQ (wait_for_end (), "eos");
}

std::vector<std::string> PhotoTest::taken () const
{
  std::vector<std::string> files;
  for (const GSList *entry = view_->taken_snapshots; entry; entry = entry->next)
    files.emplace_back (static_cast<const char *> (entry->data));
  return files;
}

vorn::Ref<GstElement> PhotoTest::element (const char *name) const
{
  return vorn::adopt (gst_bin_get_by_name (GST_BIN (view_->picture_pipeline), name));
}

GstState PhotoTest::state () const
{
  GstState now = GST_STATE_VOID_PENDING;
  gst_element_get_state (view_->picture_pipeline, &now, nullptr, 0);
  return now;
}

vorn::Ref<GstTagList> PhotoTest::muxer_tags () const
{
  const auto muxer = element ("picture-jpegmux");
  EXPECT_TRUE (muxer);
  const GstTagList *tags = gst_tag_setter_get_tag_list (GST_TAG_SETTER (muxer.get ()));
  return vorn::adopt (tags ? gst_tag_list_copy (tags) : gst_tag_list_new_empty ());
}

bool PhotoTest::has_tag (const char *name) const
{
  return gst_tag_list_get_tag_size (muxer_tags ().get (), name) > 0;
}

std::vector<std::string> PhotoTest::said (int priority) const
{
  std::vector<std::string> texts;
  for (const LogLine &line : log_.lines ())
    if (line.tag == "vorn_morvik_zelto_front_view" && line.priority == priority)
      texts.push_back (line.text);
  return texts;
}

std::string text_tag (const GstTagList *tags, const char *name)
{
  gchar *text = nullptr;
  gst_tag_list_get_string (tags, name, &text);
  const vorn::OwnedString owned (text);
  return text ? text : "";
}

} // namespace photos
