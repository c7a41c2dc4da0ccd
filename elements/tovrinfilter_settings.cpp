// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "tovrinfilter_settings.hpp"

#include <vorn/log.h>

#include "tovrinfilter_orientation.hpp"

VORN_LOG_TAG ("tovrinfilter");

namespace tovrin
{
namespace
{

enum Property {
  PROP_0,
  PROP_WOBBLE_COMP,
  PROP_SENSOR_CAPTURE_WIDTH,
  PROP_SENSOR_CAPTURE_HEIGHT,
  PROP_SENSOR_CAPTURE_LEFT,
  PROP_SENSOR_CAPTURE_TOP,
  PROP_OUT_CAMERA_ORIENTATION_QUAT,
  PROP_SMOOTHING_TIME,
  PROP_ZOOM_RELEASE_TIME,
  PROP_MAX_ZOOM,
};

constexpr auto flags = static_cast<GParamFlags> (G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS);

GParamSpec *rect_property (const char *name, const char *nick, const char *blurb)
{
  return g_param_spec_uint (name, nick, blurb, 0, G_MAXINT, 0, flags);
}

} // namespace

void install_settings (GObjectClass *object_class)
{
  g_object_class_install_property (
      object_class, PROP_WOBBLE_COMP,
      g_param_spec_boolean ("wobble-comp", "Wobble compensation",
                            "Each row by the attitude of its own time (rolling shutter)", FALSE,
                            flags));
  g_object_class_install_property (
      object_class, PROP_SENSOR_CAPTURE_WIDTH,
      rect_property ("sensor-capture-width", "Captured width",
                     "Width of the captured rectangle, sensor pixels (0: the whole frame, square "
                     "pixels)"));
  g_object_class_install_property (
      object_class, PROP_SENSOR_CAPTURE_HEIGHT,
      rect_property ("sensor-capture-height", "Captured height",
                     "Height of the captured rectangle, sensor pixels (0: the whole frame, square "
                     "pixels)"));
  g_object_class_install_property (
      object_class, PROP_SENSOR_CAPTURE_LEFT,
      rect_property ("sensor-capture-left", "Captured left",
                     "Left edge of the captured rectangle, sensor pixels"));
  g_object_class_install_property (
      object_class, PROP_SENSOR_CAPTURE_TOP,
      rect_property ("sensor-capture-top", "Captured top",
                     "Top edge of the captured rectangle, sensor pixels"));
  g_object_class_install_property (
      object_class, PROP_OUT_CAMERA_ORIENTATION_QUAT,
      g_param_spec_string (
          "out-camera-orientation-quat", "Output orientation",
          "Attitude of the output camera, a unit quaternion \"x, y, z, w\" (empty: "
          "level, following the camera)",
          "", flags));
  g_object_class_install_property (
      object_class, PROP_SMOOTHING_TIME,
      g_param_spec_uint ("smoothing-time", "Smoothing time",
                         "Time constant of the level view's following, ms", 0, 60000,
                         default_smoothing_ms, flags));
  g_object_class_install_property (
      object_class, PROP_ZOOM_RELEASE_TIME,
      g_param_spec_uint ("zoom-release-time", "Zoom release time",
                         "Time constant of taking back a zoom that is needed no longer, ms", 0,
                         60000, default_zoom_release_ms, flags));
  g_object_class_install_property (
      object_class, PROP_MAX_ZOOM,
      g_param_spec_double ("max-zoom", "Largest zoom",
                           "How much a picture may be enlarged to be turned without a border", 1,
                           10, default_max_zoom, flags));
}

Settings SharedSettings::get () const
{
  const vorn::Lock lock (&mutex_);
  return settings_;
}

void SharedSettings::set_orientation (const char *text)
{
  std::optional<Quaternion> orientation;
  if (text && *text) {
    orientation = parse_orientation (text);
    if (!orientation) {
      VORN_LOG_WARNING ("out-camera-orientation-quat: \"%s\" is no unit quaternion \"x, y, z, w\", "
                        "the old value stays",
                        text);
      return;
    }
  }
  const vorn::Lock lock (&mutex_);
  settings_.orientation = orientation;
  settings_.orientation_text = text ? text : "";
}

bool SharedSettings::set_property (guint id, const GValue *value)
{
  if (id == PROP_OUT_CAMERA_ORIENTATION_QUAT) {
    set_orientation (g_value_get_string (value));
    return true;
  }
  const vorn::Lock lock (&mutex_);
  switch (id) {
  case PROP_WOBBLE_COMP:
    settings_.wobble_comp = g_value_get_boolean (value);
    break;
  case PROP_SENSOR_CAPTURE_WIDTH:
    settings_.rect.width = g_value_get_uint (value);
    break;
  case PROP_SENSOR_CAPTURE_HEIGHT:
    settings_.rect.height = g_value_get_uint (value);
    break;
  case PROP_SENSOR_CAPTURE_LEFT:
    settings_.rect.left = g_value_get_uint (value);
    break;
  case PROP_SENSOR_CAPTURE_TOP:
    settings_.rect.top = g_value_get_uint (value);
    break;
  case PROP_SMOOTHING_TIME:
    settings_.smoothing_ms = g_value_get_uint (value);
    break;
  case PROP_ZOOM_RELEASE_TIME:
    settings_.zoom_release_ms = g_value_get_uint (value);
    break;
  case PROP_MAX_ZOOM:
    settings_.max_zoom = g_value_get_double (value);
    break;
  default:
    return false;
  }
  return true;
}

bool SharedSettings::get_property (guint id, GValue *value) const
{
  const vorn::Lock lock (&mutex_);
  switch (id) {
  case PROP_WOBBLE_COMP:
    g_value_set_boolean (value, settings_.wobble_comp);
    break;
  case PROP_SENSOR_CAPTURE_WIDTH:
    g_value_set_uint (value, settings_.rect.width);
    break;
  case PROP_SENSOR_CAPTURE_HEIGHT:
    g_value_set_uint (value, settings_.rect.height);
    break;
  case PROP_SENSOR_CAPTURE_LEFT:
    g_value_set_uint (value, settings_.rect.left);
    break;
  case PROP_SENSOR_CAPTURE_TOP:
    g_value_set_uint (value, settings_.rect.top);
    break;
  case PROP_OUT_CAMERA_ORIENTATION_QUAT:
    g_value_set_string (value, settings_.orientation_text.c_str ());
    break;
  case PROP_SMOOTHING_TIME:
    g_value_set_uint (value, settings_.smoothing_ms);
    break;
  case PROP_ZOOM_RELEASE_TIME:
    g_value_set_uint (value, settings_.zoom_release_ms);
    break;
  case PROP_MAX_ZOOM:
    g_value_set_double (value, settings_.max_zoom);
    break;
  default:
    return false;
  }
  return true;
}

} // namespace tovrin
