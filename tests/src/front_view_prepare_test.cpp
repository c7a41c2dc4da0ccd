// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What prepare builds in its four shapes, and how unprepare takes it down.
#include "front_view_support.hpp"

#include "accurate_attitude.hpp"
#include "clock_time.hpp"

namespace
{

const std::string rgba = "capsfilter[video/x-raw, width=(int)672, height=(int)416, "
                         "format=(string)RGBA, framerate=(fraction)24000/1001]";
const std::string simple_caps = "capsfilter[video/x-raw, width=(int)1280, height=(int)720, "
                                "format=(string)I420, framerate=(fraction)24000/1001]";
const std::string full_caps = "capsfilter[video/x-raw, width=(int)3840, height=(int)2160]";

class FrontViewPrepare : public FrontViewTest
{
protected:
  void set (bool with_camera, bool simple)
  {
    with_camera_.emplace ("ro.with-front-cam", with_camera ? "1" : "0");
    simple_.emplace ("ro.simple-front-cam", simple ? "1" : "0");
  }
  static guint number (GstElement *element, const char *property)
  {
    guint value = 77777;
    g_object_get (element, property, &value, nullptr);
    return value;
  }
  GstPad *pad (VornPipelineKind kind) const
  {
    return vorn_gst_view_get_source_pad (VORN_GST_VIEW (view_), kind);
  }
  std::string text (const char *property) const
  {
    gchar *value = nullptr;
    g_object_get (view_, property, &value, nullptr);
    const vorn::OwnedString owned (value);
    return value;
  }

  std::optional<PropertyValue> with_camera_;
  std::optional<PropertyValue> simple_;
};

TEST_F (FrontViewPrepare, SimpleBuild)
{
  for (const bool with_camera : {false, true}) {
    SCOPED_TRACE (with_camera);
    set (with_camera, true);
    make_view ("kavrel_morviksrc");
    log_.clear ();
    parent_calls ().clear ();
    ASSERT_TRUE (vorn_view_prepare (base ()));
    EXPECT_EQ (complaints (), Texts{});
    EXPECT_EQ (parent_calls (), Texts{"prepare"});
    const std::string source = with_camera ? "kavrel_morviksrc" : "videotestsrc";

    EXPECT_EQ (view_->main_pipeline, pipeline ("front-streaming-pipeline"));
    const Element main_source = find_factory (view_->main_pipeline, source);
    EXPECT_EQ (chain_from (main_source), source + " > videoconvert > " + simple_caps);
    EXPECT_EQ (child_count (view_->main_pipeline), 3u);
    EXPECT_EQ (view_->camera_source, main_source.get ());
    // One pad for both.
    ASSERT_NE (pad (VORN_PIPELINE_KIND_STREAMING), nullptr);
    EXPECT_EQ (pad (VORN_PIPELINE_KIND_STREAMING), pad (VORN_PIPELINE_KIND_RECORDING));
    EXPECT_EQ (view_->camera_imu, nullptr);
    EXPECT_EQ (view_->attitude_provider, nullptr);
    EXPECT_EQ (view_->main_tovrinfilter, nullptr);

    EXPECT_EQ (view_->picture_pipeline, pipeline ("front-picture-pipeline"));
    const Element picture_source = find_factory (view_->picture_pipeline, source);
    EXPECT_EQ (
        chain_from (picture_source).find (source + " > videoconvert > " + simple_caps + " > tee"),
        0u)
        << chain_from (picture_source);
    EXPECT_EQ (number (picture_source.get (), "num-buffers"), 1u);
    EXPECT_EQ (text ("streaming-preset"), "ZeltoStreaming720p");
    EXPECT_EQ (text ("recording-preset"), "ZeltoRecording2160p");
    if (with_camera) {
      EXPECT_EQ (main_source.get (), vorn_camera_get_element (camera_.get ()));
      EXPECT_STREQ (GST_OBJECT_NAME (picture_source.get ()), "picture-src");
      gchar *address = nullptr;
      g_object_get (picture_source.get (), "source", &address, nullptr);
      EXPECT_STREQ (vorn::OwnedString (address).get (), "unix:/nowhere/front");
      for (const Element &one : {main_source, picture_source}) {
        EXPECT_EQ (number (one.get (), "sensor-rect-width"), 1280u);
        EXPECT_EQ (number (one.get (), "sensor-rect-height"), 720u);
        EXPECT_EQ (number (one.get (), "sensor-rect-left"), 0u);
        EXPECT_EQ (number (one.get (), "sensor-rect-top"), 0u);
      }
    } else {
      for (const Element &one : {main_source, picture_source}) {
        gboolean live = FALSE;
        g_object_get (one.get (), "is-live", &live, nullptr);
        EXPECT_TRUE (live);
      }
    }
    drop_view ();
    g_object_unref (camera_.get ()); // the two that the virtual camera keeps
    g_object_unref (camera_.get ());
  }
}

TEST_F (FrontViewPrepare, FullBuild)
{
  for (const bool with_camera : {false, true}) {
    SCOPED_TRACE (with_camera);
    set (with_camera, false);
    make_view ("kavrel_morviksrc");
    log_.clear ();
    ASSERT_TRUE (vorn_view_prepare (base ()));
    // There is no drone: the picture goes on without attitudes.
    EXPECT_EQ (complaints (),
               (Texts{"W failed to create camera imu", "W failed to create Shdata provider",
                      "W filter already set", "W filter already set"}));
    const std::string source = with_camera ? "kavrel_morviksrc" : "videotestsrc";
    const std::string dewarped = source + " > videoconvert > " + rgba +
                                 " > glupload > kavrel_tovrinfilter > gldownload > videoconvert > ";
    const Element main_source = find_factory (view_->main_pipeline, source);
    EXPECT_EQ (chain_from (main_source),
               dewarped + "capsfilter[video/x-raw, format=(string)I420] > tee");
    const Element tee = find_factory (view_->main_pipeline, "tee");
    const auto first = vorn::adopt (gst_element_get_static_pad (tee.get (), "src_0"));
    const auto second = vorn::adopt (gst_element_get_static_pad (tee.get (), "src_1"));
    EXPECT_EQ (pad (VORN_PIPELINE_KIND_STREAMING), first.get ());
    EXPECT_EQ (pad (VORN_PIPELINE_KIND_RECORDING), second.get ());
    EXPECT_EQ (tee->numsrcpads, 2);

    const Element picture_source = find_factory (view_->picture_pipeline, source);
    EXPECT_EQ (chain_from (picture_source).find (dewarped + full_caps + " > tee"), 0u)
        << chain_from (picture_source);
    EXPECT_EQ (number (picture_source.get (), "num-buffers"), 1u);
    if (with_camera) {
      EXPECT_EQ (number (picture_source.get (), "sensor-rect-width"), 640u);
      EXPECT_EQ (number (picture_source.get (), "sensor-rect-height"), 400u);
      EXPECT_EQ (number (picture_source.get (), "sensor-rect-left"), 16u);
      EXPECT_EQ (number (picture_source.get (), "sensor-rect-top"), 8u);
      EXPECT_EQ (number (main_source.get (), "sensor-rect-width"), 0u); // the camera's own choice
    }
    for (GstElement *bin : {view_->main_pipeline, view_->picture_pipeline}) {
      const Element filter = find_factory (bin, "kavrel_tovrinfilter");
      gboolean wobble = TRUE;
      g_object_get (filter.get (), "wobble-comp", &wobble, nullptr);
      EXPECT_FALSE (wobble);
      EXPECT_EQ (number (filter.get (), "sensor-capture-width"), 640u);
      EXPECT_EQ (number (filter.get (), "sensor-capture-height"), 400u);
      EXPECT_EQ (number (filter.get (), "sensor-capture-left"), 16u);
      EXPECT_EQ (number (filter.get (), "sensor-capture-top"), 8u);
    }
    EXPECT_EQ (view_->main_tovrinfilter, nullptr);
    EXPECT_EQ (view_->picture_tovrinfilter, nullptr);
    drop_view ();
    g_object_unref (camera_.get ());
    g_object_unref (camera_.get ());
  }
}

TEST_F (FrontViewPrepare, NewFramesAreHeardOfWithARealCameraOnly)
{
  const guint signal = g_signal_lookup (
      "new-frame",
      G_OBJECT_TYPE (vorn::adopt (gst_element_factory_make ("kavrel_morviksrc", nullptr)).get ()));
  ASSERT_NE (signal, 0u);
  make_view ("kavrel_morviksrc");
  GstElement *element = vorn_camera_get_element (camera_.get ());
  const auto is_heard = [&] {
    return g_signal_has_handler_pending (element, signal, 0, TRUE) != FALSE;
  };
  set (false, true);
  ASSERT_TRUE (vorn_view_prepare (base ()));
  EXPECT_FALSE (is_heard ());
  unprepare ();
  set (true, true);
  for (int i = 0; i < 2; i++) {
    ASSERT_TRUE (vorn_view_prepare (base ()));
    EXPECT_TRUE (is_heard ());
    EXPECT_EQ (g_signal_handlers_disconnect_matched (element, G_SIGNAL_MATCH_DATA, 0, 0, nullptr,
                                                     nullptr, view_),
               1u);
    unprepare ();
  }
  ASSERT_TRUE (vorn_view_prepare (base ()));
  drop_view ();
  EXPECT_FALSE (is_heard ());
}

TEST_F (FrontViewPrepare, CameraIsAttachedToBothPipelines)
{
  make_view ();
  ASSERT_TRUE (vorn_view_prepare (base ()));
  const GQuark quark = g_quark_from_string ("camera-quark");
  for (GstElement *one : {view_->main_pipeline, view_->picture_pipeline})
    EXPECT_EQ (g_object_get_qdata (G_OBJECT (one), quark), camera_.get ());
}

TEST_F (FrontViewPrepare, ParentsAnswerIsTheAnswer)
{
  make_view ();
  parent_failing () = {"prepare"};
  EXPECT_FALSE (vorn_view_prepare (base ()));
  EXPECT_NE (view_->main_pipeline, nullptr);
  EXPECT_NE (view_->picture_pipeline, nullptr);
}

TEST_F (FrontViewPrepare, UnprepareTakesDownAndLendsTheCameraAgain)
{
  make_view ("kavrel_morviksrc");
  GstElement *element = vorn_camera_get_element (camera_.get ());
  for (const bool simple : {true, false, false, true}) {
    set (true, simple);
    ASSERT_TRUE (vorn_view_prepare (base ()));
    EXPECT_EQ (GST_OBJECT_PARENT (element), GST_OBJECT (view_->main_pipeline));
    // Someone may still hold the pipeline.
    const auto held = vorn::share (view_->main_pipeline);
    parent_calls ().clear ();
    unprepare ();
    EXPECT_EQ (parent_calls (), Texts{"unprepare"});
    EXPECT_EQ (GST_OBJECT_PARENT (element), nullptr);
    EXPECT_EQ (view_->main_pipeline, nullptr);
    EXPECT_EQ (view_->picture_pipeline, nullptr);
    EXPECT_EQ (view_->camera_imu, nullptr);
    EXPECT_EQ (view_->attitude_provider, nullptr);
    EXPECT_EQ (pipeline ("front-streaming-pipeline"), nullptr);
    EXPECT_EQ (pipeline ("front-picture-pipeline"), nullptr);
  }
}

TEST_F (FrontViewPrepare, SecondUnprepareOnlyChainsUp)
{
  make_view ();
  ASSERT_TRUE (vorn_view_prepare (base ()));
  unprepare ();
  parent_calls ().clear ();
  log_.clear ();
  CriticalCapture criticals;
  EXPECT_TRUE (VORN_VIEW_GET_CLASS (view_)->unprepare (base ()));
  EXPECT_EQ (parent_calls (), Texts{"unprepare"});
  parent_failing () = {"unprepare"};
  EXPECT_FALSE (VORN_VIEW_GET_CLASS (view_)->unprepare (base ()));
  EXPECT_TRUE (criticals.criticals ().empty ());
  EXPECT_TRUE (log_.lines ().empty ());
}

// ---- Attitudes

class FrontViewAttitude : public FrontViewPrepare
{
protected:
  FrontViewAttitude () { set (false, false); }
  vorn::OwnedStructure ask (guint64 start_ns, guint64 stop_ns)
  {
    const Element filter = find_factory (view_->main_pipeline, "kavrel_tovrinfilter");
    GstStructure *answer = nullptr;
    g_signal_emit_by_name (filter.get (), "imu-get-attitude-data", start_ns, stop_ns, &answer);
    return vorn::OwnedStructure (answer);
  }
};

TEST_F (FrontViewAttitude, WithoutAProviderThereIsNoneAndNothingIsSaid)
{
  make_view ();
  ASSERT_TRUE (vorn_view_prepare (base ()));
  log_.clear ();
  EXPECT_FALSE (ask (1000, 2000));
  EXPECT_EQ (complaints (), Texts{});
}

TEST_F (FrontViewAttitude, ComesFromTheProvider)
{
  const vorn::Owned<VornBlackboardWriter, vorn_blackboard_writer_close> writer (
      vorn_blackboard_create (accurate_attitude_section, &accurate_attitude_header));
  constexpr guint64 ms = 1000000;
  constexpr guint64 start_ns = 5000 * ms;
  for (guint64 k = 0; k < 20; k++) {
    const quat_t sample = {0.f, 0.f, 0.6f, 0.8f};
    const timespec time = timespec_of (start_ns + k * ms);
    ASSERT_EQ (vorn_blackboard_write (writer.get (), &sample, &time), 0);
  }
  make_view ();
  ASSERT_TRUE (vorn_view_prepare (base ()));
  ASSERT_NE (view_->attitude_provider, nullptr);
  EXPECT_FALSE (g_object_is_floating (view_->attitude_provider));
  log_.clear ();
  const auto answer = ask (start_ns + 5 * ms, start_ns + 9 * ms);
  ASSERT_TRUE (answer);
  EXPECT_STREQ (gst_structure_get_name (answer.get ()), "imu-data");
  const GValue *field = gst_structure_get_value (answer.get (), "quaternions_z");
  const auto *values = static_cast<const GArray *> (g_value_get_boxed (field));
  ASSERT_EQ (values->len, 5u);
  EXPECT_FLOAT_EQ (g_array_index (values, gfloat, 0), 0.6f);
  EXPECT_EQ (complaints (), Texts{});

  // Before anything was known.
  EXPECT_FALSE (ask (1000, 2000));
  EXPECT_EQ (complaints (), Texts{"W failed to get attitude for tovrin"});

  // Taking down fails to release the provider, which is heard: the reference is dropped here.
  VornTovrinShdataProvider *kept = view_->attitude_provider;
  CriticalCapture criticals;
  unprepare ();
  EXPECT_EQ (G_OBJECT (kept)->ref_count, 1u);
  drop (kept);
  EXPECT_TRUE (criticals.has_assertion ("G_IS_OBJECT (object)", "GLib-GObject"));
  EXPECT_EQ (criticals.criticals ().size (), 1u);
  EXPECT_EQ (view_->attitude_provider, nullptr);
}

TEST_F (FrontViewAttitude, ProviderThatIsNotTakenDownGoesWithTheView)
{
  const vorn::Owned<VornBlackboardWriter, vorn_blackboard_writer_close> writer (
      vorn_blackboard_create (accurate_attitude_section, &accurate_attitude_header));
  make_view ();
  faults.no_photo_branch = true;
  ASSERT_FALSE (vorn_view_prepare (base ()));
  ASSERT_NE (view_->attitude_provider, nullptr);
  gpointer provider = view_->attitude_provider;
  g_object_add_weak_pointer (G_OBJECT (provider), &provider);
  CriticalCapture criticals;
  drop_view ();
  EXPECT_EQ (provider, nullptr);
  EXPECT_TRUE (criticals.criticals ().empty ());
}

} // namespace
