// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "tovrinfilter_element.hpp"

#include <string>

#include <vorn/gst_raii.hpp>
#include <vorn/log.h>

#include "tovrinfilter_attitude.hpp"
#include "tovrinfilter_context.hpp"
#include "tovrinfilter_frame.hpp"
#include "tovrinfilter_geometry.hpp"
#include "tovrinfilter_renderer.hpp"
#include "tovrinfilter_settings.hpp"
#include "tovrinfilter_view.hpp"

VORN_LOG_TAG ("tovrinfilter");

namespace
{

using namespace tovrin;

/** Attitudes along the rows: with 64 the chord between two is good to a thousandth of a pixel. */
constexpr int row_knots = 64;

struct Private {
  SharedSettings settings;

  /** Guards running, and keeps the base class's context from going while an upstream element asks
   * for an allocation, which it may do during a state change. Nothing of ours is called with it
   * held. */
  GMutex running_mutex{};
  bool running = false;

  Private () { g_mutex_init (&running_mutex); }
  ~Private () { g_mutex_clear (&running_mutex); }
  Private (const Private &) = delete;
  Private &operator= (const Private &) = delete;

  // The streaming thread's own.
  View view;
  std::string last_problem; // what the frames before could not be warped for; empty: they were
  Mesh mesh;

  // The GL thread's own.
  Renderer renderer;
  // Made in NULL to READY, so that a missing context shows there; the base class finds it here.
  vorn::Ref<GstGLContext> context;
};

struct KavrelTovrinFilter {
  GstGLFilter parent;
  Private *priv;
};

struct KavrelTovrinFilterClass {
  GstGLFilterClass parent_class;
};

guint imu_get_attitude_data_signal;

G_DEFINE_TYPE (KavrelTovrinFilter, kavrel_tovrinfilter, GST_TYPE_GL_FILTER)

KavrelTovrinFilter *self_of (gpointer instance)
{
  return reinterpret_cast<KavrelTovrinFilter *> (instance);
}

void set_property (GObject *object, guint id, const GValue *value, GParamSpec *pspec)
{
  if (!self_of (object)->priv->settings.set_property (id, value))
    G_OBJECT_WARN_INVALID_PROPERTY_ID (object, id, pspec);
}

void get_property (GObject *object, guint id, GValue *value, GParamSpec *pspec)
{
  if (!self_of (object)->priv->settings.get_property (id, value))
    G_OBJECT_WARN_INVALID_PROPERTY_ID (object, id, pspec);
}

// State: a context is asked for at once, so that its lack fails the state change and not the first
// frame.

bool make_context (KavrelTovrinFilter *self)
{
  auto *base = GST_GL_BASE_FILTER (self);
  if (base->context)
    return true;
  vorn::ErrorOut error;
  self->priv->context = find_or_make_context (GST_ELEMENT (self), base->display, error.out ());
  if (self->priv->context)
    return true;
  GST_ELEMENT_ERROR (self, RESOURCE, NOT_FOUND,
                     ("No OpenGL context for dewarping: %s", error.message ()),
                     ("without a display, GST_GL_WINDOW=egl-device selects a software context"));
  return false;
}

GstStateChangeReturn change_state (GstElement *element, GstStateChange transition)
{
  auto *self = self_of (element);
  const GstStateChangeReturn result =
      GST_ELEMENT_CLASS (kavrel_tovrinfilter_parent_class)->change_state (element, transition);
  if (transition == GST_STATE_CHANGE_READY_TO_NULL)
    self->priv->context.reset ();
  if (transition != GST_STATE_CHANGE_NULL_TO_READY || result == GST_STATE_CHANGE_FAILURE)
    return result;
  if (make_context (self))
    return result;
  GST_ELEMENT_CLASS (kavrel_tovrinfilter_parent_class)
      ->change_state (element, GST_STATE_CHANGE_READY_TO_NULL);
  return GST_STATE_CHANGE_FAILURE;
}

gboolean start (GstBaseTransform *transform)
{
  Private *priv = self_of (transform)->priv;
  priv->view.reset ();
  priv->last_problem.clear ();
  const vorn::Lock lock (&priv->running_mutex);
  priv->running = true;
  return GST_BASE_TRANSFORM_CLASS (kavrel_tovrinfilter_parent_class)->start (transform);
}

gboolean stop (GstBaseTransform *transform)
{
  Private *priv = self_of (transform)->priv;
  const vorn::Lock lock (&priv->running_mutex);
  priv->running = false;
  return GST_BASE_TRANSFORM_CLASS (kavrel_tovrinfilter_parent_class)->stop (transform);
}

gboolean propose_allocation (GstBaseTransform *transform, GstQuery *decide_query, GstQuery *query)
{
  Private *priv = self_of (transform)->priv;
  const vorn::Lock lock (&priv->running_mutex);
  return priv->running && GST_BASE_TRANSFORM_CLASS (kavrel_tovrinfilter_parent_class)
                              ->propose_allocation (transform, decide_query, query);
}

gboolean gl_start (GstGLBaseFilter *base)
{
  vorn::ErrorOut error;
  if (!self_of (base)->priv->renderer.start (base->context, error.out ())) {
    GST_ELEMENT_ERROR (base, RESOURCE, NOT_FOUND, ("No dewarping shader: %s", error.message ()),
                       (nullptr));
    return FALSE;
  }
  return GST_GL_BASE_FILTER_CLASS (kavrel_tovrinfilter_parent_class)->gl_start (base);
}

void gl_stop (GstGLBaseFilter *base)
{
  self_of (base)->priv->renderer.stop ();
  GST_GL_BASE_FILTER_CLASS (kavrel_tovrinfilter_parent_class)->gl_stop (base);
}

// Caps: any size to any size; the output has square pixels.

GstCaps *transform_internal_caps (GstGLFilter *filter, GstPadDirection direction, GstCaps *caps,
                                  GstCaps *filter_caps)
{
  GstCaps *result =
      gst_caps_make_writable (GST_GL_FILTER_CLASS (kavrel_tovrinfilter_parent_class)
                                  ->transform_internal_caps (filter, direction, caps, filter_caps));
  if (direction == GST_PAD_SINK) {
    gst_caps_set_simple (result, "pixel-aspect-ratio", GST_TYPE_FRACTION, 1, 1, nullptr);
    return result;
  }
  // Any on the input, none named included: a range would be fixated to an odd one for those.
  for (guint i = 0; i < gst_caps_get_size (result); i++)
    gst_structure_remove_field (gst_caps_get_structure (result, i), "pixel-aspect-ratio");
  return result;
}

PictureSize picture_size (const GstVideoInfo &info)
{
  return {static_cast<unsigned> (GST_VIDEO_INFO_WIDTH (&info)),
          static_cast<unsigned> (GST_VIDEO_INFO_HEIGHT (&info)),
          static_cast<double> (GST_VIDEO_INFO_PAR_N (&info)) / GST_VIDEO_INFO_PAR_D (&info)};
}

// Frames.

/** A problem is told once, until frames are warped again or it is another one. */
void report (Private *priv, const std::string &problem)
{
  if (problem == priv->last_problem)
    return;
  priv->last_problem = problem;
  if (!problem.empty ())
    VORN_LOG_WARNING ("%s: frames pass unwarped", problem.c_str ());
}

std::optional<AttitudeTrack> ask_for_attitude (KavrelTovrinFilter *self, const FrameInfo &frame,
                                               std::string *problem)
{
  GstStructure *answer = nullptr;
  g_signal_emit (self, imu_get_attitude_data_signal, 0, frame.capture_ns, frame.end_ns (), &answer);
  const vorn::OwnedStructure imu_data (answer);
  if (!imu_data) {
    if (g_signal_has_handler_pending (self, imu_get_attitude_data_signal, 0, FALSE))
      *problem = "no attitude data";
    return std::nullopt;
  }
  auto track = AttitudeTrack::parse (imu_data.get (), problem);
  if (!track)
    *problem = "wrong attitude data, " + *problem;
  return track;
}

/** One turn for the frame's middle, or with wobble compensation one for each of the row knots. */
std::vector<Matrix> turns_to_camera (const Settings &settings, const FrameInfo &frame,
                                     const AttitudeTrack &track, Quaternion shown)
{
  const auto turn_at = [&] (double down) {
    return matrix (normalized (conjugate (track.at (frame.row_ns (down))) * shown));
  };
  if (!settings.wobble_comp || frame.readout_ns == 0)
    return {turn_at (0.5)};
  std::vector<Matrix> turns;
  turns.reserve (row_knots);
  for (int i = 0; i < row_knots; i++)
    turns.push_back (turn_at (static_cast<double> (i) / (row_knots - 1)));
  return turns;
}

/** Fills the mesh for the frame; FALSE and the reason, if any, when it cannot be warped. */
bool plan_warp (KavrelTovrinFilter *self, const Settings &settings, GstBuffer *buffer,
                std::string *problem)
{
  Private *priv = self->priv;
  const auto frame = read_frame_info (buffer, problem);
  if (!frame)
    return false;
  const auto track = ask_for_attitude (self, *frame, problem);
  if (!track)
    return false;
  const auto *filter = GST_GL_FILTER (self);
  const auto input =
      capture_window (frame->optics, picture_size (filter->in_info), settings.rect, problem);
  if (!input)
    return false;
  const Window output = largest_inside (*input, picture_size (filter->out_info).aspect ());
  const Quaternion camera = track->at (frame->row_ns (0.5));
  const Quaternion shown = priv->view.next_orientation (
      settings.view (), camera, static_cast<double> (frame->capture_ns), *input, output);
  const Warp warp (*input, turns_to_camera (settings, *frame, *track, shown));
  const double scale = priv->view.next_scale (settings.view (), warp.fitting_scale (output));
  fill_mesh (warp, *input, output.scaled (scale), &priv->mesh);
  return true;
}

/** The picture as it is, as much of it as has the output's aspect. */
void plan_unwarped (KavrelTovrinFilter *self, const Settings &settings)
{
  const auto *filter = GST_GL_FILTER (self);
  // The lens does not matter here, only the shape of the captured rectangle.
  constexpr double any_hfov_rad = 1;
  const CaptureRect shape = {0, 0, settings.rect.width, settings.rect.height};
  std::string problem;
  const Window input =
      *capture_window ({any_hfov_rad, {}, {}, {}}, picture_size (filter->in_info), shape, &problem);
  const Window output = largest_inside (input, picture_size (filter->out_info).aspect ());
  fill_mesh (Warp (input, {matrix (identity)}), input, output, &self->priv->mesh);
}

/** On the streaming thread; the signal is emitted here. */
gboolean filter_frame (GstGLFilter *filter, GstBuffer *input, GstBuffer *output)
{
  auto *self = self_of (filter);
  const Settings settings = self->priv->settings.get ();
  std::string problem;
  if (!plan_warp (self, settings, input, &problem))
    plan_unwarped (self, settings);
  report (self->priv, problem);
  return gst_gl_filter_filter_texture (filter, input, output);
}

gboolean draw (GstGLFilter *filter, GstGLMemory *input, gpointer)
{
  Private *priv = self_of (filter)->priv;
  priv->renderer.draw (priv->mesh, gst_gl_memory_get_texture_id (input));
  return TRUE;
}

gboolean filter_texture (GstGLFilter *filter, GstGLMemory *input, GstGLMemory *output)
{
  return gst_gl_filter_render_to_target (filter, input, output, draw, nullptr);
}

// Class.

void finalize (GObject *object)
{
  delete self_of (object)->priv;
  G_OBJECT_CLASS (kavrel_tovrinfilter_parent_class)->finalize (object);
}

void kavrel_tovrinfilter_init (KavrelTovrinFilter *self)
{
  self->priv = new Private;
  // A late frame is still a frame: dropping is left to queues that count it.
  gst_base_transform_set_qos_enabled (GST_BASE_TRANSFORM (self), FALSE);
}

void kavrel_tovrinfilter_class_init (KavrelTovrinFilterClass *klass)
{
  auto *object_class = G_OBJECT_CLASS (klass);
  auto *element_class = GST_ELEMENT_CLASS (klass);
  auto *transform_class = GST_BASE_TRANSFORM_CLASS (klass);
  auto *base_class = GST_GL_BASE_FILTER_CLASS (klass);
  auto *filter_class = GST_GL_FILTER_CLASS (klass);

  object_class->set_property = set_property;
  object_class->get_property = get_property;
  object_class->finalize = finalize;
  element_class->change_state = change_state;
  transform_class->start = start;
  transform_class->stop = stop;
  transform_class->propose_allocation = propose_allocation;
  base_class->supported_gl_api =
      static_cast<GstGLAPI> (GST_GL_API_OPENGL | GST_GL_API_OPENGL3 | GST_GL_API_GLES2);
  base_class->gl_start = gl_start;
  base_class->gl_stop = gl_stop;
  filter_class->transform_internal_caps = transform_internal_caps;
  filter_class->filter = filter_frame;
  filter_class->filter_texture = filter_texture;

  gst_gl_filter_add_rgba_pad_templates (filter_class);
  gst_element_class_set_static_metadata (
      element_class, "Dewarping filter", "Filter/Effect/Video",
      "Turns frames from the camera's attitude to a level or given orientation",
      "the vornmorvikzelto authors");
  install_settings (object_class);

  /**
   * KavrelTovrinFilter::imu-get-attitude-data:
   * start_ns, stop_ns: the span of the frame's exposure and readout, on the clock of the frames'
   * capture timestamps. Returns (transfer full): a structure "imu-data", or NULL. Emitted on the
   * streaming thread, once a frame; the first handler's answer counts.
   */
  imu_get_attitude_data_signal =
      g_signal_new ("imu-get-attitude-data", G_TYPE_FROM_CLASS (klass), G_SIGNAL_RUN_LAST, 0,
                    g_signal_accumulator_first_wins, nullptr, nullptr, GST_TYPE_STRUCTURE, 2,
                    G_TYPE_UINT64, G_TYPE_UINT64);
}

} // namespace

gboolean kavrel_tovrinfilter_register (GstPlugin *plugin)
{
  return gst_element_register (plugin, "kavrel_tovrinfilter", GST_RANK_NONE,
                               kavrel_tovrinfilter_get_type ());
}
