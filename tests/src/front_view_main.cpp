// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Called with the path of the maker's elements, which the full pipelines are made of.
#include <gtest/gtest.h>

#include <vorn/framework.h>
#include <vorn/gst_raii.hpp>

int main (int argc, char **argv)
{
  testing::InitGoogleTest (&argc, argv);
  if (argc != 2) {
    g_printerr ("usage: %s ELEMENTS\n", argv[0]);
    return 2;
  }
  vorn_framework_init (nullptr, nullptr);
  vorn::ErrorOut error;
  const auto plugin = vorn::adopt (gst_plugin_load_file (argv[1], error.out ()));
  if (!plugin) {
    g_printerr ("%s\n", error.message ());
    return 2;
  }
  return RUN_ALL_TESTS ();
}
