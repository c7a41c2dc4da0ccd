// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_CAMERA_OPTIONS_HPP
#define SIMULATOR_CAMERA_OPTIONS_HPP

#include <optional>
#include <string>

#include <glib.h>

#include "camera_model.hpp"

namespace sim
{

/** The drone's two cameras as the command line wants them. */
struct CameraOptions {
  struct Camera {
    /** Path of the socket; none: in the instance's runtime directory; empty: not served. */
    std::optional<std::string> socket;
    CameraSensor sensor;
  };
  Camera front = {std::nullopt, {1280, 720, 1.0471975511965976, 30, 1, 2'000'000, 0}};
  Camera down = {std::nullopt, {640, 480, 1.0471975511965976, 30, 1, 2'000'000, 0}};
  int sub_exposures = 1;
};

/** The options that belong to cameras, as GLib leaves them. */
class CameraArguments
{
public:
  CameraArguments () = default;
  CameraArguments (const CameraArguments &) = delete;
  CameraArguments &operator= (const CameraArguments &) = delete;
  ~CameraArguments ();

  /** The group of options, shown by --help-camera. The caller owns it; it fills this object. */
  GOptionGroup *make_group ();
  /** Checks the ranges and takes over; the reason of a refusal, or empty. */
  std::string take_over (CameraOptions *options) const;

private:
  static constexpr gdouble unset = -1;

  struct Camera {
    gchar *socket = nullptr;
    gchar *sensor = nullptr;
    gchar *rate = nullptr;
    gdouble fov_deg = unset;
  };
  static std::string take_over (const Camera &camera, const std::string &name,
                                CameraOptions::Camera *options);

  Camera front_;
  Camera down_;
  gdouble exposure_ms_ = unset;
  gdouble readout_ms_ = unset;
  gint sub_exposures_ = 1;
};

} // namespace sim

#endif
