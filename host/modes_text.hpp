// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Short texts for the values in tables.
#ifndef HOST_MODES_TEXT_HPP
#define HOST_MODES_TEXT_HPP

#include <span>
#include <string>
#include <vector>

#include <vorn/modes.h>

std::string text_of (const VornResolution &resolution); // 1280x720
std::string text_of (const VornFramerate &framerate);   // 30000/1001
std::string text_of (const VornResolutionSet &set);     // 1280x720 to 1920x1080
std::string text_of (const VornFramerateSet &set);      // 24000/1001 to 30000/1001
std::string text_of (const VornCameraMode &mode);       // recording, standard, 3840x2160 at 30/1

/** The names of the bits that are set in a mask, in order. */
std::vector<std::string> names_of (guint32 mask, const gchar *(*name_of) (guint32 value));

std::string join (std::span<const std::string> texts, const char *separator);

#endif
