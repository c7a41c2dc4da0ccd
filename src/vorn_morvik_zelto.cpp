// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "vorn_morvik_zelto.hpp"

#include <utility>

#include "selmac_info.hpp"
#include "vertical_camera_pipeline.hpp"
#include "vorn_morvik_zelto_front_modes.hpp"
#include "vorn_morvik_zelto_front_view.hpp"
#include "vorn_morvik_zelto_front_virtual_camera.hpp"
#include <vorn/gst_raii.hpp>
#include <vorn/log.h>

VORN_LOG_TAG ("vorn_morvik_zelto");

namespace
{

/** A camera id is an index; virtual camera and view have the same name. */
constexpr const char *camera_names[] = {"front", "front-thermal"};
constexpr guint8 front_id = 0;
constexpr guint8 thermal_id = 1;

constexpr char vertical_pipeline_name[] = "vertical-pipeline";

constexpr guint32 front_camera_active = 1;
constexpr guint32 thermal_camera_active = 2;

GType product_type = 0;
gpointer parent_class = nullptr;

} // namespace

GType vorn_morvik_zelto_get_type (void)
{
  return product_type;
}

VornCamera *vorn_morvik_zelto_configuration_get_camera_by_name (GList *cameras, const gchar *name)
{
  for (const GList *item = cameras; item; item = item->next)
    if (g_strcmp0 (vorn_camera_get_name (VORN_CAMERA (item->data)), name) == 0)
      return VORN_CAMERA (item->data);
  return nullptr;
}

/** Makes the front virtual camera in its default mode with its view, and adds it once the view is
 * prepared. */
static gboolean setup_front (VornProduct *product, const VornProductConfiguration *configuration,
                             VornCamera *front_camera)
{
  vorn::ErrorOut error;
  const vorn::OwnedString video_device (g_key_file_get_string (
      configuration->key_file, "camera-front", "video-device", error.out ()));
  if (!video_device) {
    VORN_LOG_ERROR ("failed to find 'video-device' key in configuration: %s", error.message ());
    return FALSE;
  }
  VORN_LOG_DEBUG ("setup visible vcam and view");
  VornVirtualCamera *camera =
      vorn_morvik_zelto_front_virtual_camera_new (front_camera, configuration, FALSE);
  VornView *view = vorn_morvik_zelto_front_view_new ("front", "Front camera", front_camera,
                                                     video_device.get (), product);
  vorn_product_add_supported_flavor (product, 0);
  VornCameraMode mode;
  vorn_morvik_zelto_front_modes_get_default_mode (
      vorn_camera_get_sensor_configuration (front_camera),
      vorn_morvik_zelto_front_virtual_camera_get_caps (camera), &mode);
  vorn_virtual_camera_set_mode (camera, &mode);
  vorn_virtual_camera_add_view (camera, view);
  const gboolean prepared = vorn_view_prepare (view);
  gboolean added = FALSE;
  if (prepared) {
    added = vorn_product_add_virtual_camera (product, camera);
    if (added)
      vorn_virtual_camera_set_activation_state (camera, TRUE);
  } else {
    VORN_LOG_WARNING ("failed to make front view");
    vorn::adopt (camera);
  }
  vorn_product_set_active_cameras (product, front_camera_active);
  return added;
}

/** The exposure context, NULL (logged) when there is none; also kept where the class hook frees it:
 * the hook gets the class, not a product. */
static SelmacData *make_exposure_context (VornProduct *product)
{
  SelmacData *context = selmacdata_new ();
  if (!context) {
    VORN_LOG_ERROR ("failed to create selmacdata context");
    return nullptr;
  }
  reinterpret_cast<VornMorvikZelto *> (product)->selmacdata = context;
  gpointer klass = VORN_PRODUCT_GET_CLASS (product);
  static_cast<VornMorvikZelto *> (klass)->selmacdata = context;
  return context;
}

/** Makes the vertical camera's pipeline and adds it. */
static gboolean setup_vertical (VornProduct *product, VornCamera *vertical_camera)
{
  SelmacData *exposure = make_exposure_context (product);
  auto pipeline = vorn::adopt (vorn_product_new_pipeline (product, vertical_pipeline_name, FALSE));
  if (!vertical_camera_pipeline_populate (GST_BIN (pipeline.get ()), vertical_camera,
                                          vorn_product_get_settings (product), exposure)) {
    VORN_LOG_WARNING ("failed to make vertical camera pipeline");
    return FALSE;
  }
  vorn_product_add_pipeline (product, pipeline.release ());
  return TRUE;
}

static gboolean vorn_morvik_zelto_setup (VornProduct *product,
                                         const VornProductConfiguration *configuration)
{
  GList *cameras = configuration->cameras;
  gboolean result = FALSE;
  if (VornCamera *front = vorn_morvik_zelto_configuration_get_camera_by_name (cameras, "front"))
    result = setup_front (product, configuration, front);
  if (VornCamera *vertical =
          vorn_morvik_zelto_configuration_get_camera_by_name (cameras, "vertical"))
    result |= setup_vertical (product, vertical);
  return result;
}

static gboolean vorn_morvik_zelto_get_camera_id (VornProduct *, const gchar *vcam_name,
                                                 const gchar *view_name, guint8 *id)
{
  for (size_t i = 0; i < G_N_ELEMENTS (camera_names); i++)
    if (g_strcmp0 (vcam_name, camera_names[i]) == 0 &&
        g_strcmp0 (view_name, camera_names[i]) == 0) {
      *id = static_cast<guint8> (i);
      return TRUE;
    }
  return FALSE;
}

static gboolean vorn_morvik_zelto_get_vcam_and_view (VornProduct *product, guint8 id,
                                                     VornVirtualCamera **vcam, VornView **view)
{
  if (!view || id >= G_N_ELEMENTS (camera_names) || !vcam)
    return FALSE;
  *vcam = vorn_product_get_virtual_camera_by_name (product, camera_names[id]);
  if (!*vcam)
    return FALSE;
  *view = vorn_virtual_camera_get_view_by_name (*vcam, camera_names[id]);
  return *view != nullptr;
}

static gboolean vorn_morvik_zelto_set_flavor (VornProduct *product, gint flavor)
{
  VORN_LOG_INFO ("switch to flavor %d", flavor);
  const bool to_thermal = flavor == 1;
  VornVirtualCamera *current = nullptr;
  VornView *current_view = nullptr;
  VornVirtualCamera *target = nullptr;
  VornView *target_view = nullptr;
  vorn_product_get_vcam_and_view (product, to_thermal ? front_id : thermal_id, &current,
                                  &current_view);
  vorn_product_get_vcam_and_view (product, to_thermal ? thermal_id : front_id, &target,
                                  &target_view);

  g_return_val_if_fail (vorn_view_is_taking_picture (current_view) == FALSE, FALSE);
  g_return_val_if_fail (vorn_view_is_recording (target_view) == FALSE, FALSE);
  g_return_val_if_fail (vorn_view_is_streaming (target_view) == FALSE, FALSE);
  g_return_val_if_fail (vorn_view_is_taking_picture (target_view) == FALSE, FALSE);

  vorn_virtual_camera_set_activation_state (current, FALSE);
  vorn_product_set_active_cameras (product, 0);
  vorn_virtual_camera_set_activation_state (target, TRUE);
  vorn_virtual_camera_set_mode (target, vorn_virtual_camera_get_mode (target));
  vorn_product_set_active_cameras (product,
                                   to_thermal ? thermal_camera_active : front_camera_active);
  return TRUE;
}

static gboolean vorn_morvik_zelto_set_magic_carpet_active (VornProduct *product, gboolean active)
{
  const auto pipeline =
      vorn::adopt (vorn_product_get_pipeline_by_name (product, vertical_pipeline_name));
  // Without a vertical camera this is a caller's mistake, and told as one.
  return vertical_camera_pipeline_set_magic_carpet_active (
      reinterpret_cast<GstBin *> (pipeline.get ()), active);
}

static void vorn_morvik_zelto_init (GTypeInstance *, gpointer) {}

static void vorn_morvik_zelto_class_finalize (gpointer klass, gpointer)
{
  auto *self = static_cast<VornMorvikZelto *> (klass);
  if (self->selmacdata)
    selmacdata_free (static_cast<SelmacData *> (std::exchange (self->selmacdata, nullptr)));
}

static void vorn_morvik_zelto_class_intern_init (gpointer klass, gpointer)
{
  parent_class = g_type_class_peek_parent (klass);
  auto *product_class = static_cast<VornProductClass *> (klass);
  product_class->set_magic_carpet_active = vorn_morvik_zelto_set_magic_carpet_active;
  product_class->setup = vorn_morvik_zelto_setup;
  product_class->get_vcam_and_view = vorn_morvik_zelto_get_vcam_and_view;
  product_class->get_camera_id = vorn_morvik_zelto_get_camera_id;
  product_class->set_flavor = vorn_morvik_zelto_set_flavor;
}

gboolean plugin_init (GTypeModule *module)
{
  static const GTypeInfo info = {.class_size = sizeof (VornProductClass),
                                 .base_init = nullptr,
                                 .base_finalize = nullptr,
                                 .class_init = vorn_morvik_zelto_class_intern_init,
                                 .class_finalize = vorn_morvik_zelto_class_finalize,
                                 .class_data = nullptr,
                                 .instance_size = sizeof (VornMorvikZelto),
                                 .n_preallocs = 0,
                                 .instance_init = vorn_morvik_zelto_init,
                                 .value_table = nullptr};
  product_type = g_type_module_register_type (module, VORN_TYPE_PRODUCT, "VornMorvikZelto", &info,
                                              static_cast<GTypeFlags> (0));
  return vorn_plugin_register_element (module, "zelto", vorn_morvik_zelto_get_type ());
}
