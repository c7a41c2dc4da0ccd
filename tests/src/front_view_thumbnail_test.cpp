// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// Thumbnails of photos, and covers of recordings.
#include <thread>

#include <gmock/gmock.h>
#include <gst/video/video.h>

#include "front_view_photo_support.hpp"
#include "main_context.hpp"
#include <vorn/properties.h>

using namespace photos;
using testing::ElementsAre;
using testing::IsEmpty;

// ---- A camera source of which only the newest frame is of interest

struct FrameSource {
  GstElement parent_instance;
  GMutex mutex;
  GstBuffer *frame;
};
using FrameSourceClass = GstElementClass;
static GType frame_source_get_type ();
G_DEFINE_TYPE (FrameSource, frame_source, GST_TYPE_ELEMENT)

static void frame_source_access (GObject *object, guint, GValue *value, GParamSpec *)
{
  auto *source = reinterpret_cast<FrameSource *> (object);
  const vorn::Lock lock (&source->mutex);
  gst_value_set_buffer (value, source->frame);
}

static void frame_source_finalize (GObject *object)
{
  gst_clear_buffer (&reinterpret_cast<FrameSource *> (object)->frame);
  G_OBJECT_CLASS (frame_source_parent_class)->finalize (object);
}

static void frame_source_class_init (FrameSourceClass *klass)
{
  G_OBJECT_CLASS (klass)->get_property = frame_source_access;
  G_OBJECT_CLASS (klass)->finalize = frame_source_finalize;
  g_object_class_install_property (
      G_OBJECT_CLASS (klass), 1,
      g_param_spec_boxed ("last-frame", "", "", GST_TYPE_BUFFER, G_PARAM_READABLE));
}

static void frame_source_init (FrameSource *) {}

static void set_frame (FrameSource *source, vorn::Ref<GstBuffer> frame)
{
  const vorn::Lock lock (&source->mutex);
  gst_clear_buffer (&source->frame);
  source->frame = frame.release ();
}

namespace
{

// ---- Photos

class FrontViewThumbnail : public PhotoTest
{
protected:
  vorn::Ref<GstSample> image () const
  {
    GstSample *sample = nullptr;
    gst_tag_list_get_sample (muxer_tags ().get (), GST_TAG_IMAGE, &sample);
    return vorn::adopt (sample);
  }
};

void expect_jpeg (GstSample *sample, gint width, gint height)
{
  ASSERT_NE (sample, nullptr);
  const GstStructure *caps = gst_caps_get_structure (gst_sample_get_caps (sample), 0);
  EXPECT_STREQ (gst_structure_get_name (caps), "image/jpeg");
  gint is_width = 0;
  gint is_height = 0;
  gst_structure_get (caps, "width", G_TYPE_INT, &is_width, "height", G_TYPE_INT, &is_height,
                     nullptr);
  EXPECT_EQ (is_width, width);
  EXPECT_EQ (is_height, height);
  const vorn::BufferMap map (gst_sample_get_buffer (sample), GST_MAP_READ);
  ASSERT_GT (map.size (), 4u);
  EXPECT_EQ (map.data ()[0], 0xff);
  EXPECT_EQ (map.data ()[1], 0xd8);
}

TEST_F (FrontViewThumbnail, NamesWhatIsMissing)
{
  const struct {
    std::set<std::string> missing;
    const char *message;
  } cases[] = {
      {{"videoscale"}, "missing elements: videoscale"},
      {{"capsfilter"}, "missing elements: capsfilter"},
      {{"jpegenc"}, "missing elements: jpegenc"},
      {{"appsink"}, "missing elements: appsink"},
      {{"videoscale", "capsfilter", "jpegenc", "appsink"},
       "missing elements: videoscale capsfilter jpegenc appsink"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE (c.message);
    log_.clear ();
    const auto pipeline = make_source_and_tee ();
    const auto tee = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), "tee"));
    const int before = GST_BIN_NUMCHILDREN (pipeline.get ());
    calls.missing = c.missing;
    EXPECT_FALSE (
        populate_picture_thumbnail_pipeline (GST_BIN (pipeline.get ()), tee.get (), view_));
    calls.missing.clear ();
    EXPECT_EQ (GST_BIN_NUMCHILDREN (pipeline.get ()), before);
    EXPECT_THAT (said (error), ElementsAre (c.message));
    EXPECT_EQ (log_.lines ().size (), 1u);
  }
}

TEST_F (FrontViewThumbnail, TakesItsElementsBackWhenTheyCannotBeLinked)
{
  const CriticalCapture criticals; // GStreamer says why they cannot
  const auto bin = vorn::adopt (GST_BIN (gst_bin_new (nullptr)));
  const auto tee = vorn::adopt (gst_element_factory_make ("tee", nullptr)); // not in the bin
  EXPECT_FALSE (populate_picture_thumbnail_pipeline (bin.get (), tee.get (), view_));
  EXPECT_EQ (GST_BIN_NUMCHILDREN (bin.get ()), 0);
  EXPECT_THAT (said (error),
               ElementsAre ("failed to link tee with videoscale, capsfilter, jpegenc, appsink"));
  EXPECT_EQ (log_.lines ().size (), 1u);
}

TEST_F (FrontViewThumbnail, IsPutTogether)
{
  build (false, true);
  const auto sink = element ("thumbnail-sink");
  ASSERT_TRUE (sink);
  gboolean async = TRUE;
  gboolean signals = FALSE;
  g_object_get (sink.get (), "async", &async, "emit-signals", &signals, nullptr);
  EXPECT_FALSE (async);
  EXPECT_TRUE (signals);
}

TEST_F (FrontViewThumbnail, EachPhotoHasOneOfItsOwn)
{
  // Each of these is visibly another picture.
  build ();
  const std::pair<int, guint8> patterns[] = {{2, 16}, {3, 235}, {2, 16}}; // black, white, black
  for (const auto &[pattern, brightness] : patterns) {
    SCOPED_TRACE (int{brightness});
    g_object_set (element ("source").get (), "pattern", pattern, nullptr);
    take_whole ();
    const auto sample = image ();
    expect_jpeg (sample.get (), 320, 240);
    const auto decoder = vorn::adopt (gst_parse_launch (
        "appsrc name=in format=time ! jpegdec ! fakesink name=out signal-handoffs=true sync=false",
        nullptr));
    const auto in = vorn::adopt (gst_bin_get_by_name (GST_BIN (decoder.get ()), "in"));
    const auto out = vorn::adopt (gst_bin_get_by_name (GST_BIN (decoder.get ()), "out"));
    guint8 luma = 0;
    g_signal_connect (out.get (), "handoff",
                      G_CALLBACK (+[] (GstElement *, GstBuffer *buffer, GstPad *, guint8 *first) {
                        gst_buffer_extract (buffer, 320 * 120 + 160, first, 1);
                      }),
                      &luma);
    gst_element_set_state (decoder.get (), GST_STATE_PLAYING);
    GstFlowReturn flow;
    g_signal_emit_by_name (in.get (), "push-sample", sample.get (), &flow);
    g_signal_emit_by_name (in.get (), "end-of-stream", &flow);
    const auto bus = vorn::adopt (gst_element_get_bus (decoder.get ()));
    const auto end =
        vorn::adopt (gst_bus_timed_pop_filtered (bus.get (), 30 * GST_SECOND, GST_MESSAGE_EOS));
    gst_element_set_state (decoder.get (), GST_STATE_NULL);
    ASSERT_TRUE (end);
    EXPECT_NEAR (luma, brightness, 3);
  }
}

TEST_F (FrontViewThumbnail, ARunGivesExactlyOne)
{
  build (false, true, "videotestsrc num-buffers=5");
  // Without the other branch; a muxer to give it to.
  gst_bin_add (GST_BIN (view_->picture_pipeline),
               gst_element_factory_make ("jifmux", "picture-jpegmux"));
  const auto sink = element ("thumbnail-sink");
  const auto pad = vorn::adopt (gst_element_get_static_pad (sink.get (), "sink"));
  std::atomic<int> pictures = 0;
  gst_pad_add_probe (
      pad.get (), GST_PAD_PROBE_TYPE_BUFFER,
      [] (GstPad *, GstPadProbeInfo *, gpointer count) {
        ++*static_cast<std::atomic<int> *> (count);
        return GST_PAD_PROBE_OK;
      },
      &pictures, nullptr);
  for (int run = 1; run <= 3; run++) {
    gst_element_set_state (view_->picture_pipeline, GST_STATE_PLAYING);
    EXPECT_EQ (wait_for_end (), "eos");
    EXPECT_EQ (pictures, run);
    EXPECT_TRUE (image ());
    gboolean ended = FALSE;
    g_object_get (sink.get (), "eos", &ended, nullptr);
    EXPECT_TRUE (ended);
    gst_element_set_state (view_->picture_pipeline, GST_STATE_NULL);
    EXPECT_FALSE (has_tag (GST_TAG_IMAGE));
  }
}

TEST_F (FrontViewThumbnail, SaysWhenThereIsNoMuxer)
{
  build (false, true);
  gst_element_set_state (view_->picture_pipeline, GST_STATE_PLAYING);
  EXPECT_EQ (wait_for_end (), "eos");
  EXPECT_THAT (said (warning), ElementsAre ("failed to get picture-jpegmux"));
}

// ---- Covers

class FrontViewCover : public PhotoTest
{
protected:
  FrontViewCover ()
  {
    source_ = vorn::adopt (
        reinterpret_cast<FrameSource *> (g_object_new (frame_source_get_type (), nullptr)));
    view_->camera_source = GST_ELEMENT (source_.get ());
    view_->main_pipeline = gst_pipeline_new ("front-streaming-pipeline");
    gst_bin_add (GST_BIN (view_->main_pipeline),
                 gst_element_factory_make ("jifmux", "recordbin-muxer"));
    play ();
  }

  void play (GstState to = GST_STATE_PLAYING)
  {
    ASSERT_NE (gst_element_set_state (view_->main_pipeline, to), GST_STATE_CHANGE_FAILURE);
  }
  static vorn::Ref<GstBuffer> make_frame (gsize width = 1280, gsize height = 720,
                                          guint8 brightness = 128)
  {
    const gsize size = GST_ROUND_UP_4 (width * 3) * height;
    auto frame = vorn::adopt (gst_buffer_new_allocate (nullptr, size, nullptr));
    gst_buffer_memset (frame.get (), 0, brightness, size);
    return frame;
  }
  void request () { EXPECT_TRUE (VORN_VIEW_GET_CLASS (base_)->make_thumbnail (base_)); }
  bool is_requested ()
  {
    const vorn::Lock lock (&view_->thumbnail_lock);
    return view_->thumbnail_requested;
  }
  void frame_comes (guint64 time_ns = 0) { on_new_frame_cb (view_->camera_source, time_ns, view_); }
  /** Until no cover is made and its end was taken note of. */
  void finish ()
  {
    vorn_morvik_zelto_front_view_wait_for_covers ();
    // The task is kept until its callback was called; it holds the view.
    ASSERT_TRUE (run_until ([this] { return G_OBJECT (base_)->ref_count == 2; }));
  }
  vorn::Ref<GstSample> cover () const
  {
    const auto muxer =
        vorn::adopt (gst_bin_get_by_name (GST_BIN (view_->main_pipeline), "recordbin-muxer"));
    const GstTagList *tags = gst_tag_setter_get_tag_list (GST_TAG_SETTER (muxer.get ()));
    GstSample *sample = nullptr;
    if (tags)
      gst_tag_list_get_sample (tags, GST_TAG_IMAGE, &sample);
    return vorn::adopt (sample);
  }
  size_t covers () const { return called (&Calls::covers).size (); }

  vorn::Ref<FrameSource> source_;
};

TEST_F (FrontViewCover, IsMadeOfTheNextFrame)
{
  request ();
  EXPECT_TRUE (is_requested ());
  EXPECT_THAT (said (VORN_LOG_PRIORITY_DEBUG),
               ElementsAre ("recording thumbnail creation required"));
  set_frame (source_.get (), make_frame ());
  frame_comes ();
  EXPECT_FALSE (is_requested ());
  finish ();
  expect_jpeg (cover ().get (), 320, 180);
  EXPECT_FALSE (is_requested ());
  EXPECT_THAT (said (error), IsEmpty ());
}

TEST_F (FrontViewCover, EveryFrameIsToldToTheTelemetry)
{
  set_frame (source_.get (), make_frame ());
  for (const guint64 time_ns : {11u, 12u, 13u})
    frame_comes (time_ns);
  request ();
  frame_comes (14);
  finish ();
  EXPECT_THAT (called (&Calls::frame_times_ns), ElementsAre (11, 12, 13, 14));
  EXPECT_EQ (covers (), 1u);
}

TEST_F (FrontViewCover, WaitsForAFrame)
{
  request ();
  frame_comes ();
  frame_comes ();
  EXPECT_THAT (said (error), ElementsAre ("failed to get last frame", "failed to get last frame"));
  EXPECT_TRUE (is_requested ());
  EXPECT_EQ (covers (), 0u);
  set_frame (source_.get (), make_frame ());
  frame_comes ();
  finish ();
  EXPECT_FALSE (is_requested ());
  expect_jpeg (cover ().get (), 320, 180);
}

TEST_F (FrontViewCover, RequestsForOneFrameAreOne)
{
  set_frame (source_.get (), make_frame ());
  for (int i = 0; i < 3; i++)
    request ();
  for (int i = 0; i < 3; i++)
    frame_comes ();
  finish ();
  EXPECT_EQ (covers (), 1u);
  for (int i = 0; i < 3; i++) {
    request ();
    frame_comes ();
    finish ();
  }
  EXPECT_EQ (covers (), 4u);
}

TEST_F (FrontViewCover, IsOfACopyOfTheFrame)
{
  set_frame (source_.get (), make_frame (1280, 720, 77));
  GstBuffer *frame = source_->frame;
  request ();
  frame_comes ();
  finish ();
  const auto asked = called (&Calls::covers);
  ASSERT_EQ (asked.size (), 1u);
  EXPECT_NE (asked[0].frame.get (), frame);
  EXPECT_EQ (GST_MINI_OBJECT_REFCOUNT_VALUE (frame), 1);
  const vorn::BufferMap original (frame, GST_MAP_READ);
  const vorn::BufferMap copy (asked[0].frame.get (), GST_MAP_READ);
  EXPECT_NE (original.data (), copy.data ());
  ASSERT_EQ (original.size (), copy.size ());
  EXPECT_EQ (memcmp (original.data (), copy.data (), copy.size ()), 0);
}

TEST_F (FrontViewCover, HasTheSizeOfTheBuild)
{
  const struct {
    const char *simple; // the property
    guint32 width, height;
    gint cover_height;
  } cases[] = {{nullptr, 1280, 720, 180},
               {"1", 1280, 720, 180},
               {"0", 1312, 788, 192},
               {"10", 1312, 788, 192}};
  for (const auto &c : cases) {
    SCOPED_TRACE (c.simple ? c.simple : "unset");
    vorn_property_set ("ro.simple-front-cam", c.simple);
    set_frame (source_.get (), make_frame (c.width, c.height));
    request ();
    frame_comes ();
    finish ();
    expect_jpeg (cover ().get (), 320, c.cover_height);
    const Calls::Cover asked = called (&Calls::covers).back ();
    EXPECT_EQ (asked.width, c.width);
    EXPECT_EQ (asked.height, c.height);
    EXPECT_EQ (asked.framerate_num, 24000u);
    EXPECT_EQ (asked.framerate_den, 1001u);
  }
}

/** What goes wrong, what is said, how it is put right. */
struct Failure {
  const char *name;
  const char *message;
  std::function<void (VornMorvikZeltoFrontView *)> begin, end;
};

TEST_F (FrontViewCover, IsTriedAgainWithTheNextFrame)
{
  const auto to_state = [] (GstState state) {
    return [state] (VornMorvikZeltoFrontView *view) {
      gst_element_set_state (view->main_pipeline, state);
    };
  };
  const auto rename_muxer = [] (const char *from, const char *to) {
    return [=] (VornMorvikZeltoFrontView *view) {
      GstBin *bin = GST_BIN (view->main_pipeline);
      const auto muxer = vorn::adopt (gst_bin_get_by_name (bin, from));
      gst_bin_remove (bin, muxer.get ());
      gst_object_set_name (GST_OBJECT (muxer.get ()), to);
      gst_bin_add (bin, muxer.get ());
    };
  };
  const Failure failures[] = {
      {"no encoder", "can't create cover", [] (auto *) { calls.missing = {"jpegenc"}; },
       [] (auto *) { calls.missing.clear (); }},
      {"stopped", "unexpected pipeline state: 1", to_state (GST_STATE_NULL),
       to_state (GST_STATE_PLAYING)},
      {"ready", "unexpected pipeline state: 2", to_state (GST_STATE_READY),
       to_state (GST_STATE_PLAYING)},
      {"paused", "unexpected pipeline state: 3", to_state (GST_STATE_PAUSED),
       to_state (GST_STATE_PLAYING)},
      {"no list", "can't create tag list", [] (auto *) { calls.no_tag_list = true; },
       [] (auto *) { calls.no_tag_list = false; }},
      {"no muxer", "can't get recordbin-muxer", rename_muxer ("recordbin-muxer", "other"),
       rename_muxer ("other", "recordbin-muxer")},
  };
  for (const Failure &failure : failures) {
    SCOPED_TRACE (failure.name);
    set_frame (source_.get (), make_frame ());
    request ();
    failure.begin (view_);
    for (int frame = 0; frame < 2; frame++) { // every frame is tried
      log_.clear ();
      frame_comes ();
      finish ();
      EXPECT_THAT (said (error), ElementsAre (failure.message));
      EXPECT_TRUE (is_requested ());
    }
    failure.end (view_);
    log_.clear ();
    frame_comes ();
    finish ();
    EXPECT_THAT (said (error), IsEmpty ());
    EXPECT_FALSE (is_requested ());
    EXPECT_TRUE (cover ());
  }
}

TEST_F (FrontViewCover, IsDiscardedWithoutAPipeline)
{
  gst_element_set_state (view_->main_pipeline, GST_STATE_NULL);
  vorn::adopt (std::exchange (view_->main_pipeline, nullptr));
  set_frame (source_.get (), make_frame ());
  request ();
  frame_comes ();
  finish ();
  EXPECT_THAT (said (error), ElementsAre ("unexpected pipeline state: 1"));
  EXPECT_TRUE (is_requested ());
}

TEST_F (FrontViewCover, SaysWhenThereIsNoTask)
{
  set_frame (source_.get (), make_frame ());
  request ();
  calls.no_task = true;
  frame_comes ();
  EXPECT_THAT (said (error), ElementsAre ("can't create task."));
  EXPECT_EQ (covers (), 0u);
  EXPECT_EQ (GST_MINI_OBJECT_REFCOUNT_VALUE (source_->frame), 1);
}

TEST_F (FrontViewCover, ThreadsMayMeet)
{
  set_frame (source_.get (), make_frame (1280, 720));
  std::atomic<bool> done = false;
  std::thread camera ([&] {
    while (!done)
      frame_comes ();
  });
  const size_t wanted = soak () ? 500 : 10;
  const bool enough = run_until ([&] {
    if (!is_requested ())
      request ();
    return covers () >= wanted;
  });
  done = true;
  camera.join ();
  EXPECT_TRUE (enough);
  finish ();
  EXPECT_TRUE (cover ());
}

} // namespace
