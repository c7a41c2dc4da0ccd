// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "photo_places.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <iterator>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <gst/tag/tag.h>
#include <vorn/photo_tags.h>

namespace vorn
{

namespace
{

/** A string of a tag and the number that stands for it in EXIF. */
struct Name {
  std::string_view text;
  uint16_t value;
};

// Exif 2.32, 4.6.4 and 4.6.5.
constexpr Name positionings[] = {{"centered", 1}, {"co-sited", 2}};
constexpr Name color_spaces[] = {{"s-rgb", 1}, {"uncalibrated", 0xffff}};
constexpr Name resolution_units[] = {{"inch", 2}, {"cm", 3}};
constexpr Name light_sources[] = {{"daylight", 1}, {"fluorescent", 2}, {"tungsten", 3},
                                  {"flash", 4},    {"cloudy", 10},     {"fluorescent h", 12},
                                  {"auto", 0},     {"manual", 0}};

enum class Form {
  text,       // as it is
  rational,   // above 0
  name,       // one of the names, as a number
  components, // four digits, as four bytes
  elsewhere,  // placed with the date
};

struct Place {
  const char *tag;
  Form form;
  const char *key = nullptr;
  std::span<const Name> names = {};
};

constexpr Place places[] = {
    {"image-horizontal-ppi", Form::rational, "Exif.Image.XResolution"},
    {"image-vertical-ppi", Form::rational, "Exif.Image.YResolution"},
    {"chroma-positioning", Form::name, "Exif.Image.YCbCrPositioning", positionings},
    {"components-configuration", Form::components, "Exif.Photo.ComponentsConfiguration"},
    {"color-space", Form::name, "Exif.Photo.ColorSpace", color_spaces},
    {"capturing-white-balance", Form::name, "Exif.Photo.LightSource", light_sources},
    {"capturing-focal-plane-x-resolution", Form::rational, "Exif.Photo.FocalPlaneXResolution"},
    {"capturing-focal-plane-y-resolution", Form::rational, "Exif.Photo.FocalPlaneYResolution"},
    {"capturing-focal-plane-resolution-unit", Form::name, "Exif.Photo.FocalPlaneResolutionUnit",
     resolution_units},
    {"device-serial", Form::text, "Exif.Photo.BodySerialNumber"},
    {"video-codec", Form::text, "Xmp.dc.format"},
    {"milliseconds", Form::elsewhere},
    {"geo-satellites-count", Form::text, "Exif.GPSInfo.GPSSatellites"},
    {"geo-accuracy-horizontal", Form::rational, "Exif.GPSInfo.GPSHPositioningError"},
    {"geo-accuracy-horizontal", Form::text, "Xmp.Camera.GPSXYAccuracy"},
    {"geo-accuracy-vertical", Form::text, "Xmp.Camera.GPSZAccuracy"},
    {"pix4d-camera-roll", Form::text, "Xmp.Camera.Roll"},
    {"pix4d-camera-pitch", Form::text, "Xmp.Camera.Pitch"},
    {"pix4d-camera-yaw", Form::text, "Xmp.Camera.Yaw"},
};

/** A number in the shortest form that reads back the same, in any locale. */
template <typename T>
std::string decimal (T number)
{
  std::array<char, 64> text = {};
  const auto end = std::to_chars (text.data (), text.data () + text.size (), number).ptr;
  return std::string (text.data (), end);
}

/** The value as text; what XML cannot hold becomes a blank. */
std::string text_of (const GValue *value)
{
  switch (G_VALUE_TYPE (value)) {
  case G_TYPE_DOUBLE:
    return decimal (g_value_get_double (value));
  case G_TYPE_UINT:
    return decimal (g_value_get_uint (value));
  case G_TYPE_INT:
    return decimal (g_value_get_int (value));
  case G_TYPE_UINT64:
    return decimal (g_value_get_uint64 (value));
  case G_TYPE_STRING: {
    std::string text = g_value_get_string (value);
    std::replace_if (
        text.begin (), text.end (), [] (char c) { return c >= 0 && c < ' '; }, ' ');
    return text;
  }
  default:
    return {};
  }
}

std::optional<Exiv2::URational> rational_of (double number)
{
  // The fields below mean nothing at 0, and what has no fraction does not fit either.
  if (!(number > 0 && number <= G_MAXINT))
    return std::nullopt;
  gint numerator = 0;
  gint denominator = 1;
  gst_util_double_to_fraction (number, &numerator, &denominator);
  if (numerator <= 0)
    return std::nullopt;
  return Exiv2::URational (static_cast<uint32_t> (numerator), static_cast<uint32_t> (denominator));
}

/** "1230" as "1 2 3 0", the way Exiv2 reads bytes. */
std::string bytes_of (std::string_view digits)
{
  std::string bytes;
  for (const char digit : digits)
    bytes += std::string (bytes.empty () ? "" : " ") + digit;
  return bytes;
}

bool place_rational (const Place &place, const GValue *value, Exiv2::ExifData *exif)
{
  const auto rational = rational_of (g_value_get_double (value));
  if (rational)
    (*exif)[place.key] = *rational;
  return rational.has_value ();
}

bool place_name (const Place &place, std::string_view text, Exiv2::ExifData *exif)
{
  for (const Name &name : place.names)
    if (name.text == text) {
      (*exif)[place.key] = name.value;
      return true;
    }
  return false;
}

bool place_components (const Place &place, std::string_view text, Exiv2::ExifData *exif)
{
  const bool good = text.size () == 4 && std::all_of (text.begin (), text.end (),
                                                      [] (char c) { return c >= '0' && c <= '6'; });
  if (good)
    (*exif)[place.key] = bytes_of (text);
  return good;
}

bool place_text (const Place &place, const GValue *value, Exiv2::ExifData *exif,
                 Exiv2::XmpData *xmp)
{
  if (std::string_view (place.key).starts_with ("Xmp."))
    (*xmp)[place.key] = text_of (value);
  else
    (*exif)[place.key] = text_of (value);
  return true;
}

/** FALSE when the value does not fit. */
bool put (const Place &place, const GValue *value, Exiv2::ExifData *exif, Exiv2::XmpData *xmp)
{
  switch (place.form) {
  case Form::text:
    return place_text (place, value, exif, xmp);
  case Form::rational:
    return place_rational (place, value, exif);
  case Form::name:
    return place_name (place, g_value_get_string (value), exif);
  case Form::components:
    return place_components (place, g_value_get_string (value), exif);
  case Form::elsewhere:
    return true;
  }
  return false;
}

std::string private_key (std::string_view tag)
{
  std::string key = std::string ("Xmp.") + photo_prefix + ".";
  bool upper = true;
  for (const char c : tag) {
    if (c != '-')
      key += upper ? g_ascii_toupper (c) : c;
    upper = c == '-';
  }
  return key;
}

/** What the muxer makes of an exposure time of 0, which has no logarithm. */
void mend_exposure_time (const GstTagList *tags, Exiv2::ExifData *exif)
{
  const GValue *value = gst_tag_list_get_value_index (tags, GST_TAG_CAPTURING_SHUTTER_SPEED, 0);
  if (!value || gst_value_get_fraction_numerator (value) > 0)
    return;
  const auto speed = exif->findKey (Exiv2::ExifKey ("Exif.Photo.ShutterSpeedValue"));
  if (speed != exif->end ())
    exif->erase (speed);
}

} // namespace

void photo_place_tags (const GstTagList *tags, Exiv2::ExifData *exif, Exiv2::XmpData *xmp)
{
  for (const Place &place : places) {
    const GValue *value = gst_tag_list_get_value_index (tags, place.tag, 0);
    if (value && !put (place, value, exif, xmp))
      (*xmp)[private_key (place.tag)] = text_of (value);
  }
  size_t count = 0;
  const VornPhotoTag *own_tags = vorn_photo_tags_get (&count);
  for (const VornPhotoTag &tag : std::span (own_tags, count)) {
    const GValue *value = gst_tag_list_get_value_index (tags, tag.name, 0);
    const bool has_place =
        std::any_of (std::begin (places), std::end (places),
                     [&] (const Place &place) { return std::string_view (place.tag) == tag.name; });
    if (value && !has_place)
      (*xmp)[private_key (tag.name)] = text_of (value);
  }
  if (gst_tag_list_get_tag_size (tags, GST_TAG_IMAGE_HORIZONTAL_PPI) > 0)
    (*exif)["Exif.Image.ResolutionUnit"] = uint16_t{2}; // inch
  mend_exposure_time (tags, exif);
}

} // namespace vorn
