// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <map>
#include <string>

#include <gtest/gtest.h>

#include <gst/gst.h>
#include <gst/tag/tag.h>

#include <vorn/framework.h>
#include <vorn/gst_raii.hpp>
#include <vorn/photo_tags.h>

#include "log_capture.hpp"

namespace
{

/** Every tag that pictures get, GStreamer's own ones included. */
const std::map<std::string, GType> &picture_tags ()
{
  static const std::map<std::string, GType> tags = {
      // set when a picture is asked for
      {"description", G_TYPE_STRING},
      {"device-manufacturer", G_TYPE_STRING},
      {"device-model", G_TYPE_STRING},
      {"image-orientation", G_TYPE_STRING},
      {"image-horizontal-ppi", G_TYPE_DOUBLE},
      {"image-vertical-ppi", G_TYPE_DOUBLE},
      {"application-name", G_TYPE_STRING},
      {"chroma-positioning", G_TYPE_STRING},
      {"capturing-metering-mode", G_TYPE_STRING},
      {"components-configuration", G_TYPE_STRING},
      {"capturing-flash-fired", G_TYPE_BOOLEAN},
      {"color-space", G_TYPE_STRING},
      {"capturing-source", G_TYPE_STRING},
      {"capturing-scene-capture-type", G_TYPE_STRING},
      {"capturing-focal-length", G_TYPE_DOUBLE},
      {"capturing-focal-length-35mm", G_TYPE_DOUBLE},
      {"capturing-focal-ratio", G_TYPE_DOUBLE},
      {"capturing-focal-plane-resolution-unit", G_TYPE_STRING},
      {"sequence-number", G_TYPE_UINT},
      {"panorama-type", G_TYPE_STRING},
      {"photo-count", G_TYPE_UINT},
      {"drone-roll", G_TYPE_DOUBLE},
      {"drone-pitch", G_TYPE_DOUBLE},
      {"drone-yaw", G_TYPE_DOUBLE},
      {"device-model-id", G_TYPE_STRING},
      {"device-serial", G_TYPE_STRING},
      {"vehicle-uuid", G_TYPE_STRING},
      {"software-version", G_TYPE_STRING},
      {"software-build-id", G_TYPE_STRING},
      {"boot-id", G_TYPE_STRING},
      {"above-takeoff-altitude", G_TYPE_DOUBLE},
      {"photo-mode", G_TYPE_STRING},
      {"run-date", G_TYPE_STRING},
      {"flight-uid", G_TYPE_STRING},
      {"run-id", G_TYPE_STRING},
      // set with the picture itself
      {"datetime", GST_TYPE_DATE_TIME},
      {"milliseconds", G_TYPE_UINT},
      {"capturing-shutter-speed", GST_TYPE_FRACTION},
      {"capturing-exposure-program", G_TYPE_STRING},
      {"capturing-iso-speed", G_TYPE_INT},
      {"capturing-exposure-compensation", G_TYPE_DOUBLE},
      {"compressed-image-width", G_TYPE_UINT},
      {"compressed-image-height", G_TYPE_UINT},
      {"capturing-exposure-mode", G_TYPE_STRING},
      {"capturing-white-balance-r-gain", G_TYPE_DOUBLE},
      {"capturing-white-balance-b-gain", G_TYPE_DOUBLE},
      {"capturing-focal-plane-x-resolution", G_TYPE_DOUBLE},
      {"capturing-focal-plane-y-resolution", G_TYPE_DOUBLE},
      {"capturing-contrast", G_TYPE_STRING},
      {"capturing-saturation", G_TYPE_STRING},
      {"capturing-sharpness", G_TYPE_STRING},
      {"capturing-timestamp", G_TYPE_UINT64},
      {"geo-location-latitude", G_TYPE_DOUBLE},
      {"geo-location-longitude", G_TYPE_DOUBLE},
      {"geo-location-elevation", G_TYPE_DOUBLE},
      {"geo-satellites-count", G_TYPE_UINT},
      {"geo-accuracy-horizontal", G_TYPE_DOUBLE},
      {"geo-accuracy-vertical", G_TYPE_DOUBLE},
      {"camera-roll", G_TYPE_DOUBLE},
      {"camera-pitch", G_TYPE_DOUBLE},
      {"camera-yaw", G_TYPE_DOUBLE},
      {"pix4d-camera-roll", G_TYPE_DOUBLE},
      {"pix4d-camera-pitch", G_TYPE_DOUBLE},
      {"pix4d-camera-yaw", G_TYPE_DOUBLE},
      {"visible-camera-roll", G_TYPE_DOUBLE},
      {"visible-camera-pitch", G_TYPE_DOUBLE},
      {"visible-camera-yaw", G_TYPE_DOUBLE},
      {"video-codec", G_TYPE_STRING},
      {"capturing-white-balance", G_TYPE_STRING},
  };
  return tags;
}

/** Some value of the type, other than its default. */
void set_value (GValue *value, GType type)
{
  g_value_init (value, type);
  if (type == G_TYPE_STRING)
    g_value_set_static_string (value, "some text");
  else if (type == G_TYPE_DOUBLE)
    g_value_set_double (value, -1.5);
  else if (type == G_TYPE_UINT)
    g_value_set_uint (value, 4000000000u);
  else if (type == G_TYPE_UINT64)
    g_value_set_uint64 (value, G_MAXUINT64 - 1);
}

class PhotoTags : public testing::Test
{
protected:
  void SetUp () override
  {
    // The first to ask, in this process: what GStreamer alone knows is looked up before ours.
    if (!gst_is_initialized ()) {
      gst_init (nullptr, nullptr);
      gst_tag_register_musicbrainz_tags ();
      for (const auto &[name, type] : picture_tags ())
        known_before[name] = gst_tag_exists (name.c_str ());
      vorn_framework_init (nullptr, nullptr);
    }
  }
  static std::map<std::string, bool> known_before;
};

std::map<std::string, bool> PhotoTags::known_before;

} // namespace

TEST_F (PhotoTags, EveryPictureTagHasItsType)
{
  for (const auto &[name, type] : picture_tags ()) {
    ASSERT_TRUE (gst_tag_exists (name.c_str ())) << name;
    EXPECT_EQ (gst_tag_get_type (name.c_str ()), type) << name;
    EXPECT_TRUE (gst_tag_get_nick (name.c_str ()) && *gst_tag_get_nick (name.c_str ())) << name;
    EXPECT_TRUE (gst_tag_get_description (name.c_str ())) << name;
  }
}

TEST_F (PhotoTags, OursAreExactlyThoseThatGStreamerLacks)
{
  size_t count = 0;
  const VornPhotoTag *tags = vorn_photo_tags_get (&count);
  std::map<std::string, GType> ours;
  for (size_t i = 0; i < count; i++) {
    EXPECT_TRUE (ours.emplace (tags[i].name, tags[i].type).second) << tags[i].name << " twice";
    EXPECT_STRNE (tags[i].description, "");
  }
  std::map<std::string, GType> lacking;
  for (const auto &[name, type] : picture_tags ())
    if (!known_before.at (name))
      lacking.emplace (name, type);
  EXPECT_EQ (ours, lacking);
  EXPECT_EQ (vorn_photo_tags_get (nullptr), tags);
}

TEST_F (PhotoTags, ListsHoldOneValueOfEach)
{
  size_t count = 0;
  const VornPhotoTag *tags = vorn_photo_tags_get (&count);
  for (size_t i = 0; i < count; i++) {
    EXPECT_TRUE (gst_tag_is_fixed (tags[i].name)) << tags[i].name;
    GValue value = G_VALUE_INIT;
    set_value (&value, tags[i].type);
    auto list = vorn::adopt (gst_tag_list_new_empty ());
    gst_tag_list_add_value (list.get (), GST_TAG_MERGE_REPLACE, tags[i].name, &value);
    ASSERT_EQ (gst_tag_list_get_tag_size (list.get (), tags[i].name), 1u) << tags[i].name;
    EXPECT_EQ (
        gst_value_compare (gst_tag_list_get_value_index (list.get (), tags[i].name, 0), &value),
        GST_VALUE_EQUAL)
        << tags[i].name;
    g_value_unset (&value);
  }
}

TEST_F (PhotoTags, RegisteringAgainChangesNothing)
{
  CriticalCapture criticals;
  vorn_photo_tags_register ();
  vorn_framework_init (nullptr, nullptr);
  EXPECT_TRUE (criticals.criticals ().empty ());
  EXPECT_TRUE (criticals.warnings ().empty ());
  EXPECT_EQ (gst_tag_get_type ("drone-roll"), G_TYPE_DOUBLE);
}

TEST_F (PhotoTags, OneVarargsCallTakesThemInOrder)
{
  // A tag that is not known would end the list of arguments there.
  auto list = vorn::adopt (gst_tag_list_new_empty ());
  gst_tag_list_add (list.get (), GST_TAG_MERGE_REPLACE, "sequence-number", 3u, "panorama-type",
                    "sphere", "photo-count", 42u, "capturing-timestamp", guint64{7},
                    "above-takeoff-altitude", 12.5, "video-codec", "image/jpeg", nullptr);
  EXPECT_EQ (gst_tag_list_n_tags (list.get ()), 6);
  guint photo_count = 0;
  guint64 timestamp = 0;
  EXPECT_TRUE (gst_tag_list_get_uint (list.get (), "photo-count", &photo_count));
  EXPECT_TRUE (gst_tag_list_get_uint64 (list.get (), "capturing-timestamp", &timestamp));
  EXPECT_EQ (photo_count, 42u);
  EXPECT_EQ (timestamp, 7u);
}
