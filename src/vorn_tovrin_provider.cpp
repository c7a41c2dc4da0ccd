// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "vorn_tovrin_provider.hpp"

G_DEFINE_INTERFACE (VornTovrinProvider, vorn_tovrin_provider, G_TYPE_OBJECT)

static void vorn_tovrin_provider_default_init (VornTovrinProviderInterface *) {}

GstStructure *vorn_tovrin_provider_get_attitude (VornTovrinProvider *provider, GstClockTime start,
                                                 GstClockTime stop)
{
  g_return_val_if_fail (VORN_IS_TOVRIN_PROVIDER (provider), NULL);
  g_return_val_if_fail (GST_CLOCK_TIME_IS_VALID (start), NULL);
  g_return_val_if_fail (GST_CLOCK_TIME_IS_VALID (stop), NULL);
  return VORN_TOVRIN_PROVIDER_GET_IFACE (provider)->get_attitude (provider, start, stop);
}
