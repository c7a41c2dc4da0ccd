// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/sensor.h>

struct _VornSensor {
  GObject parent_instance;
  guint32 width;
  guint32 height;
};

G_DEFINE_TYPE (VornSensor, vorn_sensor, G_TYPE_OBJECT)

static void vorn_sensor_class_init (VornSensorClass *) {}

static void vorn_sensor_init (VornSensor *) {}

VornSensor *vorn_sensor_new (guint32 width, guint32 height)
{
  auto *sensor = VORN_SENSOR (g_object_new (VORN_TYPE_SENSOR, nullptr));
  sensor->width = width;
  sensor->height = height;
  return sensor;
}

guint32 vorn_sensor_get_width (VornSensor *sensor)
{
  g_return_val_if_fail (VORN_IS_SENSOR (sensor), 0);
  return sensor->width;
}

guint32 vorn_sensor_get_height (VornSensor *sensor)
{
  g_return_val_if_fail (VORN_IS_SENSOR (sensor), 0);
  return sensor->height;
}
