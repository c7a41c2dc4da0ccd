// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What a camera may send, against the source's client.
#include "camera_client.hpp"
#include "camera_packets.hpp"

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size);

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
  using elements::CameraOutcome;
  static const elements::Interrupt interrupt;
  CameraSocketPair pair;
  send_packets (pair.theirs.get (), camera_packets (data, size));

  elements::CameraClient client (interrupt);
  if (client.attach (std::move (pair.ours), 0) != CameraOutcome::ok)
    return 0;
  VornCameraRequest request = {};
  request.rect_width = 64;
  request.rect_height = 48;
  request.width = 16;
  request.height = 8;
  request.rate_numerator = request.rate_denominator = 1;
  request.buffers = 4;
  if (client.start (request, 0) != CameraOutcome::ok)
    return 0;
  elements::CameraFrame held;
  for (;;) {
    elements::CameraFrame frame;
    if (client.next_frame (&frame, 0) != CameraOutcome::ok)
      break;
    // Every byte of it can be read.
    volatile uint8_t last = frame.data ()[frame.stream->description ().frame_size - 1];
    (void)last;
    if (held.stream)
      held.stream->give_back (held.info.buffer);
    held = frame;
  }
  return 0;
}
