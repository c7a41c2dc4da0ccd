// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The elements as a plug-in: found on a path, documented.
#include <string>

#include <gst/gst.h>
#include <gtest/gtest.h>

#include <vorn/gst_raii.hpp>

namespace
{

TEST (ElementsPlugin, LoadsFromItsFolderAndDocumentsItself)
{
  gst_init (nullptr, nullptr);
  gst_registry_scan_path (gst_registry_get (), ELEMENT_DIR);
  const auto element = vorn::adopt (gst_element_factory_make ("kavrel_morviksrc", nullptr));
  ASSERT_TRUE (element);
  const auto plugin = vorn::adopt (gst_plugin_feature_get_plugin (
      GST_PLUGIN_FEATURE (gst_element_get_factory (element.get ()))));
  EXPECT_STREQ (gst_plugin_get_name (plugin.get ()), "vornelements");
  for (const char *key : {GST_ELEMENT_METADATA_LONGNAME, GST_ELEMENT_METADATA_KLASS,
                          GST_ELEMENT_METADATA_DESCRIPTION, GST_ELEMENT_METADATA_AUTHOR})
    EXPECT_NE (gst_element_get_metadata (element.get (), key), nullptr) << key;

  guint count = 0;
  using Properties = vorn::Owned<GParamSpec *, g_free>;
  const Properties properties (
      g_object_class_list_properties (G_OBJECT_GET_CLASS (element.get ()), &count));
  int own = 0;
  for (guint i = 0; i < count; i++) {
    GParamSpec *property = properties.get ()[i];
    if (property->owner_type != G_OBJECT_TYPE (element.get ()))
      continue;
    own++;
    EXPECT_GT (std::string (g_param_spec_get_blurb (property)).size (), 20u) << property->name;
  }
  EXPECT_EQ (own, 8);
}

} // namespace
