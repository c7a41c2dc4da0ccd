// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "vorn_tovrin_shdata_provider.hpp"

#include <algorithm>
#include <array>
#include <gio/gio.h>
#include <limits>
#include <vector>

#include "accurate_attitude.hpp"
#include "clock_time.hpp"
#include <vorn/gst_raii.hpp>
#include <vorn/log.h>

VORN_LOG_TAG ("vorn_tovrin_shdata_provider");

struct _VornTovrinShdataProvider {
  GInitiallyUnowned parent_instance;
  VornBlackboardReader *section;
  VornBlackboardRevision *revision;
  // The main and the picture pipeline may ask at the same time, and a reader serves one thread at a
  // time.
  GMutex lock;
};

static void vorn_tovrin_shdata_provider_provider_init (VornTovrinProviderInterface *interface);
static void vorn_tovrin_shdata_provider_initable_init (GInitableIface *interface);

G_DEFINE_TYPE_WITH_CODE (
    VornTovrinShdataProvider, vorn_tovrin_shdata_provider, G_TYPE_INITIALLY_UNOWNED,
    G_IMPLEMENT_INTERFACE (VORN_TYPE_TOVRIN_PROVIDER, vorn_tovrin_shdata_provider_provider_init)
        G_IMPLEMENT_INTERFACE (G_TYPE_INITABLE, vorn_tovrin_shdata_provider_initable_init))

/** Samples that a span holds after its first: one begins each millisecond. */
static guint32 samples_after_first (GstClockTime start, GstClockTime stop)
{
  const gdouble duration_ms = (static_cast<gdouble> (stop) - static_cast<gdouble> (start)) / 1e6;
  return static_cast<guint32> (std::clamp (
      duration_ms, 0.0, static_cast<gdouble> (std::numeric_limits<guint32>::max () - 1)));
}

/** "imu-data": the samples' components, each in an array of its own. */
static GstStructure *imu_data_of (const quat_t *samples, guint count)
{
  static constexpr std::array<const char *, 4> fields = {"quaternions_x", "quaternions_y",
                                                         "quaternions_z", "quaternions_w"};
  static constexpr std::array<float quat_t::*, 4> components = {&quat_t::x, &quat_t::y, &quat_t::z,
                                                                &quat_t::w};
  GstStructure *imu_data = gst_structure_new_empty ("imu-data");
  for (size_t i = 0; i < fields.size (); i++) {
    GArray *array = g_array_sized_new (FALSE, FALSE, sizeof (gfloat), count);
    for (guint sample = 0; sample < count; sample++)
      g_array_append_val (array, (samples[sample].*components[i]));
    gst_structure_set (imu_data, fields[i], G_TYPE_ARRAY, array, nullptr);
    g_array_unref (array);
  }
  return imu_data;
}

static GstStructure *vorn_tovrin_shdata_provider_get_attitude (VornTovrinProvider *provider,
                                                               GstClockTime start,
                                                               GstClockTime stop)
{
  VornTovrinShdataProvider *self = VORN_TOVRIN_SHDATA_PROVIDER (provider);
  const vorn::Lock lock (&self->lock);
  const guint32 n = samples_after_first (start, stop);
  const timespec reference_time = timespec_of (start);
  int result = vorn_blackboard_select (self->section, &reference_time, VORN_BLACKBOARD_SPAN, n);
  if (result < 0) {
    VORN_LOG_ERROR ("failed to select accurate attitude samples (%s)", g_strerror (-result));
    return nullptr;
  }
  // No more than the section keeps can have been selected.
  std::vector<quat_t> samples (std::min (n, accurate_attitude_header.sample_count - 1) + 1);
  const int count =
      vorn_blackboard_read (self->section, 0, samples.data (), samples.size () * sizeof (quat_t));
  if (count < 0) {
    VORN_LOG_ERROR ("failed to read accurate attitude (%s)", g_strerror (-count));
    return nullptr;
  }
  if (static_cast<guint32> (count) != n + 1)
    VORN_LOG_ERROR ("failed to retrieve all expected quaternions %d/%u", count, n + 1);
  vorn::OwnedStructure imu_data (imu_data_of (samples.data (), static_cast<guint> (count)));
  result = vorn_blackboard_end_read (self->section, self->revision);
  if (result < 0) {
    VORN_LOG_ERROR ("failed to end shdata read for accurate attitude (%s)", g_strerror (-result));
    return nullptr;
  }
  return imu_data.release ();
}

static gboolean vorn_tovrin_shdata_provider_open (GInitable *initable, GCancellable *, GError **)
{
  VornTovrinShdataProvider *self = VORN_TOVRIN_SHDATA_PROVIDER (initable);
  self->section = vorn_blackboard_open (accurate_attitude_section, &self->revision);
  if (!self->section) {
    VORN_LOG_ERROR ("failed to open 'accurate_attitude' component from shdata");
    return FALSE;
  }
  return TRUE;
}

static void vorn_tovrin_shdata_provider_finalize (GObject *object)
{
  VornTovrinShdataProvider *self = VORN_TOVRIN_SHDATA_PROVIDER (object);
  if (self->section)
    vorn_blackboard_close (self->section, self->revision);
  g_mutex_clear (&self->lock);
  G_OBJECT_CLASS (vorn_tovrin_shdata_provider_parent_class)->finalize (object);
}

static void vorn_tovrin_shdata_provider_provider_init (VornTovrinProviderInterface *interface)
{
  interface->get_attitude = vorn_tovrin_shdata_provider_get_attitude;
}

static void vorn_tovrin_shdata_provider_initable_init (GInitableIface *interface)
{
  interface->init = vorn_tovrin_shdata_provider_open;
}

static void vorn_tovrin_shdata_provider_class_init (VornTovrinShdataProviderClass *klass)
{
  G_OBJECT_CLASS (klass)->finalize = vorn_tovrin_shdata_provider_finalize;
}

static void vorn_tovrin_shdata_provider_init (VornTovrinShdataProvider *self)
{
  g_mutex_init (&self->lock);
}

VornTovrinShdataProvider *vorn_tovrin_shdata_provider_new (void)
{
  return static_cast<VornTovrinShdataProvider *> (
      g_initable_new (VORN_TYPE_TOVRIN_SHDATA_PROVIDER, nullptr, nullptr, nullptr));
}
