// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <numeric>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vorn/frame_meta.h>
#include <vorn/framework.h>

#include "encoder_support.hpp"
#include "log_capture.hpp"

using namespace encoding;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace
{

constexpr int warning = VORN_LOG_PRIORITY_WARNING;

const gchar *const only_openh264[] = {"openh264enc", nullptr};

class Encoder : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }
};

std::string caps (int width, int height, const std::string &rate)
{
  return "format=I420,width=" + std::to_string (width) + ",height=" + std::to_string (height) +
         ",framerate=" + rate;
}

size_t bytes_of (const std::vector<Unit> &units, size_t begin, size_t end)
{
  size_t bytes = 0;
  for (size_t i = begin; i < end; i++)
    bytes += units.at (i).size ();
  return bytes;
}

} // namespace

TEST_F (Encoder, IsANewElementOfThatName)
{
  GstElement *encoder = vorn_encoder_new ("streamingbin-encoder");
  ASSERT_NE (encoder, nullptr);
  EXPECT_TRUE (g_object_is_floating (encoder));
  const auto owner = vorn::adopt (encoder);
  EXPECT_STREQ (GST_OBJECT_NAME (encoder), "streamingbin-encoder");
  EXPECT_TRUE (VORN_IS_ENCODER (encoder));
  EXPECT_TRUE (GST_IS_PRESET (encoder));
  EXPECT_EQ (G_OBJECT (encoder)->ref_count, 1u);
  for (const char *name : {"sink", "src"})
    EXPECT_TRUE (vorn::adopt (gst_element_get_static_pad (encoder, name))) << name;
  const auto other = vorn::adopt (vorn_encoder_new (nullptr));
  ASSERT_TRUE (other);
  EXPECT_STRNE (GST_OBJECT_NAME (other.get ()), "");
}

TEST_F (Encoder, PropertiesAndTheirDefaults)
{
  const auto encoder = vorn::adopt (vorn_encoder_new ("e"));
  EXPECT_EQ (get_uint (encoder.get (), "bitrate"), 0u);
  EXPECT_EQ (get_uint (encoder.get (), "effective-bitrate"), 2800u);
  EXPECT_EQ (get_uint (encoder.get (), "preset-bitrate"), 2800u);
  EXPECT_EQ (get_uint (encoder.get (), "preset-width"), 1280u);
  EXPECT_EQ (get_uint (encoder.get (), "preset-height"), 720u);
  EXPECT_EQ (get_uint (encoder.get (), "key-frame-interval"), 1000u);
  EXPECT_EQ (get_uint (encoder.get (), "slices"), 1u);
  gint speed = -1;
  gint num = 0;
  gint den = 0;
  GValue rate = G_VALUE_INIT;
  g_object_get_property (G_OBJECT (encoder.get ()), "preset-framerate", &rate);
  num = gst_value_get_fraction_numerator (&rate);
  den = gst_value_get_fraction_denominator (&rate);
  g_value_unset (&rate);
  g_object_get (encoder.get (), "speed", &speed, nullptr);
  EXPECT_EQ (num, 30);
  EXPECT_EQ (den, 1);
  EXPECT_EQ (speed, VORN_ENCODER_SPEED_ULTRAFAST);

  // From bits a second below a thousand comes a 0; what no encoder can do is brought within.
  for (const auto &[bitrate, effective] :
       {std::pair{2500u, 2500u}, {0u, 2800u}, {1u, 1u}, {4294967u, 2048000u}}) {
    g_object_set (encoder.get (), "bitrate", bitrate, nullptr);
    EXPECT_EQ (get_uint (encoder.get (), "bitrate"), bitrate);
    EXPECT_EQ (get_uint (encoder.get (), "effective-bitrate"), effective);
  }
}

// --- the stream ---

namespace
{

struct Rate {
  const char *text;
  unsigned num;
  unsigned den;
  std::vector<int> key_frames; // of two and a half seconds
};

class EncoderRates : public testing::TestWithParam<Rate>
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }
};

} // namespace

TEST_P (EncoderRates, EachFrameIsAnAccessUnitWithTiming)
{
  const Rate &rate = GetParam ();
  const auto frames = static_cast<size_t> (5 * rate.num / (2 * rate.den));
  // Noise: each frame is a cut of the scene.
  Pipeline pipeline (vorn_encoder_new ("e"), "pattern=snow num-buffers=" + std::to_string (frames),
                     caps (64, 48, rate.text));
  const std::vector<Unit> units = pipeline.run ();
  ASSERT_EQ (units.size (), frames);
  GstClockTime last = 0;
  for (const Unit &unit : units) {
    EXPECT_EQ (unit.slices (), 1u);
    EXPECT_EQ (unit.count ({5}), unit.is_key_frame () ? 1u : 0u);
    EXPECT_EQ (unit.count ({7}), unit.is_key_frame () ? 1u : 0u);
    EXPECT_EQ (unit.count ({8}), unit.is_key_frame () ? 1u : 0u);
    EXPECT_EQ (GST_BUFFER_PTS (unit.buffer.get ()), GST_BUFFER_DTS (unit.buffer.get ()));
    EXPECT_GT (GST_BUFFER_PTS (unit.buffer.get ()), last);
    last = GST_BUFFER_PTS (unit.buffer.get ());
  }
  EXPECT_EQ (key_frames (units), rate.key_frames);

  const VornH264Sps sps = sps_of (units);
  EXPECT_TRUE (sps.timing_info_present_flag);
  EXPECT_EQ (sps.num_units_in_tick, rate.den);
  EXPECT_EQ (sps.time_scale, 2 * rate.num);
  EXPECT_TRUE (sps.pic_struct_present_flag);
  EXPECT_FALSE (sps.nal_hrd.present);
  EXPECT_FALSE (sps.vcl_hrd.present);

  ASSERT_EQ (pipeline.caps ().size (), 1u);
  const GstStructure *structure = gst_caps_get_structure (pipeline.caps ()[0].get (), 0);
  EXPECT_STREQ (gst_structure_get_name (structure), "video/x-h264");
  EXPECT_STREQ (gst_structure_get_string (structure, "stream-format"), "avc");
  EXPECT_STREQ (gst_structure_get_string (structure, "alignment"), "au");
  EXPECT_TRUE (gst_structure_has_field (structure, "codec_data"));
}

INSTANTIATE_TEST_SUITE_P (Rates, EncoderRates,
                          testing::Values (Rate{"30/1", 30, 1, {0, 30, 60}},
                                           Rate{"24000/1001", 24000, 1001, {0, 24, 48}},
                                           Rate{"60000/1001", 60000, 1001, {0, 60, 120}},
                                           Rate{"9/1", 9, 1, {0, 9, 18}},
                                           Rate{"1/1", 1, 1, {0, 1}}),
                          [] (const auto &row) {
                            std::string name = row.param.text;
                            std::replace (name.begin (), name.end (), '/', '_');
                            return name;
                          });

TEST_F (Encoder, KeyFrameIntervalIsTimeAndMayChange)
{
  Pipeline pipeline (vorn_encoder_new ("e"), "num-buffers=60", caps (64, 48, "30/1"));
  g_object_set (pipeline.encoder (), "key-frame-interval", 500u, nullptr);
  EXPECT_THAT (key_frames (pipeline.run ()), ElementsAre (0, 15, 30, 45));
  pipeline.on_frame = [&] (GstBuffer *, int number) {
    if (number == 20)
      g_object_set (pipeline.encoder (), "key-frame-interval", 200u, nullptr);
  };
  EXPECT_THAT (key_frames (pipeline.run ()), ElementsAre (0, 15, 26, 32, 38, 44, 50, 56));
}

TEST_F (Encoder, KeyFramesKeepTheirTimeWhereFramesAreMissing)
{
  Pipeline pipeline (vorn_encoder_new ("e"), "num-buffers=30", caps (64, 48, "30/1"));
  // Nine frames in ten were dropped; then the clock jumps.
  pipeline.on_frame = [] (GstBuffer *buffer, int number) {
    GST_BUFFER_PTS (buffer) *= 10;
    if (number >= 20)
      GST_BUFFER_PTS (buffer) += 100 * GST_SECOND;
  };
  EXPECT_THAT (key_frames (pipeline.run ()), ElementsAre (0, 3, 6, 9, 12, 15, 18, 20, 23, 26, 29));
}

TEST_F (Encoder, SlicesOnRequest)
{
  for (const guint slices : {2u, 4u, 1u}) {
    Pipeline pipeline (vorn_encoder_new ("e"), "num-buffers=5", caps (320, 240, "30/1"));
    g_object_set (pipeline.encoder (), "slices", slices, nullptr);
    for (const Unit &unit : pipeline.run ())
      EXPECT_EQ (unit.slices (), slices);
  }
}

TEST_F (Encoder, AnyRawFormat)
{
  for (const char *format : {"NV12", "YV12", "RGBA", "YUY2", "Y444", "GRAY8", "I420_10LE"}) {
    Pipeline pipeline (vorn_encoder_new ("e"), "num-buffers=3",
                       std::string ("width=64,height=48,framerate=30/1,format=") + format);
    const std::vector<Unit> units = pipeline.run ();
    ASSERT_EQ (units.size (), 3u) << format;
    for (const Bytes &nalu : units[0].nalus) {
      if ((nalu[0] & 0x1f) == 7) {
        EXPECT_THAT (nalu[1], testing::AnyOf (66, 77, 100)) << format; // Baseline, Main, High
      }
    }
  }
}

// --- metadata ---

TEST_F (Encoder, MetadataComesThroughWithTheKeyFrameFlag)
{
  Pipeline pipeline (vorn_encoder_new ("e"), "num-buffers=40", caps (64, 48, "30/1"));
  pipeline.on_frame = [] (GstBuffer *buffer, int number) {
    if (number == 7) // of this one nothing is known
      return;
    gst_structure_set (vorn_frame_meta_add (buffer)->structure, "capture-timestamp",
                       GST_TYPE_CLOCK_TIME, GstClockTime{1000} + static_cast<guint> (number),
                       "sync-point", G_TYPE_BOOLEAN, number == 3, "more", G_TYPE_INT, number,
                       nullptr);
  };
  const std::vector<Unit> units = pipeline.run ();
  ASSERT_EQ (units.size (), 40u);
  for (int i = 0; i < 40; i++) {
    const VornFrameMeta *meta = vorn_frame_meta_get (units[static_cast<size_t> (i)].buffer.get ());
    if (i == 7) {
      EXPECT_EQ (meta, nullptr);
      continue;
    }
    ASSERT_NE (meta, nullptr) << i;
    GstClockTime capture_time = 0;
    gboolean sync_point = 2;
    int more = -1;
    EXPECT_TRUE (
        gst_structure_get_clock_time (meta->structure, "capture-timestamp", &capture_time));
    EXPECT_TRUE (gst_structure_get_boolean (meta->structure, "sync-point", &sync_point));
    EXPECT_TRUE (gst_structure_get_int (meta->structure, "more", &more));
    EXPECT_EQ (capture_time, GstClockTime{1000} + static_cast<guint> (i));
    EXPECT_EQ (sync_point, i == 0 || i == 30) << i;
    EXPECT_EQ (more, i);
  }
}

// --- bitrate ---

TEST_F (Encoder, PresetBitrateIsScaledToThePicture)
{
  struct Row {
    int width, height;
    const char *rate;
    guint kbps;
  };
  for (const Row &row : {Row{1280, 720, "30/1", 2800},
                         {640, 360, "30/1", 700},
                         {640, 360, "15/1", 350},
                         {1280, 720, "60000/1001", 5594},
                         {64, 64, "1/1", 1},
                         {640, 360, "0/1", 700}}) { // a rate that varies counts as the preset's
    Pipeline pipeline (vorn_encoder_new ("e"), "num-buffers=1",
                       caps (row.width, row.height, row.rate));
    guint effective = 0;
    guint worker = 0;
    pipeline.on_frame = [&] (GstBuffer *, int) { // the caps went before it
      effective = get_uint (pipeline.encoder (), "effective-bitrate");
      worker = get_uint (pipeline.worker ().get (), "bitrate");
    };
    EXPECT_EQ (pipeline.run ().size (), 1u);
    EXPECT_EQ (effective, row.kbps) << row.width << " " << row.rate;
    EXPECT_EQ (worker, row.kbps);
    // Without a picture it is the preset's own again.
    EXPECT_EQ (get_uint (pipeline.encoder (), "effective-bitrate"), 2800u);
  }
}

TEST_F (Encoder, BitrateSetIsNotScaledUntilItIsZeroAgain)
{
  Pipeline pipeline (vorn_encoder_new ("e"), "num-buffers=4", caps (640, 360, "30/1"));
  g_object_set (pipeline.encoder (), "bitrate", 1234u, nullptr);
  std::vector<guint> bitrates;
  pipeline.on_frame = [&] (GstBuffer *, int number) {
    if (number == 2)
      g_object_set (pipeline.encoder (), "bitrate", 0u, nullptr);
    if (number > 0)
      bitrates.push_back (get_uint (pipeline.worker ().get (), "bitrate"));
  };
  pipeline.run ();
  EXPECT_THAT (bitrates, ElementsAre (1234, 700, 700));
  gst_preset_load_preset (GST_PRESET (pipeline.encoder ()), "ZeltoRecording720p");
  EXPECT_EQ (get_uint (pipeline.encoder (), "effective-bitrate"), 5500u);
  g_object_set (pipeline.encoder (), "bitrate", 99u, nullptr);
  gst_preset_load_preset (GST_PRESET (pipeline.encoder ()), "ZeltoStreaming720p");
  EXPECT_EQ (get_uint (pipeline.encoder (), "effective-bitrate"), 99u);
}

TEST_F (Encoder, BitrateChangesWhileItPlays)
{
  const int second = 30;
  Pipeline pipeline (vorn_encoder_new ("e"),
                     "pattern=snow num-buffers=" + std::to_string (9 * second),
                     caps (160, 96, "30/1"));
  g_object_set (pipeline.encoder (), "bitrate", 300u, nullptr);
  pipeline.on_frame = [&] (GstBuffer *, int number) {
    if (number == 3 * second)
      g_object_set (pipeline.encoder (), "bitrate", 1200u, nullptr);
    if (number == 6 * second)
      g_object_set (pipeline.encoder (), "bitrate", 300u, nullptr);
  };
  const std::vector<Unit> units = pipeline.run ();
  ASSERT_EQ (units.size (), static_cast<size_t> (9 * second));
  // The last two seconds of each three, in kbit/s.
  for (const auto &[begin, kbps] : {std::pair{1, 300.0}, {4, 1200.0}, {7, 300.0}}) {
    const double measured =
        static_cast<double> (bytes_of (units, static_cast<size_t> (begin * second),
                                       static_cast<size_t> ((begin + 2) * second))) *
        8 / 2000;
    EXPECT_NEAR (measured, kbps, kbps * 0.35) << begin;
  }
  EXPECT_EQ (pipeline.caps ().size (), 1u);
  EXPECT_EQ (key_frames (units).size (), 9u);
}

TEST_F (Encoder, PropertiesMayBeSetFromAnyThread)
{
  Pipeline pipeline (vorn_encoder_new ("e"), "num-buffers=200", caps (64, 48, "30/1"));
  std::atomic<bool> stop = false;
  std::thread setter ([&] {
    for (guint i = 0; !stop; i++) {
      g_object_set (pipeline.encoder (), "bitrate", i % 50 * 10, "key-frame-interval",
                    100 + i % 900, nullptr);
      std::this_thread::yield ();
    }
  });
  EXPECT_EQ (pipeline.run ().size (), 200u);
  stop = true;
  setter.join ();
  // The encoder has what was set last.
  EXPECT_EQ (get_uint (pipeline.worker ().get (), "bitrate"),
             get_uint (pipeline.encoder (), "effective-bitrate"));
}

// --- its life ---

TEST_F (Encoder, PlaysAgainAndAgain)
{
  Pipeline pipeline (vorn_encoder_new ("e"), "num-buffers=5", caps (64, 48, "30/1"));
  for (int i = 0; i < 5; i++) {
    const std::vector<Unit> units = pipeline.run ();
    ASSERT_EQ (units.size (), 5u) << i;
    EXPECT_THAT (key_frames (units), ElementsAre (0));
  }
  pipeline.set_caps (caps (128, 96, "24000/1001"));
  const std::vector<Unit> units = pipeline.run ();
  ASSERT_EQ (units.size (), 5u);
  EXPECT_EQ (sps_of (units).time_scale, 48000u);
}

TEST_F (Encoder, EveryStateChange)
{
  const auto encoder = vorn::adopt (vorn_encoder_new ("e"));
  for (int i = 0; i < 3; i++)
    for (const GstState state :
         {GST_STATE_READY, GST_STATE_PAUSED, GST_STATE_PLAYING, GST_STATE_PAUSED, GST_STATE_PLAYING,
          GST_STATE_READY, GST_STATE_NULL, GST_STATE_PLAYING, GST_STATE_NULL})
      ASSERT_NE (gst_element_set_state (encoder.get (), state), GST_STATE_CHANGE_FAILURE);
}

TEST_F (Encoder, CapsMayChangeWhileItPlays)
{
  Pipeline pipeline (vorn_encoder_new ("e"), "num-buffers=60", caps (128, 96, "30/1"));
  std::vector<guint> bitrates;
  pipeline.on_frame = [&] (GstBuffer *, int number) {
    if (number == 20)
      pipeline.set_caps (caps (256, 192, "30/1"));
    if (number == 10 || number == 50)
      bitrates.push_back (get_uint (pipeline.worker ().get (), "bitrate"));
  };
  const std::vector<Unit> units = pipeline.run ();
  ASSERT_EQ (units.size (), 60u);
  ASSERT_EQ (pipeline.caps ().size (), 2u);
  int width = 0;
  gst_structure_get_int (gst_caps_get_structure (pipeline.caps ()[1].get (), 0), "width", &width);
  EXPECT_EQ (width, 256);
  EXPECT_THAT (bitrates, ElementsAre (37, 149)); // 2800 * 128 * 96 / (1280 * 720), four times that
  // The new size begins with a key frame and its own parameter sets.
  size_t parameter_sets = 0;
  for (const Unit &unit : units) {
    EXPECT_EQ (unit.count ({7}), unit.is_key_frame () ? 1u : 0u);
    parameter_sets += unit.count ({7});
  }
  EXPECT_GE (parameter_sets, 3u);
}

// --- which encoder ---

TEST_F (Encoder, AnotherEncoderTakesThePlaceWithAWarning)
{
  LogCapture log;
  const gchar *const names[] = {"absentenc", "openh264enc", nullptr};
  Pipeline pipeline (vorn_encoder_new_from ("recordbin-encoder", names, nullptr), "num-buffers=45",
                     caps (64, 48, "30/1"));
  EXPECT_THAT (log.texts (warning),
               ElementsAre ("'recordbin-encoder': the encoder absentenc is missing, openh264enc "
                            "takes its place: it writes no timing information, frames will not "
                            "carry their time"));
  pipeline.on_frame = [] (GstBuffer *buffer, int number) {
    gst_structure_set (vorn_frame_meta_add (buffer)->structure, "capture-timestamp",
                       GST_TYPE_CLOCK_TIME, static_cast<GstClockTime> (number), nullptr);
  };
  g_object_set (pipeline.encoder (), "bitrate", 200u, nullptr);
  const std::vector<Unit> units = pipeline.run ();
  ASSERT_EQ (units.size (), 45u);
  EXPECT_THAT (key_frames (units), ElementsAre (0, 30));
  for (size_t i = 0; i < units.size (); i++) {
    EXPECT_EQ (units[i].slices (), 1u);
    EXPECT_EQ (units[i].count ({7}), units[i].is_key_frame () ? 1u : 0u);
    const VornFrameMeta *meta = vorn_frame_meta_get (units[i].buffer.get ());
    ASSERT_NE (meta, nullptr);
    GstClockTime capture_time = 0;
    gboolean sync_point = 2;
    gst_structure_get_clock_time (meta->structure, "capture-timestamp", &capture_time);
    gst_structure_get_boolean (meta->structure, "sync-point", &sync_point);
    EXPECT_EQ (capture_time, i);
    EXPECT_EQ (sync_point, units[i].is_key_frame ());
  }
  EXPECT_FALSE (sps_of (units).timing_info_present_flag);
  EXPECT_EQ (get_uint (pipeline.worker ().get (), "bitrate"), 200000u);
  EXPECT_STREQ (gst_structure_get_string (gst_caps_get_structure (pipeline.caps ()[0].get (), 0),
                                          "stream-format"),
                "avc");
}

TEST_F (Encoder, TheWantedOneTakesItsPlaceSilently)
{
  LogCapture log;
  const auto encoder = vorn::adopt (vorn_encoder_new_from ("e", only_openh264, nullptr));
  EXPECT_TRUE (encoder);
  EXPECT_TRUE (vorn::adopt (vorn_encoder_new ("e")));
  EXPECT_THAT (log.lines (), IsEmpty ());
}

TEST_F (Encoder, NoEncoderIsANamedError)
{
  LogCapture log;
  // An encoder that is installed but not known here is as good as missing.
  const gchar *const names[] = {"absentenc", "jpegenc", nullptr};
  vorn::ErrorOut error;
  EXPECT_EQ (vorn_encoder_new_from ("e", names, error.out ()), nullptr);
  ASSERT_TRUE (error);
  EXPECT_EQ (error->domain, GST_CORE_ERROR);
  EXPECT_EQ (error->code, GST_CORE_ERROR_MISSING_PLUGIN);
  EXPECT_STREQ (error.message (), "no H.264 encoder is installed, looked for: absentenc, jpegenc");
  EXPECT_EQ (vorn_encoder_new_from ("e", names, nullptr), nullptr);
  const gchar *const none[] = {nullptr};
  EXPECT_EQ (vorn_encoder_new_from ("e", none, nullptr), nullptr);
  EXPECT_THAT (log.lines (), IsEmpty ());
}

namespace
{

/** Takes an element's factory from the registry as long as it lives. */
class Uninstalled
{
public:
  explicit Uninstalled (const char *name)
      : feature_ (vorn::adopt (gst_registry_lookup_feature (gst_registry_get (), name)))
  {
    gst_registry_remove_feature (gst_registry_get (), feature_.get ());
  }
  ~Uninstalled () { gst_registry_add_feature (gst_registry_get (), feature_.get ()); }
  Uninstalled (const Uninstalled &) = delete;
  Uninstalled &operator= (const Uninstalled &) = delete;

private:
  vorn::Ref<GstPluginFeature> feature_;
};

} // namespace

TEST_F (Encoder, WhatIsInstalledDecides)
{
  LogCapture log;
  const Uninstalled x264 ("x264enc");
  EXPECT_TRUE (vorn::adopt (vorn_encoder_new ("e")));
  EXPECT_THAT (log.texts (warning),
               ElementsAre (HasSubstr ("the encoder x264enc is missing, openh264enc takes its")));
  const Uninstalled openh264 ("openh264enc");
  EXPECT_EQ (vorn_encoder_new ("streamingbin-encoder"), nullptr);
  EXPECT_THAT (log.texts (VORN_LOG_PRIORITY_ERROR),
               ElementsAre ("'streamingbin-encoder': no H.264 encoder is installed, looked for: "
                            "x264enc, openh264enc"));
}

TEST_F (Encoder, AMissingHelperIsANamedError)
{
  for (const char *name : {"videoconvert", "h264parse", "capsfilter"}) {
    const Uninstalled helper (name);
    vorn::ErrorOut error;
    EXPECT_EQ (vorn_encoder_new_from ("e", only_openh264, error.out ()), nullptr);
    EXPECT_EQ (error.message (), "the element '" + std::string (name) + "' is missing");
  }
}
