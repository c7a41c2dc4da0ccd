// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What the filter asks for, and that it bears whatever answer it gets.
#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include <vorn/frame_meta.h>

#include "filter_rig.hpp"
#include "log_capture.hpp"

using namespace scene;

namespace
{

constexpr FrameTimes times = {5 * GST_SECOND + 123, 7 * GST_MSECOND, 12 * GST_MSECOND, 1.3};

vorn::OwnedStructure good_data ()
{
  return make_imu_data ({20, {0, 0, std::sin (0.1), std::cos (0.1)}});
}

void replace (GstStructure *data, const char *name, const std::vector<float> &values)
{
  GArray *array = g_array_new (FALSE, FALSE, sizeof (float));
  g_array_append_vals (array, values.data (), static_cast<guint> (values.size ()));
  gst_structure_set (data, name, G_TYPE_ARRAY, array, nullptr);
  g_array_unref (array);
}

struct Malformed {
  const char *name;
  void (*spoil) (GstStructure *data);
  const char *problem;
};

constexpr float nan = std::numeric_limits<float>::quiet_NaN ();
constexpr float infinity = std::numeric_limits<float>::infinity ();

const Malformed malformed[] = {
    {"missing_x", [] (GstStructure *d) { gst_structure_remove_field (d, "quaternions_x"); },
     "quaternions_x is missing"},
    {"missing_w", [] (GstStructure *d) { gst_structure_remove_field (d, "quaternions_w"); },
     "quaternions_w is missing"},
    {"nothing_in_it", [] (GstStructure *d) { gst_structure_remove_all_fields (d); },
     "quaternions_x is missing"},
    {"empty", [] (GstStructure *d) { replace (d, "quaternions_y", {}); }, "quaternions_y is empty"},
    {"all_empty",
     [] (GstStructure *d) {
       for (const char *name : {"quaternions_x", "quaternions_y", "quaternions_z", "quaternions_w"})
         replace (d, name, {});
     },
     "quaternions_x is empty"},
    {"shorter",
     [] (GstStructure *d) {
       replace (d, "quaternions_z", {0, 0, 0});
     },
     "quaternions_z has 3 elements, quaternions_x has 20"},
    {"longer", [] (GstStructure *d) { replace (d, "quaternions_w", std::vector<float> (21, 1)); },
     "quaternions_w has 21 elements, quaternions_x has 20"},
    {"nan",
     [] (GstStructure *d) {
       std::vector<float> values (20, 0);
       values[13] = nan;
       replace (d, "quaternions_x", values);
     },
     "sample 13 is no unit quaternion"},
    {"infinite",
     [] (GstStructure *d) {
       std::vector<float> values (20, 0);
       values[19] = infinity;
       replace (d, "quaternions_y", values);
     },
     "sample 19 is no unit quaternion"},
    {"zero",
     [] (GstStructure *d) {
       for (const char *name : {"quaternions_x", "quaternions_y", "quaternions_z", "quaternions_w"})
         replace (d, name, std::vector<float> (20, 0));
     },
     "sample 0 is no unit quaternion"},
    {"too_long", [] (GstStructure *d) { replace (d, "quaternions_w", std::vector<float> (20, 2)); },
     "sample 0 is no unit quaternion"},
    {"huge", [] (GstStructure *d) { replace (d, "quaternions_x", std::vector<float> (20, 3e38F)); },
     "sample 0 is no unit quaternion"},
    {"no_array",
     [] (GstStructure *d) {
       gst_structure_set (d, "quaternions_x", G_TYPE_STRING, "0.5", nullptr);
     },
     "quaternions_x is no array of 32-bit floats"},
    {"null_array",
     [] (GstStructure *d) {
       gst_structure_set (d, "quaternions_y", G_TYPE_ARRAY, nullptr, nullptr);
     },
     "quaternions_y is no array of 32-bit floats"},
    {"doubles",
     [] (GstStructure *d) {
       GArray *array = g_array_new (FALSE, TRUE, sizeof (double));
       g_array_set_size (array, 20);
       gst_structure_set (d, "quaternions_z", G_TYPE_ARRAY, array, nullptr);
       g_array_unref (array);
     },
     "quaternions_z is no array of 32-bit floats"},
    {"other_name", [] (GstStructure *d) { gst_structure_set_name (d, "gyro-data"); },
     "the structure is named gyro-data"},
};

void PrintTo (const Malformed &m, std::ostream *out)
{
  *out << m.name;
}

class Data : public testing::Test
{
protected:
  bool passes_unwarped ()
  {
    const Image result = rig_.run (picture_, times);
    return result.width > 0 && mean_difference (result, picture_) < 0.01;
  }

  LogCapture log_;
  FilterRig rig_{160, 90};
  const Image picture_ = waves (160, 90, 11);
};

class MalformedData : public Data, public testing::WithParamInterface<Malformed>
{
};

} // namespace

TEST_P (MalformedData, FramesPassUnwarpedWithOneWarning)
{
  rig_.set_answer ([] (GstClockTime, GstClockTime) {
    auto data = good_data ();
    GetParam ().spoil (data.get ());
    return data;
  });
  for (int i = 0; i < 4; i++)
    EXPECT_TRUE (passes_unwarped ());
  const std::vector<std::string> expected = {
      "wrong attitude data, " + std::string (GetParam ().problem) + ": frames pass unwarped"};
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING), expected);
  // And goes on when the data are good again.
  rig_.set_answer ([] (GstClockTime, GstClockTime) { return good_data (); });
  rig_.set_orientation ({});
  EXPECT_FALSE (passes_unwarped ());
}

INSTANTIATE_TEST_SUITE_P (Answers, MalformedData, testing::ValuesIn (malformed),
                          [] (const auto &test) { return std::string (test.param.name); });

TEST_F (Data, IsAskedForFromTheFirstRowsExposureToTheEndOfTheLast)
{
  rig_.set_answer ([] (GstClockTime, GstClockTime) { return good_data (); });
  rig_.run (picture_, times);
  ASSERT_EQ (rig_.asked.size (), 1u);
  EXPECT_EQ (rig_.asked[0].first, 5 * GST_SECOND + 123);
  EXPECT_EQ (rig_.asked[0].second, 5 * GST_SECOND + 123 + 19 * GST_MSECOND);
}

TEST_F (Data, NoneMeansUnwarpedWithOneWarning)
{
  for (int i = 0; i < 3; i++)
    EXPECT_TRUE (passes_unwarped ());
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING),
             std::vector<std::string>{"no attitude data: frames pass unwarped"});
}

TEST_F (Data, EachLossIsToldAnew)
{
  bool answers = false;
  rig_.set_answer ([&] (GstClockTime, GstClockTime) {
    return answers ? good_data () : vorn::OwnedStructure ();
  });
  for (int i = 0; i < 6; i++) {
    answers = i % 3 == 2;
    rig_.run (picture_, times);
  }
  EXPECT_EQ (log_.count ("no attitude data: frames pass unwarped"), 2);
}

TEST_F (Data, FewerSamplesThanTheSpanHasStillServe)
{
  rig_.set_answer ([] (GstClockTime, GstClockTime) {
    return make_imu_data ({{0, 0, std::sin (0.1), std::cos (0.1)}});
  });
  rig_.set_orientation ({});
  EXPECT_FALSE (passes_unwarped ());
  EXPECT_TRUE (log_.texts (VORN_LOG_PRIORITY_WARNING).empty ());
}

TEST_F (Data, QuaternionsOfBothSignsAreTheSame)
{
  rig_.set_orientation ({0.1, 0, 0});
  rig_.set_answer ([] (GstClockTime, GstClockTime) { return good_data (); });
  const Image plain = rig_.run (picture_, times);
  rig_.set_answer ([] (GstClockTime, GstClockTime) {
    std::vector<std::array<double, 4>> samples (20, {0, 0, std::sin (0.1), std::cos (0.1)});
    for (size_t i = 0; i < samples.size (); i += 2)
      for (double &value : samples[i])
        value = -value;
    return make_imu_data (samples);
  });
  EXPECT_LT (mean_difference (rig_.run (picture_, times), plain), 0.01);
}

TEST_F (Data, OfTheFirstHandlerCounts)
{
  rig_.set_answer ([] (GstClockTime, GstClockTime) { return good_data (); });
  int second_asked = 0;
  g_signal_connect (rig_.filter (), "imu-get-attitude-data",
                    G_CALLBACK (+[] (GstElement *, guint64, guint64, gpointer count) {
                      ++*static_cast<int *> (count);
                      return static_cast<GstStructure *> (nullptr);
                    }),
                    &second_asked);
  rig_.set_orientation ({});
  EXPECT_FALSE (passes_unwarped ());
  EXPECT_EQ (second_asked, 0);
}

// Frame metadata.

TEST_F (Data, IsNotAskedForWithoutFrameMetadata)
{
  rig_.set_answer ([] (GstClockTime, GstClockTime) { return good_data (); });
  const Image result = rig_.run (picture_, std::nullopt);
  EXPECT_EQ (result.pixels, picture_.pixels);
  EXPECT_TRUE (rig_.asked.empty ());
  EXPECT_TRUE (log_.texts (VORN_LOG_PRIORITY_WARNING).empty ());
}

namespace
{

struct WrongMeta {
  const char *name;
  void (*spoil) (GstStructure *meta);
  const char *problem;
};

const WrongMeta wrong_metas[] = {
    {"no_time", [] (GstStructure *m) { gst_structure_remove_field (m, "capture-timestamp"); },
     "the frame metadata has no capture-timestamp"},
    {"time_none",
     [] (GstStructure *m) {
       gst_structure_set (m, "capture-timestamp", GST_TYPE_CLOCK_TIME, GST_CLOCK_TIME_NONE,
                          nullptr);
     },
     "the frame metadata has no capture-timestamp"},
    {"no_hfov", [] (GstStructure *m) { gst_structure_remove_field (m, "hfov"); },
     "the frame metadata has no hfov"},
    {"hfov_text",
     [] (GstStructure *m) { gst_structure_set (m, "hfov", G_TYPE_STRING, "90", nullptr); },
     "the frame metadata has no hfov"},
    {"hfov_zero",
     [] (GstStructure *m) { gst_structure_set (m, "hfov", G_TYPE_DOUBLE, 0.0, nullptr); },
     "a field of view of 0.000000 rad is not possible"},
    {"hfov_half_turn",
     [] (GstStructure *m) { gst_structure_set (m, "hfov", G_TYPE_DOUBLE, 3.1416, nullptr); },
     "a field of view of 3.141600 rad is not possible"},
    {"hfov_nan",
     [] (GstStructure *m) {
       gst_structure_set (m, "hfov", G_TYPE_DOUBLE, static_cast<double> (nan), nullptr);
     },
     "a field of view of nan rad is not possible"},
    {"vfov_negative",
     [] (GstStructure *m) { gst_structure_set (m, "vfov", G_TYPE_DOUBLE, -1.0, nullptr); },
     "a field of view of -1.000000 rad is not possible"},
    {"focal_length_zero",
     [] (GstStructure *m) {
       gst_structure_set (m, "focal-x", G_TYPE_DOUBLE, 0.0, "center-x", G_TYPE_DOUBLE, 80.0,
                          nullptr);
     },
     "an optical axis at inf is not possible"},
    {"exposure_of_hours",
     [] (GstStructure *m) {
       gst_structure_set (m, "exposure-ns", G_TYPE_UINT64, 3600 * GST_SECOND, nullptr);
     },
     "the frame metadata's times are out of range"},
    {"times_overflow",
     [] (GstStructure *m) {
       gst_structure_set (m, "readout-ns", G_TYPE_UINT64, G_MAXUINT64, "exposure-ns", G_TYPE_UINT64,
                          G_MAXUINT64, nullptr);
     },
     "the frame metadata's times are out of range"},
    {"time_near_the_end",
     [] (GstStructure *m) {
       gst_structure_set (m, "capture-timestamp", GST_TYPE_CLOCK_TIME, GST_CLOCK_TIME_NONE - 2,
                          nullptr);
     },
     "the frame metadata's times are out of range"},
};

void PrintTo (const WrongMeta &m, std::ostream *out)
{
  *out << m.name;
}

class WrongMetadata : public Data, public testing::WithParamInterface<WrongMeta>
{
};

} // namespace

TEST_P (WrongMetadata, FramesPassUnwarpedWithOneWarning)
{
  rig_.set_answer ([] (GstClockTime, GstClockTime) { return good_data (); });
  for (int i = 0; i < 3; i++) {
    const Image result = rig_.run (picture_, times, [] (GstBuffer *buffer) {
      GetParam ().spoil (vorn_frame_meta_get (buffer)->structure);
    });
    EXPECT_EQ (result.pixels, picture_.pixels);
  }
  EXPECT_EQ (
      log_.texts (VORN_LOG_PRIORITY_WARNING),
      std::vector<std::string>{std::string (GetParam ().problem) + ": frames pass unwarped"});
}

INSTANTIATE_TEST_SUITE_P (Fields, WrongMetadata, testing::ValuesIn (wrong_metas),
                          [] (const auto &test) { return std::string (test.param.name); });

TEST_F (Data, MetadataGoOnWithTheFrame)
{
  rig_.set_answer ([] (GstClockTime, GstClockTime) { return good_data (); });
  rig_.run (picture_, times);
  const VornFrameMeta *meta = vorn_frame_meta_get (gst_sample_get_buffer (rig_.last.get ()));
  ASSERT_TRUE (meta);
  GstClockTime capture_ns = 0;
  EXPECT_TRUE (gst_structure_get_clock_time (meta->structure, "capture-timestamp", &capture_ns));
  EXPECT_EQ (capture_ns, times.capture_ns);
}

TEST_F (Data, RectangleBesideTheSensorMeansUnwarpedWithOneWarning)
{
  rig_.set_answer ([] (GstClockTime, GstClockTime) { return good_data (); });
  g_object_set (rig_.filter (), "sensor-capture-left", 100u, "sensor-capture-width", 64u,
                "sensor-capture-height", 36u, nullptr);
  for (int i = 0; i < 2; i++)
    EXPECT_TRUE (passes_unwarped ());
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING),
             std::vector<std::string>{
                 "the captured rectangle does not lie on the sensor: frames pass unwarped"});
}

// The output orientation's text.

namespace
{

std::string orientation_of (FilterRig *rig)
{
  gchar *text = nullptr;
  g_object_get (rig->filter (), "out-camera-orientation-quat", &text, nullptr);
  const vorn::OwnedString owned (text);
  return text;
}

} // namespace

TEST_F (Data, WrongOrientationTextIsToldAndChangesNothing)
{
  const char *good = "0.000000, 0.000000, 0.087156, 0.996195";
  g_object_set (rig_.filter (), "out-camera-orientation-quat", good, nullptr);
  EXPECT_TRUE (log_.texts (VORN_LOG_PRIORITY_WARNING).empty ());
  rig_.set_answer ([] (GstClockTime, GstClockTime) { return good_data (); });
  const Image before = rig_.run (picture_, times);
  for (const char *wrong : {"0, 0, 1", "0, 0, 0, 1, 0", "x, y, z, w", "0; 0; 0; 1", "0, 0, 0, 0",
                            "0, 0, 0, 2", "nan, 0, 0, 1", "inf, 0, 0, 1", "0, 0, 0, 1 more",
                            "0,, 0, 1", ",0, 0, 0, 1", " ", "0 0 0 1", "0,0, 0,0, 0,0, 1,0"}) {
    log_.clear ();
    g_object_set (rig_.filter (), "out-camera-orientation-quat", wrong, nullptr);
    EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING),
               std::vector<std::string>{"out-camera-orientation-quat: \"" + std::string (wrong) +
                                        "\" is no unit quaternion \"x, y, z, w\", the old value "
                                        "stays"});
    EXPECT_EQ (orientation_of (&rig_), good);
  }
  EXPECT_EQ (rig_.run (picture_, times).pixels, before.pixels);
}

TEST_F (Data, OrientationTextIsTakenAsWritten)
{
  for (const char *good : {"0, 0, 0, 1", "0,0,0,-1", " 5e-1 , -0.5,0.5 ,  0.5 ",
                           "0.100000, 0.200000, 0.300000, 0.927362"}) {
    g_object_set (rig_.filter (), "out-camera-orientation-quat", good, nullptr);
    EXPECT_EQ (orientation_of (&rig_), good);
  }
  EXPECT_TRUE (log_.texts (VORN_LOG_PRIORITY_WARNING).empty ());
}

TEST_F (Data, EmptyOrientationTextGoesBackToTheLevelView)
{
  g_object_set (rig_.filter (), "zoom-release-time", 0u, nullptr);
  rig_.follow ([] (double) { return Euler{0.2, 0, 0}; });
  const Image level = rig_.run (picture_, times);
  rig_.set_orientation ({0.2, 0, 0});
  EXPECT_TRUE (passes_unwarped ());
  for (const char *text : {"", static_cast<const char *> (nullptr)}) {
    rig_.set_orientation ({0.2, 0, 0});
    g_object_set (rig_.filter (), "out-camera-orientation-quat", text, nullptr);
    EXPECT_LT (mean_difference (rig_.run (picture_, times), level), 0.5);
    EXPECT_EQ (orientation_of (&rig_), "");
  }
}
