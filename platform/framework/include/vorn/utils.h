/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/** Where pictures go, and the framework's error for a resource that fails. Thread-safe. */
#ifndef VORN_UTILS_H
#define VORN_UTILS_H

#include <glib.h>

#include <vorn/api.h>

VORN_BEGIN_DECLS

/**
 * Sets the folder in which pictures and recordings are put (made when the first one is); NULL: the
 * default, "media" in the working directory.
 */
VORN_API void vorn_utils_set_media_folder (const gchar *folder);

/** The media folder in force; free with g_free. */
VORN_API gchar *vorn_utils_get_media_folder (void);

/**
 * Where the next photo goes.
 *
 * group_location, in and out: points to NULL for a new group, which is then chosen and returned, or
 * to the location of the group that the photo continues. The caller owns the string; a returned one
 * replaces the one passed in, which is freed.
 * pattern, out: a location pattern for multifilesink (percent signs of the path doubled, one "%04d"
 * for the index); free with g_free. index, out: the one after the highest in the group, so that the
 * pictures of a whole series overwrite nothing. flag: 0, no other is defined.
 *
 * Groups are numbered from 1 to 9999 after the highest in the folder and that of the last picture;
 * their pictures from 0 to 9999. The first new group in a folder also clears away what a process
 * that was killed left half written there.
 *
 * FALSE (with an error logged) when the folder cannot be made or written to, or no number is left.
 */
VORN_API gboolean vorn_utils_get_picture_location_pattern (guint32 flag, gchar **group_location,
                                                           gchar **pattern, gint *index);

/**
 * Notes a written picture as the last one, also for later runs (in the file ".last-picture" of the
 * media folder), and waits until it is safely on the disk. FALSE when there is no such file.
 */
VORN_API gboolean vorn_utils_set_picture_last_location (const gchar *filename);

/** The last picture, of this run or an earlier one, or NULL when there is none (any more); free
 * with g_free. */
VORN_API gchar *vorn_utils_get_picture_last_location (void);

#define VORN_RESOURCE_ERROR (vorn_resource_error_quark ())
VORN_API GQuark vorn_resource_error_quark (void);

/** Codes of VORN_RESOURCE_ERROR. */
typedef enum {
  VORN_RESOURCE_ERROR_FAILED = 1,
  VORN_RESOURCE_ERROR_NO_SPACE_LEFT = 3,
} VornResourceError;

/** A new error with this code and message; free with g_error_free. */
VORN_API GError *vorn_resource_error_new (VornResourceError code, const gchar *message);

VORN_END_DECLS

#endif
