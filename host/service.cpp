// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "service.hpp"

#include <filesystem>

#include <unistd.h>

#include "mode_argument.hpp"
#include "paths.hpp"
#include "run_addresses.hpp"
#include <vorn/frame_meta.h>
#include <vorn/framework.h>
#include <vorn/log.h>
#include <vorn/recording.h>
#include <vorn/utils.h>

VORN_LOG_TAG ("host");

namespace
{

constexpr guint8 front_camera_id = 0;
constexpr guint recordings_wait_ms = 2000;
constexpr gint64 recording_stop_us = 1'500'000;
constexpr gint64 recovery_wait_us = 500'000;

VornStreamSetup make_setup (VornGstView *view, const UdpTarget &udp)
{
  const VornViewCapabilities *can = vorn_view_get_capabilities (VORN_VIEW (view));
  VornStreamSetup setup = {};
  setup.client_address = udp.address_word;
  setup.client_port = udp.port;
  setup.format.resolution = can->default_streaming_resolution;
  setup.format.framerate = can->default_streaming_framerate;
  return setup;
}

} // namespace

Service::~Service ()
{
  stop ();
}

int Service::start (const Options &options, std::function<void ()> on_stop, std::string *error)
{
  if (!choose_instance (options.instance, &instance_, error) ||
      (!options.udp.empty () && !parse_udp_target (options.udp, &udp_, error)))
    return EXIT_USAGE;
  VornCameraMode mode;
  if (!options.mode.empty () && !parse_camera_mode (options.mode, &mode, error))
    return EXIT_USAGE;
  std::string config;
  if (!prepare_surroundings (options, &config, error) || !start_product (options, config, error))
    return EXIT_FAILED;
  control_ = std::make_unique<CameraControl> (loaded_.product.get (), camera_, VORN_VIEW (view_));
  if (!options.mode.empty ())
    if (const auto refusal = control_->set_mode (mode)) {
      *error = "--mode: " + refusal->message;
      return EXIT_FAILED;
    }
  return start_stream (error) && start_servers (options, std::move (on_stop), error) ? EXIT_OK
                                                                                     : EXIT_FAILED;
}

/** What must be so before the product is there. */
bool Service::prepare_surroundings (const Options &options, std::string *config, std::string *error)
{
  claim_ = InstanceClaim::make (instance_, error);
  if (!claim_)
    return false;
  choose_gl_window ();
  // The product's attitudes and telemetry belong to the same instance.
  g_setenv ("VORN_NAMESPACE", instance_.name.c_str (), TRUE);
  std::string no_simulator;
  if (!find_simulator (instance_, &no_simulator))
    VORN_LOG_WARNING ("%s; neither picture nor attitude comes before one is there and the host is "
                      "started again",
                      no_simulator.c_str ());
  vorn_framework_init (nullptr, nullptr);
  const std::string wanted =
      options.config.empty () ? find_configuration (options.full) : options.config;
  if (!resolve_cameras (wanted, instance_, claim_.get (), config, error))
    return false;

  if (!options.units.empty ()) {
    unit_log_ = UnitLog::open (options.units, error);
    if (!unit_log_) {
      *error = "--units: " + *error;
      return false;
    }
  }
  RtspOptions rtsp;
  rtsp.port = static_cast<guint16> (options.port);
  // Clients may come before the view is there.
  rtsp.request_key_frame = [this] {
    if (VornGstView *view = stream_view_)
      vorn_gst_view_request_key_frame (view);
  };
  rtsp_ = RtspServer::start (rtsp, error);
  if (!rtsp_)
    return false;
  rtsp_uri_ = rtsp_->uri ();
  if (!options.media.empty ())
    vorn_utils_set_media_folder (options.media.c_str ());
  recover_recordings ();
  return true;
}

void Service::recover_recordings ()
{
  recovered_ = std::make_shared<std::atomic<bool>> (false);
  using Ended = std::shared_ptr<std::atomic<bool>>;
  const auto thread = vorn::Owned<GThread, g_thread_unref> (g_thread_new (
      "recover",
      [] (gpointer data) -> gpointer {
        const std::unique_ptr<Ended> ended (static_cast<Ended *> (data));
        const vorn::OwnedString folder (vorn_utils_get_media_folder ());
        const guint count = vorn_recordings_recover (folder.get ());
        if (count > 0)
          VORN_LOG_INFO ("%u recordings of a former run were finished", count);
        **ended = true;
        return nullptr;
      },
      new Ended (recovered_)));
}

bool Service::recovery_ended (gint64 longest_us) const
{
  const gint64 end_us = g_get_monotonic_time () + longest_us;
  while (recovered_ && !*recovered_ && g_get_monotonic_time () < end_us)
    g_usleep (5000);
  return !recovered_ || *recovered_;
}

bool Service::start_product (const Options &options, const std::string &config, std::string *error)
{
  ProductSource source = {config, options.plugin, options.properties};
  if (options.simple || options.full)
    source.properties.insert (source.properties.begin (),
                              std::string ("ro.simple-front-cam=") + (options.simple ? "1" : "0"));
  if (!load_product (source, &loaded_, error))
    return false;
  VornProduct *product = loaded_.product.get ();
  if (!vorn_product_setup (product, loaded_.configuration.get ())) {
    *error = config + ": the product could not be set up";
    return false;
  }
  VornView *view = nullptr;
  if (!vorn_product_get_vcam_and_view (product, front_camera_id, &camera_, &view) ||
      !VORN_IS_GST_VIEW (view)) {
    *error = "the product has no front view";
    return false;
  }
  if (!vorn_view_is_prepared (view)) {
    *error = "the front view could not be prepared, the log tells why";
    return false;
  }
  view_ = VORN_GST_VIEW (view);
  return true;
}

bool Service::start_stream (std::string *error)
{
  const vorn::OwnedString media (vorn_utils_get_media_folder ());
  graphs_ = std::make_unique<PipelineGraphs> (media.get ());
  graphs_->watch_view (view_);
  stream_view_ = view_;
  unit_func_ = vorn_gst_view_add_stream_unit_func (view_, on_unit, this, nullptr);
  mode_handler_ =
      g_signal_connect (camera_, "mode-changed", G_CALLBACK (Service::on_mode_changed), this);
  // A photo mode may be one without a stream.
  if (!vorn_view_check_feature (VORN_VIEW (view_), VORN_VIEW_FEATURE_STREAMING)) {
    VORN_LOG_WARNING ("no stream in the mode '%s'",
                      camera_mode_argument (*vorn_virtual_camera_get_mode (camera_)).c_str ());
    return true;
  }
  VornStreamSetup setup = make_setup (view_, udp_);
  if (vorn_view_stream_setup (VORN_VIEW (view_), &setup))
    return true;
  *error = "the stream could not be set up, the log tells why";
  return false;
}

/** A mode that has a stream gets one. */
void Service::on_mode_changed (VornVirtualCamera *, gpointer self)
{
  auto *service = static_cast<Service *> (self);
  VornView *view = VORN_VIEW (service->view_);
  service->graphs_->watch_view (service->view_);
  if (vorn_view_is_streaming (view) || !vorn_view_check_feature (view, VORN_VIEW_FEATURE_STREAMING))
    return;
  VornStreamSetup setup = make_setup (service->view_, service->udp_);
  if (!vorn_view_stream_setup (view, &setup))
    VORN_LOG_ERROR ("the stream could not be set up in the new mode");
}

bool Service::start_servers (const Options &, std::function<void ()> on_stop, std::string *error)
{
  describe_stream ();
  ControlTarget target;
  target.camera = control_.get ();
  target.instance = instance_.name;
  target.rtsp_uri = rtsp_uri_;
  target.status = [this] { return status (); };
  target.stop = std::move (on_stop);
  control_server_ = ControlServer::start (instance_.control_socket (), std::move (target), error);
  return control_server_ != nullptr;
}

void Service::on_unit (VornGstView *, GstSample *unit, gpointer self)
{
  auto *service = static_cast<Service *> (self);
  const int64_t encoded_ns = vorn::AttitudeMonitor::monotonic_ns ();
  service->units_++;
  GstBuffer *buffer = gst_sample_get_buffer (unit);
  service->unit_bytes_ += gst_buffer_get_size (buffer);
  service->rtsp_->push (unit);
  const VornFrameMeta *meta = vorn_frame_meta_get (buffer);
  guint64 capture_ns = 0;
  const bool timed = meta && gst_structure_get_uint64 (
                                 meta->structure, VORN_FRAME_META_CAPTURE_TIMESTAMP, &capture_ns);
  const auto captured_ns = static_cast<gint64> (capture_ns);
  if (service->unit_log_)
    service->unit_log_->add (timed ? std::optional (captured_ns) : std::nullopt, encoded_ns,
                             gst_buffer_get_size (buffer));
  if (!timed)
    return;
  service->latency_ns_ += encoded_ns - captured_ns;
  service->timed_units_++;
  if (service->on_capture)
    service->on_capture (captured_ns);
}

void Service::record (std::function<void (const HostError &error)> on_refusal)
{
  control_->start_recording ([on_refusal = std::move (on_refusal)] (const Outcome &outcome) {
    if (outcome.error)
      on_refusal (*outcome.error);
    else
      VORN_LOG_INFO ("recording into %s",
                     outcome.files.empty () ? "?" : outcome.files.front ().c_str ());
  });
}

/** Until the file has its end, as long as there is time for it. */
void Service::stop_recording ()
{
  if (!vorn_view_is_recording (VORN_VIEW (view_)))
    return;
  bool ended = false;
  control_->stop_recording ([&ended] (const Outcome &outcome) {
    ended = true;
    if (outcome.error)
      VORN_LOG_WARNING ("%s", outcome.error->message.c_str ());
    else if (!outcome.files.empty ())
      VORN_LOG_INFO ("recorded %s", outcome.files.front ().c_str ());
  });
  const gint64 end_us = g_get_monotonic_time () + recording_stop_us;
  while (!ended && g_get_monotonic_time () < end_us)
    if (!g_main_context_iteration (nullptr, FALSE))
      g_usleep (5000);
}

bool Service::stop ()
{
  bool complete = true;
  if (view_) {
    stop_recording ();
    // Who waits is told before the line is cut.
    if (control_)
      control_->end ();
    control_server_.reset ();
    control_.reset ();
    if (mode_handler_)
      g_signal_handler_disconnect (camera_, mode_handler_);
    if (unit_func_)
      vorn_gst_view_remove_stream_unit_func (view_, unit_func_);
    vorn_view_stream_teardown (VORN_VIEW (view_), "the host ends");
    graphs_.reset ();
  }
  rtsp_.reset ();
  view_ = nullptr;
  if (loaded_.product) {
    vorn_product_stop (loaded_.product.get ());
    complete = vorn_recordings_wait (recordings_wait_ms);
    // The events of what was finished meanwhile.
    while (g_main_context_iteration (nullptr, FALSE)) {
    }
    loaded_.product.reset ();
  }
  complete &= recovery_ended (recovery_wait_us);
  claim_.reset ();
  return complete;
}

void Service::poll ()
{
  live_.poll ();
}

StreamSums Service::sums () const
{
  VornGstViewStatistics view = {};
  vorn_gst_view_get_statistics (view_, &view);
  return {
      view.stream_frames_in, units_,
      unit_bytes_,           view.stream_drops + view.recording_drops + rtsp_->statistics ().drops,
      latency_ns_,           timed_units_};
}

/** For the client of --udp; the description gets its parameter sets with the first picture. */
void Service::describe_stream ()
{
  const vorn::OwnedString text (vorn_gst_view_get_stream_description (view_));
  if (!text || stream_description_ == text.get ())
    return;
  stream_description_ = text.get ();
  std::string error;
  if (!claim_->publish ("front.sdp", stream_description_, &error))
    VORN_LOG_ERROR ("the stream's description cannot be written: %s", error.c_str ());
}

report::StatusSample Service::tick ()
{
  describe_stream ();
  graphs_->watch_view (view_);
  const int64_t now_ns = vorn::AttitudeMonitor::monotonic_ns ();
  const LiveValues &live = live_.tick (sums (), now_ns);
  report::StatusSample sample;
  sample.time_ns = now_ns;
  sample.mode = camera_mode_argument (*vorn_virtual_camera_get_mode (camera_));
  sample.fps_in = live.fps_in;
  sample.fps_out = live.fps_out;
  sample.bitrate_kbit_s = live.bits_per_second * 1e-3;
  sample.latency_ms = live.latency_ms;
  sample.attitudes_per_s = live.attitudes_per_second;
  sample.error_deg = live.error_rms_deg;
  sample.dropped = live.drops;
  return sample;
}

GVariant *Service::status () const
{
  GVariantBuilder builder;
  g_variant_builder_init (&builder, G_VARIANT_TYPE ("a{sv}"));
  const auto add = [&builder] (const char *name, GVariant *value) {
    g_variant_builder_add (&builder, "{sv}", name, value);
  };
  const auto text = [] (const std::string &value) { return g_variant_new_string (value.c_str ()); };
  VornView *view = VORN_VIEW (view_);
  add ("version", text (VORN_VERSION));
  add ("instance", text (instance_.name));
  add ("process", g_variant_new_int32 (getpid ()));
  add ("uptime_s",
       g_variant_new_double (static_cast<double> (g_get_monotonic_time () - start_us_) * 1e-6));
  add ("mode", text (camera_mode_argument (*vorn_virtual_camera_get_mode (camera_))));
  add ("streaming", g_variant_new_boolean (vorn_view_is_streaming (view)));
  add ("recording", g_variant_new_boolean (vorn_view_is_recording (view)));
  add ("taking_picture", g_variant_new_boolean (vorn_view_is_taking_picture (view)));
  const vorn::OwnedString file (vorn_gst_view_get_recording_location (view_));
  add ("recording_file", text (file ? file.get () : ""));
  const vorn::OwnedString picture (vorn_utils_get_picture_last_location ());
  add ("last_picture", text (picture ? picture.get () : ""));
  const vorn::OwnedString media (vorn_utils_get_media_folder ());
  add ("media_folder", text (media.get ()));

  const LiveValues &live = live_.values ();
  add ("fps_in", g_variant_new_double (live.fps_in));
  add ("fps_out", g_variant_new_double (live.fps_out));
  add ("bits_per_second", g_variant_new_double (live.bits_per_second));
  VornGstViewStatistics sums = {};
  vorn_gst_view_get_statistics (view_, &sums);
  add ("stream_frames", g_variant_new_uint64 (sums.stream_frames_out));
  add ("stream_drops", g_variant_new_uint64 (sums.stream_drops));
  add ("recording_frames", g_variant_new_uint64 (sums.recording_frames_out));
  add ("recording_drops", g_variant_new_uint64 (sums.recording_drops));
  // What is not known is left out.
  if (live.latency_ms)
    add ("latency_ms", g_variant_new_double (*live.latency_ms));
  if (live.attitudes_per_second)
    add ("attitudes_per_second", g_variant_new_double (*live.attitudes_per_second));
  if (live.error_rms_deg)
    add ("attitude_error_rms_deg", g_variant_new_double (*live.error_rms_deg));
  if (live.error_max_deg)
    add ("attitude_error_max_deg", g_variant_new_double (*live.error_max_deg));
  const RtspStatistics rtsp = rtsp_->statistics ();
  add ("rtsp_uri", text (rtsp_uri_));
  add ("rtsp_clients", g_variant_new_uint32 (rtsp.clients));
  add ("rtsp_drops", g_variant_new_uint64 (rtsp.drops));
  return g_variant_builder_end (&builder);
}
