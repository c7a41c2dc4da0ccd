// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "photo_embed.hpp"

#include <exception>
#include <mutex>

#include "photo_places.hpp"
#include <vorn/gst_raii.hpp>
#include <vorn/log.h>

VORN_LOG_TAG ("vorn_photo");

namespace vorn
{

namespace
{

// EXIF lies in one JPEG segment of 64 KiB, and the other fields need some of it.
constexpr size_t largest_thumbnail = size_t{56} * 1024;

using Bytes = std::vector<uint8_t>;

void log_exiv2 (int level, const char *message)
{
  std::string text = message;
  while (text.ends_with ('\n'))
    text.pop_back ();
  if (level >= Exiv2::LogMsg::warn)
    VORN_LOG_WARNING ("Exiv2: %s", text.c_str ());
  else
    VORN_LOG_DEBUG ("Exiv2: %s", text.c_str ());
}

/** Once, before anything else of Exiv2. */
bool initialise_exiv2 ()
{
  Exiv2::LogMsg::setHandler (log_exiv2);
  Exiv2::XmpParser::initialize ();
  Exiv2::XmpProperties::registerNs (photo_namespace, photo_prefix);
  Exiv2::XmpProperties::registerNs (pix4d_namespace, pix4d_prefix);
  return true;
}

auto open (std::span<const uint8_t> jpeg)
{
  auto image = Exiv2::ImageFactory::open (jpeg.data (), static_cast<long> (jpeg.size ()));
  image->readMetadata ();
  return image;
}

/** Why the bytes cannot be a thumbnail, or NULL. */
const char *check_thumbnail (std::span<const uint8_t> jpeg)
{
  if (jpeg.size () > largest_thumbnail)
    return "it is too large for EXIF";
  const bool whole = jpeg.size () > 4 && jpeg[0] == 0xff && jpeg[1] == 0xd8 &&
                     jpeg[jpeg.size () - 2] == 0xff && jpeg[jpeg.size () - 1] == 0xd9;
  if (!whole)
    return "it is no whole JPEG picture";
  try {
    const auto image = open (jpeg);
    if (image->pixelWidth () > 0 && image->pixelHeight () > 0)
      return nullptr;
  } catch (const std::exception &exception) {
    VORN_LOG_DEBUG ("thumbnail: %s", exception.what ());
  }
  return "it cannot be read";
}

const char *place_thumbnail (GstSample *sample, Exiv2::ExifData *exif)
{
  GstCaps *caps = gst_sample_get_caps (sample);
  GstBuffer *buffer = gst_sample_get_buffer (sample);
  if (!caps || gst_caps_is_empty (caps) || gst_caps_is_any (caps) ||
      !gst_structure_has_name (gst_caps_get_structure (caps, 0), "image/jpeg"))
    return "it is not of type image/jpeg";
  if (!buffer)
    return "it has no data";
  const BufferMap map (buffer, GST_MAP_READ);
  if (!map)
    return "its data cannot be read";
  if (const char *reason = check_thumbnail ({map.data (), map.size ()}))
    return reason;
  Exiv2::ExifThumb (*exif).setJpegThumbnail (map.data (), static_cast<long> (map.size ()),
                                             Exiv2::URational (72, 1), Exiv2::URational (72, 1), 2);
  return nullptr;
}

void place_thumbnail (const GstTagList *tags, Exiv2::ExifData *exif)
{
  GstSample *sample = nullptr;
  if (!gst_tag_list_get_sample_index (tags, GST_TAG_IMAGE, 0, &sample))
    return;
  const auto owned = adopt (sample);
  if (const char *reason = place_thumbnail (sample, exif))
    VORN_LOG_WARNING ("photo has no thumbnail: %s", reason);
}

Bytes bytes_of (Exiv2::BasicIo &io)
{
  if (io.open () != 0)
    throw Exiv2::Error (Exiv2::kerMemoryTransferFailed, "the completed picture");
  Bytes bytes (io.size ());
  const long read = io.read (bytes.data (), static_cast<long> (bytes.size ()));
  if (read != static_cast<long> (bytes.size ()))
    throw Exiv2::Error (Exiv2::kerMemoryTransferFailed, "the completed picture");
  return bytes;
}

Bytes complete (std::span<const uint8_t> picture, const GstTagList *tags)
{
  auto image = open (picture);
  Exiv2::ExifData &exif = image->exifData ();
  // The zone of times came with this version of EXIF.
  exif["Exif.Photo.ExifVersion"] = std::string ("48 50 51 50");
  exif["Exif.Photo.PixelXDimension"] = static_cast<uint32_t> (image->pixelWidth ());
  exif["Exif.Photo.PixelYDimension"] = static_cast<uint32_t> (image->pixelHeight ());
  photo_place_tags (tags, &exif, &image->xmpData ());
  photo_place_date (tags, &exif);
  photo_place_location (tags, &exif, &image->xmpData ());
  place_thumbnail (tags, &exif);
  image->writeMetadata ();
  return bytes_of (image->io ());
}

} // namespace

std::optional<Bytes> photo_embed (std::span<const uint8_t> picture, const GstTagList *tags,
                                  std::string *error) noexcept
{
  // Exiv2's XMP toolkit has state of its own for the whole process.
  static std::mutex mutex;
  try {
    const std::lock_guard lock (mutex);
    static const bool initialised = initialise_exiv2 ();
    (void)initialised;
    return complete (picture, tags);
  } catch (const std::exception &exception) {
    *error = exception.what ();
  } catch (...) {
    *error = "unknown";
  }
  return std::nullopt;
}

} // namespace vorn
