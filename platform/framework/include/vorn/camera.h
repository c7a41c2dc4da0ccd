/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * A configured camera: its name, how its sensor runs, its optics and mounting, and the GStreamer
 * element that delivers its frames. Bound to the framework's thread, but for the constant geometry,
 * which may be read from any.
 */
#ifndef VORN_CAMERA_H
#define VORN_CAMERA_H

#include <gst/gst.h>

#include <vorn/api.h>
#include <vorn/sensor.h>

VORN_BEGIN_DECLS

#define VORN_TYPE_CAMERA (vorn_camera_get_type ())

VORN_API G_DECLARE_FINAL_TYPE (VornCamera, vorn_camera, VORN, CAMERA, GObject)

    /** Three numbers about or along the axes x, y, z. */
    typedef struct {
  gdouble x;
  gdouble y;
  gdouble z;
} VornVector3;

/** Everything that a camera is made from; copied. */
typedef struct {
  const gchar *name;
  const gchar *video_device;    /**< address of the picture source, "unix:/path"; may be NULL */
  const gchar *element_factory; /**< factory of the source element; NULL: none */
  VornSensorConfiguration sensor_configuration;
  gdouble optical_center_x;        /**< pixels */
  gdouble optical_center_y;        /**< pixels */
  gdouble focal_length;            /**< millimetres */
  VornVector3 orientation;         /**< degrees about x, y, z */
  VornVector3 factory_orientation; /**< degrees about x, y, z */
  VornVector3 position;            /**< metres */
} VornCameraParameters;

/** A new camera; the caller owns the reference. NULL (with a critical) without a name. */
VORN_API VornCamera *vorn_camera_new (const VornCameraParameters *parameters);

/** The configured name, for example "front"; owned by the camera. */
VORN_API const gchar *vorn_camera_get_name (VornCamera *camera);

/** Address of the picture source or NULL; owned by the camera. */
VORN_API const gchar *vorn_camera_get_video_device (VornCamera *camera);

/** How the sensor runs; owned by the camera. */
VORN_API const VornSensorConfiguration *vorn_camera_get_sensor_configuration (VornCamera *camera);

/** The sensor; owned by the camera. */
VORN_API VornSensor *vorn_camera_get_sensor (VornCamera *camera);

/**
 * The source element, made on the first call, with its "source" set to the video device where it
 * has such a property. Lent: the camera owns it. NULL when it cannot be made. Framework's thread
 * only.
 */
VORN_API GstElement *vorn_camera_get_element (VornCamera *camera);

/** Where the optical axis meets the sensor, pixels. */
VORN_API void vorn_camera_get_optical_center (VornCamera *camera, gdouble *x, gdouble *y);

/** Focal length, millimetres. */
VORN_API gdouble vorn_camera_get_focal_length (VornCamera *camera);

/** How the camera is mounted, degrees about x, y and z. */
VORN_API void vorn_camera_get_camera_orientation (VornCamera *camera, gdouble *x, gdouble *y,
                                                  gdouble *z);

/** What calibration added to the mounting, degrees about x, y and z. */
VORN_API void vorn_camera_get_factory_orientation (VornCamera *camera, gdouble *x, gdouble *y,
                                                   gdouble *z);

/** Where the camera sits on the drone, metres. */
VORN_API void vorn_camera_get_position (VornCamera *camera, gdouble *x, gdouble *y, gdouble *z);

VORN_END_DECLS

#endif
