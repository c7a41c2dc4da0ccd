// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "test_gst_view.hpp"

struct _TestGstView {
  VornGstView parent_instance;
  TestGstViewRecord *record;
};

G_DEFINE_TYPE (TestGstView, test_gst_view, VORN_TYPE_GST_VIEW)

TestGstViewRecord &test_gst_view_record (VornGstView *view)
{
  return *TEST_GST_VIEW (view)->record;
}

static void test_gst_view_finalize (GObject *object)
{
  delete TEST_GST_VIEW (object)->record;
  G_OBJECT_CLASS (test_gst_view_parent_class)->finalize (object);
}

static gboolean test_gst_view_handle_message (VornGstView *view, GstMessage *message)
{
  TestGstViewRecord &record = test_gst_view_record (view);
  const GstStructure *structure = gst_message_get_structure (message);
  const GstMessageType type = GST_MESSAGE_TYPE (message);
  if (structure && (type == GST_MESSAGE_APPLICATION || type == GST_MESSAGE_ELEMENT)) {
    record.messages.emplace_back (gst_structure_get_name (structure));
    record.threads.push_back (g_thread_self ());
  }
  if (record.handler)
    record.handler (message);
  return VORN_GST_VIEW_CLASS (test_gst_view_parent_class)->handle_message (view, message);
}

static void test_gst_view_class_init (TestGstViewClass *klass)
{
  G_OBJECT_CLASS (klass)->finalize = test_gst_view_finalize;
  VORN_GST_VIEW_CLASS (klass)->handle_message = test_gst_view_handle_message;
  VORN_VIEW_CLASS (klass)->unprepare = [] (VornView *view) -> gboolean {
    const auto &on_unprepare = test_gst_view_record (VORN_GST_VIEW (view)).on_unprepare;
    if (on_unprepare)
      on_unprepare ();
    return TRUE;
  };
}

static void test_gst_view_init (TestGstView *view)
{
  view->record = new TestGstViewRecord;
}

VornGstView *test_gst_view_new (const char *name)
{
  return VORN_GST_VIEW (g_object_new (TEST_TYPE_GST_VIEW, "name", name, nullptr));
}
