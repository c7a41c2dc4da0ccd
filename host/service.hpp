// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The running host: a product with its front view streaming, and those who watch and drive it.
#ifndef HOST_SERVICE_HPP
#define HOST_SERVICE_HPP

#include <atomic>
#include <functional>
#include <memory>
#include <string>

#include "camera_control.hpp"
#include "control_server.hpp"
#include "instance_claim.hpp"
#include "live_status.hpp"
#include "options.hpp"
#include "pipeline_graphs.hpp"
#include "product_loader.hpp"
#include "report/record.hpp"
#include "rtsp_server.hpp"
#include "udp_target.hpp"
#include "unit_log.hpp"
#include <vorn/gst_view.h>

/** Bound to the framework's thread. */
class Service
{
public:
  Service () = default;
  ~Service ();
  Service (const Service &) = delete;
  Service &operator= (const Service &) = delete;

  /**
   * Starts everything. on_stop: called when a client asks for the end. An ExitStatus, with the
   * reason when it is not EXIT_OK; what was started then goes with the service.
   */
  int start (const Options &options, std::function<void ()> on_stop, std::string *error);

  /** Finishes a recording and takes all down; true when nothing was left to the next run. */
  bool stop ();

  /** To be called a few times a second. */
  void poll ();
  /** Ends a second of the status. */
  report::StatusSample tick ();
  /** Gets the capture time of each unit of the stream; set before start, on a streaming thread. */
  std::function<void (int64_t capture_ns)> on_capture;

  /** Starts a recording; told of a refusal. */
  void record (std::function<void (const HostError &error)> on_refusal);
  const std::string &rtsp_uri () const { return rtsp_uri_; }
  const Instance &instance () const { return instance_; }
  /** After start. */
  CameraControl *control () const { return control_.get (); }
  VornView *view () const { return VORN_VIEW (view_); }

private:
  bool prepare_surroundings (const Options &options, std::string *config, std::string *error);
  bool start_product (const Options &options, const std::string &config, std::string *error);
  bool start_stream (std::string *error);
  bool start_servers (const Options &options, std::function<void ()> on_stop, std::string *error);
  void describe_stream ();
  void recover_recordings ();
  bool recovery_ended (gint64 longest_us) const;
  void stop_recording ();
  StreamSums sums () const;
  GVariant *status () const;
  static void on_unit (VornGstView *view, GstSample *unit, gpointer self);
  static void on_mode_changed (VornVirtualCamera *camera, gpointer self);

  Instance instance_;
  std::unique_ptr<InstanceClaim> claim_;
  UdpTarget udp_;
  std::string stream_description_; // what front.sdp has
  std::string rtsp_uri_;
  std::unique_ptr<UnitLog> unit_log_; // written by the streaming thread; none: not asked for
  std::unique_ptr<RtspServer> rtsp_;
  LoadedProduct loaded_;
  VornVirtualCamera *camera_ = nullptr; // of the product
  VornGstView *view_ = nullptr;         // of the camera
  std::unique_ptr<PipelineGraphs> graphs_;
  std::unique_ptr<CameraControl> control_;
  std::unique_ptr<ControlServer> control_server_;
  LiveStatus live_;
  std::atomic<VornGstView *> stream_view_ = nullptr; // the same, for the threads of clients
  guint unit_func_ = 0;
  gulong mode_handler_ = 0;
  std::atomic<guint64> units_ = 0;
  std::atomic<guint64> unit_bytes_ = 0;
  std::atomic<gint64> latency_ns_ = 0;
  std::atomic<guint64> timed_units_ = 0;
  std::shared_ptr<std::atomic<bool>> recovered_;
  gint64 start_us_ = g_get_monotonic_time ();
};

#endif
