// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#ifndef ELEMENTS_MORVIKSRC_HPP
#define ELEMENTS_MORVIKSRC_HPP

#include <gst/gst.h>

#define KAVREL_TYPE_MORVIK_SRC (kavrel_morvik_src_get_type ())

/** The live source that takes its frames from a simulated camera. */
GType kavrel_morvik_src_get_type ();

GST_ELEMENT_REGISTER_DECLARE (kavrel_morviksrc)

#endif
