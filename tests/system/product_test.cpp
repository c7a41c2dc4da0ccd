// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier:
// Apache-2.0 The real library, loaded as the host loads it.
#include "product_fixture.hpp"

#include <cstring>

#include <gmodule.h>

#include "process.hpp"

namespace
{

using Texts = std::vector<std::string>;

// ---- Library and descriptor

TEST (Library, ExportsItsDescriptorOnly)
{
  const ProcessResult nm = run_process ({"nm", "-D", "--defined-only", plugin_path ()});
  ASSERT_TRUE (nm.exited && nm.status == 0) << nm.errors;
  Texts symbols;
  const vorn::OwnedStrings lines (g_strsplit (nm.output.c_str (), "\n", 0));
  for (gchar **line = lines.get (); *line; line++)
    if (const char *name = strrchr (*line, ' '))
      symbols.emplace_back (name + 1);
  EXPECT_EQ (symbols, Texts{"vorn_plugin_desc"});
  // Initialised data.
  EXPECT_NE (nm.output.find (" D vorn_plugin_desc"), std::string::npos) << nm.output;
}

TEST (Library, DescriptorFieldByField)
{
  const vorn::Owned<GModule, g_module_close> library (
      g_module_open (plugin_path (), G_MODULE_BIND_LOCAL));
  ASSERT_TRUE (library) << g_module_error ();
  gpointer symbol = nullptr;
  ASSERT_TRUE (g_module_symbol (library.get (), "vorn_plugin_desc", &symbol));
  // As plain memory, with the offsets of the interface.
  const auto *bytes = static_cast<const guint8 *> (symbol);
  const gchar *name = nullptr;
  guint32 versions[2] = {99, 99};
  gpointer init = nullptr;
  memcpy (&name, bytes, sizeof name);
  memcpy (versions, bytes + 8, sizeof versions);
  memcpy (&init, bytes + 16, sizeof init);
  EXPECT_STREQ (name, "vorn_morvik_zelto");
  EXPECT_EQ (versions[0], 0u);
  EXPECT_EQ (versions[1], 5u);
  EXPECT_NE (init, nullptr);
  for (int i = 24; i < 120; i++)
    EXPECT_EQ (bytes[i], 0) << "byte " << i;
}

TEST (Library, AnnouncesTheElementZelto)
{
  VornPlugin *plugin = load_plugin ();
  ASSERT_NE (plugin, nullptr);
  EXPECT_STREQ (vorn_plugin_get_name (plugin), "vorn_morvik_zelto");
  const vorn::Owned<const gchar *, g_free> elements (vorn_plugin_get_elements (plugin));
  EXPECT_STREQ (elements.get ()[0], "zelto");
  EXPECT_EQ (elements.get ()[1], nullptr);
  EXPECT_EQ (load_plugin (), plugin);

  const GType type = g_type_from_name ("VornMorvikZelto");
  ASSERT_NE (type, 0u);
  EXPECT_EQ (g_type_parent (type), VORN_TYPE_PRODUCT);
  EXPECT_EQ (g_type_get_plugin (type), G_TYPE_PLUGIN (plugin));
  const auto product = vorn::adopt (vorn_plugin_create_product (plugin, "zelto", nullptr));
  EXPECT_EQ (G_OBJECT_TYPE (product.get ()), type);
  vorn::ErrorOut error;
  EXPECT_EQ (vorn_plugin_create_product (plugin, "front", error.out ()), nullptr);
  EXPECT_TRUE (g_error_matches (error.operator->(), VORN_PLUGIN_ERROR, VORN_PLUGIN_ERROR_ELEMENT));
}

// ---- Setup

TEST_F (ProductFixture, SetupMakesTheFrontCamera)
{
  Configuration configuration ({front_camera});
  EXPECT_TRUE (vorn_product_setup (product_, configuration.get ()));
  VornVirtualCamera *front = vorn_product_get_virtual_camera_by_name (product_, "front");
  ASSERT_NE (front, nullptr);
  EXPECT_STREQ (G_OBJECT_TYPE_NAME (front), "VornMorvikZeltoFrontVirtualCamera");
  EXPECT_EQ (g_list_length (vorn_product_get_virtual_cameras (product_)), 1u);
  EXPECT_EQ (G_OBJECT (front)->ref_count, 1u);
  EXPECT_TRUE (vorn_virtual_camera_is_active (front));
  VornView *view = vorn_virtual_camera_get_view_by_name (front, "front");
  ASSERT_NE (view, nullptr);
  EXPECT_STREQ (G_OBJECT_TYPE_NAME (view), "VornMorvikZeltoFrontView");
  EXPECT_STREQ (vorn_view_get_display_name (view), "Front camera");
  EXPECT_TRUE (vorn_view_is_prepared (view));
  gchar *video_device = nullptr;
  g_object_get (view, "video-device", &video_device, nullptr);
  EXPECT_STREQ (video_device, "unix:/front");
  g_free (video_device);
  for (const char *name : {"front-streaming-pipeline", "front-picture-pipeline"})
    EXPECT_TRUE (vorn::adopt (vorn_product_get_pipeline_by_name (product_, name))) << name;
  EXPECT_EQ (vorn_product_get_active_cameras (product_), 1u);
  EXPECT_TRUE (vorn_product_is_flavor_supported (product_, 0));
  EXPECT_FALSE (vorn_product_is_flavor_supported (product_, 1));
  const VornCameraMode *mode = vorn_virtual_camera_get_mode (front);
  EXPECT_EQ (mode->type, 0u);
  EXPECT_EQ (mode->recording.sub_mode, 0u);
  EXPECT_EQ (mode->recording.resolution.width, 3840u);
  EXPECT_EQ (mode->recording.resolution.height, 2160u);
  EXPECT_EQ (mode->recording.framerate.num, 30000u);
  EXPECT_EQ (mode->recording.framerate.den, 1001u);
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR), Texts{});
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING), Texts{});
  // Beside those of the virtual camera: the view's and its two pipelines'.
  EXPECT_EQ (configuration.camera_references (), 6u);
  owned_.reset ();
  EXPECT_EQ (configuration.camera_references (), 3u);
}

TEST_F (ProductFixture, SetupSaysWhatItMakes)
{
  Configuration configuration ({front_camera});
  ASSERT_TRUE (vorn_product_setup (product_, configuration.get ()));
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_DEBUG), Texts{"setup visible vcam and view"});
}

TEST_F (ProductFixture, SetupOfASensorThatNoModeFits)
{
  Configuration configuration ({{"front", {1280, 720}, {24000, 1001}}});
  EXPECT_TRUE (vorn_product_setup (product_, configuration.get ()));
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING),
             Texts{"no mode found with sensor configuration: use default one"});
  const VornCameraMode *mode =
      vorn_virtual_camera_get_mode (vorn_product_get_virtual_camera_by_name (product_, "front"));
  EXPECT_EQ (mode->recording.resolution.width, 4096u);
  EXPECT_EQ (mode->recording.framerate.num, 24000u);
}

TEST_F (ProductFixture, SetupWithoutACameraItKnowsBuildsNothing)
{
  const std::vector<std::vector<CameraPlan>> sets = {
      {}, {{"Front", {5344, 3200}, {30000, 1001}}, {"Vertical", {640, 480}, {90, 1}}}};
  for (const auto &cameras : sets) {
    SetUp ();
    log_.clear ();
    Configuration configuration (cameras);
    EXPECT_FALSE (vorn_product_setup (product_, configuration.get ()));
    EXPECT_EQ (vorn_product_get_virtual_cameras (product_), nullptr);
    EXPECT_EQ (vorn_product_get_active_cameras (product_), 0u);
    EXPECT_FALSE (vorn_product_is_flavor_supported (product_, 0));
    EXPECT_TRUE (log_.lines ().empty ());
  }
}

TEST_F (ProductFixture, SetupWithoutVideoDeviceSaysSo)
{
  Configuration configuration ({front_camera}, false);
  EXPECT_FALSE (vorn_product_setup (product_, configuration.get ()));
  const vorn::OwnedKeyFile empty (g_key_file_new ());
  vorn::ErrorOut glib_error;
  EXPECT_EQ (
      g_key_file_get_string (empty.get (), "camera-front", "video-device", glib_error.out ()),
      nullptr);
  const auto lines = log_.lines ();
  ASSERT_EQ (lines.size (), 1u);
  EXPECT_EQ (lines[0].priority, VORN_LOG_PRIORITY_ERROR);
  EXPECT_EQ (lines[0].text, std::string ("failed to find 'video-device' key in configuration: ") +
                                glib_error.message ());
  EXPECT_EQ (lines[0].prefix.find ("src/vorn_morvik_zelto.cpp:"), 0u);
  EXPECT_EQ (vorn_product_get_virtual_cameras (product_), nullptr);
  EXPECT_EQ (vorn_product_get_active_cameras (product_), 0u);
  EXPECT_FALSE (vorn_product_is_flavor_supported (product_, 0));
  EXPECT_EQ (configuration.camera_references (), 1u);
}

TEST_F (ProductFixture, VideoDeviceKeyMayBeMissingInItsGroup)
{
  Configuration configuration ({front_camera}, false);
  g_key_file_set_string (configuration.get ()->key_file, "camera-front", "sensor-size", "1x1");
  EXPECT_FALSE (vorn_product_setup (product_, configuration.get ()));
  const auto errors = log_.texts (VORN_LOG_PRIORITY_ERROR);
  ASSERT_EQ (errors.size (), 1u);
  EXPECT_EQ (errors[0].find ("failed to find 'video-device' key in configuration: "), 0u);
  // GLib names key and group.
  EXPECT_NE (errors[0].find ("video-device", 40), std::string::npos) << errors[0];
  EXPECT_NE (errors[0].find ("camera-front"), std::string::npos) << errors[0];
}

TEST_F (ProductFixture, FirstOfTwoFrontCamerasServes)
{
  Configuration configuration ({{"front", {2656, 1600}, {50, 1}}, vertical_camera, front_camera});
  EXPECT_TRUE (vorn_product_setup (product_, configuration.get ()));
  EXPECT_GT (configuration.camera_references (0), 1u);
  EXPECT_EQ (configuration.camera_references (2), 1u);
  const VornCameraMode *mode =
      vorn_virtual_camera_get_mode (vorn_product_get_virtual_camera_by_name (product_, "front"));
  EXPECT_EQ (mode->recording.sub_mode, 2u);
  EXPECT_EQ (mode->recording.framerate.num, 50u);
}

TEST_F (ProductFixture, SetupOperationCalledAgainMakesNoSecondCamera)
{
  Configuration configuration ({front_camera});
  ASSERT_TRUE (vorn_product_setup (product_, configuration.get ()));
  VornVirtualCamera *front = vorn_product_get_virtual_camera_by_name (product_, "front");
  log_.clear ();
  CriticalCapture criticals;
  EXPECT_FALSE (VORN_PRODUCT_GET_CLASS (product_)->setup (product_, configuration.get ()));
  EXPECT_TRUE (
      log_.has ("virtual camera 'front' refused: the name is taken", VORN_LOG_PRIORITY_ERROR));
  EXPECT_TRUE (criticals.criticals ().empty ());
  EXPECT_EQ (vorn_product_get_virtual_camera_by_name (product_, "front"), front);
  EXPECT_EQ (g_list_length (vorn_product_get_virtual_cameras (product_)), 1u);
}

TEST_F (ProductFixture, TwoProductsOneAfterTheOther)
{
  Configuration first_configuration ({front_camera});
  Configuration second_configuration ({{"front", {1312, 788}, {120, 1}}});
  ASSERT_TRUE (vorn_product_setup (product_, first_configuration.get ()));
  owned_.reset ();
  SetUp ();
  ASSERT_TRUE (vorn_product_setup (product_, second_configuration.get ()));
  const VornCameraMode *mode =
      vorn_virtual_camera_get_mode (vorn_product_get_virtual_camera_by_name (product_, "front"));
  EXPECT_EQ (mode->recording.resolution.width, 1280u);
  owned_.reset ();
}

TEST_F (ProductFixture, ProductThatWasNeverSetUpGoes)
{
  EXPECT_EQ (G_OBJECT (product_)->ref_count, 1u);
  owned_.reset ();
  EXPECT_TRUE (log_.lines ().empty ());
}

// ---- Lookups

TEST_F (ProductFixture, CameraIds)
{
  const struct {
    const char *camera, *view;
    int id; // -1: none
  } rows[] = {
      {"front", "front", 0},
      {"front-thermal", "front-thermal", 1},
      {"front", "front-thermal", -1},
      {"front-thermal", "front", -1},
      {"vertical", "vertical", -1},
      {"front", "vertical", -1},
      {"", "", -1},
      {"Front", "Front", -1},
      {"front ", "front ", -1},
      {nullptr, "front", -1},
      {"front", nullptr, -1},
      {nullptr, nullptr, -1},
  };
  for (const auto &row : rows) {
    guint8 id = 77;
    EXPECT_EQ (vorn_product_get_camera_id (product_, row.camera, row.view, &id) != FALSE,
               row.id >= 0)
        << "row " << &row - rows;
    EXPECT_EQ (id, row.id >= 0 ? row.id : 77) << "row " << &row - rows;
  }
}

TEST_F (ProductFixture, CameraOfAnId)
{
  Configuration configuration ({front_camera});
  ASSERT_TRUE (vorn_product_setup (product_, configuration.get ()));
  auto *const untouched_camera = reinterpret_cast<VornVirtualCamera *> (&configuration);
  auto *const untouched_view = reinterpret_cast<VornView *> (&configuration);
  VornVirtualCamera *front = vorn_product_get_virtual_camera_by_name (product_, "front");

  VornVirtualCamera *camera = untouched_camera;
  VornView *view = untouched_view;
  EXPECT_TRUE (vorn_product_get_vcam_and_view (product_, 0, &camera, &view));
  EXPECT_EQ (camera, front);
  EXPECT_EQ (view, vorn_virtual_camera_get_first_view (front));

  // The thermal camera is not built: no camera, and the view is not looked for.
  camera = untouched_camera;
  view = untouched_view;
  EXPECT_FALSE (vorn_product_get_vcam_and_view (product_, 1, &camera, &view));
  EXPECT_EQ (camera, nullptr);
  EXPECT_EQ (view, untouched_view);

  for (const guint8 id : std::initializer_list<guint8>{2, 3, 255}) {
    camera = untouched_camera;
    view = untouched_view;
    EXPECT_FALSE (vorn_product_get_vcam_and_view (product_, id, &camera, &view));
    EXPECT_EQ (camera, untouched_camera);
    EXPECT_EQ (view, untouched_view);
  }
  camera = untouched_camera;
  EXPECT_FALSE (vorn_product_get_vcam_and_view (product_, 0, &camera, nullptr));
  EXPECT_EQ (camera, untouched_camera);
  view = untouched_view;
  EXPECT_FALSE (vorn_product_get_vcam_and_view (product_, 0, nullptr, &view));
  EXPECT_EQ (view, untouched_view);
  EXPECT_FALSE (vorn_product_get_vcam_and_view (product_, 0, nullptr, nullptr));
}

} // namespace
