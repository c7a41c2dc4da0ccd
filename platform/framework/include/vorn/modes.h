/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * The framework's value types: resolutions, framerates, camera modes, formats and the capability
 * records in which a product describes its cameras. Plain data with a fixed layout; a record is
 * valid as long as the tables it points to. All functions are reentrant.
 */
#ifndef VORN_MODES_H
#define VORN_MODES_H

#include <glib.h>

#include <vorn/api.h>
#include <vorn/exposure.h>

VORN_BEGIN_DECLS

/** Size of a picture in pixels. */
typedef struct {
  guint32 width;
  guint32 height;
} VornResolution;

/** Frames per second as a fraction. */
typedef struct {
  guint32 num;
  guint32 den;
} VornFramerate;

/** With a list (count above 0) exactly the listed rates are allowed, else the range min to max. */
typedef struct {
  VornFramerate min;
  VornFramerate max;
  const VornFramerate *list;
  guint32 count;
} VornFramerateSet;

/** With a list (count above 0) exactly the listed sizes, else all between min and max in both
 * directions. */
typedef struct {
  VornResolution min;
  VornResolution max;
  const VornResolution *list;
  guint32 count;
} VornResolutionSet;

/** What a camera mode is for; word 0 of VornCameraMode. */
typedef enum {
  VORN_CAMERA_MODE_RECORDING = 0,
  VORN_CAMERA_MODE_PHOTO = 1,
} VornCameraModeType;

/** Sub-modes of recording: bit numbers of VornRecordingCapability.sub_mode_mask. */
typedef enum {
  VORN_RECORDING_MODE_STANDARD = 0,
  VORN_RECORDING_MODE_HYPERLAPSE = 1,
  VORN_RECORDING_MODE_SLOW_MOTION = 2,
  VORN_RECORDING_MODE_HIGH_FRAMERATE = 3,
} VornRecordingMode;

/** Bit numbers of VornPhotoCapability.mode_mask. */
typedef enum {
  VORN_PHOTO_MODE_SINGLE = 0,
  VORN_PHOTO_MODE_BRACKETING = 1,
  VORN_PHOTO_MODE_BURST = 2,
} VornPhotoMode;

/** Bit numbers of VornPhotoCapability.format_mask. */
typedef enum {
  VORN_PHOTO_FORMAT_WIDE = 0,
  VORN_PHOTO_FORMAT_RECTILINEAR = 1,
} VornPhotoFormat;

/** Bit numbers of VornPhotoCapability.file_format_mask. */
typedef enum {
  VORN_PHOTO_FILE_FORMAT_JPEG = 0,
  VORN_PHOTO_FILE_FORMAT_DNG = 1,
  VORN_PHOTO_FILE_FORMAT_DNG_JPEG = 2,
} VornPhotoFileFormat;

/** How photos belong together; the first word of a snapshot request. */
typedef enum {
  VORN_PHOTO_GROUPING_SINGLE = 0,
  VORN_PHOTO_GROUPING_BRACKETING = 1,
  VORN_PHOTO_GROUPING_BURST = 2,
  VORN_PHOTO_GROUPING_PANORAMA = 3,
} VornPhotoGroupingType;

/** What a camera does: eight 32-bit words, the middle ones by type. */
typedef struct {
  guint32 type; /**< VornCameraModeType */
  guint32 reserved;
  union {
    struct {
      guint32 sub_mode; /**< VornRecordingMode */
      VornResolution resolution;
      VornFramerate framerate;
    } recording;
    struct {
      guint32 photo_mode;  /**< VornPhotoMode */
      guint32 format;      /**< VornPhotoFormat */
      guint32 file_format; /**< VornPhotoFileFormat */
      guint32 reserved;
      guint32 count; /**< pictures of one shot, at least 1 */
    } photo;
  };
  guint32 flag; /**< handed through with the formats made of the mode */
} VornCameraMode;

/** A picture stream: size, rate and a flag word that is handed through. */
typedef struct {
  VornResolution resolution;
  VornFramerate framerate;
  guint32 flag;
} VornFormat;

/** How the sensor runs for a mode. Recording entries fill only sensor resolution and framerates. */
typedef struct {
  VornResolution sensor_resolution;
  VornResolution preview_resolution;
  VornFramerateSet framerates;
  guint32 reserved[2];
  VornFormat capture; /**< full-size pictures */
  VornResolution crop_resolution;
} VornCameraConfiguration;

/** One family of recording modes. */
typedef struct {
  guint32 sub_mode_mask; /**< bit n: VornRecordingMode n */
  guint32 default_sub_mode;
  VornResolutionSet resolutions;
  VornResolution default_resolution;
  VornFramerateSet framerates;
  VornFramerate default_framerate;
  guint32 reserved[2];
  guint32 reserved_word;
  guint32 hdr_available;
  const VornCameraConfiguration *configuration;
} VornRecordingCapability;

/** One family of photo modes. */
typedef struct {
  guint32 mode_mask; /**< bit n: VornPhotoMode n */
  guint32 default_mode;
  guint32 format_mask; /**< bit n: VornPhotoFormat n */
  guint32 default_format;
  guint32 file_format_mask; /**< bit n: VornPhotoFileFormat n */
  guint32 hdr_available;
  const VornCameraConfiguration *configurations; /**< a pair: without HDR, with HDR */
} VornPhotoCapability;

/** What the camera as a whole can do. */
typedef struct {
  guint32 flavor; /**< 0 visible light, 1 thermal */
  guint32 feature_mask;
  guint32 reserved_0[2];
  VornExposureCapabilities exposure;
  guint32 wb_mode_mask; /**< bit n: white-balance mode n */
  guint32 default_wb_mode;
  guint32 reserved_1[8];
  guint32 antiflicker_mode_mask; /**< bit n: antiflicker mode n */
  guint32 default_antiflicker_mode;
  guint32 default_style[2];
  guint32 reserved_2[2];
  guint32 style_range[2];
  guint32 reserved_3[10];
} VornCameraCapabilities;

/** The tables of one camera together. */
typedef struct {
  const VornCameraCapabilities *camera;
  const VornRecordingCapability *recording;
  guint32 recording_count;
  const VornPhotoCapability *photo;
  guint32 photo_count;
} VornCapabilitySet;

/** Bits of VornViewCapabilities.feature_mask. */
typedef enum {
  VORN_VIEW_FEATURE_STREAMING = 1,
  VORN_VIEW_FEATURE_RECORDING = 2,
  VORN_VIEW_FEATURE_SNAPSHOT = 4,
} VornViewFeature;

/** What a view can do in the current camera mode. */
typedef struct {
  guint32 feature_mask;
  VornResolutionSet recording_resolutions;
  VornResolution default_recording_resolution;
  VornFramerateSet recording_framerates;
  VornFramerate default_recording_framerate;
  VornResolutionSet streaming_resolutions;
  VornResolution default_streaming_resolution;
  VornFramerateSet streaming_framerates;
  VornFramerate default_streaming_framerate;
  guint32 photo_format_mask;
  guint32 reserved;
  guint32 photo_file_format_mask;
} VornViewCapabilities;

/** The state in which a virtual camera starts. */
typedef struct {
  guint32 mode_type; /**< VornCameraModeType */
  VornResolution resolution;
  VornFramerate framerate;
  guint32 hyperlapse_ratio;
  guint32 bitrate; /**< of a recording, bit/s */
} VornDefaultState;

/** The photo settings in which a virtual camera starts. */
typedef struct {
  guint32 photo_mode;  /**< VornPhotoMode */
  guint32 format;      /**< VornPhotoFormat */
  guint32 file_format; /**< VornPhotoFileFormat */
  guint32 reserved;
  guint32 bracketing_count;
  gdouble bracketing_ev[3];
  const gchar *bracketing_preset;
  guint32 burst_count;
  guint32 burst_duration_ms;
  const gchar *burst_preset;
} VornDefaultPhotoMode;

/** How far the alignment of a camera can be corrected about one axis: three f32 words, degrees. */
typedef struct {
  gfloat min;
  gfloat max;
  gfloat step;
} VornAlignmentRange;

/** The ranges about the three axes: nine 32-bit words, all zero where no correction is offered. */
typedef struct {
  VornAlignmentRange yaw;
  VornAlignmentRange pitch;
  VornAlignmentRange roll;
} VornAlignmentOffsetsCapabilities;

/** The corrections in force, degrees. */
typedef struct {
  gfloat yaw;
  gfloat pitch;
  gfloat roll;
} VornAlignmentOffsets;

/** TRUE when both have the same width and the same height. */
VORN_API gboolean vorn_resolution_cmp (const VornResolution *a, const VornResolution *b);

/** TRUE when the set allows the resolution. */
VORN_API gboolean vorn_resolution_is_valid (const VornResolutionSet *set,
                                            const VornResolution *resolution);

/**
 * Compares two rates as numbers (30/1 equals 60/2): negative, 0 or positive as a is lower than,
 * equal to or higher than b. A rate with a zero word is lower than every real one.
 */
VORN_API gint vorn_framerate_cmp (const VornFramerate *a, const VornFramerate *b);

/** TRUE when the set allows the rate. A zero numerator or denominator is never allowed. */
VORN_API gboolean vorn_framerate_is_valid (const VornFramerateSet *set,
                                           const VornFramerate *framerate);

/** Frames per second as a number; 0 for a zero denominator. */
VORN_API gdouble vorn_framerate_to_double (const VornFramerate *framerate);

/**
 * The first of count entries that serves the recording mode: its mask has the sub-mode's bit, its
 * sets have the resolution and the rate. NULL when there is none or the mode is not a recording
 * mode.
 */
VORN_API const VornRecordingCapability *
vorn_camera_recording_capabilities_find (const VornRecordingCapability *entries, guint32 count,
                                         const VornCameraMode *mode);

/**
 * The first of count entries whose masks have the bits of the mode's photo mode, format and file
 * format. NULL when there is none or the mode is not a photo mode.
 */
VORN_API const VornPhotoCapability *
vorn_camera_photo_capabilities_find (const VornPhotoCapability *entries, guint32 count,
                                     const VornCameraMode *mode);

/** Names of enumeration values for logs, tags and tables: constant strings, "unknown" out of range.
 */
VORN_API const gchar *vorn_camera_mode_type_get_name (guint32 type);
VORN_API const gchar *vorn_camera_mode_recording_get_name (guint32 sub_mode);
VORN_API const gchar *vorn_camera_mode_photo_get_name (guint32 photo_mode);
VORN_API const gchar *vorn_photo_format_get_name (guint32 format);
VORN_API const gchar *vorn_photo_file_format_get_name (guint32 file_format);
VORN_API const gchar *vorn_photo_grouping_type_get_name (guint32 grouping);

VORN_END_DECLS

#endif
