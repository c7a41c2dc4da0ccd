// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "run_addresses.hpp"

#include <cstring>
#include <filesystem>
#include <fstream>

#include <vorn/instance.h>
#include <vorn/log.h>
#include <vorn/product.h>
#include <vorn/raii.hpp>

VORN_LOG_TAG ("host");

void choose_gl_window ()
{
  if (!g_getenv ("DISPLAY") && !g_getenv ("WAYLAND_DISPLAY"))
    g_setenv ("GST_GL_WINDOW", "egl-device", FALSE);
}

bool find_simulator (const Instance &instance, std::string *error)
{
  if (g_getenv ("IIOD_REMOTE"))
    return true;
  const std::string path = instance.at (VORN_INSTANCE_IIO_URI_FILE);
  std::ifstream file (path);
  std::string uri;
  if (!std::getline (file, uri) || uri.empty ()) {
    *error = "no simulator flies instance '" + instance.name + "': there is no " + path;
    return false;
  }
  return g_setenv ("IIOD_REMOTE", uri.c_str (), FALSE);
}

namespace
{

struct CameraSocket {
  const char *group;
  const char *file;
};
constexpr CameraSocket camera_sockets[] = {
    {"camera-front", VORN_INSTANCE_FRONT_CAMERA_SOCKET},
    {"camera-vertical", VORN_INSTANCE_DOWN_CAMERA_SOCKET},
};

constexpr char unix_prefix[] = "unix:";

/** Whether the camera's address is a socket that does not exist. */
bool leads_nowhere (GKeyFile *key_file, const char *group)
{
  const vorn::OwnedString device (g_key_file_get_string (key_file, group, "video-device", nullptr));
  std::error_code ignored;
  return device && g_str_has_prefix (device.get (), unix_prefix) &&
         !std::filesystem::exists (device.get () + strlen (unix_prefix), ignored);
}

} // namespace

bool resolve_cameras (const std::string &config, const Instance &instance, InstanceClaim *claim,
                      std::string *path, std::string *error)
{
  *path = config;
  // What is wrong with it is told of the file that people wrote.
  vorn::ErrorOut failure;
  const vorn::Owned<VornProductConfiguration, vorn_product_configuration_free> checked (
      vorn_product_configuration_load (config.c_str (), failure.out ()));
  if (!checked) {
    *error = failure.message ();
    return false;
  }
  GKeyFile *key_file = checked->key_file;
  bool changed = false;
  for (const CameraSocket &camera : camera_sockets) {
    if (!leads_nowhere (key_file, camera.group))
      continue;
    const std::string device = unix_prefix + instance.at (camera.file);
    VORN_LOG_INFO ("%s: the picture comes from %s", camera.group, device.c_str ());
    g_key_file_set_string (key_file, camera.group, "video-device", device.c_str ());
    changed = true;
  }
  if (!changed)
    return true;
  const vorn::OwnedString text (g_key_file_to_data (key_file, nullptr, nullptr));
  *path = instance.at ("vorn-host.conf");
  return claim->publish ("vorn-host.conf", text.get (), error);
}
