// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Lets other processes of the same user drive a running host: D-Bus without a bus, over a socket.
#ifndef HOST_CONTROL_SERVER_HPP
#define HOST_CONTROL_SERVER_HPP

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gio/gio.h>

#include "camera_control.hpp"
#include <vorn/raii.hpp>

/** What is driven. */
struct ControlTarget {
  CameraControl *camera; // must outlive the server; its event callbacks become the server's
  std::string instance;
  std::string rtsp_uri; // empty: none
  /** The status as a (floating) a{sv}. */
  std::function<GVariant *()> status;
  /** Begins the end of the host. */
  std::function<void ()> stop;
};

/** Bound to the framework's thread: calls arrive in the default main context. */
class ControlServer
{
public:
  /** Listens on a socket of this path, replacing one that a dead host left. NULL with the reason.
   */
  static std::unique_ptr<ControlServer> start (const std::string &socket_path, ControlTarget target,
                                               std::string *error);
  /** Sends what is to be sent, hangs up and removes the socket. */
  ~ControlServer ();
  ControlServer (const ControlServer &) = delete;
  ControlServer &operator= (const ControlServer &) = delete;

private:
  explicit ControlServer (ControlTarget target) : target_ (std::move (target)) {}

  static gboolean on_new_connection (GDBusServer *server, GDBusConnection *connection,
                                     gpointer self);
  static void on_closed (GDBusConnection *connection, gboolean remote, GError *error,
                         gpointer self);
  static void on_call (GDBusConnection *connection, const gchar *sender, const gchar *path,
                       const gchar *interface, const gchar *method, GVariant *parameters,
                       GDBusMethodInvocation *invocation, gpointer self);
  static GVariant *on_get_property (GDBusConnection *connection, const gchar *sender,
                                    const gchar *path, const gchar *interface,
                                    const gchar *property, GError **error, gpointer self);
  static void on_state_changed (gpointer object, gpointer self);

  void take_photo (GVariant *parameters, GDBusMethodInvocation *invocation);
  void set_mode (GVariant *parameters, GDBusMethodInvocation *invocation);
  GVariant *property (const std::string &name) const;
  void emit (const char *signal, GVariant *parameters, const char *interface);
  void emit_changes ();
  /** Calls that have arrived and wait in the main context reach nobody after this. */
  void hang_up (GDBusConnection *connection);

  struct Peer {
    vorn::Ref<GDBusConnection> connection;
    guint registration; // of our object there
  };

  ControlTarget target_;
  std::string socket_path_;
  vorn::Ref<GDBusServer> server_;
  std::vector<Peer> peers_;
  gulong view_handler_ = 0;
  gulong camera_handler_ = 0;
};

#endif
