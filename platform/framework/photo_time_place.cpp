// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// When and where a picture was taken, in the fields of Exif 2.32, 4.6.4, 4.6.5 and 4.6.6.
#include "photo_places.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>

#include <vorn/log.h>
#include <vorn/raii.hpp>

VORN_LOG_TAG ("vorn_photo");

namespace vorn
{

namespace
{

using OwnedDate = Owned<GstDateTime, gst_date_time_unref>;
using OwnedTime = Owned<GDateTime, g_date_time_unref>;

constexpr int64_t second_parts = 10'000'000; // of an arc second: 3 micrometres

std::string print (const char *format, auto... numbers)
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  const OwnedString text (g_strdup_printf (format, numbers...));
#pragma GCC diagnostic pop
  return text.get ();
}

/** The date with all of its time, or null. */
OwnedTime time_of (const GstTagList *tags)
{
  GstDateTime *date = nullptr;
  if (!gst_tag_list_get_date_time_index (tags, GST_TAG_DATE_TIME, 0, &date))
    return {};
  const OwnedDate owned (date);
  if (!gst_date_time_has_second (date))
    return {};
  return OwnedTime (gst_date_time_to_g_date_time (date));
}

guint milliseconds_of (const GstTagList *tags, GDateTime *time)
{
  guint milliseconds = 0;
  if (gst_tag_list_get_uint_index (tags, "milliseconds", 0, &milliseconds) && milliseconds < 1000)
    return milliseconds;
  return static_cast<guint> (g_date_time_get_microsecond (time) / 1000);
}

/** "+02:00": local time minus UTC. */
std::string offset_of (GDateTime *time)
{
  const auto minutes = static_cast<int> (g_date_time_get_utc_offset (time) / G_TIME_SPAN_MINUTE);
  return print ("%c%02d:%02d", minutes < 0 ? '-' : '+', std::abs (minutes) / 60,
                std::abs (minutes) % 60);
}

std::string date_of (GDateTime *time)
{
  return print ("%04d:%02d:%02d", g_date_time_get_year (time), g_date_time_get_month (time),
                g_date_time_get_day_of_month (time));
}

std::string date_time_of (GDateTime *time)
{
  return date_of (time) + print (" %02d:%02d:%02d", g_date_time_get_hour (time),
                                 g_date_time_get_minute (time), g_date_time_get_second (time));
}

/** Degrees, minutes and seconds, as Exiv2 reads rationals. */
std::string angle_of (double degrees)
{
  // Counted in the smallest unit, so that no part rounds up to 60.
  const auto parts = std::llround (std::abs (degrees) * 3600 * static_cast<double> (second_parts));
  return std::to_string (parts / (3600 * second_parts)) + "/1 " +
         std::to_string (parts / (60 * second_parts) % 60) + "/1 " +
         std::to_string (parts % (60 * second_parts)) + "/" + std::to_string (second_parts);
}

std::optional<double> number_of (const GstTagList *tags, const char *tag)
{
  double number = 0;
  return gst_tag_list_get_double_index (tags, tag, 0, &number) ? std::optional (number)
                                                               : std::nullopt;
}

void remove (Exiv2::ExifData *exif, const std::string &name)
{
  const auto field = exif->findKey (Exiv2::ExifKey ("Exif.GPSInfo." + name));
  if (field != exif->end ())
    exif->erase (field);
}

void remove (Exiv2::XmpData *xmp, const std::string &name)
{
  const auto field = xmp->findKey (Exiv2::XmpKey ("Xmp.exif." + name));
  if (field != xmp->end ())
    xmp->erase (field);
}

/** Takes away what the muxer wrote of it. */
void remove_location (Exiv2::ExifData *exif, Exiv2::XmpData *xmp)
{
  for (const char *name : {"GPSLatitude", "GPSLatitudeRef", "GPSLongitude", "GPSLongitudeRef",
                           "GPSAltitude", "GPSAltitudeRef"}) {
    remove (exif, name);
    remove (xmp, name);
  }
}

void place_altitude (const GstTagList *tags, Exiv2::ExifData *exif, Exiv2::XmpData *xmp)
{
  const auto altitude = number_of (tags, GST_TAG_GEO_LOCATION_ELEVATION);
  if (!altitude || !(std::abs (*altitude) < 1e6)) {
    for (const char *name : {"GPSAltitude", "GPSAltitudeRef"}) {
      remove (exif, name);
      remove (xmp, name);
    }
    return;
  }
  (*exif)["Exif.GPSInfo.GPSAltitudeRef"] = std::string (*altitude < 0 ? "1" : "0");
  (*exif)["Exif.GPSInfo.GPSAltitude"] =
      std::to_string (std::llround (std::abs (*altitude) * 1000)) + "/1000";
}

/** Where the picture looks: clockwise from true north, and up from the horizon. */
void place_direction (const GstTagList *tags, Exiv2::ExifData *exif)
{
  constexpr int64_t turn = 360 * 100;
  const auto yaw = number_of (tags, "visible-camera-yaw");
  if (yaw && std::abs (*yaw) <= 360) {
    const int64_t hundredths = (std::llround (*yaw * 100) + turn) % turn;
    (*exif)["Exif.GPSInfo.GPSImgDirectionRef"] = std::string ("T");
    (*exif)["Exif.GPSInfo.GPSImgDirection"] = std::to_string (hundredths) + "/100";
  }
  const auto pitch = number_of (tags, "visible-camera-pitch");
  if (pitch && std::abs (*pitch) <= 180)
    (*exif)["Exif.Photo.CameraElevationAngle"] =
        Exiv2::Rational (static_cast<int32_t> (std::lround (*pitch * 100)), 100);
}

void place_gps_time (const GstTagList *tags, Exiv2::ExifData *exif)
{
  const auto time = time_of (tags);
  if (!time)
    return;
  const OwnedTime utc (g_date_time_to_utc (time.get ()));
  const auto milliseconds = static_cast<gint> (milliseconds_of (tags, time.get ()));
  (*exif)["Exif.GPSInfo.GPSDateStamp"] = date_of (utc.get ());
  (*exif)["Exif.GPSInfo.GPSTimeStamp"] = print (
      "%d/1 %d/1 %d/1000", g_date_time_get_hour (utc.get ()), g_date_time_get_minute (utc.get ()),
      g_date_time_get_second (utc.get ()) * 1000 + milliseconds);
}

} // namespace

void photo_place_date (const GstTagList *tags, Exiv2::ExifData *exif)
{
  const auto time = time_of (tags);
  if (!time)
    return;
  const std::string date = date_time_of (time.get ());
  const std::string fraction = print ("%03u", milliseconds_of (tags, time.get ()));
  const std::string offset = offset_of (time.get ());
  for (const char *key :
       {"Exif.Image.DateTime", "Exif.Photo.DateTimeOriginal", "Exif.Photo.DateTimeDigitized"})
    (*exif)[key] = date;
  for (const char *suffix : {"", "Original", "Digitized"}) {
    (*exif)[std::string ("Exif.Photo.SubSecTime") + suffix] = fraction;
    (*exif)[std::string ("Exif.Photo.OffsetTime") + suffix] = offset;
  }
}

void photo_place_location (const GstTagList *tags, Exiv2::ExifData *exif, Exiv2::XmpData *xmp)
{
  const auto latitude = number_of (tags, GST_TAG_GEO_LOCATION_LATITUDE);
  const auto longitude = number_of (tags, GST_TAG_GEO_LOCATION_LONGITUDE);
  const bool given = latitude && longitude;
  if (!given || !(std::abs (*latitude) <= 90 && std::abs (*longitude) <= 180)) {
    if (given)
      VORN_LOG_WARNING ("location of a photo is not on earth and left out: %g, %g", *latitude,
                        *longitude);
    remove_location (exif, xmp);
    return;
  }
  (*exif)["Exif.GPSInfo.GPSVersionID"] = std::string ("2 3 0 0");
  (*exif)["Exif.GPSInfo.GPSLatitudeRef"] = std::string (*latitude < 0 ? "S" : "N");
  (*exif)["Exif.GPSInfo.GPSLatitude"] = angle_of (*latitude);
  (*exif)["Exif.GPSInfo.GPSLongitudeRef"] = std::string (*longitude < 0 ? "W" : "E");
  (*exif)["Exif.GPSInfo.GPSLongitude"] = angle_of (*longitude);
  (*exif)["Exif.GPSInfo.GPSMapDatum"] = std::string ("WGS-84");
  place_altitude (tags, exif, xmp);
  place_direction (tags, exif);
  place_gps_time (tags, exif);
}

} // namespace vorn
