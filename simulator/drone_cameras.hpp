// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_DRONE_CAMERAS_HPP
#define SIMULATOR_DRONE_CAMERAS_HPP

#include <memory>
#include <string>
#include <vector>

#include "camera_options.hpp"
#include "camera_server.hpp"
#include "drone.hpp"

namespace sim
{

/** How the drone's front camera moves: it is the camera that the flight describes. */
CameraMotion front_camera_motion (const Drone &drone);

/** The cameras of a drone, served as long as the object lives. */
class DroneCameras
{
public:
  /** dir: where sockets lie whose path is not given. Null when one cannot be served; error says
   * why. */
  static std::unique_ptr<DroneCameras> start (const Drone &drone, const CameraOptions &options,
                                              std::shared_ptr<const World> world,
                                              const std::string &dir, std::string *error);

  /** One line each: "serving the front camera, 1280x720 at 30/1, on unix:/path" */
  std::string describe () const;
  /** "; cameras: 2 connections, 120 frames, 0 lost, 5.1 ms each"; empty before the first client. */
  std::string served_text () const;

private:
  DroneCameras () = default;
  bool serve (const CameraDescription &camera, const std::string &path, std::string *error);

  struct Served {
    CameraDescription camera;
    std::unique_ptr<CameraServer> server;
  };
  std::vector<Served> served_;
};

} // namespace sim

#endif
