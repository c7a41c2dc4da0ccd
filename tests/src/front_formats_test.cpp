// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What follows from a mode: picture formats, view capabilities, encoder presets.
#include "vorn_morvik_zelto_front_modes.hpp"

#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "front_modes_support.hpp"

namespace
{

// ---- Camera format

constexpr guint32 untouched = 0xabcdabcd;
constexpr VornFormat untouched_format = {{untouched, untouched}, {untouched, untouched}, untouched};

struct CameraFormat {
  bool found = false;
  VornFormat sensor = untouched_format;
  VornFormat stream = untouched_format;
  VornFormat capture = untouched_format;
  VornFormat crop = untouched_format;
  guint32 hdr_state = untouched;
  guint32 hdr_available = untouched;
};

CameraFormat camera_format (const VornCapabilitySet &caps, const VornCameraMode &mode,
                            guint32 hdr_state)
{
  CameraFormat result;
  result.hdr_state = hdr_state;
  result.found = vorn_morvik_zelto_front_modes_get_camera_format (
                     &caps, &mode, &result.sensor, &result.stream, &result.capture, &result.crop,
                     &result.hdr_state, &result.hdr_available) != FALSE;
  return result;
}

struct RecordingFormatRow {
  Flavour flavour;
  VornCameraMode mode;
  VornResolution sensor;
  guint32 hdr_available;
};

const std::vector<RecordingFormatRow> recording_formats = {
    {VISIBLE, recording_mode (4096, 2160, 24000, 1001), {5344, 3200}, 1},
    {VISIBLE, recording_mode (3840, 2160, 30000, 1001), {5344, 3200}, 1},
    {VISIBLE, recording_mode (3840, 2160, 25, 1), {5344, 3200}, 1},
    {VISIBLE, recording_mode (2688, 1512, 24000, 1001), {5344, 3200}, 1},
    {VISIBLE, recording_mode (1920, 1080, 30000, 1001, 1), {5344, 3200}, 1},
    {VISIBLE, recording_mode (1920, 1080, 60000, 1001, 2), {2656, 1600}, 0},
    {VISIBLE, recording_mode (1280, 720, 50, 1, 3), {2656, 1600}, 0},
    {VISIBLE, recording_mode (1280, 720, 48000, 1001, 2), {2656, 1600}, 0},
    {VISIBLE, recording_mode (1280, 720, 120, 1, 2), {1312, 788}, 0},
    {THERMAL, recording_mode (1440, 1080, 9, 1), {5344, 4016}, 0},
};

TEST (CameraFormat, Recording)
{
  for (const auto &row : recording_formats)
    for (const guint32 hdr : {0u, 1u}) {
      SCOPED_TRACE ("row " + std::to_string (&row - recording_formats.data ()) + ", HDR " +
                    std::to_string (hdr));
      VornCameraMode mode = row.mode;
      mode.flag = 12345;
      const CameraFormat format = camera_format (caps_of (row.flavour), mode, hdr);
      EXPECT_TRUE (format.found);
      const VornFormat sensor = {row.sensor, mode.recording.framerate, 0};
      EXPECT_EQ (format.sensor, sensor);
      EXPECT_EQ (format.capture, sensor);
      EXPECT_EQ (format.crop, sensor);
      EXPECT_EQ (format.stream,
                 (VornFormat{mode.recording.resolution, mode.recording.framerate, 12345}));
      EXPECT_EQ (format.hdr_available, row.hdr_available);
      // On where it was on and can be.
      EXPECT_EQ (format.hdr_state, hdr & row.hdr_available);
    }
}

TEST (CameraFormat, RecordingRateThatTheSensorLacks)
{
  // In the entry's range, but not in its sensor's list.
  const VornCameraMode modes[] = {recording_mode (3840, 2160, 29, 1),
                                  recording_mode (3840, 2160, 24, 1),
                                  recording_mode (1920, 1080, 55, 1, 2)};
  const VornCapabilitySet caps = caps_of (VISIBLE);
  for (const auto &mode : modes) {
    SCOPED_TRACE (mode.recording.framerate.num);
    ASSERT_TRUE (vorn_morvik_zelto_front_modes_check_mode (&mode, &caps));
    const CameraFormat format = camera_format (caps, mode, 1);
    EXPECT_FALSE (format.found);
    // The HDR word was written before the rate was found wanting; nothing else was.
    EXPECT_EQ (format.hdr_available, mode.recording.sub_mode == 2 ? 0u : 1u);
    EXPECT_EQ (format.hdr_state, 1u);
    for (const VornFormat &out : {format.sensor, format.stream, format.capture, format.crop})
      EXPECT_EQ (out, untouched_format);
  }
}

TEST (CameraFormat, EqualRateInOtherWordsIsHandedThrough)
{
  const CameraFormat format =
      camera_format (caps_of (VISIBLE), recording_mode (3840, 2160, 60000, 2002), 0);
  EXPECT_TRUE (format.found);
  EXPECT_EQ (format.sensor, (VornFormat{{5344, 3200}, {60000, 2002}, 0}));
}

struct PhotoFormatRow {
  Flavour flavour;
  VornCameraMode mode;
  guint32 hdr_available;
  VornResolution crop;
};

const std::vector<PhotoFormatRow> photo_formats = {
    {VISIBLE, photo_mode (0, 0, 2), 1, {5344, 4016}},
    {VISIBLE, photo_mode (0, 0, 0), 1, {5344, 4016}},
    {VISIBLE, photo_mode (2, 0, 0), 1, {5344, 4016}},
    {VISIBLE, photo_mode (0, 1, 0), 1, {4608, 3456}},
    {VISIBLE, photo_mode (2, 1, 0), 1, {4608, 3456}},
    {VISIBLE, photo_mode (1, 0, 2), 0, {5344, 4016}},
    {VISIBLE, photo_mode (1, 0, 0), 0, {5344, 4016}},
    {VISIBLE, photo_mode (1, 1, 0), 0, {4608, 3456}},
    {THERMAL, photo_mode (0, 0, 0), 0, {5344, 4016}},
    {THERMAL, photo_mode (0, 0, 2), 0, {5344, 4016}},
};

TEST (CameraFormat, Photo)
{
  for (const auto &row : photo_formats)
    for (const guint32 hdr : {0u, 1u}) {
      SCOPED_TRACE ("row " + std::to_string (&row - photo_formats.data ()) + ", HDR " +
                    std::to_string (hdr));
      const CameraFormat format = camera_format (caps_of (row.flavour), row.mode, hdr);
      EXPECT_TRUE (format.found);
      const VornFramerate preview =
          hdr && row.hdr_available ? VornFramerate{24, 1} : VornFramerate{30000, 1001};
      EXPECT_EQ (format.sensor, (VornFormat{{2656, 2008}, preview, 0}));
      EXPECT_EQ (format.stream, (VornFormat{{1312, 984}, preview, 0}));
      EXPECT_EQ (format.capture, (VornFormat{{5344, 4016}, {24, 1}, 0}));
      EXPECT_EQ (format.crop, (VornFormat{row.crop, {24, 1}, 0}));
      EXPECT_EQ (format.hdr_available, row.hdr_available);
      EXPECT_EQ (format.hdr_state, hdr & row.hdr_available);
    }
}

TEST (CameraFormat, PhotoWithHdrTakesItsHalfOfThePair)
{
  // Two halves that differ in everything tell which one was taken.
  const VornFramerate normal_rate[] = {{30000, 1001}};
  const VornFramerate hdr_rate[] = {{24, 1}};
  const VornCameraConfiguration pair[] = {
      {.sensor_resolution = {11, 12},
       .preview_resolution = {13, 14},
       .framerates = {.list = normal_rate, .count = 1},
       .capture = {{15, 16}, {17, 1}, 18},
       .crop_resolution = {19, 20}},
      {.sensor_resolution = {21, 22},
       .preview_resolution = {23, 24},
       .framerates = {.list = hdr_rate, .count = 1},
       .capture = {{25, 26}, {27, 1}, 28},
       .crop_resolution = {29, 30}},
  };
  const VornPhotoCapability entry = {1, 0, 1, 0, 1, 1, pair};
  const VornCapabilitySet caps = {.photo = &entry, .photo_count = 1};

  const CameraFormat normal = camera_format (caps, photo_mode (0, 0, 0), 0);
  EXPECT_EQ (normal.sensor, (VornFormat{{11, 12}, {30000, 1001}, 0}));
  EXPECT_EQ (normal.stream, (VornFormat{{13, 14}, {30000, 1001}, 0}));
  EXPECT_EQ (normal.capture, (VornFormat{{15, 16}, {17, 1}, 18}));
  EXPECT_EQ (normal.crop.resolution, (VornResolution{19, 20}));

  const CameraFormat hdr = camera_format (caps, photo_mode (0, 0, 0), 1);
  EXPECT_EQ (hdr.sensor, (VornFormat{{21, 22}, {24, 1}, 0}));
  EXPECT_EQ (hdr.stream, (VornFormat{{23, 24}, {24, 1}, 0}));
  EXPECT_EQ (hdr.capture, (VornFormat{{25, 26}, {27, 1}, 28}));
  EXPECT_EQ (hdr.crop.resolution, (VornResolution{29, 30}));
}

TEST (CameraFormat, PhotoRateThatTheConfigurationLacks)
{
  const VornFramerate other_rate[] = {{15, 1}};
  const VornCameraConfiguration pair[] = {{.framerates = {.list = other_rate, .count = 1}},
                                          {.framerates = {.list = other_rate, .count = 1}}};
  const VornPhotoCapability entry = {1, 0, 1, 0, 1, 1, pair};
  const VornCapabilitySet caps = {.photo = &entry, .photo_count = 1};
  for (const guint32 hdr : {0u, 1u}) {
    const CameraFormat format = camera_format (caps, photo_mode (0, 0, 0), hdr);
    EXPECT_FALSE (format.found);
    EXPECT_EQ (format.hdr_available, 1u);
    EXPECT_EQ (format.hdr_state, hdr);
    EXPECT_EQ (format.sensor, untouched_format);
    EXPECT_EQ (format.crop, untouched_format);
  }
}

void expect_no_format (const CameraFormat &format)
{
  EXPECT_FALSE (format.found);
  EXPECT_EQ (format.hdr_state, 1u);
  EXPECT_EQ (format.hdr_available, untouched);
  for (const VornFormat &out : {format.sensor, format.stream, format.capture, format.crop})
    EXPECT_EQ (out, untouched_format);
}

TEST (CameraFormat, NothingForAModeThatIsNotThere)
{
  const VornCameraMode modes[] = {recording_mode (4096, 2160, 25, 1),
                                  recording_mode (640, 480, 30000, 1001),
                                  recording_mode (3840, 2160, 0, 1),
                                  recording_mode (3840, 2160, 30, 0),
                                  photo_mode (3, 0, 0),
                                  photo_mode (0, 0, 1)};
  for (const Flavour flavour : {VISIBLE, THERMAL})
    for (const auto &mode : modes)
      expect_no_format (camera_format (caps_of (flavour), mode, 1));
  for (VornCameraMode mode : {recording_mode (3840, 2160, 30000, 1001), photo_mode (0, 0, 0)}) {
    expect_no_format (camera_format ({}, mode, 1));
    mode.type = 2;
    expect_no_format (camera_format (caps_of (VISIBLE), mode, 1));
  }
}

TEST (CameraFormat, EveryOutMayBeNull)
{
  const VornCapabilitySet caps = caps_of (VISIBLE);
  const VornCameraMode modes[] = {recording_mode (3840, 2160, 30000, 1001),
                                  recording_mode (1280, 720, 120, 1, 2), photo_mode (0, 0, 0),
                                  photo_mode (1, 0, 0)};
  for (const auto &mode : modes) {
    const CameraFormat all = camera_format (caps, mode, 1);
    EXPECT_TRUE (vorn_morvik_zelto_front_modes_get_camera_format (
        &caps, &mode, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr));
    // Each out alone gives what it gives together, but for what HDR changes.
    VornFormat formats[4] = {untouched_format, untouched_format, untouched_format,
                             untouched_format};
    for (int i = 0; i < 4; i++) {
      guint32 hdr = 1;
      EXPECT_TRUE (vorn_morvik_zelto_front_modes_get_camera_format (
          &caps, &mode, i == 0 ? &formats[0] : nullptr, i == 1 ? &formats[1] : nullptr,
          i == 2 ? &formats[2] : nullptr, i == 3 ? &formats[3] : nullptr, &hdr, nullptr));
    }
    EXPECT_EQ (formats[0], all.sensor);
    EXPECT_EQ (formats[1], all.stream);
    EXPECT_EQ (formats[2], all.capture);
    EXPECT_EQ (formats[3], all.crop);
    guint32 available = untouched;
    EXPECT_TRUE (vorn_morvik_zelto_front_modes_get_camera_format (
        &caps, &mode, nullptr, nullptr, nullptr, nullptr, nullptr, &available));
    EXPECT_EQ (available, all.hdr_available);
  }
}

TEST (CameraFormat, PhotoWithoutHdrStateRunsWithoutHdr)
{
  const VornCapabilitySet caps = caps_of (VISIBLE);
  const auto mode = photo_mode (0, 0, 0);
  VornFormat stream = untouched_format;
  EXPECT_TRUE (vorn_morvik_zelto_front_modes_get_camera_format (
      &caps, &mode, nullptr, &stream, nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ (stream, (VornFormat{{1312, 984}, {30000, 1001}, 0}));
}

// ---- View capabilities

VornViewCapabilities view_capabilities (Flavour tables, const VornCameraMode &mode, guint32 hdr,
                                        Flavour flavour, bool expected)
{
  const VornCapabilitySet caps = caps_of (tables);
  VornViewCapabilities capabilities;
  memset (&capabilities, 0xff, sizeof capabilities);
  EXPECT_EQ (vorn_morvik_zelto_front_modes_get_view_capabilities (
                 &mode, &capabilities, &caps, static_cast<gboolean> (hdr), flavour) != FALSE,
             expected);
  return capabilities;
}

struct RecordingViewRow {
  Flavour flavour;
  VornCameraMode mode;
  VornResolution min, max, default_resolution; // of recordings
  VornFramerate min_rate;                      // of recordings
  VornFramerate stream_rate;
};

TEST (ViewCapabilities, Recording)
{
  const RecordingViewRow rows[] = {
      {VISIBLE,
       recording_mode (4096, 2160, 24000, 1001),
       {4096, 2160},
       {4096, 2160},
       {4096, 2160},
       {24000, 1001},
       {24000, 1001}},
      {VISIBLE,
       recording_mode (3840, 2160, 30000, 1001),
       {1920, 1080},
       {3840, 2160},
       {3840, 2160},
       {24000, 1001},
       {30000, 1001}},
      {VISIBLE,
       recording_mode (1920, 1080, 25, 1),
       {1920, 1080},
       {3840, 2160},
       {3840, 2160},
       {24000, 1001},
       {25, 1}},
      {VISIBLE,
       recording_mode (1920, 1080, 60000, 1001, 2),
       {1280, 720},
       {1920, 1080},
       {1920, 1080},
       {48000, 1001},
       {60000, 2002}},
      {VISIBLE,
       recording_mode (1280, 720, 50, 1, 3),
       {1280, 720},
       {1920, 1080},
       {1920, 1080},
       {48000, 1001},
       {50, 2}},
      {VISIBLE,
       recording_mode (1280, 720, 48000, 1001, 2),
       {1280, 720},
       {1920, 1080},
       {1920, 1080},
       {48000, 1001},
       {48000, 2002}},
      {VISIBLE,
       recording_mode (1280, 720, 120, 1, 2),
       {1280, 720},
       {1280, 720},
       {1280, 720},
       {120, 1},
       {120, 4}},
      {THERMAL,
       recording_mode (1440, 1080, 9, 1),
       {1440, 1080},
       {1440, 1080},
       {1440, 1080},
       {9, 1},
       {9, 1}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE ("row " + std::to_string (&row - rows));
    const auto view = view_capabilities (row.flavour, row.mode, 0, row.flavour, true);
    EXPECT_EQ (view.feature_mask, 51u);
    EXPECT_EQ (view.recording_resolutions.min, row.min);
    EXPECT_EQ (view.recording_resolutions.max, row.max);
    EXPECT_EQ (view.recording_resolutions.list, nullptr);
    EXPECT_EQ (view.recording_resolutions.count, 0u);
    EXPECT_EQ (view.default_recording_resolution, row.default_resolution);
    EXPECT_EQ (view.recording_framerates.min, row.min_rate);
    // The mode's own rate is the highest and the one to start with.
    EXPECT_EQ (view.recording_framerates.max, row.mode.recording.framerate);
    EXPECT_EQ (view.recording_framerates.list, nullptr);
    EXPECT_EQ (view.recording_framerates.count, 0u);
    EXPECT_EQ (view.default_recording_framerate, row.mode.recording.framerate);
    const bool thermal = row.flavour == THERMAL;
    const VornResolution largest = thermal ? VornResolution{960, 720} : VornResolution{1280, 720};
    EXPECT_EQ (view.streaming_resolutions.min, (VornResolution{64, 64}));
    EXPECT_EQ (view.streaming_resolutions.max, largest);
    EXPECT_EQ (view.streaming_resolutions.list, nullptr);
    EXPECT_EQ (view.streaming_resolutions.count, 0u);
    EXPECT_EQ (view.default_streaming_resolution, largest);
    EXPECT_EQ (view.streaming_framerates.min,
               (thermal ? VornFramerate{9, 1} : VornFramerate{1, 1}));
    EXPECT_EQ (view.streaming_framerates.max, row.stream_rate);
    EXPECT_EQ (view.streaming_framerates.list, nullptr);
    EXPECT_EQ (view.streaming_framerates.count, 0u);
    EXPECT_EQ (view.default_streaming_framerate, row.stream_rate);
    EXPECT_EQ (view.photo_format_mask, 0u);
    EXPECT_EQ (view.reserved, 0u);
    EXPECT_EQ (view.photo_file_format_mask, 0u);
  }
}

TEST (ViewCapabilities, ThermalLimitsTheStreamByItself)
{
  // The flag alone, with the visible camera's tables: how far rates are reduced.
  const struct {
    VornCameraMode mode;
    VornFramerate stream_rate;
  } rows[] = {
      {recording_mode (4096, 2160, 24000, 1001), {24000, 4004}},
      {recording_mode (3840, 2160, 30000, 1001), {30000, 4004}},
      {recording_mode (3840, 2160, 25, 1), {25, 4}},
      {recording_mode (1920, 1080, 60000, 1001, 2), {60000, 8008}},
      {recording_mode (1280, 720, 120, 1, 2), {120, 16}},
  };
  for (const auto &row : rows) {
    const auto view = view_capabilities (VISIBLE, row.mode, 0, THERMAL, true);
    EXPECT_EQ (view.streaming_framerates.max, row.stream_rate);
    EXPECT_EQ (view.default_streaming_framerate, row.stream_rate);
    EXPECT_EQ (view.streaming_framerates.min, (VornFramerate{9, 1}));
    EXPECT_EQ (view.default_streaming_resolution, (VornResolution{960, 720}));
  }
}

TEST (ViewCapabilities, RatesAtTheEdgesOfTheReduction)
{
  // Entries of the test's own admit any rate.
  const VornRecordingCapability entry = {
      .sub_mode_mask = 1,
      .resolutions = {.min = {1, 1}, .max = {9999, 9999}},
      .framerates = {.min = {1, G_MAXUINT32}, .max = {G_MAXUINT32, 1}}};
  const VornCapabilitySet caps = {.recording = &entry, .recording_count = 1};
  const struct {
    VornFramerate rate;
    gboolean thermal;
    VornFramerate reduced;
  } rows[] = {
      {{30, 1}, FALSE, {30, 1}},
      {{31, 1}, FALSE, {31, 2}},
      {{60, 1}, FALSE, {60, 2}},
      {{61, 1}, FALSE, {61, 4}},
      {{30001, 1000}, FALSE, {30001, 2000}},
      {{1, 1}, FALSE, {1, 1}},
      {{9, 1}, TRUE, {9, 1}},
      {{10, 1}, TRUE, {10, 2}},
      {{18, 1}, TRUE, {18, 2}},
      {{19, 1}, TRUE, {19, 4}},
      // The largest words there are: it ends, and nothing wraps.
      {{G_MAXUINT32, 1}, FALSE, {G_MAXUINT32, 1u << 28}},
      {{G_MAXUINT32, 1}, TRUE, {G_MAXUINT32, 1u << 29}},
      {{G_MAXUINT32, G_MAXUINT32}, FALSE, {G_MAXUINT32, G_MAXUINT32}},
  };
  for (const auto &row : rows) {
    const auto mode = recording_mode (640, 480, row.rate.num, row.rate.den);
    VornViewCapabilities view;
    EXPECT_TRUE (vorn_morvik_zelto_front_modes_get_view_capabilities (&mode, &view, &caps, FALSE,
                                                                      row.thermal));
    EXPECT_EQ (view.streaming_framerates.max, row.reduced);
    EXPECT_EQ (view.default_streaming_framerate, row.reduced);
  }
}

TEST (ViewCapabilities, Photo)
{
  const struct {
    Flavour flavour;
    VornCameraMode mode;
    guint32 formats, file_formats;
  } rows[] = {
      {VISIBLE, photo_mode (0, 0, 2), 1, 4}, {VISIBLE, photo_mode (0, 0, 0), 1, 1},
      {VISIBLE, photo_mode (2, 1, 0), 2, 1}, {VISIBLE, photo_mode (1, 0, 2), 1, 4},
      {VISIBLE, photo_mode (1, 0, 0), 1, 1}, {VISIBLE, photo_mode (1, 1, 0), 2, 1},
      {THERMAL, photo_mode (0, 0, 0), 1, 5},
  };
  for (const auto &row : rows)
    for (const guint32 hdr : {0u, 1u}) {
      SCOPED_TRACE ("row " + std::to_string (&row - rows) + ", HDR " + std::to_string (hdr));
      const auto view = view_capabilities (row.flavour, row.mode, hdr, row.flavour, true);
      // Nothing about recordings; a stream in the preview's rate.
      VornViewCapabilities expected = {};
      expected.feature_mask = 5;
      expected.streaming_resolutions.min = {64, 64};
      expected.streaming_resolutions.max = {1024, 768};
      expected.default_streaming_resolution = {1024, 768};
      expected.streaming_framerates.min = {1, 1};
      expected.streaming_framerates.max = hdr ? VornFramerate{24, 1} : VornFramerate{30000, 1001};
      expected.default_streaming_framerate = expected.streaming_framerates.max;
      expected.photo_format_mask = row.formats;
      expected.photo_file_format_mask = row.file_formats;
      EXPECT_EQ (memcmp (&view, &expected, sizeof view), 0);
    }
}

/** All zero but for the features, which are written before the entry is looked for. */
void expect_only_features (const VornViewCapabilities &view, guint32 features)
{
  VornViewCapabilities expected = {};
  expected.feature_mask = features;
  EXPECT_EQ (memcmp (&view, &expected, sizeof view), 0);
}

TEST (ViewCapabilities, NothingForAModeThatIsNotThere)
{
  expect_only_features (
      view_capabilities (VISIBLE, recording_mode (4096, 2160, 25, 1), 0, VISIBLE, false), 51);
  expect_only_features (
      view_capabilities (VISIBLE, recording_mode (3840, 2160, 30, 0), 0, VISIBLE, false), 51);
  expect_only_features (
      view_capabilities (THERMAL, recording_mode (3840, 2160, 30000, 1001), 0, THERMAL, false), 51);
  expect_only_features (view_capabilities (VISIBLE, photo_mode (3, 0, 0), 1, VISIBLE, false), 5);
  expect_only_features (view_capabilities (THERMAL, photo_mode (1, 0, 0), 1, THERMAL, false), 5);
  for (VornCameraMode mode : {recording_mode (3840, 2160, 30000, 1001), photo_mode (0, 0, 0)}) {
    mode.type = 2;
    expect_only_features (view_capabilities (VISIBLE, mode, 0, VISIBLE, false), 0);
    expect_only_features (view_capabilities (THERMAL, mode, 1, THERMAL, false), 0);
  }
}

TEST (ViewCapabilities, NothingInEmptyTables)
{
  const VornCapabilitySet caps = {};
  for (const auto &mode : {recording_mode (3840, 2160, 30000, 1001), photo_mode (0, 0, 0)}) {
    VornViewCapabilities view;
    memset (&view, 0xff, sizeof view);
    EXPECT_FALSE (
        vorn_morvik_zelto_front_modes_get_view_capabilities (&mode, &view, &caps, FALSE, FALSE));
    expect_only_features (view, mode.type == VORN_CAMERA_MODE_RECORDING ? 51 : 5);
  }
}

// ---- Presets

struct PresetRow {
  VornResolution resolution;
  VornFramerate min, max;
  const char *name;
};

const std::vector<PresetRow> streaming_presets = {
    {{1920, 1080}, {24000, 1001}, {30, 1}, "ZeltoStreaming1080p"},
    {{1280, 720}, {24000, 1001}, {30, 1}, "ZeltoStreaming720p"},
    {{960, 720}, {9, 1}, {9, 1}, "ZeltoStreamingThermal720p"},
    {{856, 480}, {24000, 1001}, {30, 1}, "ZeltoStreaming480p"},
    {{640, 360}, {24000, 1001}, {30, 1}, "ZeltoStreaming360p"},
    {{1024, 768}, {24000, 1001}, {30, 1}, "ZeltoStreamingXGA"},
    {{640, 480}, {24000, 1001}, {30, 1}, "ZeltoStreamingVGA"},
};

const std::vector<PresetRow> recording_presets = {
    {{4096, 2160}, {24000, 1001}, {24, 1}, "ZeltoRecordingDCI4K"},
    {{3840, 2160}, {24000, 1001}, {30, 1}, "ZeltoRecording2160p"},
    {{2688, 1512}, {24000, 1001}, {30, 1}, "ZeltoRecording2_7K"},
    {{1920, 1080}, {24000, 1001}, {30, 1}, "ZeltoRecording1080p"},
    {{1920, 1080}, {48000, 1001}, {60, 1}, "ZeltoRecording1080pHFRx2"},
    {{1280, 720}, {24000, 1001}, {30, 1}, "ZeltoRecording720p"},
    {{1280, 720}, {48000, 1001}, {60, 1}, "ZeltoRecording720pHFRx2"},
    {{1280, 720}, {96000, 1001}, {120, 1}, "ZeltoRecording720pHFRx4"},
    {{1440, 1080}, {9, 1}, {9, 1}, "ZeltoRecordingThermal1080p9"},
};

using Lookup = const gchar *(*)(const VornFormat *format);

void expect_presets (Lookup lookup, const std::vector<PresetRow> &rows)
{
  for (const auto &row : rows) {
    SCOPED_TRACE (row.name);
    const auto name_of = [&] (VornResolution resolution, VornFramerate rate) {
      const VornFormat format = {resolution, rate, 0};
      return lookup (&format);
    };
    EXPECT_STREQ (name_of (row.resolution, row.min), row.name);
    EXPECT_STREQ (name_of (row.resolution, row.max), row.name);
    // The mean of both ends, as a fraction, lies within.
    const VornFramerate middle = {row.min.num * row.max.den + row.max.num * row.min.den,
                                  2 * row.min.den * row.max.den};
    EXPECT_STREQ (name_of (row.resolution, middle), row.name);
    // A thousandth beyond each end is another preset's or nobody's.
    EXPECT_STRNE (name_of (row.resolution, {row.min.num * 999, row.min.den * 1000}), row.name);
    EXPECT_STRNE (name_of (row.resolution, {row.max.num * 1001, row.max.den * 1000}), row.name);
    EXPECT_STRNE (name_of ({row.resolution.width + 1, row.resolution.height}, row.min), row.name);
    EXPECT_STRNE (name_of ({row.resolution.width, row.resolution.height + 1}, row.min), row.name);
    EXPECT_EQ (name_of (row.resolution, {0, row.min.den}), nullptr);
    EXPECT_EQ (name_of (row.resolution, {row.min.num, 0}), nullptr);
  }
  EXPECT_EQ (lookup (nullptr), nullptr);
}

TEST (Presets, Streaming)
{
  expect_presets (vorn_morvik_zelto_front_modes_get_streaming_preset, streaming_presets);
}

TEST (Presets, Recording)
{
  expect_presets (vorn_morvik_zelto_front_modes_get_recording_preset, recording_presets);
}

TEST (Presets, Between)
{
  const struct {
    Lookup lookup;
    VornFormat format;
    const char *name;
  } rows[] = {
      {vorn_morvik_zelto_front_modes_get_recording_preset,
       {{1920, 1080}, {25, 1}},
       "ZeltoRecording1080p"},
      {vorn_morvik_zelto_front_modes_get_recording_preset,
       {{1920, 1080}, {50, 1}},
       "ZeltoRecording1080pHFRx2"},
      {vorn_morvik_zelto_front_modes_get_recording_preset, {{1920, 1080}, {40, 1}}, nullptr},
      {vorn_morvik_zelto_front_modes_get_recording_preset, {{1280, 720}, {80, 1}}, nullptr},
      {vorn_morvik_zelto_front_modes_get_recording_preset,
       {{1280, 720}, {120, 1}},
       "ZeltoRecording720pHFRx4"},
      {vorn_morvik_zelto_front_modes_get_recording_preset, {{4096, 2160}, {25, 1}}, nullptr},
      {vorn_morvik_zelto_front_modes_get_recording_preset,
       {{1440, 1080}, {9, 1}},
       "ZeltoRecordingThermal1080p9"},
      {vorn_morvik_zelto_front_modes_get_recording_preset, {{1440, 1080}, {30, 1}}, nullptr},
      {vorn_morvik_zelto_front_modes_get_recording_preset, {{960, 720}, {9, 1}}, nullptr},
      {vorn_morvik_zelto_front_modes_get_streaming_preset,
       {{960, 720}, {9, 1}},
       "ZeltoStreamingThermal720p"},
      {vorn_morvik_zelto_front_modes_get_streaming_preset, {{960, 720}, {10, 1}}, nullptr},
      {vorn_morvik_zelto_front_modes_get_streaming_preset, {{1280, 720}, {50, 1}}, nullptr},
      {vorn_morvik_zelto_front_modes_get_streaming_preset,
       {{1280, 720}, {60000, 2002}},
       "ZeltoStreaming720p"},
      {vorn_morvik_zelto_front_modes_get_streaming_preset, {{3840, 2160}, {30, 1}}, nullptr},
  };
  for (const auto &row : rows)
    EXPECT_STREQ (row.lookup (&row.format), row.name) << row.format;
}

} // namespace
