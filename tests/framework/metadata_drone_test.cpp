// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What photos are told of a drone that flies, and what then stands in their files.
#include <cmath>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "iio_server.hpp"
#include "log_capture.hpp"
#include "main_context.hpp"
#include "own_namespace.hpp"
#include "photo_file_support.hpp"
#include "telemetry_publisher.hpp"
#include "temp_dir.hpp"
#include "test_product.hpp"
#include "test_virtual_camera.hpp"
#include <vorn/framework.h>
#include <vorn/metadata_provider.h>
#include <vorn/telemetry.h>

namespace
{

constexpr int64_t ms = 1'000'000;

class FlyingDrone : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }

  void SetUp () override
  {
    drone_.flight = sim::make_named_flight ("aggressive", 3);
    drone_.start_ns = sim::monotonic_ns () - 2'000 * ms;
    // A capture time is then that of the attitude.
    options_.estimator_delay_ns = 0;
    options_.estimator_noise_rad = 0;
    std::string error;
    publisher_ = sim::TelemetryPublisher::start (drone_, options_, &error);
    ASSERT_TRUE (publisher_) << error;
    product_ = vorn::adopt (test_product_new ());
    VornVirtualCamera *camera = test_virtual_camera_new ("front");
    ASSERT_TRUE (vorn_product_add_virtual_camera (product_.get (), camera));
    provider_ = vorn_virtual_cam_get_pmd (camera);
  }

  /** Waits until the telemetry covers so long a time; the time at which that began. */
  int64_t await_telemetry (int64_t length_ns)
  {
    double time_s = 0; // of the newest sample, published before the other sections' of that time
    const VornTelemetryEntry entry = {"truth.time_s", VORN_TELEMETRY_F64, sizeof time_s, 1,
                                      &time_s};
    const vorn::Owned<VornTelemetryConsumer, vorn_telemetry_consumer_destroy> consumer (
        vorn_telemetry_consumer_new ());
    EXPECT_EQ (vorn_telemetry_consumer_register (consumer.get (), &entry, 1), 0);
    EXPECT_EQ (vorn_telemetry_consumer_complete (consumer.get ()), 0);
    const auto newest_ns = [&] {
      const int result =
          vorn_telemetry_consumer_get (consumer.get (), nullptr, VORN_TELEMETRY_LATEST);
      return result == 0 ? static_cast<int64_t> (time_s * 1e9) : 0;
    };
    EXPECT_TRUE (run_until ([&] { return newest_ns () > 0; }));
    // All sections have begun by then.
    const int64_t from = newest_ns () + sim::drone_period_ns + ms;
    EXPECT_TRUE (run_until ([&] { return newest_ns () > from + length_ns + ms; }));
    return from;
  }
  VornTimedPhotoMetadata timed (int64_t time_ns)
  {
    VornTimedPhotoMetadata record = {};
    EXPECT_NE (vorn_metadata_provider_get_timed_photo_meta (
                   provider_, static_cast<guint64> (time_ns), &record),
               0);
    return record;
  }
  /** The time of the sample that is valid at a time, on the grid of a section. */
  int64_t sampled (int64_t time_ns, int64_t period_ns) const
  {
    return time_ns - (time_ns - drone_.start_ns) % period_ns;
  }

  OwnNamespace namespace_;
  LogCapture log_;
  sim::Drone drone_;
  sim::TelemetryOptions options_;
  std::unique_ptr<sim::TelemetryPublisher> publisher_;
  vorn::Ref<VornProduct> product_;
  VornMetadataProvider *provider_ = nullptr;
};

void expect_angles (const sim::Euler &wanted, gfloat roll, gfloat pitch, gfloat yaw)
{
  EXPECT_NEAR (roll, wanted.roll / sim::degree, 1e-3);
  EXPECT_NEAR (pitch, wanted.pitch / sim::degree, 1e-3);
  EXPECT_NEAR (yaw, wanted.yaw / sim::degree, 1e-3);
}

TEST_F (FlyingDrone, PhotosAreToldTheFlightAtTheirCaptureTime)
{
  const int64_t from = await_telemetry (300 * ms);
  // A drone on the move: the latest sample would not do.
  for (int64_t t = from; t <= from + 200 * ms; t += 23 * ms) {
    SCOPED_TRACE (t - from);
    const auto record = timed (t);
    const auto place = sim::geo_position (
        drone_.home, drone_.state_at (sampled (t, sim::drone_period_ns)).position_m);
    EXPECT_NE (record.location_valid, 0u);
    EXPECT_EQ (record.latitude, place.latitude_deg);
    EXPECT_EQ (record.longitude, place.longitude_deg);
    EXPECT_EQ (record.altitude, place.altitude_m);
    EXPECT_EQ (record.satellite_count, 14u);
    EXPECT_NEAR (record.hfov, 60.0, 1e-4);
    const sim::Quat attitude = drone_.state_at (sampled (t, sim::video_period_ns)).attitude;
    expect_angles (sim::euler_of (attitude), record.camera_roll, record.camera_pitch,
                   record.camera_yaw);
    const sim::Euler level = sim::euler_of (sim::levelled (attitude));
    expect_angles (level, record.visible_roll, record.visible_pitch, record.visible_yaw);
    EXPECT_NEAR (record.pix4d_pitch, 90 + level.pitch / sim::degree, 5e-3);
    EXPECT_NEAR (record.pix4d_yaw, level.yaw / sim::degree, 5e-3);
  }
  EXPECT_TRUE (log_.texts (VORN_LOG_PRIORITY_WARNING).empty ());
}

TEST_F (FlyingDrone, FileOfAPhotoTellsThePlaceAndTheDirection)
{
  const int64_t t = await_telemetry (100 * ms) + 50 * ms;
  const auto record = timed (t);
  const TempDir dir;
  PhotoPipeline photo (dir.at ("photo_%04d.jpg"));
  photo.set_tags ("geo-location-latitude", record.latitude, "geo-location-longitude",
                  record.longitude, "geo-location-elevation", record.altitude,
                  "geo-accuracy-horizontal", record.accuracy_horizontal, "visible-camera-yaw",
                  static_cast<double> (record.visible_yaw), "pix4d-camera-pitch",
                  static_cast<double> (record.pix4d_pitch), nullptr);
  ASSERT_TRUE (photo.run ());
  const Metadata metadata (dir.at ("photo_0000.jpg"));
  const sim::FlightState state = drone_.state_at (sampled (t, sim::drone_period_ns));
  const auto place = sim::geo_position (drone_.home, state.position_m);
  EXPECT_NEAR (metadata.number ("GPS:GPSLatitude"), place.latitude_deg, 1e-9);
  EXPECT_NEAR (metadata.number ("GPS:GPSLongitude"), place.longitude_deg, 1e-9);
  EXPECT_NEAR (metadata.number ("GPS:GPSAltitude"), place.altitude_m, 1e-3);
  EXPECT_EQ (metadata.text ("GPS:GPSHPositioningError"), "1.5");
  const sim::Euler level =
      sim::euler_of (sim::levelled (drone_.state_at (sampled (t, sim::video_period_ns)).attitude));
  const double yaw = level.yaw / sim::degree;
  EXPECT_NEAR (metadata.number ("GPS:GPSImgDirection"), yaw < 0 ? yaw + 360 : yaw, 0.01);
  EXPECT_NEAR (metadata.number ("XMP-Camera:Pitch"), 90 + level.pitch / sim::degree, 5e-3);
}

TEST_F (FlyingDrone, RecordOfTheDroneIsTheLatest)
{
  await_telemetry (0);
  const int64_t before = sim::monotonic_ns () - 20 * ms;
  const vorn::Owned<VornUntimedMetadata, vorn_metadata_provider_free_untimed_meta> record (
      vorn_metadata_provider_get_untimed_meta (provider_));
  const int64_t after = sim::monotonic_ns ();
  // Of one of the samples meanwhile; a busy machine publishes late, but not by a second.
  bool found = false;
  for (int64_t t = sampled (before - 1000 * ms, sim::drone_period_ns); t <= after;
       t += sim::drone_period_ns) {
    const sim::Euler euler = sim::euler_of (drone_.state_at (t).attitude);
    found |= std::abs (record->drone_roll - euler.roll / sim::degree) < 1e-3 &&
             std::abs (record->drone_pitch - euler.pitch / sim::degree) < 1e-3 &&
             std::abs (record->drone_yaw - euler.yaw / sim::degree) < 1e-3;
  }
  EXPECT_TRUE (found);
}

} // namespace
