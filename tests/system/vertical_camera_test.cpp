// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The product with a camera that looks down: real library, real bins, the test's camera.
#include "product_fixture.hpp"

#include <atomic>
#include <cerrno>
#include <cmath>

#include "drone_cameras.hpp"
#include "temp_dir.hpp"
#include "test_camera.hpp"
#include <vorn/frame_meta.h>
#include <vorn/telemetry.h>

namespace
{

using Texts = std::vector<std::string>;

constexpr CameraPlan down_camera = {"vertical", {64, 48}, {200, 1}, "test_camera"};
constexpr CameraPlan broken_camera = {"vertical", {64, 48}, {200, 1}, nullptr};

class VerticalCamera : public ProductFixture
{
protected:
  static void SetUpTestSuite () { prepare_test_camera (); }

  void SetUp () override
  {
    set_test_camera (live_frames);
    ProductFixture::SetUp ();
  }

  vorn::Ref<GstElement> pipeline () const
  {
    return vorn::adopt (vorn_product_get_pipeline_by_name (product_, "vertical-pipeline"));
  }

  /** Of the pipeline; borrowed. */
  GstElement *child (const char *name) const
  {
    return vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline ().get ()), name)).get ();
  }

  /** Switching keeps a reference on the tee and one on its pad: they are dropped here. */
  void drop_kept_references (unsigned switches) const
  {
    GstElement *tee = child ("vision-tee");
    const auto pad = vorn::adopt (gst_element_get_static_pad (tee, "sink"));
    for (; switches > 0; switches--) {
      gst_object_unref (tee);
      gst_object_unref (pad.get ());
    }
  }
};

TEST_F (VerticalCamera, AloneMakesAProduct)
{
  Configuration configuration ({down_camera});
  EXPECT_TRUE (vorn_product_setup (product_, configuration.get ()));
  EXPECT_EQ (vorn_product_get_virtual_cameras (product_), nullptr);
  EXPECT_EQ (vorn_product_get_active_cameras (product_), 0u);
  ASSERT_TRUE (pipeline ());
  EXPECT_FALSE (vorn_pipeline_is_run_by_view (pipeline ().get ()));
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR), Texts{});
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING), Texts{});

  // The framework plays it.
  const FrameCounter frames (child ("precise-home-bin"));
  EXPECT_TRUE (frames.wait_for (20));
  gint16 luma = 0;
  const VornTelemetryEntry entry = {"selmacdata.out_luma", VORN_TELEMETRY_INT16, 2, 1, &luma};
  const vorn::Owned<VornTelemetryConsumer, vorn_telemetry_consumer_destroy> consumer (
      vorn_telemetry_consumer_new ());
  ASSERT_EQ (vorn_telemetry_consumer_register (consumer.get (), &entry, 1), 0);
  ASSERT_EQ (vorn_telemetry_consumer_complete (consumer.get ()), 0);
  EXPECT_EQ (vorn_telemetry_consumer_get (consumer.get (), nullptr, VORN_TELEMETRY_LATEST), 0);
  EXPECT_EQ (luma, 512);

  const FrameCounter carpet (child ("magic-carpet-bin"));
  EXPECT_TRUE (vorn_product_set_magic_carpet_active (product_, TRUE));
  EXPECT_TRUE (carpet.wait_for (10));
  EXPECT_TRUE (vorn_product_set_magic_carpet_active (product_, FALSE));
  const auto tee = child ("vision-tee");
  EXPECT_TRUE (eventually ([&] { return tee->numsrcpads == 3; }));
  EXPECT_EQ (frames.gaps (), 0u);
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR), Texts{});
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING), Texts{});
  drop_kept_references (2);
}

TEST_F (VerticalCamera, RunsWithoutAnExposureRecord)
{
  // Somebody else has the section.
  const gint16 luma = 0;
  const vorn::Owned<VornTelemetryProducer, vorn_telemetry_producer_destroy> other (
      vorn_telemetry_producer_new ("selmacdata", 1, 1000));
  ASSERT_EQ (vorn_telemetry_producer_register (other.get (), "out_luma", VORN_TELEMETRY_INT16, 2, 1,
                                               &luma),
             0);
  ASSERT_EQ (vorn_telemetry_producer_complete (other.get ()), 0);
  Configuration configuration ({down_camera});
  EXPECT_TRUE (vorn_product_setup (product_, configuration.get ()));
  EXPECT_TRUE (log_.has ("failed to create selmacdata context", VORN_LOG_PRIORITY_ERROR));
  const FrameCounter frames (child ("condor-bin"));
  EXPECT_TRUE (frames.wait_for (20));
}

TEST_F (VerticalCamera, StandsBesideTheFrontCamera)
{
  Configuration configuration ({front_camera, down_camera});
  EXPECT_TRUE (vorn_product_setup (product_, configuration.get ()));
  EXPECT_NE (vorn_product_get_virtual_camera_by_name (product_, "front"), nullptr);
  EXPECT_EQ (vorn_product_get_active_cameras (product_), 1u);
  EXPECT_TRUE (pipeline ());
}

TEST_F (VerticalCamera, IsMadeWithoutAVideoDeviceForTheFrontCamera)
{
  Configuration configuration ({front_camera, down_camera}, false);
  EXPECT_TRUE (vorn_product_setup (product_, configuration.get ()));
  EXPECT_EQ (vorn_product_get_virtual_cameras (product_), nullptr);
  EXPECT_TRUE (pipeline ());
}

TEST_F (VerticalCamera, ThatCannotBeMadeLeavesTheResultAsItWas)
{
  for (const bool front : {false, true}) {
    SetUp ();
    log_.clear ();
    std::vector<CameraPlan> cameras = {broken_camera};
    if (front)
      cameras.push_back (front_camera);
    Configuration configuration (cameras);
    EXPECT_EQ (vorn_product_setup (product_, configuration.get ()), front);
    EXPECT_TRUE (log_.has ("failed to get camera video source", VORN_LOG_PRIORITY_ERROR));
    EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING),
               Texts{"failed to make vertical camera pipeline"});
    EXPECT_FALSE (pipeline ());
    owned_.reset ();
  }
}

TEST_F (VerticalCamera, MagicCarpetWithoutOneIsACallersMistake)
{
  const CriticalCapture glib;
  for (const bool active : {true, false})
    EXPECT_TRUE (vorn_product_set_magic_carpet_active (product_, active));
  EXPECT_TRUE (glib.has_assertion ("GST_IS_BIN (bin)"));
  EXPECT_EQ (glib.criticals ().size (), 2u);
  EXPECT_TRUE (log_.lines ().empty ());
}

TEST_F (VerticalCamera, OfTheNextProductMayBeTheSame)
{
  Configuration configuration ({down_camera});
  for (int i = 0; i < 2; i++) {
    ASSERT_TRUE (vorn_product_setup (product_, configuration.get ()));
    {
      const FrameCounter frames (child ("condor-bin"));
      EXPECT_TRUE (frames.wait_for (5));
    }
    EXPECT_FALSE (log_.has ("failed to link vertical pipeline"));
    owned_.reset ();
    SetUp ();
  }
}

// ---- With the simulator's camera

/** Looks, on the camera's thread, whether the newest exposure sample is that of each frame. */
class SampleCheck
{
public:
  explicit SampleCheck (GstElement *element)
      : consumer_ (vorn_telemetry_consumer_new ()),
        pad_ (vorn::adopt (gst_element_get_static_pad (element, "sink")))
  {
    const VornTelemetryEntry entry = {"selmacdata.out_luma", VORN_TELEMETRY_INT16, 2, 1, &luma_};
    EXPECT_EQ (vorn_telemetry_consumer_register (consumer_.get (), &entry, 1), 0);
    EXPECT_EQ (vorn_telemetry_consumer_complete (consumer_.get ()), 0);
    probe_ = gst_pad_add_probe (pad_.get (), GST_PAD_PROBE_TYPE_BUFFER, on_buffer, this, nullptr);
  }
  ~SampleCheck () { gst_pad_remove_probe (pad_.get (), probe_); }
  SampleCheck (const SampleCheck &) = delete;
  SampleCheck &operator= (const SampleCheck &) = delete;

  std::atomic<int> good = 0;
  std::atomic<int> bad = 0;

private:
  int at (guint64 time_ns, VornTelemetryMethod method)
  {
    const timespec time = {static_cast<time_t> (time_ns / 1'000'000'000),
                           static_cast<long> (time_ns % 1'000'000'000)};
    return vorn_telemetry_consumer_get (consumer_.get (), &time, method);
  }
  static GstPadProbeReturn on_buffer (GstPad *, GstPadProbeInfo *info, gpointer data)
  {
    auto *self = static_cast<SampleCheck *> (data);
    const VornFrameMeta *meta = vorn_frame_meta_get (GST_PAD_PROBE_INFO_BUFFER (info));
    guint64 capture_ns = 0;
    const bool exact = meta &&
                       gst_structure_get_uint64 (meta->structure, VORN_FRAME_META_CAPTURE_TIMESTAMP,
                                                 &capture_ns) &&
                       self->at (capture_ns, VORN_TELEMETRY_FIRST_NOT_BEFORE) == 0 &&
                       self->at (capture_ns + 1, VORN_TELEMETRY_FIRST_NOT_BEFORE) == -ENODATA;
    (exact ? self->good : self->bad)++;
    return GST_PAD_PROBE_OK;
  }

  gint16 luma_ = 0;
  vorn::Owned<VornTelemetryConsumer, vorn_telemetry_consumer_destroy> consumer_;
  vorn::Ref<GstPad> pad_;
  gulong probe_;
};

TEST_F (VerticalCamera, SeesTheGroundBelowTheSimulatedDrone)
{
  const TempDir dir;
  sim::Drone drone;
  drone.flight = sim::make_named_flight ("hover", 1);
  ASSERT_TRUE (drone.flight);
  timespec now;
  clock_gettime (CLOCK_MONOTONIC, &now);
  drone.start_ns = int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec - 5'000'000'000;
  sim::CameraOptions options;
  options.front.socket = "";
  std::string problem;
  const auto cameras =
      sim::DroneCameras::start (drone, options, sim::make_world (1), dir.path (), &problem);
  ASSERT_TRUE (cameras) << problem;

  const std::string device = "unix:" + dir.at ("down-camera.sock");
  Configuration configuration (
      {{"vertical", {640, 480}, {30, 1}, "kavrel_morviksrc", device.c_str ()}});
  ASSERT_TRUE (vorn_product_setup (product_, configuration.get ()));
  const SampleCheck samples (child ("vision-tee"));
  EXPECT_TRUE (vorn_product_set_magic_carpet_active (product_, TRUE));
  for (const char *bin :
       {"condor-bin", "precise-hovering-bin", "precise-home-bin", "magic-carpet-bin"}) {
    const FrameCounter frames (child (bin));
    EXPECT_TRUE (frames.wait_for (5)) << bin;
    EXPECT_TRUE (eventually ([&] {
      gdouble luma = 0;
      gdouble age_ms = 0;
      g_object_get (child (bin), "mean-luma", &luma, "frame-age", &age_ms, nullptr);
      // Land is neither black nor white, and frames come with the latency of a real camera.
      return luma > 20 && luma < 235 && age_ms > 10;
    })) << bin;
  }
  EXPECT_TRUE (vorn_product_set_magic_carpet_active (product_, FALSE));
  EXPECT_GT (samples.good, 10);
  EXPECT_EQ (samples.bad, 0);
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR), Texts{});
  drop_kept_references (2);
}

} // namespace
