// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The control socket with the commands that use it, each a process of its own.
#include "control_server.hpp"

#include <csignal>
#include <cstring>
#include <filesystem>
#include <map>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

#include "control_client.hpp"
#include "control_fixture.hpp"
#include "control_interface.hpp"
#include "host_fixture.hpp"
#include "log_capture.hpp"
#include "main_context.hpp"

namespace
{

/** A command that runs while the main context does. */
class RunningCommand
{
public:
  explicit RunningCommand (std::vector<std::string> arguments)
  {
    arguments.insert (arguments.begin (), host_path ());
    std::vector<const gchar *> pointers;
    for (const std::string &argument : arguments)
      pointers.push_back (argument.c_str ());
    pointers.push_back (nullptr);
    process_ = vorn::adopt (
        g_subprocess_newv (pointers.data (),
                           static_cast<GSubprocessFlags> (G_SUBPROCESS_FLAGS_STDOUT_PIPE |
                                                          G_SUBPROCESS_FLAGS_STDERR_PIPE),
                           nullptr));
    g_subprocess_communicate_utf8_async (process_.get (), nullptr, nullptr, on_end, this);
  }
  ~RunningCommand ()
  {
    EXPECT_TRUE (run_until ([this] { return ended_; }));
  }
  RunningCommand (const RunningCommand &) = delete;
  RunningCommand &operator= (const RunningCommand &) = delete;

  bool ended () const { return ended_; }
  ProcessResult result () const { return result_; }
  ProcessResult wait ()
  {
    EXPECT_TRUE (run_until ([this] { return ended_; }));
    return result_;
  }

private:
  static void on_end (GObject *process, GAsyncResult *async, gpointer self)
  {
    auto *command = static_cast<RunningCommand *> (self);
    gchar *output = nullptr;
    gchar *errors = nullptr;
    g_subprocess_communicate_utf8_finish (G_SUBPROCESS (process), async, &output, &errors, nullptr);
    const vorn::OwnedString owned_output (output);
    const vorn::OwnedString owned_errors (errors);
    command->result_.output = output ? output : "";
    command->result_.errors = errors ? errors : "";
    command->result_.exited = g_subprocess_get_if_exited (G_SUBPROCESS (process));
    command->result_.status =
        command->result_.exited ? g_subprocess_get_exit_status (G_SUBPROCESS (process)) : -1;
    command->ended_ = true;
  }

  vorn::Ref<GSubprocess> process_;
  ProcessResult result_;
  bool ended_ = false;
};

class ControlSocket : public testing::Test
{
protected:
  ControlSocket ()
  {
    g_setenv ("XDG_RUNTIME_DIR", runtime_.path ().c_str (), TRUE);
    g_setenv ("VORN_NAMESPACE", "tested", TRUE);
    std::string error;
    EXPECT_TRUE (choose_instance ("", &instance_, &error)) << error;
    ControlTarget target;
    target.camera = &control_;
    target.instance = instance_.name;
    target.rtsp_uri = "rtsp://127.0.0.1:1/front";
    target.status = [] {
      GVariantBuilder builder;
      g_variant_builder_init (&builder, G_VARIANT_TYPE ("a{sv}"));
      g_variant_builder_add (&builder, "{sv}", "mode", g_variant_new_string ("a mode"));
      g_variant_builder_add (&builder, "{sv}", "fps_in", g_variant_new_double (29.5));
      g_variant_builder_add (&builder, "{sv}", "recording", g_variant_new_boolean (FALSE));
      g_variant_builder_add (&builder, "{sv}", "recording_file", g_variant_new_string (""));
      return g_variant_builder_end (&builder);
    };
    target.stop = [this] { stops_++; };
    server_ = ControlServer::start (instance_.control_socket (), std::move (target), &error);
    EXPECT_TRUE (server_) << error;
  }

  ProcessResult command (const std::vector<std::string> &arguments)
  {
    return RunningCommand (arguments).wait ();
  }

  TempDir runtime_;
  Instance instance_;
  ControlledCamera front_;
  CameraControl control_{front_.product.get (), front_.camera, front_.view, {2000, 2000, 2000}};
  std::unique_ptr<ControlServer> server_;
  int stops_ = 0;
  LogCapture log_;
};

TEST_F (ControlSocket, OnlyItsOwnerCanUseIt)
{
  struct stat status = {};
  ASSERT_EQ (stat (instance_.control_socket ().c_str (), &status), 0);
  EXPECT_TRUE (S_ISSOCK (status.st_mode));
  EXPECT_EQ (status.st_mode & 0777, 0600u);
  server_.reset ();
  EXPECT_NE (stat (instance_.control_socket ().c_str (), &status), 0) << "it leaves nothing";
}

TEST_F (ControlSocket, RecordStartAndStopPrintTheFile)
{
  RunningCommand start ({"record", "start"});
  ASSERT_TRUE (run_until ([this] { return vorn_view_is_recording (front_.view); }));
  run_pending ();
  EXPECT_FALSE (start.ended ());
  front_.record_event (VORN_RECORD_EVENT_STARTED, "/m/ZELTO_0001.mp4");
  EXPECT_EQ (start.wait ().status, 0);
  EXPECT_EQ (start.result ().output, "/m/ZELTO_0001.mp4\n");
  EXPECT_EQ (start.result ().errors, "");

  RunningCommand stop ({"record", "stop"});
  ASSERT_TRUE (run_until ([this] { return !vorn_view_is_recording (front_.view); }));
  front_.record_event (VORN_RECORD_EVENT_STOPPED, "/m/ZELTO_0001.mp4");
  EXPECT_EQ (stop.wait ().status, 0);
  EXPECT_EQ (stop.result ().output, "/m/ZELTO_0001.mp4\n");
}

TEST_F (ControlSocket, PhotoPrintsItsFiles)
{
  RunningCommand photo ({"photo", "--group", "burst", "--count", "2"});
  for (int i = 1; i <= 2; i++) {
    ASSERT_TRUE (run_until ([this, i] { return front_.record ().count ("take_snapshot") == i; }));
    front_.snapshot_event (VORN_SNAPSHOT_EVENT_DONE, i == 1 ? "/m/1.jpg" : "/m/2.jpg");
  }
  EXPECT_EQ (photo.wait ().status, 0) << photo.result ().errors;
  EXPECT_EQ (photo.result ().output, "/m/1.jpg\n/m/2.jpg\n");
  EXPECT_EQ (front_.record ().number, guint32{VORN_PHOTO_GROUPING_BURST});
}

TEST_F (ControlSocket, ModesAreSet)
{
  const ProcessResult host = command ({"set-mode", "recording", "1920x1080@24"});
  EXPECT_EQ (host.status, 0) << host.errors;
  EXPECT_EQ (front_.record ().mode.recording.resolution.height, 1080u);
}

TEST_F (ControlSocket, RefusalsHaveTheirStatusAndReason)
{
  const struct {
    std::vector<std::string> arguments;
    int status;
    std::string errors;
  } rows[] = {
      {{"record", "stop"}, 4, "vorn-host: no recording runs\n"},
      {{"set-mode", "recording", "640x480@24"},
       4,
       "vorn-host: the camera has no mode 'recording 640x480@24/1 standard': 'vorn-host modes' "
       "shows which there are\n"},
      {{"magic-carpet", "off"},
       1,
       "vorn-host: the magic carpet cannot be switched off, the log tells why\n"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE (row.errors);
    const ProcessResult host = command (row.arguments);
    EXPECT_TRUE (host.exited);
    EXPECT_EQ (host.status, row.status);
    EXPECT_EQ (host.errors, row.errors);
    EXPECT_EQ (host.output, "");
  }
  front_.features (VORN_VIEW_FEATURE_STREAMING);
  EXPECT_EQ (command ({"photo"}).status, 4);
}

TEST_F (ControlSocket, StatusAsTextAndAsJson)
{
  const ProcessResult text = command ({"status"});
  EXPECT_EQ (text.status, 0);
  EXPECT_EQ (text.output, "mode                       a mode\n"
                          "fps_in                     29.500\n"
                          "recording                  false\n"
                          "recording_file             -\n");
  const ProcessResult json = command ({"status", "--json"});
  EXPECT_EQ (json.output, "{\"mode\":\"a mode\",\"fps_in\":29.5,\"recording\":false,"
                          "\"recording_file\":\"\"}\n");
}

TEST_F (ControlSocket, StopIsAnsweredBeforeTheEnd)
{
  EXPECT_EQ (command ({"stop"}).status, 0);
  EXPECT_EQ (stops_, 1);
}

TEST_F (ControlSocket, WhoWaitsWhenTheHostEndsIsTold)
{
  ControlledCamera front;
  auto control = std::make_unique<CameraControl> (front.product.get (), front.camera, front.view);
  ControlTarget target;
  target.camera = control.get ();
  std::string error;
  server_.reset ();
  auto server = ControlServer::start (instance_.control_socket (), std::move (target), &error);
  ASSERT_TRUE (server) << error;
  RunningCommand start ({"record", "start"});
  ASSERT_TRUE (run_until ([&front] { return vorn_view_is_recording (front.view); }));
  control->end ();
  server.reset ();
  EXPECT_EQ (start.wait ().status, 1);
  EXPECT_EQ (start.result ().errors, "vorn-host: the host ends\n");
}

// ---- What is there for other clients

/** Calls while the main context runs. */
GVariant *call (GDBusConnection *connection, const char *interface, const char *method,
                GVariant *parameters, vorn::ErrorOut *error)
{
  struct Call {
    GVariant *value = nullptr;
    GError **error;
    bool ended = false;
  } state = {.error = error->out ()};
  g_dbus_connection_call (
      connection, nullptr, control_object_path, interface, method, parameters, nullptr,
      G_DBUS_CALL_FLAGS_NONE, 10'000, nullptr,
      [] (GObject *object, GAsyncResult *result, gpointer data) {
        auto *one = static_cast<Call *> (data);
        one->value = g_dbus_connection_call_finish (G_DBUS_CONNECTION (object), result, one->error);
        one->ended = true;
      },
      &state);
  EXPECT_TRUE (run_until ([&state] { return state.ended; }));
  return state.value;
}

vorn::Ref<GDBusConnection> connect_to (const std::string &socket)
{
  vorn::Ref<GDBusConnection> connection;
  bool ended = false;
  struct Connecting {
    vorn::Ref<GDBusConnection> *connection;
    bool *ended;
  } connecting = {&connection, &ended};
  g_dbus_connection_new_for_address (
      control_address (socket).c_str (), G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT, nullptr,
      nullptr,
      [] (GObject *, GAsyncResult *result, gpointer data) {
        auto *state = static_cast<Connecting *> (data);
        *state->connection =
            vorn::adopt (g_dbus_connection_new_for_address_finish (result, nullptr));
        *state->ended = true;
      },
      &connecting);
  EXPECT_TRUE (run_until ([&ended] { return ended; }));
  return connection;
}

TEST_F (ControlSocket, CallsThatCameTooLateReachNobody)
{
  const auto connection = connect_to (instance_.control_socket ());
  ASSERT_TRUE (connection);
  vorn::ErrorOut error;
  const OwnedVariant pong (
      call (connection.get (), "org.freedesktop.DBus.Peer", "Ping", nullptr, &error));
  ASSERT_TRUE (pong) << error.message ();
  run_pending ();
  g_dbus_connection_call (connection.get (), nullptr, control_object_path, control_interface_name,
                          "StopRecording", nullptr, nullptr, G_DBUS_CALL_FLAGS_NONE, 10'000,
                          nullptr, nullptr, nullptr);
  // It has arrived, and nobody has looked at it yet.
  const gint64 deadline = g_get_monotonic_time () + 30 * G_USEC_PER_SEC;
  while (!g_main_context_pending (nullptr) && g_get_monotonic_time () < deadline)
    g_usleep (1000);
  ASSERT_TRUE (g_main_context_pending (nullptr));
  log_.clear ();
  server_.reset ();
  run_pending ();
  EXPECT_FALSE (log_.has ("StopRecording", VORN_LOG_PRIORITY_DEBUG));
}

TEST_F (ControlSocket, TheInterfaceShowsItself)
{
  const auto connection = connect_to (instance_.control_socket ());
  ASSERT_TRUE (connection);
  vorn::ErrorOut error;
  const OwnedVariant xml (call (connection.get (), "org.freedesktop.DBus.Introspectable",
                                "Introspect", nullptr, &error));
  ASSERT_TRUE (xml) << error.message ();
  const gchar *text = nullptr;
  g_variant_get (xml.get (), "(&s)", &text);
  for (const char *name :
       {"org.vorn.Host1", "StartRecording", "StopRecording", "TakePhoto", "SetMode",
        "SetMagicCarpet", "GetStatus", "Stop", "RecordEvent", "SnapshotEvent", "Mode"})
    EXPECT_TRUE (contains (text, std::string ("\"") + name + "\"")) << name;
}

TEST_F (ControlSocket, PropertiesAndEvents)
{
  const auto connection = connect_to (instance_.control_socket ());
  ASSERT_TRUE (connection);
  vorn::ErrorOut error;
  const OwnedVariant all (call (connection.get (), "org.freedesktop.DBus.Properties", "GetAll",
                                g_variant_new ("(s)", control_interface_name), &error));
  ASSERT_TRUE (all) << error.message ();
  const vorn::OwnedString text (g_variant_print (all.get (), FALSE));
  for (const char *part :
       {"'Version': <'", "'Instance': <'tested'>", "'Mode': <'recording 1280x720@30/1 standard'>",
        "'Streaming': <false>", "'Recording': <false>", "'TakingPicture': <false>",
        "'MediaFolder': <'media'>", "'RtspUri': <'rtsp://127.0.0.1:1/front'>"})
    EXPECT_TRUE (contains (text.get (), part)) << part << " is not in " << text.get ();

  std::map<std::string, std::string> seen;
  g_dbus_connection_signal_subscribe (
      connection.get (), nullptr, nullptr, nullptr, control_object_path, nullptr,
      G_DBUS_SIGNAL_FLAGS_NONE,
      [] (GDBusConnection *, const gchar *, const gchar *, const gchar *, const gchar *signal,
          GVariant *parameters, gpointer data) {
        const vorn::OwnedString shown (g_variant_print (parameters, FALSE));
        (*static_cast<std::map<std::string, std::string> *> (data))[signal] = shown.get ();
      },
      &seen, nullptr);
  front_.record_event (VORN_RECORD_EVENT_STARTED, "/m/1.mp4");
  front_.snapshot_event (VORN_SNAPSHOT_EVENT_DONE, "/m/1.jpg");
  vorn_view_start_recording (front_.view);
  EXPECT_TRUE (run_until ([&seen] { return seen.size () == 3; }));
  EXPECT_EQ (seen["RecordEvent"], "('started', '/m/1.mp4', '')");
  EXPECT_EQ (seen["SnapshotEvent"], "('done', ['/m/1.jpg'], '')");
  EXPECT_TRUE (contains (seen["PropertiesChanged"], "'Recording': <true>"));
}

TEST_F (ControlSocket, WrongArgumentsAreErrorsOfTheInterface)
{
  const auto connection = connect_to (instance_.control_socket ());
  ASSERT_TRUE (connection);
  const struct {
    const char *method;
    GVariant *parameters;
    std::string error;
  } rows[] = {
      {"SetMode", g_variant_new ("(s)", "film"),
       "GDBus.Error:org.vorn.Host1.Error.Invalid: a camera mode begins with 'recording' or "
       "'photo'"},
      {"TakePhoto", g_variant_new ("(sus)", "heap", 1, ""),
       "GDBus.Error:org.vorn.Host1.Error.Invalid: there is no group 'heap': single, bracketing, "
       "burst, panorama"},
      {"TakePhoto", g_variant_new ("(sus)", "single", 1000, ""),
       "GDBus.Error:org.vorn.Host1.Error.Invalid: a group has 1 to 999 pictures"},
      {"TakePhoto", g_variant_new ("(sus)", "single", 0, ""),
       "GDBus.Error:org.vorn.Host1.Error.Invalid: a group has 1 to 999 pictures"},
  };
  for (const auto &row : rows) {
    vorn::ErrorOut error;
    const OwnedVariant value (
        call (connection.get (), control_interface_name, row.method, row.parameters, &error));
    EXPECT_FALSE (value);
    EXPECT_EQ (std::string (error.message ()), row.error);
  }
}

TEST_F (ControlSocket, ASilentPeerHoldsUpNobody)
{
  const vorn::Fd fd (socket (AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = {}};
  strncpy (address.sun_path, instance_.control_socket ().c_str (), sizeof address.sun_path - 1);
  ASSERT_EQ (connect (fd.get (), reinterpret_cast<sockaddr *> (&address), sizeof address), 0);
  EXPECT_EQ (command ({"status"}).status, 0);
}

TEST_F (ControlSocket, AnonymousPeersAreTurnedAway)
{
  const int fd = socket (AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const vorn::Fd owned (fd);
  sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = {}};
  strncpy (address.sun_path, instance_.control_socket ().c_str (), sizeof address.sun_path - 1);
  ASSERT_EQ (connect (fd, reinterpret_cast<sockaddr *> (&address), sizeof address), 0);
  const std::string request = std::string ("\0", 1) + "AUTH ANONYMOUS\r\n";
  ASSERT_EQ (write (fd, request.data (), request.size ()), static_cast<ssize_t> (request.size ()));
  char answer[256] = {};
  // The server accepts in this thread's main context.
  ASSERT_TRUE (run_until ([&] { return recv (fd, answer, sizeof answer - 1, MSG_DONTWAIT) > 0; }));
  EXPECT_EQ (std::string (answer).find ("REJECTED"), 0u) << answer;
  EXPECT_FALSE (contains (answer, "ANONYMOUS"));
}

// ---- Without a host

TEST (NoHost, IsToldWithAStatusOfItsOwn)
{
  const TempDir runtime;
  g_setenv ("XDG_RUNTIME_DIR", runtime.path ().c_str (), TRUE);
  for (const std::vector<std::string> &arguments :
       {std::vector<std::string>{"status"}, {"stop"}, {"record", "start"}, {"photo"}}) {
    std::vector<std::string> all = arguments;
    all.insert (all.end (), {"--instance", "nobodys"});
    const ProcessResult host = run_host (all);
    EXPECT_TRUE (host.exited);
    EXPECT_EQ (host.status, 3);
    EXPECT_EQ (host.errors.find ("vorn-host: no host runs on instance 'nobodys' ("), 0u)
        << host.errors;
    EXPECT_TRUE (contains (host.errors, "): start one with 'vorn-host run'\n")) << host.errors;
  }
}

TEST (NoHost, ASocketThatADeadHostLeftIsReplaced)
{
  const TempDir runtime;
  const std::string path = runtime.write ("left.sock", "");
  ControlledCamera front;
  CameraControl control (front.product.get (), front.camera, front.view);
  ControlTarget target;
  target.camera = &control;
  std::string error;
  EXPECT_TRUE (ControlServer::start (path, std::move (target), &error)) << error;
}

TEST (NoHost, APathThatIsTooLongIsNamed)
{
  ControlledCamera front;
  CameraControl control (front.product.get (), front.camera, front.view);
  ControlTarget target;
  target.camera = &control;
  std::string error;
  const std::string path = "/tmp/" + std::string (150, 'x');
  EXPECT_FALSE (ControlServer::start (path, std::move (target), &error));
  EXPECT_EQ (error, "control socket " + path + ": a socket's path has at most 107 characters");
}

TEST (Claims, TheSecondIsRefusedByProcess)
{
  const TempDir runtime;
  g_setenv ("XDG_RUNTIME_DIR", runtime.path ().c_str (), TRUE);
  Instance instance;
  std::string error;
  ASSERT_TRUE (choose_instance ("claimed", &instance, &error)) << error;
  auto first = InstanceClaim::make (instance, &error);
  ASSERT_TRUE (first) << error;
  EXPECT_FALSE (InstanceClaim::make (instance, &error));
  EXPECT_EQ (error, "a host runs on instance 'claimed' already (process " +
                        std::to_string (getpid ()) + "); choose another with --instance");
  EXPECT_TRUE (first->publish ("file", "text", &error));
  EXPECT_TRUE (std::filesystem::exists (instance.at ("file")));
  first.reset ();
  EXPECT_FALSE (std::filesystem::exists (instance.at ("file")));
  EXPECT_TRUE (InstanceClaim::make (instance, &error)) << error;
  EXPECT_FALSE (choose_instance ("no name!", &instance, &error));
  EXPECT_EQ (error, "an instance's name is at most 32 letters, digits, '_' and '-'");
}

} // namespace
