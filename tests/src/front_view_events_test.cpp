// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// What the view does about messages of its pipelines and of others.
#include "front_view_support.hpp"

#include "temp_dir.hpp"
#include <vorn/utils.h>

namespace
{

struct Event {
  guint event = 99;
  Texts files;
  int code = 0; // of the framework's error, 0: none
  std::string text;
  bool operator== (const Event &) const = default;
};

class FrontViewEvents : public FrontViewTest
{
protected:
  void SetUp () override
  {
    make_view ();
    ASSERT_TRUE (vorn_view_prepare (base ()));
    g_signal_connect (view_, "snapshot-event", G_CALLBACK (on_event), this);
    auto *parent = VORN_GST_VIEW_CLASS (g_type_class_peek (VORN_TYPE_GST_VIEW));
    kept_handler_ = parent->handle_message;
    parent->handle_message = [] (VornGstView *, GstMessage *) -> gboolean {
      passed_on_++;
      return parent_result_;
    };
    passed_on_ = 0;
    parent_result_ = TRUE;
    log_.clear ();
    parent_calls ().clear ();
  }

  void TearDown () override
  {
    VORN_GST_VIEW_CLASS (g_type_class_peek (VORN_TYPE_GST_VIEW))->handle_message = kept_handler_;
    if (view_)
      g_slist_free_full (std::exchange (view_->taken_snapshots, nullptr), g_free);
  }

  static void on_event (VornView *, guint event, gchar **files, const GError *error, gpointer self)
  {
    Event seen = {.event = event};
    for (gchar **file = files; file && *file; file++)
      seen.files.emplace_back (*file);
    if (error) {
      EXPECT_EQ (error->domain, VORN_RESOURCE_ERROR);
      seen.code = error->code;
      seen.text = error->message;
    }
    auto *test = static_cast<FrontViewEvents *> (self);
    test->events_.push_back (seen);
    test->state_at_event_ = GST_STATE (test->view_->picture_pipeline);
  }

  /** Handles a message; whether it was passed on to the framework. */
  bool handle (GstMessage *message)
  {
    const auto owned = vorn::adopt (message);
    const int before = passed_on_;
    const gboolean result =
        VORN_GST_VIEW_GET_CLASS (view_)->handle_message (VORN_GST_VIEW (view_), message);
    const bool passed_on = passed_on_ > before;
    EXPECT_EQ (result, passed_on ? parent_result_ : TRUE);
    return passed_on;
  }

  GstObject *picture () const { return GST_OBJECT (view_->picture_pipeline); }
  GstObject *main () const { return GST_OBJECT (view_->main_pipeline); }
  /** An element inside a pipeline. */
  static GstObject *inside (GstObject *pipeline)
  {
    return GST_OBJECT (find_factory (GST_ELEMENT (pipeline), "videoconvert").get ());
  }
  void take (std::initializer_list<const char *> files)
  {
    for (const char *file : files)
      view_->taken_snapshots = g_slist_append (view_->taken_snapshots, g_strdup (file));
  }
  static GstMessage *error_message (GstObject *source, GQuark domain, int code)
  {
    const vorn::OwnedError error (g_error_new (domain, code, "it went wrong"));
    return gst_message_new_error (source, error.get (), "details");
  }
  static GstMessage *element_message (GstObject *source, const char *name, bool error = false,
                                      const char *filename = nullptr)
  {
    GstStructure *structure = gst_structure_new_empty (name);
    if (error)
      gst_structure_set (structure, "error", G_TYPE_STRING, "no room", nullptr);
    if (filename)
      gst_structure_set (structure, "filename", G_TYPE_STRING, filename, nullptr);
    return gst_message_new_element (source, structure);
  }

  std::vector<Event> events_;
  GstState state_at_event_ = GST_STATE_VOID_PENDING;
  static inline int passed_on_ = 0;
  static inline gboolean parent_result_ = TRUE;
  gboolean (*kept_handler_) (VornGstView *, GstMessage *) = nullptr;
};

// ---- End of stream

TEST_F (FrontViewEvents, EndOfThePicturePipelineEndsTheSnapshot)
{
  const Texts files = {"/one.jpg", "/two.jpg"};
  take ({"/one.jpg", "/two.jpg"});
  for (const guint32 mode : {0u, 1u, 2u, 7u}) {
    events_.clear ();
    store_relaxed (view_->photo_mode, mode);
    gst_element_set_state (view_->picture_pipeline, GST_STATE_READY);
    EXPECT_FALSE (handle (gst_message_new_eos (picture ())));
    if (mode == 1) // pictures of a bracketing are told at once
      EXPECT_EQ (events_, (std::vector<Event>{{.event = 0, .files = files, .text = {}},
                                              {.event = 1, .files = files, .text = {}}}));
    else
      EXPECT_EQ (events_, (std::vector<Event>{{.event = 1, .files = files, .text = {}}}));
    EXPECT_EQ (state_at_event_, GST_STATE_NULL);
    EXPECT_EQ (GST_STATE (view_->picture_pipeline), GST_STATE_NULL);
  }
}

TEST_F (FrontViewEvents, OtherEndsArePassedOn)
{
  const Element other = vorn::adopt (gst_pipeline_new ("another-pipeline"));
  for (GstObject *source : {main (), inside (picture ()), GST_OBJECT (other.get ()),
                            static_cast<GstObject *> (nullptr)})
    for (const bool result : {true, false}) {
      parent_result_ = result;
      EXPECT_TRUE (handle (gst_message_new_eos (source)));
    }
  EXPECT_TRUE (events_.empty ());
}

// ---- Errors

TEST_F (FrontViewEvents, ErrorInThePicturePipelineFailsTheSnapshot)
{
  const struct {
    GQuark domain;
    int code;
    int expected;
  } rows[] = {{GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_NO_SPACE_LEFT, 3},
              {GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_WRITE, 1},
              // The same number in another domain is another error.
              {GST_STREAM_ERROR, GST_RESOURCE_ERROR_NO_SPACE_LEFT, 1},
              {GST_CORE_ERROR, GST_CORE_ERROR_FAILED, 1}};
  ASSERT_EQ (GST_RESOURCE_ERROR_NO_SPACE_LEFT, 14);
  take ({"/one.jpg"});
  for (const auto &row : rows)
    for (GstObject *source : {picture (), inside (picture ())}) {
      events_.clear ();
      gst_element_set_state (view_->picture_pipeline, GST_STATE_READY);
      EXPECT_FALSE (handle (error_message (source, row.domain, row.code)));
      ASSERT_EQ (events_.size (), 1u);
      EXPECT_EQ (events_[0].event, 2u);
      EXPECT_EQ (events_[0].code, row.expected);
      EXPECT_EQ (events_[0].text, "it went wrong");
      EXPECT_EQ (events_[0].files, Texts{});
      EXPECT_EQ (GST_STATE (view_->picture_pipeline), GST_STATE_NULL);
    }
}

TEST_F (FrontViewEvents, OtherErrorsArePassedOn)
{
  for (GstObject *source : {main (), inside (main ()), static_cast<GstObject *> (nullptr)})
    EXPECT_TRUE (
        handle (error_message (source, GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_NO_SPACE_LEFT)));
  EXPECT_TRUE (events_.empty ());
  EXPECT_EQ (parent_calls (), Texts{});
}

// ---- State changes

TEST_F (FrontViewEvents, PictureIsStartedWhenItsPipelineGoesFromReadyToPaused)
{
  const struct {
    GstObject *source;
    GstState before, after;
    bool started;
  } rows[] = {
      {picture (), GST_STATE_READY, GST_STATE_PAUSED, true},
      {picture (), GST_STATE_NULL, GST_STATE_READY, false},
      {picture (), GST_STATE_PAUSED, GST_STATE_PLAYING, false},
      {picture (), GST_STATE_PAUSED, GST_STATE_READY, false},
      {main (), GST_STATE_READY, GST_STATE_PAUSED, false},
      {inside (picture ()), GST_STATE_READY, GST_STATE_PAUSED, false},
      {nullptr, GST_STATE_READY, GST_STATE_PAUSED, false},
  };
  for (const auto &row : rows) {
    events_.clear ();
    EXPECT_TRUE (handle (
        gst_message_new_state_changed (row.source, row.before, row.after, GST_STATE_VOID_PENDING)));
    std::vector<Event> expected;
    if (row.started)
      expected.push_back ({.event = 3, .files = {}, .text = {}});
    EXPECT_EQ (events_, expected);
  }
}

// ---- Recordings

TEST_F (FrontViewEvents, RecordingErrors)
{
  const char *stop_line = "stopping zelto main pipeline on non fatal error";
  const struct {
    bool inside_main;
    const char *name;
    bool error;
    bool stops_pipeline;
    bool stops_recording;
  } rows[] = {
      {true, "record-done", true, true, false},     {true, "record-done", false, false, false},
      {true, "no-space-left", true, false, true},   {true, "no-space-left", false, false, false},
      {true, "something-else", true, false, false}, {false, "record-done", true, false, false},
      {false, "no-space-left", true, false, false},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE (&row - rows);
    GstLogCapture gst_log;
    parent_calls ().clear ();
    gst_element_set_state (view_->main_pipeline, GST_STATE_READY);
    EXPECT_TRUE (handle (
        element_message (inside (row.inside_main ? main () : picture ()), row.name, row.error)));
    EXPECT_EQ (GST_STATE (view_->main_pipeline),
               row.stops_pipeline ? GST_STATE_NULL : GST_STATE_READY);
    EXPECT_EQ (gst_log.count (GST_LEVEL_ERROR, stop_line), row.stops_pipeline ? 1 : 0);
    EXPECT_EQ (parent_calls (), row.stops_recording ? Texts{"stop_recording 0"} : Texts{});
  }
}

// ---- Pictures

TEST_F (FrontViewEvents, WrittenPicturesAreCollectedAndTold)
{
  const TempDir folder;
  const std::string first = folder.write ("first.jpg", "x");
  const std::string second = folder.write ("second.jpg", "x");
  EXPECT_TRUE (
      handle (element_message (inside (picture ()), "GstMultiFileSink", false, first.c_str ())));
  EXPECT_EQ (events_, (std::vector<Event>{{.event = 0, .files = {first}, .text = {}}}));
  EXPECT_TRUE (
      handle (element_message (inside (picture ()), "GstMultiFileSink", false, second.c_str ())));
  EXPECT_EQ (events_.back (), (Event{.event = 0, .files = {first, second}, .text = {}}));
  EXPECT_EQ (events_.size (), 2u);
  const vorn::OwnedString last (vorn_utils_get_picture_last_location ());
  EXPECT_EQ (last.get (), second);
  EXPECT_EQ (complaints (), Texts{});
}

TEST_F (FrontViewEvents, PicturesOfABracketingAreToldAtItsEnd)
{
  const TempDir folder;
  const std::string file = folder.write ("one.jpg", "x");
  store_relaxed (view_->photo_mode, 1);
  handle (element_message (inside (picture ()), "GstMultiFileSink", false, file.c_str ()));
  EXPECT_TRUE (events_.empty ());
  handle (gst_message_new_eos (picture ()));
  EXPECT_EQ (events_, (std::vector<Event>{{.event = 0, .files = {file}, .text = {}},
                                          {.event = 1, .files = {file}, .text = {}}}));
}

TEST_F (FrontViewEvents, PictureThatIsNotThereIsSaid)
{
  handle (element_message (inside (picture ()), "GstMultiFileSink", false, "/nowhere/one.jpg"));
  EXPECT_EQ (complaints (), Texts{"W failed to set last resource id for /nowhere/one.jpg"});
  EXPECT_EQ (events_.size (), 1u);
}

TEST_F (FrontViewEvents, OtherElementMessagesOnlyPass)
{
  EXPECT_TRUE (handle (element_message (inside (main ()), "GstMultiFileSink", false, "/a.jpg")));
  EXPECT_TRUE (handle (element_message (inside (picture ()), "GstFileSink", false, "/a.jpg")));
  EXPECT_TRUE (handle (element_message (inside (picture ()), "GstMultiFileSink")));
  EXPECT_TRUE (handle (element_message (nullptr, "GstMultiFileSink", true, "/a.jpg")));
  EXPECT_TRUE (handle (gst_message_new_latency (picture ())));
  EXPECT_EQ (view_->taken_snapshots, nullptr);
  EXPECT_TRUE (events_.empty ());
  EXPECT_TRUE (log_.lines ().empty ());
}

TEST_F (FrontViewEvents, MessagesAfterUnprepareAreHarmless)
{
  const auto kept = vorn::share (view_->picture_pipeline);
  unprepare ();
  CriticalCapture criticals;
  EXPECT_TRUE (handle (error_message (GST_OBJECT (kept.get ()), GST_CORE_ERROR, 1)));
  EXPECT_TRUE (
      handle (element_message (GST_OBJECT (kept.get ()), "GstMultiFileSink", true, "/a.jpg")));
  EXPECT_TRUE (events_.empty ());
  EXPECT_TRUE (criticals.criticals ().empty ());
}

} // namespace
