/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * System properties: strings by name, kept for the process. The host loads them from its
 * configuration before it loads the plug-in; they may change at any time, so users read them at
 * every use.
 *
 *     char value[8];
 *     vorn_property_get ("ro.with-front-cam", value, sizeof value, "0");
 *     const bool with_front_cam = strcmp (value, "1") == 0;
 *
 * Names and values are any non-empty and any string; nothing is enforced about the prefix "ro.",
 * which by convention marks what is set once, at start. All functions are thread-safe and may be
 * called before main and while the process exits. A read allocates nothing and costs tens of
 * nanoseconds.
 */
#ifndef VORN_PROPERTIES_H
#define VORN_PROPERTIES_H

#include <stddef.h>

#include <glib.h>

#include <vorn/api.h>

VORN_BEGIN_DECLS

/**
 * Copies a property's value into value, or default_value (NULL: the empty string) when the property
 * is not set or name is NULL. At most value_size - 1 bytes are copied and a NUL follows, unless
 * value_size is 0; value may then be NULL.
 *
 * Returns the length of the whole value without the NUL: it was cut when the result is at least
 * value_size.
 */
VORN_API size_t vorn_property_get (const char *name, char *value, size_t value_size,
                                   const char *default_value);

/**
 * Sets a property; value NULL removes it, so that readers get their defaults again. The strings are
 * copied. Returns 0, or -EINVAL when name is NULL or empty.
 */
VORN_API int vorn_property_set (const char *name, const char *value);

/**
 * Sets every key of a key file's group as a property, all at once for readers; others stay as they
 * are. Returns how many were set, or -1 with error set (domain G_KEY_FILE_ERROR: the group is
 * missing, or a value is no valid string, which the message names); then nothing was set.
 */
VORN_API int vorn_properties_load (GKeyFile *key_file, const char *group, GError **error);

VORN_END_DECLS

#endif
