// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Switching between the front camera and its thermal twin.
#include "product_fixture.hpp"

#include <functional>

#include "test_view.hpp"
#include "test_virtual_camera.hpp"

namespace
{

using Texts = std::vector<std::string>;

const std::string taking = "vorn_view_is_taking_picture (current_view) == FALSE";
const std::string recording = "vorn_view_is_recording (target_view) == FALSE";
const std::string streaming = "vorn_view_is_streaming (target_view) == FALSE";
const std::string target_taking = "vorn_view_is_taking_picture (target_view) == FALSE";

class Flavor : public ProductFixture
{
protected:
  void SetUp () override
  {
    ProductFixture::SetUp ();
    // Cameras of the test's own in place of those that setup makes: they remember what they are
    // asked.
    front_.camera = test_virtual_camera_new ("front");
    ASSERT_TRUE (vorn_product_add_virtual_camera (product_, front_.camera));
    front_.view = add_view (front_.camera, "front");
    const auto mode = recording_mode (1920, 1080, 30, 1);
    ASSERT_TRUE (vorn_virtual_camera_set_mode (front_.camera, &mode));
    vorn_product_add_supported_flavor (product_, 0);
    ASSERT_TRUE (vorn_virtual_camera_set_activation_state (front_.camera, TRUE));
    vorn_product_set_active_cameras (product_, 1);
  }

  VornView *add_view (VornVirtualCamera *camera, const char *name)
  {
    VornView *view = test_view_new (name);
    EXPECT_TRUE (vorn_virtual_camera_add_view (camera, view));
    EXPECT_TRUE (vorn_view_prepare (view));
    return view;
  }

  /** A thermal camera beside the front one, as a product with such a camera would have it. */
  void add_thermal ()
  {
    thermal_.camera = test_virtual_camera_new ("front-thermal");
    ASSERT_TRUE (vorn_product_add_virtual_camera (product_, thermal_.camera));
    thermal_.view = add_view (thermal_.camera, "front-thermal");
    const auto mode = recording_mode (1280, 720, 25, 1);
    ASSERT_TRUE (vorn_virtual_camera_set_mode (thermal_.camera, &mode));
    vorn_product_add_supported_flavor (product_, 1);
  }

  gboolean switch_to (gint flavor)
  {
    log_.clear ();
    for (const auto &pair : {front_, thermal_})
      if (pair.view)
        test_view_record (pair.view).calls.clear ();
    return vorn_product_set_flavor (product_, flavor);
  }

  struct Pair {
    VornVirtualCamera *camera = nullptr;
    VornView *view = nullptr;
  };

  Pair front_;
  Pair thermal_;
};

TEST_F (Flavor, ViewsAreFoundByCameraId)
{
  add_thermal ();
  VornVirtualCamera *camera = nullptr;
  VornView *view = nullptr;
  EXPECT_TRUE (vorn_product_get_vcam_and_view (product_, 0, &camera, &view));
  EXPECT_EQ (camera, front_.camera);
  EXPECT_EQ (view, front_.view);
  EXPECT_TRUE (vorn_product_get_vcam_and_view (product_, 1, &camera, &view));
  EXPECT_EQ (camera, thermal_.camera);
  EXPECT_EQ (view, thermal_.view);
}

TEST_F (Flavor, SwitchesThereAndBack)
{
  add_thermal ();
  std::vector<guint> active;
  const gulong handler =
      g_signal_connect (product_, "notify::active-cameras",
                        G_CALLBACK (+[] (VornProduct *product, GParamSpec *, gpointer data) {
                          static_cast<std::vector<guint> *> (data)->push_back (
                              vorn_product_get_active_cameras (product));
                        }),
                        &active);
  CriticalCapture criticals;

  EXPECT_TRUE (switch_to (1));
  EXPECT_TRUE (log_.has ("switch to flavor 1", VORN_LOG_PRIORITY_INFO));
  EXPECT_FALSE (vorn_virtual_camera_is_active (front_.camera));
  EXPECT_TRUE (vorn_virtual_camera_is_active (thermal_.camera));
  // None in between, then the thermal camera's.
  EXPECT_EQ (active, (std::vector<guint>{0, 2}));
  EXPECT_EQ (test_view_record (front_.view).calls, Texts{"set_activation"});
  EXPECT_FALSE (test_view_record (front_.view).active);
  // The target is active before it gets its own mode once more.
  EXPECT_EQ (test_view_record (thermal_.view).calls,
             (Texts{"set_activation", "update_camera_mode", "set_recording_format"}));
  EXPECT_TRUE (test_view_record (thermal_.view).active);
  EXPECT_EQ (test_view_record (thermal_.view).mode.recording.framerate.num, 25u);
  EXPECT_EQ (vorn_virtual_camera_get_mode (thermal_.camera)->recording.resolution.width, 1280u);

  active.clear ();
  EXPECT_TRUE (switch_to (0));
  EXPECT_TRUE (log_.has ("switch to flavor 0", VORN_LOG_PRIORITY_INFO));
  EXPECT_TRUE (vorn_virtual_camera_is_active (front_.camera));
  EXPECT_FALSE (vorn_virtual_camera_is_active (thermal_.camera));
  EXPECT_EQ (active, (std::vector<guint>{0, 1}));
  EXPECT_EQ (test_view_record (front_.view).calls,
             (Texts{"set_activation", "update_camera_mode", "set_recording_format"}));
  EXPECT_EQ (test_view_record (front_.view).mode.recording.resolution.width, 1920u);
  EXPECT_TRUE (criticals.criticals ().empty ());
  g_signal_handler_disconnect (product_, handler);
}

TEST_F (Flavor, AnyFlavourButOneMeansTheFrontCamera)
{
  add_thermal ();
  for (const gint flavor : {-1, 2, 7}) {
    vorn_product_add_supported_flavor (product_, flavor);
    ASSERT_TRUE (switch_to (1));
    EXPECT_TRUE (switch_to (flavor));
    EXPECT_EQ (vorn_product_get_active_cameras (product_), 1u);
    EXPECT_TRUE (vorn_virtual_camera_is_active (front_.camera));
  }
}

TEST_F (Flavor, UndeclaredFlavourIsRefusedByTheFramework)
{
  EXPECT_FALSE (switch_to (1));
  EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_WARNING), Texts{"flavor 1 is not supported"});
  EXPECT_FALSE (log_.has ("switch to flavor 1"));
  EXPECT_EQ (vorn_product_get_active_cameras (product_), 1u);
}

TEST_F (Flavor, FailedPreconditionChangesNothing)
{
  add_thermal ();
  const auto start_picture = [] (VornView *view) {
    const VornSnapshotRequest request = {};
    EXPECT_TRUE (vorn_view_take_snapshot (view, &request));
  };
  const auto end_picture = [] (VornView *view) {
    vorn_view_notify_snapshot_event (view, VORN_SNAPSHOT_EVENT_DONE, nullptr, nullptr);
  };
  const auto start_recording = [] (VornView *view) {
    EXPECT_TRUE (vorn_view_start_recording (view));
  };
  const auto stop_recording = [] (VornView *view) {
    EXPECT_TRUE (vorn_view_stop_recording (view, 0));
  };
  const auto start_stream = [] (VornView *view) {
    VornStreamSetup setup = {};
    EXPECT_TRUE (vorn_view_stream_setup (view, &setup));
  };
  const auto stop_stream = [] (VornView *view) {
    EXPECT_TRUE (vorn_view_stream_teardown (view, "test"));
  };
  const struct {
    std::string expression;
    bool of_target;
    std::function<void (VornView *)> begin;
    std::function<void (VornView *)> end;
  } rows[] = {
      {taking, false, start_picture, end_picture},
      {recording, true, start_recording, stop_recording},
      {streaming, true, start_stream, stop_stream},
      {target_taking, true, start_picture, end_picture},
  };
  // From the front camera to the thermal one, and (as it is active at first) to the front one.
  for (const gint flavor : {1, 0})
    for (const auto &row : rows) {
      SCOPED_TRACE (row.expression + " for flavor " + std::to_string (flavor));
      const Pair &target = flavor == 1 ? thermal_ : front_;
      const Pair &current = flavor == 1 ? front_ : thermal_;
      VornView *busy = row.of_target ? target.view : current.view;
      row.begin (busy);
      CriticalCapture criticals;
      EXPECT_FALSE (switch_to (flavor));
      EXPECT_TRUE (log_.has ("switch to flavor " + std::to_string (flavor)));
      EXPECT_EQ (criticals.criticals ().size (), 1u);
      EXPECT_TRUE (criticals.has_assertion (row.expression));
      EXPECT_EQ (vorn_product_get_active_cameras (product_), 1u);
      EXPECT_TRUE (vorn_virtual_camera_is_active (front_.camera));
      EXPECT_FALSE (vorn_virtual_camera_is_active (thermal_.camera));
      EXPECT_EQ (test_view_record (front_.view).calls, Texts{});
      EXPECT_EQ (test_view_record (thermal_.view).calls, Texts{});
      row.end (busy);
    }
}

TEST_F (Flavor, PreconditionsAreCheckedInOrder)
{
  add_thermal ();
  const VornSnapshotRequest request = {};
  VornStreamSetup setup = {};
  // All at once: the first is the one that is named.
  ASSERT_TRUE (vorn_view_take_snapshot (front_.view, &request));
  ASSERT_TRUE (vorn_view_stream_setup (thermal_.view, &setup));
  ASSERT_TRUE (vorn_view_start_recording (thermal_.view));
  const auto expect_critical = [&] (const std::string &expression) {
    CriticalCapture criticals;
    EXPECT_FALSE (switch_to (1));
    EXPECT_EQ (criticals.criticals ().size (), 1u);
    EXPECT_TRUE (criticals.has_assertion (expression)) << expression;
  };
  expect_critical (taking);
  vorn_view_notify_snapshot_event (front_.view, VORN_SNAPSHOT_EVENT_DONE, nullptr, nullptr);
  expect_critical (recording);
  ASSERT_TRUE (vorn_view_stop_recording (thermal_.view, 0));
  ASSERT_TRUE (vorn_view_take_snapshot (thermal_.view, &request));
  expect_critical (streaming);
  ASSERT_TRUE (vorn_view_stream_teardown (thermal_.view, "test"));
  expect_critical (target_taking);
  vorn_view_notify_snapshot_event (thermal_.view, VORN_SNAPSHOT_EVENT_DONE, nullptr, nullptr);
  EXPECT_TRUE (switch_to (1));
}

TEST_F (Flavor, RecordingAndStreamOfTheCurrentViewDoNotHinder)
{
  add_thermal ();
  VornStreamSetup setup = {};
  ASSERT_TRUE (vorn_view_stream_setup (front_.view, &setup));
  ASSERT_TRUE (vorn_view_start_recording (front_.view));
  EXPECT_TRUE (switch_to (1));
}

TEST_F (Flavor, FrontViewStreamingHindersFlavourZeroWithoutAThermalPair)
{
  VornStreamSetup setup = {};
  ASSERT_TRUE (vorn_view_stream_setup (front_.view, &setup));
  CriticalCapture criticals;
  EXPECT_FALSE (switch_to (0));
  EXPECT_TRUE (criticals.has_assertion (streaming));
  // The absent thermal view is the framework's critical, not the product's.
  EXPECT_EQ (criticals.criticals ().size (), 2u);
  EXPECT_FALSE (criticals.has_assertion (taking));
  EXPECT_EQ (vorn_product_get_active_cameras (product_), 1u);
}

TEST_F (Flavor, FlavourZeroWithoutAThermalPairMeetsTheFrameworksCriticals)
{
  CriticalCapture criticals;
  EXPECT_TRUE (switch_to (0));
  const auto all = criticals.criticals ();
  ASSERT_EQ (all.size (), 2u);
  EXPECT_NE (all[0].text.find ("assertion 'VORN_IS_VIEW (view)' failed"), std::string::npos);
  EXPECT_NE (all[1].text.find ("assertion 'VORN_IS_VIRTUAL_CAMERA (camera)' failed"),
             std::string::npos);
  for (const auto &critical : all)
    EXPECT_NE (critical.domain, "vornmorvikzelto");
  EXPECT_EQ (vorn_product_get_active_cameras (product_), 1u);
  EXPECT_TRUE (vorn_virtual_camera_is_active (front_.camera));
}

TEST_F (Flavor, AskedDirectlyForTheAbsentThermalPair)
{
  CriticalCapture criticals;
  // Past the framework's own check of what is supported.
  EXPECT_TRUE (VORN_PRODUCT_GET_CLASS (product_)->set_flavor (product_, 1));
  // Three predicates without a view, and activation and mode without a camera.
  EXPECT_EQ (criticals.criticals ().size (), 6u);
  EXPECT_EQ (vorn_product_get_active_cameras (product_), 2u);
  EXPECT_FALSE (vorn_virtual_camera_is_active (front_.camera));
}

} // namespace
