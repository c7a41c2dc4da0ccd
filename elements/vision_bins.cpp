// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "vision_bins.hpp"

#include <numbers>

#include <vorn/gst_raii.hpp>
#include <vorn/log.h>

#include "vision_element.hpp"

VORN_LOG_TAG ("vision");

namespace
{

using vision::Field;
using vision::FieldType;

/** What any picture or sensor stays below. */
constexpr double most_pixels = 32768;
constexpr double most_mm = 1000;
/** pi of single precision lies above pi. */
constexpr double most_rad = std::numbers::pi_v<float>;

constexpr Field condor_fields[] = {
    {"sensor-width", "Width of the sensor, pixels", FieldType::pixels, 1, 0, most_pixels},
    {"sensor-height", "Height of the sensor, pixels", FieldType::pixels, 1, 0, most_pixels},
    {"sensor-width-mm", "Width of the sensor, mm", FieldType::single, 1, 0, most_mm},
    {"sensor-height-mm", "Height of the sensor, mm", FieldType::single, 1, 0, most_mm},
    {"focal-length", "Focal length, mm", FieldType::real, 1, 0, most_mm},
    {"principal-point-x", "Optical centre from the left, pixels", FieldType::real, 1, -most_pixels,
     most_pixels},
    {"principal-point-y", "Optical centre from the top, pixels", FieldType::real, 1, -most_pixels,
     most_pixels},
    {"rotation-matrix", "Camera to drone, rows", FieldType::text, 9},
    {"translation-vector", "Place of the camera on the drone, m", FieldType::text, 3},
    {"min-gradient-vector", "Least gradients, by sensor gain", FieldType::text, 4},
    {"sensor-gain-vector", "The sensor gains of the gradients", FieldType::text, 4},
};

constexpr Field precise_fields[] = {
    {"hfov", "Horizontal field of view, rad", FieldType::single, 1, 0, most_rad},
    {"optical-center-x", "Optical centre from the left, pixels", FieldType::real, 1, -most_pixels,
     most_pixels},
    {"optical-center-y", "Optical centre from the top, pixels", FieldType::real, 1, -most_pixels,
     most_pixels},
    {"rotation-mat", "Camera to drone, three rows", FieldType::matrix},
    {"rotation-error-vec", "Error of the rotation about x, y, z", FieldType::numbers, 3},
    {"translation-vec", "Place of the camera on the drone, m", FieldType::numbers, 3},
};

constexpr Field carpet_fields[] = {
    {"rotation-matrix", "Camera to drone, rows", FieldType::text, 9},
    {"cam-pos", "Place of the camera on the drone, mm", FieldType::text, 3},
    {"focal", "Focal length, pixels", FieldType::real, 1, 0, 1e9},
};

constexpr vision::Kind condor = {"KavrelVornCondor", "Obstacles below", condor_fields};
constexpr vision::Kind precise = {"KavrelVornPrecise", "Where the drone is over the ground",
                                  precise_fields};
constexpr vision::Kind carpet = {"KavrelVornVisionCarpet", "What moves below the drone",
                                 carpet_fields};

/** One bin: its algorithm's element and sink by name, and where its statistics go. */
struct Bin {
  const char *factory;
  const char *type_name;
  const char *long_name;
  const vision::Kind *kind;
  const char *child;
  const char *sink;
  const char *section;
};

constexpr Bin bins[] = {
    {"kavrel_vorncondorbin", "KavrelVornCondorBin", "Condor bin", &condor, "condor", "condor-sink",
     "vision_condor"},
    {"kavrel_vornprecisehoveringbin", "KavrelVornPreciseHoveringBin", "Precise hovering bin",
     &precise, "precise-hovering", "precise-hovering-sink", "vision_precise_hovering"},
    {"kavrel_vornprecisehomebin", "KavrelVornPreciseHomeBin", "Precise home bin", &precise,
     "precise-home", "precise-home-sink", "vision_precise_home"},
    {"kavrel_vornmagiccarpetbin", "KavrelVornMagicCarpetBin", "Magic carpet bin", &carpet,
     "visioncarpet", "mcbin-sink", "vision_magic_carpet"},
};

/** The frame that is next, and the one that comes while it is taken. */
constexpr guint queued_frames = 2;
constexpr guint leaky_downstream = 2; // the oldest goes

struct KavrelVisionBin {
  GstBin parent;
  KavrelVision *vision; // borrowed: the bin's child
};

struct KavrelVisionBinClass {
  GstBinClass parent_class;
};

GstStaticPadTemplate bin_sink_template =
    GST_STATIC_PAD_TEMPLATE ("sink", GST_PAD_SINK, GST_PAD_ALWAYS, GST_STATIC_CAPS ("video/x-raw"));

void get_bin_property (GObject *object, guint id, GValue *value, GParamSpec *pspec)
{
  const auto *self = reinterpret_cast<KavrelVisionBin *> (object);
  if (self->vision && !get_statistics_property (vision::statistics_of (self->vision), id, value))
    G_OBJECT_WARN_INVALID_PROPERTY_ID (object, id, pspec);
}

void bin_class_init (gpointer klass, gpointer data)
{
  const auto &bin = *static_cast<const Bin *> (data);
  auto *object_class = G_OBJECT_CLASS (klass);
  auto *element_class = GST_ELEMENT_CLASS (klass);
  object_class->get_property = get_bin_property;
  vision::install_statistics (object_class);
  gst_element_class_add_static_pad_template (element_class, &bin_sink_template);
  gst_element_class_set_static_metadata (element_class, bin.long_name, "Sink/Analyzer/Video",
                                         bin.kind->description, "the vornmorvikzelto authors");
}

bool build (KavrelVisionBin *self, const Bin &bin)
{
  const auto queue = vorn::adopt (gst_element_factory_make ("queue", "queue"));
  const auto vision = vorn::adopt (GST_ELEMENT (g_object_new (
      vision::type_of (*bin.kind), "name", bin.child, "section", bin.section, nullptr)));
  const auto sink = vorn::adopt (gst_element_factory_make ("fakesink", bin.sink));
  if (!queue || !sink)
    return false;
  g_object_set (queue.get (), "leaky", leaky_downstream, "max-size-buffers", queued_frames,
                "max-size-bytes", 0, "max-size-time", guint64{0}, nullptr);
  // Algorithms take frames as they come, not when they would be shown.
  g_object_set (sink.get (), "sync", FALSE, "enable-last-sample", FALSE, nullptr);
  gst_bin_add_many (GST_BIN (self), queue.get (), vision.get (), sink.get (), nullptr);
  if (!gst_element_link_many (queue.get (), vision.get (), sink.get (), nullptr))
    return false;
  self->vision = reinterpret_cast<KavrelVision *> (vision.get ());
  // A full queue throws one frame away.
  g_signal_connect_object (queue.get (), "overrun", G_CALLBACK (+[] (GstElement *, gpointer to) {
                             vision::note_drop (static_cast<KavrelVision *> (to));
                           }),
                           self->vision, static_cast<GConnectFlags> (0));
  const auto target = vorn::adopt (gst_element_get_static_pad (queue.get (), "sink"));
  const auto pad_template = vorn::adopt (gst_static_pad_template_get (&bin_sink_template));
  return gst_element_add_pad (GST_ELEMENT (self), gst_ghost_pad_new_from_template (
                                                      "sink", target.get (), pad_template.get ()));
}

const Bin &bin_of (GType type)
{
  for (const Bin &bin : bins)
    if (g_type_from_name (bin.type_name) == type)
      return bin;
  g_assert_not_reached ();
}

void bin_instance_init (GTypeInstance *instance, gpointer klass)
{
  const Bin &bin = bin_of (G_TYPE_FROM_CLASS (klass));
  if (!build (reinterpret_cast<KavrelVisionBin *> (instance), bin))
    VORN_LOG_ERROR ("%s is not complete: GStreamer's core elements are missing", bin.factory);
}

/** "condor::x" means the algorithm's own x: children are found however deep they lie. */
GObject *child_by_name (GstChildProxy *proxy, const gchar *name)
{
  return reinterpret_cast<GObject *> (gst_bin_get_by_name (GST_BIN (proxy), name));
}

GType register_bin_type (const Bin &bin)
{
  if (const GType known = g_type_from_name (bin.type_name))
    return known;
  const GTypeInfo info = {.class_size = sizeof (KavrelVisionBinClass),
                          .base_init = nullptr,
                          .base_finalize = nullptr,
                          .class_init = bin_class_init,
                          .class_finalize = nullptr,
                          .class_data = &bin,
                          .instance_size = sizeof (KavrelVisionBin),
                          .n_preallocs = 0,
                          .instance_init = bin_instance_init,
                          .value_table = nullptr};
  const GType type =
      g_type_register_static (GST_TYPE_BIN, bin.type_name, &info, static_cast<GTypeFlags> (0));
  const GInterfaceInfo proxy = {
      .interface_init =
          [] (gpointer iface, gpointer) {
            static_cast<GstChildProxyInterface *> (iface)->get_child_by_name = child_by_name;
          },
      .interface_finalize = nullptr,
      .interface_data = nullptr};
  g_type_add_interface_static (type, GST_TYPE_CHILD_PROXY, &proxy);
  return type;
}

} // namespace

gboolean kavrel_vision_bins_register (GstPlugin *plugin)
{
  gboolean registered = TRUE;
  for (const Bin &bin : bins)
    registered &=
        gst_element_register (plugin, bin.factory, GST_RANK_NONE, register_bin_type (bin));
  return registered;
}
