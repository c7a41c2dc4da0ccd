// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/product.h>

#include <set>

#include "internal.hpp"
#include <vorn/gst_raii.hpp>
#include <vorn/log.h>

VORN_LOG_TAG ("vorn_product");

namespace
{

struct Private {
  vorn::OwnedKeyFile settings;
  GList *virtual_cameras = nullptr;
  GList *pipelines = nullptr;
  std::set<gint> flavors;
  guint32 active_cameras = 0;
  bool set_up = false;
  bool running = false;
};

enum Property { PROPERTY_ACTIVE_CAMERAS = 1 };
GParamSpec *active_cameras_property;

GQuark product_quark ()
{
  static const GQuark quark = g_quark_from_static_string ("vorn-product");
  return quark;
}

} // namespace

typedef struct {
  Private *state;
} VornProductPrivate;

G_DEFINE_ABSTRACT_TYPE_WITH_PRIVATE (VornProduct, vorn_product, G_TYPE_OBJECT)

static Private &state_of (VornProduct *product)
{
  return *static_cast<VornProductPrivate *> (vorn_product_get_instance_private (product))->state;
}

static void vorn_product_real_start (VornProduct *product)
{
  Private &state = state_of (product);
  state.running = true;
  for (const GList *item = state.pipelines; item; item = item->next)
    if (!vorn_pipeline_is_run_by_view (GST_ELEMENT (item->data)))
      vorn_pipeline_play (GST_ELEMENT (item->data));
}

static void vorn_product_real_stop (VornProduct *product)
{
  Private &state = state_of (product);
  state.running = false;
  for (const GList *camera = state.virtual_cameras; camera; camera = camera->next)
    for (const GList *view = vorn_virtual_camera_get_views (VORN_VIRTUAL_CAMERA (camera->data));
         view; view = view->next)
      vorn_view_unprepare (VORN_VIEW (view->data));
  while (state.pipelines)
    vorn_product_remove_pipeline (product, GST_ELEMENT (state.pipelines->data));
}

static void vorn_product_get_property (GObject *object, guint id, GValue *value, GParamSpec *pspec)
{
  if (id == PROPERTY_ACTIVE_CAMERAS)
    g_value_set_uint (value, state_of (VORN_PRODUCT (object)).active_cameras);
  else
    G_OBJECT_WARN_INVALID_PROPERTY_ID (object, id, pspec);
}

static void vorn_product_dispose (GObject *object)
{
  auto *product = VORN_PRODUCT (object);
  vorn_product_stop (product);
  g_list_free_full (std::exchange (state_of (product).virtual_cameras, nullptr), g_object_unref);
  G_OBJECT_CLASS (vorn_product_parent_class)->dispose (object);
}

static void vorn_product_finalize (GObject *object)
{
  delete &state_of (VORN_PRODUCT (object));
  G_OBJECT_CLASS (vorn_product_parent_class)->finalize (object);
}

static void vorn_product_class_init (VornProductClass *klass)
{
  GObjectClass *object_class = G_OBJECT_CLASS (klass);
  object_class->get_property = vorn_product_get_property;
  object_class->dispose = vorn_product_dispose;
  object_class->finalize = vorn_product_finalize;
  klass->start = vorn_product_real_start;
  klass->stop = vorn_product_real_stop;
  active_cameras_property = g_param_spec_uint (
      "active-cameras", "Active cameras", "Bit n is set while camera id n is in use", 0, G_MAXUINT,
      0, static_cast<GParamFlags> (G_PARAM_READABLE | G_PARAM_STATIC_STRINGS));
  g_object_class_install_property (object_class, PROPERTY_ACTIVE_CAMERAS, active_cameras_property);
}

static void vorn_product_init (VornProduct *product)
{
  static_cast<VornProductPrivate *> (vorn_product_get_instance_private (product))->state =
      new Private;
}

// ---- What clients call

gboolean vorn_product_setup (VornProduct *product, const VornProductConfiguration *configuration)
{
  g_return_val_if_fail (VORN_IS_PRODUCT (product), FALSE);
  g_return_val_if_fail (configuration != NULL, FALSE);
  Private &state = state_of (product);
  g_return_val_if_fail (!state.set_up, FALSE);
  state.set_up = true;
  if (configuration->key_file)
    state.settings.reset (g_key_file_ref (configuration->key_file));
  VornProductClass *klass = VORN_PRODUCT_GET_CLASS (product);
  if (!klass->setup || !klass->setup (product, configuration))
    return FALSE;
  klass->start (product);
  return TRUE;
}

void vorn_product_stop (VornProduct *product)
{
  g_return_if_fail (VORN_IS_PRODUCT (product));
  VORN_PRODUCT_GET_CLASS (product)->stop (product);
}

gboolean vorn_product_set_flavor (VornProduct *product, gint flavor)
{
  g_return_val_if_fail (VORN_IS_PRODUCT (product), FALSE);
  if (!vorn_product_is_flavor_supported (product, flavor)) {
    VORN_LOG_WARNING ("flavor %d is not supported", flavor);
    return FALSE;
  }
  VornProductClass *klass = VORN_PRODUCT_GET_CLASS (product);
  return klass->set_flavor && klass->set_flavor (product, flavor);
}

gboolean vorn_product_set_magic_carpet_active (VornProduct *product, gboolean active)
{
  g_return_val_if_fail (VORN_IS_PRODUCT (product), FALSE);
  VornProductClass *klass = VORN_PRODUCT_GET_CLASS (product);
  return klass->set_magic_carpet_active && klass->set_magic_carpet_active (product, active);
}

gboolean vorn_product_get_vcam_and_view (VornProduct *product, guint8 id,
                                         VornVirtualCamera **camera, VornView **view)
{
  g_return_val_if_fail (VORN_IS_PRODUCT (product), FALSE);
  VornProductClass *klass = VORN_PRODUCT_GET_CLASS (product);
  return klass->get_vcam_and_view && klass->get_vcam_and_view (product, id, camera, view);
}

gboolean vorn_product_get_camera_id (VornProduct *product, const gchar *camera_name,
                                     const gchar *view_name, guint8 *id)
{
  g_return_val_if_fail (VORN_IS_PRODUCT (product), FALSE);
  g_return_val_if_fail (id != NULL, FALSE);
  VornProductClass *klass = VORN_PRODUCT_GET_CLASS (product);
  return klass->get_camera_id && klass->get_camera_id (product, camera_name, view_name, id);
}

// ---- What a product builds with

void vorn_product_add_supported_flavor (VornProduct *product, gint flavor)
{
  g_return_if_fail (VORN_IS_PRODUCT (product));
  state_of (product).flavors.insert (flavor);
}

gboolean vorn_product_is_flavor_supported (VornProduct *product, gint flavor)
{
  g_return_val_if_fail (VORN_IS_PRODUCT (product), FALSE);
  return state_of (product).flavors.contains (flavor);
}

void vorn_product_set_active_cameras (VornProduct *product, guint32 mask)
{
  g_return_if_fail (VORN_IS_PRODUCT (product));
  if (std::exchange (state_of (product).active_cameras, mask) != mask)
    g_object_notify_by_pspec (G_OBJECT (product), active_cameras_property);
}

guint32 vorn_product_get_active_cameras (VornProduct *product)
{
  g_return_val_if_fail (VORN_IS_PRODUCT (product), 0);
  return state_of (product).active_cameras;
}

gboolean vorn_product_add_virtual_camera (VornProduct *product, VornVirtualCamera *camera)
{
  g_return_val_if_fail (VORN_IS_PRODUCT (product), FALSE);
  g_return_val_if_fail (VORN_IS_VIRTUAL_CAMERA (camera), FALSE);
  Private &state = state_of (product);
  auto owned = vorn::adopt (camera);
  if (vorn_product_get_virtual_camera_by_name (product, vorn_virtual_camera_get_name (camera))) {
    VORN_LOG_ERROR ("virtual camera '%s' refused: the name is taken",
                    vorn_virtual_camera_get_name (camera));
    return FALSE;
  }
  vorn::metadata_provider_configure (vorn_virtual_cam_get_pmd (camera), state.settings.get ());
  state.virtual_cameras = g_list_append (state.virtual_cameras, owned.release ());
  return TRUE;
}

VornVirtualCamera *vorn_product_get_virtual_camera_by_name (VornProduct *product, const gchar *name)
{
  g_return_val_if_fail (VORN_IS_PRODUCT (product), nullptr);
  for (const GList *item = state_of (product).virtual_cameras; item; item = item->next)
    if (g_strcmp0 (vorn_virtual_camera_get_name (VORN_VIRTUAL_CAMERA (item->data)), name) == 0)
      return VORN_VIRTUAL_CAMERA (item->data);
  return nullptr;
}

GList *vorn_product_get_virtual_cameras (VornProduct *product)
{
  g_return_val_if_fail (VORN_IS_PRODUCT (product), nullptr);
  return state_of (product).virtual_cameras;
}

GstElement *vorn_product_new_pipeline (VornProduct *product, const gchar *name,
                                       gboolean run_by_view)
{
  g_return_val_if_fail (VORN_IS_PRODUCT (product), nullptr);
  g_return_val_if_fail (name != NULL, nullptr);
  return vorn_pipeline_new (name, run_by_view);
}

static GstElement *find_pipeline (VornProduct *product, const gchar *name)
{
  for (const GList *item = state_of (product).pipelines; item; item = item->next)
    if (g_strcmp0 (GST_OBJECT_NAME (item->data), name) == 0)
      return GST_ELEMENT (item->data);
  return nullptr;
}

gboolean vorn_product_add_pipeline (VornProduct *product, GstElement *pipeline)
{
  g_return_val_if_fail (VORN_IS_PRODUCT (product), FALSE);
  g_return_val_if_fail (GST_IS_PIPELINE (pipeline), FALSE);
  Private &state = state_of (product);
  auto owned = vorn::adopt (pipeline);
  if (find_pipeline (product, GST_OBJECT_NAME (pipeline))) {
    VORN_LOG_ERROR ("pipeline '%s' refused: the name is taken", GST_OBJECT_NAME (pipeline));
    return FALSE;
  }
  state.pipelines = g_list_append (state.pipelines, owned.release ());
  g_object_set_qdata (G_OBJECT (pipeline), product_quark (), product);
  if (state.running && !vorn_pipeline_is_run_by_view (pipeline))
    vorn_pipeline_play (pipeline);
  return TRUE;
}

gboolean vorn_product_remove_pipeline (VornProduct *product, GstElement *pipeline)
{
  g_return_val_if_fail (VORN_IS_PRODUCT (product), FALSE);
  Private &state = state_of (product);
  GList *item = g_list_find (state.pipelines, pipeline);
  if (!item)
    return FALSE;
  const auto owned = vorn::adopt (pipeline);
  state.pipelines = g_list_delete_link (state.pipelines, item);
  g_object_set_qdata (G_OBJECT (pipeline), product_quark (), nullptr);
  vorn_pipeline_stop (pipeline);
  gst_element_set_state (pipeline, GST_STATE_NULL);
  return TRUE;
}

void vorn::product_forget_pipeline (GstElement *pipeline)
{
  auto *product =
      static_cast<VornProduct *> (g_object_get_qdata (G_OBJECT (pipeline), product_quark ()));
  if (product)
    vorn_product_remove_pipeline (product, pipeline);
}

GstElement *vorn_product_get_pipeline_by_name (VornProduct *product, const gchar *name)
{
  g_return_val_if_fail (VORN_IS_PRODUCT (product), nullptr);
  return vorn::share (find_pipeline (product, name)).release ();
}

GKeyFile *vorn_product_get_settings (VornProduct *product)
{
  g_return_val_if_fail (VORN_IS_PRODUCT (product), nullptr);
  return state_of (product).settings.get ();
}
