// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * "kavrel_tovrinfilter": the dewarping filter. Turns each frame from the camera's attitude to a
 * wanted or a level orientation, on the GPU; docs/dewarping.md tells how. Thread rule: as any
 * GstElement.
 */
#ifndef TOVRINFILTER_ELEMENT_HPP
#define TOVRINFILTER_ELEMENT_HPP

#include <gst/gst.h>

/** Registers the element, a GstGLFilter, with the plug-in. */
gboolean kavrel_tovrinfilter_register (GstPlugin *plugin);

#endif
