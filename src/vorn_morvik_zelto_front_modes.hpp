// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What the front camera can do: constant tables of recording and photo modes, exposure and encoder
// presets, for both flavours, and the lookups in them. Everything is reentrant.
#ifndef VORN_MORVIK_ZELTO_FRONT_MODES_HPP
#define VORN_MORVIK_ZELTO_FRONT_MODES_HPP

#include <vorn/modes.h>
#include <vorn/sensor.h>

/** Points caps to the tables of the flavour. */
void vorn_morvik_zelto_front_modes_caps_set (gboolean thermal, VornCapabilitySet *caps);

/**
 * The mode to start in: of the first recording entry that has the sensor's resolution and admits
 * its framerate. When there is none a warning is logged and the first entry serves with its own
 * framerate.
 */
void vorn_morvik_zelto_front_modes_get_default_mode (const VornSensorConfiguration *sensor,
                                                     const VornCapabilitySet *caps,
                                                     VornCameraMode *mode);

/** TRUE when an entry of the tables serves the mode. */
gboolean vorn_morvik_zelto_front_modes_check_mode (const VornCameraMode *mode,
                                                   const VornCapabilitySet *caps);

/** Whether the mode can do HDR. FALSE, with the out untouched, for a NULL out or a mode without
 * entry. */
gboolean vorn_morvik_zelto_front_modes_get_hdr_availability (const VornCameraMode *mode,
                                                             const VornCapabilitySet *caps,
                                                             guint32 *hdr_available);

/**
 * The picture formats of a mode: of the sensor, of the stream (what recordings and the live picture
 * are made from), of full-size captures and of the crop that photos are. hdr_state, in and out:
 * whether HDR is on, turned off where the mode cannot do it. Any out may be NULL. FALSE for a mode
 * without entry or a framerate that its sensor configuration lacks; outs written by then stay
 * written.
 */
gboolean vorn_morvik_zelto_front_modes_get_camera_format (
    const VornCapabilitySet *caps, const VornCameraMode *mode, VornFormat *sensor_format,
    VornFormat *stream_format, VornFormat *capture_format, VornFormat *crop_format,
    guint32 *hdr_state, guint32 *hdr_available);

/**
 * What the exposure can do in a mode: in recordings no longer than a frame. The visible camera's
 * values, for the thermal camera too. Always TRUE.
 */
gboolean
vorn_morvik_zelto_front_modes_get_exposure_capabilities (const VornCameraMode *mode,
                                                         VornExposureCapabilities *capabilities);

/** What a view can do in a mode. FALSE for a mode without entry; capabilities are then partly
 * written. */
gboolean vorn_morvik_zelto_front_modes_get_view_capabilities (const VornCameraMode *mode,
                                                              VornViewCapabilities *capabilities,
                                                              const VornCapabilitySet *caps,
                                                              gboolean hdr_state, gboolean thermal);

/** Name of the encoder preset for recordings of this format; NULL when there is none or format is
 * NULL. */
const gchar *vorn_morvik_zelto_front_modes_get_recording_preset (const VornFormat *format);

/** The same for streams. */
const gchar *vorn_morvik_zelto_front_modes_get_streaming_preset (const VornFormat *format);

#endif
