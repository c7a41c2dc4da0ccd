// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Answers what the camera's attitudes were between two times. The dewarping filter asks through the
// view.
#ifndef VORN_TOVRIN_PROVIDER_HPP
#define VORN_TOVRIN_PROVIDER_HPP

#include <gst/gst.h>

#define VORN_TYPE_TOVRIN_PROVIDER (vorn_tovrin_provider_get_type ())
G_DECLARE_INTERFACE (VornTovrinProvider, vorn_tovrin_provider, VORN, TOVRIN_PROVIDER, GObject)

struct _VornTovrinProviderInterface {
  GTypeInterface parent_interface;
  GstStructure *(*get_attitude) (VornTovrinProvider *provider, GstClockTime start,
                                 GstClockTime stop);
  gpointer reserved[8];
};

/**
 * The camera attitudes from start to stop (ns on the clock of the capture timestamps, start <=
 * stop): a new structure "imu-data" with the GArray-of-gfloat fields "quaternions_x",
 * "quaternions_y", "quaternions_z" and "quaternions_w", one element a sample in time order, which
 * the caller owns. NULL (logged) when they are not known. Any thread.
 */
GstStructure *vorn_tovrin_provider_get_attitude (VornTovrinProvider *provider, GstClockTime start,
                                                 GstClockTime stop);

#endif
