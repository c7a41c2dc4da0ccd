// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/gst_view.h>

#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "log_capture.hpp"
#include "main_context.hpp"
#include "test_gst_view.hpp"
#include "test_virtual_camera.hpp"
#include <gio/gio.h>
#include <vorn/framework.h>
#include <vorn/gst_raii.hpp>
#include <vorn/product.h>

namespace
{

using Texts = std::vector<std::string>;

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

/** Posts an application message of this name. */
void post (GstElement *element, const char *name)
{
  gst_element_post_message (
      element, gst_message_new_application (GST_OBJECT (element), gst_structure_new_empty (name)));
}

class GstViewTest : public testing::Test
{
protected:
  static void SetUpTestSuite () { vorn_framework_init (nullptr, nullptr); }

  void SetUp () override
  {
    owned_ = vorn::adopt (test_gst_view_new ("front"));
    view_ = owned_.get ();
    pipeline_ = vorn::adopt (gst_pipeline_new ("pipeline"));
  }
  void TearDown () override { gst_element_set_state (pipeline_.get (), GST_STATE_NULL); }

  TestGstViewRecord &record () { return test_gst_view_record (view_); }
  GstElement *pipeline () const { return pipeline_.get (); }

  LogCapture log_;
  vorn::Ref<VornGstView> owned_;
  VornGstView *view_ = nullptr;
  vorn::Ref<GstElement> pipeline_;
};

TEST_F (GstViewTest, IsInitable)
{
  ASSERT_TRUE (G_IS_INITABLE (view_));
  vorn::ErrorOut error;
  EXPECT_TRUE (g_initable_init (G_INITABLE (view_), nullptr, error.out ()));
}

TEST_F (GstViewTest, PreparesWithoutAnyOperationOfItsOwn)
{
  EXPECT_TRUE (vorn_view_prepare (VORN_VIEW (view_)));
  EXPECT_TRUE (vorn_view_unprepare (VORN_VIEW (view_)));
}

TEST_F (GstViewTest, PresetsAndBitrateAreKept)
{
  g_object_set (view_, "streaming-preset", "A", "recording-preset", "B", "recording-bitrate", 5u,
                nullptr);
  gchar *streaming = nullptr;
  gchar *recording = nullptr;
  guint bitrate = 0;
  g_object_get (view_, "streaming-preset", &streaming, "recording-preset", &recording,
                "recording-bitrate", &bitrate, nullptr);
  const vorn::OwnedString owned_streaming (streaming);
  const vorn::OwnedString owned_recording (recording);
  EXPECT_STREQ (streaming, "A");
  EXPECT_STREQ (recording, "B");
  EXPECT_EQ (bitrate, 5u);
  g_object_set (view_, "streaming-preset", nullptr, nullptr);
  g_object_get (view_, "streaming-preset", &streaming, nullptr);
  const vorn::OwnedString owned_again (streaming);
  EXPECT_STREQ (streaming, "");
}

TEST_F (GstViewTest, EncodersAreReadOnlyAndNoneAtFirst)
{
  for (const char *name : {"streaming-encoder", "recording-encoder"}) {
    GstElement *encoder = GST_ELEMENT (pipeline ());
    g_object_get (view_, name, &encoder, nullptr);
    EXPECT_EQ (encoder, nullptr);
    const GParamSpec *pspec = g_object_class_find_property (G_OBJECT_GET_CLASS (view_), name);
    EXPECT_EQ (pspec->flags & G_PARAM_WRITABLE, 0);
  }
}

TEST_F (GstViewTest, MakingAViewSetsNoProperty)
{
  // A product may override them; nothing is set before it asks for it.
  for (const char *name : {"streaming-preset", "recording-preset", "recording-bitrate"}) {
    const GParamSpec *pspec = g_object_class_find_property (G_OBJECT_GET_CLASS (view_), name);
    EXPECT_EQ (pspec->flags & (G_PARAM_CONSTRUCT | G_PARAM_CONSTRUCT_ONLY), 0) << name;
  }
  EXPECT_TRUE (log_.lines ().empty ());
}

// ---- Source pads

TEST_F (GstViewTest, SourcePadsByKind)
{
  const auto streaming = vorn::adopt (gst_pad_new ("streaming", GST_PAD_SRC));
  const auto recording = vorn::adopt (gst_pad_new ("recording", GST_PAD_SRC));
  EXPECT_EQ (vorn_gst_view_get_source_pad (view_, VORN_PIPELINE_KIND_STREAMING), nullptr);
  EXPECT_TRUE (
      vorn_gst_view_set_source_pad (view_, streaming.get (), VORN_PIPELINE_KIND_STREAMING));
  EXPECT_EQ (vorn_gst_view_get_source_pad (view_, VORN_PIPELINE_KIND_STREAMING), streaming.get ());
  EXPECT_EQ (vorn_gst_view_get_source_pad (view_, VORN_PIPELINE_KIND_RECORDING), nullptr);
  EXPECT_TRUE (
      vorn_gst_view_set_source_pad (view_, recording.get (), VORN_PIPELINE_KIND_RECORDING));
  EXPECT_EQ (vorn_gst_view_get_source_pad (view_, VORN_PIPELINE_KIND_RECORDING), recording.get ());
  EXPECT_EQ (vorn_gst_view_get_source_pad (view_, VORN_PIPELINE_KIND_BOTH), nullptr);
  EXPECT_EQ (references (streaming.get ()), 2u);
  owned_.reset ();
  EXPECT_EQ (references (streaming.get ()), 1u);
  EXPECT_EQ (references (recording.get ()), 1u);
}

TEST_F (GstViewTest, OneSourcePadForBothKinds)
{
  const auto pad = vorn::adopt (gst_pad_new ("both", GST_PAD_SRC));
  EXPECT_TRUE (vorn_gst_view_set_source_pad (view_, pad.get (), VORN_PIPELINE_KIND_BOTH));
  EXPECT_EQ (vorn_gst_view_get_source_pad (view_, VORN_PIPELINE_KIND_STREAMING), pad.get ());
  EXPECT_EQ (vorn_gst_view_get_source_pad (view_, VORN_PIPELINE_KIND_RECORDING), pad.get ());
}

TEST_F (GstViewTest, RefusedSourcePads)
{
  const auto source = vorn::adopt (gst_pad_new ("source", GST_PAD_SRC));
  const auto sink = vorn::adopt (gst_pad_new ("sink", GST_PAD_SINK));
  const auto linked = vorn::adopt (gst_pad_new ("linked", GST_PAD_SRC));
  ASSERT_EQ (gst_pad_link (linked.get (), sink.get ()), GST_PAD_LINK_OK);
  ASSERT_TRUE (vorn_gst_view_set_source_pad (view_, source.get (), VORN_PIPELINE_KIND_RECORDING));
  const auto other = vorn::adopt (gst_pad_new ("other", GST_PAD_SRC));
  const struct {
    GstPad *pad;
    guint32 kinds;
    const char *message;
  } rows[] = {
      {other.get (), 0, "pad 'other' refused as source of kind 0: no such kind"},
      {other.get (), 4, "pad 'other' refused as source of kind 4: no such kind"},
      {other.get (), 5, "pad 'other' refused as source of kind 5: no such kind"},
      {sink.get (), 1, "pad 'sink' refused as source of kind 1: it is no source pad"},
      {linked.get (), 1, "pad 'linked' refused as source of kind 1: it is linked"},
      {other.get (), 2, "pad 'other' refused as source of kind 2: there is one already"},
      {other.get (), 3, "pad 'other' refused as source of kind 3: there is one already"},
      {source.get (), 2, "pad 'source' refused as source of kind 2: there is one already"},
  };
  for (const auto &row : rows) {
    log_.clear ();
    EXPECT_FALSE (vorn_gst_view_set_source_pad (view_, row.pad, row.kinds));
    EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_ERROR),
               Texts{std::string ("view 'front': ") + row.message});
  }
  EXPECT_EQ (vorn_gst_view_get_source_pad (view_, VORN_PIPELINE_KIND_STREAMING), nullptr);
  EXPECT_EQ (vorn_gst_view_get_source_pad (view_, VORN_PIPELINE_KIND_RECORDING), source.get ());
  EXPECT_EQ (references (other.get ()), 1u);
}

// ---- Bus messages

TEST_F (GstViewTest, MessagesComeOnTheFrameworksThread)
{
  ASSERT_TRUE (vorn_gst_view_attach_element (view_, pipeline ()));
  EXPECT_EQ (references (pipeline ()), 2u);
  std::thread poster ([this] { post (pipeline (), "from-another-thread"); });
  poster.join ();
  // Not before the main context runs.
  EXPECT_TRUE (record ().messages.empty ());
  EXPECT_TRUE (run_until ([this] { return !record ().messages.empty (); }));
  EXPECT_EQ (record ().messages, Texts{"from-another-thread"});
  EXPECT_EQ (record ().threads.front (), g_thread_self ());
}

TEST_F (GstViewTest, MessagesOfAllPipelines)
{
  const auto second = vorn::adopt (gst_pipeline_new ("second"));
  ASSERT_TRUE (vorn_gst_view_attach_element (view_, pipeline ()));
  ASSERT_TRUE (vorn_gst_view_attach_element (view_, second.get ()));
  post (pipeline (), "one");
  post (second.get (), "two");
  EXPECT_TRUE (run_until ([this] { return record ().messages.size () == 2; }));
}

TEST_F (GstViewTest, ErrorsAndWarningsAreLogged)
{
  ASSERT_TRUE (vorn_gst_view_attach_element (view_, pipeline ()));
  GstObject *source = GST_OBJECT (pipeline ());
  const vorn::OwnedError error (
      g_error_new_literal (GST_STREAM_ERROR, GST_STREAM_ERROR_FAILED, "it broke"));
  gst_element_post_message (pipeline (), gst_message_new_error (source, error.get (), "debug"));
  gst_element_post_message (pipeline (), gst_message_new_warning (source, error.get (), "debug"));
  EXPECT_TRUE (run_until ([this] { return log_.lines ().size () == 2; }));
  EXPECT_TRUE (log_.has ("view 'front': pipeline: it broke", VORN_LOG_PRIORITY_ERROR));
  EXPECT_TRUE (log_.has ("view 'front': pipeline: it broke", VORN_LOG_PRIORITY_WARNING));
}

TEST_F (GstViewTest, ElementsWithoutABusOrWatchedAlreadyAreRefused)
{
  const auto element = vorn::adopt (gst_element_factory_make ("identity", "lonely"));
  EXPECT_FALSE (vorn_gst_view_attach_element (view_, element.get ()));
  EXPECT_TRUE (log_.has ("view 'front': 'lonely' has no bus to watch", VORN_LOG_PRIORITY_ERROR));

  const auto other = vorn::adopt (test_gst_view_new ("other"));
  ASSERT_TRUE (vorn_gst_view_attach_element (other.get (), pipeline ()));
  CriticalCapture criticals; // GStreamer's own, about the second watch
  EXPECT_FALSE (vorn_gst_view_attach_element (view_, pipeline ()));
  EXPECT_TRUE (
      log_.has ("view 'front': the bus of 'pipeline' is watched already", VORN_LOG_PRIORITY_ERROR));
  EXPECT_EQ (references (element.get ()), 1u);
  EXPECT_EQ (references (pipeline ()), 2u);
}

// ---- Taking down

TEST_F (GstViewTest, UnprepareTakesEverythingDownFirst)
{
  const auto pad = vorn::adopt (gst_pad_new ("pad", GST_PAD_SRC));
  ASSERT_TRUE (vorn_view_prepare (VORN_VIEW (view_)));
  ASSERT_TRUE (vorn_gst_view_attach_element (view_, pipeline ()));
  ASSERT_TRUE (vorn_gst_view_set_source_pad (view_, pad.get (), VORN_PIPELINE_KIND_BOTH));
  ASSERT_NE (gst_element_set_state (pipeline (), GST_STATE_PLAYING), GST_STATE_CHANGE_FAILURE);
  bool was_down = false;
  record ().on_unprepare = [&] {
    was_down = state_of (pipeline ()) == GST_STATE_NULL && references (pipeline ()) == 1;
  };
  EXPECT_TRUE (vorn_view_unprepare (VORN_VIEW (view_)));
  EXPECT_TRUE (was_down);
  EXPECT_EQ (vorn_gst_view_get_source_pad (view_, VORN_PIPELINE_KIND_STREAMING), nullptr);
  EXPECT_EQ (references (pad.get ()), 1u);
  post (pipeline (), "too-late");
  run_pending ();
  EXPECT_TRUE (record ().messages.empty ());
  // It can be prepared and fed again.
  EXPECT_TRUE (vorn_view_prepare (VORN_VIEW (view_)));
  EXPECT_TRUE (vorn_gst_view_attach_element (view_, pipeline ()));
  EXPECT_TRUE (vorn_gst_view_set_source_pad (view_, pad.get (), VORN_PIPELINE_KIND_BOTH));
}

TEST_F (GstViewTest, LastReferenceTakesEverythingDown)
{
  ASSERT_TRUE (vorn_gst_view_attach_element (view_, pipeline ()));
  ASSERT_NE (gst_element_set_state (pipeline (), GST_STATE_PLAYING), GST_STATE_CHANGE_FAILURE);
  owned_.reset ();
  EXPECT_EQ (state_of (pipeline ()), GST_STATE_NULL);
  EXPECT_EQ (references (pipeline ()), 1u);
  post (pipeline (), "nobody-listens");
  run_pending ();
}

TEST_F (GstViewTest, AMessageMayDropTheView)
{
  ASSERT_TRUE (vorn_gst_view_attach_element (view_, pipeline ()));
  bool seen = false;
  record ().handler = [&] (GstMessage *message) {
    if (GST_MESSAGE_TYPE (message) != GST_MESSAGE_APPLICATION)
      return;
    seen = true;
    owned_.reset ();
  };
  post (pipeline (), "drop");
  post (pipeline (), "after");
  EXPECT_TRUE (run_until ([&] { return seen; }));
  run_pending ();
  // What nobody read any more still refers to its source.
  gst_bus_set_flushing (vorn::adopt (gst_element_get_bus (pipeline ())).get (), TRUE);
  EXPECT_EQ (references (pipeline ()), 1u);
}

TEST_F (GstViewTest, AMessageMayUnprepareTheView)
{
  ASSERT_TRUE (vorn_view_prepare (VORN_VIEW (view_)));
  ASSERT_TRUE (vorn_gst_view_attach_element (view_, pipeline ()));
  record ().handler = [&] (GstMessage *) { vorn_view_unprepare (VORN_VIEW (view_)); };
  post (pipeline (), "unprepare");
  EXPECT_TRUE (run_until ([this] { return !record ().messages.empty (); }));
  EXPECT_FALSE (vorn_view_is_prepared (VORN_VIEW (view_)));
  EXPECT_EQ (references (pipeline ()), 1u);
}

TEST_F (GstViewTest, WrongCallsAreCriticals)
{
  CriticalCapture criticals;
  EXPECT_FALSE (vorn_gst_view_attach_element (nullptr, pipeline ()));
  EXPECT_FALSE (vorn_gst_view_attach_element (view_, nullptr));
  EXPECT_FALSE (vorn_gst_view_set_source_pad (view_, nullptr, 1));
  EXPECT_FALSE (vorn_gst_view_set_source_pad (nullptr, nullptr, 1));
  EXPECT_EQ (vorn_gst_view_get_source_pad (nullptr, VORN_PIPELINE_KIND_STREAMING), nullptr);
  EXPECT_EQ (criticals.criticals ().size (), 5u);
}

} // namespace
