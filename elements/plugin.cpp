// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The GStreamer plug-in with the camera's own elements.
#include <gst/gst.h>

#include "morviksrc.hpp"
#include "tovrinfilter_element.hpp"
#include "vision_bins.hpp"

static gboolean plugin_init (GstPlugin *plugin)
{
  gboolean registered = TRUE;
  registered &= GST_ELEMENT_REGISTER (kavrel_morviksrc, plugin);
  registered &= kavrel_tovrinfilter_register (plugin);
  registered &= kavrel_vision_bins_register (plugin);
  return registered;
}

GST_PLUGIN_DEFINE (GST_VERSION_MAJOR, GST_VERSION_MINOR, vornelements,
                   "Elements of the simulated camera", plugin_init, PACKAGE_VERSION, "Apache 2.0",
                   PACKAGE, "https://vornmorvikzelto.invalid")
