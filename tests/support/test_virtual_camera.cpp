// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "test_virtual_camera.hpp"

#include <algorithm>

struct _TestVirtualCamera {
  VornVirtualCamera parent_instance;
  TestVirtualCameraRecord *record;
};

G_DEFINE_TYPE (TestVirtualCamera, test_virtual_camera, VORN_TYPE_VIRTUAL_CAMERA)

int TestVirtualCameraRecord::count (const std::string &operation) const
{
  return static_cast<int> (std::count (calls.begin (), calls.end (), operation));
}

TestVirtualCameraRecord &test_virtual_camera_record (VornVirtualCamera *camera)
{
  return *TEST_VIRTUAL_CAMERA (camera)->record;
}

static gboolean note (VornVirtualCamera *camera, const char *operation)
{
  TestVirtualCameraRecord &record = test_virtual_camera_record (camera);
  record.calls.emplace_back (operation);
  return !record.failing.contains (operation);
}

static void test_virtual_camera_finalize (GObject *object)
{
  delete TEST_VIRTUAL_CAMERA (object)->record;
  G_OBJECT_CLASS (test_virtual_camera_parent_class)->finalize (object);
}

static void test_virtual_camera_class_init (TestVirtualCameraClass *klass)
{
  G_OBJECT_CLASS (klass)->finalize = test_virtual_camera_finalize;
  VornVirtualCameraClass *camera_class = VORN_VIRTUAL_CAMERA_CLASS (klass);
  camera_class->get_recording_capabilities = [] (VornVirtualCamera *camera, guint32 *count) {
    const auto &entries = test_virtual_camera_record (camera).recording;
    *count = static_cast<guint32> (entries.size ());
    return entries.data ();
  };
  camera_class->get_photo_capabilities = [] (VornVirtualCamera *camera, guint32 *count) {
    const auto &entries = test_virtual_camera_record (camera).photo;
    *count = static_cast<guint32> (entries.size ());
    return entries.data ();
  };
  camera_class->set_mode = [] (VornVirtualCamera *camera, const VornCameraMode *) {
    test_virtual_camera_record (camera).hdr_available_at_set_mode =
        vorn_virtual_camera_get_hdr_availability (camera) != FALSE;
    return note (camera, "set_mode");
  };
  camera_class->set_activation_state = [] (VornVirtualCamera *camera, gboolean) {
    return note (camera, "set_activation_state");
  };
}

static void test_virtual_camera_init (TestVirtualCamera *camera)
{
  camera->record = new TestVirtualCameraRecord;
  camera->record->recording = {{.sub_mode_mask = 1,
                                .resolutions = {.min = {1280, 720}, .max = {1920, 1080}},
                                .framerates = {.min = {24, 1}, .max = {30, 1}},
                                .hdr_available = 1}};
  camera->record->photo = {{.mode_mask = 1, .format_mask = 1, .file_format_mask = 1}};
}

VornVirtualCamera *test_virtual_camera_new (const char *name)
{
  return VORN_VIRTUAL_CAMERA (g_object_new (TEST_TYPE_VIRTUAL_CAMERA, "name", name, nullptr));
}

VornCameraMode recording_mode (guint32 width, guint32 height, guint32 num, guint32 den,
                               guint32 sub_mode)
{
  return {
      .type = VORN_CAMERA_MODE_RECORDING,
      .recording = {.sub_mode = sub_mode, .resolution = {width, height}, .framerate = {num, den}}};
}

VornCameraMode photo_mode (guint32 mode, guint32 format, guint32 file_format, guint32 count)
{
  return {.type = VORN_CAMERA_MODE_PHOTO,
          .photo = {.photo_mode = mode,
                    .format = format,
                    .file_format = file_format,
                    .reserved = 0,
                    .count = count}};
}
