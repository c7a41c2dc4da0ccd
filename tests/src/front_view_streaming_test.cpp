// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Stream and recordings: states of the main pipeline, formats, probes on encoded frames.
#include "front_view_support.hpp"

#include <vorn/frame_meta.h>
#include <vorn/properties.h>

namespace
{

constexpr VornFormat format (guint32 width, guint32 height, guint32 num, guint32 den)
{
  return {{width, height}, {num, den}, 1};
}

class FrontViewStreaming : public FrontViewTest
{
protected:
  void SetUp () override
  {
    make_view ();
    ASSERT_TRUE (vorn_view_prepare (base ()));
    store_relaxed (view_->camera_format, format (1280, 720, 24000, 1001));
    log_.clear ();
    parent_calls ().clear ();
  }

  void TearDown () override
  {
    faults = {};
    if (view_ && view_->main_pipeline)
      gst_element_set_state (view_->main_pipeline, GST_STATE_NULL);
  }

  const VornViewClass *klass () const { return VORN_VIEW_GET_CLASS (view_); }

  /** The state that the pipeline is in or going to. */
  GstState target () const
  {
    GstState state = GST_STATE_NULL;
    GstState pending = GST_STATE_NULL;
    gst_element_get_state (view_->main_pipeline, &state, &pending, 0);
    return pending == GST_STATE_VOID_PENDING ? state : pending;
  }

  /** Stands in for the framework's elements: their names, behind the view's pad. */
  void add_branches ()
  {
    for (const char *name : {"streamingbin-encoder", "recordbin-tee"}) {
      Element element = vorn::adopt (gst_element_factory_make ("identity", name));
      gst_bin_add (GST_BIN (view_->main_pipeline), element.get ());
    }
  }

  vorn::Ref<GstPad> pad (const char *element, const char *name) const
  {
    const auto found = vorn::adopt (gst_bin_get_by_name (GST_BIN (view_->main_pipeline), element));
    return vorn::adopt (gst_element_get_static_pad (found.get (), name));
  }

  /** Sends a buffer through a source pad that leads nowhere, and gives what a later probe saw. */
  static vorn::Ref<GstBuffer> push (GstPad *source, GstBuffer *buffer)
  {
    vorn::Ref<GstBuffer> seen;
    const gulong id = gst_pad_add_probe (
        source, GST_PAD_PROBE_TYPE_BUFFER,
        [] (GstPad *, GstPadProbeInfo *info, gpointer data) {
          *static_cast<vorn::Ref<GstBuffer> *> (data) =
              vorn::share (GST_PAD_PROBE_INFO_BUFFER (info));
          return GST_PAD_PROBE_OK;
        },
        &seen, nullptr);
    gst_pad_push (source, buffer);
    gst_pad_remove_probe (source, id);
    return seen;
  }

  vorn::Ref<GstBuffer> through_stream (GstBuffer *buffer)
  {
    const auto source = pad ("streamingbin-encoder", "src");
    begin (source.get ());
    return push (source.get (), buffer);
  }

  vorn::Ref<GstBuffer> through_recording (GstBuffer *buffer)
  {
    const auto sink = pad ("recordbin-tee", "sink");
    vorn::Ref<GstBuffer> seen;
    const gulong id = gst_pad_add_probe (
        sink.get (), GST_PAD_PROBE_TYPE_BUFFER,
        [] (GstPad *, GstPadProbeInfo *info, gpointer data) {
          *static_cast<vorn::Ref<GstBuffer> *> (data) =
              vorn::share (GST_PAD_PROBE_INFO_BUFFER (info));
          return GST_PAD_PROBE_OK;
        },
        &seen, nullptr);
    const auto source = pad ("recordbin-tee", "src");
    gst_pad_set_active (source.get (), TRUE);
    gst_pad_set_active (sink.get (), TRUE);
    gst_pad_send_event (sink.get (), gst_event_new_stream_start ("test"));
    GstSegment segment;
    gst_segment_init (&segment, GST_FORMAT_TIME);
    gst_pad_send_event (sink.get (), gst_event_new_segment (&segment));
    gst_pad_chain (sink.get (), buffer);
    gst_pad_remove_probe (sink.get (), id);
    return seen;
  }

  static void begin (GstPad *source)
  {
    gst_pad_set_active (source, TRUE);
    gst_pad_push_event (source, gst_event_new_stream_start ("test"));
    GstSegment segment;
    gst_segment_init (&segment, GST_FORMAT_TIME);
    gst_pad_push_event (source, gst_event_new_segment (&segment));
  }
};

// ---- Stream and recordings

TEST_F (FrontViewStreaming, SetupPlaysAndMarksTheStreamLive)
{
  add_branches ();
  VornStreamSetup setup = {};
  EXPECT_TRUE (klass ()->stream_setup (base (), &setup));
  EXPECT_EQ (target (), GST_STATE_PLAYING);
  EXPECT_EQ (setup.live, 1u);
  EXPECT_EQ (reinterpret_cast<guint32 *> (&setup)[10], 1u);
  EXPECT_EQ (parent_calls (), Texts{"stream_setup live"});
  EXPECT_NE (view_->streaming_probe_id, 0u);
  EXPECT_EQ (view_->recording_probe_id, 0u);
  EXPECT_EQ (complaints (), Texts{});
  parent_failing () = {"stream_setup"};
  EXPECT_FALSE (klass ()->stream_setup (base (), &setup));
}

TEST_F (FrontViewStreaming, SetupWithoutAnEncoderSaysSoAndGoesOn)
{
  VornStreamSetup setup = {};
  EXPECT_TRUE (klass ()->stream_setup (base (), &setup));
  EXPECT_EQ (complaints (), Texts{"E failed to get streamingbin-encoder"});
}

TEST_F (FrontViewStreaming, ElementWithoutThePadIsSaid)
{
  Element no_source = vorn::adopt (gst_element_factory_make ("fakesink", "streamingbin-encoder"));
  Element no_sink = vorn::adopt (gst_element_factory_make ("fakesrc", "recordbin-tee"));
  gst_bin_add_many (GST_BIN (view_->main_pipeline), no_source.get (), no_sink.get (), nullptr);
  EXPECT_TRUE (klass ()->start_recording (base ()));
  EXPECT_EQ (complaints (), (Texts{"E failed to get src", "E failed to get sink"}));
  EXPECT_EQ (view_->streaming_probe_id, 0u);
}

TEST_F (FrontViewStreaming, StatesThatCannotBeReached)
{
  add_branches ();
  const struct {
    GstState failing;
    const char *operation;
    const char *complaint;
    Texts calls; // of the framework's operations
  } rows[] = {
      {GST_STATE_PLAYING, "stream_setup", "E failed to start streaming: state change error", {}},
      {GST_STATE_NULL,
       "stream_teardown",
       "W failed to stop streaming: state change error",
       {"stream_teardown test"}},
      {GST_STATE_NULL,
       "start_recording",
       "W failed to stop the main pipeline: state change error",
       {}},
      {GST_STATE_PLAYING,
       "start_recording",
       "E failed to start the main pipeline: state change error",
       {}},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE (row.complaint);
    log_.clear ();
    parent_calls ().clear ();
    faults.failing_state = row.failing;
    VornStreamSetup setup = {};
    const std::string operation = row.operation;
    EXPECT_FALSE (operation == "stream_setup"      ? klass ()->stream_setup (base (), &setup)
                  : operation == "stream_teardown" ? klass ()->stream_teardown (base (), "test")
                                                   : klass ()->start_recording (base ()));
    EXPECT_EQ (complaints (), Texts{row.complaint});
    EXPECT_EQ (parent_calls (), row.calls);
    EXPECT_EQ (setup.live, 0u);
  }
}

TEST_F (FrontViewStreaming, TeardownChainsUpThenStops)
{
  VornStreamSetup setup = {};
  ASSERT_TRUE (klass ()->stream_setup (base (), &setup));
  for (const bool result : {true, false}) {
    parent_failing () = result ? std::set<std::string>{} : std::set<std::string>{"stream_teardown"};
    parent_calls ().clear ();
    EXPECT_EQ (klass ()->stream_teardown (base (), "why") != FALSE, result);
    EXPECT_EQ (target (), GST_STATE_NULL);
    EXPECT_EQ (parent_calls (), Texts{"stream_teardown why"});
  }
}

TEST_F (FrontViewStreaming, ParametersWithoutAnEncoderOnlyChainUp)
{
  const VornStreamParameters parameters = {.reserved = {}, .bitrate = 2500999};
  EXPECT_TRUE (klass ()->stream_set_params (base (), &parameters));
  EXPECT_EQ (parent_calls (), Texts{"stream_set_params 2500999"});
  parent_failing () = {"stream_set_params"};
  EXPECT_FALSE (klass ()->stream_set_params (base (), &parameters));
}

TEST_F (FrontViewStreaming, StartRecordingRestartsAndTells)
{
  add_branches ();
  std::vector<guint> events;
  g_signal_connect (view_, "record-event",
                    G_CALLBACK (+[] (VornView *, guint event, const gchar *name,
                                     const GError *error, gpointer data) {
                      EXPECT_EQ (name, nullptr);
                      EXPECT_EQ (error, nullptr);
                      static_cast<std::vector<guint> *> (data)->push_back (event);
                    }),
                    &events);
  EXPECT_TRUE (klass ()->start_recording (base ()));
  EXPECT_EQ (target (), GST_STATE_PLAYING);
  EXPECT_EQ (events, std::vector<guint>{VORN_RECORD_EVENT_PREPARED});
  EXPECT_EQ (parent_calls (), Texts{"start_recording"});
  EXPECT_NE (view_->streaming_probe_id, 0u);
  EXPECT_NE (view_->recording_probe_id, 0u);
  parent_failing () = {"start_recording"};
  EXPECT_FALSE (klass ()->start_recording (base ()));
  EXPECT_EQ (events.size (), 2u);
}

TEST_F (FrontViewStreaming, StopRecordingOnlyChainsUp)
{
  ASSERT_TRUE (klass ()->start_recording (base ()));
  parent_calls ().clear ();
  EXPECT_TRUE (klass ()->stop_recording (base (), 2));
  parent_failing () = {"stop_recording"};
  EXPECT_FALSE (klass ()->stop_recording (base (), 77));
  EXPECT_EQ (parent_calls (), (Texts{"stop_recording 2", "stop_recording 77"}));
  EXPECT_EQ (target (), GST_STATE_PLAYING);
}

// ---- Probes

TEST_F (FrontViewStreaming, FakeFramesSayThatTheyAre)
{
  add_branches ();
  ASSERT_TRUE (klass ()->start_recording (base ()));
  gst_element_set_state (view_->main_pipeline, GST_STATE_NULL);
  for (const bool stream : {true, false}) {
    GstBuffer *sent = gst_buffer_new_allocate (nullptr, 16, nullptr);
    const auto shared = vorn::share (sent); // as a tee would
    const auto seen = stream ? through_stream (sent) : through_recording (sent);
    ASSERT_TRUE (seen);
    EXPECT_NE (seen.get (), shared.get ());
    EXPECT_EQ (vorn_frame_meta_get (shared.get ()), nullptr);
    const VornFrameMeta *meta = vorn_frame_meta_get (seen.get ());
    ASSERT_NE (meta, nullptr);
    guint64 capture_ns = 99;
    gboolean sync_point = FALSE;
    EXPECT_TRUE (gst_structure_get_uint64 (meta->structure, "capture-timestamp", &capture_ns));
    EXPECT_TRUE (gst_structure_get_boolean (meta->structure, "sync-point", &sync_point));
    EXPECT_EQ (capture_ns, 0u);
    EXPECT_TRUE (sync_point);
  }
  EXPECT_EQ (faults.postprocessed, 0);
}

TEST_F (FrontViewStreaming, RealFramesAreRewrittenByTheBranchsOwnPostprocessor)
{
  add_branches ();
  ASSERT_TRUE (klass ()->start_recording (base ()));
  gst_element_set_state (view_->main_pipeline, GST_STATE_NULL);
  const PropertyValue with_camera ("ro.with-front-cam", "1");
  faults.postprocess_result = 1;
  GstLogCapture gst_log;
  for (const bool stream : {true, false}) {
    GstBuffer *sent = gst_buffer_new_allocate (nullptr, 16, nullptr);
    const auto seen = stream ? through_stream (sent) : through_recording (sent);
    ASSERT_TRUE (seen);
    EXPECT_EQ (faults.postprocessor,
               stream ? view_->streaming_postprocessor : view_->recording_postprocessor);
    EXPECT_EQ (faults.postprocessed_size.width, 1280u);
    EXPECT_EQ (faults.postprocessed_size.height, 720u);
    EXPECT_EQ (vorn_frame_meta_get (seen.get ()), nullptr);
  }
  EXPECT_EQ (faults.postprocessed, 2);
  EXPECT_EQ (gst_log.count (GST_LEVEL_WARNING, "frame_postprocessor_process failed"), 0);
  // A frame that cannot be rewritten passes on.
  faults.postprocess_result = 0;
  EXPECT_TRUE (through_stream (gst_buffer_new_allocate (nullptr, 16, nullptr)));
  EXPECT_EQ (gst_log.count (GST_LEVEL_WARNING, "frame_postprocessor_process failed"), 1);
}

TEST_F (FrontViewStreaming, WithoutAPostprocessorFramesFailOneByOne)
{
  add_branches ();
  frame_postprocessor_free (std::exchange (view_->streaming_postprocessor, nullptr));
  VornStreamSetup setup = {};
  ASSERT_TRUE (klass ()->stream_setup (base (), &setup));
  gst_element_set_state (view_->main_pipeline, GST_STATE_NULL);
  const PropertyValue with_camera ("ro.with-front-cam", "1");
  GstLogCapture gst_log;
  CriticalCapture criticals;
  for (int i = 1; i <= 2; i++) {
    EXPECT_TRUE (through_stream (gst_buffer_new_allocate (nullptr, 16, nullptr)));
    EXPECT_EQ (gst_log.count (GST_LEVEL_WARNING, "frame_postprocessor_process failed"), i);
  }
}

TEST_F (FrontViewStreaming, RepeatedStartsLeaveOnePassAFrame)
{
  add_branches ();
  VornStreamSetup setup = {};
  gulong id = 0;
  for (int i = 0; i < 3; i++) {
    ASSERT_TRUE (klass ()->stream_setup (base (), &setup));
    ASSERT_TRUE (klass ()->start_recording (base ()));
    ASSERT_TRUE (klass ()->stream_teardown (base (), "again"));
    if (id != 0) {
      EXPECT_EQ (view_->streaming_probe_id, id);
    }
    id = view_->streaming_probe_id;
  }
  const PropertyValue with_camera ("ro.with-front-cam", "1");
  faults.postprocess_result = 1;
  EXPECT_TRUE (through_stream (gst_buffer_new_allocate (nullptr, 16, nullptr)));
  EXPECT_EQ (faults.postprocessed, 1);
  EXPECT_TRUE (through_recording (gst_buffer_new_allocate (nullptr, 16, nullptr)));
  EXPECT_EQ (faults.postprocessed, 2);
}

TEST_F (FrontViewStreaming, ProbeWithoutABufferSaysSo)
{
  add_branches ();
  faults.probes.clear ();
  ASSERT_TRUE (klass ()->start_recording (base ()));
  ASSERT_EQ (faults.probes.size (), 2u); // of the stream and of recordings
  GstLogCapture gst_log;
  for (const auto &probe : faults.probes) {
    GstPadProbeInfo info = {};
    info.type = GST_PAD_PROBE_TYPE_BUFFER;
    EXPECT_EQ (probe.callback (nullptr, &info, probe.data), GST_PAD_PROBE_OK);
  }
  EXPECT_EQ (gst_log.count (GST_LEVEL_WARNING, "buffer is NULL"), 2);
}

// ---- Formats

TEST_F (FrontViewStreaming, FramerateMustDivideTheCameras)
{
  const struct {
    VornFramerate camera, wanted;
    bool accepted;
  } rows[] = {
      {{30, 1}, {30, 1}, true},
      {{30, 1}, {15, 1}, true},
      {{30, 1}, {10, 1}, true},
      {{30, 1}, {1, 1}, true},
      {{30, 1}, {24, 1}, false},
      {{30, 1}, {60, 1}, false},
      {{30, 1}, {20, 1}, false},
      // Whole frames a second, cut off: 29.97 counts as 29, which only 29 and 1 divide.
      {{30000, 1001}, {30000, 1001}, true},
      {{30000, 1001}, {30, 1}, false},
      {{30000, 1001}, {29, 1}, true},
      {{30000, 1001}, {15000, 1001}, false},
      {{30000, 1001}, {1, 1}, true},
      {{24000, 1001}, {24000, 1001}, true},  // 23
      {{60000, 1001}, {30000, 1001}, false}, // 59 and 29
      {{60, 1}, {30000, 1001}, false},
      {{58, 1}, {30000, 1001}, true},
      // Less than one a second counts as none.
      {{30, 1}, {1, 2}, false},
      {{1, 2}, {1, 2}, false},
      {{30, 1}, {0, 1}, false},
      // No rate at all.
      {{30, 1}, {30, 0}, false},
      {{30, 0}, {30, 1}, false},
      {{0, 0}, {0, 0}, false},
      {{G_MAXUINT32, 1}, {G_MAXUINT32, 1}, true},
  };
  for (const auto &row : rows) {
    store_relaxed (view_->camera_format, VornFormat{{1280, 720}, row.camera, 0});
    EXPECT_EQ (vorn_morvik_zelto_front_view_check_framerate (view_, row.wanted.num,
                                                             row.wanted.den) != FALSE,
               row.accepted)
        << row.camera.num << "/" << row.camera.den << " " << row.wanted.num << "/"
        << row.wanted.den;
  }
}

TEST_F (FrontViewStreaming, FormatsPassThroughRest)
{
  for (const GstState state : {GST_STATE_NULL, GST_STATE_READY, GST_STATE_PLAYING})
    for (const bool result : {true, false}) {
      SCOPED_TRACE (gst_element_state_get_name (state));
      gst_element_set_state (view_->main_pipeline, state);
      parent_failing () =
          result ? std::set<std::string>{}
                 : std::set<std::string>{"set_streaming_format", "set_recording_format"};
      parent_calls ().clear ();
      log_.clear ();
      const VornFormat stream = format (640, 360, 24000, 1001);
      EXPECT_EQ (klass ()->set_streaming_format (base (), &stream) != FALSE, result);
      EXPECT_EQ (target (), state);
      const VornFormat recording = format (1280, 720, 24000, 1001);
      EXPECT_EQ (klass ()->set_recording_format (base (), &recording) != FALSE, result);
      EXPECT_EQ (target (), state);
      EXPECT_EQ (parent_calls (), (Texts{"set_streaming_format 640x360 24000/1001 1",
                                         "set_recording_format 1280x720 24000/1001 1"}));
      EXPECT_EQ (log_.texts (VORN_LOG_PRIORITY_INFO),
                 (Texts{"setting streaming format to 640x360 @ 23.98",
                        "setting recording format to 1280x720 @ 23.98"}));
    }
}

TEST_F (FrontViewStreaming, RefusedFormats)
{
  const struct {
    bool recording;
    VornFormat wanted;
    const char *complaint;
  } rows[] = {
      {false, format (1280, 720, 25, 1),
       "W failed to set streaming format: framerate is not a multiple of current camera framerate"},
      {true, format (1280, 720, 25, 1),
       "W failed to set recording format: framerate is not a multiple of current camera framerate"},
      {true, format (1280, 719, 24000, 1001),
       "E failed to set recording format: scaling on recording is not available"},
      {true, format (1281, 720, 24000, 1001),
       "E failed to set recording format: scaling on recording is not available"},
      {false, format (1280, 720, 24, 0),
       "W failed to set streaming format: framerate is not a multiple of current camera framerate"},
  };
  gst_element_set_state (view_->main_pipeline, GST_STATE_READY);
  for (const auto &row : rows) {
    log_.clear ();
    EXPECT_FALSE (row.recording ? klass ()->set_recording_format (base (), &row.wanted)
                                : klass ()->set_streaming_format (base (), &row.wanted));
    EXPECT_EQ (complaints (), Texts{row.complaint});
    EXPECT_EQ (target (), GST_STATE_READY);
  }
  EXPECT_EQ (parent_calls (), Texts{});
}

TEST_F (FrontViewStreaming, PresetsFollowTheFormat)
{
  const auto text = [this] (const char *property) {
    gchar *value = nullptr;
    g_object_get (view_, property, &value, nullptr);
    return std::string (vorn::OwnedString (value).get ());
  };
  store_relaxed (view_->camera_format, format (1920, 1080, 30000, 1001));
  const VornFormat stream = format (1920, 1080, 30000, 1001);
  ASSERT_TRUE (klass ()->set_streaming_format (base (), &stream));
  EXPECT_EQ (text ("streaming-preset"), "ZeltoStreaming1080p");
  ASSERT_TRUE (klass ()->set_recording_format (base (), &stream));
  EXPECT_EQ (text ("recording-preset"), "ZeltoRecording1080p");
  // A size without a preset of its own: the former one stays, with a warning.
  log_.clear ();
  const VornFormat odd = format (123, 77, 30000, 1001);
  EXPECT_TRUE (klass ()->set_streaming_format (base (), &odd));
  EXPECT_EQ (complaints (), Texts{"W failed to update preset for streaming"});
  EXPECT_EQ (text ("streaming-preset"), "ZeltoStreaming1080p");
}

} // namespace
