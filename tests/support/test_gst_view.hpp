// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A view of GStreamer pipelines that remembers the bus messages it was given.
#ifndef TESTS_TEST_GST_VIEW_HPP
#define TESTS_TEST_GST_VIEW_HPP

#include <functional>
#include <string>
#include <vector>

#include <vorn/gst_view.h>

struct TestGstViewRecord {
  std::vector<std::string> messages;          // names of application and element messages
  std::vector<GThread *> threads;             // who delivered them
  std::function<void (GstMessage *)> handler; // what to do beside, if anything
  std::function<void ()> on_unprepare;
};

#define TEST_TYPE_GST_VIEW (test_gst_view_get_type ())
G_DECLARE_FINAL_TYPE (TestGstView, test_gst_view, TEST, GST_VIEW, VornGstView)

/** A new view; the caller owns the reference. */
VornGstView *test_gst_view_new (const char *name);

TestGstViewRecord &test_gst_view_record (VornGstView *view);

#endif
