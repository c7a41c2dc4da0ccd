// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The maker's elements, one registration each.
#include <gst/gst.h>

#include "morviksrc.hpp"

static gboolean plugin_init (GstPlugin *plugin)
{
  gboolean registered = FALSE;
  registered |= GST_ELEMENT_REGISTER (kavrel_morviksrc, plugin);
  return registered;
}

GST_PLUGIN_DEFINE (GST_VERSION_MAJOR, GST_VERSION_MINOR, kavrel, "Camera elements of the drone",
                   plugin_init, PACKAGE_VERSION, "Apache 2.0", "vornmorvikzelto",
                   "https://vornmorvikzelto.invalid/")
