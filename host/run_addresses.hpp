// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Where a running host finds its simulated drone and its display.
#ifndef HOST_RUN_ADDRESSES_HPP
#define HOST_RUN_ADDRESSES_HPP

#include <string>

#include "instance_claim.hpp"

/** Without a display GL renders off screen. Before the first GL element. */
void choose_gl_window ();

/**
 * Tells libiio where the instance's simulator serves its gyroscope, unless the environment does.
 * False, with the reason, when no simulator flies.
 */
bool find_simulator (const Instance &instance, std::string *error);

/**
 * The configuration with the instance's camera sockets where the configured ones do not exist, as
 * a file of the runtime directory; *path is the configuration's own when there is nothing to
 * change. False with the reason.
 */
bool resolve_cameras (const std::string &config, const Instance &instance, InstanceClaim *claim,
                      std::string *path, std::string *error);

#endif
