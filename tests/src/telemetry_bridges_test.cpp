// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <cerrno>
#include <cmath>
#include <numbers>

#include <gtest/gtest.h>

#include "clock_time.hpp"
#include "dewarper_eis.hpp"
#include "log_capture.hpp"
#include "own_namespace.hpp"
#include "selmac_info.hpp"
#include "telemetry_variable.hpp"
#include "trel_metadata.hpp"
#include <vorn/raii.hpp>

namespace
{

using Producer = vorn::Owned<VornTelemetryProducer, vorn_telemetry_producer_destroy>;
using Consumer = vorn::Owned<VornTelemetryConsumer, vorn_telemetry_consumer_destroy>;

constexpr guint64 ms = 1000000;

/** What a drone says of its camera. */
struct CameraController {
  gfloat q_w = 0.5f;
  gfloat q_x = -0.5f;
  gfloat q_y = 0.25f;
  gfloat q_z = 0.75f;
  gfloat hfov = 1.2f;

  CameraController () : producer_ (vorn_telemetry_producer_new ("camera_controller", 100, 10000))
  {
    auto *producer = producer_.get ();
    EXPECT_EQ (telemetry_register (producer, "video_ref_ned_start_q_w", q_w), 0);
    EXPECT_EQ (telemetry_register (producer, "video_ref_ned_start_q_x", q_x), 0);
    EXPECT_EQ (telemetry_register (producer, "video_ref_ned_start_q_y", q_y), 0);
    EXPECT_EQ (telemetry_register (producer, "video_ref_ned_start_q_z", q_z), 0);
    EXPECT_EQ (telemetry_register (producer, "hfov", hfov), 0);
    EXPECT_EQ (vorn_telemetry_producer_complete (producer), 0);
  }
  void put (guint64 time_ns) const
  {
    const timespec time = timespec_of (time_ns);
    EXPECT_EQ (vorn_telemetry_producer_put (producer_.get (), &time), 0);
  }

private:
  Producer producer_;
};

struct ZoomController {
  gfloat hfov = 1.2f;
  gfloat vfov = 0.7f;

  ZoomController () : producer_ (vorn_telemetry_producer_new ("camera_zoom_controller", 100, 10000))
  {
    EXPECT_EQ (telemetry_register (producer_.get (), "hfov", hfov), 0);
    EXPECT_EQ (telemetry_register (producer_.get (), "vfov", vfov), 0);
    EXPECT_EQ (vorn_telemetry_producer_complete (producer_.get ()), 0);
  }
  void put (guint64 time_ns) const
  {
    const timespec time = timespec_of (time_ns);
    EXPECT_EQ (vorn_telemetry_producer_put (producer_.get (), &time), 0);
  }

private:
  Producer producer_;
};

/** Reads variables of one section back. */
class Watch
{
public:
  explicit Watch (const std::vector<VornTelemetryEntry> &entries)
      : consumer_ (vorn_telemetry_consumer_new ())
  {
    EXPECT_EQ (
        vorn_telemetry_consumer_register (consumer_.get (), entries.data (), entries.size ()), 0);
    EXPECT_EQ (vorn_telemetry_consumer_complete (consumer_.get ()), 0);
  }
  int latest ()
  {
    return vorn_telemetry_consumer_get (consumer_.get (), nullptr, VORN_TELEMETRY_LATEST);
  }
  int at (guint64 time_ns)
  {
    const timespec time = timespec_of (time_ns);
    return vorn_telemetry_consumer_get (consumer_.get (), &time, VORN_TELEMETRY_VALID_AT);
  }

private:
  Consumer consumer_;
};

std::string no_sample_text ()
{
  return std::string ("failed to get tlm sample: ") + g_strerror (ENOENT) + " (" +
         std::to_string (-ENOENT) + ")";
}

class Bridges : public testing::Test
{
protected:
  ~Bridges () override
  {
    dewarper_eis_free ();
    trel_metadata_free ();
  }
  OwnNamespace name_space_;
  LogCapture log_;
};

} // namespace

TEST_F (Bridges, EisPublishesTheAttitudeOfTheFramesTimeAndItsAnglesInDegrees)
{
  CameraController camera;
  ZoomController zoom;
  ASSERT_TRUE (dewarper_eis_initialize ());
  camera.put (100 * ms);
  zoom.put (100 * ms);
  camera.q_w = 1.0f; // valid from 200 ms on
  camera.put (200 * ms);
  zoom.put (200 * ms);

  ASSERT_TRUE (dewarper_eis_push_tlm_video (150 * ms));
  gfloat q[4];
  gfloat hfov = 0;
  gfloat vfov = 0;
  Watch watch ({telemetry_entry ("eis_video.clipped_view_in_ned_start_q_w", q[0]),
                telemetry_entry ("eis_video.clipped_view_in_ned_start_q_x", q[1]),
                telemetry_entry ("eis_video.clipped_view_in_ned_start_q_y", q[2]),
                telemetry_entry ("eis_video.clipped_view_in_ned_start_q_z", q[3]),
                telemetry_entry ("eis_video.clipped_hfov", hfov),
                telemetry_entry ("eis_video.clipped_vfov", vfov)});
  ASSERT_EQ (watch.at (150 * ms), 0);
  EXPECT_EQ (watch.at (149 * ms), -ENOENT) << "the sample has the frame's time";
  EXPECT_EQ (q[0], 0.5f);
  EXPECT_EQ (q[1], -0.5f);
  EXPECT_EQ (q[2], 0.25f);
  EXPECT_EQ (q[3], 0.75f);
  EXPECT_NEAR (hfov, 68.7549f, 1e-4);
  EXPECT_NEAR (vfov, 0.7 * 180.0 / std::numbers::pi, 1e-4);

  ASSERT_TRUE (dewarper_eis_push_tlm_video (201 * ms));
  ASSERT_EQ (watch.latest (), 0);
  EXPECT_EQ (q[0], 1.0f);
  EXPECT_NEAR (hfov, 68.7549f, 1e-4) << "converted once, not twice";
}

TEST_F (Bridges, EisLogsEveryFrameBeforeTheCameraControllerSpeaks)
{
  ASSERT_TRUE (dewarper_eis_initialize ());
  EXPECT_FALSE (dewarper_eis_push_tlm_video (1 * ms));
  EXPECT_FALSE (dewarper_eis_push_tlm_video (2 * ms));
  EXPECT_EQ (log_.count (no_sample_text (), 3), 2);
  gfloat hfov = 0;
  Watch watch ({telemetry_entry ("eis_video.clipped_hfov", hfov)});
  EXPECT_EQ (watch.latest (), -ENOENT);
}

TEST_F (Bridges, EisWithoutProducerLogsThatNothingCanBePut)
{
  CameraController camera;
  ZoomController zoom;
  const Producer other (vorn_telemetry_producer_new ("eis_video", 1, 1000));
  gfloat variable = 0;
  ASSERT_EQ (telemetry_register (other.get (), "x", variable), 0);
  ASSERT_EQ (vorn_telemetry_producer_complete (other.get ()), 0);

  EXPECT_TRUE (dewarper_eis_initialize ()) << "TRUE in every case";
  EXPECT_TRUE (log_.has ("failed to register eis_video", 3));
  camera.put (1 * ms);
  zoom.put (1 * ms);
  EXPECT_FALSE (dewarper_eis_push_tlm_video (1 * ms));
  EXPECT_TRUE (log_.has (std::string ("failed to put tlm sample: ") + g_strerror (EINVAL) + " (" +
                             std::to_string (-EINVAL) + ")",
                         3));
}

TEST_F (Bridges, EisSetUpTwiceAndFreedTwice)
{
  EXPECT_TRUE (dewarper_eis_initialize ());
  EXPECT_TRUE (dewarper_eis_initialize ()) << "the former's section must be gone";
  EXPECT_FALSE (log_.has ("failed to register eis_video"));
  EXPECT_TRUE (dewarper_eis_free ());
  EXPECT_TRUE (dewarper_eis_free ());
  EXPECT_FALSE (dewarper_eis_push_tlm_video (1 * ms)) << "no consumer any more";
}

TEST_F (Bridges, PhotoMetadataCarriesTheViewAndZerosForWhatTheCameraLacks)
{
  CameraController camera;
  trel_metadata_initialize ();
  camera.put (10 * ms);
  ASSERT_TRUE (trel_metadata_photo_update (12 * ms));

  gint32 i32[5];
  gint16 i16[8];
  gfloat f32[7];
  gdouble exposure_bias = 1;
  for (auto &value : i32)
    value = 1;
  for (auto &value : i16)
    value = 1;
  Watch watch ({telemetry_entry ("photo_metadata.exposure_time_num", i32[0]),
                telemetry_entry ("photo_metadata.exposure_time_den", i32[1]),
                telemetry_entry ("photo_metadata.exposure_program", i16[0]),
                telemetry_entry ("photo_metadata.photographic_sensitivity", i32[2]),
                telemetry_entry ("photo_metadata.exposure_bias_value", exposure_bias),
                telemetry_entry ("photo_metadata.metering_mode", i16[1]),
                telemetry_entry ("photo_metadata.light_source", i16[2]),
                telemetry_entry ("photo_metadata.pixel_x_dimension", i32[3]),
                telemetry_entry ("photo_metadata.pixel_y_dimension", i32[4]),
                telemetry_entry ("photo_metadata.exposure_mode", i16[3]),
                telemetry_entry ("photo_metadata.white_balance", i16[4]),
                telemetry_entry ("photo_metadata.digital_zoom_ratio", f32[0]),
                telemetry_entry ("photo_metadata.focal_length_in_35mm_film", f32[1]),
                telemetry_entry ("photo_metadata.contrast", i16[5]),
                telemetry_entry ("photo_metadata.saturation", i16[6]),
                telemetry_entry ("photo_metadata.sharpness", i16[7]),
                telemetry_entry ("photo_metadata.hfov_deg", f32[2]),
                telemetry_entry ("photo_metadata.view_ned_start_q_w", f32[3]),
                telemetry_entry ("photo_metadata.view_ned_start_q_x", f32[4]),
                telemetry_entry ("photo_metadata.view_ned_start_q_y", f32[5]),
                telemetry_entry ("photo_metadata.view_ned_start_q_z", f32[6])});
  ASSERT_EQ (watch.at (12 * ms), 0);
  EXPECT_EQ (watch.at (11 * ms), -ENOENT) << "the sample has the capture time";
  for (const gint32 value : i32)
    EXPECT_EQ (value, 0);
  for (const gint16 value : i16)
    EXPECT_EQ (value, 0);
  EXPECT_EQ (exposure_bias, 0.0);
  EXPECT_EQ (f32[0], 0.0f);
  EXPECT_EQ (f32[1], 0.0f);
  EXPECT_EQ (f32[2], 1.2f) << "the field of view is passed on as it comes";
  EXPECT_EQ (f32[3], 0.5f);
  EXPECT_EQ (f32[4], -0.5f);
  EXPECT_EQ (f32[5], 0.25f);
  EXPECT_EQ (f32[6], 0.75f);
}

TEST_F (Bridges, PhotoBeforeTheCameraControllerSpeaksPublishesNothing)
{
  trel_metadata_initialize ();
  EXPECT_FALSE (trel_metadata_photo_update (1 * ms));
  EXPECT_TRUE (log_.has (no_sample_text (), 3));
  gfloat hfov = 0;
  Watch watch ({telemetry_entry ("photo_metadata.hfov_deg", hfov)});
  EXPECT_EQ (watch.latest (), -ENOENT);
}

TEST_F (Bridges, PhotoWithoutConsumerOrProducerSaysWhichIsMissing)
{
  EXPECT_FALSE (trel_metadata_photo_update (1 * ms));
  EXPECT_TRUE (log_.has ("no camera controller consumer", 3));

  const Producer other (vorn_telemetry_producer_new ("photo_metadata", 1, 1000));
  gfloat variable = 0;
  ASSERT_EQ (telemetry_register (other.get (), "x", variable), 0);
  ASSERT_EQ (vorn_telemetry_producer_complete (other.get ()), 0);
  trel_metadata_initialize ();
  EXPECT_TRUE (log_.has ("failed to register photo_metadata", 3));
  EXPECT_FALSE (trel_metadata_photo_update (1 * ms));
  EXPECT_TRUE (log_.has ("no tlm photo producer", 3));
}

TEST_F (Bridges, PhotoMetadataSetUpTwice)
{
  trel_metadata_initialize ();
  trel_metadata_initialize ();
  EXPECT_FALSE (log_.has ("failed to register photo_metadata"));
}

TEST_F (Bridges, ExposureIsAlwaysTheSame)
{
  SelmacData *record = selmacdata_new ();
  ASSERT_NE (record, nullptr);
  gfloat in_expo_ms = 1;
  gfloat in_a_gain = 1;
  guint16 out_luma = 0;
  Watch watch ({telemetry_entry ("selmacdata.in_expo_ms", in_expo_ms),
                telemetry_entry ("selmacdata.out_luma", out_luma),
                telemetry_entry ("selmacdata.in_a_gain", in_a_gain)});
  for (const guint64 time_ns : {5 * ms, 22 * ms}) {
    ASSERT_EQ (selmacdata_update (record, time_ns), 0);
    ASSERT_EQ (watch.at (time_ns), 0);
    EXPECT_EQ (in_expo_ms, 0.0f);
    EXPECT_EQ (in_a_gain, 0.0f);
    EXPECT_EQ (out_luma, 512);
  }
  EXPECT_EQ (watch.at (4 * ms), -ENOENT);
  EXPECT_EQ (selmacdata_free (record), 0);
  EXPECT_EQ (watch.latest (), -ENOENT) << "withdrawn with the record";
}

TEST_F (Bridges, ExposureRecordRefusals)
{
  EXPECT_EQ (selmacdata_update (nullptr, 1), -1);
  EXPECT_EQ (selmacdata_free (nullptr), -1);
  EXPECT_TRUE (log_.has ("invalid argument", 3));

  SelmacData *first = selmacdata_new ();
  ASSERT_NE (first, nullptr);
  EXPECT_EQ (selmacdata_new (), nullptr) << "the section has its producer";
  EXPECT_TRUE (log_.has ("failed to register selmacdata", 3));
  EXPECT_EQ (selmacdata_free (first), 0);
}
