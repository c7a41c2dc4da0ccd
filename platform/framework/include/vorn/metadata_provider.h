/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * What a photo is tagged with: the provider of a virtual camera, and the records that it fills.
 *
 * The provider knows the drone from the configuration (group "metadata", see host/desk.conf) and
 * its flight from the telemetry bus: section "drone" (place, attitude, satellites), section "video"
 * (the camera's attitude), section "camera_controller" (where the picture looks, its field of
 * view).
 *
 * Angles are roll, pitch and yaw in degrees, of a body with x forward, y right and z down against
 * north, east and down, turned about z (yaw), then y (pitch), then x (roll): pitch is positive
 * upwards, yaw clockwise from north, -180 to 180.
 */
#ifndef VORN_METADATA_PROVIDER_H
#define VORN_METADATA_PROVIDER_H

#include <glib.h>

#include <vorn/api.h>

VORN_BEGIN_DECLS

/** Fills the records below. Thread-safe. */
typedef struct VornMetadataProvider VornMetadataProvider;

/**
 * What does not depend on the moment of a photo, and how the drone stands when it is asked for.
 * Strings may be NULL where so said.
 */
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
  gfloat drone_roll; /**< degrees; 0 when there is no telemetry, as all below */
  gfloat drone_pitch;
  gfloat drone_yaw;
  /**
   * Metres above the take-off point, whose altitude is the configured one, or else the first that
   * the drone told since the product was set up.
   */
  gdouble above_takeoff_altitude;
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
  gfloat camera_roll; /**< degrees, as all angles below: how the camera itself is held */
  gfloat camera_pitch;
  gfloat camera_yaw;
  /**
   * Where the picture looks, in the terms of photogrammetry programs (Pix4D, "Yaw, Pitch, Roll and
   * Omega, Phi, Kappa angles"): the body stands for a camera that looks down with the top of its
   * picture forward. So pitch is 0 straight down and 90 at the horizon, and yaw is where the top of
   * the picture points when it looks down.
   */
  gfloat pix4d_roll;
  gfloat pix4d_pitch;
  gfloat pix4d_yaw;
  gfloat visible_roll; /**< where the stabilised picture looks; its horizon is level */
  gfloat visible_pitch;
  gfloat visible_yaw;
  gdouble latitude; /**< degrees */
  gdouble longitude;
  gdouble altitude; /**< metres */
  guint32 satellite_count;
  guint32 location_valid;      /**< nonzero: the fields about the place hold, else they are 0 */
  gdouble accuracy_horizontal; /**< metres, one sigma; 0: not known */
  gdouble accuracy_vertical;
  guint8 reserved_2[40];
} VornTimedPhotoMetadata;

/**
 * A new record of what holds now. Never NULL but for a NULL provider (a critical); free with
 * vorn_metadata_provider_free_untimed_meta.
 */
VORN_API VornUntimedMetadata *
vorn_metadata_provider_get_untimed_meta (VornMetadataProvider *provider);

/** Releases a record; NULL is ignored. */
VORN_API void vorn_metadata_provider_free_untimed_meta (VornUntimedMetadata *record);

/**
 * Fills the record with what held at the capture time (CLOCK_MONOTONIC, nanoseconds): of each
 * telemetry section the sample valid then, or the latest (with a warning) when that one is not kept
 * any more. What no sample of the last second tells is 0, with a warning when that begins; without
 * any telemetry the location is invalid and all angles are 0. What the camera does not tell (all of
 * the exposure) is 0, with a shutter_den of 1.
 *
 * Nonzero on success. 0 for a capture time that does not fit a signed 64-bit number (an error is
 * logged) or a NULL argument (a critical); the record is then untouched.
 */
VORN_API gint vorn_metadata_provider_get_timed_photo_meta (VornMetadataProvider *provider,
                                                           guint64 capture_time_ns,
                                                           VornTimedPhotoMetadata *record);

VORN_END_DECLS

#endif
