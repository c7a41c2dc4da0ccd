// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef TOVRINFILTER_ORIENTATION_HPP
#define TOVRINFILTER_ORIENTATION_HPP

#include <optional>

#include "tovrinfilter_rotation.hpp"

namespace tovrin
{

/**
 * A unit quaternion from its text "x, y, z, w": four decimal numbers, a comma between, blanks
 * anywhere around, in the C locale. The norm may be off by rounding (1 %); the result is
 * normalised. Nothing for any other text. Reentrant.
 */
std::optional<Quaternion> parse_orientation (const char *text);

} // namespace tovrin

#endif
