// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Snapshots: their settings, their start, and what is told of them.
#include "vorn_morvik_zelto_front_view_private.hpp"

#include "vorn_morvik_zelto_front_view_photo_tags.hpp"
#include <vorn/frame_meta.h>
#include <vorn/gst_raii.hpp>
#include <vorn/log.h>
#include <vorn/utils.h>
#include <vorn/virtual_camera.h>

VORN_LOG_TAG ("vorn_morvik_zelto_front_view");

namespace
{

using UntimedMetadata = vorn::Owned<VornUntimedMetadata, vorn_metadata_provider_free_untimed_meta>;

vorn::Ref<GstElement> find_in_picture_pipeline (VornMorvikZeltoFrontView *view, const char *name)
{
  return vorn::adopt (gst_bin_get_by_name (GST_BIN (view->picture_pipeline), name));
}

/** The view accepts only the settings that its camera mode has. */
bool are_of_mode (const VornMorvikZeltoFrontView *view, guint32 photo_mode, guint32 photo_format,
                  guint32 photo_file_format, guint32 count)
{
  return load_relaxed (view->photo_format) == photo_format &&
         load_relaxed (view->photo_file_format) == photo_file_format &&
         load_relaxed (view->photo_mode) == photo_mode && load_relaxed (view->photo_count) == count;
}

void set_size (GstElement *filter, const VornResolution &size)
{
  GstCaps *caps = nullptr;
  g_object_get (filter, "caps", &caps, nullptr);
  const auto writable = vorn::adopt (gst_caps_make_writable (caps));
  gst_caps_set_simple (writable.get (), "width", G_TYPE_INT, static_cast<gint> (size.width),
                       "height", G_TYPE_INT, static_cast<gint> (size.height), nullptr);
  g_object_set (filter, "caps", writable.get (), nullptr);
}

/** Keeps the location of the group for its further photos, as long as the view lives. */
void keep_group_location (VornMorvikZeltoFrontView *view, const gchar *location)
{
  g_free (std::exchange (view->location_pattern, g_strdup (location)));
}

/** Tells the sink where the photo goes. */
bool set_location (VornMorvikZeltoFrontView *view, const VornSnapshotRequest &request)
{
  const bool is_new_group =
      request.photo_grouping == VORN_PHOTO_GROUPING_SINGLE || request.sequence_number == 0;
  gchar *group = is_new_group ? nullptr : g_strdup (view->location_pattern);
  gchar *pattern = nullptr;
  gint index = 0;
  const bool found = vorn_utils_get_picture_location_pattern (0, &group, &pattern, &index);
  const vorn::OwnedString owned_group (group);
  const vorn::OwnedString owned_pattern (pattern);
  if (!found)
    return false;
  gst_child_proxy_set (GST_CHILD_PROXY (view->picture_pipeline), "picture-jpegsink::location",
                       pattern, "picture-jpegsink::index", index, nullptr);
  if (is_new_group || !view->location_pattern)
    keep_group_location (view, group);
  return true;
}

void set_untimed_tags (VornMorvikZeltoFrontView *view, const VornSnapshotRequest &request)
{
  const auto muxer = find_in_picture_pipeline (view, "picture-jpegmux");
  if (!muxer) {
    VORN_LOG_WARNING ("failed to get picture-jpegmux");
    return;
  }
  VornMetadataProvider *provider =
      vorn_virtual_cam_get_pmd (vorn_view_get_parent (VORN_VIEW (view)));
  const UntimedMetadata metadata (vorn_metadata_provider_get_untimed_meta (provider));
  if (!metadata) // its refusal was heard
    return;
  const auto tags = make_untimed_photo_tags (*metadata, request, load_relaxed (view->photo_mode));
  // A photo that did not even get ready has left its tags.
  gst_tag_setter_reset_tags (GST_TAG_SETTER (muxer.get ()));
  gst_tag_setter_merge_tags (GST_TAG_SETTER (muxer.get ()), tags.get (), GST_TAG_MERGE_REPLACE);
}

} // namespace

gboolean vorn_morvik_zelto_front_view_set_snapshot_format (VornView *base, guint32 photo_mode,
                                                           guint32 photo_format,
                                                           guint32 photo_file_format, guint32 count,
                                                           guint64 *size)
{
  auto *view = VORN_MORVIK_ZELTO_FRONT_VIEW (base);
  if (!are_of_mode (view, photo_mode, photo_format, photo_file_format, count))
    return FALSE;
  const auto filter = find_in_picture_pipeline (view, "picture-jpegfilter");
  if (!filter) {
    VORN_LOG_ERROR ("failed to get picture-jpegfilter");
    return FALSE;
  }
  const VornResolution photo = load_relaxed (view->photo_format_size).resolution;
  VORN_LOG_INFO (
      "configure snapshot for '%s' to %s '%s/%s' = %ux%u (count: %u)", vorn_view_get_name (base),
      vorn_camera_mode_photo_get_name (photo_mode), vorn_photo_format_get_name (photo_format),
      vorn_photo_file_format_get_name (photo_file_format), photo.width, photo.height, count);
  set_size (filter.get (), photo);
  if (size)
    *size = photo.width | guint64{photo.height} << 32;
  return TRUE;
}

gboolean vorn_morvik_zelto_front_view_take_snapshot (VornView *base,
                                                     const VornSnapshotRequest *request)
{
  auto *view = VORN_MORVIK_ZELTO_FRONT_VIEW (base);
  gst_element_set_state (view->picture_pipeline, GST_STATE_NULL);
  g_slist_free_full (std::exchange (view->taken_snapshots, nullptr), g_free);
  if (!set_location (view, *request)) {
    VORN_LOG_ERROR ("failed to get jpeg location pattern");
    return FALSE;
  }
  set_untimed_tags (view, *request);
  if (gst_element_set_state (view->picture_pipeline, GST_STATE_PLAYING) ==
      GST_STATE_CHANGE_FAILURE) {
    VORN_LOG_WARNING ("failed to take snapshot: state change error");
    return FALSE;
  }
  return TRUE;
}

gchar **vorn_morvik_zelto_front_view_get_taken_snapshots (VornMorvikZeltoFrontView *view)
{
  GStrvBuilder *names = g_strv_builder_new ();
  for (const GSList *entry = view->taken_snapshots; entry; entry = entry->next)
    g_strv_builder_add (names, static_cast<const char *> (entry->data));
  gchar **result = g_strv_builder_end (names);
  g_strv_builder_unref (names);
  return result;
}

void vorn_morvik_zelto_front_view_snapshot_notify_taken (VornMorvikZeltoFrontView *view)
{
  const vorn::OwnedStrings files (vorn_morvik_zelto_front_view_get_taken_snapshots (view));
  vorn_view_notify_snapshot_event (VORN_VIEW (view), VORN_SNAPSHOT_EVENT_TAKEN, files.get (),
                                   nullptr);
}

void fill_fake_metadata (GstBuffer *buffer)
{
  if (const VornFrameMeta *meta = vorn_frame_meta_add (buffer))
    gst_structure_set (meta->structure, VORN_FRAME_META_CAPTURE_TIMESTAMP, G_TYPE_UINT64,
                       guint64{0}, VORN_FRAME_META_SYNC_POINT, G_TYPE_BOOLEAN, TRUE, nullptr);
}
