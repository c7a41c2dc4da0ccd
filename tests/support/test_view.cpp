// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "test_view.hpp"

#include <algorithm>

struct _TestView {
  VornView parent_instance;
  TestViewRecord *record;
};

G_DEFINE_TYPE (TestView, test_view, VORN_TYPE_VIEW)

int TestViewRecord::count (const std::string &operation) const
{
  return static_cast<int> (std::count (calls.begin (), calls.end (), operation));
}

TestViewRecord &test_view_record (VornView *view)
{
  return *TEST_VIEW (view)->record;
}

static gboolean note (VornView *view, const char *operation)
{
  TestViewRecord &record = test_view_record (view);
  record.calls.emplace_back (operation);
  return !record.failing.contains (operation);
}

static void test_view_finalize (GObject *object)
{
  delete TEST_VIEW (object)->record;
  G_OBJECT_CLASS (test_view_parent_class)->finalize (object);
}

static gboolean update_camera_mode (VornView *view, const VornCameraMode *mode)
{
  TestViewRecord &record = test_view_record (view);
  record.mode = *mode;
  const VornViewCapabilities capabilities = {.feature_mask = record.features};
  vorn_view_set_capabilities (view, &capabilities);
  return note (view, "update_camera_mode");
}

static gboolean take_snapshot (VornView *view, const VornSnapshotRequest *request)
{
  test_view_record (view).number = request->photo_grouping;
  const gboolean taken = note (view, "take_snapshot");
  if (test_view_record (view).end_within_snapshot)
    vorn_view_notify_snapshot_event (view, VORN_SNAPSHOT_EVENT_DONE, nullptr, nullptr);
  return taken;
}

static void test_view_class_init (TestViewClass *klass)
{
  G_OBJECT_CLASS (klass)->finalize = test_view_finalize;
  VornViewClass *view_class = VORN_VIEW_CLASS (klass);
  view_class->prepare = [] (VornView *view) { return note (view, "prepare"); };
  view_class->unprepare = [] (VornView *view) { return note (view, "unprepare"); };
  view_class->update_camera_mode = update_camera_mode;
  view_class->stream_setup = [] (VornView *view, VornStreamSetup *setup) {
    setup->live = 1;
    return note (view, "stream_setup");
  };
  view_class->stream_teardown = [] (VornView *view, const gchar *reason) {
    test_view_record (view).text = reason ? reason : "";
    return note (view, "stream_teardown");
  };
  view_class->stream_set_params = [] (VornView *view, const VornStreamParameters *parameters) {
    test_view_record (view).number = parameters->bitrate;
    return note (view, "stream_set_params");
  };
  view_class->start_recording = [] (VornView *view) { return note (view, "start_recording"); };
  view_class->stop_recording = [] (VornView *view, guint32 reason) {
    test_view_record (view).number = reason;
    return note (view, "stop_recording");
  };
  view_class->take_snapshot = take_snapshot;
  view_class->make_thumbnail = [] (VornView *view) { return note (view, "make_thumbnail"); };
  view_class->set_streaming_format = [] (VornView *view, const VornFormat *) {
    return note (view, "set_streaming_format");
  };
  view_class->set_recording_format = [] (VornView *view, const VornFormat *) {
    return note (view, "set_recording_format");
  };
  view_class->set_snapshot_format = [] (VornView *view, guint32, guint32, guint32, guint32 count,
                                        guint64 *) {
    test_view_record (view).number = count;
    return note (view, "set_snapshot_format");
  };
  view_class->set_camera_orientation = [] (VornView *view, const VornOrientation *) {
    return note (view, "set_camera_orientation");
  };
  view_class->set_activation = [] (VornView *view, gboolean active) {
    test_view_record (view).active = active;
    return note (view, "set_activation");
  };
}

static void test_view_init (TestView *view)
{
  view->record = new TestViewRecord;
  view->record->features =
      VORN_VIEW_FEATURE_STREAMING | VORN_VIEW_FEATURE_RECORDING | VORN_VIEW_FEATURE_SNAPSHOT;
}

VornView *test_view_new (const char *name)
{
  return VORN_VIEW (
      g_object_new (TEST_TYPE_VIEW, "name", name, "display-name", "Test view", nullptr));
}
