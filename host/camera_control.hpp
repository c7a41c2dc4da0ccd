// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Lets one virtual camera and its view record, take pictures and change modes, and tells when it is
// done. Bound to the framework's thread.
#ifndef HOST_CAMERA_CONTROL_HPP
#define HOST_CAMERA_CONTROL_HPP

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host_error.hpp"
#include <vorn/product.h>
#include <vorn/raii.hpp>

/** How long the view may take to answer, milliseconds. */
struct ControlTimeouts {
  guint record_start = 10'000;
  guint record_stop = 120'000; // a long recording is rewritten when it ends
  guint snapshot = 20'000;     // each
};

struct PhotoRequest {
  guint32 grouping = VORN_PHOTO_GROUPING_SINGLE;
  guint16 count = 1;
  std::string panorama_type;
};

/** How an operation ended. */
struct Outcome {
  std::optional<HostError> error;
  std::vector<std::string> files;
};

using Done = std::function<void (const Outcome &)>;

class CameraControl
{
public:
  /** Both must outlive this. */
  CameraControl (VornProduct *product, VornVirtualCamera *camera, VornView *view,
                 ControlTimeouts timeouts = {});
  ~CameraControl ();
  CameraControl (const CameraControl &) = delete;
  CameraControl &operator= (const CameraControl &) = delete;

  /** Each calls done exactly once, at once when it is refused; files: those written. */
  void start_recording (Done done);
  void stop_recording (Done done);
  void take_photo (const PhotoRequest &request, Done done);

  /** Tells everybody who waits that the host ends. */
  void end ();

  std::optional<HostError> set_mode (const VornCameraMode &mode);
  std::optional<HostError> set_magic_carpet (bool active);
  /** Whether there is a vertical camera, as far as the product's configuration tells. */
  bool has_magic_carpet () const;

  VornVirtualCamera *camera () const { return camera_; }
  VornView *view () const { return view_; }
  /** Called with each event of the view, after it was dealt with. */
  std::function<void (guint event, const char *file, const GError *error)> on_record_event;
  std::function<void (guint event, const std::vector<std::string> &files, const GError *error)>
      on_snapshot_event;

private:
  /** What somebody waits for; at most one of a kind. */
  struct Waiting {
    enum class For { nothing, record_start, record_stop, photo };
    For what = For::nothing;
    Done done;
    guint timeout = 0;
    std::vector<std::string> files;
    PhotoRequest request;
    guint16 next = 0; // the photo of the group that comes next
  };

  std::optional<HostError> refusal (const char *what, guint32 feature) const;
  void wait (Waiting *waiting, Waiting::For what, guint timeout_ms, Done done);
  void finish (Waiting *waiting, std::optional<HostError> error);
  void shoot ();
  static void record_event (VornView *view, guint event, const gchar *file, const GError *error,
                            gpointer self);
  static void snapshot_event (VornView *view, guint event, gchar **files, const GError *error,
                              gpointer self);

  VornProduct *product_;
  VornVirtualCamera *camera_;
  VornView *view_;
  ControlTimeouts timeouts_;
  Waiting recording_;
  Waiting photo_;
  guint next_shot_ = 0;
  gulong record_handler_ = 0;
  gulong snapshot_handler_ = 0;
};

#endif
