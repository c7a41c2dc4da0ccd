// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "front_view_support.hpp"

#include <cstdarg>

#include "vorn_morvik_zelto_front_virtual_camera.hpp"
#include <vorn/properties.h>

Faults faults;

// ---- Calls that fail when told to

static std::string factory_of (GstElement *element)
{
  GstElementFactory *factory = gst_element_get_factory (element);
  return factory ? GST_OBJECT_NAME (factory) : "";
}

static bool is_broken (GstElement *from, GstElement *to)
{
  return !faults.broken_link.empty () &&
         factory_of (from) + ">" + factory_of (to) == faults.broken_link &&
         faults.links_before-- <= 0;
}

extern "C" {
GstElement *__real_gst_element_factory_make (const gchar *factory, const gchar *name);
GstElement *__wrap_gst_element_factory_make (const gchar *factory, const gchar *name);
gboolean __real_gst_element_link (GstElement *from, GstElement *to);
gboolean __wrap_gst_element_link (GstElement *from, GstElement *to);
gboolean __real_gst_element_link_filtered (GstElement *from, GstElement *to, GstCaps *caps);
gboolean __wrap_gst_element_link_filtered (GstElement *from, GstElement *to, GstCaps *caps);
gboolean __wrap_gst_element_link_many (GstElement *from, GstElement *to, ...);
GstPad *__real_gst_element_request_pad_simple (GstElement *element, const gchar *name);
GstPad *__wrap_gst_element_request_pad_simple (GstElement *element, const gchar *name);
gboolean __real_vorn_gst_view_set_source_pad (VornGstView *view, GstPad *pad, guint32 kinds);
gboolean __wrap_vorn_gst_view_set_source_pad (VornGstView *view, GstPad *pad, guint32 kinds);
gulong __real_gst_pad_add_probe (GstPad *pad, GstPadProbeType mask, GstPadProbeCallback callback,
                                 gpointer data, GDestroyNotify destroy);
gulong __wrap_gst_pad_add_probe (GstPad *pad, GstPadProbeType mask, GstPadProbeCallback callback,
                                 gpointer data, GDestroyNotify destroy);
void __wrap_gst_debug_log (GstDebugCategory *category, GstDebugLevel level, const gchar *file,
                           const gchar *function, gint line, GObject *object, const gchar *format,
                           ...) G_GNUC_PRINTF (7, 8);
GstStateChangeReturn __real_gst_element_set_state (GstElement *element, GstState state);
GstStateChangeReturn __wrap_gst_element_set_state (GstElement *element, GstState state);

// The view's own, by the names that the compiler gives them.
#define PHOTO_BRANCH                                                                               \
  _Z30populate_picture_main_pipelineP7_GstBinP11_GstElementP25_VornMorvikZeltoFrontViewjj
#define THUMBNAIL_BRANCH                                                                           \
  _Z35populate_picture_thumbnail_pipelineP7_GstBinP11_GstElementP25_VornMorvikZeltoFrontView
#define PASTE(a, b) a##b
#define NAMED(a, b) PASTE (a, b)
gboolean NAMED (__real_, PHOTO_BRANCH) (GstBin *bin, GstElement *tee,
                                        VornMorvikZeltoFrontView *view, guint32 width,
                                        guint32 height);
gboolean NAMED (__wrap_, PHOTO_BRANCH) (GstBin *bin, GstElement *tee,
                                        VornMorvikZeltoFrontView *view, guint32 width,
                                        guint32 height);
gboolean NAMED (__real_, THUMBNAIL_BRANCH) (GstBin *bin, GstElement *tee,
                                            VornMorvikZeltoFrontView *view);
gboolean NAMED (__wrap_, THUMBNAIL_BRANCH) (GstBin *bin, GstElement *tee,
                                            VornMorvikZeltoFrontView *view);
FramePostprocessor *__real__Z23frame_postprocessor_newv ();
FramePostprocessor *__wrap__Z23frame_postprocessor_newv ();
#define PROCESS _Z27frame_postprocessor_processP18FramePostprocessorPK14VornResolutionP10_GstBuffer
int NAMED (__real_, PROCESS) (FramePostprocessor *state, const VornResolution *size,
                              GstBuffer *buffer);
int NAMED (__wrap_, PROCESS) (FramePostprocessor *state, const VornResolution *size,
                              GstBuffer *buffer);
}

GstElement *__wrap_gst_element_factory_make (const gchar *factory, const gchar *name)
{
  const auto found = faults.missing.find (factory);
  if (found != faults.missing.end () && found->second-- <= 0)
    return nullptr;
  return __real_gst_element_factory_make (factory, name);
}

gboolean __wrap_gst_element_link (GstElement *from, GstElement *to)
{
  return !is_broken (from, to) && __real_gst_element_link (from, to);
}

gboolean __wrap_gst_element_link_filtered (GstElement *from, GstElement *to, GstCaps *caps)
{
  return !is_broken (from, to) && __real_gst_element_link_filtered (from, to, caps);
}

gboolean __wrap_gst_element_link_many (GstElement *from, GstElement *to, ...)
{
  va_list rest;
  va_start (rest, to);
  gboolean linked = TRUE;
  while (linked && to) {
    linked = __wrap_gst_element_link (from, to);
    from = to;
    to = va_arg (rest, GstElement *);
  }
  va_end (rest);
  return linked;
}

GstPad *__wrap_gst_element_request_pad_simple (GstElement *element, const gchar *name)
{
  if (faults.request_pads && (*faults.request_pads)-- <= 0)
    return nullptr;
  return __real_gst_element_request_pad_simple (element, name);
}

gboolean __wrap_vorn_gst_view_set_source_pad (VornGstView *view, GstPad *pad, guint32 kinds)
{
  return (kinds & faults.refused_kinds) == 0 &&
         __real_vorn_gst_view_set_source_pad (view, pad, kinds);
}

gulong __wrap_gst_pad_add_probe (GstPad *pad, GstPadProbeType mask, GstPadProbeCallback callback,
                                 gpointer data, GDestroyNotify destroy)
{
  faults.probes.push_back ({callback, data});
  return __real_gst_pad_add_probe (pad, mask, callback, data, destroy);
}

GstStateChangeReturn __wrap_gst_element_set_state (GstElement *element, GstState state)
{
  return faults.failing_state == state ? GST_STATE_CHANGE_FAILURE
                                       : __real_gst_element_set_state (element, state);
}

gboolean NAMED (__wrap_, PHOTO_BRANCH) (GstBin *bin, GstElement *tee,
                                        VornMorvikZeltoFrontView *view, guint32 width,
                                        guint32 height)
{
  return !faults.no_photo_branch && NAMED (__real_, PHOTO_BRANCH) (bin, tee, view, width, height);
}

gboolean NAMED (__wrap_, THUMBNAIL_BRANCH) (GstBin *bin, GstElement *tee,
                                            VornMorvikZeltoFrontView *view)
{
  return !faults.no_thumbnail_branch && NAMED (__real_, THUMBNAIL_BRANCH) (bin, tee, view);
}

FramePostprocessor *__wrap__Z23frame_postprocessor_newv ()
{
  return faults.no_postprocessor ? nullptr : __real__Z23frame_postprocessor_newv ();
}

int NAMED (__wrap_, PROCESS) (FramePostprocessor *state, const VornResolution *size,
                              GstBuffer *buffer)
{
  faults.postprocessed++;
  faults.postprocessor = state;
  faults.postprocessed_size = *size;
  return faults.postprocess_result ? *faults.postprocess_result
                                   : NAMED (__real_, PROCESS) (state, size, buffer);
}

// ---- What is around the view

PropertyValue::PropertyValue (const char *name, const char *value) : name_ (name)
{
  vorn_property_set (name, value);
}

PropertyValue::~PropertyValue ()
{
  vorn_property_set (name_.c_str (), nullptr);
}

static GstLogCapture *gst_log = nullptr;

GstLogCapture::GstLogCapture ()
{
  gst_debug_category_set_threshold (GST_CAT_DEFAULT, GST_LEVEL_WARNING);
  gst_debug_set_active (TRUE);
  gst_log = this;
}

GstLogCapture::~GstLogCapture ()
{
  gst_log = nullptr;
}

void GstLogCapture::add (GstDebugLevel level, const std::string &text)
{
  const std::lock_guard lock (mutex_);
  lines_.push_back ({level, text});
}

void __wrap_gst_debug_log (GstDebugCategory *category, GstDebugLevel level, const gchar *,
                           const gchar *, gint, GObject *, const gchar *format, ...)
{
  va_list arguments;
  va_start (arguments, format);
  const vorn::OwnedString text (g_strdup_vprintf (format, arguments));
  va_end (arguments);
  if (gst_log && category == GST_CAT_DEFAULT)
    gst_log->add (level, text.get ());
}

int GstLogCapture::count (GstDebugLevel level, const std::string &text) const
{
  const std::lock_guard lock (mutex_);
  int found = 0;
  for (const Line &line : lines_)
    found += line.level == level && line.text == text;
  return found;
}

Element find_factory (GstElement *bin, const std::string &factory)
{
  for (const GList *item = GST_BIN (bin)->children; item; item = item->next)
    if (factory_of (GST_ELEMENT (item->data)) == factory)
      return vorn::share (GST_ELEMENT (item->data));
  return {};
}

std::string chain_from (const Element &first)
{
  std::string text;
  for (Element element = first; element;) {
    text += (text.empty () ? "" : " > ") + factory_of (element.get ());
    if (factory_of (element.get ()) == "capsfilter") {
      GstCaps *caps = nullptr;
      g_object_get (element.get (), "caps", &caps, nullptr);
      const auto owned = vorn::adopt (caps);
      const vorn::OwnedString described (gst_caps_to_string (caps));
      text += std::string ("[") + described.get () + "]";
    }
    const GList *pads = element->srcpads;
    GstPad *peer = pads ? GST_PAD_PEER (GST_PAD (pads->data)) : nullptr;
    element = peer ? vorn::adopt (gst_pad_get_parent_element (peer)) : Element ();
  }
  return text;
}

guint child_count (GstElement *bin)
{
  return static_cast<guint> (GST_BIN_NUMCHILDREN (bin));
}

namespace
{

Texts calls;
std::set<std::string> failing;

/** The first word is the operation's name. */
gboolean note (const std::string &call)
{
  calls.push_back (call);
  return !failing.contains (call.substr (0, call.find (' ')));
}

/** Formats change while the pipeline is at rest only. */
gboolean note_format (const char *operation, VornView *view, const VornFormat *format)
{
  GstState state = GST_STATE_VOID_PENDING;
  gst_element_get_state (VORN_MORVIK_ZELTO_FRONT_VIEW (view)->main_pipeline, &state, nullptr, 0);
  EXPECT_EQ (state, GST_STATE_NULL);
  gchar text[96];
  g_snprintf (text, sizeof text, "%s %ux%u %u/%u %u", operation, format->resolution.width,
              format->resolution.height, format->framerate.num, format->framerate.den,
              format->flag);
  return note (text);
}

/** Keeps the framework's operations while the test has its own in their place. */
VornViewClass kept;
VornViewClass *parent ()
{
  return VORN_VIEW_CLASS (g_type_class_ref (VORN_TYPE_GST_VIEW));
}

void replace_parent ()
{
  VornViewClass *klass = parent ();
  kept = *klass;
  klass->prepare = [] (VornView *) { return note ("prepare"); };
  klass->unprepare = [] (VornView *) { return note ("unprepare"); };
  klass->stream_setup = [] (VornView *, VornStreamSetup *setup) {
    return note (setup->live == 1 ? "stream_setup live" : "stream_setup");
  };
  klass->stream_teardown = [] (VornView *, const gchar *reason) {
    return note (std::string ("stream_teardown ") + reason);
  };
  klass->stream_set_params = [] (VornView *, const VornStreamParameters *parameters) {
    return note ("stream_set_params " + std::to_string (parameters->bitrate));
  };
  klass->start_recording = [] (VornView *) { return note ("start_recording"); };
  klass->stop_recording = [] (VornView *, guint32 reason) {
    return note ("stop_recording " + std::to_string (reason));
  };
  klass->set_streaming_format = [] (VornView *view, const VornFormat *format) {
    return note_format ("set_streaming_format", view, format);
  };
  klass->set_recording_format = [] (VornView *view, const VornFormat *format) {
    return note_format ("set_recording_format", view, format);
  };
}

} // namespace

void FrontViewTest::SetUpTestSuite ()
{
  vorn_framework_init (nullptr, nullptr);
}

FrontViewTest::FrontViewTest ()
{
  faults = {};
  calls.clear ();
  failing.clear ();
  replace_parent ();
  product_ = vorn::adopt (test_product_new ());
}

FrontViewTest::~FrontViewTest ()
{
  faults = {};
  failing.clear ();
  drop_view ();
  product_.reset ();
  // The virtual camera keeps two references on its camera on purpose.
  while (camera_ && G_OBJECT (camera_.get ())->ref_count > 1)
    g_object_unref (camera_.get ());
  *parent () = kept;
}

Texts &FrontViewTest::parent_calls ()
{
  return calls;
}

std::set<std::string> &FrontViewTest::parent_failing ()
{
  return failing;
}

void FrontViewTest::make_view (const char *element_factory)
{
  const VornCameraParameters parameters = {.name = "front",
                                           .video_device = "unix:/nowhere/camera",
                                           .element_factory = element_factory,
                                           .sensor_configuration = {.capture_left = 16,
                                                                    .capture_top = 8,
                                                                    .capture_width = 640,
                                                                    .capture_height = 400,
                                                                    .resolution = {672, 416},
                                                                    .framerate = {24000, 1001}}};
  camera_ = vorn::adopt (vorn_camera_new (&parameters));
  virtual_camera_ =
      vorn::adopt (vorn_morvik_zelto_front_virtual_camera_new (camera_.get (), nullptr, FALSE));
  view_ = VORN_MORVIK_ZELTO_FRONT_VIEW (vorn_morvik_zelto_front_view_new (
      "front", "Front camera", camera_.get (), "unix:/nowhere/front", product_.get ()));
  ASSERT_TRUE (vorn_virtual_camera_add_view (virtual_camera_.get (), VORN_VIEW (view_)));
}

void FrontViewTest::drop_view ()
{
  virtual_camera_.reset ();
  view_ = nullptr;
}

GstElement *FrontViewTest::pipeline (const char *name) const
{
  return vorn::adopt (vorn_product_get_pipeline_by_name (product_.get (), name)).get ();
}

Texts FrontViewTest::complaints () const
{
  Texts texts;
  for (const LogLine &line : log_.lines ())
    if (line.tag == "vorn_morvik_zelto_front_view" && line.priority <= VORN_LOG_PRIORITY_WARNING)
      texts.push_back ((line.priority == VORN_LOG_PRIORITY_ERROR ? "E " : "W ") + line.text);
  return texts;
}
