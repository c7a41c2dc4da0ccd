// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef SIMULATOR_OPTIONS_HPP
#define SIMULATOR_OPTIONS_HPP

#include <cstdint>
#include <optional>
#include <string>

#include "camera_options.hpp"
#include "geodesy.hpp"
#include "gyro_sensor.hpp"
#include "telemetry_publisher.hpp"

namespace sim
{

/** What the command line asks for. */
struct SimulatorOptions {
  bool list = false;
  std::string flight = "hover"; // a name, or the path of a log
  uint64_t seed = 1;
  std::optional<double> duration_s;
  std::optional<std::string> instance;
  GeoPosition home = {45.0, 6.0, 500.0};
  std::optional<int64_t> date_unix_ms;
  uint16_t iio_port = 0;
  uint64_t queue_depth = 2000;
  double progress_s = 10;
  GyroModel gyro;
  TelemetryOptions telemetry;
  CameraOptions cameras;
};

/** Empty when the arguments are wrong; error says which and why. --help prints and exits. */
std::optional<SimulatorOptions> parse_options (int argc, char **argv, std::string *error);

} // namespace sim

#endif
