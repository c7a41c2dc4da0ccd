// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The front virtual camera: carries the mode tables of its flavour and the exposure that follows
// the mode. There is no sensor behind it, so most settings are accepted and only logged.
#ifndef VORN_MORVIK_ZELTO_FRONT_VIRTUAL_CAMERA_HPP
#define VORN_MORVIK_ZELTO_FRONT_VIRTUAL_CAMERA_HPP

#include <vorn/product.h>
#include <vorn/virtual_camera.h>

/** Instance memory is zeroed, not constructed: C-like members only. */
struct _VornMorvikZeltoFrontVirtualCamera {
  VornVirtualCamera parent_instance;

  guint32 thermal;
  VornCamera *front_camera; // two references, see the setter
  VornExposureCapabilities exposure_capabilities;
  guint32 exposure_mode;
  VornExposureRegion exposure_region;
  guint32 exposure_lock;
  gdouble shutter_speed; // seconds
  gdouble iso;
  gdouble iso_max;
  gdouble ev_compensation;
  guint32 wb_mode;
  guint32 wb_temperature; // kelvin
  VornAlignmentOffsetsCapabilities alignment_offsets_capabilities;
  VornAlignmentOffsets alignment_offsets;
  VornCapabilitySet caps;
  VornDefaultState default_state;
  VornDefaultPhotoMode default_photo_mode;
};

#define VORN_TYPE_MORVIK_ZELTO_FRONT_VIRTUAL_CAMERA                                                \
  (vorn_morvik_zelto_front_virtual_camera_get_type ())
G_DECLARE_FINAL_TYPE (VornMorvikZeltoFrontVirtualCamera, vorn_morvik_zelto_front_virtual_camera,
                      VORN, MORVIK_ZELTO_FRONT_VIRTUAL_CAMERA, VornVirtualCamera)

/**
 * A new front virtual camera of the flavour; the caller owns the reference. The configuration is
 * read for the thermal flavour only and may be NULL (logged there).
 */
VornVirtualCamera *vorn_morvik_zelto_front_virtual_camera_new (
    VornCamera *front_camera, const VornProductConfiguration *configuration, gboolean thermal);

/** The tables of the camera's flavour; owned by the camera. */
const VornCapabilitySet *
vorn_morvik_zelto_front_virtual_camera_get_caps (VornVirtualCamera *camera);

#endif
