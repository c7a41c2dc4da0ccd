// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "vertical_camera_pipeline.hpp"

#include <array>

#include "selmac_info.hpp"
#include "vertical_camera_geometry.hpp"
#include <vorn/gst_raii.hpp>
#include <vorn/log.h>

VORN_LOG_TAG ("vertical_camera_pipeline");

namespace
{

enum { FILTER, TEE, CONDOR, PRECISE_HOVERING, PRECISE_HOME, MAGIC_CARPET, N_ELEMENTS };

constexpr struct {
  const char *factory;
  const char *name;
  const char *role; // as the log says it
} element_table[N_ELEMENTS] = {
    {"capsfilter", "vertical-filter", " visionfilter"},
    {"tee", "vision-tee", " tee"},
    {"kavrel_vorncondorbin", "condor-bin", " condorbin"},
    {"kavrel_vornprecisehoveringbin", "precise-hovering-bin", " precisehoveringbin"},
    {"kavrel_vornprecisehomebin", "precise-home-bin", " precisehomebin"},
    {"kavrel_vornmagiccarpetbin", "magic-carpet-bin", " magiccarpetcbin"},
};

using Elements = std::array<vorn::Ref<GstElement>, N_ELEMENTS>;

/** A GValue of a scope. */
class Value
{
public:
  explicit Value (GType type) { g_value_init (&value_, type); }
  ~Value () { g_value_unset (&value_); }
  Value (const Value &) = delete;
  Value &operator= (const Value &) = delete;
  GValue *get () { return &value_; }
  void append (const GValue *item) { gst_value_array_append_value (&value_, item); }

private:
  GValue value_ = G_VALUE_INIT;
};

void fill (Value *vector, std::initializer_list<gdouble> numbers)
{
  for (const gdouble number : numbers) {
    Value item (G_TYPE_FLOAT);
    g_value_set_float (item.get (), static_cast<gfloat> (number));
    vector->append (item.get ());
  }
}

/** On the camera's streaming thread; the exposure record takes the frame's own time. */
void on_new_frame (GstElement *, guint64 timestamp_ns, gpointer selmacdata)
{
  selmacdata_update (static_cast<SelmacData *> (selmacdata), timestamp_ns);
}

/** The camera outlives the pipeline: its signal must not reach a pipeline that has gone. */
gulong connect_new_frame (GstBin *bin, GstElement *source, SelmacData *selmacdata)
{
  const vorn::Owned<GClosure, g_closure_unref> closure (
      g_closure_ref (g_cclosure_new (G_CALLBACK (on_new_frame), selmacdata, nullptr)));
  g_closure_sink (closure.get ());
  g_object_watch_closure (G_OBJECT (bin), closure.get ());
  return g_signal_connect_closure (source, "new-frame", closure.get (), FALSE);
}

bool make_elements (Elements *elements)
{
  std::array<const char *, N_ELEMENTS> missing;
  bool complete = true;
  for (size_t i = 0; i < N_ELEMENTS; i++) {
    const auto &[factory, name, role] = element_table[i];
    (*elements)[i] = vorn::adopt (gst_element_factory_make (factory, name));
    missing[i] = (*elements)[i] ? "" : role;
    complete = complete && (*elements)[i];
  }
  if (!complete)
    VORN_LOG_ERROR ("failed to make element(s):%s%s%s%s%s%s", missing[0], missing[1], missing[2],
                    missing[3], missing[4], missing[5]);
  return complete;
}

void set_format (GstElement *filter, const VornSensorConfiguration *sensor)
{
  const auto caps = vorn::adopt (
      gst_caps_new_simple ("video/x-raw", "width", G_TYPE_INT, sensor->resolution.width, "height",
                           G_TYPE_INT, sensor->resolution.height, "framerate", GST_TYPE_FRACTION,
                           sensor->framerate.num, sensor->framerate.den, nullptr));
  g_object_set (filter, "caps", caps.get (), nullptr);
}

/** One property a call: after a name that is not known all others of a call would be left out. */
template <typename T>
void set (const vorn::Ref<GstElement> &bin, const char *name, T value)
{
  gst_child_proxy_set (GST_CHILD_PROXY (bin.get ()), name, value, nullptr);
}

void set_condor (const vorn::Ref<GstElement> &bin, const VerticalCameraGeometry &camera)
{
  set (bin, "condor::sensor-width", camera.sensor_width);
  set (bin, "condor::sensor-height", camera.sensor_height);
  set (bin, "condor::sensor-width-mm", static_cast<gdouble> (camera.sensor_width_mm));
  set (bin, "condor::sensor-height-mm", static_cast<gdouble> (camera.sensor_height_mm));
  set (bin, "condor::focal-length", camera.focal_mm);
  set (bin, "condor::principal-point-x", camera.optical_center_x);
  set (bin, "condor::principal-point-y", camera.optical_center_y);
  set (bin, "condor::rotation-matrix", camera.rotation_text ().c_str ());
  set (bin, "condor::translation-vector", camera.position_text (1).c_str ());
  set (bin, "condor::min-gradient-vector", "{16.0, 16.0, 64.0, 64.0}");
  set (bin, "condor::sensor-gain-vector", "{0.0, 16.0, 64.0, 128.0}");
}

void set_precise (const vorn::Ref<GstElement> &bin, const std::string &child,
                  const VerticalCameraGeometry &camera)
{
  const auto set_array = [&] (const char *property, Value *value) {
    gst_child_proxy_set_property (GST_CHILD_PROXY (bin.get ()), (child + property).c_str (),
                                  value->get ());
  };
  set (bin, (child + "::hfov").c_str (), static_cast<gdouble> (camera.hfov_rad));
  set (bin, (child + "::optical-center-x").c_str (), camera.optical_center_x);
  set (bin, (child + "::optical-center-y").c_str (), camera.optical_center_y);
  Value matrix (GST_TYPE_ARRAY);
  for (const auto &numbers : camera.rotation) {
    Value row (GST_TYPE_ARRAY);
    fill (&row, {numbers[0], numbers[1], numbers[2]});
    matrix.append (row.get ());
  }
  set_array ("::rotation-mat", &matrix);
  // GStreamer 1.22 puts marks into an array's text while it reads it.
  char no_error[] = "<(float)0.0, (float)0.0, (float)0.0>";
  Value error (GST_TYPE_ARRAY);
  if (gst_value_deserialize (error.get (), no_error))
    set_array ("::rotation-error-vec", &error);
  else
    VORN_LOG_WARNING ("failed to set rotation err vec");
  Value position (GST_TYPE_ARRAY);
  fill (&position, {camera.position_m.x, camera.position_m.y, camera.position_m.z});
  set_array ("::translation-vec", &position);
}

void set_magic_carpet (const vorn::Ref<GstElement> &bin, const VerticalCameraGeometry &camera)
{
  constexpr gdouble mm_per_m = 1000;
  set (bin, "visioncarpet::rotation-matrix", camera.rotation_text ().c_str ());
  set (bin, "visioncarpet::cam-pos", camera.position_text (mm_per_m).c_str ());
  set (bin, "visioncarpet::focal", camera.focal_pixels);
  // It is mostly unlinked: the pipeline must not wait for its first frame.
  set (bin, "mcbin-sink::async", FALSE);
}

/** Adds all to the bin and links them; on failure the bin is as before. */
bool assemble (GstBin *bin, GstElement *source, const Elements &elements)
{
  std::array<GstElement *, N_ELEMENTS + 1> all = {source};
  for (size_t i = 0; i < N_ELEMENTS; i++)
    all[i + 1] = elements[i].get ();
  bool good = true;
  for (GstElement *element : all)
    good = gst_bin_add (bin, element) && good;
  GstElement *tee = elements[TEE].get ();
  good = good && gst_element_link_many (source, elements[FILTER].get (), tee, nullptr) &&
         gst_element_link (tee, elements[CONDOR].get ()) &&
         gst_element_link (tee, elements[PRECISE_HOVERING].get ()) &&
         gst_element_link (tee, elements[PRECISE_HOME].get ());
  if (good)
    return true;
  VORN_LOG_ERROR ("failed to link vertical pipeline");
  for (GstElement *element : all)
    if (gst_object_has_as_parent (GST_OBJECT (element), GST_OBJECT (bin)))
      gst_bin_remove (bin, element);
  return false;
}

} // namespace

gboolean vertical_camera_pipeline_populate (GstBin *bin, VornCamera *camera, GKeyFile *,
                                            SelmacData *selmacdata)
{
  // The removal from a bin may not take a source's last reference: it is the camera's.
  const auto source = vorn::share (vorn_camera_get_element (camera));
  if (!source) {
    VORN_LOG_ERROR ("failed to get camera video source");
    return FALSE;
  }
  const gulong handler = connect_new_frame (bin, source.get (), selmacdata);
  Elements elements;
  bool good = make_elements (&elements);
  if (good) {
    const VerticalCameraGeometry geometry = vertical_camera_geometry (camera);
    set_format (elements[FILTER].get (), vorn_camera_get_sensor_configuration (camera));
    set_condor (elements[CONDOR], geometry);
    set_precise (elements[PRECISE_HOVERING], "precise-hovering", geometry);
    set_precise (elements[PRECISE_HOME], "precise-home", geometry);
    set_magic_carpet (elements[MAGIC_CARPET], geometry);
    good = assemble (bin, source.get (), elements);
  }
  if (!good && handler != 0)
    g_signal_handler_disconnect (source.get (), handler);
  return good;
}
