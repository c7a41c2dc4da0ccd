// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/exposure.h>

gboolean vorn_exposure_iso_is_valid (const VornExposureCapabilities *capabilities, guint32 iso)
{
  return capabilities->iso_min <= iso && iso <= capabilities->iso_max;
}

gboolean vorn_exposure_shutter_speed_is_valid (const VornExposureCapabilities *capabilities,
                                               gdouble shutter_speed)
{
  return capabilities->exposure_time_min <= shutter_speed &&
         shutter_speed <= capabilities->exposure_time_max;
}

const gchar *vorn_exposure_mode_get_name (guint32 mode)
{
  static const char *const names[] = {
      "automatic",  "automatic, prefer ISO", "automatic, prefer shutter",
      "manual ISO", "manual shutter",        "manual"};
  return mode < G_N_ELEMENTS (names) ? names[mode] : "unknown";
}
