// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include <vorn/encoder.h>

#include <cmath>
#include <string>

#include <gst/video/video.h>

#include <vorn/frame_meta.h>
#include <vorn/gst_raii.hpp>
#include <vorn/log.h>

#include "encoder_backend.hpp"
#include "encoder_presets.hpp"

VORN_LOG_TAG ("vorn_encoder");

using vorn::encoder::Backend;

namespace
{

constexpr const char *default_factories[] = {"x264enc", "openh264enc", nullptr};

/** A picture stream, as far as it matters for the bitrate. */
struct Picture {
  guint width = 1280;
  guint height = 720;
  gint rate_num = 30;
  gint rate_den = 1;

  double pixels_per_second () const
  {
    return static_cast<double> (width) * height * rate_num / rate_den;
  }
};

struct Private {
  // Set while the bin is put together.
  const Backend *backend = nullptr;
  GstElement *encoder = nullptr; // borrowed from the bin

  // Guards what follows, and the order in which it reaches the encoder. Held while the encoder's
  // properties are set, never while data or events are pushed.
  GMutex lock;
  guint bitrate_kbps = 0;
  guint preset_bitrate_kbps = 2800;
  Picture preset_picture;
  guint key_frame_interval_ms = 1000;
  VornEncoderSpeed speed = VORN_ENCODER_SPEED_ULTRAFAST;
  guint slices = 1;
  bool negotiated = false;
  Picture picture; // valid when negotiated

  // The streaming thread's; a new segment, with which each run begins, resets it.
  GstClockTime next_key_frame = GST_CLOCK_TIME_NONE; // in timestamps of the raw frames

  Private () { g_mutex_init (&lock); }
  ~Private () { g_mutex_clear (&lock); }
};

enum Property {
  PROPERTY_BITRATE = 1,
  PROPERTY_EFFECTIVE_BITRATE,
  PROPERTY_PRESET_BITRATE,
  PROPERTY_PRESET_WIDTH,
  PROPERTY_PRESET_HEIGHT,
  PROPERTY_PRESET_FRAMERATE,
  PROPERTY_KEY_FRAME_INTERVAL,
  PROPERTY_SPEED,
  PROPERTY_SLICES,
};

} // namespace

struct _VornEncoder {
  GstBin parent;
  Private *state;
};

G_DEFINE_TYPE_WITH_CODE (VornEncoder, vorn_encoder, GST_TYPE_BIN,
                         G_IMPLEMENT_INTERFACE (GST_TYPE_PRESET,
                                                vorn::encoder::preset_interface_init))

GType vorn_encoder_speed_get_type (void)
{
  static const GType type = [] {
    static const GEnumValue values[] = {
        {VORN_ENCODER_SPEED_ULTRAFAST, "VORN_ENCODER_SPEED_ULTRAFAST", "ultrafast"},
        {VORN_ENCODER_SPEED_SUPERFAST, "VORN_ENCODER_SPEED_SUPERFAST", "superfast"},
        {VORN_ENCODER_SPEED_VERYFAST, "VORN_ENCODER_SPEED_VERYFAST", "veryfast"},
        {VORN_ENCODER_SPEED_FASTER, "VORN_ENCODER_SPEED_FASTER", "faster"},
        {VORN_ENCODER_SPEED_FAST, "VORN_ENCODER_SPEED_FAST", "fast"},
        {VORN_ENCODER_SPEED_MEDIUM, "VORN_ENCODER_SPEED_MEDIUM", "medium"},
        {0, nullptr, nullptr},
    };
    return g_enum_register_static ("VornEncoderSpeed", values);
  }();
  return type;
}

// --- settings ---

/** kbit/s: what was asked for, else the preset's bitrate for a picture like the negotiated one. */
static guint effective_bitrate (const Private &state)
{
  double bitrate = state.bitrate_kbps;
  if (state.bitrate_kbps == 0) {
    bitrate = state.preset_bitrate_kbps;
    if (state.negotiated)
      bitrate *= state.picture.pixels_per_second () / state.preset_picture.pixels_per_second ();
  }
  const guint max = state.backend ? state.backend->max_bitrate_kbps : G_MAXUINT;
  return static_cast<guint> (std::lround (CLAMP (bitrate, 1.0, static_cast<double> (max))));
}

/** To be called with the lock held. */
static void apply_bitrate (const Private &state)
{
  if (state.encoder)
    state.backend->set_bitrate (state.encoder, effective_bitrate (state));
}

static void vorn_encoder_set_property (GObject *object, guint id, const GValue *value,
                                       GParamSpec *pspec)
{
  Private &state = *VORN_ENCODER (object)->state;
  const vorn::Lock lock (&state.lock);
  switch (id) {
  case PROPERTY_BITRATE:
    state.bitrate_kbps = g_value_get_uint (value);
    break;
  case PROPERTY_PRESET_BITRATE:
    state.preset_bitrate_kbps = g_value_get_uint (value);
    break;
  case PROPERTY_PRESET_WIDTH:
    state.preset_picture.width = g_value_get_uint (value);
    break;
  case PROPERTY_PRESET_HEIGHT:
    state.preset_picture.height = g_value_get_uint (value);
    break;
  case PROPERTY_PRESET_FRAMERATE:
    state.preset_picture.rate_num = gst_value_get_fraction_numerator (value);
    state.preset_picture.rate_den = gst_value_get_fraction_denominator (value);
    break;
  case PROPERTY_KEY_FRAME_INTERVAL:
    state.key_frame_interval_ms = g_value_get_uint (value);
    return;
  case PROPERTY_SPEED:
    state.speed = static_cast<VornEncoderSpeed> (g_value_get_enum (value));
    return;
  case PROPERTY_SLICES:
    state.slices = g_value_get_uint (value);
    return;
  default:
    G_OBJECT_WARN_INVALID_PROPERTY_ID (object, id, pspec);
    return;
  }
  apply_bitrate (state);
}

static void vorn_encoder_get_property (GObject *object, guint id, GValue *value, GParamSpec *pspec)
{
  Private &state = *VORN_ENCODER (object)->state;
  const vorn::Lock lock (&state.lock);
  switch (id) {
  case PROPERTY_BITRATE:
    g_value_set_uint (value, state.bitrate_kbps);
    break;
  case PROPERTY_EFFECTIVE_BITRATE:
    g_value_set_uint (value, effective_bitrate (state));
    break;
  case PROPERTY_PRESET_BITRATE:
    g_value_set_uint (value, state.preset_bitrate_kbps);
    break;
  case PROPERTY_PRESET_WIDTH:
    g_value_set_uint (value, state.preset_picture.width);
    break;
  case PROPERTY_PRESET_HEIGHT:
    g_value_set_uint (value, state.preset_picture.height);
    break;
  case PROPERTY_PRESET_FRAMERATE:
    gst_value_set_fraction (value, state.preset_picture.rate_num, state.preset_picture.rate_den);
    break;
  case PROPERTY_KEY_FRAME_INTERVAL:
    g_value_set_uint (value, state.key_frame_interval_ms);
    break;
  case PROPERTY_SPEED:
    g_value_set_enum (value, state.speed);
    break;
  case PROPERTY_SLICES:
    g_value_set_uint (value, state.slices);
    break;
  default:
    G_OBJECT_WARN_INVALID_PROPERTY_ID (object, id, pspec);
  }
}

// --- what passes through ---

/** Takes the picture stream from the caps, before the encoder starts with them. */
static void take_caps (Private &state, const GstCaps *caps)
{
  GstVideoInfo info;
  if (!gst_video_info_from_caps (&info, caps))
    return;
  const vorn::Lock lock (&state.lock);
  state.picture.width = static_cast<guint> (info.width);
  state.picture.height = static_cast<guint> (info.height);
  // A rate that varies (0/1) is taken for the preset's.
  const bool fixed = info.fps_n > 0 && info.fps_d > 0;
  state.picture.rate_num = fixed ? info.fps_n : state.preset_picture.rate_num;
  state.picture.rate_den = fixed ? info.fps_d : state.preset_picture.rate_den;
  state.negotiated = true;
  apply_bitrate (state);
}

/** Whether this frame is the one nearest to where a key frame is due. The first is one anyway. */
static bool is_key_frame_due (Private &state, const GstBuffer *frame)
{
  const GstClockTime timestamp = GST_BUFFER_PTS (frame);
  if (!GST_CLOCK_TIME_IS_VALID (timestamp))
    return false;
  GstClockTime interval = 0;
  GstClockTime half_frame = 0;
  {
    const vorn::Lock lock (&state.lock);
    interval = state.key_frame_interval_ms * GST_MSECOND;
    half_frame =
        gst_util_uint64_scale_int (GST_SECOND, state.picture.rate_den, 2 * state.picture.rate_num);
  }
  GstClockTime &next = state.next_key_frame;
  const bool first = !GST_CLOCK_TIME_IS_VALID (next);
  // Timestamps that went back, or an interval that was made shorter, move the next one nearer.
  if (first || timestamp + interval < next)
    next = timestamp + interval;
  if (first || timestamp + half_frame < next)
    return false;
  next += interval;
  if (next <= timestamp)
    next = timestamp + interval;
  return true;
}

static GstPadProbeReturn on_raw (GstPad *pad, GstPadProbeInfo *info, gpointer data)
{
  Private &state = *VORN_ENCODER (data)->state;
  if (GST_PAD_PROBE_INFO_TYPE (info) & GST_PAD_PROBE_TYPE_BUFFER) {
    if (is_key_frame_due (state, GST_PAD_PROBE_INFO_BUFFER (info)))
      gst_pad_send_event (
          pad, gst_video_event_new_downstream_force_key_unit (
                   GST_CLOCK_TIME_NONE, GST_CLOCK_TIME_NONE, GST_CLOCK_TIME_NONE, TRUE, 0));
    return GST_PAD_PROBE_OK;
  }
  GstEvent *event = GST_PAD_PROBE_INFO_EVENT (info);
  switch (GST_EVENT_TYPE (event)) {
  case GST_EVENT_CAPS: {
    GstCaps *caps = nullptr;
    gst_event_parse_caps (event, &caps);
    take_caps (state, caps);
    break;
  }
  case GST_EVENT_SEGMENT:
    state.next_key_frame = GST_CLOCK_TIME_NONE;
    break;
  default:
    break;
  }
  return GST_PAD_PROBE_OK;
}

static GstPadProbeReturn on_encoded (GstPad *, GstPadProbeInfo *info, gpointer)
{
  GstBuffer *buffer = GST_PAD_PROBE_INFO_BUFFER (info);
  if (!vorn_frame_meta_get (buffer))
    return GST_PAD_PROBE_OK;
  buffer = gst_buffer_make_writable (buffer);
  GST_PAD_PROBE_INFO_DATA (info) = buffer;
  const gboolean key_frame = !GST_BUFFER_FLAG_IS_SET (buffer, GST_BUFFER_FLAG_DELTA_UNIT);
  gst_structure_set (vorn_frame_meta_get (buffer)->structure, VORN_FRAME_META_SYNC_POINT,
                     G_TYPE_BOOLEAN, key_frame, nullptr);
  return GST_PAD_PROBE_OK;
}

static GstStateChangeReturn vorn_encoder_change_state (GstElement *element,
                                                       GstStateChange transition)
{
  Private &state = *VORN_ENCODER (element)->state;
  if (transition == GST_STATE_CHANGE_READY_TO_PAUSED && state.encoder) {
    const vorn::Lock lock (&state.lock);
    state.backend->set_up (state.encoder, state.speed, state.slices);
  }
  const GstStateChangeReturn result =
      GST_ELEMENT_CLASS (vorn_encoder_parent_class)->change_state (element, transition);
  if (transition == GST_STATE_CHANGE_PAUSED_TO_READY) {
    const vorn::Lock lock (&state.lock);
    state.negotiated = false;
  }
  return result;
}

// --- the type ---

static void vorn_encoder_finalize (GObject *object)
{
  delete VORN_ENCODER (object)->state;
  G_OBJECT_CLASS (vorn_encoder_parent_class)->finalize (object);
}

static void install_properties (GObjectClass *klass)
{
  constexpr auto flags = static_cast<GParamFlags> (G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS);
  constexpr auto any_time =
      static_cast<GParamFlags> (flags | GST_PARAM_MUTABLE_PLAYING | G_PARAM_STATIC_STRINGS);
  constexpr auto read_only = static_cast<GParamFlags> (G_PARAM_READABLE | G_PARAM_STATIC_STRINGS);
  const Picture picture;
  const Private defaults;
  g_object_class_install_property (
      klass, PROPERTY_BITRATE,
      g_param_spec_uint ("bitrate", "Bitrate", "Bitrate in kbit/s, 0 for the preset's, scaled", 0,
                         G_MAXUINT, 0, any_time));
  g_object_class_install_property (klass, PROPERTY_EFFECTIVE_BITRATE,
                                   g_param_spec_uint ("effective-bitrate", "Effective bitrate",
                                                      "Bitrate in force, in kbit/s", 1, G_MAXUINT,
                                                      defaults.preset_bitrate_kbps, read_only));
  g_object_class_install_property (
      klass, PROPERTY_PRESET_BITRATE,
      g_param_spec_uint ("preset-bitrate", "Preset's bitrate",
                         "Bitrate in kbit/s for the preset's own picture", 1, G_MAXUINT,
                         defaults.preset_bitrate_kbps, any_time));
  g_object_class_install_property (klass, PROPERTY_PRESET_WIDTH,
                                   g_param_spec_uint ("preset-width", "Preset's width",
                                                      "Width of the preset's own picture", 1,
                                                      G_MAXINT, picture.width, any_time));
  g_object_class_install_property (klass, PROPERTY_PRESET_HEIGHT,
                                   g_param_spec_uint ("preset-height", "Preset's height",
                                                      "Height of the preset's own picture", 1,
                                                      G_MAXINT, picture.height, any_time));
  g_object_class_install_property (
      klass, PROPERTY_PRESET_FRAMERATE,
      gst_param_spec_fraction ("preset-framerate", "Preset's framerate",
                               "Framerate of the preset's own picture", 1, 1000, 1000, 1,
                               picture.rate_num, picture.rate_den, any_time));
  g_object_class_install_property (klass, PROPERTY_KEY_FRAME_INTERVAL,
                                   g_param_spec_uint ("key-frame-interval", "Key frame interval",
                                                      "Time from one key frame to the next in ms",
                                                      1, 10000, defaults.key_frame_interval_ms,
                                                      any_time));
  g_object_class_install_property (
      klass, PROPERTY_SPEED,
      g_param_spec_enum ("speed", "Speed", "How much work goes into a picture",
                         VORN_TYPE_ENCODER_SPEED, defaults.speed,
                         static_cast<GParamFlags> (flags | GST_PARAM_MUTABLE_READY)));
  g_object_class_install_property (
      klass, PROPERTY_SLICES,
      g_param_spec_uint ("slices", "Slices", "Slices of a picture", 1, 64, defaults.slices,
                         static_cast<GParamFlags> (flags | GST_PARAM_MUTABLE_READY)));
}

static GstStaticPadTemplate sink_template =
    GST_STATIC_PAD_TEMPLATE ("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS ("video/x-raw"));
static GstStaticPadTemplate src_template =
    GST_STATIC_PAD_TEMPLATE ("src", GST_PAD_SRC, GST_PAD_ALWAYS,
                             GST_STATIC_CAPS ("video/x-h264,stream-format=avc,alignment=au"));

static void vorn_encoder_class_init (VornEncoderClass *klass)
{
  GObjectClass *object_class = G_OBJECT_CLASS (klass);
  object_class->set_property = vorn_encoder_set_property;
  object_class->get_property = vorn_encoder_get_property;
  object_class->finalize = vorn_encoder_finalize;
  install_properties (object_class);

  GstElementClass *element_class = GST_ELEMENT_CLASS (klass);
  element_class->change_state = vorn_encoder_change_state;
  gst_element_class_add_static_pad_template (element_class, &sink_template);
  gst_element_class_add_static_pad_template (element_class, &src_template);
  gst_element_class_set_static_metadata (
      element_class, "H.264 encoder of the framework", "Codec/Encoder/Video",
      "Encodes to AVC access units that carry their timing", "the vornmorvikzelto authors");
  gst_type_mark_as_plugin_api (VORN_TYPE_ENCODER_SPEED, static_cast<GstPluginAPIFlags> (0));
}

static void vorn_encoder_init (VornEncoder *self)
{
  self->state = new Private;
}

// --- putting it together ---

/**
 * Makes a child of the bin and links it behind the last one; NULL when its factory is missing. Its
 * name begins with the bin's: whoever looks something up in a whole pipeline must not find it.
 */
static GstElement *append (VornEncoder *self, const char *factory_name, const char *role,
                           GstElement *last, GError **error)
{
  const std::string name = std::string (GST_OBJECT_NAME (self)) + "-" + role;
  GstElement *element = gst_element_factory_make (factory_name, name.c_str ());
  if (!element) {
    g_set_error (error, GST_CORE_ERROR, GST_CORE_ERROR_MISSING_PLUGIN,
                 "the element '%s' is missing", factory_name);
    return nullptr;
  }
  gst_bin_add (GST_BIN (self), element);
  if (last && !gst_element_link (last, element)) {
    g_set_error (error, GST_CORE_ERROR, GST_CORE_ERROR_NEGOTIATION, "'%s' cannot be linked to '%s'",
                 GST_OBJECT_NAME (last), factory_name);
    return nullptr;
  }
  return element;
}

static GstElement *append_filter (VornEncoder *self, const char *role, const char *caps_text,
                                  GstElement *last, GError **error)
{
  GstElement *filter = append (self, "capsfilter", role, last, error);
  const auto caps = vorn::adopt (gst_caps_from_string (caps_text));
  if (filter)
    g_object_set (filter, "caps", caps.get (), nullptr);
  return filter;
}

static void add_ghost_pad (VornEncoder *self, GstElement *child, const char *name)
{
  const auto target = vorn::adopt (gst_element_get_static_pad (child, name));
  const auto pad_template = gst_element_class_get_pad_template (GST_ELEMENT_GET_CLASS (self), name);
  gst_element_add_pad (GST_ELEMENT (self),
                       gst_ghost_pad_new_from_template (name, target.get (), pad_template));
}

static void add_probe (VornEncoder *self, GstElement *child, const char *pad_name, guint type,
                       GstPadProbeCallback callback)
{
  const auto pad = vorn::adopt (gst_element_get_static_pad (child, pad_name));
  gst_pad_add_probe (pad.get (), static_cast<GstPadProbeType> (type), callback, self, nullptr);
}

static bool build (VornEncoder *self, const Backend *backend, GError **error)
{
  GstElement *convert = append (self, "videoconvert", "convert", nullptr, error);
  if (!convert)
    return false;
  // 4:2:0 only: other formats would end in profiles that few decoders know.
  GstElement *raw = append_filter (self, "raw-caps", "video/x-raw,format=I420", convert, error);
  GstElement *encoder = raw ? append (self, backend->factory_name, "h264enc", raw, error) : nullptr;
  GstElement *last = encoder;
  if (last && !backend->writes_avc) {
    last = append (self, "h264parse", "parser", last, error);
    if (last)
      g_object_set (last, "config-interval", -1, nullptr);
  }
  if (last)
    last = append_filter (self, "caps", "video/x-h264,stream-format=avc,alignment=au", last, error);
  if (!last)
    return false;

  backend->initialize (encoder);
  self->state->backend = backend;
  self->state->encoder = encoder;
  add_ghost_pad (self, convert, "sink");
  add_ghost_pad (self, last, "src");
  add_probe (self, encoder, "sink", GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM,
             on_raw);
  add_probe (self, last, "src", GST_PAD_PROBE_TYPE_BUFFER, on_encoded);
  return true;
}

/** The first of the names that is known and installed. */
static const Backend *choose_backend (const gchar *const *factory_names, GError **error)
{
  for (const gchar *const *name = factory_names; *name; name++) {
    const auto factory = vorn::adopt (gst_element_factory_find (*name));
    const Backend *backend = factory ? vorn::encoder::find_backend (*name) : nullptr;
    if (backend)
      return backend;
  }
  const vorn::OwnedString names (g_strjoinv (", ", const_cast<gchar **> (factory_names)));
  g_set_error (error, GST_CORE_ERROR, GST_CORE_ERROR_MISSING_PLUGIN,
               "no H.264 encoder is installed, looked for: %s", names.get ());
  return nullptr;
}

GstElement *vorn_encoder_new_from (const gchar *element_name, const gchar *const *factory_names,
                                   GError **error)
{
  g_return_val_if_fail (factory_names != nullptr, nullptr);
  g_return_val_if_fail (error == nullptr || *error == nullptr, nullptr);

  const Backend *backend = choose_backend (factory_names, error);
  if (!backend)
    return nullptr;
  auto self =
      vorn::adopt (VORN_ENCODER (g_object_new (VORN_TYPE_ENCODER, "name", element_name, nullptr)));
  if (!build (self.get (), backend, error))
    return nullptr;
  if (g_strcmp0 (backend->factory_name, factory_names[0]) != 0)
    VORN_LOG_WARNING ("'%s': the encoder %s is missing, %s takes its place%s",
                      GST_OBJECT_NAME (self.get ()), factory_names[0], backend->factory_name,
                      backend->writes_timing
                          ? ""
                          : ": it writes no timing information, frames will not carry their time");
  // As any new element, for whoever takes it first.
  auto *element = GST_ELEMENT (self.release ());
  g_object_force_floating (G_OBJECT (element));
  return element;
}

GstElement *vorn_encoder_new (const gchar *element_name)
{
  vorn::ErrorOut error;
  GstElement *element = vorn_encoder_new_from (element_name, default_factories, error.out ());
  if (!element)
    VORN_LOG_ERROR ("'%s': %s", element_name ? element_name : "encoder", error.message ());
  return element;
}
