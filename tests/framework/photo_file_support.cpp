// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "photo_file_support.hpp"

#include <cstdarg>
#include <cstdio>

#include <gst/app/gstappsink.h>
#include <gtest/gtest.h>
#include <json-glib/json-glib.h>

#include "main_context.hpp"
#include "process.hpp"
#include "test_gst_view.hpp"

PhotoPipeline::PhotoPipeline (const std::string &location, const std::string &source,
                              bool attach_first)
    : view_ (vorn::adopt (test_gst_view_new ("front"))),
      pipeline_ (vorn::adopt (gst_pipeline_new ("front-picture-pipeline")))
{
  vorn::ErrorOut error;
  GstElement *branch = gst_parse_bin_from_description (
      (source + " ! jpegenc ! jifmux name=picture-jpegmux ! "
                "multifilesink name=picture-jpegsink async=false post-messages=true")
          .c_str (),
      FALSE, error.out ());
  EXPECT_TRUE (branch) << error.message ();
  const auto attach = [this] {
    EXPECT_TRUE (vorn_gst_view_attach_element (view_.get (), pipeline_.get ()));
  };
  if (attach_first)
    attach ();
  gst_bin_add (GST_BIN (pipeline_.get ()), branch);
  if (!attach_first)
    attach ();
  muxer_ = vorn::adopt (gst_bin_get_by_name (GST_BIN (branch), "picture-jpegmux"));
  sink_ = vorn::adopt (gst_bin_get_by_name (GST_BIN (branch), "picture-jpegsink"));
  g_object_set (sink_.get (), "location", location.c_str (), nullptr);
  test_gst_view_record (view_.get ()).handler = [this] (GstMessage *message) {
    on_message (message);
  };
}

PhotoPipeline::~PhotoPipeline ()
{
  gst_element_set_state (pipeline_.get (), GST_STATE_NULL);
}

void PhotoPipeline::on_message (GstMessage *message)
{
  const GstStructure *structure = gst_message_get_structure (message);
  switch (GST_MESSAGE_TYPE (message)) {
  case GST_MESSAGE_ELEMENT:
    if (gst_structure_has_name (structure, "GstMultiFileSink"))
      files_.emplace_back (gst_structure_get_string (structure, "filename"));
    break;
  case GST_MESSAGE_ERROR: {
    GError *error = nullptr;
    gst_message_parse_error (message, &error, nullptr);
    errors_.emplace_back (error);
    break;
  }
  case GST_MESSAGE_EOS:
    ended_ = true;
    break;
  default:
    break;
  }
}

void PhotoPipeline::set_tags (const char *first, ...)
{
  const auto tags = vorn::adopt (gst_tag_list_new_empty ());
  va_list arguments;
  va_start (arguments, first);
  gst_tag_list_add_valist (tags.get (), GST_TAG_MERGE_REPLACE, first, arguments);
  va_end (arguments);
  gst_tag_setter_merge_tags (GST_TAG_SETTER (muxer_.get ()), tags.get (), GST_TAG_MERGE_REPLACE);
}

void PhotoPipeline::start ()
{
  ended_ = false;
  errors_.clear ();
  gst_element_set_state (pipeline_.get (), GST_STATE_PLAYING);
}

bool PhotoPipeline::finish ()
{
  EXPECT_TRUE (run_until ([&] { return ended_ || !errors_.empty (); }));
  gst_element_set_state (pipeline_.get (), GST_STATE_NULL);
  run_pending ();
  return errors_.empty ();
}

bool PhotoPipeline::run ()
{
  start ();
  return finish ();
}

/** What an appsink named "out" of a launch line gives first. */
static vorn::Ref<GstSample> first_sample (const std::string &line)
{
  vorn::ErrorOut error;
  const auto pipeline = vorn::adopt (gst_parse_launch (line.c_str (), error.out ()));
  EXPECT_TRUE (pipeline && !error) << error.message ();
  const auto sink = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), "out"));
  gst_element_set_state (pipeline.get (), GST_STATE_PLAYING);
  auto sample = vorn::adopt (gst_app_sink_pull_sample (GST_APP_SINK (sink.get ())));
  gst_element_set_state (pipeline.get (), GST_STATE_NULL);
  EXPECT_TRUE (sample) << line;
  return sample;
}

vorn::Ref<GstSample> make_thumbnail (int width, int height, const char *pattern)
{
  return first_sample ("videotestsrc num-buffers=1 pattern=" + std::string (pattern) +
                       " ! video/x-raw,width=" + std::to_string (width) + ",height=" +
                       std::to_string (height) + " ! jpegenc ! appsink name=out sync=false");
}

vorn::Ref<GstSample> make_sample (const std::string &bytes, const char *caps)
{
  const auto type = vorn::adopt (gst_caps_from_string (caps));
  const auto buffer = vorn::adopt (
      bytes.empty () ? gst_buffer_new () : gst_buffer_new_memdup (bytes.data (), bytes.size ()));
  return vorn::adopt (gst_sample_new (buffer.get (), type.get (), nullptr, nullptr));
}

std::string bytes_of (GstSample *sample)
{
  const vorn::BufferMap map (gst_sample_get_buffer (sample), GST_MAP_READ);
  return map ? std::string (map.data (), map.data () + map.size ()) : std::string ();
}

std::string pixels_of (const std::string &file)
{
  return bytes_of (first_sample ("filesrc location=" + file +
                                 " ! jpegdec ! videoconvert ! video/x-raw,format=I420 ! "
                                 "appsink name=out sync=false")
                       .get ());
}

Metadata::Metadata (const std::string &file)
{
  const auto result = run_process ({"exiftool", "-j", "-n", "-G1", file});
  EXPECT_EQ (result.status, 0) << result.errors;
  const auto parser = vorn::adopt (json_parser_new ());
  if (!json_parser_load_from_data (parser.get (), result.output.c_str (), -1, nullptr)) {
    ADD_FAILURE () << "exiftool says of " << file << ": " << result.output;
    return;
  }
  JsonArray *pictures = json_node_get_array (json_parser_get_root (parser.get ()));
  const auto add = [] (JsonObject *, const gchar *name, JsonNode *value, gpointer values) {
    auto &text = (*static_cast<std::map<std::string, std::string> *> (values))[name];
    if (JSON_NODE_HOLDS_VALUE (value) && json_node_get_value_type (value) == G_TYPE_STRING) {
      text = json_node_get_string (value);
    } else {
      const vorn::OwnedString number (json_to_string (value, FALSE));
      text = number.get ();
    }
  };
  json_object_foreach_member (json_array_get_object_element (pictures, 0), add, &values_);
}

std::string Metadata::text (const std::string &key) const
{
  const auto value = values_.find (key);
  return value == values_.end () ? "(none)" : value->second;
}

double Metadata::number (const std::string &key) const
{
  const auto value = values_.find (key);
  EXPECT_NE (value, values_.end ()) << key;
  return value == values_.end () ? 0.0 : g_ascii_strtod (value->second.c_str (), nullptr);
}

std::string Metadata::all () const
{
  std::string text;
  for (const auto &[key, value] : values_)
    text.append (key).append (" = ").append (value).append ("\n");
  return text;
}

std::string binary (const std::string &file, const std::string &field)
{
  const std::string output = file + ".binary";
  const auto result = run_process ({"exiftool", "-b", "-" + field, "-W!", "%d%f.%e.binary", file});
  EXPECT_EQ (result.status, 0) << result.errors;
  gchar *contents = nullptr;
  gsize size = 0;
  if (!g_file_get_contents (output.c_str (), &contents, &size, nullptr))
    return {};
  const vorn::OwnedString owned (contents);
  std::remove (output.c_str ());
  return std::string (contents, size);
}
