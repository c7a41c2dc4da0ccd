// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Completes the pictures of the JPEG muxers in a pipeline before they reach their file. The file
// itself needs no help: the sink writes each picture under a temporary name and renames it.
#include "internal.hpp"
#include "photo_embed.hpp"
#include <vorn/gst_raii.hpp>
#include <vorn/log.h>

VORN_LOG_TAG ("vorn_photo");

namespace
{

/** A copy of the muxer's tags: others may set more while they are read. */
vorn::Ref<GstTagList> tags_of (GstElement *muxer)
{
  const GstTagList *tags = gst_tag_setter_get_tag_list (GST_TAG_SETTER (muxer));
  return vorn::adopt (tags ? gst_tag_list_copy (tags) : gst_tag_list_new_empty ());
}

/** The completed picture, or null with the reason. */
vorn::Ref<GstBuffer> complete (GstBuffer *picture, GstElement *muxer, std::string *error)
{
  const vorn::BufferMap map (picture, GST_MAP_READ);
  if (!map) {
    *error = "its data cannot be read";
    return {};
  }
  const auto tags = tags_of (muxer);
  auto bytes = vorn::photo_embed ({map.data (), map.size ()}, tags.get (), error);
  if (!bytes)
    return {};
  auto *owned = new std::vector<uint8_t> (std::move (*bytes));
  auto completed = vorn::adopt (gst_buffer_new_wrapped_full (
      static_cast<GstMemoryFlags> (0), owned->data (), owned->size (), 0, owned->size (), owned,
      [] (gpointer data) { delete static_cast<std::vector<uint8_t> *> (data); }));
  constexpr auto all_but_memory = static_cast<GstBufferCopyFlags> (GST_BUFFER_COPY_METADATA);
  gst_buffer_copy_into (completed.get (), picture, all_but_memory, 0, static_cast<gsize> (-1));
  return completed;
}

GstPadProbeReturn on_picture (GstPad *pad, GstPadProbeInfo *info, gpointer)
{
  const auto muxer = vorn::adopt (gst_pad_get_parent_element (pad));
  if (!muxer)
    return GST_PAD_PROBE_OK;
  GstBuffer *picture = GST_PAD_PROBE_INFO_BUFFER (info);
  std::string error;
  auto completed = complete (picture, muxer.get (), &error);
  if (!completed) {
    VORN_LOG_ERROR ("'%s': a photo goes without what its muxer leaves out: %s",
                    GST_OBJECT_NAME (muxer.get ()), error.c_str ());
    return GST_PAD_PROBE_OK;
  }
  const auto replaced = vorn::adopt (picture);
  GST_PAD_PROBE_INFO_DATA (info) = completed.release ();
  return GST_PAD_PROBE_OK;
}

/** TRUE the first time that it is asked about an object. */
bool mark (GstElement *element)
{
  static const GQuark quark = g_quark_from_static_string ("vorn-photo-file");
  const bool first = !g_object_get_qdata (G_OBJECT (element), quark);
  g_object_set_qdata (G_OBJECT (element), quark, element);
  return first;
}

bool is_made_by (GstElement *element, const char *factory_name)
{
  GstElementFactory *factory = gst_element_get_factory (element);
  return factory && g_strcmp0 (GST_OBJECT_NAME (factory), factory_name) == 0;
}

void watch (GstElement *element)
{
  if (is_made_by (element, "jpegenc") && mark (element))
    vorn::photo_color_watch (element);
  if (!is_made_by (element, "jifmux") || !mark (element))
    return;
  const auto pad = vorn::adopt (gst_element_get_static_pad (element, "src"));
  gst_pad_add_probe (pad.get (), GST_PAD_PROBE_TYPE_BUFFER, on_picture, nullptr, nullptr);
}

void on_element_added (GstBin *, GstBin *, GstElement *element, gpointer)
{
  watch (element);
}

} // namespace

void vorn::photo_file_watch (GstElement *element)
{
  watch (element);
  if (!GST_IS_BIN (element) || !mark (element))
    return;
  g_signal_connect (element, "deep-element-added", G_CALLBACK (on_element_added), nullptr);
  const Owned<GstIterator, gst_iterator_free> inside (gst_bin_iterate_recurse (GST_BIN (element)));
  const auto watch_each = [] (const GValue *value, gpointer) {
    watch (GST_ELEMENT (g_value_get_object (value)));
  };
  while (gst_iterator_foreach (inside.get (), watch_each, nullptr) == GST_ITERATOR_RESYNC)
    gst_iterator_resync (inside.get ());
}
