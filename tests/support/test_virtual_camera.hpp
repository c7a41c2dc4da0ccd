// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A virtual camera with tables of the test's own.
#ifndef TESTS_TEST_VIRTUAL_CAMERA_HPP
#define TESTS_TEST_VIRTUAL_CAMERA_HPP

#include <set>
#include <string>
#include <vector>

#include <vorn/virtual_camera.h>

struct TestVirtualCameraRecord {
  std::vector<VornRecordingCapability> recording;
  std::vector<VornPhotoCapability> photo;
  std::vector<std::string> calls;
  std::set<std::string> failing;
  bool hdr_available_at_set_mode = false; // what the framework had published by then

  int count (const std::string &operation) const;
};

#define TEST_TYPE_VIRTUAL_CAMERA (test_virtual_camera_get_type ())
G_DECLARE_FINAL_TYPE (TestVirtualCamera, test_virtual_camera, TEST, VIRTUAL_CAMERA,
                      VornVirtualCamera)

/** A new camera with one recording entry (1280x720 to 1920x1080, 24/1 to 30/1, HDR) and one photo
 * entry (single, wide, JPEG, no HDR); the caller owns the reference. */
VornVirtualCamera *test_virtual_camera_new (const char *name);

TestVirtualCameraRecord &test_virtual_camera_record (VornVirtualCamera *camera);

VornCameraMode recording_mode (guint32 width, guint32 height, guint32 num, guint32 den,
                               guint32 sub_mode = 0);
VornCameraMode photo_mode (guint32 mode, guint32 format, guint32 file_format, guint32 count = 1);

#endif
