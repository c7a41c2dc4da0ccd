// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <gst/gst.h>
#include <gst/tag/tag.h>

#include <vorn/framework.h>
#include <vorn/gst_raii.hpp>
#include <vorn/photo_tags.h>

namespace
{

struct Table {
  const char *tag;
  const char *(*to_string) (uint16_t);
  std::vector<std::string> strings; // by value
  std::string fallback;             // for all others
};

/** Value by value as Exif 2.32 numbers them (4.6.5, tags 8822, A402, A408, A409, A40A, 9208). */
const Table tables[] = {
    {GST_TAG_CAPTURING_EXPOSURE_PROGRAM,
     vorn_photo_exposure_program_to_string,
     {"undefined", "manual", "normal", "aperture-priority", "shutter-priority", "creative",
      "action", "portrait", "landscape"},
     "undefined"},
    {GST_TAG_CAPTURING_EXPOSURE_MODE,
     vorn_photo_exposure_mode_to_string,
     {"auto-exposure", "manual-exposure", "auto-bracket"},
     "auto-exposure"},
    {GST_TAG_CAPTURING_CONTRAST,
     vorn_photo_contrast_to_string,
     {"normal", "soft", "hard"},
     "normal"},
    {GST_TAG_CAPTURING_SATURATION,
     vorn_photo_saturation_to_string,
     {"normal", "low-saturation", "high-saturation"},
     "normal"},
    {GST_TAG_CAPTURING_SHARPNESS,
     vorn_photo_sharpness_to_string,
     {"normal", "soft", "hard"},
     "normal"},
};

const Table light_sources = {
    GST_TAG_CAPTURING_WHITE_BALANCE,
    vorn_photo_light_source_to_string,
    {"manual",      "daylight",    "fluorescent",   "tungsten",    "flash",
     "manual",      "manual",      "manual",        "manual",      "daylight",
     "cloudy",      "cloudy",      "fluorescent h", "fluorescent", "fluorescent",
     "fluorescent", "fluorescent", "tungsten",      "daylight",    "cloudy",
     "daylight",    "daylight",    "cloudy",        "daylight",    "tungsten"},
    "manual"};

/** What an EXIF block made of this one tag says when it is read again; empty when nothing. */
std::string through_exif (const char *tag, const std::string &value)
{
  auto tags = vorn::adopt (gst_tag_list_new (tag, value.c_str (), nullptr));
  auto exif = vorn::adopt (gst_tag_list_to_exif_buffer (tags.get (), G_LITTLE_ENDIAN, 0));
  auto read = vorn::adopt (gst_tag_list_from_exif_buffer (exif.get (), G_LITTLE_ENDIAN, 0));
  gchar *string = nullptr;
  if (!read || !gst_tag_list_get_string (read.get (), tag, &string))
    return {};
  const vorn::OwnedString owned (string);
  return string;
}

class PhotoStrings : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }
};

} // namespace

TEST_F (PhotoStrings, EveryValueHasItsString)
{
  auto expect_table = [] (const Table &table) {
    SCOPED_TRACE (table.tag);
    for (uint32_t value = 0; value <= 0xffff; value++) {
      const std::string &expected =
          value < table.strings.size () ? table.strings[value] : table.fallback;
      ASSERT_EQ (table.to_string (static_cast<uint16_t> (value)), expected) << value;
    }
  };
  for (const Table &table : tables)
    expect_table (table);
  expect_table (light_sources);
}

TEST_F (PhotoStrings, TheExifWriterTakesEveryString)
{
  for (const Table &table : tables)
    for (size_t value = 0; value < table.strings.size (); value++) {
      const std::string string = table.to_string (static_cast<uint16_t> (value));
      EXPECT_EQ (through_exif (table.tag, string), string) << table.tag;
    }
  // That the check can fail:
  EXPECT_EQ (through_exif (GST_TAG_CAPTURING_CONTRAST, "no such contrast"), "");
}

TEST_F (PhotoStrings, LightSourcesAreOfTheTagsVocabulary)
{
  // GStreamer's documentation of the tag; the EXIF writer itself takes any string for manual.
  const std::vector<std::string> known = {"auto",     "manual",      "daylight", "cloudy",
                                          "tungsten", "fluorescent", "flash",    "fluorescent h"};
  for (uint32_t value = 0; value <= 0xffff; value++) {
    const std::string string = vorn_photo_light_source_to_string (static_cast<uint16_t> (value));
    ASSERT_NE (std::find (known.begin (), known.end (), string), known.end ()) << string;
    if (value <= 256) {
      ASSERT_EQ (through_exif (GST_TAG_CAPTURING_WHITE_BALANCE, string), "manual") << string;
    }
  }
  EXPECT_EQ (through_exif (GST_TAG_CAPTURING_WHITE_BALANCE, "auto"), "auto");
}
