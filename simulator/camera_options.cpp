// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "camera_options.hpp"

#include <cmath>
#include <cstdio>
#include <numbers>

#include <vorn/camera_protocol.h>

namespace sim
{

namespace
{

constexpr int most_sub_exposures = 64;
constexpr double longest_ms = 1000;

/** Two positive numbers with a separator between them and nothing after them. */
bool parse_pair (const char *text, char separator, uint32_t *a, uint32_t *b)
{
  char found;
  char rest;
  return sscanf (text, "%7u%c%7u%c", a, &found, b, &rest) == 3 && found == separator && *a > 0 &&
         *b > 0;
}

std::string refusal (const std::string &option, const char *value, const char *wanted)
{
  return "--" + option + ": '" + value + "' is not " + wanted;
}

} // namespace

CameraArguments::~CameraArguments ()
{
  for (const Camera &camera : {front_, down_})
    for (gchar *text : {camera.socket, camera.sensor, camera.rate})
      g_free (text);
}

GOptionGroup *CameraArguments::make_group ()
{
  const GOptionEntry entries[] = {
      {"front-camera", 0, 0, G_OPTION_ARG_FILENAME, &front_.socket,
       "Socket of the front camera (in the instance's runtime directory; none: no camera)", "PATH"},
      {"front-sensor", 0, 0, G_OPTION_ARG_STRING, &front_.sensor,
       "Size of its sensor, pixels (1280x720)", "WxH"},
      {"front-rate", 0, 0, G_OPTION_ARG_STRING, &front_.rate,
       "Rate of its sensor, frames per second (30/1)", "N/D"},
      {"front-fov", 0, 0, G_OPTION_ARG_DOUBLE, &front_.fov_deg,
       "Horizontal field of view, degrees (that of --hfov)", "ANGLE"},
      {"down-camera", 0, 0, G_OPTION_ARG_FILENAME, &down_.socket,
       "Socket of the camera that looks down (as for the front camera)", "PATH"},
      {"down-sensor", 0, 0, G_OPTION_ARG_STRING, &down_.sensor,
       "Size of its sensor, pixels (640x480)", "WxH"},
      {"down-rate", 0, 0, G_OPTION_ARG_STRING, &down_.rate,
       "Rate of its sensor, frames per second (30/1)", "N/D"},
      {"down-fov", 0, 0, G_OPTION_ARG_DOUBLE, &down_.fov_deg,
       "Horizontal field of view, degrees (60)", "ANGLE"},
      {"exposure", 0, 0, G_OPTION_ARG_DOUBLE, &exposure_ms_, "Exposure of each row, ms (2)", "MS"},
      {"readout", 0, 0, G_OPTION_ARG_DOUBLE, &readout_ms_,
       "From a sensor's first row to its last, ms (0: all rows at once)", "MS"},
      {"blur", 0, 0, G_OPTION_ARG_INT, &sub_exposures_,
       "Motion blur: so many samples of each exposure (1: none; costs as many times the time)",
       "N"},
      {}};
  GOptionGroup *group = g_option_group_new (
      "camera", "Options of the cameras:", "Show the options of the cameras", nullptr, nullptr);
  g_option_group_add_entries (group, entries);
  return group;
}

std::string CameraArguments::take_over (const Camera &camera, const std::string &name,
                                        CameraOptions::Camera *options)
{
  CameraSensor &sensor = options->sensor;
  if (camera.socket)
    options->socket = std::string (camera.socket) == "none" ? "" : camera.socket;
  if (camera.sensor &&
      (!parse_pair (camera.sensor, 'x', &sensor.width, &sensor.height) ||
       sensor.width > VORN_CAMERA_MAX_SIDE || sensor.height > VORN_CAMERA_MAX_SIDE))
    return refusal (name + "-sensor", camera.sensor,
                    "WIDTHxHEIGHT in pixels, each from 1 to 16384");
  if (camera.rate &&
      (!parse_pair (camera.rate, '/', &sensor.rate_numerator, &sensor.rate_denominator) ||
       sensor.rate_numerator > 1000 * uint64_t{sensor.rate_denominator} ||
       sensor.rate_denominator > 100 * uint64_t{sensor.rate_numerator}))
    return refusal (name + "-rate", camera.rate,
                    "a rate like 30/1 or 24000/1001, from 1/100 to 1000/1 per second");
  if (camera.fov_deg != unset) {
    if (!(camera.fov_deg >= 1 && camera.fov_deg <= 170))
      return "--" + name + "-fov: an angle from 1 to 170 degrees is needed";
    sensor.horizontal_fov_rad = camera.fov_deg * std::numbers::pi / 180;
  }
  return {};
}

std::string CameraArguments::take_over (CameraOptions *options) const
{
  for (std::string reason :
       {take_over (front_, "front", &options->front), take_over (down_, "down", &options->down)})
    if (!reason.empty ())
      return reason;
  for (CameraOptions::Camera *camera : {&options->front, &options->down}) {
    if (exposure_ms_ != unset) {
      if (!(exposure_ms_ >= 0 && exposure_ms_ <= longest_ms))
        return "--exposure: a number from 0 to 1000 ms is needed";
      camera->sensor.exposure_ns = std::llround (exposure_ms_ * 1e6);
    }
    if (readout_ms_ != unset) {
      if (!(readout_ms_ >= 0 && readout_ms_ <= longest_ms))
        return "--readout: a number from 0 to 1000 ms is needed";
      camera->sensor.readout_ns = std::llround (readout_ms_ * 1e6);
    }
  }
  if (sub_exposures_ < 1 || sub_exposures_ > most_sub_exposures)
    return "--blur: a number from 1 to 64 is needed";
  options->sub_exposures = sub_exposures_;
  return {};
}

} // namespace sim
