// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A small product plug-in; FAKE says what is wrong with it.
#include <vorn/plugin.h>

#define FAKE_GOOD 0
#define FAKE_MAJOR 1
#define FAKE_MINOR 2
#define FAKE_NO_SYMBOL 3
#define FAKE_INIT_FAILS 4
#define FAKE_NO_NAME 5
#define FAKE_EMPTY_NAME 6
#define FAKE_NO_INIT 7
#define FAKE_NO_PRODUCT 8
#define FAKE_DUPLICATE 9
#define FAKE_NAMELESS_ELEMENTS 10
#define FAKE_TWO_ELEMENTS 11
#define FAKE_NO_ELEMENT 12
#define FAKE_ABSTRACT 13
#define FAKE_INIT_FAILS_LATE 14

namespace
{

GType register_product (GTypeModule *module, const char *name)
{
  static const GTypeInfo info = {.class_size = sizeof (VornProductClass),
                                 .base_init = nullptr,
                                 .base_finalize = nullptr,
                                 .class_init = nullptr,
                                 .class_finalize = nullptr,
                                 .class_data = nullptr,
                                 .instance_size = sizeof (VornProduct),
                                 .n_preallocs = 0,
                                 .instance_init = nullptr,
                                 .value_table = nullptr};
  return g_type_module_register_type (module, VORN_TYPE_PRODUCT, name, &info,
                                      static_cast<GTypeFlags> (0));
}

[[maybe_unused]] gboolean init (GTypeModule *module)
{
  [[maybe_unused]] const GType type = register_product (module, FAKE_TYPE);
#if FAKE == FAKE_INIT_FAILS
  return FALSE;
#elif FAKE == FAKE_NO_PRODUCT
  return vorn_plugin_register_element (module, "fake", G_TYPE_OBJECT);
#elif FAKE == FAKE_ABSTRACT
  return vorn_plugin_register_element (module, "fake", VORN_TYPE_PRODUCT);
#elif FAKE == FAKE_DUPLICATE
  return vorn_plugin_register_element (module, "fake", type) &&
         vorn_plugin_register_element (module, "fake", type);
#elif FAKE == FAKE_NAMELESS_ELEMENTS
  return vorn_plugin_register_element (module, nullptr, type) ||
         vorn_plugin_register_element (module, "", type);
#elif FAKE == FAKE_TWO_ELEMENTS
  return vorn_plugin_register_element (module, "one", type) &&
         vorn_plugin_register_element (module, "two", type);
#elif FAKE == FAKE_NO_ELEMENT
  return TRUE;
#elif FAKE == FAKE_INIT_FAILS_LATE
  vorn_plugin_register_element (module, "fake", type);
  return FALSE;
#else
  return vorn_plugin_register_element (module, "fake", type);
#endif
}

} // namespace

#if FAKE != FAKE_NO_SYMBOL
extern "C" VORN_API VornPluginDesc vorn_plugin_desc;

VornPluginDesc vorn_plugin_desc = {
    .name = FAKE == FAKE_NO_NAME      ? nullptr
            : FAKE == FAKE_EMPTY_NAME ? ""
                                      : "fake_plugin",
    .version_major = FAKE == FAKE_MAJOR ? 1 : VORN_PLUGIN_VERSION_MAJOR,
    .version_minor = FAKE == FAKE_MINOR ? 6 : VORN_PLUGIN_VERSION_MINOR,
    .init = FAKE == FAKE_NO_INIT ? nullptr : init,
    .reserved = {}};
#endif
