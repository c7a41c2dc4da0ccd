// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <cerrno>
#include <clocale>
#include <cstdio>

#include "modes_command.hpp"
#include "options.hpp"
#include "paths.hpp"
#include <vorn/framework.h>
#include <vorn/plugin.h>
#include <vorn/product.h>
#include <vorn/properties.h>
#include <vorn/raii.hpp>

using Configuration = vorn::Owned<VornProductConfiguration, vorn_product_configuration_free>;

static int fail (const vorn::ErrorOut &error)
{
  g_printerr ("vorn-host: %s\n", error.message ());
  return EXIT_FAILED;
}

/** What could not be written, on a full disk say, is no success. */
static int finish_output ()
{
  if (fflush (stdout) == 0 && !ferror (stdout))
    return EXIT_OK;
  g_printerr ("vorn-host: cannot write the output: %s\n", g_strerror (errno));
  return EXIT_FAILED;
}

int main (int argc, char **argv)
{
  setlocale (LC_ALL, "");
  // Numbers are written for machines, in every locale.
  setlocale (LC_NUMERIC, "C");
  Options options;
  int status = EXIT_OK;
  if (!parse_options (argc, argv, &options, &status))
    return status;
  if (options.version) {
    printf ("vorn-host %s (plug-in interface %u.%u)\n", VORN_VERSION, VORN_PLUGIN_VERSION_MAJOR,
            VORN_PLUGIN_VERSION_MINOR);
    return finish_output ();
  }

  vorn_framework_init (nullptr, nullptr);
  vorn::ErrorOut error;
  const Configuration configuration (
      vorn_product_configuration_load (options.config.c_str (), error.out ()));
  if (!configuration)
    return fail (error);
  if (g_key_file_has_group (configuration->key_file, "properties") &&
      vorn_properties_load (configuration->key_file, "properties", error.out ()) < 0) {
    g_printerr ("vorn-host: %s: %s\n", options.config.c_str (), error.message ());
    return EXIT_FAILED;
  }
  const std::string plugin_path = options.plugin.empty () ? find_plugin () : options.plugin;
  VornPlugin *plugin = vorn_plugin_load (plugin_path.c_str (), error.out ());
  if (!plugin)
    return fail (error);
  const auto product = vorn::adopt (vorn_plugin_create_product (plugin, nullptr, error.out ()));
  if (!product)
    return fail (error);
  if (!vorn_product_setup (product.get (), configuration.get ())) {
    g_printerr ("vorn-host: %s: the product could not be set up\n", options.config.c_str ());
    return EXIT_FAILED;
  }
  if (options.json)
    print_modes_json (product.get ());
  else
    print_modes (product.get ());
  return finish_output ();
}
