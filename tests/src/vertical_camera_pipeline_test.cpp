// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What the vertical camera's pipeline is made of, and what its bins are told.
#include "vertical_camera_pipeline.hpp"

#include <algorithm>
#include <cerrno>
#include <cmath>

#include "clock_time.hpp"
#include "log_capture.hpp"
#include "own_namespace.hpp"
#include "selmac_info.hpp"
#include "telemetry_variable.hpp"
#include "vertical_camera_support.hpp"

namespace
{

bool deserialize_fails = false;

using Texts = std::vector<std::string>;

class VerticalCamera : public testing::Test
{
protected:
  static void SetUpTestSuite () { prepare_test_camera (); }
  void SetUp () override
  {
    set_test_camera (live_frames);
    deserialize_fails = false;
  }

  OwnNamespace name_space_;
  LogCapture log_;
};

// ---- The properties, read back through the bins

class Properties
{
public:
  explicit Properties (GstElement *bin) : bin_ (bin) {}

  template <typename T>
  T get (const char *name) const
  {
    T value{};
    gst_child_proxy_get (GST_CHILD_PROXY (bin_), name, &value, nullptr);
    return value;
  }
  std::string text (const char *name) const
  {
    const vorn::OwnedString value (get<gchar *> (name));
    return value ? value.get () : "(null)";
  }
  /** As GStreamer writes values, which shows types and nesting. */
  std::string array (const char *name) const
  {
    GValue value = G_VALUE_INIT;
    gst_child_proxy_get_property (GST_CHILD_PROXY (bin_), name, &value);
    EXPECT_TRUE (GST_VALUE_HOLDS_ARRAY (&value)) << name;
    const vorn::OwnedString written (gst_value_serialize (&value));
    g_value_unset (&value);
    return written.get ();
  }

private:
  GstElement *bin_;
};

/** Numbers of an array as written, the type marks left out. */
std::vector<double> numbers_of (const std::string &written)
{
  std::vector<double> numbers;
  const char *at = written.c_str ();
  while (*at) {
    char *end;
    if (g_str_has_prefix (at, "(float)")) {
      numbers.push_back (g_ascii_strtod (at + 7, &end));
      at = end;
    } else {
      at++;
    }
  }
  return numbers;
}

void expect_numbers (const std::string &written, const std::vector<double> &expected)
{
  const auto numbers = numbers_of (written);
  ASSERT_EQ (numbers.size (), expected.size ()) << written;
  for (size_t i = 0; i < expected.size (); i++)
    EXPECT_NEAR (numbers[i], expected[i], 1e-6) << written << " at " << i;
}

struct Mounting {
  const char *name;
  double factory_yaw, camera_yaw; // degrees
  const char *rotation;
  std::vector<double> rows;
};

const double half_root_3 = std::sqrt (3.0) / 2;
const Mounting mountings[] = {
    {"straight",
     0,
     0,
     "{1.000000, -0.000000, 0, 0.000000, 1.000000, 0, 0, 0, 1}",
     {1, 0, 0, 0, 1, 0, 0, 0, 1}},
    {"factory quarter turn",
     90,
     0,
     "{0.000000, -1.000000, 0, 1.000000, 0.000000, 0, 0, 0, 1}",
     {0, -1, 0, 1, 0, 0, 0, 0, 1}},
    {"camera quarter turn",
     0,
     90,
     "{0.000000, -1.000000, 0, 1.000000, 0.000000, 0, 0, 0, 1}",
     {0, -1, 0, 1, 0, 0, 0, 0, 1}},
    {"both, adding up to 60",
     45,
     15,
     "{0.500000, -0.866025, 0, 0.866025, 0.500000, 0, 0, 0, 1}",
     {0.5, -half_root_3, 0, half_root_3, 0.5, 0, 0, 0, 1}},
    {"the other way round",
     -30,
     0,
     "{0.866025, 0.500000, 0, -0.500000, 0.866025, 0, 0, 0, 1}",
     {half_root_3, 0.5, 0, -0.5, half_root_3, 0, 0, 0, 1}},
};

class Calibration : public VerticalCamera, public testing::WithParamInterface<Mounting>
{
};

TEST_P (Calibration, IsSetValueByValue)
{
  const Mounting &mounting = GetParam ();
  VornCameraParameters parameters = small_camera ();
  parameters.sensor_configuration.resolution = {640, 480};
  parameters.optical_center_x = 318.25;
  parameters.optical_center_y = 243.5;
  parameters.focal_length = 1.9953;
  parameters.factory_orientation = {11, 12, mounting.factory_yaw};
  parameters.orientation = {13, 14, mounting.camera_yaw};
  parameters.position = {0.0725, -0.0125, 0.0213};
  const CriticalCapture glib;
  const VerticalPipeline pipeline (parameters);
  const double hfov = 2 * std::atan2 (2.304 / 2, 1.9953);

  const Properties condor (pipeline.child ("condor-bin"));
  EXPECT_EQ (condor.get<guint> ("condor::sensor-width"), 640u);
  EXPECT_EQ (condor.get<guint> ("condor::sensor-height"), 480u);
  EXPECT_EQ (condor.get<gfloat> ("condor::sensor-width-mm"), 2.304f);
  EXPECT_EQ (condor.get<gfloat> ("condor::sensor-height-mm"), 1.728f);
  EXPECT_EQ (condor.get<gdouble> ("condor::focal-length"), 1.9953);
  EXPECT_EQ (condor.get<gdouble> ("condor::principal-point-x"), 318.25);
  EXPECT_EQ (condor.get<gdouble> ("condor::principal-point-y"), 243.5);
  EXPECT_EQ (condor.text ("condor::rotation-matrix"), mounting.rotation);
  EXPECT_EQ (condor.text ("condor::translation-vector"), "{0.072500, -0.012500, 0.021300}");
  EXPECT_EQ (condor.text ("condor::min-gradient-vector"), "{16.0, 16.0, 64.0, 64.0}");
  EXPECT_EQ (condor.text ("condor::sensor-gain-vector"), "{0.0, 16.0, 64.0, 128.0}");

  for (const std::string name : {"precise-hovering", "precise-home"}) {
    const Properties precise (pipeline.child (name + "-bin"));
    EXPECT_NEAR (precise.get<gfloat> ((name + "::hfov").c_str ()), hfov, 1e-6);
    EXPECT_EQ (precise.get<gdouble> ((name + "::optical-center-x").c_str ()), 318.25);
    EXPECT_EQ (precise.get<gdouble> ((name + "::optical-center-y").c_str ()), 243.5);
    const std::string matrix = precise.array ((name + "::rotation-mat").c_str ());
    expect_numbers (matrix, mounting.rows);
    // Three rows of three.
    EXPECT_EQ (std::count (matrix.begin (), matrix.end (), '<'), 4) << matrix;
    EXPECT_EQ (numbers_of (matrix.substr (0, matrix.find ('>'))).size (), 3u) << matrix;
    expect_numbers (precise.array ((name + "::rotation-error-vec").c_str ()), {0, 0, 0});
    expect_numbers (precise.array ((name + "::translation-vec").c_str ()),
                    {0.0725, -0.0125, 0.0213});
  }

  const Properties carpet (pipeline.child ("magic-carpet-bin"));
  EXPECT_EQ (carpet.text ("visioncarpet::rotation-matrix"), mounting.rotation);
  EXPECT_EQ (carpet.text ("visioncarpet::cam-pos"), "{72.500000, -12.500000, 21.300000}");
  EXPECT_NEAR (carpet.get<gdouble> ("visioncarpet::focal"), 640 * 1.9953 / 2.304, 1e-4);
  EXPECT_FALSE (carpet.get<gboolean> ("mcbin-sink::async"));

  EXPECT_TRUE (log_.lines ().empty ()) << log_.lines ()[0].text;
  EXPECT_TRUE (glib.warnings ().empty ()) << glib.warnings ()[0].text;
  EXPECT_TRUE (glib.criticals ().empty ()) << glib.criticals ()[0].text;
}

INSTANTIATE_TEST_SUITE_P (Mountings, Calibration, testing::ValuesIn (mountings),
                          [] (const auto &row) {
                            std::string name = row.param.name;
                            std::replace_if (
                                name.begin (), name.end (), [] (char c) { return !isalnum (c); },
                                '_');
                            return name;
                          });

TEST_F (VerticalCamera, FocalLengthOfTheSensorsWidth)
{
  VornCameraParameters parameters = small_camera ();
  parameters.sensor_configuration.resolution = {1280, 960};
  parameters.focal_length = 2.304;
  const VerticalPipeline pipeline (parameters);
  EXPECT_NEAR (Properties (pipeline.child ("precise-home-bin")).get<gfloat> ("precise-home::hfov"),
               0.9272952, 1e-6);
  EXPECT_NEAR (
      Properties (pipeline.child ("magic-carpet-bin")).get<gdouble> ("visioncarpet::focal"), 1280,
      1e-3);
}

TEST_F (VerticalCamera, PositionsOfAnySize)
{
  VornCameraParameters parameters = small_camera ();
  parameters.position = {0.5, -1.25e-9, 1e6};
  const VerticalPipeline pipeline (parameters);
  EXPECT_EQ (Properties (pipeline.child ("magic-carpet-bin")).text ("visioncarpet::cam-pos"),
             "{500.000000, -0.000001, 1000000000.000000}");
  EXPECT_EQ (Properties (pipeline.child ("condor-bin")).text ("condor::translation-vector"),
             "{0.500000, -0.000000, 1000000.000000}");
}

TEST_F (VerticalCamera, RotationErrorThatCannotBeReadIsTolerated)
{
  deserialize_fails = true;
  const VerticalPipeline pipeline;
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING),
             (Texts{"failed to set rotation err vec", "failed to set rotation err vec"}));
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR), Texts{});
  const Properties precise (pipeline.child ("precise-home-bin"));
  EXPECT_EQ (precise.array ("precise-home::rotation-error-vec"), "<  >");
  expect_numbers (precise.array ("precise-home::translation-vec"), {0, 0, 0});
}

// ---- The elements

TEST_F (VerticalCamera, IsLinkedButForTheMagicCarpet)
{
  const VerticalPipeline pipeline;
  GstElement *source = vorn_camera_get_element (pipeline.camera ());
  const struct {
    GstElement *from;
    const char *name;
  } links[] = {{source, "vertical-filter"},
               {pipeline.child ("vertical-filter"), "vision-tee"},
               {pipeline.child ("vision-tee"), "condor-bin"},
               {pipeline.child ("vision-tee"), "precise-hovering-bin"},
               {pipeline.child ("vision-tee"), "precise-home-bin"}};
  for (const auto &link : links) {
    const auto pad = vorn::adopt (gst_element_get_static_pad (pipeline.child (link.name), "sink"));
    const auto peer = vorn::adopt (gst_pad_get_peer (pad.get ()));
    ASSERT_TRUE (peer) << link.name;
    EXPECT_TRUE (gst_object_has_as_parent (GST_OBJECT (peer.get ()), GST_OBJECT (link.from)))
        << link.name;
  }
  EXPECT_EQ (pipeline.bin ()->numchildren, 7);
  EXPECT_EQ (pipeline.tee_pads (), 3u);
  EXPECT_FALSE (pipeline.carpet_is_linked ());
  GstCaps *caps = nullptr;
  g_object_get (pipeline.child ("vertical-filter"), "caps", &caps, nullptr);
  const auto owned = vorn::adopt (caps);
  const auto expected = vorn::adopt (gst_caps_from_string (
      "video/x-raw, width=(int)64, height=(int)48, framerate=(fraction)200/1"));
  EXPECT_TRUE (gst_caps_is_strictly_equal (caps, expected.get ()));
}

TEST_F (VerticalCamera, FramesReachThreeBins)
{
  const VerticalPipeline pipeline;
  const FrameCounter carpet (pipeline.child ("magic-carpet-bin"));
  const FrameCounter last (pipeline.child ("precise-home-bin"));
  ASSERT_TRUE (pipeline.play ());
  ASSERT_TRUE (last.wait_for (20));
  for (const char *name : {"condor-bin", "precise-hovering-bin", "precise-home-bin"}) {
    EXPECT_TRUE (eventually ([&] {
      guint64 frames = 0;
      g_object_get (pipeline.child (name), "frames", &frames, nullptr);
      return frames > 10;
    })) << name;
  }
  EXPECT_EQ (carpet.count (), 0u);
}

// ---- What is missing

TEST_F (VerticalCamera, WithoutAnElementThereIsNoPipeline)
{
  for (const char *factory : {static_cast<const char *> (nullptr), "no_such_element"}) {
    log_.clear ();
    VornCameraParameters parameters = small_camera ();
    parameters.element_factory = factory;
    const auto camera = vorn::adopt (vorn_camera_new (&parameters));
    const auto pipeline = vorn::adopt (gst_pipeline_new (nullptr));
    EXPECT_FALSE (vertical_camera_pipeline_populate (GST_BIN (pipeline.get ()), camera.get (),
                                                     nullptr, nullptr));
    const auto lines = log_.lines ();
    ASSERT_FALSE (lines.empty ());
    EXPECT_EQ (lines.back ().text, "failed to get camera video source");
    EXPECT_EQ (lines.back ().priority, VORN_LOG_PRIORITY_ERROR);
    EXPECT_EQ (lines.back ().prefix.find ("src/vertical_camera_pipeline.cpp:"), 0u);
    EXPECT_EQ (GST_BIN (pipeline.get ())->numchildren, 0);
  }
}

/** While it lives, elements of this factory cannot be made. */
class MissingFactory
{
public:
  explicit MissingFactory (const char *name)
      : feature_ (vorn::adopt (gst_registry_lookup_feature (gst_registry_get (), name)))
  {
    EXPECT_TRUE (feature_) << name;
    gst_registry_remove_feature (gst_registry_get (), feature_.get ());
  }
  MissingFactory (MissingFactory &&) = default;
  ~MissingFactory ()
  {
    if (feature_)
      gst_registry_add_feature (gst_registry_get (), feature_.get ());
  }

private:
  vorn::Ref<GstPluginFeature> feature_;
};

bool has_handler (GstElement *source)
{
  return g_signal_has_handler_pending (
      source, g_signal_lookup ("new-frame", G_OBJECT_TYPE (source)), 0, TRUE);
}

TEST_F (VerticalCamera, MissingElementsAreNamedInOrder)
{
  const struct {
    const char *factory;
    const char *text;
  } table[] = {{"capsfilter", " visionfilter"},
               {"tee", " tee"},
               {"kavrel_vorncondorbin", " condorbin"},
               {"kavrel_vornprecisehoveringbin", " precisehoveringbin"},
               {"kavrel_vornprecisehomebin", " precisehomebin"},
               {"kavrel_vornmagiccarpetbin", " magiccarpetcbin"}};
  const VornCameraParameters parameters = small_camera ();
  const auto camera = vorn::adopt (vorn_camera_new (&parameters));
  GstElement *source = vorn_camera_get_element (camera.get ());
  for (unsigned mask = 1; mask < 64; mask++) {
    log_.clear ();
    const auto pipeline = vorn::adopt (gst_pipeline_new (nullptr));
    std::string expected = "failed to make element(s):";
    {
      std::vector<MissingFactory> missing;
      for (unsigned i = 0; i < 6; i++)
        if (mask & 1u << i) {
          missing.emplace_back (table[i].factory);
          expected += table[i].text;
        }
      EXPECT_FALSE (vertical_camera_pipeline_populate (GST_BIN (pipeline.get ()), camera.get (),
                                                       nullptr, nullptr));
    }
    EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR), Texts{expected});
    EXPECT_EQ (GST_BIN (pipeline.get ())->numchildren, 0);
    EXPECT_EQ (G_OBJECT (source)->ref_count, 1u) << "the camera's own";
    EXPECT_FALSE (has_handler (source));
  }
  // Nothing has spoilt the camera.
  const auto pipeline = vorn::adopt (gst_pipeline_new (nullptr));
  EXPECT_TRUE (vertical_camera_pipeline_populate (GST_BIN (pipeline.get ()), camera.get (), nullptr,
                                                  nullptr));
}

TEST_F (VerticalCamera, WhatCannotBeLinkedIsTakenOutAgain)
{
  set_test_camera ("");
  const VornCameraParameters parameters = small_camera ();
  const auto camera = vorn::adopt (vorn_camera_new (&parameters));
  GstElement *source = vorn_camera_get_element (camera.get ());
  const auto pipeline = vorn::adopt (gst_pipeline_new (nullptr));
  EXPECT_FALSE (vertical_camera_pipeline_populate (GST_BIN (pipeline.get ()), camera.get (),
                                                   nullptr, nullptr));
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR), Texts{"failed to link vertical pipeline"});
  EXPECT_EQ (GST_BIN (pipeline.get ())->numchildren, 0);
  EXPECT_EQ (G_OBJECT (source)->ref_count, 1u);
  EXPECT_FALSE (has_handler (source));
}

TEST_F (VerticalCamera, CameraThatIsInUseElsewhereStaysThere)
{
  const VerticalPipeline first;
  GstElement *source = vorn_camera_get_element (first.camera ());
  const auto second = vorn::adopt (gst_pipeline_new (nullptr));
  const CriticalCapture glib;
  EXPECT_FALSE (vertical_camera_pipeline_populate (GST_BIN (second.get ()), first.camera (),
                                                   nullptr, nullptr));
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR), Texts{"failed to link vertical pipeline"});
  EXPECT_EQ (GST_BIN (second.get ())->numchildren, 0);
  EXPECT_TRUE (gst_object_has_as_parent (GST_OBJECT (source), GST_OBJECT (first.bin ())));
  EXPECT_TRUE (has_handler (source)) << "the first pipeline's";
}

// ---- Frame times

TEST_F (VerticalCamera, EachFramesTimeIsPublished)
{
  set_test_camera (pushed_frames);
  const vorn::Owned<SelmacData, selmacdata_free> exposure (selmacdata_new ());
  ASSERT_TRUE (exposure);
  const VerticalPipeline pipeline (small_camera (), exposure.get ());
  const FrameCounter frames (pipeline.child ("condor-bin"));
  ASSERT_TRUE (pipeline.play ());
  // Uneven on purpose, and no multiple of a microsecond.
  const guint64 times_ns[] = {1'000'000'007, 1'004'999'999, 1'020'000'001};
  guint64 offset = 0;
  for (const guint64 time_ns : times_ns) {
    GstBuffer *buffer = gst_buffer_new_allocate (nullptr, 64 * 48, nullptr);
    GST_BUFFER_PTS (buffer) = time_ns;
    GST_BUFFER_OFFSET (buffer) = offset++;
    pipeline.push (buffer);
    ASSERT_TRUE (frames.wait_for (offset));
  }
  guint16 luma = 0;
  const auto entry = telemetry_entry ("selmacdata.out_luma", luma);
  const vorn::Owned<VornTelemetryConsumer, vorn_telemetry_consumer_destroy> consumer (
      vorn_telemetry_consumer_new ());
  ASSERT_EQ (vorn_telemetry_consumer_register (consumer.get (), &entry, 1), 0);
  ASSERT_EQ (vorn_telemetry_consumer_complete (consumer.get ()), 0);
  const auto at = [&] (guint64 time_ns, VornTelemetryMethod method) {
    const timespec time = timespec_of (time_ns);
    return vorn_telemetry_consumer_get (consumer.get (), &time, method);
  };
  // A sample exactly at each frame's time: none before the first, none after the last.
  EXPECT_EQ (at (times_ns[0] - 1, VORN_TELEMETRY_VALID_AT), -ENOENT);
  EXPECT_EQ (at (times_ns[0], VORN_TELEMETRY_VALID_AT), 0);
  EXPECT_EQ (luma, 512);
  EXPECT_EQ (at (times_ns[2], VORN_TELEMETRY_FIRST_NOT_BEFORE), 0);
  EXPECT_EQ (at (times_ns[2] + 1, VORN_TELEMETRY_FIRST_NOT_BEFORE), -ENODATA);
}

TEST_F (VerticalCamera, AnnouncesFramesOnlyWhileThePipelineIsThere)
{
  const VornCameraParameters parameters = small_camera ();
  const auto camera = vorn::adopt (vorn_camera_new (&parameters));
  GstElement *source = vorn_camera_get_element (camera.get ());
  {
    const auto pipeline = vorn::adopt (gst_pipeline_new (nullptr));
    ASSERT_TRUE (vertical_camera_pipeline_populate (GST_BIN (pipeline.get ()), camera.get (),
                                                    nullptr, nullptr));
    EXPECT_TRUE (has_handler (source));
    // Without a record there is nothing to publish, and nothing to say.
    g_signal_emit_by_name (source, "new-frame", guint64{1});
  }
  EXPECT_FALSE (has_handler (source));
  EXPECT_TRUE (log_.lines ().empty ());
}

} // namespace

extern "C" {
gboolean __real_gst_value_deserialize (GValue *value, const gchar *text);
gboolean __wrap_gst_value_deserialize (GValue *value, const gchar *text);
gboolean __wrap_gst_value_deserialize (GValue *value, const gchar *text)
{
  return !deserialize_fails && __real_gst_value_deserialize (value, text);
}
}
