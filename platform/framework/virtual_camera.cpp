// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/virtual_camera.h>

#include <cstring>
#include <string>

#include "internal.hpp"
#include <vorn/log.h>
#include <vorn/raii.hpp>

VORN_LOG_TAG ("vorn_virtual_camera");

namespace
{

using Provider = vorn::Owned<VornMetadataProvider, vorn::metadata_provider_free>;

struct Private {
  std::string name;
  std::string display_name;
  std::string schema_id;
  GList *views = nullptr;
  VornCameraMode mode = {};
  bool has_mode = false;
  bool hdr_state = false;
  bool hdr_availability = false;
  bool active = false;
  const Provider metadata_provider = Provider (vorn::metadata_provider_new ());
};

enum Property { PROPERTY_NAME = 1, PROPERTY_DISPLAY_NAME, PROPERTY_SCHEMA_ID };
enum Signal { SIGNAL_MODE_CHANGED, SIGNAL_HDR_CHANGED, SIGNAL_COUNT };
guint signals[SIGNAL_COUNT];

} // namespace

typedef struct {
  Private *state;
} VornVirtualCameraPrivate;

G_DEFINE_ABSTRACT_TYPE_WITH_PRIVATE (VornVirtualCamera, vorn_virtual_camera, G_TYPE_OBJECT)

static Private &state_of (VornVirtualCamera *camera)
{
  return *static_cast<VornVirtualCameraPrivate *> (
              vorn_virtual_camera_get_instance_private (camera))
              ->state;
}

static std::string *text_of (Private &state, guint id)
{
  switch (id) {
  case PROPERTY_NAME:
    return &state.name;
  case PROPERTY_DISPLAY_NAME:
    return &state.display_name;
  case PROPERTY_SCHEMA_ID:
    return &state.schema_id;
  default:
    return nullptr;
  }
}

static void vorn_virtual_camera_set_property (GObject *object, guint id, const GValue *value,
                                              GParamSpec *pspec)
{
  std::string *text = text_of (state_of (VORN_VIRTUAL_CAMERA (object)), id);
  if (!text) {
    G_OBJECT_WARN_INVALID_PROPERTY_ID (object, id, pspec);
    return;
  }
  const gchar *new_text = g_value_get_string (value);
  *text = new_text ? new_text : "";
}

static void vorn_virtual_camera_get_property (GObject *object, guint id, GValue *value,
                                              GParamSpec *pspec)
{
  const std::string *text = text_of (state_of (VORN_VIRTUAL_CAMERA (object)), id);
  if (text)
    g_value_set_string (value, text->c_str ());
  else
    G_OBJECT_WARN_INVALID_PROPERTY_ID (object, id, pspec);
}

static void vorn_virtual_camera_dispose (GObject *object)
{
  Private &state = state_of (VORN_VIRTUAL_CAMERA (object));
  for (GList *item = std::exchange (state.views, nullptr); item;
       item = g_list_delete_link (item, item)) {
    const auto view = vorn::adopt (VORN_VIEW (item->data));
    vorn_view_unprepare (view.get ());
    vorn::view_set_parent (view.get (), nullptr);
  }
  G_OBJECT_CLASS (vorn_virtual_camera_parent_class)->dispose (object);
}

static void vorn_virtual_camera_finalize (GObject *object)
{
  delete &state_of (VORN_VIRTUAL_CAMERA (object));
  G_OBJECT_CLASS (vorn_virtual_camera_parent_class)->finalize (object);
}

static void vorn_virtual_camera_class_init (VornVirtualCameraClass *klass)
{
  GObjectClass *object_class = G_OBJECT_CLASS (klass);
  object_class->set_property = vorn_virtual_camera_set_property;
  object_class->get_property = vorn_virtual_camera_get_property;
  object_class->dispose = vorn_virtual_camera_dispose;
  object_class->finalize = vorn_virtual_camera_finalize;

  constexpr auto flags = static_cast<GParamFlags> (G_PARAM_READWRITE | G_PARAM_CONSTRUCT_ONLY |
                                                   G_PARAM_STATIC_STRINGS);
  g_object_class_install_property (
      object_class, PROPERTY_NAME,
      g_param_spec_string ("name", "Name", "Name of the virtual camera", "", flags));
  g_object_class_install_property (
      object_class, PROPERTY_DISPLAY_NAME,
      g_param_spec_string ("display-name", "Display name", "Name for people", "", flags));
  g_object_class_install_property (
      object_class, PROPERTY_SCHEMA_ID,
      g_param_spec_string ("schema-id", "Schema id", "Where its settings are kept", "", flags));

  const GType type = G_TYPE_FROM_CLASS (klass);
  signals[SIGNAL_MODE_CHANGED] = g_signal_new ("mode-changed", type, G_SIGNAL_RUN_LAST, 0, nullptr,
                                               nullptr, nullptr, G_TYPE_NONE, 0);
  signals[SIGNAL_HDR_CHANGED] =
      g_signal_new ("hdr-changed", type, G_SIGNAL_RUN_LAST, 0, nullptr, nullptr, nullptr,
                    G_TYPE_NONE, 2, G_TYPE_BOOLEAN, G_TYPE_BOOLEAN);
}

static void vorn_virtual_camera_init (VornVirtualCamera *camera)
{
  static_cast<VornVirtualCameraPrivate *> (vorn_virtual_camera_get_instance_private (camera))
      ->state = new Private;
}

const gchar *vorn_virtual_camera_get_name (VornVirtualCamera *camera)
{
  g_return_val_if_fail (VORN_IS_VIRTUAL_CAMERA (camera), nullptr);
  return state_of (camera).name.c_str ();
}

VornMetadataProvider *vorn_virtual_cam_get_pmd (VornVirtualCamera *camera)
{
  g_return_val_if_fail (VORN_IS_VIRTUAL_CAMERA (camera), nullptr);
  return state_of (camera).metadata_provider.get ();
}

gboolean vorn_virtual_camera_add_view (VornVirtualCamera *camera, VornView *view)
{
  g_return_val_if_fail (VORN_IS_VIRTUAL_CAMERA (camera), FALSE);
  g_return_val_if_fail (VORN_IS_VIEW (view), FALSE);
  Private &state = state_of (camera);
  auto owned = vorn::adopt (view);
  if (vorn_view_get_parent (view) ||
      vorn_virtual_camera_get_view_by_name (camera, vorn_view_get_name (view))) {
    VORN_LOG_ERROR ("virtual camera '%s': view '%s' refused: it has a virtual camera, or its name "
                    "is taken",
                    state.name.c_str (), vorn_view_get_name (view));
    return FALSE;
  }
  state.views = g_list_append (state.views, owned.release ());
  vorn::view_set_parent (view, camera);
  // One that is prepared already has missed the mode.
  if (state.has_mode && vorn_view_is_prepared (view))
    vorn_view_update_camera_mode (view, &state.mode);
  return TRUE;
}

GList *vorn_virtual_camera_get_views (VornVirtualCamera *camera)
{
  g_return_val_if_fail (VORN_IS_VIRTUAL_CAMERA (camera), nullptr);
  return state_of (camera).views;
}

VornView *vorn_virtual_camera_get_first_view (VornVirtualCamera *camera)
{
  g_return_val_if_fail (VORN_IS_VIRTUAL_CAMERA (camera), nullptr);
  const GList *views = state_of (camera).views;
  return views ? VORN_VIEW (views->data) : nullptr;
}

VornView *vorn_virtual_camera_get_view_by_name (VornVirtualCamera *camera, const gchar *name)
{
  g_return_val_if_fail (VORN_IS_VIRTUAL_CAMERA (camera), nullptr);
  for (const GList *item = state_of (camera).views; item; item = item->next)
    if (g_strcmp0 (vorn_view_get_name (VORN_VIEW (item->data)), name) == 0)
      return VORN_VIEW (item->data);
  return nullptr;
}

// ---- Mode

/** Why a mode cannot be applied, or NULL; says whether it can do HDR. */
static const char *check_mode (VornVirtualCamera *camera, const VornCameraMode *mode,
                               bool *hdr_available)
{
  if (mode->type == VORN_CAMERA_MODE_RECORDING) {
    if (mode->recording.framerate.num == 0 || mode->recording.framerate.den == 0)
      return "a framerate of zero";
    guint32 count = 0;
    const auto *entries = vorn_virtual_camera_get_recording_capabilities (camera, &count);
    const auto *entry = vorn_camera_recording_capabilities_find (entries, count, mode);
    *hdr_available = entry && entry->hdr_available;
    return entry ? nullptr : "it is not in the camera's tables";
  }
  if (mode->type == VORN_CAMERA_MODE_PHOTO) {
    if (mode->photo.count == 0)
      return "a photo count of zero";
    guint32 count = 0;
    const auto *entries = vorn_virtual_camera_get_photo_capabilities (camera, &count);
    const auto *entry = vorn_camera_photo_capabilities_find (entries, count, mode);
    *hdr_available = entry && entry->hdr_available;
    return entry ? nullptr : "it is not in the camera's tables";
  }
  return "no such type";
}

static void publish_hdr (VornVirtualCamera *camera)
{
  const Private &state = state_of (camera);
  g_signal_emit (camera, signals[SIGNAL_HDR_CHANGED], 0, static_cast<gboolean> (state.hdr_state),
                 static_cast<gboolean> (state.hdr_availability));
}

gboolean vorn_virtual_camera_set_mode (VornVirtualCamera *camera, const VornCameraMode *mode)
{
  g_return_val_if_fail (VORN_IS_VIRTUAL_CAMERA (camera), FALSE);
  g_return_val_if_fail (mode != NULL, FALSE);
  Private &state = state_of (camera);
  bool hdr_available = false;
  const char *reason = check_mode (camera, mode, &hdr_available);
  for (const GList *item = state.views; item && !reason; item = item->next)
    if (vorn_view_is_recording (VORN_VIEW (item->data)) ||
        vorn_view_is_taking_picture (VORN_VIEW (item->data)))
      reason = "a view records or takes a picture";
  if (reason) {
    VORN_LOG_WARNING ("virtual camera '%s': %s mode refused: %s", state.name.c_str (),
                      vorn_camera_mode_type_get_name (mode->type), reason);
    return FALSE;
  }

  const bool former_availability = std::exchange (state.hdr_availability, hdr_available);
  VornVirtualCameraClass *klass = VORN_VIRTUAL_CAMERA_GET_CLASS (camera);
  if (klass->set_mode && !klass->set_mode (camera, mode)) {
    vorn_virtual_camera_set_hdr_availability (camera, former_availability);
    return FALSE;
  }
  // A product's own set_mode publishes it.
  if (!klass->set_mode && former_availability != hdr_available)
    publish_hdr (camera);
  state.mode = *mode;
  state.has_mode = true;
  bool applied = true;
  for (const GList *item = state.views; item; item = item->next)
    if (vorn_view_is_prepared (VORN_VIEW (item->data)))
      applied &= vorn_view_update_camera_mode (VORN_VIEW (item->data), &state.mode) != FALSE;
  g_signal_emit (camera, signals[SIGNAL_MODE_CHANGED], 0);
  return applied;
}

const VornCameraMode *vorn_virtual_camera_get_mode (VornVirtualCamera *camera)
{
  g_return_val_if_fail (VORN_IS_VIRTUAL_CAMERA (camera), nullptr);
  return &state_of (camera).mode;
}

gboolean vorn_virtual_camera_has_mode (VornVirtualCamera *camera)
{
  g_return_val_if_fail (VORN_IS_VIRTUAL_CAMERA (camera), FALSE);
  return state_of (camera).has_mode;
}

gboolean vorn_virtual_camera_get_hdr_state (VornVirtualCamera *camera)
{
  g_return_val_if_fail (VORN_IS_VIRTUAL_CAMERA (camera), FALSE);
  return state_of (camera).hdr_state;
}

void vorn_virtual_camera_set_hdr_state (VornVirtualCamera *camera, gboolean hdr_state)
{
  g_return_if_fail (VORN_IS_VIRTUAL_CAMERA (camera));
  state_of (camera).hdr_state = hdr_state;
  publish_hdr (camera);
}

gboolean vorn_virtual_camera_get_hdr_availability (VornVirtualCamera *camera)
{
  g_return_val_if_fail (VORN_IS_VIRTUAL_CAMERA (camera), FALSE);
  return state_of (camera).hdr_availability;
}

void vorn_virtual_camera_set_hdr_availability (VornVirtualCamera *camera, gboolean available)
{
  g_return_if_fail (VORN_IS_VIRTUAL_CAMERA (camera));
  state_of (camera).hdr_availability = available;
  publish_hdr (camera);
}

gboolean vorn_virtual_camera_set_activation_state (VornVirtualCamera *camera, gboolean active)
{
  g_return_val_if_fail (VORN_IS_VIRTUAL_CAMERA (camera), FALSE);
  Private &state = state_of (camera);
  VornVirtualCameraClass *klass = VORN_VIRTUAL_CAMERA_GET_CLASS (camera);
  if (klass->set_activation_state && !klass->set_activation_state (camera, active))
    return FALSE;
  bool done = true;
  for (const GList *item = state.views; item; item = item->next)
    if (vorn_view_is_prepared (VORN_VIEW (item->data)))
      done &= vorn_view_set_activation (VORN_VIEW (item->data), active) != FALSE;
  state.active = active && done;
  return done;
}

gboolean vorn_virtual_camera_is_active (VornVirtualCamera *camera)
{
  g_return_val_if_fail (VORN_IS_VIRTUAL_CAMERA (camera), FALSE);
  return state_of (camera).active;
}

// ---- The class's operations

/** Calls an operation of the camera's class; the zero of its result when the product has none. */
template <auto operation, typename... Arguments>
static auto call (VornVirtualCamera *camera, Arguments... arguments)
{
  using Result =
      decltype ((VORN_VIRTUAL_CAMERA_GET_CLASS (camera)->*operation) (camera, arguments...));
  g_return_val_if_fail (VORN_IS_VIRTUAL_CAMERA (camera), Result{});
  const auto function = VORN_VIRTUAL_CAMERA_GET_CLASS (camera)->*operation;
  return function ? function (camera, arguments...) : Result{};
}

using Class = VornVirtualCameraClass;

const VornCameraCapabilities *vorn_virtual_camera_get_capabilities (VornVirtualCamera *camera)
{
  return call<&Class::get_capabilities> (camera);
}

const VornRecordingCapability *
vorn_virtual_camera_get_recording_capabilities (VornVirtualCamera *camera, guint32 *count)
{
  guint32 own_count = 0;
  const auto *entries = call<&Class::get_recording_capabilities> (camera, &own_count);
  if (count)
    *count = own_count;
  return entries;
}

const VornPhotoCapability *vorn_virtual_camera_get_photo_capabilities (VornVirtualCamera *camera,
                                                                       guint32 *count)
{
  guint32 own_count = 0;
  const auto *entries = call<&Class::get_photo_capabilities> (camera, &own_count);
  if (count)
    *count = own_count;
  return entries;
}

const VornDefaultState *vorn_virtual_camera_get_default_state (VornVirtualCamera *camera)
{
  return call<&Class::get_default_state> (camera);
}

const VornDefaultPhotoMode *vorn_virtual_camera_get_default_photo_mode (VornVirtualCamera *camera)
{
  return call<&Class::get_default_photo_mode> (camera);
}

gboolean vorn_virtual_camera_get_exposure (VornVirtualCamera *camera, guint32 *mode,
                                           guint64 *shutter_speed_ns, gdouble *iso,
                                           gdouble *iso_max, guint32 *lock,
                                           VornExposureRegion *region,
                                           VornExposureCapabilities *capabilities)
{
  return call<&Class::get_exposure> (camera, mode, shutter_speed_ns, iso, iso_max, lock, region,
                                     capabilities);
}

gboolean vorn_virtual_camera_set_exposure (VornVirtualCamera *camera,
                                           const VornExposureSettings *settings)
{
  return call<&Class::set_exposure> (camera, settings);
}

gboolean vorn_virtual_camera_get_wb (VornVirtualCamera *camera, guint32 *mode, guint32 *temperature)
{
  return call<&Class::get_wb> (camera, mode, temperature);
}

gboolean vorn_virtual_camera_set_wb (VornVirtualCamera *camera, guint32 mode, guint32 temperature)
{
  return call<&Class::set_wb> (camera, mode, temperature);
}

gboolean vorn_virtual_camera_get_ev_compensation (VornVirtualCamera *camera, gdouble *ev)
{
  return call<&Class::get_ev_compensation> (camera, ev);
}

gboolean vorn_virtual_camera_set_ev_compensation (VornVirtualCamera *camera, gdouble ev)
{
  return call<&Class::set_ev_compensation> (camera, ev);
}

gboolean vorn_virtual_camera_set_antiflicker_mode (VornVirtualCamera *camera, guint32 mode)
{
  return call<&Class::set_antiflicker_mode> (camera, mode);
}

gboolean vorn_virtual_camera_set_image_style (VornVirtualCamera *camera, guint32 style)
{
  return call<&Class::set_image_style> (camera, style);
}

gboolean vorn_virtual_camera_set_image_style_params (VornVirtualCamera *camera,
                                                     const VornImageStyleParams *parameters)
{
  return call<&Class::set_image_style_params> (camera, parameters);
}

const VornAlignmentOffsetsCapabilities *
vorn_virtual_camera_get_alignment_offsets_capabilities (VornVirtualCamera *camera)
{
  return call<&Class::get_alignment_offsets_capabilities> (camera);
}

const VornAlignmentOffsets *vorn_virtual_camera_get_alignment_offsets (VornVirtualCamera *camera)
{
  return call<&Class::get_alignment_offsets> (camera);
}
