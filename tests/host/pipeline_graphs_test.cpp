// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "log_capture.hpp"
#include "pipeline_graphs.hpp"
#include "temp_dir.hpp"
#include <vorn/framework.h>
#include <vorn/gst_raii.hpp>

namespace
{

namespace fs = std::filesystem;

class PipelineGraphsTest : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }

  static vorn::Ref<GstElement> make_pipeline (const std::string &name)
  {
    auto pipeline =
        vorn::adopt (gst_parse_launch ("videotestsrc ! identity name=broken ! fakesink", nullptr));
    gst_object_set_name (GST_OBJECT (pipeline.get ()), name.c_str ());
    return pipeline;
  }

  /** One of its elements says that it failed. */
  static void fail (GstElement *pipeline)
  {
    const auto bus = vorn::adopt (gst_element_get_bus (pipeline));
    const auto broken = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline), "broken"));
    GST_ELEMENT_ERROR (broken.get (), STREAM, FAILED, ("broken"), (nullptr));
    EXPECT_TRUE (vorn::adopt (gst_bus_pop_filtered (bus.get (), GST_MESSAGE_ERROR)))
        << "it is still there for the view";
  }

  static std::string contents_of (const std::string &path)
  {
    gchar *text = nullptr;
    g_file_get_contents (path.c_str (), &text, nullptr, nullptr);
    const vorn::OwnedString owned (text);
    return text ? text : "";
  }

  int files () const
  {
    int count = 0;
    for ([[maybe_unused]] const auto &entry : fs::directory_iterator (folder_.path ()))
      count++;
    return count;
  }

  TempDir folder_;
  LogCapture log_;
};

} // namespace

TEST_F (PipelineGraphsTest, AFailedPipelineLeavesItsGraph)
{
  const auto pipeline = make_pipeline ("front");
  PipelineGraphs graphs (folder_.at ("media"));
  graphs.watch (pipeline.get ());
  graphs.watch (pipeline.get ());
  fail (pipeline.get ());
  const std::string path = folder_.at ("media/failed-front-1.dot");
  const std::string graph = contents_of (path);
  EXPECT_EQ (graph.find ("digraph pipeline {"), 0u) << graph;
  EXPECT_NE (graph.find ("broken"), std::string::npos) << "the elements are in it";
  EXPECT_EQ (
      log_.count ("pipeline 'front' failed, its graph is in " + path, VORN_LOG_PRIORITY_ERROR), 1);
  EXPECT_FALSE (fs::exists (folder_.at ("media/failed-front-2.dot"))) << "watched once";
}

TEST_F (PipelineGraphsTest, APipelineThatFailsAgainAndAgainFillsNoDisk)
{
  const auto pipeline = make_pipeline ("front");
  PipelineGraphs graphs (folder_.path ());
  graphs.watch (pipeline.get ());
  for (int i = 0; i < 22; i++)
    fail (pipeline.get ());
  EXPECT_TRUE (fs::exists (folder_.at ("failed-front-20.dot")));
  EXPECT_EQ (files (), 20);
}

TEST_F (PipelineGraphsTest, AFolderThatTakesNoneIsTold)
{
  const auto pipeline = make_pipeline ("front");
  const std::string in_the_way = folder_.write ("media", "a file");
  PipelineGraphs graphs (in_the_way);
  graphs.watch (pipeline.get ());
  fail (pipeline.get ());
  const auto errors = log_.texts (VORN_LOG_PRIORITY_ERROR);
  ASSERT_EQ (errors.size (), 1u);
  EXPECT_EQ (errors[0].find ("pipeline 'front' failed, and its graph cannot be written: "), 0u)
      << errors[0];
}

TEST_F (PipelineGraphsTest, NothingIsKeptOfAPipelineThatIsGone)
{
  PipelineGraphs graphs (folder_.path ());
  auto pipeline = make_pipeline ("front");
  const auto bus = vorn::adopt (gst_element_get_bus (pipeline.get ()));
  graphs.watch (pipeline.get ());
  EXPECT_EQ (G_OBJECT (pipeline.get ())->ref_count, 1u);
  pipeline.reset ();
  const auto next = make_pipeline ("next");
  graphs.watch (next.get ());
  fail (next.get ());
  EXPECT_TRUE (fs::exists (folder_.at ("failed-next-1.dot")));
}

TEST_F (PipelineGraphsTest, AfterItsEndNothingIsWritten)
{
  const auto pipeline = make_pipeline ("front");
  {
    PipelineGraphs graphs (folder_.path ());
    graphs.watch (pipeline.get ());
  }
  fail (pipeline.get ());
  EXPECT_EQ (files (), 0);
}
