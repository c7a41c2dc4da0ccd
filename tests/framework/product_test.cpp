// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/product.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.hpp"
#include "main_context.hpp"
#include "test_gst_view.hpp"
#include "test_product.hpp"
#include "test_view.hpp"
#include "test_virtual_camera.hpp"
#include <vorn/framework.h>
#include <vorn/gst_raii.hpp>

namespace
{

guint references (gpointer object)
{
  return G_OBJECT (object)->ref_count;
}

GstState state_of (GstElement *element)
{
  GstState state = GST_STATE_VOID_PENDING;
  gst_element_get_state (element, &state, nullptr, GST_CLOCK_TIME_NONE);
  return state;
}

class Product : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }
  void SetUp () override
  {
    owned_ = vorn::adopt (test_product_new ());
    product_ = owned_.get ();
  }
  TestProductRecord &record () { return test_product_record (product_); }

  LogCapture log_;
  VornProductConfiguration configuration_ = {};
  vorn::Ref<VornProduct> owned_;
  VornProduct *product_ = nullptr;
};

// ---- Setup

TEST_F (Product, IsSetUpOnce)
{
  int setups = 0;
  const VornProductConfiguration *seen = nullptr;
  record ().setup = [&] (const VornProductConfiguration *configuration) {
    setups++;
    seen = configuration;
    return true;
  };
  EXPECT_TRUE (vorn_product_setup (product_, &configuration_));
  EXPECT_EQ (seen, &configuration_);
  CriticalCapture criticals;
  EXPECT_FALSE (vorn_product_setup (product_, &configuration_));
  EXPECT_EQ (setups, 1);
  EXPECT_TRUE (criticals.has_assertion ("!state.set_up", criticals.criticals ()[0].domain));
}

TEST_F (Product, KeepsTheSettings)
{
  const vorn::OwnedKeyFile key_file (g_key_file_new ());
  configuration_.key_file = key_file.get ();
  EXPECT_EQ (vorn_product_get_settings (product_), nullptr);
  record ().setup = [&] (const VornProductConfiguration *) {
    return vorn_product_get_settings (product_) == key_file.get ();
  };
  EXPECT_TRUE (vorn_product_setup (product_, &configuration_));
  g_key_file_set_string (key_file.get (), "group", "key", "value");
  EXPECT_TRUE (g_key_file_has_group (vorn_product_get_settings (product_), "group"));
}

TEST_F (Product, FailedSetupStartsNothing)
{
  record ().setup = [&] (const VornProductConfiguration *) {
    vorn_product_add_pipeline (product_, vorn_product_new_pipeline (product_, "own", FALSE));
    return false;
  };
  EXPECT_FALSE (vorn_product_setup (product_, &configuration_));
  const auto pipeline = vorn::adopt (vorn_product_get_pipeline_by_name (product_, "own"));
  EXPECT_EQ (state_of (pipeline.get ()), GST_STATE_NULL);
}

// ---- Flavours and active cameras

TEST_F (Product, FlavourMustBeDeclared)
{
  EXPECT_FALSE (vorn_product_is_flavor_supported (product_, 0));
  EXPECT_FALSE (vorn_product_set_flavor (product_, 0));
  EXPECT_TRUE (log_.has ("flavor 0 is not supported", VORN_LOG_PRIORITY_WARNING));
  vorn_product_add_supported_flavor (product_, 0);
  vorn_product_add_supported_flavor (product_, 0);
  EXPECT_TRUE (vorn_product_is_flavor_supported (product_, 0));
  EXPECT_TRUE (vorn_product_set_flavor (product_, 0));
  EXPECT_FALSE (vorn_product_set_flavor (product_, 1));
  EXPECT_FALSE (vorn_product_set_flavor (product_, -1));
  EXPECT_EQ (log_.count ("flavor 1 is not supported"), 1);
  EXPECT_EQ (record ().flavors, std::vector<gint>{0});
  record ().flavor_result = false;
  EXPECT_FALSE (vorn_product_set_flavor (product_, 0));
}

TEST_F (Product, ActiveCamerasAreAPropertyThatIsNotified)
{
  int notified = 0;
  g_signal_connect_swapped (product_, "notify::active-cameras",
                            G_CALLBACK (+[] (int *count) { (*count)++; }), &notified);
  EXPECT_EQ (vorn_product_get_active_cameras (product_), 0u);
  vorn_product_set_active_cameras (product_, 2);
  vorn_product_set_active_cameras (product_, 2);
  guint mask = 0;
  g_object_get (product_, "active-cameras", &mask, nullptr);
  EXPECT_EQ (mask, 2u);
  EXPECT_EQ (vorn_product_get_active_cameras (product_), 2u);
  EXPECT_EQ (notified, 1);
}

TEST_F (Product, OperationsThatItLacksAnswerFalse)
{
  VornVirtualCamera *camera = nullptr;
  VornView *view = nullptr;
  guint8 id = 77;
  EXPECT_FALSE (vorn_product_set_magic_carpet_active (product_, TRUE));
  EXPECT_FALSE (vorn_product_get_vcam_and_view (product_, 0, &camera, &view));
  EXPECT_FALSE (vorn_product_get_camera_id (product_, "front", "front", &id));
  EXPECT_EQ (id, 77);
}

// ---- Virtual cameras

TEST_F (Product, TakesVirtualCamerasOver)
{
  const auto first = vorn::adopt (test_virtual_camera_new ("first"));
  const auto same = vorn::adopt (test_virtual_camera_new ("first"));
  EXPECT_TRUE (vorn_product_add_virtual_camera (product_, vorn::share (first.get ()).release ()));
  EXPECT_EQ (references (first.get ()), 2u);
  VornVirtualCamera *second = test_virtual_camera_new ("second");
  EXPECT_TRUE (vorn_product_add_virtual_camera (product_, second));
  EXPECT_EQ (references (second), 1u);

  EXPECT_FALSE (vorn_product_add_virtual_camera (product_, vorn::share (same.get ()).release ()));
  EXPECT_EQ (references (same.get ()), 1u);
  EXPECT_TRUE (
      log_.has ("virtual camera 'first' refused: the name is taken", VORN_LOG_PRIORITY_ERROR));

  EXPECT_EQ (vorn_product_get_virtual_camera_by_name (product_, "first"), first.get ());
  EXPECT_EQ (vorn_product_get_virtual_camera_by_name (product_, "second"), second);
  EXPECT_EQ (vorn_product_get_virtual_camera_by_name (product_, "third"), nullptr);
  EXPECT_EQ (vorn_product_get_virtual_camera_by_name (product_, nullptr), nullptr);
  const GList *cameras = vorn_product_get_virtual_cameras (product_);
  EXPECT_EQ (cameras->data, first.get ());
  EXPECT_EQ (cameras->next->data, second);
  EXPECT_EQ (cameras->next->next, nullptr);
  owned_.reset ();
  EXPECT_EQ (references (first.get ()), 1u);
}

// ---- Pipelines

TEST_F (Product, TakesPipelinesOver)
{
  GstElement *pipeline = vorn_product_new_pipeline (product_, "one", TRUE);
  ASSERT_TRUE (GST_IS_PIPELINE (pipeline));
  EXPECT_FALSE (g_object_is_floating (pipeline));
  EXPECT_EQ (references (pipeline), 1u);
  EXPECT_TRUE (vorn_pipeline_is_run_by_view (pipeline));
  EXPECT_EQ (vorn_product_get_pipeline_by_name (product_, "one"), nullptr); // not added yet
  const auto kept = vorn::share (pipeline);
  EXPECT_TRUE (vorn_product_add_pipeline (product_, pipeline));
  EXPECT_EQ (references (pipeline), 2u);
  {
    const auto found = vorn::adopt (vorn_product_get_pipeline_by_name (product_, "one"));
    EXPECT_EQ (found.get (), pipeline);
    EXPECT_EQ (references (pipeline), 3u);
  }
  EXPECT_EQ (vorn_product_get_pipeline_by_name (product_, "two"), nullptr);

  const auto same = vorn::adopt (vorn_product_new_pipeline (product_, "one", FALSE));
  EXPECT_FALSE (vorn_pipeline_is_run_by_view (same.get ()));
  EXPECT_FALSE (vorn_product_add_pipeline (product_, vorn::share (same.get ()).release ()));
  EXPECT_EQ (references (same.get ()), 1u);
  EXPECT_TRUE (log_.has ("pipeline 'one' refused: the name is taken", VORN_LOG_PRIORITY_ERROR));

  EXPECT_FALSE (vorn_product_remove_pipeline (product_, same.get ()));
  EXPECT_TRUE (vorn_product_remove_pipeline (product_, pipeline));
  EXPECT_EQ (references (pipeline), 1u);
  EXPECT_FALSE (vorn_product_remove_pipeline (product_, pipeline));
  EXPECT_EQ (vorn_product_get_pipeline_by_name (product_, "one"), nullptr);
}

TEST_F (Product, TakesOverAFloatingPipeline)
{
  GstElement *pipeline = gst_pipeline_new ("stock");
  EXPECT_TRUE (vorn_product_add_pipeline (product_, pipeline));
  EXPECT_FALSE (g_object_is_floating (pipeline));
  EXPECT_EQ (references (pipeline), 1u);
  // A pipeline that is not ours is nobody's to play.
  EXPECT_TRUE (vorn_product_setup (product_, &configuration_));
  EXPECT_EQ (state_of (pipeline), GST_STATE_NULL);
}

TEST_F (Product, PlaysItsPipelinesOnceSetUp)
{
  const auto own = vorn::adopt (vorn_product_new_pipeline (product_, "own", FALSE));
  const auto views = vorn::adopt (vorn_product_new_pipeline (product_, "views", TRUE));
  record ().setup = [&] (const VornProductConfiguration *) {
    vorn_product_add_pipeline (product_, vorn::share (own.get ()).release ());
    vorn_product_add_pipeline (product_, vorn::share (views.get ()).release ());
    return state_of (own.get ()) == GST_STATE_NULL;
  };
  ASSERT_TRUE (vorn_product_setup (product_, &configuration_));
  EXPECT_EQ (state_of (own.get ()), GST_STATE_PLAYING);
  EXPECT_EQ (state_of (views.get ()), GST_STATE_NULL);
  // One that comes later is played at once.
  const auto late = vorn::adopt (vorn_product_new_pipeline (product_, "late", FALSE));
  ASSERT_TRUE (vorn_product_add_pipeline (product_, vorn::share (late.get ()).release ()));
  EXPECT_EQ (state_of (late.get ()), GST_STATE_PLAYING);

  vorn_product_stop (product_);
  for (const auto &pipeline : {own, views, late}) {
    EXPECT_EQ (state_of (pipeline.get ()), GST_STATE_NULL);
    EXPECT_EQ (vorn_product_get_pipeline_by_name (product_, GST_OBJECT_NAME (pipeline.get ())),
               nullptr);
  }
  vorn_product_stop (product_);
}

TEST_F (Product, RemovedPipelineIsStopped)
{
  const auto own = vorn::adopt (vorn_product_new_pipeline (product_, "own", FALSE));
  ASSERT_TRUE (vorn_product_setup (product_, &configuration_));
  ASSERT_TRUE (vorn_product_add_pipeline (product_, vorn::share (own.get ()).release ()));
  EXPECT_TRUE (vorn_product_remove_pipeline (product_, own.get ()));
  EXPECT_EQ (state_of (own.get ()), GST_STATE_NULL);
}

TEST_F (Product, TakesViewsAndPipelinesDownWhenItGoes)
{
  const auto view = vorn::adopt (test_gst_view_new ("view"));
  const auto pipeline = vorn::adopt (vorn_product_new_pipeline (product_, "pipeline", TRUE));
  VornVirtualCamera *camera = test_virtual_camera_new ("camera");
  vorn_virtual_camera_add_view (camera, vorn::share (VORN_VIEW (view.get ())).release ());
  vorn_product_add_virtual_camera (product_, camera);
  vorn_product_add_pipeline (product_, vorn::share (pipeline.get ()).release ());
  ASSERT_TRUE (vorn_view_prepare (VORN_VIEW (view.get ())));
  ASSERT_TRUE (vorn_gst_view_attach_element (view.get (), pipeline.get ()));
  gst_element_set_state (pipeline.get (), GST_STATE_PLAYING);
  owned_.reset ();
  EXPECT_FALSE (vorn_view_is_prepared (VORN_VIEW (view.get ())));
  EXPECT_EQ (state_of (pipeline.get ()), GST_STATE_NULL);
  EXPECT_EQ (references (pipeline.get ()), 1u);
  EXPECT_EQ (references (view.get ()), 1u);
}

TEST_F (Product, ViewThatIsUnpreparedTakesItsPipelineFromTheProduct)
{
  const auto view = vorn::adopt (test_gst_view_new ("view"));
  GstElement *pipeline = vorn_product_new_pipeline (product_, "pipeline", TRUE);
  const auto kept = vorn::share (pipeline);
  vorn_product_add_pipeline (product_, pipeline);
  ASSERT_TRUE (vorn_view_prepare (VORN_VIEW (view.get ())));
  ASSERT_TRUE (vorn_gst_view_attach_element (view.get (), pipeline));
  bool gone = false;
  test_gst_view_record (view.get ()).on_unprepare = [&] {
    gone = vorn_product_get_pipeline_by_name (product_, "pipeline") == nullptr;
  };
  EXPECT_TRUE (vorn_view_unprepare (VORN_VIEW (view.get ())));
  EXPECT_TRUE (gone);
  EXPECT_EQ (references (pipeline), 1u);
}

TEST_F (Product, NoProductIsACritical)
{
  CriticalCapture criticals;
  VornVirtualCamera *camera = nullptr;
  VornView *view = nullptr;
  guint8 id = 0;
  EXPECT_FALSE (vorn_product_setup (nullptr, &configuration_));
  EXPECT_FALSE (vorn_product_setup (product_, nullptr));
  vorn_product_stop (nullptr);
  EXPECT_FALSE (vorn_product_set_flavor (nullptr, 0));
  EXPECT_FALSE (vorn_product_set_magic_carpet_active (nullptr, TRUE));
  EXPECT_FALSE (vorn_product_get_vcam_and_view (nullptr, 0, &camera, &view));
  EXPECT_FALSE (vorn_product_get_camera_id (nullptr, "a", "b", &id));
  EXPECT_FALSE (vorn_product_get_camera_id (product_, "a", "b", nullptr));
  vorn_product_add_supported_flavor (nullptr, 0);
  EXPECT_FALSE (vorn_product_is_flavor_supported (nullptr, 0));
  vorn_product_set_active_cameras (nullptr, 1);
  EXPECT_EQ (vorn_product_get_active_cameras (nullptr), 0u);
  EXPECT_FALSE (vorn_product_add_virtual_camera (nullptr, nullptr));
  EXPECT_FALSE (vorn_product_add_virtual_camera (product_, nullptr));
  EXPECT_EQ (vorn_product_get_virtual_camera_by_name (nullptr, "a"), nullptr);
  EXPECT_EQ (vorn_product_get_virtual_cameras (nullptr), nullptr);
  EXPECT_EQ (vorn_product_new_pipeline (nullptr, "a", TRUE), nullptr);
  EXPECT_EQ (vorn_product_new_pipeline (product_, nullptr, TRUE), nullptr);
  EXPECT_FALSE (vorn_product_add_pipeline (nullptr, nullptr));
  EXPECT_FALSE (vorn_product_add_pipeline (product_, nullptr));
  EXPECT_FALSE (vorn_product_remove_pipeline (nullptr, nullptr));
  EXPECT_EQ (vorn_product_get_pipeline_by_name (nullptr, "a"), nullptr);
  EXPECT_EQ (vorn_product_get_settings (nullptr), nullptr);
  EXPECT_EQ (criticals.criticals ().size (), 23u);
}

} // namespace
