// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
/**
 * Where a picture's tags stand in its file. The JPEG muxer writes the tags that have a field of
 * EXIF and that it knows; all others are placed here: in the field of EXIF or XMP where there is
 * one, else in a private XMP namespace, each under its own name in camel case
 * ("above-takeoff-altitude": AboveTakeoffAltitude).
 */
#ifndef VORN_PHOTO_PLACES_HPP
#define VORN_PHOTO_PLACES_HPP

#include <exiv2/exiv2.hpp>
#include <gst/gst.h>

namespace vorn
{

constexpr char photo_namespace[] = "http://ns.vorn.invalid/photo/1.0/";
constexpr char photo_prefix[] = "vorn";

/** Pix4D's namespace, that photogrammetry programs read. */
constexpr char pix4d_namespace[] = "http://pix4d.com/camera/1.0/";
constexpr char pix4d_prefix[] = "Camera";

/**
 * Places every tag of the list that the muxer leaves out, but for date, location and thumbnail. A
 * value that its field cannot hold goes to the private namespace as well. Exiv2's errors pass.
 */
void photo_place_tags (const GstTagList *tags, Exiv2::ExifData *exif, Exiv2::XmpData *xmp);

/**
 * The date in all its fields, with the milliseconds and the zone that the muxer leaves out; nothing
 * when the list has no date or one without a time. Exiv2's errors pass.
 */
void photo_place_date (const GstTagList *tags, Exiv2::ExifData *exif);

/**
 * The location in EXIF's GPS fields; all that the muxer wrote of it is removed when the list has no
 * location or one that is not on earth (a warning). Exiv2's errors pass.
 */
void photo_place_location (const GstTagList *tags, Exiv2::ExifData *exif, Exiv2::XmpData *xmp);

} // namespace vorn

#endif
