/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
#ifndef VORN_FRAMEWORK_H
#define VORN_FRAMEWORK_H

#include <vorn/api.h>

VORN_BEGIN_DECLS

/**
 * Starts the framework: GStreamer, the framework's metas, photo tags and the maker's vocabulary. To
 * be called before anything else of the framework, once or more, on the thread that runs the
 * default main context. argc and argv may be NULL, else GStreamer's options are taken from them.
 */
VORN_API void vorn_framework_init (int *argc, char ***argv);

VORN_END_DECLS

#endif
