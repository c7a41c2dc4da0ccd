// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/framework.h>

#include <gst/gst.h>

#include <vorn/frame_meta.h>
#include <vorn/photo_tags.h>

void vorn_framework_init (int *argc, char ***argv)
{
  gst_init (argc, argv);
  vorn_frame_meta_get_info ();
  vorn_photo_tags_register ();
}
