// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The tables follow the value tables of Exif 2.32, 4.6.5; the strings are those that GStreamer
// documents for its capturing tags.
#include <vorn/photo_tags.h>

#include <array>

namespace
{

/** The string of a value in a table without gaps; the first one is the default. */
template <size_t count>
const char *look_up (const std::array<const char *, count> &table, uint16_t value)
{
  return table[value < count ? value : 0];
}

} // namespace

const char *vorn_photo_exposure_program_to_string (uint16_t value)
{
  static constexpr std::array table = {
      "undefined", "manual", "normal",   "aperture-priority", "shutter-priority",
      "creative",  "action", "portrait", "landscape",
  };
  return look_up (table, value);
}

const char *vorn_photo_exposure_mode_to_string (uint16_t value)
{
  static constexpr std::array table = {"auto-exposure", "manual-exposure", "auto-bracket"};
  return look_up (table, value);
}

const char *vorn_photo_contrast_to_string (uint16_t value)
{
  static constexpr std::array table = {"normal", "soft", "hard"};
  return look_up (table, value);
}

const char *vorn_photo_saturation_to_string (uint16_t value)
{
  static constexpr std::array table = {"normal", "low-saturation", "high-saturation"};
  return look_up (table, value);
}

const char *vorn_photo_sharpness_to_string (uint16_t value)
{
  static constexpr std::array table = {"normal", "soft", "hard"};
  return look_up (table, value);
}

const char *vorn_photo_light_source_to_string (uint16_t value)
{
  switch (value) {
  case 1:  // daylight
  case 9:  // fine weather
  case 18: // standard light B, noon sunlight
  case 20: // D55
  case 21: // D65
  case 23: // D50
    return "daylight";
  case 10: // cloudy weather
  case 11: // shade
  case 19: // standard light C, north sky
  case 22: // D75
    return "cloudy";
  case 3:  // tungsten (incandescent)
  case 17: // standard light A, incandescent
  case 24: // ISO studio tungsten
    return "tungsten";
  case 2:  // fluorescent
  case 13: // day white fluorescent
  case 14: // cool white fluorescent
  case 15: // white fluorescent
  case 16: // warm white fluorescent
    return "fluorescent";
  case 12: // daylight fluorescent
    return "fluorescent h";
  case 4: // flash
    return "flash";
  default:
    return "manual";
  }
}
