// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The tag lists of a photo: every tag with its type and value.
#include "vorn_morvik_zelto_front_view_photo_tags.hpp"

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.hpp"
#include <vorn/framework.h>
#include <vorn/modes.h>

namespace
{

constexpr int warning = VORN_LOG_PRIORITY_WARNING;

struct Fraction {
  int num, den;
};
using Value = std::variant<const char *, double, bool, guint32, gint32, guint64, Fraction>;
struct Tag {
  const char *name;
  Value value;
};

void expect_value (const GValue *value, const char *expected)
{
  ASSERT_TRUE (G_VALUE_HOLDS_STRING (value)) << G_VALUE_TYPE_NAME (value);
  EXPECT_STREQ (g_value_get_string (value), expected);
}
void expect_value (const GValue *value, double expected)
{
  ASSERT_TRUE (G_VALUE_HOLDS_DOUBLE (value)) << G_VALUE_TYPE_NAME (value);
  EXPECT_DOUBLE_EQ (g_value_get_double (value), expected);
}
void expect_value (const GValue *value, bool expected)
{
  ASSERT_TRUE (G_VALUE_HOLDS_BOOLEAN (value)) << G_VALUE_TYPE_NAME (value);
  EXPECT_EQ (g_value_get_boolean (value) != FALSE, expected);
}
void expect_value (const GValue *value, guint32 expected)
{
  ASSERT_TRUE (G_VALUE_HOLDS_UINT (value)) << G_VALUE_TYPE_NAME (value);
  EXPECT_EQ (g_value_get_uint (value), expected);
}
void expect_value (const GValue *value, gint32 expected)
{
  ASSERT_TRUE (G_VALUE_HOLDS_INT (value)) << G_VALUE_TYPE_NAME (value);
  EXPECT_EQ (g_value_get_int (value), expected);
}
void expect_value (const GValue *value, guint64 expected)
{
  ASSERT_TRUE (G_VALUE_HOLDS_UINT64 (value)) << G_VALUE_TYPE_NAME (value);
  EXPECT_EQ (g_value_get_uint64 (value), expected);
}
void expect_value (const GValue *value, Fraction expected)
{
  ASSERT_TRUE (GST_VALUE_HOLDS_FRACTION (value)) << G_VALUE_TYPE_NAME (value);
  EXPECT_EQ (gst_value_get_fraction_numerator (value), expected.num);
  EXPECT_EQ (gst_value_get_fraction_denominator (value), expected.den);
}

void expect_tag (const GstTagList *list, const Tag &tag)
{
  SCOPED_TRACE (tag.name);
  EXPECT_EQ (gst_tag_list_get_tag_size (list, tag.name), 1u);
  const GValue *value = gst_tag_list_get_value_index (list, tag.name, 0);
  ASSERT_NE (value, nullptr);
  std::visit ([value] (const auto &expected) { expect_value (value, expected); }, tag.value);
}

std::vector<std::string> names_of (const GstTagList *list)
{
  std::vector<std::string> names;
  for (gint i = 0; i < gst_tag_list_n_tags (list); i++)
    names.emplace_back (gst_tag_list_nth_tag_name (list, static_cast<guint> (i)));
  return names;
}

std::vector<std::string> names_of (const std::vector<Tag> &tags)
{
  std::vector<std::string> names;
  for (const Tag &tag : tags)
    names.emplace_back (tag.name);
  return names;
}

void expect_tags (const GstTagList *list, const std::vector<Tag> &tags)
{
  for (const Tag &tag : tags)
    expect_tag (list, tag);
  EXPECT_EQ (names_of (list), names_of (tags));
}

class PhotoTags : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }
  /** No tag may be one that the tag list refuses. */
  ~PhotoTags () override
  {
    EXPECT_TRUE (criticals_.warnings ().empty ());
    EXPECT_TRUE (criticals_.criticals ().empty ());
  }

  LogCapture log_;
  CriticalCapture criticals_;
};

// ---- Before the photo

char manufacturer[] = "Maker", model[] = "Zelto", model_id[] = "0914", serial[] = "PI040",
     software_version[] = "7.2.1", build_id[] = "zelto-7.2.1-rc3", boot_id[] = "B00T",
     flight_uid[] = "F11GHT", run_id[] = "R0N";
char panorama[] = "horizontal_180";

VornUntimedMetadata untimed_metadata ()
{
  return {.manufacturer = manufacturer,
          .model = model,
          .model_id = model_id,
          .serial = serial,
          .software_version = software_version,
          .build_id = build_id,
          .boot_id = boot_id,
          .flight_uid = flight_uid,
          .run_id = run_id,
          .drone_roll = 1.5f,
          .drone_pitch = -2.25f,
          .drone_yaw = 178.5f,
          .above_takeoff_altitude = 12.125};
}

/** All tags of untimed_metadata (), with what this grouping adds. */
std::vector<Tag> untimed_tags (const std::vector<Tag> &series, const char *photo_mode)
{
  std::vector<Tag> tags = {{"description", "Zelto 7.2.1"},
                           {"device-manufacturer", "Maker"},
                           {"device-model", "Zelto"},
                           {"image-orientation", "rotate-0"},
                           {"image-horizontal-ppi", 72.0},
                           {"image-vertical-ppi", 72.0},
                           {"application-name", "zelto-7.2.1-rc3"},
                           {"chroma-positioning", "centered"},
                           {"capturing-metering-mode", "center-weighted-average"},
                           {"components-configuration", "1230"},
                           {"capturing-flash-fired", false},
                           {"color-space", "s-rgb"},
                           {"capturing-source", "dsc"},
                           {"capturing-scene-capture-type", "standard"},
                           {"capturing-focal-length", 4.0},
                           {"capturing-focal-length-35mm", 23.0},
                           {"capturing-focal-ratio", 2.4},
                           {"capturing-focal-plane-resolution-unit", "cm"}};
  tags.insert (tags.end (), series.begin (), series.end ());
  const std::vector<Tag> drone = {
      {"drone-roll", 1.5},           {"drone-pitch", -2.25},
      {"drone-yaw", 178.5},          {"device-model-id", "0914"},
      {"device-serial", "PI040"},    {"vehicle-uuid", "PI040"},
      {"software-version", "7.2.1"}, {"software-build-id", "zelto-7.2.1-rc3"},
      {"boot-id", "B00T"},           {"above-takeoff-altitude", 12.125},
      {"photo-mode", photo_mode},    {"run-date", "F11GHT"},
      {"flight-uid", "F11GHT"},      {"run-id", "R0N"}};
  tags.insert (tags.end (), drone.begin (), drone.end ());
  return tags;
}

TEST_F (PhotoTags, TellTheDroneAndTheSeries)
{
  const struct {
    guint32 grouping;
    guint32 photo_mode;
    std::vector<Tag> series;
    const char *name;
  } cases[] = {
      {0, VORN_PHOTO_MODE_SINGLE, {}, vorn_camera_mode_photo_get_name (VORN_PHOTO_MODE_SINGLE)},
      {0, VORN_PHOTO_MODE_BURST, {}, vorn_camera_mode_photo_get_name (VORN_PHOTO_MODE_BURST)},
      {1,
       VORN_PHOTO_MODE_SINGLE,
       {{"sequence-number", 5u}},
       vorn_photo_grouping_type_get_name (VORN_PHOTO_GROUPING_BRACKETING)},
      {2,
       VORN_PHOTO_MODE_SINGLE,
       {{"sequence-number", 5u}},
       vorn_photo_grouping_type_get_name (VORN_PHOTO_GROUPING_BURST)},
      {3,
       VORN_PHOTO_MODE_SINGLE,
       {{"sequence-number", 5u}, {"panorama-type", "horizontal_180"}, {"photo-count", 42u}},
       vorn_photo_grouping_type_get_name (VORN_PHOTO_GROUPING_PANORAMA)},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE (c.grouping);
    const VornSnapshotRequest request = {.photo_grouping = c.grouping,
                                         .sequence_number = 5,
                                         .panorama_type = panorama,
                                         .shot_count = 42};
    expect_tags (make_untimed_photo_tags (untimed_metadata (), request, c.photo_mode).get (),
                 untimed_tags (c.series, c.name));
  }
  EXPECT_TRUE (log_.lines ().empty ());
}

TEST_F (PhotoTags, AnUnknownGroupingIsNoSeries)
{
  for (const guint32 grouping : {4u, 7u, G_MAXUINT32}) {
    log_.clear ();
    const VornSnapshotRequest request = {.photo_grouping = grouping,
                                         .sequence_number = 5,
                                         .panorama_type = panorama,
                                         .shot_count = 42};
    expect_tags (
        make_untimed_photo_tags (untimed_metadata (), request, VORN_PHOTO_MODE_BRACKETING).get (),
        untimed_tags ({}, vorn_camera_mode_photo_get_name (VORN_PHOTO_MODE_BRACKETING)));
    EXPECT_EQ (log_.texts (warning), std::vector<std::string>{"invalid photo_grouping"});
  }
}

TEST_F (PhotoTags, TheNamesOfModesAndGroupingsDiffer)
{
  std::set<std::string> names;
  for (const guint32 grouping : {1u, 2u, 3u})
    names.insert (vorn_photo_grouping_type_get_name (grouping));
  names.insert (vorn_camera_mode_photo_get_name (VORN_PHOTO_MODE_SINGLE));
  EXPECT_EQ (names.size (), 4u);
}

TEST_F (PhotoTags, TheFlightAndTheRunMayBeUnknown)
{
  VornUntimedMetadata metadata = untimed_metadata ();
  metadata.flight_uid = nullptr;
  auto tags = make_untimed_photo_tags (metadata, {}, VORN_PHOTO_MODE_SINGLE);
  std::vector<Tag> expected = untimed_tags ({}, "single");
  std::erase_if (expected, [] (const Tag &tag) {
    return tag.name == std::string ("run-date") || tag.name == std::string ("flight-uid");
  });
  expect_tags (tags.get (), expected);

  metadata.run_id = nullptr;
  tags = make_untimed_photo_tags (metadata, {}, VORN_PHOTO_MODE_SINGLE);
  expected.pop_back ();
  expect_tags (tags.get (), expected);
}

TEST_F (PhotoTags, EmptyTextsAreLeftOut)
{
  char nothing[] = "";
  VornUntimedMetadata metadata = {};
  metadata.serial = nothing;
  const VornSnapshotRequest request = {.photo_grouping = 3, .panorama_type = nothing};
  const auto names =
      names_of (make_untimed_photo_tags (metadata, request, VORN_PHOTO_MODE_SINGLE).get ());
  const std::set<std::string> present (names.begin (), names.end ());
  for (const char *name :
       {"device-manufacturer", "device-model", "application-name", "device-model-id",
        "device-serial", "vehicle-uuid", "software-version", "software-build-id", "boot-id",
        "run-date", "flight-uid", "run-id", "panorama-type"})
    EXPECT_FALSE (present.contains (name)) << name;
  EXPECT_TRUE (present.contains ("photo-count"));
  EXPECT_TRUE (present.contains ("drone-yaw"));
}

// ---- At its capture

VornTimedPhotoMetadata timed_metadata ()
{
  return {.shutter_num = 1,
          .shutter_den = 250,
          .exposure_program = 2,
          .iso = 400,
          .exposure_compensation = -0.5,
          .light_source = 1,
          .width = 1280,
          .height = 720,
          .exposure_mode = 1,
          .white_balance_mode = 1,
          .contrast = 2,
          .saturation = 1,
          .sharpness = 2,
          .hfov = 80.0f,
          .wb_r_gain = 1.75f,
          .wb_b_gain = 2.5f,
          .camera_roll = 1.0f,
          .camera_pitch = 2.0f,
          .camera_yaw = 3.0f,
          .pix4d_roll = 4.0f,
          .pix4d_pitch = 5.0f,
          .pix4d_yaw = 6.0f,
          .visible_roll = 7.0f,
          .visible_pitch = 8.0f,
          .visible_yaw = 9.0f,
          .latitude = 48.8789,
          .longitude = 2.3676,
          .altitude = 61.5,
          .satellite_count = 14,
          .location_valid = 1,
          .accuracy_horizontal = 1.25,
          .accuracy_vertical = 2.5};
}

const std::vector<Tag> place_tags = {
    {"geo-location-latitude", 48.8789}, {"geo-location-longitude", 2.3676},
    {"geo-location-elevation", 61.5},   {"geo-satellites-count", 14u},
    {"geo-accuracy-horizontal", 1.25},  {"geo-accuracy-vertical", 2.5},
};
const std::vector<Tag> attitude_tags = {
    {"camera-roll", 1.0},         {"camera-pitch", 2.0},         {"camera-yaw", 3.0},
    {"pix4d-camera-roll", 4.0},   {"pix4d-camera-pitch", 5.0},   {"pix4d-camera-yaw", 6.0},
    {"visible-camera-roll", 7.0}, {"visible-camera-pitch", 8.0}, {"visible-camera-yaw", 9.0},
};
/** Of a photo without exposure data. */
const std::vector<Tag> dark_tags = {
    {"capturing-shutter-speed", Fraction{0, 1}},
    {"capturing-exposure-program", "undefined"},
    {"capturing-iso-speed", 0},
    {"capturing-exposure-compensation", 0.0},
    {"compressed-image-width", 0u},
    {"compressed-image-height", 0u},
    {"capturing-exposure-mode", "auto-exposure"},
    {"capturing-white-balance-r-gain", 0.0},
    {"capturing-white-balance-b-gain", 0.0},
    {"capturing-focal-plane-x-resolution", 8928.571428571428},
    {"capturing-focal-plane-y-resolution", 8928.571428571428},
    {"capturing-contrast", "normal"},
    {"capturing-saturation", "normal"},
    {"capturing-sharpness", "normal"},
};

std::vector<std::string> timed_names (bool with_place)
{
  std::vector<std::string> names = {"datetime", "milliseconds"};
  const auto add = [&names] (const std::vector<Tag> &tags) {
    for (const Tag &tag : tags)
      names.emplace_back (tag.name);
  };
  add (dark_tags);
  names.emplace_back ("capturing-timestamp");
  if (with_place)
    add (place_tags);
  add (attitude_tags);
  names.emplace_back ("video-codec");
  names.emplace_back ("capturing-white-balance");
  return names;
}

TEST_F (PhotoTags, TellTheCaptureWithoutExposure)
{
  VornTimedPhotoMetadata metadata = timed_metadata ();
  clear_photo_exposure (&metadata);
  const auto tags = make_timed_photo_tags (metadata, VORN_PHOTO_FORMAT_WIDE, 1234567890999);
  for (const auto &group : {dark_tags, place_tags, attitude_tags})
    for (const Tag &tag : group)
      expect_tag (tags.get (), tag);
  expect_tag (tags.get (), {"capturing-timestamp", guint64{1234567890}});
  expect_tag (tags.get (), {"video-codec", "image/jpeg"});
  expect_tag (tags.get (), {"capturing-white-balance", "auto"});
  EXPECT_EQ (names_of (tags.get ()), timed_names (true));
}

TEST_F (PhotoTags, NoPlaceWhereNoneIsKnown)
{
  VornTimedPhotoMetadata metadata = timed_metadata ();
  clear_photo_exposure (&metadata);
  metadata.location_valid = 0;
  const auto tags = make_timed_photo_tags (metadata, VORN_PHOTO_FORMAT_WIDE, 0);
  EXPECT_EQ (names_of (tags.get ()), timed_names (false));
  for (const Tag &tag : attitude_tags)
    expect_tag (tags.get (), tag);

  metadata.location_valid = 0x80000000; // any number but 0
  EXPECT_EQ (names_of (make_timed_photo_tags (metadata, VORN_PHOTO_FORMAT_WIDE, 0).get ()),
             timed_names (true));
}

TEST_F (PhotoTags, TellAnExposureWhereThereIsOne)
{
  const VornTimedPhotoMetadata metadata = timed_metadata ();
  const auto tags = make_timed_photo_tags (metadata, VORN_PHOTO_FORMAT_RECTILINEAR, 0);
  // 1280 pixels are 80 degrees of a lens of 4 mm: the plane is 8 mm times tan (40 degrees) wide.
  const double resolution = 1280 / (8.0 * 0.83909963117728);
  const std::vector<Tag> expected = {
      {"capturing-shutter-speed", Fraction{1, 250}},
      {"capturing-exposure-program", "normal"},
      {"capturing-iso-speed", 400},
      {"capturing-exposure-compensation", -0.5},
      {"compressed-image-width", 1280u},
      {"compressed-image-height", 720u},
      {"capturing-exposure-mode", "manual-exposure"},
      {"capturing-white-balance-r-gain", 1.75},
      {"capturing-white-balance-b-gain", 2.5},
      {"capturing-contrast", "hard"},
      {"capturing-saturation", "low-saturation"},
      {"capturing-sharpness", "hard"},
      {"capturing-white-balance", "daylight"},
  };
  for (const Tag &tag : expected)
    expect_tag (tags.get (), tag);
  for (const char *name :
       {"capturing-focal-plane-x-resolution", "capturing-focal-plane-y-resolution"}) {
    gdouble value = 0;
    EXPECT_TRUE (gst_tag_list_get_double (tags.get (), name, &value));
    EXPECT_NEAR (value, resolution, 1e-9);
  }
}

TEST_F (PhotoTags, WhiteBalanceIsNamedByItsLight)
{
  const struct {
    guint16 mode, light_source;
    const char *name;
  } cases[] = {
      {0, 0, "auto"}, {0, 3, "auto"}, {1, 0, "manual"}, {1, 3, "tungsten"}, {1, 10, "cloudy"}};
  for (const auto &c : cases) {
    VornTimedPhotoMetadata metadata = timed_metadata ();
    metadata.white_balance_mode = c.mode;
    metadata.light_source = c.light_source;
    expect_tag (make_timed_photo_tags (metadata, VORN_PHOTO_FORMAT_WIDE, 0).get (),
                {"capturing-white-balance", c.name});
  }
}

TEST_F (PhotoTags, TheFocalPlaneOfAnUnknownPictureIsZero)
{
  VornTimedPhotoMetadata metadata = timed_metadata ();
  clear_photo_exposure (&metadata);
  for (const float hfov : {80.0f, 0.0f}) {
    metadata.hfov = hfov;
    const auto tags = make_timed_photo_tags (metadata, VORN_PHOTO_FORMAT_RECTILINEAR, 0);
    expect_tag (tags.get (), {"capturing-focal-plane-x-resolution", 0.0});
    expect_tag (tags.get (), {"capturing-focal-plane-y-resolution", 0.0});
  }
}

/** A time zone for a scope. */
class TimeZone
{
public:
  explicit TimeZone (const char *zone)
  {
    setenv ("TZ", zone, 1);
    tzset ();
  }
  ~TimeZone ()
  {
    unsetenv ("TZ");
    tzset ();
  }
  TimeZone (const TimeZone &) = delete;
  TimeZone &operator= (const TimeZone &) = delete;
};

TEST_F (PhotoTags, TheDateIsThatOfTaggingInLocalTime)
{
  const struct {
    const char *zone;
    float offset_h;
  } cases[] = {{"UTC0", 0.0f}, {"XYZ-5:30", 5.5f}, {"XYZ8", -8.0f}, {"XYZ3:30", -3.5f}};
  for (const auto &c : cases) {
    SCOPED_TRACE (c.zone);
    const TimeZone zone (c.zone);
    const VornTimedPhotoMetadata metadata = timed_metadata ();
    const gint64 before_us = g_get_real_time ();
    const auto tags = make_timed_photo_tags (metadata, VORN_PHOTO_FORMAT_WIDE, 0);
    const gint64 after_us = g_get_real_time ();

    GstDateTime *date = nullptr;
    ASSERT_TRUE (gst_tag_list_get_date_time (tags.get (), "datetime", &date));
    const vorn::Owned<GstDateTime, gst_date_time_unref> owned (date);
    EXPECT_FLOAT_EQ (gst_date_time_get_time_zone_offset (date), c.offset_h);
    const vorn::Owned<GDateTime, g_date_time_unref> moment (gst_date_time_to_g_date_time (date));
    ASSERT_TRUE (moment);
    const gint64 us =
        g_date_time_to_unix (moment.get ()) * 1'000'000 + gst_date_time_get_microsecond (date);
    EXPECT_GE (us, before_us - 1000); // milliseconds are rounded down
    EXPECT_LE (us, after_us);
    guint milliseconds = 1000;
    EXPECT_TRUE (gst_tag_list_get_uint (tags.get (), "milliseconds", &milliseconds));
    EXPECT_NEAR (gst_date_time_get_microsecond (date) / 1000.0, milliseconds, 0.002);
  }
}

} // namespace
