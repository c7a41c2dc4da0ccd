// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "product_loader.hpp"

#include <gst/gst.h>

#include "library_check.hpp"
#include "paths.hpp"
#include <vorn/framework.h>
#include <vorn/plugin.h>
#include <vorn/properties.h>

/** Sets NAME=VALUE; false when it has not that form. */
static bool set_property (const std::string &setting)
{
  const auto at = setting.find ('=');
  return at != std::string::npos && at > 0 &&
         vorn_property_set (setting.substr (0, at).c_str (), setting.c_str () + at + 1) == 0;
}

bool load_product (const ProductSource &source, LoadedProduct *loaded, std::string *error)
{
  vorn_framework_init (nullptr, nullptr);
  // A product makes its cameras' elements when it is set up.
  gst_registry_scan_path (gst_registry_get (), find_elements ().c_str ());
  const auto failed = [error] (const std::string &reason) {
    *error = reason;
    return false;
  };
  vorn::ErrorOut failure;
  loaded->configuration.reset (
      vorn_product_configuration_load (source.config.c_str (), failure.out ()));
  if (!loaded->configuration)
    return failed (failure.message ());
  GKeyFile *key_file = loaded->configuration->key_file;
  if (g_key_file_has_group (key_file, "properties") &&
      vorn_properties_load (key_file, "properties", failure.out ()) < 0)
    return failed (source.config + ": " + failure.message ());
  for (const std::string &setting : source.properties)
    if (!set_property (setting))
      return failed ("--set: '" + setting + "' is not of the form PROPERTY=VALUE");
  const std::string path = source.plugin.empty () ? find_plugin () : source.plugin;
  if (const std::string fault = find_library_fault (path); !fault.empty ())
    return failed ("cannot load plug-in " + path + ": " + fault);
  VornPlugin *plugin = vorn_plugin_load (path.c_str (), failure.out ());
  if (!plugin)
    return failed (failure.message ());
  loaded->product = vorn::adopt (vorn_plugin_create_product (plugin, nullptr, failure.out ()));
  return loaded->product || failed (failure.message ());
}
