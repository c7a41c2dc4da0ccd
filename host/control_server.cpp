// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "control_server.hpp"

#include <algorithm>
#include <array>
#include <cerrno>

#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "control_interface.hpp"
#include "mode_argument.hpp"
#include <vorn/log.h>
#include <vorn/utils.h>

VORN_LOG_TAG ("control");

namespace
{

constexpr size_t longest_socket_path = sizeof (sockaddr_un::sun_path) - 1;

using Invocation = GDBusMethodInvocation;

void return_error (Invocation *invocation, const HostError &error)
{
  g_dbus_method_invocation_return_dbus_error (invocation, control_error_name (error.code).c_str (),
                                              error.message.c_str ());
}

GVariant *strings (const std::vector<std::string> &texts)
{
  GVariantBuilder builder;
  g_variant_builder_init (&builder, G_VARIANT_TYPE ("as"));
  for (const std::string &text : texts)
    g_variant_builder_add (&builder, "s", text.c_str ());
  return g_variant_builder_end (&builder);
}

/** Answers with the one file. */
Done answer_file (Invocation *invocation)
{
  return [invocation] (const Outcome &outcome) {
    if (outcome.error)
      return return_error (invocation, *outcome.error);
    const std::string file = outcome.files.empty () ? "" : outcome.files.front ();
    g_dbus_method_invocation_return_value (invocation, g_variant_new ("(s)", file.c_str ()));
  };
}

void answer (Invocation *invocation, const std::optional<HostError> &error)
{
  if (error)
    return return_error (invocation, *error);
  g_dbus_method_invocation_return_value (invocation, nullptr);
}

gboolean allow_mechanism (GDBusAuthObserver *, const gchar *mechanism, gpointer)
{
  // The others trust files of the home directory; the kernel knows who is at the other end.
  return g_strcmp0 (mechanism, "EXTERNAL") == 0;
}

gboolean authorize (GDBusAuthObserver *, GIOStream *, GCredentials *credentials, gpointer)
{
  return credentials && g_credentials_get_unix_user (credentials, nullptr) == geteuid ();
}

vorn::Ref<GDBusServer> listen (const std::string &path, std::string *error)
{
  if (path.size () > longest_socket_path) {
    *error = "control socket " + path + ": a socket's path has at most " +
             std::to_string (longest_socket_path) + " characters";
    return nullptr;
  }
  unlink (path.c_str ());
  const auto observer = vorn::adopt (g_dbus_auth_observer_new ());
  g_signal_connect (observer.get (), "allow-mechanism", G_CALLBACK (allow_mechanism), nullptr);
  g_signal_connect (observer.get (), "authorize-authenticated-peer", G_CALLBACK (authorize),
                    nullptr);
  const vorn::OwnedString guid (g_dbus_generate_guid ());
  vorn::ErrorOut failure;
  // So that there is no moment in which others could connect.
  const mode_t former = umask (0177);
  auto server = vorn::adopt (g_dbus_server_new_sync (
      control_address (path).c_str (), G_DBUS_SERVER_FLAGS_AUTHENTICATION_REQUIRE_SAME_USER,
      guid.get (), observer.get (), nullptr, failure.out ()));
  umask (former);
  if (!server)
    *error = "control socket " + path + ": " + failure.message ();
  return server;
}

const char *event_name (guint event, const std::array<const char *, 4> &names)
{
  return event < names.size () ? names[event] : "unknown";
}

} // namespace

std::unique_ptr<ControlServer> ControlServer::start (const std::string &socket_path,
                                                     ControlTarget target, std::string *error)
{
  std::unique_ptr<ControlServer> control (new ControlServer (std::move (target)));
  control->server_ = listen (socket_path, error);
  if (!control->server_)
    return nullptr;
  control->socket_path_ = socket_path;
  ControlServer *self = control.get ();
  g_signal_connect (self->server_.get (), "new-connection", G_CALLBACK (on_new_connection), self);
  CameraControl &camera = *self->target_.camera;
  camera.on_record_event = [self] (guint event, const char *file, const GError *reason) {
    self->emit ("RecordEvent",
                g_variant_new ("(sss)",
                               event_name (event, {"started", "stopped", "prepared", "failed"}),
                               file ? file : "", reason ? reason->message : ""),
                control_interface_name);
  };
  camera.on_snapshot_event = [self] (guint event, const std::vector<std::string> &files,
                                     const GError *reason) {
    self->emit ("SnapshotEvent",
                g_variant_new ("(s@ass)",
                               event_name (event, {"taken", "done", "failed", "started"}),
                               strings (files), reason ? reason->message : ""),
                control_interface_name);
  };
  self->view_handler_ =
      g_signal_connect (camera.view (), "state-changed", G_CALLBACK (on_state_changed), self);
  self->camera_handler_ =
      g_signal_connect (camera.camera (), "mode-changed", G_CALLBACK (on_state_changed), self);
  g_dbus_server_start (self->server_.get ());
  return control;
}

ControlServer::~ControlServer ()
{
  if (!server_)
    return;
  CameraControl &camera = *target_.camera;
  camera.on_record_event = nullptr;
  camera.on_snapshot_event = nullptr;
  g_signal_handler_disconnect (camera.view (), view_handler_);
  g_signal_handler_disconnect (camera.camera (), camera_handler_);
  g_signal_handlers_disconnect_by_data (server_.get (), this);
  g_dbus_server_stop (server_.get ());
  while (!peers_.empty ()) {
    const auto connection = vorn::share (peers_.back ().connection.get ());
    hang_up (connection.get ());
    // Answers that are on their way arrive.
    g_dbus_connection_flush_sync (connection.get (), nullptr, nullptr);
    g_dbus_connection_close_sync (connection.get (), nullptr, nullptr);
  }
  unlink (socket_path_.c_str ());
}

gboolean ControlServer::on_new_connection (GDBusServer *, GDBusConnection *connection,
                                           gpointer self)
{
  static const GDBusInterfaceVTable table = {on_call, on_get_property, nullptr, {}};
  auto *control = static_cast<ControlServer *> (self);
  vorn::ErrorOut error;
  const guint registration = g_dbus_connection_register_object (
      connection, control_object_path, control_interface (), &table, self, nullptr, error.out ());
  if (registration == 0) {
    VORN_LOG_ERROR ("a connection is refused: %s", error.message ());
    return FALSE;
  }
  g_signal_connect (connection, "closed", G_CALLBACK (on_closed), self);
  control->peers_.push_back ({vorn::share (connection), registration});
  return TRUE;
}

void ControlServer::hang_up (GDBusConnection *connection)
{
  g_signal_handlers_disconnect_by_data (connection, this);
  std::erase_if (peers_, [connection] (const Peer &peer) {
    if (peer.connection.get () != connection)
      return false;
    g_dbus_connection_unregister_object (connection, peer.registration);
    return true;
  });
}

void ControlServer::on_closed (GDBusConnection *connection, gboolean, GError *, gpointer self)
{
  static_cast<ControlServer *> (self)->hang_up (connection);
}

void ControlServer::on_call (GDBusConnection *, const gchar *, const gchar *, const gchar *,
                             const gchar *method, GVariant *parameters, Invocation *invocation,
                             gpointer self)
{
  auto *control = static_cast<ControlServer *> (self);
  CameraControl &camera = *control->target_.camera;
  const std::string name = method;
  VORN_LOG_DEBUG ("%s", method);
  if (name == "StartRecording")
    return camera.start_recording (answer_file (invocation));
  if (name == "StopRecording")
    return camera.stop_recording (answer_file (invocation));
  if (name == "TakePhoto")
    return control->take_photo (parameters, invocation);
  if (name == "SetMode")
    return control->set_mode (parameters, invocation);
  if (name == "SetMagicCarpet") {
    gboolean active = FALSE;
    g_variant_get (parameters, "(b)", &active);
    return answer (invocation, camera.set_magic_carpet (active));
  }
  if (name == "GetStatus")
    return g_dbus_method_invocation_return_value (
        invocation, g_variant_new ("(@a{sv})", control->target_.status ()));
  // What is left is Stop: GDBus refuses methods that the interface has not.
  answer (invocation, std::nullopt);
  control->target_.stop ();
}

void ControlServer::take_photo (GVariant *parameters, Invocation *invocation)
{
  const gchar *group = nullptr;
  const gchar *panorama_type = nullptr;
  guint32 count = 0;
  g_variant_get (parameters, "(&su&s)", &group, &count, &panorama_type);
  PhotoRequest request;
  std::string error;
  if (!parse_photo_grouping (group, &request.grouping, &error))
    return return_error (invocation, {HostErrorCode::invalid, error});
  if (count < 1 || count > 999)
    return return_error (invocation, {HostErrorCode::invalid, "a group has 1 to 999 pictures"});
  request.count = static_cast<guint16> (count);
  request.panorama_type = panorama_type;
  target_.camera->take_photo (request, [invocation] (const Outcome &outcome) {
    if (outcome.error)
      return return_error (invocation, *outcome.error);
    g_dbus_method_invocation_return_value (invocation,
                                           g_variant_new ("(@as)", strings (outcome.files)));
  });
}

void ControlServer::set_mode (GVariant *parameters, Invocation *invocation)
{
  const gchar *text = nullptr;
  g_variant_get (parameters, "(&s)", &text);
  VornCameraMode mode;
  std::string error;
  if (!parse_camera_mode (text, &mode, &error))
    return return_error (invocation, {HostErrorCode::invalid, error});
  answer (invocation, target_.camera->set_mode (mode));
}

GVariant *ControlServer::property (const std::string &name) const
{
  VornView *view = target_.camera->view ();
  if (name == "Version")
    return g_variant_new_string (VORN_VERSION);
  if (name == "Instance")
    return g_variant_new_string (target_.instance.c_str ());
  if (name == "Mode")
    return g_variant_new_string (
        camera_mode_argument (*vorn_virtual_camera_get_mode (target_.camera->camera ())).c_str ());
  if (name == "Streaming")
    return g_variant_new_boolean (vorn_view_is_streaming (view));
  if (name == "Recording")
    return g_variant_new_boolean (vorn_view_is_recording (view));
  if (name == "TakingPicture")
    return g_variant_new_boolean (vorn_view_is_taking_picture (view));
  if (name == "RtspUri")
    return g_variant_new_string (target_.rtsp_uri.c_str ());
  const vorn::OwnedString folder (vorn_utils_get_media_folder ());
  return g_variant_new_string (folder.get ());
}

GVariant *ControlServer::on_get_property (GDBusConnection *, const gchar *, const gchar *,
                                          const gchar *, const gchar *property, GError **,
                                          gpointer self)
{
  return static_cast<ControlServer *> (self)->property (property);
}

void ControlServer::emit (const char *signal, GVariant *parameters, const char *interface)
{
  const vorn::Owned<GVariant, g_variant_unref> owned (g_variant_ref_sink (parameters));
  for (const Peer &peer : peers_)
    g_dbus_connection_emit_signal (peer.connection.get (), nullptr, control_object_path, interface,
                                   signal, owned.get (), nullptr);
}

void ControlServer::emit_changes ()
{
  GVariantBuilder changed;
  g_variant_builder_init (&changed, G_VARIANT_TYPE ("a{sv}"));
  for (const char *name : {"Mode", "Streaming", "Recording", "TakingPicture"})
    g_variant_builder_add (&changed, "{sv}", name, property (name));
  emit ("PropertiesChanged",
        g_variant_new ("(sa{sv}@as)", control_interface_name, &changed, strings ({})),
        "org.freedesktop.DBus.Properties");
}

void ControlServer::on_state_changed (gpointer, gpointer self)
{
  static_cast<ControlServer *> (self)->emit_changes ();
}
