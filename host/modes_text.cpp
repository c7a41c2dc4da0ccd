// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "modes_text.hpp"

std::string text_of (const VornResolution &resolution)
{
  return std::to_string (resolution.width) + "x" + std::to_string (resolution.height);
}

std::string text_of (const VornFramerate &framerate)
{
  return std::to_string (framerate.num) + "/" + std::to_string (framerate.den);
}

/** A list's members, a single value, or "min to max". */
template <typename Set>
static std::string text_of_set (const Set &set)
{
  std::vector<std::string> texts;
  for (guint32 i = 0; i < set.count; i++)
    texts.push_back (text_of (set.list[i]));
  if (!texts.empty ())
    return join (texts, ", ");
  const std::string min = text_of (set.min);
  const std::string max = text_of (set.max);
  return min == max ? min : min + " to " + max;
}

std::string text_of (const VornResolutionSet &set)
{
  return text_of_set (set);
}

std::string text_of (const VornFramerateSet &set)
{
  return text_of_set (set);
}

std::string text_of (const VornCameraMode &mode)
{
  if (mode.type == VORN_CAMERA_MODE_PHOTO)
    return std::string ("photo, ") + vorn_camera_mode_photo_get_name (mode.photo.photo_mode) +
           ", " + vorn_photo_format_get_name (mode.photo.format) + ", " +
           vorn_photo_file_format_get_name (mode.photo.file_format);
  return std::string ("recording, ") +
         vorn_camera_mode_recording_get_name (mode.recording.sub_mode) + ", " +
         text_of (mode.recording.resolution) + " at " + text_of (mode.recording.framerate);
}

std::vector<std::string> names_of (guint32 mask, const gchar *(*name_of) (guint32 value))
{
  std::vector<std::string> names;
  for (guint32 bit = 0; bit < 32; bit++)
    if ((mask >> bit) & 1u)
      names.emplace_back (name_of (bit));
  return names;
}

std::string join (std::span<const std::string> texts, const char *separator)
{
  std::string joined;
  for (const std::string &text : texts)
    joined += (joined.empty () ? "" : separator) + text;
  return joined;
}
