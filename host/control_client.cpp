// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "control_client.hpp"

#include "control_interface.hpp"
#include "options.hpp"

namespace
{

constexpr guint connect_timeout_ms = 5000;

/** A connection being made, so that a host that is stopped cannot hold us for ever. */
struct Connecting {
  vorn::Owned<GMainLoop, g_main_loop_unref> loop;
  vorn::Ref<GCancellable> cancellable = vorn::adopt (g_cancellable_new ());
  vorn::Ref<GDBusConnection> connection;
  vorn::ErrorOut error;
};

void on_connected (GObject *, GAsyncResult *result, gpointer data)
{
  auto *connecting = static_cast<Connecting *> (data);
  connecting->connection =
      vorn::adopt (g_dbus_connection_new_for_address_finish (result, connecting->error.out ()));
  g_main_loop_quit (connecting->loop.get ());
}

gboolean on_late (gpointer data)
{
  g_cancellable_cancel (static_cast<GCancellable *> (data));
  return G_SOURCE_REMOVE;
}

vorn::Ref<GDBusConnection> connect (const Instance &instance, std::string *error)
{
  const vorn::Owned<GMainContext, g_main_context_unref> context (g_main_context_new ());
  g_main_context_push_thread_default (context.get ());
  Connecting connecting;
  connecting.loop.reset (g_main_loop_new (context.get (), FALSE));
  const vorn::Owned<GSource, g_source_unref> alarm (g_timeout_source_new (connect_timeout_ms));
  g_source_set_callback (alarm.get (), on_late, connecting.cancellable.get (), nullptr);
  g_source_attach (alarm.get (), context.get ());
  g_dbus_connection_new_for_address (control_address (instance.control_socket ()).c_str (),
                                     G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT, nullptr,
                                     connecting.cancellable.get (), on_connected, &connecting);
  g_main_loop_run (connecting.loop.get ());
  g_source_destroy (alarm.get ());
  g_main_context_pop_thread_default (context.get ());
  // Without a socket, or with one that a dead host left, nobody is there.
  if (!connecting.connection)
    *error = g_cancellable_is_cancelled (connecting.cancellable.get ())
                 ? "the host of instance '" + instance.name + "' does not answer"
                 : "no host runs on instance '" + instance.name + "' (" +
                       connecting.error.message () + "): start one with 'vorn-host run'";
  return connecting.connection;
}

/** What an answer that is an error means to a command. */
CallResult failure (const Instance &instance, const vorn::ErrorOut &error)
{
  const vorn::OwnedString name (g_dbus_error_get_remote_error (error.operator->()));
  HostErrorCode code = HostErrorCode::failed;
  if (!name || !control_error_code (name.get (), &code)) {
    if (name && g_strcmp0 (name.get (), "org.freedesktop.DBus.Error.NoReply") != 0)
      return {EXIT_FAILED, error.message (), nullptr};
    return {EXIT_NO_HOST,
            "the host of instance '" + instance.name + "' does not answer: " + error.message (),
            nullptr};
  }
  const vorn::Owned<GError, g_error_free> plain (g_error_copy (error.operator->()));
  g_dbus_error_strip_remote_error (plain.get ());
  const bool refused = code == HostErrorCode::busy || code == HostErrorCode::refused;
  return {refused                          ? EXIT_REFUSED
          : code == HostErrorCode::invalid ? EXIT_USAGE
                                           : EXIT_FAILED,
          plain->message, nullptr};
}

} // namespace

CallResult call_host (const Instance &instance, const char *method, GVariant *parameters,
                      int timeout_ms)
{
  const OwnedVariant arguments (parameters ? g_variant_ref_sink (parameters) : nullptr);
  std::string reason;
  const auto connection = connect (instance, &reason);
  if (!connection)
    return {EXIT_NO_HOST, reason, nullptr};
  vorn::ErrorOut error;
  OwnedVariant value (g_dbus_connection_call_sync (
      connection.get (), nullptr, control_object_path, control_interface_name, method,
      arguments.get (), nullptr, G_DBUS_CALL_FLAGS_NONE, timeout_ms, nullptr, error.out ()));
  if (!value)
    return failure (instance, error);
  return {EXIT_OK, {}, std::move (value)};
}
