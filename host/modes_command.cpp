// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "modes_command.hpp"

#include <string>
#include <unistd.h>

#include "commands.hpp"
#include "messages.hpp"
#include "product_loader.hpp"
#include "run_addresses.hpp"
#include <vorn/blackboard.h>
#include <vorn/camera.h>
#include <vorn/log.h>

namespace
{

/** Sections of shared memory that are nobody else's, gone with the scope. */
class PrivateNamespace
{
public:
  PrivateNamespace () { vorn_blackboard_set_namespace (name_.c_str ()); }
  ~PrivateNamespace () { vorn_blackboard_remove_namespace (name_.c_str ()); }
  PrivateNamespace (const PrivateNamespace &) = delete;
  PrivateNamespace &operator= (const PrivateNamespace &) = delete;

private:
  std::string name_ = "modes-" + std::to_string (getpid ());
};

/** The cameras that have modes: another one's pipeline would be started for nothing, and its
 * section of shared memory stay until the end of the process, beyond its namespace. */
void leave_out_vertical_camera (VornProductConfiguration *configuration)
{
  for (GList *item = configuration->cameras; item; item = item->next)
    if (g_strcmp0 (vorn_camera_get_name (VORN_CAMERA (item->data)), "vertical") == 0) {
      const auto camera = vorn::adopt (VORN_CAMERA (item->data));
      configuration->cameras = g_list_delete_link (configuration->cameras, item);
      return;
    }
}

} // namespace

int modes_command (const Options &options)
{
  // The modes are the same without a drone: neither need one fly, nor is one that does disturbed.
  const PrivateNamespace apart;
  choose_gl_window ();
  vorn_log_set_level (nullptr, VORN_LOG_PRIORITY_WARNING);
  LoadedProduct loaded;
  std::string error;
  if (!load_product (
          {options.config, options.plugin, {"ro.with-front-cam=0", "ro.simple-front-cam=1"}},
          &loaded, &error))
    return fail (error);
  leave_out_vertical_camera (loaded.configuration.get ());
  if (!vorn_product_setup (loaded.product.get (), loaded.configuration.get ()))
    return fail (options.config + ": the product could not be set up");
  if (options.json)
    print_modes_json (loaded.product.get ());
  else
    print_modes (loaded.product.get ());
  return finish_output ();
}
