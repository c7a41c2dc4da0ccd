// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The source when its camera is absent, dies, freezes or lies, and when its pipeline stops
// meanwhile.
#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include <sys/mman.h>

#include <fcntl.h>

#include <gtest/gtest.h>

#include "camera_client.hpp"
#include "fake_camera.hpp"
#include "log_capture.hpp"
#include "source_pipeline.hpp"

using elements::monotonic_ns;

namespace
{

class MorvikSrcFailures : public testing::Test
{
protected:
  std::string source () const { return "source=unix:" + folder_.path ("c") + " "; }
  std::string path () const { return folder_.path ("c"); }

private:
  SocketFolder folder_;
};

TEST_F (MorvikSrcFailures, AddressThatIsNoneIsNamed)
{
  for (const char *address : {"", "/simulator/hor_camera.sock", "unix:relative", "tcp://host"}) {
    SourcePipeline pipeline (std::string ("source=\"") + address + "\"");
    EXPECT_FALSE (pipeline.play ());
    const BusMessage message = pipeline.wait_for_end ();
    EXPECT_EQ (message.type, GST_MESSAGE_ERROR);
    EXPECT_EQ (message.text, std::string ("\"source\" is \"") + address +
                                 "\", which is not of the form \"unix:/path\"");
  }
}

TEST_F (MorvikSrcFailures, AbsentCameraIsAnErrorAfterTheTimeout)
{
  const LogCapture log;
  SourcePipeline pipeline (source () + "reconnect-timeout=120");
  const int64_t start = monotonic_ns ();
  ASSERT_TRUE (pipeline.play ());
  const BusMessage message = pipeline.wait_for_end ();
  EXPECT_GE (monotonic_ns () - start, 120'000'000);
  EXPECT_EQ (message.type, GST_MESSAGE_ERROR);
  EXPECT_EQ (message.text, "no frames from camera \"" + path () + "\" within 120 ms");
  EXPECT_NE (message.debug.find ("cannot connect: No such file or directory"), std::string::npos);
  EXPECT_TRUE (log.has ("no frames from camera '" + path () +
                            "': cannot connect: No such file or directory; trying again for 120 ms",
                        4));
  EXPECT_TRUE (log.has ("no frames from camera '" + path () +
                            "' within 120 ms: cannot connect: No such file or directory",
                        3));
}

TEST_F (MorvikSrcFailures, CameraThatComesLateIsWaitedFor)
{
  SourcePipeline pipeline (source () + "num-buffers=2 reconnect-timeout=20000");
  ASSERT_TRUE (pipeline.play ());
  g_usleep (100'000);
  const FakeCamera camera (path (), serve_frames);
  EXPECT_EQ (pipeline.wait_for_end ().type, GST_MESSAGE_EOS);
  EXPECT_EQ (pipeline.count (), 2u);
}

TEST_F (MorvikSrcFailures, CameraThatDiesAndComesBackIsFoundAgain)
{
  const LogCapture log;
  auto camera = std::make_unique<FakeCamera> (path (), serve_frames);
  SourcePipeline pipeline (source () + "reconnect-timeout=20000");
  ASSERT_TRUE (pipeline.play ());
  ASSERT_TRUE (pipeline.wait_for_buffers (3));
  camera.reset ();
  const size_t before = pipeline.count ();
  camera = std::make_unique<FakeCamera> (path (), serve_frames);
  ASSERT_TRUE (pipeline.wait_for_buffers (before + 3));
  const auto buffers = pipeline.buffers ();
  for (size_t i = 1; i < buffers.size (); i++)
    EXPECT_GT (GST_BUFFER_PTS (buffers[i].get ()), GST_BUFFER_PTS (buffers[i - 1].get ()));
  const auto lines = log.texts (6);
  EXPECT_TRUE (std::any_of (lines.begin (), lines.end (), [&] (const std::string &line) {
    return line.starts_with ("frames from camera '" + path () + "' after ");
  }));
}

TEST_F (MorvikSrcFailures, CameraThatFreezesIsLeftAndTriedAgain)
{
  // The first connection falls silent after two frames, the second one works.
  const FakeCamera camera (path (), [] (FakeConnection &c, int connection) {
    if (!c.begin (6))
      return;
    c.serve (connection == 0 ? 2 : UINT32_MAX);
    c.wait_for_end ();
  });
  SourcePipeline pipeline (source () + "num-buffers=4 reconnect-timeout=20000");
  ASSERT_TRUE (pipeline.play ());
  EXPECT_EQ (pipeline.wait_for_end ().type, GST_MESSAGE_EOS);
  EXPECT_EQ (camera.connections (), 2);
}

TEST_F (MorvikSrcFailures, CameraThatStaysFrozenIsAnError)
{
  const FakeCamera camera (path (), [] (FakeConnection &c, int) { c.wait_for_end (); });
  SourcePipeline pipeline (source () + "reconnect-timeout=200");
  ASSERT_TRUE (pipeline.play ());
  const BusMessage message = pipeline.wait_for_end ();
  EXPECT_EQ (message.text, "no frames from camera \"" + path () + "\" within 200 ms");
  EXPECT_NE (message.debug.find ("the camera does not answer"), std::string::npos);
}

TEST_F (MorvikSrcFailures, CameraThatLiesIsAnErrorAtOnce)
{
  const LogCapture log;
  const FakeCamera camera (path (), [] (FakeConnection &c, int) {
    c.send_sensor ();
    if (!c.take_request ())
      return;
    const VornCameraMessage message = c.stream_message (2);
    const vorn::Fd memory = make_frame_memory (message.stream.frame_size, 0);
    c.send (message, {memory.get (), memory.get ()});
    c.wait_for_end ();
  });
  SourcePipeline pipeline (source () + "reconnect-timeout=1000000");
  ASSERT_TRUE (pipeline.play ());
  const BusMessage message = pipeline.wait_for_end ();
  EXPECT_EQ (message.text, "camera \"" + path () + "\" cannot be used");
  EXPECT_NE (message.debug.find ("memory that is not sealed against shrinking"), std::string::npos);
  EXPECT_TRUE (log.has ("camera '" + path () +
                            "' cannot be used: the camera does not keep the protocol: memory that "
                            "is not sealed against shrinking",
                        3));
}

TEST_F (MorvikSrcFailures, GarbageBetweenFramesIsAnError)
{
  const FakeCamera camera (path (), [] (FakeConnection &c, int) {
    if (!c.begin (6))
      return;
    c.serve (2);
    c.send_bytes ("garbage");
    c.wait_for_end ();
  });
  SourcePipeline pipeline (source ());
  ASSERT_TRUE (pipeline.play ());
  const BusMessage message = pipeline.wait_for_end ();
  EXPECT_EQ (message.text, "camera \"" + path () + "\" cannot be used");
  EXPECT_NE (message.debug.find ("message of 7 bytes, shorter than a header"), std::string::npos);
}

/** Cameras on which a source waits in one way or another. */
const FakeCamera::Script waiting_cameras[] = {
    [] (FakeConnection &c, int) { c.wait_for_end (); },
    [] (FakeConnection &c, int) {
      c.send_sensor ();
      c.wait_for_end ();
    },
    [] (FakeConnection &c, int) {
      c.begin ();
      c.wait_for_end ();
    },
    [] (FakeConnection &c, int) { serve_frames (c, 0); },
    // Nothing but frames from long ago, without end.
    [] (FakeConnection &c, int) {
      if (!c.begin (6))
        return;
      for (uint64_t frame = 1; !c.stopping (); frame++) {
        c.send_frame_at (static_cast<uint32_t> (frame % 6), frame, frame);
        if (!c.receive ())
          return;
      }
    },
};

TEST_F (MorvikSrcFailures, StoppingNeverWaitsForTheCamera)
{
  for (size_t i = 0; i <= std::size (waiting_cameras); i++) {
    // After the last one: no camera at all.
    const auto camera = i < std::size (waiting_cameras)
                            ? std::make_unique<FakeCamera> (path (), waiting_cameras[i])
                            : nullptr;
    SourcePipeline pipeline (source () + "reconnect-timeout=1000000");
    for (const GstState pause : {GST_STATE_PAUSED, GST_STATE_READY, GST_STATE_NULL}) {
      ASSERT_TRUE (pipeline.play ());
      g_usleep (20'000);
      const int64_t start = monotonic_ns ();
      pipeline.set_state (pause);
      pipeline.set_state (GST_STATE_NULL);
      // The first attempt at a state change may take 100 ms; all else is cut short.
      EXPECT_LT (monotonic_ns () - start, 5'000'000'000) << "camera " << i;
    }
    EXPECT_EQ (pipeline.wait_for_end (0).type, GST_MESSAGE_UNKNOWN) << "camera " << i;
  }
}

TEST_F (MorvikSrcFailures, StatesCanBeCycled)
{
  const FakeCamera camera (path (), serve_frames);
  SourcePipeline pipeline (source (), "video/x-raw,framerate=200/1 ! "
                                      "fakesink name=sink sync=false");
  pipeline.forget_buffers (false);
  for (int cycle = 0; cycle < 200; cycle++) {
    ASSERT_TRUE (pipeline.play ());
    if (cycle % 20 == 0) {
      ASSERT_TRUE (pipeline.wait_for_buffers (pipeline.count () + 1)) << "cycle " << cycle;
    }
    ASSERT_TRUE (pipeline.set_state (GST_STATE_NULL));
  }
  EXPECT_EQ (pipeline.wait_for_end (0).type, GST_MESSAGE_UNKNOWN);
}

} // namespace
