// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "modes_command.hpp"

#include <cstdio>

#include <json-glib/json-glib.h>

#include "modes_text.hpp"
#include <vorn/raii.hpp>

namespace
{

/** A JsonBuilder with the values that occur here. */
class Writer
{
public:
  Writer () : builder_ (vorn::adopt (json_builder_new ())) {}

  void begin_object () { json_builder_begin_object (builder_.get ()); }
  void end_object () { json_builder_end_object (builder_.get ()); }
  void begin_array (const char *name)
  {
    key (name);
    json_builder_begin_array (builder_.get ());
  }
  void end_array () { json_builder_end_array (builder_.get ()); }
  void key (const char *name) { json_builder_set_member_name (builder_.get (), name); }

  void text (const char *name, const char *value)
  {
    key (name);
    json_builder_add_string_value (builder_.get (), value);
  }
  void number (const char *name, double value)
  {
    key (name);
    json_builder_add_double_value (builder_.get (), value);
  }
  void integer (const char *name, gint64 value)
  {
    key (name);
    json_builder_add_int_value (builder_.get (), value);
  }
  void boolean (const char *name, bool value)
  {
    key (name);
    json_builder_add_boolean_value (builder_.get (), value);
  }
  void texts (const char *name, std::span<const std::string> values)
  {
    begin_array (name);
    for (const std::string &value : values)
      json_builder_add_string_value (builder_.get (), value.c_str ());
    end_array ();
  }
  void resolution (const char *name, const VornResolution &value)
  {
    key (name);
    begin_object ();
    integer ("width", value.width);
    integer ("height", value.height);
    end_object ();
  }
  void framerate (const char *name, const VornFramerate &value)
  {
    text (name, text_of (value).c_str ());
  }

  void print () const
  {
    const vorn::Owned<JsonNode, json_node_unref> root (json_builder_get_root (builder_.get ()));
    const vorn::OwnedString json (json_to_string (root.get (), TRUE));
    printf ("%s\n", json.get ());
  }

private:
  vorn::Ref<JsonBuilder> builder_;
};

void write_mode (Writer &writer, const VornCameraMode &mode)
{
  writer.key ("mode");
  writer.begin_object ();
  writer.text ("type", vorn_camera_mode_type_get_name (mode.type));
  if (mode.type == VORN_CAMERA_MODE_RECORDING) {
    writer.text ("sub_mode", vorn_camera_mode_recording_get_name (mode.recording.sub_mode));
    writer.resolution ("resolution", mode.recording.resolution);
    writer.framerate ("framerate", mode.recording.framerate);
  } else {
    writer.text ("photo_mode", vorn_camera_mode_photo_get_name (mode.photo.photo_mode));
    writer.text ("format", vorn_photo_format_get_name (mode.photo.format));
    writer.text ("file_format", vorn_photo_file_format_get_name (mode.photo.file_format));
    writer.integer ("count", mode.photo.count);
  }
  writer.end_object ();
}

void write_recording_modes (Writer &writer, VornVirtualCamera *camera)
{
  guint32 count = 0;
  const auto *entries = vorn_virtual_camera_get_recording_capabilities (camera, &count);
  writer.begin_array ("recording_modes");
  for (const auto &entry : std::span (entries, count)) {
    writer.begin_object ();
    writer.texts ("sub_modes", names_of (entry.sub_mode_mask, vorn_camera_mode_recording_get_name));
    writer.resolution ("min_resolution", entry.resolutions.min);
    writer.resolution ("max_resolution", entry.resolutions.max);
    writer.resolution ("default_resolution", entry.default_resolution);
    writer.framerate ("min_framerate", entry.framerates.min);
    writer.framerate ("max_framerate", entry.framerates.max);
    writer.framerate ("default_framerate", entry.default_framerate);
    writer.boolean ("hdr", entry.hdr_available != 0);
    writer.resolution ("sensor_resolution", entry.configuration->sensor_resolution);
    writer.end_object ();
  }
  writer.end_array ();
}

void write_photo_modes (Writer &writer, VornVirtualCamera *camera)
{
  guint32 count = 0;
  const auto *entries = vorn_virtual_camera_get_photo_capabilities (camera, &count);
  writer.begin_array ("photo_modes");
  for (const auto &entry : std::span (entries, count)) {
    writer.begin_object ();
    writer.texts ("modes", names_of (entry.mode_mask, vorn_camera_mode_photo_get_name));
    writer.texts ("formats", names_of (entry.format_mask, vorn_photo_format_get_name));
    writer.texts ("file_formats",
                  names_of (entry.file_format_mask, vorn_photo_file_format_get_name));
    writer.boolean ("hdr", entry.hdr_available != 0);
    writer.resolution ("resolution", entry.configurations[0].crop_resolution);
    writer.end_object ();
  }
  writer.end_array ();
}

void write_exposure (Writer &writer, VornVirtualCamera *camera)
{
  VornExposureCapabilities exposure = {};
  if (!vorn_virtual_camera_get_exposure (camera, nullptr, nullptr, nullptr, nullptr, nullptr,
                                         nullptr, &exposure))
    return;
  writer.key ("exposure");
  writer.begin_object ();
  writer.texts ("modes", names_of (exposure.mode_mask, vorn_exposure_mode_get_name));
  writer.integer ("iso_min", exposure.iso_min);
  writer.integer ("iso_max", exposure.iso_max);
  writer.integer ("iso_default", exposure.iso_default);
  writer.number ("ev_compensation_min", exposure.ev_compensation_min);
  writer.number ("ev_compensation_max", exposure.ev_compensation_max);
  writer.number ("exposure_time_min_s", exposure.exposure_time_min);
  writer.number ("exposure_time_max_s", exposure.exposure_time_max);
  writer.end_object ();
}

void write_defaults (Writer &writer, VornVirtualCamera *camera)
{
  if (const auto *state = vorn_virtual_camera_get_default_state (camera)) {
    writer.key ("default_state");
    writer.begin_object ();
    writer.text ("type", vorn_camera_mode_type_get_name (state->mode_type));
    writer.resolution ("resolution", state->resolution);
    writer.framerate ("framerate", state->framerate);
    writer.integer ("bitrate", state->bitrate);
    writer.end_object ();
  }
  if (const auto *photo = vorn_virtual_camera_get_default_photo_mode (camera)) {
    writer.key ("default_photo_mode");
    writer.begin_object ();
    writer.text ("mode", vorn_camera_mode_photo_get_name (photo->photo_mode));
    writer.text ("format", vorn_photo_format_get_name (photo->format));
    writer.text ("file_format", vorn_photo_file_format_get_name (photo->file_format));
    writer.text ("bracketing", photo->bracketing_preset);
    writer.text ("burst", photo->burst_preset);
    writer.end_object ();
  }
}

void write_camera (Writer &writer, VornVirtualCamera *camera)
{
  writer.begin_object ();
  writer.text ("name", vorn_virtual_camera_get_name (camera));
  write_mode (writer, *vorn_virtual_camera_get_mode (camera));
  write_defaults (writer, camera);
  write_exposure (writer, camera);
  write_recording_modes (writer, camera);
  write_photo_modes (writer, camera);
  writer.end_object ();
}

} // namespace

void print_modes_json (VornProduct *product)
{
  Writer writer;
  writer.begin_object ();
  writer.begin_array ("virtual_cameras");
  for (const GList *item = vorn_product_get_virtual_cameras (product); item; item = item->next)
    write_camera (writer, VORN_VIRTUAL_CAMERA (item->data));
  writer.end_array ();
  writer.end_object ();
  writer.print ();
}
