// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "drone_cameras.hpp"

#include <cstdio>

#include <vorn/instance.h>

namespace sim
{

CameraMotion front_camera_motion (const Drone &drone)
{
  return [drone] (int64_t monotonic_ns) {
    const FlightState state = drone.state_at (monotonic_ns);
    const Vec3 &p = state.position_m;
    const Quat &q = state.attitude;
    return CameraPose{{p.x, p.y, p.z}, {q.x, q.y, q.z, q.w}};
  };
}

bool DroneCameras::serve (const CameraDescription &camera, const std::string &path,
                          std::string *error)
{
  CameraServerOptions options;
  options.path = path;
  options.camera = camera;
  served_.push_back ({camera, CameraServer::start (options, error)});
  return served_.back ().server != nullptr;
}

std::unique_ptr<DroneCameras> DroneCameras::start (const Drone &drone, const CameraOptions &options,
                                                   std::shared_ptr<const World> world,
                                                   const std::string &dir, std::string *error)
{
  std::unique_ptr<DroneCameras> cameras (new DroneCameras);
  const std::string front =
      options.front.socket.value_or (dir + "/" + VORN_INSTANCE_FRONT_CAMERA_SOCKET);
  const std::string down =
      options.down.socket.value_or (dir + "/" + VORN_INSTANCE_DOWN_CAMERA_SOCKET);
  CameraDescription camera;
  camera.world = std::move (world);
  camera.epoch_ns = drone.start_ns;
  camera.sub_exposures = options.sub_exposures;
  const CameraMotion motion = front_camera_motion (drone);
  if (!front.empty ()) {
    camera.name = "front camera";
    camera.sensor = options.front.sensor;
    camera.motion = motion;
    if (!cameras->serve (camera, front, error))
      return nullptr;
  }
  if (!down.empty ()) {
    camera.name = "down camera";
    camera.sensor = options.down.sensor;
    camera.motion = looking_down (motion);
    if (!cameras->serve (camera, down, error))
      return nullptr;
  }
  return cameras;
}

std::string DroneCameras::describe () const
{
  std::string text;
  for (const Served &served : served_) {
    const CameraSensor &sensor = served.camera.sensor;
    text += "serving the " + served.camera.name + ", " + std::to_string (sensor.width) + "x" +
            std::to_string (sensor.height) + " at " + std::to_string (sensor.rate_numerator) + "/" +
            std::to_string (sensor.rate_denominator) + ", on unix:" + served.server->path () + "\n";
  }
  return text;
}

std::string DroneCameras::served_text () const
{
  CameraStatistics sum = {};
  for (const Served &served : served_) {
    const CameraStatistics one = served.server->statistics ();
    sum.connections += one.connections;
    sum.lost_frames += one.lost_frames;
    sum.render_ms += one.render_ms * static_cast<double> (one.frames);
    sum.frames += one.frames;
  }
  if (sum.connections == 0)
    return {};
  char text[160];
  snprintf (text, sizeof text, "; cameras: %llu connections, %llu frames, %llu lost, %.1f ms each",
            static_cast<unsigned long long> (sum.connections),
            static_cast<unsigned long long> (sum.frames),
            static_cast<unsigned long long> (sum.lost_frames),
            sum.frames ? sum.render_ms / static_cast<double> (sum.frames) : 0);
  return text;
}

} // namespace sim
