// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Loads the plug-in as the host does and sets products up.
#ifndef TESTS_PRODUCT_FIXTURE_HPP
#define TESTS_PRODUCT_FIXTURE_HPP

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.hpp"
#include <vorn/framework.h>
#include <vorn/plugin.h>
#include <vorn/raii.hpp>

inline const char *plugin_path ()
{
  return g_getenv ("VORN_TEST_PLUGIN");
}

inline VornPlugin *load_plugin ()
{
  vorn::ErrorOut error;
  VornPlugin *plugin = vorn_plugin_load (plugin_path (), error.out ());
  EXPECT_NE (plugin, nullptr) << error.message ();
  return plugin;
}

struct CameraPlan {
  const char *name;
  VornResolution sensor;
  VornFramerate framerate;
};

/**
 * A configuration of the test's own. The front virtual camera keeps two references on its camera on
 * purpose; they are counted and dropped here, so that no leak is hidden.
 */
class Configuration
{
public:
  explicit Configuration (const std::vector<CameraPlan> &cameras, bool video_device = true)
  {
    record_.key_file = g_key_file_new ();
    if (video_device)
      g_key_file_set_string (record_.key_file, "camera-front", "video-device", "unix:/front");
    for (const CameraPlan &plan : cameras) {
      const VornCameraParameters parameters = {
          .name = plan.name,
          .sensor_configuration = {.resolution = plan.sensor, .framerate = plan.framerate}};
      record_.cameras = g_list_append (record_.cameras, vorn_camera_new (&parameters));
    }
  }
  ~Configuration ()
  {
    for (const GList *item = record_.cameras; item; item = item->next) {
      while (G_OBJECT (item->data)->ref_count > 1)
        g_object_unref (item->data);
      g_object_unref (item->data);
    }
    g_list_free (record_.cameras);
    g_key_file_unref (record_.key_file);
  }
  Configuration (const Configuration &) = delete;
  Configuration &operator= (const Configuration &) = delete;

  VornProductConfiguration *get () { return &record_; }
  guint camera_references (guint index = 0) const
  {
    return G_OBJECT (g_list_nth_data (record_.cameras, index))->ref_count;
  }

private:
  VornProductConfiguration record_ = {};
};

constexpr CameraPlan front_camera = {"front", {5344, 3200}, {30000, 1001}};
constexpr CameraPlan vertical_camera = {"vertical", {640, 480}, {90, 1}};

class ProductFixture : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }

  void SetUp () override
  {
    VornPlugin *plugin = load_plugin ();
    ASSERT_NE (plugin, nullptr);
    vorn::ErrorOut error;
    owned_ = vorn::adopt (vorn_plugin_create_product (plugin, "zelto", error.out ()));
    product_ = owned_.get ();
    ASSERT_NE (product_, nullptr) << error.message ();
  }

  LogCapture log_;
  vorn::Ref<VornProduct> owned_;
  VornProduct *product_ = nullptr;
};

#endif
