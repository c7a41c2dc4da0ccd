// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "live_view.hpp"

#include <cstdlib>
#include <sstream>

#include <arpa/inet.h>

#include <gtest/gtest.h>

#include "process.hpp"
#include <vorn/framework.h>
#include <vorn/recording.h>
#include <vorn/utils.h>

struct _TestLiveView {
  VornGstView parent_instance;
  LivePicture *picture;
  GstElement *pipeline;
  gboolean refuses_modes;
  std::vector<std::string> *messages; // borrowed from the fixture
};

G_DEFINE_TYPE (TestLiveView, test_live_view, VORN_TYPE_GST_VIEW)

static VornViewClass *parent_class ()
{
  return VORN_VIEW_CLASS (test_live_view_parent_class);
}

static bool set_state (VornView *view, GstState state)
{
  return gst_element_set_state (TEST_LIVE_VIEW (view)->pipeline, state) != GST_STATE_CHANGE_FAILURE;
}

static gboolean prepare (VornView *view)
{
  TestLiveView *self = TEST_LIVE_VIEW (view);
  const LivePicture &picture = *self->picture;
  std::ostringstream text;
  text << "videotestsrc is-live=true name=source pattern=" << picture.pattern
       << " ! video/x-raw,format=I420,width=" << picture.width << ",height=" << picture.height
       << ",framerate=" << picture.rate_num << "/" << picture.rate_den
       << (picture.two_pads ? " ! tee name=last" : " ! identity name=last");
  vorn::ErrorOut error;
  const auto parsed =
      vorn::adopt (gst_parse_bin_from_description (text.str ().c_str (), FALSE, error.out ()));
  EXPECT_FALSE (error) << error.message ();
  self->pipeline = gst_pipeline_new ("front-streaming-pipeline");
  gst_object_ref_sink (self->pipeline);
  gst_bin_add (GST_BIN (self->pipeline), parsed.get ());
  const auto last = vorn::adopt (gst_bin_get_by_name (GST_BIN (parsed.get ()), "last"));
  VornGstView *gst_view = VORN_GST_VIEW (view);
  vorn_gst_view_attach_element (gst_view, self->pipeline);
  if (picture.two_pads) {
    for (const guint32 kind : {1u, 2u}) {
      const auto pad = vorn::adopt (gst_element_request_pad_simple (last.get (), "src_%u"));
      EXPECT_TRUE (vorn_gst_view_set_source_pad (gst_view, pad.get (), kind));
    }
  } else {
    const auto pad = vorn::adopt (gst_element_get_static_pad (last.get (), "src"));
    EXPECT_TRUE (vorn_gst_view_set_source_pad (gst_view, pad.get (), 3));
  }
  return parent_class ()->prepare (view);
}

static gboolean unprepare (VornView *view)
{
  TestLiveView *self = TEST_LIVE_VIEW (view);
  g_clear_object (&self->pipeline);
  return parent_class ()->unprepare (view);
}

static gboolean set_format (VornView *view, const VornFormat *format,
                            gboolean (*chain_up) (VornView *, const VornFormat *))
{
  GstState state = GST_STATE_NULL;
  GstState pending = GST_STATE_VOID_PENDING;
  gst_element_get_state (TEST_LIVE_VIEW (view)->pipeline, &state, &pending, 0);
  set_state (view, GST_STATE_NULL);
  const gboolean result = chain_up (view, format);
  set_state (view, pending != GST_STATE_VOID_PENDING ? pending : state);
  return result;
}

static gboolean handle_message (VornGstView *view, GstMessage *message)
{
  const GstStructure *structure = gst_message_get_structure (message);
  const bool from_element = GST_MESSAGE_TYPE (message) == GST_MESSAGE_ELEMENT && structure;
  const bool has_error = from_element && gst_structure_has_field (structure, "error");
  std::vector<std::string> *messages = TEST_LIVE_VIEW (view)->messages;
  if (from_element && messages && g_str_equal (GST_MESSAGE_SRC_NAME (message), "recordbin"))
    messages->push_back (gst_structure_get_name (structure) +
                         std::string (has_error ? " (error)" : ""));
  if (has_error) {
    if (gst_structure_has_name (structure, "record-done"))
      set_state (VORN_VIEW (view), GST_STATE_NULL);
    else if (gst_structure_has_name (structure, "no-space-left"))
      VORN_VIEW_GET_CLASS (view)->stop_recording (VORN_VIEW (view), 0);
  }
  return VORN_GST_VIEW_CLASS (test_live_view_parent_class)->handle_message (view, message);
}

static void test_live_view_finalize (GObject *object)
{
  TestLiveView *self = TEST_LIVE_VIEW (object);
  g_clear_object (&self->pipeline);
  delete self->picture;
  G_OBJECT_CLASS (test_live_view_parent_class)->finalize (object);
}

static void test_live_view_class_init (TestLiveViewClass *klass)
{
  G_OBJECT_CLASS (klass)->finalize = test_live_view_finalize;
  VORN_GST_VIEW_CLASS (klass)->handle_message = handle_message;
  VornViewClass *view_class = VORN_VIEW_CLASS (klass);
  view_class->prepare = prepare;
  view_class->unprepare = unprepare;
  view_class->update_camera_mode = [] (VornView *view, const VornCameraMode *) -> gboolean {
    const VornViewCapabilities capabilities = {.feature_mask = VORN_VIEW_FEATURE_STREAMING |
                                                               VORN_VIEW_FEATURE_RECORDING};
    vorn_view_set_capabilities (view, &capabilities);
    return !TEST_LIVE_VIEW (view)->refuses_modes;
  };
  view_class->stream_setup = [] (VornView *view, VornStreamSetup *setup) -> gboolean {
    return set_state (view, GST_STATE_PLAYING) && parent_class ()->stream_setup (view, setup);
  };
  view_class->stream_teardown = [] (VornView *view, const gchar *reason) -> gboolean {
    const gboolean result = parent_class ()->stream_teardown (view, reason);
    return set_state (view, GST_STATE_NULL) && result;
  };
  view_class->start_recording = [] (VornView *view) -> gboolean {
    return set_state (view, GST_STATE_NULL) && set_state (view, GST_STATE_PLAYING) &&
           parent_class ()->start_recording (view);
  };
  view_class->set_streaming_format = [] (VornView *view, const VornFormat *format) {
    return set_format (view, format, parent_class ()->set_streaming_format);
  };
  view_class->set_recording_format = [] (VornView *view, const VornFormat *format) {
    return set_format (view, format, parent_class ()->set_recording_format);
  };
}

static void test_live_view_init (TestLiveView *) {}

// ---- The fixture

static void on_record_event (VornView *, guint32 event, const gchar *filename, const GError *error,
                             gpointer data)
{
  static_cast<LiveView *> (data)->events.push_back (
      {event, filename ? filename : "", error ? error->code : 0, error ? error->message : ""});
}

LiveView::LiveView (const LivePicture &picture, const std::string &media_folder)
    : media_ (media_folder.empty () ? folder_.path () : media_folder)
{
  vorn_framework_init (nullptr, nullptr);
  vorn_utils_set_media_folder (media_.c_str ());
  view_ = vorn::adopt (VORN_GST_VIEW (
      g_object_new (TEST_TYPE_LIVE_VIEW, "name", "front", "display-name", "Front", nullptr)));
  TEST_LIVE_VIEW (view_.get ())->picture = new LivePicture (picture);
  TEST_LIVE_VIEW (view_.get ())->messages = &messages;
  g_signal_connect (view_.get (), "record-event", G_CALLBACK (on_record_event), this);
}

LiveView::~LiveView ()
{
  drop ();
  EXPECT_TRUE (vorn_recordings_wait (20000));
  run_pending ();
}

void LiveView::drop ()
{
  if (!view_)
    return;
  vorn_view_unprepare (view ());
  g_signal_handlers_disconnect_by_data (view_.get (), this);
  TEST_LIVE_VIEW (view_.get ())->messages = nullptr;
  view_.reset ();
  // Messages that nobody read any more.
  if (pipeline_)
    gst_bus_set_flushing (vorn::adopt (gst_element_get_bus (pipeline_.get ())).get (), TRUE);
}

bool LiveView::prepare ()
{
  if (!vorn_view_prepare (view ()))
    return false;
  pipeline_ = vorn::share (TEST_LIVE_VIEW (view_.get ())->pipeline);
  const VornCameraMode mode = {};
  return VORN_VIEW_GET_CLASS (view ())->update_camera_mode (view (), &mode);
}

void LiveView::refuse_modes (bool refuse)
{
  TEST_LIVE_VIEW (view_.get ())->refuses_modes = refuse;
}

vorn::Ref<GstElement> LiveView::find (const char *name) const
{
  return vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline ()), name));
}

bool LiveView::stream (guint16 udp_port, guint32 bitrate)
{
  VornStreamSetup setup = {};
  if (udp_port != 0) {
    setup.client_address = htonl (INADDR_LOOPBACK);
    setup.client_port = udp_port;
  }
  setup.bitrate = bitrate;
  return vorn_view_stream_setup (view (), &setup);
}

VornGstViewStatistics LiveView::statistics () const
{
  VornGstViewStatistics statistics = {};
  vorn_gst_view_get_statistics (gst_view (), &statistics);
  return statistics;
}

std::string LiveView::location () const
{
  const vorn::OwnedString text (vorn_gst_view_get_recording_location (gst_view ()));
  return text ? text.get () : "";
}

RecordEvent LiveView::wait_for_event (guint32 event)
{
  if (!run_until ([this] { return !events.empty (); })) {
    ADD_FAILURE () << "no event " << event;
    return {};
  }
  RecordEvent first = events.front ();
  events.erase (events.begin ());
  EXPECT_EQ (first.event, event) << first.filename << " " << first.error;
  return first;
}

bool LiveView::wait_for_stream (guint64 units)
{
  const guint64 goal = statistics ().stream_frames_out + units;
  return run_until ([&] { return statistics ().stream_frames_out >= goal; });
}

bool LiveView::wait_for_recording (guint64 units)
{
  const guint64 goal = statistics ().recording_frames_out + units;
  return run_until ([&] { return statistics ().recording_frames_out >= goal; });
}

UnitCollector::UnitCollector (LiveView &view) : view_ (view)
{
  id_ = vorn_gst_view_add_stream_unit_func (
      view.gst_view (),
      [] (VornGstView *, GstSample *unit, gpointer data) {
        auto *self = static_cast<UnitCollector *> (data);
        const std::lock_guard lock (self->mutex_);
        self->units_.push_back (vorn::share (unit));
      },
      this, nullptr);
}

UnitCollector::~UnitCollector ()
{
  if (view_.view ())
    vorn_gst_view_remove_stream_unit_func (view_.gst_view (), id_);
}

size_t UnitCollector::count () const
{
  const std::lock_guard lock (mutex_);
  return units_.size ();
}

std::vector<vorn::Ref<GstSample>> UnitCollector::units () const
{
  const std::lock_guard lock (mutex_);
  return units_;
}

// ---- Files

static std::string value_in (const std::string &lines, const std::string &key)
{
  std::istringstream stream (lines);
  for (std::string line; std::getline (stream, line);)
    if (line.starts_with (key + "="))
      return line.substr (key.size () + 1);
  return {};
}

std::string Movie::value (const std::string &key) const
{
  const std::string of_video = value_in (video, key);
  return of_video.empty () ? value_in (format, key) : of_video;
}

Movie probe (const std::string &path)
{
  Movie movie;
  const auto ask = [&] (std::vector<std::string> arguments) {
    arguments.insert (arguments.begin (), {"ffprobe", "-v", "error", "-of", "default=nw=1"});
    arguments.push_back (path);
    const ProcessResult result = run_process (arguments);
    EXPECT_EQ (result.status, 0) << path << ": " << result.errors;
    return result.output;
  };
  movie.video = ask ({"-select_streams", "V:0", "-show_streams"});
  movie.format = ask ({"-show_format"});
  movie.has_cover =
      ask ({"-select_streams", "v", "-show_entries", "stream_disposition=attached_pic"})
          .find ("attached_pic=1") != std::string::npos;
  movie.duration = atof (value_in (movie.format, "duration").c_str ());
  const ProcessResult decoded =
      run_process ({"ffmpeg", "-nostdin", "-v", "error", "-progress", "-", "-i", path, "-map",
                    "0:V:0", "-vsync", "passthrough", "-f", "null", "-"});
  movie.errors = decoded.errors;
  std::istringstream lines (decoded.output);
  for (std::string line; std::getline (lines, line);)
    if (line.starts_with ("frame="))
      movie.frames = atoi (line.c_str () + 6);
  return movie;
}

std::string packet_flags (const std::string &path)
{
  const ProcessResult result =
      run_process ({"ffprobe", "-v", "error", "-select_streams", "V:0", "-show_entries",
                    "packet=flags", "-of", "csv=p=0", path});
  std::istringstream lines (result.output);
  std::string flags;
  for (std::string line; std::getline (lines, line);)
    if (!line.empty ())
      flags += line[0];
  return flags;
}

vorn::Ref<GstTagList> make_cover ()
{
  const auto pipeline = vorn::adopt (gst_parse_launch (
      "videotestsrc num-buffers=1 pattern=ball ! video/x-raw,width=64,height=48 ! jpegenc ! "
      "appsink name=sink sync=false",
      nullptr));
  gst_element_set_state (pipeline.get (), GST_STATE_PLAYING);
  const auto sink = vorn::adopt (gst_bin_get_by_name (GST_BIN (pipeline.get ()), "sink"));
  GstSample *sample = nullptr;
  g_signal_emit_by_name (sink.get (), "pull-sample", &sample);
  const auto owned = vorn::adopt (sample);
  gst_element_set_state (pipeline.get (), GST_STATE_NULL);
  auto tags = vorn::adopt (gst_tag_list_new (GST_TAG_IMAGE, owned.get (), nullptr));
  gst_tag_list_set_scope (tags.get (), GST_TAG_SCOPE_GLOBAL);
  return tags;
}
