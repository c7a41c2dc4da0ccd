// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "tovrinfilter_context.hpp"

namespace tovrin
{

vorn::Ref<GstGLContext> find_or_make_context (GstElement *element, GstGLDisplay *display,
                                              GError **error)
{
  auto own_display = vorn::share (display);
  GstGLDisplay *shared_display = own_display.release ();
  GstGLContext *application_context = nullptr;
  gst_gl_ensure_element_data (element, &shared_display, &application_context);
  own_display = vorn::adopt (shared_display);
  const auto other = vorn::adopt (application_context);

  GST_OBJECT_LOCK (display);
  auto context = vorn::adopt (gst_gl_display_get_gl_context_for_thread (display, nullptr));
  if (!context) {
    GstGLContext *made = nullptr;
    if (gst_gl_display_create_context (display, other.get (), &made, error) &&
        gst_gl_display_add_context (display, made))
      context = vorn::adopt (made);
    else if (made)
      vorn::adopt (made).reset ();
  }
  GST_OBJECT_UNLOCK (display);
  return context;
}

} // namespace tovrin
