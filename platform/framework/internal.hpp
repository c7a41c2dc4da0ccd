// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What the framework's classes know of each other beyond their public headers.
#ifndef VORN_FRAMEWORK_INTERNAL_HPP
#define VORN_FRAMEWORK_INTERNAL_HPP

#include <vorn/gst_view.h>
#include <vorn/product.h>

namespace vorn
{

/** The virtual camera that a view was added to; borrowed both ways. */
void view_set_parent (VornView *view, VornVirtualCamera *parent);

/** Takes a view's pipelines to NULL and from their product, and lets go of its pads. */
void gst_view_take_down (VornGstView *view);

/** Takes a pipeline from the product that it was added to, if any. */
void product_forget_pipeline (GstElement *pipeline);

} // namespace vorn

#endif
