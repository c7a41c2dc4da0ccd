// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The drone's cameras: that they see what the flight says, and what the command line says of them.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "camera_clients.hpp"
#include "camera_views.hpp"
#include "drone_cameras.hpp"
#include "options.hpp"

namespace
{

class DroneCamerasTest : public testing::Test
{
protected:
  void SetUp () override
  {
    char name[] = "/tmp/vorn-camera-XXXXXX";
    ASSERT_NE (mkdtemp (name), nullptr);
    dir_ = name;
  }
  void TearDown () override { std::filesystem::remove_all (dir_); }

  std::string dir_;
};

/** The camera's axes in NED, from the flight's own rotation of vectors. */
Matrix3 matrix_of_state (const sim::FlightState &state, bool down)
{
  const sim::Vec3 forward = rotate (state.attitude, sim::Vec3{1, 0, 0});
  const sim::Vec3 right = rotate (state.attitude, sim::Vec3{0, 1, 0});
  const sim::Vec3 below = rotate (state.attitude, sim::Vec3{0, 0, 1});
  const sim::Vec3 axes[] = {down ? below : forward, right, down ? -forward : below};
  Matrix3 matrix{};
  for (size_t i = 0; i < 3; i++) {
    matrix[0][i] = axes[i].x;
    matrix[1][i] = axes[i].y;
    matrix[2][i] = axes[i].z;
  }
  return matrix;
}

/** How many landmarks of one colour and shape were found where the flight puts them. */
int check_frame (const sim::World &world, const sim::Drone &drone, bool down,
                 const sim::PictureGeometry &geometry, const VornCameraFrame &frame,
                 const Picture &picture)
{
  const sim::FlightState state =
      drone.state_at (static_cast<int64_t> (frame.capture_ns + frame.exposure_ns / 2));
  const std::array<double, 3> camera_m = {state.position_m.x, state.position_m.y,
                                          state.position_m.z};
  const Matrix3 camera = matrix_of_state (state, down);
  int found = 0;
  for (const sim::Landmark &landmark : world.landmarks) {
    if (landmark.shape == sim::LandmarkShape::pole)
      continue;
    std::vector<Point> polygon;
    const auto places = outline (landmark, camera_m);
    for (const auto &place : places)
      if (const auto point = project (camera, camera_m, geometry, place))
        polygon.push_back (*point);
    if (polygon.size () != places.size () || area (polygon) < 40)
      continue;
    const auto [left, right] = std::minmax_element (polygon.begin (), polygon.end (),
                                                    [] (Point a, Point b) { return a.x < b.x; });
    const auto [top, bottom] = std::minmax_element (polygon.begin (), polygon.end (),
                                                    [] (Point a, Point b) { return a.y < b.y; });
    if (left->x < 6 || top->y < 6 || right->x > geometry.width - 6 ||
        bottom->y > geometry.height - 6 || bottom->y - top->y < 4)
      continue;
    // Home is a disc on a disc.
    if (landmark.north_m == 0 && landmark.east_m == 0)
      continue;
    const auto point = find_color (picture, landmark.color, static_cast<int> (left->x) - 5,
                                   static_cast<int> (top->y) - 5, static_cast<int> (right->x) + 5,
                                   static_cast<int> (bottom->y) + 5);
    if (!point)
      continue;
    const Point middle = centroid (polygon);
    // A pole may stand before it: then it is somewhere else altogether.
    if (std::hypot (point->x - middle.x, point->y - middle.y) < 0.5)
      found++;
    else
      found--;
  }
  return found;
}

TEST_F (DroneCamerasTest, SeeWhatTheFlightSays)
{
  sim::Drone drone;
  drone.flight = sim::make_named_flight ("aggressive", 3);
  ASSERT_TRUE (drone.flight);
  // In the middle of the flight, at its own pace.
  drone.start_ns = now_ns () - 12'000'000'000;
  sim::CameraOptions options;
  options.down.sensor.width = 1280;
  options.down.sensor.height = 720;
  std::string error;
  const auto world = sim::make_world (1);
  const auto cameras = sim::DroneCameras::start (drone, options, world, dir_, &error);
  ASSERT_TRUE (cameras) << error;
  for (const bool down : {false, true}) {
    RawClient client (dir_ + (down ? "/down-camera.sock" : "/front-camera.sock"));
    VornCameraRequest request = request_of (1280, 720, 10);
    request.rect_width = 1280;
    request.rect_height = 720;
    ASSERT_TRUE (client.start (request));
    const auto geometry = sim::picture_geometry (down ? options.down.sensor : options.front.sensor,
                                                 {0, 0, 1280, 720}, 1280, 720);
    // Where the drone is by now, and so how many are in sight, depends on the machine.
    int found = 0;
    for (int i = 0; i < 6 || (i < 100 && found < 4); i++) {
      const auto frame = client.frame ();
      ASSERT_TRUE (frame);
      const uint8_t *data = client.data (frame->buffer);
      const Picture picture = {1280, 720, {data, data + 3 * 1280 * 720}};
      found += check_frame (*world, drone, down, geometry, *frame, picture);
      client.give_back (frame->buffer);
    }
    EXPECT_GE (found, 4) << (down ? "down" : "front");
  }
  EXPECT_TRUE (cameras->served_text ().starts_with ("; cameras: 2 connections, "));
}

TEST_F (DroneCamerasTest, AreServedWhereAskedForOrNotAtAll)
{
  sim::Drone drone;
  drone.flight = sim::make_named_flight ("hover", 1);
  const auto world = plain_world ();
  sim::CameraOptions options;
  options.front.socket = dir_ + "/eye";
  options.down.socket = "";
  std::string error;
  {
    const auto cameras = sim::DroneCameras::start (drone, options, world, dir_, &error);
    ASSERT_TRUE (cameras) << error;
    EXPECT_EQ (cameras->describe (),
               "serving the front camera, 1280x720 at 30/1, on unix:" + dir_ + "/eye\n");
    EXPECT_EQ (cameras->served_text (), "");
    EXPECT_FALSE (sim::DroneCameras::start (drone, options, world, dir_, &error));
    EXPECT_EQ (error, "camera socket '" + dir_ + "/eye': another process listens there");
  }
  EXPECT_FALSE (std::filesystem::exists (dir_ + "/eye"));
  options.front.socket = "";
  EXPECT_EQ (sim::DroneCameras::start (drone, options, world, dir_, &error)->describe (), "");
}

std::optional<sim::SimulatorOptions> parse (std::vector<std::string> arguments, std::string *error)
{
  arguments.insert (arguments.begin (), "desk-simulator");
  std::vector<char *> pointers;
  for (std::string &argument : arguments)
    pointers.push_back (argument.data ());
  pointers.push_back (nullptr);
  return sim::parse_options (static_cast<int> (arguments.size ()), pointers.data (), error);
}

TEST (CameraOptions, AreTakenOver)
{
  std::string error;
  const auto options = parse (
      {"--front-camera", "/a",   "--front-sensor", "5344x3200", "--front-rate",  "24000/1001",
       "--front-fov",    "90",   "--down-camera",  "none",      "--down-sensor", "320x240",
       "--down-rate",    "15/1", "--down-fov",     "32.1",      "--exposure",    "0.5",
       "--readout",      "10",   "--blur",         "4"},
      &error);
  ASSERT_TRUE (options) << error;
  const sim::CameraOptions &cameras = options->cameras;
  EXPECT_EQ (cameras.front.socket, "/a");
  EXPECT_EQ (cameras.front.sensor.width, 5344u);
  EXPECT_EQ (cameras.front.sensor.height, 3200u);
  EXPECT_EQ (cameras.front.sensor.rate_numerator, 24000u);
  EXPECT_EQ (cameras.front.sensor.rate_denominator, 1001u);
  EXPECT_NEAR (cameras.front.sensor.horizontal_fov_rad, M_PI / 2, 1e-12);
  EXPECT_EQ (cameras.down.socket, "");
  EXPECT_EQ (cameras.down.sensor.height, 240u);
  EXPECT_EQ (cameras.down.sensor.rate_numerator, 15u);
  EXPECT_NEAR (cameras.down.sensor.horizontal_fov_rad, 32.1 * M_PI / 180, 1e-12);
  for (const auto &camera : {cameras.front, cameras.down}) {
    EXPECT_EQ (camera.sensor.exposure_ns, 500'000);
    EXPECT_EQ (camera.sensor.readout_ns, 10'000'000);
  }
  EXPECT_EQ (cameras.sub_exposures, 4);
}

TEST (CameraOptions, DefaultsAreASmallDrones)
{
  std::string error;
  const auto options = parse ({}, &error);
  ASSERT_TRUE (options) << error;
  EXPECT_FALSE (options->cameras.front.socket);
  EXPECT_EQ (options->cameras.front.sensor.width, 1280u);
  EXPECT_NEAR (options->cameras.front.sensor.horizontal_fov_rad, 60 * M_PI / 180, 1e-12);
  EXPECT_EQ (options->cameras.down.sensor.width, 640u);
  EXPECT_NEAR (options->cameras.down.sensor.horizontal_fov_rad, 60 * M_PI / 180, 1e-12);
  EXPECT_EQ (options->cameras.sub_exposures, 1);
}

TEST (CameraOptions, FieldOfViewIsThatOfTheTelemetryUnlessGiven)
{
  std::string error;
  auto options = parse ({"--hfov", "75"}, &error);
  ASSERT_TRUE (options) << error;
  EXPECT_NEAR (options->cameras.front.sensor.horizontal_fov_rad, 75 * M_PI / 180, 1e-12);
  options = parse ({"--hfov", "75", "--front-fov", "90"}, &error);
  ASSERT_TRUE (options) << error;
  EXPECT_NEAR (options->cameras.front.sensor.horizontal_fov_rad, 90 * M_PI / 180, 1e-12);
}

TEST (CameraOptions, WrongOnesAreNamed)
{
  const struct {
    std::vector<std::string> arguments;
    const char *error;
  } cases[] = {
      {{"--front-sensor", "1280"},
       "--front-sensor: '1280' is not WIDTHxHEIGHT in pixels, each from 1 to 16384"},
      {{"--front-sensor", "1280x720x3"},
       "--front-sensor: '1280x720x3' is not WIDTHxHEIGHT in pixels, each from 1 to 16384"},
      {{"--down-sensor", "0x240"},
       "--down-sensor: '0x240' is not WIDTHxHEIGHT in pixels, each from 1 to 16384"},
      {{"--down-sensor", "16385x240"},
       "--down-sensor: '16385x240' is not WIDTHxHEIGHT in pixels, each from 1 to 16384"},
      {{"--front-rate", "30"},
       "--front-rate: '30' is not a rate like 30/1 or 24000/1001, from 1/100 to 1000/1 per second"},
      {{"--down-rate", "1001/1"},
       "--down-rate: '1001/1' is not a rate like 30/1 or 24000/1001, from 1/100 to 1000/1 per "
       "second"},
      {{"--down-rate", "1/101"},
       "--down-rate: '1/101' is not a rate like 30/1 or 24000/1001, from 1/100 to 1000/1 per "
       "second"},
      {{"--front-fov", "0.5"}, "--front-fov: an angle from 1 to 170 degrees is needed"},
      {{"--down-fov", "nan"}, "--down-fov: an angle from 1 to 170 degrees is needed"},
      {{"--exposure", "-2"}, "--exposure: a number from 0 to 1000 ms is needed"},
      {{"--readout", "1001"}, "--readout: a number from 0 to 1000 ms is needed"},
      {{"--blur", "0"}, "--blur: a number from 1 to 64 is needed"},
      {{"--blur", "65"}, "--blur: a number from 1 to 64 is needed"},
  };
  for (const auto &[arguments, message] : cases) {
    std::string error;
    EXPECT_FALSE (parse (arguments, &error)) << arguments[1];
    EXPECT_EQ (error, message);
  }
}

} // namespace
