// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/frame_meta.h>

#include <cstddef>

// Its place is part of the interface: whoever knows the API type alone finds the structure there.
static_assert (offsetof (VornFrameMeta, structure) == sizeof (GstMeta));

namespace
{

constexpr char structure_name[] = "vorn-frame-metadata";

gboolean initialize (GstMeta *meta, gpointer, GstBuffer *)
{
  reinterpret_cast<VornFrameMeta *> (meta)->structure = gst_structure_new_empty (structure_name);
  return TRUE;
}

void release (GstMeta *meta, GstBuffer *)
{
  gst_clear_structure (&reinterpret_cast<VornFrameMeta *> (meta)->structure);
}

/** Every transformation keeps it: copies, parts of a frame, other sizes and formats alike. */
gboolean transform (GstBuffer *destination, GstMeta *meta, GstBuffer *, GQuark, gpointer)
{
  VornFrameMeta *copy = vorn_frame_meta_add (destination);
  if (!copy)
    return FALSE;
  gst_clear_structure (&copy->structure);
  copy->structure = gst_structure_copy (reinterpret_cast<VornFrameMeta *> (meta)->structure);
  return TRUE;
}

} // namespace

GType vorn_frame_meta_api_get_type (void)
{
  static const GType type = [] {
    static const gchar *no_tags[] = {nullptr};
    return gst_meta_api_type_register ("VornFrameMetaAPI", no_tags);
  }();
  return type;
}

const GstMetaInfo *vorn_frame_meta_get_info (void)
{
  static const GstMetaInfo *const info =
      gst_meta_register (VORN_FRAME_META_API_TYPE, "VornFrameMeta", sizeof (VornFrameMeta),
                         initialize, release, transform);
  return info;
}

VornFrameMeta *vorn_frame_meta_add (GstBuffer *buffer)
{
  g_return_val_if_fail (GST_IS_BUFFER (buffer), nullptr);
  g_return_val_if_fail (gst_buffer_is_writable (buffer), nullptr);

  if (VornFrameMeta *present = vorn_frame_meta_get (buffer))
    return present;
  return reinterpret_cast<VornFrameMeta *> (
      gst_buffer_add_meta (buffer, vorn_frame_meta_get_info (), nullptr));
}

VornFrameMeta *vorn_frame_meta_get (GstBuffer *buffer)
{
  g_return_val_if_fail (GST_IS_BUFFER (buffer), nullptr);

  return reinterpret_cast<VornFrameMeta *> (gst_buffer_get_meta (buffer, VORN_FRAME_META_API_TYPE));
}
