// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "vision_element.hpp"

#include <algorithm>
#include <ctime>

#include <vorn/frame_meta.h>

struct vision::State {
  /** Guards section. Nothing is called while it is held. */
  GMutex mutex{};
  std::string section;

  Calibration calibration;
  Statistics statistics;

  // The streaming thread's own, and the state change's while that does not run.
  Telemetry telemetry;

  explicit State (std::span<const Field> fields) : calibration (fields) { g_mutex_init (&mutex); }
  ~State () { g_mutex_clear (&mutex); }
  State (const State &) = delete;
  State &operator= (const State &) = delete;
};

namespace
{

constexpr guint property_section = 900;

#define VIDEO_CAPS                                                                                 \
  GST_VIDEO_CAPS_MAKE ("{ RGB, GRAY8, I420, NV12, YV12, BGR, RGBx, BGRx, RGBA, BGRA }")
GstStaticPadTemplate sink_template =
    GST_STATIC_PAD_TEMPLATE ("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS (VIDEO_CAPS));
GstStaticPadTemplate src_template =
    GST_STATIC_PAD_TEMPLATE ("src", GST_PAD_SRC, GST_PAD_ALWAYS, GST_STATIC_CAPS (VIDEO_CAPS));

G_DEFINE_ABSTRACT_TYPE (KavrelVision, kavrel_vision, GST_TYPE_VIDEO_FILTER)

KavrelVision *self_of (gpointer instance)
{
  return reinterpret_cast<KavrelVision *> (instance);
}

guint64 monotonic_ns ()
{
  timespec now;
  clock_gettime (CLOCK_MONOTONIC, &now);
  return static_cast<guint64> (now.tv_sec) * GST_SECOND + static_cast<guint64> (now.tv_nsec);
}

/** How old the frame is by the pipeline's clock, ns; 0 when that cannot be said. */
guint64 age_by_clock (GstElement *element, GstBuffer *buffer)
{
  const auto clock = vorn::adopt (gst_element_get_clock (element));
  const GstClockTime shown = gst_segment_to_running_time (&GST_BASE_TRANSFORM (element)->segment,
                                                          GST_FORMAT_TIME, GST_BUFFER_PTS (buffer));
  if (!clock || !GST_CLOCK_TIME_IS_VALID (shown))
    return 0;
  const GstClockTime now = gst_clock_get_time (clock.get ()) - gst_element_get_base_time (element);
  return now > shown ? now - shown : 0;
}

/** By the frame's own metadata where it has them, else by the clock; ns of the monotonic clock. */
guint64 capture_time (GstElement *element, GstBuffer *buffer, guint64 now_ns)
{
  GstClockTime capture_ns = GST_CLOCK_TIME_NONE;
  if (const VornFrameMeta *meta = vorn_frame_meta_get (buffer))
    gst_structure_get_clock_time (meta->structure, VORN_FRAME_META_CAPTURE_TIMESTAMP, &capture_ns);
  if (GST_CLOCK_TIME_IS_VALID (capture_ns))
    return capture_ns;
  return now_ns - std::min (now_ns, age_by_clock (element, buffer));
}

GstFlowReturn transform_frame_ip (GstVideoFilter *filter, GstVideoFrame *frame)
{
  auto *self = self_of (filter);
  vision::State &state = *self->state;
  const guint64 now_ns = monotonic_ns ();
  const guint64 capture_ns = capture_time (GST_ELEMENT (filter), frame->buffer, now_ns);
  const double age_ms = static_cast<double> (now_ns - std::min (now_ns, capture_ns)) / 1e6;
  const vision::Snapshot snapshot =
      state.statistics.add_frame (now_ns, age_ms, vision::mean_luma (*frame));
  state.telemetry.put (snapshot, capture_ns);
  const auto *klass = reinterpret_cast<KavrelVisionClass *> (G_OBJECT_GET_CLASS (self));
  klass->process (self, frame, capture_ns);
  return GST_FLOW_OK;
}

gboolean start (GstBaseTransform *transform)
{
  vision::State &state = *self_of (transform)->state;
  state.statistics.reset ();
  std::string section;
  {
    const vorn::Lock lock (&state.mutex);
    section = state.section;
  }
  // An algorithm works without its statistics.
  if (!section.empty ())
    state.telemetry.start (section);
  return TRUE;
}

gboolean stop (GstBaseTransform *transform)
{
  self_of (transform)->state->telemetry.stop ();
  return TRUE;
}

void set_property (GObject *object, guint id, const GValue *value, GParamSpec *pspec)
{
  vision::State &state = *self_of (object)->state;
  if (id == property_section) {
    const vorn::Lock lock (&state.mutex);
    const gchar *section = g_value_get_string (value);
    state.section = section ? section : "";
  } else if (!state.calibration.set_property (id, value)) {
    G_OBJECT_WARN_INVALID_PROPERTY_ID (object, id, pspec);
  }
}

void get_property (GObject *object, guint id, GValue *value, GParamSpec *pspec)
{
  vision::State &state = *self_of (object)->state;
  if (id == property_section) {
    const vorn::Lock lock (&state.mutex);
    g_value_set_string (value, state.section.c_str ());
  } else if (!get_statistics_property (state.statistics.get (), id, value) &&
             !state.calibration.get_property (id, value)) {
    G_OBJECT_WARN_INVALID_PROPERTY_ID (object, id, pspec);
  }
}

void finalize (GObject *object)
{
  delete self_of (object)->state;
  G_OBJECT_CLASS (kavrel_vision_parent_class)->finalize (object);
}

void kavrel_vision_init (KavrelVision *self)
{
  gst_base_transform_set_passthrough (GST_BASE_TRANSFORM (self), TRUE);
  // A late frame is still a frame: the queue before the element drops what is too much.
  gst_base_transform_set_qos_enabled (GST_BASE_TRANSFORM (self), FALSE);
}

void kavrel_vision_class_init (KavrelVisionClass *klass)
{
  auto *object_class = G_OBJECT_CLASS (klass);
  auto *element_class = GST_ELEMENT_CLASS (klass);
  auto *transform_class = GST_BASE_TRANSFORM_CLASS (klass);
  object_class->set_property = set_property;
  object_class->get_property = get_property;
  object_class->finalize = finalize;
  transform_class->start = start;
  transform_class->stop = stop;
  transform_class->transform_ip_on_passthrough = TRUE;
  GST_VIDEO_FILTER_CLASS (klass)->transform_frame_ip = transform_frame_ip;
  klass->process = [] (KavrelVision *, const GstVideoFrame *, guint64) {};

  gst_element_class_add_static_pad_template (element_class, &sink_template);
  gst_element_class_add_static_pad_template (element_class, &src_template);
  g_object_class_install_property (
      object_class, property_section,
      g_param_spec_string ("section", nullptr, "Telemetry section of the statistics (empty: none)",
                           "",
                           static_cast<GParamFlags> (G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                     GST_PARAM_MUTABLE_READY)));
  vision::install_statistics (object_class);
}

// A kind's type: the base with the kind's calibration.

void kind_class_init (gpointer klass, gpointer data)
{
  const auto &kind = *static_cast<const vision::Kind *> (data);
  auto *object_class = G_OBJECT_CLASS (klass);
  object_class->set_property = set_property;
  object_class->get_property = get_property;
  vision::install_fields (object_class, kind.fields);
  gst_element_class_set_static_metadata (GST_ELEMENT_CLASS (klass), "Vision algorithm",
                                         "Filter/Analyzer/Video", kind.description,
                                         "the vornmorvikzelto authors");
}

GQuark kind_quark ()
{
  static const GQuark quark = g_quark_from_static_string ("vision-kind");
  return quark;
}

/** The kind of a type or of the one that it derives from. */
const vision::Kind &kind_of (GType type)
{
  while (!g_type_get_qdata (type, kind_quark ()))
    type = g_type_parent (type);
  return *static_cast<const vision::Kind *> (g_type_get_qdata (type, kind_quark ()));
}

void kind_instance_init (GTypeInstance *instance, gpointer klass)
{
  self_of (instance)->state = new vision::State (kind_of (G_TYPE_FROM_CLASS (klass)).fields);
}

} // namespace

GType vision::type_of (const Kind &kind)
{
  if (const GType known = g_type_from_name (kind.type_name))
    return known;
  const GTypeInfo info = {.class_size = sizeof (KavrelVisionClass),
                          .base_init = nullptr,
                          .base_finalize = nullptr,
                          .class_init = kind_class_init,
                          .class_finalize = nullptr,
                          .class_data = &kind,
                          .instance_size = sizeof (KavrelVision),
                          .n_preallocs = 0,
                          .instance_init = kind_instance_init,
                          .value_table = nullptr};
  const GType type = g_type_register_static (kavrel_vision_get_type (), kind.type_name, &info,
                                             static_cast<GTypeFlags> (0));
  g_type_set_qdata (type, kind_quark (), const_cast<Kind *> (&kind));
  return type;
}

const vision::Calibration &vision::calibration_of (KavrelVision *self)
{
  return self->state->calibration;
}

vision::Snapshot vision::statistics_of (KavrelVision *self)
{
  return self->state->statistics.get ();
}

void vision::note_drop (KavrelVision *self)
{
  self->state->statistics.add_drop ();
}

double vision::mean_luma (const GstVideoFrame &frame)
{
  constexpr int step = 4;
  const bool rgb = GST_VIDEO_INFO_IS_RGB (&frame.info);
  const auto row_of = [&frame] (guint component, int y) {
    return static_cast<const guint8 *> (GST_VIDEO_FRAME_COMP_DATA (&frame, component)) +
           static_cast<ptrdiff_t> (y) * GST_VIDEO_FRAME_COMP_STRIDE (&frame, component);
  };
  const int pixel_size = GST_VIDEO_FRAME_COMP_PSTRIDE (&frame, 0);
  guint64 sum[3] = {};
  guint64 count = 0;
  for (int y = 0; y < GST_VIDEO_FRAME_HEIGHT (&frame); y += step) {
    const guint8 *first = row_of (0, y);
    const guint8 *second = rgb ? row_of (1, y) : first;
    const guint8 *third = rgb ? row_of (2, y) : first;
    for (int x = 0; x < GST_VIDEO_FRAME_WIDTH (&frame); x += step) {
      const ptrdiff_t at = static_cast<ptrdiff_t> (x) * pixel_size;
      sum[0] += first[at];
      sum[1] += second[at];
      sum[2] += third[at];
      count++;
    }
  }
  // Luma alone stands three times in the sums.
  constexpr double weights[] = {0.299, 0.587, 0.114};
  double luma = 0;
  for (size_t i = 0; i < 3; i++)
    luma += weights[i] * static_cast<double> (sum[i]);
  return count > 0 ? luma / static_cast<double> (count) : 0;
}
