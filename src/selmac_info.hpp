// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Publishes the vertical camera's exposure and luma for the vision algorithms: telemetry section
// "selmacdata". The simulated camera has no exposure control, so the values are fixed. Fed by the
// vertical camera's streaming thread; made and freed on the framework's.
#ifndef SELMAC_INFO_HPP
#define SELMAC_INFO_HPP

#include <glib.h>

struct SelmacData;

/** A new record, or NULL (logged) when the bus refuses it. Free it with selmacdata_free. */
SelmacData *selmacdata_new (void);

/** Publishes one sample for a frame of this time (ns). 0, or -1 without a record or when the bus
 * refuses. */
int selmacdata_update (SelmacData *record, guint64 timestamp_ns);

/** Releases the record. 0, or -1 (logged) without one. */
int selmacdata_free (SelmacData *record);

#endif
