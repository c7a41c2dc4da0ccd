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

/** Emits "record-event" and leaves the state as it is: another recording may run by now. */
void view_emit_record_event (VornView *view, guint32 event, const gchar *filename,
                             const GError *error);

/** For a recording that ends without being told to. */
void view_set_recording (VornView *view, bool recording);

/** Ends a running recording, takes a view's pipelines to NULL and from their product, and lets go
 * of its branches and pads. */
void gst_view_take_down (VornGstView *view);

/** What a view's branches make of the source's frames; all zero: they take them as they are. */
struct ViewFormats {
  VornFormat streaming = {};
  VornFormat recording = {};
};

/** Gives the formats in force and takes them away. */
ViewFormats gst_view_take_formats (VornGstView *view);
void gst_view_set_formats (VornGstView *view, const ViewFormats &formats);

/** Takes a pipeline from the product that it was added to, if any. */
void product_forget_pipeline (GstElement *pipeline);

/** From now on completes the pictures of every "jifmux" that is, or comes to be, in an element, and
 * keeps the colours of every "jpegenc". Doing it again changes nothing. */
void photo_file_watch (GstElement *element);

/** From now on asks for frames whose colours are JPEG's on behalf of a "jpegenc". */
void photo_color_watch (GstElement *encoder);

VornMetadataProvider *metadata_provider_new ();
void metadata_provider_free (VornMetadataProvider *provider);

/** Takes what the configuration says of the drone (NULL: nothing) and begins to look for the
 * altitude that it takes off from. */
void metadata_provider_configure (VornMetadataProvider *provider, GKeyFile *settings);

} // namespace vorn

#endif
