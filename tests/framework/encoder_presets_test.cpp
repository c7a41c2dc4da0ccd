// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The presets that are shipped, and those of a user in front of them (GST_PRESET_PATH leads to the
// folder beside this file).
#include <cstdlib>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vorn/framework.h>

#include "encoder_support.hpp"
#include "log_capture.hpp"
#include "vorn_morvik_zelto_front_modes.hpp"

using namespace encoding;
using testing::AllOf;
using testing::Contains;
using testing::Ge;
using testing::Le;

namespace
{

constexpr VornFormat streams[] = {
    {{1920, 1080}, {30, 1}, 0}, {{1280, 720}, {30, 1}, 0}, {{960, 720}, {9, 1}, 0},
    {{856, 480}, {30, 1}, 0},   {{640, 360}, {30, 1}, 0},  {{1024, 768}, {30, 1}, 0},
    {{640, 480}, {30, 1}, 0},
};

constexpr VornFormat recordings[] = {
    {{4096, 2160}, {24, 1}, 0}, {{3840, 2160}, {30, 1}, 0}, {{2688, 1512}, {30, 1}, 0},
    {{1920, 1080}, {30, 1}, 0}, {{1920, 1080}, {60, 1}, 0}, {{1280, 720}, {30, 1}, 0},
    {{1280, 720}, {60, 1}, 0},  {{1280, 720}, {120, 1}, 0}, {{1440, 1080}, {9, 1}, 0},
};

class EncoderPresets : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }

  bool load (const char *name)
  {
    return gst_preset_load_preset (GST_PRESET (encoder_.get ()), name);
  }

  /** The preset belongs to this format: its own picture is this one, at so many bits a pixel. */
  void expect_preset (const char *name, const VornFormat &format, double bits_per_pixel)
  {
    ASSERT_NE (name, nullptr);
    SCOPED_TRACE (name);
    ASSERT_TRUE (load (name));
    EXPECT_EQ (get_uint (encoder_.get (), "preset-width"), format.resolution.width);
    EXPECT_EQ (get_uint (encoder_.get (), "preset-height"), format.resolution.height);
    GValue rate = G_VALUE_INIT;
    g_object_get_property (G_OBJECT (encoder_.get ()), "preset-framerate", &rate);
    EXPECT_EQ (gst_value_get_fraction_numerator (&rate), static_cast<gint> (format.framerate.num));
    EXPECT_EQ (gst_value_get_fraction_denominator (&rate), 1);
    g_value_unset (&rate);
    const double pixels = static_cast<double> (format.resolution.width) * format.resolution.height *
                          format.framerate.num;
    EXPECT_NEAR (1000.0 * get_uint (encoder_.get (), "effective-bitrate") / pixels, bits_per_pixel,
                 bits_per_pixel * 0.05);
    EXPECT_EQ (get_uint (encoder_.get (), "key-frame-interval"), 1000u);
    EXPECT_EQ (get_uint (encoder_.get (), "slices"), 1u);
    EXPECT_EQ (get_uint (encoder_.get (), "bitrate"), 0u);
    gint speed = -1;
    g_object_get (encoder_.get (), "speed", &speed, nullptr);
    EXPECT_THAT (speed,
                 AllOf (Ge (VORN_ENCODER_SPEED_ULTRAFAST), Le (VORN_ENCODER_SPEED_SUPERFAST)));
  }

  vorn::Ref<GstElement> encoder_ = vorn::adopt (vorn_encoder_new ("e"));
};

} // namespace

TEST_F (EncoderPresets, OneForEachFormatOfTheModeTables)
{
  LogCapture log;
  for (const VornFormat &format : streams)
    expect_preset (vorn_morvik_zelto_front_modes_get_streaming_preset (&format), format, 0.1);
  for (const VornFormat &format : recordings)
    expect_preset (vorn_morvik_zelto_front_modes_get_recording_preset (&format), format, 0.2);
  EXPECT_TRUE (log.lines ().empty ());
}

TEST_F (EncoderPresets, AllAreNamed)
{
  const vorn::OwnedStrings list (gst_preset_get_preset_names (GST_PRESET (encoder_.get ())));
  std::vector<std::string> names;
  for (gchar **name = list.get (); *name; name++)
    names.emplace_back (*name);
  for (const VornFormat &format : streams)
    EXPECT_THAT (names, Contains (vorn_morvik_zelto_front_modes_get_streaming_preset (&format)));
  for (const VornFormat &format : recordings)
    EXPECT_THAT (names, Contains (vorn_morvik_zelto_front_modes_get_recording_preset (&format)));
  for (const char *own : {"MyOwn", "Lazy"})
    EXPECT_THAT (names, Contains (own));
  EXPECT_EQ (names.size (), 18u);
}

TEST_F (EncoderPresets, UnknownOnesChangeNothing)
{
  ASSERT_TRUE (load ("ZeltoRecording1080p"));
  for (const char *name : {"Absent", "", "_presets_", "zeltorecording720p"})
    EXPECT_FALSE (load (name)) << name;
  EXPECT_EQ (get_uint (encoder_.get (), "effective-bitrate"), 12500u);
}

TEST_F (EncoderPresets, AUsersOwnComesFirst)
{
  ASSERT_TRUE (load ("MyOwn"));
  EXPECT_EQ (get_uint (encoder_.get (), "effective-bitrate"), 4321u);
  EXPECT_EQ (get_uint (encoder_.get (), "slices"), 3u);
  gint speed = -1;
  g_object_get (encoder_.get (), "speed", &speed, nullptr);
  EXPECT_EQ (speed, VORN_ENCODER_SPEED_MEDIUM);
}

TEST_F (EncoderPresets, ThePresetReachesTheEncoder)
{
  Pipeline pipeline (vorn_encoder_new ("e"), "num-buffers=3",
                     "format=I420,width=640,height=480,framerate=24/1");
  ASSERT_TRUE (gst_preset_load_preset (GST_PRESET (pipeline.encoder ()), "ZeltoStreamingVGA"));
  gint speed = -1;
  guint bitrate = 0;
  pipeline.on_frame = [&] (GstBuffer *, int number) {
    if (number == 2)
      g_object_get (pipeline.worker ().get (), "speed-preset", &speed, "bitrate", &bitrate,
                    nullptr);
  };
  EXPECT_EQ (pipeline.run ().size (), 3u);
  EXPECT_EQ (speed, 2);      // superfast
  EXPECT_EQ (bitrate, 760u); // 950 at 30 frames
}
