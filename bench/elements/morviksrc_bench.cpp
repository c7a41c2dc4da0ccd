// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// From the camera's message to the buffer on the source's pad: time, and bytes copied on the way.
// Beside it: what a copy of the frame alone would cost.
#include <atomic>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <gst/gst.h>

#include <vorn/gst_raii.hpp>

#include "camera_client.hpp"
#include "fake_camera.hpp"
#include "morviksrc.hpp"

namespace
{

/** One frame under way at a time: sent when the camera is told to, timed when it arrives. */
struct PingPong {
  std::atomic<int64_t> sent_ns = 0;
  std::atomic<int64_t> arrived_ns = 0;
  std::atomic<bool> wanted = false;
  std::atomic<uint64_t> copied = 0;
};

GstPadProbeReturn on_buffer (GstPad *, GstPadProbeInfo *info, gpointer data)
{
  auto *ping = static_cast<PingPong *> (data);
  const int64_t now = elements::monotonic_ns ();
  // The camera's memory is wrapped and read-only; a copy would be the buffer's own.
  GstMemory *memory = gst_buffer_peek_memory (GST_PAD_PROBE_INFO_BUFFER (info), 0);
  if (!GST_MEMORY_IS_READONLY (memory))
    ping->copied += gst_memory_get_sizes (memory, nullptr, nullptr);
  ping->arrived_ns = now;
  return GST_PAD_PROBE_OK;
}

void serve (FakeConnection &connection, PingPong *ping)
{
  connection.send_sensor ();
  if (!connection.take_request ())
    return;
  const VornCameraMessage stream = connection.stream_message (6);
  std::vector<vorn::Fd> memories;
  std::vector<int> fds;
  for (int i = 0; i < 6; i++) {
    memories.push_back (make_frame_memory (stream.stream.frame_size, F_SEAL_SHRINK));
    fds.push_back (memories.back ().get ());
  }
  connection.send (stream, fds);
  uint64_t sequence = 0;
  std::vector<bool> free (6, true);
  while (!connection.stopping ()) {
    while (const auto message = connection.poll ())
      if (message->header.type == VORN_CAMERA_RETURN)
        free[message->give_back.buffer] = true;
    if (!ping->wanted.exchange (false)) {
      g_usleep (50);
      continue;
    }
    for (uint32_t buffer = 0; buffer < 6; buffer++) {
      if (!free[buffer])
        continue;
      free[buffer] = false;
      VornCameraMessage message;
      vorn_camera_message_init (&message, VORN_CAMERA_FRAME);
      message.frame.buffer = buffer;
      message.frame.sequence = ++sequence;
      const int64_t now = elements::monotonic_ns ();
      message.frame.capture_ns = static_cast<uint64_t> (now);
      ping->sent_ns = now;
      connection.send (message);
      break;
    }
  }
}

void BM_SocketToPush (benchmark::State &state)
{
  gst_init (nullptr, nullptr);
  static const bool registered = GST_ELEMENT_REGISTER (kavrel_morviksrc, nullptr);
  (void)registered;
  const SocketFolder folder;
  PingPong ping;
  const FakeCamera camera (folder.path ("c"), [&] (FakeConnection &c, int) { serve (c, &ping); });
  const std::string description = "kavrel_morviksrc name=src source=unix:" + folder.path ("c") +
                                  " ! video/x-raw,width=1280,height=720,framerate=1/4 ! "
                                  "fakesink sync=false";
  const auto pipeline = vorn::adopt (gst_parse_launch (description.c_str (), nullptr));
  const auto source = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), "src"));
  const auto pad = vorn::adopt (gst_element_get_static_pad (source.get (), "src"));
  gst_pad_add_probe (pad.get (), GST_PAD_PROBE_TYPE_BUFFER, on_buffer, &ping, nullptr);
  gst_element_set_state (pipeline.get (), GST_STATE_PLAYING);
  uint64_t frames = 0;
  for (auto _ : state) {
    ping.arrived_ns = 0;
    ping.wanted = true;
    while (ping.arrived_ns == 0)
      g_usleep (20);
    state.SetIterationTime (static_cast<double> (ping.arrived_ns - ping.sent_ns) * 1e-9);
    frames++;
  }
  gst_element_set_state (pipeline.get (), GST_STATE_NULL);
  state.counters["copied_bytes_a_frame"] =
      static_cast<double> (ping.copied) / static_cast<double> (frames);
}

void BM_CopyOfAFrame (benchmark::State &state)
{
  const std::vector<uint8_t> from (3 * size_t{1280} * 720, 1);
  std::vector<uint8_t> to (from.size ());
  for (auto _ : state) {
    memcpy (to.data (), from.data (), from.size ());
    benchmark::ClobberMemory ();
  }
}

} // namespace

BENCHMARK (BM_SocketToPush)->UseManualTime ()->Unit (benchmark::kMicrosecond);
BENCHMARK (BM_CopyOfAFrame)->Unit (benchmark::kMicrosecond);
