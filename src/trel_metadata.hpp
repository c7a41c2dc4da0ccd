// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Publishes, for every photo, its metadata: telemetry section "photo_metadata". The simulated
// camera has no exposure, so those values are zero. One process-wide record: set up and released on
// the framework's thread, fed by the picture pipeline's streaming thread.
#ifndef TREL_METADATA_HPP
#define TREL_METADATA_HPP

#include <glib.h>

/** Sets the record up; one that was set up before is released first. */
void trel_metadata_initialize (void);

/** Publishes the metadata of a photo captured at this time (ns). FALSE (logged) when that fails. */
gboolean trel_metadata_photo_update (guint64 capture_time_ns);

/** Releases the record. */
void trel_metadata_free (void);

#endif
