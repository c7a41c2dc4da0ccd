/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/** The image sensor behind a camera: how it is configured, and the object that describes it. */
#ifndef VORN_SENSOR_H
#define VORN_SENSOR_H

#include <glib-object.h>

#include <vorn/api.h>
#include <vorn/modes.h>

VORN_BEGIN_DECLS

/** How the sensor runs: 22 32-bit words. */
typedef struct {
  guint32 capture_left; /**< the captured rectangle, in pixels of the sensor */
  guint32 capture_top;
  guint32 capture_width;
  guint32 capture_height;
  VornResolution resolution;
  VornFramerate framerate;
  guint32 reserved[5];
  VornAlignmentOffsetsCapabilities alignment_offsets;
} VornSensorConfiguration;

#define VORN_TYPE_SENSOR (vorn_sensor_get_type ())

/** Immutable once made; readable from any thread. */
VORN_API G_DECLARE_FINAL_TYPE (VornSensor, vorn_sensor, VORN, SENSOR, GObject)

/** A sensor of width x height pixels; the caller owns the reference. */
VORN_API VornSensor *vorn_sensor_new (guint32 width, guint32 height);

/** Pixels in a row. */
VORN_API guint32 vorn_sensor_get_width (VornSensor *sensor);

/** Rows. */
VORN_API guint32 vorn_sensor_get_height (VornSensor *sensor);

VORN_END_DECLS

#endif
