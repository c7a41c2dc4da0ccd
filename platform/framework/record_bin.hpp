// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The bin "recordbin": a recording branch that ends its file in order whatever becomes of the
// pipeline around it.
#ifndef VORN_FRAMEWORK_RECORD_BIN_HPP
#define VORN_FRAMEWORK_RECORD_BIN_HPP

#include <gst/gst.h>

namespace vorn
{
class RecordFile;
}

#define VORN_TYPE_RECORD_BIN (vorn_record_bin_get_type ())
G_DECLARE_FINAL_TYPE (VornRecordBin, vorn_record_bin, VORN, RECORD_BIN, GstBin)

namespace vorn
{

/**
 * Gives the bin the elements that write a file (they are added to it). NULL takes them from it:
 * what the bin does no longer concerns them. They stay stopped, whatever the bin's state, while no
 * file is written; when the bin goes from PLAYING to PAUSED they end their file first. Their errors
 * do not leave the bin; instead it posts an element message "record-done" or, for a full disk,
 * "no-space-left", with a field "error" (GError).
 */
void record_bin_set_file (VornRecordBin *bin, RecordFile *file);

} // namespace vorn

#endif
