/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * A virtual camera: what clients see as one camera. It describes its capabilities, has a mode,
 * exposure and picture settings, and carries views. Products derive from it and fill the
 * operations. Properties: "name", "display-name", "schema-id" (strings, set at construction).
 * Signal "mode-changed" after a mode was applied; "hdr-changed" (state, availability) whenever
 * either was set. Bound to the framework's thread.
 */
#ifndef VORN_VIRTUAL_CAMERA_H
#define VORN_VIRTUAL_CAMERA_H

#include <glib-object.h>

#include <vorn/api.h>
#include <vorn/exposure.h>
#include <vorn/metadata_provider.h>
#include <vorn/modes.h>
#include <vorn/view.h>

VORN_BEGIN_DECLS

#define VORN_TYPE_VIRTUAL_CAMERA (vorn_virtual_camera_get_type ())
VORN_API G_DECLARE_DERIVABLE_TYPE (VornVirtualCamera, vorn_virtual_camera, VORN, VIRTUAL_CAMERA,
                                   GObject)

    /** Fine settings of the picture style, -100 to 100. */
    typedef struct {
  gint32 saturation;
  gint32 contrast;
  gint32 sharpness;
} VornImageStyleParams;

/** What a product fills. Records returned belong to the camera; outs may be NULL. */
struct _VornVirtualCameraClass {
  GObjectClass parent_class;

  const VornCameraCapabilities *(*get_capabilities) (VornVirtualCamera *camera);
  const VornRecordingCapability *(*get_recording_capabilities) (VornVirtualCamera *camera,
                                                                guint32 *count);
  const VornPhotoCapability *(*get_photo_capabilities) (VornVirtualCamera *camera, guint32 *count);
  const VornDefaultState *(*get_default_state) (VornVirtualCamera *camera);
  const VornDefaultPhotoMode *(*get_default_photo_mode) (VornVirtualCamera *camera);
  gboolean (*set_mode) (VornVirtualCamera *camera, const VornCameraMode *mode);
  gboolean (*get_exposure) (VornVirtualCamera *camera, guint32 *mode, guint64 *shutter_speed_ns,
                            gdouble *iso, gdouble *iso_max, guint32 *lock,
                            VornExposureRegion *region, VornExposureCapabilities *capabilities);
  gboolean (*set_exposure) (VornVirtualCamera *camera, const VornExposureSettings *settings);
  gboolean (*get_wb) (VornVirtualCamera *camera, guint32 *mode, guint32 *temperature);
  gboolean (*set_wb) (VornVirtualCamera *camera, guint32 mode, guint32 temperature);
  gboolean (*get_ev_compensation) (VornVirtualCamera *camera, gdouble *ev);
  gboolean (*set_ev_compensation) (VornVirtualCamera *camera, gdouble ev);
  gboolean (*set_antiflicker_mode) (VornVirtualCamera *camera, guint32 mode);
  gboolean (*set_image_style) (VornVirtualCamera *camera, guint32 style);
  gboolean (*set_image_style_params) (VornVirtualCamera *camera,
                                      const VornImageStyleParams *parameters);
  gboolean (*set_activation_state) (VornVirtualCamera *camera, gboolean active);
  const VornAlignmentOffsetsCapabilities *(*get_alignment_offsets_capabilities) (
      VornVirtualCamera *camera);
  const VornAlignmentOffsets *(*get_alignment_offsets) (VornVirtualCamera *camera);

  gpointer reserved[8];
};

/** The "name" property; owned by the camera. */
VORN_API const gchar *vorn_virtual_camera_get_name (VornVirtualCamera *camera);

/** Adds a view and takes over the caller's reference. FALSE (and the reference dropped) when it has
 * one. */
VORN_API gboolean vorn_virtual_camera_add_view (VornVirtualCamera *camera, VornView *view);

/** What tells the metadata of the camera's photos; borrowed, as long as the camera lives.
 * Thread-safe. */
VORN_API VornMetadataProvider *vorn_virtual_cam_get_pmd (VornVirtualCamera *camera);

/** The view added first, or NULL; borrowed. */
VORN_API VornView *vorn_virtual_camera_get_first_view (VornVirtualCamera *camera);

/** The view of this name, or NULL; borrowed. */
VORN_API VornView *vorn_virtual_camera_get_view_by_name (VornVirtualCamera *camera,
                                                         const gchar *name);

/** All views in the order in which they were added; list and views belong to the camera. */
VORN_API GList *vorn_virtual_camera_get_views (VornVirtualCamera *camera);

/**
 * Applies a mode: checks it against the camera's tables, works out whether HDR is available in it,
 * tells the product and then every prepared view. FALSE, with a warning and the former mode kept,
 * for a mode that is not in the tables, has a zero framerate word or photo count, or while a view
 * records or takes a picture.
 */
VORN_API gboolean vorn_virtual_camera_set_mode (VornVirtualCamera *camera,
                                                const VornCameraMode *mode);

/** The mode in force, all zero before the first; owned by the camera. */
VORN_API const VornCameraMode *vorn_virtual_camera_get_mode (VornVirtualCamera *camera);

/** TRUE once a mode was applied. */
VORN_API gboolean vorn_virtual_camera_has_mode (VornVirtualCamera *camera);

/** Whether HDR is wanted. */
VORN_API gboolean vorn_virtual_camera_get_hdr_state (VornVirtualCamera *camera);
VORN_API void vorn_virtual_camera_set_hdr_state (VornVirtualCamera *camera, gboolean state);

/** Whether the mode in force can do HDR. */
VORN_API gboolean vorn_virtual_camera_get_hdr_availability (VornVirtualCamera *camera);
VORN_API void vorn_virtual_camera_set_hdr_availability (VornVirtualCamera *camera,
                                                        gboolean available);

/** Tells the product and all prepared views that the camera is in use or no longer. FALSE when one
 * fails. */
VORN_API gboolean vorn_virtual_camera_set_activation_state (VornVirtualCamera *camera,
                                                            gboolean active);

/** TRUE after a successful activation. */
VORN_API gboolean vorn_virtual_camera_is_active (VornVirtualCamera *camera);

/** The operations of the class; NULL, zero outs or FALSE where the product has none. */
VORN_API const VornCameraCapabilities *
vorn_virtual_camera_get_capabilities (VornVirtualCamera *camera);
VORN_API const VornRecordingCapability *
vorn_virtual_camera_get_recording_capabilities (VornVirtualCamera *camera, guint32 *count);
VORN_API const VornPhotoCapability *
vorn_virtual_camera_get_photo_capabilities (VornVirtualCamera *camera, guint32 *count);
VORN_API const VornDefaultState *vorn_virtual_camera_get_default_state (VornVirtualCamera *camera);
VORN_API const VornDefaultPhotoMode *
vorn_virtual_camera_get_default_photo_mode (VornVirtualCamera *camera);
VORN_API gboolean vorn_virtual_camera_get_exposure (VornVirtualCamera *camera, guint32 *mode,
                                                    guint64 *shutter_speed_ns, gdouble *iso,
                                                    gdouble *iso_max, guint32 *lock,
                                                    VornExposureRegion *region,
                                                    VornExposureCapabilities *capabilities);
VORN_API gboolean vorn_virtual_camera_set_exposure (VornVirtualCamera *camera,
                                                    const VornExposureSettings *settings);
VORN_API gboolean vorn_virtual_camera_get_wb (VornVirtualCamera *camera, guint32 *mode,
                                              guint32 *temperature);
VORN_API gboolean vorn_virtual_camera_set_wb (VornVirtualCamera *camera, guint32 mode,
                                              guint32 temperature);
VORN_API gboolean vorn_virtual_camera_get_ev_compensation (VornVirtualCamera *camera, gdouble *ev);
VORN_API gboolean vorn_virtual_camera_set_ev_compensation (VornVirtualCamera *camera, gdouble ev);
VORN_API gboolean vorn_virtual_camera_set_antiflicker_mode (VornVirtualCamera *camera,
                                                            guint32 mode);
VORN_API gboolean vorn_virtual_camera_set_image_style (VornVirtualCamera *camera, guint32 style);
VORN_API gboolean vorn_virtual_camera_set_image_style_params (
    VornVirtualCamera *camera, const VornImageStyleParams *parameters);
VORN_API const VornAlignmentOffsetsCapabilities *
vorn_virtual_camera_get_alignment_offsets_capabilities (VornVirtualCamera *camera);
VORN_API const VornAlignmentOffsets *
vorn_virtual_camera_get_alignment_offsets (VornVirtualCamera *camera);

VORN_END_DECLS

#endif
