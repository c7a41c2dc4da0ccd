// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef VORN_FRAMEWORK_RECORDING_REWRITE_HPP
#define VORN_FRAMEWORK_RECORDING_REWRITE_HPP

#include <string>

#include <gst/gst.h>

namespace vorn
{

/** Writes the access units of an MP4 file, untouched, into a plain one with these tags (may be
 * NULL). Blocks until it is done. */
bool rewrite_as_plain_mp4 (const std::string &from, const std::string &to, const GstTagList *tags,
                           GError **error);

} // namespace vorn

#endif
