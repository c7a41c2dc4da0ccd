// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The vision bins as GStreamer sees them: children, calibration, statistics, telemetry.
#include "vision_bins.hpp"

#include <cmath>
#include <limits>

#include <gst/check/gstharness.h>
#include <gst/video/video.h>
#include <gtest/gtest.h>

#include "log_capture.hpp"
#include "own_namespace.hpp"
#include "vision_element.hpp"
#include <vorn/frame_meta.h>
#include <vorn/framework.h>
#include <vorn/gst_raii.hpp>
#include <vorn/telemetry.h>

namespace
{

using Texts = std::vector<std::string>;

const struct {
  const char *factory;
  const char *child;
  const char *sink;
  const char *section;
} bins[] = {
    {"kavrel_vorncondorbin", "condor", "condor-sink", "vision_condor"},
    {"kavrel_vornprecisehoveringbin", "precise-hovering", "precise-hovering-sink",
     "vision_precise_hovering"},
    {"kavrel_vornprecisehomebin", "precise-home", "precise-home-sink", "vision_precise_home"},
    {"kavrel_vornmagiccarpetbin", "visioncarpet", "mcbin-sink", "vision_magic_carpet"},
};

class VisionBins : public testing::Test
{
protected:
  static void SetUpTestSuite ()
  {
    vorn_framework_init (nullptr, nullptr);
    ASSERT_TRUE (kavrel_vision_bins_register (nullptr));
  }

  OwnNamespace name_space_;
  LogCapture log_;
};

vorn::Ref<GstElement> make (const char *factory)
{
  return vorn::adopt (gst_element_factory_make (factory, nullptr));
}

template <typename T>
T get (GstElement *bin, const char *name)
{
  T value{};
  gst_child_proxy_get (GST_CHILD_PROXY (bin), name, &value, nullptr);
  return value;
}

std::string text_of (GstElement *bin, const char *name)
{
  const vorn::OwnedString text (get<gchar *> (bin, name));
  return text ? text.get () : "(null)";
}

/** "<...>" as GStreamer writes arrays. */
void set_array (GstElement *bin, const char *name, const char *text)
{
  GValue value = G_VALUE_INIT;
  g_value_init (&value, GST_TYPE_ARRAY);
  const vorn::OwnedString writable (g_strdup (text));
  ASSERT_TRUE (gst_value_deserialize (&value, writable.get ())) << text;
  gst_child_proxy_set_property (GST_CHILD_PROXY (bin), name, &value);
  g_value_unset (&value);
}

std::string array_of (GstElement *bin, const char *name)
{
  GValue value = G_VALUE_INIT;
  gst_child_proxy_get_property (GST_CHILD_PROXY (bin), name, &value);
  const vorn::OwnedString text (gst_value_serialize (&value));
  g_value_unset (&value);
  return text ? text.get () : "(none)";
}

// ---- Calibration

TEST_F (VisionBins, ChildrenAreReachedByTheirOwnNames)
{
  for (const auto &row : bins) {
    const auto bin = make (row.factory);
    ASSERT_TRUE (bin) << row.factory;
    for (const char *child : {row.child, row.sink}) {
      const auto found =
          vorn::adopt (gst_child_proxy_get_child_by_name (GST_CHILD_PROXY (bin.get ()), child));
      ASSERT_TRUE (found) << child;
      EXPECT_STREQ (GST_OBJECT_NAME (found.get ()), child);
    }
    EXPECT_EQ (gst_child_proxy_get_child_by_name (GST_CHILD_PROXY (bin.get ()), "no-such"),
               nullptr);
    EXPECT_EQ (text_of (bin.get (), (row.child + std::string ("::section")).c_str ()), row.section);
  }
}

TEST_F (VisionBins, ChildrenAreReachedThroughABinAroundThem)
{
  const auto outer = vorn::adopt (GST_ELEMENT (gst_bin_new (nullptr)));
  gst_bin_add (GST_BIN (outer.get ()), gst_element_factory_make (bins[3].factory, "carpet"));
  gst_child_proxy_set (GST_CHILD_PROXY (outer.get ()), "carpet::visioncarpet::focal", 12.5,
                       nullptr);
  EXPECT_EQ (get<gdouble> (outer.get (), "carpet::visioncarpet::focal"), 12.5);
}

TEST_F (VisionBins, NumbersAreTypedAndKeptInTheirRange)
{
  const auto bin = make ("kavrel_vorncondorbin");
  auto *proxy = GST_CHILD_PROXY (bin.get ());
  gst_child_proxy_set (proxy, "condor::sensor-width", 640u, nullptr);
  gst_child_proxy_set (proxy, "condor::sensor-width-mm", 2.304, nullptr);
  gst_child_proxy_set (proxy, "condor::focal-length", 1.5, nullptr);
  gst_child_proxy_set (proxy, "condor::principal-point-x", -3.25, nullptr);
  EXPECT_EQ (get<guint> (bin.get (), "condor::sensor-width"), 640u);
  EXPECT_EQ (get<gfloat> (bin.get (), "condor::sensor-width-mm"), 2.304f);
  EXPECT_EQ (get<gdouble> (bin.get (), "condor::focal-length"), 1.5);
  EXPECT_EQ (get<gdouble> (bin.get (), "condor::principal-point-x"), -3.25);

  CriticalCapture glib;
  const auto refused = [&] (const char *property, const std::string &name) {
    ASSERT_EQ (glib.warnings ().size (), 1u) << property;
    EXPECT_NE (glib.warnings ()[0].text.find (name), std::string::npos) << glib.warnings ()[0].text;
    glib.clear ();
  };
  gst_child_proxy_set (proxy, "condor::sensor-width", 40000u, nullptr);
  refused ("sensor-width", "sensor-width");
  gst_child_proxy_set (proxy, "condor::focal-length", -1.0, nullptr);
  refused ("focal-length", "focal-length");
  // A wrong type.
  GValue wrong = G_VALUE_INIT;
  g_value_init (&wrong, G_TYPE_STRING);
  g_value_set_static_string (&wrong, "wide");
  gst_child_proxy_set_property (proxy, "condor::sensor-width-mm", &wrong);
  refused ("sensor-width-mm", "sensor-width-mm");
  g_value_unset (&wrong);
  gst_child_proxy_set (proxy, "condor::focal-length", std::numeric_limits<double>::quiet_NaN (),
                       nullptr);
  refused ("focal-length", "focal-length");
  EXPECT_EQ (get<guint> (bin.get (), "condor::sensor-width"), 640u);
  EXPECT_EQ (get<gfloat> (bin.get (), "condor::sensor-width-mm"), 2.304f);
  EXPECT_EQ (get<gdouble> (bin.get (), "condor::focal-length"), 1.5);
}

TEST_F (VisionBins, TextsAreReadBackAsTheyWere)
{
  const auto bin = make ("kavrel_vornmagiccarpetbin");
  auto *proxy = GST_CHILD_PROXY (bin.get ());
  auto *vision = reinterpret_cast<KavrelVision *> (
      vorn::adopt (gst_bin_get_by_name (GST_BIN (bin.get ()), "visioncarpet")).get ());
  const vision::Calibration &calibration = vision::calibration_of (vision);
  EXPECT_EQ (text_of (bin.get (), "visioncarpet::cam-pos"), "(null)");
  EXPECT_TRUE (calibration.numbers ("cam-pos").empty ());
  for (const char *good : {"{1, 2, 3}", "{1,2,3}", " { 1.0 ,\t2e0, 3.000000 } ", "{1,2,\n3}"}) {
    gst_child_proxy_set (proxy, "visioncarpet::cam-pos", good, nullptr);
    EXPECT_EQ (text_of (bin.get (), "visioncarpet::cam-pos"), good);
    EXPECT_EQ (calibration.numbers ("cam-pos"), (std::vector<double>{1, 2, 3})) << good;
  }
  EXPECT_TRUE (log_.lines ().empty ());
  gst_child_proxy_set (proxy, "visioncarpet::cam-pos", "{-0.5, 1e-3, -2}", nullptr);
  for (const char *bad :
       {"", " ", "{", "{}", "{1, 2}", "{1, 2, 3, 4}", "{1, 2, 3", "1, 2, 3}", "{1 2 3}",
        "{1, 2, three}", "{1, 2, nan}", "{1, inf, 3}", "{1, 2, 3}}", "{1, 2, 3} 4", "{1,, 3}",
        "{1, 2, 3,}", "{1;2;3}", "{1,5, 2, 3}", "{1, 2, 1e999}"}) {
    log_.clear ();
    gst_child_proxy_set (proxy, "visioncarpet::cam-pos", bad, nullptr);
    EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING),
               Texts{std::string ("cam-pos: \"") + bad +
                     "\" is not of the form \"{a, b, ...}\" with 3 finite numbers, the old value "
                     "stays"});
    EXPECT_EQ (text_of (bin.get (), "visioncarpet::cam-pos"), "{-0.5, 1e-3, -2}") << bad;
    EXPECT_EQ (calibration.numbers ("cam-pos"), (std::vector<double>{-0.5, 1e-3, -2})) << bad;
  }
  log_.clear ();
  gst_child_proxy_set (proxy, "visioncarpet::cam-pos", nullptr, nullptr);
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING).size (), 1u);
  EXPECT_EQ (text_of (bin.get (), "visioncarpet::cam-pos"), "{-0.5, 1e-3, -2}");
}

TEST_F (VisionBins, ArraysAreReadBackAsTheyWere)
{
  const auto bin = make ("kavrel_vornprecisehomebin");
  auto *vision = reinterpret_cast<KavrelVision *> (
      vorn::adopt (gst_bin_get_by_name (GST_BIN (bin.get ()), "precise-home")).get ());
  const vision::Calibration &calibration = vision::calibration_of (vision);
  const char *vector = "< (float)1, (float)-2, (float)0.5 >";
  const char *matrix = "< (array)< (float)1, (float)2, (float)3 >, (array)< (float)4, (float)5, "
                       "(float)6 >, (array)< (float)7, (float)8, (float)9 > >";
  set_array (bin.get (), "precise-home::translation-vec", vector);
  set_array (bin.get (), "precise-home::rotation-mat", matrix);
  EXPECT_TRUE (log_.lines ().empty ());
  EXPECT_EQ (array_of (bin.get (), "precise-home::translation-vec"), vector);
  EXPECT_EQ (array_of (bin.get (), "precise-home::rotation-mat"), matrix);
  EXPECT_EQ (calibration.numbers ("translation-vec"), (std::vector<double>{1, -2, 0.5}));
  EXPECT_EQ (calibration.numbers ("rotation-mat"),
             (std::vector<double>{1, 2, 3, 4, 5, 6, 7, 8, 9}));
  EXPECT_TRUE (calibration.numbers ("rotation-error-vec").empty ());
  EXPECT_TRUE (calibration.numbers ("no-such").empty ());

  const struct {
    const char *property;
    const char *value;
    const char *wanted;
  } rows[] = {
      {"translation-vec", "<  >", "an array of 3 finite floats"},
      {"translation-vec", "< (float)1, (float)2 >", "an array of 3 finite floats"},
      {"translation-vec", "< (float)1, (float)2, (float)3, (float)4 >",
       "an array of 3 finite floats"},
      {"translation-vec", "< (int)1, (int)2, (int)3 >", "an array of 3 finite floats"},
      {"rotation-mat", "< (float)1, (float)2, (float)3 >",
       "an array of three arrays of three finite floats"},
      {"rotation-mat",
       "< (array)< (float)1, (float)2, (float)3 >, (array)< (float)4, (float)5, (float)6 > >",
       "an array of three arrays of three finite floats"},
      {"rotation-mat",
       "< (array)< (float)1, (float)2, (float)3 >, (array)< (float)4, (float)5 >, (array)< "
       "(float)7, (float)8, (float)9 > >",
       "an array of three arrays of three finite floats"},
  };
  for (const auto &row : rows) {
    log_.clear ();
    set_array (bin.get (), (std::string ("precise-home::") + row.property).c_str (), row.value);
    EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING),
               Texts{std::string (row.property) + ": \"" + row.value + "\" is not " + row.wanted +
                     ", the old value stays"});
  }
  EXPECT_EQ (array_of (bin.get (), "precise-home::translation-vec"), vector);
  EXPECT_EQ (array_of (bin.get (), "precise-home::rotation-mat"), matrix);
}

// ---- Frames

struct HarnessRelease {
  void operator() (GstHarness *harness) const { gst_harness_teardown (harness); }
};
using Harness = std::unique_ptr<GstHarness, HarnessRelease>;

constexpr int width = 64;
constexpr int height = 48;

/** A harness that pushes frames of this format into the element. */
Harness harness_for (GstElement *element, GstVideoFormat format)
{
  // A harness wants to play before there is a frame.
  for (const auto &row : bins)
    if (const auto sink = vorn::adopt (gst_bin_get_by_name (GST_BIN (element), row.sink)))
      g_object_set (sink.get (), "async", FALSE, nullptr);
  Harness harness (gst_harness_new_with_element (element, "sink", nullptr));
  GstVideoInfo info;
  gst_video_info_set_format (&info, format, width, height);
  info.fps_n = 30;
  info.fps_d = 1;
  gst_harness_set_src_caps (harness.get (), gst_video_info_to_caps (&info));
  return harness;
}

GstBuffer *frame_of (GstVideoFormat format, guint8 value, GstClockTime pts = 0)
{
  GstVideoInfo info;
  gst_video_info_set_format (&info, format, width, height);
  GstBuffer *buffer = gst_buffer_new_allocate (nullptr, info.size, nullptr);
  gst_buffer_memset (buffer, 0, value, info.size);
  GST_BUFFER_PTS (buffer) = pts;
  return buffer;
}

guint64 monotonic_ns ()
{
  return static_cast<guint64> (g_get_monotonic_time ()) * 1000;
}

GstBuffer *captured_at (GstBuffer *buffer, guint64 capture_ns)
{
  gst_structure_set (vorn_frame_meta_add (buffer)->structure, VORN_FRAME_META_CAPTURE_TIMESTAMP,
                     G_TYPE_UINT64, capture_ns, nullptr);
  return buffer;
}

template <typename Condition>
bool eventually (Condition condition)
{
  const gint64 deadline = g_get_monotonic_time () + 30 * G_USEC_PER_SEC;
  while (!condition ()) {
    if (g_get_monotonic_time () > deadline)
      return false;
    g_usleep (500);
  }
  return true;
}

guint64 count_of (GstElement *bin, const char *name)
{
  guint64 count = 0;
  g_object_get (bin, name, &count, nullptr);
  return count;
}

double number_of (GstElement *bin, const char *name)
{
  gdouble number = 0;
  g_object_get (bin, name, &number, nullptr);
  return number;
}

TEST_F (VisionBins, EachPublishesItsStatistics)
{
  for (const auto &row : bins) {
    SCOPED_TRACE (row.section);
    const auto bin = make (row.factory);
    const Harness harness = harness_for (bin.get (), GST_VIDEO_FORMAT_GRAY8);
    const guint64 capture_ns = monotonic_ns () - 40'000'000;
    gst_harness_push (harness.get (),
                      captured_at (frame_of (GST_VIDEO_FORMAT_GRAY8, 90), capture_ns));
    ASSERT_TRUE (eventually ([&] { return count_of (bin.get (), "frames") == 1; }));
    EXPECT_EQ (count_of (bin.get (), "drops"), 0u);
    EXPECT_NEAR (number_of (bin.get (), "mean-luma"), 90, 1e-9);
    EXPECT_GE (number_of (bin.get (), "frame-age"), 40);
    EXPECT_LT (number_of (bin.get (), "frame-age"), 30000);
    EXPECT_EQ (number_of (bin.get (), "frame-rate"), 0) << "one frame is no rate";
    gst_harness_push (harness.get (),
                      captured_at (frame_of (GST_VIDEO_FORMAT_GRAY8, 91), capture_ns + 5'000'000));
    gint32 frames = 0;
    gint32 drops = 7;
    gfloat rate = 0;
    gfloat age = 0;
    gfloat luma = 0;
    const std::string section = row.section;
    const std::string names[] = {section + ".frames", section + ".drops",
                                 section + ".frame_rate_hz", section + ".frame_age_ms",
                                 section + ".mean_luma"};
    const VornTelemetryEntry entries[] = {{names[0].c_str (), VORN_TELEMETRY_INT32, 4, 1, &frames},
                                          {names[1].c_str (), VORN_TELEMETRY_INT32, 4, 1, &drops},
                                          {names[2].c_str (), VORN_TELEMETRY_F32, 4, 1, &rate},
                                          {names[3].c_str (), VORN_TELEMETRY_F32, 4, 1, &age},
                                          {names[4].c_str (), VORN_TELEMETRY_F32, 4, 1, &luma}};
    const vorn::Owned<VornTelemetryConsumer, vorn_telemetry_consumer_destroy> consumer (
        vorn_telemetry_consumer_new ());
    ASSERT_EQ (vorn_telemetry_consumer_register (consumer.get (), entries, 5), 0);
    ASSERT_EQ (vorn_telemetry_consumer_complete (consumer.get ()), 0);
    // The sample has the frame's own time.
    const auto at = [&] (guint64 time_ns) {
      const timespec time = {static_cast<time_t> (time_ns / 1'000'000'000),
                             static_cast<long> (time_ns % 1'000'000'000)};
      return vorn_telemetry_consumer_get (consumer.get (), &time, VORN_TELEMETRY_VALID_AT);
    };
    ASSERT_TRUE (eventually ([&] { return at (capture_ns + 5'000'000) == 0 && frames == 2; }));
    EXPECT_EQ (drops, 0);
    EXPECT_GT (rate, 0);
    EXPECT_EQ (luma, 91);
    EXPECT_NEAR (age, number_of (bin.get (), "frame-age"), 1e-2);
    ASSERT_EQ (at (capture_ns), 0);
    EXPECT_EQ (frames, 1);
    EXPECT_LT (at (capture_ns - 1), 0);
    // Withdrawn with the element's stream, and counted anew with the next.
    gst_element_set_state (bin.get (), GST_STATE_NULL);
    EXPECT_LT (vorn_telemetry_consumer_get (consumer.get (), nullptr, VORN_TELEMETRY_LATEST), 0);
    gst_element_set_state (bin.get (), GST_STATE_PLAYING);
    EXPECT_EQ (count_of (bin.get (), "frames"), 0u);
  }
}

TEST_F (VisionBins, SectionThatIsTakenCostsOnlyTheTelemetry)
{
  const auto first = make (bins[0].factory);
  const auto second = make (bins[0].factory);
  const Harness one = harness_for (first.get (), GST_VIDEO_FORMAT_GRAY8);
  const Harness two = harness_for (second.get (), GST_VIDEO_FORMAT_GRAY8);
  EXPECT_TRUE (log_.has ("no statistics on telemetry: section 'vision_condor' cannot be made", 4));
  gst_harness_push (two.get (), frame_of (GST_VIDEO_FORMAT_GRAY8, 1));
  EXPECT_TRUE (eventually ([&] { return count_of (second.get (), "frames") == 1; }));
}

TEST_F (VisionBins, MeanLumaOfAnyFormat)
{
  const struct {
    GstVideoFormat format;
    guint8 bytes[3]; // repeated over a pixel
    size_t pixel;
    double luma;
  } rows[] = {
      {GST_VIDEO_FORMAT_RGB, {200, 100, 50}, 3, 0.299 * 200 + 0.587 * 100 + 0.114 * 50},
      {GST_VIDEO_FORMAT_BGR, {200, 100, 50}, 3, 0.299 * 50 + 0.587 * 100 + 0.114 * 200},
      {GST_VIDEO_FORMAT_GRAY8, {77}, 1, 77},
      {GST_VIDEO_FORMAT_I420, {33}, 1, 33},
      {GST_VIDEO_FORMAT_NV12, {210}, 1, 210},
  };
  for (const auto &row : rows) {
    const auto bin = make (bins[3].factory);
    const Harness harness = harness_for (bin.get (), row.format);
    GstBuffer *buffer = frame_of (row.format, 0);
    {
      const vorn::BufferMap map (buffer, GST_MAP_WRITE);
      for (gsize i = 0; i < map.size (); i++)
        map.data ()[i] = row.bytes[i % row.pixel];
    }
    gst_harness_push (harness.get (), buffer);
    ASSERT_TRUE (eventually ([&] { return count_of (bin.get (), "frames") == 1; }));
    EXPECT_NEAR (number_of (bin.get (), "mean-luma"), row.luma, 1e-6)
        << gst_video_format_to_string (row.format);
  }
}

TEST_F (VisionBins, AgeWithoutMetadataIsByTheClock)
{
  const auto bin = make (bins[1].factory);
  const Harness harness = harness_for (bin.get (), GST_VIDEO_FORMAT_GRAY8);
  gst_harness_use_testclock (harness.get ());
  gst_harness_set_time (harness.get (), 5 * GST_SECOND);
  gst_harness_push (harness.get (),
                    frame_of (GST_VIDEO_FORMAT_GRAY8, 1, 5 * GST_SECOND - 120 * GST_MSECOND));
  ASSERT_TRUE (eventually ([&] { return count_of (bin.get (), "frames") == 1; }));
  EXPECT_NEAR (number_of (bin.get (), "frame-age"), 120, 1e-3);
}

TEST_F (VisionBins, RateIsThatOfTheLastSecond)
{
  vision::Statistics statistics;
  guint64 now_ns = 1'000'000'000'000;
  vision::Snapshot snapshot;
  for (int i = 0; i < 40; i++, now_ns += 33'333'333)
    snapshot = statistics.add_frame (now_ns, 1, 2);
  EXPECT_NEAR (snapshot.rate_hz, 30, 0.001);
  // Slower from now on: a second later nothing of the old rate is left.
  for (int i = 0; i < 12; i++, now_ns += 100'000'000)
    snapshot = statistics.add_frame (now_ns, 1, 2);
  EXPECT_NEAR (snapshot.rate_hz, 10, 0.001);
  // Slower than one a second.
  for (int i = 0; i < 3; i++, now_ns += 4'000'000'000)
    snapshot = statistics.add_frame (now_ns, 1, 2);
  EXPECT_NEAR (snapshot.rate_hz, 0.25, 0.001);
  // Faster than the ring is long.
  for (int i = 0; i < 100; i++, now_ns += 1'000'000)
    snapshot = statistics.add_frame (now_ns, 1, 2);
  EXPECT_NEAR (snapshot.rate_hz, 1000, 0.1);
  EXPECT_EQ (snapshot.frames, 155u);
  statistics.add_drop ();
  EXPECT_EQ (statistics.get ().drops, 1u);
  statistics.reset ();
  EXPECT_EQ (statistics.get ().frames, 0u);
  EXPECT_EQ (statistics.add_frame (now_ns, 1, 2).rate_hz, 0);
}

// ---- The algorithm's place

/** An algorithm that waits in each frame until it is let go, and notes what it got. */
struct Algorithm {
  std::mutex mutex;
  std::condition_variable changed;
  bool held = true;
  std::vector<guint8> first_pixels;
  std::vector<guint64> captures_ns;
  std::vector<double> focal;
} algorithm;

constexpr vision::Field algorithm_fields[] = {
    {"focal", "Focal length, pixels", vision::FieldType::real, 1, 0, 1000}};
constexpr vision::Kind algorithm_kind = {"TestVision", "A test's", algorithm_fields};

void process (KavrelVision *self, const GstVideoFrame *frame, guint64 capture_ns)
{
  std::unique_lock lock (algorithm.mutex);
  algorithm.first_pixels.push_back (*static_cast<guint8 *> (GST_VIDEO_FRAME_PLANE_DATA (frame, 0)));
  algorithm.captures_ns.push_back (capture_ns);
  algorithm.focal = vision::calibration_of (self).numbers ("focal");
  algorithm.changed.notify_all ();
  algorithm.changed.wait (lock, [] { return !algorithm.held; });
}

TEST_F (VisionBins, AlgorithmGetsEachFrameWithItsTimeAndTheCalibration)
{
  static const GType type = [] {
    static const GTypeInfo info = {
        .class_size = sizeof (KavrelVisionClass),
        .class_init =
            [] (gpointer klass, gpointer) {
              static_cast<KavrelVisionClass *> (klass)->process = process;
            },
        .instance_size = sizeof (KavrelVision),
    };
    return g_type_register_static (vision::type_of (algorithm_kind), "TestAlgorithm", &info,
                                   static_cast<GTypeFlags> (0));
  }();
  const auto element = vorn::adopt (GST_ELEMENT (g_object_new (type, nullptr)));
  g_object_set (element.get (), "focal", 321.5, nullptr);
  algorithm.held = false;
  const Harness harness (gst_harness_new_with_element (element.get (), "sink", "src"));
  gst_harness_set_src_caps_str (harness.get (),
                                "video/x-raw,format=GRAY8,width=64,height=48,framerate=30/1");
  GstBuffer *buffer = captured_at (frame_of (GST_VIDEO_FORMAT_GRAY8, 5), 123'456'789);
  EXPECT_EQ (gst_harness_push (harness.get (), buffer), GST_FLOW_OK);
  EXPECT_EQ (algorithm.first_pixels, std::vector<guint8>{5});
  EXPECT_EQ (algorithm.captures_ns, std::vector<guint64>{123'456'789});
  EXPECT_EQ (algorithm.focal, std::vector<double>{321.5});
  // The frame goes on as it is, not as a copy.
  const auto passed = vorn::adopt (gst_harness_pull (harness.get ()));
  EXPECT_EQ (passed.get (), buffer);
}

/** While it lives, the bin's algorithm is stuck with its next frame. */
class Stuck
{
public:
  explicit Stuck (GstElement *bin, const char *child)
      : pad_ (vorn::adopt (gst_element_get_static_pad (
            vorn::adopt (gst_bin_get_by_name (GST_BIN (bin), child)).get (), "src")))
  {
    probe_ = gst_pad_add_probe (
        pad_.get (),
        static_cast<GstPadProbeType> (GST_PAD_PROBE_TYPE_BLOCK | GST_PAD_PROBE_TYPE_BUFFER),
        [] (GstPad *, GstPadProbeInfo *, gpointer) { return GST_PAD_PROBE_OK; }, nullptr, nullptr);
  }
  ~Stuck () { gst_pad_remove_probe (pad_.get (), probe_); }

private:
  vorn::Ref<GstPad> pad_;
  gulong probe_;
};

TEST_F (VisionBins, BusyAlgorithmGetsTheNewestAndDropsAreCounted)
{
  for (const auto &row : bins) {
    SCOPED_TRACE (row.factory);
    const auto bin = make (row.factory);
    const Harness harness = harness_for (bin.get (), GST_VIDEO_FORMAT_GRAY8);
    {
      const Stuck stuck (bin.get (), row.child);
      gst_harness_push (harness.get (), frame_of (GST_VIDEO_FORMAT_GRAY8, 1));
      // It has the first; two of the others may wait.
      ASSERT_TRUE (eventually ([&] { return count_of (bin.get (), "frames") == 1; }));
      for (guint8 i = 2; i <= 21; i++)
        EXPECT_EQ (gst_harness_push (harness.get (), frame_of (GST_VIDEO_FORMAT_GRAY8, i)),
                   GST_FLOW_OK);
      EXPECT_EQ (count_of (bin.get (), "drops"), 18u);
    }
    ASSERT_TRUE (eventually ([&] { return count_of (bin.get (), "frames") == 3; }));
    EXPECT_EQ (number_of (bin.get (), "mean-luma"), 21);
    EXPECT_EQ (count_of (bin.get (), "drops"), 18u);
  }
}

TEST_F (VisionBins, GoThroughAllStatesAgainAndAgain)
{
  for (const auto &row : bins) {
    const auto bin = make (row.factory);
    for (int i = 0; i < 5; i++)
      for (const GstState state :
           {GST_STATE_READY, GST_STATE_PLAYING, GST_STATE_PAUSED, GST_STATE_READY, GST_STATE_NULL,
            GST_STATE_PLAYING, GST_STATE_NULL})
        EXPECT_NE (gst_element_set_state (bin.get (), state), GST_STATE_CHANGE_FAILURE);
    EXPECT_EQ (G_OBJECT (bin.get ())->ref_count, 1u);
  }
  EXPECT_TRUE (log_.lines ().empty ());
}

} // namespace
