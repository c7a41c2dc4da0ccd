// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "mode_argument.hpp"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <optional>
#include <sstream>
#include <vector>

#include "modes_text.hpp"

namespace
{

using NameOf = const gchar *(*)(guint32 value);

/** One word: "slow motion" is slow-motion. */
std::string word_of (const gchar *name)
{
  std::string word = name;
  std::replace (word.begin (), word.end (), ' ', '-');
  return word;
}

/** All names of an enumeration: they end where "unknown" begins. */
std::vector<std::string> all_names (NameOf name_of)
{
  std::vector<std::string> names;
  for (guint32 value = 0; strcmp (name_of (value), "unknown") != 0; value++)
    names.push_back (word_of (name_of (value)));
  return names;
}

std::optional<guint32> value_of (const std::string &name, NameOf name_of)
{
  const std::vector<std::string> names = all_names (name_of);
  const auto found = std::find (names.begin (), names.end (), name);
  if (found == names.end ())
    return std::nullopt;
  return static_cast<guint32> (found - names.begin ());
}

bool unknown (const char *what, const std::string &name, NameOf name_of, std::string *error)
{
  *error =
      std::string ("there is no ") + what + " '" + name + "': " + join (all_names (name_of), ", ");
  return false;
}

/** Takes a whole number off the front of a text. */
bool take_number (const char **at, guint32 *number)
{
  const auto [next, status] = std::from_chars (*at, *at + strlen (*at), *number);
  *at = next;
  return status == std::errc ();
}

/** WIDTHxHEIGHT@NUM[/DEN] */
bool parse_picture (const std::string &text, VornResolution *size, VornFramerate *rate)
{
  const char *at = text.c_str ();
  rate->den = 1;
  return take_number (&at, &size->width) && *at++ == 'x' && take_number (&at, &size->height) &&
         *at++ == '@' && take_number (&at, &rate->num) &&
         (*at != '/' || take_number (&++at, &rate->den)) && *at == '\0' && size->width &&
         size->height && rate->num && rate->den;
}

bool parse_recording (const std::vector<std::string> &words, VornCameraMode *mode,
                      std::string *error)
{
  mode->type = VORN_CAMERA_MODE_RECORDING;
  if (words.size () < 2 || words.size () > 3 ||
      !parse_picture (words[1], &mode->recording.resolution, &mode->recording.framerate)) {
    *error = "a recording mode is 'recording WIDTHxHEIGHT@RATE [SUB-MODE]', for example "
             "'recording 1920x1080@30000/1001'";
    return false;
  }
  const std::string sub_mode = words.size () > 2 ? words[2] : "standard";
  const auto value = value_of (sub_mode, vorn_camera_mode_recording_get_name);
  mode->recording.sub_mode = value.value_or (0);
  return value ||
         unknown ("recording sub-mode", sub_mode, vorn_camera_mode_recording_get_name, error);
}

bool parse_photo (const std::vector<std::string> &words, VornCameraMode *mode, std::string *error)
{
  mode->type = VORN_CAMERA_MODE_PHOTO;
  mode->photo.count = 1;
  if (words.size () < 2) {
    *error = "a photo mode is 'photo MODE [FORMAT] [FILE-FORMAT] [COUNT]', for example "
             "'photo burst 3'";
    return false;
  }
  const auto photo_mode = value_of (words[1], vorn_camera_mode_photo_get_name);
  if (!photo_mode)
    return unknown ("photo mode", words[1], vorn_camera_mode_photo_get_name, error);
  mode->photo.photo_mode = *photo_mode;
  for (size_t i = 2; i < words.size (); i++) {
    const char *at = words[i].c_str ();
    guint32 count = 0;
    if (const auto format = value_of (words[i], vorn_photo_format_get_name)) {
      mode->photo.format = *format;
    } else if (const auto file = value_of (words[i], vorn_photo_file_format_get_name)) {
      mode->photo.file_format = *file;
    } else if (take_number (&at, &count) && *at == '\0' && count > 0) {
      mode->photo.count = count;
    } else {
      *error = "'" + words[i] + "' is no photo format (" +
               join (all_names (vorn_photo_format_get_name), ", ") + "), no file format (" +
               join (all_names (vorn_photo_file_format_get_name), ", ") + ") and no count";
      return false;
    }
  }
  return true;
}

} // namespace

bool parse_camera_mode (const std::string &text, VornCameraMode *mode, std::string *error)
{
  std::istringstream stream (text);
  std::vector<std::string> words;
  for (std::string word; stream >> word;)
    words.push_back (word);
  *mode = {};
  if (!words.empty () && words[0] == "recording")
    return parse_recording (words, mode, error);
  if (!words.empty () && words[0] == "photo")
    return parse_photo (words, mode, error);
  *error = "a camera mode begins with 'recording' or 'photo'";
  return false;
}

std::string camera_mode_argument (const VornCameraMode &mode)
{
  if (mode.type == VORN_CAMERA_MODE_PHOTO)
    return std::string ("photo ") + vorn_camera_mode_photo_get_name (mode.photo.photo_mode) + " " +
           vorn_photo_format_get_name (mode.photo.format) + " " +
           vorn_photo_file_format_get_name (mode.photo.file_format) + " " +
           std::to_string (mode.photo.count);
  return "recording " + text_of (mode.recording.resolution) + "@" +
         text_of (mode.recording.framerate) + " " +
         word_of (vorn_camera_mode_recording_get_name (mode.recording.sub_mode));
}

bool parse_photo_grouping (const std::string &text, guint32 *grouping, std::string *error)
{
  const auto value = value_of (text, vorn_photo_grouping_type_get_name);
  *grouping = value.value_or (0);
  return value || unknown ("group", text, vorn_photo_grouping_type_get_name, error);
}
