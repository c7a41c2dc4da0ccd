// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * The vision bins: a place at the vertical camera's tee for each vision algorithm. A bin takes the
 * frames from its pad "sink", never makes the tee wait, hands the newest to its algorithm and ends
 * there. docs/vision.md tells of each bin. Thread rule: as any GstElement.
 */
#ifndef VISION_BINS_HPP
#define VISION_BINS_HPP

#include <gst/gst.h>

/**
 * Registers "kavrel_vorncondorbin", "kavrel_vornprecisehoveringbin", "kavrel_vornprecisehomebin"
 * and "kavrel_vornmagiccarpetbin" with the plug-in, or statically for NULL.
 */
gboolean kavrel_vision_bins_register (GstPlugin *plugin);

#endif
