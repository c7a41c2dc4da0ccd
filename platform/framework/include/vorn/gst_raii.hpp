// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/** Owners for GStreamer's mini objects, mappings and strings: the other half of <vorn/raii.hpp>. */
#ifndef VORN_GST_RAII_HPP
#define VORN_GST_RAII_HPP

#include <gst/gst.h>

#include <vorn/raii.hpp>

namespace vorn
{

/** Mini objects are never floating and have their own reference calls. */
template <typename T>
struct MiniObjectRefTraits {
  static void ref (T *object) { gst_mini_object_ref (GST_MINI_OBJECT_CAST (object)); }
  static void unref (T *object) { gst_mini_object_unref (GST_MINI_OBJECT_CAST (object)); }
  static void sink (T *) {}
};

template <>
struct RefTraits<GstBuffer> : MiniObjectRefTraits<GstBuffer> {
};
template <>
struct RefTraits<GstCaps> : MiniObjectRefTraits<GstCaps> {
};
template <>
struct RefTraits<GstEvent> : MiniObjectRefTraits<GstEvent> {
};
template <>
struct RefTraits<GstMemory> : MiniObjectRefTraits<GstMemory> {
};
template <>
struct RefTraits<GstMessage> : MiniObjectRefTraits<GstMessage> {
};
template <>
struct RefTraits<GstSample> : MiniObjectRefTraits<GstSample> {
};
template <>
struct RefTraits<GstTagList> : MiniObjectRefTraits<GstTagList> {
};

using OwnedStructure = Owned<GstStructure, gst_structure_free>;

/** Maps a buffer for a scope; check with bool before use. */
class BufferMap
{
public:
  BufferMap (GstBuffer *buffer, GstMapFlags flags)
      : buffer_ (buffer), mapped_ (gst_buffer_map (buffer, &info_, flags))
  {
  }
  ~BufferMap ()
  {
    if (mapped_)
      gst_buffer_unmap (buffer_, &info_);
  }
  BufferMap (const BufferMap &) = delete;
  BufferMap &operator= (const BufferMap &) = delete;
  explicit operator bool () const { return mapped_; }
  guint8 *data () const { return info_.data; }
  gsize size () const { return info_.size; }

private:
  GstBuffer *buffer_;
  GstMapInfo info_ = GST_MAP_INFO_INIT;
  bool mapped_;
};

/** Maps a memory for a scope; check with bool before use. */
class MemoryMap
{
public:
  MemoryMap (GstMemory *memory, GstMapFlags flags)
      : memory_ (memory), mapped_ (gst_memory_map (memory, &info_, flags))
  {
  }
  ~MemoryMap ()
  {
    if (mapped_)
      gst_memory_unmap (memory_, &info_);
  }
  MemoryMap (const MemoryMap &) = delete;
  MemoryMap &operator= (const MemoryMap &) = delete;
  explicit operator bool () const { return mapped_; }
  guint8 *data () const { return info_.data; }
  gsize size () const { return info_.size; }

private:
  GstMemory *memory_;
  GstMapInfo info_ = GST_MAP_INFO_INIT;
  bool mapped_;
};

} // namespace vorn

#endif
