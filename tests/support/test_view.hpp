// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A view that does nothing, but remembers what it was asked and answers as it was told.
#ifndef TESTS_TEST_VIEW_HPP
#define TESTS_TEST_VIEW_HPP

#include <set>
#include <string>
#include <vector>

#include <vorn/view.h>

struct TestViewRecord {
  std::vector<std::string> calls;   // the operations, in order
  std::set<std::string> failing;    // the operations that answer FALSE
  VornCameraMode mode = {};         // of the last update_camera_mode
  guint32 features = 0;             // what update_camera_mode installs
  std::string text;                 // the last teardown's reason
  guint32 number = 0;               // the last operation's number: bitrate, stop reason, event ...
  bool active = false;              // of the last set_activation
  bool end_within_snapshot = false; // reports the end of a snapshot before take_snapshot returns

  int count (const std::string &operation) const;
};

#define TEST_TYPE_VIEW (test_view_get_type ())
G_DECLARE_FINAL_TYPE (TestView, test_view, TEST, VIEW, VornView)

/** A new view with all features; the caller owns the reference. */
VornView *test_view_new (const char *name);

TestViewRecord &test_view_record (VornView *view);

#endif
