// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Where the host finds what was built or installed with it: everything lies relative to the
// executable.
#ifndef HOST_PATHS_HPP
#define HOST_PATHS_HPP

#include <string>

/** Path of our own plug-in, in the build tree or below the prefix. */
std::string find_plugin ();

/** Folder of our own GStreamer elements. */
std::string find_elements ();

/** The desk's configuration; full: the one of the stabilised front camera. */
std::string find_configuration (bool full);

#endif
