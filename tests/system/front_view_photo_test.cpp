// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Photos of the whole product in both builds, with and without a camera: the file, its tags, its
// thumbnail, and single photos and bursts of a scene that moves.
#include "live_photos.hpp"

#include <cmath>
#include <filesystem>
#include <set>

#include "drone_cameras.hpp"
#include "live_view.hpp"
#include "photo_file_support.hpp"
#include "telemetry_publisher.hpp"
#include "test_virtual_camera.hpp"

namespace
{

constexpr VornResolution small_sensor = {640, 360};
constexpr VornResolution table_sensor = {5344, 3200};

class FrontViewPhoto : public LivePhotos
{
protected:
  void serve (sim::CameraDescription description)
  {
    served_ = std::make_unique<ServedCamera> (description);
  }

  static sim::CameraDescription camera_of (bool simple)
  {
    return simple ? colorful_camera (1280, 720)
                  : colorful_camera (small_sensor.width, small_sensor.height);
  }

  int files_in_folder () const
  {
    int count = 0;
    for (const auto &entry : std::filesystem::directory_iterator (media_.at ("photos")))
      count += entry.is_regular_file ();
    return count;
  }

  static guint64 capture_time_us (const Metadata &photo)
  {
    return g_ascii_strtoull (photo.text ("XMP-vorn:CapturingTimestamp").c_str (), nullptr, 10);
  }

  std::unique_ptr<ServedCamera> served_;
};

TEST_F (FrontViewPhoto, IsWholeInEveryBuild)
{
  const struct {
    bool simple;
    bool camera;
  } builds[] = {{true, true}, {true, false}, {false, true}, {false, false}};
  for (const auto &build : builds) {
    SCOPED_TRACE (testing::Message () << "simple " << build.simple << ", camera " << build.camera);
    if (build.camera)
      serve (camera_of (build.simple));
    start_photos (build.camera ? "unix:" + served_->path () : "", build.simple,
                  build.simple ? table_sensor : small_sensor);
    const gint64 before_us = g_get_monotonic_time ();
    const std::string photo = photograph ().file ();
    const gint64 after_us = g_get_monotonic_time ();
    ASSERT_NE (photo, "");
    EXPECT_EQ (files_in_folder (), 1);

    const Movie decoded = probe (photo);
    EXPECT_EQ (decoded.errors, "");
    EXPECT_EQ (decoded.frames, 1);
    EXPECT_EQ (decoded.value ("codec_name"), "mjpeg");

    const Metadata metadata (photo);
    EXPECT_EQ (metadata.text ("ExifIFD:ExifImageWidth"), decoded.value ("width"));
    EXPECT_EQ (metadata.text ("ExifIFD:ExifImageHeight"), decoded.value ("height"));
    EXPECT_EQ (metadata.text ("IFD0:Orientation"), "1");
    EXPECT_EQ (metadata.text ("XMP-vorn:PhotoMode"), "single");
    EXPECT_EQ (metadata.text ("XMP-vorn:SequenceNumber"), "(none)");
    EXPECT_TRUE (metadata.has ("XMP-Camera:Yaw")) << metadata.all ();
    // Nobody flies.
    EXPECT_FALSE (metadata.has ("GPS:GPSLatitude"));
    EXPECT_GT (capture_time_us (metadata), static_cast<guint64> (before_us));
    EXPECT_LT (capture_time_us (metadata), static_cast<guint64> (after_us));

    const std::string thumbnail = extract_thumbnail (photo);
    const Metadata of_thumbnail (thumbnail);
    EXPECT_EQ (of_thumbnail.number ("File:ImageWidth"), 320);
    EXPECT_EQ (of_thumbnail.number ("File:ImageHeight"), 240);
    const double apart = largest (mean_difference (decode (thumbnail), decode (photo)));
    printf ("simple %d, camera %d: %s, %sx%s, thumbnail %.2f apart\n", build.simple, build.camera,
            std::filesystem::path (photo).filename ().c_str (), decoded.value ("width").c_str (),
            decoded.value ("height").c_str (), apart);
    EXPECT_LT (apart, 4.0);
    start_again ();
    std::filesystem::remove_all (media_.at ("photos"));
  }
}

TEST_F (FrontViewPhoto, TellsWhereItWasTaken)
{
  sim::Drone drone;
  drone.flight = sim::make_named_flight ("orbit", 1);
  ASSERT_TRUE (drone.flight);
  drone.start_ns = now_ns () - 20'000'000'000;
  const sim::TelemetryOptions options;
  std::string error;
  const auto publisher = sim::TelemetryPublisher::start (drone, options, &error);
  ASSERT_TRUE (publisher) << error;
  auto description = camera_of (true);
  description.motion = sim::front_camera_motion (drone);
  serve (description);
  start_photos ("unix:" + served_->path (), true, table_sensor);
  set_photo_size ({1280, 720});
  const Metadata photo (photograph ().file ());

  const auto capture_ns = static_cast<gint64> (capture_time_us (photo)) * 1000;
  const sim::FlightState state = drone.state_at (capture_ns);
  const sim::GeoPosition place = sim::geo_position (drone.home, state.position_m);
  constexpr double metres_per_degree = 111'195;
  const double north_m =
      (photo.number ("GPS:GPSLatitude") - place.latitude_deg) * metres_per_degree;
  const double east_m = (photo.number ("GPS:GPSLongitude") - place.longitude_deg) *
                        metres_per_degree * std::cos (place.latitude_deg * sim::degree);
  // The sample before the capture time, of a drone that flies some metres a second.
  printf ("%.3f m north, %.3f m east of where it was\n", north_m, east_m);
  EXPECT_LT (std::hypot (north_m, east_m), 2.0);
  EXPECT_NEAR (photo.number ("GPS:GPSAltitude"), place.altitude_m, 2.0);
  EXPECT_GT (std::hypot (state.position_m.x, state.position_m.y), 4.0);
  const auto &q = state.attitude;
  const sim::Vec3 forward = rotate (q, {1, 0, 0});
  const double heading_deg = std::atan2 (forward.y, forward.x) / sim::degree;
  const double apart_deg = std::remainder (photo.number ("XMP-Camera:Yaw") - heading_deg, 360.0);
  printf ("looks %.2f degrees beside where it looked\n", apart_deg);
  EXPECT_LT (std::abs (apart_deg), 5.0);
}

TEST_F (FrontViewPhoto, EachOfAMovingSceneIsItsOwn)
{
  auto description = camera_of (true);
  description.motion = turning (90);
  serve (description);
  start_photos ("unix:" + served_->path (), true, table_sensor);
  std::set<std::string> files;
  std::set<std::string> groups;
  Cells former;
  guint64 former_us = 0;
  for (int number = 0; number < 6; number++) {
    SCOPED_TRACE (number);
    // Three single ones, a burst of three.
    VornSnapshotRequest request = {};
    if (number >= 3) {
      request.photo_grouping = VORN_PHOTO_GROUPING_BURST;
      request.sequence_number = static_cast<guint16> (number - 3);
    }
    set_photo_size ({1280, 720});
    const gint64 before_us = g_get_monotonic_time ();
    const std::string photo = photograph (request).file ();
    ASSERT_NE (photo, "");
    EXPECT_TRUE (files.insert (photo).second) << photo;
    groups.insert (photo.substr (0, photo.rfind ('_')));
    const Metadata metadata (photo);
    EXPECT_EQ (metadata.text ("XMP-vorn:SequenceNumber"),
               number >= 3 ? std::to_string (number - 3) : "(none)");
    EXPECT_EQ (metadata.text ("XMP-vorn:PhotoMode"),
               number >= 3 ? vorn_photo_grouping_type_get_name (VORN_PHOTO_GROUPING_BURST)
                           : "single");
    EXPECT_GT (capture_time_us (metadata), std::max<guint64> (former_us, before_us));
    former_us = capture_time_us (metadata);
    const Cells picture = decode (photo);
    const Cells thumbnail = decode (extract_thumbnail (photo));
    const double own = largest (mean_difference (thumbnail, picture));
    EXPECT_LT (own, 4.0);
    if (!former.colors.empty ()) {
      const double other = largest (mean_difference (thumbnail, former));
      printf ("thumbnail %.2f apart from its photo, %.2f from the one before\n", own, other);
      EXPECT_GT (other, 2 * own);
    }
    former = picture;
  }
  EXPECT_EQ (groups.size (), 4u);
  EXPECT_EQ (files_in_folder (), 6);
}

TEST_F (FrontViewPhoto, IsRefusedInARecordingMode)
{
  start_photos ("", true, table_sensor);
  const VornCameraMode mode = recording_mode (1920, 1080, live_rate.num, live_rate.den);
  ASSERT_TRUE (vorn_virtual_camera_set_mode (camera_, &mode));
  const VornSnapshotRequest request = {};
  log_.clear ();
  EXPECT_FALSE (vorn_view_take_snapshot (view_, &request));
  EXPECT_TRUE (log_.has ("view 'front': snapshot refused: the camera mode lacks the feature",
                         VORN_LOG_PRIORITY_WARNING));
  EXPECT_FALSE (vorn_view_is_taking_picture (view_));
  EXPECT_TRUE (taken_.events.empty ());
  EXPECT_FALSE (std::filesystem::exists (media_.at ("photos")));
}

} // namespace
