// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Camera modes in writing.
#include "mode_argument.hpp"

#include <cstring>

#include <gtest/gtest.h>

namespace
{

TEST (ModeArgument, Recordings)
{
  const struct {
    std::string text;
    guint32 width, height, num, den, sub_mode;
    std::string back;
  } rows[] = {
      {"recording 1920x1080@30000/1001", 1920, 1080, 30000, 1001, 0,
       "recording 1920x1080@30000/1001 standard"},
      {"recording 1280x720@30", 1280, 720, 30, 1, 0, "recording 1280x720@30/1 standard"},
      {"  recording   1280x720@30/1   hyperlapse ", 1280, 720, 30, 1,
       VORN_RECORDING_MODE_HYPERLAPSE, "recording 1280x720@30/1 hyperlapse"},
      {"recording 1280x720@120 slow-motion", 1280, 720, 120, 1, VORN_RECORDING_MODE_SLOW_MOTION,
       "recording 1280x720@120/1 slow-motion"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE (row.text);
    VornCameraMode mode;
    std::string error;
    ASSERT_TRUE (parse_camera_mode (row.text, &mode, &error)) << error;
    EXPECT_EQ (mode.type, guint32{VORN_CAMERA_MODE_RECORDING});
    EXPECT_EQ (mode.recording.resolution.width, row.width);
    EXPECT_EQ (mode.recording.resolution.height, row.height);
    EXPECT_EQ (mode.recording.framerate.num, row.num);
    EXPECT_EQ (mode.recording.framerate.den, row.den);
    EXPECT_EQ (mode.recording.sub_mode, row.sub_mode);
    EXPECT_EQ (camera_mode_argument (mode), row.back);
    VornCameraMode again;
    ASSERT_TRUE (parse_camera_mode (row.back, &again, &error)) << error;
    EXPECT_EQ (memcmp (&mode, &again, sizeof mode), 0);
  }
}

TEST (ModeArgument, Photos)
{
  const struct {
    std::string text;
    guint32 photo_mode, format, file_format, count;
    std::string back;
  } rows[] = {
      {"photo single", VORN_PHOTO_MODE_SINGLE, 0, 0, 1, "photo single wide jpeg 1"},
      {"photo burst 3", VORN_PHOTO_MODE_BURST, 0, 0, 3, "photo burst wide jpeg 3"},
      {"photo bracketing rectilinear dng+jpeg 5", VORN_PHOTO_MODE_BRACKETING,
       VORN_PHOTO_FORMAT_RECTILINEAR, VORN_PHOTO_FILE_FORMAT_DNG_JPEG, 5,
       "photo bracketing rectilinear dng+jpeg 5"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE (row.text);
    VornCameraMode mode;
    std::string error;
    ASSERT_TRUE (parse_camera_mode (row.text, &mode, &error)) << error;
    EXPECT_EQ (mode.type, guint32{VORN_CAMERA_MODE_PHOTO});
    EXPECT_EQ (mode.photo.photo_mode, row.photo_mode);
    EXPECT_EQ (mode.photo.format, row.format);
    EXPECT_EQ (mode.photo.file_format, row.file_format);
    EXPECT_EQ (mode.photo.count, row.count);
    EXPECT_EQ (camera_mode_argument (mode), row.back);
  }
}

TEST (ModeArgument, WhatIsNoModeIsExplained)
{
  const std::string recording = "a recording mode is 'recording WIDTHxHEIGHT@RATE [SUB-MODE]', for "
                                "example 'recording 1920x1080@30000/1001'";
  const std::string photo = "is no photo format (wide, rectilinear), no file format (jpeg, dng, "
                            "dng+jpeg) and no count";
  const struct {
    std::string text;
    std::string error;
  } rows[] = {
      {"", "a camera mode begins with 'recording' or 'photo'"},
      {"film", "a camera mode begins with 'recording' or 'photo'"},
      {"recording", recording},
      {"recording 1920x1080", recording},
      {"recording 1920x1080@", recording},
      {"recording 1920x1080@30/", recording},
      {"recording 1920x1080@30/0", recording},
      {"recording 0x1080@30", recording},
      {"recording -1x1080@30", recording},
      {"recording 1920*1080@30", recording},
      {"recording 99999999999x1080@30", recording},
      {"recording 1920x1080@30/1/1", recording},
      {"recording 1920x1080@30 standard more", recording},
      {"recording 1920x1080@30 fast",
       "there is no recording sub-mode 'fast': standard, hyperlapse, slow-motion, high-framerate"},
      {"photo", "a photo mode is 'photo MODE [FORMAT] [FILE-FORMAT] [COUNT]', for example 'photo "
                "burst 3'"},
      {"photo many", "there is no photo mode 'many': single, bracketing, burst"},
      {"photo single square", "'square' " + photo},
      {"photo single 0", "'0' " + photo},
      {"photo single 3x", "'3x' " + photo},
  };
  for (const auto &row : rows) {
    VornCameraMode mode;
    std::string error;
    EXPECT_FALSE (parse_camera_mode (row.text, &mode, &error)) << row.text;
    EXPECT_EQ (error, row.error) << row.text;
  }
}

TEST (ModeArgument, Groupings)
{
  guint32 grouping = 9;
  std::string error;
  EXPECT_TRUE (parse_photo_grouping ("panorama", &grouping, &error));
  EXPECT_EQ (grouping, guint32{VORN_PHOTO_GROUPING_PANORAMA});
  EXPECT_FALSE (parse_photo_grouping ("heap", &grouping, &error));
  EXPECT_EQ (error, "there is no group 'heap': single, bracketing, burst, panorama");
}

} // namespace
