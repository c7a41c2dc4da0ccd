// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// One process of the benchmark: plugin-load-process nothing|load|init|init-and-load PLUGIN
#include <cstdio>
#include <string_view>

#include <vorn/framework.h>
#include <vorn/plugin.h>
#include <vorn/raii.hpp>

int main (int argc, char **argv)
{
  if (argc != 3) {
    fprintf (stderr, "usage: %s nothing|load|init|init-and-load PLUGIN\n", argv[0]);
    return 2;
  }
  const std::string_view task = argv[1];
  if (task == "init" || task == "init-and-load")
    vorn_framework_init (nullptr, nullptr);
  if (task == "load" || task == "init-and-load") {
    vorn::ErrorOut error;
    if (!vorn_plugin_load (argv[2], error.out ()) || g_type_from_name ("VornMorvikZelto") == 0) {
      fprintf (stderr, "%s: %s\n", argv[0], error.message ());
      return 1;
    }
  }
  return 0;
}
