// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Publishes, for every frame, the attitude and the fields of view of the stabilised picture:
// telemetry section "eis_video". One process-wide record: set up and released on the framework's
// thread while no frames flow, fed by the camera source's streaming thread.
#ifndef DEWARPER_EIS_HPP
#define DEWARPER_EIS_HPP

#include <glib.h>

/** Sets the record up; one that was set up before is released first. TRUE even when the bus
 * refuses. */
gboolean dewarper_eis_initialize (void);

/** Publishes the view of the frame of this time (ns, camera clock). FALSE (logged) when it is not
 * known. */
gboolean dewarper_eis_push_tlm_video (guint64 timestamp_ns);

/** Releases the record. TRUE. */
gboolean dewarper_eis_free (void);

#endif
