// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The product: what the framework loads this plug-in for.
#ifndef VORN_MORVIK_ZELTO_HPP
#define VORN_MORVIK_ZELTO_HPP

#include <cstddef>

#include <vorn/plugin.h>

/** Instance memory is zeroed, not constructed: C-like members only. */
struct VornMorvikZelto {
  VornProduct parent_instance;
  gpointer selmacdata; // exposure telemetry; NULL without a vertical camera
};

// The class hook casts the class to the product to reach the field: it must lie in the class's
// reserved space.
static_assert (offsetof (VornMorvikZelto, selmacdata) == offsetof (VornProductClass, reserved));

/** The product's type: 0 before the plug-in's init has run. */
GType vorn_morvik_zelto_get_type (void);

/** The plug-in's init: registers the type with the module and announces it as element "zelto". */
gboolean plugin_init (GTypeModule *module);

/** The first camera of this name in a list of VornCamera, or NULL; borrowed. */
VornCamera *vorn_morvik_zelto_configuration_get_camera_by_name (GList *cameras, const gchar *name);

#endif
