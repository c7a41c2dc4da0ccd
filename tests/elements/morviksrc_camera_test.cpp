// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The source with the simulator's camera, in this process and in one of its own that dies.
#include <cmath>
#include <csignal>
#include <cstdio>
#include <dlfcn.h>
#include <memory>
#include <string>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "camera_clients.hpp"
#include "log_capture.hpp"
#include "source_pipeline.hpp"

namespace
{

/** The camera as a process. */
class CameraProcess
{
public:
  explicit CameraProcess (const std::string &path)
  {
    int input[2];
    int output[2];
    EXPECT_EQ (pipe2 (input, O_CLOEXEC), 0);
    EXPECT_EQ (pipe2 (output, O_CLOEXEC), 0);
    const char *const arguments[] = {CAMERA_PROCESS, path.c_str (), nullptr};
    pid_ = fork ();
    if (pid_ == 0) {
      dup2 (input[0], STDIN_FILENO);
      dup2 (output[1], STDOUT_FILENO);
      execv (CAMERA_PROCESS, const_cast<char *const *> (arguments));
      _exit (127);
    }
    close (input[0]);
    close (output[1]);
    input_ = vorn::Fd (input[1]);
    const vorn::Fd ready (output[0]);
    char line[6] = {};
    EXPECT_EQ (read (ready.get (), line, 6), 6) << "the camera did not start";
  }
  ~CameraProcess () { end (SIGKILL); }
  CameraProcess (const CameraProcess &) = delete;
  CameraProcess &operator= (const CameraProcess &) = delete;

  void send (int signal) const { kill (pid_, signal); }
  void end (int signal)
  {
    if (pid_ <= 0)
      return;
    kill (pid_, signal);
    kill (pid_, SIGCONT);
    waitpid (pid_, nullptr, 0);
    pid_ = -1;
  }

private:
  pid_t pid_ = -1;
  vorn::Fd input_;
};

class MorvikSrcWithCamera : public testing::Test
{
protected:
  void SetUp () override
  {
    char name[] = "/tmp/vorn-camera-XXXXXX";
    ASSERT_NE (mkdtemp (name), nullptr);
    folder_ = name;
  }
  void TearDown () override
  {
    unlink (path ().c_str ());
    rmdir (folder_.c_str ());
  }
  std::string path () const { return folder_ + "/c"; }
  std::string source () const { return "source=unix:" + path () + " "; }

private:
  std::string folder_;
};

constexpr char small_sink[] = "video/x-raw,width=64,height=48,framerate=100/1 ! "
                              "fakesink name=sink sync=false";

TEST_F (MorvikSrcWithCamera, GivesItsFramesWithTheirGeometry)
{
  const auto camera = small_camera ();
  const ServedCamera served (camera);
  SourcePipeline pipeline ("source=unix:" + served.path () +
                               " num-buffers=10 sensor-rect-left=100 sensor-rect-top=120 "
                               "sensor-rect-width=320 sensor-rect-height=240",
                           "video/x-raw,width=160,framerate=50/1 ! fakesink name=sink sync=false");
  ASSERT_TRUE (pipeline.play ());
  EXPECT_EQ (pipeline.wait_for_end ().type, GST_MESSAGE_EOS);
  const auto buffers = pipeline.buffers ();
  ASSERT_EQ (buffers.size (), 10u);
  const auto expected = sim::picture_geometry (camera.sensor, {100, 120, 320, 240}, 160, 120);
  GstClockTime previous = 0;
  for (const auto &buffer : buffers) {
    EXPECT_EQ (gst_buffer_get_size (buffer.get ()), 480u * 120);
    const FrameFacts facts = facts_of (buffer.get ());
    EXPECT_EQ (facts.focal_x, expected.focal_x);
    EXPECT_EQ (facts.focal_y, expected.focal_y);
    EXPECT_EQ (facts.center_x, expected.center_x);
    EXPECT_EQ (facts.center_y, expected.center_y);
    EXPECT_NEAR (facts.hfov, 2 * std::atan (std::tan (0.5) / 2), 1e-12);
    EXPECT_EQ (facts.readout_ns, 4'000'000u);
    EXPECT_GT (facts.capture_ns, previous);
    previous = facts.capture_ns;
  }
}

TEST_F (MorvikSrcWithCamera, RectangleBesideTheSensorIsAnErrorInTheCamerasWords)
{
  const LogCapture log;
  const ServedCamera served;
  SourcePipeline pipeline ("sensor-rect-width=5344 source=unix:" + served.path ());
  ASSERT_TRUE (pipeline.play ());
  const BusMessage message = pipeline.wait_for_end ();
  EXPECT_EQ (message.text, "camera \"" + served.path () + "\" cannot be used");
  EXPECT_NE (message.debug.find ("the rectangle 5344x480 at 0,0 is not on the sensor of 640x480"),
             std::string::npos);
}

TEST_F (MorvikSrcWithCamera, KilledCameraThatComesBackIsFoundAgain)
{
  auto camera = std::make_unique<CameraProcess> (path ());
  SourcePipeline pipeline (source () + "reconnect-timeout=20000", small_sink);
  ASSERT_TRUE (pipeline.play ());
  for (int life = 0; life < 3; life++) {
    ASSERT_TRUE (pipeline.wait_for_buffers (pipeline.count () + 5)) << "life " << life;
    // Its socket's file stays behind; the next one takes it over.
    camera->end (SIGKILL);
    camera = std::make_unique<CameraProcess> (path ());
  }
  ASSERT_TRUE (pipeline.wait_for_buffers (pipeline.count () + 5));
  // Frames of dead cameras are still readable.
  const auto buffers = pipeline.buffers ();
  for (size_t i = 0; i < buffers.size (); i++) {
    const vorn::BufferMap map (buffers[i].get (), GST_MAP_READ);
    EXPECT_NE (map.data ()[map.size () - 1], 0);
    if (i > 0) {
      EXPECT_GT (GST_BUFFER_PTS (buffers[i].get ()), GST_BUFFER_PTS (buffers[i - 1].get ()));
    }
  }
}

TEST_F (MorvikSrcWithCamera, KilledCameraThatStaysDeadIsAnError)
{
  CameraProcess camera (path ());
  SourcePipeline pipeline (source () + "reconnect-timeout=200", small_sink);
  ASSERT_TRUE (pipeline.play ());
  ASSERT_TRUE (pipeline.wait_for_buffers (3));
  camera.end (SIGKILL);
  const BusMessage message = pipeline.wait_for_end ();
  EXPECT_EQ (message.text, "no frames from camera \"" + path () + "\" within 200 ms");
  EXPECT_NE (message.debug.find ("cannot connect: Connection refused"), std::string::npos);
}

TEST_F (MorvikSrcWithCamera, FrozenCameraIsAnErrorAndThawedItServesAgain)
{
  CameraProcess camera (path ());
  SourcePipeline pipeline (source () + "reconnect-timeout=300", small_sink);
  ASSERT_TRUE (pipeline.play ());
  ASSERT_TRUE (pipeline.wait_for_buffers (3));
  camera.send (SIGSTOP);
  const BusMessage message = pipeline.wait_for_end ();
  EXPECT_EQ (message.text, "no frames from camera \"" + path () + "\" within 300 ms");
  EXPECT_NE (message.debug.find ("the camera does not answer"), std::string::npos);
  ASSERT_TRUE (pipeline.set_state (GST_STATE_NULL));

  camera.send (SIGCONT);
  const size_t before = pipeline.count ();
  ASSERT_TRUE (pipeline.play ());
  EXPECT_TRUE (pipeline.wait_for_buffers (before + 3));
}

TEST_F (MorvikSrcWithCamera, TwoHundredStateCyclesOfSeveralSources)
{
  const ServedCamera served;
  const std::string other = " kavrel_morviksrc source=unix:" + served.path () + " ! fakesink";
  SourcePipeline pipeline ("source=unix:" + served.path (), small_sink + other + other);
  pipeline.forget_buffers (false);
  for (int cycle = 0; cycle < 200; cycle++) {
    ASSERT_TRUE (pipeline.play ());
    if (cycle % 40 == 0) {
      ASSERT_TRUE (pipeline.wait_for_buffers (pipeline.count () + 2)) << "cycle " << cycle;
    }
    ASSERT_TRUE (pipeline.set_state (GST_STATE_NULL));
  }
  EXPECT_EQ (pipeline.wait_for_end (0).type, GST_MESSAGE_UNKNOWN);
}

TEST_F (MorvikSrcWithCamera, RunsInGstLaunch)
{
  if (dlsym (RTLD_DEFAULT, "__asan_init") || dlsym (RTLD_DEFAULT, "__tsan_init"))
    GTEST_SKIP () << "a program without the sanitizer cannot load a plug-in with it";
  const ServedCamera served;
  const std::string command = "GST_PLUGIN_PATH=" ELEMENT_DIR
                              " gst-launch-1.0 -q -e kavrel_morviksrc num-buffers=3 source=unix:" +
                              served.path () + " ! videoconvert ! jpegenc ! fakesink 2>&1";
  FILE *output = popen (command.c_str (), "re");
  ASSERT_NE (output, nullptr);
  std::string text;
  char line[256];
  while (fgets (line, sizeof line, output))
    text += line;
  EXPECT_EQ (pclose (output), 0) << text;
}

} // namespace
