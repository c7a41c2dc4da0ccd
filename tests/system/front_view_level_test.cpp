// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The simulator's hardest flight through the whole product: gyroscope, telemetry and camera on one
// side, the picture that goes to the encoders on the other.
#include "live_product.hpp"

#include <cmath>
#include <csignal>
#include <cstdlib>

#include "camera_clients.hpp"
#include "drone_cameras.hpp"
#include "iio_server.hpp"
#include "telemetry_publisher.hpp"

namespace
{

constexpr int width = 640;
constexpr int height = 360;

/** The brightness of a picture, 0 to 255. */
using Brightness = std::function<double (int x, int y)>;

/** The angle of the line between sky and ground, degrees; NaN when there is none. */
double horizon_angle_deg (const Brightness &at)
{
  double n = 0, sx = 0, sy = 0, sxx = 0, sxy = 0;
  for (int x = 0; x < width; x++)
    for (int y = 4; y + 4 < height; y++) {
      const double above = at (x, y - 3);
      const double below = at (x, y + 3);
      // The sun's edge is no horizon: it is brighter on both sides.
      if (above < 190 || below > 150)
        continue;
      double ground = 0;
      for (int dy = -3; dy <= 3; dy++)
        ground += (at (x, y + dy) - above) / (below - above);
      const double row = y + 4 - ground;
      n++;
      sx += x;
      sy += row;
      sxx += x * x;
      sxy += x * row;
      break;
    }
  return n < width / 2.0 ? NAN
                         : std::atan ((n * sxy - sx * sy) / (n * sxx - sx * sx)) / sim::degree;
}

class FrontViewLevel : public LiveProduct
{
protected:
  static void SetUpTestSuite ()
  {
    LiveProduct::SetUpTestSuite ();
    signal (SIGPIPE, SIG_IGN); // libiio sends without protection
  }

  void SetUp () override
  {
    LiveProduct::SetUp ();
    drone_.flight = sim::make_named_flight ("aggressive", 1);
    drone_.start_ns = sim::monotonic_ns () - 2'000'000'000;
    std::string error;
    publisher_ = sim::TelemetryPublisher::start (drone_, telemetry_, &error);
    ASSERT_TRUE (publisher_) << error;
    sim::CameraDescription description = small_camera ();
    description.sensor = {width, height, 1.3, live_rate.num, live_rate.den, 2'000'000, 0};
    description.world = sim::make_bare_world (1);
    const auto motion = sim::front_camera_motion (drone_);
    // Well above the ground, or hills would be the horizon.
    description.motion = [motion] (int64_t ns) {
      sim::CameraPose pose = motion (ns);
      pose.position_m[2] -= 60;
      return pose;
    };
    served_ = std::make_unique<ServedCamera> (description);
  }

  void TearDown () override
  {
    LiveProduct::TearDown ();
    unsetenv ("IIOD_REMOTE");
  }

  void start_gyroscope ()
  {
    std::string error;
    gyroscope_ =
        sim::IioServer::start (sim::make_camera_imu_source (drone_, {}, 1000, 0), {}, &error);
    ASSERT_TRUE (gyroscope_) << error;
    setenv ("IIOD_REMOTE", gyroscope_->uri ().c_str (), 1);
  }

  int unknown_attitudes () const
  {
    return log_.count ("failed to get attitude for tovrin", VORN_LOG_PRIORITY_WARNING);
  }

  void fly (double flown_s)
  {
    start ("unix:" + served_->path (), false, {width, height});
    const auto watch = [this] (const char *factory, GstPadProbeCallback callback) {
      const auto pad = vorn::adopt (
          gst_element_get_static_pad (find ("front-streaming-pipeline", factory), "sink"));
      gst_pad_add_probe (pad.get (), GST_PAD_PROBE_TYPE_BUFFER, callback, this, nullptr);
    };
    watch ("glupload", on_filmed);
    watch ("tee", on_shown);
    const int unknown_before = unknown_attitudes ();
    ASSERT_TRUE (stream ());
    const gint64 end = g_get_monotonic_time () + static_cast<gint64> (flown_s * 1e6);
    ASSERT_TRUE (run_until ([&] { return g_get_monotonic_time () >= end; }));
    ASSERT_TRUE (vorn_view_stream_teardown (view_, "landed"));
    printf ("%d frames with a horizon, filmed up to %.2f degrees, shown up to %.2f (%.2f at "
            "first), %d attitudes unknown\n",
            frames_, largest_filmed_deg_, largest_shown_deg_, first_shown_deg_,
            unknown_attitudes () - unknown_before);
  }

  static GstPadProbeReturn on_filmed (GstPad *, GstPadProbeInfo *info, gpointer data)
  {
    const vorn::BufferMap map (GST_PAD_PROBE_INFO_BUFFER (info), GST_MAP_READ);
    static_cast<FrontViewLevel *> (data)->filmed_deg_ = horizon_angle_deg ([&] (int x, int y) {
      const guint8 *p = map.data () + 4 * (y * width + x);
      return (p[0] + p[1] + p[2]) / 3.0;
    });
    return GST_PAD_PROBE_OK;
  }

  static GstPadProbeReturn on_shown (GstPad *, GstPadProbeInfo *info, gpointer data)
  {
    auto *self = static_cast<FrontViewLevel *> (data);
    const vorn::BufferMap map (GST_PAD_PROBE_INFO_BUFFER (info), GST_MAP_READ);
    const double shown_deg = horizon_angle_deg (
        [&] (int x, int y) { return (map.data ()[y * width + x] - 16) * 255.0 / 219; });
    // Without attitudes, at the start and on a machine that is late, the view cannot be level.
    const int unknown = self->unknown_attitudes ();
    if (std::exchange (self->unknown_, unknown) != unknown)
      self->settled_ = 0;
    else
      self->settled_++;
    if (std::isnan (self->filmed_deg_) || std::isnan (shown_deg) ||
        self->settled_ < self->frames_to_settle_)
      return GST_PAD_PROBE_OK;
    if (self->frames_++ == 0)
      self->first_shown_deg_ = std::abs (shown_deg);
    self->largest_filmed_deg_ = std::max (self->largest_filmed_deg_, std::abs (self->filmed_deg_));
    self->largest_shown_deg_ = std::max (self->largest_shown_deg_, std::abs (shown_deg));
    return GST_PAD_PROBE_OK;
  }

  /** How far the reference can be off: as old as the estimator and two blocks of samples make it,
   * while the drone turns as fast as it does. */
  double bound_deg () const
  {
    const double apart_s =
        static_cast<double> (telemetry_.estimator_delay_ns + sim::video_period_ns) * 1e-9 + 0.010;
    double fastest = 0;
    for (double t = 0; t < 70; t += 0.001)
      fastest = std::max (fastest, length (drone_.flight->at (t).rate_rad_s));
    constexpr double of_the_filter_deg = 0.2;
    return (fastest * apart_s + 6 * telemetry_.estimator_noise_rad) / sim::degree +
           of_the_filter_deg;
  }

  sim::Drone drone_;
  sim::TelemetryOptions telemetry_;
  std::unique_ptr<sim::TelemetryPublisher> publisher_;
  std::unique_ptr<sim::IioServer> gyroscope_;
  std::unique_ptr<ServedCamera> served_;
  // Of the streaming thread until the stream has ended.
  double filmed_deg_ = NAN;
  int frames_ = 0;
  double largest_filmed_deg_ = 0;
  double largest_shown_deg_ = 0;
  double first_shown_deg_ = 0;
  int unknown_ = 0;
  int settled_ = 0;
  int frames_to_settle_ = 12;
};

TEST_F (FrontViewLevel, TheHardestFlightComesOutLevel)
{
  start_gyroscope ();
  fly (soak () ? 60 : 9);
  EXPECT_GT (frames_, 10);
  EXPECT_GT (largest_filmed_deg_, 10);
  printf ("bound %.2f degrees\n", bound_deg ());
  EXPECT_LT (largest_shown_deg_, bound_deg ());
}

TEST_F (FrontViewLevel, WithoutAttitudesItDoesNot)
{
  frames_to_settle_ = 0;
  fly (5);
  EXPECT_GT (frames_, 5);
  EXPECT_GT (largest_shown_deg_, 2 * bound_deg ());
}

} // namespace
