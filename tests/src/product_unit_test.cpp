// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What of the product cannot be seen from outside: its registration, its lookups, its class hook.
#include "vorn_morvik_zelto.hpp"

#include <cstring>

#include <gtest/gtest.h>

#include "log_capture.hpp"
#include "own_namespace.hpp"
#include "selmac_info.hpp"
#include <vorn/framework.h>
#include <vorn/raii.hpp>

namespace
{

/** Uses a module of the test's own as the plug-in loader would. */
struct Module {
  GTypeModule parent_instance;
};
struct ModuleClass {
  GTypeModuleClass parent_class;
};
G_DEFINE_TYPE (Module, module, G_TYPE_TYPE_MODULE)
gboolean init_result = TRUE;
gboolean module_load (GTypeModule *module)
{
  init_result = plugin_init (module);
  return TRUE;
}
void module_class_init (ModuleClass *klass)
{
  klass->parent_class.load = module_load;
  klass->parent_class.unload = [] (GTypeModule *) {};
}
void module_init (Module *) {}

/** The module that the type was registered with; lives as long as the process. */
GTypeModule *registered_module ()
{
  static GTypeModule *const used = [] {
    EXPECT_EQ (vorn_morvik_zelto_get_type (), 0u);
    auto *made = G_TYPE_MODULE (g_object_new (module_get_type (), nullptr));
    g_type_module_set_name (made, "test-module");
    EXPECT_TRUE (g_type_module_use (made));
    return made;
  }();
  return used;
}

class ProductUnit : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }

  LogCapture log_;
  GTypeModule *module_ = registered_module ();
};

TEST_F (ProductUnit, IsADynamicTypeOfItsModule)
{
  const GType type = vorn_morvik_zelto_get_type ();
  ASSERT_NE (type, 0u);
  EXPECT_STREQ (g_type_name (type), "VornMorvikZelto");
  EXPECT_EQ (g_type_parent (type), VORN_TYPE_PRODUCT);
  EXPECT_EQ (g_type_get_plugin (type), G_TYPE_PLUGIN (module_));
  EXPECT_FALSE (G_TYPE_IS_ABSTRACT (type));
  EXPECT_FALSE (G_TYPE_IS_FINAL (type));
  EXPECT_EQ (g_type_from_name ("VornMorvikZelto"), type);
}

TEST_F (ProductUnit, IsRegisteredWithTheFrameworksClassAndOnePointerMore)
{
  GTypeInfo info = {};
  GTypeValueTable value_table = {};
  g_type_plugin_complete_type_info (G_TYPE_PLUGIN (module_), vorn_morvik_zelto_get_type (), &info,
                                    &value_table);
  EXPECT_EQ (info.class_size, sizeof (VornProductClass));
  EXPECT_EQ (info.instance_size, sizeof (VornProduct) + sizeof (gpointer));
  EXPECT_EQ (info.base_init, nullptr);
  EXPECT_EQ (info.base_finalize, nullptr);
  EXPECT_NE (info.class_init, nullptr);
  EXPECT_NE (info.class_finalize, nullptr);
  EXPECT_EQ (info.class_data, nullptr);
  EXPECT_EQ (info.n_preallocs, 0u);
  EXPECT_NE (info.instance_init, nullptr);
  EXPECT_EQ (info.value_table, nullptr);
  EXPECT_EQ (value_table.value_init, nullptr);
  GTypeQuery parent;
  g_type_query (VORN_TYPE_PRODUCT, &parent);
  EXPECT_EQ (info.class_size, parent.class_size);
  EXPECT_EQ (info.instance_size, parent.instance_size + sizeof (gpointer));
}

TEST_F (ProductUnit, IsOnlyAnnouncedToTheFrameworksLoader)
{
  // This module is none of the framework's: init registers the type and gives the loader's answer.
  EXPECT_FALSE (init_result);
}

TEST_F (ProductUnit, FillsFiveSlotsAndLeavesTheTwoBefore)
{
  auto *klass = static_cast<VornProductClass *> (g_type_class_ref (vorn_morvik_zelto_get_type ()));
  auto *parent = static_cast<VornProductClass *> (g_type_class_peek_parent (klass));
  EXPECT_EQ (klass->start, parent->start);
  EXPECT_EQ (klass->stop, parent->stop);
  // In this order, as plain memory.
  gpointer slots[7];
  memcpy (slots, &klass->start, sizeof slots);
  const gpointer expected[] = {reinterpret_cast<gpointer> (klass->start),
                               reinterpret_cast<gpointer> (klass->stop),
                               reinterpret_cast<gpointer> (klass->set_magic_carpet_active),
                               reinterpret_cast<gpointer> (klass->setup),
                               reinterpret_cast<gpointer> (klass->get_vcam_and_view),
                               reinterpret_cast<gpointer> (klass->get_camera_id),
                               reinterpret_cast<gpointer> (klass->set_flavor)};
  for (int i = 0; i < 7; i++) {
    EXPECT_EQ (slots[i], expected[i]) << i;
    EXPECT_NE (slots[i], nullptr) << i;
  }
  EXPECT_EQ (klass->parent_class.dispose, parent->parent_class.dispose);
  EXPECT_EQ (klass->parent_class.finalize, parent->parent_class.finalize);
  for (const gpointer reserved : klass->reserved)
    EXPECT_EQ (reserved, nullptr);
  g_type_class_unref (klass);
}

TEST_F (ProductUnit, HasNoTelemetryBeforeSetup)
{
  const auto product =
      vorn::adopt (VORN_PRODUCT (g_object_new (vorn_morvik_zelto_get_type (), nullptr)));
  EXPECT_EQ (reinterpret_cast<VornMorvikZelto *> (product.get ())->selmacdata, nullptr);
  EXPECT_TRUE (log_.lines ().empty ());
}

TEST_F (ProductUnit, ClassHookFreesTheExposureContextOfSetup)
{
  GTypeInfo info = {};
  GTypeValueTable value_table = {};
  g_type_plugin_complete_type_info (G_TYPE_PLUGIN (module_), vorn_morvik_zelto_get_type (), &info,
                                    &value_table);
  gpointer klass = g_type_class_ref (vorn_morvik_zelto_get_type ());
  info.class_finalize (klass, nullptr);
  EXPECT_TRUE (log_.lines ().empty ()) << "there is none yet";
  const OwnNamespace name_space;
  for (int i = 0; i < 2; i++) {
    const auto product =
        vorn::adopt (VORN_PRODUCT (g_object_new (vorn_morvik_zelto_get_type (), nullptr)));
    const VornCameraParameters parameters = {.name = "vertical"};
    const auto down = vorn::adopt (vorn_camera_new (&parameters));
    VornProductConfiguration configuration = {};
    GList cameras = {.data = down.get ()};
    configuration.cameras = &cameras;
    log_.clear ();
    // The camera has no picture; its exposure record is made before that shows.
    EXPECT_FALSE (VORN_PRODUCT_GET_CLASS (product.get ())->setup (product.get (), &configuration));
    EXPECT_FALSE (log_.has ("failed to create selmacdata context")) << "the section is free";
    EXPECT_TRUE (log_.has ("failed to make vertical camera pipeline", VORN_LOG_PRIORITY_WARNING));
    const gpointer context = reinterpret_cast<VornMorvikZelto *> (product.get ())->selmacdata;
    EXPECT_NE (context, nullptr);
    EXPECT_EQ (static_cast<VornProductClass *> (klass)->reserved[0], context);
    // While it is there nobody else can have the section.
    EXPECT_EQ (selmacdata_new (), nullptr);
    info.class_finalize (klass, nullptr);
    EXPECT_EQ (static_cast<VornProductClass *> (klass)->reserved[0], nullptr);
    reinterpret_cast<VornMorvikZelto *> (product.get ())->selmacdata = nullptr;
  }
  info.class_finalize (klass, nullptr);
  g_type_class_unref (klass);
}

vorn::Ref<VornCamera> camera (const char *name)
{
  const VornCameraParameters parameters = {.name = name};
  return vorn::adopt (vorn_camera_new (&parameters));
}

TEST_F (ProductUnit, FindsTheFirstCameraOfAName)
{
  const auto first = camera ("front");
  const auto second = camera ("vertical");
  const auto third = camera ("front");
  GList *cameras = nullptr;
  EXPECT_EQ (vorn_morvik_zelto_configuration_get_camera_by_name (cameras, "front"), nullptr);
  for (const auto &one : {first, second, third})
    cameras = g_list_append (cameras, one.get ());
  const vorn::Owned<GList, g_list_free> owned (cameras);
  EXPECT_EQ (vorn_morvik_zelto_configuration_get_camera_by_name (cameras, "front"), first.get ());
  EXPECT_EQ (vorn_morvik_zelto_configuration_get_camera_by_name (cameras, "vertical"),
             second.get ());
  EXPECT_EQ (vorn_morvik_zelto_configuration_get_camera_by_name (cameras, "fron"), nullptr);
  EXPECT_EQ (vorn_morvik_zelto_configuration_get_camera_by_name (cameras, "Front"), nullptr);
  EXPECT_EQ (vorn_morvik_zelto_configuration_get_camera_by_name (cameras, ""), nullptr);
  EXPECT_EQ (vorn_morvik_zelto_configuration_get_camera_by_name (cameras, nullptr), nullptr);
  // Lent, not given.
  EXPECT_EQ (G_OBJECT (first.get ())->ref_count, 1u);
}

} // namespace
