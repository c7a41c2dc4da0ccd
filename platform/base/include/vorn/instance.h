/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * Instances: one name for one simulated drone and all that belongs to it, so that several drones
 * and parallel tests share a machine. Processes of one instance find each other through the files
 * of its runtime directory. Both functions are thread-safe as long as no other thread changes the
 * environment meanwhile.
 */
#ifndef VORN_INSTANCE_H
#define VORN_INSTANCE_H

#include <stddef.h>

#include <vorn/api.h>

VORN_BEGIN_DECLS

/**
 * File of the runtime directory in which a running simulator says where its IIO server listens: one
 * line, the URI that libiio's clients take ("ip:127.0.0.1:40001").
 */
#define VORN_INSTANCE_IIO_URI_FILE "iio-uri"
/** Sockets of the runtime directory on which a running simulator serves its cameras. */
#define VORN_INSTANCE_FRONT_CAMERA_SOCKET "front-camera.sock"
#define VORN_INSTANCE_DOWN_CAMERA_SOCKET "down-camera.sock"

/**
 * The instance's name: the given one, else that of the environment variable VORN_NAMESPACE, else
 * "default". At most 32 ASCII letters, digits, '_' and '-'; NULL when it is not that. Valid until
 * the environment or the argument changes.
 */
VORN_API const char *vorn_instance_name (const char *instance);

/**
 * Writes the path of the instance's runtime directory (instance as for vorn_instance_name), making
 * it when it is missing: $XDG_RUNTIME_DIR/vorn/NAME, or /tmp/vorn-UID/NAME when that variable is
 * not set. Only its owner can enter it.
 *
 * Returns 0; -EINVAL for a bad name, -ENAMETOOLONG when size does not hold the path, -EPERM when
 * the directory in /tmp is someone else's, else the negative errno of making it.
 */
VORN_API int vorn_instance_dir (const char *instance, char *path, size_t size);

VORN_END_DECLS

#endif
