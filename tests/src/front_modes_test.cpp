// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The mode tables themselves, and the modes that are looked up in them.
#include "vorn_morvik_zelto_front_modes.hpp"

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "front_modes_support.hpp"
#include "log_capture.hpp"

namespace
{

// ---- The tables: entry by entry

struct ConfigurationRow {
  VornResolution sensor;
  VornResolution preview;
  VornFramerate min;
  VornFramerate max;
  std::vector<VornFramerate> list;
  VornResolution capture;
  VornFramerate capture_rate;
  VornResolution crop;
};

const ConfigurationRow standard = {
    {5344, 3200}, {0, 0}, {0, 0}, {0, 0}, {{30000, 1001}, {25, 1}, {24000, 1001}}, {}, {}, {}};
const ConfigurationRow high_speed = {
    {2656, 1600}, {0, 0}, {0, 0}, {0, 0}, {{60000, 1001}, {50, 1}, {48000, 1001}}, {}, {}, {}};
const ConfigurationRow super_high_speed = {{1312, 788}, {0, 0}, {0, 0}, {0, 0},
                                           {{120, 1}},  {},     {},     {}};
const ConfigurationRow thermal_recording = {{5344, 4016}, {0, 0}, {9, 1}, {9, 1}, {}, {}, {}, {}};
const ConfigurationRow wide[] = {
    {{2656, 2008}, {1312, 984}, {}, {}, {{30000, 1001}}, {5344, 4016}, {24, 1}, {5344, 4016}},
    {{2656, 2008}, {1312, 984}, {}, {}, {{24, 1}}, {5344, 4016}, {24, 1}, {5344, 4016}}};
const ConfigurationRow rectilinear[] = {
    {{2656, 2008}, {1312, 984}, {}, {}, {{30000, 1001}}, {5344, 4016}, {24, 1}, {4608, 3456}},
    {{2656, 2008}, {1312, 984}, {}, {}, {{24, 1}}, {5344, 4016}, {24, 1}, {4608, 3456}}};

void expect_configuration (const VornCameraConfiguration &actual, const ConfigurationRow &row)
{
  EXPECT_EQ (actual.sensor_resolution, row.sensor);
  EXPECT_EQ (actual.preview_resolution, row.preview);
  EXPECT_EQ (actual.framerates.min, row.min);
  EXPECT_EQ (actual.framerates.max, row.max);
  ASSERT_EQ (actual.framerates.count, row.list.size ());
  for (size_t i = 0; i < row.list.size (); i++)
    EXPECT_EQ (actual.framerates.list[i], row.list[i]) << i;
  EXPECT_EQ (actual.reserved[0], 0u);
  EXPECT_EQ (actual.reserved[1], 0u);
  EXPECT_EQ (actual.capture.resolution, row.capture);
  EXPECT_EQ (actual.capture.framerate, row.capture_rate);
  EXPECT_EQ (actual.capture.flag, 0u);
  EXPECT_EQ (actual.crop_resolution, row.crop);
}

struct RecordingRow {
  guint32 mask;
  guint32 default_sub_mode;
  VornResolution min;
  VornResolution max;
  VornResolution default_resolution;
  VornFramerate min_rate;
  VornFramerate max_rate;
  VornFramerate default_rate;
  guint32 hdr;
  const ConfigurationRow *configuration;
};

const std::vector<RecordingRow> visible_recording = {
    {1,
     0,
     {4096, 2160},
     {4096, 2160},
     {4096, 2160},
     {24000, 1001},
     {24000, 1001},
     {24000, 1001},
     1,
     &standard},
    {3,
     0,
     {1920, 1080},
     {3840, 2160},
     {3840, 2160},
     {24000, 1001},
     {30000, 1001},
     {30000, 1001},
     1,
     &standard},
    {12,
     2,
     {1280, 720},
     {1920, 1080},
     {1920, 1080},
     {48000, 1001},
     {60000, 1001},
     {60000, 1001},
     0,
     &high_speed},
    {12,
     2,
     {1280, 720},
     {1280, 720},
     {1280, 720},
     {120, 1},
     {120, 1},
     {120, 1},
     0,
     &super_high_speed},
};
const std::vector<RecordingRow> thermal_recordings = {{1,
                                                       0,
                                                       {1440, 1080},
                                                       {1440, 1080},
                                                       {1440, 1080},
                                                       {9, 1},
                                                       {9, 1},
                                                       {9, 1},
                                                       0,
                                                       &thermal_recording}};

void expect_recording (const VornCapabilitySet &caps, const std::vector<RecordingRow> &rows)
{
  ASSERT_EQ (caps.recording_count, rows.size ());
  for (size_t i = 0; i < rows.size (); i++) {
    SCOPED_TRACE ("recording entry " + std::to_string (i));
    const VornRecordingCapability &entry = caps.recording[i];
    EXPECT_EQ (entry.sub_mode_mask, rows[i].mask);
    EXPECT_EQ (entry.default_sub_mode, rows[i].default_sub_mode);
    EXPECT_EQ (entry.resolutions.min, rows[i].min);
    EXPECT_EQ (entry.resolutions.max, rows[i].max);
    EXPECT_EQ (entry.resolutions.list, nullptr);
    EXPECT_EQ (entry.resolutions.count, 0u);
    EXPECT_EQ (entry.default_resolution, rows[i].default_resolution);
    EXPECT_EQ (entry.framerates.min, rows[i].min_rate);
    EXPECT_EQ (entry.framerates.max, rows[i].max_rate);
    EXPECT_EQ (entry.framerates.list, nullptr);
    EXPECT_EQ (entry.framerates.count, 0u);
    EXPECT_EQ (entry.default_framerate, rows[i].default_rate);
    EXPECT_EQ (entry.reserved[0], 0u);
    EXPECT_EQ (entry.reserved[1], 0u);
    EXPECT_EQ (entry.reserved_word, 0u);
    EXPECT_EQ (entry.hdr_available, rows[i].hdr);
    ASSERT_NE (entry.configuration, nullptr);
    expect_configuration (*entry.configuration, *rows[i].configuration);
  }
}

TEST (Tables, VisibleRecordingEntries)
{
  expect_recording (caps_of (VISIBLE), visible_recording);
}

TEST (Tables, ThermalRecordingEntries)
{
  expect_recording (caps_of (THERMAL), thermal_recordings);
}

struct PhotoRow {
  guint32 modes, default_mode, formats, default_format, file_formats, hdr;
  const ConfigurationRow *pair;
};

void expect_photo (const VornCapabilitySet &caps, const std::vector<PhotoRow> &rows)
{
  ASSERT_EQ (caps.photo_count, rows.size ());
  for (size_t i = 0; i < rows.size (); i++) {
    SCOPED_TRACE ("photo entry " + std::to_string (i));
    const VornPhotoCapability &entry = caps.photo[i];
    EXPECT_EQ (entry.mode_mask, rows[i].modes);
    EXPECT_EQ (entry.default_mode, rows[i].default_mode);
    EXPECT_EQ (entry.format_mask, rows[i].formats);
    EXPECT_EQ (entry.default_format, rows[i].default_format);
    EXPECT_EQ (entry.file_format_mask, rows[i].file_formats);
    EXPECT_EQ (entry.hdr_available, rows[i].hdr);
    ASSERT_NE (entry.configurations, nullptr);
    for (int hdr = 0; hdr < 2; hdr++) {
      SCOPED_TRACE (hdr ? "with HDR" : "without HDR");
      expect_configuration (entry.configurations[hdr], rows[i].pair[hdr]);
    }
  }
}

TEST (Tables, VisiblePhotoEntries)
{
  expect_photo (caps_of (VISIBLE), {{1, 0, 1, 0, 4, 1, wide},
                                    {5, 0, 1, 0, 1, 1, wide},
                                    {5, 0, 2, 1, 1, 1, rectilinear},
                                    {3, 0, 1, 0, 4, 0, wide},
                                    {7, 0, 1, 0, 1, 0, wide},
                                    {7, 0, 2, 1, 1, 0, rectilinear}});
}

TEST (Tables, ThermalPhotoEntries)
{
  expect_photo (caps_of (THERMAL), {{1, 0, 1, 0, 5, 0, wide}});
}

/** The record word by word, doubles apart: the whole layout with its reserved space. */
std::vector<guint32> words_of (const void *record, size_t count)
{
  std::vector<guint32> words (count);
  memcpy (words.data (), record, count * sizeof (guint32));
  return words;
}

gdouble double_at (const void *record, size_t byte)
{
  gdouble value = 0.0;
  memcpy (&value, static_cast<const guint8 *> (record) + byte, sizeof value);
  return value;
}

void expect_exposure_doubles (const void *record, gdouble ev_min, gdouble ev_max)
{
  // EV range, three zeros, exposure time range, two zeros, auto-exposure limit.
  const gdouble expected[] = {ev_min, ev_max, 0.0, 0.0, 0.0, 0.0001, 1.0, 0.0, 0.0, 0.01};
  for (size_t i = 0; i < std::size (expected); i++)
    EXPECT_EQ (double_at (record, 48 + 8 * i), expected[i]) << "double " << i;
}

TEST (Tables, VisibleCameraRecord)
{
  const VornCameraCapabilities *camera = caps_of (VISIBLE).camera;
  EXPECT_EQ (words_of (camera, 4), (std::vector<guint32>{0, 3, 0, 0}));
  EXPECT_EQ (words_of (&camera->exposure, 12),
             (std::vector<guint32>{63, 1, 1, 1, 2, 100, 3200, 0, 0, 0, 0, 100}));
  expect_exposure_doubles (&camera->exposure, -3.0, 3.0);
  EXPECT_EQ (words_of (&camera->wb_mode_mask, 28),
             (std::vector<guint32>{52425, 1, 0, 0, 0, 0, 0, 0, 0, 0, 13, 2, 0, 0,
                                   0,     0, 0, 3, 0, 0, 0, 0, 0, 0, 0,  0, 0, 0}));
}

TEST (Tables, ThermalCameraRecord)
{
  const VornCameraCapabilities *camera = caps_of (THERMAL).camera;
  EXPECT_EQ (words_of (camera, 4), (std::vector<guint32>{1, 3, 0, 0}));
  EXPECT_EQ (words_of (&camera->exposure, 12),
             (std::vector<guint32>{1, 0, 0, 1, 0, 100, 3200, 0, 0, 0, 0, 100}));
  expect_exposure_doubles (&camera->exposure, 0.0, 0.0);
  EXPECT_EQ (words_of (&camera->wb_mode_mask, 28),
             (std::vector<guint32>{1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 13, 2, 1, 1,
                                   0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0,  0, 0, 0}));
}

// ---- Default mode

struct DefaultRow {
  Flavour flavour;
  VornResolution sensor;
  VornFramerate framerate;
  int entry; // -1: none fits
  VornFramerate mode_framerate;
};

TEST (DefaultMode, FirstEntryThatHasTheSensorAndAdmitsItsRate)
{
  const DefaultRow rows[] = {
      // 4096x2160 comes first, but takes one rate only.
      {VISIBLE, {5344, 3200}, {24000, 1001}, 0, {24000, 1001}},
      {VISIBLE, {5344, 3200}, {48000, 2002}, 0, {48000, 2002}},
      {VISIBLE, {5344, 3200}, {30000, 1001}, 1, {30000, 1001}},
      {VISIBLE, {5344, 3200}, {25, 1}, 1, {25, 1}},
      // The entry's range counts, not the list of its sensor configuration.
      {VISIBLE, {5344, 3200}, {29, 1}, 1, {29, 1}},
      {VISIBLE, {2656, 1600}, {60000, 1001}, 2, {60000, 1001}},
      {VISIBLE, {2656, 1600}, {50, 1}, 2, {50, 1}},
      {VISIBLE, {2656, 1600}, {48000, 1001}, 2, {48000, 1001}},
      {VISIBLE, {1312, 788}, {120, 1}, 3, {120, 1}},
      {THERMAL, {5344, 4016}, {9, 1}, 0, {9, 1}},
      {THERMAL, {5344, 4016}, {18, 2}, 0, {18, 2}},
      // Nothing fits: the first entry with a rate of its own.
      {VISIBLE, {5344, 3200}, {30, 1}, -1, {24000, 1001}},
      {VISIBLE, {5344, 3200}, {60000, 1001}, -1, {24000, 1001}},
      {VISIBLE, {5344, 3200}, {0, 1}, -1, {24000, 1001}},
      {VISIBLE, {5344, 3200}, {30000, 0}, -1, {24000, 1001}},
      {VISIBLE, {2656, 1600}, {30000, 1001}, -1, {24000, 1001}},
      {VISIBLE, {1312, 788}, {60, 1}, -1, {24000, 1001}},
      {VISIBLE, {5344, 3201}, {30000, 1001}, -1, {24000, 1001}}, // only the width is right
      {VISIBLE, {5343, 3200}, {30000, 1001}, -1, {24000, 1001}}, // only the height is right
      {VISIBLE, {1280, 720}, {24000, 1001}, -1, {24000, 1001}},
      {VISIBLE, {5344, 4016}, {9, 1}, -1, {24000, 1001}},
      {THERMAL, {5344, 3200}, {30000, 1001}, -1, {9, 1}},
      {THERMAL, {5344, 4016}, {10, 1}, -1, {9, 1}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE ("row " + std::to_string (&row - rows));
    LogCapture log;
    const VornCapabilitySet caps = caps_of (row.flavour);
    const VornSensorConfiguration sensor = {.resolution = row.sensor, .framerate = row.framerate};
    VornCameraMode mode;
    memset (&mode, 0xff, sizeof mode);
    vorn_morvik_zelto_front_modes_get_default_mode (&sensor, &caps, &mode);

    const auto &tables = row.flavour == THERMAL ? thermal_recordings : visible_recording;
    const RecordingRow &entry = tables[row.entry < 0 ? 0 : static_cast<size_t> (row.entry)];
    EXPECT_EQ (mode.type, 0u);
    EXPECT_EQ (mode.recording.sub_mode, entry.default_sub_mode);
    EXPECT_EQ (mode.recording.resolution, entry.default_resolution);
    EXPECT_EQ (mode.recording.framerate, row.mode_framerate);
    EXPECT_EQ (mode.reserved, 0u);
    EXPECT_EQ (mode.flag, 0u);

    if (row.entry >= 0) {
      EXPECT_TRUE (log.lines ().empty ());
    } else {
      const auto lines = log.lines ();
      ASSERT_EQ (lines.size (), 1u);
      EXPECT_EQ (lines[0].priority, VORN_LOG_PRIORITY_WARNING);
      EXPECT_EQ (lines[0].text, "no mode found with sensor configuration: use default one");
      EXPECT_EQ (lines[0].prefix.find ("src/vorn_morvik_zelto_front_modes_4k.cpp:"), 0u)
          << lines[0].prefix;
    }
  }
}

TEST (DefaultMode, WithoutAnyEntryIsAModeOfZeros)
{
  LogCapture log;
  const VornCapabilitySet caps = {};
  const VornSensorConfiguration sensor = {.resolution = {5344, 3200}, .framerate = {30000, 1001}};
  VornCameraMode mode;
  memset (&mode, 0xff, sizeof mode);
  vorn_morvik_zelto_front_modes_get_default_mode (&sensor, &caps, &mode);
  EXPECT_EQ (words_of (&mode, 8), std::vector<guint32> (8, 0));
  EXPECT_TRUE (log.has ("no mode found with sensor configuration: use default one",
                        VORN_LOG_PRIORITY_WARNING));
}

// ---- Which modes there are, and whether they can do HDR

struct ModeRow {
  Flavour flavour;
  VornCameraMode mode;
  int hdr; // -1: no such mode
};

const std::vector<ModeRow> mode_rows = {
    {VISIBLE, recording_mode (4096, 2160, 24000, 1001), 1},
    {VISIBLE, recording_mode (4096, 2160, 25, 1), -1},
    {VISIBLE, recording_mode (4096, 2160, 30000, 1001), -1},
    {VISIBLE, recording_mode (3840, 2160, 30000, 1001), 1},
    {VISIBLE, recording_mode (3840, 2160, 25, 1), 1},
    {VISIBLE, recording_mode (3840, 2160, 24000, 1001), 1},
    {VISIBLE, recording_mode (3840, 2160, 30, 1), -1},
    {VISIBLE, recording_mode (3840, 2160, 60000, 1001), -1},
    {VISIBLE, recording_mode (2688, 1512, 30000, 1001), 1}, // between the ends of the range
    {VISIBLE, recording_mode (1920, 1080, 24000, 1001), 1},
    {VISIBLE, recording_mode (1919, 1080, 24000, 1001), -1},
    {VISIBLE, recording_mode (1280, 720, 30000, 1001), -1},
    {VISIBLE, recording_mode (3840, 2160, 30000, 1001, 1), 1}, // hyperlapse
    {VISIBLE, recording_mode (4096, 2160, 24000, 1001, 1), -1},
    {VISIBLE, recording_mode (1920, 1080, 60000, 1001, 2), 0},
    {VISIBLE, recording_mode (1920, 1080, 60000, 1001, 3), 0},
    {VISIBLE, recording_mode (1920, 1080, 60000, 1001, 0), -1},
    {VISIBLE, recording_mode (1920, 1080, 60000, 1001, 4), -1},
    {VISIBLE, recording_mode (1280, 720, 50, 1, 2), 0},
    {VISIBLE, recording_mode (1280, 720, 48000, 1001, 3), 0},
    {VISIBLE, recording_mode (1920, 1080, 120, 1, 2), -1},
    {VISIBLE, recording_mode (1280, 720, 120, 1, 2), 0},
    {VISIBLE, recording_mode (1280, 720, 120, 1, 3), 0},
    {VISIBLE, recording_mode (1280, 720, 120, 1, 1), -1},
    {VISIBLE, recording_mode (3840, 2160, 0, 1), -1},
    {VISIBLE, recording_mode (3840, 2160, 30, 0), -1},
    {VISIBLE, recording_mode (0, 0, 0, 0), -1},
    {VISIBLE, recording_mode (1440, 1080, 9, 1), -1},
    {THERMAL, recording_mode (1440, 1080, 9, 1), 0},
    {THERMAL, recording_mode (1440, 1080, 9, 1, 1), -1},
    {THERMAL, recording_mode (1440, 1080, 10, 1), -1},
    {THERMAL, recording_mode (3840, 2160, 30000, 1001), -1},
    // Photos: mode, format, file format.
    {VISIBLE, photo_mode (0, 0, 2), 1},  // entry 0
    {VISIBLE, photo_mode (0, 0, 0), 1},  // entry 1
    {VISIBLE, photo_mode (2, 0, 0), 1},  // entry 1
    {VISIBLE, photo_mode (0, 1, 0), 1},  // entry 2
    {VISIBLE, photo_mode (2, 1, 0), 1},  // entry 2
    {VISIBLE, photo_mode (1, 0, 2), 0},  // entry 3
    {VISIBLE, photo_mode (1, 0, 0), 0},  // entry 4
    {VISIBLE, photo_mode (1, 1, 0), 0},  // entry 5
    {VISIBLE, photo_mode (2, 0, 2), -1}, // no burst of raw pictures
    {VISIBLE, photo_mode (0, 1, 2), -1}, // no rectilinear raw picture
    {VISIBLE, photo_mode (0, 0, 1), -1},
    {VISIBLE, photo_mode (3, 0, 0), -1},
    {VISIBLE, photo_mode (0, 2, 0), -1},
    {THERMAL, photo_mode (0, 0, 0), 0},
    {THERMAL, photo_mode (0, 0, 2), 0},
    {THERMAL, photo_mode (0, 0, 1), -1},
    {THERMAL, photo_mode (1, 0, 0), -1},
    {THERMAL, photo_mode (0, 1, 0), -1},
};

TEST (CheckMode, EveryKindOfMode)
{
  for (const auto &row : mode_rows) {
    const VornCapabilitySet caps = caps_of (row.flavour);
    EXPECT_EQ (vorn_morvik_zelto_front_modes_check_mode (&row.mode, &caps) != FALSE, row.hdr >= 0)
        << "row " << &row - mode_rows.data ();
  }
}

TEST (HdrAvailability, EveryKindOfMode)
{
  for (const auto &row : mode_rows) {
    SCOPED_TRACE ("row " + std::to_string (&row - mode_rows.data ()));
    const VornCapabilitySet caps = caps_of (row.flavour);
    guint32 available = 77;
    EXPECT_EQ (vorn_morvik_zelto_front_modes_get_hdr_availability (&row.mode, &caps, &available) !=
                   FALSE,
               row.hdr >= 0);
    // Untouched where there is no such mode.
    EXPECT_EQ (available, row.hdr >= 0 ? static_cast<guint32> (row.hdr) : 77u);
    EXPECT_FALSE (vorn_morvik_zelto_front_modes_get_hdr_availability (&row.mode, &caps, nullptr));
  }
}

TEST (CheckMode, ATypeThatIsNeither)
{
  for (const Flavour flavour : {VISIBLE, THERMAL})
    for (VornCameraMode mode : {recording_mode (3840, 2160, 30000, 1001),
                                recording_mode (1440, 1080, 9, 1), photo_mode (0, 0, 0)})
      for (const guint32 type : {2u, 3u, G_MAXUINT32}) {
        mode.type = type;
        const VornCapabilitySet caps = caps_of (flavour);
        guint32 available = 77;
        EXPECT_FALSE (vorn_morvik_zelto_front_modes_check_mode (&mode, &caps));
        EXPECT_FALSE (
            vorn_morvik_zelto_front_modes_get_hdr_availability (&mode, &caps, &available));
        EXPECT_EQ (available, 77u);
      }
}

TEST (CheckMode, NothingInEmptyTables)
{
  const VornCapabilitySet caps = {};
  for (const auto &row : mode_rows) {
    guint32 available = 77;
    EXPECT_FALSE (vorn_morvik_zelto_front_modes_check_mode (&row.mode, &caps));
    EXPECT_FALSE (
        vorn_morvik_zelto_front_modes_get_hdr_availability (&row.mode, &caps, &available));
    EXPECT_EQ (available, 77u);
  }
}

// ---- Exposure

TEST (ExposureCapabilities, RecordingIsBoundByTheFramePeriod)
{
  const struct {
    VornFramerate framerate;
    gdouble time_max;
    gdouble auto_limit;
  } rows[] = {
      {{24000, 1001}, 1001.0 / 24000.0, 1001.0 / 24000.0},
      {{30000, 1001}, 1001.0 / 30000.0, 1001.0 / 30000.0},
      {{25, 1}, 0.04, 0.04},
      {{60000, 1001}, 1001.0 / 60000.0, 1001.0 / 60000.0},
      {{120, 1}, 1.0 / 120.0, 1.0 / 120.0},
      {{9, 1}, 1.0 / 9.0, 1.0 / 9.0},
      // A frame of a second or more does not extend the limits.
      {{1, 1}, 1.0, 0.01},
      {{1, 2}, 1.0, 0.01},
      {{1001, 1000}, 1000.0 / 1001.0, 1000.0 / 1001.0},
      // No rate at all: nothing to bind by.
      {{0, 1}, 1.0, 0.01},
      {{0, 0}, 1.0, 0.01},
      {{30, 0}, 1.0, 0.01},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE (std::to_string (row.framerate.num) + "/" + std::to_string (row.framerate.den));
    const auto mode = recording_mode (3840, 2160, row.framerate.num, row.framerate.den);
    VornExposureCapabilities capabilities;
    memset (&capabilities, 0xff, sizeof capabilities);
    EXPECT_TRUE (vorn_morvik_zelto_front_modes_get_exposure_capabilities (&mode, &capabilities));
    EXPECT_EQ (capabilities.exposure_time_max, row.time_max);
    EXPECT_EQ (capabilities.auto_exposure_time_limit, row.auto_limit);
    // All else is the visible camera's.
    VornExposureCapabilities expected = caps_of (VISIBLE).camera->exposure;
    expected.exposure_time_max = row.time_max;
    expected.auto_exposure_time_limit = row.auto_limit;
    EXPECT_EQ (memcmp (&capabilities, &expected, sizeof expected), 0);
  }
}

TEST (ExposureCapabilities, PhotoKeepsTheWholeRecord)
{
  auto mode = photo_mode (0, 0, 0);
  for (const guint32 type : {1u, 2u}) {
    mode.type = type;
    VornExposureCapabilities capabilities;
    memset (&capabilities, 0xff, sizeof capabilities);
    EXPECT_TRUE (vorn_morvik_zelto_front_modes_get_exposure_capabilities (&mode, &capabilities));
    EXPECT_EQ (words_of (&capabilities, 12),
               (std::vector<guint32>{63, 1, 1, 1, 2, 100, 3200, 0, 0, 0, 0, 100}));
    expect_exposure_doubles (&capabilities, -3.0, 3.0);
  }
}

} // namespace
