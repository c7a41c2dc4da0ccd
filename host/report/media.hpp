// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Small pictures of photos and recordings, to be shown in a report.
#ifndef HOST_REPORT_MEDIA_HPP
#define HOST_REPORT_MEDIA_HPP

#include <string>

#include "record.hpp"

namespace report
{

/**
 * Finds out size, dimensions and thumbnail of a photo, or sets its error. GStreamer must be
 * initialised; so for the next. Reentrant.
 */
void inspect_photo (Photo *photo);

/**
 * Finds out size, dimensions and cover of a recording. One without cover has none, that is no
 * error; a file that cannot be read is reported where its frames are read.
 */
void inspect_recording (Recording *recording);

} // namespace report

#endif
