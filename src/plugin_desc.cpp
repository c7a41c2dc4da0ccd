// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The one symbol that the library exports.
#include "vorn_morvik_zelto.hpp"

extern "C" VORN_API VornPluginDesc vorn_plugin_desc;

VornPluginDesc vorn_plugin_desc = {.name = "vorn_morvik_zelto",
                                   .version_major = VORN_PLUGIN_VERSION_MAJOR,
                                   .version_minor = VORN_PLUGIN_VERSION_MINOR,
                                   .init = plugin_init,
                                   .reserved = {}};
