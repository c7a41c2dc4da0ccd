// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The front view as an object: construction, properties, class, switches, its end.
#include "front_view_support.hpp"

namespace
{

class FrontViewObject : public FrontViewTest
{
};

TEST_F (FrontViewObject, ArgumentsAreCheckedInOrder)
{
  const VornCameraParameters parameters = {.name = "front"};
  const auto camera = vorn::adopt (vorn_camera_new (&parameters));
  const struct {
    const char *name, *display_name;
    VornCamera *camera;
    const char *video_device;
    const char *expression;
  } rows[] = {
      {nullptr, nullptr, nullptr, nullptr, "name != NULL"},
      {"front", nullptr, nullptr, nullptr, "display_name != NULL"},
      {"front", "Front camera", nullptr, nullptr, "VORN_IS_CAMERA (camera)"},
      {"front", "Front camera", camera.get (), nullptr, "video_device != NULL"},
  };
  for (const auto &row : rows) {
    CriticalCapture criticals;
    EXPECT_EQ (vorn_morvik_zelto_front_view_new (row.name, row.display_name, row.camera,
                                                 row.video_device, product_.get ()),
               nullptr);
    EXPECT_TRUE (criticals.has_assertion (row.expression)) << row.expression;
    EXPECT_EQ (criticals.criticals ().size (), 1u);
  }
  EXPECT_EQ (G_OBJECT (camera.get ())->ref_count, 1u);
}

TEST_F (FrontViewObject, IsMadeWithNamesDeviceCameraAndProduct)
{
  make_view ();
  EXPECT_STREQ (vorn_view_get_name (base ()), "front");
  EXPECT_STREQ (vorn_view_get_display_name (base ()), "Front camera");
  EXPECT_EQ (vorn_view_get_cameras (base ())->data, camera_.get ());
  EXPECT_EQ (view_->product, product_.get ());
  EXPECT_EQ (G_OBJECT (view_)->ref_count, 1u);
  EXPECT_NE (view_->streaming_postprocessor, nullptr);
  EXPECT_NE (view_->recording_postprocessor, nullptr);
  EXPECT_NE (view_->streaming_postprocessor, view_->recording_postprocessor);
  EXPECT_EQ (g_type_parent (G_OBJECT_TYPE (view_)), VORN_TYPE_GST_VIEW);
  EXPECT_STREQ (G_OBJECT_TYPE_NAME (view_), "VornMorvikZeltoFrontView");
  EXPECT_EQ (g_type_get_plugin (G_OBJECT_TYPE (view_)), nullptr);
}

TEST_F (FrontViewObject, WithoutPostprocessorsItIsMadeAllTheSame)
{
  GstLogCapture gst_log;
  faults.no_postprocessor = true;
  make_view ();
  EXPECT_EQ (gst_log.count (GST_LEVEL_ERROR, "frame_postprocessor_new failed"), 2);
  EXPECT_EQ (view_->streaming_postprocessor, nullptr);
  EXPECT_EQ (view_->recording_postprocessor, nullptr);
}

TEST_F (FrontViewObject, VideoDeviceHasADefaultAndIsReplaced)
{
  const auto plain = vorn::adopt (g_object_new (VORN_TYPE_MORVIK_ZELTO_FRONT_VIEW, nullptr));
  const auto device_of = [] (gpointer view) {
    gchar *device = nullptr;
    g_object_get (view, "video-device", &device, nullptr);
    const vorn::OwnedString owned (device);
    return std::string (device);
  };
  EXPECT_EQ (device_of (plain.get ()), "unix:/simulator/hor_camera.sock");
  make_view ();
  EXPECT_EQ (device_of (view_), "unix:/nowhere/front");
  g_object_set (view_, "video-device", "unix:/other", nullptr);
  EXPECT_EQ (device_of (view_), "unix:/other");
  const GParamSpec *property =
      g_object_class_find_property (G_OBJECT_GET_CLASS (view_), "video-device");
  EXPECT_STREQ (g_param_spec_get_nick (const_cast<GParamSpec *> (property)), "Video Device");
  EXPECT_STREQ (g_param_spec_get_blurb (const_cast<GParamSpec *> (property)),
                "Path to the video socket");
}

TEST_F (FrontViewObject, RecordingBitrateIsReadOnlyInEffect)
{
  make_view ();
  CriticalCapture messages;
  g_object_set (view_, "recording-bitrate", 1000000u, nullptr);
  const auto warnings = messages.warnings ();
  ASSERT_EQ (warnings.size (), 1u);
  EXPECT_NE (warnings[0].text.find ("invalid property id 2 for \"recording-bitrate\" of type "),
             std::string::npos)
      << warnings[0].text;
  EXPECT_NE (warnings[0].text.find ("in 'VornMorvikZeltoFrontView'"), std::string::npos);
  guint bitrate = 77;
  g_object_get (view_, "recording-bitrate", &bitrate, nullptr);
  EXPECT_EQ (bitrate, 0u); // there is no encoder
}

TEST_F (FrontViewObject, FillsItsSlotsAndLeavesTheOthersToTheFramework)
{
  make_view ();
  const VornViewClass *klass = VORN_VIEW_GET_CLASS (view_);
  const auto *parent = VORN_VIEW_CLASS (g_type_class_peek (VORN_TYPE_GST_VIEW));
  ASSERT_NE (klass->attitude_interface_key, nullptr);
  EXPECT_NE (std::string (klass->attitude_interface_key).find ('.'), std::string::npos);
  EXPECT_EQ (klass->reserved_0, parent->reserved_0);
  for (int i = 0; i < 2; i++) {
    EXPECT_EQ (klass->reserved_1[i], parent->reserved_1[i]);
    EXPECT_EQ (klass->reserved_2[i], parent->reserved_2[i]);
  }
  EXPECT_EQ (klass->prepare, vorn_morvik_zelto_front_view_prepare);
  EXPECT_EQ (klass->unprepare, vorn_morvik_zelto_front_view_unprepare);
  EXPECT_EQ (klass->make_thumbnail, vorn_morvik_zelto_front_make_thumbnail);
  EXPECT_EQ (klass->take_snapshot, vorn_morvik_zelto_front_view_take_snapshot);
  EXPECT_EQ (VORN_GST_VIEW_GET_CLASS (view_)->handle_message,
             vorn_morvik_zelto_front_view_handle_message);
}

TEST_F (FrontViewObject, SwitchesAreOnAtExactlyOne)
{
  EXPECT_FALSE (with_front_cam ());
  EXPECT_TRUE (is_simple_front_cam ());
  const struct {
    const char *value;
    bool on;
  } rows[] = {{"1", true},   {"0", false},    {"1 ", false},
              {" 1", false}, {"11", false},   {"", false},
              {"01", false}, {"true", false}, {"1111111111111111111", false}};
  for (const auto &row : rows) {
    const PropertyValue camera ("ro.with-front-cam", row.value);
    const PropertyValue simple ("ro.simple-front-cam", row.value);
    EXPECT_EQ (with_front_cam (), row.on) << '"' << row.value << '"';
    EXPECT_EQ (is_simple_front_cam (), row.on) << '"' << row.value << '"';
  }
}

TEST_F (FrontViewObject, StubsSayThatTheyAre)
{
  make_view ();
  const VornViewClass *klass = VORN_VIEW_GET_CLASS (view_);
  EXPECT_TRUE (klass->set_anti_wobble (base (), TRUE));
  EXPECT_TRUE (klass->set_user_fov (base (), 60.0));
  klass->blending_event (base (), 1);
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_INFO),
             (Texts{"(vorn_morvik_zelto_front_view_set_anti_wobble) stub",
                    "(vorn_zelto_front_view_set_user_fov) stub",
                    "(vorn_morvik_zelto_front_view_blending_event) stub"}));
}

TEST_F (FrontViewObject, ImageStyleReachesTheCameraThroughTheVirtualCamera)
{
  make_view ("kavrel_morviksrc");
  const auto style_of = [this] {
    guint style = 99;
    g_object_get (vorn_camera_get_element (camera_.get ()), "img-style", &style, nullptr);
    return style;
  };
  {
    const PropertyValue with_camera ("ro.with-front-cam", "1");
    // No source before prepare.
    EXPECT_TRUE (vorn_virtual_camera_set_image_style (virtual_camera_.get (), 1));
    EXPECT_EQ (style_of (), 0u);
    ASSERT_TRUE (vorn_view_prepare (base ()));
    EXPECT_TRUE (vorn_virtual_camera_set_image_style (virtual_camera_.get (), 2));
    EXPECT_EQ (style_of (), 2u);
  }
  // Accepted, and changes nothing, once there is no real camera.
  EXPECT_TRUE (vorn_virtual_camera_set_image_style (virtual_camera_.get (), 1));
  EXPECT_EQ (style_of (), 2u);
}

TEST_F (FrontViewObject, DisposesTwice)
{
  make_view ();
  ASSERT_TRUE (vorn_view_prepare (base ()));
  unprepare ();
  const auto held = vorn::share (view_);
  g_object_run_dispose (G_OBJECT (view_));
  EXPECT_EQ (view_->main_pipeline, nullptr);
  EXPECT_EQ (view_->picture_pipeline, nullptr);
  EXPECT_EQ (view_->camera_imu, nullptr);
  EXPECT_EQ (view_->attitude_provider, nullptr);
  EXPECT_EQ (view_->streaming_postprocessor, nullptr);
  EXPECT_EQ (view_->recording_postprocessor, nullptr);
  CriticalCapture criticals;
  g_object_run_dispose (G_OBJECT (view_));
  EXPECT_TRUE (criticals.criticals ().empty ());
}

} // namespace
