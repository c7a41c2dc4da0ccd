/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/** The records in which photo metadata travel from the framework to a view. */
#ifndef VORN_METADATA_PROVIDER_H
#define VORN_METADATA_PROVIDER_H

#include <glib.h>

#include <vorn/api.h>

VORN_BEGIN_DECLS

/** What is the same for every photo of a flight. Strings may be NULL where so said. */
typedef struct {
  gchar *manufacturer;
  gchar *model;
  gchar *model_id;
  gchar *serial;
  gchar *software_version;
  gchar *build_id;
  gchar *boot_id;
  gchar *flight_uid; /**< NULL before the first take-off */
  gchar *run_id;     /**< NULL when the run has none */
  gfloat drone_roll; /**< degrees */
  gfloat drone_pitch;
  gfloat drone_yaw;
  gdouble above_takeoff_altitude; /**< metres */
} VornUntimedMetadata;

/** What holds at the capture time of one photo: 192 bytes. Enumerations are those of EXIF. */
typedef struct {
  guint32 shutter_num; /**< exposure time, seconds as a fraction */
  guint32 shutter_den;
  guint16 exposure_program;
  guint16 reserved_0;
  guint32 iso;
  gdouble exposure_compensation; /**< EV */
  guint16 metering_mode;
  guint16 light_source;
  guint32 width; /**< pixels */
  guint32 height;
  guint16 exposure_mode;
  guint16 white_balance_mode; /**< 0 automatic */
  gfloat digital_zoom_ratio;
  gfloat focal_length_35mm; /**< millimetres */
  guint16 contrast;
  guint16 saturation;
  guint16 sharpness;
  guint16 reserved_1;
  gfloat hfov; /**< degrees */
  gfloat wb_r_gain;
  gfloat wb_b_gain;
  gfloat camera_roll; /**< degrees, as all angles below */
  gfloat camera_pitch;
  gfloat camera_yaw;
  gfloat pix4d_roll;
  gfloat pix4d_pitch;
  gfloat pix4d_yaw;
  gfloat visible_roll;
  gfloat visible_pitch;
  gfloat visible_yaw;
  gdouble latitude; /**< degrees */
  gdouble longitude;
  gdouble altitude; /**< metres */
  guint32 satellite_count;
  guint32 location_valid;      /**< nonzero: the fields about the place hold */
  gdouble accuracy_horizontal; /**< metres */
  gdouble accuracy_vertical;
  guint8 reserved_2[40];
} VornTimedPhotoMetadata;

VORN_END_DECLS

#endif
