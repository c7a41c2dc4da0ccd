// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/product.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <iterator>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include <vorn/log.h>
#include <vorn/raii.hpp>

VORN_LOG_TAG ("vorn_configuration");

// The name becomes a string, blanks and all.
// clang-format off
G_DEFINE_QUARK (vorn-configuration-error-quark, vorn_configuration_error)
// clang-format on

namespace
{

constexpr char camera_prefix[] = "camera-";
constexpr char default_source_element[] = "kavrel_morviksrc";
constexpr gdouble default_focal_length_mm = 4.0;

constexpr const char *camera_keys[] = {"video-device", "element",          "sensor-size",
                                       "framerate",    "capture-rect",     "optical-center",
                                       "focal-length", "orientation",      "factory-orientation",
                                       "position",     "alignment-offsets"};

constexpr const char *product_keys[] = {"thermal-alignment-offsets"};

constexpr const char *metadata_text_keys[] = {
    "manufacturer",     "model",    "model-id",   "serial",
    "software-version", "build-id", "flight-uid", "run-id"};
constexpr const char *metadata_keys[] = {"manufacturer",
                                         "model",
                                         "model-id",
                                         "serial",
                                         "software-version",
                                         "build-id",
                                         "flight-uid",
                                         "run-id",
                                         "accuracy-horizontal",
                                         "accuracy-vertical",
                                         "takeoff-altitude"};

/** Reads the keys of one group; the first thing wrong is kept as the error, naming file, group and
 * key. */
class Group
{
public:
  Group (GKeyFile *key_file, const char *path, const char *name, GError **error)
      : key_file_ (key_file), path_ (path), name_ (name), error_ (error)
  {
  }

  bool failed () const { return failed_; }

  bool has (const char *key) const
  {
    return g_key_file_has_key (key_file_, name_, key, nullptr) != FALSE;
  }

  void fail (const char *key, const std::string &reason)
  {
    if (!failed_)
      g_set_error (error_, VORN_CONFIGURATION_ERROR, VORN_CONFIGURATION_ERROR_VALUE,
                   "%s: group '%s', key '%s': %s", path_, name_, key, reason.c_str ());
    failed_ = true;
  }

  vorn::OwnedString text (const char *key, const char *fallback = nullptr)
  {
    if (!has (key)) {
      if (!fallback)
        fail (key, "missing");
      return vorn::OwnedString (g_strdup (fallback ? fallback : ""));
    }
    vorn::ErrorOut error;
    vorn::OwnedString value (g_key_file_get_string (key_file_, name_, key, error.out ()));
    // A value with a wrong escape comes with its error, not instead of it.
    if (!value || error)
      fail (key, error.message ());
    else if (*value == '\0')
      fail (key, "empty");
    return value ? std::move (value) : vorn::OwnedString (g_strdup (""));
  }

  /** Whole numbers with these separators between them, "x" for "1280x720". */
  void whole_numbers (const char *key, const char *form, const char *separators,
                      std::span<guint32> numbers)
  {
    const auto value = text (key);
    if (failed_)
      return;
    const char *at = value.get ();
    const char *end = at + strlen (at);
    bool good = true;
    for (size_t i = 0; i < numbers.size () && good; i++) {
      const auto [next, status] = std::from_chars (at, end, numbers[i]);
      const char separator = i + 1 < numbers.size () ? separators[i] : '\0';
      good = status == std::errc () && *next == separator;
      at = next + 1;
    }
    if (!good)
      fail (key, "'" + std::string (value.get ()) + "' is not of the form " + form);
  }

  /** Numbers separated by semicolons; left as they are when the key is missing. */
  void numbers (const char *key, std::span<gdouble> values)
  {
    if (failed_ || !has (key))
      return;
    vorn::ErrorOut error;
    gsize count = 0;
    const vorn::Owned<gdouble, g_free> list (
        g_key_file_get_double_list (key_file_, name_, key, &count, error.out ()));
    if (error)
      return fail (key, error.message ());
    if (count != values.size ())
      return fail (key, std::to_string (values.size ()) + " numbers expected, there are " +
                            std::to_string (count));
    for (gsize i = 0; i < count; i++) {
      if (!std::isfinite (list.get ()[i]))
        return fail (key, "a number that is not finite");
      values[i] = list.get ()[i];
    }
  }

  void vector (const char *key, VornVector3 *vector)
  {
    gdouble values[3] = {vector->x, vector->y, vector->z};
    numbers (key, values);
    *vector = {values[0], values[1], values[2]};
  }

  void alignment_offsets (const char *key, VornAlignmentOffsetsCapabilities *capabilities)
  {
    gdouble values[9] = {};
    numbers (key, values);
    VornAlignmentRange *const ranges[] = {&capabilities->yaw, &capabilities->pitch,
                                          &capabilities->roll};
    for (size_t i = 0; i < std::size (ranges); i++)
      *ranges[i] = {static_cast<gfloat> (values[3 * i]), static_cast<gfloat> (values[3 * i + 1]),
                    static_cast<gfloat> (values[3 * i + 2])};
  }

  /** A misspelt key would silently do nothing: say so. */
  void warn_of_unknown_keys (std::span<const char *const> known) const
  {
    const vorn::OwnedStrings keys (g_key_file_get_keys (key_file_, name_, nullptr, nullptr));
    for (gchar **key = keys.get (); key && *key; key++)
      if (std::none_of (known.begin (), known.end (),
                        [&] (const char *name) { return strcmp (name, *key) == 0; }))
        VORN_LOG_WARNING ("%s: group '%s': key '%s' is not known and has no effect", path_, name_,
                          *key);
  }

private:
  GKeyFile *key_file_;
  const char *path_;
  const char *name_;
  GError **error_;
  bool failed_ = false;
};

VornCamera *read_camera (GKeyFile *key_file, const char *path, const char *group_name,
                         GError **error)
{
  Group group (key_file, path, group_name, error);
  VornCameraParameters parameters = {};
  parameters.name = group_name + strlen (camera_prefix);
  if (*parameters.name == '\0')
    group.fail ("*", "the camera has no name");
  const auto video_device = group.text ("video-device");
  const auto element = group.text ("element", default_source_element);
  parameters.video_device = video_device.get ();
  parameters.element_factory = element.get ();

  VornSensorConfiguration &sensor = parameters.sensor_configuration;
  guint32 size[2] = {};
  group.whole_numbers ("sensor-size", "1280x720 (width x height)", "x", size);
  if (size[0] == 0 || size[1] == 0)
    group.fail ("sensor-size", "a size of zero");
  sensor.resolution = {size[0], size[1]};
  guint32 rate[2] = {};
  group.whole_numbers ("framerate", "30000/1001 (numerator / denominator)", "/", rate);
  if (rate[0] == 0 || rate[1] == 0)
    group.fail ("framerate", "a framerate of zero");
  sensor.framerate = {rate[0], rate[1]};

  guint32 capture[4] = {0, 0, size[0], size[1]};
  if (group.has ("capture-rect"))
    group.whole_numbers ("capture-rect", "0,0,1280,720 (left, top, width, height)", ",,,", capture);
  const bool fits = capture[2] > 0 && capture[3] > 0 && capture[2] <= size[0] &&
                    capture[3] <= size[1] && capture[0] <= size[0] - capture[2] &&
                    capture[1] <= size[1] - capture[3];
  if (!fits)
    group.fail ("capture-rect", "the rectangle is empty or reaches beyond the sensor");
  sensor.capture_left = capture[0];
  sensor.capture_top = capture[1];
  sensor.capture_width = capture[2];
  sensor.capture_height = capture[3];
  group.alignment_offsets ("alignment-offsets", &sensor.alignment_offsets);

  gdouble center[2] = {size[0] / 2.0, size[1] / 2.0};
  group.numbers ("optical-center", center);
  parameters.optical_center_x = center[0];
  parameters.optical_center_y = center[1];
  gdouble focal_length[1] = {default_focal_length_mm};
  group.numbers ("focal-length", focal_length);
  if (!(focal_length[0] > 0.0))
    group.fail ("focal-length", "must be above 0");
  parameters.focal_length = focal_length[0];
  group.vector ("orientation", &parameters.orientation);
  group.vector ("factory-orientation", &parameters.factory_orientation);
  group.vector ("position", &parameters.position);
  group.warn_of_unknown_keys (camera_keys);
  return group.failed () ? nullptr : vorn_camera_new (&parameters);
}

/** What the metadata provider reads later is known to be good. */
void check_metadata (Group &group)
{
  for (const char *key : metadata_text_keys)
    if (group.has (key))
      group.text (key);
  for (const char *key : {"accuracy-horizontal", "accuracy-vertical"}) {
    gdouble accuracy[1] = {};
    group.numbers (key, accuracy);
    if (accuracy[0] < 0.0)
      group.fail (key, "must not be below 0");
  }
  gdouble altitude[1] = {};
  group.numbers ("takeoff-altitude", altitude);
  group.warn_of_unknown_keys (metadata_keys);
}

bool read_cameras (VornProductConfiguration *configuration, const char *path, GError **error)
{
  const vorn::OwnedStrings groups (g_key_file_get_groups (configuration->key_file, nullptr));
  for (gchar **group = groups.get (); *group; group++) {
    if (!g_str_has_prefix (*group, camera_prefix))
      continue;
    VornCamera *camera = read_camera (configuration->key_file, path, *group, error);
    if (!camera)
      return false;
    configuration->cameras = g_list_append (configuration->cameras, camera);
  }
  if (configuration->cameras)
    return true;
  g_set_error (error, VORN_CONFIGURATION_ERROR, VORN_CONFIGURATION_ERROR_CAMERAS,
               "%s: no camera is configured: there is no group 'camera-NAME' (camera-front, "
               "camera-vertical)",
               path);
  return false;
}

} // namespace

VornProductConfiguration *vorn_product_configuration_load (const gchar *path, GError **error)
{
  g_return_val_if_fail (path != NULL, nullptr);
  vorn::Owned<VornProductConfiguration, vorn_product_configuration_free> configuration (
      g_new0 (VornProductConfiguration, 1));
  configuration->key_file = g_key_file_new ();
  vorn::ErrorOut file_error;
  if (!g_key_file_load_from_file (configuration->key_file, path, G_KEY_FILE_NONE,
                                  file_error.out ())) {
    g_set_error (error, VORN_CONFIGURATION_ERROR, VORN_CONFIGURATION_ERROR_FILE,
                 "cannot read configuration %s: %s", path, file_error.message ());
    return nullptr;
  }
  Group product (configuration->key_file, path, "product", error);
  product.alignment_offsets ("thermal-alignment-offsets",
                             &configuration->thermal_alignment_offsets);
  product.warn_of_unknown_keys (product_keys);
  Group metadata (configuration->key_file, path, "metadata", error);
  if (!product.failed ())
    check_metadata (metadata);
  if (product.failed () || metadata.failed () || !read_cameras (configuration.get (), path, error))
    return nullptr;
  return configuration.release ();
}

void vorn_product_configuration_free (VornProductConfiguration *configuration)
{
  if (!configuration)
    return;
  g_list_free_full (configuration->cameras, g_object_unref);
  g_clear_pointer (&configuration->key_file, g_key_file_unref);
  g_free (configuration);
}
