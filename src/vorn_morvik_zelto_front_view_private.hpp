// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The front view's state and the operations that its source files share: pipelines, streaming,
// snapshots, thumbnails and events have one file each.
#ifndef VORN_MORVIK_ZELTO_FRONT_VIEW_PRIVATE_HPP
#define VORN_MORVIK_ZELTO_FRONT_VIEW_PRIVATE_HPP

#include <atomic>

#include "camera_imu.hpp"
#include "frame_postprocessor.hpp"
#include "vorn_morvik_zelto_front_view.hpp"
#include "vorn_tovrin_shdata_provider.hpp"
#include <vorn/raii.hpp>

/** Instance memory is zeroed, not constructed: C-like members only. */
struct _VornMorvikZeltoFrontView {
  VornGstView parent_instance;

  VornProduct *product;          // borrowed
  GstElement *main_pipeline;     // "front-streaming-pipeline"; owned reference
  GstElement *picture_pipeline;  // "front-picture-pipeline"; owned reference
  GstElement *main_tovrinfilter; // never filled
  GstElement *picture_tovrinfilter;
  CameraImu *camera_imu;
  VornTovrinShdataProvider *attitude_provider;
  GMutex lock; // with cond: the muxer's wait for its thumbnail
  GCond cond;
  GstElement *camera_source; // borrowed: the main pipeline's
  // The words below up to photo_count are written on the framework's thread and read on streaming
  // threads without a lock: go through load_relaxed and store_relaxed.
  guint32 mode_type;            // VornCameraModeType
  VornFormat camera_format;     // of frames to the encoders
  VornFormat photo_format_size; // of photos
  guint32 photo_file_format;
  guint32 photo_format;
  guint32 photo_mode;
  guint32 photo_count;
  gboolean thumbnail_requested; // a recording's cover is wanted; under thumbnail_lock
  GMutex thumbnail_lock;
  gulong picture_probe_id;
  gulong recording_probe_id;
  FramePostprocessor *recording_postprocessor;
  gulong streaming_probe_id;
  FramePostprocessor *streaming_postprocessor;
  gchar *video_device;
  GSList *taken_snapshots; // owned file names, in the order in which they were written
  gchar *location_pattern; // location of the photo group in progress
};

/** Reads a word that the framework's thread may be writing. */
inline guint32 load_relaxed (const guint32 &word)
{
  return std::atomic_ref (const_cast<guint32 &> (word)).load (std::memory_order_relaxed);
}

/** Writes a word that streaming threads may be reading. */
inline void store_relaxed (guint32 &word, guint32 value)
{
  std::atomic_ref (word).store (value, std::memory_order_relaxed);
}

VornFormat load_relaxed (const VornFormat &format);
void store_relaxed (VornFormat &format, const VornFormat &value);

/** Whether the simulator gives a real front picture ("ro.with-front-cam"); else a test pattern. Any
 * thread. */
bool with_front_cam ();

/** Whether the reduced pipeline is wanted ("ro.simple-front-cam"). Any thread. */
bool is_simple_front_cam ();

/** Clears a field and drops the reference that it held. */
template <typename T>
void drop (T *&field)
{
  vorn::adopt (std::exchange (field, nullptr));
}

// ---- Pipelines: vorn_morvik_zelto_front_view_pipelines.cpp
gboolean vorn_morvik_zelto_front_view_prepare (VornView *view);
gboolean vorn_morvik_zelto_front_view_unprepare (VornView *view);
gboolean vorn_morvik_zelto_front_view_make_branch (VornMorvikZeltoFrontView *view, guint32 kind,
                                                   GstElement *tee);
/** Makes the dewarping filter cut out what the camera's sensor captures, and ask the view for
 * attitudes. slot: where the view would keep the filter. */
void vorn_morvik_zelto_front_view_set_up_tovrinfilter (VornMorvikZeltoFrontView *view,
                                                       VornCamera *camera, GstElement *filter,
                                                       GstElement **slot);

// ---- vorn_morvik_zelto_front_view_main_pipeline.cpp
/** Fills the main pipeline up to the view's source pads; FALSE (logged), with the bin empty again,
 * when that fails. */
gboolean populate_main_pipeline (GstBin *bin, VornCamera *camera, VornMorvikZeltoFrontView *view);

// ---- vorn_morvik_zelto_front_view_picture_pipeline.cpp
/** Fills the picture pipeline; FALSE (logged), with the bin empty again, when that fails. */
gboolean populate_picture_pipeline (GstBin *bin, VornCamera *camera,
                                    VornMorvikZeltoFrontView *view);

// ---- Streaming and recording: vorn_morvik_zelto_front_view_streaming.cpp
/** Whether the camera's rate is a multiple of this one; both count in whole frames a second, cut
 * off. FALSE for a denominator of zero. */
gboolean vorn_morvik_zelto_front_view_check_framerate (VornMorvikZeltoFrontView *view,
                                                       guint32 numerator, guint32 denominator);
gboolean vorn_morvik_zelto_front_view_stream_setup (VornView *view, VornStreamSetup *setup);
gboolean vorn_morvik_zelto_front_view_stream_teardown (VornView *view, const gchar *reason);
gboolean vorn_morvik_zelto_front_view_stream_set_params (VornView *view,
                                                         const VornStreamParameters *parameters);
gboolean vorn_morvik_zelto_front_view_start_recording (VornView *view);
gboolean vorn_morvik_zelto_front_view_stop_recording (VornView *view, guint32 reason);
gboolean vorn_morvik_zelto_front_view_set_streaming_format (VornView *view,
                                                            const VornFormat *format);
gboolean vorn_morvik_zelto_front_view_set_recording_format (VornView *view,
                                                            const VornFormat *format);

// ---- Photo branch: vorn_morvik_zelto_front_view_photo_branch.cpp
/** Adds the photo branch to the picture pipeline, behind its tee. */
gboolean populate_picture_main_pipeline (GstBin *bin, GstElement *tee,
                                         VornMorvikZeltoFrontView *view, guint32 width,
                                         guint32 height);

// ---- Snapshots: vorn_morvik_zelto_front_view_snapshot.cpp
gboolean vorn_morvik_zelto_front_view_take_snapshot (VornView *view,
                                                     const VornSnapshotRequest *request);
gboolean vorn_morvik_zelto_front_view_set_snapshot_format (VornView *view, guint32 photo_mode,
                                                           guint32 photo_format,
                                                           guint32 photo_file_format, guint32 count,
                                                           guint64 *size);
/** Reports the pictures written so far. */
void vorn_morvik_zelto_front_view_snapshot_notify_taken (VornMorvikZeltoFrontView *view);
/** The names of the pictures written so far, for g_strfreev. */
gchar **vorn_morvik_zelto_front_view_get_taken_snapshots (VornMorvikZeltoFrontView *view);
/** Gives a frame that has no capture time one that says so. The buffer must be writable. */
void fill_fake_metadata (GstBuffer *buffer);

// ---- Thumbnails: vorn_morvik_zelto_front_view_thumbnail.cpp
/** Adds the thumbnail branch to the picture pipeline, behind its tee. */
gboolean populate_picture_thumbnail_pipeline (GstBin *bin, GstElement *tee,
                                              VornMorvikZeltoFrontView *view);
gboolean vorn_morvik_zelto_front_make_thumbnail (VornView *view);
/** Handler of the camera source's "new-frame", on its streaming thread. */
void on_new_frame_cb (GstElement *source, guint64 frame, VornMorvikZeltoFrontView *view);
/**
 * Waits until no cover is being made any more: to be called before thumbnail_lock is made anew. The
 * main pipeline must not stand between two states then. A cover takes its reference on the main
 * pipeline under thumbnail_lock, so the field is cleared under it too.
 */
void vorn_morvik_zelto_front_view_wait_for_covers ();

// ---- Messages and modes: vorn_morvik_zelto_front_view_events.cpp
gboolean vorn_morvik_zelto_front_view_handle_message (VornGstView *view, GstMessage *message);
gboolean vorn_morvik_zelto_front_view_update_camera_mode (VornView *view,
                                                          const VornCameraMode *mode);
gboolean vorn_morvik_zelto_front_view_set_activation (VornView *view, gboolean active);
gboolean vorn_morvik_zelto_front_view_set_camera_orientation (VornView *view,
                                                              const VornOrientation *orientation);

/** The framework's class, to which operations chain up. */
VornGstViewClass *vorn_morvik_zelto_front_view_get_parent_class ();

#endif
