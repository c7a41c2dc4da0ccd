// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/metadata_provider.h>

#include <atomic>
#include <cmath>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.hpp"
#include "main_context.hpp"
#include "own_namespace.hpp"
#include "test_product.hpp"
#include "test_virtual_camera.hpp"
#include <vorn/framework.h>
#include <vorn/raii.hpp>
#include <vorn/telemetry.h>

namespace
{

constexpr gint64 ms = 1'000'000;
constexpr double degree = M_PI / 180;

gint64 now_ns ()
{
  return g_get_monotonic_time () * 1000;
}

using Untimed = vorn::Owned<VornUntimedMetadata, vorn_metadata_provider_free_untimed_meta>;

/** x, y, z, w of yaw, then pitch, then roll, as the product of the three half-angle rotations. */
struct Attitude {
  float q[4];
  Attitude (double roll, double pitch, double yaw)
  {
    const double a = roll * degree / 2;
    const double b = pitch * degree / 2;
    const double c = yaw * degree / 2;
    q[0] = static_cast<float> (sin (a) * cos (b) * cos (c) - cos (a) * sin (b) * sin (c));
    q[1] = static_cast<float> (cos (a) * sin (b) * cos (c) + sin (a) * cos (b) * sin (c));
    q[2] = static_cast<float> (cos (a) * cos (b) * sin (c) - sin (a) * sin (b) * cos (c));
    q[3] = static_cast<float> (cos (a) * cos (b) * cos (c) + sin (a) * sin (b) * sin (c));
  }
};

class Producer
{
public:
  explicit Producer (const char *section, uint32_t capacity = 400)
      : section_ (vorn_telemetry_producer_new (section, capacity, 10000))
  {
  }
  template <typename T>
  void add (const char *name, VornTelemetryType type, const T *value)
  {
    EXPECT_EQ (vorn_telemetry_producer_register (section_.get (), name, type, sizeof (T), 1, value),
               0);
  }
  void complete () { EXPECT_EQ (vorn_telemetry_producer_complete (section_.get ()), 0); }
  void put (gint64 time_ns)
  {
    const timespec time = {time_ns / 1'000'000'000, time_ns % 1'000'000'000};
    EXPECT_EQ (vorn_telemetry_producer_put (section_.get (), &time), 0);
  }

private:
  vorn::Owned<VornTelemetryProducer, vorn_telemetry_producer_destroy> section_;
};

/** Publishes what a drone publishes. */
struct Drone {
  double latitude = 45.5;
  double longitude = -6.25;
  double altitude = 520.0;
  float roll = 1.0F;
  float pitch = -2.0F;
  float yaw = 30.0F;
  int32_t satellites = 14;
  float camera[4] = {0, 0, 0, 1};
  float picture[4] = {0, 0, 0, 1};
  float hfov = 60.0F;
  Producer place;
  Producer video{"video"};
  Producer controller{"camera_controller"};

  explicit Drone (uint32_t capacity = 400) : place ("drone", capacity)
  {
    place.add ("latitude", VORN_TELEMETRY_F64, &latitude);
    place.add ("longitude", VORN_TELEMETRY_F64, &longitude);
    place.add ("altitude_m", VORN_TELEMETRY_F64, &altitude);
    place.add ("roll", VORN_TELEMETRY_F32, &roll);
    place.add ("pitch", VORN_TELEMETRY_F32, &pitch);
    place.add ("yaw", VORN_TELEMETRY_F32, &yaw);
    place.add ("satellites", VORN_TELEMETRY_INT32, &satellites);
    place.complete ();
    const char *axes[] = {"x", "y", "z", "w"};
    for (int i = 0; i < 4; i++) {
      video.add ((std::string ("drone_est_ned_start_q_") + axes[i]).c_str (), VORN_TELEMETRY_F32,
                 &camera[i]);
      controller.add ((std::string ("video_ref_ned_start_q_") + axes[i]).c_str (),
                      VORN_TELEMETRY_F32, &picture[i]);
    }
    controller.add ("hfov", VORN_TELEMETRY_F32, &hfov);
    video.complete ();
    controller.complete ();
  }
  void look (const Attitude &camera_attitude, const Attitude &picture_attitude)
  {
    for (int i = 0; i < 4; i++) {
      camera[i] = camera_attitude.q[i];
      picture[i] = picture_attitude.q[i];
    }
  }
  void put (gint64 time_ns)
  {
    place.put (time_ns);
    video.put (time_ns);
    controller.put (time_ns);
  }
};

class MetadataProvider : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }

  /** The provider of a camera of a product that was set up with this group "metadata". */
  VornMetadataProvider *make (const std::string &group = {})
  {
    const std::string text = "[metadata]\n" + group;
    const vorn::OwnedKeyFile settings (g_key_file_new ());
    EXPECT_TRUE (g_key_file_load_from_data (settings.get (), text.c_str (), text.size (),
                                            G_KEY_FILE_NONE, nullptr));
    VornProductConfiguration configuration = {};
    configuration.key_file = settings.get ();
    product_ = vorn::adopt (test_product_new ());
    VornVirtualCamera *camera = test_virtual_camera_new ("camera");
    test_product_record (product_.get ()).setup = [&] (const VornProductConfiguration *) {
      return vorn_product_add_virtual_camera (product_.get (), camera);
    };
    EXPECT_TRUE (vorn_product_setup (product_.get (), &configuration));
    return vorn_virtual_cam_get_pmd (camera);
  }
  static Untimed untimed (VornMetadataProvider *provider)
  {
    return Untimed (vorn_metadata_provider_get_untimed_meta (provider));
  }
  static VornTimedPhotoMetadata timed (VornMetadataProvider *provider, gint64 time_ns)
  {
    VornTimedPhotoMetadata record;
    memset (&record, 0xee, sizeof record);
    EXPECT_NE (vorn_metadata_provider_get_timed_photo_meta (
                   provider, static_cast<guint64> (time_ns), &record),
               0);
    return record;
  }

  OwnNamespace namespace_;
  LogCapture log_;
  vorn::Ref<VornProduct> product_;
};

TEST_F (MetadataProvider, BelongsToItsCamera)
{
  const auto one = vorn::adopt (test_virtual_camera_new ("one"));
  const auto other = vorn::adopt (test_virtual_camera_new ("other"));
  EXPECT_NE (vorn_virtual_cam_get_pmd (one.get ()), nullptr);
  EXPECT_EQ (vorn_virtual_cam_get_pmd (one.get ()), vorn_virtual_cam_get_pmd (one.get ()));
  EXPECT_NE (vorn_virtual_cam_get_pmd (one.get ()), vorn_virtual_cam_get_pmd (other.get ()));
}

TEST_F (MetadataProvider, DefaultsOfADroneThatIsNotConfigured)
{
  const auto record = untimed (make ());
  EXPECT_STREQ (record->manufacturer, "Vorn");
  EXPECT_STREQ (record->model, "Zelto");
  EXPECT_STREQ (record->model_id, "zelto");
  EXPECT_STREQ (record->serial, "ZELTO-DESK-0001");
  EXPECT_STREQ (record->software_version, VORN_VERSION);
  EXPECT_STREQ (record->build_id, "vornmorvikzelto-" VORN_VERSION);
  EXPECT_EQ (record->flight_uid, nullptr);
  EXPECT_EQ (record->run_id, nullptr);
  gchar *boot_id = nullptr;
  ASSERT_TRUE (g_file_get_contents ("/proc/sys/kernel/random/boot_id", &boot_id, nullptr, nullptr));
  const vorn::OwnedString owned (g_strstrip (boot_id));
  EXPECT_STREQ (record->boot_id, boot_id);
  EXPECT_EQ (strlen (record->boot_id), 36u);
}

TEST_F (MetadataProvider, ConfigurationTellsTheDrone)
{
  const auto record = untimed (make ("manufacturer=Ma\nmodel=Mo\nmodel-id=Mi\nserial=Se\n"
                                     "software-version=7.1\nbuild-id=Bu\nflight-uid=Fl\n"
                                     "run-id=Ru\n"));
  EXPECT_STREQ (record->manufacturer, "Ma");
  EXPECT_STREQ (record->model, "Mo");
  EXPECT_STREQ (record->model_id, "Mi");
  EXPECT_STREQ (record->serial, "Se");
  EXPECT_STREQ (record->software_version, "7.1");
  EXPECT_STREQ (record->build_id, "Bu");
  EXPECT_STREQ (record->flight_uid, "Fl");
  EXPECT_STREQ (record->run_id, "Ru");
}

TEST_F (MetadataProvider, WithoutTelemetryRecordsSucceedAndOneWarningTells)
{
  VornMetadataProvider *provider = make ();
  for (int i = 0; i < 3; i++) {
    const auto record = timed (provider, now_ns ());
    EXPECT_EQ (record.shutter_den, 1u);
    EXPECT_EQ (record.location_valid, 0u);
    EXPECT_EQ (record.latitude, 0.0);
    EXPECT_EQ (record.longitude, 0.0);
    EXPECT_EQ (record.altitude, 0.0);
    EXPECT_EQ (record.satellite_count, 0u);
    EXPECT_EQ (record.accuracy_horizontal, 0.0);
    EXPECT_EQ (record.accuracy_vertical, 0.0);
    for (const gfloat angle :
         {record.hfov, record.camera_roll, record.camera_pitch, record.camera_yaw,
          record.pix4d_roll, record.pix4d_pitch, record.pix4d_yaw, record.visible_roll,
          record.visible_pitch, record.visible_yaw})
      EXPECT_EQ (angle, 0.0F);
    const auto drone = untimed (provider);
    EXPECT_EQ (drone->drone_yaw, 0.0F);
    EXPECT_EQ (drone->above_takeoff_altitude, 0.0);
  }
  const auto warnings = log_.texts (VORN_LOG_PRIORITY_WARNING);
  ASSERT_EQ (warnings.size (), 1u);
  EXPECT_EQ (warnings[0], "no telemetry of 'drone', 'video', 'camera_controller': what it tells is "
                          "0 in photos");
  EXPECT_TRUE (log_.texts (VORN_LOG_PRIORITY_ERROR).empty ());
}

TEST_F (MetadataProvider, TellsWhatHeldAtTheCaptureTime)
{
  Drone drone;
  VornMetadataProvider *provider = make ();
  const gint64 start = now_ns () - 500 * ms;
  for (int i = 0; i <= 50; i++) {
    drone.latitude = 45.0 + i * 0.001;
    drone.longitude = 6.0 - i * 0.01;
    drone.altitude = 500.0 + i;
    drone.satellites = 4 + i;
    drone.hfov = 60.0F + static_cast<float> (i) / 4;
    drone.look ({i * 0.5, i * -1.0, i * 2.0}, {0, i * -0.5, i * 3.0});
    drone.put (start + 10 * ms * i);
  }
  for (const int i : {0, 1, 17, 49, 50}) {
    SCOPED_TRACE (i);
    // Between two samples the earlier one holds.
    for (const gint64 after : {0 * ms, 9 * ms}) {
      const auto record = timed (provider, start + 10 * ms * i + after);
      EXPECT_NE (record.location_valid, 0u);
      EXPECT_EQ (record.latitude, 45.0 + i * 0.001);
      EXPECT_EQ (record.longitude, 6.0 - i * 0.01);
      EXPECT_EQ (record.altitude, 500.0 + i);
      EXPECT_EQ (record.satellite_count, 4u + static_cast<guint> (i));
      EXPECT_EQ (record.accuracy_horizontal, 1.5);
      EXPECT_EQ (record.accuracy_vertical, 3.0);
      EXPECT_EQ (record.hfov, 60.0F + static_cast<float> (i) / 4);
      EXPECT_NEAR (record.camera_roll, i * 0.5, 1e-4);
      EXPECT_NEAR (record.camera_pitch, i * -1.0, 1e-4);
      EXPECT_NEAR (record.camera_yaw, i * 2.0, 1e-4);
      EXPECT_NEAR (record.visible_roll, 0.0, 1e-4);
      EXPECT_NEAR (record.visible_pitch, i * -0.5, 1e-4);
      EXPECT_NEAR (record.visible_yaw, i * 3.0, 1e-4);
    }
  }
  EXPECT_TRUE (log_.texts (VORN_LOG_PRIORITY_WARNING).empty ());
}

TEST_F (MetadataProvider, SampleThatIsNotKeptIsReplacedByTheLatestWithAWarning)
{
  Drone drone (8); // the others keep more
  VornMetadataProvider *provider = make ();
  const gint64 start = now_ns () - 300 * ms;
  for (int i = 0; i < 20; i++) {
    drone.latitude = i;
    drone.put (start + 10 * ms * i);
  }
  const std::string warning = "telemetry section 'drone' has no sample of the photo's capture "
                              "time: the latest one is taken";
  EXPECT_EQ (timed (provider, start + 190 * ms).latitude, 19.0);
  EXPECT_EQ (log_.count (warning, VORN_LOG_PRIORITY_WARNING), 0);
  // Overwritten, and before the first.
  EXPECT_EQ (timed (provider, start + 20 * ms).latitude, 19.0);
  EXPECT_EQ (log_.count (warning, VORN_LOG_PRIORITY_WARNING), 1);
  EXPECT_EQ (timed (provider, start - 500 * ms).latitude, 19.0);
  EXPECT_EQ (log_.count (warning, VORN_LOG_PRIORITY_WARNING), 2);
}

TEST_F (MetadataProvider, DroneThatFellSilentIsNoLongerWhereItWas)
{
  Drone drone;
  VornMetadataProvider *provider = make ();
  const gint64 last = now_ns ();
  drone.put (last);
  EXPECT_NE (timed (provider, last + 990 * ms).location_valid, 0u);
  EXPECT_TRUE (log_.texts (VORN_LOG_PRIORITY_WARNING).empty ());
  EXPECT_EQ (timed (provider, last + 1001 * ms).location_valid, 0u);
  EXPECT_EQ (timed (provider, last + 5000 * ms).location_valid, 0u);
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING).size (), 1u);
  // It comes back, and falls silent again: that is told again.
  drone.put (last + 6000 * ms);
  EXPECT_NE (timed (provider, last + 6001 * ms).location_valid, 0u);
  EXPECT_EQ (timed (provider, last + 9000 * ms).location_valid, 0u);
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING).size (), 2u);
}

TEST_F (MetadataProvider, PlaceThatCannotBeIsNotValid)
{
  struct Case {
    const char *name;
    double latitude, longitude, altitude;
    int32_t satellites;
    bool valid;
  };
  const Case cases[] = {
      {"good", 45, 6, 500, 14, true},
      {"corners", -90, 180, -400, 4, true},
      {"too few satellites", 45, 6, 500, 3, false},
      {"no satellites", 0, 0, 0, 0, false},
      {"negative satellites", 45, 6, 500, -1, false},
      {"latitude beyond the pole", 90.001, 6, 500, 14, false},
      {"longitude beyond a turn", 45, -180.001, 500, 14, false},
      {"latitude no number", NAN, 6, 500, 14, false},
      {"longitude infinite", 45, INFINITY, 500, 14, false},
      {"altitude no number", 45, 6, NAN, 14, false},
  };
  Drone drone;
  VornMetadataProvider *provider = make ();
  gint64 time = now_ns () - 500 * ms;
  for (const Case &c : cases) {
    SCOPED_TRACE (c.name);
    drone.latitude = c.latitude;
    drone.longitude = c.longitude;
    drone.altitude = c.altitude;
    drone.satellites = c.satellites;
    drone.look ({0, 0, 10}, {0, 0, 20});
    drone.put (time += 10 * ms);
    const auto record = timed (provider, time);
    EXPECT_EQ (record.location_valid != 0, c.valid);
    EXPECT_EQ (record.latitude, c.valid ? c.latitude : 0.0);
    EXPECT_EQ (record.satellite_count, c.valid ? static_cast<guint> (c.satellites) : 0u);
    EXPECT_EQ (record.accuracy_vertical, c.valid ? 3.0 : 0.0);
    EXPECT_NEAR (record.camera_yaw, 10.0, 1e-4); // the rest holds all the same
  }
}

TEST_F (MetadataProvider, AccuracyIsThatOfTheConfiguredReceiver)
{
  Drone drone;
  VornMetadataProvider *provider = make ("accuracy-horizontal=0.02\naccuracy-vertical=0.05\n");
  const gint64 time = now_ns ();
  drone.put (time);
  const auto record = timed (provider, time);
  EXPECT_EQ (record.accuracy_horizontal, 0.02);
  EXPECT_EQ (record.accuracy_vertical, 0.05);
}

TEST_F (MetadataProvider, AttitudeThatIsNoRotationIsZero)
{
  Drone drone;
  VornMetadataProvider *provider = make ();
  gint64 time = now_ns () - 100 * ms;
  const float bad[][4] = {{0, 0, 0, 0}, {NAN, 0, 0, 1}, {0, INFINITY, 0, 1}, {2, 0, 0, 1}};
  for (const auto &q : bad) {
    for (int i = 0; i < 4; i++)
      drone.camera[i] = drone.picture[i] = q[i];
    drone.hfov = NAN;
    drone.put (time += 10 * ms);
    const auto record = timed (provider, time);
    EXPECT_EQ (record.camera_roll, 0.0F);
    EXPECT_EQ (record.visible_yaw, 0.0F);
    EXPECT_EQ (record.pix4d_pitch, 0.0F);
    EXPECT_EQ (record.hfov, 0.0F);
    EXPECT_NE (record.location_valid, 0u);
  }
}

// ---- The untimed record's flight

TEST_F (MetadataProvider, AltitudeAboveTheFirstThatWasTold)
{
  VornMetadataProvider *provider = make ();
  Drone drone; // comes up after the product
  drone.altitude = 500.0;
  // The provider looks by itself, five times a second: its timer comes before this one.
  bool waited = false;
  g_timeout_add (
      250,
      [] (gpointer data) -> gboolean {
        *static_cast<bool *> (data) = true;
        return G_SOURCE_REMOVE;
      },
      &waited);
  ASSERT_TRUE (run_until ([&] {
    drone.put (now_ns ());
    return waited;
  }));
  drone.altitude = 512.5;
  drone.roll = 3.5F;
  drone.put (now_ns ());
  const auto record = untimed (provider);
  EXPECT_EQ (record->above_takeoff_altitude, 12.5);
  EXPECT_EQ (record->drone_roll, 3.5F);
  EXPECT_EQ (record->drone_pitch, -2.0F);
  EXPECT_EQ (record->drone_yaw, 30.0F);
  drone.altitude = 490.0;
  drone.put (now_ns ());
  EXPECT_EQ (untimed (provider)->above_takeoff_altitude, -10.0);
}

TEST_F (MetadataProvider, DroneThatIsUpAtSetUpTellsItsTakeOffAtOnce)
{
  Drone drone;
  drone.altitude = 100.0;
  drone.put (now_ns ());
  VornMetadataProvider *provider = make ();
  drone.altitude = 150.0;
  drone.put (now_ns ());
  EXPECT_EQ (untimed (provider)->above_takeoff_altitude, 50.0);
}

TEST_F (MetadataProvider, ConfiguredTakeOffHolds)
{
  Drone drone;
  drone.put (now_ns ());
  EXPECT_EQ (untimed (make ("takeoff-altitude=400\n"))->above_takeoff_altitude, 120.0);
}

TEST_F (MetadataProvider, WithoutAPlaceThereIsNoAltitude)
{
  Drone drone;
  drone.put (now_ns ());
  VornMetadataProvider *provider = make ("takeoff-altitude=400\n");
  drone.satellites = 0;
  drone.put (now_ns ());
  const auto record = untimed (provider);
  EXPECT_EQ (record->above_takeoff_altitude, 0.0);
  EXPECT_EQ (record->drone_yaw, 30.0F);
}

// ---- Photogrammetry's angles

struct Direction {
  double north, east, down;
};

/** A body's vector in north, east, down: the rotations about x, y and z one after the other. */
Direction turn (double roll, double pitch, double yaw, Direction v)
{
  const double r = roll * degree;
  const double p = pitch * degree;
  const double y = yaw * degree;
  v = {v.north, v.east * cos (r) - v.down * sin (r), v.east * sin (r) + v.down * cos (r)};
  v = {v.north * cos (p) + v.down * sin (p), v.east, -v.north * sin (p) + v.down * cos (p)};
  return {v.north * cos (y) - v.east * sin (y), v.north * sin (y) + v.east * cos (y), v.down};
}

TEST_F (MetadataProvider, PhotogrammetryAnglesAreThoseOfACameraThatLooksDown)
{
  Drone drone;
  VornMetadataProvider *provider = make ();
  gint64 time = now_ns () - 900 * ms;
  for (const double roll : {0.0, 5.0, -20.0})
    for (const double pitch : {-90.0, -60.0, -30.0, -5.0, 0.0, 20.0})
      for (const double yaw : {0.0, 45.0, 170.0, -120.0}) {
        if (roll != 0 && pitch > -10)
          continue; // told apart below
        SCOPED_TRACE (testing::Message () << roll << ", " << pitch << ", " << yaw);
        drone.look ({0, 0, 0}, {roll, pitch, yaw});
        drone.put (time += ms);
        const auto record = timed (provider, time);
        const auto photogrammetry = [&] (const Direction &v) {
          return turn (record.pix4d_roll, record.pix4d_pitch, record.pix4d_yaw, v);
        };
        // What the camera looks along is the other body's down, the picture's top its forward.
        const Direction axis = turn (roll, pitch, yaw, {1, 0, 0});
        const Direction top = turn (roll, pitch, yaw, {0, 0, -1});
        const Direction other_axis = photogrammetry ({0, 0, 1});
        const Direction other_top = photogrammetry ({1, 0, 0});
        EXPECT_NEAR (axis.north, other_axis.north, 2e-6);
        EXPECT_NEAR (axis.east, other_axis.east, 2e-6);
        EXPECT_NEAR (axis.down, other_axis.down, 2e-6);
        EXPECT_NEAR (top.north, other_top.north, 2e-6);
        EXPECT_NEAR (top.east, other_top.east, 2e-6);
        EXPECT_NEAR (top.down, other_top.down, 2e-6);
      }
}

TEST_F (MetadataProvider, PhotogrammetryAnglesOfALevelPicture)
{
  Drone drone;
  VornMetadataProvider *provider = make ();
  gint64 time = now_ns () - 900 * ms;
  for (const double pitch : {-89.0, -45.0, -1.5, -0.5, 0.0, 0.5, 30.0}) {
    drone.look ({0, 0, 0}, {0, pitch, 77});
    drone.put (time += ms);
    const auto record = timed (provider, time);
    EXPECT_NEAR (record.pix4d_pitch, pitch + 90, 2e-3) << pitch;
    EXPECT_NEAR (record.pix4d_yaw, 77.0, 2e-3) << pitch;
    EXPECT_NEAR (record.pix4d_roll, 0.0, 2e-3) << pitch;
  }
  // At the horizon a trace of roll does not throw yaw about.
  drone.look ({0, 0, 0}, {0.1, 0, 77});
  drone.put (time += ms);
  const auto record = timed (provider, time);
  EXPECT_NEAR (record.pix4d_yaw, 77.0, 1e-3);
  EXPECT_NEAR (record.pix4d_pitch, 90.0, 1e-3);
  EXPECT_EQ (record.pix4d_roll, 0.0F);
}

// ---- Wrong calls, threads

TEST_F (MetadataProvider, CaptureTimeThatIsNoneIsAnError)
{
  VornMetadataProvider *provider = make ();
  VornTimedPhotoMetadata record = {};
  record.iso = 7;
  EXPECT_EQ (vorn_metadata_provider_get_timed_photo_meta (provider, G_MAXUINT64, &record), 0);
  EXPECT_EQ (record.iso, 7u);
  EXPECT_TRUE (
      log_.has ("no metadata of a photo: its capture time is not valid", VORN_LOG_PRIORITY_ERROR));
  // The largest that fits is only late.
  EXPECT_NE (vorn_metadata_provider_get_timed_photo_meta (provider, G_MAXINT64, &record), 0);
  EXPECT_NE (vorn_metadata_provider_get_timed_photo_meta (provider, 0, &record), 0);
}

TEST_F (MetadataProvider, WrongCallsAreCriticals)
{
  VornMetadataProvider *provider = make ();
  VornTimedPhotoMetadata record = {};
  CriticalCapture criticals;
  EXPECT_EQ (vorn_virtual_cam_get_pmd (nullptr), nullptr);
  EXPECT_EQ (vorn_metadata_provider_get_untimed_meta (nullptr), nullptr);
  EXPECT_EQ (vorn_metadata_provider_get_timed_photo_meta (nullptr, 1, &record), 0);
  EXPECT_EQ (vorn_metadata_provider_get_timed_photo_meta (provider, 1, nullptr), 0);
  EXPECT_EQ (criticals.criticals ().size (), 4u);
  vorn_metadata_provider_free_untimed_meta (nullptr);
  EXPECT_EQ (criticals.criticals ().size (), 4u);
}

TEST_F (MetadataProvider, AnswersManyThreadsAtOnce)
{
  Drone drone;
  const gint64 time = now_ns ();
  drone.put (time);
  VornMetadataProvider *provider = make ();
  std::atomic<int> good = 0;
  std::vector<std::thread> threads;
  threads.reserve (4);
  for (int i = 0; i < 4; i++)
    threads.emplace_back ([&] {
      for (int n = 0; n < 100; n++) {
        const auto drone_record = untimed (provider);
        VornTimedPhotoMetadata record = {};
        if (vorn_metadata_provider_get_timed_photo_meta (provider, static_cast<guint64> (time),
                                                         &record) &&
            record.latitude == 45.5 && record.longitude == -6.25 && drone_record->drone_yaw == 30)
          good++;
      }
    });
  for (std::thread &thread : threads)
    thread.join ();
  EXPECT_EQ (good, 400);
}

} // namespace
