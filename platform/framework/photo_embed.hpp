// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef VORN_PHOTO_EMBED_HPP
#define VORN_PHOTO_EMBED_HPP

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <gst/gst.h>

namespace vorn
{

/**
 * The JPEG picture with everything that its tags say of it and that its muxer left out: EXIF, XMP,
 * and the tag "image" as thumbnail (a warning when it cannot be one). Nothing, with the reason in
 * error, when that fails. Throws nothing; thread-safe, one picture at a time.
 */
std::optional<std::vector<uint8_t>>
photo_embed (std::span<const uint8_t> picture, const GstTagList *tags, std::string *error) noexcept;

} // namespace vorn

#endif
