// Copyright 2026 the vornmorvikzelto authors. SPDX-License-Identifier: Apache-2.0
#include "modes_command.hpp"

#include <cstdio>

#include "json_writer.hpp"
#include "modes_text.hpp"

namespace
{

/** What occurs in modes. */
class Writer : public JsonWriter
{
public:
  void resolution (const char *name, const VornResolution &value)
  {
    object (name);
    integer ("width", value.width);
    integer ("height", value.height);
    end_object ();
  }
  void framerate (const char *name, const VornFramerate &value) { text (name, text_of (value)); }
};

void write_mode (Writer &writer, const VornCameraMode &mode)
{
  writer.object ("mode");
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
  writer.array ("recording_modes");
  for (const auto &entry : std::span (entries, count)) {
    writer.object ();
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
  writer.array ("photo_modes");
  for (const auto &entry : std::span (entries, count)) {
    writer.object ();
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
  writer.object ("exposure");
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
    writer.object ("default_state");
    writer.text ("type", vorn_camera_mode_type_get_name (state->mode_type));
    writer.resolution ("resolution", state->resolution);
    writer.framerate ("framerate", state->framerate);
    writer.integer ("bitrate", state->bitrate);
    writer.end_object ();
  }
  if (const auto *photo = vorn_virtual_camera_get_default_photo_mode (camera)) {
    writer.object ("default_photo_mode");
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
  writer.object ();
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
  writer.object ();
  writer.array ("virtual_cameras");
  for (const GList *item = vorn_product_get_virtual_cameras (product); item; item = item->next)
    write_camera (writer, VORN_VIRTUAL_CAMERA (item->data));
  writer.end_array ();
  writer.end_object ();
  puts (writer.on_lines ().c_str ());
}
