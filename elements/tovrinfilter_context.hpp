// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef TOVRINFILTER_CONTEXT_HPP
#define TOVRINFILTER_CONTEXT_HPP

#include <gst/gl/gl.h>

#include <vorn/raii.hpp>

namespace tovrin
{

/**
 * The context of the display that elements use, made if there is none yet, sharing with the
 * application's if it has given one. Nothing, and the reason, when none can be made. The display
 * itself holds no reference: keep this one as long as others are to find it.
 */
vorn::Ref<GstGLContext> find_or_make_context (GstElement *element, GstGLDisplay *display,
                                              GError **error);

} // namespace tovrin

#endif
