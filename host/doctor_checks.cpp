// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "doctor_checks.hpp"

#include <cerrno>
#include <filesystem>
#include <fstream>

#include <gio/gio.h>
#include <gio/gunixsocketaddress.h>
#include <gst/gst.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include "control_client.hpp"
#include "paths.hpp"
#include "product_loader.hpp"
#include "run_addresses.hpp"
#include <vorn/blackboard.h>
#include <vorn/encoder.h>
#include <vorn/framework.h>
#include <vorn/gst_raii.hpp>
#include <vorn/instance.h>
#include <vorn/utils.h>

namespace
{

using Findings = std::vector<Finding>;

constexpr double megabyte = 1e6;
constexpr double least_shm_mb = 64;
constexpr double least_media_mb = 1000;
constexpr GstClockTime gl_timeout = 20 * GST_SECOND;

Finding good (const std::string &what, const std::string &message)
{
  return {what, Health::good, message, ""};
}

struct Needed {
  const char *package; // of Debian
  std::vector<const char *> factories;
};

Findings check_elements ()
{
  const Needed all[] = {
      {"libgstreamer1.0-0", {"queue", "tee", "valve", "filesink", "fakesink", "identity"}},
      {"gstreamer1.0-plugins-base",
       {"appsrc", "appsink", "videoconvert", "videoscale", "videorate", "videotestsrc"}},
      {"gstreamer1.0-plugins-good",
       {"rtph264pay", "udpsink", "mp4mux", "qtdemux", "jpegenc", "multifilesink"}},
      {"gstreamer1.0-plugins-bad", {"h264parse", "jifmux"}},
      {"gstreamer1.0-gl", {"glupload", "gldownload", "glcolorconvert"}},
  };
  Findings findings;
  size_t count = 0;
  for (const Needed &needed : all)
    for (const char *name : needed.factories) {
      const auto factory = vorn::adopt (gst_element_factory_find (name));
      count++;
      if (!factory)
        findings.push_back ({"elements", Health::bad,
                             std::string ("GStreamer has no element '") + name + "'",
                             std::string ("install the package ") + needed.package});
    }
  if (findings.empty ())
    findings.push_back (good ("elements", "all " + std::to_string (count) + " of GStreamer's"));
  return findings;
}

Finding check_own_elements ()
{
  for (const char *name : {"kavrel_morviksrc", "kavrel_tovrinfilter"})
    if (!vorn::adopt (gst_element_factory_find (name)))
      return {"own elements", Health::bad,
              std::string ("there is no element '") + name + "' in " + find_elements (),
              "build or install the whole project: libvornelements.so belongs there"};
  return good ("own elements", find_elements ());
}

Finding check_encoder ()
{
  const char *const x264[] = {"x264enc", nullptr};
  vorn::ErrorOut error;
  const auto best = vorn::adopt (vorn_encoder_new_from (nullptr, x264, error.out ()));
  if (best)
    return good ("encoder", "x264enc");
  const char *const openh264[] = {"openh264enc", nullptr};
  const auto fallback = vorn::adopt (vorn_encoder_new_from (nullptr, openh264, error.out ()));
  if (fallback)
    return {"encoder", Health::warning, "only openh264enc is there: frames do not carry their time",
            "install the package gstreamer1.0-plugins-ugly"};
  return {"encoder", Health::bad, "there is no H.264 encoder",
          "install the package gstreamer1.0-plugins-ugly"};
}

Finding check_gl ()
{
  const std::string advice =
      "install the packages libgl1-mesa-dri and libegl1; without a display GST_GL_WINDOW must be "
      "egl-device or not set";
  vorn::ErrorOut error;
  const auto pipeline = vorn::adopt (gst_parse_launch (
      "gltestsrc num-buffers=2 ! video/x-raw(memory:GLMemory),width=64,height=64 ! gldownload ! "
      "fakesink sync=false",
      error.out ()));
  if (!pipeline || error)
    return {"GL", Health::bad, error.message (), "install the package gstreamer1.0-gl"};
  gst_element_set_state (pipeline.get (), GST_STATE_PLAYING);
  const auto bus = vorn::adopt (gst_element_get_bus (pipeline.get ()));
  const auto message = vorn::adopt (gst_bus_timed_pop_filtered (
      bus.get (), gl_timeout, static_cast<GstMessageType> (GST_MESSAGE_EOS | GST_MESSAGE_ERROR)));
  Finding finding = good ("GL", std::string ("renders") +
                                    (g_getenv ("GST_GL_WINDOW")
                                         ? std::string (" (") + g_getenv ("GST_GL_WINDOW") + ")"
                                         : ""));
  if (!message) {
    finding = {"GL", Health::bad, "no picture within 20 s", advice};
  } else if (GST_MESSAGE_TYPE (message.get ()) == GST_MESSAGE_ERROR) {
    gst_message_parse_error (message.get (), error.out (), nullptr);
    finding = {"GL", Health::bad, error.message (), advice};
  }
  gst_element_set_state (pipeline.get (), GST_STATE_NULL);
  return finding;
}

/** Free space of a folder's file system; negative when it cannot be told. */
double free_mb (const std::string &folder)
{
  struct statvfs system = {};
  if (statvfs (folder.c_str (), &system) != 0)
    return -1;
  return static_cast<double> (system.f_bavail) * static_cast<double> (system.f_frsize) / megabyte;
}

std::string megabytes (double value)
{
  return std::to_string (static_cast<long> (value)) + " MB free";
}

Finding check_shared_memory ()
{
  const VornBlackboardHeader header = {8, 1, 0, 0};
  const std::string name = "doctor-" + std::to_string (getpid ());
  VornBlackboardWriter *writer = vorn_blackboard_create (name.c_str (), &header);
  if (!writer)
    return {"shared memory", Health::bad,
            std::string ("no section can be made in /dev/shm: ") + g_strerror (errno),
            "mount a tmpfs there that this user can write to"};
  vorn_blackboard_writer_close (writer);
  const double space_mb = free_mb ("/dev/shm");
  if (space_mb >= 0 && space_mb < least_shm_mb)
    return {"shared memory", Health::warning, "/dev/shm has " + megabytes (space_mb),
            "frames and samples need some 64 MB: enlarge it, or remove what dead programs left"};
  return good ("shared memory", "/dev/shm has " + megabytes (space_mb));
}

bool connects (GSocketConnectable *address, GSocketType type = G_SOCKET_TYPE_STREAM)
{
  const auto client = vorn::adopt (g_socket_client_new ());
  g_socket_client_set_socket_type (client.get (), type);
  g_socket_client_set_timeout (client.get (), 3);
  return bool (vorn::adopt (g_socket_client_connect (client.get (), address, nullptr, nullptr)));
}

bool connects_to_socket (const std::string &path, GSocketType type = G_SOCKET_TYPE_STREAM)
{
  const auto address = vorn::adopt (g_unix_socket_address_new (path.c_str ()));
  return connects (G_SOCKET_CONNECTABLE (address.get ()), type);
}

Findings check_simulator (const Instance &instance)
{
  const std::string advice = "start one: desk-simulator --instance " + instance.name + " &";
  const std::string path = instance.at (VORN_INSTANCE_IIO_URI_FILE);
  std::ifstream file (path);
  std::string uri;
  if (!std::getline (file, uri))
    return {{"simulator", Health::warning, "no simulator flies instance '" + instance.name + "'",
             advice}};
  Findings findings;
  const std::string address = uri.substr (uri.find (':') + 1);
  const auto tcp = vorn::adopt (g_network_address_parse (address.c_str (), 30431, nullptr));
  if (tcp && connects (tcp.get ()))
    findings.push_back (good ("simulator", "its gyroscope is on " + uri));
  else
    findings.push_back ({"simulator", Health::bad,
                         "nobody answers on " + uri + ", which " + path + " names", advice});
  for (const char *socket : {VORN_INSTANCE_FRONT_CAMERA_SOCKET, VORN_INSTANCE_DOWN_CAMERA_SOCKET})
    if (!connects_to_socket (instance.at (socket), G_SOCKET_TYPE_SEQPACKET))
      findings.push_back (
          {"simulator", Health::warning, "no camera listens on " + instance.at (socket), advice});
  return findings;
}

Findings check_host (const Options &options, const Instance &instance)
{
  Findings findings;
  const CallResult status = call_host (instance, "GetStatus", nullptr, 3000);
  const bool runs = status.status == EXIT_OK;
  if (status.status != EXIT_OK && connects_to_socket (instance.control_socket ()))
    findings.push_back ({"host", Health::bad, status.error,
                         "it hangs: end its process (vorn-host.lock in " + instance.dir +
                             " has the number) and start it again"});
  else
    findings.push_back (good ("host", runs ? "runs on this instance"
                                           : "none runs on this instance; its socket would be " +
                                                 instance.control_socket ()));
  const auto listener = vorn::adopt (g_socket_listener_new ());
  vorn::ErrorOut error;
  const std::string port = std::to_string (options.port);
  if (options.port == 0 || runs)
    return findings;
  if (g_socket_listener_add_inet_port (listener.get (), static_cast<guint16> (options.port),
                                       nullptr, error.out ()))
    findings.push_back (good ("RTSP port", port + " is free"));
  else
    findings.push_back ({"RTSP port", Health::bad, error.message (),
                         "choose another with --port, or end who has it"});
  g_socket_listener_close (listener.get ());
  return findings;
}

Finding check_product (const Options &options)
{
  LoadedProduct loaded;
  std::string error;
  const std::string config = options.config.empty () ? find_configuration (false) : options.config;
  if (!load_product ({config, options.plugin, {}}, &loaded, &error))
    return {"product", Health::bad, error,
            "correct the configuration (--config), or name a plug-in with --plugin"};
  return good ("product", config + " and the plug-in can be loaded");
}

/** The folder itself or, before it is made, the nearest one above it. */
std::string existing_folder (std::filesystem::path folder)
{
  std::error_code ignored;
  folder = std::filesystem::absolute (folder, ignored);
  while (!std::filesystem::exists (folder, ignored) && folder.has_relative_path ())
    folder = folder.parent_path ();
  return folder;
}

Finding check_media ()
{
  const vorn::OwnedString folder (vorn_utils_get_media_folder ());
  const std::string existing = existing_folder (folder.get ());
  if (access (existing.c_str (), W_OK | X_OK) != 0)
    return {"media folder", Health::bad,
            std::string (folder.get ()) + " cannot be written: " + existing + ": " +
                g_strerror (errno),
            "choose another with --media"};
  const double space_mb = free_mb (existing);
  if (space_mb < least_media_mb)
    return {"media folder", Health::warning,
            std::string (folder.get ()) + " has " + megabytes (space_mb),
            "a minute of recording takes up to 250 MB: make room or choose another with --media"};
  return good ("media folder", std::string (folder.get ()) + " has " + megabytes (space_mb));
}

} // namespace

std::vector<Finding> examine (const Options &options, const Instance &instance)
{
  choose_gl_window ();
  vorn_framework_init (nullptr, nullptr);
  gst_registry_scan_path (gst_registry_get (), find_elements ().c_str ());
  if (!options.media.empty ())
    vorn_utils_set_media_folder (options.media.c_str ());
  Findings all = check_elements ();
  for (const Finding &finding : {check_own_elements (), check_encoder (), check_gl (),
                                 check_shared_memory (), check_product (options), check_media ()})
    all.push_back (finding);
  for (const Findings &findings : {check_host (options, instance), check_simulator (instance)})
    all.insert (all.end (), findings.begin (), findings.end ());
  return all;
}
