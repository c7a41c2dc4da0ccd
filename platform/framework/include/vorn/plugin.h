/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * Plug-ins. A product plug-in is a shared library that exports one data symbol, "vorn_plugin_desc".
 * The framework reads it, checks its version words, and calls its init function with the
 * GTypeModule that stands for the library; init registers the product's type and announces it under
 * an element name. A library stays loaded for the rest of the process. Bound to the framework's
 * thread.
 */
#ifndef VORN_PLUGIN_H
#define VORN_PLUGIN_H

#include <glib-object.h>

#include <vorn/api.h>
#include <vorn/product.h>

VORN_BEGIN_DECLS

/** The version words that this framework loads. */
#define VORN_PLUGIN_VERSION_MAJOR 0u
#define VORN_PLUGIN_VERSION_MINOR 5u

/** The exported descriptor: 120 bytes on 64-bit machines. */
typedef struct {
  const gchar *name;
  guint32 version_major; /**< VORN_PLUGIN_VERSION_MAJOR */
  guint32 version_minor; /**< VORN_PLUGIN_VERSION_MINOR */
  gboolean (*init) (GTypeModule *module);
  guint8 reserved[96]; /**< all zero */
} VornPluginDesc;

#define VORN_PLUGIN_ERROR (vorn_plugin_error_quark ())
VORN_API GQuark vorn_plugin_error_quark (void);

/** Codes of VORN_PLUGIN_ERROR. */
typedef enum {
  VORN_PLUGIN_ERROR_LOAD,    /**< no such library, or it cannot be loaded */
  VORN_PLUGIN_ERROR_SYMBOL,  /**< it exports no descriptor */
  VORN_PLUGIN_ERROR_VERSION, /**< it was made for another framework */
  VORN_PLUGIN_ERROR_INIT,    /**< its descriptor is broken or its init failed */
  VORN_PLUGIN_ERROR_ELEMENT, /**< it announced no such element */
} VornPluginError;

#define VORN_TYPE_PLUGIN (vorn_plugin_get_type ())
VORN_API G_DECLARE_FINAL_TYPE (VornPlugin, vorn_plugin, VORN, PLUGIN, GTypeModule)

/**
 * Loads a plug-in and runs its init, once per file: a second call returns the same object.
 * Borrowed: it lives as long as the process.
 */
VORN_API VornPlugin *vorn_plugin_load (const gchar *path, GError **error);

/** The name in the descriptor; owned by the plug-in. */
VORN_API const gchar *vorn_plugin_get_name (VornPlugin *plugin);

/** The element names that the plug-in has announced; NULL-terminated, free with g_free. */
VORN_API const gchar **vorn_plugin_get_elements (VornPlugin *plugin);

/** A new product of the type announced under this name, or of the only one for NULL; owned by the
 * caller. */
VORN_API VornProduct *vorn_plugin_create_product (VornPlugin *plugin, const gchar *element,
                                                  GError **error);

/**
 * For a plug-in's init: announces a product type under an element name. FALSE (with an error
 * logged) for an empty or taken name, a type that is no product or abstract, or a module that the
 * framework does not load.
 */
VORN_API gboolean vorn_plugin_register_element (GTypeModule *module, const gchar *name, GType type);

VORN_END_DECLS

#endif
