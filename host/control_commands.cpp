// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The commands that talk to a running host.
#include <algorithm>
#include <cstdio>

#include <json-glib/json-glib.h>

#include "commands.hpp"
#include "control_client.hpp"
#include "messages.hpp"
#include "mode_argument.hpp"

namespace
{

constexpr int quick_ms = 10'000;
constexpr int record_start_ms = 20'000;
constexpr int record_stop_ms = 150'000;
constexpr int photo_ms = 25'000; // each
constexpr int mode_ms = 30'000;  // pipelines may be built anew

/** Calls, prints what comes back if there is anything to print, and gives the exit status. */
int call (const Options &options, const char *method, GVariant *parameters, int timeout_ms,
          void (*print) (GVariant *value) = nullptr)
{
  const OwnedVariant arguments (parameters ? g_variant_ref_sink (parameters) : nullptr);
  Instance instance;
  std::string error;
  if (!choose_instance (options.instance, &instance, &error))
    return fail (error, EXIT_USAGE);
  const CallResult result = call_host (instance, method, arguments.get (), timeout_ms);
  if (result.status != EXIT_OK)
    return fail (result.error, result.status);
  if (print)
    print (result.value.get ());
  return finish_output ();
}

void print_file (GVariant *value)
{
  const gchar *file = nullptr;
  g_variant_get (value, "(&s)", &file);
  puts (file);
}

void print_files (GVariant *value)
{
  const OwnedVariant list (g_variant_get_child_value (value, 0));
  for (gsize i = 0; i < g_variant_n_children (list.get ()); i++) {
    const OwnedVariant file (g_variant_get_child_value (list.get (), i));
    puts (g_variant_get_string (file.get (), nullptr));
  }
}

void print_status_json (GVariant *value)
{
  const OwnedVariant status (g_variant_get_child_value (value, 0));
  const vorn::OwnedString json (json_gvariant_serialize_data (status.get (), nullptr));
  puts (json.get ());
}

void print_status_text (GVariant *value)
{
  const OwnedVariant status (g_variant_get_child_value (value, 0));
  GVariantIter iterator;
  g_variant_iter_init (&iterator, status.get ());
  const gchar *name = nullptr;
  GVariant *item = nullptr;
  while (g_variant_iter_next (&iterator, "{&sv}", &name, &item)) {
    const OwnedVariant owned (item);
    const vorn::OwnedString text (g_variant_is_of_type (item, G_VARIANT_TYPE_STRING)
                                      ? g_strdup (g_variant_get_string (item, nullptr))
                                  : g_variant_is_of_type (item, G_VARIANT_TYPE_DOUBLE)
                                      ? g_strdup_printf ("%.3f", g_variant_get_double (item))
                                      : g_variant_print (item, FALSE));
    printf ("%-26s %s\n", name, *text ? text.get () : "-");
  }
}

int wrong_argument (const Options &options, const char *wanted)
{
  return fail ("'" + options.command + "' takes " + wanted + ", not '" + options.arguments[0] +
                   "'\nTry 'vorn-host " + options.command + " --help'.",
               EXIT_USAGE);
}

} // namespace

int record_command (const Options &options)
{
  if (options.arguments[0] == "start")
    return call (options, "StartRecording", nullptr, record_start_ms, print_file);
  if (options.arguments[0] == "stop")
    return call (options, "StopRecording", nullptr, record_stop_ms, print_file);
  return wrong_argument (options, "start or stop");
}

int photo_command (const Options &options)
{
  guint32 grouping = 0;
  std::string error;
  if (!parse_photo_grouping (options.group, &grouping, &error))
    return fail ("--group: " + error, EXIT_USAGE);
  const int count = std::max (options.count, 1);
  if (count > 999)
    return fail ("--count: a group has 1 to 999 pictures", EXIT_USAGE);
  const std::string type = options.panorama.empty () ? "spherical" : options.panorama;
  return call (
      options, "TakePhoto",
      g_variant_new ("(sus)", options.group.c_str (), static_cast<guint32> (count), type.c_str ()),
      photo_ms * count, print_files);
}

int set_mode_command (const Options &options)
{
  std::string text;
  for (const std::string &word : options.arguments)
    text += (text.empty () ? "" : " ") + word;
  VornCameraMode mode;
  std::string error;
  // Here already, so that a slip of the pen needs no host.
  if (!parse_camera_mode (text, &mode, &error))
    return fail (error, EXIT_USAGE);
  return call (options, "SetMode", g_variant_new ("(s)", text.c_str ()), mode_ms);
}

int magic_carpet_command (const Options &options)
{
  const bool on = options.arguments[0] == "on";
  if (!on && options.arguments[0] != "off")
    return wrong_argument (options, "on or off");
  return call (options, "SetMagicCarpet", g_variant_new ("(b)", on), mode_ms);
}

int status_command (const Options &options)
{
  return call (options, "GetStatus", nullptr, quick_ms,
               options.json ? print_status_json : print_status_text);
}

int stop_command (const Options &options)
{
  return call (options, "Stop", nullptr, quick_ms);
}
