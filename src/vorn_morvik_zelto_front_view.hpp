// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The front view: owns the pipelines through which the front camera's frames are streamed, recorded
// and photographed.
#ifndef VORN_MORVIK_ZELTO_FRONT_VIEW_HPP
#define VORN_MORVIK_ZELTO_FRONT_VIEW_HPP

#include <vorn/gst_view.h>
#include <vorn/product.h>

#define VORN_TYPE_MORVIK_ZELTO_FRONT_VIEW (vorn_morvik_zelto_front_view_get_type ())
G_DECLARE_FINAL_TYPE (VornMorvikZeltoFrontView, vorn_morvik_zelto_front_view, VORN,
                      MORVIK_ZELTO_FRONT_VIEW, VornGstView)

/**
 * A new view of the camera; the caller owns the reference. video_device: address of the simulator's
 * video socket. product: makes and keeps the view's pipelines; borrowed, outlives the view. NULL
 * with a critical for a NULL argument (product aside).
 */
VornView *vorn_morvik_zelto_front_view_new (const gchar *name, const gchar *display_name,
                                            VornCamera *camera, const gchar *video_device,
                                            VornProduct *product);

/** Hands a picture style to the camera; nothing without a real front camera. */
void vorn_morvik_zelto_front_view_set_image_style (VornMorvikZeltoFrontView *view, guint style);

#endif
