// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/modes.h>

namespace
{

bool has_bit (guint32 mask, guint32 bit)
{
  return bit < 32 && ((mask >> bit) & 1u) != 0;
}

bool is_within (guint32 value, guint32 min, guint32 max)
{
  return min <= value && value <= max;
}

template <size_t count>
const gchar *name_of (const char *const (&names)[count], guint32 value)
{
  return value < count ? names[value] : "unknown";
}

} // namespace

gboolean vorn_resolution_cmp (const VornResolution *a, const VornResolution *b)
{
  return a->width == b->width && a->height == b->height;
}

gboolean vorn_resolution_is_valid (const VornResolutionSet *set, const VornResolution *resolution)
{
  for (guint32 i = 0; i < set->count; i++)
    if (vorn_resolution_cmp (&set->list[i], resolution))
      return TRUE;
  return set->count == 0 && is_within (resolution->width, set->min.width, set->max.width) &&
         is_within (resolution->height, set->min.height, set->max.height);
}

gint vorn_framerate_cmp (const VornFramerate *a, const VornFramerate *b)
{
  const bool a_is_rate = a->num != 0 && a->den != 0;
  const bool b_is_rate = b->num != 0 && b->den != 0;
  if (!a_is_rate || !b_is_rate)
    return static_cast<gint> (a_is_rate) - static_cast<gint> (b_is_rate);
  const guint64 left = static_cast<guint64> (a->num) * b->den;
  const guint64 right = static_cast<guint64> (b->num) * a->den;
  return left < right ? -1 : left > right ? 1 : 0;
}

gboolean vorn_framerate_is_valid (const VornFramerateSet *set, const VornFramerate *framerate)
{
  if (framerate->num == 0 || framerate->den == 0)
    return FALSE;
  for (guint32 i = 0; i < set->count; i++)
    if (vorn_framerate_cmp (&set->list[i], framerate) == 0)
      return TRUE;
  return set->count == 0 && vorn_framerate_cmp (&set->min, framerate) <= 0 &&
         vorn_framerate_cmp (framerate, &set->max) <= 0;
}

gdouble vorn_framerate_to_double (const VornFramerate *framerate)
{
  return framerate->den == 0 ? 0.0 : static_cast<gdouble> (framerate->num) / framerate->den;
}

const VornRecordingCapability *
vorn_camera_recording_capabilities_find (const VornRecordingCapability *entries, guint32 count,
                                         const VornCameraMode *mode)
{
  if (mode->type != VORN_CAMERA_MODE_RECORDING)
    return nullptr;
  for (const VornRecordingCapability *entry = entries; entry != entries + count; entry++)
    if (has_bit (entry->sub_mode_mask, mode->recording.sub_mode) &&
        vorn_resolution_is_valid (&entry->resolutions, &mode->recording.resolution) &&
        vorn_framerate_is_valid (&entry->framerates, &mode->recording.framerate))
      return entry;
  return nullptr;
}

const VornPhotoCapability *vorn_camera_photo_capabilities_find (const VornPhotoCapability *entries,
                                                                guint32 count,
                                                                const VornCameraMode *mode)
{
  if (mode->type != VORN_CAMERA_MODE_PHOTO)
    return nullptr;
  for (const VornPhotoCapability *entry = entries; entry != entries + count; entry++)
    if (has_bit (entry->mode_mask, mode->photo.photo_mode) &&
        has_bit (entry->format_mask, mode->photo.format) &&
        has_bit (entry->file_format_mask, mode->photo.file_format))
      return entry;
  return nullptr;
}

const gchar *vorn_camera_mode_type_get_name (guint32 type)
{
  static const char *const names[] = {"recording", "photo"};
  return name_of (names, type);
}

const gchar *vorn_camera_mode_recording_get_name (guint32 sub_mode)
{
  static const char *const names[] = {"standard", "hyperlapse", "slow motion", "high framerate"};
  return name_of (names, sub_mode);
}

const gchar *vorn_camera_mode_photo_get_name (guint32 photo_mode)
{
  static const char *const names[] = {"single", "bracketing", "burst"};
  return name_of (names, photo_mode);
}

const gchar *vorn_photo_format_get_name (guint32 format)
{
  static const char *const names[] = {"wide", "rectilinear"};
  return name_of (names, format);
}

const gchar *vorn_photo_file_format_get_name (guint32 file_format)
{
  static const char *const names[] = {"jpeg", "dng", "dng+jpeg"};
  return name_of (names, file_format);
}

const gchar *vorn_photo_grouping_type_get_name (guint32 grouping)
{
  static const char *const names[] = {"single", "bracketing", "burst", "panorama"};
  return name_of (names, grouping);
}
