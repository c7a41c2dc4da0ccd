/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * A view: one picture of a virtual camera, which can be streamed, recorded and photographed.
 * Products derive from it and fill the operations; clients and the framework call the functions
 * below, which check the state, call the operation and keep the states. Bound to the framework's
 * thread; the is_* predicates may be called from any.
 *
 * Calls with a NULL view fail with a critical; predicates answer FALSE then.
 */
#ifndef VORN_VIEW_H
#define VORN_VIEW_H

#include <glib-object.h>

#include <vorn/api.h>
#include <vorn/camera.h>
#include <vorn/modes.h>

VORN_BEGIN_DECLS

typedef struct _VornVirtualCamera VornVirtualCamera;

#define VORN_TYPE_VIEW (vorn_view_get_type ())
VORN_API G_DECLARE_DERIVABLE_TYPE (VornView, vorn_view, VORN, VIEW, GObject)

    /** How a stream is set up: eleven 32-bit words. */
    typedef struct {
  guint32 client_address; /**< IPv4, network byte order; 0: no client of its own (RTSP serves it) */
  guint32 client_port;
  VornFormat format;
  guint32 bitrate; /**< bit/s; 0: the preset's */
  guint32 reserved[2];
  guint32 live; /**< set by the view: the stream runs */
} VornStreamSetup;

/** What of a running stream may change; the third word is the bitrate. */
typedef struct {
  guint32 reserved[2];
  guint32 bitrate; /**< bit/s */
} VornStreamParameters;

/** Asks for a photo. */
typedef struct {
  guint32 photo_grouping;     /**< VornPhotoGroupingType */
  guint16 sequence_number;    /**< index within its group, 0 first */
  const gchar *panorama_type; /**< for panoramas only */
  guint16 shot_count;         /**< photos of the panorama */
} VornSnapshotRequest;

/** Four numbers of an orientation in the order w, x, y, z. */
typedef struct {
  gfloat w;
  gfloat x;
  gfloat y;
  gfloat z;
} VornOrientation;

/** Events of a recording. */
typedef enum {
  VORN_RECORD_EVENT_STARTED = 0,
  VORN_RECORD_EVENT_STOPPED = 1,
  VORN_RECORD_EVENT_PREPARED = 2,
  VORN_RECORD_EVENT_FAILED = 3,
} VornRecordEvent;

/** Events of a snapshot. */
typedef enum {
  VORN_SNAPSHOT_EVENT_TAKEN = 0,
  VORN_SNAPSHOT_EVENT_DONE = 1,
  VORN_SNAPSHOT_EVENT_FAILED = 2,
  VORN_SNAPSHOT_EVENT_STARTED = 3,
} VornSnapshotEvent;

/** What a product fills. An operation left NULL is one that the view does not have. */
struct _VornViewClass {
  GObjectClass parent_class;
  /** Names the interface under which the view's attitude is found; static. */
  const gchar *attitude_interface_key;

  gpointer reserved_0;
  gboolean (*stream_setup) (VornView *view, VornStreamSetup *setup);
  gpointer reserved_1[2];
  gboolean (*stream_teardown) (VornView *view, const gchar *reason);
  gboolean (*stream_set_params) (VornView *view, const VornStreamParameters *parameters);
  gboolean (*start_recording) (VornView *view);
  gboolean (*stop_recording) (VornView *view, guint32 reason);
  gboolean (*take_snapshot) (VornView *view, const VornSnapshotRequest *request);
  gpointer reserved_2[2];
  gboolean (*set_camera_orientation) (VornView *view, const VornOrientation *orientation);
  gboolean (*set_user_fov) (VornView *view, gdouble fov);
  gboolean (*set_anti_wobble) (VornView *view, gboolean active);
  gboolean (*make_thumbnail) (VornView *view);
  void (*blending_event) (VornView *view, guint32 event);
  gboolean (*set_streaming_format) (VornView *view, const VornFormat *format);
  gboolean (*set_recording_format) (VornView *view, const VornFormat *format);
  /** size: width in the low, height in the high 32 bits; may be NULL. */
  gboolean (*set_snapshot_format) (VornView *view, guint32 photo_mode, guint32 photo_format,
                                   guint32 photo_file_format, guint32 count, guint64 *size);
  gboolean (*prepare) (VornView *view);
  gboolean (*unprepare) (VornView *view);
  gboolean (*update_camera_mode) (VornView *view, const VornCameraMode *mode);
  gboolean (*set_activation) (VornView *view, gboolean active);

  gpointer reserved_3[8];
};

/** The "name" property; owned by the view. */
VORN_API const gchar *vorn_view_get_name (VornView *view);

/** The "display-name" property; owned by the view. */
VORN_API const gchar *vorn_view_get_display_name (VornView *view);

/** The virtual camera that the view was added to, or NULL; borrowed. */
VORN_API VornVirtualCamera *vorn_view_get_parent (VornView *view);

/** Adds a camera whose pictures the view shows; the view takes a reference of its own. */
VORN_API gboolean vorn_view_add_camera (VornView *view, VornCamera *camera);

/** The cameras in the order in which they were added; list and cameras belong to the view. */
VORN_API GList *vorn_view_get_cameras (VornView *view);

/**
 * Builds what the view needs to run, then applies its virtual camera's mode. TRUE at once when it
 * is prepared already. A view that failed to prepare stays unprepared.
 */
VORN_API gboolean vorn_view_prepare (VornView *view);

/** Ends stream and recording and takes down what prepare has built. TRUE at once when there is
 * nothing. */
VORN_API gboolean vorn_view_unprepare (VornView *view);

/** TRUE between a successful prepare and unprepare. */
VORN_API gboolean vorn_view_is_prepared (VornView *view);

/** TRUE from a snapshot's start to its end (done or failed). */
VORN_API gboolean vorn_view_is_taking_picture (VornView *view);

/** TRUE while a recording runs. */
VORN_API gboolean vorn_view_is_recording (VornView *view);

/** TRUE between stream_setup and stream_teardown. */
VORN_API gboolean vorn_view_is_streaming (VornView *view);

/** Copies what the view can do from now on. Called by the view's update_camera_mode. */
VORN_API void vorn_view_set_capabilities (VornView *view, const VornViewCapabilities *capabilities);

/** What the view can do; all zero before the first mode. Owned by the view. */
VORN_API const VornViewCapabilities *vorn_view_get_capabilities (VornView *view);

/** TRUE when the current mode has all these VornViewFeature bits. */
VORN_API gboolean vorn_view_check_feature (VornView *view, guint32 features);

/**
 * Applies a camera mode, and after it, where the view has the feature, the recording format or the
 * snapshot settings that the mode itself names. Refused while the view records or takes a picture.
 */
VORN_API gboolean vorn_view_update_camera_mode (VornView *view, const VornCameraMode *mode);

/**
 * Operations. All are refused (FALSE and a warning) on a view that is not prepared, that lacks the
 * operation, whose mode lacks the feature, or whose state forbids it; a format with a zero word is
 * refused too, and so is any format change while the view records or takes a picture. Stopping what
 * is idle returns TRUE.
 */
VORN_API gboolean vorn_view_stream_setup (VornView *view, VornStreamSetup *setup);
VORN_API gboolean vorn_view_stream_teardown (VornView *view, const gchar *reason);
VORN_API gboolean vorn_view_stream_set_params (VornView *view,
                                               const VornStreamParameters *parameters);
VORN_API gboolean vorn_view_start_recording (VornView *view);
VORN_API gboolean vorn_view_stop_recording (VornView *view, guint32 reason);
VORN_API gboolean vorn_view_take_snapshot (VornView *view, const VornSnapshotRequest *request);
VORN_API gboolean vorn_view_make_thumbnail (VornView *view);
VORN_API gboolean vorn_view_set_streaming_format (VornView *view, const VornFormat *format);
VORN_API gboolean vorn_view_set_recording_format (VornView *view, const VornFormat *format);
VORN_API gboolean vorn_view_set_snapshot_format (VornView *view, guint32 photo_mode,
                                                 guint32 photo_format, guint32 photo_file_format,
                                                 guint32 count);
VORN_API gboolean vorn_view_set_camera_orientation (VornView *view,
                                                    const VornOrientation *orientation);
VORN_API gboolean vorn_view_set_activation (VornView *view, gboolean active);

/**
 * Reports an event of a recording: emits "record-event" (event, filename or NULL, error or NULL)
 * and keeps the state. The three numbers are the view's to give a meaning; 0 where it has none.
 */
VORN_API void vorn_view_notify_record_event (VornView *view, guint32 event, const gchar *filename,
                                             const GError *error, guint64 size, guint64 duration);

/**
 * Reports an event of a snapshot: emits "snapshot-event" (event, NULL-terminated file names or
 * NULL, error or NULL); VORN_SNAPSHOT_EVENT_DONE and _FAILED end the snapshot.
 */
VORN_API void vorn_view_notify_snapshot_event (VornView *view, guint32 event, gchar **files,
                                               const GError *error);

VORN_END_DECLS

#endif
