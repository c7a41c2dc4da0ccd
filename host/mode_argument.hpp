// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Camera modes as people write them: "recording 1920x1080@30000/1001", "photo burst 3".
#ifndef HOST_MODE_ARGUMENT_HPP
#define HOST_MODE_ARGUMENT_HPP

#include <string>

#include <vorn/modes.h>

/**
 * Reads "recording SIZE@RATE [SUB-MODE]" or "photo MODE [FORMAT] [FILE-FORMAT] [COUNT]", words
 * apart by blanks. False with the reason.
 */
bool parse_camera_mode (const std::string &text, VornCameraMode *mode, std::string *error);

/** The same form back: what parse_camera_mode takes. */
std::string camera_mode_argument (const VornCameraMode &mode);

/** The grouping of this name (vorn_photo_grouping_type_get_name); false when there is none. */
bool parse_photo_grouping (const std::string &text, guint32 *grouping, std::string *error);

#endif
