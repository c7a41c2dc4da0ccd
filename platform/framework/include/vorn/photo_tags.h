/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * Photo tags: the tags of a picture that GStreamer does not define, and the strings that stand for
 * EXIF's enumerations in the tags that it does define.
 */
#ifndef VORN_PHOTO_TAGS_H
#define VORN_PHOTO_TAGS_H

#include <glib-object.h>
#include <stddef.h>
#include <stdint.h>

#include <vorn/api.h>

VORN_BEGIN_DECLS

/** A tag that is ours: its name in tag lists, its value's type, and what it means. */
typedef struct {
  const char *name;
  GType type;
  const char *nick;        /**< short, for a person */
  const char *description; /**< a sentence, with the unit */
} VornPhotoTag;

/**
 * Registers all photo tags with GStreamer, GStreamer's own capturing tags included (they are not
 * there from the start). vorn_framework_init () does it; done again it changes nothing. Each tag
 * holds one value, never a list. GStreamer must be initialised. Thread-safe.
 */
VORN_API void vorn_photo_tags_register (void);

/** The table of our tags, count entries; static storage. Thread-safe. */
VORN_API const VornPhotoTag *vorn_photo_tags_get (size_t *count);

/*
 * From an EXIF enumeration value to the string that GStreamer's tag and EXIF writer know
 * (Exif 2.32, 4.6.5; GStreamer's documentation of the GST_TAG_CAPTURING_ tags). Values that EXIF
 * leaves reserved give the default named with each function. Constant strings. Thread-safe.
 */

/** ExposureProgram for "capturing-exposure-program"; default "undefined" (0). */
VORN_API const char *vorn_photo_exposure_program_to_string (uint16_t value);
/** ExposureMode for "capturing-exposure-mode"; default "auto-exposure" (0). */
VORN_API const char *vorn_photo_exposure_mode_to_string (uint16_t value);
/** Contrast for "capturing-contrast"; default "normal" (0). */
VORN_API const char *vorn_photo_contrast_to_string (uint16_t value);
/** Saturation for "capturing-saturation"; default "normal" (0). */
VORN_API const char *vorn_photo_saturation_to_string (uint16_t value);
/** Sharpness for "capturing-sharpness"; default "normal" (0). */
VORN_API const char *vorn_photo_sharpness_to_string (uint16_t value);
/**
 * LightSource as a white balance for "capturing-white-balance": the nearest of the light sources
 * that the tag knows. Default, for unknown (0) and other (255) as well: "manual". EXIF's own
 * WhiteBalance only tells auto from manual, so the EXIF writer stores each of these as manual.
 */
VORN_API const char *vorn_photo_light_source_to_string (uint16_t value);

VORN_END_DECLS

#endif
