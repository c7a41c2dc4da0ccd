// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
// The source as GStreamer sees it: properties, signal, caps, latency, states.
#include "morviksrc_private.hpp"

#include <algorithm>

using elements::MorvikState;

GST_DEBUG_CATEGORY (kavrel_morvik_src_debug);
#define GST_CAT_DEFAULT kavrel_morvik_src_debug

enum {
  PROP_SOURCE = 1,
  PROP_SENSOR_RECT_LEFT,
  PROP_SENSOR_RECT_TOP,
  PROP_SENSOR_RECT_WIDTH,
  PROP_SENSOR_RECT_HEIGHT,
  PROP_IMG_STYLE,
  PROP_LAST_FRAME,
  PROP_RECONNECT_TIMEOUT,
};

static guint new_frame_signal;

static GstStaticPadTemplate src_template =
    GST_STATIC_PAD_TEMPLATE ("src", GST_PAD_SRC, GST_PAD_ALWAYS,
                             GST_STATIC_CAPS ("video/x-raw, format = RGB, width = [ 1, 16384 ], "
                                              "height = [ 1, 16384 ], "
                                              "framerate = [ 1/100, 1000/1 ]"));

G_DEFINE_TYPE (KavrelMorvikSrc, kavrel_morvik_src, GST_TYPE_PUSH_SRC)
GST_ELEMENT_REGISTER_DEFINE (kavrel_morviksrc, "kavrel_morviksrc", GST_RANK_NONE,
                             KAVREL_TYPE_MORVIK_SRC)

static void kavrel_morvik_src_set_property (GObject *object, guint id, const GValue *value,
                                            GParamSpec *pspec)
{
  MorvikState &state = *KAVREL_MORVIK_SRC (object)->state;
  const std::scoped_lock lock (state.mutex);
  elements::MorvikSettings &settings = state.settings;
  switch (id) {
  case PROP_SOURCE: {
    const gchar *source = g_value_get_string (value);
    settings.source = source ? source : "";
    break;
  }
  case PROP_SENSOR_RECT_LEFT:
    settings.rect.left = g_value_get_uint (value);
    break;
  case PROP_SENSOR_RECT_TOP:
    settings.rect.top = g_value_get_uint (value);
    break;
  case PROP_SENSOR_RECT_WIDTH:
    settings.rect.width = g_value_get_uint (value);
    break;
  case PROP_SENSOR_RECT_HEIGHT:
    settings.rect.height = g_value_get_uint (value);
    break;
  case PROP_IMG_STYLE:
    settings.style = g_value_get_uint (value);
    state.style_changed = true;
    break;
  case PROP_RECONNECT_TIMEOUT:
    settings.reconnect_timeout_ms = g_value_get_uint (value);
    break;
  default:
    G_OBJECT_WARN_INVALID_PROPERTY_ID (object, id, pspec);
  }
}

static void kavrel_morvik_src_get_property (GObject *object, guint id, GValue *value,
                                            GParamSpec *pspec)
{
  MorvikState &state = *KAVREL_MORVIK_SRC (object)->state;
  const std::scoped_lock lock (state.mutex);
  const elements::MorvikSettings &settings = state.settings;
  switch (id) {
  case PROP_SOURCE:
    g_value_set_string (value, settings.source.c_str ());
    break;
  case PROP_SENSOR_RECT_LEFT:
    g_value_set_uint (value, settings.rect.left);
    break;
  case PROP_SENSOR_RECT_TOP:
    g_value_set_uint (value, settings.rect.top);
    break;
  case PROP_SENSOR_RECT_WIDTH:
    g_value_set_uint (value, settings.rect.width);
    break;
  case PROP_SENSOR_RECT_HEIGHT:
    g_value_set_uint (value, settings.rect.height);
    break;
  case PROP_IMG_STYLE:
    g_value_set_uint (value, settings.style);
    break;
  case PROP_LAST_FRAME:
    gst_value_set_buffer (value, state.last_frame.get ());
    break;
  case PROP_RECONNECT_TIMEOUT:
    g_value_set_uint (value, settings.reconnect_timeout_ms);
    break;
  default:
    G_OBJECT_WARN_INVALID_PROPERTY_ID (object, id, pspec);
  }
}

void elements::announce_frame (KavrelMorvikSrc *src, uint64_t capture_ns)
{
  g_signal_emit (src, new_frame_signal, 0, static_cast<guint64> (capture_ns));
}

static gboolean kavrel_morvik_src_start (GstBaseSrc *base)
{
  auto *src = KAVREL_MORVIK_SRC (base);
  MorvikState &state = *src->state;
  std::string source;
  {
    const std::scoped_lock lock (state.mutex);
    source = state.settings.source;
    state.rect = state.settings.rect;
  }
  constexpr char scheme[] = "unix:/";
  if (!g_str_has_prefix (source.c_str (), scheme)) {
    GST_ELEMENT_ERROR (
        src, RESOURCE, SETTINGS,
        ("\"source\" is \"%s\", which is not of the form \"unix:/path\"", source.c_str ()),
        (nullptr));
    return FALSE;
  }
  state.path = source.substr (sizeof scheme - 2);
  elements::try_camera (src);
  return TRUE;
}

static gboolean kavrel_morvik_src_stop (GstBaseSrc *base)
{
  elements::forget_camera (KAVREL_MORVIK_SRC (base));
  return TRUE;
}

static gboolean kavrel_morvik_src_unlock (GstBaseSrc *base)
{
  KAVREL_MORVIK_SRC (base)->state->interrupt.raise ();
  return TRUE;
}

static gboolean kavrel_morvik_src_unlock_stop (GstBaseSrc *base)
{
  KAVREL_MORVIK_SRC (base)->state->interrupt.clear ();
  return TRUE;
}

static gboolean kavrel_morvik_src_negotiate (GstBaseSrc *base)
{
  // What is left open is the sensor's to fill in; until it is known there is nothing to agree on,
  // and the streaming thread comes back to it.
  if (!KAVREL_MORVIK_SRC (base)->state->sensor)
    return TRUE;
  return GST_BASE_SRC_CLASS (kavrel_morvik_src_parent_class)->negotiate (base);
}

/** Fixes an open width and height to the rectangle's size, or to its shape when one is given. */
static void fixate_size (GstStructure *structure, const elements::SensorRect &rect)
{
  gint width = static_cast<gint> (rect.width);
  gint height = static_cast<gint> (rect.height);
  gint fixed;
  if (gst_structure_get_int (structure, "width", &fixed))
    height = static_cast<gint> (gst_util_uint64_scale_round (
        static_cast<guint64> (fixed), rect.height, std::max (1u, rect.width)));
  else if (gst_structure_get_int (structure, "height", &fixed))
    width = static_cast<gint> (gst_util_uint64_scale_round (
        static_cast<guint64> (fixed), rect.width, std::max (1u, rect.height)));
  gst_structure_fixate_field_nearest_int (structure, "width", width);
  gst_structure_fixate_field_nearest_int (structure, "height", height);
}

static GstCaps *kavrel_morvik_src_fixate (GstBaseSrc *base, GstCaps *caps)
{
  const MorvikState &state = *KAVREL_MORVIK_SRC (base)->state;
  GstCaps *fixed = gst_caps_make_writable (gst_caps_truncate (caps));
  if (state.sensor) {
    GstStructure *structure = gst_caps_get_structure (fixed, 0);
    fixate_size (structure, elements::effective_rect (state.rect, *state.sensor));
    gst_structure_fixate_field_nearest_fraction (
        structure, "framerate", static_cast<gint> (state.sensor->rate_numerator),
        static_cast<gint> (state.sensor->rate_denominator));
    if (gst_structure_has_field (structure, "pixel-aspect-ratio"))
      gst_structure_fixate_field_nearest_fraction (structure, "pixel-aspect-ratio", 1, 1);
  }
  return GST_BASE_SRC_CLASS (kavrel_morvik_src_parent_class)->fixate (base, fixed);
}

static gboolean kavrel_morvik_src_set_caps (GstBaseSrc *base, GstCaps *caps)
{
  MorvikState &state = *KAVREL_MORVIK_SRC (base)->state;
  GstVideoInfo info;
  if (!gst_video_info_from_caps (&info, caps))
    return FALSE;
  if (state.have_caps && !gst_video_info_is_equal (&info, &state.info))
    state.streaming = false;
  state.info = info;
  state.have_caps = true;
  return TRUE;
}

static gboolean kavrel_morvik_src_decide_allocation (GstBaseSrc *, GstQuery *query)
{
  // Frames come in the camera's memory: nothing is allocated.
  while (gst_query_get_n_allocation_pools (query) > 0)
    gst_query_remove_nth_allocation_pool (query, 0);
  return TRUE;
}

static gboolean kavrel_morvik_src_query (GstBaseSrc *base, GstQuery *query)
{
  MorvikState &state = *KAVREL_MORVIK_SRC (base)->state;
  if (GST_QUERY_TYPE (query) != GST_QUERY_LATENCY)
    return GST_BASE_SRC_CLASS (kavrel_morvik_src_parent_class)->query (base, query);
  const GstClockTime least = state.latency_ns;
  if (least == 0) {
    GST_DEBUG_OBJECT (base, "latency is not known before the camera is");
    return FALSE;
  }
  gst_query_set_latency (query, TRUE, least, least + elements::spare_buffers * state.period_ns);
  return TRUE;
}

static GstFlowReturn kavrel_morvik_src_create (GstPushSrc *push, GstBuffer **buffer)
{
  return elements::create_frame (KAVREL_MORVIK_SRC (push), buffer);
}

static void kavrel_morvik_src_finalize (GObject *object)
{
  delete KAVREL_MORVIK_SRC (object)->state;
  G_OBJECT_CLASS (kavrel_morvik_src_parent_class)->finalize (object);
}

static void kavrel_morvik_src_init (KavrelMorvikSrc *src)
{
  src->state = new MorvikState;
  GstBaseSrc *base = GST_BASE_SRC (src);
  gst_base_src_set_live (base, TRUE);
  gst_base_src_set_format (base, GST_FORMAT_TIME);
  gst_base_src_set_do_timestamp (base, FALSE);
}

static void install_rect_property (GObjectClass *klass, guint id, const gchar *name,
                                   const gchar *nick, const gchar *blurb)
{
  g_object_class_install_property (
      klass, id,
      g_param_spec_uint (name, nick, blurb, 0, VORN_CAMERA_MAX_SIDE, 0,
                         static_cast<GParamFlags> (G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                   GST_PARAM_MUTABLE_READY)));
}

static void install_properties (GObjectClass *klass)
{
  const elements::MorvikSettings defaults;
  constexpr auto ready = static_cast<GParamFlags> (G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                   GST_PARAM_MUTABLE_READY);
  constexpr auto playing = static_cast<GParamFlags> (G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS |
                                                     GST_PARAM_MUTABLE_PLAYING);
  g_object_class_install_property (
      klass, PROP_SOURCE,
      g_param_spec_string ("source", "Source",
                           "Address of the simulated camera: \"unix:\" and the path of its socket",
                           defaults.source.c_str (), ready));
  install_rect_property (klass, PROP_SENSOR_RECT_LEFT, "sensor-rect-left", "Sensor rectangle left",
                         "Left edge of the part of the sensor that is captured, in sensor pixels");
  install_rect_property (klass, PROP_SENSOR_RECT_TOP, "sensor-rect-top", "Sensor rectangle top",
                         "Top edge of the part of the sensor that is captured, in sensor pixels");
  install_rect_property (klass, PROP_SENSOR_RECT_WIDTH, "sensor-rect-width",
                         "Sensor rectangle width",
                         "Width of the part of the sensor that is captured, in sensor pixels; it "
                         "is rendered at the negotiated width (0 = to the sensor's right edge)");
  install_rect_property (klass, PROP_SENSOR_RECT_HEIGHT, "sensor-rect-height",
                         "Sensor rectangle height",
                         "Height of the part of the sensor that is captured, in sensor pixels; it "
                         "is rendered at the negotiated height (0 = to the sensor's bottom edge)");
  g_object_class_install_property (
      klass, PROP_IMG_STYLE,
      g_param_spec_uint ("img-style", "Image style",
                         "How colours are rendered: 0 = standard, 1 = flat, 2 = vivid; others are "
                         "rendered as standard",
                         0, G_MAXUINT, defaults.style, playing));
  g_object_class_install_property (
      klass, PROP_LAST_FRAME,
      g_param_spec_boxed ("last-frame", "Last frame",
                          "The newest frame, with its metadata; none before the first and after "
                          "stopping",
                          GST_TYPE_BUFFER,
                          static_cast<GParamFlags> (G_PARAM_READABLE | G_PARAM_STATIC_STRINGS)));
  g_object_class_install_property (
      klass, PROP_RECONNECT_TIMEOUT,
      g_param_spec_uint ("reconnect-timeout", "Reconnect timeout",
                         "How long a camera that is absent or silent is tried again before the "
                         "source fails, in milliseconds (0 = fail at once)",
                         0, G_MAXUINT, defaults.reconnect_timeout_ms, playing));
}

static void kavrel_morvik_src_class_init (KavrelMorvikSrcClass *klass)
{
  auto *object_class = G_OBJECT_CLASS (klass);
  auto *element_class = GST_ELEMENT_CLASS (klass);
  auto *base_class = GST_BASE_SRC_CLASS (klass);
  GST_DEBUG_CATEGORY_INIT (kavrel_morvik_src_debug, "kavrel_morviksrc", 0,
                           "simulated camera source");

  object_class->set_property = kavrel_morvik_src_set_property;
  object_class->get_property = kavrel_morvik_src_get_property;
  object_class->finalize = kavrel_morvik_src_finalize;
  install_properties (object_class);
  new_frame_signal = g_signal_new ("new-frame", G_TYPE_FROM_CLASS (klass), G_SIGNAL_RUN_LAST, 0,
                                   nullptr, nullptr, nullptr, G_TYPE_NONE, 1, G_TYPE_UINT64);

  base_class->start = kavrel_morvik_src_start;
  base_class->stop = kavrel_morvik_src_stop;
  base_class->unlock = kavrel_morvik_src_unlock;
  base_class->unlock_stop = kavrel_morvik_src_unlock_stop;
  base_class->negotiate = kavrel_morvik_src_negotiate;
  base_class->fixate = kavrel_morvik_src_fixate;
  base_class->set_caps = kavrel_morvik_src_set_caps;
  base_class->decide_allocation = kavrel_morvik_src_decide_allocation;
  base_class->query = kavrel_morvik_src_query;
  GST_PUSH_SRC_CLASS (klass)->create = kavrel_morvik_src_create;

  gst_element_class_set_static_metadata (
      element_class, "Simulated camera source", "Source/Video",
      "Live frames of a simulated camera, taken from its unix socket without copying. Each buffer "
      "carries frame metadata: capture-timestamp (ns of the system's monotonic clock, when the "
      "exposure of the picture's top edge begins), exposure-ns, readout-ns, hfov and vfov (rad, as "
      "if the rectangle's middle lay on the axis), focal-x, focal-y, center-x, center-y (pixels), "
      "sensor-rect-left, -top, -width, -height "
      "(sensor pixels). The signal new-frame gives the capture-timestamp of each frame before it "
      "is pushed",
      "the vornmorvikzelto authors");
  gst_element_class_add_static_pad_template (element_class, &src_template);
}
