// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A host and a simulator, each a process of its own, and the commands that drive the host.
#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include <gio/gio.h>
#include <json-glib/json-glib.h>
#include <sys/stat.h>

#include "host_fixture.hpp"
#include "rtsp_support.hpp"
#include <vorn/blackboard.h>
#include <vorn/raii.hpp>

namespace fs = std::filesystem;

namespace
{

using Arguments = std::vector<std::string>;

/** A program that runs beside the test; its lines are read as they come. */
class Program
{
public:
  explicit Program (const Arguments &arguments)
  {
    std::vector<const gchar *> pointers;
    for (const std::string &argument : arguments)
      pointers.push_back (argument.c_str ());
    pointers.push_back (nullptr);
    process_ = vorn::adopt (
        g_subprocess_newv (pointers.data (),
                           static_cast<GSubprocessFlags> (G_SUBPROCESS_FLAGS_STDOUT_PIPE |
                                                          G_SUBPROCESS_FLAGS_STDERR_MERGE),
                           nullptr));
    if (!process_) {
      ADD_FAILURE () << arguments[0] << " does not start";
      return;
    }
    stream_ =
        vorn::adopt (g_data_input_stream_new (g_subprocess_get_stdout_pipe (process_.get ())));
    reader_ = std::thread ([this] { read (); });
  }
  ~Program ()
  {
    send (SIGCONT);
    end (SIGKILL);
  }
  Program (const Program &) = delete;
  Program &operator= (const Program &) = delete;

  bool said (const std::string &part)
  {
    const std::lock_guard lock (mutex_);
    return contains (text_, part);
  }
  std::string text ()
  {
    const std::lock_guard lock (mutex_);
    return text_;
  }
  void send (int signal)
  {
    if (!ended_)
      g_subprocess_send_signal (process_.get (), signal);
  }
  /** Waits for the end; the exit status, or minus the signal. */
  int end (int signal = 0)
  {
    if (signal)
      send (signal);
    g_subprocess_wait (process_.get (), nullptr, nullptr);
    ended_ = true;
    if (reader_.joinable ())
      reader_.join ();
    return g_subprocess_get_if_signaled (process_.get ())
               ? -g_subprocess_get_term_sig (process_.get ())
               : g_subprocess_get_exit_status (process_.get ());
  }

private:
  void read ()
  {
    while (true) {
      const vorn::OwnedString line (
          g_data_input_stream_read_line (stream_.get (), nullptr, nullptr, nullptr));
      if (!line)
        return;
      const std::lock_guard lock (mutex_);
      text_ += std::string (line.get ()) + "\n";
    }
  }

  vorn::Ref<GSubprocess> process_;
  vorn::Ref<GDataInputStream> stream_;
  std::thread reader_;
  std::mutex mutex_; // guards text_
  std::string text_;
  bool ended_ = false;
};

class Run : public testing::Test
{
protected:
  Run ()
  {
    gst_init (nullptr, nullptr);
    g_setenv ("XDG_RUNTIME_DIR", folder_.path ().c_str (), TRUE);
    g_unsetenv ("VORN_NAMESPACE");
  }
  ~Run () override
  {
    host_.reset ();
    simulator_.reset ();
    vorn_blackboard_remove_namespace (instance_.c_str ());
  }

  void start_simulator ()
  {
    simulator_ =
        std::make_unique<Program> (Arguments{environment ("VORN_TEST_SIMULATOR"), "--instance",
                                             instance_, "--flight", "orbit", "--progress", "0"});
    ASSERT_TRUE (await ([this] { return simulator_->said ("publishing telemetry"); }));
  }
  Arguments host_arguments (const Arguments &more = {}, const std::string &build = "--simple") const
  {
    Arguments all = {host_path (), "run", build,     "--instance",        instance_,
                     "--port",     "0",   "--media", folder_.at ("media")};
    all.insert (all.end (), more.begin (), more.end ());
    return all;
  }
  void start_host (const Arguments &more = {}, const std::string &build = "--simple")
  {
    host_ = std::make_unique<Program> (host_arguments (more, build));
    ASSERT_TRUE (await ([this] { return host_->said ("stream on rtsp://"); })) << host_->text ();
    const std::string text = host_->text ();
    const auto at = text.find ("rtsp://");
    uri_ = text.substr (at, text.find ('\n', at) - at);
  }
  ProcessResult command (Arguments arguments) const
  {
    arguments.insert (arguments.end (), {"--instance", instance_});
    return run_host (arguments);
  }
  std::string runtime (const std::string &file) const
  {
    return folder_.at ("vorn/" + instance_ + "/" + file);
  }

  TempDir folder_;
  std::string instance_ = "run-" + std::to_string (getpid ());
  std::unique_ptr<Program> simulator_;
  std::unique_ptr<Program> host_;
  std::string uri_;
};

TEST_F (Run, StreamsRecordsAndTakesPictures)
{
  start_simulator ();
  start_host ({"--udp", "127.0.0.1:5600", "--report", folder_.at ("report"), "--units",
               folder_.at ("units.csv")});

  RtspClient client (uri_);
  EXPECT_TRUE (await ([&client] { return client.units () >= 10; })) << client.error ();

  const ProcessResult start = command ({"record", "start"});
  EXPECT_EQ (start.status, 0) << start.errors;
  const ProcessResult again = command ({"record", "start"});
  EXPECT_EQ (again.status, 4);
  EXPECT_EQ (again.errors, "vorn-host: a recording runs already\n");
  EXPECT_EQ (command ({"set-mode", "photo", "single"}).errors,
             "vorn-host: a recording runs: stop it first\n");
  const int before = client.units ();
  EXPECT_TRUE (await ([&] { return client.units () >= before + 30; }));
  const ProcessResult stop = command ({"record", "stop"});
  EXPECT_EQ (stop.status, 0) << stop.errors;
  EXPECT_EQ (stop.output, start.output);
  const std::string recording = stop.output.substr (0, stop.output.find ('\n'));
  EXPECT_EQ (recording, folder_.at ("media/videos/ZELTO_0001.mp4"));
  const ProcessResult probe = run_process (
      {"ffprobe", "-v", "error", "-count_frames", "-select_streams", "v:0", "-show_entries",
       "stream=codec_name,nb_read_frames", "-of", "csv=p=0", recording});
  EXPECT_EQ (probe.output.find ("h264,"), 0u) << probe.output << probe.errors;
  EXPECT_GE (atoi (probe.output.c_str () + 5), 20) << probe.output;

  EXPECT_EQ (command ({"photo"}).status, 4) << "a recording mode takes no photos";
  const ProcessResult mode = command ({"set-mode", "photo", "single"});
  EXPECT_EQ (mode.status, 0) << mode.errors;
  const ProcessResult photo = command ({"photo"});
  EXPECT_EQ (photo.status, 0) << photo.errors;
  const std::string picture = photo.output.substr (0, photo.output.find ('\n'));
  EXPECT_TRUE (fs::file_size (picture) > 1000) << picture;

  const ProcessResult status = command ({"status", "--json"});
  EXPECT_TRUE (contains (status.output, "\"streaming\":true")) << status.output;
  EXPECT_TRUE (contains (status.output, "\"last_picture\":\"" + picture + "\"")) << status.output;
  EXPECT_TRUE (contains (status.output, "\"rtsp_uri\":\"" + uri_ + "\"")) << status.output;

  gchar *sdp = nullptr;
  ASSERT_TRUE (g_file_get_contents (runtime ("front.sdp").c_str (), &sdp, nullptr, nullptr));
  const vorn::OwnedString owned (sdp);
  EXPECT_TRUE (contains (sdp, "m=video 5600 RTP/AVP")) << sdp;

  EXPECT_EQ (command ({"stop"}).status, 0);
  EXPECT_EQ (host_->end (), 0) << host_->text ();
  EXPECT_TRUE (host_->said ("vorn-host: stopped\n"));
  EXPECT_TRUE (contains (host_->text (), " fps  ")) << "a line of status";
  for (const char *file : {"report.html", "summary.json"})
    EXPECT_TRUE (fs::exists (folder_.at (std::string ("report/") + file))) << file;
  gchar *units = nullptr;
  ASSERT_TRUE (g_file_get_contents (folder_.at ("units.csv").c_str (), &units, nullptr, nullptr));
  const vorn::OwnedString owned_units (units);
  gint64 capture_ns = 0;
  gint64 encoded_ns = 0;
  EXPECT_EQ (sscanf (units, "capture_ns,encoded_ns,bytes\n%" G_GINT64_FORMAT ",%" G_GINT64_FORMAT,
                     &capture_ns, &encoded_ns),
             2)
      << units;
  EXPECT_GT (encoded_ns, capture_ns);
  for (const char *file : {"front.sdp", "vorn-host.sock", "vorn-host.conf"})
    EXPECT_FALSE (fs::exists (runtime (file))) << file << " was left behind";
}

TEST_F (Run, ATermSignalFinishesTheRecording)
{
  start_simulator ();
  start_host ({"--record", "--quiet"});
  EXPECT_TRUE (await ([this] { return host_->said ("recording into "); })) << host_->text ();
  struct stat socket = {};
  ASSERT_EQ (stat (runtime ("vorn-host.sock").c_str (), &socket), 0);
  EXPECT_EQ (socket.st_mode & 0777, 0600u);
  // Status 0: it did not need the 8 s after which a host is given up.
  EXPECT_EQ (host_->end (SIGTERM), 0) << host_->text ();
  EXPECT_TRUE (host_->said ("vorn-host: terminated\n"));
  EXPECT_TRUE (fs::exists (folder_.at ("media/videos/ZELTO_0001.mp4"))) << host_->text ();
  EXPECT_FALSE (host_->said (" fps  ")) << "--quiet";
}

TEST_F (Run, OneHostAnInstance)
{
  start_simulator ();
  start_host ();
  Arguments second = host_arguments ();
  const ProcessResult refused = run_process (second);
  EXPECT_TRUE (refused.exited);
  EXPECT_EQ (refused.status, 1);
  EXPECT_TRUE (contains (refused.errors, "vorn-host: a host runs on instance '" + instance_ +
                                             "' already (process "))
      << refused.errors;
  EXPECT_TRUE (contains (refused.errors, "); choose another with --instance\n"));

  // The port of one is not free for another.
  const std::string port =
      uri_.substr (uri_.rfind (':') + 1, uri_.rfind ('/') - uri_.rfind (':') - 1);
  const ProcessResult taken =
      run_host ({"run", "--instance", instance_ + "-b", "--port", port, "--duration", "5"});
  EXPECT_EQ (taken.status, 1);
  EXPECT_TRUE (contains (taken.errors, "vorn-host: RTSP port " + port + " cannot be used: "))
      << taken.errors;
  EXPECT_TRUE (contains (command ({"status"}).output, "streaming"));
}

TEST_F (Run, WithoutASimulatorItSaysSoAndEnds)
{
  const ProcessResult host = run_process (host_arguments ({"--duration", "1"}));
  EXPECT_TRUE (host.exited);
  EXPECT_EQ (host.status, 0) << host.errors;
  EXPECT_TRUE (contains (host.errors, "no simulator flies instance '" + instance_ + "'"))
      << host.errors;
}

TEST_F (Run, UnitsThatCannotBeWrittenAreRefused)
{
  const std::string path = folder_.at ("none/units.csv");
  const ProcessResult host = run_process (host_arguments ({"--units", path}));
  EXPECT_EQ (host.status, 1);
  EXPECT_TRUE (
      contains (host.errors, "vorn-host: --units: " + path + ": No such file or directory\n"))
      << host.errors;
}

TEST_F (Run, AFrozenSimulatorDoesNotKeepIt)
{
  start_simulator ();
  simulator_->send (SIGSTOP);
  start_host ({}, "--full");
  const int status = host_->end (SIGINT);
  EXPECT_TRUE (status == 0 || status == 1) << status << "\n" << host_->text ();
}

TEST_F (Run, ASecondInterruptEndsItAtOnce)
{
  start_simulator ();
  start_host ();
  // A host that cannot go on: it is stopped while both signals come.
  host_->send (SIGSTOP);
  host_->send (SIGINT);
  host_->send (SIGTERM);
  host_->send (SIGCONT);
  EXPECT_EQ (host_->end (), 130) << host_->text ();
  EXPECT_TRUE (host_->said ("vorn-host: interrupted again: ended at once\n"));
}

TEST_F (Run, TopicsAndEchoShowWhatFlows)
{
  start_simulator ();
  const ProcessResult topics = command ({"topics", "--duration", "0.3"});
  EXPECT_EQ (topics.status, 0) << topics.errors;
  for (const char *section : {"camera_controller", "drone", "truth", "video"})
    EXPECT_TRUE (contains (topics.output, std::string ("telemetry   ") + section)) << topics.output;
  EXPECT_TRUE (contains (topics.output, "lives"));
  const ProcessResult json = command ({"topics", "--json", "--duration", "0.1"});
  const auto parser = vorn::adopt (json_parser_new ());
  ASSERT_TRUE (json_parser_load_from_data (parser.get (), json.output.c_str (), -1, nullptr));
  JsonArray *sections = json_object_get_array_member (
      json_node_get_object (json_parser_get_root (parser.get ())), "sections");
  EXPECT_GE (json_array_get_length (sections), 5u);

  const ProcessResult echo = command ({"echo", "drone.satellites", "--count", "2"});
  EXPECT_EQ (echo.status, 0) << echo.errors;
  EXPECT_EQ (std::count (echo.output.begin (), echo.output.end (), '\n'), 2);
  EXPECT_TRUE (contains (echo.output, " satellites ")) << echo.output;
  const ProcessResult line = command ({"echo", "truth", "--json", "-n", "1"});
  ASSERT_TRUE (json_parser_load_from_data (parser.get (), line.output.c_str (), -1, nullptr));
  JsonObject *sample = json_node_get_object (json_parser_get_root (parser.get ()));
  EXPECT_GT (json_object_get_int_member (sample, "time_ns"), 0);
  JsonObject *values = json_object_get_object_member (sample, "values");
  EXPECT_LE (std::abs (json_object_get_double_member (values, "q_w")), 1.0);
  EXPECT_TRUE (json_object_has_member (values, "time_s")) << line.output;
  const struct {
    std::string topic;
    std::string error;
  } rows[] = {
      {"nothing",
       "vorn-host: there is no section 'nothing': 'vorn-host topics' shows which there are\n"},
      {"drone.wings", "vorn-host: section 'drone' has no variable 'wings'\n"},
  };
  for (const auto &row : rows) {
    const ProcessResult none = command ({"echo", row.topic});
    EXPECT_EQ (none.status, 1);
    EXPECT_EQ (none.errors, row.error);
  }
  simulator_.reset ();
  vorn_blackboard_remove_namespace (instance_.c_str ());
  const ProcessResult nothing = command ({"topics", "--duration", "0.01"});
  EXPECT_EQ (nothing.status, 1);
  EXPECT_EQ (nothing.errors, "vorn-host: nothing flows on instance '" + instance_ + "'\n");
}

TEST_F (Run, DoctorFindsWhatIsMissing)
{
  const ProcessResult alone = command ({"doctor", "--media", folder_.at ("media"), "--port", "0"});
  EXPECT_TRUE (contains (alone.output, "warning  simulator      no simulator flies instance '"))
      << alone.output;
  EXPECT_TRUE (contains (alone.output, "-> start one: desk-simulator --instance " + instance_))
      << alone.output;
  EXPECT_TRUE (contains (alone.output, "good     encoder")) << alone.output;
  EXPECT_FALSE (fs::exists (folder_.at ("media"))) << "it only looks";
  const ProcessResult broken =
      command ({"doctor", "--json", "--config", folder_.at ("none.conf"), "--port", "0"});
  EXPECT_EQ (broken.status, 1);
  EXPECT_TRUE (contains (broken.output, "\"health\" : \"bad\"")) << broken.output;
  EXPECT_TRUE (contains (broken.output, "cannot read configuration")) << broken.output;
}

TEST_F (Run, DoctorFindsTheSimulatorThatFlies)
{
  start_simulator ();
  const ProcessResult found = command ({"doctor", "--media", folder_.at ("media"), "--port", "0"});
  EXPECT_TRUE (contains (found.output, "good     simulator      its gyroscope is on ip:"))
      << found.output;
  EXPECT_FALSE (contains (found.output, "no camera listens")) << found.output;

  fs::remove (folder_.at ("vorn/" + instance_ + "/front-camera.sock"));
  const ProcessResult gone = command ({"doctor", "--media", folder_.at ("media"), "--port", "0"});
  EXPECT_TRUE (contains (gone.output, "warning  simulator      no camera listens on "))
      << gone.output;
}

} // namespace
