// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The client's end of the protocol against cameras that do not keep it.
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "camera_client.hpp"
#include "fake_camera.hpp"

using elements::CameraClient;
using elements::CameraFrame;
using elements::CameraOutcome;
using elements::Interrupt;
using elements::monotonic_ns;

namespace
{

constexpr int64_t second = 1'000'000'000;

VornCameraRequest small_request ()
{
  VornCameraRequest request = {};
  request.rect_width = 64;
  request.rect_height = 48;
  request.width = 16;
  request.height = 8;
  request.rate_numerator = 30;
  request.rate_denominator = 1;
  request.buffers = 4;
  return request;
}

struct Ending {
  CameraOutcome outcome;
  std::string reason;
  std::string at; // which call failed
  int frames = 0;
};

/** Connects, starts and takes frames (giving each back when told so) until something fails. */
Ending use (CameraClient &client, const std::string &path, bool give_back, int most_frames = 8)
{
  const auto deadline = [] { return monotonic_ns () + 10 * second; };
  CameraOutcome outcome = client.connect (path, deadline ());
  if (outcome != CameraOutcome::ok)
    return {outcome, client.reason (), "connect"};
  outcome = client.start (small_request (), deadline ());
  if (outcome != CameraOutcome::ok)
    return {outcome, client.reason (), "start"};
  for (int frames = 0; frames < most_frames; frames++) {
    CameraFrame frame;
    outcome = client.next_frame (&frame, deadline ());
    if (outcome != CameraOutcome::ok)
      return {outcome, client.reason (), "frame", frames};
    if (give_back)
      frame.stream->give_back (frame.info.buffer);
  }
  return {CameraOutcome::ok, "", "", most_frames};
}

void send_stream (FakeConnection &connection, const std::function<void (VornCameraStream &)> &spoil,
                  uint64_t memory_size = 384, unsigned seals = F_SEAL_SHRINK,
                  unsigned descriptors = 3)
{
  connection.send_sensor ();
  if (!connection.take_request ())
    return;
  VornCameraMessage message = connection.stream_message (3);
  spoil (message.stream);
  std::vector<vorn::Fd> memories;
  std::vector<int> fds;
  for (unsigned i = 0; i < descriptors; i++) {
    memories.push_back (make_frame_memory (memory_size, seals));
    fds.push_back (memories.back ().get ());
  }
  connection.send (message, fds);
  connection.wait_for_end ();
}

struct Misbehaviour {
  const char *name;
  std::function<void (FakeConnection &)> camera;
  CameraOutcome outcome;
  std::string at;
  std::string reason;
};

const std::vector<Misbehaviour> misbehaviours = {
    {"closes at once", [] (auto &) {}, CameraOutcome::lost, "connect",
     "the camera has closed the connection"},
    {"greets with garbage",
     [] (auto &c) {
       c.send_bytes (std::string (56, 'x'));
       c.wait_for_end ();
     },
     CameraOutcome::refused, "connect",
     "the camera does not keep the protocol: message that begins with 0x78787878, not a camera's"},
    {"sends a truncated message",
     [] (auto &c) {
       VornCameraMessage message;
       vorn_camera_message_init (&message, VORN_CAMERA_SENSOR);
       c.send_bytes (std::string (reinterpret_cast<const char *> (&message), 30));
       c.wait_for_end ();
     },
     CameraOutcome::refused, "connect",
     "the camera does not keep the protocol: SENSOR message of 30 bytes that says 56, not 56"},
    {"sends a message beyond every size",
     [] (auto &c) {
       c.send_bytes (std::string (100'000, 'x'));
       c.wait_for_end ();
     },
     CameraOutcome::refused, "connect",
     "the camera does not keep the protocol: message of more than 224 bytes"},
    {"speaks another version",
     [] (auto &c) {
       VornCameraMessage message;
       vorn_camera_message_init (&message, VORN_CAMERA_SENSOR);
       message.header.version = 9;
       c.send (message);
       c.wait_for_end ();
     },
     CameraOutcome::refused, "connect",
     "the camera does not keep the protocol: protocol version 9, this side speaks 1"},
    {"begins with a frame",
     [] (auto &c) {
       c.send_frame (0, 0);
       c.wait_for_end ();
     },
     CameraOutcome::refused, "connect", "a message of type 5 out of turn"},
    {"refuses",
     [] (auto &c) {
       c.send_sensor ();
       VornCameraMessage message;
       vorn_camera_message_init (&message, VORN_CAMERA_REFUSAL);
       snprintf (message.refusal.text, sizeof message.refusal.text, "not today");
       c.send (message);
       c.wait_for_end ();
     },
     CameraOutcome::refused, "start", "not today"},
    {"dies after the request",
     [] (auto &c) {
       c.send_sensor ();
       c.take_request ();
     },
     CameraOutcome::lost, "start", "the camera has closed the connection"},
    {"sends unsealed memory",
     [] (auto &c) {
       send_stream (
           c, [] (auto &) {}, 384, 0);
     },
     CameraOutcome::refused, "start",
     "the camera does not keep the protocol: memory that is not sealed against shrinking"},
    {"sends memory that is too small",
     [] (auto &c) {
       send_stream (
           c, [] (auto &) {}, 383);
     },
     CameraOutcome::refused, "start",
     "the camera does not keep the protocol: memory of 383 bytes for frames of 384"},
    {"sends descriptors of something else",
     [] (auto &c) {
       c.send_sensor ();
       c.take_request ();
       const int fds[] = {0, 0, 0};
       c.send (c.stream_message (3), std::vector<int> (fds, fds + 3));
       c.wait_for_end ();
     },
     CameraOutcome::refused, "start",
     "the camera does not keep the protocol: descriptor that is no sealable memory"},
    {"sends too few descriptors",
     [] (auto &c) {
       send_stream (
           c, [] (auto &) {}, 384, F_SEAL_SHRINK, 2);
     },
     CameraOutcome::refused, "start",
     "the camera does not keep the protocol: 2 descriptors for 3 buffers"},
    {"sends frames of another size",
     [] (auto &c) { send_stream (c, [] (auto &s) { s.frame_size *= 2; }); }, CameraOutcome::refused,
     "start", "the camera sends frames of another size than asked for"},
    {"sends rows of another length",
     [] (auto &c) { send_stream (c, [] (auto &s) { s.stride = 12; }); }, CameraOutcome::refused,
     "start", "the camera sends frames of another size than asked for"},
    {"sends more buffers than asked for",
     [] (auto &c) {
       send_stream (
           c, [] (auto &s) { s.buffers = 5; }, 384, F_SEAL_SHRINK, 5);
     },
     CameraOutcome::refused, "start", "the camera has more buffers than asked for"},
    {"sends a frame in a buffer that does not exist",
     [] (auto &c) {
       c.begin (3);
       c.send_frame (3, 0);
       c.wait_for_end ();
     },
     CameraOutcome::refused, "frame", "the camera sent a frame in buffer 3, which is not its own"},
    {"sends the same frame twice",
     [] (auto &c) {
       c.begin (3);
       c.send_frame_at (0, 4, 100);
       c.send_frame_at (1, 4, 200);
       c.wait_for_end ();
     },
     CameraOutcome::refused, "frame", "the camera sent a frame that is not newer than the last"},
    {"lets time stand still",
     [] (auto &c) {
       c.begin (3);
       c.send_frame_at (0, 4, 100);
       c.send_frame_at (1, 5, 100);
       c.wait_for_end ();
     },
     CameraOutcome::refused, "frame", "the camera sent a frame that is not newer than the last"},
    {"sends a second stream",
     [] (auto &c) {
       c.begin (3);
       c.send (c.stream_message (2), {c.memories ()[0].get (), c.memories ()[1].get ()});
       c.wait_for_end ();
     },
     CameraOutcome::refused, "frame", "a message of type 3 out of turn"},
    {"dies while streaming",
     [] (auto &c) {
       c.begin (3);
       c.send_frame (0, 0);
     },
     CameraOutcome::lost, "frame", "the camera has closed the connection"},
};

TEST (CameraClient, NamesEveryMisbehaviour)
{
  for (const auto &misbehaviour : misbehaviours) {
    const SocketFolder folder;
    const FakeCamera camera (folder.path ("c"),
                             [&] (FakeConnection &c, int) { misbehaviour.camera (c); });
    const Interrupt interrupt;
    CameraClient client (interrupt);
    const Ending ending = use (client, folder.path ("c"), true);
    EXPECT_EQ (ending.outcome, misbehaviour.outcome) << misbehaviour.name;
    EXPECT_EQ (ending.at, misbehaviour.at) << misbehaviour.name;
    EXPECT_EQ (ending.reason, misbehaviour.reason) << misbehaviour.name;
  }
}

TEST (CameraClient, FrameInABufferThatIsStillHeldIsRefused)
{
  const SocketFolder folder;
  const FakeCamera camera (folder.path ("c"), [] (FakeConnection &c, int) {
    c.begin (3);
    c.send_frame (1, 0, 2);
    c.send_frame (1, 1, 1);
    c.wait_for_end ();
  });
  const Interrupt interrupt;
  CameraClient client (interrupt);
  const Ending ending = use (client, folder.path ("c"), false);
  EXPECT_EQ (ending.outcome, CameraOutcome::refused);
  EXPECT_EQ (ending.frames, 1);
  EXPECT_EQ (ending.reason, "the camera sent a frame in buffer 1, which is not its own");
}

TEST (CameraClient, NoCameraIsALoss)
{
  const SocketFolder folder;
  const Interrupt interrupt;
  CameraClient client (interrupt);
  EXPECT_EQ (client.connect (folder.path ("none"), monotonic_ns () + second), CameraOutcome::lost);
  EXPECT_EQ (client.reason (), "cannot connect: No such file or directory");

  std::ofstream (folder.path ("file")) << "no socket";
  EXPECT_EQ (client.connect (folder.path ("file"), monotonic_ns () + second), CameraOutcome::lost);
  EXPECT_EQ (client.reason (), "cannot connect: Connection refused");

  EXPECT_EQ (client.connect ("/" + std::string (200, 'x'), monotonic_ns () + second),
             CameraOutcome::refused);
  EXPECT_EQ (client.reason (), "the path has more than 107 characters");
}

TEST (CameraClient, SilenceEndsAtTheDeadline)
{
  const SocketFolder folder;
  const FakeCamera camera (folder.path ("c"), [] (FakeConnection &c, int) { c.wait_for_end (); });
  const Interrupt interrupt;
  CameraClient client (interrupt);
  const int64_t deadline = monotonic_ns () + second / 20;
  EXPECT_EQ (client.connect (folder.path ("c"), deadline), CameraOutcome::timeout);
  EXPECT_GE (monotonic_ns (), deadline);
  EXPECT_EQ (client.reason (), "the camera does not answer");
  EXPECT_FALSE (client.connected ());
}

TEST (CameraClient, InterruptEndsAWaitAndTheNextUntilCleared)
{
  const SocketFolder folder;
  const FakeCamera camera (folder.path ("c"), serve_frames);
  Interrupt interrupt;
  CameraClient client (interrupt);
  ASSERT_EQ (client.connect (folder.path ("c"), monotonic_ns () + 10 * second), CameraOutcome::ok);
  interrupt.raise ();
  EXPECT_EQ (client.pause (monotonic_ns () + 1000 * second), CameraOutcome::interrupted);
  EXPECT_EQ (client.pause (monotonic_ns () + 1000 * second), CameraOutcome::interrupted);
  interrupt.clear ();
  EXPECT_EQ (client.pause (monotonic_ns () + 1000), CameraOutcome::timeout);
  std::thread raiser ([&] { interrupt.raise (); });
  EXPECT_EQ (client.pause (monotonic_ns () + 1000 * second), CameraOutcome::interrupted);
  raiser.join ();
}

TEST (CameraClient, FramesStayReadableWhenTheCameraHasGone)
{
  const SocketFolder folder;
  CameraFrame frame;
  {
    const FakeCamera camera (folder.path ("c"), [] (FakeConnection &c, int) {
      c.begin (3);
      // A camera that tries to take its memory away finds it sealed.
      EXPECT_EQ (ftruncate (c.memories ()[2].get (), 0), -1);
      EXPECT_EQ (errno, EPERM);
      c.send_frame (2, 77);
      c.wait_for_end ();
    });
    const Interrupt interrupt;
    CameraClient client (interrupt);
    ASSERT_EQ (client.connect (folder.path ("c"), monotonic_ns () + 10 * second),
               CameraOutcome::ok);
    ASSERT_EQ (client.start (small_request (), monotonic_ns () + 10 * second), CameraOutcome::ok);
    ASSERT_EQ (client.next_frame (&frame, monotonic_ns () + 10 * second), CameraOutcome::ok);
  }
  EXPECT_EQ (frame.data ()[0], 77);
  EXPECT_EQ (frame.data ()[383], 77);
  EXPECT_EQ (frame.stream->held (), 1u);
  frame.stream->give_back (frame.info.buffer);
  EXPECT_EQ (frame.stream->held (), 0u);
}

TEST (CameraClient, ReturnsAndStylesReachTheCamera)
{
  const SocketFolder folder;
  std::atomic<uint32_t> returned = UINT32_MAX;
  std::atomic<uint32_t> style = UINT32_MAX;
  {
    const FakeCamera camera (folder.path ("c"), [&] (FakeConnection &c, int) {
      c.begin (3);
      c.send_frame (2, 0);
      while (const auto message = c.receive ()) {
        if (message->header.type == VORN_CAMERA_RETURN)
          returned = message->give_back.buffer;
        if (message->header.type == VORN_CAMERA_STYLE)
          style = message->style.style;
        if (returned != UINT32_MAX && style != UINT32_MAX)
          return;
      }
    });
    const Interrupt interrupt;
    CameraClient client (interrupt);
    ASSERT_EQ (client.connect (folder.path ("c"), monotonic_ns () + 10 * second),
               CameraOutcome::ok);
    ASSERT_EQ (client.start (small_request (), monotonic_ns () + 10 * second), CameraOutcome::ok);
    CameraFrame frame;
    ASSERT_EQ (client.next_frame (&frame, monotonic_ns () + 10 * second), CameraOutcome::ok);
    std::thread ([&] { frame.stream->give_back (frame.info.buffer); }).join ();
    client.set_style (VORN_CAMERA_STYLE_VIVID);
    EXPECT_EQ (client.next_frame (&frame, monotonic_ns () + 10 * second), CameraOutcome::lost);
  }
  EXPECT_EQ (returned, 2u);
  EXPECT_EQ (style, 2u);
}

} // namespace
