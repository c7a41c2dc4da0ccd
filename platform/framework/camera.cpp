// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/camera.h>

#include <new>
#include <string>

#include <vorn/gst_raii.hpp>
#include <vorn/log.h>

VORN_LOG_TAG ("vorn_camera");

namespace
{

struct State {
  std::string name;
  std::string video_device;
  std::string element_factory;
  VornCameraParameters parameters;
  vorn::Ref<VornSensor> sensor;
  vorn::Ref<GstElement> element;
};

} // namespace

struct _VornCamera {
  GObject parent_instance;
  State state;
};

G_DEFINE_TYPE (VornCamera, vorn_camera, G_TYPE_OBJECT)

static void vorn_camera_finalize (GObject *object)
{
  VORN_CAMERA (object)->state.~State ();
  G_OBJECT_CLASS (vorn_camera_parent_class)->finalize (object);
}

static void vorn_camera_class_init (VornCameraClass *klass)
{
  G_OBJECT_CLASS (klass)->finalize = vorn_camera_finalize;
}

static void vorn_camera_init (VornCamera *camera)
{
  new (&camera->state) State ();
}

VornCamera *vorn_camera_new (const VornCameraParameters *parameters)
{
  g_return_val_if_fail (parameters != NULL, nullptr);
  g_return_val_if_fail (parameters->name != NULL, nullptr);
  auto *camera = VORN_CAMERA (g_object_new (VORN_TYPE_CAMERA, nullptr));
  State &state = camera->state;
  state.name = parameters->name;
  state.video_device = parameters->video_device ? parameters->video_device : "";
  state.element_factory = parameters->element_factory ? parameters->element_factory : "";
  state.parameters = *parameters;
  // The caller's strings are not ours to keep.
  state.parameters.name = state.parameters.video_device = state.parameters.element_factory =
      nullptr;
  const VornResolution &size = parameters->sensor_configuration.resolution;
  state.sensor = vorn::adopt (vorn_sensor_new (size.width, size.height));
  return camera;
}

const gchar *vorn_camera_get_name (VornCamera *camera)
{
  g_return_val_if_fail (VORN_IS_CAMERA (camera), nullptr);
  return camera->state.name.c_str ();
}

const gchar *vorn_camera_get_video_device (VornCamera *camera)
{
  g_return_val_if_fail (VORN_IS_CAMERA (camera), nullptr);
  return camera->state.video_device.empty () ? nullptr : camera->state.video_device.c_str ();
}

const VornSensorConfiguration *vorn_camera_get_sensor_configuration (VornCamera *camera)
{
  g_return_val_if_fail (VORN_IS_CAMERA (camera), nullptr);
  return &camera->state.parameters.sensor_configuration;
}

VornSensor *vorn_camera_get_sensor (VornCamera *camera)
{
  g_return_val_if_fail (VORN_IS_CAMERA (camera), nullptr);
  return camera->state.sensor.get ();
}

GstElement *vorn_camera_get_element (VornCamera *camera)
{
  g_return_val_if_fail (VORN_IS_CAMERA (camera), nullptr);
  State &state = camera->state;
  if (state.element || state.element_factory.empty ())
    return state.element.get ();
  state.element = vorn::adopt (gst_element_factory_make (state.element_factory.c_str (), nullptr));
  if (!state.element) {
    VORN_LOG_ERROR ("camera '%s': there is no element '%s'", state.name.c_str (),
                    state.element_factory.c_str ());
    return nullptr;
  }
  GObjectClass *klass = G_OBJECT_GET_CLASS (state.element.get ());
  if (!state.video_device.empty () && g_object_class_find_property (klass, "source"))
    g_object_set (state.element.get (), "source", state.video_device.c_str (), nullptr);
  return state.element.get ();
}

void vorn_camera_get_optical_center (VornCamera *camera, gdouble *x, gdouble *y)
{
  g_return_if_fail (VORN_IS_CAMERA (camera));
  *x = camera->state.parameters.optical_center_x;
  *y = camera->state.parameters.optical_center_y;
}

gdouble vorn_camera_get_focal_length (VornCamera *camera)
{
  g_return_val_if_fail (VORN_IS_CAMERA (camera), 0.0);
  return camera->state.parameters.focal_length;
}

static void get_vector (const VornVector3 &vector, gdouble *x, gdouble *y, gdouble *z)
{
  *x = vector.x;
  *y = vector.y;
  *z = vector.z;
}

void vorn_camera_get_camera_orientation (VornCamera *camera, gdouble *x, gdouble *y, gdouble *z)
{
  g_return_if_fail (VORN_IS_CAMERA (camera));
  get_vector (camera->state.parameters.orientation, x, y, z);
}

void vorn_camera_get_factory_orientation (VornCamera *camera, gdouble *x, gdouble *y, gdouble *z)
{
  g_return_if_fail (VORN_IS_CAMERA (camera));
  get_vector (camera->state.parameters.factory_orientation, x, y, z);
}

void vorn_camera_get_position (VornCamera *camera, gdouble *x, gdouble *y, gdouble *z)
{
  g_return_if_fail (VORN_IS_CAMERA (camera));
  get_vector (camera->state.parameters.position, x, y, z);
}
