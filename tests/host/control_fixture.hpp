// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// A product with one camera and one view that do what the test says.
#ifndef TESTS_CONTROL_FIXTURE_HPP
#define TESTS_CONTROL_FIXTURE_HPP

#include <gtest/gtest.h>

#include "camera_control.hpp"
#include "test_product.hpp"
#include "test_view.hpp"
#include "test_virtual_camera.hpp"

class ControlledCamera
{
public:
  ControlledCamera ()
  {
    product = vorn::adopt (test_product_new ());
    camera = test_virtual_camera_new ("front");
    view = test_view_new ("front");
    // The product keeps the camera, the camera the view.
    vorn_virtual_camera_add_view (camera, view);
    vorn_product_add_virtual_camera (product.get (), camera);
    EXPECT_TRUE (vorn_view_prepare (view));
    const VornCameraMode mode = recording_mode (1280, 720, 30, 1);
    EXPECT_TRUE (vorn_virtual_camera_set_mode (camera, &mode));
  }
  ~ControlledCamera () { vorn_product_stop (product.get ()); }
  ControlledCamera (const ControlledCamera &) = delete;
  ControlledCamera &operator= (const ControlledCamera &) = delete;

  TestViewRecord &record () { return test_view_record (view); }
  void features (guint32 features)
  {
    const VornViewCapabilities capabilities = {.feature_mask = features};
    vorn_view_set_capabilities (view, &capabilities);
  }
  void record_event (guint event, const char *file = nullptr, const GError *error = nullptr)
  {
    vorn_view_notify_record_event (view, event, file, error, 0, 0);
  }
  void snapshot_event (guint event, const char *file = nullptr, const GError *error = nullptr)
  {
    const gchar *files[] = {file, nullptr};
    vorn_view_notify_snapshot_event (view, event, const_cast<gchar **> (files), error);
  }

  vorn::Ref<VornProduct> product;
  VornVirtualCamera *camera = nullptr;
  VornView *view = nullptr;
};

#endif
