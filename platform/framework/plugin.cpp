// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/plugin.h>

#include <filesystem>
#include <gmodule.h>
#include <map>
#include <string>
#include <vector>

#include <vorn/log.h>
#include <vorn/raii.hpp>

VORN_LOG_TAG ("vorn_plugin");

// The name becomes a string, blanks and all.
// clang-format off
G_DEFINE_QUARK (vorn-plugin-error-quark, vorn_plugin_error)
// clang-format on

namespace
{

struct Element {
  std::string name;
  GType type;
};

struct State {
  std::string path;
  GModule *library = nullptr;
  const VornPluginDesc *descriptor = nullptr;
  std::vector<Element> elements;
  bool initialised = false;
  vorn::ErrorOut error; // why the last use failed
};

} // namespace

struct _VornPlugin {
  GTypeModule parent_instance;
  State state;
};

G_DEFINE_TYPE (VornPlugin, vorn_plugin, G_TYPE_TYPE_MODULE)

static bool read_descriptor (State &state)
{
  GError **error = state.error.out ();
  state.library = g_module_open (state.path.c_str (), G_MODULE_BIND_LOCAL);
  if (!state.library) {
    g_set_error (error, VORN_PLUGIN_ERROR, VORN_PLUGIN_ERROR_LOAD, "cannot load plug-in %s: %s",
                 state.path.c_str (), g_module_error ());
    return false;
  }
  // Types of the library live as long as the process, so the library does too.
  g_module_make_resident (state.library);
  gpointer symbol = nullptr;
  if (!g_module_symbol (state.library, "vorn_plugin_desc", &symbol) || !symbol) {
    g_set_error (error, VORN_PLUGIN_ERROR, VORN_PLUGIN_ERROR_SYMBOL,
                 "%s is no plug-in: it exports no 'vorn_plugin_desc'", state.path.c_str ());
    return false;
  }
  const auto *descriptor = static_cast<const VornPluginDesc *> (symbol);
  if (descriptor->version_major != VORN_PLUGIN_VERSION_MAJOR ||
      descriptor->version_minor != VORN_PLUGIN_VERSION_MINOR) {
    g_set_error (error, VORN_PLUGIN_ERROR, VORN_PLUGIN_ERROR_VERSION,
                 "plug-in %s has interface version %u.%u, this framework loads %u.%u",
                 state.path.c_str (), descriptor->version_major, descriptor->version_minor,
                 VORN_PLUGIN_VERSION_MAJOR, VORN_PLUGIN_VERSION_MINOR);
    return false;
  }
  const bool has_name = descriptor->name && *descriptor->name != '\0';
  if (!has_name || !descriptor->init) {
    g_set_error (error, VORN_PLUGIN_ERROR, VORN_PLUGIN_ERROR_INIT,
                 "the descriptor of plug-in %s has no %s", state.path.c_str (),
                 has_name ? "init function" : "name");
    return false;
  }
  state.descriptor = descriptor;
  return true;
}

static gboolean vorn_plugin_module_load (GTypeModule *module)
{
  State &state = VORN_PLUGIN (module)->state;
  if (!state.descriptor && !read_descriptor (state))
    return FALSE;
  state.elements.clear ();
  state.initialised = state.descriptor->init (module) != FALSE;
  if (state.initialised)
    return TRUE;
  g_set_error (state.error.out (), VORN_PLUGIN_ERROR, VORN_PLUGIN_ERROR_INIT,
               "plug-in %s (%s) failed to initialise", state.descriptor->name, state.path.c_str ());
  return FALSE;
}

static void vorn_plugin_module_unload (GTypeModule *) {}

static void vorn_plugin_class_init (VornPluginClass *klass)
{
  GTypeModuleClass *module_class = G_TYPE_MODULE_CLASS (klass);
  module_class->load = vorn_plugin_module_load;
  module_class->unload = vorn_plugin_module_unload;
}

static void vorn_plugin_init (VornPlugin *plugin)
{
  // Never finalised: GLib forbids it for a type module.
  new (&plugin->state) State ();
}

/** The one path of a file, whichever way leads to it: two modules cannot register the same types.
 */
static std::string real_path (const gchar *path)
{
  const vorn::OwnedString absolute (g_canonicalize_filename (path, nullptr));
  std::error_code error;
  const std::filesystem::path real = std::filesystem::canonical (absolute.get (), error);
  return error ? std::string (absolute.get ()) : real.string ();
}

VornPlugin *vorn_plugin_load (const gchar *path, GError **error)
{
  g_return_val_if_fail (path != NULL, nullptr);
  // Never destroyed: plug-ins live as long as the process, also while it exits.
  static auto &plugins = *new std::map<std::string, VornPlugin *>;
  const std::string full_path = real_path (path);
  VornPlugin *&plugin = plugins[full_path];
  if (!plugin) {
    plugin = VORN_PLUGIN (g_object_new (vorn_plugin_get_type (), nullptr));
    plugin->state.path = full_path;
    g_type_module_set_name (G_TYPE_MODULE (plugin), full_path.c_str ());
  } else if (plugin->state.initialised) {
    return plugin;
  }
  if (g_type_module_use (G_TYPE_MODULE (plugin)))
    return plugin;
  plugin->state.error.propagate (error);
  return nullptr;
}

const gchar *vorn_plugin_get_name (VornPlugin *plugin)
{
  g_return_val_if_fail (VORN_IS_PLUGIN (plugin), nullptr);
  return plugin->state.descriptor->name;
}

const gchar **vorn_plugin_get_elements (VornPlugin *plugin)
{
  g_return_val_if_fail (VORN_IS_PLUGIN (plugin), nullptr);
  const auto &elements = plugin->state.elements;
  const gchar **names = g_new0 (const gchar *, elements.size () + 1);
  for (size_t i = 0; i < elements.size (); i++)
    names[i] = elements[i].name.c_str ();
  return names;
}

VornProduct *vorn_plugin_create_product (VornPlugin *plugin, const gchar *element, GError **error)
{
  g_return_val_if_fail (VORN_IS_PLUGIN (plugin), nullptr);
  const State &state = plugin->state;
  for (const Element &announced : state.elements)
    if (!element ? state.elements.size () == 1 : announced.name == element)
      return VORN_PRODUCT (g_object_new (announced.type, nullptr));
  g_set_error (error, VORN_PLUGIN_ERROR, VORN_PLUGIN_ERROR_ELEMENT,
               "plug-in %s has no element '%s'", state.path.c_str (),
               element ? element : "(the only one)");
  return nullptr;
}

gboolean vorn_plugin_register_element (GTypeModule *module, const gchar *name, GType type)
{
  const char *reason = nullptr;
  if (!VORN_IS_PLUGIN (module))
    reason = "its module is no plug-in of this framework";
  else if (!name || *name == '\0')
    reason = "it has no name";
  else if (!g_type_is_a (type, VORN_TYPE_PRODUCT))
    reason = "its type is no product";
  else if (G_TYPE_IS_ABSTRACT (type))
    reason = "its type is abstract";
  if (!reason)
    for (const Element &element : VORN_PLUGIN (module)->state.elements)
      if (element.name == name)
        reason = "the name is taken";
  if (reason) {
    VORN_LOG_ERROR ("element '%s' refused: %s", name ? name : "(null)", reason);
    return FALSE;
  }
  VORN_PLUGIN (module)->state.elements.push_back ({name, type});
  return TRUE;
}
