// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "vorn_morvik_zelto_front_virtual_camera.hpp"

#include "vorn_morvik_zelto_front_modes.hpp"
#include "vorn_morvik_zelto_front_view.hpp"
#include <vorn/log.h>

VORN_LOG_TAG ("vorn_morvik_zelto_front_virtual_camera");

static constexpr char schema_id[] = "org.vorn.morvik.zelto.front-virtual-camera";

enum Property { PROPERTY_FRONT_CAMERA = 1, PROPERTY_THERMAL };

G_DEFINE_TYPE (VornMorvikZeltoFrontVirtualCamera, vorn_morvik_zelto_front_virtual_camera,
               VORN_TYPE_VIRTUAL_CAMERA)

using Self = VornMorvikZeltoFrontVirtualCamera;

static Self *self_of (gpointer camera)
{
  return VORN_MORVIK_ZELTO_FRONT_VIRTUAL_CAMERA (camera);
}

/** What a setting that the simulated camera lacks does. */
static gboolean stub (const char *function)
{
  VORN_LOG_INFO ("(%s) stub", function);
  return TRUE;
}

template <typename T>
static void write (T *out, const T &value)
{
  if (out)
    *out = value;
}

static void vorn_morvik_zelto_front_virtual_camera_set_property (GObject *object, guint id,
                                                                 const GValue *value,
                                                                 GParamSpec *pspec)
{
  Self *self = self_of (object);
  switch (id) {
  case PROPERTY_FRONT_CAMERA: {
    // Two references on purpose: the duplicated one stays beside the stored one, so that the camera
    // outlives every user of this object. Products count on it.
    auto *camera = static_cast<VornCamera *> (g_value_dup_object (value));
    g_set_object (&self->front_camera, camera);
    break;
  }
  case PROPERTY_THERMAL:
    self->thermal = g_value_get_boolean (value) ? 1 : 0;
    break;
  default:
    G_OBJECT_WARN_INVALID_PROPERTY_ID (object, id, pspec);
  }
}

static void vorn_morvik_zelto_front_virtual_camera_get_property (GObject *object, guint id,
                                                                 GValue *value, GParamSpec *pspec)
{
  const Self *self = self_of (object);
  switch (id) {
  case PROPERTY_FRONT_CAMERA:
    g_value_set_object (value, self->front_camera);
    break;
  case PROPERTY_THERMAL:
    g_value_set_boolean (value, self->thermal != 0);
    break;
  default:
    G_OBJECT_WARN_INVALID_PROPERTY_ID (object, id, pspec);
  }
}

static const VornCameraCapabilities *
vorn_morvik_zelto_front_virtual_camera_get_capabilities (VornVirtualCamera *camera)
{
  return self_of (camera)->caps.camera;
}

static const VornRecordingCapability *
vorn_morvik_zelto_front_virtual_camera_get_recording_capabilities (VornVirtualCamera *camera,
                                                                   guint32 *count)
{
  write (count, self_of (camera)->caps.recording_count);
  return self_of (camera)->caps.recording;
}

static const VornPhotoCapability *
vorn_morvik_zelto_front_virtual_camera_get_photo_capabilities (VornVirtualCamera *camera,
                                                               guint32 *count)
{
  write (count, self_of (camera)->caps.photo_count);
  return self_of (camera)->caps.photo;
}

static const VornDefaultState *
vorn_morvik_zelto_front_virtual_camera_get_default_state (VornVirtualCamera *camera)
{
  return &self_of (camera)->default_state;
}

static const VornDefaultPhotoMode *
vorn_morvik_zelto_front_virtual_camera_get_default_photo_mode (VornVirtualCamera *camera)
{
  return &self_of (camera)->default_photo_mode;
}

static gboolean vorn_morvik_zelto_front_virtual_camera_set_exposure (VornVirtualCamera *,
                                                                     const VornExposureSettings *)
{
  return stub (__func__);
}

static bool is_manual (guint32 exposure_mode)
{
  return exposure_mode >= VORN_EXPOSURE_MANUAL_ISO && exposure_mode <= VORN_EXPOSURE_MANUAL;
}

static gboolean vorn_morvik_zelto_front_virtual_camera_set_mode (VornVirtualCamera *camera,
                                                                 const VornCameraMode *mode)
{
  Self *self = self_of (camera);
  // Set back as they are, so that the framework publishes them again for the new mode.
  const gboolean hdr_state = vorn_virtual_camera_get_hdr_state (camera);
  const gboolean hdr_availability = vorn_virtual_camera_get_hdr_availability (camera);
  vorn_virtual_camera_set_hdr_state (camera, hdr_state);
  vorn_virtual_camera_set_hdr_availability (camera, hdr_availability);

  const VornExposureCapabilities *capabilities = &self->exposure_capabilities;
  vorn_morvik_zelto_front_modes_get_exposure_capabilities (mode, &self->exposure_capabilities);
  if (is_manual (self->exposure_mode)) {
    if (!vorn_exposure_iso_is_valid (capabilities, static_cast<guint32> (self->iso)))
      self->iso = capabilities->iso_default;
    if (!vorn_exposure_shutter_speed_is_valid (capabilities, self->shutter_speed))
      self->shutter_speed = capabilities->auto_exposure_time_limit;
    vorn_morvik_zelto_front_virtual_camera_set_exposure (camera, nullptr);
  }
  return TRUE;
}

static gboolean vorn_morvik_zelto_front_virtual_camera_get_exposure (
    VornVirtualCamera *camera, guint32 *mode, guint64 *shutter_speed_ns, gdouble *iso,
    gdouble *iso_max, guint32 *lock, VornExposureRegion *region,
    VornExposureCapabilities *capabilities)
{
  Self *self = self_of (camera);
  VORN_LOG_DEBUG ("(%s) stub get exposure settings from sensor", __func__);
  // What a sensor without exposure reports; the starting values are lost with the first read.
  self->exposure_mode = 0;
  self->shutter_speed = 0.0;
  self->iso = 0.0;
  self->iso_max = 0.0;
  write (mode, guint32{0});
  write (shutter_speed_ns, guint64{0});
  write (iso, self->iso);
  write (iso_max, self->iso_max);
  write (lock, self->exposure_lock);
  write (region, self->exposure_region);
  write (capabilities, self->exposure_capabilities);
  return TRUE;
}

static gboolean vorn_morvik_zelto_front_virtual_camera_get_wb (VornVirtualCamera *camera,
                                                               guint32 *mode, guint32 *temperature)
{
  write (mode, self_of (camera)->wb_mode);
  write (temperature, self_of (camera)->wb_temperature);
  return TRUE;
}

static gboolean vorn_morvik_zelto_front_virtual_camera_set_wb (VornVirtualCamera *camera,
                                                               guint32 mode, guint32 temperature)
{
  self_of (camera)->wb_mode = mode;
  self_of (camera)->wb_temperature = temperature;
  return TRUE;
}

static gboolean vorn_morvik_zelto_front_virtual_camera_get_ev_compensation (VornVirtualCamera *,
                                                                            gdouble *ev)
{
  stub (__func__);
  if (!ev)
    return FALSE;
  *ev = 0.0;
  return TRUE;
}

static gboolean vorn_morvik_zelto_front_virtual_camera_set_ev_compensation (VornVirtualCamera *,
                                                                            gdouble)
{
  return stub (__func__);
}

static gboolean vorn_morvik_zelto_front_virtual_camera_set_antiflicker_mode (VornVirtualCamera *,
                                                                             guint32)
{
  return stub (__func__);
}

static gboolean vorn_morvik_zelto_front_virtual_camera_set_image_style (VornVirtualCamera *camera,
                                                                        guint32 style)
{
  VornView *view = vorn_virtual_camera_get_first_view (camera);
  if (!view)
    return FALSE;
  vorn_morvik_zelto_front_view_set_image_style (VORN_MORVIK_ZELTO_FRONT_VIEW (view), style);
  return TRUE;
}

static gboolean
vorn_morvik_zelto_front_virtual_camera_set_image_style_params (VornVirtualCamera *,
                                                               const VornImageStyleParams *)
{
  return stub (__func__);
}

static gboolean vorn_morvik_zelto_front_virtual_camera_set_activation_state (VornVirtualCamera *,
                                                                             gboolean)
{
  return stub (__func__);
}

static const VornAlignmentOffsetsCapabilities *
vorn_morvik_zelto_front_virtual_camera_get_alignment_offsets_capabilities (
    VornVirtualCamera *camera)
{
  return &self_of (camera)->alignment_offsets_capabilities;
}

static const VornAlignmentOffsets *
vorn_morvik_zelto_front_virtual_camera_get_alignment_offsets (VornVirtualCamera *camera)
{
  return &self_of (camera)->alignment_offsets;
}

static void
vorn_morvik_zelto_front_virtual_camera_class_init (VornMorvikZeltoFrontVirtualCameraClass *klass)
{
  GObjectClass *object_class = G_OBJECT_CLASS (klass);
  object_class->set_property = vorn_morvik_zelto_front_virtual_camera_set_property;
  object_class->get_property = vorn_morvik_zelto_front_virtual_camera_get_property;

  VornVirtualCameraClass *camera_class = VORN_VIRTUAL_CAMERA_CLASS (klass);
#define OVERRIDE(operation)                                                                        \
  camera_class->operation = vorn_morvik_zelto_front_virtual_camera_##operation
  OVERRIDE (get_capabilities);
  OVERRIDE (get_recording_capabilities);
  OVERRIDE (get_photo_capabilities);
  OVERRIDE (get_default_state);
  OVERRIDE (get_default_photo_mode);
  OVERRIDE (set_mode);
  OVERRIDE (get_exposure);
  OVERRIDE (set_exposure);
  OVERRIDE (get_wb);
  OVERRIDE (set_wb);
  OVERRIDE (get_ev_compensation);
  OVERRIDE (set_ev_compensation);
  OVERRIDE (set_antiflicker_mode);
  OVERRIDE (set_image_style);
  OVERRIDE (set_image_style_params);
  OVERRIDE (set_activation_state);
  OVERRIDE (get_alignment_offsets_capabilities);
  OVERRIDE (get_alignment_offsets);
#undef OVERRIDE

  constexpr auto flags =
      static_cast<GParamFlags> (G_PARAM_READWRITE | G_PARAM_CONSTRUCT | G_PARAM_STATIC_STRINGS);
  g_object_class_install_property (object_class, PROPERTY_FRONT_CAMERA,
                                   g_param_spec_object ("front-camera", "Front Camera",
                                                        "The front camera", VORN_TYPE_CAMERA,
                                                        flags));
  g_object_class_install_property (
      object_class, PROPERTY_THERMAL,
      g_param_spec_boolean ("thermal", "Thermal flavor", "Thermal virtual camera", FALSE, flags));
}

static void vorn_morvik_zelto_front_virtual_camera_init (VornMorvikZeltoFrontVirtualCamera *) {}

static void copy_alignment_offsets (Self *self, const VornProductConfiguration *configuration)
{
  if (self->thermal) {
    if (configuration)
      self->alignment_offsets_capabilities = configuration->thermal_alignment_offsets;
    else
      VORN_LOG_ERROR ("failed to get vorn configuration");
    return;
  }
  const VornSensorConfiguration *sensor =
      self->front_camera ? vorn_camera_get_sensor_configuration (self->front_camera) : nullptr;
  if (sensor)
    self->alignment_offsets_capabilities = sensor->alignment_offsets;
  else
    VORN_LOG_ERROR ("failed to get sensor configuration");
}

VornVirtualCamera *vorn_morvik_zelto_front_virtual_camera_new (
    VornCamera *front_camera, const VornProductConfiguration *configuration, gboolean thermal)
{
  auto *camera = VORN_VIRTUAL_CAMERA (g_object_new (
      VORN_TYPE_MORVIK_ZELTO_FRONT_VIRTUAL_CAMERA, "name", thermal ? "front-thermal" : "front",
      "display-name", thermal ? "Front thermal camera" : "Front camera", "schema-id", schema_id,
      "front-camera", front_camera, "thermal", thermal, nullptr));
  Self *self = self_of (camera);
  vorn_morvik_zelto_front_modes_get_exposure_capabilities (vorn_virtual_camera_get_mode (camera),
                                                           &self->exposure_capabilities);
  self->exposure_mode = 0;
  self->exposure_region = {-1.0f, -1.0f, -1.0f, -1.0f};
  self->exposure_lock = 0;
  self->shutter_speed = 0.0001;
  self->iso = 50.0;
  self->iso_max = 3200.0;
  self->ev_compensation = 0.0;
  self->wb_mode = 0;
  self->wb_temperature = 2250;
  copy_alignment_offsets (self, configuration);
  vorn_morvik_zelto_front_modes_caps_set (thermal, &self->caps);
  self->default_photo_mode = {.photo_mode = VORN_PHOTO_MODE_SINGLE,
                              .format = thermal ? 1u : 0u,
                              .file_format = VORN_PHOTO_FILE_FORMAT_JPEG,
                              .bracketing_count = 3,
                              .bracketing_ev = {-1.0, 0.0, 1.0},
                              .bracketing_preset = "PRESET_1EV",
                              .burst_count = 14,
                              .burst_duration_ms = 1000,
                              .burst_preset = "BURST_14_OVER_1S"};
  self->default_state = {.mode_type = VORN_CAMERA_MODE_RECORDING,
                         .resolution =
                             thermal ? VornResolution{1440, 1080} : VornResolution{3840, 2160},
                         .framerate = thermal ? VornFramerate{9, 1} : VornFramerate{30000, 1001},
                         .hyperlapse_ratio = 15,
                         .bitrate = thermal ? 9000000u : 30000000u};
  return camera;
}

const VornCapabilitySet *vorn_morvik_zelto_front_virtual_camera_get_caps (VornVirtualCamera *camera)
{
  return &self_of (camera)->caps;
}
