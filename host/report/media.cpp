// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "media.hpp"

#include <algorithm>
#include <filesystem>

#include <gst/app/gstappsink.h>
#include <gst/app/gstappsrc.h>

#include <vorn/gst_raii.hpp>

namespace report
{

namespace
{

constexpr int thumbnail_width = 480;
constexpr GstClockTime longest_wait = 20 * GST_SECOND;
constexpr GstClockTime poll_period = 50 * GST_MSECOND;

/** A pipeline that goes when this goes. */
class Pipeline
{
public:
  explicit Pipeline (const char *description)
      : pipeline_ (vorn::adopt (gst_parse_launch (description, error_.out ())))
  {
  }
  ~Pipeline ()
  {
    if (pipeline_)
      gst_element_set_state (pipeline_.get (), GST_STATE_NULL);
  }
  Pipeline (const Pipeline &) = delete;
  Pipeline &operator= (const Pipeline &) = delete;

  bool made () const { return pipeline_ && !error_; }
  std::string error () const { return error_.message (); }
  vorn::Ref<GstElement> element (const char *name) const
  {
    return vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline_.get ()), name));
  }
  vorn::Ref<GstBus> bus () const { return vorn::adopt (gst_element_get_bus (pipeline_.get ())); }
  void set_state (GstState state) const { gst_element_set_state (pipeline_.get (), state); }
  /** The first picture; null when there is none: error then says why. */
  vorn::Ref<GstSample> pull (std::string *error) const
  {
    const auto sink = element ("sink");
    // A source that fails sends no end of stream.
    for (GstClockTime waited = 0; waited < longest_wait; waited += poll_period) {
      auto sample =
          vorn::adopt (gst_app_sink_try_pull_sample (GST_APP_SINK (sink.get ()), poll_period));
      if (sample)
        return sample;
      const auto message = vorn::adopt (gst_bus_pop_filtered (bus ().get (), GST_MESSAGE_ERROR));
      if (message) {
        vorn::ErrorOut failure;
        gst_message_parse_error (message.get (), failure.out (), nullptr);
        *error = failure.message ();
        return nullptr;
      }
      if (gst_app_sink_is_eos (GST_APP_SINK (sink.get ())))
        break;
    }
    *error = "it holds no picture";
    return nullptr;
  }

private:
  vorn::ErrorOut error_;
  vorn::Ref<GstElement> pipeline_;
};

std::string bytes_of (GstBuffer *buffer)
{
  const vorn::BufferMap map (buffer, GST_MAP_READ);
  return map ? std::string (reinterpret_cast<const char *> (map.data ()), map.size ()) : "";
}

void set_dimensions (GstCaps *caps, int *width, int *height)
{
  const GstStructure *structure = caps ? gst_caps_get_structure (caps, 0) : nullptr;
  if (!structure || !gst_structure_get_int (structure, "width", width) ||
      !gst_structure_get_int (structure, "height", height))
    *width = *height = 0;
}

/**
 * Decodes what the source gives and encodes it smaller. description: the source, up to a JPEG. Sets
 * width and height to those of the whole picture; empty with an error when there is none.
 */
std::string scale_down (const std::string &source, const std::string &path, GstBuffer *data,
                        int *width, int *height, std::string *error)
{
  const Pipeline pipeline ((source +
                            " name=source ! jpegdec name=decoder ! videoconvert ! videoscale ! "
                            "video/x-raw,pixel-aspect-ratio=1/1,width=" +
                            std::to_string (thumbnail_width) +
                            " ! jpegenc quality=80 ! appsink name=sink sync=false")
                               .c_str ());
  if (!pipeline.made ()) {
    *error = pipeline.error ();
    return {};
  }
  const auto element = pipeline.element ("source");
  if (!path.empty ())
    g_object_set (element.get (), "location", path.c_str (), nullptr);
  if (data) {
    gst_app_src_push_buffer (GST_APP_SRC (element.get ()), gst_buffer_ref (data));
    gst_app_src_end_of_stream (GST_APP_SRC (element.get ()));
  }
  pipeline.set_state (GST_STATE_PLAYING);
  const auto sample = pipeline.pull (error);
  if (!sample)
    return {};
  auto pad = vorn::adopt (gst_element_get_static_pad (pipeline.element ("decoder").get (), "src"));
  const auto caps = vorn::adopt (gst_pad_get_current_caps (pad.get ()));
  set_dimensions (caps.get (), width, height);
  return bytes_of (gst_sample_get_buffer (sample.get ()));
}

/** The picture among the tags of a file. */
vorn::Ref<GstSample> cover_in (GstMessage *message)
{
  GstTagList *list = nullptr;
  gst_message_parse_tag (message, &list);
  const auto tags = vorn::adopt (list);
  GstSample *sample = nullptr;
  if (!gst_tag_list_get_sample (tags.get (), GST_TAG_IMAGE, &sample))
    gst_tag_list_get_sample (tags.get (), GST_TAG_PREVIEW_IMAGE, &sample);
  return vorn::adopt (sample);
}

uint64_t size_of (const std::string &path)
{
  std::error_code error;
  const auto size = std::filesystem::file_size (path, error);
  return error ? 0 : size;
}

} // namespace

void inspect_photo (Photo *photo)
{
  photo->bytes = size_of (photo->path);
  photo->thumbnail_jpeg =
      scale_down ("filesrc", photo->path, nullptr, &photo->width, &photo->height, &photo->error);
}

void inspect_recording (Recording *recording)
{
  recording->bytes = size_of (recording->path);
  const Pipeline pipeline (
      "filesrc name=source ! qtdemux ! capsfilter caps=video/x-h264 ! fakesink name=sink");
  if (!pipeline.made ())
    return;
  g_object_set (pipeline.element ("source").get (), "location", recording->path.c_str (), nullptr);
  pipeline.set_state (GST_STATE_PAUSED);
  const auto bus = pipeline.bus ();
  vorn::Ref<GstSample> cover;
  for (bool going_on = true; going_on;) {
    const auto message = vorn::adopt (gst_bus_timed_pop_filtered (
        bus.get (), longest_wait,
        static_cast<GstMessageType> (GST_MESSAGE_TAG | GST_MESSAGE_ASYNC_DONE | GST_MESSAGE_ERROR |
                                     GST_MESSAGE_EOS)));
    if (message && GST_MESSAGE_TYPE (message.get ()) == GST_MESSAGE_TAG) {
      if (auto found = cover_in (message.get ()))
        cover = std::move (found);
      continue;
    }
    going_on = false;
  }
  auto pad = vorn::adopt (gst_element_get_static_pad (pipeline.element ("sink").get (), "sink"));
  const auto caps = vorn::adopt (gst_pad_get_current_caps (pad.get ()));
  set_dimensions (caps.get (), &recording->width, &recording->height);
  if (!cover)
    return;
  int width = 0;
  int height = 0;
  std::string error;
  recording->cover_jpeg =
      scale_down ("appsrc caps=image/jpeg format=time", "", gst_sample_get_buffer (cover.get ()),
                  &width, &height, &error);
}

} // namespace report
