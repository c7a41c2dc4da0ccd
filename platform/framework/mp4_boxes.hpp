// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What must be known of an MP4 file's boxes to save a recording that was cut off (ISO/IEC
// 14496-12).
#ifndef VORN_FRAMEWORK_MP4_BOXES_HPP
#define VORN_FRAMEWORK_MP4_BOXES_HPP

#include <optional>

#include <glib.h>

namespace vorn::mp4
{

/** What a fragmented file holds from its beginning on. */
struct Fragments {
  guint count = 0;           // complete ones: a moof box with the mdat box behind it
  guint64 complete_size = 0; // bytes up to the end of the last complete box that is of use
  guint64 file_size = 0;
};

/** Looks at a file from its beginning; nothing when it cannot be read or begins without a header
 * (moov box). */
std::optional<Fragments> find_fragments (int fd);

/** When the movie began, in seconds since 1904 (UTC); nothing without a complete header. */
std::optional<guint64> read_creation_time (int fd);

/** Writes it into the headers of movie, tracks and media; false when there is none or it cannot be
 * written. */
bool write_creation_time (int fd, guint64 seconds_since_1904);

} // namespace vorn::mp4

#endif
