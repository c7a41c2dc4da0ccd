// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What a client may send, against a camera's session.
#include <algorithm>

#include <sys/eventfd.h>

#include "camera_packets.hpp"
#include "camera_session.hpp"

#include <vorn/log.h>

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size);

namespace
{

sim::CameraDescription make_camera ()
{
  auto world = std::make_shared<sim::World> ();
  world->land = std::make_shared<sim::TileTexture> (std::vector<uint8_t>{1, 2, 3, 4}, 1, 1.0);
  world->cover = std::make_shared<sim::TileTexture> (std::vector<uint8_t> (4, 128), 1, 1.0);
  sim::CameraDescription camera;
  camera.sensor = {64, 48, 1.0, 30, 1, 0, 0};
  camera.motion = [] (int64_t) { return sim::CameraPose{{0, 0, -10}, {0, 0, 0, 1}}; };
  camera.world = world;
  return camera;
}

/** Large pictures are as good as small ones, and slow. */
bool asks_for_much (const CameraPacket &packet)
{
  VornCameraMessage message;
  VornCameraReason reason;
  return vorn_camera_message_parse (packet.bytes.data (), packet.bytes.size (), 0, &message,
                                    &reason) == 0 &&
         message.header.type == VORN_CAMERA_REQUEST &&
         uint64_t{message.request.width} * message.request.height > 20'000;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput (const uint8_t *data, size_t size)
{
  static const sim::CameraDescription camera = make_camera ();
  static const vorn::Fd stop (eventfd (0, EFD_CLOEXEC));
  static sim::CameraCounters counters;
  vorn_log_set_level ("camera_server", 0);
  const auto packets = camera_packets (data, size);
  if (std::any_of (packets.begin (), packets.end (), asks_for_much))
    return 0;
  CameraSocketPair pair;
  send_packets (pair.ours.get (), packets);
  sim::CameraSession (std::move (pair.theirs), camera, stop.get (), &counters).run ();
  return 0;
}
