// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Loads the plug-in as the host does and sets products up.
#ifndef TESTS_PRODUCT_FIXTURE_HPP
#define TESTS_PRODUCT_FIXTURE_HPP

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.hpp"
#include "own_namespace.hpp"
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
  const char *element = nullptr;
  const char *video_device = nullptr;
};

/** A configuration of the test's own, whose cameras live until release_cameras. */
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
          .video_device = plan.video_device,
          .element_factory = plan.element,
          .sensor_configuration = {.resolution = plan.sensor, .framerate = plan.framerate},
          .focal_length = 2};
      record_.cameras = g_list_append (record_.cameras, vorn_camera_new (&parameters));
    }
  }
  ~Configuration ()
  {
    released_.insert (released_.end (), record_);
    g_key_file_unref (record_.key_file);
  }
  Configuration (const Configuration &) = delete;
  Configuration &operator= (const Configuration &) = delete;

  VornProductConfiguration *get () { return &record_; }
  guint camera_references (guint index = 0) const
  {
    return G_OBJECT (g_list_nth_data (record_.cameras, index))->ref_count;
  }

  /**
   * Once all products are gone. The front virtual camera keeps two references on its camera on
   * purpose; they are counted and dropped here, so that no leak is hidden.
   */
  static void release_cameras ()
  {
    for (const VornProductConfiguration &record : std::exchange (released_, {})) {
      for (const GList *item = record.cameras; item; item = item->next) {
        while (G_OBJECT (item->data)->ref_count > 1)
          g_object_unref (item->data);
        g_object_unref (item->data);
      }
      g_list_free (record.cameras);
    }
  }

private:
  VornProductConfiguration record_ = {};
  static inline std::vector<VornProductConfiguration> released_;
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

  void TearDown () override
  {
    owned_.reset ();
    free_exposure_context ();
    Configuration::release_cameras ();
  }

  /** Calls the class's own hook, which GLib never does: the exposure record's section is free
   * again. */
  static void free_exposure_context ()
  {
    const GType type = g_type_from_name ("VornMorvikZelto");
    gpointer klass = type ? g_type_class_peek (type) : nullptr;
    if (!klass)
      return;
    GTypeInfo info = {};
    GTypeValueTable value_table = {};
    g_type_plugin_complete_type_info (g_type_get_plugin (type), type, &info, &value_table);
    info.class_finalize (klass, nullptr);
  }

  OwnNamespace name_space_;
  LogCapture log_;
  vorn::Ref<VornProduct> owned_;
  VornProduct *product_ = nullptr;
};

#endif
