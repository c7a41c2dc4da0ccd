// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/pipeline.h>

#include <string>
#include <vector>

#include <gst/base/gstbasesrc.h>
#include <gtest/gtest.h>

#include "log_capture.hpp"
#include "main_context.hpp"
#include <vorn/framework.h>
#include <vorn/gst_raii.hpp>

namespace
{

/** A source that fails as it is told, and remembers when it was started. */
struct Failing {
  enum Way { AT_START, WITH_AN_ERROR, AT_ONCE_AT_THE_END, NOT_AT_ALL } way = WITH_AN_ERROR;
  std::vector<gint64> starts; // monotonic, us
};
Failing failing;

struct FailingSrc {
  GstBaseSrc parent_instance;
};
struct FailingSrcClass {
  GstBaseSrcClass parent_class;
};

G_DEFINE_TYPE (FailingSrc, failing_src, GST_TYPE_BASE_SRC)

gboolean failing_src_start (GstBaseSrc *)
{
  failing.starts.push_back (g_get_monotonic_time ());
  return failing.way != Failing::AT_START;
}

GstFlowReturn failing_src_create (GstBaseSrc *source, guint64, guint, GstBuffer **buffer)
{
  if (failing.way == Failing::AT_ONCE_AT_THE_END)
    return GST_FLOW_EOS;
  if (failing.way == Failing::WITH_AN_ERROR) {
    GST_ELEMENT_ERROR (source, STREAM, FAILED, ("out of order"), (nullptr));
    return GST_FLOW_ERROR;
  }
  *buffer = gst_buffer_new_allocate (nullptr, 4, nullptr);
  return GST_FLOW_OK;
}

void failing_src_class_init (FailingSrcClass *klass)
{
  GstElementClass *element_class = GST_ELEMENT_CLASS (klass);
  gst_element_class_add_pad_template (
      element_class, gst_pad_template_new ("src", GST_PAD_SRC, GST_PAD_ALWAYS,
                                           vorn::adopt (gst_caps_new_any ()).get ()));
  gst_element_class_set_static_metadata (element_class, "Failing source", "Source", "Fails", "us");
  klass->parent_class.start = failing_src_start;
  klass->parent_class.create = failing_src_create;
}

void failing_src_init (FailingSrc *source)
{
  gst_base_src_set_format (GST_BASE_SRC (source), GST_FORMAT_TIME);
}

class Pipeline : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }

  void SetUp () override
  {
    failing = {};
    pipeline_ = vorn::adopt (vorn_pipeline_new ("own", FALSE));
    auto *source = GST_ELEMENT (g_object_new (failing_src_get_type (), "name", "source", nullptr));
    GstElement *sink = gst_element_factory_make ("fakesink", nullptr);
    gst_bin_add_many (GST_BIN (pipeline ()), source, sink, nullptr);
    ASSERT_TRUE (gst_element_link (source, sink));
  }
  void TearDown () override
  {
    vorn_pipeline_stop (pipeline ());
    gst_element_set_state (pipeline (), GST_STATE_NULL);
  }
  bool run_until_started (size_t times)
  {
    return run_until ([times] { return failing.starts.size () >= times; });
  }
  GstElement *pipeline () const { return pipeline_.get (); }

  LogCapture log_;
  vorn::Ref<GstElement> pipeline_;
};

/** Started again after at least the waits of the back-off. */
void expect_back_off (const std::vector<gint64> &starts)
{
  ASSERT_GE (starts.size (), 3u);
  EXPECT_GE (starts[1] - starts[0], 500 * 1000);
  EXPECT_GE (starts[2] - starts[1], 1000 * 1000);
}

TEST_F (Pipeline, WithAnErrorIsStartedAgainWithBackOff)
{
  vorn_pipeline_play (pipeline ());
  ASSERT_TRUE (run_until_started (3));
  expect_back_off (failing.starts);
  EXPECT_GE (log_.count ("pipeline 'own': source: out of order", VORN_LOG_PRIORITY_ERROR), 2);
  EXPECT_EQ (log_.count ("pipeline 'own' starts again in 500 ms", VORN_LOG_PRIORITY_WARNING), 1);
  EXPECT_EQ (log_.count ("pipeline 'own' starts again in 1000 ms", VORN_LOG_PRIORITY_WARNING), 1);
}

TEST_F (Pipeline, ThatEndsIsStartedAgainWithBackOff)
{
  failing.way = Failing::AT_ONCE_AT_THE_END;
  vorn_pipeline_play (pipeline ());
  ASSERT_TRUE (run_until_started (3));
  expect_back_off (failing.starts);
  EXPECT_GE (log_.count ("pipeline 'own' has ended", VORN_LOG_PRIORITY_WARNING), 2);
}

TEST_F (Pipeline, ThatCannotStartIsTriedAgainWithBackOff)
{
  failing.way = Failing::AT_START;
  vorn_pipeline_play (pipeline ());
  ASSERT_TRUE (run_until_started (3));
  expect_back_off (failing.starts);
  EXPECT_GE (log_.count ("failed to start pipeline 'own'", VORN_LOG_PRIORITY_ERROR), 2);
  EXPECT_EQ (log_.count ("pipeline 'own' starts again in 500 ms"), 1);
}

TEST_F (Pipeline, ThatRecoversPlaysOn)
{
  vorn_pipeline_play (pipeline ());
  ASSERT_TRUE (run_until ([this] { return log_.has ("pipeline 'own' starts again in 500 ms"); }));
  failing.way = Failing::NOT_AT_ALL;
  ASSERT_TRUE (run_until_started (2));
  GstState state = GST_STATE_NULL;
  EXPECT_EQ (gst_element_get_state (pipeline (), &state, nullptr, GST_CLOCK_TIME_NONE),
             GST_STATE_CHANGE_SUCCESS);
  EXPECT_EQ (state, GST_STATE_PLAYING);
}

TEST_F (Pipeline, StoppedIsNotStartedAgain)
{
  vorn_pipeline_play (pipeline ());
  ASSERT_TRUE (run_until ([this] { return log_.has ("pipeline 'own' starts again in 500 ms"); }));
  vorn_pipeline_stop (pipeline ());
  const size_t starts = failing.starts.size ();
  // Longer than the wait that was begun.
  bool over = false;
  g_timeout_add (
      700,
      [] (gpointer data) -> gboolean {
        *static_cast<bool *> (data) = true;
        return G_SOURCE_REMOVE;
      },
      &over);
  EXPECT_TRUE (run_until ([&over] { return over; }));
  EXPECT_EQ (failing.starts.size (), starts);
  EXPECT_EQ (G_OBJECT (pipeline ())->ref_count, 1u);
  // And it can be played anew, with the first wait.
  log_.clear ();
  vorn_pipeline_play (pipeline ());
  EXPECT_TRUE (run_until ([this] { return log_.has ("pipeline 'own' starts again in 500 ms"); }));
}

TEST_F (Pipeline, PlayedTwiceIsPlayedOnce)
{
  failing.way = Failing::NOT_AT_ALL;
  vorn_pipeline_play (pipeline ());
  vorn_pipeline_play (pipeline ());
  ASSERT_TRUE (run_until_started (1));
  EXPECT_EQ (failing.starts.size (), 1u);
}

TEST_F (Pipeline, StopOfAnIdleOneDoesNothing)
{
  vorn_pipeline_stop (pipeline ());
  const auto stock = vorn::adopt (gst_pipeline_new ("stock"));
  vorn_pipeline_play (stock.get ());
  vorn_pipeline_stop (stock.get ());
  EXPECT_EQ (GST_STATE (stock.get ()), GST_STATE_NULL);
  EXPECT_TRUE (vorn_pipeline_is_run_by_view (stock.get ()));
}

TEST_F (Pipeline, WrongCallsAreCriticals)
{
  CriticalCapture criticals;
  vorn_pipeline_play (nullptr);
  vorn_pipeline_stop (nullptr);
  EXPECT_TRUE (vorn_pipeline_is_run_by_view (nullptr));
  EXPECT_EQ (criticals.criticals ().size (), 3u);
}

} // namespace
