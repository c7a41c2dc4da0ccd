// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/photo_tags.h>

#include <iterator>

#include <gst/gst.h>
#include <gst/tag/tag.h>

namespace
{

constexpr VornPhotoTag photo_tags[] = {
    // the picture's file
    {"chroma-positioning", G_TYPE_STRING, "chroma positioning",
     "Where chroma samples lie (\"centered\" or \"co-sited\")"},
    {"components-configuration", G_TYPE_STRING, "components configuration",
     "Order of the components, one digit each as in EXIF (\"1230\": Y, Cb, Cr)"},
    {"color-space", G_TYPE_STRING, "colour space", "Colour space of the picture (\"s-rgb\")"},
    {"compressed-image-width", G_TYPE_UINT, "compressed image width",
     "Width of the picture, in pixels"},
    {"compressed-image-height", G_TYPE_UINT, "compressed image height",
     "Height of the picture, in pixels"},
    {"milliseconds", G_TYPE_UINT, "milliseconds", "Milliseconds of the date, 0 to 999"},

    // the picture's place in a series
    {"photo-mode", G_TYPE_STRING, "photo mode", "Kind of photo or of series"},
    {"sequence-number", G_TYPE_UINT, "sequence number", "Place of the photo in its series, from 0"},
    {"photo-count", G_TYPE_UINT, "photo count", "Number of photos of the series"},
    {"panorama-type", G_TYPE_STRING, "panorama type", "Kind of panorama that the photo belongs to"},

    // the sensor and its settings
    {"capturing-timestamp", G_TYPE_UINT64, "capturing timestamp",
     "Capture time on the system's monotonic clock, in microseconds"},
    {"capturing-white-balance-r-gain", G_TYPE_DOUBLE, "white balance red gain",
     "Gain of the red channel against green"},
    {"capturing-white-balance-b-gain", G_TYPE_DOUBLE, "white balance blue gain",
     "Gain of the blue channel against green"},
    {"capturing-focal-plane-x-resolution", G_TYPE_DOUBLE, "focal plane x resolution",
     "Pixels per focal plane resolution unit, along the width"},
    {"capturing-focal-plane-y-resolution", G_TYPE_DOUBLE, "focal plane y resolution",
     "Pixels per focal plane resolution unit, along the height"},
    {"capturing-focal-plane-resolution-unit", G_TYPE_STRING, "focal plane resolution unit",
     "Unit of the focal plane resolution (\"cm\" or \"inch\")"},

    // the drone
    {"device-model-id", G_TYPE_STRING, "device model id", "Identifier of the drone's model"},
    {"device-serial", G_TYPE_STRING, "device serial", "Serial number of the drone"},
    {"vehicle-uuid", G_TYPE_STRING, "vehicle uuid", "Identifier of the vehicle"},
    {"software-version", G_TYPE_STRING, "software version", "Version of the drone's software"},
    {"software-build-id", G_TYPE_STRING, "software build id", "Build of the drone's software"},
    {"boot-id", G_TYPE_STRING, "boot id", "Identifier of the boot in which the photo was taken"},
    {"run-date", G_TYPE_STRING, "run date", "Identifier of the run by its date"},
    {"run-id", G_TYPE_STRING, "run id", "Identifier of the run"},
    {"flight-uid", G_TYPE_STRING, "flight uid", "Identifier of the flight"},

    // where it was and how it stood
    {"above-takeoff-altitude", G_TYPE_DOUBLE, "above take-off altitude",
     "Altitude above the take-off point, in metres"},
    {"geo-satellites-count", G_TYPE_UINT, "geo satellites count",
     "Number of satellites used for the position"},
    {"geo-accuracy-horizontal", G_TYPE_DOUBLE, "geo horizontal accuracy",
     "Horizontal accuracy of the position, in metres"},
    {"geo-accuracy-vertical", G_TYPE_DOUBLE, "geo vertical accuracy",
     "Vertical accuracy of the position, in metres"},
    {"drone-roll", G_TYPE_DOUBLE, "drone roll", "Roll of the drone, in degrees"},
    {"drone-pitch", G_TYPE_DOUBLE, "drone pitch", "Pitch of the drone, in degrees"},
    {"drone-yaw", G_TYPE_DOUBLE, "drone yaw", "Yaw of the drone, in degrees"},
    {"camera-roll", G_TYPE_DOUBLE, "camera roll", "Roll of the camera, in degrees"},
    {"camera-pitch", G_TYPE_DOUBLE, "camera pitch", "Pitch of the camera, in degrees"},
    {"camera-yaw", G_TYPE_DOUBLE, "camera yaw", "Yaw of the camera, in degrees"},
    {"pix4d-camera-roll", G_TYPE_DOUBLE, "Pix4D camera roll",
     "Roll of the camera in Pix4D's convention, in degrees"},
    {"pix4d-camera-pitch", G_TYPE_DOUBLE, "Pix4D camera pitch",
     "Pitch of the camera in Pix4D's convention, in degrees"},
    {"pix4d-camera-yaw", G_TYPE_DOUBLE, "Pix4D camera yaw",
     "Yaw of the camera in Pix4D's convention, in degrees"},
    {"visible-camera-roll", G_TYPE_DOUBLE, "visible camera roll",
     "Roll of the visible-light camera, in degrees"},
    {"visible-camera-pitch", G_TYPE_DOUBLE, "visible camera pitch",
     "Pitch of the visible-light camera, in degrees"},
    {"visible-camera-yaw", G_TYPE_DOUBLE, "visible camera yaw",
     "Yaw of the visible-light camera, in degrees"},
};

bool register_all ()
{
  gst_tag_register_musicbrainz_tags ();
  for (const VornPhotoTag &tag : photo_tags)
    gst_tag_register_static (tag.name, GST_TAG_FLAG_META, tag.type, tag.nick, tag.description,
                             nullptr);
  return true;
}

} // namespace

void vorn_photo_tags_register (void)
{
  static const bool registered = register_all ();
  (void)registered;
}

const VornPhotoTag *vorn_photo_tags_get (size_t *count)
{
  if (count)
    *count = std::size (photo_tags);
  return photo_tags;
}
