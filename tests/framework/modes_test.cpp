// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/modes.h>

#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "test_virtual_camera.hpp"

namespace
{

constexpr guint32 largest = G_MAXUINT32;

TEST (Resolution, EqualOnlyInBothDirections)
{
  const VornResolution a = {1280, 720};
  const VornResolution same = {1280, 720};
  const VornResolution narrower = {960, 720};
  const VornResolution taller = {1280, 960};
  const VornResolution turned = {720, 1280};
  EXPECT_TRUE (vorn_resolution_cmp (&a, &same));
  EXPECT_FALSE (vorn_resolution_cmp (&a, &narrower));
  EXPECT_FALSE (vorn_resolution_cmp (&a, &taller));
  EXPECT_FALSE (vorn_resolution_cmp (&a, &turned));
}

TEST (Resolution, RangeIncludesItsEnds)
{
  const VornResolutionSet set = {.min = {1280, 720}, .max = {1920, 1080}};
  const struct {
    VornResolution resolution;
    bool valid;
  } rows[] = {{{1280, 720}, true},   {{1920, 1080}, true},  {{1600, 900}, true},
              {{1280, 1080}, true},  {{1279, 720}, false},  {{1280, 719}, false},
              {{1921, 1080}, false}, {{1920, 1081}, false}, {{0, 0}, false}};
  for (const auto &row : rows)
    EXPECT_EQ (vorn_resolution_is_valid (&set, &row.resolution) != FALSE, row.valid)
        << row.resolution.width << "x" << row.resolution.height;
}

TEST (Resolution, ListAdmitsItsMembersOnly)
{
  const VornResolution list[] = {{640, 480}, {1280, 720}};
  // The range of a set with a list does not count, however wide.
  const VornResolutionSet set = {
      .min = {1, 1}, .max = {largest, largest}, .list = list, .count = 2};
  const VornResolution first = {640, 480};
  const VornResolution last = {1280, 720};
  const VornResolution between = {800, 600};
  EXPECT_TRUE (vorn_resolution_is_valid (&set, &first));
  EXPECT_TRUE (vorn_resolution_is_valid (&set, &last));
  EXPECT_FALSE (vorn_resolution_is_valid (&set, &between));
}

TEST (Framerate, ComparesAsRationalNumber)
{
  const struct {
    VornFramerate a;
    VornFramerate b;
    gint sign;
  } rows[] = {
      {{30, 1}, {30, 1}, 0},
      {{30, 1}, {60, 2}, 0},
      {{30000, 1001}, {60000, 2002}, 0},
      {{30000, 1001}, {30, 1}, -1},
      {{24000, 1001}, {24, 1}, -1},
      {{25, 1}, {24000, 1001}, 1},
      {{1, 2}, {1, 3}, 1},
      // Products that need 64 bits.
      {{largest, 1}, {largest, 2}, 1},
      {{largest, largest}, {1, 1}, 0},
      {{largest, largest - 1}, {largest - 1, largest}, 1},
      // What is no rate is lower than every rate, and all of it is equal.
      {{0, 1}, {1, largest}, -1},
      {{1, 0}, {1, largest}, -1},
      {{0, 0}, {1, 0}, 0},
      {{0, 1}, {0, 0}, 0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE (std::to_string (row.a.num) + "/" + std::to_string (row.a.den) + " against " +
                  std::to_string (row.b.num) + "/" + std::to_string (row.b.den));
    const gint forth = vorn_framerate_cmp (&row.a, &row.b);
    const gint back = vorn_framerate_cmp (&row.b, &row.a);
    EXPECT_EQ ((forth > 0) - (forth < 0), row.sign);
    EXPECT_EQ ((back > 0) - (back < 0), -row.sign);
  }
}

TEST (Framerate, RangeIncludesItsEnds)
{
  const VornFramerateSet set = {.min = {24000, 1001}, .max = {30000, 1001}};
  const struct {
    VornFramerate framerate;
    bool valid;
  } rows[] = {{{24000, 1001}, true}, {{30000, 1001}, true}, {{25, 1}, true},  {{29, 1}, true},
              {{50, 2}, true},       {{30, 1}, false},      {{23, 1}, false}, {{48000, 2002}, true},
              {{0, 1}, false},       {{25, 0}, false},      {{0, 0}, false}};
  for (const auto &row : rows)
    EXPECT_EQ (vorn_framerate_is_valid (&set, &row.framerate) != FALSE, row.valid)
        << row.framerate.num << "/" << row.framerate.den;
}

TEST (Framerate, ListAdmitsItsMembersOnly)
{
  const VornFramerate list[] = {{30000, 1001}, {25, 1}, {24000, 1001}};
  const VornFramerateSet set = {.min = {1, 1}, .max = {largest, 1}, .list = list, .count = 3};
  const struct {
    VornFramerate framerate;
    bool valid;
  } rows[] = {{{30000, 1001}, true}, {{25, 1}, true},  {{24000, 1001}, true}, {{50, 2}, true},
              {{60000, 2002}, true}, {{29, 1}, false}, {{24, 1}, false},      {{30, 1}, false}};
  for (const auto &row : rows)
    EXPECT_EQ (vorn_framerate_is_valid (&set, &row.framerate) != FALSE, row.valid)
        << row.framerate.num << "/" << row.framerate.den;
}

TEST (Framerate, ZeroWordsAreNeverValid)
{
  // Not even where the set itself has them.
  const VornFramerate list[] = {{0, 0}, {0, 1}, {25, 0}};
  const VornFramerateSet sets[] = {{.list = list, .count = 3},
                                   {.min = {0, 0}, .max = {0, 0}},
                                   {.min = {0, 1}, .max = {largest, 1}},
                                   {}};
  const VornFramerate rates[] = {{0, 0}, {0, 1}, {25, 0}, {0, largest}, {largest, 0}};
  for (const auto &set : sets)
    for (const auto &rate : rates)
      EXPECT_FALSE (vorn_framerate_is_valid (&set, &rate)) << rate.num << "/" << rate.den;
}

TEST (Framerate, EmptySetAdmitsNothing)
{
  const VornFramerateSet set = {};
  const VornFramerate rate = {25, 1};
  EXPECT_FALSE (vorn_framerate_is_valid (&set, &rate));
}

TEST (Framerate, AsNumber)
{
  const VornFramerate film = {24000, 1001};
  const VornFramerate none = {25, 0};
  EXPECT_DOUBLE_EQ (vorn_framerate_to_double (&film), 24000.0 / 1001.0);
  EXPECT_EQ (vorn_framerate_to_double (&none), 0.0);
}

// ---- Finding an entry

constexpr VornRecordingCapability recording_entries[] = {
    {.sub_mode_mask = 1,
     .resolutions = {.min = {1280, 720}, .max = {1920, 1080}},
     .framerates = {.min = {24, 1}, .max = {30, 1}}},
    {.sub_mode_mask = 1u | 1u << 3,
     .resolutions = {.min = {1280, 720}, .max = {3840, 2160}},
     .framerates = {.min = {24, 1}, .max = {60, 1}}},
    {.sub_mode_mask = 1u << 31,
     .resolutions = {.min = {1, 1}, .max = {largest, largest}},
     .framerates = {.min = {1, 1}, .max = {largest, 1}}},
};

TEST (FindRecording, FirstEntryWithSubModeSizeAndRate)
{
  const struct {
    VornCameraMode mode;
    int entry;
  } rows[] = {
      {recording_mode (1920, 1080, 30, 1), 0},     // both would serve: the first
      {recording_mode (1920, 1080, 50, 1), 1},     // too fast for the first
      {recording_mode (3840, 2160, 30, 1), 1},     // too large for the first
      {recording_mode (1920, 1080, 30, 1, 3), 1},  // not the first's sub-mode
      {recording_mode (1920, 1080, 30, 1, 1), -1}, // nobody's sub-mode
      {recording_mode (7680, 4320, 30, 1), -1},    // too large
      {recording_mode (1920, 1080, 90, 1), -1},    // too fast
      {recording_mode (1920, 1080, 0, 1), -1},
      {recording_mode (1920, 1080, 30, 0), -1},
      {recording_mode (1, 1, 1, 1, 31), 2},
      // A sub-mode beyond the mask's 32 bits is nobody's, and no bit of another.
      {recording_mode (1920, 1080, 30, 1, 32), -1},
      {recording_mode (1920, 1080, 30, 1, 63), -1},
      {recording_mode (1920, 1080, 30, 1, largest), -1},
  };
  for (const auto &row : rows) {
    const auto *found = vorn_camera_recording_capabilities_find (
        recording_entries, std::size (recording_entries), &row.mode);
    const auto *expected = row.entry < 0 ? nullptr : &recording_entries[row.entry];
    EXPECT_EQ (found, expected) << "row " << &row - rows;
  }
}

TEST (FindRecording, NothingInAnEmptyTableOrForAnotherType)
{
  const auto mode = recording_mode (1920, 1080, 30, 1);
  EXPECT_EQ (vorn_camera_recording_capabilities_find (nullptr, 0, &mode), nullptr);
  EXPECT_EQ (vorn_camera_recording_capabilities_find (recording_entries, 0, &mode), nullptr);
  for (const guint32 type : {1u, 2u, largest}) {
    auto other = mode;
    other.type = type;
    EXPECT_EQ (vorn_camera_recording_capabilities_find (recording_entries, 3, &other), nullptr);
  }
}

constexpr VornPhotoCapability photo_entries[] = {
    {.mode_mask = 1, .format_mask = 1, .file_format_mask = 4},
    {.mode_mask = 5, .format_mask = 3, .file_format_mask = 1},
    {.mode_mask = 7, .format_mask = 3, .file_format_mask = 5},
};

TEST (FindPhoto, FirstEntryWhoseMasksHaveAllBits)
{
  const struct {
    VornCameraMode mode;
    int entry;
  } rows[] = {
      {photo_mode (0, 0, 2), 0},   {photo_mode (0, 0, 0), 1},   {photo_mode (2, 1, 0), 1},
      {photo_mode (1, 0, 0), 2},   {photo_mode (0, 1, 2), 2},   {photo_mode (3, 0, 0), -1},
      {photo_mode (0, 2, 0), -1},  {photo_mode (0, 0, 1), -1},  {photo_mode (32, 0, 0), -1},
      {photo_mode (0, 32, 0), -1}, {photo_mode (0, 0, 32), -1},
  };
  for (const auto &row : rows) {
    const auto *found =
        vorn_camera_photo_capabilities_find (photo_entries, std::size (photo_entries), &row.mode);
    const auto *expected = row.entry < 0 ? nullptr : &photo_entries[row.entry];
    EXPECT_EQ (found, expected) << "row " << &row - rows;
  }
}

TEST (FindPhoto, NothingInAnEmptyTableOrForAnotherType)
{
  const auto mode = photo_mode (0, 0, 0);
  EXPECT_EQ (vorn_camera_photo_capabilities_find (nullptr, 0, &mode), nullptr);
  for (const guint32 type : {0u, 2u, largest}) {
    auto other = mode;
    other.type = type;
    EXPECT_EQ (vorn_camera_photo_capabilities_find (photo_entries, 3, &other), nullptr);
  }
}

TEST (Names, OfEveryValueAndBeyond)
{
  const struct {
    const gchar *(*name_of) (guint32);
    std::vector<std::string> names;
  } rows[] = {
      {vorn_camera_mode_type_get_name, {"recording", "photo"}},
      {vorn_camera_mode_recording_get_name,
       {"standard", "hyperlapse", "slow motion", "high framerate"}},
      {vorn_camera_mode_photo_get_name, {"single", "bracketing", "burst"}},
      {vorn_photo_format_get_name, {"wide", "rectilinear"}},
      {vorn_photo_file_format_get_name, {"jpeg", "dng", "dng+jpeg"}},
      {vorn_photo_grouping_type_get_name, {"single", "bracketing", "burst", "panorama"}},
      {vorn_exposure_mode_get_name,
       {"automatic", "automatic, prefer ISO", "automatic, prefer shutter", "manual ISO",
        "manual shutter", "manual"}},
  };
  for (const auto &row : rows) {
    const auto count = static_cast<guint32> (row.names.size ());
    for (guint32 i = 0; i < count; i++)
      EXPECT_EQ (row.name_of (i), row.names[i]);
    EXPECT_STREQ (row.name_of (count), "unknown");
    EXPECT_STREQ (row.name_of (largest), "unknown");
  }
}

// ---- Exposure

TEST (Exposure, IsoWithinTheRange)
{
  const VornExposureCapabilities capabilities = {.iso_min = 100, .iso_max = 3200};
  const struct {
    guint32 iso;
    bool valid;
  } rows[] = {{0, false},   {50, false},   {99, false},   {100, true},     {800, true},
              {3200, true}, {3201, false}, {6400, false}, {largest, false}};
  for (const auto &row : rows)
    EXPECT_EQ (vorn_exposure_iso_is_valid (&capabilities, row.iso) != FALSE, row.valid) << row.iso;
}

TEST (Exposure, ShutterSpeedWithinTheRange)
{
  const VornExposureCapabilities capabilities = {.exposure_time_min = 0.0001,
                                                 .exposure_time_max = 1001.0 / 24000.0};
  const struct {
    gdouble seconds;
    bool valid;
  } rows[] = {{0.0001, true},
              {1001.0 / 24000.0, true},
              {0.01, true},
              {0.0, false},
              {0.00009, false},
              {0.042, false},
              {-0.01, false},
              {1.0, false},
              {G_MAXDOUBLE, false},
              {-G_MAXDOUBLE, false},
              {std::numeric_limits<gdouble>::quiet_NaN (), false},
              {std::numeric_limits<gdouble>::infinity (), false}};
  for (const auto &row : rows)
    EXPECT_EQ (vorn_exposure_shutter_speed_is_valid (&capabilities, row.seconds) != FALSE,
               row.valid)
        << row.seconds;
}

} // namespace
