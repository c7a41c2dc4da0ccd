// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Whether a library is there as a whole: the loader maps one that was cut off, and dies of it.
#ifndef HOST_LIBRARY_CHECK_HPP
#define HOST_LIBRARY_CHECK_HPP

#include <string>

/**
 * Why the library at path cannot be loaded, or empty. Only what the loader does not find out by
 * itself is told: a file that is shorter than its own tables say. Reentrant.
 */
std::string find_library_fault (const std::string &path);

#endif
