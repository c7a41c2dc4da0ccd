/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/** Exposure records and checks. Plain data with a fixed layout; all functions are reentrant. */
#ifndef VORN_EXPOSURE_H
#define VORN_EXPOSURE_H

#include <glib.h>

#include <vorn/api.h>

VORN_BEGIN_DECLS

/** Bit numbers of VornExposureCapabilities.mode_mask. */
typedef enum {
  VORN_EXPOSURE_AUTOMATIC = 0,
  VORN_EXPOSURE_AUTOMATIC_PREFER_ISO = 1,
  VORN_EXPOSURE_AUTOMATIC_PREFER_SHUTTER = 2,
  VORN_EXPOSURE_MANUAL_ISO = 3,
  VORN_EXPOSURE_MANUAL_SHUTTER = 4,
  VORN_EXPOSURE_MANUAL = 5,
} VornExposureMode;

/** What a camera's exposure can do in the current mode. */
typedef struct {
  guint32 mode_mask; /**< bit n: VornExposureMode n */
  guint32 default_mode;
  guint32 mode_flags[2];
  guint32 iso_flags;
  guint32 iso_min;
  guint32 iso_max;
  guint32 reserved_0[4];
  guint32 iso_default;
  gdouble ev_compensation_min; /**< EV */
  gdouble ev_compensation_max; /**< EV */
  gdouble reserved_1[3];
  gdouble exposure_time_min; /**< seconds */
  gdouble exposure_time_max; /**< seconds */
  gdouble reserved_2[2];
  gdouble auto_exposure_time_limit; /**< seconds */
} VornExposureCapabilities;

/** The part of the picture that is metered, 0 to 1 from the top left; all -1: the whole picture. */
typedef struct {
  gfloat left;
  gfloat top;
  gfloat width;
  gfloat height;
} VornExposureRegion;

/** What a client asks of the exposure. */
typedef struct {
  guint32 mode;              /**< VornExposureMode */
  gdouble shutter_speed;     /**< seconds */
  gdouble iso;               /**< ISO speed */
  gdouble iso_max;           /**< upper bound where the mode chooses the ISO speed */
  guint32 lock;              /**< nonzero: exposure is held */
  VornExposureRegion region; /**< metered region */
} VornExposureSettings;

/** TRUE when the ISO speed lies within the record's range. */
VORN_API gboolean vorn_exposure_iso_is_valid (const VornExposureCapabilities *capabilities,
                                              guint32 iso);

/** TRUE when the exposure time (seconds) lies within the record's range; FALSE for NaN. */
VORN_API gboolean vorn_exposure_shutter_speed_is_valid (
    const VornExposureCapabilities *capabilities, gdouble shutter_speed);

/** Name of an exposure mode: a constant string, "unknown" out of range. */
VORN_API const gchar *vorn_exposure_mode_get_name (guint32 mode);

VORN_END_DECLS

#endif
