// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "encoder_presets.hpp"

#include <filesystem>
#include <set>
#include <string>

#include <dlfcn.h>

#include <vorn/gst_raii.hpp>
#include <vorn/log.h>

#include "encoder_backend.hpp"

VORN_LOG_TAG ("vorn_encoder");

namespace fs = std::filesystem;

namespace vorn::encoder
{

namespace
{

// GStreamer's own ways, which know the user's presets and those of GST_PRESET_PATH.
gchar **(*find_names_elsewhere) (GstPreset *);
gboolean (*load_from_elsewhere) (GstPreset *, const gchar *);

/** Beside the library in the build tree, else where they are installed as seen from it. */
fs::path shipped_file ()
{
  Dl_info info = {};
  if (dladdr (reinterpret_cast<void *> (&vorn_encoder_new), &info) == 0 || !info.dli_fname)
    return {};
  std::error_code error;
  const fs::path folder = fs::canonical (info.dli_fname, error).parent_path ();
  const fs::path built = folder / "VornEncoder.prs";
  return fs::exists (built, error) ? built : folder / VORN_PRESETS_FROM_LIBRARY / "VornEncoder.prs";
}

OwnedKeyFile load_shipped ()
{
  OwnedKeyFile presets (g_key_file_new ());
  const fs::path path = shipped_file ();
  ErrorOut error;
  if (g_key_file_load_from_file (presets.get (), path.c_str (), G_KEY_FILE_NONE, error.out ()))
    return presets;
  VORN_LOG_WARNING ("the encoder presets '%s' cannot be read: %s", path.c_str (), error.message ());
  return nullptr;
}

/** What a preset may set: all that is written to the bin by its user, but not the bitrate. */
gchar **get_property_names (GstPreset *)
{
  static const gchar *const names[] = {
      "preset-bitrate",     "preset-width", "preset-height", "preset-framerate",
      "key-frame-interval", "speed",        "slices",        nullptr};
  return g_strdupv (const_cast<gchar **> (names));
}

/** Groups of a preset file that are no presets. */
bool is_internal (const gchar *name)
{
  return name[0] == '_';
}

/** False where no such preset is shipped. A value that cannot be read is left out, with a warning.
 */
bool load_from_shipped (GstPreset *preset, const gchar *name)
{
  const OwnedKeyFile presets = load_shipped ();
  if (!presets || !g_key_file_has_group (presets.get (), name))
    return false;
  const OwnedStrings properties (get_property_names (preset));
  for (gchar **property = properties.get (); *property; property++) {
    const OwnedString text (g_key_file_get_value (presets.get (), name, *property, nullptr));
    if (!text)
      continue;
    const GParamSpec *pspec = g_object_class_find_property (G_OBJECT_GET_CLASS (preset), *property);
    GValue value = G_VALUE_INIT;
    g_value_init (&value, pspec->value_type);
    if (gst_value_deserialize (&value, text.get ()))
      g_object_set_property (G_OBJECT (preset), *property, &value);
    else
      VORN_LOG_WARNING ("encoder preset '%s': '%s' is no value for '%s'", name, text.get (),
                        *property);
    g_value_unset (&value);
  }
  return true;
}

gboolean load_preset (GstPreset *preset, const gchar *name)
{
  return !is_internal (name) &&
         (load_from_elsewhere (preset, name) || load_from_shipped (preset, name));
}

gchar **get_preset_names (GstPreset *preset)
{
  std::set<std::string> names;
  const auto add = [&] (gchar **list) {
    const OwnedStrings owner (list);
    for (gchar **name = list; name && *name; name++)
      if (!is_internal (*name))
        names.insert (*name);
  };
  add (find_names_elsewhere (preset));
  if (const OwnedKeyFile presets = load_shipped ())
    add (g_key_file_get_groups (presets.get (), nullptr));

  gchar **result = g_new0 (gchar *, names.size () + 1);
  gchar **next = result;
  for (const std::string &name : names)
    *next++ = g_strdup (name.c_str ());
  return result;
}

} // namespace

void preset_interface_init (gpointer interface, gpointer)
{
  auto *preset = static_cast<GstPresetInterface *> (interface);
  find_names_elsewhere = preset->get_preset_names;
  load_from_elsewhere = preset->load_preset;
  preset->get_preset_names = get_preset_names;
  preset->get_property_names = get_property_names;
  preset->load_preset = load_preset;
}

} // namespace vorn::encoder
