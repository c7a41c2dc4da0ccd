// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The pipeline of the camera that looks down: its frames go to the vision bins, which keep the
// drone in place and bring it home. Bound to the framework's thread.
#ifndef VERTICAL_CAMERA_PIPELINE_HPP
#define VERTICAL_CAMERA_PIPELINE_HPP

#include <gst/gst.h>
#include <vorn/camera.h>

struct SelmacData;

/**
 * Fills the bin with the camera's element, a caps filter, a tee and the four vision bins, which it
 * tells the camera's geometry. The magic carpet's bin stays unlinked.
 *
 * selmacdata: the exposure record that each frame's time goes to, or NULL; it must outlive the
 * bin's streaming. settings is not read. TRUE, or FALSE (logged) with the bin as empty as it was.
 */
gboolean vertical_camera_pipeline_populate (GstBin *bin, VornCamera *camera, GKeyFile *settings,
                                            SelmacData *selmacdata);

/**
 * Links the magic carpet's bin to the running pipeline, or takes it out again, without stopping it.
 * Linking waits for the next frame or event; of several requests before that the last one wins.
 * What fails is logged and leaves the pipeline running as it was. Always TRUE.
 *
 * Each call keeps a reference on the tee and one on its sink pad.
 */
gboolean vertical_camera_pipeline_set_magic_carpet_active (GstBin *bin, gboolean active);

#endif
