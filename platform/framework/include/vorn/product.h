/* Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0 */
/**
 * The product: what a plug-in adds to the framework. It is set up once with the configuration,
 * makes the virtual cameras, views and pipelines, and switches flavours. Property "active-cameras"
 * (bit n: camera id n). Bound to the framework's thread.
 */
#ifndef VORN_PRODUCT_H
#define VORN_PRODUCT_H

#include <glib-object.h>

#include <vorn/api.h>
#include <vorn/camera.h>
#include <vorn/pipeline.h>
#include <vorn/view.h>
#include <vorn/virtual_camera.h>

VORN_BEGIN_DECLS

/** What a product is set up with; read only for it. 38 32-bit words on 64-bit machines. */
typedef struct {
  GKeyFile *key_file;
  GList *cameras; /**< VornCamera, owned */
  guint32 reserved[25];
  VornAlignmentOffsetsCapabilities thermal_alignment_offsets; /**< words 29 to 37 */
} VornProductConfiguration;

#define VORN_CONFIGURATION_ERROR (vorn_configuration_error_quark ())
VORN_API GQuark vorn_configuration_error_quark (void);

/** Codes of VORN_CONFIGURATION_ERROR. */
typedef enum {
  VORN_CONFIGURATION_ERROR_FILE,    /**< the file cannot be read or is no key file */
  VORN_CONFIGURATION_ERROR_VALUE,   /**< a key is missing or has a value that cannot be */
  VORN_CONFIGURATION_ERROR_CAMERAS, /**< no camera is configured */
} VornConfigurationError;

/**
 * Reads a configuration: every group "camera-NAME" is a camera NAME, with "video-device",
 * "sensor-size" (WxH), "framerate" (N/D) and the optional keys that docs/platform.md lists. Errors
 * name file, group and key. Free with vorn_product_configuration_free.
 */
VORN_API VornProductConfiguration *vorn_product_configuration_load (const gchar *path,
                                                                    GError **error);

/** Releases a configuration; NULL is ignored. */
VORN_API void vorn_product_configuration_free (VornProductConfiguration *configuration);

#define VORN_TYPE_PRODUCT (vorn_product_get_type ())
#define VORN_PRODUCT(object) (G_TYPE_CHECK_INSTANCE_CAST ((object), VORN_TYPE_PRODUCT, VornProduct))
#define VORN_IS_PRODUCT(object) (G_TYPE_CHECK_INSTANCE_TYPE ((object), VORN_TYPE_PRODUCT))
#define VORN_PRODUCT_CLASS(klass)                                                                  \
  (G_TYPE_CHECK_CLASS_CAST ((klass), VORN_TYPE_PRODUCT, VornProductClass))
#define VORN_PRODUCT_GET_CLASS(object)                                                             \
  (G_TYPE_INSTANCE_GET_CLASS ((object), VORN_TYPE_PRODUCT, VornProductClass))

/** A product's instance. The framework's own state is private data. */
typedef struct {
  GObject parent_instance;
  gpointer reserved[21];
} VornProduct;

/** What a plug-in fills. */
typedef struct {
  GObjectClass parent_class;

  /** After setup succeeded; the framework's starts the pipelines that no view runs. */
  void (*start) (VornProduct *product);
  /** Before the product goes; the framework's takes views and pipelines down. */
  void (*stop) (VornProduct *product);
  gboolean (*set_magic_carpet_active) (VornProduct *product, gboolean active);
  gboolean (*setup) (VornProduct *product, const VornProductConfiguration *configuration);
  gboolean (*get_vcam_and_view) (VornProduct *product, guint8 id, VornVirtualCamera **camera,
                                 VornView **view);
  gboolean (*get_camera_id) (VornProduct *product, const gchar *camera_name, const gchar *view_name,
                             guint8 *id);
  gboolean (*set_flavor) (VornProduct *product, gint flavor);

  /**
   * Zeroed at first, the product's to use. It lies where an instance's own fields begin, so that a
   * class hook that casts its class to the product's type finds here what the product put here for
   * it.
   */
  gpointer reserved[8];
} VornProductClass;

VORN_API GType vorn_product_get_type (void);

/** Sets a product up, once; then starts it. FALSE when it could build nothing. */
VORN_API gboolean vorn_product_setup (VornProduct *product,
                                      const VornProductConfiguration *configuration);

/** Takes views and pipelines down; done by the last unref as well. */
VORN_API void vorn_product_stop (VornProduct *product);

/** Switches the flavour; refused with a warning when the product has not declared it. */
VORN_API gboolean vorn_product_set_flavor (VornProduct *product, gint flavor);

/** Switches the vertical camera's magic carpet. */
VORN_API gboolean vorn_product_set_magic_carpet_active (VornProduct *product, gboolean active);

/** Virtual camera and view of a camera id; FALSE when there are none (outs may then be NULL).
 * Borrowed. */
VORN_API gboolean vorn_product_get_vcam_and_view (VornProduct *product, guint8 id,
                                                  VornVirtualCamera **camera, VornView **view);

/** The camera id of a virtual camera and a view; FALSE with the out untouched when there is none.
 */
VORN_API gboolean vorn_product_get_camera_id (VornProduct *product, const gchar *camera_name,
                                              const gchar *view_name, guint8 *id);

/** For the product's setup: declares that it can be this flavour. */
VORN_API void vorn_product_add_supported_flavor (VornProduct *product, gint flavor);

/** TRUE when the flavour was declared. */
VORN_API gboolean vorn_product_is_flavor_supported (VornProduct *product, gint flavor);

/** Says which cameras are in use: bit n for camera id n. */
VORN_API void vorn_product_set_active_cameras (VornProduct *product, guint32 mask);
VORN_API guint32 vorn_product_get_active_cameras (VornProduct *product);

/** Adds a virtual camera and takes over the caller's reference. FALSE (reference dropped) for a
 * name twice. */
VORN_API gboolean vorn_product_add_virtual_camera (VornProduct *product, VornVirtualCamera *camera);

/** The virtual camera of this name, or NULL; borrowed. */
VORN_API VornVirtualCamera *vorn_product_get_virtual_camera_by_name (VornProduct *product,
                                                                     const gchar *name);

/** All virtual cameras in the order in which they were added; list and cameras belong to the
 * product. */
VORN_API GList *vorn_product_get_virtual_cameras (VornProduct *product);

/**
 * A new pipeline, not added yet; the caller owns the (full) reference. run_by_view TRUE: a view
 * runs it; FALSE: the framework plays it once the product is set up.
 */
VORN_API GstElement *vorn_product_new_pipeline (VornProduct *product, const gchar *name,
                                                gboolean run_by_view);

/** Adds a pipeline and takes over the caller's reference. FALSE (reference dropped) for a name
 * twice. */
VORN_API gboolean vorn_product_add_pipeline (VornProduct *product, GstElement *pipeline);

/** Takes a pipeline away again; FALSE when it is not one of the product's. */
VORN_API gboolean vorn_product_remove_pipeline (VornProduct *product, GstElement *pipeline);

/** The pipeline of this name with a reference for the caller, or NULL. */
VORN_API GstElement *vorn_product_get_pipeline_by_name (VornProduct *product, const gchar *name);

/** The key file that the product was set up with, or NULL; borrowed. */
VORN_API GKeyFile *vorn_product_get_settings (VornProduct *product);

VORN_END_DECLS

#endif
