/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * Recordings on disk. A recording lies in "videos" below the media folder as ZELTO_0001.mp4 and on;
 * a number is never given twice. While it runs its file is called ".ZELTO_0001.mp4.part" and holds
 * fragments, so that whatever happens to the process it plays up to two seconds before the end.
 * When it has ended, it is rewritten in the background as a plain MP4 file with the muxer's tags,
 * cover included, and takes its final name. Thread-safe.
 */
#ifndef VORN_RECORDING_H
#define VORN_RECORDING_H

#include <glib.h>

#include <vorn/api.h>

VORN_BEGIN_DECLS

/**
 * Finishes the recordings that a process left in this folder or in "videos" below it when it was
 * killed or did not have the time to rewrite them. Those that a living process is still at are left alone. One that holds no
 * picture is removed, with a warning, when it is empty, and else gets the ending ".damaged".
 * Returns the number of recordings that have their final name now. Takes as long as copying the
 * files.
 */
VORN_API guint vorn_recordings_recover (const gchar *folder);

/**
 * Waits until no recording of this process is being rewritten any more. TRUE: none is; FALSE: the
 * time was over before, what is left is for vorn_recordings_recover at the next start. The record
 * events come on the framework's thread after that. Not needed before exit: an unfinished one is
 * found by vorn_recordings_recover.
 */
VORN_API gboolean vorn_recordings_wait (guint timeout_ms);

VORN_END_DECLS

#endif
